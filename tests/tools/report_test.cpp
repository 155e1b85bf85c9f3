// The report's pieces: escaping, data URIs and the page's own checks; every
// section builder gives a well-formed page with no outside reference; the
// coverage samples against the plugin's trigger; the findings in words; the
// pictures (chart, LUT strength, thumbnails).
#include <calib/calibration_file.h>
#include <calib/looks.h>
#include <gtest/gtest.h>
#include <paramTrigger.h>
#include <paramUtil.h>

#include <cmath>

#include "coverage.h"
#include "diff_section.h"
#include "fit_section.h"
#include "html.h"
#include "pictures.h"
#include "sections.h"
#include "tool_runner.h"

using namespace lumo;
using namespace lumo::report;
using lumo_test::ScratchTest;

namespace {

calib::LutBlock flatLut(uint8_t value) { return calib::LutBlock(calib::kLutBlockBytes, value); }

// Two lux bands with a gap, each with two CCT bands with a gap; LUT k is
// flat at 10 + 40k so a blend's bytes tell its weights.
calib::CalibrationFile fourCornerFile() {
  calib::CalibrationFile f;
  f.scenes = {{"common",
               {{0, 100, {{2000, 4000, 0}, {5000, 9000, 1}}},
                {200, 1000, {{2000, 4000, 2}, {5000, 9000, 3}}}},
               {}}};
  f.zooms = {{1.0f, {{0, 1000, {{2000, 9000, 0}}}}, {}},
             {2.0f, {{0, 1000, {{2000, 9000, 1}}}}, {}}};
  for (uint8_t k = 0; k < 4; ++k) f.luts.push_back(flatLut(uint8_t(10 + 40 * k)));
  f.shadings = {{0.2f, 0.9f, 1, 0.5f, 0, 1, 0, 1}, {0, 1, 1, -0.3f, 0, 1, 0, 1}};
  return f;
}

class ReportCalib : public ScratchTest {
protected:
  std::string writeCalib(const calib::CalibrationFile& f, const std::string& name = "calib.bin") {
    std::string error;
    const std::string p = path(name);
    EXPECT_TRUE(calib::writeFile(f, p, &error)) << error;
    return p;
  }
};

}  // namespace

TEST(ReportHtml, EscapingDataUrisAndThePagesOwnChecks) {
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"", "", ""},
      {"f", "f", "Zg=="},
      {"fo", "fo", "Zm8="},
      {"<a href='x'>&\"", "&lt;a href=&#39;x&#39;&gt;&amp;&quot;", "PGEgaHJlZj0neCc+JiI="},
  };
  for (const auto& [in, escaped, b64] : cases) {
    EXPECT_EQ(escapeHtml(in), escaped) << in;
    EXPECT_EQ(base64(reinterpret_cast<const uint8_t*>(in.data()), in.size()), b64) << in;
  }
  EXPECT_EQ(dataUri("image/png", {'f', 'o', 'o'}), "data:image/png;base64,Zm9v");
  // html, outside references, unbalanced tags
  const std::tuple<std::string, size_t, size_t> pages[] = {
      {"<p><img src=\"data:image/png;base64,AA\"><a href=\"#frame-1\">x</a></p>", 0, 0},
      {"<script src=\"app.js\"></script>", 1, 0},
      {"<link href=\"https://cdn.example/x.css\">", 2, 0},  // the URL, and the attribute
      {"<div style=\"background:url(pic.png)\"></div>", 1, 0},
      {"<svg><path d=\"M0 0\"/><rect/></svg>", 0, 0},
      {"<div><span></div>", 0, 1},  // <span> never closed
      {"<p>text</p></p>", 0, 1},
      {"<ul><li>a<li>b</ul>", 0, 2},
      {"<a data-href=\"x\" xlink:href=\"y.svg\"><script>x", 1, 2},  // an unended script and <a>
  };
  for (const auto& [html, outside, unbalanced] : pages) {
    EXPECT_EQ(externalReferences(html).size(), outside) << html;
    EXPECT_EQ(unbalancedTags(html).size(), unbalanced) << html;
  }
}

