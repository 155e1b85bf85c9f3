// Trigger costs: the vector LUT blend against the plain scalar loop for every
// blend case, and a trigger call whose calibration cell did not change.
#include <benchmark/benchmark.h>
#include <calib/calibration_file.h>
#include <lumo/contract.h>
#include <unistd.h>
#include <vyalgo2/VyLog.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "lut_blend.h"
#include "paramTrigger.h"
#include "paramUtil.h"

namespace {

struct BlendFixture {
  BlendFixture() : luts(4, std::vector<uint8_t>(LUT_BYTES)), out(LUT_BYTES) {
    std::mt19937 rng(7);
    for (auto& lut : luts) {
      for (auto& b : lut) b = static_cast<uint8_t>(rng());
    }
    const float w[4] = {0.21f, 0.29f, 0.17f, 0.33f};
    for (int i = 0; i < 4; i++) {
      src.lut[i] = luts[static_cast<size_t>(i)].data();
      src.weight[i] = w[i];
    }
  }
  std::vector<std::vector<uint8_t>> luts;
  std::vector<uint8_t> out;
  lumo::LutBlendSources src{};
};

BlendFixture& blendFixture() {
  static BlendFixture f;
  return f;
}

void BM_BlendReference(benchmark::State& state) {
  BlendFixture& f = blendFixture();
  const int blendCase = static_cast<int>(state.range(0));
  for (auto _ : state) {
    lumo::blendLutReference(blendCase, f.src, f.out.data(), LUT_BYTES);
    benchmark::DoNotOptimize(f.out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * LUT_BYTES);
}

void BM_BlendVector(benchmark::State& state) {
  BlendFixture& f = blendFixture();
  const int blendCase = static_cast<int>(state.range(0));
  for (auto _ : state) {
    lumo::blendLutVector(blendCase, f.src, f.out.data(), LUT_BYTES);
    benchmark::DoNotOptimize(f.out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * LUT_BYTES);
}

// The baseline build of the vector kernel (SSE2 on x86-64), whatever the CPU.
void BM_BlendBaseline(benchmark::State& state) {
  BlendFixture& f = blendFixture();
  const int blendCase = static_cast<int>(state.range(0));
  for (auto _ : state) {
    lumo::blendLutVectorWith(lumo::LutKernel::kBaseline, blendCase, f.src, f.out.data(), LUT_BYTES);
    benchmark::DoNotOptimize(f.out.data());
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_BlendReference)->DenseRange(2, 6);
BENCHMARK(BM_BlendVector)->DenseRange(2, 6);
BENCHMARK(BM_BlendBaseline)->DenseRange(2, 6);

// A store with one scene and one zoom ratio over a 2 x 2 grid of cells.
struct TriggerFixture {
  TriggerFixture() {
    dir =
        std::filesystem::temp_directory_path() / ("lumo_trigger_bench_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    calib::CalibrationFile file;
    std::vector<calib::LuxBand> bands(2);
    bands[0] = {100, 200, {{2000, 3000, 0}, {4000, 5000, 1}}};
    bands[1] = {400, 500, {{2000, 3000, 2}, {4000, 5000, 3}}};
    file.scenes.push_back({lumo::kCommonScene, bands, std::nullopt});
    file.zooms.push_back({1.0f, bands, std::nullopt});
    for (unsigned i = 0; i < 4; i++) {
      file.luts.emplace_back(calib::kLutBlockBytes, static_cast<uint8_t>(40 * i));
      file.shadings.push_back({0.1f * float(i), 1, 2, 3, 4, 5, 6, 7});
    }
    const std::string path = (dir / "param.bin").string();
    std::string error;
    if (!calib::writeFile(file, path, &error)) std::fprintf(stderr, "%s\n", error.c_str());
    // Log gates closed: the cost measured is the selection, not the logging.
    gVyCamLogLevel = 7;
    gVyCamOfflineLogLevel = 7;
    store = std::make_unique<ParamUtil>(path);
    trigger.initialize(param_trigger_init_info{false, lumo::kPreviewInstance}, *store);
  }
  ~TriggerFixture() { std::filesystem::remove_all(dir); }
  std::filesystem::path dir;
  std::unique_ptr<ParamUtil> store;
  ParamTrigger trigger;
  param_lut_t lut{};
  param_shading_float_t shading{};
};

TriggerFixture& triggerFixture() {
  static TriggerFixture f;
  return f;
}

void BM_TriggerUnchangedCell(benchmark::State& state) {
  TriggerFixture& f = triggerFixture();
  param_trigger_t input;
  input.lux = 150;
  input.cct = 2500;
  input.zoom_ratio = 1.0f;
  input.aiscene = lumo::kCommonScene;
  bool changed = false;
  f.trigger.trigger(input, &f.lut, &f.shading, changed);
  for (auto _ : state) {
    changed = false;
    benchmark::DoNotOptimize(f.trigger.trigger(input, &f.lut, &f.shading, changed));
  }
}
BENCHMARK(BM_TriggerUnchangedCell);

// Alternating between two cells: every call blends a full LUT (case 4).
void BM_TriggerChangedCell(benchmark::State& state) {
  TriggerFixture& f = triggerFixture();
  param_trigger_t inputs[2];
  inputs[0].lux = 300;
  inputs[0].cct = 3500;
  inputs[1].lux = 150;
  inputs[1].cct = 2500;
  for (auto& in : inputs) {
    in.zoom_ratio = 1.0f;
    in.aiscene = lumo::kCommonScene;
  }
  size_t i = 0;
  for (auto _ : state) {
    bool changed = false;
    benchmark::DoNotOptimize(f.trigger.trigger(inputs[i & 1], &f.lut, &f.shading, changed));
    i++;
  }
}
BENCHMARK(BM_TriggerChangedCell);

// Prints, after the table, each blend case's vector time against the scalar
// loop measured in the same run.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    // With --benchmark_repetitions the median stands for the benchmark.
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && times.count(run.run_name.str()) == 0) {
        times[run.run_name.str()] = run.GetAdjustedCPUTime();
      } else if (run.aggregate_name == "median") {
        times[run.run_name.str()] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\nLUT blend CPU time against the plain scalar loop (same run; vector is %s):\n",
                lumo::lutKernelAvailable(lumo::LutKernel::kAvx2) ? "AVX2" : "baseline");
    for (int c = 2; c <= 6; c++) {
      const std::string ref = "BM_BlendReference/" + std::to_string(c);
      const std::string vec = "BM_BlendVector/" + std::to_string(c);
      const std::string base = "BM_BlendBaseline/" + std::to_string(c);
      if (times.count(ref) == 0 || times.count(vec) == 0 || times.count(base) == 0) continue;
      std::printf("  case %d: scalar %.0f ns, vector %.0f ns (%.2fx), baseline %.0f ns (%.2fx)\n",
                  c, times[ref], times[vec], times[ref] / times[vec], times[base],
                  times[ref] / times[base]);
    }
    if (times.count("BM_TriggerUnchangedCell") != 0) {
      std::printf("Unchanged-cell trigger call: %.0f ns\n", times["BM_TriggerUnchangedCell"]);
    }
  }

private:
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
