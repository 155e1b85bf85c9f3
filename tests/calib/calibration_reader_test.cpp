// The strict reader on hand-assembled files: a good file decodes without
// issues, and each way of breaking it is reported at the right offset.
#include <calib/calibration_reader.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace calib;

namespace {

// Little-endian byte assembly, independent of the writer.
struct Bytes {
  std::vector<uint8_t> b;
  Bytes& u16(uint16_t v) {
    b.push_back(uint8_t(v));
    b.push_back(uint8_t(v >> 8));
    return *this;
  }
  Bytes& f32(float f) {
    uint32_t v;
    std::memcpy(&v, &f, 4);
    for (int i = 0; i < 4; ++i) b.push_back(uint8_t(v >> (8 * i)));
    return *this;
  }
  Bytes& text(const std::string& s, size_t field) {
    std::vector<uint8_t> t(field, 0);
    std::memcpy(t.data(), s.data(), std::min(s.size(), field));
    b.insert(b.end(), t.begin(), t.end());
    return *this;
  }
  Bytes& fill(size_t n, uint8_t v = 0) {
    b.insert(b.end(), n, v);
    return *this;
  }
  void put16(size_t at, uint16_t v) {
    b[at] = uint8_t(v);
    b[at + 1] = uint8_t(v >> 8);
  }
};

// Offsets of the good file below.
constexpr size_t kHeaderEnd = 778 + 2 * 2 + 2 * 1;  // two scenes, one zoom: 784
constexpr size_t kScene0 = kHeaderEnd;              // "common": 64+2+6+2*6 = 84 bytes
constexpr size_t kScene1 = kScene0 + 84;            // "night": 64+2+6+6 = 78 bytes
constexpr size_t kZoom0 = kScene1 + 78;             // 1.0: 4+2+6+6 = 18 bytes
constexpr size_t kPools = kZoom0 + 18;

// Two scenes with LUT indices 0, 1 then 2; one zoom with shading 0.
Bytes goodFile(uint16_t lastLutIndex = 2) {
  Bytes f;
  f.u16(2).u16(84).u16(78).u16(kHeaderEnd).u16(uint16_t(kPools)).u16(17).u16(1).u16(18);
  f.text("lux,cct", 256).text("lut,shading", 256).text("0-65535", 256);
  f.text("common", 64).u16(1);
  f.u16(0).u16(300).u16(2).u16(2000).u16(4000).u16(0).u16(4001).u16(8000).u16(1);
  f.text("night", 64).u16(1);
  f.u16(0).u16(50).u16(1).u16(0).u16(65535).u16(lastLutIndex);
  f.f32(1.0f).u16(1).u16(0).u16(65535).u16(1).u16(0).u16(65535).u16(0);
  for (int lut = 0; lut < 3; ++lut) f.fill(14739, uint8_t(lut * 10));
  for (int k = 0; k < 8; ++k) f.f32(0.5f * k);
  return f;
}

std::string messages(const ReadResult& r) {
  std::string out;
  for (const Issue& i : r.issues) out += formatIssue("f.bin", i) + "\n";
  return out;
}

}  // namespace

TEST(CalibrationReader, GoodFileDecodesWithoutIssues) {
  const ReadResult r = readCalibration(goodFile().b);
  EXPECT_TRUE(r.issues.empty()) << messages(r);
  ASSERT_EQ(r.file.scenes.size(), 2u);
  EXPECT_EQ(r.file.scenes[1].name, "night");
  EXPECT_EQ(r.file.scenes[0].luxBands[0].ccts[1].start, 4001);
  EXPECT_EQ(r.file.scenes[0].luxBands[0].ccts[1].index, 1);
  EXPECT_EQ(r.file.zooms[0].ratio, 1.0f);
  EXPECT_EQ(r.layout.lutCount, 3u);
  EXPECT_EQ(r.layout.shadingCount, 1u);
  ASSERT_EQ(r.file.luts.size(), 3u);
  EXPECT_EQ(r.file.luts[2][14738], 20);
  EXPECT_EQ(r.file.shadings[0][7], 3.5f);
  EXPECT_EQ(r.file.triggerControl, "lux,cct");
  EXPECT_FALSE(r.file.paramDataOffset.has_value());  // where a writer would put it
  EXPECT_FALSE(r.file.scenes[0].declaredSize.has_value());
}

TEST(CalibrationReader, EmptyFileOfOnlyAHeaderIsValid) {
  Bytes f;
  f.u16(0).u16(778).u16(778).u16(17).u16(0).text("", 256).text("", 256).text("", 256);
  const ReadResult r = readCalibration(f.b);
  EXPECT_TRUE(r.issues.empty()) << messages(r);
  EXPECT_EQ(r.layout.headerEnd, 778u);
  EXPECT_EQ(r.layout.lutCount, 0u);
}

