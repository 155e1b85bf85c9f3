// Loads the calibration file into the store: header, the two band trees and
// the two data pools, with every read checked against the file size.
#include "paramUtil.h"

#include <lumo/contract.h>
#include <platform/device_path.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "lumo_log.h"
#include "param_text.h"

using calib_layout::ByteCursor;

namespace {

template <typename T>
T* newArray(std::vector<std::unique_ptr<T[]>>& owners, size_t count) {
  owners.push_back(std::make_unique<T[]>(count));
  return owners.back().get();
}

}  // namespace

ParamUtil& ParamUtil::getInstance() {
  static ParamUtil instance;
  return instance;
}

ParamUtil::ParamUtil() : ParamUtil(vyplatform::devicePath(lumo::kParamFilePath)) {}

ParamUtil::ParamUtil(const std::string& devicePath) : m_path(devicePath) {
  LUMO_LOGD("[LumoFilter] ParamUtil");
  initialize();
}

ParamUtil::~ParamUtil() = default;

bool ParamUtil::need(const ByteCursor& at, size_t n, const char* what) {
  if (m_loadFailed) return false;
  if (at.has(n)) return true;
  char reason[192];
  std::snprintf(reason, sizeof(reason), "%s at byte %zu needs %zu bytes, the file has %zu", what,
                at.pos(), n, at.size());
  m_loadError = reason;
  m_loadFailed = true;
  return false;
}

bool ParamUtil::terminated(const ByteCursor& at, size_t n, const char* what) {
  if (m_loadFailed) return false;
  if (at.terminated(n)) return true;
  char reason[192];
  std::snprintf(reason, sizeof(reason), "%s at byte %zu has no NUL in its %zu bytes", what,
                at.pos(), n);
  m_loadError = reason;
  m_loadFailed = true;
  return false;
}

void ParamUtil::initialize() {
  LUMO_LOGD("[LumoFilter]");
  const std::filesystem::path path(m_path);
  if (!std::filesystem::exists(std::filesystem::status(path))) return;
  std::ifstream file(path, std::ios::in | std::ios::binary);
  if (!file.is_open()) return;

  const size_t size = static_cast<size_t>(std::filesystem::file_size(path));
  std::vector<uint8_t> buffer(size);
  file.read(reinterpret_cast<char*>(buffer.data()), static_cast<std::streamsize>(size));
  LUMO_LOGD("[LumoFilter] size=%d", static_cast<int>(std::filesystem::file_size(path)));

  const ByteCursor bytes(buffer.data(), buffer.size());
  m_loadFailed = false;
  m_loadError.clear();
  if (parseHeader(bytes)) {
    LUMO_LOGD("[LumoFilter] aiScenesCount = %d", aiScenesCount);
    for (uint16_t i = 0; i < aiScenesCount; i++) {
      LUMO_LOGD("[LumoFilter] aiScenesSize = %d", aiScenesSize[i]);
    }
    LUMO_LOGD("[LumoFilter] shadingZoomRatioCount = %d", shadingZoomRatioCount);
    for (uint16_t i = 0; i < shadingZoomRatioCount; i++) {
      LUMO_LOGD("[LumoFilter] shadingZoomRatioSize = %d", shadingZoomRatioSize[i]);
    }
    LUMO_LOGD("[LumoFilter] paramDataOffset = %d", paramDataOffset);
    LUMO_LOGD("[LumoFilter] lutDataOffset = %d", lutDataOffset);
    LUMO_LOGD("[LumoFilter] lut3d_size = %d", lut3d_size);
    LUMO_LOGD("[LumoFilter] trigger_control = %s", trigger_control);
    LUMO_LOGD("[LumoFilter] param_type = %s", param_type);
    LUMO_LOGD("[LumoFilter] param_range = %s", param_range);
    readAiScenes(bytes.at(paramDataOffset));
    readPools(bytes);
  }
  file.close();
  aiScenesSize = nullptr;
  shadingZoomRatioSize = nullptr;
  if (m_loadFailed) {
    LUMO_LOGE("[LumoFilter] parameter file %s rejected: %s", m_path.c_str(), m_loadError.c_str());
    clear();
  }
}

