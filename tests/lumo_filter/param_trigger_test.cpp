// The trigger: blend cases, shading blend, change detection, failure paths,
// zoom-ratio choice and debug prints, against values worked out here from
// the bilinear formulas.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "paramTrigger.h"
#include "param_fixtures.h"

namespace {

using lumotest::luxBand;

const std::string kName = "RealTimePreview";
const std::string kHead = "[LumoFilter][" + kName + "] ";

float shadingEntry(unsigned k, unsigned j) { return float(k) * 1.25f + float(j) * 0.3f + 0.01f; }

// Scenes and zoom ratios of the trigger tests; see each test for the cells.
calib::CalibrationFile triggerFile() {
  calib::CalibrationFile f;
  f.scenes.push_back({"common",
                      {luxBand(100, 200, {{2000, 2550, 0}, {2800, 5000, 1}}),
                       luxBand(400, 500, {{2000, 2400, 0}, {2600, 5000, 3}})},
                      std::nullopt});
  f.scenes.push_back({"quad",
                      {luxBand(100, 200, {{2000, 3000, 0}, {4000, 5000, 1}}),
                       luxBand(400, 500, {{2000, 3000, 2}, {4000, 6000, 3}})},
                      std::nullopt});
  f.scenes.push_back(
      {"point", {luxBand(300, 300, {{2000, 3000, 4}, {4000, 5000, 5}})}, std::nullopt});
  f.scenes.push_back({"empty", {}, std::nullopt});
  f.scenes.push_back(
      {"gap6", {luxBand(100, 200, {{2000, 3000, 3}, {4000, 5000, 5}})}, std::nullopt});
  f.zooms.push_back({1.0f,
                     {luxBand(100, 200, {{2000, 3000, 0}, {4000, 5000, 1}}),
                      luxBand(400, 500, {{2000, 3000, 2}, {4000, 6000, 3}})},
                     std::nullopt});
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

// The weights of the four corners, as the bilinear formulas define them.
struct Weights {
  float wLuxPrev, wLuxElem, uPrev, uPrevPartner, uElem, uElemPartner;
  float w[4];
};

Weights weightsFor(float lux, float luxPrevEnd, float luxElemStart, float cct, float prevLowEnd,
                   float prevHighStart, float elemLowEnd, float elemHighStart) {
  const float tLux = (lux - luxPrevEnd) / (luxElemStart - luxPrevEnd);
  const float tPrev = (cct - prevLowEnd) / (prevHighStart - prevLowEnd);
  const float tElem = (cct - elemLowEnd) / (elemHighStart - elemLowEnd);
  Weights r;
  r.wLuxPrev = 1.0f - tLux;
  r.wLuxElem = 1.0f - r.wLuxPrev;
  r.uPrev = 1.0f - tPrev;
  r.uPrevPartner = 1.0f - (1.0f - tPrev);
  r.uElem = 1.0f - tElem;
  r.uElemPartner = 1.0f - r.uElem;
  r.w[0] = r.wLuxPrev * r.uPrev;
  r.w[1] = r.wLuxPrev * r.uPrevPartner;
  r.w[2] = r.wLuxElem * r.uElem;
  r.w[3] = r.wLuxElem * r.uElemPartner;
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

std::string fourFloats(float a, float b, float c, float d) {
  char buf[256];
  std::snprintf(buf, sizeof(buf), "%f, %f, %f, %f", a, b, c, d);
  return buf;
}

std::string indexText(const uint16_t k[4]) {
  return std::to_string(k[0]) + ", " + std::to_string(k[1]) + ", " + std::to_string(k[2]) + ", " +
         std::to_string(k[3]);
}

param_trigger_t frame(const std::string& scene, uint16_t lux, uint16_t cct, float zoom) {
  param_trigger_t in;
  in.lux = lux;
  in.cct = cct;
  in.zoom_ratio = zoom;
  in.aiscene = scene;
  return in;
}

// Lines of the trigger itself (those carrying the instance name).
std::vector<std::string> triggerLines(const hostsim::LogCapture& capture) {
  std::vector<std::string> out;
  for (const std::string& m : lumotest::messages(capture)) {
    if (m.compare(0, kHead.size(), kHead) == 0) out.push_back(m.substr(kHead.size()));
  }
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
  void SetUp() override { trigger.initialize(param_trigger_init_info{false, kName}, *store); }

  bool run(const param_trigger_t& in, bool& changed) {
    return trigger.trigger(in, &lut, &shading, changed);
  }

  bool triggerShadingOnly(const param_trigger_t& in, bool& changed) {
    return trigger.triggerShading(in, &shading, changed);
  }

  static std::unique_ptr<lumotest::TempDir> dir;
  static std::unique_ptr<ParamUtil> store;
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
  for (size_t p = 0; p < LUT_BYTES; p++) {
    ASSERT_EQ(lut.data[p], expectedLutByte(k, w.w, p)) << p;
  }
  for (unsigned j = 0; j < 8; j++) {
    const float expected = ((w.w[0] * shadingEntry(0, j) + w.w[1] * shadingEntry(1, j)) +
                            w.w[2] * shadingEntry(2, j)) +
                           w.w[3] * shadingEntry(3, j);
    EXPECT_EQ(shading.data[j], expected) << j;
  }
  char six[256];
  std::snprintf(six, sizeof(six), "%f, %f, %f, %f, %f, %f", w.wLuxPrev, w.wLuxElem, w.uPrev,
                w.uPrevPartner, w.uElem, w.uElemPartner);
  const std::string four = fourFloats(w.w[0], w.w[1], w.w[2], w.w[3]);
  EXPECT_EQ(triggerLines(capture), (std::vector<std::string>{"lut index 0, 1, 2, 3", six, four,
                                                             "shading index 0, 1, 2, 3", four}));
  // The pairs of logged weights sum to one.
  EXPECT_NEAR(w.w[0] + w.w[1] + w.w[2] + w.w[3], 1.0f, 1e-6f);
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
    changed = false;
    ASSERT_TRUE(run(frame("common", lux, 2580, 1.0f), changed));
    EXPECT_FALSE(changed) << lux;
    EXPECT_EQ(lut.data[0], 0xEE);
    EXPECT_EQ(lut.data[LUT_BYTES - 1], 0xEE);
    EXPECT_EQ(shading.data[7], -7.0f);
    EXPECT_EQ(triggerLines(capture),
              (std::vector<std::string>{
                  "lut index 0, 1, 0, 3", "is_trigger_change = 0, no need to trigger",
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
      // case 1 again when lux and CCT sit below every band (clamped)
      {"quad", 0, 0, {0, 0, 0, 0}, 200, 100, 3000, 2000, 3000, 2000},
  };
  for (const Row& r : rows) {
    ParamTrigger fresh;
    fresh.initialize(param_trigger_init_info{false, kName}, *store);
    hostsim::LogCapture capture;
    bool changed = false;
    ASSERT_TRUE(fresh.triggerLut(frame(r.scene, r.lux, r.cct, 1.0f), &lut, changed));
    const Weights w = weightsFor(r.lux, r.luxPrevEnd, r.luxElemStart, r.cct, r.prevLowEnd,
                                 r.prevHighStart, r.elemLowEnd, r.elemHighStart);
    const std::string label =
        std::string(r.scene) + " " + std::to_string(r.lux) + "/" + std::to_string(r.cct);
    EXPECT_EQ(triggerLines(capture).at(0), "lut index " + indexText(r.k)) << label;
    size_t mismatches = 0;
    for (size_t p = 0; p < LUT_BYTES; p++)
      mismatches += lut.data[p] != expectedLutByte(r.k, w.w, p);
    EXPECT_EQ(mismatches, 0u) << label;
  }
}

TEST_F(Trigger, CctGapInsideOneLuxBandBlendsTwoBlocks) {
  bool changed = false;
  // gap6: lux at the band's end, CCT a quarter across 3000..4000 between blocks 3 and 5.
  ASSERT_TRUE(trigger.triggerLut(frame("gap6", 200, 3250, 1.0f), &lut, changed));
  const float t = 0.25f;
  for (size_t p = 0; p < LUT_BYTES; p++) {
    const float v = (1.0f - t) * float(lumotest::patternByte(3, p)) +
                    (1.0f - (1.0f - t)) * float(lumotest::patternByte(5, p));
    ASSERT_EQ(lut.data[p], static_cast<uint8_t>(static_cast<int>(v))) << p;
  }
}

TEST_F(Trigger, SinglePointLuxBandHitExactlyGivesNaNWeightsAndZeroBytes) {
  bool changed = false;
  std::memset(lut.data, 0x77, LUT_BYTES);
  ASSERT_TRUE(trigger.triggerLut(frame("point", 300, 3500, 1.0f), &lut, changed));
  EXPECT_TRUE(changed);
  for (size_t p = 0; p < LUT_BYTES; p++) ASSERT_EQ(lut.data[p], 0) << p;
}

TEST_F(Trigger, ValuesAboveEveryBandFallBackToZeroRecords) {
  struct Row {
    const char* scene;
    uint16_t lux, cct;
    size_t errors;
    uint8_t expectedFirst;  // byte 0 of the result
    bool copyOfLut0;
  };
  const Row rows[] = {
      // lux above every band: three failed searches, LUT 0 copied
      {"quad", 600, 2500, 3, 0, true},
      // an empty band list: the same
      {"empty", 150, 2500, 3, 0, true},
      // CCT above L0's bands only: a = b = 0 with bounds 0, weights infinite, bytes NaN -> 0
      {"quad", 300, 5500, 1, 0, false},
  };
  for (const Row& r : rows) {
    ParamTrigger fresh;
    fresh.initialize(param_trigger_init_info{false, kName}, *store);
    hostsim::LogCapture capture;
    bool changed = false;
    std::memset(lut.data, 0x77, LUT_BYTES);
    EXPECT_TRUE(fresh.triggerLut(frame(r.scene, r.lux, r.cct, 1.0f), &lut, changed));
    EXPECT_EQ(lumotest::errorMessages(capture),
              std::vector<std::string>(r.errors, "[LumoFilter] not found lux or cct!!!!!!!!!!!"))
        << r.scene;
    for (size_t p = 0; p < LUT_BYTES; p++) {
      const uint8_t expected = r.copyOfLut0 ? lumotest::patternByte(0, p) : 0;
      ASSERT_EQ(lut.data[p], expected) << r.scene << " byte " << p;
    }
  }
}

TEST_F(Trigger, ShadingAboveEveryBandIsPassedOnAsNaN) {
  bool changed = false;
  hostsim::LogCapture capture;
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
  struct Row {
    float zoom;
    const char* indices;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // Keys 1, 2, 5, 8; at CCT 3300 they give 0..3, 4, 5 and 2.
  const Row rows[] = {{0.6f, "0, 1, 2, 3"},  {1.0f, "0, 1, 2, 3"}, {1.99f, "0, 1, 2, 3"},
                      {2.0f, "4, 4, 4, 4"},  {4.9f, "4, 4, 4, 4"}, {5.0f, "5, 5, 5, 5"},
                      {7.99f, "5, 5, 5, 5"}, {8.0f, "2, 2, 2, 2"}, {100.0f, "2, 2, 2, 2"},
                      {nan, "2, 2, 2, 2"}};
  for (const Row& r : rows) {
    ParamTrigger fresh;
    fresh.initialize(param_trigger_init_info{false, kName}, *store);
    hostsim::LogCapture capture;
    bool changed = false;
    EXPECT_TRUE(fresh.triggerShading(frame("quad", 250, 3300, r.zoom), &shading, changed));
    EXPECT_EQ(triggerLines(capture).at(0), std::string("shading index ") + r.indices) << r.zoom;
  }
}

TEST_F(Trigger, SingleShadingBlockIsStillBlendedInFourTerms) {
  bool changed = false;
  ASSERT_TRUE(trigger.triggerShading(frame("quad", 250, 3300, 2.0f), &shading, changed));
  // Band 0..65535 for lux and CCT: both brackets are the band itself.
  const Weights w = weightsFor(250, 65535, 0, 3300, 65535, 0, 65535, 0);
  for (unsigned j = 0; j < 8; j++) {
    const float s = shadingEntry(4, j);
    const float expected = ((w.w[0] * s + w.w[1] * s) + w.w[2] * s) + w.w[3] * s;
    EXPECT_EQ(shading.data[j], expected) << j;
  }
}

TEST_F(Trigger, SameIndicesUnderAnotherZoomSetKeepTheShading) {
  bool changed = false;
  ASSERT_TRUE(triggerShadingOnly(frame("quad", 250, 2900, 2.0f), changed));
  ASSERT_TRUE(changed);
  const float before = shading.data[3];
  changed = false;
  // Zoom 9 picks the set of key 8, whose cell at CCT 2900 is block 4 as well.
  ASSERT_TRUE(triggerShadingOnly(frame("quad", 250, 2900, 9.0f), changed));
  EXPECT_FALSE(changed);
  EXPECT_EQ(shading.data[3], before);
}

TEST_F(Trigger, DebugModePrintsBothOutputsOnEveryFrame) {
  ParamTrigger debug;
  debug.initialize(param_trigger_init_info{true, kName}, *store);
  for (int frameNo = 0; frameNo < 2; frameNo++) {
    hostsim::LogCapture capture;
    bool changed = false;
    ASSERT_TRUE(debug.trigger(frame("common", 150, 2100, 1.0f), &lut, &shading, changed));
    std::string lutText = "param_lut = [";
    for (size_t p = 0; p < 50; p++) {
      lutText += " " + std::to_string(lumotest::patternByte(0, p));
    }
    lutText += "]";
    std::vector<std::string> prints;
    for (const std::string& line : triggerLines(capture)) {
      if (line.rfind("param_lut", 0) == 0 || line.rfind("shading_table", 0) == 0) {
        prints.push_back(line);
      }
    }
    ASSERT_EQ(prints.size(), 2u) << frameNo;
    EXPECT_EQ(prints[0], lutText);
    char text[256];
    std::snprintf(text, sizeof(text), "shading_table = [ %g %g %g %g %g %g %g %g]", shading.data[0],
                  shading.data[1], shading.data[2], shading.data[3], shading.data[4],
                  shading.data[5], shading.data[6], shading.data[7]);
    EXPECT_EQ(prints[1], text);
  }
  hostsim::LogCapture quiet;
  bool changed = false;
  ASSERT_TRUE(run(frame("common", 150, 2100, 1.0f), changed));
  for (const std::string& line : triggerLines(quiet)) {
    EXPECT_EQ(line.find("param_lut"), std::string::npos);
    EXPECT_EQ(line.find("shading_table"), std::string::npos);
  }
}

// Stores of their own: indices at the signed 16-bit limit and past the pools.
class TriggerStore : public testing::Test {
protected:
  void SetUp() override { lumotest::quietLogs(); }
  std::unique_ptr<ParamUtil> load(const calib::CalibrationFile& f) {
    return std::make_unique<ParamUtil>(lumotest::writeCalib(dir, "s.bin", f));
  }
  lumotest::TempDir dir;
  param_lut_t lut{};
  param_shading_float_t shading{};
};

TEST_F(TriggerStore, IndexFrom32768IsRecomputedOnEveryFrame) {
  calib::CalibrationFile f;
  f.scenes.push_back({"common", {luxBand(0, 65535, {{0, 65535, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 65535, {{0, 65535, 32767}})}, std::nullopt});
  f.zooms.push_back({2.0f, {luxBand(0, 65535, {{0, 65535, 32768}})}, std::nullopt});
  f.luts.push_back(lumotest::patternLut(0));
  f.shadings.resize(32769);
  f.shadings[32768] = {1, 2, 3, 4, 5, 6, 7, 8};
  const auto store = load(f);
  ASSERT_EQ(store->shadingCount, 32769u);
  struct Row {
    float zoom;
    bool changedAgain;
  };
  for (const Row& r : {Row{1.0f, false}, Row{2.0f, true}}) {
    ParamTrigger trigger;
    trigger.initialize(param_trigger_init_info{false, kName}, *store);
    for (int frameNo = 0; frameNo < 3; frameNo++) {
      bool changed = false;
      ASSERT_TRUE(trigger.trigger(frame("common", 10, 10, r.zoom), &lut, &shading, changed));
      EXPECT_EQ(changed, frameNo == 0 || r.changedAgain) << r.zoom << " frame " << frameNo;
    }
    EXPECT_EQ(trigger.m_shadingIndex[0], r.changedAgain ? -32768 : 32767);
  }
}

TEST_F(TriggerStore, BlocksPastThePoolAreNeverRead) {
  calib::CalibrationFile f;
  // Indices 0, 5, then 3 last: four LUTs, and block 5 is not among them.
  f.scenes.push_back({"s", {luxBand(0, 100, {{0, 100, 0}, {200, 300, 5}})}, std::nullopt});
  f.scenes.push_back({"t", {luxBand(0, 100, {{0, 100, 1}, {200, 300, 3}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 100, {{0, 100, 0}, {200, 300, 2}})}, std::nullopt});
  f.zooms.push_back({4.0f, {luxBand(0, 100, {{0, 100, 0}})}, std::nullopt});
  for (unsigned i = 0; i < 4; i++) f.luts.push_back(lumotest::patternLut(i));
  f.shadings.resize(1);
  const auto store = load(f);
  ASSERT_EQ(store->lutCount, 4u);
  ASSERT_EQ(store->shadingCount, 1u);
  ParamTrigger trigger;
  trigger.initialize(param_trigger_init_info{false, kName}, *store);
  std::memset(lut.data, 0x33, LUT_BYTES);

  hostsim::LogCapture capture;
  bool changed = false;
  EXPECT_FALSE(trigger.trigger(frame("s", 50, 250, 4.0f), &lut, &shading, changed));
  EXPECT_FALSE(changed);
  EXPECT_EQ(lut.data[0], 0x33);
  EXPECT_EQ(trigger.m_lutIndex[0], -1);
  EXPECT_EQ(lumotest::errorMessages(capture),
            std::vector<std::string>{kHead + "lut index 5, 5, 5, 5 beyond the 4 LUT blocks of "
                                             "the store, no parameters for this frame"});

  // A good LUT cell with a shading cell past the pool also leaves the frame
  // without parameters (the LUT is written; the caller passes the frame through).
  capture.clear();
  changed = false;
  EXPECT_FALSE(trigger.trigger(frame("t", 50, 250, 1.0f), &lut, &shading, changed));
  EXPECT_EQ(lut.data[1], lumotest::patternByte(3, 1));
  EXPECT_EQ(trigger.m_shadingIndex[0], -1);
  EXPECT_EQ(lumotest::errorMessages(capture),
            std::vector<std::string>{kHead + "shading index 2, 2, 2, 2 beyond the 1 shading "
                                             "blocks of the store, no parameters for this frame"});
}

TEST_F(TriggerStore, NoZoomRatiosMeansNoShadingParameters) {
  calib::CalibrationFile f;
  f.scenes.push_back({"common", {luxBand(0, 65535, {{0, 65535, 0}})}, std::nullopt});
  f.luts.push_back(lumotest::patternLut(0));
  const auto store = load(f);
  ParamTrigger trigger;
  trigger.initialize(param_trigger_init_info{false, kName}, *store);
  hostsim::LogCapture capture;
  bool changed = false;
  EXPECT_FALSE(trigger.trigger(frame("common", 10, 10, 1.0f), &lut, &shading, changed));
  EXPECT_EQ(lumotest::errorMessages(capture),
            (std::vector<std::string>{
                "[LumoFilter] not found lux or cct!!!!!!!!!!!",
                "[LumoFilter] not found lux or cct!!!!!!!!!!!",
                "[LumoFilter] not found lux or cct!!!!!!!!!!!",
                kHead + "shading index 0, 0, 0, 0 beyond the 0 shading blocks of the store, no "
                        "parameters for this frame"}));
}

}  // namespace
