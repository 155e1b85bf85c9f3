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

struct FrameImage {
  Image buffer;                    // what the plugin is handed: YUV of odd size padded to even
  uint32_t width = 0, height = 0;  // the picture: results are cropped back to it
};

// `baseDir` resolves relative input names. A picture (PNG, JPEG) larger than
// the frame's width and height is cropped to its centre. Throws Failure
// naming the frame's file, line and field.
FrameImage loadFrameImage(const SessionFrame& frame, const std::string& baseDir);

}  // namespace lumo
