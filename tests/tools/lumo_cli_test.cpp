// Black-box tests of the built `lumo`: replay and run against the probe plugin
// (the host's call sequence, what reaches the plugin, the copy path, outputs,
// one-line errors for bad input with no files left behind), run; with the real
// plugin built, the bundled demo and the plugin's dumps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "image_files.h"
#include "tool_runner.h"

using namespace lumo_test;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

// A 4x2 NV21 dump with stride 6 and scanline 4 whose bytes count up.
std::string writeRawInput(const fs::path& dir) {
  std::string bytes(6 * 4 + 6 * 2, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = char(i * 3);
  std::ofstream(dir / "in_4x2_6_4.nv21", std::ios::binary) << bytes;
  return bytes;
}

}  // namespace

class ReplayCli : public ToolTest {};

// Also: blank lines (CRLF too) are skipped, frame numbers count on from an explicit
// one, and the missing calibration file is mentioned once for both instances.
TEST_F(ReplayCli, HostCallsMetadataAndOutputsFollowTheCamera) {
  const std::string input = writeRawInput(dir);
  fs::create_directories(dir / "dev");
  const Outcome o = replay(
      R"({"instance": "preview", "meta": {"stylization": 1, "tags": {)"
      R"("com.qti.stats.internal.perFrame.frameControl.AWBFrameControl": {"type": "u8", "values": [1, 2, 3]},)"
      R"("0x1002F": {"type": "f32", "values": ["inf"]}}}})"
      "\n\r\n"
      R"({"instance": "snapshot", "frame": 7, "width": 64, "height": 48, "stride": 80, "scanline": 50,)"
      R"( "format": "nv12", "meta": {"stylization": 2, "cct": 70000, "lux": "0x43ce7333",)"
      R"( "scene": "sunrise_sunset", "faces": 2, "zoom": 2, "image_name": "IMG_1"}})"
      "\r\n"
      R"({"instance": "preview", "input": "in_4x2_6_4.nv21", "output": "o_4x2_6_4.nv21", "meta": {"stylization": 1}})"
      "\n"
      R"({"instance": "preview", "input": "in_4x2_6_4.nv21", "output": "copy_4x2_6_4.nv21", "meta": {"stylization": 0}})"
      "\n",
      kProbe + " --device-root dev");
  ASSERT_EQ(o.status, 0) << o.err;
  // A short record stays short; 0x43ce7333 is 412.9f; faces are four values each;
  // NV12 is the vendor code 0x109; a raw input keeps the geometry in its name.
  const std::string none = " cct=0 lux=0.000000 scene=-1 faces=0 zoom=";
  EXPECT_EQ(logLines("log.txt", "Probe"),
            (std::vector<std::string>{
                "initialize 1", "isEnabled 1 stylization=1",
                "process 1 frame=0 640x480/640/480 fmt=17 awb=3" + none + "inf name=-",
                "initialize 0", "isEnabled 0 stylization=2",
                "process 0 frame=7 64x48/80/50 fmt=265 awb=64 cct=70000 lux=412.899994 scene=13 "
                "faces=8 zoom=2.000000 name=IMG_1",
                "isEnabled 1 stylization=1",
                "process 1 frame=8 4x2/6/4 fmt=17 awb=0" + none + "-1.000000 name=-",
                "isEnabled 1 stylization=0", "destroy 1", "destroy 0"}));
  EXPECT_EQ(files("out"),
            (std::vector<std::string>{"copy_4x2_6_4.nv21", "frame_000000_preview.png",
                                      "frame_000007_snapshot.png", "o_4x2_6_4.nv21"}));
  EXPECT_THAT(o.out, HasSubstr("copied: disabled by the host"));
  EXPECT_EQ(countOf(o.err, "no calibration file at "), 1u) << o.err;
  EXPECT_THAT(o.err, HasSubstr("dev/odm/etc/camera/lumo_filter_param.bin"));
  EXPECT_TRUE(fs::is_directory(dir / "dev/data/vendor/camera"));
  // The plugin's inverted luma is written (second row: the stride is kept); the
  // host's copy carries every pixel byte over (luma rows, then chroma).
  const std::string inverted = readText(dir / "out/o_4x2_6_4.nv21");
  ASSERT_EQ(inverted.size(), input.size());
  EXPECT_EQ(uint8_t(inverted[7]), 255 - uint8_t(input[7]));
  const std::string copy = readText(dir / "out/copy_4x2_6_4.nv21");
  ASSERT_EQ(copy.size(), input.size());
  for (size_t i : {0, 1, 2, 3, 6, 7, 8, 9, 24, 25, 26, 27}) EXPECT_EQ(copy[i], input[i]) << i;
}

