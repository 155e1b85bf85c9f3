// Lint rules. They look at the decoded structure only; what breaks the
// format is the validator's business.
#include "calib_lint.h"

#include <calib/calibration_reader.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "calib_findings.h"

namespace lumo {
namespace {

std::string sceneRecord(size_t i, const calib::SceneBlock& s) {
  return "scene block " + std::to_string(i) + " \"" + escapeBytes(s.name) + "\"";
}

std::string zoomRecord(size_t j, const calib::ZoomBlock& z) {
  std::ostringstream r;
  r << "zoom block " << j << " (" << z.ratio << ")";
  return r.str();
}

// The plugin takes the first block of a name or ratio; later ones are dead.
template <typename Block, typename Key, typename Record>
void repeatedKeys(const std::vector<Block>& blocks, Key key, Record record, const char* what,
                  std::vector<LintFinding>& out) {
  for (size_t i = 0; i < blocks.size(); ++i)
    for (size_t k = 0; k < i; ++k)
      if (key(blocks[k]) == key(blocks[i])) {
        out.push_back({"never-chosen", record(i, blocks[i]),
                       std::string("never chosen: ") + what + " as " + record(k, blocks[k]) +
                           ", which the plugin keeps"});
        break;
      }
}

void lowLux(const std::string& record, const std::vector<calib::LuxBand>& bands,
            std::vector<LintFinding>& out) {
  if (bands.empty() || bands.front().start < kLowLux) return;
  out.push_back({"no-low-lux", record,
                 "no lux band below " + std::to_string(kLowLux) + " lux: the lowest starts at " +
                     std::to_string(bands.front().start) +
                     ", so dark frames get the look of a brighter band"});
}

void unusedPool(const char* pool, size_t count, const std::set<uint16_t>& used,
                std::vector<LintFinding>& out) {
  for (size_t i = 0; i < count; ++i)
    if (used.count(uint16_t(i)) == 0)
      out.push_back({"never-chosen", std::string(pool) + " block " + std::to_string(i),
                     "never chosen: no CCT band refers to it"});
}

}  // namespace

std::vector<LintFinding> lintCalibration(const calib::CalibrationFile& file) {
  std::vector<LintFinding> out;
  std::set<uint16_t> usedLuts, usedShadings;
  for (size_t i = 0; i < file.scenes.size(); ++i) {
    const calib::SceneBlock& s = file.scenes[i];
    const std::string record = sceneRecord(i, s);
    bool oneCct = !s.luxBands.empty();
    for (const calib::LuxBand& lux : s.luxBands) {
      oneCct = oneCct && lux.ccts.size() == 1;
      for (const calib::CctBand& c : lux.ccts) usedLuts.insert(c.index);
    }
    if (oneCct)
      out.push_back({"single-cct", record,
                     "one CCT band only in every lux band: the look never follows white balance"});
    lowLux(record, s.luxBands, out);
  }
  for (size_t j = 0; j < file.zooms.size(); ++j) {
    const calib::ZoomBlock& z = file.zooms[j];
    for (const calib::LuxBand& lux : z.luxBands)
      for (const calib::CctBand& c : lux.ccts) usedShadings.insert(c.index);
    lowLux(zoomRecord(j, z), z.luxBands, out);
    if (j > 0 && !(file.zooms[j - 1].ratio < z.ratio)) {
      std::ostringstream m;
      m << "zoom ratio " << z.ratio << " follows " << file.zooms[j - 1].ratio
        << ": the plugin uses the ratios in ascending order, not in file order";
      out.push_back({"zoom-order", zoomRecord(j, z), m.str()});
    }
  }
  repeatedKeys(
      file.scenes, [](const calib::SceneBlock& s) { return s.name; }, sceneRecord,
      "same scene name", out);
  repeatedKeys(
      file.zooms, [](const calib::ZoomBlock& z) { return z.ratio; }, zoomRecord, "same zoom ratio",
      out);
  unusedPool("LUT pool", file.luts.size(), usedLuts, out);
  unusedPool("shading pool", file.shadings.size(), usedShadings, out);
  for (const std::string& name : calib::knownSceneNames())
    if (std::none_of(file.scenes.begin(), file.scenes.end(),
                     [&](const calib::SceneBlock& s) { return s.name == name; }))
      out.push_back({"missing-scene", "scene \"" + name + "\"",
                     "the camera reports this scene but no block has it: its frames get no look"});
  return out;
}

std::string lintLine(const std::string& file, const LintFinding& f) {
  return escapeBytes(file) + ": " + f.record + ": warning: " + f.message + " (" + f.rule + ")";
}

nlohmann::json lintJson(const std::vector<LintFinding>& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const LintFinding& f : findings)
    list.push_back({{"rule", f.rule}, {"record", f.record}, {"message", f.message}});
  return {{"findings", list}, {"warnings", findings.size()}};
}

}  // namespace lumo
