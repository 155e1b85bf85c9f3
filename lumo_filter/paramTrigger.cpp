// Selection of the frame's LUT and shading record: bracket searches over the
// lux and CCT bands, change detection on the four corner indices, and the
// bilinear blends.
#include "paramTrigger.h"

#include <cstring>
#include <iterator>
#include <utility>

#include "lumo_log.h"
#include "lut_blend.h"
#include "param_text.h"

namespace {

unsigned short lowerBound(const param_lux_t& r) { return r.start; }
unsigned short upperBound(const param_lux_t& r) { return r.end; }
unsigned short lowerBound(const param_cct_t& r) { return r.param_start; }
unsigned short upperBound(const param_cct_t& r) { return r.param_end; }

// Remembered indices are signed and fresh ones unsigned; each side widens by
// its own signedness, so a remembered index of 32768 or more never matches
// and such a cell is recomputed on every frame.
bool sameCorners(const int16_t remembered[4], const uint16_t fresh[4]) {
  for (int i = 0; i < 4; i++) {
    if (remembered[i] != fresh[i]) return false;
  }
  return true;
}

void rememberCorners(int16_t remembered[4], const uint16_t fresh[4]) {
  for (int i = 0; i < 4; i++) remembered[i] = static_cast<int16_t>(fresh[i]);
}

bool cornersInPool(const uint16_t corner[4], uint32_t blocks) {
  for (int i = 0; i < 4; i++) {
    if (corner[i] >= blocks) return false;
  }
  return true;
}

// Bilinear weights of the corners a, b, c, d. The double complements are
// kept as they are: they decide the last bit of some results.
struct CornerWeights {
  float wLuxPrev, wLuxElem, uPrev, uPrevPartner, uElem, uElemPartner;
  float w[4];
};

CornerWeights cornerWeights(const ParamTrigger::Cell& cell, uint16_t lux, uint16_t cct) {
  const float fLux = lux;
  const float fCct = cct;
  const float tLux =
      (fLux - float(cell.luxPrev.end)) / (float(cell.luxElem.start) - float(cell.luxPrev.end));
  const float tCctPrev = (fCct - float(cell.cctPrevPrev.param_end)) /
                         (float(cell.cctPrevElem.param_start) - float(cell.cctPrevPrev.param_end));
  const float tCctElem = (fCct - float(cell.cctElemPrev.param_end)) /
                         (float(cell.cctElemElem.param_start) - float(cell.cctElemPrev.param_end));
  CornerWeights cw;
  cw.wLuxPrev = 1.0f - tLux;
  cw.wLuxElem = 1.0f - cw.wLuxPrev;
  cw.uPrev = 1.0f - tCctPrev;
  cw.uPrevPartner = 1.0f - (1.0f - tCctPrev);
  cw.uElem = 1.0f - tCctElem;
  cw.uElemPartner = 1.0f - cw.uElem;
  cw.w[0] = cw.wLuxPrev * (1.0f - tCctPrev);
  cw.w[1] = cw.wLuxPrev * (1.0f - (1.0f - tCctPrev));
  cw.w[2] = cw.wLuxElem * cw.uElem;
  cw.w[3] = cw.wLuxElem * (1.0f - cw.uElem);
  return cw;
}

float shadingValue(const uint8_t* pool, uint16_t block, size_t j) {
  float value;
  std::memcpy(&value, pool + size_t{block} * SHADING_BYTES + j * sizeof(float), sizeof(value));
  return value;
}

}  // namespace

void ParamTrigger::initialize(param_trigger_init_info info) {
  initialize(std::move(info), ParamUtil::getInstance());
}

void ParamTrigger::initialize(param_trigger_init_info info, const ParamUtil& store) {
  m_debugMode = info.debug_mode ? 1 : 0;
  m_name = info.instance_name;
  m_store = &store;
}

bool ParamTrigger::trigger(param_trigger_t input, param_lut_t* lut, param_shading_float_t* shading,
                           bool& changed) {
  if (!triggerLut(input, lut, changed)) return false;
  // A shading selection fails only when its blocks are not in the store.
  return triggerShading(input, shading, changed);
}

