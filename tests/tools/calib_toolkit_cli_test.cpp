// Black-box tests of the calibration and LUT commands: `calib build`, `dump`,
// `export`, `check`, `lint` and `diff`, `lut doctor` and `lut fit`, text and
// JSON, and their exit statuses. The validator's and the description reader's
// messages are checked in tests/calib.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

// A description whose only look `name` is `look`, used in every cell.
std::string withLook(const std::string& name, const std::string& look) {
  return description(R"({")" + name + R"(": )" + look + "}",
                     R"([{"start": 0, "end": 65535, "lut": ")" + name + R"("}])");
}

}  // namespace

class CalibToolkitCli : public ToolTest {};

// The rules and measures are checked in the unit tests; here each command's
// exit status and the lines (or JSON) a user or a script reads.
TEST_F(CalibToolkitCli, EachCommandSaysWhatItFoundInItsExitStatus) {
  // Only the common scene, with a single CCT band from 100 lux.
  write("one.json", description(R"({"a": {"generate": {}}})",
                                R"([{"start": 0, "end": 65535, "lut": "a"}])", 100));
  // Two files that differ in the look of one CCT band.
  const std::string base = description(
      R"({"a": {"generate": {}}, "b": {"generate": {"temperature": 0.5}}})",
      R"([{"start": 0, "end": 4000, "lut": "a"}, {"start": 4001, "end": 65535, "lut": "LOOK"}])");
  for (std::string look : {"a", "b"}) {
    std::string text = base;
    write(look + ".json", text.replace(text.find("LOOK"), 4, look));
  }
  write("junk.bin", "not a calibration file");
  // Files of another kind say so first; a damaged calibration file does not.
  write("pic.jpg", "\xFF\xD8\xFF\xE0\x00\x10JFIF\x00\x01\x01");
  write("notes.txt", "scene night: use the blue look\n");
  write("d0.json", "  {\"looks\": {}}\n");
  const std::string foreign = ": not a calibration file: it looks like ";
  write("good.cube", cube(33, false));
  write("t.cube", cube(33, true));
  write("broken.cube", "LUT_3D_SIZE 2\n0 0 0\n");
  write("t.json", withLook("t", R"({"lut": "t.cube"})"));
  // A look's name reaches the terminal escaped, whatever bytes it holds.
  write("e.json", withLook("t\\u001b[2J", R"({"lut": "t.cube"})"));
  write("bad.json", withLook("t", R"({"lut": "t.cube", "layout": "hald"})"));
  expectRuns({
      // Each look read from a file is reported before the summary line.
      {"calib build '" LUMO_EXAMPLES_DIR "/demo_looks.json' -o demo.bin",
       0,
       {"looks.faded_film: ", "\ndemo.bin: 6 scenes, 3 zoom ratios, 13 LUTs, 3 shadings\n"}},
      {"calib dump demo.bin", 0, {"scene \"protrait\"", "LUT pool: 13 blocks"}},
      {"calib export demo.bin --json ex/d.json --cube-dir ex/cubes", 0},
      {"calib build ex/d.json -o again.bin", 0},
      {"calib check demo.bin", 0, {"demo.bin: ok\n"}},
      {"calib check pic.jpg", 1, {"pic.jpg" + foreign + "a JPEG picture\npic.jpg: offset "}},
      {"calib check notes.txt", 1, {"notes.txt" + foreign + "text\n"}},
      {"calib check d0.json", 1, {"d0.json" + foreign + "JSON text (a description: build it"}},
      {"calib build one.json -o one.bin", 0},
      {"calib build a.json -o a.bin", 0},
      {"calib build b.json -o b.bin", 0},
      {"calib build t.json -o t.bin", 0, {"resampled to 17", "written blue-fastest"}},
      {"calib build e.json -o e.bin", 0, {"looks.t\\x1b[2J: ./t.cube: iridas_cube"}},
      {"calib build bad.json -o bad.bin", 1, {"field \"looks.t.layout\": only picture LUTs"}},
      {"calib lint --strict demo.bin", 0, {"demo.bin: 0 findings\n"}},
      {"calib lint one.bin", 0, {"one.bin: scene \"night\": warning: ", "one.bin: 7 findings\n"}},
      {"calib lint --strict --json one.bin", 1, {"\"warnings\": 7"}},
      {"calib lint junk.bin", 1, {"junk.bin: not linted: the file breaks the format"}},
      {"calib diff a.bin a.bin", 0, {"0 changes\n"}},
      {"calib diff a.bin b.bin", 0, {"lux band 0, cct band 1: LUT block 0 -> 1: contents changed"}},
      {"calib diff --json a.bin b.bin", 0, {"\"ciede2000\"", "\"worst\""}},
      {"calib diff a.bin junk.bin", 1},
      {"lut doctor good.cube", 0, {"good.cube: iridas_cube (Iridas dialect), 33-point", "ok\n"}},
      {"lut doctor good.cube t.cube broken.cube", 1, {"(blue-fastest)", "2 of 3 files have"}},
      {"lut doctor --json good.cube t.cube", 1, {"\"lattice_size\": 33", "\"blue-fastest\""}},
  });
  EXPECT_EQ(files("ex").size(), 14u);
  EXPECT_EQ(readText(dir / "demo.bin"), readText(dir / "again.bin"));
  write("short.bin", readText(dir / "demo.bin").substr(0, 100));
  expectRuns({
      {"calib check demo.bin short.bin", 1, {"ok\nshort.bin: offset 0 (header): error: file ends"}},
      {"calib export short.bin --json x.json", 1},
  });
  EXPECT_FALSE(fs::exists(dir / "x.json"));
}

// Pictures to a fitted .cube, into a calibration, onto a report page; and
// the refusals with their exit statuses.
TEST_F(CalibToolkitCli, FittedLookGoesIntoACalibrationAndAReport) {
  for (const std::string scene : {"chart", "sunset"})
    ASSERT_EQ(lumo("generate " + scene + " -o " + scene + ".png --width 160 --height 120").status,
              0);
  const Outcome fit = lumo("lut fit chart.png chart.png sunset.png sunset.png -o look.cube --json");
  ASSERT_EQ(fit.status, 0) << fit.err;
  EXPECT_THAT(fit.out, HasSubstr("\"identity\": true"));
  write("fit.json", fit.out);
  write("d.json", description(R"({"a": {"cube": "look.cube"}})"));
  expectRuns({
      {"calib build d.json -o d.bin", 0, {"looks.a: ./look.cube: iridas_cube (Iridas): 17-point"}},
      {"report --fit fit.json --calib d.bin -o page.html", 0, {}},
      {"lut fit chart.png sunset.png -o x.cube", 1, {"pictures look misaligned"}},
      {"lut fit chart.png -o x.cube", 2, {"pictures come in pairs: 1 given"}},
      {"lut fit -o x.cube", 2, {"give picture pairs or --pairs DIR"}},
      {"lut fit chart.png chart.png -o x.cube --size 20", 2, {"--size"}},
      {"lut fit --pairs . -o x.cube", 1, {"no such folder (--pairs expects DIR/before"}},
  });
  EXPECT_THAT(readText(dir / "page.html"), HasSubstr("Lattice coverage"));
}
