// Texts shared by the store's dump and the trigger's debug prints.
#include "param_text.h"

#include <cstring>
#include <sstream>

#include "param_records.h"

namespace lumo {

// Only the head of a 14739-byte block is shown, to keep a log line short.
constexpr int kLutHeadBytes = 50;

std::string lutHeadText(const uint8_t* lut) {
  std::ostringstream text;
  text << "[";
  for (int i = 0; i < kLutHeadBytes; i++) text << " " << static_cast<int>(lut[i]);
  text << "]";
  return text.str();
}

std::string shadingText(const uint8_t* shading) {
  std::ostringstream text;
  text << "[";
  for (size_t j = 0; j < SHADING_FLOATS; j++) {
    float value;
    std::memcpy(&value, shading + j * sizeof(float), sizeof(value));
    text << " " << value;
  }
  text << "]";
  return text.str();
}

}  // namespace lumo
