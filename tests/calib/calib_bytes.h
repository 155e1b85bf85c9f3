// Helpers of the calibration tests: little-endian assembly of calibration-file
// bytes, independent of the writer, and the message a call throws.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

namespace calib_test {

// The message of the E that `f` throws, or "(accepted)" when it throws none.
template <typename E = std::runtime_error, typename F>
std::string thrownBy(F&& f) {
  try {
    f();
  } catch (const E& e) {
    return e.what();
  }
  return "(accepted)";
}

struct Bytes {
  std::vector<uint8_t> b;
  Bytes& u16(std::initializer_list<unsigned> values) {
    for (unsigned v : values) b.insert(b.end(), {uint8_t(v), uint8_t(v >> 8)});
    return *this;
  }
  Bytes& f32(float f) {
    uint32_t v;
    std::memcpy(&v, &f, 4);
    return u16({v & 0xFFFF, v >> 16});
  }
  // `s` in a NUL-padded field of `size` bytes.
  Bytes& text(const std::string& s, size_t size) {
    b.insert(b.end(), s.begin(), s.begin() + long(std::min(s.size(), size)));
    return fill(size - std::min(s.size(), size));
  }
  Bytes& fill(size_t n, uint8_t v = 0) {
    b.insert(b.end(), n, v);
    return *this;
  }
  Bytes& padTo(size_t size) { return fill(size - b.size()); }
  void put16(size_t at, uint16_t v) {
    b[at] = uint8_t(v);
    b[at + 1] = uint8_t(v >> 8);
  }
};

}  // namespace calib_test
