// The trigger: the bracket search, blend cases, shading blend, change detection,
// failure paths, zoom-ratio choice and debug prints, against values worked out
// here from the bilinear formulas; and the LUT blend kernels against the scalar loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lut_blend.h"
#include "paramTrigger.h"
#include "plugin_test_support.h"

namespace {

using lumotest::Bands;
using lumotest::Lines;

const std::string kNotFound = "[LumoFilter] not found lux or cct!!!!!!!!!!!";
const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

// Rows {value, previous, element}: list positions of the two outputs (each
// record's lut index is its position), -1 for a failed search.
void runCctTable(std::vector<param_cct_t> list, const std::vector<std::array<int, 3>>& rows) {
  for (uint16_t i = 0; i < list.size(); i++) list[i].param_cct_lut_index = i;
  for (const auto& [value, prev, elem] : rows) {
    SCOPED_TRACE("value " + std::to_string(value));
    param_cct_t previous{999, 999, 999}, element{999, 999, 999};
    ParamTrigger::findElementAndPrevious<param_cct_t>(list.data(), uint16_t(list.size()),
                                                      uint16_t(value), previous, element);
    // A failed search leaves both outputs alone (its error line: see the
    // failed-search test below).
    EXPECT_EQ(previous.param_cct_lut_index, prev < 0 ? 999 : prev);
    EXPECT_EQ(element.param_cct_lut_index, elem < 0 ? 999 : elem);
  }
}

TEST(BracketSearch, ExactBoundsGapsClampBelowFailureAbove) {
  lumotest::quietLogs();
  // 100..200, gap, 250..300, 300..400: below the first record clamps to it, a gap gives
  // the records on both sides, 300 goes to the first record reaching it, above all fails.
  // clang-format off
  runCctTable({{100, 200, 0}, {250, 300, 0}, {300, 400, 0}},
              {{0, 0, 0}, {99, 0, 0}, {100, 0, 0}, {150, 0, 0}, {200, 0, 0}, {201, 0, 1},
               {249, 0, 1}, {250, 1, 1}, {300, 1, 1}, {301, 2, 2}, {400, 2, 2}, {401, -1, -1},
               {65535, -1, -1}});
  // clang-format on
  // Unsorted: the first record whose end reaches the value wins (150: record 1, not 2).
  runCctTable({{100, 120, 0}, {500, 600, 0}, {100, 200, 0}},
              {{110, 0, 0}, {150, 0, 1}, {550, 1, 1}, {601, -1, -1}});
}

const std::string kHead = "[LumoFilter][RealTimePreview] ";

float shadingEntry(unsigned k, unsigned j) { return float(k) * 1.25f + float(j) * 0.3f + 0.01f; }

// Scenes and zoom ratios of the trigger tests; see each test for the cells.
calib::CalibrationFile triggerFile() {
  const Bands quad = {{100, 200, {{2000, 3000, 0}, {4000, 5000, 1}}},
                      {400, 500, {{2000, 3000, 2}, {4000, 6000, 3}}}};
  // Key 8 gives the shading blocks of zoom 1.0 ("quad") at lux 300, CCT 2580.
  calib::CalibrationFile f =
      lumotest::calibration({{"common",
                              {{100, 200, {{2000, 2550, 0}, {2800, 5000, 1}}},
                               {400, 500, {{2000, 2400, 0}, {2600, 5000, 3}}}},
                              {}},
                             {"quad", quad, {}},
                             {"point", {{300, 300, {{2000, 3000, 4}, {4000, 5000, 5}}}}, {}},
                             {"empty", {}, {}},
                             {"gap6", {{100, 200, {{2000, 3000, 3}, {4000, 5000, 5}}}}, {}}},
                            {{1.0f, quad, {}},
                             {8.0f, {{0, 299, {{0, 65535, 0}}}, {301, 65535, {{0, 65535, 2}}}}, {}},
                             {2.0f, lumotest::everywhere(4), {}},
                             {5.0f, lumotest::everywhere(5), {}}},
                            6, 6);
  for (unsigned k = 0; k < 6; k++)
    for (unsigned j = 0; j < 8; j++) f.shadings[k][j] = shadingEntry(k, j);
  return f;
}

// Expected LUT byte p for corner indices k and weights w, per blend case; the
// byte conversion is checked against hand values below.
uint8_t expectedLutByte(const uint16_t k[4], const float w[4], size_t p) {
  auto L = [&](int i) { return float(lumotest::patternByte(k[i], p)); };
  if (k[0] == k[1] && k[0] == k[2] && k[0] == k[3]) return lumotest::patternByte(k[0], p);
  if (k[0] == k[1] && k[2] != k[3])
    return lumo::lutByteFromFloat(((w[0] + w[1]) * L(0) + w[2] * L(2)) + w[3] * L(3));
  if (k[0] == k[1]) return lumo::lutByteFromFloat((w[0] + w[1]) * L(0) + (w[2] + w[3]) * L(2));
  if (k[0] != k[2])
    return lumo::lutByteFromFloat(((w[0] * L(0) + w[1] * L(1)) + w[2] * L(2)) + w[3] * L(3));
  if (k[1] != k[3])
    return lumo::lutByteFromFloat(((w[0] + w[2]) * L(0) + w[1] * L(1)) + w[3] * L(3));
  return lumo::lutByteFromFloat((w[0] + w[2]) * L(0) + (w[1] + w[3]) * L(1));
}

// Four-term shading blend of blocks k, summed left to right.
float expectedShading(const uint16_t k[4], const float w[4], unsigned j) {
  return ((w[0] * shadingEntry(k[0], j) + w[1] * shadingEntry(k[1], j)) +
          w[2] * shadingEntry(k[2], j)) +
         w[3] * shadingEntry(k[3], j);
}

class Trigger : public testing::Test {
protected:
  void SetUp() override { load(triggerFile()); }
  // A trigger that has seen no frame yet, on a store of the given file.
  void load(const calib::CalibrationFile& f) {
    lumotest::quietLogs();
    store = std::make_unique<ParamUtil>(lumotest::writeBytes(dir, "t.bin", calib::serialize(f)));
    fresh();
  }
  void fresh(bool debug = false) {
    trigger = ParamTrigger();
    trigger.initialize(param_trigger_init_info{debug, "RealTimePreview"}, *store);
  }
  bool run(const param_trigger_t& in, bool& changed) {
    return trigger.trigger(in, &lut, &shading, changed);
  }

