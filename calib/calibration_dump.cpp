// Text dump of calibration files.
#include <calib/calibration_dump.h>
#include <calib/looks.h>

#include <cstdio>
#include <sstream>

namespace calib {
namespace {

std::string bandsText(const std::vector<LuxBand>& bands, const char* target) {
  std::ostringstream out;
  for (const LuxBand& lux : bands) {
    out << "    lux [" << lux.start << ", " << lux.end << "]\n";
    for (const CctBand& c : lux.ccts)
      out << "      cct [" << c.start << ", " << c.end << "] -> " << target << " " << c.index
          << "\n";
  }
  return out.str();
}

// The LUT's output at lattice point (r, g, b).
const uint8_t* at(const LutBlock& lut, size_t r, size_t g, size_t b) {
  return lut.data() + 3 * (r + kLutEdge * (g + kLutEdge * b));
}

}  // namespace

std::string describeLut(const LutBlock& lut) {
  if (lut.size() != kLutBlockBytes) return "not a 17^3 block";
  if (lut == identityLut()) return "identity";
  struct Probe {
    const char* name;
    size_t r, g, b;
  } probes[] = {{"black", 0, 0, 0}, {"grey", 8, 8, 8},   {"white", 16, 16, 16},
                {"red", 16, 0, 0},  {"green", 0, 16, 0}, {"blue", 0, 0, 16}};
  std::string out;
  char buf[64];
  for (const Probe& p : probes) {
    const uint8_t* v = at(lut, p.r, p.g, p.b);
    std::snprintf(buf, sizeof(buf), "%s%s->(%u,%u,%u)", out.empty() ? "" : " ", p.name, v[0], v[1],
                  v[2]);
    out += buf;
  }
  return out;
}

std::string dumpText(const ReadResult& result, const std::string& fileName) {
  const CalibrationFile& f = result.file;
  const Layout& l = result.layout;
  std::ostringstream out;
  out << "file " << fileName << ": " << l.fileSize << " bytes\n";
  out << "header (" << l.headerEnd << " bytes)\n";
  out << "  aiScenesCount=" << f.scenes.size() << " shadingZoomRatioCount=" << f.zooms.size()
      << "\n";
  out << "  paramDataOffset=" << l.paramDataOffset << " lutDataOffset=" << l.lutDataOffset
      << " lut3d_size=" << f.lut3dSize << "\n";
  out << "  trigger_control=\"" << f.triggerControl << "\"\n";
  out << "  param_type=\"" << f.paramType << "\"\n";
  out << "  param_range=\"" << f.paramRange << "\"\n";
  for (size_t i = 0; i < f.scenes.size(); ++i) {
    out << "scene \"" << f.scenes[i].name << "\" (block " << i << " at " << l.sceneOffsets[i];
    if (f.scenes[i].declaredSize) out << ", declared size " << *f.scenes[i].declaredSize;
    out << ")\n" << bandsText(f.scenes[i].luxBands, "lut");
  }
  for (size_t i = 0; i < f.zooms.size(); ++i) {
    out << "zoom " << f.zooms[i].ratio << " (block " << i << " at " << l.zoomOffsets[i];
    if (f.zooms[i].declaredSize) out << ", declared size " << *f.zooms[i].declaredSize;
    out << ")\n" << bandsText(f.zooms[i].luxBands, "shading");
  }
  out << "LUT pool: " << f.luts.size() << " blocks\n";
  for (size_t i = 0; i < f.luts.size(); ++i)
    out << "  lut " << i << ": " << describeLut(f.luts[i]) << "\n";
  out << "shading pool: " << f.shadings.size() << " blocks\n";
  for (size_t i = 0; i < f.shadings.size(); ++i) {
    out << "  shading " << i << ": [";
    for (float v : f.shadings[i]) out << " " << v;
    out << "]\n";
  }
  if (!f.trailingBytes.empty()) out << "trailing bytes: " << f.trailingBytes.size() << "\n";
  if (result.issues.empty()) {
    out << "no issues\n";
  } else {
    out << "issues:\n";
    for (const Issue& issue : result.issues) out << "  " << findingLine(fileName, issue) << "\n";
    if (result.issueCount() > result.issues.size())
      out << "  ... and " << result.issueCount() - result.issues.size() << " more\n";
  }
  return out.str();
}

}  // namespace calib
