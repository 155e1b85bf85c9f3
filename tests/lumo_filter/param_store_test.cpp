// Loading calibration files into the store (trees, counts, pools, header,
// load log), rejecting truncated and corrupted files whole, and the dump.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "param_fixtures.h"

namespace {

using calib::CctBand;
using lumotest::luxBand;
using Lines = std::vector<std::string>;

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
  for (unsigned i = 0; i < 3; i++) f.shadings.push_back({0.5f * i, 1, 2, 3, 4, 5, 6, i + 0.25f});
  f.triggerControl = "lux+cct";
  f.paramType = "lut,shading";
  f.paramRange = "0-65535";
  return f;
}

void expectBands(const param_t& loaded, const std::vector<calib::LuxBand>& bands) {
  ASSERT_EQ(loaded.param_lux_count, bands.size());
  for (size_t i = 0; i < bands.size(); i++) {
    const param_lux_t& lux = loaded.param_lux[i];
    EXPECT_EQ(lux.start, bands[i].start);
    EXPECT_EQ(lux.end, bands[i].end);
    ASSERT_EQ(lux.param_cct_count, bands[i].ccts.size());
    for (size_t c = 0; c < bands[i].ccts.size(); c++) {
      EXPECT_EQ(lux.param_cct[c].param_start, bands[i].ccts[c].start);
      EXPECT_EQ(lux.param_cct[c].param_end, bands[i].ccts[c].end);
      EXPECT_EQ(lux.param_cct[c].param_cct_lut_index, bands[i].ccts[c].index);
    }
  }
}

