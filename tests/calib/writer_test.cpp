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
void u16s(std::vector<uint8_t>& out, std::initializer_list<unsigned> values) {
  for (unsigned v : values) u16(out, v);
}

// The tiny file, byte by byte.
std::vector<uint8_t> tinyBytes(unsigned declared, unsigned paramOffset, unsigned lutOffset) {
  std::vector<uint8_t> b;
  // aiScenesCount, aiScenesSize[0], paramDataOffset, lutDataOffset, lut3d_size,
  // shadingZoomRatioCount
  u16s(b, {1, declared, paramOffset, lutOffset, 17, 0});
  field(b, "T", 256);
  field(b, "P", 256);
  field(b, "R", 256);
  b.resize(paramOffset, 0);
  field(b, "ab", 64);
  u16s(b, {1, 1, 2, 1, 3, 4, 0});  // lux count, lux 1..2, CCT count, CCT 3..4 index 0
  b.resize(paramOffset + declared, 0);
  b.resize(lutOffset, 0);
  b.insert(b.end(), calib::kLutBlockBytes, 9);
  return b;
}

TEST(CalibWriter, TinyFileByteForByteWithAndWithoutZeroGaps) {
  EXPECT_EQ(calib::serialize(tinyFile()), tinyBytes(78, 780, 858));
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
  // No scenes; paramDataOffset 778 + 2 * 2; lutDataOffset past blocks of 4 + 2 + 6
  // and 4 + 2 bytes; lut3d_size; two zoom blocks of 12 and 6 bytes.
  u16s(b, {0, 782, 782 + 18, 33, 2, 12, 6});
  b.resize(782, 0);
  for (uint8_t x : {0x00, 0x00, 0xC0, 0x3F}) b.push_back(x);  // 1.5f
  u16s(b, {1, 7, 8, 0});
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

// The tiny file after `change`.
template <typename F>
calib::CalibrationFile tinyWith(F change) {
  calib::CalibrationFile f = tinyFile();
  change(f);
  return f;
}

// Scenes of `luxBands` lux bands with 1000 CCT bands each (6 + 6,000 bytes a band).
calib::CalibrationFile bigScenes(std::vector<std::string> names, size_t luxBands) {
  calib::CalibrationFile f;
  std::vector<calib::LuxBand> bands(luxBands);
  for (auto& band : bands) band.ccts.resize(1000);
  for (const std::string& name : names) f.scenes.push_back({name, bands, std::nullopt});
  return f;
}

TEST(CalibWriter, RefusesWhatCannotBeEncoded) {
  using F = calib::CalibrationFile;
  const std::pair<F, const char*> rows[] = {
      {tinyWith([](F& f) { f.scenes[0].declaredSize = 77; }),
       "scene 0 (ab) declaredSize 77 is smaller than its contents (78 bytes)"},
      {tinyWith([](F& f) { f.luts[0].resize(10); }), "LUT 0 has 10 bytes, not 14739"},
      {tinyWith([](F& f) { f.paramDataOffset = 779; }),
       "paramDataOffset 779 would overlap what precedes it (which ends at 780)"},
      {tinyWith([](F& f) { f.lutDataOffset = 857; }),
       "lutDataOffset 857 would overlap what precedes it (which ends at 858)"},
      // 64 + 2 + 10 * 6,006 = 60,126 bytes apiece
      {bigScenes({"a", "b"}, 10), "lutDataOffset is 121034, more than 65535"},
      {bigScenes({"big"}, 12), "scene 0 (big) size is 72138, more than 65535"},
  };
  for (const auto& [file, message] : rows) {
    try {
      calib::serialize(file);
      ADD_FAILURE() << message << ": no exception";
    } catch (const std::invalid_argument& e) {
      EXPECT_EQ(std::string(e.what()), message);
    }
    std::string error;
    EXPECT_FALSE(calib::writeFile(file, "/nonexistent/x.bin", &error));
    EXPECT_EQ(error, message);
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
