// `lumo calib lint`: what a valid calibration file allows but is probably a
// mistake. Runs on files `calib check` accepts; each finding names the
// record and says what was seen.
#pragma once

#include <calib/calibration_file.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace lumo {

struct LintFinding {
  std::string rule;    // "single-cct", "no-low-lux", "never-chosen", "missing-scene", "zoom-order",
                       // "shared-block"
  std::string record;  // "scene block 2 \"night\"", "LUT pool block 7", ...
  std::string message;
};

// Lux below this counts as low light: a look tuned in daylight is a poor fit there.
constexpr unsigned kLowLux = 50;

std::vector<LintFinding> lintCalibration(const calib::CalibrationFile& file);

// "FILE: record: warning: message (rule)"
std::string lintLine(const std::string& file, const LintFinding& finding);
nlohmann::json lintJson(const std::vector<LintFinding>& findings);

}  // namespace lumo
