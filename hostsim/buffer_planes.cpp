// Plane geometry of host image buffer records.
#include "buffer_planes.h"

#include <system/graphics.h>

namespace hostsim {

std::string describePlanes(const vyalgo2::VyImageBuffer& b, BufferPlanes& out) {
  out = BufferPlanes{};
  if (b.width == 0 || b.height == 0) return "empty image";
  if (b.planeCount == 0 || b.planeAddress[0] == 0) return "no plane address";
  if (b.scanline != 0 && b.scanline < b.height) return "scanline below height";
  uint8_t* base = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(b.planeAddress[0]));
  const uint32_t scanline = b.scanline != 0 ? b.scanline : b.height;
  switch (b.format) {
    case HAL_PIXEL_FORMAT_RGBA_8888: {
      if (b.stride < b.width) return "stride below width";
      out.count = 1;
      out.planes[0] = {base, size_t{b.width} * 4, size_t{b.stride} * 4, b.height};
      return std::string();
    }
    case HAL_PIXEL_FORMAT_YCrCb_420_SP:
    case HAL_PIXEL_FORMAT_YCbCr_420_SP: {
      const size_t chromaRowBytes = size_t{b.width / 2 + b.width % 2} * 2;
      if (b.stride < chromaRowBytes) return "stride below width";
      uint8_t* chroma = (b.planeCount >= 2 && b.planeAddress[1] != 0)
                            ? reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(b.planeAddress[1]))
                            : base + size_t{b.stride} * scanline;
      out.count = 2;
      out.planes[0] = {base, b.width, b.stride, b.height};
      out.planes[1] = {chroma, chromaRowBytes, b.stride, b.height / 2 + b.height % 2};
      return std::string();
    }
    default:
      return "unsupported format " + std::to_string(b.format);
  }
}

}  // namespace hostsim
