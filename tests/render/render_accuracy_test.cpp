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
  const auto r = [&](double lo, double hi) { return lo + (hi - lo) * u(rng); };
  // start, end, coord scale, value scale, K, B, V, T
  StyleEffect s{0,           0,           r(0, 0.5),
                r(0.5, 1.2), r(0.5, 1.5), r(-0.5, 0.8),
                r(-2, 2),    r(-1, 1),    u(rng) < 0.3 ? 0 : r(-0.5, 0.5),
                r(0, 1)};
  if (!fixedPointRange) return s;
  s.valueScale = r(-0.95, 0.95);
  s.preserveK = r(-3, 3);
  s.preserveB = r(-1, 1.5);
  s.preserveV = u(rng) < 0.3 ? 0 : (u(rng) < 0.5 ? -1 : 1) * r(0.15, 1);
  s.preserveT = r(0, 1.2);
  if (u(rng) < 0.2) s.smoothEnd = s.smoothStart;
  return s;
}

struct Errors {
  int max = 0;
  double sum = 0, bias = 0;  // bias: the sum of got - want
  size_t samples = 0, paddingChanged = 0;
  double mean() const { return samples == 0 ? 0 : sum / double(samples); }
  // Adds the errors of the visible samples of `got` against `want`, and counts
  // padding bytes of `got` that differ from `before` (they must be left alone).
  void add(const TestImage& got, const TestImage& want, const TestImage& before) {
    const FrameView& v = got.view();
    for (size_t plane = 0; plane < got.buffers().size(); ++plane) {
      const size_t stride = plane == 0 ? v.lumaStride : v.chromaStride;
      const size_t visible =
          plane == 1 ? 2 * size_t((v.width + 1) / 2) : (isYuv(v.layout) ? 1 : 4) * size_t(v.width);
      const uint8_t *g = got.buffers()[plane]->data(), *w = want.buffers()[plane]->data(),
                    *b = before.buffers()[plane]->data();
      for (size_t at = 0; at < got.buffers()[plane]->size(); ++at) {
        const bool pixel = at % stride < visible;
        const int d = int(g[at]) - int(pixel ? w[at] : b[at]);
        paddingChanged += !pixel && d != 0;
        max = std::max(max, pixel ? std::abs(d) : 0);
        sum += pixel ? std::abs(d) : 0;
        bias += pixel ? d : 0;
        samples += pixel;
      }
    }
  }
};

// Renders `in` over an output holding `before` (in place when they are the
// same image) and checks it against the reference: max error 1, mean at
// most 0.05, padding untouched. Adds the errors to `all`.
void renderAndCompare(const Geometry& g, const EffectChain& chain, const TestImage& in,
                      const TestImage& before, FrameRenderer& renderer, Errors& all) {
  TestImage want(g.layout, g.width, g.height, g.padding),
      got(g.layout, g.width, g.height, g.padding);
  want.copyFrom(before);
  got.copyFrom(before);
  renderReferenceRows(ChainPlan(chain, g.width, g.height), in.view(), want.view(), 0, g.height);
  renderer.setChain(chain);
  EXPECT_EQ(renderer.render(&in == &before ? got.view() : in.view(), got.view()), "");
  Errors e;
  e.add(got, want, before);
  EXPECT_LE(e.max, 1);
  EXPECT_LE(e.mean(), 0.05);
  EXPECT_EQ(e.paddingChanged, 0u);
  all.add(got, want, before);
}

// Per instruction set: random frames on 1, 2 and 5 threads, with and
// without the fixed-point kernel; then, where it has the kernel, random,
// smooth and identity lattices at strengths 1, just below 1 (which rounds to
// 1 in Q15), 0.5 and 0, without a style, with one in range and with a gain
// near 2, in place.
TEST(RenderAccuracy, FusedPathOnEveryInstructionSetAndThreadCount) {
  const Geometry fixedGeometries[] = {{FrameLayout::NV21, 256, 64, 0},
                                      {FrameLayout::NV12, 200, 31, 24},
                                      {FrameLayout::NV21, 450, 9, 3}};
  const LutLattice smooth = testing::makeLattice([](double r, double g, double b) {
    return std::array<double, 3>{0.8 * r + 0.2 * g + 20, g * g / 255, 255 - 0.9 * b};
  });
  // Nearly doubles bright pixels: luma and chroma leave the byte range
  // before the output clamps them.
  const StyleEffect bright{0, 0, 0, 0.2, 1, 0.98, 0, 1, 0, 0};
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    const std::string name = hwy::TargetName(target);
    Errors all;
    for (size_t threads : {1, 2, 5})
      for (bool fixedPoint : {true, false}) {
        std::mt19937 rng(1234);
        for (const Geometry& g : kGeometries)
          for (int withStyle = 0; withStyle < 2; ++withStyle) {
            SCOPED_TRACE(::testing::Message()
                         << name << " threads " << threads << " fixed " << fixedPoint << " "
                         << g.width << "x" << g.height << " style " << withStyle);
            EffectChain chain =
                testing::lutChain(testing::randomLattice(rng), 0.25 + 0.75 * (rng() % 4) / 3.0);
            if (withStyle) testing::addStyle(chain, randomStyle(rng));
            TestImage in(g.layout, g.width, g.height, g.padding),
                before(g.layout, g.width, g.height, g.padding);
            in.fill(rng);
            before.fill(rng);
            FrameRenderer renderer({RenderPath::Fused, threads, fixedPoint});
            renderAndCompare(g, chain, in, before, renderer, all);
          }
      }
    if (!fixedPointKernelPresent()) continue;
    all = Errors{};
    std::mt19937 rng(99);
    for (const Geometry& g : fixedGeometries)
      for (int lattice = 0; lattice < 3; ++lattice)
        for (double strength : {1.0, 0.99999, 0.5, 0.0})
          for (int style = 0; style < 3; ++style) {
            SCOPED_TRACE(::testing::Message()
                         << name << " fixed point " << g.width << " lattice " << lattice
                         << " strength " << strength << " style " << style);
            EffectChain chain = testing::lutChain(lattice == 0   ? testing::randomLattice(rng)
                                                  : lattice == 1 ? smooth
                                                                 : testing::identityLattice(),
                                                  strength);
            TestImage in(g.layout, g.width, g.height, g.padding);
            in.fill(rng);
            if (style == 1) testing::addStyle(chain, randomStyle(rng, true));
            if (style == 2) {
              testing::addStyle(chain, bright);
              for (testing::GuardedBuffer* b : in.buffers())
                for (size_t i = 0; i < b->size(); ++i) b->data()[i] |= 0xC0;
            }
            FrameRenderer renderer({RenderPath::Fused, 2, true});
            renderAndCompare(g, chain, in, in, renderer, all);
            EXPECT_TRUE(renderer.lastUsedFixedPoint());
          }
    EXPECT_LE(all.mean(), 0.03) << name;
    // Rounding must not lean one way: quantised intermediates make exact
    // ties common, and rounding them all up gives about +0.005 here.
    EXPECT_LE(std::abs(all.bias / double(all.samples)), 0.003) << name;
  }
  hwy::SetSupportedTargetsForTest(0);
}

