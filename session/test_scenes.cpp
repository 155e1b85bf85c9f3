// Procedural test pictures. Each scene is a function of the normalised pixel
// position (u, v in 0..1) returning linear-ish RGB in 0..1; value noise adds
// texture so looks have something to work on.
#include "test_scenes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

#include "failure.h"

namespace lumo {
namespace {

struct Rgb {
  double r, g, b;
};

Rgb mix(Rgb a, Rgb b, double t) {
  return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

double smooth(double e0, double e1, double x) {
  const double t = std::clamp((x - e0) / (e1 - e0), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

double hash(int x, int y, int seed) {
  uint32_t h = uint32_t(x) * 374761393u + uint32_t(y) * 668265263u + uint32_t(seed) * 2246822519u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return double((h ^ (h >> 16)) & 0xFFFFFF) / double(0xFFFFFF);
}

// Smooth value noise in 0..1 with `octaves` octaves starting at `cells` cells.
double noise(double u, double v, double cells, int octaves, int seed) {
  double sum = 0, amp = 0.5, norm = 0;
  for (int o = 0; o < octaves; ++o) {
    const double x = u * cells, y = v * cells;
    const int xi = int(std::floor(x)), yi = int(std::floor(y));
    const double fx = smooth(0, 1, x - xi), fy = smooth(0, 1, y - yi);
    const double a = hash(xi, yi, seed + o), b = hash(xi + 1, yi, seed + o);
    const double c = hash(xi, yi + 1, seed + o), d = hash(xi + 1, yi + 1, seed + o);
    sum += amp * ((a + (b - a) * fx) * (1 - fy) + (c + (d - c) * fx) * fy);
    norm += amp;
    amp *= 0.5;
    cells *= 2;
  }
  return sum / norm;
}

// Classic 24-patch colour checker (sRGB values) above a grey ramp and
// saturated colour bars.
Rgb chart(double u, double v, double widthOverHeight) {
  static const Rgb patches[24] = {
      {0.45, 0.32, 0.26}, {0.76, 0.59, 0.51}, {0.38, 0.48, 0.61}, {0.34, 0.42, 0.26},
      {0.51, 0.50, 0.69}, {0.40, 0.74, 0.67}, {0.84, 0.49, 0.18}, {0.31, 0.36, 0.65},
      {0.76, 0.33, 0.38}, {0.36, 0.24, 0.42}, {0.62, 0.74, 0.25}, {0.88, 0.63, 0.18},
      {0.22, 0.24, 0.58}, {0.27, 0.58, 0.29}, {0.69, 0.19, 0.22}, {0.93, 0.78, 0.12},
      {0.73, 0.33, 0.58}, {0.00, 0.52, 0.65}, {0.95, 0.95, 0.95}, {0.78, 0.78, 0.78},
      {0.63, 0.63, 0.63}, {0.48, 0.48, 0.48}, {0.33, 0.33, 0.33}, {0.20, 0.20, 0.20}};
  (void)widthOverHeight;
  if (v < 0.62) {
    const double pu = u * 6, pv = v / 0.62 * 4;
    const int col = std::min(5, int(pu)), row = std::min(3, int(pv));
    const double fu = pu - col, fv = pv - row;
    if (fu < 0.08 || fu > 0.92 || fv < 0.08 || fv > 0.92) return {0.05, 0.05, 0.05};
    return patches[row * 6 + col];
  }
  if (v < 0.78) {
    const double t = std::floor(u * 17) / 16;  // 17 grey steps
    return {t, t, t};
  }
  static const Rgb bars[8] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0},
                              {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}};
  return bars[std::min(7, int(u * 8))];
}

Rgb sunset(double u, double v, double widthOverHeight) {
  const double horizon = 0.62;
  if (v < horizon) {
    const double t = v / horizon;
    Rgb sky = mix(mix(Rgb{0.25, 0.18, 0.45}, Rgb{0.95, 0.45, 0.25}, smooth(0.1, 0.8, t)),
                  Rgb{1.0, 0.78, 0.35}, smooth(0.75, 1.0, t));
    const double dx = (u - 0.6) * widthOverHeight, dy = v - 0.5;
    const double d = std::sqrt(dx * dx + dy * dy);
    sky = mix(sky, Rgb{1.0, 0.95, 0.75}, 1 - smooth(0.06, 0.075, d));
    sky = mix(sky, Rgb{1.0, 0.7, 0.4}, 0.35 * (1 - smooth(0.07, 0.3, d)));
    const double cloud = smooth(0.55, 0.75, noise(u * widthOverHeight, v * 3, 3, 4, 7));
    return mix(sky, Rgb{0.55, 0.3, 0.35}, 0.6 * cloud * smooth(0.0, 0.4, t));
  }
  const double t = (v - horizon) / (1 - horizon);
  Rgb sea = mix(Rgb{0.35, 0.2, 0.25}, Rgb{0.06, 0.05, 0.12}, t);
  const double glint = std::exp(-std::pow((u - 0.6) * widthOverHeight * 6, 2)) *
                       smooth(0.55, 0.8, noise(u * 40, v * 8, 2, 2, 3));
  return mix(sea, Rgb{1.0, 0.75, 0.45}, glint * (1 - t * 0.6));
}

Rgb plants(double u, double v, double widthOverHeight) {
  const double n = noise(u * widthOverHeight, v, 6, 5, 11);
  const double leaf = noise(u * widthOverHeight * 3, v * 3, 5, 3, 23);
  Rgb green = mix(Rgb{0.06, 0.22, 0.05}, Rgb{0.45, 0.75, 0.2}, n);
  green = mix(green, Rgb{0.75, 0.85, 0.3}, smooth(0.7, 0.85, leaf) * 0.7);
  const double flower = smooth(0.82, 0.9, noise(u * widthOverHeight * 2, v * 2, 8, 2, 41));
  green = mix(green, Rgb{0.95, 0.35, 0.55}, flower);
  const double sky = (1 - smooth(0.12, 0.2, v + 0.05 * n));
  return mix(green, Rgb{0.7, 0.82, 0.95}, sky);
}

Rgb food(double u, double v, double widthOverHeight) {
  const double grain = noise(u * widthOverHeight * 2, v * 30, 4, 3, 5);
  Rgb table = mix(Rgb{0.35, 0.2, 0.1}, Rgb{0.6, 0.38, 0.2}, grain);
  const double dx = (u - 0.5) * widthOverHeight, dy = v - 0.52;
  const double plate = std::sqrt(dx * dx / 0.16 + dy * dy / 0.12);
  if (plate > 1.0) return table;
  Rgb dish = mix(Rgb{0.96, 0.95, 0.92}, Rgb{0.8, 0.8, 0.78}, smooth(0.85, 1.0, plate));
  if (plate < 0.7) {
    const double n = noise(u * widthOverHeight * 4, v * 4, 4, 4, 17);
    Rgb item =
        n < 0.4 ? Rgb{0.8, 0.15, 0.08} : (n < 0.55 ? Rgb{0.95, 0.75, 0.2} : Rgb{0.3, 0.6, 0.15});
    dish = mix(item, dish, smooth(0.6, 0.7, plate));
  }
  return dish;
}

Rgb night(double u, double v, double widthOverHeight) {
  Rgb sky = mix(Rgb{0.01, 0.02, 0.08}, Rgb{0.12, 0.08, 0.2}, v);
  const int column = int(u * 14);
  const double top = 0.35 + 0.4 * hash(column, 0, 3);
  if (v > top) {
    Rgb wall = {0.03, 0.03, 0.05};
    const double wx = u * 14 * 5, wy = v * 40;
    const bool window = std::fmod(wx, 1.0) < 0.6 && std::fmod(wy, 1.0) < 0.5;
    if (window && hash(int(wx), int(wy), 9) > 0.55) wall = Rgb{1.0, 0.8, 0.45};
    return wall;
  }
  const double star = hash(int(u * widthOverHeight * 300), int(v * 300), 2);
  return star > 0.997 ? Rgb{0.9, 0.9, 1.0} : sky;
}

Rgb portrait(double u, double v, double widthOverHeight) {
  Rgb back =
      mix(Rgb{0.3, 0.45, 0.55}, Rgb{0.15, 0.25, 0.3}, noise(u * widthOverHeight, v, 3, 3, 29));
  const double dx = (u - 0.5) * widthOverHeight, dy = v - 0.45;
  const double head = std::sqrt(dx * dx / 0.04 + dy * dy / 0.07);
  const double body = (v > 0.72) ? std::abs(dx) / (0.15 + (v - 0.72)) : 2;
  if (body < 1) back = Rgb{0.2, 0.2, 0.45};
  if (head < 1.15 && dy < -0.05) back = mix(Rgb{0.18, 0.1, 0.06}, back, smooth(1.05, 1.15, head));
  if (head < 1.0) {
    Rgb skin = mix(Rgb{0.92, 0.72, 0.6}, Rgb{0.75, 0.52, 0.42}, smooth(0.3, 1.0, head));
    for (double ex : {-0.07, 0.07}) {
      const double e = std::hypot(dx - ex, (dy + 0.04) * 1.6);
      skin = mix(Rgb{0.15, 0.1, 0.08}, skin, smooth(0.015, 0.025, e));
    }
    const double mouth = std::hypot(dx / 2.5, (dy - 0.1) * 2);
    skin = mix(Rgb{0.7, 0.3, 0.3}, skin, smooth(0.04, 0.05, mouth));
    back = skin;
  }
  return back;
}

using SceneFn = std::function<Rgb(double, double, double)>;

const std::vector<std::pair<std::string, SceneFn>>& scenes() {
  static const std::vector<std::pair<std::string, SceneFn>> all = {
      {"chart", chart}, {"sunset", sunset}, {"plants", plants},
      {"food", food},   {"night", night},   {"portrait", portrait}};
  return all;
}

}  // namespace

const std::vector<std::string>& generatedSceneNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> n;
    for (const auto& s : scenes()) n.push_back(s.first);
    return n;
  }();
  return names;
}

bool isGeneratedScene(const std::string& name) {
  const auto& n = generatedSceneNames();
  return std::find(n.begin(), n.end(), name) != n.end();
}

Image generateScene(const std::string& name, uint32_t width, uint32_t height) {
  const auto& all = scenes();
  const auto it =
      std::find_if(all.begin(), all.end(), [&](const auto& s) { return s.first == name; });
  if (it == all.end()) throw Failure("no generated scene named \"" + name + "\"");
  Image image = makeImage({PixelFormat::RGBA, width, height, 0, 0});
  const double widthOverHeight = double(width) / double(height);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = image.row(y);
    for (uint32_t x = 0; x < width; ++x) {
      const Rgb c = it->second((x + 0.5) / width, (y + 0.5) / height, widthOverHeight);
      row[4 * x] = uint8_t(std::lround(std::clamp(c.r, 0.0, 1.0) * 255));
      row[4 * x + 1] = uint8_t(std::lround(std::clamp(c.g, 0.0, 1.0) * 255));
      row[4 * x + 2] = uint8_t(std::lround(std::clamp(c.b, 0.0, 1.0) * 255));
    }
  }
  return image;
}

}  // namespace lumo