template <typename T>
void ParamTrigger::findElementAndPrevious(const T* list, unsigned short count, unsigned short value,
                                          T& previous, T& element) {
  size_t i = 0;
  while (i < count && value > upperBound(list[i])) i++;
  if (i >= count) {
    LUMO_LOGE("[LumoFilter] not found lux or cct!!!!!!!!!!!");
    return;
  }
  element = list[i];
  previous = (i == 0 || value >= lowerBound(list[i])) ? list[i] : list[i - 1];
  LUMO_LOGD("[LumoFilter] left start=%d, end=%d", lowerBound(previous), upperBound(previous));
  LUMO_LOGD("[LumoFilter] right start=%d, end=%d", lowerBound(element), upperBound(element));
}

template void ParamTrigger::findElementAndPrevious<param_lux_t>(const param_lux_t*, unsigned short,
                                                                unsigned short, param_lux_t&,
                                                                param_lux_t&);
template void ParamTrigger::findElementAndPrevious<param_cct_t>(const param_cct_t*, unsigned short,
                                                                unsigned short, param_cct_t&,
                                                                param_cct_t&);

ParamTrigger::Cell ParamTrigger::findCell(const param_t* set, uint16_t lux, uint16_t cct) {
  Cell cell{};
  const param_lux_t* luxList = set != nullptr ? set->param_lux : nullptr;
  const uint16_t luxCount = set != nullptr ? set->param_lux_count : 0;
  findElementAndPrevious<param_lux_t>(luxList, luxCount, lux, cell.luxPrev, cell.luxElem);
  findElementAndPrevious<param_cct_t>(cell.luxPrev.param_cct, cell.luxPrev.param_cct_count, cct,
                                      cell.cctPrevPrev, cell.cctPrevElem);
  findElementAndPrevious<param_cct_t>(cell.luxElem.param_cct, cell.luxElem.param_cct_count, cct,
                                      cell.cctElemPrev, cell.cctElemElem);
  cell.corner[0] = cell.cctPrevPrev.param_cct_lut_index;
  cell.corner[1] = cell.cctPrevElem.param_cct_lut_index;
  cell.corner[2] = cell.cctElemPrev.param_cct_lut_index;
  cell.corner[3] = cell.cctElemElem.param_cct_lut_index;
  return cell;
}

const param_t* ParamTrigger::sceneSet(const std::string& scene) const {
  if (m_store == nullptr) return nullptr;
  const auto entry = m_store->aiSceneParams.find(scene);
  return entry == m_store->aiSceneParams.end() ? nullptr : &entry->second;
}

const param_t* ParamTrigger::zoomSet(float zoomRatio) const {
  // The set with the largest key not above the zoom ratio; the first below
  // every key, the last for NaN (no comparison with NaN holds).
  if (m_store == nullptr) return nullptr;
  const std::map<float, param_t>& sets = m_store->zoomRatioParams;
  auto entry = sets.begin();
  if (entry == sets.end()) return nullptr;
  for (auto next = std::next(entry); next != sets.end() && !(zoomRatio < next->first); ++next) {
    entry = next;
  }
  return &entry->second;
}

namespace {

void fillChoice(const ParamTrigger::Cell& cell, uint16_t lux, uint16_t cct,
                ParamTrigger::Choice& choice) {
  const CornerWeights cw = cornerWeights(cell, lux, cct);
  for (int i = 0; i < 4; i++) {
    choice.corner[i] = cell.corner[i];
    choice.weight[i] = cw.w[i];
  }
}

}  // namespace

bool ParamTrigger::chooseLut(const param_trigger_t& input, Choice& choice) const {
  const param_t* set = sceneSet(input.aiscene);
  if (set == nullptr) return false;
  fillChoice(findCell(set, input.lux, input.cct), input.lux, input.cct, choice);
  return true;
}

void ParamTrigger::chooseShading(const param_trigger_t& input, Choice& choice) const {
  fillChoice(findCell(zoomSet(input.zoom_ratio), input.lux, input.cct), input.lux, input.cct,
             choice);
}

