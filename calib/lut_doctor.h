// `lumo lut doctor`: what a LUT file is and what looks wrong with it,
// before `calib build` quietly resamples it.
#pragma once

#include <calib/lut_source.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace lumo {

struct LutDiagnosis {
  std::string file;
  std::string readError;  // set when the file could not be read at all
  calib::LutImport import;
  std::vector<calib::Finding> problems;
  bool ok() const { return readError.empty() && problems.empty(); }
};

LutDiagnosis diagnoseLut(const std::string& path, const std::string& imageLayout = "");

// "FILE: ..." lines: what the file is, each problem, what calib build would
// do, then "FILE: ok" or "FILE: N problems".
std::vector<std::string> diagnosisLines(const LutDiagnosis& d);
nlohmann::json diagnosisJson(const LutDiagnosis& d);

}  // namespace lumo
