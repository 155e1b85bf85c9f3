// What the band trees alone say about the block a frame gets, in words for
// the report's coverage notes: a tree with no lux band, a lux band with one
// CCT band only, bands out of order, no band in low light, repeated keys,
// and scenes the camera reports that the file lacks. Records are
// "scene NAME" and "zoom RATIO" (ratioText).
#pragma once

#include <calib/calibration_file.h>
#include <calib/finding.h>

#include <string>
#include <vector>

namespace lumo {

std::vector<calib::Finding> selectionFindings(const calib::CalibrationFile& file);

// "2", "1.5": a zoom ratio as records and map keys name it.
std::string ratioText(float ratio);

}  // namespace lumo
