// The host's description of one image of a request. Its layout is the
// host's: the plugin receives pointers to host-owned records, so every field
// sits at the same byte offset as on the phone (checked below for 64-bit).
#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>
#include <memory>

class VyMetadata;

namespace vyalgo2 {

constexpr uint32_t kMaxImagePlanes = 3;

struct ImageParams {
  uint32_t format = 0;  // HAL pixel format
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t reserved0[3] = {};
  uint32_t planeType = 0;
  uint32_t reserved1[7] = {};
  uint32_t stride = 0;    // row stride in pixels
  uint32_t scanline = 0;  // rows per plane
  std::shared_ptr<VyMetadata> pMetadata;
  uint64_t reserved2[4] = {};
  uint32_t numberOfPlanes = 0;
  int32_t planeFd[kMaxImagePlanes] = {};
  uint64_t planeAddress[kMaxImagePlanes] = {};
  uint64_t planeOffset[kMaxImagePlanes] = {};
  const native_handle_t* phHandle = nullptr;
};

#if defined(__LP64__)
static_assert(offsetof(ImageParams, format) == 0, "ImageParams layout");
static_assert(offsetof(ImageParams, width) == 4, "ImageParams layout");
static_assert(offsetof(ImageParams, height) == 8, "ImageParams layout");
static_assert(offsetof(ImageParams, planeType) == 24, "ImageParams layout");
static_assert(offsetof(ImageParams, stride) == 56, "ImageParams layout");
static_assert(offsetof(ImageParams, scanline) == 60, "ImageParams layout");
static_assert(offsetof(ImageParams, pMetadata) == 64, "ImageParams layout");
static_assert(sizeof(std::shared_ptr<VyMetadata>) == 16, "ImageParams layout");
static_assert(offsetof(ImageParams, numberOfPlanes) == 112, "ImageParams layout");
static_assert(offsetof(ImageParams, planeFd) == 116, "ImageParams layout");
static_assert(offsetof(ImageParams, planeAddress) == 128, "ImageParams layout");
static_assert(offsetof(ImageParams, planeOffset) == 152, "ImageParams layout");
static_assert(offsetof(ImageParams, phHandle) == 176, "ImageParams layout");
#endif

}  // namespace vyalgo2
