// Reading a frame's outcome from the plugin's log lines and the filter calls.
#include "frame_outcome.h"

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <regex>

namespace lumo {
namespace {

bool anyMatch(const std::vector<std::string>& messages, const std::regex& re) {
  for (const std::string& m : messages)
    if (std::regex_search(m, re)) return true;
  return false;
}

// Values with `digits` decimals (-1: shortest), comma separated.
std::string joined(const double* values, size_t n, int digits) {
  std::string out;
  for (size_t i = 0; i < n; ++i) {
    char text[32];
    if (digits < 0)
      std::snprintf(text, sizeof(text), "%g", values[i]);
    else
      std::snprintf(text, sizeof(text), "%.*f", digits, values[i]);
    out += (i ? ", " : "") + std::string(text);
  }
  return out;
}

}  // namespace

nlohmann::json outcomeJson(const FrameOutcome& o) {
  nlohmann::json j;
  j["plugin"] = o.filtered ? "filtered" : o.reason == PassReason::Unknown ? "unknown" : "copied";
  j["reason"] = o.filtered ? nlohmann::json(nullptr) : nlohmann::json(reasonKey(o.reason));
  j["detail"] = o.detail;
  if (!o.filtered) return j;
  nlohmann::json lut = nlohmann::json::object();
  if (o.lutIndex) lut["index"] = *o.lutIndex;
  if (o.lutWeight) lut["weights"] = *o.lutWeight;
  j["lut"] = lut;
  j["shading"] = o.shading;
  j["script"] = o.script;
  if (o.heldSize)
    j["held_script_size"] = {{"script", {o.heldSize->scriptWidth, o.heldSize->scriptHeight}},
                             {"frame", {o.heldSize->frameWidth, o.heldSize->frameHeight}}};
  return j;
}

std::vector<std::string> outcomeLines(const FrameOutcome& o) {
  if (!o.filtered) return {o.detail};
  std::vector<std::string> lines;
  std::string lut = "lut ";
  if (o.lutIndex) {
    const double index[4] = {double((*o.lutIndex)[0]), double((*o.lutIndex)[1]),
                             double((*o.lutIndex)[2]), double((*o.lutIndex)[3])};
    lut += joined(index, 4, 0);
  } else {
    lut += "(corners not logged)";
  }
  if (o.lutWeight) lut += "  weights " + joined(o.lutWeight->data(), 4, 4);
  lines.push_back(lut);
  if (!o.shading.empty())
    lines.push_back("shading " + joined(o.shading.data(), o.shading.size(), -1));
  lines.push_back("script " + o.script);
  if (o.heldSize)
    lines.push_back(heldSizeText(*o.heldSize) +
                    ": the selection did not change, so the plugin kept an earlier frame's "
                    "script, its radial gain laid out for that size");
  if (!o.detail.empty()) lines.push_back(o.detail);
  return lines;
}

const char* reasonKey(PassReason reason) {
  switch (reason) {
    case PassReason::None:
      return "";
    case PassReason::HostDisabled:
      return "host-disabled";
    case PassReason::BypassSwitch:
      return "bypass-switch";
    case PassReason::StickyBypass:
      return "sticky-bypass";
    case PassReason::NoSceneParameters:
      return "no-scene-parameters";
    case PassReason::NoCalibration:
      return "no-calibration";
    case PassReason::RenderFailed:
      return "render-failed";
    case PassReason::Unknown:
      break;
  }
  return "unknown";
}

const char* reasonText(PassReason reason) {
  switch (reason) {
    case PassReason::None:
      return "filtered";
    case PassReason::HostDisabled:
      return "copied: disabled by the host";
    case PassReason::BypassSwitch:
      return "copied: bypass switch";
    case PassReason::StickyBypass:
      return "copied: bypass after a failure";
    case PassReason::NoSceneParameters:
      return "copied: no parameters for the scene";
    case PassReason::NoCalibration:
      return "copied: no calibration";
    case PassReason::RenderFailed:
      return "copied: render failed twice";
    case PassReason::Unknown:
      break;
  }
  return "unknown";
}

std::optional<std::string> rejectedStoreMessage(const std::vector<std::string>& messages) {
  static const std::regex rejected("\\[LumoFilter\\] parameter file .* rejected: (.*)$");
  std::smatch m;
  for (const std::string& msg : messages)
    if (std::regex_search(msg, m, rejected)) return m[1].str();
  return std::nullopt;
}

namespace {

// The value of `key` in the script's style effect.
std::optional<double> styleValue(const std::string& script, const char* key) {
  const auto style = script.find("CvStyleEffect;");
  if (style == std::string::npos) return std::nullopt;
  const auto at = script.find(std::string(";") + key + "=", style);
  if (at == std::string::npos) return std::nullopt;
  return std::strtod(script.c_str() + at + std::char_traits<char>::length(key) + 2, nullptr);
}

std::optional<HeldScriptSize> heldSizeOf(const FilterRender& r) {
  const auto w = styleValue(r.script, "Width"), h = styleValue(r.script, "Height");
  // A render without the frame's size (a foreign tap) has nothing to compare.
  if (!w || !h || r.frameWidth == 0 || r.frameHeight == 0) return std::nullopt;
  if (*w == double(r.frameWidth) && *h == double(r.frameHeight)) return std::nullopt;
  const auto size = [](double v) { return v >= 0 && v <= 4294967295.0 ? uint32_t(v) : 0u; };
  return HeldScriptSize{size(*w), size(*h), r.frameWidth, r.frameHeight};
}

}  // namespace

std::vector<double> shadingOfScript(const std::string& script) {
  static const char* const kKeys[] = {
      "SmoothStartValue",   "SmoothEndValue",     "SmoothCoordScale",   "SmoothValueScale",
      "LightDarkPreserveK", "LightDarkPreserveB", "LightDarkPreserveV", "LightDarkPreserveT"};
  std::vector<double> values;
  for (const char* key : kKeys) {
    const auto v = styleValue(script, key);
    if (!v) return {};
    values.push_back(*v);
  }
  return values;
}

std::string heldSizeText(const HeldScriptSize& h) {
  return "held script made for " + std::to_string(h.scriptWidth) + "x" +
         std::to_string(h.scriptHeight) + " on a " + std::to_string(h.frameWidth) + "x" +
         std::to_string(h.frameHeight) + " frame";
}

FrameOutcome readFrameOutcome(const FrameEvidence& e, InstanceTrace& trace) {
  static const std::regex bypass("\\] algo bypass$");
  static const std::regex renderFail(
      "\\] (nuvoProcess fail twice!!!|algo bypass for nuvoSKD fail)$");
  static const std::regex noParameters("beyond the .* no parameters for this frame$");
  static const std::regex lutIndex("\\] lut index (-?\\d+), (-?\\d+), (-?\\d+), (-?\\d+)$");
  static const std::regex shadingIndex("\\] shading index ");
  static const std::regex weights(
      "\\] ([-0-9.naif]+), ([-0-9.naif]+), ([-0-9.naif]+), ([-0-9.naif]+)$");

  FrameOutcome out;
  if (!e.enabled) {
    out.reason = PassReason::HostDisabled;
    out.detail = "isEnabled said no; the host copied the input";
    return out;
  }
  // The LUT selection's lines: its corners, then (when it changed) the weights
  // line that follows them, before the shading selection starts.
  bool lutLogged = false, lutWindow = false;
  for (const std::string& msg : e.messages) {
    std::smatch m;
    if (std::regex_search(msg, m, lutIndex)) {
      lutLogged = lutWindow = true;
      out.lutIndex =
          std::array<int, 4>{std::atoi(m[1].str().c_str()), std::atoi(m[2].str().c_str()),
                             std::atoi(m[3].str().c_str()), std::atoi(m[4].str().c_str())};
    } else if (std::regex_search(msg, shadingIndex)) {
      lutWindow = false;
    } else if (lutWindow && std::regex_search(msg, m, weights)) {
      trace.lutWeight = std::array<double, 4>{
          std::strtod(m[1].str().c_str(), nullptr), std::strtod(m[2].str().c_str(), nullptr),
          std::strtod(m[3].str().c_str(), nullptr), std::strtod(m[4].str().c_str(), nullptr)};
      lutWindow = false;
    }
  }

  const bool triggerFailed = anyMatch(e.messages, noParameters) || (e.debugLines && !lutLogged);
  auto remember = [&](PassReason reason) {
    if (!trace.failedFrame) {
      trace.failedFrame = e.frame;
      trace.failure = reason;
    }
  };
  if (anyMatch(e.messages, renderFail)) {
    out.reason = PassReason::RenderFailed;
    out.detail = "the filter failed twice; the plugin copies every later frame of this instance";
    remember(out.reason);
  } else if (anyMatch(e.messages, bypass)) {
    if (triggerFailed) {
      if (e.store == StoreState::Absent) {
        out.reason = PassReason::NoCalibration;
        out.detail = "no calibration file";
      } else if (e.store == StoreState::Rejected) {
        out.reason = PassReason::NoCalibration;
        out.detail = "the plugin rejected the calibration file: " + e.storeProblem;
      } else {
        out.reason = PassReason::NoSceneParameters;
        out.detail = lutLogged ? "the selected blocks are not in the calibration"
                               : "the calibration has no scene \"" + e.scene + "\"";
      }
      remember(out.reason);
    } else if (trace.failedFrame) {
      out.reason = PassReason::StickyBypass;
      out.detail = std::string("copy mode since frame ") + std::to_string(*trace.failedFrame) +
                   " (" + reasonKey(trace.failure) + ")";
    } else if (!e.debugLines) {
      out.reason = PassReason::Unknown;
      out.detail =
          "the plugin bypassed the frame; with its debug lines off the bypass switch "
          "and a failed selection look alike";
    } else {
      out.reason = PassReason::BypassSwitch;
      out.detail = "the bypass property covers this instance";
    }
  } else {
    const FilterRender* rendered = nullptr;
    for (const FilterRender& r : e.renders)
      if (r.result == 0) rendered = &r;
    if (rendered == nullptr) {
      out.reason = PassReason::Unknown;
      out.detail = "no render reached the filter and the plugin logged no bypass";
      return out;
    }
    out.filtered = true;
    out.reason = PassReason::None;
    out.script = rendered->script;
    out.shading = shadingOfScript(rendered->script);
    out.lutWeight = trace.lutWeight;
    out.heldSize = heldSizeOf(*rendered);
    if (!rendered->lutLoaded) out.detail = "the filter rendered without a LUT loaded";
  }
  return out;
}

}  // namespace lumo
