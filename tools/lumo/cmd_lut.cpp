// `lumo lut doctor FILE...`: LUT files examined before they go into a
// calibration file. `lumo lut fit BEFORE AFTER... -o look.cube`: a LUT
// fitted to pictures graded elsewhere.
#include <calib/lut_fit.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "atomic_file.h"
#include "commands.h"
#include "failure.h"
#include "lut_doctor.h"

namespace lumo {
namespace {

struct FitCommand {
  std::vector<std::string> files;
  std::string pairs;
  std::string output;
  int size = 17;
  double smooth = calib::kChooseSmooth;
  bool json = false;
};

void runFit(const FitCommand& o) {
  std::vector<std::pair<std::string, std::string>> names;
  if (o.files.size() % 2 != 0)
    throw CLI::ValidationError(
        "BEFORE AFTER", "pictures come in pairs: " + std::to_string(o.files.size()) + " given");
  for (size_t i = 0; i < o.files.size(); i += 2) names.emplace_back(o.files[i], o.files[i + 1]);
  if (!o.pairs.empty()) {
    try {
      for (auto& p : calib::pairsInFolder(o.pairs)) names.push_back(std::move(p));
    } catch (const std::exception& e) {
      throw Failure(std::string("lut fit: ") + e.what());
    }
  }
  if (names.empty())
    throw CLI::ValidationError("BEFORE AFTER", "give picture pairs or --pairs DIR");
  std::vector<calib::FitPair> pairs;
  calib::LutFit fit;
  try {
    for (const auto& [before, after] : names) {
      std::fprintf(stderr, "lumo: lut fit: reading %s\n", before.c_str());
      pairs.push_back(calib::loadFitPair(before, after));
    }
    std::fprintf(stderr, "lumo: lut fit: fitting %d points to %zu pair%s\n", o.size, pairs.size(),
                 pairs.size() == 1 ? "" : "s");
    fit = calib::fitLut(pairs, {o.size, o.smooth, 0});
  } catch (const std::exception& e) {
    throw Failure(std::string("lut fit: ") + e.what());
  }
  const std::string title = std::filesystem::path(o.output).stem().string();
  const std::string cube = calib::fitCubeText(fit, title);
  writeFileAtomically(o.output, cube.data(), cube.size());
  if (o.json) {
    nlohmann::json j = calib::fitJson(fit);
    j["output"] = o.output;
    j["pairs"] = nlohmann::json::array();
    for (const auto& [before, after] : names) j["pairs"].push_back({before, after});
    std::printf("%s\n", j.dump(2).c_str());
  } else {
    std::printf("%s: %zu pair%s\n", o.output.c_str(), pairs.size(), pairs.size() == 1 ? "" : "s");
    for (const std::string& line : calib::fitLines(fit)) std::printf("%s\n", line.c_str());
  }
}

void addFitCommand(CLI::App& group) {
  auto o = std::make_shared<FitCommand>();
  CLI::App* c = group.add_subcommand(
      "fit", "Fit a 3D LUT to before/after pictures of a look graded elsewhere");
  c->add_option("BEFORE AFTER", o->files,
                "Picture pairs, before then after (PNG, JPEG or raw frames with their geometry "
                "in the name; 8 bits per channel, same size, same framing)");
  c->add_option("--pairs", o->pairs,
                "Folder with before/NAME and after/NAME pictures, matched by name")
      ->check(CLI::ExistingDirectory);
  c->add_option("-o,--output", o->output, "The .cube file to write")->required();
  c->add_option("--size", o->size, "Lattice points per axis (default 17, what the plugin renders)")
      ->check(CLI::IsMember({17, 33, 65}));
  c->add_option("--smooth", o->smooth,
                "Weight of the smoothness term, larger is smoother (default: the one of 1e-7, "
                "1e-6, 1e-5, 1e-4 with the lowest held-out error)")
      ->check(CLI::Range(0.0, 1e6));
  c->add_flag("--json", o->json, "Report as JSON (with the empty cells' indices)");
  c->footer(
      "Every before colour is interpolated tetrahedrally in the lattice exactly as the renderer "
      "does it; the nodes minimise the squared error to the after colours plus the smoothness "
      "term (second differences over the lattice). Pixels are held out (1 in 5 tiles of 16 x "
      "16, or whole pairs when there are three or more) to measure the error on colours the "
      "fit never saw; the written LUT then uses every pixel. Prints mean, p95 and max "
      "CIEDE2000 on training and held-out pixels and the share of lattice cells that held "
      "data: cells without data are filled by smoothness and are a guess. Refuses pictures "
      "of different sizes, 16-bit PNGs and pairs whose luma gradients hardly correlate "
      "(misaligned). A LUT cannot express local edits, vignettes or anything else that "
      "depends on where a pixel is. See docs/look-matching.md. Exit 0 written, 1 failure, 2 "
      "usage.");
  c->callback([o] { runFit(*o); });
}

}  // namespace

void addLutCommand(CLI::App& app) {
  auto files = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  auto layout = std::make_shared<std::string>();
  CLI::App* c = addGroupedCommand(
      app, "lut", "LUT files from grading tools", "doctor",
      "Say what each LUT file is and what looks wrong with it. Exit 1 when any file has a "
      "problem or cannot be read");
  c->add_option("FILE", *files,
                "LUT files (.cube, .3dl, .clf, .ctf, .csp, .spi3d, ..., .png, .jpg)")
      ->required();
  c->add_flag("--json", *json, "Report as JSON");
  c->add_option("--layout", *layout,
                "Picture LUTs: force the layout (hald, tiles, tiles-up, strip; default: detected)")
      ->check(CLI::IsMember({"auto", "hald", "tiles", "tiles-up", "strip"}));
  c->footer(
      "Reports the format and .cube dialect (Iridas or Resolve), lattice size, 1D shaper, input "
      "domain and title; for pictures (.png, .jpg) the layout: Hald CLUT or N tiles of N x N "
      "(8x8, 4x4, strips), chosen among those the size allows as the one whose lattice is "
      "closest to the identity. Checks: lattice written blue-fastest (output red correlates with "
      "the "
      "blue index rather than the red one), values outside 0..1, NaN or infinite values, an input "
      "domain other than 0..1, a lattice within 1 code value of the identity, a lattice whose "
      "outputs span under 2 code values, a picture whose runner-up layout reads almost as close to "
      "the identity (layout-ambiguous). Then says what `calib build` would do: the 17-point "
      "lattice it would make and the error of that resampling (maximum and mean in code values "
      "over a 52^3 grid). Formats and checks: docs/calibration.md.");
  addFitCommand(*c->get_parent());
  c->callback([files, json, layout] {
    size_t bad = 0;
    nlohmann::json report = nlohmann::json::array();
    for (const std::string& path : *files) {
      const LutDiagnosis d = diagnoseLut(path, *layout);
      bad += d.ok() ? 0 : 1;
      if (*json) {
        report.push_back(diagnosisJson(d));
      } else {
        for (const std::string& line : diagnosisLines(d)) std::printf("%s\n", line.c_str());
      }
    }
    if (*json) std::printf("%s\n", report.dump(2).c_str());
    if (bad != 0)
      throw Failure("lut doctor: " + std::to_string(bad) + " of " + std::to_string(files->size()) +
                    " files have problems");
  });
}

}  // namespace lumo