TEST_F(ReportCalib, EverySectionMakesAWellFormedSelfContainedPage) {
  const calib::CalibrationFile file = fourCornerFile();
  SelectionProbe probe(writeCalib(file));
  const auto lux = luxAxis(2000, 24), cct = cctAxis(1500, 10000, 12);
  const std::vector<CoverageMap> scenes{probe.sceneMap("common", lux, cct)};
  const std::vector<CoverageMap> zooms{probe.zoomMap(1.0f, lux, cct),
                                       probe.zoomMap(2.0f, lux, cct)};
  ReplayFrame shown, copied;
  shown.instance = "preview";
  shown.filtered = true;
  shown.outcome = "filtered";
  shown.lux = 150;
  shown.scene = "common";
  shown.lutIndex = std::array<int, 4>{0, 1, 2, 3};
  shown.lutWeight = std::array<double, 4>{0.25, 0.25, 0.25, 0.25};
  shown.script = "CubeLutEffect;cube_strength=1;lut_type=1.0;<x-injected>";
  shown.before = shown.after = dataUri("image/png", pngBytes(referenceChart()));
  copied.instance = "snapshot";
  copied.outcome = "copied: bypass switch";
  copied.pictureNote = "left out";
  ReplayFrame held = shown;
  held.scene = "night";
  held.heldScript = "held script made for 4000x3000 on a 1280x720 frame";
  FitRecord fit;
  fit.name = "<x-injected>.cube";
  fit.edge = 17;
  fit.emptyCells = {0, 1, 4095, 99999};  // an index past the lattice is ignored
  fit.notes = {"<x-injected>"};
  fit.byHue = {{"hue 0-30", 10, 0.5, 0.9}, {"neutral", 0, 0, 0}};
  // The diff's second file: a block changed, a scene and a block added.
  calib::CalibrationFile changed = file;
  changed.luts[3] = flatLut(200);
  changed.scenes.push_back({"night", {{0, 100, {{2000, 4000, 0}}}}, {}});
  changed.luts.push_back(flatLut(7));
  std::string styles;
  const BlockNames names{{1, "<warm>"}};
  const Section built[] = {
      calibrationSection(file, styles, names),
      coverageSection(scenes, zooms, coverageFindings(file, scenes, zooms, &probe), names),
      replaySection({shown, copied, held}),
      strengthSection("chart", {{0.0, shown.before}, {1.0, shown.after}}),
      diffSection(file, changed, "a.bin", "<x-injected>", styles, {{3, "old look"}}, names),
      fitSection(fit),
  };
  for (const Section& s : built) {
    const std::string html = page("t", {s}, styles);
    EXPECT_EQ(unbalancedTags(html), std::vector<std::string>{}) << s.id;
    EXPECT_EQ(externalReferences(html), std::vector<std::string>{}) << s.id;
    EXPECT_NE(html.find("id=\"" + s.id + "\""), std::string::npos);
    EXPECT_EQ(html.find("<x-injected>"), std::string::npos) << "unescaped text in " << s.id;
  }
  // section, text, how often: one cell per CCT band plus the chart; the known
  // look named where its block is shown (the others keep their numbers); the
  // copied mark; the held script said on hover, in row and panel, its mark
  // amber; the diff's heat map, one cell per compared CCT band, zero where the
  // block is the same, the changed block's cell the worst; the added block.
  const std::tuple<int, std::string, size_t> counts[] = {
      {0, "class=\"cell\"", 4 + 2 + 1},
      {0, "<span class=\"look\">&lt;warm&gt;</span> block 1", 1},
      {1, "LUT 1 &lt;warm&gt;", 1},
      {1, "class=\"map ", 3},
      {2, "AI scene (none)", 1},
      {2, "mark: copied", 1},
      {2, held.heldScript, 3},
      {2, "fill=\"#ef9c00\"", 1},
      {4, "class=\"heat\"", 4},
      {4, ">0.00</td>", 3},
      {4, "class=\"worst\"", 1},
      {4, "not in a.bin (added)", 1},
      {4, "a.bin<br>old look (block 3)</div>", 1},
      {4, "scene &quot;night&quot;: added", 1},
      {5, "4093 of 4096 cells held data", 1},
      {5, "no pixels", 1}};
  for (const auto& [i, text, n] : counts)
    EXPECT_EQ(lumo_test::countOf(built[i].body, text), n) << text;
  // Changes read from the baseline (the first file) to the shown one, both
  // named first.
  EXPECT_LT(built[4].body.find("Baseline: <b>a.bin</b>; changed: <b>&lt;x-injected&gt;</b>"),
            built[4].body.find("<h3"));
}

