// Loading calibration files into the store: trees, counts, pools, header
// fields and the load log, for well-formed files of every shape.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "param_fixtures.h"

namespace {

using calib::CctBand;
using lumotest::luxBand;

// Encoded size of a band list: count, then 6 + 6 C bytes per lux band.
size_t bandBytes(const std::vector<calib::LuxBand>& bands) {
  size_t n = 2;
  for (const auto& b : bands) n += 6 + 6 * b.ccts.size();
  return n;
}

calib::CalibrationFile sampleFile() {
  calib::CalibrationFile f;
  f.scenes.push_back({"night",
                      {luxBand(0, 100, {{2000, 3000, 0}, {4000, 5000, 1}}),
                       luxBand(200, 300, {{2000, 3000, 2}, {4000, 5000, 0}})},
                      std::nullopt});
  f.scenes.push_back({"food", {luxBand(0, 1000, {{0, 9000, 3}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 65535, {{0, 65535, 0}})}, std::nullopt});
  f.zooms.push_back({2.0f, {luxBand(0, 500, {{0, 5000, 1}, {5001, 9000, 2}})}, std::nullopt});
  for (unsigned i = 0; i < 4; i++) f.luts.push_back(lumotest::patternLut(i));
  for (unsigned i = 0; i < 3; i++) {
    f.shadings.push_back({0.5f * float(i), 1, 2, 3, 4, 5, 6, float(i) + 0.25f});
  }
  f.triggerControl = "lux+cct";
  f.paramType = "lut,shading";
  f.paramRange = "0-65535";
  return f;
}

void expectBands(const param_t& loaded, const std::vector<calib::LuxBand>& bands,
                 const std::string& where) {
  ASSERT_EQ(loaded.param_lux_count, bands.size()) << where;
  for (size_t i = 0; i < bands.size(); i++) {
    const param_lux_t& lux = loaded.param_lux[i];
    EXPECT_EQ(lux.start, bands[i].start) << where;
    EXPECT_EQ(lux.end, bands[i].end) << where;
    ASSERT_EQ(lux.param_cct_count, bands[i].ccts.size()) << where;
    for (size_t c = 0; c < bands[i].ccts.size(); c++) {
      EXPECT_EQ(lux.param_cct[c].param_start, bands[i].ccts[c].start) << where;
      EXPECT_EQ(lux.param_cct[c].param_end, bands[i].ccts[c].end) << where;
      EXPECT_EQ(lux.param_cct[c].param_cct_lut_index, bands[i].ccts[c].index) << where;
    }
  }
}

// Every tree entry and both pools against a description with unique keys.
void expectStore(const ParamUtil& store, const calib::CalibrationFile& f, uint32_t luts,
                 uint32_t shadings) {
  ASSERT_EQ(store.aiSceneParams.size(), f.scenes.size());
  for (const auto& scene : f.scenes) {
    ASSERT_EQ(store.aiSceneParams.count(scene.name), 1u) << scene.name;
    expectBands(store.aiSceneParams.at(scene.name), scene.luxBands, scene.name);
  }
  ASSERT_EQ(store.zoomRatioParams.size(), f.zooms.size());
  for (const auto& zoom : f.zooms) {
    ASSERT_EQ(store.zoomRatioParams.count(zoom.ratio), 1u) << zoom.ratio;
    expectBands(store.zoomRatioParams.at(zoom.ratio), zoom.luxBands, "zoom");
  }
  ASSERT_EQ(store.lutCount, luts);
  ASSERT_EQ(store.shadingCount, shadings);
  ASSERT_NE(store.lutData, nullptr);
  for (uint32_t k = 0; k < luts; k++) {
    EXPECT_EQ(std::memcmp(store.lutData + k * LUT_BYTES, f.luts[k].data(), LUT_BYTES), 0) << k;
  }
  for (uint32_t k = 0; k < shadings; k++) {
    EXPECT_EQ(std::memcmp(store.shadingData + k * SHADING_BYTES, f.shadings[k].data(), 32), 0);
  }
}

class ParamStore : public testing::Test {
protected:
  void SetUp() override { lumotest::quietLogs(); }
  lumotest::TempDir dir;
};

TEST_F(ParamStore, LoadsTreesCountsPoolsAndHeaderAndLogsEveryBlockKey) {
  const calib::CalibrationFile f = sampleFile();
  const std::string path = lumotest::writeCalib(dir, "sample.bin", f);
  hostsim::LogCapture capture;
  ParamUtil store(path);
  // Last CCT record read: food's index 3 and zoom 2.0's index 2.
  expectStore(store, f, 4, 3);
  EXPECT_EQ(store.aiScenesCount, 2);
  EXPECT_EQ(store.shadingZoomRatioCount, 2);
  // Block sizes: name or key, then the band list.
  const size_t night = 64 + bandBytes(f.scenes[0].luxBands);
  const size_t food = 64 + bandBytes(f.scenes[1].luxBands);
  const size_t zoom1 = 4 + bandBytes(f.zooms[0].luxBands);
  const size_t zoom2 = 4 + bandBytes(f.zooms[1].luxBands);
  const size_t lutOffset = 786 + night + food + zoom1 + zoom2;
  EXPECT_EQ(store.paramDataOffset, 778 + 2 * 2 + 2 * 2);
  EXPECT_EQ(store.lutDataOffset, lutOffset);
  EXPECT_EQ(store.lut3d_size, 17);
  EXPECT_STREQ(store.trigger_control, "lux+cct");
  EXPECT_STREQ(store.param_type, "lut,shading");
  EXPECT_STREQ(store.param_range, "0-65535");
  EXPECT_EQ(store.aiScenesSize, nullptr);
  EXPECT_EQ(store.shadingZoomRatioSize, nullptr);
  const size_t fileSize = lutOffset + 4 * 14739 + 3 * 32;
  const std::string tag = "[LumoFilter] ";
  const std::vector<std::string> expected = {
      tag + "ParamUtil",
      "[LumoFilter]",
      tag + "size=" + std::to_string(fileSize),
      tag + "aiScenesCount = 2",
      tag + "aiScenesSize = " + std::to_string(night),
      tag + "aiScenesSize = " + std::to_string(food),
      tag + "shadingZoomRatioCount = 2",
      tag + "shadingZoomRatioSize = " + std::to_string(zoom1),
      tag + "shadingZoomRatioSize = " + std::to_string(zoom2),
      tag + "paramDataOffset = 786",
      tag + "lutDataOffset = " + std::to_string(lutOffset),
      tag + "lut3d_size = 17",
      tag + "trigger_control = lux+cct",
      tag + "param_type = lut,shading",
      tag + "param_range = 0-65535",
      " " + tag + "aiscene = night",
      " " + tag + "aiscene = food",
      " " + tag + "zoom_ratio = 1.000000",
      " " + tag + "zoom_ratio = 2.000000",
  };
  EXPECT_EQ(lumotest::messages(capture), expected);
  const std::vector<std::string> fns = lumotest::functions(capture);
  EXPECT_EQ(fns.front(), "ParamUtil");
  EXPECT_EQ(fns[1], "initialize");
  EXPECT_EQ(fns[14], "initialize");
  EXPECT_EQ(fns.back(), "readAiScenes");
  for (const hostsim::LogRecord& r : capture.records()) {
    if (!r.offline) {
      EXPECT_EQ(r.priority, 3) << r.message;
    }
  }
}

TEST_F(ParamStore, MissingFileLeavesAnEmptyStoreAndLogsOnlyTheTags) {
  hostsim::LogCapture capture;
  ParamUtil store(dir.file("absent.bin"));
  EXPECT_TRUE(lumotest::storeIsEmpty(store));
  EXPECT_EQ(lumotest::messages(capture),
            (std::vector<std::string>{"[LumoFilter] ParamUtil", "[LumoFilter]"}));
}

// Well-formed files of unusual shapes load without an error line.
TEST_F(ParamStore, EveryShapeOfWellFormedFileLoads) {
  struct Row {
    const char* what;
    calib::CalibrationFile file;
    uint32_t luts, shadings;
    size_t junkAt = 0;  // bytes of junk written into a declared gap of 40 bytes
  };
  std::vector<Row> rows;
  rows.push_back({"no scenes, no zooms: a header of 778 bytes", {}, 0, 0});
  {
    calib::CalibrationFile f = sampleFile();
    const size_t nightBytes = 64 + bandBytes(f.scenes[0].luxBands);
    f.scenes[0].declaredSize = static_cast<uint16_t>(nightBytes + 40);
    f.zooms[0].declaredSize = static_cast<uint16_t>(4 + bandBytes(f.zooms[0].luxBands) + 3);
    rows.push_back({"declared sizes decide where blocks begin", f, 4, 3, 786 + nightBytes});
  }
  {
    calib::CalibrationFile f = sampleFile();
    f.lut3dSize = 33;
    f.paramDataOffset = 900;
    f.lutDataOffset = 2000;
    f.trailingBytes.assign(100, 0x5A);
    rows.push_back({"odd LUT size, offsets and trailing bytes", f, 4, 3});
  }
  {
    calib::CalibrationFile f;
    f.zooms.push_back({3.0f, {luxBand(0, 10, {{0, 1, 1}})}, std::nullopt});
    f.shadings.resize(2);
    f.shadings[1] = {9, 8, 7, 6, 5, 4, 3, 2};
    rows.push_back({"zoom ratios without scenes", f, 0, 2});
  }
  {
    calib::CalibrationFile f;
    f.scenes.push_back({"empty", {}, std::nullopt});
    f.scenes.push_back(
        {"point", {luxBand(300, 300, {{5000, 5000, 0}}), luxBand(400, 400, {})}, std::nullopt});
    f.zooms.push_back({1.0f, {}, std::nullopt});
    f.luts.push_back(lumotest::patternLut(9));
    rows.push_back({"zero-count records and single-point bands", f, 1, 0});
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<uint8_t> bytes = calib::serialize(row.file);
    // Junk in skipped bytes must not be read as a block.
    if (row.junkAt) std::memset(bytes.data() + row.junkAt, 0xAB, 40);
    const std::string path = lumotest::writeBytes(dir, "shape.bin", bytes);
    hostsim::LogCapture capture;
    ParamUtil store(path);
    expectStore(store, row.file, row.luts, row.shadings);
    const calib::CalibrationFile& f = row.file;
    size_t lutOffset = f.paramDataOffset.value_or(778 + 2 * (f.scenes.size() + f.zooms.size()));
    EXPECT_EQ(store.paramDataOffset, lutOffset);
    for (const auto& b : f.scenes) lutOffset += b.declaredSize.value_or(64 + bandBytes(b.luxBands));
    for (const auto& b : f.zooms) lutOffset += b.declaredSize.value_or(4 + bandBytes(b.luxBands));
    lutOffset = f.lutDataOffset.value_or(lutOffset);
    EXPECT_EQ(store.lutDataOffset, lutOffset);
    EXPECT_EQ(store.lut3d_size, f.lut3dSize);
    const size_t size =
        lutOffset + 14739 * f.luts.size() + 32 * f.shadings.size() + f.trailingBytes.size();
    EXPECT_EQ(lumotest::messages(capture).at(2), "[LumoFilter] size=" + std::to_string(size));
    EXPECT_TRUE(lumotest::errorMessages(capture).empty());
  }
}

TEST_F(ParamStore, CountsComeFromTheLastRecordReadNotTheLargestIndex) {
  calib::CalibrationFile f;
  f.scenes.push_back(
      {"s", {luxBand(0, 10, {{0, 1, 0}, {2, 3, 1}, {4, 5, 2}, {6, 7, 5}})}, std::nullopt});
  // A trailing lux band without CCT records leaves the count alone.
  f.scenes.push_back({"t", {luxBand(0, 10, {{0, 1, 3}}), luxBand(20, 30, {})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 10, {{0, 1, 4}, {2, 3, 1}})}, std::nullopt});
  for (unsigned i = 0; i < 6; i++) f.luts.push_back(lumotest::patternLut(i));
  for (unsigned i = 0; i < 5; i++) f.shadings.push_back({float(i), 0, 0, 0, 0, 0, 0, 0});
  ParamUtil store(lumotest::writeCalib(dir, "counts.bin", f));
  EXPECT_EQ(store.lutCount, 4u);      // 0, 1, 2, 5, 3: last is 3
  EXPECT_EQ(store.shadingCount, 2u);  // 4, 1: last is 1
  for (uint32_t k = 0; k < 4; k++) {
    EXPECT_EQ(std::memcmp(store.lutData + k * LUT_BYTES, f.luts[k].data(), LUT_BYTES), 0);
  }
  // The shading pool is taken right behind the four LUTs the count admits,
  // that is from the first bytes of the fifth LUT the file holds.
  EXPECT_EQ(std::memcmp(store.shadingData, f.luts[4].data(), 2 * 32), 0);
}

TEST_F(ParamStore, DuplicateKeysKeepTheFirstBlockButStillCount) {
  calib::CalibrationFile f;
  f.scenes.push_back({"night", {luxBand(0, 10, {{0, 1, 0}})}, std::nullopt});
  f.scenes.push_back({"night", {luxBand(5, 6, {{0, 1, 0}, {7, 8, 2}})}, std::nullopt});
  const float nextUp = std::nextafter(1.0f, 2.0f);
  f.zooms.push_back({1.0f, {luxBand(0, 10, {{0, 1, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(1, 2, {{0, 1, 1}})}, std::nullopt});
  f.zooms.push_back({nextUp, {luxBand(3, 4, {{0, 1, 1}})}, std::nullopt});
  for (unsigned i = 0; i < 3; i++) f.luts.push_back(lumotest::patternLut(i));
  for (unsigned i = 0; i < 2; i++) f.shadings.push_back({float(i), 0, 0, 0, 0, 0, 0, 0});
  ParamUtil store(lumotest::writeCalib(dir, "dups.bin", f));
  EXPECT_EQ(store.aiScenesCount, 2);
  EXPECT_EQ(store.lutCount, 3u);  // set by the dropped second "night"
  ASSERT_EQ(store.aiSceneParams.size(), 1u);
  expectBands(store.aiSceneParams.at("night"), f.scenes[0].luxBands, "first night");
  ASSERT_EQ(store.zoomRatioParams.size(), 2u);
  expectBands(store.zoomRatioParams.at(1.0f), f.zooms[0].luxBands, "first 1.0");
  expectBands(store.zoomRatioParams.at(nextUp), f.zooms[2].luxBands, "next float up");
  // The dropped blocks' arrays are released (the leak checker sees the rest).
}

TEST_F(ParamStore, GenericBandReaderFollowsItsPoolType) {
  // uint16 count 2; lux 1..2 with CCT (3, 4, idx 7); lux 5..6 with no CCT.
  const uint16_t words[] = {2, 1, 2, 1, 3, 4, 7, 5, 6, 0};
  ParamUtil store(dir.file("none.bin"));
  struct Row {
    param_type_t type;
    uint32_t lut, shading;
  };
  for (const Row& row : {Row{PARAM_TYPE_LUT, 8, 0}, Row{PARAM_TYPE_SHADING, 0, 8},
                         Row{static_cast<param_type_t>(7), 0, 0}}) {
    store.lutCount = 0;
    store.shadingCount = 0;
    std::vector<char> buffer(sizeof(words));
    std::memcpy(buffer.data(), words, sizeof(words));
    param_t out{};
    store.readParam(buffer.data(), out, row.type);
    EXPECT_EQ(store.lutCount, row.lut);
    EXPECT_EQ(store.shadingCount, row.shading);
    ASSERT_EQ(out.param_lux_count, 2);
    EXPECT_EQ(out.param_lux[0].param_cct[0].param_cct_lut_index, 7);
    EXPECT_EQ(out.param_lux[1].start, 5);
    EXPECT_EQ(out.param_lux[1].param_cct_count, 0);
    // An index past the list's count is ignored and does not advance.
    unsigned pos = 2;
    store.readParamLuxAndCct(buffer.data() + 2, out, 2, pos, row.type);
    EXPECT_EQ(pos, 2u);
    for (int i = 0; i < 2; i++) delete[] out.param_lux[i].param_cct;
    delete[] out.param_lux;
  }
}

}  // namespace
