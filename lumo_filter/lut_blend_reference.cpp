// The plain scalar LUT blend: the truth the vector kernel is checked against.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "lut_blend.h"

namespace lumo {

int lutBlendCase(uint16_t a, uint16_t b, uint16_t c, uint16_t d) {
  if (a == b && a == c && a == d) return 1;
  if (a == b) return c != d ? 2 : 3;
  if (a != c) return 4;
  return b != d ? 5 : 6;
}

uint8_t lutByteFromFloat(float value) {
  int32_t whole;
  if (std::isnan(value)) {
    whole = 0;
  } else if (value >= 2147483648.0f) {
    whole = std::numeric_limits<int32_t>::max();
  } else if (value <= -2147483648.0f) {
    whole = std::numeric_limits<int32_t>::min();
  } else {
    whole = static_cast<int32_t>(value);  // in range: truncates toward zero
  }
  return static_cast<uint8_t>(static_cast<uint32_t>(whole) & 0xFFu);
}

void blendLutReference(int blendCase, const LutBlendSources& src, uint8_t* out, size_t n) {
  const uint8_t* la = src.lut[0];
  const uint8_t* lb = src.lut[1];
  const uint8_t* lc = src.lut[2];
  const uint8_t* ld = src.lut[3];
  const float wA = src.weight[0];
  const float wB = src.weight[1];
  const float wC = src.weight[2];
  const float wD = src.weight[3];
  switch (blendCase) {
    case 1:
      std::memcpy(out, la, n);
      break;
    case 2:
      for (size_t p = 0; p < n; p++) {
        const float v = ((wA + wB) * float(la[p]) + wC * float(lc[p])) + wD * float(ld[p]);
        out[p] = lutByteFromFloat(v);
      }
      break;
    case 3:
      for (size_t p = 0; p < n; p++) {
        const float v = (wA + wB) * float(la[p]) + (wC + wD) * float(lc[p]);
        out[p] = lutByteFromFloat(v);
      }
      break;
    case 4:
      for (size_t p = 0; p < n; p++) {
        const float v =
            ((wA * float(la[p]) + wB * float(lb[p])) + wC * float(lc[p])) + wD * float(ld[p]);
        out[p] = lutByteFromFloat(v);
      }
      break;
    case 5:
      for (size_t p = 0; p < n; p++) {
        const float v = ((wA + wC) * float(la[p]) + wB * float(lb[p])) + wD * float(ld[p]);
        out[p] = lutByteFromFloat(v);
      }
      break;
    case 6:
      for (size_t p = 0; p < n; p++) {
        const float v = (wA + wC) * float(la[p]) + (wB + wD) * float(lb[p]);
        out[p] = lutByteFromFloat(v);
      }
      break;
    default:
      break;
  }
}

}  // namespace lumo