// Each bad line, image or plugin gives one error line naming file, line and field.
TEST_F(ReplayCli, BadInputGivesOneErrorAndLeavesNoOutput) {
  writeRawInput(dir);
  const std::string first = "{\"instance\": \"preview\"}\n", p = "{\"instance\": \"preview\", ";
  const std::string t = p + R"("meta": {"tags": {"t": {"type": )";
  // second line, start of the error after "s.jsonl:"
  const std::pair<std::string, std::string> cases[] = {
      {"\n" + p + "\n", "3: malformed JSON: parse error"},
      {p + R"("colour": 1})", "2: field \"colour\": unknown field (known: instance, process_mode,"},
      {p + R"("input": "nope.png"})", "2: field \"input\": nope.png: no such image file"},
      {p + R"("input": "in_4x2_6_4.nv21", "stride": 8})",
       "2: field \"input\": in_4x2_6_4.nv21: 36 bytes do not match nv21 4x2 stride 8 scanline 4"},
      {"", ""},  // with a plugin that is not there
      {R"({"frame": 1})", "2: field \"instance\": missing (\"preview\" or \"snapshot\")"},
      {R"({"instance": "video"})", "2: field \"instance\": expected \"preview\" or \"snapshot\","},
      {p + R"("meta": {"lux": "bright"}})", "2: field \"meta.lux\": expected a number, \"nan\","},
      {p + R"("meta": {"cct": -5}})", "2: field \"meta.cct\": expected an integer in 0.."},
      {p + R"("meta": {"hdr": 1}})", "2: field \"meta.hdr\": unknown field (known: cct, lux,"},
      {t + R"("u16"}}}})", "2: field \"meta.tags.t.type\": expected one of u8, i32, u32, f32,"},
      {t + R"("u8", "values": [1, 256]}}}})", "2: field \"meta.tags.t.values[1]\": expected"},
      {p + R"("format": "yuv"})", "2: field \"format\": expected \"nv21\", \"nv12\" or \"rgba\","},
      {p + R"("width": 0})", "2: field \"width\": expected an integer in 1..16384, got 0"},
      {"[1, 2]", "2: expected one JSON object per line, got [1,2]"},
      {p + R"("frame": 1e400})", "2: number out of range: number overflow parsing '1e400'"},
      {p + R"("frame": 1e300})", "2: field \"frame\": expected an integer in 0..4294967295, got"},
      {p + R"("meta": )" + std::string(100000, '[') + std::string(100000, ']') + "}",
       "2: malformed"},
      {p + R"("output": ")" + std::string(5000, 'x') + R"(.png"})", "2: field \"output\": a name"},
  };
  for (const auto& [line, message] : cases) {
    SCOPED_TRACE(line);
    const Outcome o =
        replay(first + line + "\n", line.empty() ? " --plugin /nonexistent/x.so" : kProbe);
    EXPECT_EQ(o.status, 1);
    const std::string want = line.empty()
                                 ? "lumo: /nonexistent/x.so: no plugin library there (--plugin)"
                                 : "lumo: s.jsonl:" + message;
    std::string error;  // the first line that is not the note about the calibration file
    std::istringstream lines(o.err);
    while (std::getline(lines, error) && error.starts_with("lumo: note: ")) continue;
    EXPECT_EQ(error.substr(0, want.size()), want);
    EXPECT_EQ(countOf(o.err, "\n"), 1 + countOf(o.err, "lumo: note: ")) << o.err;
    EXPECT_TRUE(files("out").empty());
  }
}

