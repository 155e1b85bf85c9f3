// The trigger: the bracket search, blend cases, shading blend, change detection,
// failure paths, zoom-ratio choice and debug prints, against values worked out
// here from the bilinear formulas; and the LUT blend kernels against the scalar loop.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lut_blend.h"
#include "paramTrigger.h"
#include "param_fixtures.h"
#include "param_records.h"

namespace {

constexpr uint16_t kUntouched = 999;

struct SearchRow {
  uint16_t value;
  int previous;  // expected index into the list, -1 for a failed search
  int element;
};

// Runs the CCT instance and returns the list positions of the two outputs
// (found by their lut index, which equals the position in these lists).
void runCctTable(std::vector<param_cct_t> list, const std::vector<SearchRow>& rows) {
  for (uint16_t i = 0; i < list.size(); i++) list[i].param_cct_lut_index = i;
  for (const SearchRow& row : rows) {
    hostsim::LogCapture capture;
    param_cct_t previous{kUntouched, kUntouched, kUntouched};
    param_cct_t element{kUntouched, kUntouched, kUntouched};
    ParamTrigger::findElementAndPrevious<param_cct_t>(
        list.data(), static_cast<unsigned short>(list.size()), row.value, previous, element);
    SCOPED_TRACE("value " + std::to_string(row.value));
    const std::vector<std::string> lines = lumotest::messages(capture);
    if (row.element < 0) {  // both outputs untouched, one error line and nothing else
      EXPECT_EQ(previous.param_cct_lut_index, kUntouched);
      EXPECT_EQ(element.param_cct_lut_index, kUntouched);
      EXPECT_EQ(element.param_start, kUntouched);
      EXPECT_EQ(lumotest::errorMessages(capture), lines);
      EXPECT_EQ(lines, std::vector<std::string>{"[LumoFilter] not found lux or cct!!!!!!!!!!!"});
      continue;
    }
    EXPECT_EQ(previous.param_cct_lut_index, row.previous);
    EXPECT_EQ(element.param_cct_lut_index, row.element);
    const param_cct_t& p = list[static_cast<size_t>(row.previous)];
    const param_cct_t& e = list[static_cast<size_t>(row.element)];
    EXPECT_EQ(previous.param_start, p.param_start);
    EXPECT_EQ(element.param_end, e.param_end);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "[LumoFilter] left start=" + std::to_string(p.param_start) +
                             ", end=" + std::to_string(p.param_end),
                         "[LumoFilter] right start=" + std::to_string(e.param_start) +
                             ", end=" + std::to_string(e.param_end)}));
    EXPECT_TRUE(lumotest::errorMessages(capture).empty());
  }
}

TEST(BracketSearch, ExactBoundsGapsClampBelowFailureAbove) {
  lumotest::quietLogs();
  // 100..200, gap, 250..300, then 300..400 touching it. Below the first record
  // clamps to it; a gap gives the record before and the one after; at 300 the
  // first record reaching it wins; above every record the search fails.
  // clang-format off
  runCctTable({{100, 200, 0}, {250, 300, 0}, {300, 400, 0}},
              {{0, 0, 0}, {99, 0, 0}, {100, 0, 0}, {150, 0, 0}, {200, 0, 0}, {201, 0, 1},
               {249, 0, 1}, {250, 1, 1}, {300, 1, 1}, {301, 2, 2}, {400, 2, 2}, {401, -1, -1},
               {65535, -1, -1}});
  // clang-format on
  // Unsorted: the first record reaching the value wins. 150: record 1 reaches
  // it first and 150 < 500, so previous is record 0; record 2 ends at 200.
  runCctTable({{100, 120, 0}, {500, 600, 0}, {100, 200, 0}},
              {{110, 0, 0}, {150, 0, 1}, {550, 1, 1}, {601, -1, -1}});
  runCctTable({{5000, 5000, 0}}, {{0, 0, 0}, {5000, 0, 0}, {5001, -1, -1}});
  runCctTable({}, {{0, -1, -1}, {65535, -1, -1}});
}

