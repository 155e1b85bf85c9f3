// Geometry arithmetic and allocation of the tool's images.
#include "image.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace lumo {
const char* formatName(PixelFormat format) {
  switch (format) {
    case PixelFormat::Nv21:
      return "nv21";
    case PixelFormat::Nv12:
      return "nv12";
    case PixelFormat::Rgba:
      return "rgba";
  }
  return "?";
}

std::optional<PixelFormat> parseFormat(const std::string& name) {
  if (name == "nv21") return PixelFormat::Nv21;
  if (name == "nv12") return PixelFormat::Nv12;
  if (name == "rgba") return PixelFormat::Rgba;
  return std::nullopt;
}

Geometry completeGeometry(Geometry geometry) {
  // A 4:2:0 row of chroma pairs covers an even number of pixels.
  if (geometry.stride == 0)
    geometry.stride = isYuv(geometry.format) ? (geometry.width + 1) & ~1u : geometry.width;
  if (geometry.scanline == 0) geometry.scanline = geometry.height;
  return geometry;
}

std::string checkGeometry(const Geometry& g) {
  if (g.width == 0 || g.height == 0) return "width and height must be positive";
  if (g.stride < g.width)
    return "stride " + std::to_string(g.stride) + " is below the width " + std::to_string(g.width);
  if (g.scanline < g.height)
    return "scanline " + std::to_string(g.scanline) + " is below the height " +
           std::to_string(g.height);
  if (isYuv(g.format) && (g.stride % 2 != 0))
    return "a 4:2:0 stride must be even, got " + std::to_string(g.stride);
  // Keep every byte offset comfortably inside 32-bit int arithmetic of the libraries.
  const double bytes = double(g.stride) * g.scanline * (isYuv(g.format) ? 1.5 : 4.0);
  if (bytes > double(std::numeric_limits<int32_t>::max()))
    return "image of " + std::to_string(g.stride) + "x" + std::to_string(g.scanline) +
           " is too large";
  return {};
}

size_t rowBytes(const Geometry& g) {
  return isYuv(g.format) ? size_t(g.stride) : size_t(g.stride) * 4;
}

size_t chromaOffset(const Geometry& g) { return size_t(g.stride) * g.scanline; }

size_t bufferBytes(const Geometry& g) {
  if (!isYuv(g.format)) return size_t(g.stride) * 4 * g.scanline;
  return chromaOffset(g) + size_t(g.stride) * ((g.scanline + 1) / 2);
}

Image makeImage(Geometry geometry) {
  Image image;
  image.geometry = completeGeometry(geometry);
  const Geometry& g = image.geometry;
  image.bytes.resize(bufferBytes(g));  // arrives as zeros
  if (isYuv(g.format)) {
    std::fill(image.bytes.begin() + chromaOffset(g), image.bytes.end(), uint8_t{128});
  } else {
    for (uint32_t y = 0; y < g.scanline; ++y)
      for (uint32_t x = 0; x < g.stride; ++x) image.row(y)[x * 4 + 3] = 255;
  }
  return image;
}

}  // namespace lumo
