// Geometry carried by the name of a raw image dump: "..._4000x3000_4032"
// (optionally followed by "_scanline"), or "width_W_height_H_stride_S_scanline_L".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "image.h"

namespace lumo {

struct NameGeometry {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t stride = 0;                // 0 when the name does not say
  uint32_t scanline = 0;              // 0 when the name does not say
  std::optional<PixelFormat> format;  // from the extension or a format word in the name
};

// Looks only at the file name, not at the folders.
std::optional<NameGeometry> geometryFromName(const std::string& path);
// Pixel format named by the extension or a word of the name, if any.
std::optional<PixelFormat> formatFromName(const std::string& path);

}  // namespace lumo
