// Black-box tests of the LUT and calibration-file examination commands:
// `lut doctor`, `calib lint` and `calib diff`, text and JSON, and their exit
// statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tool_runner.h"

using namespace lumo_test;
using ::testing::HasSubstr;

namespace {

// A .cube of `edge` points, rows red-fastest unless `blueFastest`.
std::string cube(int edge, bool blueFastest) {
  std::string text = "LUT_3D_SIZE " + std::to_string(edge) + "\n";
  for (int s = 0; s < edge; ++s)
    for (int m = 0; m < edge; ++m)
      for (int q = 0; q < edge; ++q) {
        const int r = blueFastest ? s : q, b = blueFastest ? q : s;
        char row[80];
        std::snprintf(row, sizeof(row), "%.6f %.6f %.6f\n", r / (edge - 1.0),
                      0.5 * m / (edge - 1.0), b / (edge - 1.0) * 0.8);
        text += row;
      }
  return text;
}

}  // namespace

class LutDoctorCli : public ToolTest {};

TEST_F(LutDoctorCli, EachProblemIsNamedAndSetsTheExitStatus) {
  const struct {
    const char* name;
    std::string text;
    const char* problem;  // nullptr: the file is fine
  } cases[] = {
      {"good.cube", cube(33, false), nullptr},
      {"transposed.cube", cube(33, true), "(blue-fastest)"},
      {"broken.cube", "LUT_3D_SIZE 2\n0 0 0\n", "calib build would refuse it"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write(c.name, c.text);
    const Outcome o = lumo(std::string("lut doctor ") + c.name);
    EXPECT_EQ(o.status, c.problem == nullptr ? 0 : 1);
    if (c.problem == nullptr) {
      EXPECT_THAT(o.out,
                  HasSubstr(std::string(c.name) + ": iridas_cube (Iridas dialect), "
                                                  "33-point lattice, no shaper, domain 0..1"));
      EXPECT_THAT(o.out, HasSubstr("33-point lattice resampled to 17 (tetrahedral); error max"));
      EXPECT_THAT(o.out, HasSubstr(std::string(c.name) + ": ok\n"));
    } else {
      EXPECT_THAT(o.out, HasSubstr(c.problem));
      EXPECT_THAT(o.err, HasSubstr("lut doctor: 1 of 1 files have problems"));
    }
  }
  const Outcome all = lumo("lut doctor --json good.cube transposed.cube");
  EXPECT_EQ(all.status, 1);
  const nlohmann::json j = nlohmann::json::parse(all.out);
  ASSERT_EQ(j.size(), 2u);
  EXPECT_EQ(j[0]["ok"], true);
  EXPECT_EQ(j[0]["lattice_size"], 33);
  EXPECT_EQ(j[1]["problems"][0]["code"], "blue-fastest");
  EXPECT_LT(j[0]["build"]["error_mean"].get<double>(), j[0]["build"]["error_max"].get<double>());
}

class CalibLintCli : public ToolTest {};

TEST_F(CalibLintCli, SilentOnTheDemoStrictFailsOnAFindingBrokenFilesAreRefused) {
  ASSERT_EQ(lumo("calib build '" LUMO_EXAMPLES_DIR "/demo_looks.json' -o demo.bin").status, 0);
  Outcome o = lumo("calib lint --strict demo.bin");
  EXPECT_EQ(o.status, 0) << o.out;
  EXPECT_EQ(o.out, "demo.bin: 0 findings\n");
  // Only the common scene, with a single CCT band from 100 lux.
  write("one.json", description(R"({"a": {"generate": {}}})",
                                R"([{"start": 0, "end": 65535, "lut": "a"}])", 100));
  ASSERT_EQ(lumo("calib build one.json -o one.bin").status, 0);
  o = lumo("calib lint one.bin");
  EXPECT_EQ(o.status, 0);
  EXPECT_THAT(o.out, HasSubstr("one.bin: scene block 0 \"common\": warning: one CCT band only"));
  EXPECT_THAT(o.out, HasSubstr("(no-low-lux)"));
  EXPECT_THAT(o.out, HasSubstr("one.bin: scene \"night\": warning: "));
  EXPECT_THAT(o.out, HasSubstr("one.bin: 7 findings\n"));
  o = lumo("calib lint --strict --json one.bin");
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(nlohmann::json::parse(o.out)[0]["warnings"], 7);
  write("junk.bin", "not a calibration file");
  o = lumo("calib lint junk.bin");
  EXPECT_EQ(o.status, 1);
  EXPECT_THAT(o.err, HasSubstr("junk.bin: not linted: the file breaks the format"));
}

class CalibDiffCli : public ToolTest {};

TEST_F(CalibDiffCli, ALookSwappedInOneCellIsMeasuredOnTheChart) {
  const std::string base = description(
      R"({"a": {"generate": {}}, "b": {"generate": {"temperature": 0.5}}})",
      R"([{"start": 0, "end": 4000, "lut": "a"}, {"start": 4001, "end": 65535, "lut": "LOOK"}])");
  for (const char* look : {"a", "b"}) {
    std::string text = base;
    text.replace(text.find("LOOK"), 4, look);
    write(std::string(look) + ".json", text);
    ASSERT_EQ(lumo(std::string("calib build ") + look + ".json -o " + look + ".bin").status, 0);
  }
  Outcome o = lumo("calib diff a.bin a.bin");
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "0 changes\n");
  o = lumo("calib diff a.bin b.bin");
  EXPECT_EQ(o.status, 0);
  EXPECT_THAT(o.out, HasSubstr("scene \"common\", lux band 0, cct band 1: LUT block 0 -> 1: "
                               "contents changed, dE00 mean "));
  o = lumo("calib diff --json a.bin b.bin");
  const nlohmann::json j = nlohmann::json::parse(o.out);
  bool measured = false;
  for (const auto& e : j)
    if (e.contains("ciede2000")) {
      measured = true;
      EXPECT_GT(e["ciede2000"]["max"].get<double>(), 1.0);
      EXPECT_EQ(e["ciede2000"]["worst"].size(), 3u);
    }
  EXPECT_TRUE(measured) << o.out;
  write("junk.bin", "x");
  EXPECT_EQ(lumo("calib diff a.bin junk.bin").status, 1);
}

