// Colour looks generated from a few photographic controls and baked into a
// 17-point LUT block (red varying fastest, then green, then blue; R, G, B).
#pragma once

#include <calib/calibration_file.h>

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace calib {

struct LookParams {
  double exposure = 0;                        // stops
  double temperature = 0;                     // -1 cool .. +1 warm
  double tint = 0;                            // -1 green .. +1 magenta
  double contrast = 0;                        // -1 flat .. +1 strong S-curve
  double saturation = 1;                      // 0 grey, 1 unchanged
  std::array<double, 3> shadows{0, 0, 0};     // RGB offsets weighted towards dark tones
  std::array<double, 3> highlights{0, 0, 0};  // RGB offsets weighted towards bright tones
  double fade = 0;                            // lifts black towards this level
  double gamma = 1;                           // > 1 brightens mid tones
};

// Applies the look to one colour (components 0..1, clamped on return).
std::array<double, 3> applyLook(const LookParams& look, std::array<double, 3> rgb);
LutBlock generateLook(const LookParams& look);
LutBlock identityLut();

// Reads the controls of a "generate" object; throws std::invalid_argument
// naming `where` and the offending key.
LookParams lookFromJson(const nlohmann::json& object, const std::string& where);

}  // namespace calib
