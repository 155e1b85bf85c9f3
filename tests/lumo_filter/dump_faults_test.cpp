// Faults of the dump folder while dumping is on: missing, read-only, and full
// inside the parameter text (made by the simulator's file layer, no privileges
// needed). The frame comes out as without the fault, the request returns 0, the
// host's image dumps say which failed and why and leave nothing cut short. The
// plugin writes its text unchecked by design: on a full partition it holds what
// fitted, never anything else.
#include <hostsim/file_faults.h>

#include <map>

#include "plugin_test_support.h"

namespace {

using namespace lumotest;
namespace fs = std::filesystem;

struct Outcome {
  std::vector<uint8_t> output;
  std::map<std::string, std::string> files;  // by kind: text, input, output
  std::vector<std::string> errors;           // error lines of the Android log
};

// One frame through a new instance of `mode` made under `fault`, then destroy
// (which closes the preview's text file).
Outcome runOne(Host& host, uint32_t mode, const std::function<void()>& fault) {
  fs::remove_all(dumpFolder());
  fs::create_directories(dumpFolder());
  Outcome out;
  hostsim::LogCapture capture;
  fault();
  vyalgo2::PluginWraper& plugin = host.make(mode);
  Frame frame = makeFrame(32, 16, 1, sceneTags(0, 300.0f, 5000, 1.0f, "IMG"));
  EXPECT_EQ(plugin.processRequest(&frame.request), 0);
  plugin.destroy();
  hostsim::setFileFaults({});
  out.output.assign(frame.output->data(), frame.output->data() + frame.output->size());
  for (const std::string& name : filesIn(dumpFolder())) {
    const bool input = name.find("_input_") != std::string::npos;
    out.files[name.ends_with("_exif.txt") ? "text"
              : input                     ? "input"
                                          : "output"] = readFile(dumpFolder() + "/" + name);
  }
  for (const hostsim::LogRecord& r : capture.records())
    if (!r.offline && r.priority == 6) out.errors.push_back(r.message);
  return out;
}

// Both instances under each fault; regular expressions of the error lines.
void faultsAgainstCleanRuns() {
  Host host({{"dumpMode", "3"}}, /*recordFilters=*/false);
  if (!host.loaded) return;
  const std::map<uint32_t, Outcome> clean = {{0, runOne(host, 0, [] {})},
                                             {1, runOne(host, 1, [] {})}};
  for (const auto& [mode, outcome] : clean) {
    ASSERT_EQ(outcome.files.size(), 3u) << "mode " << mode;
    ASSERT_EQ(outcome.errors, std::vector<std::string>{});
  }
  // Each error names the input dump, then the output dump (ROLE below).
  const struct Row {
    const char* what;
    std::optional<hostsim::FileFaults> fault;  // none: the folder is removed
    std::vector<std::string> kept;
    std::string error;
  } rows[] = {
      // clang-format off
      {"the folder is missing", std::nullopt, {},
       "dumpToFile .*_ROLE_32x16_32: dump folder .* does not exist"},
      {"the partition is read-only", hostsim::FileFaults{true, -1}, {},
       "dumpToFile: cannot open .*_ROLE_32x16_32.nv21: Read-only file system"},
      {"it fills up inside the LUT line of the text", hostsim::FileFaults{false, 20000}, {"text"},
       "dumpToFile: cannot write .*_ROLE_32x16_32.nv21: No space left on device; removed"},
      // clang-format on
  };
  for (const Row& row : rows) {
    for (uint32_t mode : {0u, 1u}) {
      SCOPED_TRACE(std::string(row.what) + (mode == 0 ? ", snapshot" : ", preview"));
      const Outcome got = runOne(host, mode, [&] {
        if (!row.fault) return fs::remove_all(dumpFolder()), void();
        hostsim::setFileFaults(*row.fault);
      });
      EXPECT_TRUE(got.output == clean.at(mode).output);
      std::vector<std::string> kept;
      for (const auto& [kind, content] : got.files) {
        kept.push_back(kind);
        const std::string& whole = clean.at(mode).files.at(kind);
        if (kind == "text")
          EXPECT_TRUE(whole.compare(0, content.size(), content) == 0) << "text differs";
        else
          EXPECT_TRUE(content == whole) << kind << " cut short";
      }
      EXPECT_EQ(kept, row.kept);
      ASSERT_EQ(got.errors.size(), 2u) << ::testing::PrintToString(got.errors);
      for (size_t i = 0; i < 2; ++i) {
        const std::string role = i == 0 ? "input" : "output";
        const std::string pattern = std::regex_replace(row.error, std::regex("ROLE"), role);
        EXPECT_TRUE(std::regex_search(got.errors[i], std::regex(pattern)))
            << got.errors[i] << "\n  expected " << pattern;
      }
    }
  }
}

TEST(DumpFaults, FramesPassAndNoImageDumpIsLeftCutShort) {
#ifndef LUMO_HAVE_RENDERER
  GTEST_SKIP() << "no filter SDK built";
#endif
  EXPECT_EQ(runInChild(faultsAgainstCleanRuns), 0);
}

}  // namespace
