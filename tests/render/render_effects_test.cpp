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

// A channel swap exactly, and a constant look mixed in at strengths 0, 0.5
// and 1: c + s (look - c), rounded half up; alpha untouched.
TEST_P(RenderEffects, LutsAndStrengthOnRgba) {
  using Colour = std::array<double, 3>;
  using Look = Colour (*)(double, double, double);
  const Look swap = [](double r, double g, double b) { return Colour{g, r, b}; };
  const Look constant = [](double, double, double) { return Colour{200, 100, 0}; };
  const std::pair<Look, double> cases[] = {
      {swap, 1}, {constant, 0}, {constant, 0.5}, {constant, 1}};
  std::mt19937 rng(7);
  for (const auto& [look, strength] : cases) {
    SCOPED_TRACE(std::to_string(&look - &cases[0].first) + " strength " + std::to_string(strength));
    // Every code value on every channel: 256 x 3 pixels.
    TestImage in(FrameLayout::RGBA, 256, 3, 8), out(FrameLayout::RGBA, 256, 3, 8);
    in.fill(rng);
    for (uint32_t x = 0; x < 256; ++x)
      for (uint32_t y = 0; y < 3; ++y) in.at(x, y)[y] = uint8_t(x);
    ASSERT_EQ(render(testing::lutChain(testing::makeLattice(look), strength), in, out), "");
    for (uint32_t y = 0; y < 3; ++y)
      for (uint32_t x = 0; x < 256; ++x) {
        const uint8_t *p = in.at(x, y), *q = out.at(x, y);
        const Colour want = look(p[0], p[1], p[2]);
        for (int ch = 0; ch < 4; ++ch)  // alpha untouched
          ASSERT_EQ(q[ch], ch == 3 ? p[3] : roundHalfUp(p[ch] + strength * (want[ch] - p[ch])))
              << x << "," << y << " channel " << ch;
      }
  }
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

TEST_P(RenderEffects, YuvChromaIsTheMeanOverTheBlockAndLutSeesClampedRgb) {
  // A lattice that outputs (255 - r, g, b) on every point: the red channel is
  // inverted, so with Cr = 255 (R clamped) the result is worked out by hand.
  const LutLattice invertRed = testing::makeLattice([](double r, double g, double b) {
    return std::array<double, 3>{255 - r, g, b};
  });
  TestImage in(FrameLayout::NV21, 3, 3), out(FrameLayout::NV21, 3, 3);
  const uint8_t lumas[3][3] = {{10, 200, 90}, {60, 250, 30}, {0, 128, 255}};
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 3; ++x) *in.at(x, y) = lumas[y][x];
  for (uint32_t b = 0; b < 4; ++b)
    std::memcpy(in.chromaAt(b % 2, b / 2), "\xff\x5a", 2);  // Cr 255, Cb 90
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
  Rgb<double> sum[2][2] = {};
  int count[2][2] = {};
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 3; ++x) {
      const Rgb<double> rgb = yuvToRgb<double>(lumas[y][x], 90, 255);  // clamped to 0..255
      const Rgb<double> look{along(rgb.r, true), along(rgb.g, false), along(rgb.b, false)};
      ASSERT_NEAR(*out.at(x, y), roundHalfUp(lumaOf(look)), 1) << x << "," << y;
      Rgb<double>& s = sum[y / 2][x / 2];
      s = {s.r + look.r, s.g + look.g, s.b + look.b};
      ++count[y / 2][x / 2];
    }
  for (uint32_t b = 0; b < 4; ++b) {  // Cr first: NV21
    const Rgb<double>& s = sum[b / 2][b % 2];
    const Rgb<double> mean{s.r / count[b / 2][b % 2], s.g / count[b / 2][b % 2],
                           s.b / count[b / 2][b % 2]};
    EXPECT_NEAR(out.chromaAt(b % 2, b / 2)[0], roundHalfUp(crOf(mean)), 1) << b;
    EXPECT_NEAR(out.chromaAt(b % 2, b / 2)[1], roundHalfUp(cbOf(mean)), 1) << b;
  }
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
