// The process-wide calibration store: loads the calibration file once into
// the AI-scene tree, the zoom-ratio tree and the LUT and shading pools.
#pragma once

#include <lumo/calib_layout.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "param_records.h"

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
  // Readers of the parameter data; each moves its cursor past what it read.
  // Both counts of the pools follow the last CCT record read of their tree.
  void readAiScenes(calib_layout::ByteCursor in);
  void readParam(calib_layout::ByteCursor& in, param_t& out, param_type_t type);
  void readParamLuxAndCct(calib_layout::ByteCursor& in, param_lux_t& out, param_type_t type);
  void printParam() const;

private:
  // What the store owns. The records of the trees point into these arrays,
  // which never move once made.
  std::map<std::string, param_t> m_aiSceneParams;
  std::map<float, param_t> m_zoomRatioParams;
  std::vector<std::unique_ptr<param_lux_t[]>> m_luxArrays;
  std::vector<std::unique_ptr<param_cct_t[]>> m_cctArrays;
  std::unique_ptr<uint8_t[]> m_lutPool;
  std::unique_ptr<uint8_t[]> m_shadingPool;
  const uint8_t* m_lutView = nullptr;
  const uint8_t* m_shadingView = nullptr;
  std::vector<uint16_t> m_aiScenesSizeCopy;
  std::vector<uint16_t> m_zoomSizeCopy;

public:
  // Header fields (the size arrays are valid only while loading).
  uint16_t aiScenesCount = 0;
  const uint16_t* aiScenesSize = nullptr;
  uint16_t shadingZoomRatioCount = 0;
  const uint16_t* shadingZoomRatioSize = nullptr;
  uint16_t paramDataOffset = 0;
  uint16_t lutDataOffset = 0;
  uint16_t lut3d_size = 0;
  char trigger_control[calib_layout::kTextBytes] = {};
  char param_type[calib_layout::kTextBytes] = {};
  char param_range[calib_layout::kTextBytes] = {};

  uint32_t lutCount = 0;      // LUT blocks in the pool
  uint32_t shadingCount = 0;  // shading blocks in the pool

  // Read-only views of what the store owns; null pools when nothing loaded.
  const uint8_t* const& lutData = m_lutView;          // lutCount x LUT_BYTES
  const uint8_t* const& shadingData = m_shadingView;  // shadingCount x SHADING_BYTES
  const std::map<std::string, param_t>& aiSceneParams = m_aiSceneParams;
  const std::map<float, param_t>& zoomRatioParams = m_zoomRatioParams;

private:
  bool parseHeader(calib_layout::ByteCursor in);
  void readPools(const calib_layout::ByteCursor& file);
  // Back to the empty state of a missing file.
  void clear();
  // Checks of the load buffer; the first failure is kept in m_loadError.
  bool need(const calib_layout::ByteCursor& at, size_t n, const char* what);
  bool terminated(const calib_layout::ByteCursor& at, size_t n, const char* what);
  // Pieces of the dump. A block index past its pool prints a note instead of
  // bytes that are not there.
  std::string lutBlockText(uint16_t index) const;
  std::string shadingBlockText(uint16_t index) const;

  std::string m_path;
  bool m_loadFailed = false;
  std::string m_loadError;
};
