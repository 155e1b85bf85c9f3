// Renders the benchmark's look on a 640x480 NV21 frame a given number of
// times on one thread, on a chosen instruction set, for counting executed
// instructions under an emulator (scripts/count-instructions.sh), where
// timings mean nothing:
//
//   render_instructions FRAMES TARGET fixed|float lut|lut+style
//
// TARGET is a Highway target name (NEON, SVE, AVX2, ...) or "best". Prints
// the instruction set and kernel that rendered, and the pixel count.
#include <hwy/highway.h>
#include <hwy/targets.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame_renderer.h"
#include "fused_kernels.h"
#include "render_bench_fixture.h"

namespace lumo::render {
namespace {

constexpr uint32_t kWidth = 640, kHeight = 480;

int64_t targetNamed(const char* name) {
  if (std::strcmp(name, "best") == 0) return 0;
  for (int64_t target : hwy::SupportedAndGeneratedTargets())
    if (std::strcmp(hwy::TargetName(target), name) == 0) return target;
  return -1;
}

int run(int frames, const char* targetName, bool fixedPoint, bool withStyle) {
  const int64_t target = targetNamed(targetName);
  if (target < 0) {
    std::fprintf(stderr, "%s is not compiled or this CPU cannot run it\n", targetName);
    return 1;
  }
  if (target != 0) hwy::SetSupportedTargetsForTest(target);
  bench::Frame in(FrameLayout::NV21, kWidth, kHeight), out(FrameLayout::NV21, kWidth, kHeight);
  bench::fillFrame(in);
  EffectChain chain = testing::lutChain(bench::lookLattice());
  if (withStyle) testing::addStyle(chain, bench::lookStyle());
  FrameRenderer renderer({RenderPath::Fused, 1, fixedPoint});
  renderer.setChain(chain);
  for (int i = 0; i < frames; ++i) {
    const std::string why = renderer.render(in.view, out.view);
    if (!why.empty()) {
      std::fprintf(stderr, "render failed: %s\n", why.c_str());
      return 1;
    }
  }
  std::printf("%s %s %u\n", fusedKernelTarget(),
              renderer.lastUsedFixedPoint() ? "fixed-point" : "float", kWidth * kHeight);
  return 0;
}

}  // namespace
}  // namespace lumo::render

int main(int argc, char** argv) {
  if (argc != 5 || std::atoi(argv[1]) < 0 ||
      (std::strcmp(argv[3], "fixed") != 0 && std::strcmp(argv[3], "float") != 0) ||
      (std::strcmp(argv[4], "lut") != 0 && std::strcmp(argv[4], "lut+style") != 0)) {
    std::fprintf(stderr, "usage: render_instructions FRAMES TARGET fixed|float lut|lut+style\n");
    return 2;
  }
  return lumo::render::run(std::atoi(argv[1]), argv[2], std::strcmp(argv[3], "fixed") == 0,
                           std::strcmp(argv[4], "lut+style") == 0);
}
