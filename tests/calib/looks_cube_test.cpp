// Generated looks and .cube files: lattice order, what the controls do to
// known colours, and .cube import of other sizes and dialects.
#include <calib/calibration_dump.h>
#include <calib/cube_lut.h>
#include <calib/looks.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

using namespace calib;
namespace fs = std::filesystem;

namespace {

const uint8_t* point(const LutBlock& lut, int r, int g, int b) {
  return lut.data() + 3 * (r + 17 * (g + 17 * b));
}

uint8_t byteOf(double v) { return uint8_t(std::lround(v * 255)); }

LutBlock lookWith(double LookParams::*control, double value) {
  LookParams look;
  look.*control = value;
  return generateLook(look);
}

// A file under the temporary directory holding `text`, removed by the test.
fs::path cubeFile(const std::string& name, const std::string& text) {
  const fs::path p = fs::temp_directory_path() / ("lumo_cube_" + name);
  std::ofstream(p, std::ios::binary) << text;
  return p;
}

}  // namespace

TEST(Looks, IdentityIsTheLatticeWithRedFastest) {
  const LutBlock id = identityLut();
  ASSERT_EQ(id.size(), 14739u);
  for (int b = 0; b < 17; b += 4)
    for (int g = 0; g < 17; g += 3)
      for (int r = 0; r < 17; ++r)
        ASSERT_EQ(std::vector<uint8_t>(point(id, r, g, b), point(id, r, g, b) + 3),
                  (std::vector<uint8_t>{byteOf(r / 16.0), byteOf(g / 16.0), byteOf(b / 16.0)}));
  EXPECT_EQ(describeLut(id), "identity");
}

TEST(Looks, ControlsMoveColoursTheWayTheirNamesSay) {
  const LutBlock warm = lookWith(&LookParams::temperature, 0.4);
  const uint8_t* grey = point(warm, 8, 8, 8);
  EXPECT_TRUE(grey[0] > 128 && grey[1] == 128 && grey[2] < 128);
  const LutBlock mono = lookWith(&LookParams::saturation, 0);
  const uint8_t* red = point(mono, 16, 0, 0);
  EXPECT_EQ(std::vector<uint8_t>(red, red + 3), std::vector<uint8_t>(3, byteOf(0.299)));
  // Full strength is smoothstep: 0.25 -> 0.15625, 0.75 -> 0.84375.
  const LutBlock contrast = lookWith(&LookParams::contrast, 1);
  EXPECT_EQ(point(contrast, 4, 4, 4)[0], byteOf(0.15625));
  EXPECT_EQ(point(contrast, 12, 12, 12)[0], byteOf(0.84375));
  EXPECT_EQ(point(lookWith(&LookParams::fade, 0.1), 0, 0, 0)[0], byteOf(0.1));
}

TEST(Cube, WrittenCubesReadBackOtherSizesAreResampledAndBrokenOnesNameTheFile) {
  const LutBlock lut = lookWith(&LookParams::contrast, 0.4);
  const std::string text = cubeText(lut, "teal");
  EXPECT_EQ(text.rfind("TITLE \"teal\"\nLUT_3D_SIZE 17\n", 0), 0u);
  EXPECT_EQ(text.find('\r'), std::string::npos);
  CubeInfo info;
  EXPECT_EQ(readCube(cubeFile("roundtrip.cube", text).string(), &info), lut);
  EXPECT_EQ(std::tie(info.title, info.size3d), std::make_tuple("teal", 17));
  // A 2-point inverting cube with comments, CRLF and an explicit domain.
  const LutBlock inverted =
      readCube(cubeFile("invert.cube",
                        "# inverted\r\nTITLE \"inv\"\r\nDOMAIN_MIN 0 0 0\r\nDOMAIN_MAX 1 1 1\r\n"
                        "LUT_3D_SIZE 2\r\n1 1 1\r\n0 1 1\r\n1 0 1\r\n0 0 1\r\n1 1 0\r\n0 1 0\r\n"
                        "1 0 0\r\n0 0 0\r\n")
                   .string(),
               &info);
  EXPECT_EQ(info.size3d, 2);
  for (int i : {0, 5, 16}) {
    const uint8_t* v = point(inverted, i, 16 - i, 3);
    const int want[] = {i, 16 - i, 3};
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(v[c], 255 - byteOf(want[c] / 16.0), 1) << i;
  }
  const fs::path broken = cubeFile("broken.cube", "LUT_3D_SIZE 3\n0 0 0\n1 1 1\n");
  std::string error = "(accepted)";
  try {
    readCube(broken.string());
  } catch (const std::runtime_error& e) {
    error = e.what();
  }
  EXPECT_EQ(error.rfind(broken.string() + ": cannot read .cube file: ", 0), 0u) << error;
  for (const char* name : {"roundtrip.cube", "invert.cube", "broken.cube"})
    fs::remove(fs::temp_directory_path() / ("lumo_cube_" + std::string(name)));
}
