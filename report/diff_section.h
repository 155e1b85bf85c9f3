// The report's diff: how far each cell's LUT moves the reference chart
// between two calibrations (CIEDE2000, computed by `calib diff`'s own code).
#pragma once

#include <calib/calibration_file.h>

#include <string>

#include "html.h"

namespace lumo::report {

// Per scene of A (matched by name in B), the lux x CCT grid as a heat map of
// the mean CIEDE2000 over the chart between A's and B's block of the same
// cell, the structural changes in words, and the worst cells' swatches side
// by side. Swatch pictures go into `styles`.
Section diffSection(const calib::CalibrationFile& a, const calib::CalibrationFile& b,
                    const std::string& nameA, const std::string& nameB, std::string& styles);

}  // namespace lumo::report
