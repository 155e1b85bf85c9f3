// Session lines: accepted shapes, payload encoding of raw tags, float
// spellings, and the exact messages for bad lines.
#include "session.h"

#include <gtest/gtest.h>
#include <system/camera_metadata.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "failure.h"

using namespace lumo;

namespace {

std::string errorOf(const std::string& line) {
  try {
    parseFrameLine(line, "s.jsonl", 4);
  } catch (const Failure& e) {
    return e.what();
  }
  return "(accepted)";
}

uint32_t bitsOf(float f) {
  uint32_t b;
  std::memcpy(&b, &f, 4);
  return b;
}

}  // namespace

TEST(Session, FullLineIsReadFieldByField) {
  const SessionFrame f = parseFrameLine(
      R"({"instance": "snapshot", "frame": 12, "width": 1920, "height": 1080, "stride": 1984,
          "scanline": 1088, "format": "nv12", "input": "photo.jpg", "output": "out.png",
          "meta": {"cct": 5200, "lux": 412.9, "scene": 13, "faces": 2, "zoom": 2.0,
                   "image_name": "IMG_0001", "stylization": 3}})",
      "s.jsonl", 1);
  EXPECT_EQ(f.instance, InstanceKind::Snapshot);
  EXPECT_EQ(f.frame, 12u);
  EXPECT_EQ(*f.width, 1920u);
  EXPECT_EQ(*f.stride, 1984u);
  EXPECT_EQ(*f.scanline, 1088u);
  EXPECT_EQ(*f.format, PixelFormat::Nv12);
  EXPECT_EQ(*f.input, "photo.jpg");
  EXPECT_EQ(*f.meta.cct, 5200u);
  EXPECT_EQ(*f.meta.lux, 412.9f);
  EXPECT_EQ(*f.meta.scene, 13u);
  EXPECT_EQ(*f.meta.faces, 2u);
  EXPECT_EQ(*f.meta.zoom, 2.0f);
  EXPECT_EQ(*f.meta.imageName, "IMG_0001");
  EXPECT_EQ(*f.meta.stylization, 3);
}

TEST(Session, AbsentKeysStayAbsent) {
  const SessionFrame f = parseFrameLine(R"({"instance": "preview", "meta": {}})", "s.jsonl", 1);
  EXPECT_FALSE(f.meta.cct || f.meta.lux || f.meta.scene || f.meta.faces || f.meta.zoom ||
               f.meta.imageName || f.meta.stylization);
  EXPECT_FALSE(f.input || f.output || f.width || f.format);
}

TEST(Session, FloatSpellings) {
  struct Case {
    const char* json;
    uint32_t bits;
  } cases[] = {
      {"1.5", 0x3fc00000u},       {R"("0x3f800000")", 0x3f800000u}, {R"("inf")", 0x7f800000u},
      {R"("-inf")", 0xff800000u}, {R"("0x00000001")", 0x1u},        {"-0.0", 0x80000000u},
  };
  for (const auto& c : cases) {
    const SessionFrame f = parseFrameLine(
        std::string(R"({"instance":"preview","meta":{"lux":)") + c.json + "}}", "s", 1);
    EXPECT_EQ(bitsOf(*f.meta.lux), c.bits) << c.json;
  }
  const SessionFrame n = parseFrameLine(R"({"instance":"preview","meta":{"zoom":"nan"}})", "s", 1);
  EXPECT_TRUE(std::isnan(*n.meta.zoom));
}

TEST(Session, SceneNamesMapToDetectorIds) {
  struct Case {
    const char* name;
    uint32_t id;
    std::optional<uint32_t> faces;
  } cases[] = {{"common", 0, {}},          {"food", 2, {}},    {"plants", 3, {}}, {"night", 9, {}},
               {"sunrise_sunset", 13, {}}, {"protrait", 0, 1u}};
  for (const auto& c : cases) {
    const SessionFrame f = parseFrameLine(
        std::string(R"({"instance":"preview","meta":{"scene":")") + c.name + "\"}}", "s", 1);
    EXPECT_EQ(*f.meta.scene, c.id) << c.name;
    EXPECT_EQ(f.meta.faces, c.faces) << c.name;
  }
}

