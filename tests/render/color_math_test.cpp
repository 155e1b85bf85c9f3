// The per-pixel colour model: JFIF conversion, rounding and the tetrahedral
// look-up, against values worked out by hand. The style gain is checked on
// rendered frames (render_effects_test.cpp).
#include "color_math.h"

#include <gtest/gtest.h>

#include "render_test_support.h"

namespace lumo::render {
namespace {

TEST(ColorMath, JfifConversionBothWays) {
  const double cases[][6] = {
      // Y, Cb, Cr -> R, G, B
      {128, 128, 128, 128, 128, 128},
      {0, 128, 128, 0, 0, 0},
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
  // Pure colours forward: BT.601 luma weights, chroma at 128 +- 127.5 extremes.
  EXPECT_NEAR(lumaOf(Rgb<double>{255, 0, 0}), 76.245, 1e-9);
  EXPECT_NEAR(cbOf(Rgb<double>{0, 0, 255}), 255.5, 1e-9);
  EXPECT_NEAR(crOf(Rgb<double>{255, 0, 0}), 255.5, 1e-9);
  EXPECT_NEAR(cbOf(Rgb<double>{77, 77, 77}), 128, 1e-9);
}

TEST(ColorMath, RoundsHalfUpThenClamps) {
  const std::pair<double, int> cases[] = {{0.49, 0},  {0.5, 1}, {1.5, 2},      {2.5, 3},
                                          {-0.5, 0},  {-7, 0},  {254.49, 254}, {254.5, 255},
                                          {300, 255}, {NAN, 0}};
  for (const auto& [in, out] : cases) EXPECT_EQ(toByte(in), out) << in;
}

TEST(ColorMath, TetrahedralReproducesAffineLatticesAndFollowsTheFractionOrder) {
  // Exact bytes on an affine lattice: any input maps to the affine function.
  LutLattice affine{};
  for (int b = 0; b < kLutSize; ++b)
    for (int g = 0; g < kLutSize; ++g)
      for (int r = 0; r < kLutSize; ++r) {
        uint8_t* p = &affine[3 * (r + kLutSize * (g + kLutSize * b))];
        p[0] = uint8_t(15 * r);
        p[1] = uint8_t(8 * g + 7 * b);
        p[2] = uint8_t(15 * (16 - b));
      }
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
  // Only the far corner (1,1,1) of the first cell is bright: the result is
  // 255 times the smallest fraction, whatever their order (trilinear differs).
  LutLattice corner{};
  std::fill_n(&corner[3 * (1 + kLutSize * (1 + kLutSize))], 3, uint8_t(255));
  const double fractions[][3] = {
      {0.7, 0.2, 0.5}, {0.1, 0.9, 0.3}, {0.4, 0.4, 0.8}, {0.6, 0.3, 0.3}};
  for (const auto& f : fractions)
    EXPECT_NEAR(lookupTetrahedral(corner.data(), Rgb<double>{f[0] / s, f[1] / s, f[2] / s}).r,
                255 * std::min({f[0], f[1], f[2]}), 1e-9);
}

TEST(ColorMath, TetrahedralHitsLatticePointsAndClampsItsInput) {
  std::mt19937 rng(4);
  const LutLattice random = testing::randomLattice(rng);
  const double step = 255 / 16.0;
  struct Case {
    Rgb<double> in;
    int r, g, b;  // the lattice point expected, whatever its neighbours hold
  } cases[] = {{{0, 0, 0}, 0, 0, 0},
               {{5 * step, 9 * step, 16 * step}, 5, 9, 16},
               {{16 * step, 0, 0}, 16, 0, 0},
               {{-40, 300, 1e30}, 0, 16, 16},
               {{NAN, INFINITY, -INFINITY}, 0, 16, 0}};
  for (const Case& c : cases) {
    const Rgb<double> out = lookupTetrahedral(random.data(), c.in);
    const uint8_t* p = &random[3 * (c.r + kLutSize * (c.g + kLutSize * c.b))];
    EXPECT_NEAR(out.r, p[0], 1e-9) << c.r << "," << c.g << "," << c.b;
    EXPECT_NEAR(out.g, p[1], 1e-9) << c.r << "," << c.g << "," << c.b;
    EXPECT_NEAR(out.b, p[2], 1e-9) << c.r << "," << c.g << "," << c.b;
  }
}

}  // namespace
}  // namespace lumo::render