  lumotest::TempDir dir;
  std::unique_ptr<ParamUtil> store;
  ParamTrigger trigger;
  param_lut_t lut{};
  param_shading_float_t shading{};
};

// The first frame of a fresh trigger blends both outputs. Zoom 1.0 selects the
// set that repeats "quad", so its rows check the shading blend too.
TEST_F(Trigger, EveryBlendCaseMatchesTheFormula) {
  struct Row {
    const char* scene;
    uint16_t lux, cct;
    uint16_t k[4];
    float b[6];  // luxPrev.end, luxElem.start, then each CCT bracket's lower end, upper start
  };
  const Row rows[] = {
      {"common", 150, 2100, {0, 0, 0, 0}, 200, 100, 2550, 2000, 2550, 2000},  // 1: one cell
      {"common", 300, 2500, {0, 0, 0, 3}, 200, 400, 2550, 2000, 2400, 2600},  // 2: a = b, c != d
      {"quad", 300, 2500, {0, 0, 2, 2}, 200, 400, 3000, 2000, 3000, 2000},    // 3: a = b, c = d
      // 4: all differ, with fractions whose double complements change the last bit
      {"quad", 201, 3001, {0, 1, 2, 3}, 200, 400, 3000, 4000, 3000, 4000},
      {"common", 300, 2580, {0, 1, 0, 3}, 200, 400, 2550, 2800, 2400, 2600},  // 5: a = c, b != d
      {"common", 150, 2600, {0, 1, 0, 1}, 200, 100, 2550, 2800, 2550, 2800},  // 6: one lux band
      // 6 at the band's end, a quarter across 3000..4000 between blocks 3 and 5
      {"gap6", 200, 3250, {3, 5, 3, 5}, 200, 100, 3000, 4000, 3000, 4000},
  };

  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.scene) + " " + std::to_string(r.lux) + " " + std::to_string(r.cct));
    fresh();
    bool changed = false;
    ASSERT_TRUE(run({r.lux, r.cct, 1.0f, r.scene}, changed));
    EXPECT_TRUE(changed);
    // The six weights (with the deliberate double complement), then the four
    // corners' products.
    const float luxPrev = 1.0f - (r.lux - r.b[0]) / (r.b[1] - r.b[0]);
    const float tPrev = (r.cct - r.b[2]) / (r.b[3] - r.b[2]);
    const float uElem = 1.0f - (r.cct - r.b[4]) / (r.b[5] - r.b[4]);
    const float six[6] = {luxPrev, 1.0f - luxPrev, 1.0f - tPrev, 1.0f - (1.0f - tPrev),
                          uElem,   1.0f - uElem};
    float w[4];
    for (int i = 0; i < 4; i++) w[i] = six[i / 2] * six[2 + i];
    size_t mismatches = 0;
    for (size_t p = 0; p < LUT_BYTES; p++) mismatches += lut.data[p] != expectedLutByte(r.k, w, p);
    EXPECT_EQ(mismatches, 0u);
    for (unsigned j = 0; j < 8 && std::string(r.scene) == "quad"; j++)
      EXPECT_EQ(shading.data[j], expectedShading(r.k, w, j));
  }
}

