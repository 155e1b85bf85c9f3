// Names of the files the tool writes. A name the user gives is used as it
// is, but only for a kind of file the tool can write; names the tool makes
// up for raw buffers carry their geometry the way camera dumps do, so any
// reader (ours, `yuv info`, ffplay) can take the buffer back.
#pragma once

#include <optional>
#include <string>

#include "image.h"

namespace lumo {

// ".png" for "a/B.PNG"; empty without an extension.
std::string lowerExtension(const std::string& path);

// The extensions the tool writes: .png, .jpg, .jpeg, .nv21, .nv12, .rgba.
extern const char* const kOutputExtensions;

// Empty when `path` ends with one of them (any case); otherwise why not.
std::string outputNameProblem(const std::string& path);

// The raw format an output extension names, if it names one.
std::optional<PixelFormat> rawOutputFormat(const std::string& path);

// "STEM_WxH_STRIDE[_SCANLINE].FORMAT"; the scanline only when it differs from the height.
std::string rawOutputName(const std::string& stem, const Geometry& geometry);

}  // namespace lumo
