// Renderer speed: 4000x3000 NV21 and 1920x1080 NV12 frames through the LUT
// alone and LUT + style, on one and two threads, beside memcpy of the same
// input and output bytes (the floor). render_fixture writes the same frame
// and LUT to files for the ffmpeg comparison in scripts/run-benchmarks.sh.
#include <benchmark/benchmark.h>
#include <hwy/highway.h>
#include <hwy/targets.h>
#include <sys/resource.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame_renderer.h"
#include "fused_kernels.h"
#include "render_bench_fixture.h"

namespace lumo::render {
namespace {

using bench::fillFrame;
using bench::Frame;
using bench::lookLattice;
using bench::lookStyle;

// CPU time of the whole process (every thread) in milliseconds: on a shared
// machine the wall time says more about the neighbours than about the code.
double processCpuMs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto ms = [](const timeval& t) { return t.tv_sec * 1e3 + t.tv_usec / 1e3; };
  return ms(usage.ru_utime) + ms(usage.ru_stime);
}

void setProcessCpu(benchmark::State& state, double startMs) {
  state.counters["process_cpu_ms"] = (processCpuMs() - startMs) / double(state.iterations());
}

void BM_Render(benchmark::State& state, FrameLayout layout, uint32_t width, uint32_t height,
               bool withStyle, bool fixedPoint = true, int64_t target = 0) {
  // A lesser instruction set than the machine's best, to show what CPUs
  // without AVX-512 get; 0 keeps the best.
  if (target != 0) {
    if ((hwy::SupportedTargets() & target) == 0) {
      state.SkipWithError("instruction set not supported here");
      return;
    }
    hwy::SetSupportedTargetsForTest(target);
  }
  const size_t threads = size_t(state.range(0));
  Frame in(layout, width, height), out(layout, width, height);
  fillFrame(in);
  EffectChain chain = testing::lutChain(lookLattice());
  if (withStyle) testing::addStyle(chain, lookStyle());
  FrameRenderer renderer({RenderPath::Fused, threads, fixedPoint});
  renderer.setChain(chain);
  const double cpuStart = processCpuMs();
  for (auto _ : state) {
    const std::string why = renderer.render(in.view, out.view);
    if (!why.empty()) state.SkipWithError(why.c_str());
    benchmark::DoNotOptimize(out.bytes.data());
    benchmark::ClobberMemory();
  }
  setProcessCpu(state, cpuStart);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(2 * in.bytes.size()));
  state.SetLabel(std::string(fusedKernelTarget()) +
                 (renderer.lastUsedFixedPoint() ? " fixed-point" : " float"));
  if (target != 0) hwy::SetSupportedTargetsForTest(0);
}

void BM_Memcpy(benchmark::State& state, uint32_t width, uint32_t height) {
  Frame in(FrameLayout::NV21, width, height), out(FrameLayout::NV21, width, height);
  fillFrame(in);
  const double cpuStart = processCpuMs();
  for (auto _ : state) {
    std::memcpy(out.bytes.data(), in.bytes.data(), in.bytes.size());
    benchmark::DoNotOptimize(out.bytes.data());
    benchmark::ClobberMemory();
  }
  setProcessCpu(state, cpuStart);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(2 * in.bytes.size()));
}

}  // namespace
}  // namespace lumo::render

using lumo::render::BM_Memcpy;
using lumo::render::BM_Render;
using lumo::render::FrameLayout;

BENCHMARK_CAPTURE(BM_Memcpy, nv21_4000x3000, 4000, 3000)->UseRealTime();
BENCHMARK_CAPTURE(BM_Render, nv21_4000x3000_lut, FrameLayout::NV21, 4000, 3000, false)
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Render, nv21_4000x3000_lut_style, FrameLayout::NV21, 4000, 3000, true)
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
// The float kernels alone, for the fixed-point kernel's gain.
BENCHMARK_CAPTURE(BM_Render, nv21_4000x3000_lut_float, FrameLayout::NV21, 4000, 3000, false, false)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Render, nv21_4000x3000_lut_style_float, FrameLayout::NV21, 4000, 3000, true,
                  false)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
// The same on AVX2, as a CPU without AVX-512 runs it.
BENCHMARK_CAPTURE(BM_Render, nv21_4000x3000_lut_style_avx2, FrameLayout::NV21, 4000, 3000, true,
                  true, HWY_AVX2)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Render, nv21_4000x3000_lut_style_avx2_float, FrameLayout::NV21, 4000, 3000,
                  true, false, HWY_AVX2)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memcpy, nv12_1920x1080, 1920, 1080)->UseRealTime();
BENCHMARK_CAPTURE(BM_Render, nv12_1920x1080_lut, FrameLayout::NV12, 1920, 1080, false)
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Render, nv12_1920x1080_lut_style, FrameLayout::NV12, 1920, 1080, true)
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
