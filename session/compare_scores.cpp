// Scoring two outputs of one frame against each other.
#include <calib/colour_difference.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "compare.h"
#include "yuv_convert.h"

namespace lumo {

PictureScores scorePictures(const Image& a, const Image& b, double threshold) {
  PictureScores s;
  const Geometry& g = a.geometry;
  s.identical = a.bytes.size() == b.bytes.size() &&
                std::memcmp(a.bytes.data(), b.bytes.data(), a.bytes.size()) == 0;
  if (s.identical || g.width == 0 || g.height == 0) return s;
  // Both through the one YUV binding the tools use (full-range BT.601).
  const Image ra = g.format == PixelFormat::RGBA ? a : convertImage(a, PixelFormat::RGBA);
  const Image rb = g.format == PixelFormat::RGBA ? b : convertImage(b, PixelFormat::RGBA);
  uint32_t step = 1;
  while (uint64_t(g.width / step) * (g.height / step) > kScoredPixels) ++step;
  std::vector<double> distances;
  distances.reserve(size_t(g.width / step + 1) * (g.height / step + 1));
  double sum = 0;
  size_t above = 0;
  for (uint32_t y = step / 2; y < g.height; y += step) {
    const uint8_t* pa = ra.row(y);
    const uint8_t* pb = rb.row(y);
    for (uint32_t x = step / 2; x < g.width; x += step) {
      const uint8_t* p = pa + 4 * x;
      const uint8_t* q = pb + 4 * x;
      double d = 0;
      if (p[0] != q[0] || p[1] != q[1] || p[2] != q[2])
        d = calib::ciede2000(calib::srgb8ToLab(p[0], p[1], p[2]),
                             calib::srgb8ToLab(q[0], q[1], q[2]));
      distances.push_back(d);
      sum += d;
      s.max = std::max(s.max, d);
      if (d > threshold) ++above;
    }
  }
  if (distances.empty()) return s;
  const size_t n = distances.size();
  s.mean = sum / double(n);
  s.share = double(above) / double(n);
  // The nearest-rank 95th percentile.
  const size_t rank = size_t(std::ceil(0.95 * double(n))) - 1;
  std::nth_element(distances.begin(), distances.begin() + ptrdiff_t(rank), distances.end());
  s.p95 = distances[rank];
  return s;
}

}  // namespace lumo
