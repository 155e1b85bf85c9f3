// In-memory images of the tool: packed RGBA or 4:2:0 semi-planar YUV (NV21,
// NV12) with the stride and scanline padding camera buffers carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "frame_memory.h"
#include "geometry.h"

namespace lumo {

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
// An image whose bytes are undefined, for a writer that fills every one of
// them (a decoder): a reused frame block is not cleared first.
Image makeImageForOverwrite(Geometry geometry);

}  // namespace lumo
