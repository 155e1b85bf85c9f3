// Small PNG and JPEG files whose headers declare another size than their
// data holds: what a damaged or hostile picture looks like to a decoder.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "image_files.h"

namespace lumo_test {

inline void putBigEndian(std::string& bytes, size_t at, uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes[at + size_t(i)] = char(value >> (8 * (size - 1 - i)));
}

// A 16x16 picture written as `path` (.png or .jpg), its header then patched
// to say width x height; the data stays that of 16x16 pixels.
inline std::string declaringSize(const std::string& path, uint32_t width, uint32_t height) {
  lumo::writeImage(path, lumo::makeImage({lumo::PixelFormat::RGBA, 16, 16, 0, 0}));
  std::ifstream in(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  if (lumo::fileKindOf(path) == lumo::FileKind::Png) {
    // IHDR: length at 8, type at 12, width at 16, height at 20, CRC of type and data at 29.
    putBigEndian(bytes, 16, width, 4);
    putBigEndian(bytes, 20, height, 4);
    putBigEndian(bytes, 29, uint32_t(crc32(0, reinterpret_cast<const Bytef*>(&bytes[12]), 17)), 4);
  } else {
    // Baseline SOF0: marker, length, precision, then height and width.
    const size_t sof = bytes.find("\xFF\xC0");
    putBigEndian(bytes, sof + 5, height, 2);
    putBigEndian(bytes, sof + 7, width, 2);
  }
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return path;
}

}  // namespace lumo_test
