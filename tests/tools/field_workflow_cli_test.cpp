// Black-box tests of the built `lumo` on what a camera engineer brings from the
// field: raw dumps examined with `yuv info`, a device's dump folder turned
// back into a session, ordinary photos of any size, and outputs that are
// exactly what was asked for (or an error naming the user's file).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>

#include "image_files.h"
#include "tool_runner.h"
#include "yuv_convert.h"

using namespace lumo_test;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

// A 40x30 NV21 picture in a buffer of stride 64 and scanline 32, bytes varied.
lumo::Image paddedPicture() {
  lumo::Image img = lumo::makeImage({lumo::PixelFormat::NV21, 40, 30, 64, 32});
  for (size_t i = 0; i < img.bytes.size(); ++i) img.bytes[i] = uint8_t(i * 7 + i / 64);
  return img;
}

}  // namespace

class YuvInfoCli : public ToolTest {};

// Files examined one by one; the exit status says whether every one adds up.
TEST_F(YuvInfoCli, ReportsGeometryAndFfplayAndWritesAPreview) {
  const lumo::Image picture = paddedPicture();
  write("cap.nv21", std::string(picture.bytes.begin(), picture.bytes.end()));
  write("IMG_2_[lumofilter]_RealTimePreview_frame[3]_output_40x30_64.nv21",
        std::string(64 * 30 + 64 * 15, '\0'));
  write("short_40x30_64.nv21", std::string(100, '\0'));
  lumo::writeImage(path("pic.jpg"), picture);
  expectRuns({
      {"yuv info cap.nv21 --width 40 --height 30",
       0,
       {"ffplay -f rawvideo -pixel_format nv21 -video_size 64x32 -vf crop=40:30:0:0 'cap.nv21'"}},
      {"yuv info 'IMG_2_[lumofilter]_RealTimePreview_frame[3]_output_40x30_64.nv21'",
       0,
       {"image \"IMG_2\", RealTimePreview, frame 3, output"}},
      {"yuv info short_40x30_64.nv21 cap.nv21 --width 40 --height 30",
       1,
       {"100 bytes do not match nv21 40x30 stride 64 scanline 30"}},
      {"yuv info cap.nv21 short_40x30_64.nv21 -o p.png", 2},
      {"yuv info missing.nv21", 2},
      {"yuv info pic.jpg", 1, {"pic.jpg\n  size      "}},  // no format line: a picture has none
      {"yuv info cap.nv21 --width 40 --height 30 --range studio -o p.png", 2},
  });
  const Outcome o = lumo("yuv info cap.nv21 --width 40 --height 30 --json -o p.png");
  ASSERT_EQ(o.status, 0) << o.err;
  const auto layout = nlohmann::json::parse(o.out)["files"].at(0)["layouts"].at(0);
  EXPECT_EQ(layout["stride"], 64);
  EXPECT_EQ(layout["scanline"], 32);
  // The preview is the picture itself, converted with full-range BT.601.
  const lumo::Image png = lumo::readImage(path("p.png"));
  const lumo::Image expected = lumo::convertImage(picture, lumo::PixelFormat::RGBA);
  EXPECT_EQ(png.geometry.width, 40u);
  EXPECT_EQ(png.bytes, expected.bytes);
}

// Frames from video tools are limited range: black at 16, white at 235.
TEST_F(YuvInfoCli, LimitedRangePreviewsStretchToFullRange) {
  lumo::Image grey = lumo::makeImage({lumo::PixelFormat::NV12, 6, 2, 0, 0});
  const uint8_t luma[] = {16, 126, 235, 16, 126, 235};
  for (uint32_t y = 0; y < 2; ++y) std::memcpy(grey.row(y), luma, 6);
  write("v_6x2_6.nv12", std::string(grey.bytes.begin(), grey.bytes.end()));
  // range, expected red of each of the three columns
  const std::pair<const char*, std::array<int, 3>> cases[] = {
      {"", {16, 126, 235}}, {"--range full", {16, 126, 235}}, {"--range limited", {0, 128, 255}}};
  for (const auto& [range, red] : cases) {
    SCOPED_TRACE(range);
    const Outcome o = lumo(std::string("yuv info v_6x2_6.nv12 -o v.png ") + range);
    ASSERT_EQ(o.status, 0) << o.err;
    // A note unless the range is given.
    EXPECT_EQ(o.err.find("YUV taken as full range (0..255)") == std::string::npos, *range != '\0');
    const lumo::Image png = lumo::readImage(path("v.png"));
    for (int x = 0; x < 3; ++x) EXPECT_NEAR(png.row(1)[4 * x], red[size_t(x)], 1) << x;
  }
}

