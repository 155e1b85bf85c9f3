// Reading ahead and writing behind the plugin (`--jobs`) must leave exactly
// what a run in turn leaves: outputs, the plugin's dumps, the log and the
// per-frame results.
#include <gmock/gmock.h>

#include <map>
#include <regex>
#include <sstream>

#include "tool_runner.h"

#ifdef LUMO_REAL_PLUGIN
namespace {

using namespace lumo_test;

class PipelineCli : public ToolTest {};

// Every file under `root` with its bytes; the preview text dump's name
// carries the second it was opened, which is masked.
std::map<std::string, std::string> contents(const fs::path& root) {
  static const std::regex stamp("\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d");
  std::map<std::string, std::string> out;
  for (const auto& e : fs::recursive_directory_iterator(root))
    if (e.is_regular_file())
      out[std::regex_replace(fs::relative(e.path(), root).string(), stamp, "TIME")] =
          readText(e.path());
  return out;
}

// Logcat lines without their date, time, process and thread columns.
std::string withoutStamps(const std::string& logcat) {
  std::istringstream in(logcat);
  std::string line, out, date, time, pid, tid;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    fields >> date >> time >> pid >> tid;
    std::getline(fields, line);
    out += line + "\n";
  }
  return out;
}

TEST_F(PipelineCli, ReadAheadAndWriteBehindLeaveWhatATurnByTurnRunLeaves) {
  ASSERT_EQ(lumo("generate food -o p.jpg --width 96 --height 64").status, 0);
  ASSERT_EQ(lumo("generate plants -o q.png --width 35 --height 21").status, 0);
  // Both instances, sizes that change, a picture and generated ones, a frame
  // the host copies (no stylisation), a process mode without a filter (its
  // render fails, then the instance stays bypassed) and a raw output.
  write(
      "s.jsonl",
      R"({"instance": "preview", "input": "generated:sunset", "width": 64, "height": 48, "meta": {"stylization": 1, "lux": 120, "cct": 3100}})"
      "\n"
      R"({"instance": "snapshot", "input": "p.jpg", "meta": {"stylization": 1, "scene": 2, "image_name": "IMG_1"}})"
      "\n"
      R"({"instance": "preview", "input": "q.png", "meta": {"stylization": 0}})"
      "\n"
      R"({"process_mode": 7, "input": "generated:night", "width": 32, "height": 32, "meta": {"stylization": 1}})"
      "\n"
      R"({"process_mode": 7, "input": "generated:night", "width": 32, "height": 32, "meta": {"stylization": 1}})"
      "\n"
      R"({"instance": "snapshot", "input": "generated:food", "width": 128, "height": 96, "format": "nv12", "output": "x_128x96_128.nv12", "meta": {"stylization": 1, "scene": 13, "lux": 900, "cct": 6000, "image_name": "IMG_2"}})"
      "\n"
      R"({"instance": "preview", "input": "p.jpg", "output": "y.jpg", "meta": {"stylization": 1, "lux": 2000, "cct": 5200, "zoom": 3}})"
      "\n");
  std::map<std::string, std::string> first;
  Outcome serial;
  for (const char* jobs : {"1", "3"}) {
    SCOPED_TRACE(jobs);
    fs::remove_all(dir / "dev");
    fs::remove_all(dir / "out");
    fs::remove(dir / "log.txt");
    fs::create_directories(dir / "dev/odm/etc/camera");
    fs::create_directories(dir / "dev/data/vendor/camera");
    ASSERT_EQ(lumo("calib build '" LUMO_EXAMPLES_DIR
                   "/demo_looks.json' -o dev/odm/etc/camera/lumo_filter_param.bin")
                  .status,
              0);
    const Outcome o = lumo(std::string("replay s.jsonl --json --out out --device-root dev ") +
                           "--logcat log.txt --log-level verbose --jobs " + jobs +
                           " --prop persist.vendor.camera.lumofilter.dumpMode=3");
    ASSERT_EQ(o.status, 0) << o.err;
    auto left = contents(dir / "out");
    for (auto& [name, bytes] : contents(dir / "dev/data/vendor/camera"))
      left["dump/" + name] = bytes;
    left["log"] = withoutStamps(readText(dir / "log.txt"));
    EXPECT_THAT(o.out, testing::HasSubstr("sticky"));
    if (first.empty()) {
      first = left;
      serial = o;
      continue;
    }
    EXPECT_EQ(o.out, serial.out);
    EXPECT_EQ(o.err, serial.err);
    ASSERT_EQ(left.size(), first.size());
    for (const auto& [name, bytes] : first) EXPECT_TRUE(left[name] == bytes) << name;
  }
}

}  // namespace
#endif
