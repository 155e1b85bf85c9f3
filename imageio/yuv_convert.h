// Conversion between RGBA and 4:2:0 YUV (NV21, NV12) with full-range BT.601,
// the JFIF matrix camera JPEG pipelines use.
#pragma once

#include "image.h"

namespace lumo {

// Exact reference in double precision, rounded half up and clamped once.
// RGB to YUV: each pixel gets its own Y; each chroma sample is the mean of the
// chroma of the (up to four) pixels it covers.
void rgbaToYuvReference(const Image& rgba, Image& yuv);
// YUV to RGB: each chroma sample applies to its whole 2x2 block.
void yuvToRgbaReference(const Image& yuv, Image& rgba);
// The same through libyuv's JPEG-range kernels (within two code values of
// the reference).
void yuvToRgbaFast(const Image& yuv, Image& rgba);
void rgbaToYuvFast(const Image& rgba, Image& yuv);

// Video-range ("limited", Y 16..235, chroma 16..240) BT.601 YUV to RGBA, as
// video tools such as ffmpeg write NV21 and NV12 by default.
Image limitedRangeToRgba(const Image& yuv);

// LUMO_IMAGE_REFERENCE=1 sends every conversion and codec through the
// reference paths (RGB JPEG coding included), for bisecting a difference.
bool imageReferenceForced();

// Any image to `format` with the given stride and scanline (0: tight),
// through the libyuv paths unless the reference is forced.
Image convertImage(const Image& source, PixelFormat format, uint32_t stride = 0,
                   uint32_t scanline = 0);

}  // namespace lumo
