// Loads the calibration file into the store: header, the two band trees and
// the two data pools, with every read checked against the file size.
#include "paramUtil.h"

#include <platform/device_path.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "lumo_log.h"
#include "param_text.h"

const char* const kLumoParamFilePath = "/odm/etc/camera/lumo_filter_param.bin";

namespace {

// Fixed layout of the header (see the record comments in param_records.h).
constexpr size_t kTextBytes = 256;
constexpr size_t kSceneNameBytes = 64;
constexpr size_t kLuxHeadBytes = 6;
constexpr size_t kCctBytes = sizeof(param_cct_t);

uint16_t loadU16(const char* p) {
  uint16_t v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

float loadF32(const char* p) {
  float v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}

// Frees the band arrays of one tree entry.
void releaseBands(param_t& param) {
  if (param.param_lux != nullptr) {
    for (uint16_t i = 0; i < param.param_lux_count; i++) {
      delete[] param.param_lux[i].param_cct;
    }
    delete[] param.param_lux;
  }
  param.param_lux = nullptr;
  param.param_lux_count = 0;
}

template <typename Map>
void releaseTree(Map& tree) {
  for (auto& entry : tree) releaseBands(entry.second);
  tree.clear();
}

}  // namespace

ParamUtil& ParamUtil::getInstance() {
  static ParamUtil instance;
  return instance;
}

ParamUtil::ParamUtil() : ParamUtil(vyplatform::devicePath(kLumoParamFilePath)) {}

ParamUtil::ParamUtil(const std::string& devicePath) : m_path(devicePath) {
  LUMO_LOGD("[LumoFilter] ParamUtil");
  initialize();
}

ParamUtil::~ParamUtil() {
  releaseTree(aiSceneParams);
  releaseTree(zoomRatioParams);
  delete[] lutData;
  lutData = nullptr;
  delete[] shadingData;
  shadingData = nullptr;
}

bool ParamUtil::readable(const char* p, size_t n, const char* what) {
  if (m_loadBegin == nullptr || m_loadFailed) return !m_loadFailed;
  return readableAt(static_cast<size_t>(p - m_loadBegin), n, what);
}

bool ParamUtil::readableAt(size_t offset, size_t n, const char* what) {
  // Offsets, not pointers: a block may be declared to begin past the end.
  const size_t size = static_cast<size_t>(m_loadEnd - m_loadBegin);
  if (n == 0 || (offset <= size && n <= size - offset)) return true;
  return reject(what, offset, n);
}

bool ParamUtil::reject(const char* what, size_t offset, size_t n) {
  if (!m_loadFailed) {
    char reason[192];
    std::snprintf(reason, sizeof(reason), "%s at byte %zu needs %zu bytes, the file has %zu", what,
                  offset, n, static_cast<size_t>(m_loadEnd - m_loadBegin));
    m_loadError = reason;
    m_loadFailed = true;
  }
  return false;
}

bool ParamUtil::terminated(const char* p, size_t n, const char* what) {
  if (m_loadFailed) return false;
  if (std::memchr(p, '\0', n) != nullptr) return true;
  char reason[192];
  std::snprintf(reason, sizeof(reason), "%s at byte %zu has no NUL in its %zu bytes", what,
                static_cast<size_t>(p - m_loadBegin), n);
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
  std::unique_ptr<char[]> buffer(new char[size]());
  file.read(buffer.get(), static_cast<std::streamsize>(size));
  LUMO_LOGD("[LumoFilter] size=%d", static_cast<int>(std::filesystem::file_size(path)));

  m_loadBegin = buffer.get();
  m_loadEnd = buffer.get() + size;
  m_loadFailed = false;
  m_loadError.clear();
  if (parseHeader()) {
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
    readAiScenes(buffer.get() + paramDataOffset);
    readPools();
  }
  file.close();
  aiScenesSize = nullptr;
  shadingZoomRatioSize = nullptr;
  m_loadBegin = nullptr;
  m_loadEnd = nullptr;
  if (m_loadFailed) {
    LUMO_LOGE("[LumoFilter] parameter file %s rejected: %s", m_path.c_str(), m_loadError.c_str());
    clear();
  }
}

bool ParamUtil::parseHeader() {
  const char* base = m_loadBegin;
  if (!readableAt(0, 2, "aiScenesCount")) return false;
  aiScenesCount = loadU16(base);
  const size_t afterScenes = 2 + 2 * size_t{aiScenesCount};
  if (!readableAt(2, afterScenes + 8 - 2, "aiScenesSize and offsets")) return false;
  // The size arrays stay unaligned in the buffer; copies keep them addressable
  // as uint16_t for the length of the load.
  m_aiScenesSizeCopy.assign(aiScenesCount, 0);
  if (aiScenesCount > 0) {
    std::memcpy(m_aiScenesSizeCopy.data(), base + 2, 2 * size_t{aiScenesCount});
  }
  aiScenesSize = m_aiScenesSizeCopy.data();
  paramDataOffset = loadU16(base + afterScenes);
  lutDataOffset = loadU16(base + afterScenes + 2);
  lut3d_size = loadU16(base + afterScenes + 4);
  shadingZoomRatioCount = loadU16(base + afterScenes + 6);
  const size_t zoomSizes = afterScenes + 8;
  const size_t texts = zoomSizes + 2 * size_t{shadingZoomRatioCount};
  if (!readableAt(zoomSizes, texts + 3 * kTextBytes - zoomSizes,
                  "shadingZoomRatioSize and text fields")) {
    return false;
  }
  m_zoomSizeCopy.assign(shadingZoomRatioCount, 0);
  if (shadingZoomRatioCount > 0) {
    std::memcpy(m_zoomSizeCopy.data(), base + zoomSizes, 2 * size_t{shadingZoomRatioCount});
  }
  shadingZoomRatioSize = m_zoomSizeCopy.data();
  if (!terminated(base + texts, kTextBytes, "trigger_control") ||
      !terminated(base + texts + kTextBytes, kTextBytes, "param_type") ||
      !terminated(base + texts + 2 * kTextBytes, kTextBytes, "param_range")) {
    return false;
  }
  std::memcpy(trigger_control, base + texts, kTextBytes);
  std::memcpy(param_type, base + texts + kTextBytes, kTextBytes);
  std::memcpy(param_range, base + texts + 2 * kTextBytes, kTextBytes);

  return true;
}

void ParamUtil::readPools() {
  if (m_loadFailed) return;
  const size_t lutBytes = size_t{lutCount} * LUT_BYTES;
  const size_t shadingBytes = size_t{shadingCount} * SHADING_BYTES;
  if (!readableAt(lutDataOffset, lutBytes, "LUT pool") ||
      !readableAt(size_t{lutDataOffset} + lutBytes, shadingBytes, "shading pool")) {
    return;
  }
  lutData = new uint8_t[lutBytes];
  if (lutBytes > 0) std::memcpy(lutData, m_loadBegin + lutDataOffset, lutBytes);
  shadingData = new uint8_t[shadingBytes];
  if (shadingBytes > 0) {
    std::memcpy(shadingData, m_loadBegin + lutDataOffset + lutBytes, shadingBytes);
  }
}

void ParamUtil::clear() {
  releaseTree(aiSceneParams);
  releaseTree(zoomRatioParams);
  delete[] lutData;
  lutData = nullptr;
  delete[] shadingData;
  shadingData = nullptr;
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

void ParamUtil::readAiScenes(char* p) {
  // The block sizes live in the header of the file being loaded: outside a
  // load there is nothing to walk.
  if (m_loadBegin == nullptr) return;
  // Blocks are addressed by offset from the load buffer: a declared size may
  // send the next block past the end, which only matters if it is read.
  size_t offset = static_cast<size_t>(p - m_loadBegin);
  for (uint16_t i = 0; i < aiScenesCount && !m_loadFailed; i++) {
    if (!readableAt(offset, kSceneNameBytes + 2, "scene block head")) return;
    const char* block = m_loadBegin + offset;
    if (!terminated(block, kSceneNameBytes, "scene name")) return;
    char name[kSceneNameBytes];
    std::memcpy(name, block, kSceneNameBytes);
    LUMO_LOGD(" [LumoFilter] aiscene = %s", name);
    param_t param{};
    readParam(const_cast<char*>(block) + kSceneNameBytes, param, PARAM_TYPE_LUT);
    if (m_loadFailed || !aiSceneParams.emplace(std::string(name), param).second) {
      // A later block with a name already present loses; its arrays go.
      releaseBands(param);
    }
    offset += aiScenesSize[i];
  }
  for (uint16_t j = 0; j < shadingZoomRatioCount && !m_loadFailed; j++) {
    if (!readableAt(offset, sizeof(float) + 2, "zoom-ratio block head")) return;
    const char* block = m_loadBegin + offset;
    const float ratio = loadF32(block);
    LUMO_LOGD(" [LumoFilter] zoom_ratio = %f", ratio);
    param_t param{};
    readParam(const_cast<char*>(block) + sizeof(float), param, PARAM_TYPE_SHADING);
    if (m_loadFailed || !zoomRatioParams.emplace(ratio, param).second) releaseBands(param);
    offset += shadingZoomRatioSize[j];
  }
}

void ParamUtil::readParam(char* p, param_t& out, param_type_t type) {
  if (!readable(p, 2, "lux count")) return;
  const uint16_t count = loadU16(p);
  // Checked before allocating: a corrupt count must not cost a large array.
  if (!readable(p + 2, size_t{count} * kLuxHeadBytes, "lux records")) return;
  out.param_lux_count = count;
  out.param_lux = new param_lux_t[count]();
  unsigned pos = 2;
  for (uint16_t k = 0; k < count && !m_loadFailed; k++) {
    readParamLuxAndCct(p + pos, out, k, pos, type);
  }
}

void ParamUtil::readParamLuxAndCct(char* p, param_t& out, unsigned short k, unsigned& pos,
                                   param_type_t type) {
  if (k >= out.param_lux_count) return;
  if (!readable(p, kLuxHeadBytes, "lux record")) return;
  param_lux_t& lux = out.param_lux[k];
  const uint16_t cctCount = loadU16(p + 4);
  if (!readable(p + kLuxHeadBytes, size_t{cctCount} * kCctBytes, "CCT records")) return;
  lux.start = loadU16(p);
  lux.end = loadU16(p + 2);
  lux.param_cct_count = cctCount;
  lux.param_cct = new param_cct_t[cctCount];
  if (cctCount == 0) {
    pos += kLuxHeadBytes;
    return;
  }
  std::memcpy(lux.param_cct, p + kLuxHeadBytes, size_t{cctCount} * kCctBytes);
  for (uint16_t c = 0; c < cctCount; c++) {
    if (type == PARAM_TYPE_SHADING) {
      shadingCount = uint32_t{lux.param_cct[c].param_cct_lut_index} + 1;
    } else if (type == PARAM_TYPE_LUT) {
      lutCount = uint32_t{lux.param_cct[c].param_cct_lut_index} + 1;
    }
  }
  pos += kCctBytes * cctCount + kLuxHeadBytes;
}

std::string ParamUtil::lutBlockText(uint16_t index) const {
  if (index >= lutCount) return "(block beyond the LUT pool)";
  return lumo::lutHeadText(lutData + size_t{index} * LUT_BYTES);
}

std::string ParamUtil::shadingBlockText(uint16_t index) const {
  if (index >= shadingCount) return "(block beyond the shading pool)";
  return lumo::shadingText(shadingData + size_t{index} * SHADING_BYTES);
}

// Lines shared by both sections. Macros, so that every line of the dump names
// printParam as its function.
#define LUMO_PRINT_LUX_HEAD(lux)                                                            \
  do {                                                                                      \
    LUMO_LOGD(" [LumoFilter] =======================LUX================================="); \
    LUMO_LOGD(" [LumoFilter] [ start = %d", (lux).start);                                   \
    LUMO_LOGD(" [LumoFilter]   end = %d", (lux).end);                                       \
    LUMO_LOGD(" [LumoFilter]   param_cct_count = %d ]", (lux).param_cct_count);             \
  } while (0)

#define LUMO_PRINT_CCT(cct)                                                             \
  do {                                                                                  \
    LUMO_LOGD(" [LumoFilter] [ param_start = %d", (cct).param_start);                   \
    LUMO_LOGD(" [LumoFilter]   param_end = %d", (cct).param_end);                       \
    LUMO_LOGD(" [LumoFilter]   param_cct_lut_index = %d ]", (cct).param_cct_lut_index); \
  } while (0)

void ParamUtil::printParam() {
  for (const auto& scene : aiSceneParams) {
    const char* name = scene.first.c_str();
    const param_t& param = scene.second;
    LUMO_LOGD(" [LumoFilter] =============================================================");
    LUMO_LOGD(" [LumoFilter]                   SCENE  %s                      ", name);
    LUMO_LOGD(" [LumoFilter] =============================================================");
    LUMO_LOGD(" [LumoFilter] [ aiscene = %s ", name);
    LUMO_LOGD(" [LumoFilter]   param_lux_count = %d ]", param.param_lux_count);
    for (uint16_t i = 0; i < param.param_lux_count; i++) {
      const param_lux_t& lux = param.param_lux[i];
      LUMO_PRINT_LUX_HEAD(lux);
      for (uint16_t c = 0; c < lux.param_cct_count; c++) {
        const param_cct_t& cct = lux.param_cct[c];
        LUMO_LOGD(" [LumoFilter] ------SCENE %s--------CCT-------------------------", name);
        LUMO_PRINT_CCT(cct);
        LUMO_LOGD(" [LumoFilter] param_lut = %s", lutBlockText(cct.param_cct_lut_index).c_str());
      }
    }
  }
  for (const auto& zoom : zoomRatioParams) {
    const double ratio = zoom.first;
    const param_t& param = zoom.second;
    LUMO_LOGD(" [LumoFilter] =============================================================");
    LUMO_LOGD(" [LumoFilter]                     zoomratio  %f                            ", ratio);
    LUMO_LOGD(" [LumoFilter] =============================================================");
    LUMO_LOGD(" [LumoFilter] [ zoomratio = %f ", ratio);
    LUMO_LOGD(" [LumoFilter]   param_lux_count = %d ]", param.param_lux_count);
    for (uint16_t i = 0; i < param.param_lux_count; i++) {
      const param_lux_t& lux = param.param_lux[i];
      LUMO_PRINT_LUX_HEAD(lux);
      for (uint16_t c = 0; c < lux.param_cct_count; c++) {
        const param_cct_t& cct = lux.param_cct[c];
        LUMO_LOGD(" [LumoFilter] ------zoomratio %f--------CCT-------------------------", ratio);
        LUMO_PRINT_CCT(cct);
        LUMO_LOGD(" [LumoFilter] param_shading = %s",
                  shadingBlockText(cct.param_cct_lut_index).c_str());
      }
    }
  }
}
