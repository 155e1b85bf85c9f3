// The preview and snapshot instances side by side on two threads, as the
// host runs them: they share only the calibration store and the switches.
#include <thread>

#include "plugin_test_support.h"

namespace {

using namespace lumotest;

constexpr uint32_t kFrames = 2000;

// Frames of one instance; scene, zoom and faces move every few hundred frames.
int runFrames(vyalgo2::PluginWraper& plugin) {
  int filtered = 0;
  for (uint32_t n = 0; n < kFrames; ++n) {
    FrameTags tags = sceneTags((n / 100) % 2 == 0 ? 9u : 3u, float(n % 500), 3000 + n % 700,
                               (n / 300) % 2 == 0 ? 1.0f : 2.0f, "IMG_" + std::to_string(n));
    if ((n / 700) % 2 == 1) tags.faceValues = std::vector<int32_t>(4, 10);
    Frame frame = makeFrame(32, 16, n, tags);
    plugin.processRequest(&frame.request);
    if (frame.outputUntouched()) ++filtered;  // rendered by the recording filter, not copied
  }
  return filtered;
}

TEST(PluginThreads, PreviewAndSnapshotRunSideBySide) {
  Host host({});
  ASSERT_TRUE(host.loaded);
  vyalgo2::PluginWraper& preview = host.make(1);
  vyalgo2::PluginWraper& snapshot = host.make(0);
  int previewFiltered = 0, snapshotFiltered = 0;
  std::thread a([&] { previewFiltered = runFrames(preview); });
  std::thread b([&] { snapshotFiltered = runFrames(snapshot); });
  a.join();
  b.join();
  EXPECT_EQ(previewFiltered, int(kFrames));
  EXPECT_EQ(snapshotFiltered, int(kFrames));
  EXPECT_EQ(std::ranges::count(host.journal->names(), "processFrame"), long(2 * kFrames));
}

}  // namespace
