// Black-box tests of the built `lumo` on what a camera engineer meets in the
// field: per-frame results that say what the plugin did, damaged calibration
// files, usage errors, session files as hosts and editors write them, raw
// dumps examined with `yuv info`, a device's dump folder turned back into a
// session, ordinary photos of any size, and outputs that are exactly what was
// asked for (or an error naming the user's file).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

// A calibration with only the "common" scene, so other scenes have no parameters.
const std::string kCommonOnly = description(R"({"a": {"generate": {"saturation": 1.5}}})");

std::string frameLine(const std::string& instance, const std::string& meta,
                      const std::string& extra = "", int width = 32, int height = 16) {
  return R"({"instance": ")" + instance + R"(", "width": )" + std::to_string(width) +
         R"(, "height": )" + std::to_string(height) + R"(, "input": "generated:chart")" + extra +
         R"(, "meta": {)" + meta + "}}\n";
}

}  // namespace

class FieldCli : public ToolTest {};

#ifdef LUMO_REAL_PLUGIN
// Each frame says whether the plugin filtered it, and if not why, from what it
// did. The plugin rebuilds its script, frame size included, only when its
// selection changes: a smaller frame after a larger one renders with the
// larger one's script, which is flagged; each instance holds its own.
TEST_F(FieldCli, EveryFrameSaysWhatThePluginDid) {
  fs::create_directories(dir / "dev/odm/etc/camera");
  write("d.json", kCommonOnly);
  ASSERT_EQ(lumo("calib build d.json -o dev/odm/etc/camera/lumo_filter_param.bin").status, 0);
  const std::string lit = R"("stylization": 1, "lux": 100, "cct": 4000)";
  const std::string session =
      frameLine("preview", lit, "", 64, 48) + frameLine("preview", R"("stylization": 0)") +
      frameLine("snapshot", R"("stylization": 1, "scene": "common")") +
      frameLine("snapshot", R"("stylization": 1, "scene": "food")") + frameLine("preview", lit) +
      frameLine("snapshot", R"("stylization": 1, "scene": "common")");
  const nlohmann::json held = {{"script", {64, 48}}, {"frame", {32, 16}}};
  fs::create_directories(dir / "empty");
  // device root and options, then per frame "filtered" (+held) or the reason it was copied
  const std::pair<const char*, const char*> cases[] = {
      {"dev", "filtered host-disabled filtered no-scene-parameters filtered+held sticky-bypass"},
      {"dev --prop persist.vendor.camera.lumofilter.bypassMode=1",
       "bypass-switch host-disabled filtered no-scene-parameters bypass-switch sticky-bypass"},
      {"empty",
       "no-calibration host-disabled no-calibration no-calibration no-calibration no-calibration"},
  };
  for (const auto& [options, want] : cases) {
    const Outcome o = replay(session, std::string(" --device-root ") + options + " --json");
    std::string seen;
    for (const auto& f : frames(o))
      seen += (seen.empty() ? "" : " ") +
              (f["plugin"] == "filtered" ? "filtered" : f["reason"].get<std::string>()) +
              (f.value("held_script_size", nlohmann::json()) == held ? "+held" : "");
    EXPECT_EQ(seen, want) << o.err;
  }
  // The table says it too, and never "yes" for a copied frame.
  Outcome o = replay(session, " --device-root dev");
  EXPECT_THAT(o.out, HasSubstr("copied: no parameters for the scene"));
  EXPECT_THAT(o.out, HasSubstr("the calibration has no scene \"food\""));
  EXPECT_THAT(o.out, HasSubstr("lut 0, 0, 0, 0"));
  EXPECT_THAT(o.out, HasSubstr("held script made for 64x48 on a 32x16 frame: "));
  // Any process mode makes its own instance, but the plugin makes no filter for
  // an unknown one: both renders fail, then it stays copying.
  const std::string mode7 = R"({"process_mode": 7, "meta": {"stylization": 1}})"
                            "\n";
  o = replay(mode7 + mode7, " --device-root dev --json");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(frames(o)[0]["instance"], "mode7");
  EXPECT_EQ(frames(o)[0]["reason"], "render-failed");
  EXPECT_EQ(frames(o)[1]["reason"], "sticky-bypass");
  EXPECT_TRUE(fs::exists(dir / "out/frame_000001_mode7.png"));
  // The demo writes each frame before and after, and names no look for a
  // frame the plugin copied.
  const Outcome demo = lumo(
      "demo --out demo --size 32 32 --json --calibration "
      "dev/odm/etc/camera/lumo_filter_param.bin");
  ASSERT_EQ(demo.status, 0) << demo.err;
  for (const auto& f : frames(demo)) {
    const bool common = f["aiscene"] == "common" && f["frame"].get<int>() < 5;
    EXPECT_EQ(f["plugin"]["plugin"], common ? "filtered" : "copied") << f.dump();
    EXPECT_EQ(f["look"].get<std::string>().starts_with("copied: "), !common) << f.dump();
  }
  size_t before = 0, after = 0;
  for (const std::string& f : files("demo")) ++(f.ends_with("_before.png") ? before : after);
  EXPECT_EQ(std::pair(before, after), std::pair(frames(demo).size(), frames(demo).size() + 7));
  // Over the bundled calibration its table names the looks, blends too.
  const Outcome bundled = lumo("demo --out bundled --size 32 32");
  EXPECT_THAT(bundled.out, HasSubstr("blend, mostly teal_orange")) << bundled.err;
}
#endif

