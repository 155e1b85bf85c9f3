// Lint rules: a clean file has no findings, and each mutation of it fires
// exactly the rule made for it, naming the record. Diff: each mutation is
// reported at its record, and colour differences follow CIEDE2000.
#include <calib/calibration_reader.h>
#include <calib/looks.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "calib_diff.h"
#include "calib_lint.h"

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

using Edit = void (*)(calib::CalibrationFile&);

TEST(CalibLint, CleanFileIsSilentAndEachMistakeFiresItsRule) {
  EXPECT_TRUE(lintCalibration(cleanFile()).empty());
  // A repeated ratio is also out of order; every other mistake fires alone.
  const std::tuple<Edit, std::string, std::string, size_t> cases[] = {
      {[](auto& f) {
         f.scenes[2].luxBands = {{0, 65535, {{0, 65535, 0}}}};
       },
       "single-cct", "scene block 2 \"night\"", 1},
      {[](auto& f) { f.scenes[4].luxBands[0].start = 50; }, "no-low-lux", "scene block 4 \"food\"",
       1},
      {[](auto& f) { f.zooms[1].luxBands[0].start = 80; }, "no-low-lux", "zoom block 1 (2)", 1},
      {[](auto& f) { f.luts.push_back(f.luts[0]); }, "never-chosen", "LUT pool block 2", 1},
      {[](auto& f) { f.shadings.push_back({}); }, "never-chosen", "shading pool block 2", 1},
      {[](auto& f) { f.scenes.push_back(f.scenes[1]); }, "never-chosen", "scene block 6 \"plants\"",
       1},
      {[](auto& f) { f.zooms.push_back(f.zooms[1]); }, "never-chosen", "zoom block 2 (2)", 2},
      {[](auto& f) { f.scenes.erase(f.scenes.begin() + 3); }, "missing-scene",
       "scene \"sunrise_sunset\"", 1},
      // Block 0 in two patches, one beside block 1 only.
      {[](auto& f) {
         f.luts.push_back(f.luts[0]);
         f.scenes[1].luxBands[0].ccts = {
             {0, 3000, 0}, {3001, 4000, 1}, {4001, 5000, 2}, {5001, 65535, 0}};
         f.scenes[1].luxBands[1].ccts = {
             {0, 3000, 1}, {3001, 4000, 1}, {4001, 5000, 1}, {5001, 65535, 1}};
       },
       "shared-block", "scene block 1 \"plants\" lux band 0 CCT band 3", 1},
      {[](auto& f) { std::swap(f.zooms[0].ratio, f.zooms[1].ratio); }, "zoom-order",
       "zoom block 1 (1)", 1},
  };
  for (const auto& [edit, rule, record, count] : cases) {
    SCOPED_TRACE(record);
    calib::CalibrationFile f = cleanFile();
    edit(f);
    const std::vector<calib::Finding> found = lintCalibration(f);
    const auto hit = std::find_if(found.begin(), found.end(), [&](const calib::Finding& x) {
      return x.rule == rule && x.record == record;
    });
    ASSERT_NE(hit, found.end());
    EXPECT_EQ(calib::findingLine("x.bin", *hit).rfind("x.bin: " + record + ": warning: ", 0), 0u);
    EXPECT_EQ(found.size(), count);
  }
}

// Reference pairs published with the CIEDE2000 implementation notes of
// Sharma, Wu and Dalal (2005), covering the hue-wrap and neutral corner cases.
TEST(CalibDiff, Ciede2000MatchesThePublishedPairs) {
  const struct {
    std::array<double, 3> a, b;
    double de;
  } pairs[] = {
      {{50, 2.6772, -79.7751}, {50, 0, -82.7485}, 2.0425},
      {{50, 0, 0}, {50, -1, 2}, 2.3669},
      {{50, 2.49, -0.001}, {50, -2.49, 0.0009}, 7.1792},
      {{2.0776, 0.0795, -1.135}, {0.9033, -0.0636, -0.5514}, 0.9082},
  };
  for (const auto& p : pairs) {
    EXPECT_NEAR(ciede2000(p.a, p.b), p.de, 1e-4);
    EXPECT_NEAR(ciede2000(p.b, p.a), p.de, 1e-4);
  }
  // sRGB white is L 100 and neutral; pure red is the textbook L 53.24, a 80.09, b 67.20.
  const auto white = srgbToLab({1, 1, 1}), red = srgbToLab({1, 0, 0});
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(white[i], (std::array{100.0, 0.0, 0.0}[i]), 1e-2);
    EXPECT_NEAR(red[i], (std::array{53.24, 80.09, 67.20}[i]), 0.02);
  }
}