TEST(BracketSearch, LuxInstanceCopiesWholeRecords) {
  lumotest::quietLogs();
  param_cct_t cctsA[1] = {{1, 2, 3}};
  param_cct_t cctsB[2] = {{4, 5, 6}, {7, 8, 9}};
  param_lux_t list[2] = {{10, 20, cctsA, 1}, {40, 50, cctsB, 2}};
  hostsim::LogCapture capture;
  param_lux_t previous{}, element{};
  ParamTrigger::findElementAndPrevious<param_lux_t>(list, 2, 30, previous, element);
  EXPECT_EQ(previous.start, 10);
  EXPECT_EQ(previous.end, 20);
  EXPECT_EQ(previous.param_cct, cctsA);
  EXPECT_EQ(previous.param_cct_count, 1);
  EXPECT_EQ(element.param_cct, cctsB);
  EXPECT_EQ(element.param_cct_count, 2);
  EXPECT_EQ(lumotest::messages(capture),
            (std::vector<std::string>{"[LumoFilter] left start=10, end=20",
                                      "[LumoFilter] right start=40, end=50"}));
  // Error statements name the search as their function.
  EXPECT_EQ(lumotest::functions(capture),
            (std::vector<std::string>{"findElementAndPrevious", "findElementAndPrevious"}));
  // A null list with count 0 would crash if it were read.
  ParamTrigger::findElementAndPrevious<param_lux_t>(nullptr, 0, 10, previous, element);
  EXPECT_EQ(previous.param_cct, cctsA);
  EXPECT_EQ(element.param_cct_count, 2);
  EXPECT_EQ(lumotest::errorMessages(capture).size(), 1u);
}

using lumotest::luxBand;
using Lines = std::vector<std::string>;

const std::string kName = "RealTimePreview";
const std::string kHead = "[LumoFilter][" + kName + "] ";
const std::string kNotFound = "[LumoFilter] not found lux or cct!!!!!!!!!!!";

float shadingEntry(unsigned k, unsigned j) { return float(k) * 1.25f + float(j) * 0.3f + 0.01f; }

// Scenes and zoom ratios of the trigger tests; see each test for the cells.
calib::CalibrationFile triggerFile() {
  calib::CalibrationFile f;
  const auto quad =
      std::vector<calib::LuxBand>{luxBand(100, 200, {{2000, 3000, 0}, {4000, 5000, 1}}),
                                  luxBand(400, 500, {{2000, 3000, 2}, {4000, 6000, 3}})};
  f.scenes.push_back({"common",
                      {luxBand(100, 200, {{2000, 2550, 0}, {2800, 5000, 1}}),
                       luxBand(400, 500, {{2000, 2400, 0}, {2600, 5000, 3}})},
                      std::nullopt});
  f.scenes.push_back({"quad", quad, std::nullopt});
  f.scenes.push_back(
      {"point", {luxBand(300, 300, {{2000, 3000, 4}, {4000, 5000, 5}})}, std::nullopt});
  f.scenes.push_back({"empty", {}, std::nullopt});
  f.scenes.push_back(
      {"gap6", {luxBand(100, 200, {{2000, 3000, 3}, {4000, 5000, 5}})}, std::nullopt});
  f.zooms.push_back({1.0f, quad, std::nullopt});
  f.zooms.push_back({8.0f, {luxBand(0, 65535, {{0, 3000, 4}, {3001, 65535, 2}})}, std::nullopt});
  f.zooms.push_back({2.0f, {luxBand(0, 65535, {{0, 65535, 4}})}, std::nullopt});
  f.zooms.push_back({5.0f, {luxBand(0, 65535, {{0, 65535, 5}})}, std::nullopt});
  for (unsigned k = 0; k < 6; k++) {
    f.luts.push_back(lumotest::patternLut(k));
    calib::ShadingBlock s;
    for (unsigned j = 0; j < 8; j++) s[j] = shadingEntry(k, j);
    f.shadings.push_back(s);
  }
  return f;
}

// The six weights as the trigger logs them (lux, then each CCT bracket, with
// the deliberate double complement), and the four corners' products.
struct Weights {
  float six[6], w[4];
};

