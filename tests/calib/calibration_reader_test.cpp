// The strict reader on hand-assembled files: a good file decodes without
// issues, and each way of breaking it is reported at the right offset.
#include <calib/calibration_reader.h>
#include <gtest/gtest.h>

#include <cstring>

#include "calib_bytes.h"

using namespace calib;

namespace {

using calib_test::Bytes;

// Offsets of the good file below.
constexpr size_t kHeaderEnd = 778 + 2 * 2 + 2 * 1;  // two scenes, one zoom: 784
constexpr size_t kScene0 = kHeaderEnd;              // "common": 64+2+6+2*6 = 84 bytes
constexpr size_t kScene1 = kScene0 + 84;            // "night": 64+2+6+6 = 78 bytes
constexpr size_t kZoom0 = kScene1 + 78;             // 1.0: 4+2+6+6 = 18 bytes
constexpr size_t kPools = kZoom0 + 18;

// Two scenes with LUT indices 0, 1 then 2; one zoom with shading 0.
Bytes goodFile() {
  Bytes f;
  f.u16({2, 84, 78, kHeaderEnd, kPools, 17, 1, 18});
  f.text("lux,cct", 256).text("lut,shading", 256).text("0-65535", 256);
  f.text("common", 64).u16({1, 0, 300, 2, 2000, 4000, 0, 4001, 8000, 1});
  f.text("night", 64).u16({1, 0, 50, 1, 7, 7, 2});  // a band may be a single value
  f.f32(1.0f).u16({1, 0, 65535, 1, 0, 65535, 0});
  for (int lut = 0; lut < 3; ++lut) f.fill(14739, uint8_t(lut * 10));
  for (int k = 0; k < 8; ++k) f.f32(0.5f * k);
  return f;
}

std::string messages(const ReadResult& r) {
  std::string out;
  for (const Issue& i : r.issues) out += findingLine("f.bin", i) + "\n";
  return out;
}

}  // namespace

TEST(CalibrationReader, GoodFilesDecodeWithoutIssues) {
  const ReadResult r = readCalibration(goodFile().b);
  EXPECT_TRUE(r.issues.empty()) << messages(r);
  // Whatever was decoded shows in the bytes the (separately tested) writer makes of it; the
  // optional offsets stay empty where a writer would put them anyway.
  EXPECT_EQ(serialize(r.file), goodFile().b);
  EXPECT_EQ(
      std::make_tuple(r.layout.lutCount, r.layout.shadingCount, r.file.paramDataOffset.has_value(),
                      r.file.scenes.at(0).declaredSize.has_value()),
      std::make_tuple(3u, 1u, false, false));
  // A header alone, with no blocks at all, is a valid file too.
  const ReadResult empty = readCalibration(Bytes().u16({0, 778, 778, 17, 0}).fill(768).b);
  EXPECT_TRUE(empty.issues.empty()) << messages(empty);
  EXPECT_EQ(std::make_tuple(empty.layout.headerEnd, empty.layout.lutCount),
            std::make_tuple(778u, 0u));
}

// Errors fail the file; odd but legal shapes only warn, once.
TEST(CalibrationReader, EachBreakageIsReportedWhereItHappens) {
  struct Case {
    void (*change)(Bytes&);
    const char* expected;  // the start of the issue (the first in full), offset included
  } cases[] = {
      {[](Bytes& f) { f.b.erase(f.b.begin() + 500, f.b.end()); },
       "f.bin: offset 0 (header): error: file ends at byte 500 but a header with 2 scene sizes "
       "and 1 zoom sizes needs bytes 0..783"},
      {[](Bytes& f) { f.put16(6, 700); },
       "offset 6 (header, paramDataOffset): error: parameter data at 700 begins inside"},
      {[](Bytes& f) { f.put16(2, 80); },
       "offset 2 (scene block 0 \"common\"): error: the contents take 84 bytes"},
      // The second CCT band starts where the first ends.
      {[](Bytes& f) { f.put16(kScene0 + 72 + 6, 4000); },
       "offset 862 (scene block 0 \"common\", lux band 0, cct band 1): error: CCT band"},
      // The last index is not the highest.
      {[](Bytes& f) { f.put16(kScene1 + 64 + 2 + 6 + 4, 0); },
       "offset 866 (scene block 0 \"common\", lux band 0, cct band 1): error: block index 1"},
      {[](Bytes& f) { f.put16(8, uint16_t(kPools - 1)); },
       "offset 8 (header, lutDataOffset): error: LUT pool at 963 overlaps"},
      {[](Bytes& f) { f.b.pop_back(); }, "offset 964 (pools): error: file ends at byte 45212"},
      {[](Bytes& f) { std::memset(&f.b[kZoom0], 0, 4); },
       "offset 946 (zoom block 0 (0)): error: zoom ratio 0"},
      {[](Bytes& f) { std::memset(&f.b[kScene1], 'n', 64); },
       "offset 868 (scene block 1): error: the scene name is not NUL-terminated"},
      {[](Bytes& f) { f.put16(10, 33); },
       "offset 10 (header, lut3d_size): warning: lut3d_size is 33"},
      {[](Bytes& f) { f.fill(5); }, "offset 45213 (pools): warning: 5 bytes after the last pool"},
      {[](Bytes& f) { std::memcpy(&f.b[kScene1], "dusk\0", 5); },
       "offset 868 (scene block 1 \"dusk\"): warning: the camera never reports this scene"},
      {[](Bytes& f) { std::memcpy(&f.b[kScene1], "common\0", 7); },
       "offset 868 (scene block 1 \"common\"): warning: the scene name repeats"},
  };
  for (const auto& c : cases) {
    Bytes f = goodFile();
    c.change(f);
    const ReadResult r = readCalibration(f.b);
    const bool warning = std::strstr(c.expected, ": warning: ") != nullptr;
    EXPECT_EQ(r.ok(), warning) << c.expected;
    EXPECT_TRUE(!warning || r.issues.size() == 1) << messages(r);
    EXPECT_NE(messages(r).find(c.expected), std::string::npos) << c.expected << ":\n"
                                                               << messages(r);
  }
}
