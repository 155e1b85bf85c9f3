// The per-pixel colour model against values worked out by hand: JFIF
// conversion, rounding and the tetrahedral look-up. The strength and the
// style gain are checked on rendered frames (render_effects_test.cpp).
#include "color_math.h"

#include <gtest/gtest.h>

#include "render_test_support.h"

namespace lumo::render {
namespace {

TEST(ColorMath, JfifConversion) {
  const double cases[][6] = {
      // Y, Cb, Cr -> R, G, B
      {100, 128, 200, 100 + 1.402 * 72, 100 - 0.714136 * 72, 100},
      {100, 20, 128, 100, 100 + 0.344136 * 108, 0},     // blue clamped at 0
      {250, 128, 255, 255, 250 - 0.714136 * 127, 250},  // red clamped at 255
  };
  for (const auto& c : cases) {
    const Rgb<double> rgb = yuvToRgb(c[0], c[1], c[2]);
    EXPECT_NEAR(rgb.r, c[3], 1e-9);
    EXPECT_NEAR(rgb.g, c[4], 1e-9);
    EXPECT_NEAR(rgb.b, c[5], 1e-9);
  }
  // Forward, unclamped: chroma reaches 128 + 127.5.
  EXPECT_NEAR(crOf(Rgb<double>{255, 0, 0}), 255.5, 1e-9);
}

TEST(ColorMath, RoundsHalfUpThenClamps) {
  const std::pair<double, int> cases[] = {{0.49, 0},  {0.5, 1}, {1.5, 2},      {2.5, 3},
                                          {-0.5, 0},  {-7, 0},  {254.49, 254}, {254.5, 255},
                                          {300, 255}, {NAN, 0}};
  for (const auto& [in, out] : cases) EXPECT_EQ(toByte(in), out) << in;
}

// An affine lattice maps any input to its affine function; the far corner
// alone lit gives 255 times the smallest fraction, whatever their order
// (trilinear differs); lattice points come out exactly, inputs clamped.
TEST(ColorMath, TetrahedralLookUp) {
  const LutLattice affine = testing::makeLattice([](double r, double g, double b) {
    return std::array<double, 3>{r * 15 / 15.9375, (8 * g + 7 * b) / 15.9375, 240 - b / 1.0625};
  });
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> u(0, 255);
  const double s = 16 / 255.0;
  for (int i = 0; i < 1000; ++i) {
    const Rgb<double> c{u(rng), u(rng), u(rng)};
    const Rgb<double> out = lookupTetrahedral(affine.data(), c);
    ASSERT_NEAR(out.r, 15 * c.r * s, 1e-9);
    ASSERT_NEAR(out.g, (8 * c.g + 7 * c.b) * s, 1e-9);
    ASSERT_NEAR(out.b, 15 * (16 - c.b * s), 1e-9);
  }
  LutLattice corner{};
  std::fill_n(&corner[3 * (1 + kLutSize * (1 + kLutSize))], 3, uint8_t(255));
  for (const auto& f :
       {std::array{0.7, 0.2, 0.5}, {0.1, 0.9, 0.3}, {0.4, 0.4, 0.8}, {0.6, 0.3, 0.3}})
    EXPECT_NEAR(lookupTetrahedral(corner.data(), Rgb<double>{f[0] / s, f[1] / s, f[2] / s}).r,
                255 * std::min({f[0], f[1], f[2]}), 1e-9);
  const LutLattice random = testing::randomLattice(rng);
  const double step = 255 / 16.0;
  const std::pair<Rgb<double>, std::array<int, 3>> points[] = {
      {{0, 0, 0}, {0, 0, 0}},
      {{5 * step, 9 * step, 16 * step}, {5, 9, 16}},
      {{16 * step, 0, 0}, {16, 0, 0}},
      {{-40, 300, 1e30}, {0, 16, 16}},
      {{NAN, INFINITY, -INFINITY}, {0, 16, 0}}};
  for (const auto& [in, at] : points) {
    const Rgb<double> out = lookupTetrahedral(random.data(), in);
    const uint8_t* p = &random[3 * (at[0] + kLutSize * (at[1] + kLutSize * at[2]))];
    const double got[3] = {out.r, out.g, out.b};
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(got[ch], p[ch], 1e-9) << at[0] << at[1] << at[2];
  }
}

}  // namespace
}  // namespace lumo::render