TEST(Session, RawTagsCarryExactPayloads) {
  const SessionFrame f = parseFrameLine(
      R"({"instance":"preview","meta":{"tags":{
          "0x1002F": {"type": "f32", "values": ["0x40000000", 1]},
          "ANDROID_STATISTICS_FACE_RECTANGLES": {"type": "i32", "values": [-1, 2, 3]},
          "com.x.short": {"type": "u8", "values": [1, 255]},
          "com.x.u32": {"type": "u32", "values": [4294967295]},
          "com.x.i64": {"type": "i64", "values": ["0xffffffffffffffff"]},
          "com.x.f64": {"type": "f64", "values": ["-inf"]},
          "zentor.snapshot.imageName": {"type": "string", "values": "IMG"}}}})",
      "s", 1);
  ASSERT_EQ(f.meta.tags.size(), 7u);
  std::map<std::string, RawTag> byKey;
  for (const auto& t : f.meta.tags) byKey[t.key] = t;
  const RawTag& zoom = byKey["0x1002F"];
  EXPECT_EQ(zoom.number, 0x1002Fu);
  EXPECT_EQ(zoom.type, TYPE_FLOAT);
  EXPECT_EQ(zoom.count, 2u);
  EXPECT_EQ(zoom.payload, (std::vector<uint8_t>{0, 0, 0, 0x40, 0, 0, 0x80, 0x3f}));
  const RawTag& faces = byKey["ANDROID_STATISTICS_FACE_RECTANGLES"];
  EXPECT_EQ(faces.number, 0x110006u);
  EXPECT_EQ(faces.count, 3u);
  EXPECT_EQ(faces.payload[0], 0xff);
  EXPECT_EQ(byKey["com.x.short"].payload, (std::vector<uint8_t>{1, 255}));
  EXPECT_FALSE(byKey["com.x.short"].number.has_value());
  EXPECT_EQ(byKey["com.x.u32"].type, TYPE_INT32);
  EXPECT_EQ(byKey["com.x.u32"].payload, (std::vector<uint8_t>{255, 255, 255, 255}));
  EXPECT_EQ(byKey["com.x.i64"].payload, std::vector<uint8_t>(8, 255));
  EXPECT_EQ(byKey["com.x.f64"].type, TYPE_DOUBLE);
  EXPECT_EQ(byKey["com.x.f64"].payload[7], 0xff);
  EXPECT_EQ(byKey["zentor.snapshot.imageName"].payload, (std::vector<uint8_t>{'I', 'M', 'G', 0}));
}

TEST(Session, BadLinesNameFileLineAndField) {
  struct Case {
    const char* line;
    const char* message;
  } cases[] = {
      {R"({"instance": "preview", "colour": 1})",
       "s.jsonl:4: field \"colour\": unknown field (known: instance, frame, width, height, "
       "stride, scanline, format, input, output, meta)"},
      {R"({"frame": 1})", "s.jsonl:4: field \"instance\": missing (\"preview\" or \"snapshot\")"},
      {R"({"instance": "video"})",
       "s.jsonl:4: field \"instance\": expected \"preview\" or \"snapshot\", got \"video\""},
      {R"({"instance": "preview", "meta": {"lux": "bright"}})",
       "s.jsonl:4: field \"meta.lux\": expected a number, \"nan\", \"inf\", \"-inf\" or a bit "
       "pattern such as \"0x3f800000\", got \"bright\""},
      {R"({"instance": "preview", "meta": {"cct": -5}})",
       "s.jsonl:4: field \"meta.cct\": expected an integer in 0..4294967295, got -5"},
      {R"({"instance": "preview", "meta": {"hdr": 1}})",
       "s.jsonl:4: field \"meta.hdr\": unknown field (known: cct, lux, scene, faces, zoom, "
       "image_name, stylization, tags)"},
      {R"({"instance": "preview", "meta": {"tags": {"t": {"type": "u16", "values": []}}}})",
       "s.jsonl:4: field \"meta.tags.t.type\": expected one of u8, i32, u32, f32, i64, f64, "
       "string, got \"u16\""},
      {R"({"instance": "preview", "meta": {"tags": {"t": {"type": "u8", "values": [1, 256]}}}})",
       "s.jsonl:4: field \"meta.tags.t.values[1]\": expected an integer in 0..255, got 256"},
      {R"({"instance": "preview", "format": "yuv"})",
       "s.jsonl:4: field \"format\": expected \"nv21\", \"nv12\" or \"rgba\", got \"yuv\""},
      {R"({"instance": "preview", "width": 0})",
       "s.jsonl:4: field \"width\": expected an integer in 1..65536, got 0"},
      {R"([1, 2])", "s.jsonl:4: expected one JSON object per line, got [1,2]"},
  };
  for (const auto& c : cases) EXPECT_EQ(errorOf(c.line), c.message);
  const std::string malformed = errorOf(R"({"instance": "preview",)");
  EXPECT_EQ(malformed.rfind("s.jsonl:4: malformed JSON: parse error", 0), 0u) << malformed;
}

TEST(Session, FileNumbersFramesAndSkipsBlankLines) {
  const auto path = std::filesystem::temp_directory_path() / "lumo_session_test.jsonl";
  std::ofstream(path) << R"({"instance":"preview"})"
                      << "\n\n"
                      << R"({"instance":"preview","frame":10})"
                      << "\r\n"
                      << R"({"instance":"snapshot"})"
                      << "\n";
  const auto frames = readSession(path.string());
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0].frame, 0u);
  EXPECT_EQ(frames[1].frame, 10u);
  EXPECT_EQ(frames[2].frame, 11u);
  EXPECT_EQ(frames[2].line, 4u);
  std::ofstream(path) << R"({"instance":"preview"})"
                      << "\n"
                      << R"({"instance":"x"})"
                      << "\n";
  try {
    readSession(path.string());
    ADD_FAILURE() << "accepted";
  } catch (const Failure& e) {
    EXPECT_EQ(std::string(e.what()).rfind(path.string() + ":2: field \"instance\"", 0), 0u);
  }
  std::filesystem::remove(path);
}
