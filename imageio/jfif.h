// Full-range BT.601 as JFIF defines it: the one copy of the coefficients that
// the picture conversions, the renderer and the generated looks all use.
#pragma once

namespace lumo::jfif {

inline constexpr double kCrToR = 1.402;
inline constexpr double kCbToG = -0.344136;
inline constexpr double kCrToG = -0.714136;
inline constexpr double kCbToB = 1.772;
inline constexpr double kRToY = 0.299, kGToY = 0.587, kBToY = 0.114;
inline constexpr double kRToCb = -0.168736, kGToCb = -0.331264, kBToCb = 0.5;
inline constexpr double kRToCr = 0.5, kGToCr = -0.418688, kBToCr = -0.081312;

}  // namespace lumo::jfif
