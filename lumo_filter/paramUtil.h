// The process-wide calibration store: loads "/odm/etc/camera/lumo_filter_param.bin"
// once into the AI-scene tree, the zoom-ratio tree and the LUT and shading pools.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "param_records.h"

extern const char* const kLumoParamFilePath;

class ParamUtil {
public:
  // The one store of the process, loaded on first use.
  static ParamUtil& getInstance();

  // Loads the calibration file at its fixed device path.
  ParamUtil();
  // Loads another file (tools and tests); same rules as the fixed path. The
  // path is opened as given, it is not mapped under a device root.
  explicit ParamUtil(const std::string& devicePath);
  ~ParamUtil();
  ParamUtil(const ParamUtil&) = delete;
  ParamUtil& operator=(const ParamUtil&) = delete;

  void initialize();
  void readAiScenes(char* p);
  void readParam(char* p, param_t& out, param_type_t type);
  void readParamLuxAndCct(char* p, param_t& out, unsigned short k, unsigned& pos,
                          param_type_t type);
  void printParam();

  // Header fields (the size arrays are valid only while loading).
  uint16_t aiScenesCount = 0;
  uint16_t* aiScenesSize = nullptr;
  uint16_t shadingZoomRatioCount = 0;
  uint16_t* shadingZoomRatioSize = nullptr;
  uint16_t paramDataOffset = 0;
  uint16_t lutDataOffset = 0;
  uint16_t lut3d_size = 0;
  char trigger_control[256] = {};
  char param_type[256] = {};
  char param_range[256] = {};

  uint32_t lutCount = 0;           // LUT blocks in the pool
  uint32_t shadingCount = 0;       // shading blocks in the pool
  uint8_t* lutData = nullptr;      // lutCount x LUT_BYTES, owned
  uint8_t* shadingData = nullptr;  // shadingCount x SHADING_BYTES, owned

  std::map<std::string, param_t> aiSceneParams;
  std::map<float, param_t> zoomRatioParams;

private:
  bool parseHeader();
  void readPools();
  // Back to the empty state of a missing file.
  void clear();
  // Checks of the load buffer; the first failure is kept in m_loadError.
  bool readable(const char* p, size_t n, const char* what);
  bool readableAt(size_t offset, size_t n, const char* what);
  bool reject(const char* what, size_t offset, size_t n);
  bool terminated(const char* p, size_t n, const char* what);
  // Pieces of the dump. A block index past its pool prints a note instead of
  // bytes that are not there.
  std::string lutBlockText(uint16_t index) const;
  std::string shadingBlockText(uint16_t index) const;

  std::string m_path;
  // Bounds of the load buffer while a file is parsed; a read outside them
  // rejects the whole file. Null outside loading: readParam then trusts its
  // caller's buffer.
  const char* m_loadBegin = nullptr;
  const char* m_loadEnd = nullptr;
  bool m_loadFailed = false;
  std::string m_loadError;
  std::vector<uint16_t> m_aiScenesSizeCopy;
  std::vector<uint16_t> m_zoomSizeCopy;
};
