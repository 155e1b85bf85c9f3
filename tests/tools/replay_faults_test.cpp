// File-system faults during a replay session, made at a chosen frame through
// the per-frame callback: the session fails with a message naming the file
// and what went wrong, and leaves no output (staged or final) behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "failure.h"
#include "replay.h"
#include "replay_root.h"
#include "session.h"

namespace {

namespace fs = std::filesystem;

using ReplayFaults = lumotest::ReplayRoot;

TEST_F(ReplayFaults, SessionFailsWholeAndLeavesNoOutputs) {
  const fs::path dir = root;
  // A 32 x 16 NV21 dump, stride 32: 512 luma and 256 chroma bytes.
  const fs::path input = dir / "in_32x16_32.nv21";
  const fs::path out = dir / "out";
  const std::string line = R"({"instance": "preview", "input": ")" + input.string() +
                           R"(", "meta": {"stylization": 1}})";
  const struct Row {
    const char* what;
    std::vector<std::string> outputs;  // of the three frames
    std::function<void()> fault;       // run after the first frame
    std::string expected;              // start of the failure message
  } rows[] = {
      // Frame 1's output sorts last: the two that survive must not be moved.
      {"the output folder is removed mid-session",
       {"c.nv21", "a.nv21", "b.nv21"},
       [&] { fs::remove_all(out); },
       out.string() + ": output \"c.nv21\" vanished before the session ended"},
      {"the input dump shrinks before the next frame reads it",
       {"a.nv21", "b.nv21", "c.nv21"},
       [&] { fs::resize_file(input, 700); },
       "s.jsonl:2: field \"input\": " + input.string() + ": 700 bytes do not match"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fs::remove_all(out);
    std::ofstream(input, std::ios::binary) << std::string(768, '\x40');
    std::vector<lumo::SessionFrame> frames;
    for (size_t i = 1; i <= 3; ++i) {
      frames.push_back(lumo::parseFrameLine(line, "s.jsonl", i));
      frames.back().output = row.outputs[i - 1];
    }
    lumo::ReplayOptions options;
    options.pluginPath = LUMO_PLUGIN_LIBRARY;
    options.outDir = out.string();
    std::string message = "no failure";
    try {
      lumo::replaySession(frames, options, [&](const lumo::FrameReport&, size_t done, size_t) {
        if (done == 1) row.fault();
      });
    } catch (const lumo::Failure& failure) {
      message = failure.what();
    }
    EXPECT_EQ(message.rfind(row.expected, 0), 0u) << message;
    EXPECT_TRUE(lumotest::filesUnder(out).empty());
  }
}

}  // namespace
