// The fused kernels against the double-precision reference, per code path
// (reference, each compiled instruction set; one thread and several), on
// random images, lattices and style parameters, with guarded buffers.
#include <gtest/gtest.h>
#include <hwy/highway.h>
#include <hwy/targets.h>

#include <cstdlib>
#include <utility>

#include "chain_plan.h"
#include "fixed_point_kernels.h"
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

// Random style parameters; `fixedPointRange` keeps them inside the
// fixed-point kernel's ranges, hard steps and knees of either sign included.
StyleEffect randomStyle(std::mt19937& rng, bool fixedPointRange = false) {
  std::uniform_real_distribution<double> u(0, 1);
  StyleEffect s{0,
                0,
                0.5 * u(rng),
                0.5 + 0.7 * u(rng),
                0.5 + u(rng),  // start, end, coord scale
                -0.5 + 1.3 * u(rng),
                -2 + 4 * u(rng),
                -1 + 2 * u(rng),  // value scale, K, B
                u(rng) < 0.3 ? 0 : -0.5 + u(rng),
                u(rng)};  // V, T
  if (!fixedPointRange) return s;
  s.valueScale = -0.95 + 1.9 * u(rng);
  s.preserveK = -3 + 6 * u(rng);
  s.preserveB = -1 + 2.5 * u(rng);
  s.preserveV = u(rng) < 0.3 ? 0 : (u(rng) < 0.5 ? -1 : 1) * (0.15 + 0.85 * u(rng));
  s.preserveT = 1.2 * u(rng);
  if (u(rng) < 0.2) s.smoothEnd = s.smoothStart;
  return s;
}

struct ErrorStats {
  int maxError = 0;
  double sum = 0;
  double signedSum = 0;  // got - want: a bias shows here
  size_t samples = 0;
  size_t paddingChanged = 0;
  double mean() const { return samples == 0 ? 0 : sum / double(samples); }
  double bias() const { return samples == 0 ? 0 : signedSum / double(samples); }
  void add(const ErrorStats& o) {
    maxError = std::max(maxError, o.maxError);
    sum += o.sum;
    signedSum += o.signedSum;
    samples += o.samples;
  }
};

// Compares the visible samples of `got` and `want`; counts padding bytes of
// `got` that differ from `before` (they must be left alone).
ErrorStats compare(const TestImage& got, const TestImage& want, const TestImage& before) {
  ErrorStats stats;
  const FrameView& v = got.view();
  auto plane = [&](const uint8_t* g, const uint8_t* w, const uint8_t* b, size_t stride, size_t rows,
                   size_t visible) {
    for (size_t y = 0; y < rows; ++y)
      for (size_t x = 0, at = y * stride; x < stride; ++x, ++at) {
        if (x >= visible) {
          if (y + 1 < rows) stats.paddingChanged += g[at] != b[at];  // the last row has none
          continue;
        }
        const int d = int(g[at]) - int(w[at]);
        stats.maxError = std::max(stats.maxError, std::abs(d));
        stats.sum += std::abs(d);
        stats.signedSum += d;
        ++stats.samples;
      }
  };
  plane(v.luma, want.view().luma, before.view().luma, v.lumaStride, v.height,
        (isYuv(v.layout) ? 1 : 4) * size_t(v.width));
  if (isYuv(v.layout))
    plane(v.chroma, want.view().chroma, before.view().chroma, v.chromaStride, (v.height + 1) / 2,
          2 * size_t((v.width + 1) / 2));
  return stats;
}

// Renders `in` over an output holding `before` (in place when they are the
// same image) and checks it against the reference: max error 1, mean at
// most 0.05, padding untouched. Returns the errors.
ErrorStats renderAndCompare(const Geometry& g, const EffectChain& chain, const TestImage& in,
                            const TestImage& before, FrameRenderer& renderer) {
  TestImage want(g.layout, g.width, g.height, g.padding),
      got(g.layout, g.width, g.height, g.padding);
  want.copyFrom(before);
  got.copyFrom(before);
  renderReferenceRows(ChainPlan(chain, g.width, g.height), in.view(), want.view(), 0, g.height);
  renderer.setChain(chain);
  EXPECT_EQ(renderer.render(&in == &before ? got.view() : in.view(), got.view()), "");
  const ErrorStats stats = compare(got, want, before);
  EXPECT_LE(stats.maxError, 1);
  EXPECT_LE(stats.mean(), 0.05);
  EXPECT_EQ(stats.paddingChanged, 0u);
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
          before(g.layout, g.width, g.height, g.padding);
      in.fill(rng);
      before.fill(rng);
      FrameRenderer renderer(options);
      renderAndCompare(g, chain, in, before, renderer);
    }
  }
}

