// Full-range BT.601 conversions: a double-precision reference and libyuv's
// JPEG-matrix kernels; and video-range BT.601 to RGB for frames from video tools.
#include "yuv_convert.h"

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "jfif.h"

namespace lumo {
namespace {

uint8_t roundClamp(double v) {
  const double r = std::floor(v + 0.5);
  return static_cast<uint8_t>(std::clamp(r, 0.0, 255.0));
}

// Offsets of U and V inside an interleaved chroma pair.
int uIndex(PixelFormat f) { return f == PixelFormat::NV12 ? 0 : 1; }
int vIndex(PixelFormat f) { return f == PixelFormat::NV12 ? 1 : 0; }

}  // namespace

void rgbaToYuvReference(const Image& rgba, Image& yuv) {
  const Geometry& g = yuv.geometry;
  const int ui = uIndex(g.format), vi = vIndex(g.format);
  for (uint32_t y = 0; y < g.height; ++y) {
    const uint8_t* src = rgba.row(y);
    uint8_t* dst = yuv.row(y);
    for (uint32_t x = 0; x < g.width; ++x) {
      const double r = src[4 * x], gr = src[4 * x + 1], b = src[4 * x + 2];
      dst[x] = roundClamp(jfif::kRToY * r + jfif::kGToY * gr + jfif::kBToY * b);
    }
  }
  for (uint32_t cy = 0; cy < (g.height + 1) / 2; ++cy) {
    uint8_t* dst = yuv.chromaRow(cy);
    for (uint32_t cx = 0; cx < (g.width + 1) / 2; ++cx) {
      double su = 0, sv = 0;
      int n = 0;
      for (uint32_t y = 2 * cy; y < std::min(2 * cy + 2, g.height); ++y) {
        const uint8_t* src = rgba.row(y);
        for (uint32_t x = 2 * cx; x < std::min(2 * cx + 2, g.width); ++x) {
          const double r = src[4 * x], gr = src[4 * x + 1], b = src[4 * x + 2];
          su += jfif::kRToCb * r + jfif::kGToCb * gr + jfif::kBToCb * b + 128.0;
          sv += jfif::kRToCr * r + jfif::kGToCr * gr + jfif::kBToCr * b + 128.0;
          ++n;
        }
      }
      dst[2 * cx + ui] = roundClamp(su / n);
      dst[2 * cx + vi] = roundClamp(sv / n);
    }
  }
}

void yuvToRgbaReference(const Image& yuv, Image& rgba) {
  const Geometry& g = yuv.geometry;
  const int ui = uIndex(g.format), vi = vIndex(g.format);
  for (uint32_t y = 0; y < g.height; ++y) {
    const uint8_t* ys = yuv.row(y);
    const uint8_t* cs = yuv.chromaRow(y / 2);
    uint8_t* dst = rgba.row(y);
    for (uint32_t x = 0; x < g.width; ++x) {
      const double l = ys[x];
      const double u = cs[2 * (x / 2) + ui] - 128.0, v = cs[2 * (x / 2) + vi] - 128.0;
      dst[4 * x] = roundClamp(l + jfif::kCrToR * v);
      dst[4 * x + 1] = roundClamp(l + jfif::kCbToG * u + jfif::kCrToG * v);
      dst[4 * x + 2] = roundClamp(l + jfif::kCbToB * u);
      dst[4 * x + 3] = 255;
    }
  }
}

namespace {

// libyuv's "ABGR" (R, G, B, A in memory) is its ARGB kernel given the
// chroma pair the other way round and the matrix mirrored to match (its
// kYvu... constants): NV12 goes through the NV21 kernel and the reverse.
void semiPlanarToRgba(const Image& yuv, Image& rgba, const libyuv::YuvConstants* mirrored) {
  const Geometry& g = yuv.geometry;
  const int w = int(g.width), h = int(g.height);
  const int ys = int(g.stride), ds = int(rowBytes(rgba.geometry));
  const int rc = g.format == PixelFormat::NV12
                     ? libyuv::NV21ToARGBMatrix(yuv.row(0), ys, yuv.chromaRow(0), ys, rgba.row(0),
                                                ds, mirrored, w, h)
                     : libyuv::NV12ToARGBMatrix(yuv.row(0), ys, yuv.chromaRow(0), ys, rgba.row(0),
                                                ds, mirrored, w, h);
  if (rc != 0) throw std::runtime_error("libyuv conversion failed");
}

}  // namespace

void yuvToRgbaFast(const Image& yuv, Image& rgba) {
  semiPlanarToRgba(yuv, rgba, &libyuv::kYvuJPEGConstants);
}

Image limitedRangeToRgba(const Image& yuv) {
  const Geometry& g = yuv.geometry;
  Image rgba = makeImage({PixelFormat::RGBA, g.width, g.height, 0, 0});
  semiPlanarToRgba(yuv, rgba, &libyuv::kYvuI601Constants);
  return rgba;
}

void rgbaToYuvFast(const Image& rgba, Image& yuv) {
  const Geometry& g = yuv.geometry;
  const int w = int(g.width), h = int(g.height), cw = (w + 1) / 2, ch = (h + 1) / 2;
  // libyuv writes planar chroma; the camera's buffers interleave it.
  std::vector<uint8_t> u(size_t(cw) * ch), v(size_t(cw) * ch);
  if (libyuv::ABGRToJ420(rgba.row(0), int(rowBytes(rgba.geometry)), yuv.row(0), int(g.stride),
                         u.data(), cw, v.data(), cw, w, h) != 0)
    throw std::runtime_error("libyuv conversion failed");
  const bool nv12 = g.format == PixelFormat::NV12;
  libyuv::MergeUVPlane(nv12 ? u.data() : v.data(), cw, nv12 ? v.data() : u.data(), cw,
                       yuv.chromaRow(0), int(g.stride), cw, ch);
}

bool imageReferenceForced() {
  static const bool forced = [] {
    const char* value = std::getenv("LUMO_IMAGE_REFERENCE");
    return value != nullptr && std::strcmp(value, "1") == 0;
  }();
  return forced;
}

Image convertImage(const Image& source, PixelFormat format, uint32_t stride, uint32_t scanline) {
  const Geometry& sg = source.geometry;
  Image out = makeImage({format, sg.width, sg.height, stride, scanline});
  if (sg.format == format) {
    const size_t n = std::min(rowBytes(sg), rowBytes(out.geometry));
    for (uint32_t y = 0; y < sg.height; ++y) std::memcpy(out.row(y), source.row(y), n);
    if (isYuv(format)) {
      for (uint32_t cy = 0; cy < (sg.height + 1) / 2; ++cy)
        std::memcpy(out.chromaRow(cy), source.chromaRow(cy), n);
    }
    return out;
  }
  const bool reference = imageReferenceForced();
  if (!isYuv(sg.format)) {
    (reference ? rgbaToYuvReference : rgbaToYuvFast)(source, out);
    return out;
  }
  if (!isYuv(format)) {
    (reference ? yuvToRgbaReference : yuvToRgbaFast)(source, out);
    return out;
  }
  // NV21 <-> NV12: swap the chroma pair.
  for (uint32_t y = 0; y < sg.height; ++y) std::memcpy(out.row(y), source.row(y), sg.width);
  for (uint32_t cy = 0; cy < (sg.height + 1) / 2; ++cy) {
    const uint8_t* s = source.chromaRow(cy);
    uint8_t* d = out.chromaRow(cy);
    for (uint32_t cx = 0; cx < (sg.width + 1) / 2; ++cx) {
      d[2 * cx] = s[2 * cx + 1];
      d[2 * cx + 1] = s[2 * cx];
    }
  }
  return out;
}

}  // namespace lumo
