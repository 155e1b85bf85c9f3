// Builds the two-effect script; numbers are written the way the SDK's
// parser has always received them (floats with six decimals, no exponent).
#include "lumoEffectScript.h"

#include <cstdio>

namespace lumo {

std::string buildEffectScript(uint32_t width, uint32_t height,
                              const param_shading_float_t& shading) {
  const std::string w = std::to_string(width);
  const std::string h = std::to_string(height);
  std::string s[SHADING_FLOATS];
  for (size_t i = 0; i < SHADING_FLOATS; ++i) s[i] = std::to_string(shading.data[i]);

  char style[kStyleEffectBytes] = {};
  std::snprintf(style, sizeof(style),
                "@CvStyleEffect;Width=%s;Height=%s;SmoothStartValue=%s;SmoothEndValue=%s;"
                "SmoothCoordScale=%s;SmoothValueScale=%s;LightDarkPreserveK=%s;"
                "LightDarkPreserveB=%s;LightDarkPreserveV=%s;LightDarkPreserveT=%s;",
                w.c_str(), h.c_str(), s[0].c_str(), s[1].c_str(), s[2].c_str(), s[3].c_str(),
                s[4].c_str(), s[5].c_str(), s[6].c_str(), s[7].c_str());
  // The leading "@" of the style text chains it to the LUT effect.
  return std::string(kLutEffectText) + style;
}

}  // namespace lumo