class CalibBuildSourcesCli : public ToolTest {};

TEST_F(CalibBuildSourcesCli, EachLutFileIsReportedWithItsErrorAndProblemsAndLayoutsAreChecked) {
  write("t.cube", cube(33, true));
  const auto withLook = [](const std::string& name, const std::string& look) {
    return description(R"({")" + name + R"(": )" + look + "}",
                       R"([{"start": 0, "end": 65535, "lut": ")" + name + R"("}])");
  };
  write("d.json", withLook("t", R"({"lut": "t.cube"})"));
  const Outcome o = lumo("calib build d.json -o d.bin");
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_THAT(o.out, HasSubstr("looks.t: ./t.cube: iridas_cube (Iridas): 33-point lattice "
                               "resampled to 17 (tetrahedral); error max "));
  EXPECT_THAT(o.out, HasSubstr("looks.t: ./t.cube: warning: lattice looks written blue-fastest"));
  // A look's name reaches the terminal escaped, whatever bytes it holds.
  write("e.json", withLook("t\\u001b[2J", R"({"lut": "t.cube"})"));
  const Outcome e = lumo("calib build e.json -o e.bin");
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_THAT(e.out, HasSubstr("looks.t\\x1b[2J: ./t.cube: iridas_cube"));
  EXPECT_EQ(e.out.find('\x1b'), std::string::npos);
  write("x.png", "");
  const struct {
    const char* look;
    const char* message;
  } bad[] = {
      {R"({"lut": "t.cube", "layout": "hald"})",
       "field \"looks.t.layout\": only picture LUTs (.png, .jpg) have a layout"},
      {R"({"lut": "x.png", "layout": "spiral"})",
       "layout \"spiral\": expected auto, hald, tiles, tiles-up or strip"},
  };
  for (const auto& c : bad) {
    write("bad.json", withLook("t", c.look));
    const Outcome b = lumo("calib build bad.json -o bad.bin");
    EXPECT_EQ(b.status, 1);
    EXPECT_THAT(b.err, HasSubstr(c.message));
    EXPECT_FALSE(fs::exists(dir / "bad.bin"));
  }
}

class LutFitCli : public ToolTest {};

// Pictures to a fitted .cube, into a calibration, onto a report page; and
// the refusals with their exit statuses.
TEST_F(LutFitCli, FittedLookGoesIntoACalibrationAndAReport) {
  for (const char* scene : {"chart", "sunset"})
    ASSERT_EQ(
        lumo(std::string("generate ") + scene + " -o " + scene + ".png --width 160 --height 120")
            .status,
        0);
  Outcome o = lumo("lut fit chart.png chart.png sunset.png sunset.png -o look.cube --json");
  ASSERT_EQ(o.status, 0) << o.err;
  const nlohmann::json j = nlohmann::json::parse(o.out);
  EXPECT_TRUE(j["identity"].get<bool>());
  EXPECT_EQ(j["lattice_size"], 17);
  EXPECT_EQ(j["coverage"]["empty_cells"].size(),
            4096 - j["coverage"]["cells_with_data"].get<size_t>());
  EXPECT_LT(j["held_out"]["mean"].get<double>(), 0.2);
  write("fit.json", o.out);
  write("d.json", description(R"({"a": {"cube": "look.cube"}})"));
  o = lumo("calib build d.json -o d.bin");
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_THAT(o.out, HasSubstr("looks.a: ./look.cube: iridas_cube (Iridas): 17-point lattice"));
  o = lumo("report --fit fit.json --calib d.bin -o page.html");
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_THAT(readText(dir / "page.html"), HasSubstr("Lattice coverage"));

  const struct {
    const char* args;
    int status;
    const char* message;
  } refused[] = {
      {"chart.png sunset.png -o x.cube", 1, "pictures look misaligned"},
      {"chart.png -o x.cube", 2, "pictures come in pairs: 1 given"},
      {"-o x.cube", 2, "give picture pairs or --pairs DIR"},
      {"--pairs . -o x.cube", 1, "no such folder (--pairs expects DIR/before and DIR/after"},
      {"chart.png chart.png -o x.cube --size 20", 2, "--size"},
  };
  for (const auto& c : refused) {
    o = lumo(std::string("lut fit ") + c.args);
    EXPECT_EQ(o.status, c.status) << c.args;
    EXPECT_THAT(o.err, HasSubstr(c.message)) << c.args;
    EXPECT_FALSE(fs::exists(dir / "x.cube")) << c.args;
  }
}