// Every tree entry and both pools against a description with unique keys.
void expectStore(const ParamUtil& store, const calib::CalibrationFile& f, uint32_t luts,
                 uint32_t shadings) {
  ASSERT_EQ(store.aiSceneParams.size(), f.scenes.size());
  for (const auto& scene : f.scenes) {
    SCOPED_TRACE(scene.name);
    ASSERT_EQ(store.aiSceneParams.count(scene.name), 1u);
    expectBands(store.aiSceneParams.at(scene.name), scene.luxBands);
  }
  ASSERT_EQ(store.zoomRatioParams.size(), f.zooms.size());
  for (const auto& zoom : f.zooms) {
    ASSERT_EQ(store.zoomRatioParams.count(zoom.ratio), 1u) << zoom.ratio;
    expectBands(store.zoomRatioParams.at(zoom.ratio), zoom.luxBands);
  }
  ASSERT_EQ(store.lutCount, luts);
  ASSERT_EQ(store.shadingCount, shadings);
  ASSERT_NE(store.lutData, nullptr);
  for (uint32_t k = 0; k < luts; k++)
    EXPECT_EQ(std::memcmp(store.lutData + k * LUT_BYTES, f.luts[k].data(), LUT_BYTES), 0) << k;
  for (uint32_t k = 0; k < shadings; k++)
    EXPECT_EQ(std::memcmp(store.shadingData + k * SHADING_BYTES, f.shadings[k].data(), 32), 0);
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
  EXPECT_EQ(store.paramDataOffset, 786);
  EXPECT_EQ(store.lutDataOffset, lutOffset);
  EXPECT_EQ(store.lut3d_size, 17);
  EXPECT_STREQ(store.trigger_control, "lux+cct");
  EXPECT_STREQ(store.param_type, "lut,shading");
  EXPECT_STREQ(store.param_range, "0-65535");
  EXPECT_EQ(store.aiScenesSize, nullptr);
  EXPECT_EQ(store.shadingZoomRatioSize, nullptr);
  const std::string tag = "[LumoFilter] ";
  const Lines expected = {
      tag + "ParamUtil",
      "[LumoFilter]",
      tag + "size=" + std::to_string(lutOffset + 4 * 14739 + 3 * 32),
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
  const Lines fns = lumotest::functions(capture);
  EXPECT_EQ(Lines({fns.front(), fns[1], fns[14], fns.back()}),
            Lines({"ParamUtil", "initialize", "initialize", "readAiScenes"}));
  for (const hostsim::LogRecord& r : capture.records())
    EXPECT_TRUE(r.offline || r.priority == 3) << r.message;

  // A missing file leaves an empty store and logs only the tags.
  capture.clear();
  EXPECT_TRUE(lumotest::storeIsEmpty(ParamUtil(dir.file("absent.bin"))));
  EXPECT_EQ(lumotest::messages(capture), (Lines{"[LumoFilter] ParamUtil", "[LumoFilter]"}));
}

// Well-formed files of unusual shapes load without an error line.
TEST_F(ParamStore, EveryShapeOfWellFormedFileLoads) {
  struct Row {
    const char* what;
    calib::CalibrationFile file;
    uint32_t luts, shadings;
    size_t junkAt = 0;  // junk written into a declared gap of 40 bytes
  };
  std::vector<Row> rows;
  rows.push_back({"no scenes, no zooms: a header of 778 bytes", {}, 0, 0});
  calib::CalibrationFile f = sampleFile();
  const size_t nightBytes = 64 + bandBytes(f.scenes[0].luxBands);
  f.scenes[0].declaredSize = static_cast<uint16_t>(nightBytes + 40);
  f.zooms[0].declaredSize = static_cast<uint16_t>(4 + bandBytes(f.zooms[0].luxBands) + 3);
  rows.push_back({"declared sizes decide where blocks begin", f, 4, 3, 786 + nightBytes});
  f = sampleFile();
  f.lut3dSize = 33;  // logged only: blocks stay 14739 bytes
  f.paramDataOffset = 900;
  f.lutDataOffset = 2000;
  f.trailingBytes.assign(100, 0x5A);
  rows.push_back({"odd LUT size, offsets and trailing bytes", f, 4, 3});
  f = {};
  f.zooms.push_back({3.0f, {luxBand(0, 10, {{0, 1, 1}})}, std::nullopt});
  f.shadings.resize(2);
  f.shadings[1] = {9, 8, 7, 6, 5, 4, 3, 2};
  rows.push_back({"zoom ratios without scenes", f, 0, 2});
  f = {};
  f.scenes.push_back({"empty", {}, std::nullopt});
  f.scenes.push_back(
      {"point", {luxBand(300, 300, {{5000, 5000, 0}}), luxBand(400, 400, {})}, std::nullopt});
  f.zooms.push_back({1.0f, {}, std::nullopt});
  f.luts.push_back(lumotest::patternLut(9));
  rows.push_back({"zero-count records and single-point bands", f, 1, 0});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<uint8_t> bytes = calib::serialize(row.file);
    if (row.junkAt) std::memset(bytes.data() + row.junkAt, 0xAB, 40);
    hostsim::LogCapture capture;
    ParamUtil store(lumotest::writeBytes(dir, "shape.bin", bytes));
    expectStore(store, row.file, row.luts, row.shadings);
    const calib::CalibrationFile& g = row.file;
    size_t lutOffset = g.paramDataOffset.value_or(778 + 2 * (g.scenes.size() + g.zooms.size()));
    EXPECT_EQ(store.paramDataOffset, lutOffset);
    for (const auto& b : g.scenes) lutOffset += b.declaredSize.value_or(64 + bandBytes(b.luxBands));
    for (const auto& b : g.zooms) lutOffset += b.declaredSize.value_or(4 + bandBytes(b.luxBands));
    lutOffset = g.lutDataOffset.value_or(lutOffset);
    EXPECT_EQ(store.lutDataOffset, lutOffset);
    EXPECT_EQ(store.lut3d_size, g.lut3dSize);
    const size_t size = lutOffset + 14739 * g.luts.size() + 32 * g.shadings.size();
    EXPECT_EQ(lumotest::messages(capture).at(2),
              "[LumoFilter] size=" + std::to_string(size + g.trailingBytes.size()));
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
  for (uint32_t k = 0; k < 4; k++)
    EXPECT_EQ(std::memcmp(store.lutData + k * LUT_BYTES, f.luts[k].data(), LUT_BYTES), 0);
  // The shading pool starts right behind the four LUTs the count admits.
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
  f.shadings.resize(2);
  ParamUtil store(lumotest::writeCalib(dir, "dups.bin", f));
  EXPECT_EQ(store.aiScenesCount, 2);
  EXPECT_EQ(store.lutCount, 3u);  // set by the dropped second "night"
  ASSERT_EQ(store.aiSceneParams.size(), 1u);
  expectBands(store.aiSceneParams.at("night"), f.scenes[0].luxBands);
  ASSERT_EQ(store.zoomRatioParams.size(), 2u);
  expectBands(store.zoomRatioParams.at(1.0f), f.zooms[0].luxBands);
  expectBands(store.zoomRatioParams.at(nextUp), f.zooms[2].luxBands);
  // The dropped blocks' arrays are released (the leak checker sees the rest).
}

// One scene (two CCT bands), one zoom ratio, one LUT, one shading block.
// Layout: header 782 bytes; scene block 782..865 (name, lux count at 846,
// lux head at 848, CCT records at 854); zoom block 866..883 (ratio, lux
// count at 870, lux head at 872, CCT record at 878); LUT pool at 884;
// shading pool at 15623; end at 15655.
std::vector<uint8_t> goodFile() {
  calib::CalibrationFile f;
  f.scenes.push_back({"s", {luxBand(0, 100, {{0, 100, 0}, {200, 300, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 100, {{0, 100, 0}})}, std::nullopt});
  f.luts.push_back(lumotest::patternLut(1));
  f.shadings.push_back({1, 2, 3, 4, 5, 6, 7, 8});
  return calib::serialize(f);
}

// Loads the bytes, expects an empty store and one error line; returns its reason.
std::string loadRejected(const lumotest::TempDir& dir, const std::vector<uint8_t>& bytes) {
  const std::string path = lumotest::writeBytes(dir, "bad.bin", bytes);
  hostsim::LogCapture capture;
  EXPECT_TRUE(lumotest::storeIsEmpty(ParamUtil(path)));
  const Lines errors = lumotest::errorMessages(capture);
  const std::string prefix = "[LumoFilter] parameter file " + path + " rejected: ";
  if (errors.size() != 1 || errors[0].compare(0, prefix.size(), prefix) != 0) {
    ADD_FAILURE() << (errors.empty() ? "no error line" : errors[0]);
    return "";
  }
  return errors[0].substr(prefix.size());
}

TEST_F(ParamStore, EveryTruncationIsRejectedNamingThePartThatDidNotFit) {
  const std::vector<uint8_t> full = goodFile();
  ASSERT_EQ(full.size(), 15655u);  // the layout the tables assume
  {
    ParamUtil store(lumotest::writeBytes(dir, "good.bin", full));
    EXPECT_EQ(store.lutDataOffset, 884);
    EXPECT_EQ(store.shadingCount, 1u);
  }
  const std::map<size_t, std::string> reasons = {
      {0, "aiScenesCount at byte 0 needs 2 bytes"},
      {1, "aiScenesCount at byte 0 needs 2 bytes"},
      {10, "aiScenesSize and offsets at byte 2 needs 10 bytes"},
      {500, "shadingZoomRatioSize and text fields at byte 12 needs 770 bytes"},
      {847, "scene block head at byte 782 needs 66 bytes"},
      {850, "lux records at byte 848 needs 6 bytes"},
      {865, "CCT records at byte 854 needs 12 bytes"},
      {870, "zoom-ratio block head at byte 866 needs 6 bytes"},
      {984, "LUT pool at byte 884 needs 14739 bytes"},
      {15623, "shading pool at byte 15623 needs 32 bytes"},
  };
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 900; n++) lengths.push_back(n);
  for (size_t n = 901; n < full.size(); n += 211) lengths.push_back(n);
  for (size_t n : {984, 15621, 15622, 15623, 15624, 15654}) lengths.push_back(n);
  for (size_t n : lengths) {
    SCOPED_TRACE("length " + std::to_string(n));
    const std::string reason =
        loadRejected(dir, std::vector<uint8_t>(full.begin(), full.begin() + std::ptrdiff_t(n)));
    if (reasons.count(n)) {
      EXPECT_EQ(reason, reasons.at(n) + ", the file has " + std::to_string(n));
    }
  }
}

TEST_F(ParamStore, EachCorruptedFieldIsRejected) {
  struct Row {
    size_t at;
    size_t textLength;  // 0: a 16-bit field set to 0xFFFF; else a text filled without its NUL
    const char* reason;
  };
  const Row rows[] = {
      {0, 0, "aiScenesSize and offsets at byte 2 needs 131078 bytes"},
      {2, 0, "zoom-ratio block head at byte 66317 needs 6 bytes"},
      {4, 0, "scene block head at byte 65535 needs 66 bytes"},
      {6, 0, "LUT pool at byte 65535 needs 14739 bytes"},
      {10, 0, "shadingZoomRatioSize and text fields at byte 12 needs 131838 bytes"},
      {846, 0, "lux records at byte 848 needs 393210 bytes"},
      {852, 0, "CCT records at byte 854 needs 393210 bytes"},
      {864, 0, "LUT pool at byte 884 needs 965935104 bytes"},
      {870, 0, "lux records at byte 872 needs 393210 bytes"},
      {876, 0, "CCT records at byte 878 needs 393210 bytes"},
      {882, 0, "shading pool at byte 15623 needs 2097152 bytes"},
      {782, 64, "scene name at byte 782 has no NUL in its 64 bytes"},
      {14, 256, "trigger_control at byte 14 has no NUL in its 256 bytes"},
      {270, 256, "param_type at byte 270 has no NUL in its 256 bytes"},
      {526, 256, "param_range at byte 526 has no NUL in its 256 bytes"},
  };
  for (const Row& row : rows) {
    std::vector<uint8_t> bytes = goodFile();
    if (row.textLength == 0) bytes[row.at] = bytes[row.at + 1] = 0xFF;
    std::memset(bytes.data() + row.at, 'x', row.textLength);
    const std::string reason =
        row.reason + std::string(row.textLength ? "" : ", the file has 15655");
    EXPECT_EQ(loadRejected(dir, bytes), reason) << "byte " << row.at;
  }
}

const std::string kTag = " [LumoFilter] ";
const std::string kRule = kTag + std::string(61, '=');

Lines luxLines(int start, int end, int count) {
  return {kTag + std::string(23, '=') + "LUX" + std::string(33, '='),
          kTag + "[ start = " + std::to_string(start), kTag + "  end = " + std::to_string(end),
          kTag + "  param_cct_count = " + std::to_string(count) + " ]"};
}

Lines cctLines(const std::string& head, int start, int end, int index) {
  return {kTag + "------" + head + "--------CCT-------------------------",
          kTag + "[ param_start = " + std::to_string(start),
          kTag + "  param_end = " + std::to_string(end),
          kTag + "  param_cct_lut_index = " + std::to_string(index) + " ]"};
}

Lines blockHead(const std::string& title, const std::string& key, int luxCount) {
  return {kRule, kTag + title, kRule, kTag + "[ " + key + " ",
          kTag + "  param_lux_count = " + std::to_string(luxCount) + " ]"};
}

// "[ b0 b1 ... b49]" of a pattern LUT.
std::string lutHead(unsigned seed) {
  std::string text = "[";
  for (size_t p = 0; p < 50; p++) text += " " + std::to_string(lumotest::patternByte(seed, p));
  return text + "]";
}

Lines dump(const std::string& path) {
  ParamUtil store(path);
  hostsim::LogCapture capture;
  store.printParam();
  for (const std::string& fn : lumotest::functions(capture)) EXPECT_EQ(fn, "printParam");
  return lumotest::messages(capture);
}

TEST_F(ParamStore, DumpPrintsScenesInStringOrderThenZoomRatios) {
  calib::CalibrationFile f;
  // "night" comes first in the file, "food" first in the dump.
  f.scenes.push_back(
      {"night", {luxBand(10, 20, {{2000, 3000, 1}}), luxBand(30, 40, {})}, std::nullopt});
  f.scenes.push_back({"food", {}, std::nullopt});
  f.zooms.push_back({1.5f, {luxBand(0, 100, {{0, 9000, 0}})}, std::nullopt});
  f.luts = {lumotest::patternLut(0), lumotest::patternLut(1)};
  f.shadings.push_back({1.5f, 0.1f, 1e-7f, 123456789.0f, -2.0f, 0.0f, 1.0f / 3.0f, 100000.0f});
  const std::string pad(18, ' ');
  Lines expected = blockHead(pad + "SCENE  food" + std::string(22, ' '), "aiscene = food", 0);
  for (const Lines& part :
       {blockHead(pad + "SCENE  night" + std::string(22, ' '), "aiscene = night", 2),
        luxLines(10, 20, 1), cctLines("SCENE night", 2000, 3000, 1),
        Lines{kTag + "param_lut = " + lutHead(1)}, luxLines(30, 40, 0),
        blockHead(std::string(20, ' ') + "zoomratio  1.500000" + std::string(28, ' '),
                  "zoomratio = 1.500000", 1),
        luxLines(0, 100, 1), cctLines("zoomratio 1.500000", 0, 9000, 0),
        Lines{kTag + "param_shading = [ 1.5 0.1 1e-07 1.23457e+08 -2 0 0.333333 100000]"}})
    expected.insert(expected.end(), part.begin(), part.end());
  EXPECT_EQ(dump(lumotest::writeCalib(dir, "dump.bin", f)), expected);
  EXPECT_TRUE(dump(dir.file("absent.bin")).empty());
}

TEST_F(ParamStore, DumpDoesNotReadBlocksPastThePool) {
  calib::CalibrationFile f;
  f.scenes.push_back({"a", {luxBand(0, 10, {{0, 10, 5}, {20, 30, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {luxBand(0, 10, {{0, 10, 3}, {20, 30, 0}})}, std::nullopt});
  f.luts = {lumotest::patternLut(0)};
  f.shadings.push_back({});
  const Lines lines = dump(lumotest::writeCalib(dir, "past.bin", f));  // one LUT, one shading
  ASSERT_EQ(lines.size(), 2u * (5 + 4 + 2 * 5));
  EXPECT_EQ(
      Lines({lines[13], lines[18], lines[32], lines[37]}),
      Lines({kTag + "param_lut = (block beyond the LUT pool)", kTag + "param_lut = " + lutHead(0),
             kTag + "param_shading = (block beyond the shading pool)",
             kTag + "param_shading = [ 0 0 0 0 0 0 0 0]"}));
}

}  // namespace
