// CIELAB and CIEDE2000 (Sharma, Wu and Dalal's formulation, which their
// published test pairs reproduce).
#include <calib/colour_difference.h>

#include <algorithm>
#include <cmath>

namespace calib {
namespace {

constexpr double kPi = 3.14159265358979323846;

double deg(double rad) { return rad * 180 / kPi; }
double rad(double degrees) { return degrees * kPi / 180; }

// The sRGB transfer function, code value 0..1 to linear light.
double decode(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }

Lab linearToLab(const double lin[3]) {
  const double x = 0.4124564 * lin[0] + 0.3575761 * lin[1] + 0.1804375 * lin[2];
  const double y = 0.2126729 * lin[0] + 0.7151522 * lin[1] + 0.0721750 * lin[2];
  const double z = 0.0193339 * lin[0] + 0.1191920 * lin[1] + 0.9503041 * lin[2];
  auto f = [](double t) {
    return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116;
  };
  const double fx = f(x / 0.95047), fy = f(y), fz = f(z / 1.08883);
  return {116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)};
}

}  // namespace

Lab srgbToLab(const std::array<double, 3>& rgb) {
  double lin[3];
  for (int c = 0; c < 3; ++c) lin[c] = decode(std::clamp(rgb[c], 0.0, 1.0));
  return linearToLab(lin);
}

Lab srgb8ToLab(uint8_t r, uint8_t g, uint8_t b) {
  static const std::array<double, 256> table = [] {
    std::array<double, 256> t{};
    for (int i = 0; i < 256; ++i) t[i] = decode(i / 255.0);
    return t;
  }();
  const double lin[3] = {table[r], table[g], table[b]};
  return linearToLab(lin);
}

double hueDegrees(const Lab& lab) {
  const double h = deg(std::atan2(lab[2], lab[1]));
  return h < 0 ? h + 360 : h;
}

double chroma(const Lab& lab) { return std::hypot(lab[1], lab[2]); }

double ciede2000(const Lab& lab1, const Lab& lab2) {
  const auto [L1, a1, b1] = lab1;
  const auto [L2, a2, b2] = lab2;
  const double cBar = (std::hypot(a1, b1) + std::hypot(a2, b2)) / 2;
  const double c7 = std::pow(cBar, 7);
  const double g = 0.5 * (1 - std::sqrt(c7 / (c7 + std::pow(25.0, 7))));
  const double a1p = (1 + g) * a1, a2p = (1 + g) * a2;
  const double c1p = std::hypot(a1p, b1), c2p = std::hypot(a2p, b2);
  auto hue = [](double b, double a) {
    if (a == 0 && b == 0) return 0.0;
    const double h = deg(std::atan2(b, a));
    return h < 0 ? h + 360 : h;
  };
  const double h1p = hue(b1, a1p), h2p = hue(b2, a2p);
  const double dLp = L2 - L1, dCp = c2p - c1p;
  double dhp = 0;
  if (c1p * c2p != 0) {
    dhp = h2p - h1p;
    if (dhp > 180) dhp -= 360;
    if (dhp < -180) dhp += 360;
  }
  const double dHp = 2 * std::sqrt(c1p * c2p) * std::sin(rad(dhp / 2));
  const double lBar = (L1 + L2) / 2, cBarP = (c1p + c2p) / 2;
  double hBarP = h1p + h2p;
  if (c1p * c2p != 0) {
    if (std::fabs(h1p - h2p) <= 180)
      hBarP /= 2;
    else
      hBarP = h1p + h2p < 360 ? (hBarP + 360) / 2 : (hBarP - 360) / 2;
  }
  const double t = 1 - 0.17 * std::cos(rad(hBarP - 30)) + 0.24 * std::cos(rad(2 * hBarP)) +
                   0.32 * std::cos(rad(3 * hBarP + 6)) - 0.20 * std::cos(rad(4 * hBarP - 63));
  const double dTheta = 30 * std::exp(-std::pow((hBarP - 275) / 25, 2));
  const double cBarP7 = std::pow(cBarP, 7);
  const double rc = 2 * std::sqrt(cBarP7 / (cBarP7 + std::pow(25.0, 7)));
  const double sl = 1 + 0.015 * std::pow(lBar - 50, 2) / std::sqrt(20 + std::pow(lBar - 50, 2));
  const double sc = 1 + 0.045 * cBarP, sh = 1 + 0.015 * cBarP * t;
  const double rt = -std::sin(rad(2 * dTheta)) * rc;
  const double l = dLp / sl, c = dCp / sc, h = dHp / sh;
  return std::sqrt(l * l + c * c + h * h + rt * c * h);
}

}  // namespace calib