ParamTrigger::Outcome ParamTrigger::select(const Output& out, const param_t* set,
                                           const param_trigger_t& input, Cell& cell,
                                           bool& changed) {
  cell = findCell(set, input.lux, input.cct);
  const uint16_t* k = cell.corner;
  LUMO_LOGD_IN(out.function, "[LumoFilter][%s] %s index %d, %d, %d, %d", m_name.c_str(), out.name,
               k[0], k[1], k[2], k[3]);
  if (!cornersInPool(k, out.blocks)) {
    LUMO_LOGE_IN(out.function,
                 "[LumoFilter][%s] %s index %d, %d, %d, %d beyond the %u %s blocks of the store, "
                 "no parameters for this frame",
                 m_name.c_str(), out.name, k[0], k[1], k[2], k[3], out.blocks, out.pool);
    return Outcome::OutsidePool;
  }
  const bool same = sameCorners(out.remembered, k);
  rememberCorners(out.remembered, k);
  if (same) {
    LUMO_LOGD_IN(out.function, "[LumoFilter][%s] is_trigger_change = %d, no need to trigger",
                 m_name.c_str(), 0);
    return Outcome::Unchanged;
  }
  changed = true;
  return Outcome::Changed;
}

bool ParamTrigger::triggerLut(param_trigger_t input, param_lut_t* lut, bool& changed) {
  const param_t* set = sceneSet(input.aiscene);
  if (set == nullptr) return false;
  Cell cell;
  const Output out{__func__, "lut", "LUT", m_store->lutCount, m_lutIndex};
  const Outcome outcome = select(out, set, input, cell, changed);
  if (outcome == Outcome::OutsidePool) return false;
  if (outcome == Outcome::Changed) {
    const CornerWeights cw = cornerWeights(cell, input.lux, input.cct);
    LUMO_LOGD("[LumoFilter][%s] %f, %f, %f, %f, %f, %f", m_name.c_str(), cw.wLuxPrev, cw.wLuxElem,
              cw.uPrev, cw.uPrevPartner, cw.uElem, cw.uElemPartner);
    LUMO_LOGD("[LumoFilter][%s] %f, %f, %f, %f", m_name.c_str(), cw.w[0], cw.w[1], cw.w[2],
              cw.w[3]);
    lumo::LutBlendSources src;
    for (int i = 0; i < 4; i++) {
      src.lut[i] = m_store->lutData + size_t{cell.corner[i]} * LUT_BYTES;
      src.weight[i] = cw.w[i];
    }
    const uint16_t* k = cell.corner;
    lumo::blendLut(lumo::lutBlendCase(k[0], k[1], k[2], k[3]), src, lut->data, LUT_BYTES);
  }
  if (m_debugMode == 1) {
    LUMO_LOGD("[LumoFilter][%s] param_lut = %s", m_name.c_str(),
              lumo::lutHeadText(lut->data).c_str());
  }
  return true;
}

bool ParamTrigger::triggerShading(param_trigger_t input, param_shading_float_t* shading,
                                  bool& changed) {
  Cell cell;
  const Output out{__func__, "shading", "shading", m_store != nullptr ? m_store->shadingCount : 0,
                   m_shadingIndex};
  const Outcome outcome = select(out, zoomSet(input.zoom_ratio), input, cell, changed);
  if (outcome == Outcome::OutsidePool) return false;
  if (outcome == Outcome::Changed) {
    const CornerWeights cw = cornerWeights(cell, input.lux, input.cct);
    const float* w = cw.w;
    LUMO_LOGD("[LumoFilter][%s] %f, %f, %f, %f", m_name.c_str(), w[0], w[1], w[2], w[3]);
    const uint8_t* pool = m_store->shadingData;
    const uint16_t* k = cell.corner;
    for (size_t j = 0; j < SHADING_FLOATS; j++) {
      shading->data[j] =
          ((w[0] * shadingValue(pool, k[0], j) + w[1] * shadingValue(pool, k[1], j)) +
           w[2] * shadingValue(pool, k[2], j)) +
          w[3] * shadingValue(pool, k[3], j);
    }
  }
  if (m_debugMode == 1) {
    LUMO_LOGD("[LumoFilter][%s] shading_table = %s", m_name.c_str(),
              lumo::shadingText(reinterpret_cast<const uint8_t*>(shading->data)).c_str());
  }
  return true;
}
