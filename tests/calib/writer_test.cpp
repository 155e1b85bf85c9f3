// The calibration writer: byte layout of small files built by hand, the odd
// shapes it can produce, and what it refuses.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "calib/calibration_file.h"

namespace {

void u16(std::vector<uint8_t>& out, unsigned v) {
  out.push_back(static_cast<uint8_t>(v & 0xFF));
  out.push_back(static_cast<uint8_t>(v >> 8));
}

void field(std::vector<uint8_t>& out, const std::string& text, size_t size) {
  out.insert(out.end(), text.begin(), text.end());
  out.insert(out.end(), size - text.size(), 0);
}

calib::CalibrationFile tinyFile() {
  calib::CalibrationFile f;
  f.scenes.push_back({"ab", {{1, 2, {{3, 4, 0}}}}, std::nullopt});
  f.luts.push_back(calib::LutBlock(calib::kLutBlockBytes, 9));
  f.triggerControl = "T";
  f.paramType = "P";
  f.paramRange = "R";
  return f;
}

// The tiny file, byte by byte.
std::vector<uint8_t> tinyBytes(unsigned declared, unsigned paramOffset, unsigned lutOffset) {
  std::vector<uint8_t> b;
  u16(b, 1);            // aiScenesCount
  u16(b, declared);     // aiScenesSize[0]
  u16(b, paramOffset);  // paramDataOffset
  u16(b, lutOffset);    // lutDataOffset
  u16(b, 17);           // lut3d_size
  u16(b, 0);            // shadingZoomRatioCount
  field(b, "T", 256);
  field(b, "P", 256);
  field(b, "R", 256);
  b.resize(paramOffset, 0);
  field(b, "ab", 64);
  u16(b, 1);  // lux count
  u16(b, 1);
  u16(b, 2);
  u16(b, 1);  // CCT count
  u16(b, 3);
  u16(b, 4);
  u16(b, 0);
  b.resize(paramOffset + declared, 0);
  b.resize(lutOffset, 0);
  b.insert(b.end(), calib::kLutBlockBytes, 9);
  return b;
}

TEST(CalibWriter, TinyFileByteForByte) {
  EXPECT_EQ(calib::serialize(tinyFile()), tinyBytes(78, 780, 858));
}

TEST(CalibWriter, DeclaredSizeAndOffsetsLeaveZeroGaps) {
  calib::CalibrationFile f = tinyFile();
  f.scenes[0].declaredSize = 100;
  f.paramDataOffset = 800;
  f.lutDataOffset = 1000;
  EXPECT_EQ(calib::serialize(f), tinyBytes(100, 800, 1000));
}

TEST(CalibWriter, ZoomBlocksShadingAndTrailingBytes) {
  calib::CalibrationFile f;
  f.lut3dSize = 33;
  f.zooms.push_back({1.5f, {{7, 8, {}}}, std::nullopt});
  f.zooms.push_back({-2.0f, {}, std::nullopt});
  f.shadings.push_back({1.0f, 0, 0, 0, 0, 0, 0, -2.0f});
  f.trailingBytes = {0xDE, 0xAD};
  std::vector<uint8_t> b;
  u16(b, 0);
  u16(b, 782);       // paramDataOffset: 778 + 2 * 2
  u16(b, 782 + 18);  // lutDataOffset: blocks of 4 + 2 + 6 and 4 + 2 bytes
  u16(b, 33);
  u16(b, 2);
  u16(b, 12);
  u16(b, 6);
  b.resize(782, 0);
  for (uint8_t x : {0x00, 0x00, 0xC0, 0x3F}) b.push_back(x);  // 1.5f
  u16(b, 1);
  u16(b, 7);
  u16(b, 8);
  u16(b, 0);
  for (uint8_t x : {0x00, 0x00, 0x00, 0xC0}) b.push_back(x);  // -2.0f
  u16(b, 0);
  for (uint8_t x : {0x00, 0x00, 0x80, 0x3F}) b.push_back(x);  // 1.0f
  b.insert(b.end(), 24, 0);
  for (uint8_t x : {0x00, 0x00, 0x00, 0xC0}) b.push_back(x);  // -2.0f
  b.push_back(0xDE);
  b.push_back(0xAD);
  EXPECT_EQ(calib::serialize(f), b);
}

TEST(CalibWriter, LongNamesAndTextsAreCutToKeepTheirNul) {
  calib::CalibrationFile f;
  f.scenes.push_back({std::string(70, 'n'), {}, std::nullopt});
  f.paramRange = std::string(300, 'r');  // texts begin at 2 + 2 + 8 = 12
  const std::vector<uint8_t> b = calib::serialize(f);
  ASSERT_EQ(b.size(), 780u + 66);
  EXPECT_EQ(b[12 + 512 + 254], 'r');
  EXPECT_EQ(b[12 + 512 + 255], 0);
  EXPECT_EQ(b[780 + 62], 'n');
  EXPECT_EQ(b[780 + 63], 0);
}

TEST(CalibWriter, RefusesWhatCannotBeEncoded) {
  struct Row {
    const char* what;
    calib::CalibrationFile file;
    const char* message;
  };
  std::vector<Row> rows;
  {
    calib::CalibrationFile f = tinyFile();
    f.scenes[0].declaredSize = 77;
    rows.push_back({"declared size", f,
                    "scene 0 (ab) declaredSize 77 is smaller than its contents (78 bytes)"});
  }
  {
    calib::CalibrationFile f = tinyFile();
    f.luts[0].resize(10);
    rows.push_back({"LUT size", f, "LUT 0 has 10 bytes, not 14739"});
  }
  {
    calib::CalibrationFile f = tinyFile();
    f.paramDataOffset = 779;
    rows.push_back({"param offset", f,
                    "paramDataOffset 779 would overlap what precedes it (which ends at 780)"});
  }
  {
    calib::CalibrationFile f = tinyFile();
    f.lutDataOffset = 857;
    rows.push_back(
        {"lut offset", f, "lutDataOffset 857 would overlap what precedes it (which ends at 858)"});
  }
  {
    // Two scenes of 10 lux bands with 1000 CCT bands each: 60,126 bytes apiece.
    calib::CalibrationFile f;
    std::vector<calib::LuxBand> bands(10);
    for (auto& band : bands) band.ccts.resize(1000);
    f.scenes.push_back({"a", bands, std::nullopt});
    f.scenes.push_back({"b", bands, std::nullopt});
    rows.push_back({"lut offset past 16 bits", f, "lutDataOffset is 121034, more than 65535"});
  }
  {
    calib::CalibrationFile f;
    std::vector<calib::LuxBand> bands(12);
    for (auto& band : bands) band.ccts.resize(1000);
    f.scenes.push_back({"big", bands, std::nullopt});
    rows.push_back({"block past 16 bits", f, "scene 0 (big) size is 72138, more than 65535"});
  }
  for (const Row& row : rows) {
    try {
      calib::serialize(row.file);
      ADD_FAILURE() << row.what << ": no exception";
    } catch (const std::invalid_argument& e) {
      EXPECT_EQ(std::string(e.what()), row.message) << row.what;
    }
    std::string error;
    EXPECT_FALSE(calib::writeFile(row.file, "/nonexistent/x.bin", &error));
    EXPECT_EQ(error, row.message);
  }
}

TEST(CalibWriter, WritesTheFileAndReportsFailures) {
  char tmpl[] = "/tmp/lumo_writer_XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  const std::string dir = tmpl;
  const std::string path = dir + "/param.bin";
  std::string error;
  ASSERT_TRUE(calib::writeFile(tinyFile(), path, &error)) << error;
  std::ifstream in(path, std::ios::binary);
  const std::vector<uint8_t> written((std::istreambuf_iterator<char>(in)),
                                     std::istreambuf_iterator<char>());
  EXPECT_EQ(written, tinyBytes(78, 780, 858));
  // Only the file itself is left behind.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir),
                          std::filesystem::directory_iterator()),
            1);

  EXPECT_FALSE(calib::writeFile(tinyFile(), dir + "/missing/param.bin", &error));
  EXPECT_NE(error.find(dir + "/missing/param.bin"), std::string::npos) << error;
  std::filesystem::remove_all(dir);
}

}  // namespace
