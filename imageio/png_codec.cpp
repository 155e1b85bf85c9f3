// PNG through libpng: any PNG in (simplified API), 8-bit RGBA out; RGBA out
// as 8-bit RGB PNG (RGBA when some pixel is not opaque) through the full API,
// which sets the zlib level.
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <string>

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

namespace {

PngCompression g_pngCompression = PngCompression::Fast;

bool isOpaque(const Image& rgba) {
  for (uint32_t y = 0; y < rgba.geometry.height; ++y) {
    const uint8_t* row = rgba.row(y);
    for (uint32_t x = 0; x < rgba.geometry.width; ++x)
      if (row[4 * x + 3] != 255) return false;
  }
  return true;
}

// Runs libpng's writer; its errors longjmp back here. Only trivially
// destructible locals live in this frame.
bool writePng(png_structp png, png_infop info, const Image& rgba, std::FILE* out,
              PngCompression compression) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, out);
  const Geometry& g = rgba.geometry;
  // Camera frames are opaque: without the alpha channel the file is a
  // quarter smaller and quicker to write.
  const bool opaque = isOpaque(rgba);
  png_set_IHDR(png, info, g.width, g.height, 8,
               opaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (compression == PngCompression::Fast) {
    // zlib's fastest level with the one cheap filter that still pays on
    // camera pictures: on a textured 12 MP capture about four times faster
    // than level 9 with every filter, for a file about 6% larger.
    png_set_compression_level(png, 1);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
  } else {
    png_set_compression_level(png, 9);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_ALL_FILTERS);
  }
  png_write_info(png, info);
  if (opaque) png_set_filler(png, 0, PNG_FILLER_AFTER);  // drops the fourth byte
  for (uint32_t y = 0; y < g.height; ++y) png_write_row(png, rgba.row(y));
  png_write_end(png, info);
  return true;
}

void onPngError(png_structp png, png_const_charp message) {
  auto* text = static_cast<std::string*>(png_get_error_ptr(png));
  *text = message;
  png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

}  // namespace

void setPngCompression(PngCompression compression) { g_pngCompression = compression; }

void encodePng(const Image& rgba, std::FILE* out, const std::string& path) {
  std::string message = "out of memory";
  png_structp png =
      png_create_write_struct(PNG_LIBPNG_VER_STRING, &message, onPngError, onPngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  const bool ok = info != nullptr && writePng(png, info, rgba, out, g_pngCompression);
  png_destroy_write_struct(&png, info ? &info : nullptr);
  if (!ok) throw Failure(path + ": cannot encode PNG: " + message);
}

}  // namespace lumo
