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

// Codecs used by readImage/writeImage. Decoders give RGBA images (a 4:2:0
// JPEG: the YUV layout `yuv` names, when given) and throw Failure naming
// `path`; encoders take RGBA (JPEG: or even-sized YUV) and write to an open
// stream.
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