Weights weightsFor(float lux, float luxPrevEnd, float luxElemStart, float cct, float prevLowEnd,
                   float prevHighStart, float elemLowEnd, float elemHighStart) {
  const float luxPrev = 1.0f - (lux - luxPrevEnd) / (luxElemStart - luxPrevEnd);
  const float tPrev = (cct - prevLowEnd) / (prevHighStart - prevLowEnd);
  const float uElem = 1.0f - (cct - elemLowEnd) / (elemHighStart - elemLowEnd);
  Weights r{{luxPrev, 1.0f - luxPrev, 1.0f - tPrev, 1.0f - (1.0f - tPrev), uElem, 1.0f - uElem},
            {}};
  for (int i = 0; i < 4; i++) r.w[i] = r.six[i / 2] * r.six[2 + i];
  return r;
}

// Byte of a blended value: truncated int32 (NaN 0, saturated), low 8 bits.
uint8_t toByte(float v) {
  if (std::isnan(v)) return 0;
  const double t = std::trunc(double(v));
  const long long whole = t >= 2147483647.0    ? 2147483647LL
                          : t <= -2147483648.0 ? -2147483648LL
                                               : static_cast<long long>(t);
  return static_cast<uint8_t>(static_cast<unsigned long long>(whole) & 0xFF);
}

// Expected LUT byte p for corner indices k and weights w, per blend case.
uint8_t expectedLutByte(const uint16_t k[4], const float w[4], size_t p) {
  auto L = [&](int i) { return float(lumotest::patternByte(k[i], p)); };
  if (k[0] == k[1] && k[0] == k[2] && k[0] == k[3]) return lumotest::patternByte(k[0], p);
  if (k[0] == k[1] && k[2] != k[3])
    return toByte(((w[0] + w[1]) * L(0) + w[2] * L(2)) + w[3] * L(3));
  if (k[0] == k[1]) return toByte((w[0] + w[1]) * L(0) + (w[2] + w[3]) * L(2));
  if (k[0] != k[2]) return toByte(((w[0] * L(0) + w[1] * L(1)) + w[2] * L(2)) + w[3] * L(3));
  if (k[1] != k[3]) return toByte(((w[0] + w[2]) * L(0) + w[1] * L(1)) + w[3] * L(3));
  return toByte((w[0] + w[2]) * L(0) + (w[1] + w[3]) * L(1));
}

// Four-term shading blend of blocks k, summed left to right.
float expectedShading(const uint16_t k[4], const float w[4], unsigned j) {
  return ((w[0] * shadingEntry(k[0], j) + w[1] * shadingEntry(k[1], j)) +
          w[2] * shadingEntry(k[2], j)) +
         w[3] * shadingEntry(k[3], j);
}

// The values printed with %f (or %g), joined by `separator`.
std::string joined(const float* v, size_t n, bool g, const char* separator) {
  std::string out;
  for (size_t i = 0; i < n; i++) {
    char text[64];
    std::snprintf(text, sizeof(text), g ? "%g" : "%f", double(v[i]));
    out += (i ? separator : "") + std::string(text);
  }
  return out;
}

param_trigger_t frame(const std::string& scene, uint16_t lux, uint16_t cct, float zoom) {
  return {lux, cct, zoom, scene};
}

// Lines of the trigger itself (those carrying the instance name).
Lines triggerLines(const hostsim::LogCapture& capture) {
  Lines out;
  for (const std::string& m : lumotest::messages(capture))
    if (m.compare(0, kHead.size(), kHead) == 0) out.push_back(m.substr(kHead.size()));
  return out;
}

