// Layout search for raw dumps of unknown stride or scanline.
#include "raw_geometry.h"

#include <algorithm>
#include <tuple>

namespace lumo {
namespace {

// Alignments tried for strides and scanlines: tight (1, or 2 for a 4:2:0
// stride), then the ones camera allocators use.
constexpr uint32_t kAlignments[] = {1, 2, 16, 32, 64, 128, 256, 512};

uint32_t alignUp(uint32_t value, uint32_t alignment) {
  return uint32_t((uint64_t(value) + alignment - 1) / alignment * alignment);
}

std::vector<uint32_t> candidates(uint32_t known, uint32_t minimum, bool even) {
  if (known != 0) return {known};
  std::vector<uint32_t> out;
  for (uint32_t a : kAlignments) {
    const uint32_t v = alignUp(minimum, even ? std::max(a, 2u) : a);
    if (std::find(out.begin(), out.end(), v) == out.end()) out.push_back(v);
  }
  return out;
}

}  // namespace

uint64_t fullBytes(const Geometry& g) { return bufferBytes(g); }

uint64_t tightBytes(const Geometry& g) {
  if (!isYuv(g.format)) return fullBytes(g);
  return uint64_t(g.stride) * g.scanline + uint64_t(g.stride) * ((g.height + 1) / 2);
}

uint32_t usualAlignment(uint32_t value) {
  for (uint32_t a = 512; a > 1; a /= 2)
    if (value % a == 0) return a;
  return 1;
}

std::vector<RawLayout> layoutsForSize(uint64_t bytes, const Geometry& known) {
  std::vector<RawLayout> out;
  if (known.width == 0 || known.height == 0) return out;
  for (uint32_t stride : candidates(known.stride, known.width, isYuv(known.format))) {
    for (uint32_t scanline : candidates(known.scanline, known.height, false)) {
      Geometry g = known;
      g.stride = stride;
      g.scanline = scanline;
      if (!checkGeometry(g).empty()) continue;
      for (bool tight : {false, true}) {
        if (tight && tightBytes(g) == fullBytes(g)) continue;
        if ((tight ? tightBytes(g) : fullBytes(g)) != bytes) continue;
        out.push_back({g, tight, usualAlignment(stride), usualAlignment(scanline)});
      }
    }
  }
  std::sort(out.begin(), out.end(), [](const RawLayout& a, const RawLayout& b) {
    return std::tuple(a.geometry.stride, a.geometry.scanline, a.tight) <
           std::tuple(b.geometry.stride, b.geometry.scanline, b.tight);
  });
  return out;
}

std::vector<RawLayout> layoutsForSizeAnyPicture(uint64_t bytes, PixelFormat format) {
  static const uint32_t kSizes[][2] = {
      {176, 144},   {320, 240},   {352, 288},   {640, 360},   {640, 480},   {720, 480},
      {800, 600},   {960, 540},   {1024, 768},  {1280, 720},  {1280, 960},  {1440, 1080},
      {1600, 1200}, {1920, 1080}, {1920, 1440}, {2048, 1536}, {2560, 1440}, {2592, 1944},
      {3264, 2448}, {3840, 2160}, {4000, 3000}, {4032, 3024}, {4096, 3072}, {4608, 3456},
      {8000, 6000}, {8160, 6120}};
  std::vector<RawLayout> out;
  for (const auto& [w, h] : kSizes) {
    const auto found = layoutsForSize(bytes, {format, w, h, 0, 0});
    out.insert(out.end(), found.begin(), found.end());
  }
  return out;
}

std::string describeGeometry(const Geometry& g) {
  return std::string(formatName(g.format)) + " " + std::to_string(g.width) + "x" +
         std::to_string(g.height) + " stride " + std::to_string(g.stride) + " scanline " +
         std::to_string(g.scanline);
}

}  // namespace lumo