TEST(CalibrationReader, EachBreakageIsReportedWhereItHappens) {
  struct Case {
    const char* what;
    void (*breakIt)(Bytes&);
    size_t offset;
    const char* expected;  // the whole formatted issue
  } cases[] = {
      {"header cut short", [](Bytes& f) { f.b.erase(f.b.begin() + 500, f.b.end()); }, 0,
       "f.bin: offset 0 (header): error: file ends at byte 500 but a header with 2 scene sizes "
       "and 1 zoom sizes needs bytes 0..783"},
      {"parameter data inside the header", [](Bytes& f) { f.put16(6, 700); }, 6,
       "f.bin: offset 6 (header, paramDataOffset): error: parameter data at 700 begins inside "
       "the header: expected at least 784"},
      {"declared size too small", [](Bytes& f) { f.put16(2, 80); }, 2,
       "f.bin: offset 2 (scene block 0 \"common\"): error: the contents take 84 bytes but "
       "aiScenesSize[0] declares 80: the next block would start inside this one"},
      {"overlapping CCT bands",
       [](Bytes& f) { f.put16(kScene0 + 72 + 6, 3000); },  // second band starts inside the first
       kScene0 + 78,
       "f.bin: offset 862 (scene block 0 \"common\", lux band 0, cct band 1): error: CCT band "
       "[3000, 8000] does not follow [2000, 4000]: expected bands in ascending order without "
       "overlap"},
      {"last index not the highest", [](Bytes& f) { f.put16(kScene1 + 64 + 2 + 6 + 4, 0); },
       kScene0 + 84 - 2,
       "f.bin: offset 866 (scene block 0 \"common\", lux band 0, cct band 1): error: block index "
       "1 points past the LUT pool of 1 blocks: the pool holds the last scene CCT record's index "
       "plus one, so that record must carry the highest index"},
      {"LUT pool inside the parameter data", [](Bytes& f) { f.put16(8, uint16_t(kPools - 1)); }, 8,
       "f.bin: offset 8 (header, lutDataOffset): error: LUT pool at 963 overlaps the parameter "
       "data: expected at least 964"},
      {"pools cut short", [](Bytes& f) { f.b.pop_back(); }, kPools,
       "f.bin: offset 964 (pools): error: file ends at byte 45212 but 3 LUT and 1 shading blocks "
       "needs bytes 964..45212"},
      {"zero zoom ratio", [](Bytes& f) { std::memset(&f.b[kZoom0], 0, 4); }, kZoom0,
       "f.bin: offset 946 (zoom block 0 (0)): error: zoom ratio 0: expected a positive finite "
       "number"},
      {"name without NUL", [](Bytes& f) { std::memset(&f.b[kScene1], 'n', 64); }, kScene1,
       "f.bin: offset 868 (scene block 1): error: the scene name is not NUL-terminated within "
       "its 64 bytes"},
  };
  for (const auto& c : cases) {
    Bytes f = goodFile();
    c.breakIt(f);
    const ReadResult r = readCalibration(f.b);
    EXPECT_FALSE(r.ok()) << c.what;
    bool found = false;
    for (const Issue& i : r.issues)
      if (formatIssue("f.bin", i) == c.expected) {
        found = true;
        EXPECT_EQ(i.offset, c.offset) << c.what;
      }
    EXPECT_TRUE(found) << c.what << ":\n" << messages(r);
  }
}

TEST(CalibrationReader, OddButLegalShapesOnlyWarn) {
  struct Case {
    const char* what;
    void (*change)(Bytes&);
    const char* expected;
  } cases[] = {
      {"lut3d_size 33", [](Bytes& f) { f.put16(10, 33); },
       "f.bin: offset 10 (header, lut3d_size): warning: lut3d_size is 33; blocks are cut as "
       "17x17x17 (14739 bytes) whatever it says"},
      {"trailing bytes", [](Bytes& f) { f.fill(5); },
       "f.bin: offset 45213 (pools): warning: 5 bytes after the last pool block are never read"},
      {"unknown scene", [](Bytes& f) { std::memcpy(&f.b[kScene1], "dusk\0", 5); },
       "f.bin: offset 868 (scene block 1 \"dusk\"): warning: the camera never reports this "
       "scene (it reports common, plants, night, sunrise_sunset, food, protrait)"},
      {"repeated scene", [](Bytes& f) { std::memcpy(&f.b[kScene1], "common\0", 7); },
       "f.bin: offset 868 (scene block 1 \"common\"): warning: the scene name repeats: the "
       "loader keeps the first block"},
  };
  for (const auto& c : cases) {
    Bytes f = goodFile();
    c.change(f);
    const ReadResult r = readCalibration(f.b);
    EXPECT_TRUE(r.ok()) << c.what << ":\n" << messages(r);
    ASSERT_EQ(r.issues.size(), 1u) << c.what << ":\n" << messages(r);
    EXPECT_EQ(formatIssue("f.bin", r.issues[0]), c.expected);
  }
}

TEST(CalibrationReader, LargerDeclaredSizeIsKeptAndSkipped) {
  Bytes f = goodFile();
  // Grow scene 0 by 10 unread bytes; everything behind moves along.
  f.b.insert(f.b.begin() + long(kScene1), 10, 0xEE);
  f.put16(2, 94);
  f.put16(8, uint16_t(kPools + 10));
  const ReadResult r = readCalibration(f.b);
  EXPECT_TRUE(r.issues.empty()) << messages(r);
  EXPECT_EQ(r.file.scenes[0].declaredSize, 94);
  EXPECT_EQ(r.file.scenes[1].name, "night");
  EXPECT_EQ(r.layout.sceneOffsets[1], kScene1 + 10);
}
