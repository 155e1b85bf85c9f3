// Renderer speed: 4000x3000 NV21 and 1920x1080 NV12 frames through the LUT
// alone and LUT + style, on one and two threads, beside memcpy of the same
// input and output bytes (the floor). `--write-fixture DIR` writes the NV21
// frame and the LUT as .cube for the ffmpeg comparison in
// scripts/run-benchmarks.sh, then exits.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "frame_renderer.h"
#include "fused_kernels.h"
#include "render_test_support.h"

namespace lumo::render {
namespace {

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

// A warm, contrasty look: a smooth lattice like the ones the plugin uploads.
LutLattice lookLattice() {
  return testing::makeLattice([](double r, double g, double b) {
    auto curve = [](double v) {
      const double t = v / 255;
      return 255 * (t * t * (3 - 2 * t) * 0.7 + t * 0.3);
    };
    const double y = 0.299 * r + 0.587 * g + 0.114 * b;
    return std::array<double, 3>{curve(r) * 1.05 + 4, curve(g), curve(0.8 * b + 0.2 * y) * 0.95};
  });
}

StyleEffect lookStyle() {
  StyleEffect s;
  s.smoothStart = 0.3;
  s.smoothEnd = 1.0;
  s.coordScale = 1.0;
  s.valueScale = -0.35;  // vignette
  s.preserveK = 1.2;
  s.preserveB = 0.1;
  s.preserveV = 0.2;
  s.preserveT = 0.95;
  return s;
}

// A plain in-memory frame (no guard pages: the benchmark measures memory speed).
struct Frame {
  std::vector<uint8_t> bytes;
  FrameView view;
  Frame(FrameLayout layout, uint32_t width, uint32_t height) {
    const size_t lumaBytes = size_t(width) * height, chromaBytes = lumaBytes / 2;
    bytes.resize(lumaBytes + chromaBytes);
    view = {layout, width, height, bytes.data(), width, bytes.data() + lumaBytes, width};
  }
};

void fillFrame(Frame& f) {
  // A gradient with noise: every lattice cell gets visited.
  std::minstd_rand rng(42);
  const FrameView& v = f.view;
  for (uint32_t y = 0; y < v.height; ++y)
    for (uint32_t x = 0; x < v.width; ++x)
      v.luma[y * v.lumaStride + x] = uint8_t((x * 255 / v.width + (rng() & 31)) & 255);
  for (uint32_t y = 0; y < v.height / 2; ++y)
    for (uint32_t x = 0; x < v.width; ++x)
      v.chroma[y * v.chromaStride + x] = uint8_t(64 + (y * 128 / (v.height / 2)) + (rng() & 15));
}

void BM_Render(benchmark::State& state, FrameLayout layout, uint32_t width, uint32_t height,
               bool withStyle) {
  const size_t threads = size_t(state.range(0));
  Frame in(layout, width, height), out(layout, width, height);
  fillFrame(in);
  EffectChain chain = testing::lutChain(lookLattice());
  if (withStyle) testing::addStyle(chain, lookStyle());
  FrameRenderer renderer({RenderPath::Fused, threads});
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
  state.SetLabel(fusedKernelTarget());
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

// Raw NV21 frame and the same LUT as a .cube file (red varying fastest).
bool writeFixture(const std::string& dir) {
  Frame frame(FrameLayout::NV21, 4000, 3000);
  fillFrame(frame);
  std::ofstream image(dir + "/frame_4000x3000.nv21", std::ios::binary);
  image.write(reinterpret_cast<const char*>(frame.bytes.data()),
              std::streamsize(frame.bytes.size()));
  std::ofstream cube(dir + "/look.cube");
  cube << "TITLE \"render bench look\"\nLUT_3D_SIZE " << kLutSize << "\n";
  const LutLattice lattice = lookLattice();
  char line[64];
  for (int i = 0; i < kLutPoints; ++i) {
    std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", lattice[3 * i] / 255.0,
                  lattice[3 * i + 1] / 255.0, lattice[3 * i + 2] / 255.0);
    cube << line;
  }
  return bool(image) && bool(cube);
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

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--write-fixture") == 0)
    return lumo::render::writeFixture(argv[2]) ? 0 : 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