#ifdef LUMO_REAL_PLUGIN
class FromDumpsCli : public ToolTest {
protected:
  // Replays `session` with both instances dumping into ROOT/data/vendor/camera.
  Outcome replayDumping(const std::string& session, const std::string& root, const std::string& out,
                        const std::string& options = "") const {
    fs::create_directories(dir / root / "odm/etc/camera");
    fs::copy_file(dir / "calib.bin", dir / root / "odm/etc/camera/lumo_filter_param.bin");
    return lumo("replay " + session + " --device-root " + root + " --out " + out +
                " --prop persist.vendor.camera.lumofilter.dumpMode=3" + options);
  }
  // Dump files by name, the preview text dump under one name (its time stamp differs).
  std::map<std::string, std::string> dumps(const std::string& root) const {
    std::map<std::string, std::string> out;
    for (const std::string& f : files(root + "/data/vendor/camera"))
      out[f.starts_with("lumo_filter_RealTimePreview_") ? "preview text" : f] =
          readText(dir / root / "data/vendor/camera" / f);
    return out;
  }
};

// The device's dumps, turned into a session and replayed, give the same dumps
// again, also when frames are read ahead and written behind (--jobs).
TEST_F(FromDumpsCli, ReplayingTheDumpsReproducesThem) {
  ASSERT_EQ(lumo("calib build '" LUMO_EXAMPLES_DIR "/demo_looks.json' -o calib.bin").status, 0);
  write(
      "device.jsonl",
      R"({"instance": "preview", "frame": 3, "width": 64, "height": 48, "stride": 128, "input": "generated:sunset", "meta": {"stylization": 1, "scene": 13, "lux": 120.5, "cct": 3100, "zoom": 1.0}})"
      "\n"
      R"({"instance": "preview", "frame": 4, "width": 64, "height": 48, "input": "generated:plants", "meta": {"stylization": 1, "scene": 3, "lux": 900, "cct": 5200, "zoom": 1.0}})"
      "\n"
      R"({"instance": "snapshot", "frame": 5, "width": 64, "height": 48, "stride": 128, "input": "generated:food", "meta": {"stylization": 1, "scene": 2, "lux": 412.9, "cct": 70000, "zoom": 2, "image_name": "IMG_7"}})"
      "\n"
      R"({"instance": "snapshot", "frame": 6, "width": 64, "height": 48, "input": "generated:portrait", "meta": {"stylization": 1, "faces": 2, "lux": 50, "cct": 4000, "zoom": 1.5, "image_name": "IMG_8"}})"
      "\n");
  Outcome o = replayDumping("device.jsonl", "dev", "out1");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_THAT(o.err, Not(HasSubstr("no calibration file")));
  const fs::path dumped = dir / "dev/data/vendor/camera";
  // The input dump is named with its geometry.
  const lumo::Image input = lumo::readImage(
      (dumped / "IMG_7_[lumofilter]_OfflineSnapshot_frame[5]_input_64x48_128.nv21").string());
  EXPECT_EQ(input.geometry.stride, 128u);
  o = lumo("session from-dumps dev/data/vendor/camera -o again/s.jsonl");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out, "again/s.jsonl: 4 frames (2 preview, 2 snapshot), 0 without recorded values\n");
  EXPECT_EQ(o.err, "");
  o = replayDumping("again/s.jsonl", "dev2", "out2", " --jobs 3");
  ASSERT_EQ(o.status, 0) << o.err;
  const auto first = dumps("dev"), second = dumps("dev2");
  EXPECT_EQ(first.size(), 4u * 2 + 2 + 1);  // image pairs, snapshot texts, the preview text
  for (const auto& [name, bytes] : first) {
    SCOPED_TRACE(name);
    ASSERT_EQ(second.count(name), 1u);
    EXPECT_TRUE(second.at(name) == bytes);
  }
  // The replayed output is the device's output dump, byte for byte.
  EXPECT_EQ(readText(dir / "out2/IMG_7_snapshot_frame5_64x48_128.nv21"),
            first.at("IMG_7_[lumofilter]_OfflineSnapshot_frame[5]_output_64x48_128.nv21"));
}
#endif

class OddPicturesCli : public ToolTest {};

