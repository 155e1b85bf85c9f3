// PNG through libpng's simplified API: any PNG in, 8-bit RGBA out; RGBA out
// as 8-bit RGBA PNG.
#include <png.h>

#include <cstring>

#include "failure.h"
#include "image_files.h"

namespace lumo {

Image decodePng(const std::string& path) {
  png_image png;
  std::memset(&png, 0, sizeof(png));
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&png, path.c_str()))
    throw Failure(path + ": cannot read PNG: " + png.message);
  png.format = PNG_FORMAT_RGBA;
  Geometry g{PixelFormat::Rgba, png.width, png.height, 0, 0};
  g = completeGeometry(g);
  const std::string bad = checkGeometry(g);
  if (!bad.empty()) {
    png_image_free(&png);
    throw Failure(path + ": unusable PNG size: " + bad);
  }
  Image image = makeImage(g);
  if (!png_image_finish_read(&png, nullptr, image.bytes.data(), int(rowBytes(g)), nullptr)) {
    const std::string message = png.message;
    png_image_free(&png);
    throw Failure(path + ": cannot decode PNG: " + message);
  }
  return image;
}

void encodePng(const Image& rgba, std::FILE* out, const std::string& path) {
  png_image png;
  std::memset(&png, 0, sizeof(png));
  png.version = PNG_IMAGE_VERSION;
  png.width = rgba.geometry.width;
  png.height = rgba.geometry.height;
  png.format = PNG_FORMAT_RGBA;
  if (!png_image_write_to_stdio(&png, out, 0, rgba.bytes.data(), int(rowBytes(rgba.geometry)),
                                nullptr))
    throw Failure(path + ": cannot encode PNG: " + png.message);
}

}  // namespace lumo
