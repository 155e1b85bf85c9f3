// Black-box tests with the real plugin: the bundled demo, and a replay whose
// parameter and image dumps land under the device root and read back.
#include <gtest/gtest.h>

#include <cmath>

#include "image_files.h"
#include "tool_runner.h"

using namespace lumo_test;

class RealPluginCli : public ToolTest {};

TEST_F(RealPluginCli, DemoWritesPairsDumpsAndTheTable) {
  const Outcome o = lumo("demo --out demo --size 160 120");
  ASSERT_EQ(o.status, 0) << o.err;
  size_t before = 0, after = 0, dumps = 0;
  for (const std::string& f : files("demo"))
    ++(f.ends_with("_before.png") ? before : f.ends_with(".png") ? after : dumps);
  EXPECT_EQ(before, 11u);
  EXPECT_EQ(after, 11u);
  EXPECT_EQ(dumps, 6u + 1u);  // one exif file per snapshot, one for the preview instance
  for (const char* scene : {"common", "plants", "night", "sunrise_sunset", "food", "protrait"})
    EXPECT_GE(countOf(o.out, scene), 2u) << scene << "\n" << o.out;
  EXPECT_NE(o.out.find("blend, mostly"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("golden_hour"), std::string::npos) << o.out;
  // The looks visibly change the pictures.
  const lumo::Image a = lumo::readImage(path("demo/05_snapshot_food.png"));
  const lumo::Image b = lumo::readImage(path("demo/05_snapshot_food_before.png"));
  ASSERT_EQ(a.bytes.size(), b.bytes.size());
  double sum = 0;
  for (size_t i = 0; i < a.bytes.size(); ++i)
    if (i % 4 != 3) sum += std::abs(a.bytes[i] - b.bytes[i]);
  EXPECT_GT(sum / (a.bytes.size() * 3 / 4), 3.0);
}

TEST_F(RealPluginCli, ReplayDumpsParametersAndImagesUnderTheDeviceRoot) {
  fs::create_directories(dir / "dev/odm/etc/camera");
  ASSERT_EQ(lumo("calib build '" LUMO_EXAMPLES_DIR
                 "/demo_looks.json' -o dev/odm/etc/camera/lumo_filter_param.bin")
                .status,
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
  const fs::path dumps = dir / "dev/data/vendor/camera";
  const std::string exif = readText(dumps / "IMG_7_lumo_filter_OfflineSnapshot_exif.txt");
  EXPECT_EQ(
      exif.rfind("width=64\nheight=48\naiscene=food\nlux=412\ncct=4464\nzoom_ratio=2.000000\n", 0),
      0u)
      << exif.substr(0, 200);
  // The input dump is named with its geometry and holds, pixel for pixel, the
  // full-range BT.601 luma of the picture handed to the plugin.
  const lumo::Image dumped = lumo::readImage(
      (dumps / "IMG_7_[lumofilter]_OfflineSnapshot_frame[4]_input_64x48_128.nv21").string());
  EXPECT_EQ(dumped.geometry.stride, 128u);
  ASSERT_EQ(lumo("generate food -o food.png --width 64 --height 48").status, 0);
  const lumo::Image food = lumo::readImage(path("food.png"));
  int worst = 0;
  for (uint32_t y = 0; y < 48; ++y)
    for (uint32_t x = 0; x < 64; ++x) {
      const uint8_t* p = food.row(y) + 4 * x;
      const int expected = int(std::floor(0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2] + 0.5));
      worst = std::max(worst, std::abs(expected - int(dumped.row(y)[x])));
    }
  EXPECT_EQ(worst, 0);
}
