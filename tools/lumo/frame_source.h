// Turning a session frame into the pixels handed to the plugin: its input
// file, a generated scene or the default test chart, converted to the
// requested buffer format, stride and scanline.
#pragma once

#include <string>

#include "image.h"
#include "session.h"

namespace lumo {

constexpr uint32_t kDefaultWidth = 640;
constexpr uint32_t kDefaultHeight = 480;
constexpr const char* kGeneratedPrefix = "generated:";

// `baseDir` resolves relative input names. Throws Failure naming the frame's
// file, line and field.
Image loadFrameImage(const SessionFrame& frame, const std::string& baseDir);

}  // namespace lumo
