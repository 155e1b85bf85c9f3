// The trailing values some targets take from the end of their input (the
// way FuzzedDataProvider consumes integers), so that the seed writer can
// put meaningful values there and the rest of the input stays a whole file.
#pragma once

#include <cstdint>
#include <vector>

namespace lumofuzz {

// Trigger calls the calibration-loader target makes after loading.
constexpr int kLoaderTriggers = 4;

// Appends values in the order a target consumes them, each `bytes` wide.
class TailWriter {
public:
  void add(uint64_t value, int bytes) {
    for (int b = bytes - 1; b >= 0; --b) m_consumed.push_back(uint8_t(value >> (8 * b)));
  }
  // The input: `body`, then the values so that the first added is consumed first.
  std::vector<uint8_t> after(std::vector<uint8_t> body) const {
    body.insert(body.end(), m_consumed.rbegin(), m_consumed.rend());
    return body;
  }

private:
  std::vector<uint8_t> m_consumed;
};

}  // namespace lumofuzz