// Each sample is what a fresh trigger selects for the same input: the same
// corners, and weights that reproduce the trigger's blend of flat LUTs.
TEST_F(ReportCalib, CoverageSamplesAreTheTriggersChoice) {
  const calib::CalibrationFile file = fourCornerFile();
  const std::string p = writeCalib(file);
  SelectionProbe probe(p);
  ParamUtil store(p);
  const struct {
    uint16_t lux, cct;
    std::array<uint16_t, 4> corners;
  } cases[] = {
      {50, 3000, {0, 0, 0, 0}},   // inside one cell
      {50, 4500, {0, 1, 0, 1}},   // CCT gap inside a lux band
      {150, 3000, {0, 0, 2, 2}},  // lux gap
      {150, 4500, {0, 1, 2, 3}},  // both gaps: four blocks
      {0, 1000, {0, 0, 0, 0}},    // below everything: clamps to the first cell
  };
  for (const auto& c : cases) {
    const CoverageSample s = probe.lut("common", c.lux, c.cct);
    ASSERT_TRUE(s.found);
    EXPECT_TRUE(s.inPool);
    EXPECT_EQ(s.corner, c.corners) << c.lux << " " << c.cct;
    // A freshly initialised trigger, asked for the same input.
    ParamTrigger trigger;
    trigger.initialize({false, "t"}, store);
    param_trigger_t input;
    input.lux = c.lux;
    input.cct = c.cct;
    input.aiscene = "common";
    param_lut_t lut{};
    bool changed = false;
    ASSERT_TRUE(trigger.triggerLut(input, &lut, changed));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(uint16_t(trigger.m_lutIndex[i]), s.corner[i]);
    double expected = 0;
    for (int i = 0; i < 4; ++i) expected += double(s.weight[i]) * (10 + 40 * s.corner[i]);
    EXPECT_NEAR(lut.data[100], expected, 1.0) << c.lux << " " << c.cct;
    std::vector<uint8_t> blended;
    ASSERT_TRUE(probe.blendedLut("common", c.lux, c.cct, blended));
    EXPECT_EQ(blended[100], lut.data[100]);
  }
  EXPECT_FALSE(probe.lut("Common", 50, 3000).found);  // scene names are exact
  // Above every lux band the search fails; the weights are not finite there.
  const CoverageSample above = probe.lut("common", 5000, 3000);
  EXPECT_FALSE(std::isfinite(above.weight[0]) && std::isfinite(above.weight[1]));
  EXPECT_EQ(sampleColour(above).r, 90);
  // Zoom: 1.5 takes the 1.0 set (block 0), 3 the 2.0 set (block 1).
  EXPECT_EQ(probe.shading(1.5f, 50, 3000).corner[0], 0);
  EXPECT_EQ(probe.shading(3.0f, 50, 3000).corner[0], 1);
}

TEST_F(ReportCalib, FindingsSayWhatTheTreesAndMapsShow) {
  using Edit = void (*)(calib::CalibrationFile&);
  // The shadowed band: the second lux band lies inside the first, which always
  // wins.
  const std::pair<Edit, const char*> cases[] = {
      {[](auto& f) { f.scenes[0].luxBands[0].ccts.pop_back(); }, "has one CCT band only"},
      {[](auto& f) { f.scenes[0].luxBands[0].start = 60; }, "no band under 50 lux"},
      {[](auto& f) { f.scenes.push_back(f.scenes[0]); }, "duplicate key"},
      {[](auto& f) { f.zooms.push_back(f.zooms[0]); }, "duplicate key"},
      {[](auto& f) { f.scenes[0].luxBands[0].end = 1000; },
       "block 2 is named by a band but never chosen"},
      {[](auto& f) { f.scenes[0].luxBands[1].ccts[1].start = 3000; },
       "does not start above the band before it"},
  };
  for (const auto& [edit, expected] : cases) {
    calib::CalibrationFile file = fourCornerFile();
    edit(file);
    SelectionProbe probe(writeCalib(file));
    const auto lux = luxAxis(2000, 32), cct = cctAxis(1500, 10000, 16);
    const std::vector<CoverageMap> scenes{probe.sceneMap("common", lux, cct)};
    size_t found = 0;
    for (const auto& f : coverageFindings(file, scenes, {}, &probe))
      found += f.message.find(expected) != std::string::npos;
    EXPECT_GE(found, 1u) << expected;
  }
}

TEST(ReportPictures, ChartStrengthAndThumbnails) {
  const Image chart = referenceChart();
  const calib::LutBlock identity = calib::identityLut(), black = flatLut(0);
  // LUT, strength, red of the first patch (dark skin, red 115)
  for (const auto& [lut, strength, red] :
       {std::tuple{&identity, 1.0, 115}, {&black, 0.0, 115}, {&black, 1.0, 0}, {&black, 0.5, 58}}) {
    const Image out = applyLut(chart, lut->data(), strength);
    EXPECT_NEAR(out.row(0)[0], red, 1) << strength;
    EXPECT_EQ(out.row(0)[3], 255);
  }
  // width, height, thumbnail width and height (at most 320 a side)
  for (const auto& [w, h, tw, th] :
       {std::array<uint32_t, 4>{640, 480, 320, 240}, {100, 400, 80, 320}, {200, 100, 200, 100}}) {
    const Image t = thumbnail(makeImage(completeGeometry({PixelFormat::RGBA, w, h, 0, 0})), 320);
    EXPECT_EQ(std::pair(t.geometry.width, t.geometry.height), std::pair(tw, th)) << w << "x" << h;
  }
}
