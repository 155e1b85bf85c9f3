// Many replay sessions in one process, as a long-lived service or a test
// harness would run them: each loads the plugin, makes both instances, runs
// frames and tears everything down. The heap in use must come back to where
// it was after warm-up (the sanitizer build also checks for leaks at exit).
#include <gtest/gtest.h>
#include <heap_in_use.h>
#include <hostsim/filter_factory.h>

#include <filesystem>
#include <string>
#include <vector>

#include "replay.h"
#include "replay_root.h"
#include "session.h"

namespace {

namespace fs = std::filesystem;

// Measured growth is zero to a few KiB (allocator bookkeeping); the smallest
// leak, one 32-byte chunk a session, would give 16 KiB over 500 sessions.
constexpr size_t kAllowedGrowth = 8 * 1024;
// Under AddressSanitizer glibc's atexit list grows by two slots per plugin
// load (a static's destructor registered through the sanitizer's
// __cxa_atexit, in a freed slot glibc does not reuse): about 65 bytes a
// session, held by glibc. LeakSanitizer still checks the process at exit.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kSanitizerAtexitBytes = 80;
#else
constexpr size_t kSanitizerAtexitBytes = 0;
#endif

using ToolSessions = lumotest::ReplayRoot;

// Both instances and a frame the plugin passes through (no stylisation); each
// session writes and syncs its raw outputs.
TEST_F(ToolSessions, RepeatedSessionsLeaveTheHeapAsItWas) {
  const auto frames = lumotest::sessionOf(
      {R"({"instance": "preview", "width": 32, "height": 16, "input": "generated:chart",)"
       R"( "output": "p.nv21", "meta": {"stylization": 1, "cct": 5000, "lux": 300}})",
       R"({"instance": "snapshot", "width": 32, "height": 16, "input": "generated:chart",)"
       R"( "output": "s.nv21", "meta": {"stylization": 1, "image_name": "IMG_1"}})",
       R"({"instance": "preview", "width": 16, "height": 8, "input": "generated:chart",)"
       R"( "output": "c.nv21", "meta": {"stylization": 0}})"});
  const lumo::ReplayOptions options = replayOptions(root + "/out");
  auto run = [&] {
    const auto reports = lumo::replaySession(frames, options);
    ASSERT_EQ(reports.size(), frames.size());
    for (const auto& r : reports) EXPECT_TRUE(fs::exists(r.output)) << r.output;
    // The simulator's record of createFilter calls (for tests that count
    // them) is the host's, not the session's.
    hostsim::resetCreateFilterCalls();
  };
  const int sessions = lumotest::soakCycles(500);
  for (int i = 0; i < 10; ++i) run();
  const size_t before = lumotest::heapInUse();
  for (int i = 0; i < sessions && !HasFatalFailure(); ++i) run();
  const size_t after = lumotest::heapInUse();
  EXPECT_LE(after, before + kAllowedGrowth + size_t(sessions) * kSanitizerAtexitBytes)
      << sessions << " sessions grew the heap by " << (after - before) << " bytes";
}

}  // namespace
