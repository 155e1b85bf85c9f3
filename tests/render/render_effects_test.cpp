// What each effect does to an image, with expected values worked out here
// from the colour model, on every render path.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "color_math.h"
#include "frame_renderer.h"
#include "render_test_support.h"

namespace lumo::render {
namespace {

using testing::roundHalfUp;
using testing::TestImage;

class RenderEffects : public ::testing::TestWithParam<RenderOptions> {
protected:
  std::string render(const EffectChain& chain, const TestImage& in, const TestImage& out) {
    FrameRenderer renderer(GetParam());
    renderer.setChain(chain);
    return renderer.render(in.view(), out.view());
  }
};

// A constant look (200, 100, 0) mixed in at strength 0.5 over (255, 0, 128):
// c + s (look - c) rounded half up is 227.5 -> 228, 50, 64; alpha untouched.
TEST_P(RenderEffects, LutStrengthMixesTheLookIn) {
  TestImage in(FrameLayout::RGBA, 1, 1), out(FrameLayout::RGBA, 1, 1);
  std::memcpy(in.at(0, 0), "\xff\x00\x80\x4d", 4);
  const LutLattice look = testing::makeLattice([](double, double, double) {
    return std::array<double, 3>{200, 100, 0};
  });
  ASSERT_EQ(render(testing::lutChain(look, 0.5), in, out), "");
  EXPECT_EQ(std::vector<uint8_t>(out.at(0, 0), out.at(0, 0) + 4),
            (std::vector<uint8_t>{228, 50, 64, 77}));
}

// The gain of a gray pixel, worked out here from its distance to the centre.
double expectedGain(const StyleEffect& s, double x, double y, double w, double h, double luma) {
  const double dx = (x + 0.5 - w / 2) / (w / 2), dy = (y + 0.5 - h / 2) / (h / 2);
  const double d = std::sqrt((dx * dx * w * w + dy * dy * h * h) / (w * w + h * h));
  const double at = d * s.coordScale;
  const double t = s.smoothEnd == s.smoothStart
                       ? (at < s.smoothStart ? 0.0 : 1.0)
                       : std::clamp((at - s.smoothStart) / (s.smoothEnd - s.smoothStart), 0.0, 1.0);
  const double g = 1 + s.valueScale * t * t * (3 - 2 * t);
  const double p = std::clamp(s.preserveK * luma + s.preserveB, 0.0, 1.0);
  const double k = s.preserveV == 0 ? 1 : std::clamp((s.preserveT - luma) / s.preserveV, 0.0, 1.0);
  return 1 + (g - 1) * p * k;
}

// Gray RGBA under the style alone, and gray NV21 wide enough for the 16-bit
// kernel under identity LUT + style: the gain scales luma, gray stays gray.
TEST_P(RenderEffects, StyleGainAndProtectionOnGrayFrames) {
  // name, style, gray level, whether the centre and a corner change
  const std::tuple<const char*, StyleEffect, uint8_t, bool, bool> cases[] = {
      // Start 0.6 lies beyond the centre region: only the corners brighten.
      {"corners brighten", {0, 0, 0.6, 1.0, 1.0, 0.5, 0, 1, 0, 0}, 100, false, true},
      {"hard step at 0.5", {0, 0, 0.5, 0.5, 1.0, 0.5, 0, 1, 0, 0}, 100, false, true},
      {"all-zero parameters", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 100, false, false},
      // Protection p = clamp(2Y - 0.5): zero for dark pixels.
      {"shadows protected", {0, 0, -1.0, 0.5, 1.0, 0.5, 2, -0.5, 0, 0}, 40, false, false},
      {"midtones not protected", {0, 0, -1.0, 0.5, 1.0, 0.5, 2, -0.5, 0, 0}, 150, true, true},
      // Knee h = clamp((0.6 - Y) / 0.1): zero for bright pixels.
      {"highlights protected", {0, 0, -1.0, 0.5, 1.0, -0.5, 0, 1, 0.1, 0.6}, 220, false, false},
      {"below the knee", {0, 0, -1.0, 0.5, 1.0, -0.5, 0, 1, 0.1, 0.6}, 100, true, true},
  };
  for (const auto& [name, style, level, centreChanges, cornerChanges] : cases)
    for (FrameLayout layout : {FrameLayout::RGBA, FrameLayout::NV21}) {
      SCOPED_TRACE(std::string(name) + (isYuv(layout) ? " NV21" : " RGBA"));
      const uint32_t w = isYuv(layout) ? 128 : 40, h = isYuv(layout) ? 64 : 30;
      TestImage in(layout, w, h), out(layout, w, h);
      for (testing::GuardedBuffer* b : in.buffers()) std::memset(b->data(), level, b->size());
      EffectChain chain;
      if (isYuv(layout)) {
        std::memset(in.view().chroma, 128, size_t(w) * h / 2);
        chain = testing::lutChain(testing::identityLattice());
      }
      testing::addStyle(chain, style);
      ASSERT_EQ(render(chain, in, out), "");
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          const double gain = expectedGain(style, x, y, w, h, level / 255.0);
          ASSERT_NEAR(out.at(x, y)[0], roundHalfUp(level * gain), 1) << x << "," << y;
          ASSERT_EQ(out.at(x, y)[0], out.at(x, y)[isYuv(layout) ? 0 : 2]);
        }
      for (uint32_t i = 0; isYuv(layout) && i < w * h / 2; ++i)  // gray stays gray
        ASSERT_NEAR(out.view().chroma[i], 128, 1);
      EXPECT_EQ(*out.at(w / 2, h / 2) != level, centreChanges);
      EXPECT_EQ(*out.at(0, 0) != level, cornerChanges);
    }
}

// One 2 x 2 block with Cr 255, so that red clamps before the look inverts it:
// each luma is the look of its own pixel, the chroma that of the block's mean.
TEST_P(RenderEffects, YuvChromaIsTheMeanOverTheBlockAndLutSeesClampedRgb) {
  const LutLattice invertRed = testing::makeLattice([](double r, double g, double b) {
    return std::array<double, 3>{255 - r, g, b};
  });
  TestImage in(FrameLayout::NV21, 2, 2), out(FrameLayout::NV21, 2, 2);
  const uint8_t lumas[4] = {10, 200, 60, 250};
  for (uint32_t i = 0; i < 4; ++i) *in.at(i % 2, i / 2) = lumas[i];
  std::memcpy(in.chromaAt(0, 0), "\xff\x5a", 2);  // Cr 255, Cb 90
  ASSERT_EQ(render(testing::lutChain(invertRed), in, out), "");
  // 1-D interpolation between the rounded lattice values of c (or of 255 - c).
  auto along = [](double c, bool inverted) {
    const double x = c * 16 / 255;
    const int i = std::min(int(x), 15);
    const auto level = [&](int n) {
      return std::round(inverted ? 255 - n * 255 / 16.0 : n * 255 / 16.0);
    };
    return level(i) + (level(i + 1) - level(i)) * (x - i);
  };
  Rgb<double> mean{};
  for (uint32_t i = 0; i < 4; ++i) {
    const Rgb<double> rgb = yuvToRgb<double>(lumas[i], 90, 255);  // clamped to 0..255
    const Rgb<double> look{along(rgb.r, true), along(rgb.g, false), along(rgb.b, false)};
    ASSERT_NEAR(*out.at(i % 2, i / 2), roundHalfUp(lumaOf(look)), 1) << i;
    mean = {mean.r + look.r / 4, mean.g + look.g / 4, mean.b + look.b / 4};
  }
  EXPECT_NEAR(out.chromaAt(0, 0)[0], roundHalfUp(crOf(mean)), 1);  // Cr first: NV21
  EXPECT_NEAR(out.chromaAt(0, 0)[1], roundHalfUp(cbOf(mean)), 1);
}

// Chains the plugin never sends go to the reference; extreme style values
// keep the fused shape; no effects copy the frame. None may fault, and a
// broken view is refused.
TEST_P(RenderEffects, UnusualChainsAndExtremeValuesRenderWithoutFault) {
  std::mt19937 rng(21);
  const EffectChain lut = testing::lutChain(testing::randomLattice(rng));
  const StyleEffect extreme{1e30, -1, -1e30, 1e30, 1e38, 1e38, 1e38, -1e38, 1e-38, 1e38};
  EffectChain styleFirst, twoLuts = lut, extremeStyle = lut;
  testing::addStyle(styleFirst, extreme);
  for (EffectChain* c : {&styleFirst, &twoLuts}) {
    c->order.push_back(EffectKind::Lut);
    c->luts.push_back(lut.luts[0]);
  }
  testing::addStyle(extremeStyle, extreme);
  for (const EffectChain* chain : {&styleFirst, &twoLuts, &extremeStyle}) {
    TestImage in(FrameLayout::NV21, 33, 9, 4), out(FrameLayout::NV21, 33, 9, 4);
    in.fill(rng);
    FrameRenderer renderer(GetParam());
    renderer.setChain(*chain);
    ASSERT_EQ(renderer.render(in.view(), out.view()), "");
    const bool fused = GetParam().path == RenderPath::Fused && chain == &extremeStyle;
    EXPECT_EQ(renderer.lastPath(), fused ? RenderPath::Fused : RenderPath::Reference);
  }
  // No effects: a copy, NV21 to NV12 with each chroma pair swapped, the odd
  // last row included.
  TestImage a(FrameLayout::NV21, 8, 7), d(FrameLayout::NV12, 8, 7);
  a.fill(rng);
  ASSERT_EQ(render(EffectChain{}, a, d), "");
  EXPECT_EQ(std::memcmp(a.view().luma, d.view().luma, 56), 0);
  for (size_t i = 0; i < 32; ++i) ASSERT_EQ(d.view().chroma[i], a.view().chroma[i ^ 1]) << i;
  FrameView broken = a.view();
  broken.lumaStride = 4;
  EXPECT_EQ(FrameRenderer(GetParam()).render(broken, a.view()),
            "input: row stride below the width");
}

INSTANTIATE_TEST_SUITE_P(Paths, RenderEffects,
                         ::testing::Values(RenderOptions{RenderPath::Reference, 1},
                                           RenderOptions{RenderPath::Fused, 1},
                                           RenderOptions{RenderPath::Fused, 3}),
                         [](const ::testing::TestParamInfo<RenderOptions>& param) {
                           return std::string(param.param.path == RenderPath::Fused ? "Fused"
                                                                                    : "Reference") +
                                  std::to_string(param.param.threads);
                         });

}  // namespace
}  // namespace lumo::render
