// Parser of the effect-script language into an effect chain.
#include "effect_script.h"

#include <charconv>
#include <cmath>
#include <map>
#include <utility>

namespace lumo::render {
namespace {

constexpr size_t kMaxEffects = 16;

std::string_view trim(std::string_view s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

std::vector<std::string_view> split(std::string_view s, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const size_t at = s.find(separator);
    parts.push_back(s.substr(0, at));
    if (at == std::string_view::npos) return parts;
    s.remove_prefix(at + 1);
  }
}

struct EffectText {
  std::string name;
  std::vector<std::pair<std::string, double>> values;  // in script order
};

// One "Name;key=value;..." segment; empty string on success, else the error.
std::string parseEffectText(std::string_view text, EffectText& effect) {
  const std::vector<std::string_view> fields = split(text, ';');
  effect.name = std::string(trim(fields[0]));
  if (effect.name.empty()) return "effect without a name";
  for (size_t i = 1; i < fields.size(); ++i) {
    const std::string_view field = trim(fields[i]);
    if (field.empty()) continue;  // the closing ';' and doubled separators
    const size_t eq = field.find('=');
    if (eq == std::string_view::npos)
      return effect.name + ": \"" + std::string(field) + "\" is not key=value";
    const std::string key(trim(field.substr(0, eq)));
    double value = 0;
    if (key.empty()) return effect.name + ": empty key";
    if (!parseNumber(field.substr(eq + 1), value))
      return effect.name + ": " + key + " is not a number: \"" + std::string(field.substr(eq + 1)) +
             "\"";
    effect.values.emplace_back(key, value);
  }
  return {};
}

void addLut(const EffectText& text, ScriptResult& result) {
  LutEffect lut;
  for (const auto& [key, value] : text.values) {
    if (key == "cube_strength") {
      if (!std::isfinite(value)) {
        result.warnings.push_back(
            "CubeLutEffect: cube_strength is not finite; the LUT is not applied");
        lut.strength = 0;
      } else if (value < 0 || value > 1) {
        result.warnings.push_back("CubeLutEffect: cube_strength " + std::to_string(value) +
                                  " clamped to 0..1");
        lut.strength = value < 0 ? 0 : 1;
      } else {
        lut.strength = value;
      }
    } else if (key == "lut_type") {
      if (value != 1.0) {
        result.error = "CubeLutEffect: unsupported lut_type " + std::to_string(value) +
                       " (only 1, an uploaded 17-point lattice)";
        return;
      }
    } else {
      result.warnings.push_back("CubeLutEffect: unknown key " + key + " ignored");
    }
  }
  result.chain.order.push_back(EffectKind::Lut);
  result.chain.luts.push_back(lut);
}

void addStyle(const EffectText& text, ScriptResult& result) {
  StyleEffect style;
  const std::map<std::string, double StyleEffect::*> fields = {
      {"Width", &StyleEffect::width},
      {"Height", &StyleEffect::height},
      {"SmoothStartValue", &StyleEffect::smoothStart},
      {"SmoothEndValue", &StyleEffect::smoothEnd},
      {"SmoothCoordScale", &StyleEffect::coordScale},
      {"SmoothValueScale", &StyleEffect::valueScale},
      {"LightDarkPreserveK", &StyleEffect::preserveK},
      {"LightDarkPreserveB", &StyleEffect::preserveB},
      {"LightDarkPreserveV", &StyleEffect::preserveV},
      {"LightDarkPreserveT", &StyleEffect::preserveT},
  };
  std::string nonFinite;
  for (const auto& [key, value] : text.values) {
    const auto it = fields.find(key);
    if (it == fields.end()) {
      result.warnings.push_back("CvStyleEffect: unknown key " + key + " ignored");
      continue;
    }
    if (!std::isfinite(value)) nonFinite += (nonFinite.empty() ? "" : ", ") + key;
    style.*(it->second) = value;
  }
  if (!nonFinite.empty()) {
    result.warnings.push_back("CvStyleEffect disabled: not finite: " + nonFinite);
    return;
  }
  result.chain.order.push_back(EffectKind::Style);
  result.chain.styles.push_back(style);
}

}  // namespace

bool parseNumber(std::string_view text, double& value) {
  text = trim(text);
  if (text.empty()) return false;
  if (text.front() == '+') text.remove_prefix(1);
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  // Out-of-range text still names a number: keep its infinity or zero.
  if (ec == std::errc::result_out_of_range && ptr == end) {
    value = std::strtod(std::string(text).c_str(), nullptr);
    return true;
  }
  return ec == std::errc() && ptr == end;
}

ScriptResult parseEffectScript(std::string_view script) {
  ScriptResult result;
  if (trim(script).empty()) {
    result.ok = true;
    return result;
  }
  const std::vector<std::string_view> segments = split(script, '@');
  if (segments.size() > kMaxEffects) {
    result.error = "more than " + std::to_string(kMaxEffects) + " effects";
    return result;
  }
  for (std::string_view segment : segments) {
    EffectText text;
    result.error = parseEffectText(segment, text);
    if (result.error.empty()) {
      if (text.name == "CubeLutEffect") {
        addLut(text, result);
      } else if (text.name == "CvStyleEffect") {
        addStyle(text, result);
      } else {
        result.error = "unknown effect \"" + text.name + "\"";
      }
    }
    if (!result.error.empty()) {
      result.chain = EffectChain{};
      result.warnings.clear();
      return result;
    }
  }
  result.ok = true;
  return result;
}

}  // namespace lumo::render