class Trigger : public testing::Test {
protected:
  static void SetUpTestSuite() {
    lumotest::quietLogs();
    dir = std::make_unique<lumotest::TempDir>();
    store = std::make_unique<ParamUtil>(lumotest::writeCalib(*dir, "t.bin", triggerFile()));
  }
  static void TearDownTestSuite() {
    store.reset();
    dir.reset();
  }
  void SetUp() override { fresh(); }
  // A trigger that has seen no frame yet, on the shared store.
  void fresh(bool debug = false) {
    trigger = ParamTrigger();
    trigger.initialize(param_trigger_init_info{debug, kName}, *store);
  }
  // A fresh trigger on a store of the test's own.
  void load(const calib::CalibrationFile& f) {
    own = std::make_unique<ParamUtil>(lumotest::writeCalib(*dir, "own.bin", f));
    trigger = ParamTrigger();
    trigger.initialize(param_trigger_init_info{false, kName}, *own);
  }
  bool run(const param_trigger_t& in, bool& changed) {
    return trigger.trigger(in, &lut, &shading, changed);
  }
  size_t lutMismatches(const uint16_t k[4], const float w[4]) const {
    size_t n = 0;
    for (size_t p = 0; p < LUT_BYTES; p++) n += lut.data[p] != expectedLutByte(k, w, p);
    return n;
  }

  static std::unique_ptr<lumotest::TempDir> dir;
  static std::unique_ptr<ParamUtil> store;
  std::unique_ptr<ParamUtil> own;
  ParamTrigger trigger;
  param_lut_t lut{};
  param_shading_float_t shading{};
};
std::unique_ptr<lumotest::TempDir> Trigger::dir;
std::unique_ptr<ParamUtil> Trigger::store;

TEST_F(Trigger, FirstFrameBlendsBothOutputsAndLogsTheWeights) {
  hostsim::LogCapture capture;
  bool changed = false;
  // quad: lux 201 between 100..200 and 400..500, CCT 3001 between 2000..3000
  // and 4000..; fractions whose double complements differ from them in the
  // last bit.
  ASSERT_TRUE(run(frame("quad", 201, 3001, 1.0f), changed));
  EXPECT_TRUE(changed);
  const uint16_t k[4] = {0, 1, 2, 3};
  const Weights w = weightsFor(201, 200, 400, 3001, 3000, 4000, 3000, 4000);
  EXPECT_EQ(lutMismatches(k, w.w), 0u);
  for (unsigned j = 0; j < 8; j++) EXPECT_EQ(shading.data[j], expectedShading(k, w.w, j)) << j;
  const std::string four = joined(w.w, 4, false, ", ");
  EXPECT_EQ(triggerLines(capture), (Lines{"lut index 0, 1, 2, 3", joined(w.six, 6, false, ", "),
                                          four, "shading index 0, 1, 2, 3", four}));
}

TEST_F(Trigger, UnchangedCellLeavesTheOutputsAlone) {
  bool changed = false;
  ASSERT_TRUE(run(frame("common", 300, 2580, 1.0f), changed));
  ASSERT_TRUE(changed);
  std::memset(lut.data, 0xEE, LUT_BYTES);
  for (float& v : shading.data) v = -7.0f;
  // Same cell; lux moves inside the gap, so the weights would differ.
  for (uint16_t lux : {300, 350, 399}) {
    hostsim::LogCapture capture;
    changed = false;  // the trigger only ever raises it
    ASSERT_TRUE(run(frame("common", lux, 2580, 1.0f), changed));
    EXPECT_FALSE(changed) << lux;
    EXPECT_EQ(lut.data[0], 0xEE);
    EXPECT_EQ(lut.data[LUT_BYTES - 1], 0xEE);
    EXPECT_EQ(shading.data[7], -7.0f);
    EXPECT_EQ(triggerLines(capture),
              (Lines{"lut index 0, 1, 0, 3", "is_trigger_change = 0, no need to trigger",
                     "shading index 0, 0, 2, 2", "is_trigger_change = 0, no need to trigger"}));
  }
}

