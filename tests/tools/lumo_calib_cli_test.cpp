// Black-box tests of `lumo calib` and `lumo generate`: build, check, dump,
// export and rebuild to the same bytes, and the reports for broken files.
#include <gtest/gtest.h>

#include "image_files.h"
#include "tool_runner.h"

using namespace lumo_test;

class CalibCli : public ToolTest {};

TEST_F(CalibCli, BuildCheckDumpExportRebuild) {
  const std::string desc = std::string(LUMO_EXAMPLES_DIR) + "/demo_looks.json";
  Outcome o = lumo("calib build '" + desc + "' -o a.bin");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out, "a.bin: 6 scenes, 3 zoom ratios, 13 LUTs, 3 shadings\n");
  o = lumo("calib check a.bin");
  EXPECT_EQ(o.status, 0) << o.out;
  EXPECT_EQ(o.out, "a.bin: ok\n");
  o = lumo("calib dump a.bin");
  ASSERT_EQ(o.status, 0);
  for (const char* scene :
       {"\"common\"", "\"plants\"", "\"night\"", "\"sunrise_sunset\"", "\"food\"", "\"protrait\""})
    EXPECT_NE(o.out.find(std::string("scene ") + scene), std::string::npos) << scene;
  EXPECT_NE(o.out.find("LUT pool: 13 blocks"), std::string::npos);
  EXPECT_NE(o.out.find(": identity\n"), std::string::npos);  // the "neutral" look
  o = lumo("calib export a.bin --json exported/d.json --cube-dir exported/cubes");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(files("exported").size(), 14u);
  ASSERT_EQ(lumo("calib build exported/d.json -o b.bin").status, 0);
  EXPECT_EQ(readText(dir / "a.bin"), readText(dir / "b.bin"));
}

TEST_F(CalibCli, CheckReportsEveryBrokenFileAndFails) {
  const std::string desc = std::string(LUMO_EXAMPLES_DIR) + "/demo_looks.json";
  ASSERT_EQ(lumo("calib build '" + desc + "' -o good.bin").status, 0);
  std::string bytes = readText(dir / "good.bin");
  // lutDataOffset of a six-scene header (bytes 16, 17): now inside the parameter data.
  bytes[16] = 0;
  bytes[17] = 3;
  write("bad.bin", bytes);
  write("short.bin", bytes.substr(0, 100));
  const Outcome o = lumo("calib check good.bin bad.bin short.bin");
  EXPECT_EQ(o.status, 1);
  EXPECT_NE(o.out.find("good.bin: ok\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("bad.bin: offset 16 (header, lutDataOffset): error: LUT pool at 768 "
                       "overlaps the parameter data"),
            std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("short.bin: offset 0 (header): error: file ends at byte 100"),
            std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("bad.bin: FAILED"), std::string::npos);
  const Outcome json = lumo("calib check --json bad.bin");
  EXPECT_EQ(json.status, 1);
  EXPECT_NE(json.out.find("\"severity\": \"error\""), std::string::npos) << json.out;
  EXPECT_EQ(lumo("calib export bad.bin --json x.json").status, 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.json"));
}

TEST_F(CalibCli, BuildNamesTheFieldOfABadDescription) {
  write("d.json", R"({"looks": {"a": {"generate": {"warmth": 1}}},
    "scenes": [{"name": "common", "lux": [{"start": 0, "end": 1, "cct": [{"start": 0, "end": 1, "lut": "a"}]}]}]})");
  const Outcome o = lumo("calib build d.json -o out.bin");
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err.rfind("lumo: d.json: field \"looks.a.generate.warmth\": unknown look control", 0),
            0u)
      << o.err;
  EXPECT_FALSE(std::filesystem::exists(dir / "out.bin"));
}

TEST_F(CalibCli, GenerateWritesEachPictureInEachFormat) {
  for (const char* name : {"chart", "sunset", "plants", "food", "night", "portrait"}) {
    ASSERT_EQ(lumo(std::string("generate ") + name + " -o p.png --width 40 --height 30").status, 0);
    const lumo::Image png = lumo::readImage((dir / "p.png").string());
    EXPECT_EQ(png.geometry.width, 40u);
    EXPECT_EQ(png.geometry.height, 30u);
  }
  ASSERT_EQ(lumo("generate chart -o c_40x30_40.nv12 --width 40 --height 30").status, 0);
  EXPECT_EQ(std::filesystem::file_size(dir / "c_40x30_40.nv12"), 40u * 30 * 3 / 2);
  EXPECT_EQ(lumo("generate moon -o m.png").status, 2);
}
