// The host's image buffer record, filled from ImageParams by
// PluginWraper::convertImageParams and consumed by the host utilities.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyalgo2 {

struct VyImageBuffer {
  uint32_t format = 0;  // HAL pixel format
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t stride = 0;    // row stride in pixels
  uint32_t scanline = 0;  // rows per plane
  uint32_t planeCount = 0;
  uint64_t planeAddress[3] = {};  // start of each plane in this process
  int32_t planeFd[3] = {};
  uint64_t planeOffset[3] = {};
  uint32_t planeType = 0;
};

#if defined(__LP64__)
static_assert(offsetof(VyImageBuffer, width) == 4, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, height) == 8, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, stride) == 12, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, planeCount) == 20, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, planeAddress) == 24, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, planeFd) == 48, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, planeOffset) == 64, "VyImageBuffer layout");
static_assert(offsetof(VyImageBuffer, planeType) == 88, "VyImageBuffer layout");
#endif

}  // namespace vyalgo2