bool ParamUtil::parseHeader(ByteCursor in) {
  using namespace calib_layout;
  if (!need(in, kU16Bytes, "aiScenesCount")) return false;
  in.u16(aiScenesCount);
  if (!need(in, headerHeadBytes(aiScenesCount) - in.pos(), "aiScenesSize and offsets")) {
    return false;
  }
  // Copies keep the size arrays addressable as uint16_t for the length of
  // the load (in the file they may sit at odd offsets).
  m_aiScenesSizeCopy.assign(aiScenesCount, 0);
  for (uint16_t& size : m_aiScenesSizeCopy) in.u16(size);
  aiScenesSize = m_aiScenesSizeCopy.data();
  in.u16(paramDataOffset);
  in.u16(lutDataOffset);
  in.u16(lut3d_size);
  in.u16(shadingZoomRatioCount);
  if (!need(in, headerBytes(aiScenesCount, shadingZoomRatioCount) - in.pos(),
            "shadingZoomRatioSize and text fields")) {
    return false;
  }
  m_zoomSizeCopy.assign(shadingZoomRatioCount, 0);
  for (uint16_t& size : m_zoomSizeCopy) in.u16(size);
  shadingZoomRatioSize = m_zoomSizeCopy.data();
  char* const texts[kTextFields] = {trigger_control, param_type, param_range};
  const char* const names[kTextFields] = {"trigger_control", "param_type", "param_range"};
  for (size_t t = 0; t < kTextFields; t++) {
    if (!terminated(in.at(in.pos() + t * kTextBytes), kTextBytes, names[t])) return false;
  }
  for (char* text : texts) in.bytes(text, kTextBytes);
  return true;
}

void ParamUtil::readPools(const ByteCursor& file) {
  if (m_loadFailed) return;
  const size_t lutBytes = size_t{lutCount} * LUT_BYTES;
  const size_t shadingBytes = size_t{shadingCount} * SHADING_BYTES;
  ByteCursor luts = file.at(lutDataOffset);
  ByteCursor shadings = file.at(size_t{lutDataOffset} + lutBytes);
  if (!need(luts, lutBytes, "LUT pool") || !need(shadings, shadingBytes, "shading pool")) return;
  m_lutPool = std::make_unique<uint8_t[]>(lutBytes);
  luts.bytes(m_lutPool.get(), lutBytes);
  m_shadingPool = std::make_unique<uint8_t[]>(shadingBytes);
  shadings.bytes(m_shadingPool.get(), shadingBytes);
  m_lutView = m_lutPool.get();
  m_shadingView = m_shadingPool.get();
}

void ParamUtil::clear() {
  m_aiSceneParams.clear();
  m_zoomRatioParams.clear();
  m_luxArrays.clear();
  m_cctArrays.clear();
  m_lutPool.reset();
  m_shadingPool.reset();
  m_lutView = nullptr;
  m_shadingView = nullptr;
  lutCount = 0;
  shadingCount = 0;
  aiScenesCount = 0;
  shadingZoomRatioCount = 0;
  paramDataOffset = 0;
  lutDataOffset = 0;
  lut3d_size = 0;
  std::memset(trigger_control, 0, sizeof(trigger_control));
  std::memset(param_type, 0, sizeof(param_type));
  std::memset(param_range, 0, sizeof(param_range));
}

void ParamUtil::readAiScenes(ByteCursor in) {
  using namespace calib_layout;
  // Each block starts where the previous one's declared size ends, which
  // may be past the end of the file: that matters only if it is read.
  for (uint16_t i = 0; i < aiScenesCount && !m_loadFailed; i++) {
    if (!need(in, kSceneNameBytes + kLuxCountBytes, "scene block head")) return;
    if (!terminated(in, kSceneNameBytes, "scene name")) return;
    ByteCursor block = in;
    char name[kSceneNameBytes];
    block.bytes(name, kSceneNameBytes);
    LUMO_LOGD(" [LumoFilter] aiscene = %s", name);
    param_t param{};
    readParam(block, param, PARAM_TYPE_LUT);
    // A later block with a name already present loses.
    if (!m_loadFailed) m_aiSceneParams.emplace(std::string(name), param);
    in.advance(aiScenesSize[i]);
  }
  for (uint16_t j = 0; j < shadingZoomRatioCount && !m_loadFailed; j++) {
    if (!need(in, kF32Bytes + kLuxCountBytes, "zoom-ratio block head")) return;
    ByteCursor block = in;
    float ratio = 0.0f;
    block.f32(ratio);
    LUMO_LOGD(" [LumoFilter] zoom_ratio = %f", static_cast<double>(ratio));
    param_t param{};
    readParam(block, param, PARAM_TYPE_SHADING);
    if (!m_loadFailed) m_zoomRatioParams.emplace(ratio, param);
    in.advance(shadingZoomRatioSize[j]);
  }
}

void ParamUtil::readParam(ByteCursor& in, param_t& out, param_type_t type) {
  using namespace calib_layout;
  if (!need(in, kLuxCountBytes, "lux count")) return;
  uint16_t count = 0;
  in.u16(count);
  // Checked before allocating: a corrupt count must not cost a large array.
  if (!need(in, size_t{count} * kLuxHeadBytes, "lux records")) return;
  param_lux_t* lux = newArray(m_luxArrays, count);
  out.param_lux = lux;
  out.param_lux_count = count;
  for (uint16_t k = 0; k < count && !m_loadFailed; k++) readParamLuxAndCct(in, lux[k], type);
}

