// Names of the files the tool writes. A name the user gives is used as it
// is, but only for a kind of file the tool can write; names the tool makes
// up for raw buffers carry their geometry the way camera dumps do, so any
// reader (ours, `yuv info`, ffplay) can take the buffer back.
#pragma once

#include <string>

#include "image.h"

namespace lumo {

// "STEM_WxH_STRIDE[_SCANLINE].FORMAT"; the scanline only when it differs from the height.
std::string rawOutputName(const std::string& stem, const Geometry& geometry);

}  // namespace lumo