// Where outputs go: a missing folder for `run -o` is refused, not made; a name
// starting with ".." is still a name; a symlinked subfolder of --out is not
// followed out of it.
TEST_F(ReplayCli, OutputsStayInTheFoldersNamed) {
  const std::string line = R"({"instance": "preview", "input": "generated:food", "width": 8, )"
                           R"("height": 8, "output": ")";
  write("dots.jsonl", line + "..x.png\"}");
  write("sub.jsonl", line + "sub/x.png\"}");
  expectRuns({
      {"run generated:food -o missing/dir/x.png" + kProbe,
       1,
       {"folder missing/dir does not exist"}},
      {"replay dots.jsonl --out out" + kProbe, 0},
  });
  EXPECT_FALSE(fs::exists(dir / "missing"));
  EXPECT_TRUE(fs::exists(dir / "out/..x.png"));
  fs::create_directories(dir / "elsewhere");
  fs::create_directory_symlink(dir / "elsewhere", dir / "out/sub");
  expectRuns({{"replay sub.jsonl --out out" + kProbe, 1, {"lumo: out/sub: a symlink"}}});
  EXPECT_FALSE(fs::exists(dir / "elsewhere/x.png"));
}

// The device's calibration file is looked at before the plugin reads it whole,
// and `calib check` sizes a file before reading it: a FIFO or a (sparse) file
// far above any calibration file's size is refused without reading it.
TEST_F(ReplayCli, CalibrationFilesAreSizedBeforeTheyAreRead) {
  const fs::path calib = dir / "dev/odm/etc/camera/lumo_filter_param.bin";
  fs::create_directories(calib.parent_path());
  write("s.jsonl",
        R"({"instance": "preview", "input": "generated:food", "width": 8, "height": 8})");
  const std::string replay = "replay s.jsonl --out out --device-root dev" + kProbe;
  ASSERT_EQ(mkfifo(calib.c_str(), 0600), 0);
  expectRuns({{replay, 1, {calib.string() + ": the calibration file is a FIFO"}}});
  fs::remove(calib);
  for (const auto& [file, bytes] : {std::pair{calib, 65ull << 20}, {dir / "big.bin", 3ull << 30}}) {
    std::ofstream{file};
    fs::resize_file(file, bytes);
  }
  expectRuns({
      {replay, 1, {calib.string() + ": the calibration file has 68157440 bytes, above the 64 MiB"}},
      {"calib check big.bin", 1, {"big.bin: offset 0 (file): error: 3221225472 bytes, above"}},
  });
  EXPECT_TRUE(files("out").empty());
}

// SIGINT mid-session, once frames are being staged: the run stops between
// frames, says how far it got, removes its staging folder and ends by the
// signal; with --json the finished frames come first.
TEST_F(ReplayCli, InterruptedSessionsSayHowFarTheyGotAndWriteNothing) {
  std::string session;
  for (int i = 0; i < 2000; ++i)
    session += R"({"instance": "preview", "input": "generated:food", "width": 320, "height": 240, )"
               R"("meta": {"stylization": 1}})"
               "\n";
  write("s.jsonl", session);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    execl("/bin/sh", "sh", "-c", command("replay s.jsonl --out out --json" + kProbe).c_str(),
          nullptr);
    _exit(127);
  }
  bool staging = false;
  for (int i = 0; i < 3000 && !staging; ++i) {
    usleep(2000);
    std::error_code ec;
    if (fs::exists(dir / "out", ec))
      for (const auto& e : fs::recursive_directory_iterator(dir / "out", ec))
        staging = staging || e.path().string().find("frame_") != std::string::npos;
  }
  EXPECT_TRUE(staging);
  kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  std::string err = readText(dir / "stderr.txt");
  err.erase(0, err.find("lumo: interrupted"));  // after the note on the calibration file
  size_t done = 0;
  ASSERT_EQ(std::sscanf(err.c_str(), "lumo: interrupted after %zu of 2000 frames; nothing written",
                        &done),
            1)
      << err;
  EXPECT_LT(done, 2000u);
  EXPECT_EQ(nlohmann::json::parse(readText(dir / "stdout.txt"))["frames"].size(), done);
  EXPECT_TRUE(!fs::exists(dir / "out") || fs::is_empty(dir / "out"));
}

