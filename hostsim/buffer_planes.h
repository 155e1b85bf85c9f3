// The planes a host image buffer record describes: where each starts, how
// many bytes of each row hold pixels, the row pitch and the rows used.
#pragma once

#include <vyalgo2/VyImageBuffer.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace hostsim {

struct PlaneSpan {
  uint8_t* data = nullptr;
  size_t rowBytes = 0;  // bytes of pixels per row
  size_t pitch = 0;     // bytes from one row to the next
  uint32_t rows = 0;
};

struct BufferPlanes {
  uint32_t count = 0;
  PlaneSpan planes[2];
};

// Fills `out` for an NV21, NV12 or RGBA_8888 record. A missing chroma
// address is taken as following the luma plane's `scanline` rows. Returns an
// empty string, or why the record cannot be read.
std::string describePlanes(const vyalgo2::VyImageBuffer& buffer, BufferPlanes& out);

}  // namespace hostsim
