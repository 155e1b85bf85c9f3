// Session lines: the fields of a full line, float spellings, scene names and
// payloads of raw tags. The messages for bad lines are checked through the tool.
#include "session.h"

#include <gtest/gtest.h>
#include <system/camera_metadata.h>

#include <bit>
#include <cmath>

using namespace lumo;

namespace {

SessionFrame parse(const std::string& line) { return parseFrameLine(line, "s.jsonl", 4); }
SessionFrame withMeta(const std::string& meta) {
  return parse(R"({"instance": "preview", "meta": {)" + meta + "}}");
}

}  // namespace

TEST(Session, FullLineIsReadFieldByField) {
  const SessionFrame f = parse(
      R"({"instance": "snapshot", "frame": 12, "width": 1920, "height": 1080, "stride": 1984,
          "scanline": 1088, "format": "nv12", "input": "photo.jpg", "output": "out.png"})");
  EXPECT_EQ(f.instance, InstanceKind::Snapshot);
  EXPECT_EQ(f.frame, 12u);
  EXPECT_EQ(f.width, 1920u);
  EXPECT_EQ(f.height, 1080u);
  EXPECT_EQ(f.stride, 1984u);
  EXPECT_EQ(f.scanline, 1088u);
  EXPECT_EQ(f.format, PixelFormat::Nv12);
  EXPECT_EQ(f.input, "photo.jpg");
  EXPECT_EQ(f.output, "out.png");
}

TEST(Session, FloatSpellingsGiveExactBits) {
  struct Case {
    const char* json;
    uint32_t bits;
  } cases[] = {
      {"1.5", 0x3fc00000u},       {R"("0x3f800000")", 0x3f800000u}, {R"("inf")", 0x7f800000u},
      {R"("-inf")", 0xff800000u}, {R"("0x00000001")", 0x1u},        {"-0.0", 0x80000000u},
  };
  for (const auto& c : cases)
    EXPECT_EQ(std::bit_cast<uint32_t>(*withMeta(std::string(R"("lux": )") + c.json).meta.lux),
              c.bits)
        << c.json;
  EXPECT_TRUE(std::isnan(*withMeta(R"("zoom": "nan")").meta.zoom));
}

TEST(Session, SceneNamesMapToDetectorIds) {
  struct Case {
    const char* name;
    uint32_t id;
    std::optional<uint32_t> faces;
  } cases[] = {{"common", 0, {}},          {"food", 2, {}},    {"plants", 3, {}}, {"night", 9, {}},
               {"sunrise_sunset", 13, {}}, {"protrait", 0, 1u}};
  for (const auto& c : cases) {
    const SessionFrame f = withMeta(std::string(R"("scene": ")") + c.name + "\"");
    EXPECT_EQ(f.meta.scene, c.id) << c.name;
    EXPECT_EQ(f.meta.faces, c.faces) << c.name;
  }
}

TEST(Session, RawTagsCarryExactPayloads) {
  const SessionFrame f = withMeta(R"("tags": {
      "0x1002F": {"type": "f32", "values": ["0x40000000", 1]},
      "ANDROID_STATISTICS_FACE_RECTANGLES": {"type": "i32", "values": [-1, 2]},
      "com.x.f64": {"type": "f64", "values": ["-inf"]},
      "com.x.i64": {"type": "i64", "values": ["0xffffffffffffffff"]},
      "com.x.short": {"type": "u8", "values": [1, 255]},
      "com.x.u32": {"type": "u32", "values": [4294967295]},
      "zentor.snapshot.imageName": {"type": "string", "values": "IMG"}})");
  // Written in key order, the order the tags come back in.
  using B = std::vector<uint8_t>;
  struct Case {
    const char* key;
    std::optional<uint32_t> number;  // none: looked up by name in the vendor tags
    uint8_t type;
    size_t count;
    B payload;
  } cases[] = {
      {"0x1002F", 0x1002Fu, TYPE_FLOAT, 2, {0, 0, 0, 0x40, 0, 0, 0x80, 0x3f}},
      {"ANDROID_STATISTICS_FACE_RECTANGLES",
       0x110006u,
       TYPE_INT32,
       2,
       {255, 255, 255, 255, 2, 0, 0, 0}},
      {"com.x.f64", {}, TYPE_DOUBLE, 1, {0, 0, 0, 0, 0, 0, 0xf0, 0xff}},
      {"com.x.i64", {}, TYPE_INT64, 1, B(8, 255)},
      {"com.x.short", {}, TYPE_BYTE, 2, {1, 255}},
      {"com.x.u32", {}, TYPE_INT32, 1, B(4, 255)},
      {"zentor.snapshot.imageName", {}, TYPE_BYTE, 4, {'I', 'M', 'G', 0}},
  };
  ASSERT_EQ(f.meta.tags.size(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    const RawTag& t = f.meta.tags[i];
    SCOPED_TRACE(cases[i].key);
    EXPECT_EQ(t.key, cases[i].key);
    EXPECT_EQ(t.number, cases[i].number);
    EXPECT_EQ(t.type, cases[i].type);
    EXPECT_EQ(t.count, cases[i].count);
    EXPECT_EQ(t.payload, cases[i].payload);
  }
}
