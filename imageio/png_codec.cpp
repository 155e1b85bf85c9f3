// PNG through libpng's full API: any PNG in as 8-bit RGBA, decoded row by
// row straight into the final buffer once the header's size has been
// checked; RGBA out as 8-bit RGB PNG (RGBA when some pixel is not opaque),
// which sets the zlib level.
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "failure.h"
#include "image_files.h"

namespace lumo {
namespace {

// deflate codes at most 258 bytes in one length/distance pair of at least
// two bits, so no stream inflates more than 1032-fold: a file smaller than
// its pixel rows over that cannot hold them.
constexpr uint64_t kMostDeflateRatio = 1032;

void onPngError(png_structp png, png_const_charp message) {
  auto* text = static_cast<std::string*>(png_get_error_ptr(png));
  *text = message;
  png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

struct PngReader {
  std::string message = "out of memory";
  png_structp png = nullptr;
  png_infop info = nullptr;
  PngReader() {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &message, onPngError, onPngWarning);
    if (png) info = png_create_info_struct(png);
  }
  ~PngReader() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;
};

// libpng's errors longjmp back into these two; only trivially destructible
// locals live in their frames.
bool readInfo(png_structp png, png_infop info, std::FILE* file) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_read_info(png, info);
  return true;
}

// Every layout becomes 8-bit RGBA. Samples keep their encoding whatever the
// depth (16-bit ones scaled by 255/65535 with rounding) and gamma chunks are
// not applied: pixels are taken as the camera's 8-bit data would be.
bool readRows(png_structp png, png_infop info, png_bytepp rows, size_t rowBytes) {
  if (setjmp(png_jmpbuf(png))) return false;
  const int type = png_get_color_type(png, info);
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (type == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(png, info) < 8)
    png_set_expand_gray_1_2_4_to_8(png);
  const bool transparent = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  if (transparent) png_set_tRNS_to_alpha(png);
  png_set_scale_16(png);
  if ((type & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(png);
  if ((type & PNG_COLOR_MASK_ALPHA) == 0 && !transparent)
    png_set_filler(png, 0xff, PNG_FILLER_AFTER);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  if (png_get_rowbytes(png, info) != rowBytes)
    png_error(png, "unexpected row size after expansion");
  png_read_image(png, rows);
  return true;
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

using File = std::unique_ptr<std::FILE, FileCloser>;

File openPng(const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) throw Failure(path + ": cannot open");
  return file;
}

void readPngInfo(const std::string& path, std::FILE* file, PngReader& r) {
  if (!r.info) throw Failure(path + ": cannot read PNG: out of memory");
  if (!readInfo(r.png, r.info, file)) throw Failure(path + ": cannot read PNG: " + r.message);
}

}  // namespace

PictureSize pngSize(const std::string& path) {
  const File file = openPng(path);
  PngReader r;
  readPngInfo(path, file.get(), r);
  return {png_get_image_width(r.png, r.info), png_get_image_height(r.png, r.info)};
}

Image decodePng(const std::string& path) {
  const File file = openPng(path);
  PngReader r;
  readPngInfo(path, file.get(), r);
  const uint32_t width = png_get_image_width(r.png, r.info);
  const uint32_t height = png_get_image_height(r.png, r.info);
  if (const std::string why = pictureSizeProblem(width, height); !why.empty())
    throw Failure(path + ": unusable PNG size: " + why);
  const uint64_t bitsPerPixel =
      uint64_t(png_get_channels(r.png, r.info)) * png_get_bit_depth(r.png, r.info);
  const uint64_t rowsBytes = uint64_t(height) * (1 + (uint64_t(width) * bitsPerPixel + 7) / 8);
  std::error_code ec;
  const uint64_t fileBytes = std::filesystem::file_size(path, ec);
  if (!ec && fileBytes < rowsBytes / kMostDeflateRatio)
    throw Failure(path + ": truncated PNG: " + std::to_string(width) + "x" +
                  std::to_string(height) + " pixels need at least " +
                  std::to_string(rowsBytes / kMostDeflateRatio) + " bytes of compressed data, " +
                  "the file has " + std::to_string(fileBytes));
  const Geometry g = completeGeometry({PixelFormat::RGBA, width, height, 0, 0});
  if (const std::string bad = checkGeometry(g); !bad.empty())
    throw Failure(path + ": unusable PNG size: " + bad);
  Image image = makeImage(g);
  std::vector<png_bytep> rows(height);
  for (uint32_t y = 0; y < height; ++y) rows[y] = image.row(y);
  if (!readRows(r.png, r.info, rows.data(), rowBytes(g)))
    throw Failure(path + ": cannot decode PNG: " + r.message);
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
