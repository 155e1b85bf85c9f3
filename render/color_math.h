// Per-pixel colour arithmetic shared by the double-precision reference and
// the float tails of the vector kernels: full-range BT.601 (JFIF) in both
// directions, tetrahedral lattice look-up, the style gain, output rounding.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "effect_chain.h"
#include "jfif.h"

namespace lumo::render {

using jfif::kBToCb, jfif::kBToCr, jfif::kBToY, jfif::kCbToB, jfif::kCbToG, jfif::kCrToG,
    jfif::kCrToR, jfif::kGToCb, jfif::kGToCr, jfif::kGToY, jfif::kRToCb, jfif::kRToCr, jfif::kRToY;

template <typename T>
struct Rgb {
  T r, g, b;
};

template <typename T>
inline T clamp255(T v) {
  return std::min(std::max(v, T(0)), T(255));
}

// Y, Cb, Cr in 0..255 to RGB, clamped to 0..255 (the LUT's domain).
template <typename T>
inline Rgb<T> yuvToRgb(T y, T cb, T cr) {
  const T u = cb - T(128), v = cr - T(128);
  return {clamp255(y + T(kCrToR) * v), clamp255(y + T(kCbToG) * u + T(kCrToG) * v),
          clamp255(y + T(kCbToB) * u)};
}

template <typename T>
inline T lumaOf(const Rgb<T>& c) {
  return T(kRToY) * c.r + T(kGToY) * c.g + T(kBToY) * c.b;
}
template <typename T>
inline T cbOf(const Rgb<T>& c) {
  return T(128) + T(kRToCb) * c.r + T(kGToCb) * c.g + T(kBToCb) * c.b;
}
template <typename T>
inline T crOf(const Rgb<T>& c) {
  return T(128) + T(kRToCr) * c.r + T(kGToCr) * c.g + T(kBToCr) * c.b;
}

// The one rounding of the chain: half up, then clamped to a byte.
// NaN (only from degenerate parameters) writes 0.
template <typename T>
inline uint8_t toByte(T v) {
  const T r = std::floor(v + T(0.5));
  if (!(r > T(0))) return 0;
  return r < T(255) ? static_cast<uint8_t>(r) : uint8_t(255);
}

// Tetrahedral interpolation in the 17-point lattice; `c` is clamped to the
// lattice's domain 0..255 first. The path from the cell's low corner to its
// high corner steps along the axes in decreasing order of their fractions.
template <typename T>
inline Rgb<T> lookupTetrahedral(const uint8_t* lattice, const Rgb<T>& c) {
  constexpr T kScale = T(kLutSize - 1) / T(255);
  // Written so that NaN (a degenerate style gain earlier in a chain) lands on 0.
  const auto domain = [](T v) { return v > T(0) ? (v < T(255) ? v : T(255)) : T(0); };
  const T x[3] = {domain(c.r) * kScale, domain(c.g) * kScale, domain(c.b) * kScale};
  int i[3];
  T f[3];
  for (int a = 0; a < 3; ++a) {
    i[a] = std::min(static_cast<int>(x[a]), kLutSize - 2);
    f[a] = x[a] - T(i[a]);
  }
  constexpr int kStep[3] = {1, kLutSize, kLutSize * kLutSize};
  // Axes sorted by decreasing fraction; ties keep r before g before b.
  int order[3] = {0, 1, 2};
  std::stable_sort(order, order + 3, [&](int a, int b) { return f[a] > f[b]; });
  const int base = i[0] + i[1] * kStep[1] + i[2] * kStep[2];
  const int v1 = base + kStep[order[0]];
  const int v2 = v1 + kStep[order[1]];
  const int v3 = base + kStep[0] + kStep[1] + kStep[2];
  // Written as steps from the low corner so that a flat lattice stays exactly flat.
  T out[3];
  for (int ch = 0; ch < 3; ++ch) {
    const T c0 = T(lattice[base * 3 + ch]), c1 = T(lattice[v1 * 3 + ch]);
    const T c2 = T(lattice[v2 * 3 + ch]), c3 = T(lattice[v3 * 3 + ch]);
    out[ch] = c0 + (c1 - c0) * f[order[0]] + (c2 - c1) * f[order[1]] + (c3 - c2) * f[order[2]];
  }
  return {out[0], out[1], out[2]};
}

template <typename T>
inline Rgb<T> applyLut(const LutEffect& lut, const Rgb<T>& c) {
  if (!lut.hasLattice) return c;
  const Rgb<T> l = lookupTetrahedral(lut.lattice.data(), c);
  const T s = T(lut.strength);
  return {c.r + s * (l.r - c.r), c.g + s * (l.g - c.g), c.b + s * (l.b - c.b)};
}

// Hermite step between e0 and e1; a hard step at e0 when they are equal.
template <typename T>
inline T smoothstep(T e0, T e1, T x) {
  if (e0 == e1) return x < e0 ? T(0) : T(1);
  const T t = std::min(std::max((x - e0) / (e1 - e0), T(0)), T(1));
  return t * t * (T(3) - T(2) * t);
}

// Maps a pixel position to its distance from the frame centre in units of
// the half diagonal, measured in the style effect's own geometry so that a
// script tuned for one size applies the same way to any frame size.
struct RadialGeometry {
  double ax = 0, bx = 0, ay = 0, by = 0;  // dx = ax * x + bx, dy = ay * y + by

  static RadialGeometry make(const StyleEffect& style, uint32_t frameWidth, uint32_t frameHeight) {
    const double w = style.width > 0 ? style.width : frameWidth;
    const double h = style.height > 0 ? style.height : frameHeight;
    const double halfDiagonal = 0.5 * std::sqrt(w * w + h * h);
    RadialGeometry g;
    if (frameWidth == 0 || frameHeight == 0 || halfDiagonal == 0) return g;
    g.ax = w / (frameWidth * halfDiagonal);
    g.bx = (0.5 - 0.5 * frameWidth) * g.ax;
    g.ay = h / (frameHeight * halfDiagonal);
    g.by = (0.5 - 0.5 * frameHeight) * g.ay;
    return g;
  }
};

// Gain of the style effect for a pixel at normalised distance `d` whose
// colour (0..255) has normalised luma `y`.
template <typename T>
inline T styleGain(const StyleEffect& s, T d, T y) {
  const T f = smoothstep(T(s.smoothStart), T(s.smoothEnd), d * T(s.coordScale));
  const T g = T(1) + T(s.valueScale) * f;
  const T p = std::min(std::max(T(s.preserveK) * y + T(s.preserveB), T(0)), T(1));
  const T h = s.preserveV == 0
                  ? T(1)
                  : std::min(std::max((T(s.preserveT) - y) / T(s.preserveV), T(0)), T(1));
  return T(1) + (g - T(1)) * p * h;
}

template <typename T>
inline Rgb<T> applyStyle(const StyleEffect& s, T d, const Rgb<T>& c) {
  const T gain = styleGain(s, d, lumaOf(c) / T(255));
  return {c.r * gain, c.g * gain, c.b * gain};
}

}  // namespace lumo::render
