// Small PNG and JPEG files whose headers declare another size than their
// data holds: what a damaged or hostile picture looks like to a decoder.
#pragma once

#include <cstdint>
#include <string>

#include "image_files.h"

namespace lumo_test {

inline uint32_t crc32(const std::string& bytes) {
  uint32_t crc = 0xFFFFFFFFu;
  for (const char c : bytes) {
    crc ^= uint8_t(c);
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

inline void putBigEndian(std::string& bytes, size_t at, uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes[at + size_t(i)] = char(value >> (8 * (size - 1 - i)));
}

// A 16x16 picture written as `path` (.png or .jpg), its header then patched
// to say width x height; the data stays that of 16x16 pixels.
inline std::string declaringSize(const std::string& path, uint32_t width, uint32_t height) {
  lumo::writeImage(path, lumo::makeImage({lumo::PixelFormat::RGBA, 16, 16, 0, 0}));
  std::string bytes;
  {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), f)) > 0;) bytes.append(buffer, n);
    std::fclose(f);
  }
  if (lumo::fileKindOf(path) == lumo::FileKind::Png) {
    // IHDR: length at 8, type at 12, width at 16, height at 20, CRC of type and data at 29.
    putBigEndian(bytes, 16, width, 4);
    putBigEndian(bytes, 20, height, 4);
    putBigEndian(bytes, 29, crc32(bytes.substr(12, 17)), 4);
  } else {
    // Baseline SOF0: marker, length, precision, then height and width.
    const size_t sof = bytes.find("\xFF\xC0");
    putBigEndian(bytes, sof + 5, height, 2);
    putBigEndian(bytes, sof + 7, width, 2);
  }
  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
  return path;
}

}  // namespace lumo_test
