// The host's process-wide services used from several threads at once, as two
// plugin instances on different host threads use them.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/filter_factory.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <hostsim/properties.h>
#include <hostsim/recording_filter.h>
#include <ui/GraphicBuffer.h>
#include <vyalgo2/VyMetadata.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 200;

template <typename F>
void onThreads(F body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(body, t);
  for (auto& th : threads) th.join();
}

// Everything at once on every thread, so each pair of services gets to race.
TEST(Concurrency, PropertiesLogsTagNumbersBuffersAndFilters) {
  hostsim::clearProperties();
  hostsim::setAndroidLogFile("-");
  hostsim::LogCapture capture;
  auto journal = std::make_shared<hostsim::FilterJournal>();
  hostsim::FilterFactoryOverride override(
      [journal](videoprocess::VideoFormat f, bool) -> videoprocess::VideoFilter* {
        return new hostsim::RecordingFilter(f, journal);
      });
  hostsim::setFilterFaults({0, 0, kRounds});  // exactly kRounds renders fail, on any thread
  std::atomic<int> failures{0};
  std::vector<std::vector<uint32_t>> ids(kThreads);
  onThreads([&](int t) {
    const std::string key = "vendor.thread." + std::to_string(t);
    for (int i = 0; i < kRounds; ++i) {
      ASSERT_EQ(property_set(key.c_str(), std::to_string(i).c_str()), 0);
      ASSERT_EQ(property_get_int32(key.c_str(), -1), i);
      __android_log_print(ANDROID_LOG_INFO, "t", "%d %d", t, i);
      if (i < 50)
        ids[t].push_back(
            VyMetadata::vendorTagId(("org.example.race." + std::to_string(i)).c_str()));
      if (i % 4) continue;
      auto b = hostsim::ImageBuffer::allocate({lumo::PixelFormat::NV12, 16, 8, 0, 0});
      ASSERT_NE(b, nullptr);
      const auto p = b->imageParams();
      android::sp<android::GraphicBuffer> gb =
          new android::GraphicBuffer(p.phHandle, android::GraphicBuffer::WRAP_HANDLE, 16, 8,
                                     static_cast<int32_t>(p.format), 1, 0x333, p.stride);
      ASSERT_EQ(gb->initCheck(), 0);
      std::unique_ptr<videoprocess::VideoFilter> f(
          hostsim::makeFilter(videoprocess::VideoFormat(10), false, {}));
      videoprocess::FilterFrameParam in{}, out{};
      for (int k = 0; k < 4; ++k)
        if (f->processFrame(&in, &out) != 0) ++failures;
    }
  });
  hostsim::setFilterFaults({});
  hostsim::setAndroidLogFile("");
  EXPECT_EQ(capture.androidMessages().size(), size_t{kThreads} * kRounds);
  EXPECT_EQ(hostsim::allProperties().size(), size_t{kThreads});
  hostsim::clearProperties();
  for (int t = 1; t < kThreads; ++t) EXPECT_EQ(ids[t], ids[0]);
  EXPECT_EQ(std::set<uint32_t>(ids[0].begin(), ids[0].end()).size(), 50u);
  EXPECT_EQ(failures.load(), kRounds);
  EXPECT_EQ(journal->calls().size(), size_t{kThreads} * (kRounds / 4) * 4);
  EXPECT_EQ(journal->destroyed(), kThreads * (kRounds / 4));
}

}  // namespace
