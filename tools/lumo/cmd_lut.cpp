// `lumo lut doctor FILE...`: LUT files examined before they go into a
// calibration file.
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "failure.h"
#include "lut_doctor.h"

namespace lumo {

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
