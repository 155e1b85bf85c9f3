// Lint rules: a clean file has no findings, and each mutation of it fires
// exactly the rule made for it, naming the record.
#include "calib_lint.h"

#include <calib/calibration_reader.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>

using namespace lumo;

namespace {

// Every scene the camera reports, two CCT bands each from 0 lux, every
// block used, zoom ratios ascending.
calib::CalibrationFile cleanFile() {
  calib::CalibrationFile f;
  for (const std::string& name : calib::knownSceneNames())
    f.scenes.push_back(
        {name, {{0, 100, {{0, 4000, 0}, {4001, 65535, 1}}}, {101, 65535, {{0, 65535, 1}}}}, {}});
  f.zooms.push_back({1.0f, {{0, 65535, {{0, 65535, 0}}}}, {}});
  f.zooms.push_back({2.0f, {{0, 65535, {{0, 65535, 1}}}}, {}});
  f.luts.assign(2, calib::LutBlock(calib::kLutBlockBytes, 0));
  f.shadings.assign(2, calib::ShadingBlock{});
  return f;
}

}  // namespace

TEST(CalibLint, CleanFileIsSilentAndEachMistakeFiresItsRule) {
  EXPECT_TRUE(lintCalibration(cleanFile()).empty());
  const struct {
    const char* name;
    std::function<void(calib::CalibrationFile&)> mutate;
    std::string rule, record;
  } cases[] = {
      {"one cct band",
       [](auto& f) {
         f.scenes[2].luxBands = {{0, 65535, {{0, 65535, 0}}}};
       },
       "single-cct", "scene block 2 \"night\""},
      {"dark frames", [](auto& f) { f.scenes[4].luxBands[0].start = 50; }, "no-low-lux",
       "scene block 4 \"food\""},
      {"dark zoom", [](auto& f) { f.zooms[1].luxBands[0].start = 80; }, "no-low-lux",
       "zoom block 1 (2)"},
      {"unused look", [](auto& f) { f.luts.push_back(f.luts[0]); }, "never-chosen",
       "LUT pool block 2"},
      {"unused shading", [](auto& f) { f.shadings.push_back({}); }, "never-chosen",
       "shading pool block 2"},
      {"repeated scene", [](auto& f) { f.scenes.push_back(f.scenes[1]); }, "never-chosen",
       "scene block 6 \"plants\""},
      {"repeated ratio",
       [](auto& f) {
         f.zooms.push_back(f.zooms[1]);
         f.zooms.back().luxBands[0].start = 0;
       },
       "never-chosen", "zoom block 2 (2)"},
      {"missing scene", [](auto& f) { f.scenes.erase(f.scenes.begin() + 3); }, "missing-scene",
       "scene \"sunrise_sunset\""},
      {"zoom order", [](auto& f) { std::swap(f.zooms[0].ratio, f.zooms[1].ratio); }, "zoom-order",
       "zoom block 1 (1)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    calib::CalibrationFile f = cleanFile();
    c.mutate(f);
    const std::vector<LintFinding> found = lintCalibration(f);
    const auto hit = std::find_if(found.begin(), found.end(), [&](const LintFinding& x) {
      return x.rule == c.rule && x.record == c.record;
    });
    ASSERT_NE(hit, found.end());
    EXPECT_EQ(lintLine("x.bin", *hit).rfind("x.bin: " + c.record + ": warning: ", 0), 0u);
    // A repeated ratio is also out of order; every other mistake fires alone.
    EXPECT_EQ(found.size(), std::string(c.name) == "repeated ratio" ? 2u : 1u);
  }
  const nlohmann::json j = lintJson(lintCalibration([] {
    calib::CalibrationFile f = cleanFile();
    f.scenes.pop_back();
    return f;
  }()));
  EXPECT_EQ(j["warnings"], 1);
  EXPECT_EQ(j["findings"][0]["rule"], "missing-scene");
}
