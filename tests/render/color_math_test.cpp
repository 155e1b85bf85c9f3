// The per-pixel colour model: JFIF conversion, rounding, tetrahedral look-up
// and the style gain's pieces, against values worked out by hand.
#include "color_math.h"

#include <gtest/gtest.h>

#include "render_test_support.h"

namespace lumo::render {
namespace {

TEST(ColorMath, JfifConversionBothWays) {
  struct Case {
    double y, cb, cr, r, g, b;
  } cases[] = {
      {128, 128, 128, 128, 128, 128},
      {0, 128, 128, 0, 0, 0},
      {255, 128, 128, 255, 255, 255},
      {100, 128, 200, 100 + 1.402 * 72, 100 - 0.714136 * 72, 100},
      {100, 20, 128, 100, 100 + 0.344136 * 108, 0},     // blue clamped at 0
      {250, 128, 255, 255, 250 - 0.714136 * 127, 250},  // red clamped at 255
  };
  for (const Case& c : cases) {
    const Rgb<double> rgb = yuvToRgb(c.y, c.cb, c.cr);
    EXPECT_NEAR(rgb.r, c.r, 1e-9);
    EXPECT_NEAR(rgb.g, c.g, 1e-9);
    EXPECT_NEAR(rgb.b, c.b, 1e-9);
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

TEST(ColorMath, TetrahedralReproducesAffineLatticesAndHitsLatticePoints) {
  // Lattice values that are exact bytes: out = 15 * index along each axis mix.
  LutLattice lattice{};
  for (int b = 0; b < kLutSize; ++b)
    for (int g = 0; g < kLutSize; ++g)
      for (int r = 0; r < kLutSize; ++r) {
        uint8_t* p = &lattice[3 * (r + kLutSize * (g + kLutSize * b))];
        p[0] = uint8_t(15 * r);
        p[1] = uint8_t(8 * g + 7 * b);
        p[2] = uint8_t(15 * (16 - b));
      }
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> u(0, 255);
  for (int i = 0; i < 1000; ++i) {
    const Rgb<double> c{u(rng), u(rng), u(rng)};
    const double s = 16 / 255.0;
    const Rgb<double> out = lookupTetrahedral(lattice.data(), c);
    ASSERT_NEAR(out.r, 15 * c.r * s, 1e-9);
    ASSERT_NEAR(out.g, (8 * c.g + 7 * c.b) * s, 1e-9);
    ASSERT_NEAR(out.b, 15 * (16 - c.b * s), 1e-9);
  }
  // At a lattice point the look-up returns that point, whatever its neighbours hold.
  const LutLattice random = testing::randomLattice(rng);
  for (int r : {0, 5, 16})
    for (int g : {0, 9, 16})
      for (int b : {0, 16}) {
        const Rgb<double> out = lookupTetrahedral(
            random.data(), Rgb<double>{r * 255 / 16.0, g * 255 / 16.0, b * 255 / 16.0});
        const uint8_t* p = &random[3 * (r + kLutSize * (g + kLutSize * b))];
        ASSERT_NEAR(out.r, p[0], 1e-9);
        ASSERT_NEAR(out.g, p[1], 1e-9);
        ASSERT_NEAR(out.b, p[2], 1e-9);
      }
}

TEST(ColorMath, TetrahedralClampsItsInputToTheLattice) {
  std::mt19937 rng(4);
  const LutLattice random = testing::randomLattice(rng);
  const auto at = [&](int r, int g, int b, int ch) {
    return double(random[3 * (r + kLutSize * (g + kLutSize * b)) + ch]);
  };
  const Rgb<double> inputs[] = {{-40, 300, 1e30}, {NAN, INFINITY, -INFINITY}};
  const int corners[][3] = {{0, 16, 16}, {0, 16, 0}};
  for (int i = 0; i < 2; ++i) {
    const Rgb<double> out = lookupTetrahedral(random.data(), inputs[i]);
    const int* k = corners[i];
    EXPECT_EQ(out.r, at(k[0], k[1], k[2], 0));
    EXPECT_EQ(out.g, at(k[0], k[1], k[2], 1));
    EXPECT_EQ(out.b, at(k[0], k[1], k[2], 2));
  }
}

TEST(ColorMath, TetrahedralPicksTheTetrahedronByFractionOrder) {
  // Only the far corner (1,1,1) of the first cell is bright: the result is
  // 255 times the smallest fraction, whatever the order of the fractions.
  LutLattice lattice{};
  uint8_t* corner = &lattice[3 * (1 + kLutSize * (1 + kLutSize))];
  corner[0] = corner[1] = corner[2] = 255;
  const double step = 255 / 16.0;
  const double fractions[][3] = {
      {0.7, 0.2, 0.5}, {0.1, 0.9, 0.3}, {0.4, 0.4, 0.8}, {0.6, 0.3, 0.3}};
  for (const auto& f : fractions) {
    const Rgb<double> out =
        lookupTetrahedral(lattice.data(), Rgb<double>{f[0] * step, f[1] * step, f[2] * step});
    EXPECT_NEAR(out.r, 255 * std::min({f[0], f[1], f[2]}), 1e-9);
  }
}

TEST(ColorMath, SmoothstepAndGain) {
  EXPECT_EQ(smoothstep(0.2, 0.6, 0.1), 0.0);
  EXPECT_EQ(smoothstep(0.2, 0.6, 0.7), 1.0);
  EXPECT_NEAR(smoothstep(0.2, 0.6, 0.4), 0.5, 1e-12);
  EXPECT_NEAR(smoothstep(0.0, 1.0, 0.25), 0.15625, 1e-12);
  EXPECT_EQ(smoothstep(0.5, 0.5, 0.49), 0.0);
  EXPECT_EQ(smoothstep(0.5, 0.5, 0.5), 1.0);
  StyleEffect s;
  s.smoothStart = 0;
  s.smoothEnd = 1;
  s.coordScale = 1;
  s.valueScale = 0.4;
  s.preserveK = 0;
  s.preserveB = 1;
  EXPECT_NEAR(styleGain(s, 1.0, 0.5), 1.4, 1e-12);
  EXPECT_NEAR(styleGain(s, 0.5, 0.5), 1.2, 1e-12);
  s.preserveB = 0.5;  // half protection everywhere
  EXPECT_NEAR(styleGain(s, 1.0, 0.5), 1.2, 1e-12);
  s.preserveV = 0.2;  // knee at T = 0.8: Y = 0.7 keeps half of it
  s.preserveT = 0.8;
  EXPECT_NEAR(styleGain(s, 1.0, 0.7), 1.1, 1e-12);
  EXPECT_NEAR(styleGain(s, 1.0, 0.9), 1.0, 1e-12);
}

}  // namespace
}  // namespace lumo::render
