// Dispatch of image reading and writing by file kind, and the raw dump
// reader with its geometry checks.
#include "image_files.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "atomic_file.h"
#include "dump_name.h"
#include "failure.h"
#include "output_names.h"
#include "raw_geometry.h"
#include "yuv_convert.h"

namespace lumo {
namespace {

Image readRaw(const std::string& path, const RawHints& hints) {
  Geometry g;
  const auto named = geometryFromName(path);
  g.width = hints.width ? hints.width : (named ? named->width : 0);
  g.height = hints.height ? hints.height : (named ? named->height : 0);
  g.stride = hints.stride ? hints.stride : (named ? named->stride : 0);
  g.scanline = hints.scanline ? hints.scanline : (named ? named->scanline : 0);
  std::optional<PixelFormat> format = hints.format;
  if (!format) format = formatFromName(path);
  if (!format)
    throw Failure(path +
                  ": cannot tell the pixel format of a raw dump: name it .nv21, "
                  ".nv12 or .rgba or give the format");
  g.format = *format;
  if (g.width == 0 || g.height == 0)
    throw Failure(path +
                  ": cannot tell the size of a raw dump: give width and height or "
                  "end its name with _WIDTHxHEIGHT_STRIDE");
  std::error_code ec;
  const auto size = std::filesystem::file_size(path, ec);
  if (ec) throw Failure(path + ": cannot read: " + ec.message());
  // An unknown stride or scanline is tight unless the size says otherwise: then
  // the least padded layout with the usual camera alignments that fits is taken.
  const Geometry known = g;
  g = completeGeometry(g);
  if ((known.stride == 0 || known.scanline == 0) &&
      (!checkGeometry(g).empty() || (size != fullBytes(g) && size != tightBytes(g)))) {
    const auto layouts = layoutsForSize(size, known);
    if (!layouts.empty()) g = layouts.front().geometry;
  }
  const std::string bad = checkGeometry(g);
  if (!bad.empty()) throw Failure(path + ": " + bad);

  // Dumps either keep the chroma plane's padding rows or stop after its last used row.
  const uint64_t full = fullBytes(g), tight = tightBytes(g);
  if (size != full && size != tight) {
    std::string expected = std::to_string(full);
    if (tight != full) expected = std::to_string(tight) + " or " + expected;
    throw Failure(path + ": " + std::to_string(size) + " bytes do not match " +
                  describeGeometry(g) + " (expected " + expected + " bytes)");
  }
  // Every byte the file holds is read over the buffer, so only a tight
  // dump's missing chroma padding rows are filled in (neutral chroma).
  Image image;
  image.geometry = g;
  image.bytes.resize(full);
  std::ifstream in(path, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(image.bytes.data()), std::streamsize(size)))
    throw Failure(path + ": cannot read");
  std::fill(image.bytes.begin() + std::ptrdiff_t(size), image.bytes.end(), uint8_t{128});
  return image;
}

// The buffer a raw output holds: in the format its extension names, laid out
// as its name says (width and height must be the picture's), else as the
// image is (a 4:2:0 buffer with an even stride). Nothing when that is `image`.
std::optional<Image> rawLayoutFor(const std::string& path, const Image& image) {
  const Geometry& g = image.geometry;
  Geometry layout = g;
  layout.format = *rawOutputFormat(path);
  if (isYuv(layout.format)) layout.stride = (layout.stride + 1) & ~1u;
  if (const auto named = geometryFromName(path)) {
    if (named->width != g.width || named->height != g.height)
      throw Failure(path + ": the name says " + std::to_string(named->width) + "x" +
                    std::to_string(named->height) + ", the picture is " + std::to_string(g.width) +
                    "x" + std::to_string(g.height));
    if (named->stride) layout.stride = named->stride;
    if (named->scanline) layout.scanline = named->scanline;
    if (const std::string bad = checkGeometry(layout); !bad.empty())
      throw Failure(path + ": the name asks for " + describeGeometry(layout) + ": " + bad);
  }
  if (layout.format == g.format && layout.stride == g.stride && layout.scanline == g.scanline)
    return std::nullopt;
  return convertImage(image, layout.format, layout.stride, layout.scanline);
}

}  // namespace

FileKind fileKindOf(const std::string& path) {
  const std::string ext = lowerExtension(path);
  if (ext == ".png") return FileKind::Png;
  if (ext == ".jpg" || ext == ".jpeg") return FileKind::Jpeg;
  return FileKind::Raw;
}

std::string pictureSizeProblem(uint32_t width, uint32_t height) {
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  if (width == 0 || height == 0) return size + " has no pixels";
  if (std::max(width, height) > kMaxPictureSide)
    return size + " is above the " + std::to_string(kMaxPictureSide) +
           " pixel limit of a picture side";
  return {};
}

PictureSize pictureSize(const std::string& path) {
  switch (fileKindOf(path)) {
    case FileKind::Png:
      return pngSize(path);
    case FileKind::Jpeg:
      return jpegSize(path);
    case FileKind::Raw:
      break;
  }
  throw Failure(path + ": not a PNG or JPEG picture");
}

Image readImage(const std::string& path, const RawHints& hints,
                std::optional<PixelFormat> decodeAs) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) throw Failure(path + ": no such image file");
  switch (fileKindOf(path)) {
    case FileKind::Png:
      return decodePng(path);
    case FileKind::Jpeg:
      return decodeJpeg(path, decodeAs);
    case FileKind::Raw:
      break;
  }
  return readRaw(path, hints);
}

void writeImage(const std::string& path, const Image& image, int jpegQuality) {
  if (const std::string why = outputNameProblem(path); !why.empty())
    throw Failure(path + ": " + why);
  const FileKind kind = fileKindOf(path);
  if (kind == FileKind::Raw) {
    const std::optional<Image> relaid = rawLayoutFor(path, image);
    const Image& out = relaid ? *relaid : image;
    writeFileAtomically(path, out.bytes.data(), out.bytes.size());
    return;
  }
  // JPEG takes an even-sized YUV image as it is (its own 4:2:0 layout);
  // everything else is encoded from RGBA.
  const Geometry& g = image.geometry;
  const bool asIs = !isYuv(g.format) || (kind == FileKind::Jpeg && !imageReferenceForced() &&
                                         g.width % 2 == 0 && g.height % 2 == 0);
  const Image rgba = asIs ? Image{} : convertImage(image, PixelFormat::RGBA);
  const Image& source = asIs ? image : rgba;
  AtomicFile file(path);
  if (kind == FileKind::Png)
    encodePng(source, file.stream(), path);
  else
    encodeJpeg(source, file.stream(), path, jpegQuality);
  file.commit();
}

}  // namespace lumo
