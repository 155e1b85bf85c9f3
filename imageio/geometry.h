// The layout of one image in memory, as camera buffers have it: NV21 and
// NV12 are a Y plane of `scanline` rows followed directly by one
// interleaved chroma plane of ceil(scanline / 2) rows, both `stride` bytes
// per row; RGBA is one plane of `scanline` rows of 4 * `stride` bytes.
// The simulator's buffers, the renderer's frame views, the codecs and the
// tools all describe their pixels with it. Header only and C++17, because
// the simulator's library is built as C++17 and links nothing of ours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace lumo {

enum class PixelFormat { NV21, NV12, RGBA };

inline bool isYuv(PixelFormat format) { return format != PixelFormat::RGBA; }

inline const char* formatName(PixelFormat format) {
  static const char* const kNames[] = {"nv21", "nv12", "rgba"};
  const auto i = static_cast<size_t>(format);
  return i < 3 ? kNames[i] : "?";
}

inline std::optional<PixelFormat> parseFormat(const std::string& name) {
  for (PixelFormat f : {PixelFormat::NV21, PixelFormat::NV12, PixelFormat::RGBA})
    if (name == formatName(f)) return f;
  return std::nullopt;
}

struct Geometry {
  PixelFormat format = PixelFormat::RGBA;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t stride = 0;    // pixels per row (bytes per row for the Y plane)
  uint32_t scanline = 0;  // rows of the Y plane (or of the RGBA plane)
};

inline bool operator==(const Geometry& a, const Geometry& b) {
  return a.format == b.format && a.width == b.width && a.height == b.height &&
         a.stride == b.stride && a.scanline == b.scanline;
}
inline bool operator!=(const Geometry& a, const Geometry& b) { return !(a == b); }

// Fills a zero stride from the width (rounded up to even for 4:2:0, whose
// last chroma pair of an odd width needs the extra byte) and a zero
// scanline from the height.
inline Geometry completeGeometry(Geometry g) {
  if (g.stride == 0) g.stride = isYuv(g.format) ? (g.width + 1) & ~1u : g.width;
  if (g.scanline == 0) g.scanline = g.height;
  return g;
}

inline uint32_t planeCount(const Geometry& g) { return isYuv(g.format) ? 2 : 1; }
// Bytes per row, the same for both planes of a 4:2:0 image.
inline size_t rowBytes(const Geometry& g) {
  return isYuv(g.format) ? size_t(g.stride) : size_t(g.stride) * 4;
}
inline size_t chromaOffset(const Geometry& g) { return size_t(g.stride) * g.scanline; }
// Bytes from the start to plane `index` (0 past the last plane).
inline size_t planeOffset(const Geometry& g, uint32_t index) {
  return index == 1 && isYuv(g.format) ? chromaOffset(g) : 0;
}
// Rows of plane `index` that hold pixels (0 past the last plane); odd
// heights give the chroma plane a last row that covers one luma row.
inline uint32_t planeRows(const Geometry& g, uint32_t index) {
  if (index >= planeCount(g)) return 0;
  return index == 0 ? g.height : (g.height + 1) / 2;
}
inline size_t bufferBytes(const Geometry& g) {
  if (!isYuv(g.format)) return rowBytes(g) * g.scanline;
  return chromaOffset(g) + size_t(g.stride) * ((g.scanline + 1) / 2);
}

// Empty when an image of this geometry can be made, otherwise why not.
// Odd 4:2:0 sizes are allowed: the last chroma row and column then cover a
// single luma row or column.
inline std::string checkGeometry(const Geometry& g) {
  if (g.width == 0 || g.height == 0) return "width and height must be positive";
  if (g.stride < g.width)
    return "stride " + std::to_string(g.stride) + " is below the width " + std::to_string(g.width);
  if (g.scanline < g.height)
    return "scanline " + std::to_string(g.scanline) + " is below the height " +
           std::to_string(g.height);
  if (isYuv(g.format) && (g.stride % 2 != 0))
    return "a 4:2:0 stride must be even, got " + std::to_string(g.stride);
  // Keep every byte offset comfortably inside the 32-bit int arithmetic of
  // the image libraries.
  const double bytes = double(g.stride) * g.scanline * (isYuv(g.format) ? 1.5 : 4.0);
  if (bytes > double(std::numeric_limits<int32_t>::max()))
    return "image of " + std::to_string(g.stride) + "x" + std::to_string(g.scanline) +
           " is too large";
  return {};
}

}  // namespace lumo
