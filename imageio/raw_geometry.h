// Working out the buffer layout of a raw dump from its byte count. Camera
// buffers are padded: strides are aligned to 64 to 512 bytes and scanlines
// to 16 to 512 rows, and a dump may keep the chroma plane's padding rows or
// stop after its last used row. Given what is known (zero fields unknown),
// every layout with the usual alignments that gives exactly the file size is
// a candidate; the least padded comes first.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image.h"

namespace lumo {

struct RawLayout {
  Geometry geometry;               // complete: width, height, stride, scanline
  bool tight = false;              // the chroma plane stops after its last used row
  uint32_t strideAlignment = 1;    // largest usual alignment the stride meets
  uint32_t scanlineAlignment = 1;  // the same for the scanline
};

// Bytes of a dump with this geometry: the whole buffer, or with the chroma
// plane cut after ceil(height/2) rows (YUV only; the same as the whole buffer
// when scanline equals height).
uint64_t fullBytes(const Geometry& geometry);
uint64_t tightBytes(const Geometry& geometry);

// Largest of 512, 256, ..., 2, 1 that divides `value`.
uint32_t usualAlignment(uint32_t value);

// Layouts of `known.format` whose size is `bytes`. `known.width` and
// `known.height` must be set; a zero stride or scanline is searched over the
// usual alignments. Sorted by padding (stride first), without duplicates.
std::vector<RawLayout> layoutsForSize(uint64_t bytes, const Geometry& known);

// The same when the picture size is unknown too: tries the sizes cameras
// commonly use (landscape, 176x144 to 8160x6120).
std::vector<RawLayout> layoutsForSizeAnyPicture(uint64_t bytes, PixelFormat format);

// "nv21 4000x3000 stride 4032 scanline 3008".
std::string describeGeometry(const Geometry& geometry);

}  // namespace lumo
