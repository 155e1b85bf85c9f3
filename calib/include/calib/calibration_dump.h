// Human-readable text of a decoded calibration file: header, both band
// trees with the blocks they point at, a summary of every LUT and the
// shading values, then the issues.
#pragma once

#include <calib/calibration_reader.h>

#include <string>

namespace calib {

std::string dumpText(const ReadResult& result, const std::string& fileName);

// One line about a LUT block: identity or how it moves a few reference colours.
std::string describeLut(const LutBlock& lut);

}  // namespace calib
