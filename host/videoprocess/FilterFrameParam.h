// The filter SDK's description of one frame handed to processFrame.
#pragma once

#include <EGL/egl.h>

#include <cstddef>
#include <cstdint>

namespace videoprocess {

enum VideoFormat : int {
  VIDEO_FORMAT_SNAPSHOT = 9,  // offline snapshot pipelines
  VIDEO_FORMAT_PREVIEW = 10,  // real-time preview pipelines
};

struct FilterFrameParam {
  EGLClientBuffer clientBuffer;
  uint64_t reserved;
  uint32_t stride;
  uint32_t stride2;
  uint32_t width;
  uint32_t height;
};

#if defined(__LP64__)
static_assert(offsetof(FilterFrameParam, clientBuffer) == 0, "FilterFrameParam layout");
static_assert(offsetof(FilterFrameParam, reserved) == 8, "FilterFrameParam layout");
static_assert(offsetof(FilterFrameParam, stride) == 16, "FilterFrameParam layout");
static_assert(offsetof(FilterFrameParam, stride2) == 20, "FilterFrameParam layout");
static_assert(offsetof(FilterFrameParam, width) == 24, "FilterFrameParam layout");
static_assert(offsetof(FilterFrameParam, height) == 28, "FilterFrameParam layout");
#endif

}  // namespace videoprocess
