// Whether the plugin's store holds what the strict reader decoded from the
// same bytes. Shared by the store tests and the agreement fuzz target.
#pragma once

#include <calib/calibration_reader.h>

#include <cstring>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "paramUtil.h"

namespace lumotest {

// A band list flattened (start, end, count, then the CCT triples), so that
// whole trees compare in one step.
inline std::vector<int> flat(const std::vector<calib::LuxBand>& bands) {
  std::vector<int> v;
  for (const auto& b : bands) {
    v.insert(v.end(), {b.start, b.end, int(b.ccts.size())});
    for (const auto& c : b.ccts) v.insert(v.end(), {c.start, c.end, c.index});
  }
  return v;
}

inline std::vector<int> flat(const param_t& loaded) {
  std::vector<int> v;
  for (const param_lux_t& l : std::span(loaded.param_lux, loaded.param_lux_count)) {
    v.insert(v.end(), {l.start, l.end, l.param_cct_count});
    for (const param_cct_t& c : std::span(l.param_cct, l.param_cct_count))
      v.insert(v.end(), {c.param_start, c.param_end, c.param_cct_lut_index});
  }
  return v;
}

// Empty when the store's trees hold the first block of each key of the file,
// as the loader keeps them; else which tree differs.
inline std::string treesDisagreement(const ParamUtil& store, const calib::CalibrationFile& f) {
  std::map<std::string, std::vector<int>> scenes, fileScenes;
  std::map<float, std::vector<int>> zooms, fileZooms;
  for (const auto& [key, param] : store.aiSceneParams) scenes[key] = flat(param);
  for (const auto& [key, param] : store.zoomRatioParams) zooms[key] = flat(param);
  for (const auto& b : f.scenes) fileScenes.emplace(b.name, flat(b.luxBands));
  for (const auto& b : f.zooms) fileZooms.emplace(b.ratio, flat(b.luxBands));
  if (scenes != fileScenes) return "scene tree";
  return zooms != fileZooms ? "zoom tree" : "";
}

// Empty when the store holds exactly what the reader decoded, else the
// first thing that differs.
inline std::string storeDisagreement(const ParamUtil& store, const calib::ReadResult& read) {
  const calib::CalibrationFile& f = read.file;
  if (store.aiScenesCount != f.scenes.size() || store.shadingZoomRatioCount != f.zooms.size())
    return "block counts";
  if (store.paramDataOffset != read.layout.paramDataOffset ||
      store.lutDataOffset != read.layout.lutDataOffset || store.lut3d_size != f.lut3dSize)
    return "header fields";
  if (f.triggerControl != store.trigger_control || f.paramType != store.param_type ||
      f.paramRange != store.param_range)
    return "header texts";
  if (std::string tree = treesDisagreement(store, f); !tree.empty()) return tree;
  if (store.lutCount != read.layout.lutCount || store.shadingCount != read.layout.shadingCount ||
      f.luts.size() != store.lutCount || f.shadings.size() != store.shadingCount)
    return "pool counts";
  for (size_t k = 0; k < f.luts.size(); k++)
    if (std::memcmp(store.lutData + k * LUT_BYTES, f.luts[k].data(), LUT_BYTES) != 0)
      return "LUT block " + std::to_string(k);
  for (size_t k = 0; k < f.shadings.size(); k++)
    if (std::memcmp(store.shadingData + k * SHADING_BYTES, f.shadings[k].data(), SHADING_BYTES))
      return "shading block " + std::to_string(k);
  return "";
}

}  // namespace lumotest