TEST_F(Trigger, EveryBlendCaseMatchesTheFormula) {
  struct Row {
    const char* scene;
    uint16_t lux, cct;
    uint16_t k[4];
    // luxPrev.end, luxElem.start, and the two CCT brackets' end / start
    float luxPrevEnd, luxElemStart, prevLowEnd, prevHighStart, elemLowEnd, elemHighStart;
  };
  const Row rows[] = {
      // case 1: inside one cell
      {"common", 150, 2100, {0, 0, 0, 0}, 200, 100, 2550, 2000, 2550, 2000},
      // case 2: a = b inside L0's band, c != d across L1's gap
      {"common", 300, 2500, {0, 0, 0, 3}, 200, 400, 2550, 2000, 2400, 2600},
      // case 3: a = b and c = d
      {"quad", 300, 2500, {0, 0, 2, 2}, 200, 400, 3000, 2000, 3000, 2000},
      // case 4: four different blocks
      {"quad", 250, 3300, {0, 1, 2, 3}, 200, 400, 3000, 4000, 3000, 4000},
      // case 5: a = c, b != d
      {"common", 300, 2580, {0, 1, 0, 3}, 200, 400, 2550, 2800, 2400, 2600},
      // case 6: lux inside one band, CCT across a gap
      {"common", 150, 2600, {0, 1, 0, 1}, 200, 100, 2550, 2800, 2550, 2800},
      // case 6 at the band's end, a quarter across 3000..4000 between blocks 3 and 5
      {"gap6", 200, 3250, {3, 5, 3, 5}, 200, 100, 3000, 4000, 3000, 4000},
      // case 1 again when lux and CCT sit below every band (clamped)
      {"quad", 0, 0, {0, 0, 0, 0}, 200, 100, 3000, 2000, 3000, 2000},
  };
  for (const Row& r : rows) {
    fresh();
    hostsim::LogCapture capture;
    bool changed = false;
    ASSERT_TRUE(trigger.triggerLut(frame(r.scene, r.lux, r.cct, 1.0f), &lut, changed));
    const Weights w = weightsFor(r.lux, r.luxPrevEnd, r.luxElemStart, r.cct, r.prevLowEnd,
                                 r.prevHighStart, r.elemLowEnd, r.elemHighStart);
    const std::string label = std::string(r.scene) + " " + std::to_string(r.lux);
    const std::string index = std::to_string(r.k[0]) + ", " + std::to_string(r.k[1]) + ", " +
                              std::to_string(r.k[2]) + ", " + std::to_string(r.k[3]);
    EXPECT_EQ(triggerLines(capture).at(0), "lut index " + index) << label;
    EXPECT_EQ(lutMismatches(r.k, w.w), 0u) << label;
  }
}

TEST_F(Trigger, FailedSearchesFallBackToZeroRecords) {
  struct Row {
    const char* scene;
    uint16_t lux, cct;
    size_t errors;
    bool copyOfLut0;  // else every byte is 0
  };
  const Row rows[] = {
      // lux above every band: three failed searches, LUT 0 copied
      {"quad", 600, 2500, 3, true},
      // an empty band list: the same
      {"empty", 150, 2500, 3, true},
      // CCT above L0's bands only: a = b = 0 with bounds 0, weights infinite, bytes NaN -> 0
      {"quad", 300, 5500, 1, false},
      // a single-point lux band hit exactly: NaN weights, zero bytes, no failed search
      {"point", 300, 3500, 0, false},
  };
  for (const Row& r : rows) {
    fresh();
    hostsim::LogCapture capture;
    bool changed = false;
    std::memset(lut.data, 0x77, LUT_BYTES);
    EXPECT_TRUE(trigger.triggerLut(frame(r.scene, r.lux, r.cct, 1.0f), &lut, changed));
    EXPECT_TRUE(changed) << r.scene;
    EXPECT_EQ(lumotest::errorMessages(capture), Lines(r.errors, kNotFound)) << r.scene;
    for (size_t p = 0; p < LUT_BYTES; p++) {
      ASSERT_EQ(lut.data[p], r.copyOfLut0 ? lumotest::patternByte(0, p) : 0) << r.scene << p;
    }
  }
  // The shading blend of the zero records is passed on as NaN.
  fresh();
  hostsim::LogCapture capture;
  bool changed = false;
  ASSERT_TRUE(trigger.triggerShading(frame("quad", 600, 2500, 1.0f), &shading, changed));
  EXPECT_TRUE(changed);
  for (float v : shading.data) EXPECT_TRUE(std::isnan(v)) << v;
  EXPECT_EQ(triggerLines(capture).at(0), "shading index 0, 0, 0, 0");
}

