// Texts shared by the store's dump and the trigger's debug prints: the head
// of a LUT block and the eight floats of a shading block.
#pragma once

#include <cstdint>
#include <string>

namespace lumo {

// "[ v0 v1 ... v49]": the first 50 bytes of a LUT block, as decimal numbers.
std::string lutHeadText(const uint8_t* lut);
// "[ f0 ... f7]": eight floats in the default stream notation (six
// significant digits). `shading` need not be aligned for float.
std::string shadingText(const uint8_t* shading);

}  // namespace lumo
