// `lumo calib lint`: what a valid calibration file allows but is probably a
// mistake. Runs on files `calib check` accepts; each finding names the
// record and says what was seen.
#pragma once

#include <calib/calibration_file.h>
#include <calib/finding.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace lumo {

// Lux below this counts as low light: a look tuned in daylight is a poor fit there.
constexpr unsigned kLowLux = 50;

// Warnings with a record ("scene block 2 \"night\"", "LUT pool block 7", ...)
// and a rule: "single-cct", "no-low-lux", "never-chosen", "missing-scene",
// "zoom-order", "shared-block".
std::vector<calib::Finding> lintCalibration(const calib::CalibrationFile& file);

// {"findings": [...], "warnings": N}
nlohmann::json lintJson(const std::vector<calib::Finding>& findings);

}  // namespace lumo
