// YUV to RGBA for writing PNGs of results: the libyuv fast path measured
// beside the double-precision reference on the same 4000x3000 NV21 frame.
#include <benchmark/benchmark.h>

#include "image.h"
#include "yuv_convert.h"

namespace {

lumo::Image frame() {
  lumo::Image yuv = lumo::makeImage({lumo::PixelFormat::NV21, 4000, 3000, 4032, 3008});
  uint32_t seed = 1;
  for (auto& b : yuv.bytes) {
    seed = seed * 1664525u + 1013904223u;
    b = uint8_t(seed >> 24);
  }
  return yuv;
}

void convert(benchmark::State& state, void (*fn)(const lumo::Image&, lumo::Image&)) {
  const lumo::Image yuv = frame();
  lumo::Image rgba = lumo::makeImage({lumo::PixelFormat::RGBA, 4000, 3000, 0, 0});
  for (auto _ : state) {
    fn(yuv, rgba);
    benchmark::DoNotOptimize(rgba.bytes.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(rgba.bytes.size()));
}

void BM_YuvToRgbaReference(benchmark::State& state) { convert(state, lumo::yuvToRgbaReference); }
void BM_YuvToRgbaLibyuv(benchmark::State& state) { convert(state, lumo::yuvToRgbaFast); }

}  // namespace

BENCHMARK(BM_YuvToRgbaReference)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_YuvToRgbaLibyuv)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
