// .cube LUT files. Reading goes through OpenColorIO, which understands the
// common dialects (Iridas and Resolve, 1D and 3D, DOMAIN_MIN/MAX, comments,
// CRLF) and any lattice size; the result is resampled onto our 17-point
// lattice. Writing produces TITLE, LUT_3D_SIZE 17 and red-fastest rows.
#pragma once

#include <calib/calibration_file.h>

#include <string>

namespace calib {

struct CubeInfo {
  std::string title;  // empty when the file has none
  int size3d = 0;     // LUT_3D_SIZE, 0 when absent
  int size1d = 0;     // LUT_1D_SIZE, 0 when absent
};

// Throws std::runtime_error naming the file and what OpenColorIO reported.
LutBlock readCube(const std::string& path, CubeInfo* info = nullptr);
// The text of a .cube file for a LUT block (LF line endings).
std::string cubeText(const LutBlock& lut, const std::string& title);

}  // namespace calib