TEST(RenderAccuracy, FusedPathOnEveryInstructionSetAndThreadCount) {
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    for (size_t threads : {1, 2, 5}) {
      for (bool fixedPoint : {true, false}) {
        expectAgreement({RenderPath::Fused, threads, fixedPoint},
                        std::string(hwy::TargetName(target)) + " " + std::to_string(threads) +
                            " threads" + (fixedPoint ? "" : ", float kernels only"));
      }
    }
  }
  hwy::SetSupportedTargetsForTest(0);
}

// The loop above only covers what was compiled and what the CPU has, so a
// build that silently drops an instruction set would still pass it. Name the
// ones each architecture must build into the kernels, and those every CPU of
// it can run. A run on an emulated CPU names in LUMO_RENDER_EXPECT_TARGET the
// target the dispatcher must pick there (the SVE vector-length runs): an
// emulator option that did not take would otherwise test another target and
// pass. The same goes for the fixed-point kernel: each architecture names
// where it must run (its 128-bit targets on arm64, AVX2 and AVX-512 on x86)
// and where the float kernels stay, checked on every one this CPU can run.
TEST(RenderAccuracy, EveryExpectedInstructionSetIsBuiltAndRuns) {
#if HWY_ARCH_ARM_A64
  int64_t mustBuild = HWY_NEON;
  const int64_t mustRun = HWY_NEON;
#if HWY_HAVE_RUNTIME_DISPATCH
  // SVE is chosen at run time, which Highway does on arm64 with GCC; the
  // fixed 128- and 256-bit variants come with it.
  mustBuild |= HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128;
#endif
  // The wider SVE targets' float kernels execute fewer instructions than the
  // 128-bit fixed-point kernel would.
  const std::pair<int64_t, bool> fixedPointOn[] = {{HWY_NEON, true},
                                                   {HWY_SVE2_128, true},
                                                   {HWY_SVE, false},
                                                   {HWY_SVE2, false},
                                                   {HWY_SVE_256, false}};
#elif HWY_ARCH_X86_64
  const int64_t mustBuild = HWY_SSE4 | HWY_AVX2 | HWY_AVX3, mustRun = HWY_SSE4;
  const std::pair<int64_t, bool> fixedPointOn[] = {
      {HWY_SSE4, false}, {HWY_AVX2, true}, {HWY_AVX3, true}};
#else
  const int64_t mustBuild = 0, mustRun = 0;
  const std::pair<int64_t, bool> fixedPointOn[] = {{HWY_SCALAR, false}};
#endif
  const int64_t built = fusedKernelTargetsBuilt();
  for (int bit = 0; bit < 63; ++bit) {
    const int64_t target = int64_t{1} << bit;
    if (mustBuild & target) {
      EXPECT_NE(built & target, 0) << hwy::TargetName(target) << " was not compiled";
    }
    if (mustRun & target) {
      EXPECT_NE(hwy::SupportedTargets() & target, 0) << hwy::TargetName(target) << " cannot run";
    }
  }
  if (const char* expected = std::getenv("LUMO_RENDER_EXPECT_TARGET")) {
    EXPECT_STREQ(fusedKernelTarget(), expected);
  }
  int64_t runnable = 0;
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) runnable |= target;
  for (const auto& [target, present] : fixedPointOn) {
    if (!(runnable & target)) continue;
    hwy::SetSupportedTargetsForTest(target);
    EXPECT_EQ(fixedPointKernelPresent(), present) << hwy::TargetName(target);
  }
  hwy::SetSupportedTargetsForTest(0);
}

TEST(RenderAccuracy, FixedPointKernelAgreesWithTheReference) {
  // Random, smooth and identity lattices at strengths 1, just below 1 (which
  // rounds to 1 in Q15), 0.5 and 0, without a style, with one in range and
  // with a gain near 2, in place.
  const Geometry geometries[] = {{FrameLayout::NV21, 256, 64, 0},
                                 {FrameLayout::NV12, 200, 31, 24},
                                 {FrameLayout::NV21, 450, 9, 3}};
  const LutLattice smooth = testing::makeLattice([](double r, double g, double b) {
    return std::array<double, 3>{0.8 * r + 0.2 * g + 20, g * g / 255, 255 - 0.9 * b};
  });
  // Nearly doubles bright pixels: luma and chroma leave the byte range
  // before the output clamps them.
  const StyleEffect bright{0, 0, 0, 0.2, 1, 0.98, 0, 1, 0, 0};
  bool tested = false;  // on instruction sets of this machine that have the kernel
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    if (!fixedPointKernelPresent()) continue;
    tested = true;
    SCOPED_TRACE(hwy::TargetName(target));
    ErrorStats all;
    std::mt19937 rng(99);
    for (const Geometry& g : geometries)
      for (int lattice = 0; lattice < 3; ++lattice)
        for (double strength : {1.0, 0.99999, 0.5, 0.0})
          for (int style = 0; style < 3; ++style) {
            SCOPED_TRACE(std::to_string(g.width) + "x" + std::to_string(g.height) + " lattice " +
                         std::to_string(lattice) + " strength " + std::to_string(strength) +
                         " style " + std::to_string(style));
            const LutLattice l = lattice == 0   ? testing::randomLattice(rng)
                                 : lattice == 1 ? smooth
                                                : testing::identityLattice();
            EffectChain chain = testing::lutChain(l, strength);
            TestImage in(g.layout, g.width, g.height, g.padding);
            in.fill(rng);
            if (style == 1) testing::addStyle(chain, randomStyle(rng, true));
            if (style == 2) {
              testing::addStyle(chain, bright);
              for (testing::GuardedBuffer* b : in.buffers())
                for (size_t i = 0; i < b->size(); ++i) b->data()[i] |= 0xC0;
            }
            FrameRenderer renderer({RenderPath::Fused, 2, true});
            all.add(renderAndCompare(g, chain, in, in, renderer));
            EXPECT_TRUE(renderer.lastUsedFixedPoint());
          }
    RecordProperty(std::string("mean_error_") + hwy::TargetName(target),
                   std::to_string(all.mean()));
    RecordProperty(std::string("bias_") + hwy::TargetName(target), std::to_string(all.bias()));
    EXPECT_LE(all.mean(), 0.03);
    // Rounding must not lean one way: quantised intermediates make exact
    // ties common, and rounding them all up gives about +0.005 here.
    EXPECT_LE(std::abs(all.bias()), 0.003);
  }
  hwy::SetSupportedTargetsForTest(0);
  if (!tested) GTEST_SKIP() << "no instruction set with the fixed-point kernel on this CPU";
}

