// Raw dump layouts: geometry from the name or the options, the rest from the
// file size with the usual camera alignments, and what `yuv info` makes of it
// (the arithmetic it checks and an ffplay frame size that covers the file).
#include <gtest/gtest.h>

#include <regex>

#include "failure.h"
#include "image_files.h"
#include "tool_runner.h"
#include "yuv_info.h"

using namespace lumo;
using lumo_test::ScratchTest;

namespace {

const std::regex kFfplay(
    "ffplay -f rawvideo -pixel_format (\\w+) -video_size (\\d+)x(\\d+)"
    "(?: -vf crop=(\\d+):(\\d+):0:0)? (.*)");

struct Expected {
  uint32_t width, height, stride, scanline;
  bool tight;
};

}  // namespace

class RawLayoutTest : public ScratchTest {};

// name, file size, the layout found first (or nullopt) and text the first problem holds.
TEST_F(RawLayoutTest, InspectFindsTheLayoutOrSaysWhatDoesNotAddUp) {
  const std::tuple<std::string, uint64_t, std::optional<Expected>, std::string> cases[] = {
      {"IMG_1_[lumofilter]_OfflineSnapshot_frame[7]_input_40x30_64.nv21", 64 * 30 + 64 * 15,
       Expected{40, 30, 64, 30, false}, ""},
      {"a_width_40_height_30_stride_64_scanline_32.nv12", 64 * 32 + 64 * 15,
       Expected{40, 30, 64, 32, true}, ""},
      {"b_40x30.nv21", 64 * 32 * 3 / 2, Expected{40, 30, 64, 32, false}, ""},
      {"c_33x17.nv21", 34 * 17 + 34 * 9, Expected{33, 17, 34, 17, false}, ""},
      {"l_40x30_64_32.nv21", 64 * 32 + 64 * 16, Expected{40, 30, 64, 32, false}, ""},
      {"it's_40x30_64.nv21", 64 * 45, Expected{40, 30, 64, 30, false}, ""},
      {"d.nv21", 640 * 480 * 3 / 2, Expected{640, 480, 640, 480, false}, ""},
      {"e_10x4.rgba", 16 * 4 * 4, Expected{10, 4, 16, 4, false}, ""},
      {"g_40x30_64.nv21", 64 * 32 * 3 / 2 + 64 * 3, std::nullopt, "do not match"},
      {"h_40x30_32.nv21", 2000, std::nullopt, "stride 32 is below the width 40"},
      {"i.nv21", 12345, std::nullopt, "fit no common camera picture size"},
      {"j_40x30_64.png", 64 * 45, std::nullopt, "not a raw dump"},
  };
  for (const auto& [name, bytes, expected, problem] : cases) {
    SCOPED_TRACE(name);
    write(name, std::string(bytes, '\1'));
    const YuvInfo info = inspectRaw(path(name), {});
    EXPECT_EQ(info.bytes, bytes);
    if (!expected) {
      EXPECT_FALSE(info.ok());
      ASSERT_FALSE(info.problems.empty());
      EXPECT_NE(info.problems.front().find(problem), std::string::npos) << info.problems.front();
      continue;
    }
    ASSERT_TRUE(info.ok()) << describeInfo(info);
    const Geometry& g = info.layouts.front().geometry;
    EXPECT_EQ(std::tuple(g.width, g.height, g.stride, g.scanline, info.layouts.front().tight),
              std::tuple(expected->width, expected->height, expected->stride, expected->scanline,
                         expected->tight));
    // The frame ffplay reads (video_size of the format) is exactly the file,
    // and the crop is the picture; a chroma plane cut short after padding
    // rows fits no frame.
    std::string why;
    const std::string cmd = ffplayCommand(info, &why);
    std::smatch m;
    if (expected->tight) {
      EXPECT_EQ(cmd, "");
      EXPECT_NE(why.find("padding rows"), std::string::npos) << why;
    } else {
      ASSERT_TRUE(std::regex_match(cmd, m, kFfplay)) << cmd;
      const uint64_t w = std::stoull(m[2]), h = std::stoull(m[3]);
      EXPECT_EQ(m[1] == "rgba" ? w * h * 4 : w * h + w * ((h + 1) / 2), bytes);
      EXPECT_EQ(m[4].matched ? std::stoul(m[4]) : w, g.width);
      EXPECT_EQ(m[5].matched ? std::stoul(m[5]) : h, g.height);
      // The path survives the shell as one word.
      EXPECT_EQ(std::system(("test -f " + m[6].str()).c_str()), 0) << m[6];
    }
    // Whatever was found, the raw reader takes the same layout from the same
    // file; it does not guess picture sizes.
    if (info.widthFrom == "guess") continue;
    const Image read = readImage(path(name));
    EXPECT_EQ(read.geometry.stride, g.stride);
    EXPECT_EQ(read.geometry.scanline, g.scanline);
  }
}
