// The store's dump, line for line.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "param_fixtures.h"

namespace {

const std::string kTag = " [LumoFilter] ";
const std::string kRule = kTag + std::string(61, '=');
const std::string kLuxRule = kTag + std::string(23, '=') + "LUX" + std::string(33, '=');

std::vector<std::string> luxLines(int start, int end, int count) {
  return {kLuxRule, kTag + "[ start = " + std::to_string(start),
          kTag + "  end = " + std::to_string(end),
          kTag + "  param_cct_count = " + std::to_string(count) + " ]"};
}

std::vector<std::string> cctLines(const std::string& head, int start, int end, int index) {
  return {head, kTag + "[ param_start = " + std::to_string(start),
          kTag + "  param_end = " + std::to_string(end),
          kTag + "  param_cct_lut_index = " + std::to_string(index) + " ]"};
}

// "[ b0 b1 ... b49]" of a pattern LUT.
std::string lutHead(unsigned seed) {
  std::string text = "[";
  for (size_t p = 0; p < 50; p++) {
    char number[8];
    std::snprintf(number, sizeof(number), " %u", unsigned{lumotest::patternByte(seed, p)});
    text += number;
  }
  return text + "]";
}

void append(std::vector<std::string>& to, const std::vector<std::string>& lines) {
  to.insert(to.end(), lines.begin(), lines.end());
}

class ParamDump : public testing::Test {
protected:
  void SetUp() override { lumotest::quietLogs(); }
  lumotest::TempDir dir;
};

TEST_F(ParamDump, PrintsScenesInStringOrderThenZoomRatios) {
  calib::CalibrationFile f;
  // "night" comes first in the file, "food" first in the dump.
  f.scenes.push_back({"night",
                      {lumotest::luxBand(10, 20, {{2000, 3000, 1}}), lumotest::luxBand(30, 40, {})},
                      std::nullopt});
  f.scenes.push_back({"food", {}, std::nullopt});
  f.zooms.push_back({1.5f, {lumotest::luxBand(0, 100, {{0, 9000, 0}})}, std::nullopt});
  f.luts = {lumotest::patternLut(0), lumotest::patternLut(1)};
  f.shadings.push_back({1.5f, 0.1f, 1e-7f, 123456789.0f, -2.0f, 0.0f, 1.0f / 3.0f, 100000.0f});
  ParamUtil store(lumotest::writeCalib(dir, "dump.bin", f));

  const std::string lutText = lutHead(1);

  std::vector<std::string> expected;
  // A scene without lux bands: five lines.
  append(expected, {kRule, kTag + std::string(18, ' ') + "SCENE  food" + std::string(22, ' '),
                    kRule, kTag + "[ aiscene = food ", kTag + "  param_lux_count = 0 ]"});
  append(expected, {kRule, kTag + std::string(18, ' ') + "SCENE  night" + std::string(22, ' '),
                    kRule, kTag + "[ aiscene = night ", kTag + "  param_lux_count = 2 ]"});
  append(expected, luxLines(10, 20, 1));
  append(expected,
         cctLines(kTag + "------SCENE night--------CCT-------------------------", 2000, 3000, 1));
  expected.push_back(kTag + "param_lut = " + lutText);
  append(expected, luxLines(30, 40, 0));  // no CCT lines follow
  append(expected,
         {kRule, kTag + std::string(20, ' ') + "zoomratio  1.500000" + std::string(28, ' '), kRule,
          kTag + "[ zoomratio = 1.500000 ", kTag + "  param_lux_count = 1 ]"});
  append(expected, luxLines(0, 100, 1));
  append(expected, cctLines(kTag + "------zoomratio 1.500000--------CCT-------------------------",
                            0, 9000, 0));
  expected.push_back(kTag + "param_shading = [ 1.5 0.1 1e-07 1.23457e+08 -2 0 0.333333 100000]");

  hostsim::LogCapture capture;
  store.printParam();
  const std::vector<std::string> lines = lumotest::messages(capture);
  ASSERT_EQ(lines.size(), expected.size());
  for (size_t i = 0; i < lines.size(); i++) EXPECT_EQ(lines[i], expected[i]) << "line " << i;
  for (const std::string& fn : lumotest::functions(capture)) EXPECT_EQ(fn, "printParam");
}

TEST_F(ParamDump, EmptyStorePrintsNothing) {
  ParamUtil store(dir.file("absent.bin"));
  hostsim::LogCapture capture;
  store.printParam();
  EXPECT_TRUE(capture.records().empty());
}

TEST_F(ParamDump, BlockPastThePoolIsNotRead) {
  calib::CalibrationFile f;
  f.scenes.push_back({"a", {lumotest::luxBand(0, 10, {{0, 10, 5}, {20, 30, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {lumotest::luxBand(0, 10, {{0, 10, 3}, {20, 30, 0}})}, std::nullopt});
  f.luts = {lumotest::patternLut(0)};
  f.shadings.push_back({});
  ParamUtil store(lumotest::writeCalib(dir, "past.bin", f));
  ASSERT_EQ(store.lutCount, 1u);
  hostsim::LogCapture capture;
  store.printParam();
  const std::vector<std::string> lines = lumotest::messages(capture);
  ASSERT_EQ(lines.size(), 5u + 4 + 2 * 5 + 5 + 4 + 2 * 5);
  EXPECT_EQ(lines[13], kTag + "param_lut = (block beyond the LUT pool)");
  EXPECT_EQ(lines[18], kTag + "param_lut = " + lutHead(0));
  EXPECT_EQ(lines[32], kTag + "param_shading = (block beyond the shading pool)");
  EXPECT_EQ(lines[37], kTag + "param_shading = [ 0 0 0 0 0 0 0 0]");
}

}  // namespace
