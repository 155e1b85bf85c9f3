// The pass-through copy of a 4000 x 3000 frame between differently padded
// buffers, next to one memcpy of the same number of picture bytes.
#include <benchmark/benchmark.h>
#include <hostsim/image_buffer.h>
#include <vyalgo2/PluginUtils.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

using hostsim::ImageBuffer;
using lumo::PixelFormat;

struct Frames {
  Frames(PixelFormat layout)
      : src(ImageBuffer::allocate({layout, 4000, 3000, 4032, 3008})),
        dst(ImageBuffer::allocate({layout, 4000, 3000, 4096, 3072})) {
    std::memset(src->data(), 0x5a, src->size());
  }
  std::unique_ptr<ImageBuffer> src, dst;
};

size_t pictureBytes(PixelFormat layout) {
  return layout == PixelFormat::RGBA ? size_t{4000} * 3000 * 4 : size_t{4000} * 3000 * 3 / 2;
}

void BM_VyCopyBuffer(benchmark::State& state) {
  const auto layout = static_cast<PixelFormat>(state.range(0));
  Frames f(layout);
  vyalgo2::VyImageBuffer s = f.src->imageBuffer(), d = f.dst->imageBuffer();
  for (auto _ : state) {
    benchmark::DoNotOptimize(vyalgo2::PluginUtils::vyCopyBuffer(&d, &s));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * pictureBytes(layout)));
}

// The reference: the same picture bytes as one contiguous memcpy.
void BM_Memcpy(benchmark::State& state) {
  const auto layout = static_cast<PixelFormat>(state.range(0));
  const size_t bytes = pictureBytes(layout);
  std::vector<uint8_t> a(bytes, 0x5a), b(bytes);
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

BENCHMARK(BM_VyCopyBuffer)
    ->Arg(static_cast<int>(PixelFormat::NV21))
    ->Arg(static_cast<int>(PixelFormat::RGBA))
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Memcpy)
    ->Arg(static_cast<int>(PixelFormat::NV21))
    ->Arg(static_cast<int>(PixelFormat::RGBA))
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
