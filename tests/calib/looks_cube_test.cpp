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

uint8_t latticeByte(int i) { return uint8_t(std::lround(i * 255.0 / 16.0)); }

fs::path tempFile(const std::string& name) {
  return fs::temp_directory_path() / ("lumo_cube_" + name);
}

}  // namespace

TEST(Looks, IdentityIsTheLatticeWithRedFastest) {
  const LutBlock id = identityLut();
  ASSERT_EQ(id.size(), 14739u);
  for (int b = 0; b < 17; b += 4)
    for (int g = 0; g < 17; g += 3)
      for (int r = 0; r < 17; ++r) {
        const uint8_t* p = point(id, r, g, b);
        ASSERT_EQ(p[0], latticeByte(r));
        ASSERT_EQ(p[1], latticeByte(g));
        ASSERT_EQ(p[2], latticeByte(b));
      }
  EXPECT_EQ(describeLut(id), "identity");
}

TEST(Looks, ControlsMoveColoursTheWayTheirNamesSay) {
  LookParams warm;
  warm.temperature = 0.4;
  const LutBlock warmLut = generateLook(warm);
  const uint8_t* grey = point(warmLut, 8, 8, 8);
  EXPECT_GT(grey[0], 128);
  EXPECT_EQ(grey[1], 128);
  EXPECT_LT(grey[2], 128);

  LookParams mono;
  mono.saturation = 0;
  const LutBlock monoLut = generateLook(mono);
  const uint8_t* red = point(monoLut, 16, 0, 0);
  EXPECT_EQ(red[0], red[1]);
  EXPECT_EQ(red[1], red[2]);
  EXPECT_EQ(red[0], uint8_t(std::lround(0.299 * 255)));

  LookParams contrast;
  contrast.contrast = 1;
  const LutBlock c = generateLook(contrast);
  // Full strength is smoothstep: 0.25 -> 0.15625, 0.75 -> 0.84375.
  EXPECT_EQ(point(c, 4, 4, 4)[0], uint8_t(std::lround(0.15625 * 255)));
  EXPECT_EQ(point(c, 12, 12, 12)[0], uint8_t(std::lround(0.84375 * 255)));

  LookParams faded;
  faded.fade = 0.1;
  const LutBlock fadedLut = generateLook(faded);
  EXPECT_EQ(point(fadedLut, 0, 0, 0)[0], uint8_t(std::lround(0.1 * 255)));
}

TEST(Cube, WrittenCubeReadsBackToTheSameBytes) {
  LookParams look;
  look.temperature = 0.3;
  look.contrast = 0.4;
  look.shadows = {-0.05, 0.02, 0.08};
  const LutBlock lut = generateLook(look);
  const std::string text = cubeText(lut, "teal");
  EXPECT_EQ(text.rfind("TITLE \"teal\"\nLUT_3D_SIZE 17\n", 0), 0u);
  EXPECT_EQ(text.find('\r'), std::string::npos);
  const fs::path p = tempFile("roundtrip.cube");
  std::ofstream(p) << text;
  CubeInfo info;
  EXPECT_EQ(readCube(p.string(), &info), lut);
  EXPECT_EQ(info.title, "teal");
  EXPECT_EQ(info.size3d, 17);
  fs::remove(p);
}

TEST(Cube, OtherSizesAndDialectsAreResampled) {
  // A 2-point inverting cube with comments, CRLF and an explicit domain.
  const fs::path p = tempFile("invert.cube");
  std::ofstream(p, std::ios::binary)
      << "# inverted\r\nTITLE \"inv\"\r\nDOMAIN_MIN 0 0 0\r\nDOMAIN_MAX 1 1 1\r\n"
         "LUT_3D_SIZE 2\r\n"
         "1 1 1\r\n0 1 1\r\n1 0 1\r\n0 0 1\r\n1 1 0\r\n0 1 0\r\n1 0 0\r\n0 0 0\r\n";
  CubeInfo info;
  const LutBlock lut = readCube(p.string(), &info);
  EXPECT_EQ(info.size3d, 2);
  for (int i : {0, 5, 16}) {
    const uint8_t* v = point(lut, i, 16 - i, 3);
    EXPECT_NEAR(v[0], 255 - latticeByte(i), 1) << i;
    EXPECT_NEAR(v[1], 255 - latticeByte(16 - i), 1) << i;
    EXPECT_NEAR(v[2], 255 - latticeByte(3), 1) << i;
  }
  fs::remove(p);
}

TEST(Cube, BrokenCubeNamesTheFile) {
  const fs::path p = tempFile("broken.cube");
  std::ofstream(p) << "LUT_3D_SIZE 3\n0 0 0\n1 1 1\n";
  try {
    readCube(p.string());
    ADD_FAILURE() << "accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()).rfind(p.string() + ": cannot read .cube file: ", 0), 0u)
        << e.what();
  }
  fs::remove(p);
}