// A damaged file gives a bounded, escaped report and valid JSON; build names
// scenes the plugin never asks for.
TEST_F(FieldCli, DamagedCalibrationFilesGiveBoundedEscapedReports) {
  write("d.json", kCommonOnly);
  ASSERT_EQ(lumo("calib build d.json -o good.bin").status, 0);
  const std::string good = readText(dir / "good.bin");
  std::string flipped = good, badName = good;
  flipped[0] = char(flipped[0] ^ 0x80);
  badName[badName.find("common")] = char(0xff);
  write("flipped.bin", flipped);
  write("badname.bin", badName);
  // A scene the camera never reports is built, with a warning naming the right spelling.
  std::string portrait = kCommonOnly;
  write("p.json", portrait.replace(portrait.find("\"common\""), 8, "\"portrait\""));
  // An unreadable name is a warning (the camera never asks for it), not an error.
  expectRuns({
      {"calib check badname.bin", 0, {"\\xffommon"}},
      {"calib dump badname.bin", 0, {"\\xffommon"}},
      {"calib check flipped.bin", 1, {"more findings"}},
      {"calib dump flipped.bin", 1},
      {"calib build p.json -o p.bin", 0, {"warning: the camera never reports", "protrait"}},
  });
  EXPECT_LE(countOf(lumo("calib check flipped.bin").out, "\n"), 52u);
  EXPECT_LE(nlohmann::json::parse(lumo("calib check --json flipped.bin").out)[0]["issues"].size(),
            50u);
}

// Bad option values are usage errors (exit 2) with one message naming the option.
TEST_F(FieldCli, UsageErrorsVersionUnknownCommandsAndStdin) {
  std::vector<Run> runs = {
      {"run generated:chart -o x.png --prop noequals", 2, {"--prop: expected KEY=VALUE"}},
      {"run generated:chart -o x.png --stride 100", 2, {"--stride: stride 100 is below"}},
      {"run generated:chart -o x.png --cct 4200.5", 2, {"--cct: expected an integer in 0.."}},
      {"run generated:chart -o x.png --device-root nosuchdir", 2, {"--device-root: "}},
      {"bogus", 2, {"lumo: unknown command \"bogus\" (commands: replay, run, demo, calib"}},
      {"calib bogus", 2, {"(commands: build, check, dump, export"}},
      {"run x.png -o y.png --lux bright", 2},
      {"run x.png -o y.png --scene moon", 2},
      {"run generated:chart -o x.png --width 30000 --height 30000", 2, {"--width: "}},
      {"--version", 0, {"lumo "}},
  };
  for (const std::string cmd : {"", "replay", "run", "demo", "calib", "calib build", "generate"})
    runs.push_back({cmd + " --help", 0, {"Usage:"}});
  expectRuns(runs);
  EXPECT_FALSE(fs::exists(dir / "nosuchdir"));
  // "-" reads the session from standard input; inputs resolve from the current folder.
  write("s.jsonl", frameLine("snapshot", R"("stylization": 1)") + frameLine("preview", ""));
  Outcome o = lumo("replay - --out out --json < s.jsonl" + kProbe);
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(frames(o).size(), 2u);
  write("bad.jsonl", "{\"instance\": 1}\n");
  o = lumo("replay - --out out < bad.jsonl" + kProbe);
  EXPECT_THAT(o.err, StartsWith("lumo: stdin:1: field \"instance\""));
}