TEST_F(ReplayCli, RunFeedsOneImageWithItsOptions) {
  ASSERT_EQ(lumo("generate food -o food.png --width 64 --height 48").status, 0);
  fs::create_directory(dir / "res");
  EXPECT_THAT(lumo("run food.png --scene night --lux 12.5 --cct 4100 --zoom 0x40400000 --faces 1 "
                   "--instance preview --image-name X -o res/food_out.png --logcat log.txt --json" +
                   kProbe)
                  .out,
              HasSubstr("\"output\": \"res/food_out.png\""));
  EXPECT_EQ(logLines("log.txt", "Probe").at(2),  // after initialize and isEnabled
            "process 1 frame=0 64x48/64/48 fmt=17 awb=64 cct=4100 lux=12.500000 scene=9 faces=4 "
            "zoom=3.000000 name=X");
  EXPECT_EQ(lumo::readImage(path("res/food_out.png")).geometry.height, 48u);
}

#ifdef LUMO_REAL_PLUGIN
class RealPluginCli : public ReplayCli {};

// The ways a snapshot's image name reached outside the device root: a "../"
// name, a name the 256-byte path buffer cuts right after the target (so the
// fixed suffix is lost; given to `run`), and symlinks in the dump folder. Each dump is refused with
// one warning naming it, and the 0600 file outside keeps its bytes and mode.
TEST_F(RealPluginCli, DumpNamesFromMetadataStayUnderTheDeviceRoot) {
  const fs::path dumps = dir / "dev/data/vendor/camera";
  fs::create_directories(dumps);
  std::string cut = "../../../../";
  while (cut.size() + 6 < 235) cut += "./";
  const std::string dump = " --device-root dev --prop persist.vendor.camera.lumofilter.dumpMode=3";
  fs::create_symlink(dir / "victim", dumps / "IMG_lumo_filter_OfflineSnapshot_exif.txt");
  fs::create_directory_symlink(dir, dumps / "sub");  // a symlinked folder under the dump folder
  const std::string snapshot =
      R"({"instance": "snapshot", "input": "generated:food", "width": 64, "height": 48, )"
      R"("meta": {"stylization": 1, "image_name": ")";
  for (const auto& [file, name] :
       {std::pair{"up", "../../../../victim"}, {"link", "IMG"}, {"sub", "sub/victim"}})
    write(std::string(file) + ".jsonl", snapshot + name + "\"}}");
  for (const std::string& args : std::vector<std::string>{
           "replay up.jsonl --out out", "replay link.jsonl --out out", "replay sub.jsonl --out out",
           "run generated:food -o out/x.png --image-name " + cut + "victim"}) {
    SCOPED_TRACE(args);
    write("victim", "secret");
    fs::permissions(dir / "victim", fs::perms::owner_read | fs::perms::owner_write);
    const Outcome o = lumo(args + " --logcat log.txt" + dump);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(readText(dir / "victim"), "secret");
    EXPECT_EQ(fs::status(dir / "victim").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    for (const auto& e : fs::directory_iterator(dir))
      EXPECT_THAT(e.path().filename().string(), Not(StartsWith("victim_")));
    std::set<std::string> refused;
    for (const std::string& line : logLines("log.txt", "VyHost")) {
      EXPECT_THAT(line, HasSubstr(" refused: "));
      EXPECT_TRUE(refused.insert(line).second) << "said twice: " << line;
    }
    EXPECT_FALSE(refused.empty());
  }
}
#endif
