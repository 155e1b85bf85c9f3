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

// What the plugin's own image dump names say:
// "IMAGE_[lumofilter]_INSTANCE_frame[N]_ROLE_WxH_STRIDE" plus the host's
// extension for the format.
struct PluginDumpName {
  std::string imageName;  // may be empty (no snapshot seen yet)
  std::string instance;   // "RealTimePreview", "OfflineSnapshot"
  uint32_t frame = 0;
  std::string role;  // "input", "output"
  uint32_t width = 0, height = 0, stride = 0;
};
std::optional<PluginDumpName> pluginDumpName(const std::string& path);

// Looks only at the file name, not at the folders.
std::optional<NameGeometry> geometryFromName(const std::string& path);
// Pixel format named by the extension or a word of the name, if any.
std::optional<PixelFormat> formatFromName(const std::string& path);

}  // namespace lumo