// Frames in the same cells (lux moving inside the gap, which would change the
// weights, or a zoom set giving the same shading blocks) and frames of an
// unknown scene touch neither the outputs nor `changed`; unknown scenes do not
// even log. Debug prints are on (they print both outputs on every frame).
TEST_F(Trigger, UnchangedCellOrUnknownSceneLeavesTheOutputsAlone) {
  fresh(true);
  bool changed = false;
  ASSERT_TRUE(run({300, 2580, 1.0f, "common"}, changed));
  ASSERT_TRUE(changed);
  std::memset(lut.data, 0xEE, LUT_BYTES);
  std::fill(std::begin(shading.data), std::end(shading.data), -7.0f);
  const param_trigger_t frames[] = {{350, 2580, 1.0f, "common"},  {399, 2580, 1.0f, "common"},
                                    {300, 2580, 9.0f, "common"},  {150, 2100, 5.0f, "Quad"},
                                    {150, 2100, 5.0f, "unknown"}, {150, 2100, 5.0f, ""}};
  for (const param_trigger_t& in : frames) {
    SCOPED_TRACE(in.aiscene + " " + std::to_string(in.lux) + " " + std::to_string(in.zoom_ratio));
    hostsim::LogCapture capture;
    changed = false;
    const bool known = in.aiscene == "common";
    EXPECT_EQ(run(in, changed), known);
    EXPECT_FALSE(changed);
    EXPECT_TRUE(known || capture.records().empty());
    EXPECT_EQ((std::vector<int>{lut.data[0], lut.data[LUT_BYTES - 1], int(shading.data[7]),
                                trigger.m_lutIndex[3], trigger.m_shadingIndex[3]}),
              (std::vector<int>{0xEE, 0xEE, -7, 3, 2}));
  }
}

