// The fused kernels against the double-precision reference, per code path
// (reference, each compiled instruction set; one thread and several), on
// random images, lattices and style parameters, with guarded buffers.
#include <gtest/gtest.h>
#include <hwy/highway.h>
#include <hwy/targets.h>

#include <cstdlib>
#include <string>

#include "chain_plan.h"
#include "frame_renderer.h"
#include "reference_renderer.h"
#include "render_test_support.h"

namespace lumo::render {
namespace {

using testing::TestImage;

struct Geometry {
  FrameLayout layout;
  uint32_t width, height;
  size_t padding;
};

const Geometry kGeometries[] = {
    {FrameLayout::NV21, 64, 32, 0},   {FrameLayout::NV21, 67, 29, 13},
    {FrameLayout::NV12, 130, 17, 62}, {FrameLayout::NV12, 1, 1, 0},
    {FrameLayout::NV21, 3, 5, 1},     {FrameLayout::RGBA, 61, 23, 12},
    {FrameLayout::RGBA, 128, 8, 0},   {FrameLayout::RGBA, 1, 3, 4},
    {FrameLayout::NV21, 200, 66, 56},
};

StyleEffect randomStyle(std::mt19937& rng) {
  std::uniform_real_distribution<double> u(0, 1);
  StyleEffect s;
  s.smoothStart = 0.5 * u(rng);
  s.smoothEnd = 0.5 + 0.7 * u(rng);
  s.coordScale = 0.5 + u(rng);
  s.valueScale = -0.5 + 1.3 * u(rng);
  s.preserveK = -2 + 4 * u(rng);
  s.preserveB = -1 + 2 * u(rng);
  s.preserveV = u(rng) < 0.3 ? 0 : -0.5 + u(rng);
  s.preserveT = u(rng);
  return s;
}

struct ErrorStats {
  int maxError = 0;
  double sum = 0;
  size_t samples = 0;
  size_t paddingChanged = 0;
  double mean() const { return samples == 0 ? 0 : sum / double(samples); }
};

// Compares the visible samples of `got` and `want`; counts padding bytes of
// `got` that differ from `before` (they must be left alone).
ErrorStats compare(const TestImage& got, const TestImage& want, const TestImage& before) {
  ErrorStats stats;
  const FrameView& v = got.view();
  const size_t rowBytes = v.layout == FrameLayout::RGBA ? 4 * size_t(v.width) : v.width;
  auto plane = [&](const uint8_t* g, const uint8_t* w, const uint8_t* b, size_t stride, size_t rows,
                   size_t visible) {
    for (size_t y = 0; y < rows; ++y)
      for (size_t x = 0; x < stride && y * stride + x < rows * stride; ++x) {
        const size_t at = y * stride + x;
        if (x >= visible) {
          if (y + 1 < rows) stats.paddingChanged += g[at] != b[at];
          continue;
        }
        const int e = std::abs(int(g[at]) - int(w[at]));
        stats.maxError = std::max(stats.maxError, e);
        stats.sum += e;
        ++stats.samples;
      }
  };
  plane(v.luma, want.view().luma, before.view().luma, v.lumaStride, v.height, rowBytes);
  if (isYuv(v.layout))
    plane(v.chroma, want.view().chroma, before.view().chroma, v.chromaStride, (v.height + 1) / 2,
          2 * size_t((v.width + 1) / 2));
  return stats;
}

// Renders random frames with `options` and compares with the reference.
void expectAgreement(const RenderOptions& options, const std::string& label) {
  std::mt19937 rng(1234);
  for (const Geometry& g : kGeometries) {
    for (int withStyle = 0; withStyle < 2; ++withStyle) {
      SCOPED_TRACE(label + " " + std::to_string(g.width) + "x" + std::to_string(g.height) +
                   " layout " + std::to_string(int(g.layout)) +
                   (withStyle ? " lut+style" : " lut"));
      EffectChain chain =
          testing::lutChain(testing::randomLattice(rng), 0.25 + 0.75 * (rng() % 4) / 3.0);
      if (withStyle) testing::addStyle(chain, randomStyle(rng));
      TestImage in(g.layout, g.width, g.height, g.padding),
          want(g.layout, g.width, g.height, g.padding);
      TestImage got(g.layout, g.width, g.height, g.padding),
          before(g.layout, g.width, g.height, g.padding);
      in.fill(rng);
      before.fill(rng);
      got.copyFrom(before);
      want.copyFrom(before);
      const ChainPlan plan(chain, g.width, g.height);
      renderReferenceRows(plan, in.view(), want.view(), 0, g.height);
      FrameRenderer renderer(options);
      renderer.setChain(chain);
      ASSERT_EQ(renderer.render(in.view(), got.view()), "");
      const ErrorStats stats = compare(got, want, before);
      EXPECT_LE(stats.maxError, 1);
      EXPECT_LE(stats.mean(), 0.05);
      EXPECT_EQ(stats.paddingChanged, 0u);
    }
  }
}

TEST(RenderAccuracy, FusedPathOnEveryInstructionSetAndThreadCount) {
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    for (size_t threads : {1, 2, 5}) {
      expectAgreement({RenderPath::Fused, threads}, std::string(hwy::TargetName(target)) + " " +
                                                        std::to_string(threads) + " threads");
    }
  }
  hwy::SetSupportedTargetsForTest(0);
}

TEST(RenderAccuracy, EnvironmentSwitchesChooseThePathAndThreads) {
  setenv("LUMO_RENDER_REFERENCE", "1", 1);
  setenv("LUMO_RENDER_THREADS", "3", 1);
  RenderOptions forced = renderOptionsFromEnvironment();
  EXPECT_EQ(forced.path, RenderPath::Reference);
  EXPECT_EQ(forced.threads, 3u);
  setenv("LUMO_RENDER_REFERENCE", "0", 1);
  setenv("LUMO_RENDER_THREADS", "zero", 1);
  RenderOptions normal = renderOptionsFromEnvironment();
  EXPECT_EQ(normal.path, RenderPath::Fused);
  EXPECT_GE(normal.threads, 1u);
  unsetenv("LUMO_RENDER_REFERENCE");
  unsetenv("LUMO_RENDER_THREADS");
}

}  // namespace
}  // namespace lumo::render
