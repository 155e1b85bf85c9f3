// In-memory images of the tool: packed RGBA or 4:2:0 semi-planar YUV (NV21,
// NV12) with the stride and scanline padding camera buffers carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame_memory.h"

namespace lumo {

enum class PixelFormat { Nv21, Nv12, Rgba };

const char* formatName(PixelFormat format);  // "nv21", "nv12", "rgba"
std::optional<PixelFormat> parseFormat(const std::string& name);
inline bool isYuv(PixelFormat format) { return format != PixelFormat::Rgba; }

struct Geometry {
  PixelFormat format = PixelFormat::Rgba;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t stride = 0;    // pixels per row (bytes per row for the Y plane)
  uint32_t scanline = 0;  // rows of the Y plane (or of the RGBA plane)
};

// Fills a zero stride or scanline from the width (even for YUV) or height.
Geometry completeGeometry(Geometry geometry);
// Empty when usable, otherwise why not.
std::string checkGeometry(const Geometry& geometry);

// Bytes of a buffer laid out like the camera's: the Y plane holds `scanline`
// rows, the interleaved chroma plane follows with scanline/2 rows (rounded up).
size_t bufferBytes(const Geometry& geometry);
size_t rowBytes(const Geometry& geometry);  // stride, or stride*4 for RGBA
size_t chromaOffset(const Geometry& geometry);

struct Image {
  Geometry geometry;
  FrameBytes bytes;  // bufferBytes(geometry)

  uint8_t* row(uint32_t y) { return bytes.data() + y * rowBytes(geometry); }
  const uint8_t* row(uint32_t y) const { return bytes.data() + y * rowBytes(geometry); }
  uint8_t* chromaRow(uint32_t cy) {
    return bytes.data() + chromaOffset(geometry) + cy * geometry.stride;
  }
  const uint8_t* chromaRow(uint32_t cy) const {
    return bytes.data() + chromaOffset(geometry) + cy * geometry.stride;
  }
};

// A zero-filled image (YUV chroma set to 128, RGBA alpha to 255).
Image makeImage(Geometry geometry);

}  // namespace lumo
