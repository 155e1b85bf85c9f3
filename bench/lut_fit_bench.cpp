// `lumo lut fit` on one 12 MP pair (4000 x 3000 JPEGs of a generated scene
// and of the same scene through a generated look): the time to decode the
// pair beside the time to fit it at 17 and at 33 points on two threads.
#include <benchmark/benchmark.h>
#include <calib/looks.h>
#include <calib/lut_fit.h>

#include <filesystem>

#include "image_files.h"
#include "test_scenes.h"

namespace {

namespace fs = std::filesystem;

struct PairFiles {
  std::string before, after;
};

// Written once per run into the temporary folder.
const PairFiles& files() {
  static const PairFiles f = [] {
    const fs::path dir = fs::temp_directory_path();
    PairFiles p{(dir / "lumo_fit_bench_before.jpg").string(),
                (dir / "lumo_fit_bench_after.jpg").string()};
    lumo::Image before = lumo::generateScene("plants", 4000, 3000);
    calib::LookParams look;
    look.temperature = 0.3;
    look.contrast = 0.25;
    look.saturation = 1.2;
    lumo::Image after = before;
    for (uint32_t y = 0; y < 3000; ++y)
      for (uint32_t x = 0; x < 4000; ++x) {
        uint8_t* px = after.row(y) + 4 * x;
        const auto out = calib::applyLook(look, {px[0] / 255.0, px[1] / 255.0, px[2] / 255.0});
        for (int c = 0; c < 3; ++c) px[c] = uint8_t(out[c] * 255 + 0.5);
      }
    lumo::writeImage(p.before, before, 95);
    lumo::writeImage(p.after, after, 95);
    return p;
  }();
  return f;
}

void BM_DecodePair(benchmark::State& state) {
  const PairFiles& f = files();
  for (auto _ : state) benchmark::DoNotOptimize(calib::loadFitPair(f.before, f.after));
}

void BM_Fit(benchmark::State& state) {
  const PairFiles& f = files();
  const std::vector<calib::FitPair> pairs = {calib::loadFitPair(f.before, f.after)};
  for (auto _ : state)
    benchmark::DoNotOptimize(calib::fitLut(pairs, {int(state.range(0)), calib::kChooseSmooth, 2}));
}

}  // namespace

BENCHMARK(BM_DecodePair)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Fit)->Arg(17)->Arg(33)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
