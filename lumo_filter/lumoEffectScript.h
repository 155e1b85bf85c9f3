// The effect script handed to the filter SDK: a 3D LUT effect chained to a
// style effect that carries the frame size and the eight shading values.
#pragma once

#include <cstdint>
#include <string>

#include "param_records.h"

namespace lumo {

constexpr const char* kLutEffectText = "CubeLutEffect;cube_strength=1.0;lut_type=1.0;";
// The style text is formatted into a buffer of this size: at most 511
// characters of it survive.
constexpr size_t kStyleEffectBytes = 512;

std::string buildEffectScript(uint32_t width, uint32_t height,
                              const param_shading_float_t& shading);

}  // namespace lumo
