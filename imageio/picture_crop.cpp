// Padding to even sizes and cropping.
#include "picture_crop.h"

#include <algorithm>
#include <cstring>

namespace lumo {

Image padToEven(const Image& image) {
  const Geometry& s = image.geometry;
  Geometry g = s;
  g.width += s.width & 1u;
  g.height += s.height & 1u;
  g.stride = std::max(s.stride, g.width);
  g.scanline = std::max(s.scanline, g.height);
  Image out = makeImage(g);
  const size_t pixel = isYuv(g.format) ? 1 : 4;
  for (uint32_t y = 0; y < g.height; ++y) {
    const uint8_t* from = image.row(std::min(y, s.height - 1));
    std::memcpy(out.row(y), from, s.width * pixel);
    if (g.width != s.width)
      std::memcpy(out.row(y) + s.width * pixel, from + (s.width - 1) * pixel, pixel);
  }
  // Chroma rows and samples already cover the odd edge: ceil(n/2) == (n+1)/2.
  if (isYuv(g.format))
    for (uint32_t cy = 0; cy < g.height / 2; ++cy)
      std::memcpy(out.chromaRow(cy), image.chromaRow(cy), g.width);
  return out;
}

Image cropCentre(const Image& rgba, uint32_t width, uint32_t height) {
  const Geometry& s = rgba.geometry;
  const uint32_t x0 = (s.width - width) / 2, y0 = (s.height - height) / 2;
  Image out = makeImage({PixelFormat::RGBA, width, height, 0, 0});
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(out.row(y), rgba.row(y0 + y) + 4 * x0, 4 * size_t(width));
  return out;
}

void shrinkPicture(Image& image, uint32_t width, uint32_t height) {
  image.geometry.width = std::min(image.geometry.width, width);
  image.geometry.height = std::min(image.geometry.height, height);
}

}  // namespace lumo
