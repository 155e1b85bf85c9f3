// Generated looks and .cube files: lattice order, what the controls do to
// known colours, and written .cube files read back.
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

}  // namespace

TEST(Looks, IdentityIsRedFastestAndControlsMoveColoursTheWayTheirNamesSay) {
  const LutBlock id = identityLut();
  EXPECT_EQ(std::vector<uint8_t>(point(id, 16, 4, 3), point(id, 16, 4, 3) + 3),
            (std::vector<uint8_t>{255, byteOf(0.25), byteOf(3 / 16.0)}));
  EXPECT_EQ(describeLut(id), "identity");
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

// CRLF line ends read as well as LF.
TEST(Cube, WrittenCubesReadBack) {
  const LutBlock lut = lookWith(&LookParams::contrast, 0.4);
  std::string text = cubeText(lut, "teal");
  EXPECT_EQ(text.rfind("TITLE \"teal\"\nLUT_3D_SIZE 17\n", 0), 0u);
  for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2))
    text.insert(at, "\r");
  const fs::path p = fs::temp_directory_path() / "lumo_cube_roundtrip.cube";
  std::ofstream(p, std::ios::binary) << text;
  CubeInfo info;
  EXPECT_EQ(readCube(p.string(), &info), lut);
  EXPECT_EQ(std::tie(info.title, info.size3d), std::make_tuple("teal", 17));
  fs::remove(p);
}
