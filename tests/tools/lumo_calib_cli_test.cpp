// Black-box tests of `lumo calib` and `lumo generate`: build, check, dump,
// export and rebuild to the same bytes, and the reports for broken files.
#include <gtest/gtest.h>

#include "image_files.h"
#include "tool_runner.h"

using namespace lumo_test;

class CalibCli : public ToolTest {
protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(lumo("calib build '" LUMO_EXAMPLES_DIR "/demo_looks.json' -o a.bin").out,
              "a.bin: 6 scenes, 3 zoom ratios, 13 LUTs, 3 shadings\n");
  }
};

TEST_F(CalibCli, CheckDumpExportRebuild) {
  Outcome o = lumo("calib check a.bin");
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "a.bin: ok\n");
  o = lumo("calib dump a.bin");
  ASSERT_EQ(o.status, 0);
  for (const char* scene : {"common", "plants", "night", "sunrise_sunset", "food", "protrait"})
    EXPECT_NE(o.out.find(std::string("scene \"") + scene + "\""), std::string::npos) << scene;
  EXPECT_NE(o.out.find("LUT pool: 13 blocks"), std::string::npos);
  EXPECT_NE(o.out.find(": identity\n"), std::string::npos);  // the "neutral" look
  ASSERT_EQ(lumo("calib export a.bin --json ex/d.json --cube-dir ex/cubes").status, 0);
  EXPECT_EQ(files("ex").size(), 14u);
  ASSERT_EQ(lumo("calib build ex/d.json -o b.bin").status, 0);
  EXPECT_EQ(readText(dir / "a.bin"), readText(dir / "b.bin"));
}

TEST_F(CalibCli, CheckReportsEveryBrokenFileAndFails) {
  std::string bytes = readText(dir / "a.bin");
  // lutDataOffset of a six-scene header (bytes 16, 17): now inside the parameter data.
  bytes[16] = 0;
  bytes[17] = 3;
  write("bad.bin", bytes);
  write("short.bin", bytes.substr(0, 100));
  const Outcome o = lumo("calib check a.bin bad.bin short.bin");
  EXPECT_EQ(o.status, 1);
  for (const char* line :
       {"a.bin: ok\n", "bad.bin: FAILED",
        "bad.bin: offset 16 (header, lutDataOffset): error: LUT pool at 768 overlaps the "
        "parameter data",
        "short.bin: offset 0 (header): error: file ends at byte 100"})
    EXPECT_NE(o.out.find(line), std::string::npos) << line << "\n" << o.out;
  const Outcome json = lumo("calib check --json bad.bin");
  EXPECT_EQ(json.status, 1);
  EXPECT_NE(json.out.find("\"severity\": \"error\""), std::string::npos) << json.out;
  EXPECT_EQ(lumo("calib export bad.bin --json x.json").status, 1);
  EXPECT_FALSE(fs::exists(dir / "x.json"));
  write("d.json", R"({"looks": {"a": {"generate": {"warmth": 1}}}, "scenes": [{"name": "common",
      "lux": [{"start": 0, "end": 1, "cct": [{"start": 0, "end": 1, "lut": "a"}]}]}]})");
  const Outcome build = lumo("calib build d.json -o out.bin");
  EXPECT_EQ(build.status, 1);
  EXPECT_EQ(
      build.err.rfind("lumo: d.json: field \"looks.a.generate.warmth\": unknown look control", 0),
      0u)
      << build.err;
  EXPECT_FALSE(fs::exists(dir / "out.bin"));
}

TEST_F(ToolTest, GenerateWritesEachPictureInEachFormat) {
  for (const char* name : {"chart", "sunset", "plants", "food", "night", "portrait"}) {
    ASSERT_EQ(lumo(std::string("generate ") + name + " -o p.png --width 40 --height 30").status, 0);
    const lumo::Image png = lumo::readImage(path("p.png"));
    EXPECT_EQ(png.geometry.width, 40u);
    EXPECT_EQ(png.geometry.height, 30u);
  }
  ASSERT_EQ(lumo("generate chart -o c_40x30_40.nv12 --width 40 --height 30").status, 0);
  EXPECT_EQ(fs::file_size(dir / "c_40x30_40.nv12"), 40u * 30 * 3 / 2);
  EXPECT_EQ(lumo("generate moon -o m.png").status, 2);
}