// The loop above only covers what was compiled and what the CPU has, so a
// build that silently drops an instruction set would still pass it: each
// architecture names the targets it must build and those every CPU of it
// runs, and where the fixed-point kernel must run (the wider SVE targets'
// float kernels execute fewer instructions than it would). An emulated run
// names in LUMO_RENDER_EXPECT_TARGET the target the dispatcher must pick (the
// SVE vector-length runs), lest an emulator option that did not take test
// another target and pass.
TEST(RenderAccuracy, EveryExpectedInstructionSetIsBuiltAndRuns) {
#if HWY_ARCH_ARM_A64
  // SVE is chosen at run time where Highway dispatches (arm64 with GCC).
  const int64_t mustBuild = HWY_NEON | (HWY_HAVE_RUNTIME_DISPATCH
                                            ? HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128
                                            : 0),
                mustRun = HWY_NEON;
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
  EXPECT_EQ(fusedKernelTargetsBuilt() & mustBuild, mustBuild);
  EXPECT_EQ(hwy::SupportedTargets() & mustRun, mustRun);
  if (const char* expected = std::getenv("LUMO_RENDER_EXPECT_TARGET")) {
    EXPECT_STREQ(fusedKernelTarget(), expected);
  }
  for (const auto& [target, present] : fixedPointOn) {
    if (!(hwy::SupportedTargets() & target)) continue;
    hwy::SetSupportedTargetsForTest(target);
    EXPECT_EQ(fixedPointKernelPresent(), present) << hwy::TargetName(target);
  }
  hwy::SetSupportedTargetsForTest(0);
}

TEST(RenderAccuracy, FixedPointKernelRefusesParametersItsFormatsCannotHold) {
  const LutLattice l = testing::identityLattice();
  const FusedTables tables = buildFusedTables(l);
  const auto usable = [&](const EffectChain& chain, const FixedPointTables& fixed) {
    return makeFixedPointParams(makeFusedParams(ChainPlan(chain, 64, 64), tables), chain, fixed)
        .usable;
  };
  const struct Case {
    const char* name;
    double strength;
    StyleEffect style;  // value scale, K, B, V, T matter; none when the scale is 0
    bool usable;
  } cases[] = {
      {"in range", 1, {0, 0, 0, 1, 1, -0.5, 1, 0, 0.5, 0.9}, true},
      {"strength 1.5", 1.5, {}, false},
      {"strength below 0", -0.1, {}, false},
      {"gain reaches 2", 1, {0, 0, 0, 1, 1, 1.0, 1, 0, 0.5, 0.9}, false},
      {"slope past Q12", 1, {0, 0, 0, 1, 1, -0.5, 9, 0, 0.5, 0.9}, false},
      {"offset past Q12", 1, {0, 0, 0, 1, 1, -0.5, 1, -8.5, 0.5, 0.9}, false},
      {"knee offset 10", 1, {0, 0, 0, 1, 1, -0.5, 1, 0, 0.5, 5}, false},
  };
  const FixedPointTables fixedTables = buildFixedPointTables(l);
  for (const Case& c : cases) {
    EffectChain chain = testing::lutChain(l, c.strength);
    if (c.style.valueScale != 0) testing::addStyle(chain, c.style);
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
  const RenderOptions forced = with("1", "64", "0"), normal = with("0", "zero", "1");
  EXPECT_EQ(forced.path, RenderPath::Reference);
  EXPECT_EQ(forced.threads, 64u);  // the most it takes
  EXPECT_FALSE(forced.fixedPoint);
  EXPECT_EQ(normal.path, RenderPath::Fused);
  EXPECT_GE(normal.threads, 1u);  // "zero" is no count: the machine's
  EXPECT_TRUE(normal.fixedPoint);
  EXPECT_LE(with("0", "65", "1").threads, 8u);  // past the limit: the default
  for (const char* name :
       {"LUMO_RENDER_REFERENCE", "LUMO_RENDER_THREADS", "LUMO_RENDER_FIXED_POINT"})
    unsetenv(name);
}

}  // namespace
}  // namespace lumo::render
