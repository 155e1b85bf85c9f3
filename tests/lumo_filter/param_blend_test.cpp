// The LUT blend: byte conversion in every kernel, case choice, and the
// vector kernels against the scalar loop on random LUTs and weights.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "lut_blend.h"
#include "param_records.h"

namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

struct ByteRow {
  float value;
  uint8_t expected;
};

// Expected bytes worked out by hand: low 8 bits of the truncated int32.
// clang-format off
const ByteRow kByteRows[] = {
    {0.0f, 0},        {0.99f, 0},        {-0.99f, 0},   {1.0f, 1},       {254.999f, 254},
    {255.9f, 255},    {256.0f, 0},       {256.5f, 0},   {-1.5f, 255},    {-256.0f, 0},
    {-257.0f, 255},   {511.7f, 255},     {kNaN, 0},     {kInf, 255},     {-kInf, 0},
    {3e9f, 255},      {-3e9f, 0},        {2147483648.0f, 255},           {-2147483648.0f, 0},
    {2147483520.0f, 0x80},               {-2147483520.0f, 0x80},         {1e-45f, 0},
    {65537.0f, 1},    {-65537.0f, 255}};
// clang-format on

// Every build of the vector kernel this machine runs.
std::vector<lumo::LutKernel> kernels() {
  std::vector<lumo::LutKernel> out;
  for (lumo::LutKernel k : {lumo::LutKernel::kBaseline, lumo::LutKernel::kAvx2})
    if (lumo::lutKernelAvailable(k)) out.push_back(k);
  return out;
}

// The vector kernels convert through case 3 with one LUT of ones and a
// weight equal to the value: (v + 0) * 1 + (0 + 0) * 0 = v.
TEST(LutByteFromFloat, TruncatesSaturatesAndKeepsTheLowByteInEveryKernel) {
  const size_t n = 77;  // vector body and scalar tail
  std::vector<uint8_t> ones(n, 1), zeros(n, 0), out(n);
  for (const ByteRow& row : kByteRows) {
    EXPECT_EQ(lumo::lutByteFromFloat(row.value), row.expected) << row.value;
    for (lumo::LutKernel kernel : kernels()) {
      lumo::LutBlendSources src{{ones.data(), ones.data(), zeros.data(), zeros.data()},
                                {row.value, 0.0f, 0.0f, 0.0f}};
      lumo::blendLutVectorWith(kernel, 3, src, out.data(), n);
      EXPECT_EQ(out, std::vector<uint8_t>(n, row.expected)) << row.value;
    }
  }
}

TEST(LutBlendCase, FirstMatchingCaseInTableOrder) {
  struct Row {
    uint16_t a, b, c, d;
    int expected;
  };
  const Row rows[] = {
      {3, 3, 3, 3, 1}, {0, 0, 2, 3, 2}, {0, 0, 0, 3, 2}, {0, 0, 2, 2, 3},
      {0, 1, 2, 3, 4}, {0, 1, 2, 2, 4}, {0, 1, 1, 0, 4}, {0, 1, 0, 3, 5},
      {0, 1, 0, 0, 5}, {0, 1, 0, 1, 6}, {7, 9, 7, 9, 6},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(lumo::lutBlendCase(r.a, r.b, r.c, r.d), r.expected)
        << r.a << "," << r.b << "," << r.c << "," << r.d;
  }
}

// A case reads only the LUTs it names: the others may be anywhere.
TEST(BlendLut, CasesReadOnlyTheirOwnLuts) {
  std::vector<uint8_t> a(LUT_BYTES, 100), b(LUT_BYTES, 50), out(LUT_BYTES);
  // Case 3 uses a and c; b and d point at nothing.
  lumo::LutBlendSources src{{a.data(), nullptr, b.data(), nullptr}, {0.25f, 0.25f, 0.25f, 0.25f}};
  lumo::blendLutVector(3, src, out.data(), LUT_BYTES);
  EXPECT_EQ(out.front(), 75);
  EXPECT_EQ(out.back(), 75);
}

float randomWeight(std::mt19937& rng) {
  static const float kSpecial[] = {kNaN,   kInf,   -kInf, 0.0f,          -0.0f,     1e30f,
                                   -1e30f, 1e-40f, 1.0f,  2147483648.0f, 0.999999f, 1e7f};
  const unsigned pick = rng() % 16;
  if (pick < 4) return kSpecial[rng() % (sizeof(kSpecial) / sizeof(kSpecial[0]))];
  if (pick < 6) return std::uniform_real_distribution<float>(-300.0f, 300.0f)(rng);
  return std::uniform_real_distribution<float>(-0.5f, 1.5f)(rng);
}

TEST(BlendLut, VectorKernelMatchesScalarLoopBitForBit) {
  std::mt19937 rng(20240611);
  std::vector<std::vector<uint8_t>> luts(4, std::vector<uint8_t>(LUT_BYTES));
  const size_t lengths[] = {0, 1, 7, 8, 15, 16, 17, 31, 33, 64, 100, LUT_BYTES};
  for (int trial = 0; trial < 60; trial++) {
    for (auto& lut : luts) {
      for (auto& v : lut) v = static_cast<uint8_t>(rng());
    }
    for (int blendCase = 1; blendCase <= 6; blendCase++) {
      lumo::LutBlendSources src{};
      for (int i = 0; i < 4; i++) {
        src.lut[i] = luts[static_cast<size_t>(i)].data();
        src.weight[i] = randomWeight(rng);
      }
      for (size_t n : lengths) {
        std::vector<uint8_t> ref(n + 1, 0xA5);
        lumo::blendLutReference(blendCase, src, ref.data(), n);
        ASSERT_EQ(ref[n], 0xA5) << "wrote past the end";
        for (lumo::LutKernel kernel : kernels()) {
          std::vector<uint8_t> vec(n + 1, 0xA5);
          lumo::blendLutVectorWith(kernel, blendCase, src, vec.data(), n);
          ASSERT_EQ(vec, ref) << "kernel " << int(kernel) << " case " << blendCase << " n " << n
                              << " weights " << ::testing::PrintToString(src.weight);
        }
      }
    }
  }
}

// The switch is read once per process, so it is checked in a fresh one.
TEST(BlendLutDeathTest, EnvironmentSwitchForcesTheScalarLoop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const auto& [value, code] : {std::pair{"1", 3}, std::pair{"0", 4}}) {
    EXPECT_EXIT(
        {
          setenv("LUMO_FORCE_SCALAR", value, 1);
          std::exit(lumo::lutBlendForcedScalar() ? 3 : 4);
        },
        testing::ExitedWithCode(code), "")
        << value;
  }
}

}  // namespace