TEST_F(Trigger, UnknownSceneSkipsEverything) {
  bool changed = false;
  ASSERT_TRUE(run(frame("quad", 250, 3300, 1.0f), changed));
  std::memset(lut.data, 0x11, LUT_BYTES);
  for (const char* scene : {"Quad", "unknown", ""}) {
    hostsim::LogCapture capture;
    changed = false;
    // The zoom ratio changed too, but shading is not looked at.
    EXPECT_FALSE(run(frame(scene, 150, 2100, 5.0f), changed)) << scene;
    EXPECT_FALSE(changed);
    EXPECT_TRUE(capture.records().empty()) << scene;
    EXPECT_EQ(lut.data[0], 0x11);
    EXPECT_EQ(trigger.m_lutIndex[3], 3);
    EXPECT_EQ(trigger.m_shadingIndex[3], 3);
  }
}

TEST_F(Trigger, ZoomRatioChoosesTheLargestKeyNotAbove) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // Keys 1, 2, 5, 8; at CCT 3300 they give 0..3, 4, 5 and 2.
  const std::pair<float, const char*> rows[] = {
      {0.6f, "0, 1, 2, 3"},   {1.0f, "0, 1, 2, 3"}, {1.99f, "0, 1, 2, 3"}, {2.0f, "4, 4, 4, 4"},
      {4.9f, "4, 4, 4, 4"},   {5.0f, "5, 5, 5, 5"}, {7.99f, "5, 5, 5, 5"}, {8.0f, "2, 2, 2, 2"},
      {100.0f, "2, 2, 2, 2"}, {nan, "2, 2, 2, 2"}};
  for (const auto& [zoom, indices] : rows) {
    fresh();
    hostsim::LogCapture capture;
    bool changed = false;
    EXPECT_TRUE(trigger.triggerShading(frame("quad", 250, 3300, zoom), &shading, changed));
    EXPECT_EQ(triggerLines(capture).at(0), std::string("shading index ") + indices) << zoom;
  }
}

TEST_F(Trigger, OneShadingBlockIsBlendedInFourTermsAndKeptUnderAnotherZoomSet) {
  bool changed = false;
  ASSERT_TRUE(trigger.triggerShading(frame("quad", 250, 2900, 2.0f), &shading, changed));
  ASSERT_TRUE(changed);
  // Band 0..65535 for lux and CCT: both brackets are the band itself.
  const Weights w = weightsFor(250, 65535, 0, 2900, 65535, 0, 65535, 0);
  const uint16_t k[4] = {4, 4, 4, 4};
  for (unsigned j = 0; j < 8; j++) EXPECT_EQ(shading.data[j], expectedShading(k, w.w, j)) << j;
  // Zoom 9 picks the set of key 8, whose cell at CCT 2900 is block 4 as well.
  const float before = shading.data[3];
  changed = false;
  ASSERT_TRUE(trigger.triggerShading(frame("quad", 250, 2900, 9.0f), &shading, changed));
  EXPECT_FALSE(changed);
  EXPECT_EQ(shading.data[3], before);
}

TEST_F(Trigger, DebugModePrintsBothOutputsOnEveryFrame) {
  std::string lutText = "param_lut = [";
  for (size_t p = 0; p < 50; p++) lutText += " " + std::to_string(lumotest::patternByte(0, p));
  lutText += "]";
  for (bool debug : {true, false}) {
    fresh(debug);
    for (int frameNo = 0; frameNo < 2; frameNo++) {
      hostsim::LogCapture capture;
      bool changed = false;
      ASSERT_TRUE(run(frame("common", 150, 2100, 1.0f), changed));
      Lines prints;
      for (const std::string& line : triggerLines(capture)) {
        if (line.rfind("param_lut", 0) == 0 || line.rfind("shading_table", 0) == 0) {
          prints.push_back(line);
        }
      }
      const std::string table = "shading_table = [ " + joined(shading.data, 8, true, " ") + "]";
      EXPECT_EQ(prints, debug ? (Lines{lutText, table}) : Lines()) << debug << frameNo;
    }
  }
}

