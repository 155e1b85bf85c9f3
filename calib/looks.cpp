// Generated looks: exposure, white balance, contrast, saturation, split
// toning, fade and gamma, applied in that order to every lattice point.
#include <calib/looks.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "jfif.h"

namespace calib {
namespace {

double clamp01(double v) { return std::clamp(v, 0.0, 1.0); }
double luma(const std::array<double, 3>& c) {
  return lumo::jfif::kRToY * c[0] + lumo::jfif::kGToY * c[1] + lumo::jfif::kBToY * c[2];
}

}  // namespace

std::array<double, 3> applyLook(const LookParams& look, std::array<double, 3> c) {
  const double gain = std::exp2(look.exposure);
  const std::array<double, 3> wb = {1 + 0.25 * look.temperature, 1 - 0.12 * look.tint,
                                    1 - 0.25 * look.temperature};
  for (int i = 0; i < 3; ++i) c[i] = clamp01(c[i] * gain * wb[i]);
  for (double& v : c) {
    const double s = v * v * (3 - 2 * v);  // smoothstep: the S-curve at full strength
    v = look.contrast >= 0 ? v + look.contrast * (s - v) : v + (-look.contrast) * (0.5 - v) * 0.5;
  }
  const double l = luma(c);
  for (double& v : c) v = l + (v - l) * look.saturation;
  const double tone = clamp01(luma(c));
  const double ws = (1 - tone) * (1 - tone), wh = tone * tone;
  for (int i = 0; i < 3; ++i) c[i] += ws * look.shadows[i] + wh * look.highlights[i];
  for (double& v : c) {
    v = clamp01(look.fade + clamp01(v) * (1 - look.fade));
    if (look.gamma != 1) v = std::pow(v, 1 / look.gamma);
  }
  return c;
}

LutBlock generateLook(const LookParams& look) {
  LutBlock lut(kLutBlockBytes);
  size_t o = 0;
  for (size_t b = 0; b < kLutEdge; ++b)
    for (size_t g = 0; g < kLutEdge; ++g)
      for (size_t r = 0; r < kLutEdge; ++r) {
        const double k = double(kLutEdge - 1);
        const auto c = applyLook(look, {r / k, g / k, b / k});
        for (double v : c) lut[o++] = uint8_t(std::lround(clamp01(v) * 255));
      }
  return lut;
}

LutBlock identityLut() { return generateLook(LookParams{}); }

LookParams lookFromJson(const nlohmann::json& j, const std::string& where) {
  if (!j.is_object()) throw std::invalid_argument(where + ": expected an object of look controls");
  LookParams p;
  auto number = [&](const std::string& key, const nlohmann::json& v) {
    if (!v.is_number()) throw std::invalid_argument(where + "." + key + ": expected a number");
    return v.get<double>();
  };
  auto triple = [&](const std::string& key, const nlohmann::json& v) {
    if (!v.is_array() || v.size() != 3)
      throw std::invalid_argument(where + "." + key + ": expected [r, g, b]");
    return std::array<double, 3>{number(key, v[0]), number(key, v[1]), number(key, v[2])};
  };
  // The controls that take one number, and those that take an RGB triple.
  static const std::pair<const char*, double LookParams::*> kNumbers[] = {
      {"exposure", &LookParams::exposure},
      {"temperature", &LookParams::temperature},
      {"tint", &LookParams::tint},
      {"contrast", &LookParams::contrast},
      {"saturation", &LookParams::saturation},
      {"fade", &LookParams::fade}};
  static const std::pair<const char*, std::array<double, 3> LookParams::*> kTriples[] = {
      {"shadows", &LookParams::shadows}, {"highlights", &LookParams::highlights}};
  // No structured binding: clang (the fuzz build) cannot capture one in the lambda.
  for (const auto& item : j.items()) {
    const std::string& key = item.key();
    const nlohmann::json& v = item.value();
    const auto named = [&key](const auto& entry) { return key == entry.first; };
    if (auto n = std::find_if(std::begin(kNumbers), std::end(kNumbers), named);
        n != std::end(kNumbers)) {
      p.*(n->second) = number(key, v);
    } else if (auto t = std::find_if(std::begin(kTriples), std::end(kTriples), named);
               t != std::end(kTriples)) {
      p.*(t->second) = triple(key, v);
    } else if (key == "gamma") {
      p.gamma = number(key, v);
      if (!(p.gamma > 0)) throw std::invalid_argument(where + ".gamma: expected a positive number");
    } else {
      throw std::invalid_argument(where + "." + key +
                                  ": unknown look control (known: exposure, temperature, tint, "
                                  "contrast, saturation, shadows, highlights, fade, gamma)");
    }
  }
  return p;
}

}  // namespace calib
