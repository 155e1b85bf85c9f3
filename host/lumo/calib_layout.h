// Byte layout of the calibration file "lumo_filter_param.bin", written down
// once for everything that reads or writes it: the plugin's loader, the
// strict reader and the writer of the calibration toolkit. Standard library
// only and header-only, so the plugin can compile it in as it is.
//
// All integers are little-endian and unsigned, floats IEEE-754 binary32,
// packed without padding (a block may begin at an odd offset).
//
// Header (A scene blocks, Z zoom-ratio blocks):
//   u16 aiScenesCount | u16 aiScenesSize[A] | u16 paramDataOffset |
//   u16 lutDataOffset | u16 lut3d_size | u16 shadingZoomRatioCount |
//   u16 shadingZoomRatioSize[Z] | char trigger_control[256] |
//   char param_type[256] | char param_range[256]
// Parameter data from paramDataOffset: A scene blocks, then Z zoom blocks,
// each starting where the previous one's declared size ends.
//   scene block: char name[64] | band list
//   zoom block:  f32 ratio | band list
//   band list:   u16 lux count | lux records
//   lux record:  u16 start | u16 end | u16 cct count | cct records
//   cct record:  u16 param_start | u16 param_end | u16 block index
// Pools from lutDataOffset: LUT blocks of 14739 bytes, then shading blocks
// of eight floats. Neither count is stored: each is the block index of the
// last CCT record of its tree, plus one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace calib_layout {

constexpr size_t kU16Bytes = 2;
constexpr size_t kF32Bytes = 4;

// Header.
constexpr size_t kTextBytes = 256;
constexpr size_t kTextFields = 3;  // trigger_control, param_type, param_range
constexpr size_t kSceneSizesOffset = kU16Bytes;
constexpr size_t sceneSizeOffset(size_t i) { return kSceneSizesOffset + kU16Bytes * i; }
// The four fields between the two size arrays, in file order.
constexpr size_t paramDataOffsetField(size_t scenes) { return sceneSizeOffset(scenes); }
constexpr size_t lutDataOffsetField(size_t scenes) { return paramDataOffsetField(scenes) + 2; }
constexpr size_t lut3dSizeField(size_t scenes) { return paramDataOffsetField(scenes) + 4; }
constexpr size_t zoomCountField(size_t scenes) { return paramDataOffsetField(scenes) + 6; }
constexpr size_t zoomSizeOffset(size_t scenes, size_t j) {
  return zoomCountField(scenes) + kU16Bytes + kU16Bytes * j;
}
// The header as far as the zoom-ratio count, which decides the rest.
constexpr size_t headerHeadBytes(size_t scenes) { return zoomCountField(scenes) + kU16Bytes; }
constexpr size_t textOffset(size_t scenes, size_t zooms, size_t field) {
  return zoomSizeOffset(scenes, zooms) + kTextBytes * field;
}
constexpr size_t headerBytes(size_t scenes, size_t zooms) {
  return textOffset(scenes, zooms, kTextFields);
}
static_assert(headerBytes(0, 0) == 778, "the fixed part of the header");

// Parameter blocks.
constexpr size_t kSceneNameBytes = 64;
constexpr size_t kSceneBandsOffset = kSceneNameBytes;  // band list behind the name
constexpr size_t kZoomBandsOffset = kF32Bytes;         // band list behind the ratio
constexpr size_t kLuxCountBytes = kU16Bytes;
constexpr size_t kLuxHeadBytes = 3 * kU16Bytes;   // start, end, CCT count
constexpr size_t kCctBytes = 3 * kU16Bytes;       // start, end, block index
constexpr size_t kCctIndexField = 2 * kU16Bytes;  // block index inside a CCT record
constexpr size_t luxRecordBytes(size_t ccts) { return kLuxHeadBytes + kCctBytes * ccts; }

// Pools.
constexpr size_t kLutEdge = 17;
constexpr size_t kLutChannels = 3;
constexpr size_t kLutBlockBytes = kLutEdge * kLutEdge * kLutEdge * kLutChannels;
constexpr size_t kShadingFloats = 8;
constexpr size_t kShadingBlockBytes = kShadingFloats * kF32Bytes;
static_assert(kLutBlockBytes == 14739, "17 x 17 x 17 points of 3 bytes");

// Offsets from lutDataOffset.
constexpr size_t lutBlockOffset(size_t index) { return kLutBlockBytes * index; }
constexpr size_t shadingBlockOffset(size_t luts, size_t index) {
  return lutBlockOffset(luts) + kShadingBlockBytes * index;
}

// A read position over the bytes of one file. Every read is checked against
// the end: a failed read returns false, moves nothing and writes nothing.
// The position may lie past the end (a declared block size can send the
// next block there); then even a read of zero bytes fails, because no part
// of the file begins at such an offset.
class ByteCursor {
public:
  ByteCursor(const uint8_t* data, size_t size, size_t pos = 0)
      : m_data(data), m_size(size), m_pos(pos) {}

  size_t pos() const { return m_pos; }
  size_t size() const { return m_size; }
  // A copy of the cursor standing at an absolute offset.
  ByteCursor at(size_t pos) const { return ByteCursor(m_data, m_size, pos); }

  // Whether n bytes can be read at the position.
  bool has(size_t n) const { return m_pos <= m_size && n <= m_size - m_pos; }
  // The bytes at the position (only where has() said so).
  const uint8_t* here() const { return m_data + m_pos; }

  bool skip(size_t n) {
    if (!has(n)) return false;
    m_pos += n;
    return true;
  }
  // Moves on without a check: a block's declared size decides where the
  // next one begins, whether or not the file holds it.
  void advance(size_t n) { m_pos += n; }

  bool bytes(void* out, size_t n) {
    if (!has(n)) return false;
    if (n > 0) std::memcpy(out, here(), n);
    m_pos += n;
    return true;
  }
  bool u16(uint16_t& out) {
    if (!has(kU16Bytes)) return false;
    const uint8_t* p = here();
    out = static_cast<uint16_t>(p[0] | (p[1] << 8));
    m_pos += kU16Bytes;
    return true;
  }
  bool f32(float& out) {
    if (!has(kF32Bytes)) return false;
    const uint8_t* p = here();
    const uint32_t bits =
        uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
    std::memcpy(&out, &bits, sizeof(out));
    m_pos += kF32Bytes;
    return true;
  }
  // Whether the n-byte text field at the position holds its NUL.
  bool terminated(size_t n) const { return has(n) && std::memchr(here(), '\0', n) != nullptr; }

private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_pos;
};

}  // namespace calib_layout
