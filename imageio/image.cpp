// Allocation of the tool's images.
#include "image.h"

#include <algorithm>

namespace lumo {
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

Image makeImageForOverwrite(Geometry geometry) {
  Image image;
  image.geometry = completeGeometry(geometry);
  image.bytes = FrameBytes::forOverwrite(bufferBytes(image.geometry));
  return image;
}

}  // namespace lumo
