// A device's dump folder read back into session lines: each input image dump
// is a frame, its values come from the text block of the same frame (preview)
// or image name (snapshot), and whatever cannot be matched is said once.
#include "dump_session.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "failure.h"
#include "tool_runner.h"

using namespace lumo;
using lumo_test::ScratchTest;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

// One text block as the plugin writes it (the LUT line shortened).
std::string block(std::optional<int> frame, const std::string& size, const std::string& scene,
                  const std::string& lux, const std::string& cct, const std::string& zoom) {
  std::string s = frame ? "frameNum=" + std::to_string(*frame) + "\n" : "";
  const auto x = size.find('x');
  return s + "width=" + size.substr(0, x) + "\nheight=" + size.substr(x + 1) +
         "\naiscene=" + scene + "\nlux=" + lux + "\ncct=" + cct + "\nzoom_ratio=" + zoom +
         "\nshading=[ 0 0 0 0 0 0 0 0]\nlut_algo_input=[ 1 2 3]\n";
}

}  // namespace

class DumpSessionTest : public ScratchTest {
protected:
  // An image dump named as the plugin names them, `size` as "WxH_stride".
  void image(const std::string& prefix, const char* instance, int frame, const char* role,
             const std::string& size, size_t bytes) {
    write("d/" + prefix + "_[lumofilter]_" + instance + "_frame[" + std::to_string(frame) + "]_" +
              role + "_" + size + ".nv21",
          std::string(bytes, '\0'));
  }
};

TEST_F(DumpSessionTest, FramesTakeTheValuesOfTheirOwnBlock) {
  fs::create_directories(dir / "d/sub");
  write("d/lumo_filter_RealTimePreview_2026-11-15_10-21-18_exif.txt",
        block(3, "8x4", "night", "20", "3100", "1.000000") +
            block(4, "8x4", "sunrise_sunset", "65535", "4464", "1.500000"));
  write("d/sub/lumo_filter_RealTimePreview_2026-11-15_10-30-00_exif.txt",
        block(4, "8x4", "food", "7", "5000", "1.000000") +
            block(6, "16x8", "portrait", "1", "2", "3.000000"));
  write("d/IMG_1_lumo_filter_OfflineSnapshot_exif.txt",
        block(std::nullopt, "16x8", "protrait", "412", "70000", "2.000000"));
  // Blocks without frame numbers start at their width; a snapshot takes the first.
  write("d/IMG_2_lumo_filter_OfflineSnapshot_exif.txt",
        block(std::nullopt, "16x8", "food", "300", "5000", "1.000000") +
            block(std::nullopt, "16x8", "night", "1", "1", "1.000000"));
  for (int f : {3, 4, 5, 6}) image("", "RealTimePreview", f, "input", "8x4_8", 48);
  image("", "RealTimePreview", 3, "output", "8x4_8", 48);  // outputs are not frames
  for (int f : {7, 8, 9})
    image(f == 7 ? "IMG_1" : "IMG_2", "OfflineSnapshot", f, "input", "16x8_16", 192);
  image("x", "RealTimePreview", 10, "input", "8x4_8", 5);
  write("d/y_[lumofilter]_OfflineSnapshot_frame[11]_input_8x4_8.yuv", std::string(48, '\0'));

  const DumpSession s = sessionFromDumps(path("d"), dir.string(), false);
  // instance, frame, meta (without stylization, always 1)
  const std::tuple<std::string, uint32_t, const char*> expected[] = {
      {"preview", 3, R"({"lux": 20, "cct": 3100, "zoom": 1.0, "scene": "night"})"},
      // The later preview file holds frame 4 too: its block wins, with a warning.
      {"preview", 4, R"({"lux": 7, "cct": 5000, "zoom": 1.0, "scene": "food"})"},
      {"preview", 5, "{}"},
      // "portrait" is no scene the camera reports: left out.
      {"preview", 6, R"({"lux": 1, "cct": 2, "zoom": 3.0})"},
      {"snapshot", 7,
       R"({"lux": 412, "cct": 70000, "zoom": 2.0, "scene": "protrait", "image_name": "IMG_1"})"},
      {"snapshot", 8, R"({"image_name": "IMG_2"})"},
      {"snapshot", 9,
       R"({"lux": 300, "cct": 5000, "zoom": 1.0, "scene": "food", "image_name": "IMG_2"})"},
      {"snapshot", 11, R"({"image_name": "y"})"},
  };
  ASSERT_EQ(s.lines.size(), std::size(expected));
  for (size_t i = 0; i < s.lines.size(); ++i) {
    const auto& [instance, frame, meta] = expected[i];
    SCOPED_TRACE(s.lines[i]);
    json line = json::parse(s.lines[i]);
    EXPECT_EQ(line["instance"], instance);
    EXPECT_EQ(line["frame"], frame);
    EXPECT_EQ(line["meta"]["stylization"], 1);
    line["meta"].erase("stylization");
    EXPECT_EQ(line["meta"], json::parse(meta));
    // Inputs are found from the session's folder; raw outputs name their geometry.
    EXPECT_TRUE(fs::exists(dir / line["input"].get<std::string>()));
    EXPECT_TRUE(line["output"].get<std::string>().ends_with(
        instance == "preview" || frame == 11 ? "_8x4_8.nv21" : "_16x8_16.nv21"));
    // A dump whose name says no format is replayed as NV21, and says so.
    EXPECT_EQ(line.value("format", ""), frame == 11 ? "nv21" : "");
  }
  EXPECT_EQ(std::tuple(s.preview, s.snapshot, s.withoutValues), std::tuple(4u, 4u, 3u));
  // Each thing that did not match is said once, naming the dump.
  for (const char* said :
       {"frame[10]_input_8x4_8.nv21: 5 bytes do not match", "2 preview text blocks hold frame 4",
        "frame[5]_input_8x4_8.nv21: no text dump block", "aiscene \"portrait\"",
        "frame[8]_input_16x8_16.nv21: the text dump of image \"IMG_2\" was rewritten",
        "records 16x8, the image is 8x4", "frame[11]_input_8x4_8.yuv: the name does not say"}) {
    size_t n = 0;
    for (const std::string& w : s.warnings) n += w.find(said) != std::string::npos;
    EXPECT_EQ(n, 1u) << said;
  }
  EXPECT_THROW(sessionFromDumps(path("d/sub"), ".", false), Failure);  // no image dumps there
}
