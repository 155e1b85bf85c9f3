// File-system faults during a replay session, made at a chosen frame through
// the per-frame callback: the session fails with a message naming the file
// and what went wrong, and leaves no output (staged or final) behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "failure.h"
#include "replay.h"
#include "replay_root.h"
#include "session.h"

namespace {

namespace fs = std::filesystem;

using ReplayFaults = lumotest::ReplayRoot;

// The output folder is removed after the first frame. Frame 1's output sorts
// last: the two that survive must not be moved.
TEST_F(ReplayFaults, SessionFailsWholeAndLeavesNoOutputs) {
  const fs::path out = fs::path(root) / "out";
  std::vector<std::string> lines;
  for (const char* name : {"c.nv21", "a.nv21", "b.nv21"})
    lines.push_back(R"({"instance": "preview", "input": "generated:chart", "output": ")" +
                    std::string(name) + R"(", "width": 32, "height": 16})");
  const auto frames = lumotest::sessionOf(lines);
  const lumo::ReplayOptions options = replayOptions(out.string());
  std::string message = "no failure";
  try {
    lumo::replaySession(frames, options, [&](const lumo::FrameReport&, size_t done, size_t) {
      if (done == 1) fs::remove_all(out);
    });
  } catch (const lumo::Failure& failure) {
    message = failure.what();
  }
  EXPECT_EQ(
      message.rfind(out.string() + ": output \"c.nv21\" vanished before the session ended", 0), 0u)
      << message;
  EXPECT_TRUE(lumotest::filesUnder(out).empty());
}

}  // namespace
