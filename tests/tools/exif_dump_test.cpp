// Reading the plugin's parameter dumps: nine-line preview blocks with frame
// numbers, eight-line snapshot blocks without.
#include "exif_dump.h"

#include <gtest/gtest.h>

#include "tool_runner.h"

using namespace lumo;

class ExifDump : public lumo_test::ScratchTest {};

TEST_F(ExifDump, BlocksSplitAtFrameNumbersOrAtWidth) {
  const std::string lut = "lut_algo_input=[ 250 251 252 253 254 255 0 1 2 3]\n";
  write("preview.txt",
        "frameNum=3\nwidth=64\nheight=48\naiscene=night\nlux=10\ncct=4200\n"
        "zoom_ratio=1.000000\nshading=[ 0 0 0 0 0 0 0 0]\n" +
            lut +
            "frameNum=4\nwidth=64\nheight=48\naiscene=food\nlux=412\ncct=4464\n"
            "zoom_ratio=2.000000\nshading=[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]\n"
            "lut_algo_input=[ 0 1 2]\n");
  write("snapshot.txt",
        "width=8\nheight=6\naiscene=protrait\nlux=0\ncct=0\nzoom_ratio=0.000000\n"
        "shading=[ 0 0 0 0 0 0 0 0]\n" +
            lut + "width=9\nheight=7\naiscene=common\n");
  const auto preview = readExifDump(path("preview.txt"));
  ASSERT_EQ(preview.size(), 2u);
  EXPECT_EQ(preview[0].frameNum, 3u);
  EXPECT_EQ(preview[0].aiscene, "night");
  EXPECT_EQ(preview[0].lut, (std::vector<uint8_t>{250, 251, 252, 253, 254, 255, 0, 1, 2, 3}));
  EXPECT_EQ(preview[1].frameNum, 4u);
  EXPECT_EQ(preview[1].cct, "4464");
  EXPECT_EQ(preview[1].zoomRatio, "2.000000");
  EXPECT_EQ(preview[1].shading, "[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]");
  const auto snapshot = readExifDump(path("snapshot.txt"));
  ASSERT_EQ(snapshot.size(), 2u);
  EXPECT_FALSE(snapshot[0].frameNum.has_value());
  EXPECT_EQ(snapshot[0].width, "8");
  EXPECT_EQ(snapshot[0].lut.size(), 10u);
  EXPECT_EQ(snapshot[1].width, "9");
  EXPECT_TRUE(snapshot[1].lut.empty());
  EXPECT_TRUE(readExifDump(path("missing_exif.txt")).empty());
}