TEST(CalibDiff, EachChangeIsReportedAtItsRecordAndMeasuredOnTheChart) {
  EXPECT_TRUE(diffCalibration(cleanFile(), cleanFile()).empty());
  // edit, record, how the change starts; only changed LUT contents are measured in colour
  const std::tuple<Edit, std::string, std::string> cases[] = {
      {[](auto& f) { f.paramType = "v2"; }, "header, param_type", "\"\" -> \"v2\""},
      {[](auto& f) { f.scenes[1].luxBands[0].end = 90; }, "scene \"plants\", lux band 0",
       "lux 0..100 -> 0..90"},
      {[](auto& f) { f.scenes[0].luxBands[0].ccts[1].start = 4500; },
       "scene \"common\", lux band 0, cct band 1", "cct 4001..65535 -> 4500..65535"},
      {[](auto& f) { f.luts[1][100] = 200; }, "scene \"common\", lux band 0, cct band 1",
       "LUT block 1: contents changed"},
      {[](auto& f) { f.scenes[5].luxBands[1].ccts[0].index = 0; },
       "scene \"protrait\", lux band 1, cct band 0", "LUT block 1 -> 0 (same contents)"},
      {[](auto& f) { f.scenes.erase(f.scenes.begin() + 2); }, "scene \"night\"", "removed"},
      {[](auto& f) {
         f.zooms[0].luxBands[0].ccts.push_back({0, 1, 1});
       },
       "zoom 1, lux band 0, cct band 1", "added (cct 0..1)"},
      {[](auto& f) { f.shadings[1][3] = 0.5f; }, "zoom 2, lux band 0, cct band 0",
       "shading block 1: values 3: 0 -> 0.5"},
      {[](auto& f) { f.zooms[1].ratio = 3; }, "zoom 2", "removed"},
  };
  for (const auto& [edit, record, change] : cases) {
    SCOPED_TRACE(record + ": " + change);
    calib::CalibrationFile f = cleanFile();
    edit(f);
    const std::vector<DiffEntry> entries = diffCalibration(cleanFile(), f);
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries[0].record, record);
    EXPECT_EQ(entries[0].change.rfind(change, 0), 0u) << entries[0].change;
    EXPECT_EQ(entries[0].colour.has_value(), change.starts_with("LUT block 1: contents"));
  }
  // Chart deltas: zero for equal blocks; the worst patches come first.
  const calib::LutBlock id = calib::identityLut();
  EXPECT_EQ(lutDelta(id, id).max, 0);
  // A red push: patches differ in how far it moves them, and white hardly at all
  // (its red is already near the top).
  calib::LutBlock redder = id;
  for (size_t i = 0; i < redder.size(); i += 3) redder[i] = uint8_t(std::min(255, redder[i] + 30));
  const ChartDelta d = lutDelta(id, redder);
  ASSERT_EQ(d.worst.size(), kWorstPatches);
  EXPECT_GT(d.max, 5);
  EXPECT_EQ(d.max, d.worst[0].de);
  EXPECT_TRUE(std::is_sorted(d.worst.begin(), d.worst.end(),
                             [](const PatchDelta& a, const PatchDelta& b) { return a.de > b.de; }));
  EXPECT_LT(d.mean, d.max);
  for (const PatchDelta& p : d.worst) EXPECT_NE(p.patch, "white");
  EXPECT_EQ(diffLine({"r", "c", d}).rfind("r: c, dE00 mean ", 0), 0u);
}