// The host's counter restarts: default names stay unique, named outputs still
// collide. A tag nobody reads is said once; a UTF-8 byte-order mark is dropped,
// UTF-16 refused.
TEST_F(FieldCli, SessionFilesAsHostsAndEditorsWriteThem) {
  const std::string again = frameLine("preview", "", R"(, "frame": 0)");
  write("again.jsonl", again + frameLine("preview", "") + frameLine("snapshot", "") + again);
  write("named.jsonl", frameLine("preview", "", R"(, "output": "a.png")") +
                           frameLine("preview", "", R"(, "output": "a.png")"));
  write("utf8.jsonl", "\xEF\xBB\xBF" + frameLine("preview", ""));
  write("utf16.jsonl", "\xFF\xFE" + frameLine("preview", ""));
  expectRuns({
      {"replay again.jsonl --out out" + kProbe, 0},
      {"replay named.jsonl --out o2" + kProbe, 1, {"named.jsonl:2: field \"output\": \"a.png\""}},
      {"replay utf8.jsonl --out o3" + kProbe, 0},
      {"replay utf16.jsonl --out o4" + kProbe, 1, {"lumo: utf16.jsonl:1: the file is UTF-16"}},
  });
  EXPECT_EQ(files("out"), (std::vector<std::string>{
                              "frame_000000_preview_line1.png", "frame_000000_preview_line4.png",
                              "frame_000001_preview.png", "frame_000002_snapshot.png"}));
  const std::string typo = frameLine(
      "preview",
      R"("tags": {"com.zentor.sessionparams.stylizatonType": {"type": "u8", "values": [1]},)"
      R"( "0x1002F": {"type": "f32", "values": [2]}, "77": {"type": "u8", "values": [1]}})");
  const Outcome o = replay(typo + typo + typo, kProbe);
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(countOf(o.err, "lumo: warning: "), 2u) << o.err;
  EXPECT_THAT(o.err,
              HasSubstr("s.jsonl:1: field \"meta.tags.com.zentor.sessionparams.stylizatonType\": "
                        "no part of the camera stack reads this tag"));
  EXPECT_THAT(o.err, HasSubstr("field \"meta.tags.77\""));
  EXPECT_THAT(o.err, Not(HasSubstr("0x1002F")));
}

class YuvInfoCli : public ToolTest {};

// Files examined one by one; the exit status says whether every one adds up.
// The preview is the picture converted as full range unless told otherwise:
// frames from video tools are limited range, black at 16 and white at 235.
TEST_F(YuvInfoCli, ReportsGeometryAndWritesPreviewsInTheRangeAsked) {
  // A 40x30 NV21 picture in a buffer of stride 64 and scanline 32, bytes varied.
  lumo::Image picture = lumo::makeImage({lumo::PixelFormat::NV21, 40, 30, 64, 32});
  for (size_t i = 0; i < picture.bytes.size(); ++i) picture.bytes[i] = uint8_t(i * 7 + i / 64);
  write("cap.nv21", std::string(picture.bytes.begin(), picture.bytes.end()));
  const std::string dump = "I_[lumofilter]_RealTimePreview_frame[3]_output_4x2_4.nv21";
  write(dump, std::string(12, '\0'));
  write("short_40x30_64.nv21", std::string(100, '\0'));
  lumo::writeImage(path("pic.jpg"), picture);
  lumo::Image grey = lumo::makeImage({lumo::PixelFormat::NV12, 6, 2, 0, 0});
  for (uint32_t y = 0; y < 2; ++y) std::memcpy(grey.row(y), "\x10\x7e\xeb\x10\x7e\xeb", 6);
  write("v_6x2_6.nv12", std::string(grey.bytes.begin(), grey.bytes.end()));
  expectRuns({
      {"yuv info cap.nv21 --width 40 --height 30", 0, {"64x32 -vf crop=40:30:0:0 'cap.nv21'"}},
      {"yuv info '" + dump + "'", 0, {"image \"I\", RealTimePreview, frame 3, output"}},
      {"yuv info short_40x30_64.nv21 cap.nv21 --width 40 --height 30", 1, {"100 bytes do not"}},
      {"yuv info cap.nv21 short_40x30_64.nv21 -o p.png", 2},
      {"yuv info pic.jpg", 1, {"pic.jpg\n  size      "}},  // no format line: a picture has none
      {"yuv info v_6x2_6.nv12 -o v.png --range limited", 0},
  });
  const lumo::Image stretched = lumo::readImage(path("v.png"));
  for (int x = 0; x < 3; ++x) EXPECT_NEAR(stretched.row(1)[4 * x], (255 * x + 1) / 2, 1) << x;
  const Outcome o = lumo("yuv info cap.nv21 --width 40 --height 30 --json -o p.png");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_THAT(o.err, HasSubstr("p.png: YUV taken as full range (0..255); for limited-range"));
  EXPECT_EQ(nlohmann::json::parse(o.out)["files"].at(0)["layouts"].at(0)["scanline"], 32);
  const lumo::Image png = lumo::readImage(path("p.png"));
  EXPECT_EQ(png.geometry.width, 40u);
  EXPECT_EQ(png.bytes, lumo::convertImage(picture, lumo::PixelFormat::RGBA).bytes);
}

