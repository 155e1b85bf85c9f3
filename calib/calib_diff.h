// `lumo calib diff A B`: what changed between two calibration files, per
// scene, band and zoom ratio, and for LUT blocks how much the colours move
// on a reference chart (CIEDE2000).
#pragma once

#include <calib/calibration_file.h>
#include <calib/colour_difference.h>

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace lumo {

struct PatchDelta {
  std::string patch;
  double de = 0;
};

struct ChartDelta {
  double mean = 0;
  double max = 0;
  std::vector<PatchDelta> worst;  // largest first, at most kWorstPatches
};

struct DiffEntry {
  std::string record;  // "scene \"night\", lux band 0, cct band 1"
  std::string change;
  std::optional<ChartDelta> colour;  // LUT blocks whose contents differ
};

constexpr size_t kWorstPatches = 3;

// The 24 patches of the reference chart: name and 8-bit sRGB.
struct ChartPatch {
  const char* name;
  std::array<uint8_t, 3> srgb;
};
const std::vector<ChartPatch>& referenceChart();

using calib::ciede2000;
using calib::srgbToLab;

// The chart through both LUT blocks, compared patch by patch.
ChartDelta lutDelta(const calib::LutBlock& a, const calib::LutBlock& b);

std::vector<DiffEntry> diffCalibration(const calib::CalibrationFile& a,
                                       const calib::CalibrationFile& b);

// "record: change[, dE00 mean M max X (worst: name d, ...)]"
std::string diffLine(const DiffEntry& entry);
nlohmann::json diffJson(const std::vector<DiffEntry>& entries);

}  // namespace lumo
