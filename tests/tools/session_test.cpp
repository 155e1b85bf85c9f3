// Text the tool reads: session lines (float spellings, scene names, payloads
// of raw tags; bad lines are checked through the tool) and the plugin's
// parameter dumps (nine-line preview blocks, eight-line snapshot blocks).
#include "session.h"

#include <gtest/gtest.h>
#include <system/camera_metadata.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "exif_dump.h"
#include "tool_runner.h"

using namespace lumo;

namespace {

SessionFrame withMeta(const std::string& meta) {
  return parseFrameLine(R"({"instance": "preview", "meta": {)" + meta + "}}", "s.jsonl", 4);
}

}  // namespace

TEST(Session, FloatSpellingsAndSceneNames) {
  const std::pair<const char*, uint32_t> floats[] = {
      {"1.5", 0x3fc00000u},       {R"("0x3f800000")", 0x3f800000u}, {R"("inf")", 0x7f800000u},
      {R"("-inf")", 0xff800000u}, {R"("0x00000001")", 0x1u},        {"-0.0", 0x80000000u}};
  for (const auto& [json, bits] : floats)
    EXPECT_EQ(std::bit_cast<uint32_t>(*withMeta(std::string(R"("lux": )") + json).meta.lux), bits)
        << json;
  EXPECT_TRUE(std::isnan(*withMeta(R"("zoom": "nan")").meta.zoom));
  // The portrait class has no detector id: it is sent as one face over scene 0.
  const std::pair<std::string, uint32_t> scenes[] = {{"common", 0},          {"food", 2},
                                                     {"plants", 3},          {"night", 9},
                                                     {"sunrise_sunset", 13}, {"protrait", 0}};
  for (const auto& [name, id] : scenes) {
    const FrameMeta m = withMeta(R"("scene": ")" + name + "\"").meta;
    EXPECT_EQ(m.scene, id) << name;
    EXPECT_EQ(m.faces, name == "protrait" ? std::optional(1u) : std::nullopt) << name;
  }
}

// Tags as "number type xcount payload" (types: 0 byte, 1 int32, 2 float, 3 int64, 4 double);
// "-" is a name left for the vendor tag table to resolve.
TEST(Session, RawTagsCarryExactPayloads) {
  const SessionFrame f = withMeta(R"("tags": {
      "0x1002F": {"type": "f32", "values": ["0x40000000", 1]},
      "ANDROID_STATISTICS_FACE_RECTANGLES": {"type": "i32", "values": [-1, 2]},
      "com.x.f64": {"type": "f64", "values": ["-inf"]},
      "com.x.i64": {"type": "i64", "values": ["0xffffffffffffffff"]},
      "com.x.short": {"type": "u8", "values": [1, 255]},
      "com.x.u32": {"type": "u32", "values": [4294967295]},
      "zentor.snapshot.imageName": {"type": "string", "values": "IMG"}})");
  // In key order, the order the tags come back in.
  const std::vector<std::string> want = {"0x1002f 2 x2 000000400000803f",
                                         "0x110006 1 x2 ffffffff02000000",
                                         "- 4 x1 000000000000f0ff",
                                         "- 3 x1 ffffffffffffffff",
                                         "- 0 x2 01ff",
                                         "- 1 x1 ffffffff",
                                         "- 0 x4 494d4700"};
  std::vector<std::string> got;
  for (const RawTag& t : f.meta.tags) {
    char head[40];
    std::snprintf(head, sizeof head, "%#x %u x%zu ", t.number.value_or(0), t.type, t.count);
    std::string text = t.number ? head : "-" + std::string(std::strchr(head, ' '));
    for (uint8_t b : t.payload) text += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    got.push_back(text);
  }
  EXPECT_EQ(got, want);
}

class ExifDump : public lumo_test::ScratchTest {};

// One line per block: frame|width|height|aiscene|lux|cct|zoom|shading|lut bytes.
TEST_F(ExifDump, BlocksSplitAtFrameNumbersOrAtWidth) {
  const std::string lut = "lut_algo_input=[ 250 251 252 253 254 255 0 1 2 3]\n";
  write("preview.txt",
        "frameNum=3\nwidth=64\nheight=48\naiscene=night\nlux=10\ncct=4200\n"
        "zoom_ratio=2.000000\nshading=[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]\n" +
            lut + "frameNum=4\nwidth=64\naiscene=food\n");
  write("snapshot.txt",
        "width=8\nheight=6\naiscene=protrait\n" + lut + "width=9\naiscene=common\n");
  const auto blocks = [&](const char* file) {
    std::string out;
    for (const ExifBlock& b : readExifDump(path(file))) {
      out += (b.frameNum ? std::to_string(*b.frameNum) : "-") + "|" + b.width + "|" + b.height +
             "|" + b.aiscene + "|" + b.lux + "|" + b.cct + "|" + b.zoomRatio + "|" + b.shading +
             "|";
      for (uint8_t v : b.lut) out += std::to_string(v) + " ";
      out += "\n";
    }
    return out;
  };
  const std::string bytes = "250 251 252 253 254 255 0 1 2 3 \n";
  EXPECT_EQ(blocks("preview.txt"),
            "3|64|48|night|10|4200|2.000000|[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]|" + bytes +
                "4|64||food|||||\n");
  EXPECT_EQ(blocks("snapshot.txt"), "-|8|6|protrait|||||" + bytes + "-|9||common|||||\n");
  EXPECT_EQ(blocks("missing_exif.txt"), "");
}