#ifdef LUMO_REAL_PLUGIN
// The device's dumps, turned into a session and replayed, give the same dumps
// again, also when frames are read ahead and written behind (--jobs).
TEST_F(ToolTest, ReplayingTheDumpsReproducesThem) {
  ASSERT_EQ(lumo("calib build '" LUMO_EXAMPLES_DIR "/demo_looks.json' -o calib.bin").status, 0);
  // Replays `session` with both instances dumping into ROOT/data/vendor/camera.
  const auto replayDumping = [&](const std::string& session, const std::string& root,
                                 const std::string& options) {
    fs::create_directories(dir / root / "odm/etc/camera");
    fs::copy_file(dir / "calib.bin", dir / root / "odm/etc/camera/lumo_filter_param.bin");
    return lumo("replay " + session + " --device-root " + root + " --prop " +
                "persist.vendor.camera.lumofilter.dumpMode=3" + options);
  };
  // Dump files by name, the preview text dump under one name (its time stamp differs).
  const auto dumps = [&](const std::string& root) {
    std::map<std::string, std::string> out;
    for (const std::string& f : files(root + "/data/vendor/camera"))
      out[f.starts_with("lumo_filter_RealTimePreview_") ? "preview text" : f] =
          readText(dir / root / "data/vendor/camera" / f);
    return out;
  };
  write(
      "device.jsonl",
      R"({"instance": "preview", "frame": 3, "width": 64, "height": 48, "stride": 128, "input": "generated:sunset", "meta": {"stylization": 1, "scene": 13, "lux": 120.5, "cct": 3100, "zoom": 1.0}})"
      "\n"
      R"({"instance": "snapshot", "frame": 5, "width": 64, "height": 48, "stride": 128, "input": "generated:food", "meta": {"stylization": 1, "scene": 2, "lux": 412.9, "cct": 70000, "zoom": 2, "image_name": "IMG_7"}})"
      "\n"
      R"({"instance": "snapshot", "frame": 6, "width": 64, "height": 48, "input": "generated:portrait", "meta": {"stylization": 1, "faces": 2, "lux": 50, "cct": 4000, "zoom": 1.5, "image_name": "IMG_8"}})"
      "\n");
  Outcome o = replayDumping("device.jsonl", "dev", " --out out1");
  ASSERT_EQ(o.status, 0) << o.err;
  o = lumo("session from-dumps dev/data/vendor/camera -o again/s.jsonl");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out, "again/s.jsonl: 3 frames (1 preview, 2 snapshot), 0 without recorded values\n");
  EXPECT_EQ(o.err, "");
  o = replayDumping("again/s.jsonl", "dev2", " --out out2 --jobs 3");
  ASSERT_EQ(o.status, 0) << o.err;
  const auto first = dumps("dev"), second = dumps("dev2");
  EXPECT_EQ(first.size(), 3u * 2 + 2 + 1);  // image pairs, snapshot texts, the preview text
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

