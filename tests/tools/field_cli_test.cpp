// Black-box tests of what a camera engineer meets in the field: per-frame
// results that say what the plugin did, damaged calibration files, sizes,
// usage errors, repeated frame numbers, process modes and session typos.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tool_runner.h"

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
  // The demo names no look for a frame the plugin copied.
  const Outcome demo = lumo(
      "demo --out demo --size 32 32 --json --calibration "
      "dev/odm/etc/camera/lumo_filter_param.bin");
  ASSERT_EQ(demo.status, 0) << demo.err;
  for (const auto& f : frames(demo)) {
    const bool common = f["aiscene"] == "common" && f["frame"].get<int>() < 5;
    EXPECT_EQ(f["plugin"]["plugin"], common ? "filtered" : "copied") << f.dump();
    EXPECT_EQ(f["look"].get<std::string>().starts_with("copied: "), !common) << f.dump();
  }
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
      {"calib build p.json -o p.bin",
       0,
       {"\"portrait\"): warning: the camera never reports this scene", "protrait"}},
  });
  EXPECT_LE(countOf(lumo("calib check flipped.bin").out, "\n"), 52u);
  const Outcome o = lumo("calib check --json flipped.bin");
  const auto j = nlohmann::json::parse(o.out, nullptr, false);
  ASSERT_FALSE(j.is_discarded()) << o.out.substr(0, 300);
  EXPECT_LE(j[0]["issues"].size(), 50u);
}

// Bad option values are usage errors (exit 2) with one message naming the option.
TEST_F(FieldCli, UsageErrorsVersionUnknownCommandsAndStdin) {
  std::vector<Run> runs = {
      {"run generated:chart -o x.png --log-level loud", 2, {"--log-level: loud not in"}},
      {"run generated:chart -o x.png --prop noequals",
       2,
       {"--prop: expected KEY=VALUE, got noequals"}},
      {"run generated:chart -o x.png --stride 100",
       2,
       {"--stride: stride 100 is below the width 640"}},
      {"run generated:chart -o x.png --cct 4200.5",
       2,
       {"--cct: expected an integer in 0..4294967295, got 4200.5"}},
      {"run generated:chart -o x.png --device-root nosuchdir", 2, {"--device-root: "}},
      {"bogus",
       2,
       {"lumo: unknown command \"bogus\" (commands: replay, run, demo, calib, generate"}},
      {"calib bogus", 2, {"lumo: unknown command \"bogus\" (commands: build, check, dump, export"}},
      {"replay", 2},
      {"run x.png -o y.png --lux bright", 2},
      {"generate moon -o m.png", 2},
      {"run x.png -o y.png --instance video", 2},
      {"run x.png -o y.png --scene moon", 2},
      {"run x.png -o y.png --stylization -1", 2},
      {"run generated:chart -o x.png --width 30000 --height 30000",
       2,
       {"--width: Value 30000 not in"}},
      {"--version", 0, {"lumo "}},
  };
  for (const std::string cmd : {"", "replay", "run", "demo", "calib", "calib build", "calib check",
                                "calib dump", "calib export", "generate"})
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
      {"replay named.jsonl --out o2" + kProbe,
       1,
       {"named.jsonl:2: field \"output\": \"a.png\" is already written"}},
      {"replay utf8.jsonl --out o3" + kProbe, 0},
      {"replay utf16.jsonl --out o4" + kProbe,
       1,
       {"lumo: utf16.jsonl:1: the file is UTF-16 (it starts with a byte-order mark); save it as "
        "UTF-8\n"}},
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
