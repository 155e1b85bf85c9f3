// Names for a calibration file's LUT blocks, taken from the looks
// description it was built from: the file itself carries only block numbers.
#pragma once

#include <calib/calibration_file.h>

#include <map>
#include <string>

namespace lumo {

// A block is named after the first look of the description (the JSON that
// `calib build` reads) whose LUT it holds byte for byte; a block no look
// matches gets no name, and a look whose source cannot be read names
// nothing. Names already in `names` stay. Throws std::runtime_error naming
// the file when it is not a JSON object with a "looks" object.
void addLookNames(const calib::CalibrationFile& file, const std::string& descriptionPath,
                  std::map<size_t, std::string>& names);

}  // namespace lumo
