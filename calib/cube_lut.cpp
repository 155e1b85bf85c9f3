// .cube import (through the LUT source reader) and export as plain text.
#include <calib/cube_lut.h>
#include <calib/lut_source.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace calib {

LutBlock readCube(const std::string& path, CubeInfo* info) {
  LutImport imported = importLut(path);
  if (info != nullptr) {
    info->title = imported.info.title;
    info->size3d = imported.info.size3d;
    info->size1d = imported.info.size1d;
  }
  return std::move(imported.lut);
}

std::string cubeText(const LutBlock& lut, const std::string& title) {
  std::string out = "TITLE \"" + title + "\"\nLUT_3D_SIZE " + std::to_string(kLutEdge) + "\n";
  char row[64];
  for (size_t i = 0; i + 2 < lut.size(); i += 3) {
    std::snprintf(row, sizeof(row), "%.6f %.6f %.6f\n", lut[i] / 255.0, lut[i + 1] / 255.0,
                  lut[i + 2] / 255.0);
    out += row;
  }
  return out;
}

}  // namespace calib