// YUV frames of odd size are padded for the plugin and cropped back; a
// picture is cropped to --width/--height; what generate writes, run reads.
TEST_F(OddPicturesCli, OddSizesPadAndCropBackAndPicturesCrop) {
  ASSERT_EQ(lumo("generate food -o p.png --width 33 --height 17").status, 0);
  ASSERT_EQ(lumo("generate chart -o x.nv21 --width 33 --height 17").status, 0);
  // run options, output size, geometry handed to the plugin (or the error)
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"p.png", "33x17", "34x18/34/18"},
      {"p.png --format nv12 --scanline 20", "33x17", "34x18/34/20"},
      {"p.png --format rgba", "33x17", "33x17/33/17"},
      {"p.png --width 20 --height 9", "20x9", "20x10/20/10"},
      {"x.nv21 --width 33 --height 17", "33x17", "34x18/34/18"},
      {"p.png --height 18", "", "lumo: run: --height: 18 is larger than p.png (33x17)"},
  };
  for (const auto& [args, size, handedOrError] : cases) {
    SCOPED_TRACE(args);
    fs::remove(dir / "log.txt");
    const Outcome o = lumo("run " + args + " -o o.png --logcat log.txt" + kProbe);
    if (size.empty()) {
      EXPECT_EQ(o.status, 2);
      EXPECT_THAT(o.err, HasSubstr("\n" + handedOrError));  // after the calibration note
      EXPECT_EQ(countOf(o.err, "lumo: "), 2u) << o.err;
      continue;
    }
    ASSERT_EQ(o.status, 0) << o.err;
    const lumo::Image out = lumo::readImage(path("o.png"));
    EXPECT_EQ(std::to_string(out.geometry.width) + "x" + std::to_string(out.geometry.height), size);
    EXPECT_THAT(processLine("log.txt"), HasSubstr(" " + handedOrError + " "));
  }
  // With the host's copy, the crop is the centre of the picture itself.
  ASSERT_EQ(lumo("run p.png --format rgba --width 20 --height 9 --stylization 0 -o c.png" + kProbe)
                .status,
            0);
  const lumo::Image picture = lumo::readImage(path("p.png")), crop = lumo::readImage(path("c.png"));
  for (uint32_t y = 0; y < 9; ++y)
    EXPECT_EQ(0, std::memcmp(crop.row(y), picture.row(y + 4) + 4 * 6, 20 * 4)) << "row " << y;
}

class OutputsCli : public ToolTest {
protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(lumo("generate food -o p.png --width 40 --height 30").status, 0);
  }
};

// Only files of a kind the tool writes, laid out as their names say; where
// an output cannot go, or an input is a JPEG that ends early, the message
// names the user's file (never the staging folder) and nothing is written.
TEST_F(OutputsCli, WritesOnlyWhatTheNameAsksFor) {
  write("s.jsonl", R"({"instance": "snapshot", "input": "p.png", "output": "x.tiff"})"
                   "\n");
  write("s2.jsonl", R"({"instance": "snapshot", "input": "p.png"})"
                    "\n");
  write("s3.jsonl", R"({"instance": "snapshot", "input": "p.png", "output": "x.png"})"
                    "\n"
                    R"({"instance": "snapshot", "input": "p.png", "output": "x.png/y.png"})"
                    "\n");
  lumo::writeImage(path("p.jpg"), lumo::readImage(path("p.png")));
  write("cut.jpg", readText(dir / "p.jpg").substr(0, fs::file_size(dir / "p.jpg") / 2));
  // command, exit status, file it writes (empty: none), text stderr holds
  const std::tuple<std::string, int, std::string, std::string> cases[] = {
      {"run cut.jpg -o o.png", 1, "",
       "cut.jpg: truncated or damaged JPEG: Premature end of JPEG file"},
      {"replay s2.jsonl --out /proc", 1, "", "lumo: /proc: cannot write output files there"},
      {"replay s3.jsonl --out out", 1, "",
       "lumo: s3.jsonl:2: field \"output\": \"x.png/y.png\" needs \"x.png\" as a folder, but "
       "line 1 writes it as a file\n"},
      {"run p.png -o x.tiff", 2, "", "cannot tell what to write from \".tiff\""},
      {"run p.png -o noext", 2, "", "from no extension (known: .png, .jpg, .jpeg, .nv21"},
      {"replay s.jsonl --out out", 1, "",
       "lumo: s.jsonl:1: field \"output\": \"x.tiff\": cannot tell what to write"},
      {"generate chart --width 40 --height 30 -o g_40x30_64.nv21", 0, "g_40x30_64.nv21", ""},
      {"generate chart --width 40 --height 30 -o g_8x8.nv21", 1, "",
       "g_8x8.nv21: the name says 8x8, the picture is 40x30"},
      {"generate chart --width 33 --height 17 -o x.nv21", 0, "x.nv21",
       "x.nv21 holds nv21 33x17 stride 34 scanline 17: read it with --width 33 --height 17"},
  };
  for (const auto& [args, status, written, said] : cases) {
    SCOPED_TRACE(args);
    const auto before = files("");
    const Outcome o = lumo(args + kProbe.substr(args.starts_with("generate") ? kProbe.size() : 0));
    EXPECT_EQ(o.status, status) << o.err;
    EXPECT_THAT(o.err, HasSubstr(said));
    EXPECT_THAT(o.err, Not(HasSubstr(".lumo-staging")));
    auto now = files("");
    if (!written.empty()) {
      EXPECT_EQ(std::count(now.begin(), now.end(), written), 1);
      now.erase(std::find(now.begin(), now.end(), written));
    }
    EXPECT_EQ(now, before);
  }
  // The layout the name asked for, and run reads it back without options.
  EXPECT_EQ(lumo::readImage(path("g_40x30_64.nv21")).geometry.stride, 64u);
  EXPECT_EQ(lumo("run g_40x30_64.nv21 -o back.png" + kProbe).status, 0);
}