// YUV frames of odd size are padded for the plugin and cropped back; a
// picture is cropped to --width/--height; what generate writes, run reads.
TEST_F(ToolTest, OddSizesPadAndCropBackAndPicturesCrop) {
  ASSERT_EQ(lumo("generate food -o p.png --width 33 --height 17").status, 0);
  ASSERT_EQ(lumo("generate chart -o x.nv21 --width 33 --height 17").status, 0);
  // run options, output size, geometry handed to the plugin
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"p.png", "33x17", "34x18/34/18"},
      {"p.png --format nv12 --scanline 20", "33x17", "34x18/34/20"},
      {"p.png --format rgba", "33x17", "33x17/33/17"},
      {"p.png --width 20 --height 9", "20x9", "20x10/20/10"},
      {"x.nv21 --width 33 --height 17", "33x17", "34x18/34/18"},
  };
  for (const auto& [args, size, handed] : cases) {
    SCOPED_TRACE(args);
    fs::remove(dir / "log.txt");
    ASSERT_EQ(lumo("run " + args + " -o o.png --logcat log.txt" + kProbe).status, 0);
    const lumo::Image out = lumo::readImage(path("o.png"));
    EXPECT_EQ(std::to_string(out.geometry.width) + "x" + std::to_string(out.geometry.height), size);
    EXPECT_THAT(logLines("log.txt", "Probe").at(2), HasSubstr("process 0 frame=0 " + handed + " "));
  }
  // With the host's copy, the crop is the centre of the picture itself.
  ASSERT_EQ(lumo("run p.png --format rgba --width 20 --height 9 --stylization 0 -o c.png" + kProbe)
                .status,
            0);
  const lumo::Image picture = lumo::readImage(path("p.png")), crop = lumo::readImage(path("c.png"));
  for (uint32_t y = 0; y < 9; ++y)
    EXPECT_EQ(0, std::memcmp(crop.row(y), picture.row(y + 4) + 4 * 6, 20 * 4)) << "row " << y;
}

// Only files of a kind the tool writes, laid out as their names say; where
// an output cannot go, or an input is a JPEG that ends early, the message
// names the user's file (never the staging folder) and nothing is written.
TEST_F(ToolTest, WritesOnlyWhatTheNameAsksFor) {
  ASSERT_EQ(lumo("generate food -o p.png --width 40 --height 30").status, 0);
  write("s.jsonl", R"({"instance": "snapshot", "input": "p.png", "output": "x.tiff"})");
  write("s2.jsonl", R"({"instance": "snapshot", "input": "p.png"})");
  write("s3.jsonl", R"({"instance": "snapshot", "input": "p.png", "output": "x.png"})"
                    "\n"
                    R"({"instance": "snapshot", "input": "p.png", "output": "x.png/y.png"})");
  lumo::writeImage(path("p.jpg"), lumo::readImage(path("p.png")));
  write("cut.jpg", readText(dir / "p.jpg").substr(0, fs::file_size(dir / "p.jpg") / 2));
  const std::string gen = "generate chart --width 40 --height 30 -o ";
  expectRuns({
      {"run cut.jpg -o o.png" + kProbe, 1, {"cut.jpg: truncated or damaged JPEG: Premature end"}},
      {"run p.png --height 31 -o o.png" + kProbe, 2, {"--height: 31 is larger than p.png (40x30)"}},
      {"run p.png --width 39 --height 29 --stride 39 -o o.png" + kProbe, 2, {"padded to 40x30)"}},
      {"replay s2.jsonl --out /proc" + kProbe, 1, {"lumo: /proc: cannot write output files"}},
      {"replay s3.jsonl --out out" + kProbe, 1, {"s3.jsonl:2: field \"output\": \"x.png/y"}},
      {"run p.png -o x.tiff" + kProbe, 2, {"cannot tell what to write from \".tiff\""}},
      {"run p.png -o noext" + kProbe, 2, {"from no extension (known: .png, .jpg"}},
      {"replay s.jsonl --out out" + kProbe, 1, {"s.jsonl:1: field \"output\": \"x.tiff\": cannot"}},
      {gen + "g_8x8.nv21", 1, {"g_8x8.nv21: the name says 8x8, the picture is 40x30"}},
      {gen + "g_40x30_64.nv21", 0},
      {"generate chart --width 33 --height 17 -o x.nv21", 0, {"read it with --width 33"}},
  });
  EXPECT_TRUE(files("out").empty());
  // The layout the name asked for, and run reads it back without options.
  EXPECT_EQ(lumo::readImage(path("g_40x30_64.nv21")).geometry.stride, 64u);
  EXPECT_EQ(lumo("run g_40x30_64.nv21 -o back.png" + kProbe).status, 0);
}
