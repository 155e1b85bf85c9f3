// HAL pixel formats used by camera buffers (subset of <system/graphics.h>
// plus the vendor semi-planar NV12 code).
#pragma once

enum {
  HAL_PIXEL_FORMAT_RGBA_8888 = 1,
  HAL_PIXEL_FORMAT_YCrCb_420_SP = 0x11,  /* NV21: Y plane, then interleaved V,U */
  HAL_PIXEL_FORMAT_YCbCr_420_SP = 0x109, /* NV12: Y plane, then interleaved U,V */
};
