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

void warn(std::vector<calib::Finding>& out, const char* rule, std::string record,
          std::string message) {
  out.push_back(
      {calib::Finding::Severity::Warning, {}, std::move(record), std::move(message), rule});
}

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
                  std::vector<calib::Finding>& out) {
  for (size_t i = 0; i < blocks.size(); ++i)
    for (size_t k = 0; k < i; ++k)
      if (key(blocks[k]) == key(blocks[i])) {
        warn(out, "never-chosen", record(i, blocks[i]),
             std::string("never chosen: ") + what + " as " + record(k, blocks[k]) +
                 ", which the plugin keeps");
        break;
      }
}

void lowLux(const std::string& record, const std::vector<calib::LuxBand>& bands,
            std::vector<calib::Finding>& out) {
  if (bands.empty() || bands.front().start < kLowLux) return;
  warn(out, "no-low-lux", record,
       "no lux band below " + std::to_string(kLowLux) + " lux: the lowest starts at " +
           std::to_string(bands.front().start) +
           ", so dark frames get the look of a brighter band");
}

void unusedPool(const char* pool, size_t count, const std::set<uint16_t>& used,
                std::vector<calib::Finding>& out) {
  for (size_t i = 0; i < count; ++i)
    if (used.count(uint16_t(i)) == 0)
      warn(out, "never-chosen", std::string(pool) + " block " + std::to_string(i),
           "never chosen: no CCT band refers to it");
}

std::string blockList(const std::set<uint16_t>& blocks) {
  std::string r;
  for (uint16_t b : blocks) r += (r.empty() ? "" : ", ") + std::to_string(b);
  return r.empty() ? std::string("none") : r;
}

// A block reused over a patch of neighbouring cells is a deliberate plateau.
// The same block in two separate patches whose surroundings differ is more
// often an index copied into the wrong cell: the blends around the two differ.
// Cells neighbour when they are CCT neighbours in one lux band, or sit at the
// same CCT position in adjacent lux bands.
void sharedBlocks(const std::string& record, const char* pool,
                  const std::vector<calib::LuxBand>& bands, std::vector<calib::Finding>& out) {
  struct Patch {
    uint16_t block;
    std::pair<size_t, size_t> first;
    std::set<uint16_t> around;
  };
  std::vector<Patch> patches;
  std::vector<std::vector<int>> patchOf(bands.size());
  for (size_t i = 0; i < bands.size(); ++i) patchOf[i].assign(bands[i].ccts.size(), -1);
  const auto at = [&](size_t i, size_t j) -> const calib::CctBand* {
    return i < bands.size() && j < bands[i].ccts.size() ? &bands[i].ccts[j] : nullptr;
  };
  for (size_t i = 0; i < bands.size(); ++i)
    for (size_t j = 0; j < bands[i].ccts.size(); ++j) {
      if (patchOf[i][j] >= 0) continue;
      Patch p{bands[i].ccts[j].index, {i, j}, {}};
      std::vector<std::pair<size_t, size_t>> todo{{i, j}};
      patchOf[i][j] = int(patches.size());
      while (!todo.empty()) {
        const auto [ci, cj] = todo.back();
        todo.pop_back();
        for (const auto& [ni, nj] :
             {std::pair{ci, cj - 1}, {ci, cj + 1}, {ci - 1, cj}, {ci + 1, cj}}) {
          const calib::CctBand* n = at(ni, nj);
          if (!n) continue;
          if (n->index != p.block) {
            p.around.insert(n->index);
          } else if (patchOf[ni][nj] < 0) {
            patchOf[ni][nj] = int(patches.size());
            todo.push_back({ni, nj});
          }
        }
      }
      for (const Patch& q : patches)
        if (q.block == p.block && q.around != p.around) {
          warn(out, "shared-block",
               record + " lux band " + std::to_string(i) + " CCT band " + std::to_string(j),
               std::string(pool) + " block " + std::to_string(p.block) +
                   " is also used at lux band " + std::to_string(q.first.first) + " CCT band " +
                   std::to_string(q.first.second) + ", whose neighbours differ (blocks " +
                   blockList(p.around) + " here, " + blockList(q.around) +
                   " there): an index copied into the wrong cell?");
          break;
        }
      patches.push_back(std::move(p));
    }
}

}  // namespace

std::vector<calib::Finding> lintCalibration(const calib::CalibrationFile& file) {
  std::vector<calib::Finding> out;
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
      warn(out, "single-cct", record,
           "one CCT band only in every lux band: the look never follows white balance");
    lowLux(record, s.luxBands, out);
    sharedBlocks(record, "LUT pool", s.luxBands, out);
  }
  for (size_t j = 0; j < file.zooms.size(); ++j) {
    const calib::ZoomBlock& z = file.zooms[j];
    for (const calib::LuxBand& lux : z.luxBands)
      for (const calib::CctBand& c : lux.ccts) usedShadings.insert(c.index);
    lowLux(zoomRecord(j, z), z.luxBands, out);
    sharedBlocks(zoomRecord(j, z), "shading pool", z.luxBands, out);
    if (j > 0 && !(file.zooms[j - 1].ratio < z.ratio)) {
      std::ostringstream m;
      m << "zoom ratio " << z.ratio << " follows " << file.zooms[j - 1].ratio
        << ": the plugin uses the ratios in ascending order, not in file order";
      warn(out, "zoom-order", zoomRecord(j, z), m.str());
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
      warn(out, "missing-scene", "scene \"" + name + "\"",
           "the camera reports this scene but no block has it: its frames get no look");
  return out;
}

nlohmann::json lintJson(const std::vector<calib::Finding>& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const calib::Finding& f : findings) list.push_back(calib::findingJson(f));
  return {{"findings", list}, {"warnings", findings.size()}};
}

}  // namespace lumo
