// Black-box tests of `lumo replay` and `lumo run` against the probe plugin:
// the host's call sequence, what reaches the plugin, the copy path, output
// images, and the one-line errors for bad input with no files left behind.
#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "image.h"
#include "image_files.h"
#include "tool_runner.h"

using namespace lumo_test;

namespace {

const std::string kProbe = std::string("--plugin '") + PROBE_PLUGIN + "'";

// A 4x2 NV21 dump with stride 6 and scanline 4 whose bytes count up.
std::string writeRawInput(const ToolTest&, const std::filesystem::path& dir) {
  std::string bytes(6 * 4 + 6 * 2, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = char(i * 3);
  std::ofstream(dir / "in_4x2_6_4.nv21", std::ios::binary) << bytes;
  return bytes;
}

std::vector<std::string> logLines(const std::string& log, const std::string& tag) {
  std::vector<std::string> out;
  std::istringstream in(log);
  std::string line;
  while (std::getline(in, line)) {
    const auto at = line.find(" " + tag + ": ");
    if (at == std::string::npos) {
      const auto alt = line.find(tag);
      if (alt != std::string::npos && line.find(": ", alt) != std::string::npos)
        out.push_back(line.substr(line.find(": ", alt) + 2));
      continue;
    }
    out.push_back(line.substr(at + tag.size() + 3));
  }
  return out;
}

}  // namespace

class ReplayCli : public ToolTest {};

TEST_F(ReplayCli, HostCallsFollowTheCameraSequence) {
  write("s.jsonl", R"({"instance": "preview", "meta": {"stylization": 1}})"
                   "\n"
                   R"({"instance": "snapshot", "meta": {"stylization": 2, "image_name": "IMG_1"}})"
                   "\n"
                   R"({"instance": "preview", "frame": 7, "meta": {"stylization": 0}})"
                   "\n");
  const Outcome o = lumo("replay s.jsonl " + kProbe + " --out out --logcat log.txt");
  ASSERT_EQ(o.status, 0) << o.err;
  const auto probe = logLines(readText(dir / "log.txt"), "Probe");
  const std::vector<std::string> expected = {
      "initialize processMode=1",
      "isEnabled processMode=1 stylization=1",
      "processRequest processMode=1 frame=0 640x480 stride=640 scanline=480 format=17 "
      "awbbytes=0 cct=0 lux=0.000000 scene=-1 faces=0 zoom=-1.000000 name=-",
      "initialize processMode=0",
      "isEnabled processMode=0 stylization=2",
      "processRequest processMode=0 frame=1 640x480 stride=640 scanline=480 format=17 "
      "awbbytes=0 cct=0 lux=0.000000 scene=-1 faces=0 zoom=-1.000000 name=IMG_1",
      "isEnabled processMode=1 stylization=0",
      "destroy processMode=1",
      "destroy processMode=0",
  };
  EXPECT_EQ(probe, expected);
  const auto host = logLines(readText(dir / "log.txt"), "LumoHost");
  ASSERT_EQ(host.size(), 1u);
  EXPECT_EQ(host[0], "frame 7: preview plugin not enabled, input copied to output");
  EXPECT_EQ(files("out"),
            (std::vector<std::string>{"frame_000000_preview.png", "frame_000001_snapshot.png",
                                      "frame_000007_preview.png"}));
  EXPECT_NE(o.out.find("no (copied)"), std::string::npos) << o.out;
}

TEST_F(ReplayCli, MetadataReachesThePluginAsTheCameraWritesIt) {
  write(
      "s.jsonl",
      R"({"instance": "snapshot", "meta": {"stylization": 1, "cct": 70000, "lux": "0x43ce7333",)"
      R"( "scene": "sunrise_sunset", "faces": 2, "zoom": 2, "image_name": "IMG_9"}})"
      "\n"
      R"({"instance": "snapshot", "meta": {"stylization": 1, "tags": {)"
      R"("com.qti.stats.internal.perFrame.frameControl.AWBFrameControl": {"type": "u8", "values": [1, 2, 3]},)"
      R"("0x1002F": {"type": "f32", "values": ["inf"]}}}})"
      "\n");
  const Outcome o = lumo("replay s.jsonl " + kProbe + " --out out --logcat log.txt");
  ASSERT_EQ(o.status, 0) << o.err;
  const auto probe = logLines(readText(dir / "log.txt"), "Probe");
  ASSERT_EQ(probe.size(), 6u);
  // 0x43ce7333 is 412.9f; faces are four values each.
  EXPECT_NE(probe[2].find("awbbytes=64 cct=70000 lux=412.899994 scene=13 faces=8 zoom=2.000000 "
                          "name=IMG_9"),
            std::string::npos)
      << probe[2];
  EXPECT_NE(probe[4].find("awbbytes=3 cct=0 lux=0.000000 scene=-1 faces=0 zoom=inf"),
            std::string::npos)
      << probe[4];
}

TEST_F(ReplayCli, RawFramesKeepTheirGeometryAndThePluginOutputIsWritten) {
  const std::string input = writeRawInput(*this, dir);
  write(
      "s.jsonl",
      R"({"instance": "preview", "input": "in_4x2_6_4.nv21", "output": "o_4x2_6_4.nv21", "meta": {"stylization": 1}})"
      "\n"
      R"({"instance": "preview", "input": "in_4x2_6_4.nv21", "output": "copy_4x2_6_4.nv21"})"
      "\n");
  const Outcome o = lumo("replay s.jsonl " + kProbe + " --out out --logcat log.txt");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_NE(readText(dir / "log.txt").find("4x2 stride=6 scanline=4 format=17"), std::string::npos);
  const std::string inverted = readText(dir / "out/o_4x2_6_4.nv21");
  ASSERT_EQ(inverted.size(), input.size());
  for (size_t y = 0; y < 2; ++y)
    for (size_t x = 0; x < 4; ++x)
      EXPECT_EQ(uint8_t(inverted[y * 6 + x]), uint8_t(255 - uint8_t(input[y * 6 + x])));
  for (size_t x = 0; x < 4; ++x) EXPECT_EQ(inverted[24 + x], input[24 + x]);  // chroma untouched
  // Not enabled: the host's copy carries every pixel byte over.
  const std::string copy = readText(dir / "out/copy_4x2_6_4.nv21");
  for (size_t y = 0; y < 2; ++y) EXPECT_EQ(copy.substr(y * 6, 4), input.substr(y * 6, 4));
  EXPECT_EQ(copy.substr(24, 4), input.substr(24, 4));
}

TEST_F(ReplayCli, MissingCalibrationIsSaidOnceAndIsNotAnError) {
  write("s.jsonl", "{\"instance\": \"preview\"}\n{\"instance\": \"preview\"}\n");
  const Outcome o = lumo("replay --prop vendor.x=1 --prop vendor.y=2 s.jsonl " + kProbe +
                         " --out out --device-root dev");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(countOf(o.err, "no calibration file at "), 1u) << o.err;
  EXPECT_NE(o.err.find("dev/odm/etc/camera/lumo_filter_param.bin"), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_directory(dir / "dev/data/vendor/camera"));
}

TEST_F(ReplayCli, BadInputGivesOneErrorAndLeavesNoOutput) {
  writeRawInput(*this, dir);
  struct Case {
    const char* what;
    std::string session;
    std::string extra;
    std::string message;
  } cases[] = {
      {"malformed JSON", "{\"instance\": \"preview\"}\n{\"instance\": \"preview\",\n", "",
       "lumo: s.jsonl:2: malformed JSON: parse error"},
      {"unknown field", "{\"instance\": \"preview\"}\n{\"instance\": \"preview\", \"colour\": 2}\n",
       "", "lumo: s.jsonl:2: field \"colour\": unknown field"},
      {"unreadable image",
       "{\"instance\": \"preview\"}\n{\"instance\": \"preview\", \"input\": \"nope.png\"}\n", "",
       "lumo: s.jsonl:2: field \"input\": nope.png: no such image file"},
      {"geometry not matching the data",
       "{\"instance\": \"preview\"}\n{\"instance\": \"preview\", \"input\": \"in_4x2_6_4.nv21\", "
       "\"stride\": 8}\n",
       "",
       "lumo: s.jsonl:2: field \"input\": in_4x2_6_4.nv21: 36 bytes do not match nv21 4x2 stride "
       "8 "
       "scanline 4 (expected 40 or 48 bytes)"},
      {"missing plugin", "{\"instance\": \"preview\"}\n", "--plugin /nonexistent/libx.so",
       "lumo: /nonexistent/libx.so: no plugin library there (--plugin)"},
  };
  for (const auto& c : cases) {
    write("s.jsonl", c.session);
    const Outcome o = lumo("replay s.jsonl " + (c.extra.empty() ? kProbe : c.extra) + " --out out");
    EXPECT_EQ(o.status, 1) << c.what;
    // One error line; the only other line allowed is the note about the calibration file.
    const size_t at = o.err.find(c.message);
    EXPECT_NE(at, std::string::npos) << c.what << ": " << o.err;
    EXPECT_EQ(countOf(o.err, "\n"), 1 + countOf(o.err, "lumo: note: ")) << c.what << ": " << o.err;
    EXPECT_TRUE(files("out").empty()) << c.what;
  }
}

TEST_F(ReplayCli, RunFeedsOneImageWithItsOptions) {
  ASSERT_EQ(lumo("generate food -o food.png --width 64 --height 48").status, 0);
  const Outcome o = lumo(
      "run food.png --scene night --lux 12.5 --cct 4100 --zoom 0x40400000 "
      "--faces 1 --instance preview --image-name X -o res/food_out.png "
      "--logcat log.txt " +
      kProbe);
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_NE(readText(dir / "log.txt")
                .find("processRequest processMode=1 frame=0 64x48 stride=64 "
                      "scanline=48 format=17 awbbytes=64 cct=4100 "
                      "lux=12.500000 scene=9 faces=4 zoom=3.000000 name=X"),
            std::string::npos)
      << readText(dir / "log.txt");
  const Outcome portrait =
      lumo("run food.png --scene protrait -o p.png --json --logcat log2.txt " + kProbe);
  ASSERT_EQ(portrait.status, 0);
  const auto report = nlohmann::json::parse(portrait.out);
  ASSERT_EQ(report["frames"].size(), 1u);
  EXPECT_EQ(report["frames"][0]["instance"], "snapshot");
  EXPECT_EQ(report["frames"][0]["enabled"], true);
  EXPECT_EQ(report["frames"][0]["width"], 64);
  EXPECT_EQ(report["frames"][0]["output"], "p.png");
  EXPECT_NE(readText(dir / "log2.txt").find("scene=0 faces=4 zoom=-1.000000 name=-"),
            std::string::npos);
  const lumo::Image out = lumo::readImage((dir / "res/food_out.png").string());
  EXPECT_EQ(out.geometry.width, 64u);
  EXPECT_EQ(out.geometry.height, 48u);
}

TEST_F(ReplayCli, UsageErrorsAndHelp) {
  EXPECT_EQ(lumo("replay").status, 2);
  EXPECT_EQ(lumo("run x.png -o y.png --lux bright").status, 2);
  EXPECT_EQ(lumo("run x.png -o y.png --instance video").status, 2);
  EXPECT_EQ(lumo("frobnicate").status, 2);
  EXPECT_EQ(lumo("run x.png -o y.png --scene moon").status, 2);
  for (const char* cmd : {"", "replay", "run", "demo", "calib", "calib build", "calib check",
                          "calib dump", "calib export", "generate"}) {
    const Outcome o = lumo(std::string(cmd) + " --help");
    EXPECT_EQ(o.status, 0) << cmd;
    EXPECT_NE(o.out.find("Usage:"), std::string::npos) << cmd;
  }
}
