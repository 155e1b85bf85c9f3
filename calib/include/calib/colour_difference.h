// Colour differences as people see them: CIELAB (D65) of sRGB colours and
// CIEDE2000 between two of them. Shared by the calibration diff, the look
// fit and the comparison of rendered pictures.
#pragma once

#include <array>
#include <cstdint>

namespace calib {

using Lab = std::array<double, 3>;  // L* 0..100, a*, b*

// CIELAB (D65) of an sRGB colour with components in 0..1 (clamped).
Lab srgbToLab(const std::array<double, 3>& rgb);
// The same for 8-bit code values, through a table of the sRGB decoding.
Lab srgb8ToLab(uint8_t r, uint8_t g, uint8_t b);
// CIEDE2000 between two CIELAB colours (kL = kC = kH = 1).
double ciede2000(const Lab& lab1, const Lab& lab2);

// Hue angle in degrees (0..360) and chroma of a CIELAB colour.
double hueDegrees(const Lab& lab);
double chroma(const Lab& lab);

}  // namespace calib
