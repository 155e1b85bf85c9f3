// The preview and snapshot instances side by side on two threads, as the
// host runs them: they share only the calibration store and the switches.
#include <algorithm>
#include <thread>

#include "plugin_fixture.h"

namespace {

using lumotest::FrameTags;

constexpr uint32_t kFrames = 2000;

// Frames of one instance; the scene and zoom move every 100 frames.
void runFrames(VyLumoFilterPlugin& plugin, int& filtered) {
  for (uint32_t n = 0; n < kFrames; ++n) {
    FrameTags tags;
    tags.scene = (n / 100) % 2 == 0 ? 9u : 3u;
    tags.lux = static_cast<float>(n % 500);
    tags.cct = 3000 + n % 700;
    tags.zoom = (n / 300) % 2 == 0 ? 1.0f : 2.0f;
    tags.faceValues = (n / 700) % 2 == 0 ? 0 : 4;
    tags.imageName = "IMG_" + std::to_string(n);
    lumotest::Frame frame = lumotest::makeFrame(32, 16, n, lumotest::makeMetadata(tags));
    plugin.processRequest(&frame.request);
    if (frame.outputUntouched()) ++filtered;
  }
}

class PluginThreadsTest : public PluginFixture {};

TEST_F(PluginThreadsTest, PreviewAndSnapshotRunSideBySide) {
  VyLumoFilterPlugin& preview = makePlugin(1);
  VyLumoFilterPlugin& snapshot = makePlugin(0);
  int previewFiltered = 0;
  int snapshotFiltered = 0;
  std::thread a([&] { runFrames(preview, previewFiltered); });
  std::thread b([&] { runFrames(snapshot, snapshotFiltered); });
  a.join();
  b.join();
  EXPECT_EQ(previewFiltered, static_cast<int>(kFrames));
  EXPECT_EQ(snapshotFiltered, static_cast<int>(kFrames));
  const std::vector<std::string> names = journal->names();
  EXPECT_EQ(std::count(names.begin(), names.end(), "processFrame"), static_cast<long>(2 * kFrames));
  EXPECT_EQ(Access::imageName(snapshot), "IMG_" + std::to_string(kFrames - 1));
}

}  // namespace