void ParamUtil::readParamLuxAndCct(ByteCursor& in, param_lux_t& out, param_type_t type) {
  using namespace calib_layout;
  if (!need(in, kLuxHeadBytes, "lux record")) return;
  uint16_t start = 0, end = 0, cctCount = 0;
  in.u16(start);
  in.u16(end);
  in.u16(cctCount);
  if (!need(in, size_t{cctCount} * kCctBytes, "CCT records")) return;
  param_cct_t* cct = newArray(m_cctArrays, cctCount);
  for (uint16_t c = 0; c < cctCount; c++) {
    in.u16(cct[c].param_start);
    in.u16(cct[c].param_end);
    in.u16(cct[c].param_cct_lut_index);
    if (type == PARAM_TYPE_SHADING) {
      shadingCount = uint32_t{cct[c].param_cct_lut_index} + 1;
    } else if (type == PARAM_TYPE_LUT) {
      lutCount = uint32_t{cct[c].param_cct_lut_index} + 1;
    }
  }
  out.start = start;
  out.end = end;
  out.param_cct = cct;
  out.param_cct_count = cctCount;
}

std::string ParamUtil::lutBlockText(uint16_t index) const {
  if (index >= lutCount) return "(block beyond the LUT pool)";
  return lumo::lutHeadText(lutData + size_t{index} * LUT_BYTES);
}

std::string ParamUtil::shadingBlockText(uint16_t index) const {
  if (index >= shadingCount) return "(block beyond the shading pool)";
  return lumo::shadingText(shadingData + size_t{index} * SHADING_BYTES);
}

// One block of the dump: its title, its lux bands and their CCT bands, each
// CCT band with the head of the pool block it names. A macro, so that every
// line of the dump names printParam as its function. `titleFmt`, `keyFmt`
// and `cctFmt` take the block's key; `blockText` gives the text of a pool block.
#define LUMO_PRINT_BLOCK(param, key, titleFmt, keyFmt, cctFmt, blockFmt, blockText)           \
  do {                                                                                        \
    LUMO_LOGD(" [LumoFilter] ============================================================="); \
    LUMO_LOGD(titleFmt, key);                                                                 \
    LUMO_LOGD(" [LumoFilter] ============================================================="); \
    LUMO_LOGD(keyFmt, key);                                                                   \
    LUMO_LOGD(" [LumoFilter]   param_lux_count = %d ]", (param).param_lux_count);             \
    for (uint16_t i = 0; i < (param).param_lux_count; i++) {                                  \
      const param_lux_t& lux = (param).param_lux[i];                                          \
      LUMO_LOGD(" [LumoFilter] =======================LUX================================="); \
      LUMO_LOGD(" [LumoFilter] [ start = %d", lux.start);                                     \
      LUMO_LOGD(" [LumoFilter]   end = %d", lux.end);                                         \
      LUMO_LOGD(" [LumoFilter]   param_cct_count = %d ]", lux.param_cct_count);               \
      for (uint16_t c = 0; c < lux.param_cct_count; c++) {                                    \
        const param_cct_t& cct = lux.param_cct[c];                                            \
        LUMO_LOGD(cctFmt, key);                                                               \
        LUMO_LOGD(" [LumoFilter] [ param_start = %d", cct.param_start);                       \
        LUMO_LOGD(" [LumoFilter]   param_end = %d", cct.param_end);                           \
        LUMO_LOGD(" [LumoFilter]   param_cct_lut_index = %d ]", cct.param_cct_lut_index);     \
        LUMO_LOGD(blockFmt, blockText(cct.param_cct_lut_index).c_str());                      \
      }                                                                                       \
    }                                                                                         \
  } while (0)

void ParamUtil::printParam() const {
  for (const auto& scene : aiSceneParams) {
    const char* name = scene.first.c_str();
    LUMO_PRINT_BLOCK(scene.second, name,
                     " [LumoFilter]                   SCENE  %s                      ",
                     " [LumoFilter] [ aiscene = %s ",
                     " [LumoFilter] ------SCENE %s--------CCT-------------------------",
                     " [LumoFilter] param_lut = %s", lutBlockText);
  }
  for (const auto& zoom : zoomRatioParams) {
    const double ratio = zoom.first;
    LUMO_PRINT_BLOCK(zoom.second, ratio,
                     " [LumoFilter]                     zoomratio  %f                            ",
                     " [LumoFilter] [ zoomratio = %f ",
                     " [LumoFilter] ------zoomratio %f--------CCT-------------------------",
                     " [LumoFilter] param_shading = %s", shadingBlockText);
  }
}