// Failed searches leave zero records: indices 0 and bounds 0, so non-finite
// weights; the LUT bytes convert them, the shading passes them on.
TEST_F(Trigger, FailedSearchesFallBackToZeroRecords) {
  struct Row {
    const char* scene;
    uint16_t lux, cct;
    size_t errors;
    bool copyOfLut0;  // else every LUT byte is 0
    bool nanShading;  // zoom 1.0 repeats "quad"
  };
  const Row rows[] = {
      {"quad", 600, 2500, 6, true, true},     // lux above every band: every search fails
      {"empty", 150, 2500, 3, true, false},   // an empty band list: the LUT searches fail
      {"quad", 300, 5500, 2, false, true},    // CCT above L0's bands: a = b = 0, infinite weights
      {"point", 300, 3500, 0, false, false},  // single-point lux band hit exactly: NaN weights
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.scene + std::to_string(r.lux));
    fresh();
    hostsim::LogCapture capture;
    bool changed = false;
    std::memset(lut.data, 0x77, LUT_BYTES);
    EXPECT_TRUE(run({r.lux, r.cct, 1.0f, r.scene}, changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(lumotest::messages(capture, true), Lines(r.errors, kNotFound));
    for (size_t p = 0; p < LUT_BYTES; p++)
      ASSERT_EQ(lut.data[p], r.copyOfLut0 ? lumotest::patternByte(0, p) : 0) << p;
    for (float v : shading.data) EXPECT_EQ(std::isnan(v), r.nanShading) << v;
  }
}

TEST_F(Trigger, ZoomRatioChoosesTheLargestKeyNotAbove) {
  // Keys 1, 2, 5, 8; at lux 350, CCT 3300 they give blocks 0..3, 4, 5 and 2.
  const std::pair<float, std::vector<int>> rows[] = {{0.6f, {0, 1, 2, 3}}, {1.99f, {0, 1, 2, 3}},
                                                     {2.0f, {4, 4, 4, 4}}, {7.99f, {5, 5, 5, 5}},
                                                     {8.0f, {2, 2, 2, 2}}, {kNaN, {2, 2, 2, 2}}};
  for (const auto& [zoom, blocks] : rows) {
    fresh();
    bool changed = false;
    EXPECT_TRUE(trigger.triggerShading({350, 3300, zoom, "quad"}, &shading, changed));
    EXPECT_EQ(
        std::vector<int>(std::begin(trigger.m_shadingIndex), std::end(trigger.m_shadingIndex)),
        blocks)
        << zoom;
  }
}

// Stores of their own: indices at the signed 16-bit limit and past the pools.
TEST_F(Trigger, IndexFrom32768IsRecomputedOnEveryFrame) {
  load(lumotest::calibration(
      {{"common", lumotest::everywhere(0), {}}},
      {{1.0f, lumotest::everywhere(32767), {}}, {2.0f, lumotest::everywhere(32768), {}}}, 1,
      32769));
  for (const auto& [zoom, changedAgain] : {std::pair{1.0f, false}, std::pair{2.0f, true}}) {
    fresh();
    for (int frameNo = 0; frameNo < 3; frameNo++) {
      bool changed = false;
      ASSERT_TRUE(run({10, 10, zoom, "common"}, changed));
      EXPECT_EQ(changed, frameNo == 0 || changedAgain) << zoom << " frame " << frameNo;
    }
    EXPECT_EQ(trigger.m_shadingIndex[0], changedAgain ? -32768 : 32767);
  }
}

TEST_F(Trigger, BlocksPastThePoolAreNeverRead) {
  // Indices 0, 4, then 3 last: four LUTs, and block 4 is not among them.
  calib::CalibrationFile f = lumotest::calibration(
      {{"s", {{0, 100, {{0, 100, 0}, {200, 300, 4}}}}, {}},
       {"t", {{0, 100, {{0, 100, 1}, {200, 300, 3}}}}, {}}},
      {{1.0f, {{0, 100, {{0, 100, 0}, {200, 300, 1}}}}, {}}, {4.0f, {{0, 100, {{0, 100, 0}}}}, {}}},
      4, 1);
  load(f);
  std::memset(lut.data, 0x33, LUT_BYTES);
  auto beyond = [](const std::string& what) {
    return kHead + what + " of the store, no parameters for this frame";
  };

  hostsim::LogCapture capture;
  bool changed = false;
  EXPECT_FALSE(run({50, 250, 4.0f, "s"}, changed));
  EXPECT_FALSE(changed);
  EXPECT_EQ(lut.data[0], 0x33);
  EXPECT_EQ(trigger.m_lutIndex[0], -1);
  EXPECT_EQ(lumotest::messages(capture, true),
            Lines{beyond("lut index 4, 4, 4, 4 beyond the 4 LUT blocks")});
  // The store's dump does not read them either.
  capture.clear();
  store->printParam();
  std::string dump;
  for (const std::string& m : lumotest::messages(capture)) dump += m + "\n";
  EXPECT_NE(dump.find("param_lut = (block beyond the LUT pool)\n"), std::string::npos);
  EXPECT_NE(dump.find("param_shading = (block beyond the shading pool)\n"), std::string::npos);

  // A good LUT cell with a shading cell past the pool also leaves the frame
  // without parameters (the LUT is written; the caller passes the frame through).
  capture.clear();
  EXPECT_FALSE(run({50, 250, 1.0f, "t"}, changed));
  EXPECT_EQ(lut.data[1], lumotest::patternByte(3, 1));
  EXPECT_EQ(trigger.m_shadingIndex[0], -1);
  EXPECT_EQ(lumotest::messages(capture, true),
            Lines{beyond("shading index 1, 1, 1, 1 beyond the 1 shading blocks")});

  // Without zoom ratios there are no shading parameters at all.
  f.zooms.clear();
  load(f);
  capture.clear();
  EXPECT_FALSE(run({10, 10, 1.0f, "t"}, changed));
  EXPECT_EQ(lumotest::messages(capture, true),
            (Lines{kNotFound, kNotFound, kNotFound,
                   beyond("shading index 0, 0, 0, 0 beyond the 0 shading blocks")}));
}

// Expected bytes worked out by hand: low 8 bits of the truncated int32. The
// vector kernels meet the same values through odd weights in the test below.
TEST(LutByteFromFloat, TruncatesSaturatesAndKeepsTheLowByte) {
  // clang-format off
  const std::pair<float, uint8_t> rows[] = {
      {0.99f, 0}, {-0.99f, 0}, {255.9f, 255}, {256.5f, 0}, {-1.5f, 255}, {kNaN, 0}, {kInf, 255},
      {-kInf, 0}, {3e9f, 255}, {-3e9f, 0}, {2147483648.0f, 255}, {2147483520.0f, 0x80}};
  // clang-format on
  for (const auto& [value, expected] : rows)
    EXPECT_EQ(lumo::lutByteFromFloat(value), expected) << value;
}

TEST(BlendLut, VectorKernelMatchesScalarLoopBitForBit) {
  const float odd[] = {kNaN,   kInf,   -kInf, 0.0f,          -0.0f,     1e30f,
                       -1e30f, 1e-40f, 1.0f,  2147483648.0f, 0.999999f, 1e7f};
  std::mt19937 rng(20240611);
  auto weight = [&]() -> float {
    const unsigned pick = rng() % 16;
    if (pick < 4) return odd[rng() % std::size(odd)];
    if (pick < 6) return std::uniform_real_distribution<float>(-300.0f, 300.0f)(rng);
    return std::uniform_real_distribution<float>(-0.5f, 1.5f)(rng);
  };
  std::vector<std::vector<uint8_t>> luts(4, std::vector<uint8_t>(LUT_BYTES));
  for (int trial = 0; trial < 60; trial++) {
    for (auto& lut : luts) std::generate(lut.begin(), lut.end(), [&] { return uint8_t(rng()); });
    for (int blendCase = 1; blendCase <= 6; blendCase++) {
      lumo::LutBlendSources src{};
      for (size_t i = 0; i < 4; i++) src.lut[i] = luts[i].data(), src.weight[i] = weight();
      for (size_t n : {0, 1, 7, 8, 15, 16, 17, 31, 33, 64, 100, int(LUT_BYTES)}) {
        std::vector<uint8_t> ref(n + 1, 0xA5);
        lumo::blendLutReference(blendCase, src, ref.data(), n);
        ASSERT_EQ(ref[n], 0xA5) << "wrote past the end";
        for (lumo::LutKernel kernel : {lumo::LutKernel::kBaseline, lumo::LutKernel::kAvx2}) {
          if (!lumo::lutKernelAvailable(kernel)) continue;  // not built for this machine
          std::vector<uint8_t> vec(n + 1, 0xA5);
          lumo::blendLutVectorWith(kernel, blendCase, src, vec.data(), n);
          ASSERT_EQ(vec, ref) << "kernel " << int(kernel) << " case " << blendCase << " n " << n
                              << " weights " << testing::PrintToString(src.weight);
        }
      }
    }
  }
}

// The switch is read once per process, so it is checked in a fresh one. A
// user-mode emulator cannot re-execute the test binary; there the child is
// forked instead, which holds because ctest runs each case in its own
// process, so nothing has read the switch before the fork.
TEST(BlendLutDeathTest, EnvironmentSwitchForcesTheScalarLoop) {
#ifdef LUMO_TESTS_EMULATED
  GTEST_FLAG_SET(death_test_style, "fast");
#else
  GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
  for (const auto& [value, code] : {std::pair{"1", 3}, std::pair{"0", 4}}) {
    EXPECT_EXIT((setenv("LUMO_FORCE_SCALAR", value, 1), exit(lumo::lutBlendForcedScalar() ? 3 : 4)),
                testing::ExitedWithCode(code), "")
        << value;
  }
}

}  // namespace
