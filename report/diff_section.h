// The report's diff: how far each cell's LUT moves the reference chart
// between two calibrations (CIEDE2000, computed by `calib diff`'s own code).
#pragma once

#include <calib/calibration_file.h>

#include <string>

#include "html.h"
#include "sections.h"

namespace lumo::report {

// CIEDE2000 differences at or above this are drawn fully red, past about 10
// a look is plainly another look: the diff's heat map and the comparison
// page's difference pictures share the scale.
constexpr double kHeatTop = 10.0;

// What changed from `baseline` to `changed`: per scene of `changed` (matched
// by name in the baseline), the lux x CCT grid as a heat map of the mean
// CIEDE2000 over the chart between the two files' blocks of the same cell,
// the structural changes in words (read from the baseline to the changed
// file, as `calib diff BASELINE CHANGED` reads them), and the worst cells'
// swatches side by side. Both names, and which one is the baseline, head the
// section. Blocks with an entry in the names maps are shown by that name.
// Swatch pictures go into `styles`.
Section diffSection(const calib::CalibrationFile& baseline, const calib::CalibrationFile& changed,
                    const std::string& baselineName, const std::string& changedName,
                    std::string& styles, const BlockNames& baselineBlocks = {},
                    const BlockNames& changedBlocks = {});

}  // namespace lumo::report
