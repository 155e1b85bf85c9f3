// What one 4000 x 3000 NV21 preview frame costs inside the plugin when the
// filter has nothing to draw (a still scene: no parameter upload), next to
// the bypass copy of the same frame and one memcpy of its picture bytes.
#include <benchmark/benchmark.h>
#include <hostsim/filter_factory.h>
#include <hostsim/log_sink.h>
#include <hostsim/recording_filter.h>

#include <cstring>
#include <memory>
#include <vector>

#include "VyLumoFilterPlugin.h"
#include "plugin_test_support.h"

namespace {

constexpr uint32_t kWidth = 4000;
constexpr uint32_t kHeight = 3000;

// One preview instance over one frame, the switches as `bypassMode` says.
void runFrames(benchmark::State& state, int32_t bypassMode) {
  lumotest::prepareDevice();
  hostsim::setAndroidLogFile("-");
  hostsim::FilterFactoryOverride factory([](videoprocess::VideoFormat format, bool) {
    return new hostsim::RecordingFilter(format, nullptr);
  });
  VyLumoFilterPlugin::m_algoBypassMode = bypassMode;
  VyLumoFilterPlugin plugin;
  vyalgo2::CreateInfo info;
  info.processMode = 1;
  plugin.initialize(&info, vyalgo2::VyaNodeInterface{});
  // A still daylight scene: the same calibration cell every frame.
  lumotest::Frame frame = lumotest::makeFrame(kWidth, kHeight, 1, lumotest::sceneTags(9));
  plugin.processRequest(&frame.request);  // the first frame uploads the parameters
  for (auto _ : state) {
    benchmark::DoNotOptimize(plugin.processRequest(&frame.request));
    benchmark::ClobberMemory();
  }
  plugin.destroy();
  VyLumoFilterPlugin::m_algoBypassMode = 0;
}

void BM_PluginStillFrame(benchmark::State& state) { runFrames(state, 0); }
void BM_PluginBypassFrame(benchmark::State& state) { runFrames(state, 1); }

// The reference: the picture bytes of the frame as one contiguous memcpy.
void BM_MemcpyFrame(benchmark::State& state) {
  const size_t bytes = size_t{kWidth} * kHeight * 3 / 2;
  std::vector<uint8_t> a(bytes, 0x5a), b(bytes);
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), bytes);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_PluginStillFrame)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PluginBypassFrame)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MemcpyFrame)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
