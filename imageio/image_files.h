// Reading and writing image files: PNG, JPEG (baseline, 8-bit) and raw
// NV21 / NV12 / RGBA dumps. YUV images are bound to RGB with full-range
// BT.601 (JFIF) whenever they are read from or written to PNG or JPEG.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "image.h"

namespace lumo {

enum class FileKind { Png, Jpeg, Raw };
FileKind fileKindOf(const std::string& path);  // by extension; anything unknown is raw

// What the caller knows about a raw dump; zero fields are taken from the name.
struct RawHints {
  std::optional<PixelFormat> format;
  uint32_t width = 0, height = 0, stride = 0, scanline = 0;
};

// Throws Failure naming the file and what is wrong with it.
// `decodeAs` names the format the caller will convert a picture to: a JPEG
// whose own layout is that YUV layout is then decoded straight to it (other
// pictures still come back as RGBA).
Image readImage(const std::string& path, const RawHints& hints = {},
                std::optional<PixelFormat> decodeAs = {});

// Writes atomically (temporary file beside it, then rename). PNG gets RGBA;
// JPEG gets an even-sized YUV image's own planes, anything else as RGB; a
// raw path gets the buffer as it is laid out, converted first when its
// extension names another format. Throws Failure.
void writeImage(const std::string& path, const Image& image, int jpegQuality = 92);

// The longest picture side the tools take (a 200 MP sensor is 16320 x 12240).
constexpr uint32_t kMaxPictureSide = 16384;
// Empty when a picture of this size may be decoded, otherwise why not
// ("23000x23000 is above the 16384 pixel limit of a picture side").
std::string pictureSizeProblem(uint32_t width, uint32_t height);

// A PNG's or JPEG's size from its header alone, nothing decoded. Throws
// Failure naming `path` (also for a raw dump, whose size is not in it).
struct PictureSize {
  uint32_t width = 0, height = 0;
};
PictureSize pictureSize(const std::string& path);
PictureSize pngSize(const std::string& path);
PictureSize jpegSize(const std::string& path);

// Codecs used by readImage/writeImage. Decoders check the header's size
// (above) and whether the file can hold that many pixels before they
// allocate, give RGBA images (a 4:2:0 JPEG: the YUV layout `yuv` names, when
// given; CMYK JPEGs converted to RGB) and throw Failure naming `path`; encoders take RGBA (JPEG: or
// even-sized YUV) and write to an open stream.
Image decodePng(const std::string& path);
Image decodeJpeg(const std::string& path, std::optional<PixelFormat> yuv = {});
void encodePng(const Image& rgba, std::FILE* out, const std::string& path);

// PNG output: Fast (zlib level 1, the default: a 12 MP capture in about a
// quarter of the time, a file about 6% larger) or Smallest (level 9, every
// filter tried).
enum class PngCompression { Fast, Smallest };
void setPngCompression(PngCompression compression);
void encodeJpeg(const Image& image, std::FILE* out, const std::string& path, int quality);

}  // namespace lumo
