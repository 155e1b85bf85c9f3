// The band-tree rules behind the report's coverage notes. Low light is lint's
// threshold and band order the reader's rule, so the three cannot drift apart.
#include "selection_findings.h"

#include <calib/calibration_reader.h>

#include <cstdio>
#include <map>

#include "calib_lint.h"

namespace lumo {
namespace {

std::string range(uint16_t a, uint16_t b) { return std::to_string(a) + "–" + std::to_string(b); }

void note(std::vector<calib::Finding>& out, std::string record, std::string message) {
  out.push_back({calib::Finding::Severity::Warning, {}, std::move(record), std::move(message), ""});
}

template <typename Block>
void bandFindings(const std::string& where, const Block& block, bool luts,
                  std::vector<calib::Finding>& out) {
  const auto& bands = block.luxBands;
  if (bands.empty()) {
    note(out, where, "no lux band: every frame gets block 0 or nothing");
    return;
  }
  bool lowLight = false;
  for (size_t l = 0; l < bands.size(); ++l) {
    const calib::LuxBand& lux = bands[l];
    lowLight = lowLight || lux.start < kLowLux;
    if (luts && lux.ccts.size() == 1)
      note(out, where,
           "lux band " + range(lux.start, lux.end) +
               " has one CCT band only: no blending across colour temperature");
    if (l > 0 && !calib::followsInOrder(bands[l - 1].end, lux.start))
      note(out, where,
           "lux band " + range(lux.start, lux.end) + " does not start above the band before it (" +
               range(bands[l - 1].start, bands[l - 1].end) +
               "): the first band reaching a lux value wins, the rest of it is never used");
    for (size_t c = 1; c < lux.ccts.size(); ++c)
      if (!calib::followsInOrder(lux.ccts[c - 1].end, lux.ccts[c].start))
        note(out, where,
             "in lux band " + range(lux.start, lux.end) + " CCT band " +
                 range(lux.ccts[c].start, lux.ccts[c].end) +
                 " does not start above the band before it");
  }
  if (!lowLight)
    note(out, where,
         "no band under " + std::to_string(kLowLux) +
             " lux: low-light frames take the first band (" +
             range(bands.front().start, bands.front().end) + ") unchanged");
}

}  // namespace

std::string ratioText(float ratio) {
  char s[32];
  std::snprintf(s, sizeof(s), "%g", double(ratio));
  return s;
}

std::vector<calib::Finding> selectionFindings(const calib::CalibrationFile& file) {
  std::vector<calib::Finding> out;
  std::map<std::string, int> names;
  for (const calib::SceneBlock& s : file.scenes)
    if (++names[s.name] == 2)
      note(out, "scene " + s.name,
           "duplicate key: the plugin keeps the first block of this "
           "name and drops the later ones");
  std::map<float, int> ratios;
  for (const calib::ZoomBlock& z : file.zooms)
    if (++ratios[z.ratio] == 2)
      note(out, "zoom " + ratioText(z.ratio),
           "duplicate key: the plugin keeps the first block "
           "of this ratio and drops the later ones");
  for (const std::string& known : calib::knownSceneNames())
    if (!names.count(known))
      note(out, "scene " + known,
           "the camera reports this scene but the file has no entry "
           "for it: its frames are copied unfiltered");
  for (const calib::SceneBlock& s : file.scenes) bandFindings("scene " + s.name, s, true, out);
  for (const calib::ZoomBlock& z : file.zooms)
    bandFindings("zoom " + ratioText(z.ratio), z, false, out);
  return out;
}

}  // namespace lumo
