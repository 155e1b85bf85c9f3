// Geometry arithmetic and allocation of the tool's images.
#include "image.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace lumo {
namespace {

// Reserves `bytes` in `out` and asks the kernel to back the block's whole
// 2 MB stretches with huge pages: a fresh 12 MP frame (18 MB) then faults in
// a few huge pages instead of about 4,400 small ones when it is first
// written. Only advice: where huge pages are off nothing changes.
void reserveFrameBytes(std::vector<uint8_t>& out, size_t bytes) {
  constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
  out.reserve(bytes);
  if (bytes < 2 * kHugePage) return;
  const uintptr_t begin = reinterpret_cast<uintptr_t>(out.data());
  const uintptr_t first = (begin + kHugePage - 1) & ~(kHugePage - 1);
  const uintptr_t last = (begin + bytes) & ~(kHugePage - 1);
  if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

}  // namespace

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
  reserveFrameBytes(image.bytes, bufferBytes(g));
  image.bytes.assign(bufferBytes(g), 0);
  if (isYuv(g.format)) {
    std::fill(image.bytes.begin() + chromaOffset(g), image.bytes.end(), uint8_t{128});
  } else {
    for (uint32_t y = 0; y < g.scanline; ++y)
      for (uint32_t x = 0; x < g.stride; ++x) image.row(y)[x * 4 + 3] = 255;
  }
  return image;
}

}  // namespace lumo
