// Sampling the plugin's selection.
#include "coverage.h"

#include <paramTrigger.h>
#include <paramUtil.h>
#include <vyalgo2/VyLog.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace lumo::report {

namespace {

// Holds the plugin's log lines back for the lifetime of the guard.
class QuietLog {
public:
  QuietLog() : m_level(gVyCamLogLevel), m_offline(gVyCamOfflineLogLevel) {
    gVyCamLogLevel = std::numeric_limits<int32_t>::max();
    gVyCamOfflineLogLevel = std::numeric_limits<int32_t>::max();
  }
  ~QuietLog() {
    gVyCamLogLevel = m_level;
    gVyCamOfflineLogLevel = m_offline;
  }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

private:
  int32_t m_level, m_offline;
};

CoverageSample sampleOf(const ParamTrigger::Choice& c, uint32_t blocks) {
  CoverageSample s;
  s.found = true;
  for (int i = 0; i < 4; ++i) {
    s.corner[i] = c.corner[i];
    s.weight[i] = c.weight[i];
    // The plugin refuses a cell naming any block it does not hold, weighted or not.
    if (c.corner[i] >= blocks) s.inPool = false;
  }
  return s;
}

param_trigger_t triggerInput(uint16_t lux, uint16_t cct, float zoom, std::string scene) {
  param_trigger_t input;
  input.lux = lux;
  input.cct = cct;
  input.zoom_ratio = zoom;
  input.aiscene = std::move(scene);
  return input;
}

}  // namespace

struct SelectionProbe::State {
  explicit State(const std::string& path) : store(path) {
    param_trigger_init_info info;
    info.instance_name = "Report";
    trigger.initialize(info, store);
  }
  ParamUtil store;
  ParamTrigger trigger;
  std::vector<float> zoomKeys;
};

SelectionProbe::SelectionProbe(const std::string& calibrationPath) {
  QuietLog quiet;
  m_state = std::make_unique<State>(calibrationPath);
  for (const auto& entry : m_state->store.zoomRatioParams) m_state->zoomKeys.push_back(entry.first);
}

SelectionProbe::~SelectionProbe() = default;

bool SelectionProbe::loaded() const {
  return !m_state->store.aiSceneParams.empty() || !m_state->store.zoomRatioParams.empty();
}
uint32_t SelectionProbe::lutCount() const { return m_state->store.lutCount; }
uint32_t SelectionProbe::shadingCount() const { return m_state->store.shadingCount; }

CoverageSample SelectionProbe::lut(const std::string& scene, uint16_t lux, uint16_t cct) const {
  QuietLog quiet;
  ParamTrigger::Choice choice{};
  if (!m_state->trigger.chooseLut(triggerInput(lux, cct, 0.0f, scene), choice)) return {};
  return sampleOf(choice, m_state->store.lutCount);
}

CoverageSample SelectionProbe::shading(float zoom, uint16_t lux, uint16_t cct) const {
  QuietLog quiet;
  ParamTrigger::Choice choice{};
  m_state->trigger.chooseShading(triggerInput(lux, cct, zoom, {}), choice);
  CoverageSample s = sampleOf(choice, m_state->store.shadingCount);
  s.found = !m_state->zoomKeys.empty();
  return s;
}

namespace {

template <typename Probe>
CoverageMap mapOf(std::string key, const std::vector<double>& lux, const std::vector<double>& cct,
                  Probe probe) {
  CoverageMap m;
  m.key = std::move(key);
  m.lux = lux;
  m.cct = cct;
  m.samples.reserve(lux.size() * cct.size());
  for (const double c : cct)
    for (const double l : lux) m.samples.push_back(probe(uint16_t(l), uint16_t(c)));
  return m;
}

}  // namespace

CoverageMap SelectionProbe::sceneMap(const std::string& scene, const std::vector<double>& lux,
                                     const std::vector<double>& cct) const {
  return mapOf(scene, lux, cct, [&](uint16_t l, uint16_t c) { return this->lut(scene, l, c); });
}

CoverageMap SelectionProbe::zoomMap(float zoom, const std::vector<double>& lux,
                                    const std::vector<double>& cct) const {
  char key[32];
  std::snprintf(key, sizeof(key), "%g", double(zoom));
  return mapOf(key, lux, cct, [&](uint16_t l, uint16_t c) { return shading(zoom, l, c); });
}

bool SelectionProbe::blendedLut(const std::string& scene, uint16_t lux, uint16_t cct,
                                std::vector<uint8_t>& lut) const {
  QuietLog quiet;
  // A fresh trigger remembers nothing, so it always blends.
  ParamTrigger fresh;
  param_trigger_init_info info;
  info.instance_name = "Report";
  fresh.initialize(info, m_state->store);
  param_lut_t blended{};
  bool changed = false;
  if (!fresh.triggerLut(triggerInput(lux, cct, 0.0f, scene), &blended, changed)) return false;
  lut.assign(blended.data, blended.data + LUT_BYTES);
  return true;
}

std::vector<double> luxAxis(double maxLux, size_t count) {
  std::vector<double> out;
  const double top = std::log10(std::clamp(maxLux, 2.0, 65535.0));
  for (size_t i = 0; i < count; ++i) {
    const double v =
        std::round(std::pow(10.0, top * double(i) / double(std::max<size_t>(count - 1, 1))));
    if (out.empty() || v > out.back()) out.push_back(v);
  }
  return out;
}

std::vector<double> cctAxis(double lo, double hi, size_t count) {
  std::vector<double> out;
  for (size_t i = 0; i < count; ++i) {
    const double v =
        std::round(lo + (hi - lo) * double(i) / double(std::max<size_t>(count - 1, 1)));
    if (out.empty() || v > out.back()) out.push_back(v);
  }
  return out;
}

}  // namespace lumo::report