TEST(RenderAccuracy, FixedPointKernelRefusesParametersItsFormatsCannotHold) {
  const LutLattice l = testing::identityLattice();
  const FusedTables tables = buildFusedTables(l);
  const FixedPointTables fixedTables = buildFixedPointTables(l);
  const auto usable = [&](const EffectChain& chain, const FixedPointTables& fixed) {
    return makeFixedPointParams(makeFusedParams(ChainPlan(chain, 64, 64), tables), chain, fixed)
        .usable;
  };
  struct Case {
    const char* name;
    double strength, valueScale, preserveK, preserveB, preserveV, preserveT;
    bool usable;
  } cases[] = {
      {"LUT only", 1, 0, 0, 0, 0, 0, true},
      {"strength 0", 0, 0, 0, 0, 0, 0, true},
      {"strength 1.5", 1.5, 0, 0, 0, 0, 0, false},
      {"strength below 0", -0.1, 0, 0, 0, 0, 0, false},
      {"in range", 1, -0.5, 1, 0, 0.5, 0.9, true},
      {"gain reaches 2", 1, 1.0, 1, 0, 0.5, 0.9, false},
      {"gain below 0", 1, -1.2, 1, 0, 0.5, 0.9, false},
      {"slope past Q12", 1, -0.5, 9, 0, 0.5, 0.9, false},
      {"offset past Q12", 1, -0.5, 1, -8.5, 0.5, 0.9, false},
      {"knee slope 10", 1, -0.5, 1, 0, 0.1, 0.9, false},
      {"knee offset 10", 1, -0.5, 1, 0, 0.5, 5, false},
      {"no knee", 1, -0.5, 1, 0, 0, 0.9, true},
  };
  for (const Case& c : cases) {
    EffectChain chain = testing::lutChain(l, c.strength);
    if (c.valueScale != 0)
      testing::addStyle(
          chain, {0, 0, 0, 1, 1, c.valueScale, c.preserveK, c.preserveB, c.preserveV, c.preserveT});
    EXPECT_EQ(usable(chain, fixedTables), c.usable) << c.name;
  }
  // Without its tables (no LUT uploaded) the kernel cannot run.
  EXPECT_FALSE(usable(testing::lutChain(l), FixedPointTables{}));
}

TEST(RenderAccuracy, EnvironmentSwitchesChooseThePathAndThreads) {
  const auto with = [](const char* reference, const char* threads, const char* fixedPoint) {
    setenv("LUMO_RENDER_REFERENCE", reference, 1);
    setenv("LUMO_RENDER_THREADS", threads, 1);
    setenv("LUMO_RENDER_FIXED_POINT", fixedPoint, 1);
    return renderOptionsFromEnvironment();
  };
  const RenderOptions forced = with("1", "3", "0"), normal = with("0", "zero", "1");
  EXPECT_EQ(forced.path, RenderPath::Reference);
  EXPECT_EQ(forced.threads, 3u);
  EXPECT_FALSE(forced.fixedPoint);
  EXPECT_EQ(normal.path, RenderPath::Fused);
  EXPECT_GE(normal.threads, 1u);  // "zero" is no count: the machine's
  EXPECT_TRUE(normal.fixedPoint);
  for (const char* name :
       {"LUMO_RENDER_REFERENCE", "LUMO_RENDER_THREADS", "LUMO_RENDER_FIXED_POINT"})
    unsetenv(name);
}

}  // namespace
}  // namespace lumo::render
