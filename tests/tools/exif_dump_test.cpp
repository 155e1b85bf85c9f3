// Reading the plugin's parameter dumps: nine-line preview blocks with frame
// numbers, eight-line snapshot blocks without.
#include "exif_dump.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace lumo;

namespace {

std::string lutLine(int first, int count) {
  std::string s = "lut_algo_input=[";
  for (int i = 0; i < count; ++i) s += " " + std::to_string((first + i) % 256);
  return s + "]\n";
}

}  // namespace

TEST(ExifDump, PreviewBlocksAreSplitAtFrameNumbers) {
  const auto path = std::filesystem::temp_directory_path() / "lumo_exif_preview.txt";
  std::ofstream(path) << "frameNum=3\nwidth=64\nheight=48\naiscene=night\nlux=10\ncct=4200\n"
                         "zoom_ratio=1.000000\nshading=[ 0 0 0 0 0 0 0 0]\n"
                      << lutLine(250, 10)
                      << "frameNum=4\nwidth=64\nheight=48\naiscene=food\nlux=412\ncct=4464\n"
                         "zoom_ratio=2.000000\nshading=[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]\n"
                      << lutLine(0, 3);
  const auto blocks = readExifDump(path.string());
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0].frameNum, 3u);
  EXPECT_EQ(blocks[0].aiscene, "night");
  EXPECT_EQ(blocks[0].lut, (std::vector<uint8_t>{250, 251, 252, 253, 254, 255, 0, 1, 2, 3}));
  EXPECT_EQ(blocks[1].frameNum, 4u);
  EXPECT_EQ(blocks[1].cct, "4464");
  EXPECT_EQ(blocks[1].zoomRatio, "2.000000");
  EXPECT_EQ(blocks[1].shading, "[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]");
  std::filesystem::remove(path);
}

TEST(ExifDump, SnapshotBlocksHaveNoFrameNumber) {
  const auto path = std::filesystem::temp_directory_path() / "lumo_exif_snapshot.txt";
  std::ofstream(path) << "width=8\nheight=6\naiscene=protrait\nlux=0\ncct=0\nzoom_ratio=0.000000\n"
                         "shading=[ 0 0 0 0 0 0 0 0]\n"
                      << lutLine(7, 2) << "width=9\nheight=7\naiscene=common\n";
  const auto blocks = readExifDump(path.string());
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_FALSE(blocks[0].frameNum.has_value());
  EXPECT_EQ(blocks[0].width, "8");
  EXPECT_EQ(blocks[0].lut, (std::vector<uint8_t>{7, 8}));
  EXPECT_EQ(blocks[1].width, "9");
  EXPECT_TRUE(blocks[1].lut.empty());
  EXPECT_TRUE(readExifDump("/nonexistent/x_exif.txt").empty());
  std::filesystem::remove(path);
}
