// Black-box tests with the real plugin: the bundled demo, and a replay whose
// parameter and image dumps land under the device root and read back.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "image.h"
#include "image_files.h"
#include "tool_runner.h"

using namespace lumo_test;
namespace fs = std::filesystem;

class RealPluginCli : public ToolTest {};

namespace {

// Mean absolute difference of the RGB bytes of two same-size pictures.
double meanDifference(const lumo::Image& a, const lumo::Image& b) {
  double sum = 0;
  for (uint32_t y = 0; y < a.geometry.height; ++y)
    for (uint32_t x = 0; x < a.geometry.width; ++x)
      for (int c = 0; c < 3; ++c) sum += std::abs(a.row(y)[4 * x + c] - b.row(y)[4 * x + c]);
  return sum / (3.0 * a.geometry.width * a.geometry.height);
}

}  // namespace

TEST_F(RealPluginCli, DemoWritesPairsDumpsAndTheTable) {
  const Outcome o = lumo("demo --out demo --size 160 120");
  ASSERT_EQ(o.status, 0) << o.err;
  const auto written = files("demo");
  size_t before = 0, after = 0, dumps = 0;
  for (const std::string& f : written) {
    if (f.ends_with("_before.png"))
      ++before;
    else if (f.ends_with(".png"))
      ++after;
    else if (f.ends_with("_exif.txt"))
      ++dumps;
  }
  EXPECT_EQ(before, 11u);
  EXPECT_EQ(after, 11u);
  EXPECT_EQ(dumps, 6u + 1u);  // one file per snapshot, one for the preview instance
  // Every scene name the plugin knows shows up in the table.
  for (const char* scene : {"common", "plants", "night", "sunrise_sunset", "food", "protrait"})
    EXPECT_GE(countOf(o.out, scene), 2u) << scene << "\n" << o.out;
  EXPECT_NE(o.out.find("blend, mostly"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("golden_hour"), std::string::npos) << o.out;
  // The looks change the pictures.
  const lumo::Image a = lumo::readImage((dir / "demo/05_snapshot_food.png").string());
  const lumo::Image b = lumo::readImage((dir / "demo/05_snapshot_food_before.png").string());
  EXPECT_GT(meanDifference(a, b), 3.0);
}

TEST_F(RealPluginCli, ReplayDumpsParametersAndImagesUnderTheDeviceRoot) {
  const std::string calib = std::string(LUMO_EXAMPLES_DIR) + "/demo_looks.json";
  fs::create_directories(dir / "dev/odm/etc/camera");
  ASSERT_EQ(lumo("calib build '" + calib + "' -o dev/odm/etc/camera/lumo_filter_param.bin").status,
            0);
  write(
      "s.jsonl",
      R"({"instance": "snapshot", "frame": 4, "width": 64, "height": 48, "stride": 128, "input": "generated:food",)"
      R"( "meta": {"stylization": 1, "scene": 2, "lux": 412.9, "cct": 70000, "zoom": 2, "image_name": "IMG_7"}})"
      "\n");
  const Outcome o = lumo(
      "replay s.jsonl --device-root dev --out out "
      "--prop persist.vendor.camera.lumofilter.dumpMode=3");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.err.find("no calibration file"), std::string::npos) << o.err;
  const std::string exif =
      readText(dir / "dev/data/vendor/camera/IMG_7_lumo_filter_OfflineSnapshot_exif.txt");
  EXPECT_EQ(
      exif.rfind("width=64\nheight=48\naiscene=food\nlux=412\ncct=4464\nzoom_ratio=2.000000\n", 0),
      0u)
      << exif.substr(0, 200);
  // The input dump is named with its geometry and reads back as the frame handed to the plugin.
  const fs::path input =
      dir /
      "dev/data/vendor/camera/IMG_7_[lumofilter]_OfflineSnapshot_frame[4]_input_64x48_128.nv21";
  ASSERT_TRUE(fs::exists(input));
  const lumo::Image dumped = lumo::readImage(input.string());
  EXPECT_EQ(dumped.geometry.stride, 128u);
  ASSERT_EQ(lumo("generate food -o food.png --width 64 --height 48").status, 0);
  const lumo::Image food = lumo::readImage((dir / "food.png").string());
  // Luma handed to the plugin is full-range BT.601 of the picture, pixel for pixel.
  int worst = 0;
  for (uint32_t y = 0; y < 48; ++y)
    for (uint32_t x = 0; x < 64; ++x) {
      const uint8_t* p = food.row(y) + 4 * x;
      const int expected = int(std::floor(0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2] + 0.5));
      worst = std::max(worst, std::abs(expected - int(dumped.row(y)[x])));
    }
  EXPECT_EQ(worst, 0);
}
