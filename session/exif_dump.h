// Reading the plugin's parameter text dumps ("..._exif.txt"): blocks of
// key=value lines (frameNum on preview files only, then width, height,
// aiscene, lux, cct, zoom_ratio, shading, lut_algo_input).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumo {

struct ExifBlock {
  std::optional<uint32_t> frameNum;
  std::string width, height, aiscene, lux, cct, zoomRatio, shading;
  std::vector<uint8_t> lut;  // lut_algo_input values
};

// Empty when the file cannot be read; malformed lines are skipped.
std::vector<ExifBlock> readExifDump(const std::string& path);

}  // namespace lumo