// Stores of their own: indices at the signed 16-bit limit and past the pools.
TEST_F(Trigger, IndexFrom32768IsRecomputedOnEveryFrame) {
  calib::CalibrationFile f;
  f.scenes.push_back({"common", {luxBand(0, 65535, {{0, 65535, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 65535, {{0, 65535, 32767}})}, std::nullopt});
  f.zooms.push_back({2.0f, {luxBand(0, 65535, {{0, 65535, 32768}})}, std::nullopt});
  f.luts.push_back(lumotest::patternLut(0));
  f.shadings.resize(32769);
  f.shadings[32768] = {1, 2, 3, 4, 5, 6, 7, 8};
  for (const auto& [zoom, changedAgain] : {std::pair{1.0f, false}, std::pair{2.0f, true}}) {
    load(f);
    ASSERT_EQ(own->shadingCount, 32769u);
    for (int frameNo = 0; frameNo < 3; frameNo++) {
      bool changed = false;
      ASSERT_TRUE(run(frame("common", 10, 10, zoom), changed));
      EXPECT_EQ(changed, frameNo == 0 || changedAgain) << zoom << " frame " << frameNo;
    }
    EXPECT_EQ(trigger.m_shadingIndex[0], changedAgain ? -32768 : 32767);
  }
}

TEST_F(Trigger, BlocksPastThePoolAreNeverRead) {
  calib::CalibrationFile f;
  // Indices 0, 5, then 3 last: four LUTs, and block 5 is not among them.
  f.scenes.push_back({"s", {luxBand(0, 100, {{0, 100, 0}, {200, 300, 5}})}, std::nullopt});
  f.scenes.push_back({"t", {luxBand(0, 100, {{0, 100, 1}, {200, 300, 3}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 100, {{0, 100, 0}, {200, 300, 2}})}, std::nullopt});
  f.zooms.push_back({4.0f, {luxBand(0, 100, {{0, 100, 0}})}, std::nullopt});
  for (unsigned i = 0; i < 4; i++) f.luts.push_back(lumotest::patternLut(i));
  f.shadings.resize(1);
  load(f);
  ASSERT_EQ(own->lutCount, 4u);
  ASSERT_EQ(own->shadingCount, 1u);
  std::memset(lut.data, 0x33, LUT_BYTES);

  hostsim::LogCapture capture;
  bool changed = false;
  EXPECT_FALSE(run(frame("s", 50, 250, 4.0f), changed));
  EXPECT_FALSE(changed);
  EXPECT_EQ(lut.data[0], 0x33);
  EXPECT_EQ(trigger.m_lutIndex[0], -1);
  EXPECT_EQ(lumotest::errorMessages(capture),
            Lines{kHead + "lut index 5, 5, 5, 5 beyond the 4 LUT blocks of the store, no "
                          "parameters for this frame"});

  // A good LUT cell with a shading cell past the pool also leaves the frame
  // without parameters (the LUT is written; the caller passes the frame through).
  capture.clear();
  changed = false;
  EXPECT_FALSE(run(frame("t", 50, 250, 1.0f), changed));
  EXPECT_EQ(lut.data[1], lumotest::patternByte(3, 1));
  EXPECT_EQ(trigger.m_shadingIndex[0], -1);
  EXPECT_EQ(lumotest::errorMessages(capture),
            Lines{kHead + "shading index 2, 2, 2, 2 beyond the 1 shading blocks of the store, "
                          "no parameters for this frame"});

  // Without zoom ratios there are no shading parameters at all.
  f.zooms.clear();
  load(f);
  capture.clear();
  EXPECT_FALSE(run(frame("t", 10, 10, 1.0f), changed));
  EXPECT_EQ(lumotest::errorMessages(capture),
            (Lines{kNotFound, kNotFound, kNotFound,
                   kHead + "shading index 0, 0, 0, 0 beyond the 0 shading blocks of the store, "
                           "no parameters for this frame"}));
}

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
  static const float kOddWeights[] = {kNaN,   kInf,   -kInf, 0.0f,          -0.0f,     1e30f,
                                      -1e30f, 1e-40f, 1.0f,  2147483648.0f, 0.999999f, 1e7f};
  const unsigned pick = rng() % 16;
  if (pick < 4) return kOddWeights[rng() % (sizeof(kOddWeights) / sizeof(kOddWeights[0]))];
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
