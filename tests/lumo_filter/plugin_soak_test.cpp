// The preview and snapshot instances on two threads for many small frames
// whose scene and zoom ratio move between calibration cells, while the
// calibration file is removed underneath them. The store is read once per
// process, so every frame must come out exactly as a single-threaded run made
// it, and the heap must stay flat once warm. LUMO_SOAK_CYCLES sets the frames.
#include <heap_in_use.h>

#include <set>
#include <thread>

#include "plugin_test_support.h"

namespace {

using namespace lumotest;

// Each step holds for four frames (the trigger's unchanged path), then the
// next picks another scene (common, night, plants, sunrise: another LUT
// block) and every fourth step the other zoom ratio (another shading block).
constexpr uint32_t kHold = 4, kSteps = 8, kPeriod = kSteps * kHold;

uint64_t runFrame(vyalgo2::PluginWraper& plugin, uint32_t n) {
  constexpr uint32_t kSceneIds[] = {0, 9, 3, 13};
  const uint32_t step = n / kHold % kSteps;
  Frame frame = makeFrame(32, 16, n,
                          sceneTags(kSceneIds[step % 4], 20.0f + float(step * 300),
                                    2500 + step * 600, 1.0f + float(step / 4), "IMG"));
  EXPECT_EQ(plugin.processRequest(&frame.request), 0);
  return std::hash<std::string_view>{}(
      {reinterpret_cast<const char*>(frame.output->data()), frame.output->size()});
}

// What frame n of an instance must give is entry n % kPeriod: one
// single-threaded period by a fresh instance (a frame's output depends on its
// step alone).
std::vector<uint64_t> reference(vyalgo2::PluginWraper& plugin) {
  std::vector<uint64_t> hashes;
  for (uint32_t n = 0; n < kPeriod; ++n) hashes.push_back(runFrame(plugin, n));
  return hashes;
}

// Growth allowed after warm-up: a 32-byte leak a frame gives 23 KiB over the
// shortest default run (the sanitizers', ten to fifty times slower).
constexpr size_t kAllowedHeapGrowth = 16 * 1024;
#ifdef LUMO_TEST_SANITIZER_HEAP
constexpr int kDefaultFrames = 500;
#else
constexpr int kDefaultFrames = 2000;
#endif

TEST(PluginSoak, TwoInstancesStayExactAndFlatWhileTheCalibrationChanges) {
#ifndef LUMO_HAVE_RENDERER
  GTEST_SKIP() << "no filter SDK built";
#endif
  Host host({}, /*recordFilters=*/false);
  ASSERT_TRUE(host.loaded);
  std::optional<hostsim::LogCapture> firstLoad(std::in_place);
  const std::vector<uint64_t> preview = reference(host.make(1)), snapshot = reference(host.make(0));
  // The store's loader logs, so its silence at the end below means something.
  EXPECT_NE(pluginLines(*firstLoad, "lumo_filter/paramUtil"), std::vector<PluginLine>{});
  firstLoad.reset();
  EXPECT_GE(std::set<uint64_t>(preview.begin(), preview.end()).size(), 4u)
      << "every scene must pick its own LUT block";

  const uint32_t warmUp = 4 * kPeriod;
  const uint32_t frames = std::max(uint32_t(soakCycles(kDefaultFrames)), 2 * warmUp);
  vyalgo2::PluginWraper* const running[] = {&host.make(1), &host.make(0)};
  const std::vector<uint64_t>* const expected[] = {&preview, &snapshot};
  uint32_t wrong[] = {0, 0};
  auto onTwoThreads = [&](uint32_t from, uint32_t to) {
    auto run = [&](int k) {
      for (uint32_t n = from; n < to; ++n)
        wrong[k] += runFrame(*running[k], n) != (*expected[k])[n % kPeriod];
    };
    std::thread a(run, 0), b(run, 1);
    a.join();
    b.join();
  };
  onTwoThreads(0, warmUp);
  const size_t warmHeap = heapInUse();
  // The file goes away half-way: instances keep the store read at start-up.
  const uint32_t half = warmUp + (frames - warmUp) / 2;
  onTwoThreads(warmUp, half);
  std::filesystem::remove(prepareDevice() + "/odm/etc/camera/lumo_filter_param.bin");
  onTwoThreads(half, frames);
  const size_t afterHeap = heapInUse();
  EXPECT_EQ(std::make_pair(wrong[0], wrong[1]), std::make_pair(0u, 0u));
  EXPECT_LE(afterHeap, warmHeap + kAllowedHeapGrowth)
      << frames << " frames per instance grew the heap by " << (afterHeap - warmHeap) << " bytes";

  // New instances made after the file went away still get the store read at
  // start-up: same frames, and the store is not built again (it would log).
  hostsim::LogCapture capture;
  EXPECT_EQ(reference(host.make(1)), preview);
  EXPECT_EQ(reference(host.make(0)), snapshot);
  EXPECT_EQ(pluginLines(capture, "lumo_filter/paramUtil"), std::vector<PluginLine>{});
  installCalibration(testCalibration());
}

}  // namespace
