// `lumo compare`: the gate's exit codes, shards merged equal to one whole
// run, and the inputs it must refuse or survive.
#include <gmock/gmock.h>

#include <regex>

#include "tool_runner.h"

#ifdef LUMO_REAL_PLUGIN
namespace {

using namespace lumo_test;
using ::testing::HasSubstr;

// Two calibrations that differ in the food scene's look only, and two
// sessions with food and other scenes.
class CompareCli : public ToolTest {
protected:
  void SetUp() override {
    ToolTest::SetUp();
    fs::copy(LUMO_EXAMPLES_DIR "/looks", dir / "looks");
    std::string looks = readText(LUMO_EXAMPLES_DIR "/demo_looks.json");
    write("old.json", looks);
    looks =
        std::regex_replace(looks, std::regex(R"("food_pop": \{"generate": \{"saturation": 1.4)"),
                           R"("food_pop": {"generate": {"saturation": 1.1)");
    write("new.json", looks);
    ASSERT_EQ(lumo("calib build old.json -o old.bin").status, 0);
    ASSERT_EQ(lumo("calib build new.json -o new.bin").status, 0);
    const auto line = [](const char* instance, const char* input, const char* scene) {
      const bool food = scene[0] == 'f';
      return std::string(R"({"instance": ")") + instance + R"(", "input": "generated:)" + input +
             R"(", "meta": {"stylization": 1, "scene": ")" + scene + R"(", "lux": )" +
             (food ? "300" : "500") + R"(, "cct": )" + (food ? "4000" : "5200") + "}}\n";
    };
    write("s1.jsonl", line("preview", "food", "food") + line("snapshot", "plants", "plants") +
                          line("preview", "chart", "food"));
    write("s2.jsonl", line("preview", "chart", "plants") + line("preview", "sunset", "food"));
  }
  Outcome compare(const std::string& args) {
    return lumo("compare --calib new.bin --against old.bin --jobs 2 " + args);
  }
};

// The gate's exit codes, and the inputs it must refuse or survive.
TEST_F(CompareCli, GateExitCodesAndBadInputs) {
  write("gone.jsonl", "{\"instance\": \"preview\", \"input\": \"nowhere.jpg\", \"meta\": {}}\n");
  fs::copy_file(dir / "old.bin", dir / "same.bin");
  write("bad.json", R"({"calibration": {"new": {"file": "n.bin"}}})");
  const std::string recipe = "parallel --jobs 2 '" LUMO_TOOL  // the recipe of docs/compare.md
                             "' compare --calib new.bin --against old.bin --jobs 1 "
                             "--shard {}/2 -o a{}.json s1.jsonl ::: 1 2";
  ASSERT_EQ(std::system(("cd '" + dir.string() + "' && LUMO_DEVICE_ROOT= " + recipe).c_str()), 0);
  ASSERT_EQ(
      lumo("compare --calib same.bin --against new.bin s1.jsonl --shard 2/2 -o b2.json").status, 0);
  ASSERT_EQ(compare("s2.jsonl --shard 2/2 -o c2.json").status, 0);
  const std::string gate = "compare --calib new.bin --against old.bin s1.jsonl s2.jsonl ";
  const std::string both = "compare --calib new.bin --against old.bin s1.jsonl gone.jsonl ";
  expectRuns({
      {gate, 0},
      {gate + "--fail-above 'p95>0.5'", 1, {"crosses p95>0.5"}},
      {gate + "--expect-changes scene=food", 0},
      {gate + "--expect-changes scene=plants,night",
       1,
       {"s1.jsonl:1 (frame 0): its pixels changed"}},
      {gate + "--fail-above 'p96>2'", 2, {"expected METRIC>VALUE"}},
      {gate + "--shard 1/2", 2, {"-o FILE"}},
      {gate + "--shard 3/2 -o x.json", 2, {"expected I/N"}},
      {"compare --calib new.bin s1.jsonl", 2},
      {"compare --calib old.bin --against same.bin s1.jsonl -o out.json", 0, {"byte-identical"}},
      {both + "-o out.json", 1, {"gone.jsonl:1: field \"input\": ./nowhere.jpg: no such file"}},
      {"compare merge a1.json b2.json", 1, {"the new calibration differs (same.bin vs new.bin)"}},
      {"compare merge a1.json c2.json", 1, {"session s2.jsonl vs s1.jsonl"}},
      {"compare merge a1.json", 1, {"shard 2/2 is missing"}},
      {"compare merge a1.json bad.json", 1, {"bad.json: calibration: \"against\": expected"}},
      {"compare merge a1.json old.bin", 1, {"old.bin: not JSON"}},
      {"compare merge a1.json a1.json a2.json", 1, {"are the same shard"}},
  });
  // Identical calibrations write no result; --keep-going writes what ran.
  EXPECT_FALSE(fs::exists(dir / "out.json"));
  const Outcome o = lumo(both + "--keep-going -o out.json");
  EXPECT_EQ(o.status, 1);
  EXPECT_THAT(o.err, HasSubstr("1 frame(s) had no input"));
  // The frames that had their inputs ran; the missing one is listed.
  EXPECT_EQ(countOf(readText(dir / "out.json"), "\"identical\""), 3u);
  EXPECT_EQ(countOf(readText(dir / "out.json"), "\"problem\""), 1u);
  // Shards merge into what one whole run writes: summary, result and page.
  const Outcome whole = compare("s1.jsonl -o whole.json --html whole.html");
  EXPECT_THAT(whole.out, HasSubstr("3 frames, 2 changed"));
  EXPECT_EQ(lumo("compare merge a2.json a1.json -o merged.json --html merged.html").out, whole.out);
  EXPECT_EQ(readText(dir / "merged.json"), readText(dir / "whole.json"));
  EXPECT_EQ(readText(dir / "merged.html"), readText(dir / "whole.html"));
  EXPECT_EQ(lumo("compare merge a1.json a2.json --json").out, compare("s1.jsonl --json").out);
  EXPECT_EQ(countOf(readText(dir / "whole.html"), "<figure>"), 8u);  // two changed frames
}

}  // namespace
#endif
