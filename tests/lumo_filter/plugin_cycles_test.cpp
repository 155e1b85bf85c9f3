// Plugin objects created, initialised, given a frame and destroyed over and
// over in one process, as a camera app does across sessions: the heap in use
// must come back to where it was after warm-up (the sanitizer build also
// checks for leaks at exit).
#include <heap_in_use.h>

#include "plugin_test_support.h"

namespace {

using namespace lumotest;

// Measured growth over 5,000 cycles is zero; the smallest leak, one 32-byte
// chunk a cycle, would give 32 KiB over 1,000 cycles.
constexpr size_t kAllowedGrowth = 4 * 1024;

TEST(PluginCycles, CreateInitializeDestroyLeavesTheHeapAsItWas) {
  const struct Row {
    const char* what;
    uint32_t mode;  // 0 snapshot, 1 preview
    bool withFrame;
    FrameTags tags;
  } rows[] = {
      {"preview, no frame", 1, false, {}},
      {"snapshot, no frame", 0, false, {}},
      {"preview, one filtered frame", 1, true, sceneTags(0)},
      {"snapshot, one named frame", 0, true, sceneTags(2, 40.0f, 3000, 2.0f, "IMG_9")},
      {"preview, frame without parameters", 1, true, sceneTags(1234)},
  };
  const int cycles = soakCycles(1000);
  Host host({}, /*recordFilters=*/false);
  ASSERT_TRUE(host.loaded);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    auto cycle = [&](int i) {
      hostsim::PluginPtr plugin = host.registry.create(kProviderName);
      ASSERT_NE(plugin, nullptr);
      vyalgo2::CreateInfo info;
      info.processMode = row.mode;
      ASSERT_EQ(plugin->initialize(&info, vyalgo2::VyaNodeInterface{}), 0);
      if (row.withFrame) {
        Frame frame = makeFrame(32, 16, uint32_t(i), row.tags);
        ASSERT_EQ(plugin->processRequest(&frame.request), 0);
        EXPECT_FALSE(frame.outputUntouched());
      }
      plugin->destroy();
      // The simulator records every createFilter call for the tests that
      // count them; that record is the host's, not the plugin's.
      hostsim::resetCreateFilterCalls();
    };
    for (int i = 0; i < 20; ++i) cycle(i);  // first-use caches and the store
    const size_t before = heapInUse();
    for (int i = 0; i < cycles && !HasFatalFailure(); ++i) cycle(i);
    const size_t after = heapInUse();
    EXPECT_LE(after, before + kAllowedGrowth)
        << cycles << " cycles grew the heap by " << (after - before) << " bytes";
  }
}

}  // namespace
