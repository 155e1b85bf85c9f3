// The calibration writer: byte layout of small files built by hand, the odd
// shapes it can produce, and what it refuses.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "calib/calibration_file.h"
#include "calib_bytes.h"

namespace {

using calib::CalibrationFile;

CalibrationFile tinyFile() {
  CalibrationFile f;
  f.scenes.push_back({"ab", {{1, 2, {{3, 4, 0}}}}, std::nullopt});
  f.luts.push_back(calib::LutBlock(calib::kLutBlockBytes, 9));
  f.triggerControl = "T", f.paramType = "P", f.paramRange = "R";
  return f;
}

// The tiny file, byte by byte: aiScenesCount, aiScenesSize[0], paramDataOffset,
// lutDataOffset, lut3d_size, shadingZoomRatioCount, the texts, then the scene:
// lux count, lux 1..2, CCT count, CCT 3..4 index 0.
std::vector<uint8_t> tinyBytes(unsigned declared, unsigned paramOffset, unsigned lutOffset) {
  calib_test::Bytes f;
  f.u16({1, declared, paramOffset, lutOffset, 17, 0}).text("T", 256).text("P", 256).text("R", 256);
  f.padTo(paramOffset).text("ab", 64).u16({1, 1, 2, 1, 3, 4, 0}).padTo(paramOffset + declared);
  return f.padTo(lutOffset).fill(calib::kLutBlockBytes, 9).b;
}

TEST(CalibWriter, TinyFileByteForByteWithAndWithoutZeroGaps) {
  char tmpl[] = "/tmp/lumo_writer_XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  const std::string dir = tmpl, path = dir + "/param.bin";
  std::string error;
  ASSERT_TRUE(calib::writeFile(tinyFile(), path, &error)) << error;
  std::ifstream in(path, std::ios::binary);
  EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}), tinyBytes(78, 780, 858));
  // Only the file itself is left behind.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
  EXPECT_FALSE(calib::writeFile(tinyFile(), dir + "/missing/param.bin", &error));
  EXPECT_NE(error.find(dir + "/missing/param.bin"), std::string::npos) << error;
  std::filesystem::remove_all(dir);
  // A declared size may equal the contents, and an offset may be 65535.
  for (const auto& [declared, paramOffset, lutOffset] :
       {std::tuple{78u, 780u, 858u}, {100u, 800u, 1000u}, {100u, 800u, 65535u}}) {
    CalibrationFile f = tinyFile();
    f.scenes[0].declaredSize = uint16_t(declared);
    f.paramDataOffset = uint16_t(paramOffset);
    f.lutDataOffset = uint16_t(lutOffset);
    EXPECT_EQ(calib::serialize(f), tinyBytes(declared, paramOffset, lutOffset)) << lutOffset;
  }
}

TEST(CalibWriter, ZoomBlocksShadingTrailingBytesAndCutTexts) {
  CalibrationFile f;
  f.lut3dSize = 33;
  f.scenes.push_back({std::string(70, 'n'), {}, std::nullopt});  // long names and texts are cut
  f.paramRange = std::string(300, 'r');                          // to keep their NUL
  f.zooms = {{1.5f, {{7, 8, {}}}, std::nullopt}, {-2.0f, {}, std::nullopt}};
  f.shadings.push_back({1.0f, 0, 0, 0, 0, 0, 0, -2.0f});
  f.trailingBytes = {0xDE, 0xAD};
  // A scene of 64 + 2 bytes and zoom blocks of 4 + 2 + 6 and 4 + 2 after a header of 778 + 3 * 2.
  calib_test::Bytes b;
  b.u16({1, 66, 784, 784 + 66 + 18, 33, 2, 12, 6}).fill(512).text(std::string(255, 'r'), 256);
  b.text(std::string(63, 'n'), 64).u16({0}).f32(1.5f).u16({1, 7, 8, 0}).f32(-2.0f).u16({0});
  b.f32(1.0f).fill(24).f32(-2.0f).u16({0xADDE});
  EXPECT_EQ(calib::serialize(f), b.b);
}

// Scenes of `luxBands` lux bands with 1000 CCT bands each (6 + 6,000 bytes a band).
CalibrationFile bigScenes(std::vector<std::string> names, size_t luxBands) {
  CalibrationFile f;
  std::vector<calib::LuxBand> bands(luxBands);
  for (auto& band : bands) band.ccts.resize(1000);
  for (const std::string& name : names) f.scenes.push_back({name, bands, std::nullopt});
  return f;
}

TEST(CalibWriter, RefusesWhatCannotBeEncoded) {
  std::vector<std::pair<CalibrationFile, const char*>> rows(4, {tinyFile(), ""});
  rows[0].first.scenes[0].declaredSize = 77;
  rows[0].second = "scene 0 (ab) declaredSize 77 is smaller than its contents (78 bytes)";
  rows[1].first.luts[0].resize(10);
  rows[1].second = "LUT 0 has 10 bytes, not 14739";
  rows[2].first.paramDataOffset = 779;
  rows[2].second = "paramDataOffset 779 would overlap what precedes it (which ends at 780)";
  rows[3].first.lutDataOffset = 857;
  rows[3].second = "lutDataOffset 857 would overlap what precedes it (which ends at 858)";
  // 64 + 2 + 10 * 6,006 = 60,126 bytes apiece
  rows.push_back({bigScenes({"a", "b"}, 10), "lutDataOffset is 121034, more than 65535"});
  rows.push_back({bigScenes({"big"}, 12), "scene 0 (big) size is 72138, more than 65535"});
  for (const auto& [file, message] : rows) {
    EXPECT_EQ(calib_test::thrownBy<std::invalid_argument>([&] { calib::serialize(file); }),
              message);
    std::string error;
    EXPECT_FALSE(calib::writeFile(file, "/nonexistent/x.bin", &error));
    EXPECT_EQ(error, message);
  }
}

}  // namespace
