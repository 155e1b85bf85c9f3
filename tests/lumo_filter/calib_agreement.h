// Whether the plugin's store holds what the strict reader decoded from the
// same bytes. Shared by the store tests and the agreement fuzz target.
#pragma once

#include <calib/calibration_reader.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "paramUtil.h"

namespace lumotest {

inline bool sameBands(const param_t& loaded, const std::vector<calib::LuxBand>& read) {
  if (loaded.param_lux_count != read.size()) return false;
  for (size_t l = 0; l < read.size(); l++) {
    const param_lux_t& lux = loaded.param_lux[l];
    const calib::LuxBand& band = read[l];
    if (lux.start != band.start || lux.end != band.end || lux.param_cct_count != band.ccts.size())
      return false;
    for (size_t c = 0; c < band.ccts.size(); c++) {
      const param_cct_t& cct = lux.param_cct[c];
      const calib::CctBand& want = band.ccts[c];
      if (cct.param_start != want.start || cct.param_end != want.end ||
          cct.param_cct_lut_index != want.index)
        return false;
    }
  }
  return true;
}

// The trees keep the first block of a key, as the loader does.
template <typename Key, typename Blocks, typename KeyOf>
std::string treeDisagreement(const std::map<Key, param_t>& loaded, const Blocks& blocks,
                             KeyOf keyOf, const char* tree) {
  std::map<Key, const std::vector<calib::LuxBand>*> read;
  for (const auto& block : blocks) read.emplace(keyOf(block), &block.luxBands);
  if (read.size() != loaded.size()) return std::string(tree) + " tree size";
  for (const auto& [key, param] : loaded) {
    const auto it = read.find(key);
    if (it == read.end() || !sameBands(param, *it->second)) return std::string(tree) + " bands";
  }
  return "";
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
  std::string tree = treeDisagreement(
      store.aiSceneParams, f.scenes, [](const calib::SceneBlock& b) { return b.name; }, "scene");
  if (tree.empty())
    tree = treeDisagreement(
        store.zoomRatioParams, f.zooms, [](const calib::ZoomBlock& b) { return b.ratio; }, "zoom");
  if (!tree.empty()) return tree;
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
