// Structural comparison of two decoded calibration files. Scenes are
// matched by name and zoom blocks by ratio (the plugin's keys), bands by
// position within their list.
#include "calib_diff.h"

#include <calib/lut_source.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "calib_findings.h"

namespace lumo {
namespace {

std::string range(uint16_t start, uint16_t end) {
  return std::to_string(start) + ".." + std::to_string(end);
}

template <typename T>
std::string quoted(const T& v) {
  std::ostringstream s;
  s << v;
  return s.str();
}

class Differ {
public:
  Differ(const calib::CalibrationFile& a, const calib::CalibrationFile& b) : m_a(a), m_b(b) {}

  std::vector<DiffEntry> run() {
    text("header, trigger_control", m_a.triggerControl, m_b.triggerControl);
    text("header, param_type", m_a.paramType, m_b.paramType);
    text("header, param_range", m_a.paramRange, m_b.paramRange);
    if (m_a.lut3dSize != m_b.lut3dSize)
      add("header, lut3d_size", quoted(m_a.lut3dSize) + " -> " + quoted(m_b.lut3dSize));
    blocks(
        m_a.scenes, m_b.scenes, [](const calib::SceneBlock& s) { return s.name; },
        [](const std::string& name) { return "scene \"" + escapeBytes(name) + "\""; }, true);
    blocks(
        m_a.zooms, m_b.zooms, [](const calib::ZoomBlock& z) { return z.ratio; },
        [](float ratio) { return "zoom " + quoted(ratio); }, false);
    if (m_a.luts.size() != m_b.luts.size())
      add("LUT pool", quoted(m_a.luts.size()) + " -> " + quoted(m_b.luts.size()) + " blocks");
    if (m_a.shadings.size() != m_b.shadings.size())
      add("shading pool",
          quoted(m_a.shadings.size()) + " -> " + quoted(m_b.shadings.size()) + " blocks");
    return std::move(m_out);
  }

private:
  // Scene blocks matched by name, zoom blocks by ratio: removed, compared band
  // by band, or added. The plugin keeps the first block of a key, so only
  // that one is compared.
  template <typename Block, typename KeyOf, typename RecordOf>
  void blocks(const std::vector<Block>& a, const std::vector<Block>& b, KeyOf keyOf,
              RecordOf recordOf, bool luts) {
    const auto find = [&](const std::vector<Block>& in, const auto& key) -> const Block* {
      for (const Block& x : in)
        if (keyOf(x) == key) return &x;
      return nullptr;
    };
    for (const Block& x : a) {
      const Block* other = find(b, keyOf(x));
      if (other == nullptr)
        add(recordOf(keyOf(x)), "removed");
      else if (find(a, keyOf(x)) == &x)
        bands(recordOf(keyOf(x)), x.luxBands, other->luxBands, luts);
    }
    for (const Block& x : b)
      if (find(a, keyOf(x)) == nullptr)
        add(recordOf(keyOf(x)), "added (" + quoted(x.luxBands.size()) + " lux bands)");
  }

  void add(std::string record, std::string change, std::optional<ChartDelta> colour = {}) {
    m_out.push_back({std::move(record), std::move(change), std::move(colour)});
  }

  void text(const char* record, const std::string& a, const std::string& b) {
    if (a != b) add(record, "\"" + escapeBytes(a) + "\" -> \"" + escapeBytes(b) + "\"");
  }

  // A band present on one side only is reported as added or removed (false);
  // on both sides, changed limits are reported (true: compare further).
  template <typename Band>
  bool bothSides(const std::string& record, const std::vector<Band>& a, const std::vector<Band>& b,
                 size_t i, const std::string& kind) {
    if (i >= b.size() || i >= a.size()) {
      const Band& only = i >= b.size() ? a[i] : b[i];
      add(record, std::string(i >= b.size() ? "removed (" : "added (") + kind + " " +
                      range(only.start, only.end) + ")");
      return false;
    }
    if (a[i].start != b[i].start || a[i].end != b[i].end)
      add(record, kind + " " + range(a[i].start, a[i].end) + " -> " + range(b[i].start, b[i].end));
    return true;
  }

  void bands(const std::string& record, const std::vector<calib::LuxBand>& a,
             const std::vector<calib::LuxBand>& b, bool luts) {
    for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
      const std::string lr = record + ", lux band " + quoted(i);
      if (!bothSides(lr, a, b, i, "lux")) continue;
      const auto& ca = a[i].ccts;
      const auto& cb = b[i].ccts;
      for (size_t k = 0; k < std::max(ca.size(), cb.size()); ++k) {
        const std::string cr = lr + ", cct band " + quoted(k);
        if (!bothSides(cr, ca, cb, k, "cct")) continue;
        luts ? lutCell(cr, ca[k].index, cb[k].index) : shadingCell(cr, ca[k].index, cb[k].index);
      }
    }
  }

  void lutCell(const std::string& record, uint16_t ia, uint16_t ib) {
    const std::string which =
        ia == ib ? "LUT block " + quoted(ia) : "LUT block " + quoted(ia) + " -> " + quoted(ib);
    if (ia >= m_a.luts.size() || ib >= m_b.luts.size()) {
      if (ia != ib) add(record, which + " (outside a pool)");
      return;
    }
    if (m_a.luts[ia] == m_b.luts[ib]) {
      if (ia != ib) add(record, which + " (same contents)");
      return;
    }
    add(record, which + ": contents changed", lutDelta(m_a.luts[ia], m_b.luts[ib]));
  }

  void shadingCell(const std::string& record, uint16_t ia, uint16_t ib) {
    const std::string which = ia == ib ? "shading block " + quoted(ia)
                                       : "shading block " + quoted(ia) + " -> " + quoted(ib);
    if (ia >= m_a.shadings.size() || ib >= m_b.shadings.size()) {
      if (ia != ib) add(record, which + " (outside a pool)");
      return;
    }
    const calib::ShadingBlock& sa = m_a.shadings[ia];
    const calib::ShadingBlock& sb = m_b.shadings[ib];
    std::string changed;
    for (size_t j = 0; j < sa.size(); ++j)
      if (std::memcmp(&sa[j], &sb[j], sizeof(float)) != 0)
        changed += (changed.empty() ? "" : ", ") + quoted(j) + ": " + quoted(sa[j]) + " -> " +
                   quoted(sb[j]);
    if (!changed.empty())
      add(record, which + ": values " + changed);
    else if (ia != ib)
      add(record, which + " (same contents)");
  }

  const calib::CalibrationFile& m_a;
  const calib::CalibrationFile& m_b;
  std::vector<DiffEntry> m_out;
};

}  // namespace

const std::vector<ChartPatch>& referenceChart() {
  // The classic 24-patch colour checker in sRGB, row by row.
  static const std::vector<ChartPatch> chart = {
      {"dark skin", {115, 82, 68}},     {"light skin", {194, 150, 130}},
      {"blue sky", {98, 122, 157}},     {"foliage", {87, 108, 67}},
      {"blue flower", {133, 128, 177}}, {"bluish green", {103, 189, 170}},
      {"orange", {214, 126, 44}},       {"purplish blue", {80, 91, 166}},
      {"moderate red", {193, 90, 99}},  {"purple", {94, 60, 108}},
      {"yellow green", {157, 188, 64}}, {"orange yellow", {224, 163, 46}},
      {"blue", {56, 61, 150}},          {"green", {70, 148, 73}},
      {"red", {175, 54, 60}},           {"yellow", {231, 199, 31}},
      {"magenta", {187, 86, 149}},      {"cyan", {8, 133, 161}},
      {"white", {243, 243, 242}},       {"neutral 8", {200, 200, 200}},
      {"neutral 6.5", {160, 160, 160}}, {"neutral 5", {122, 122, 121}},
      {"neutral 3.5", {85, 85, 85}},    {"black", {52, 52, 52}}};
  return chart;
}

ChartDelta lutDelta(const calib::LutBlock& a, const calib::LutBlock& b) {
  const std::vector<float> fa(a.begin(), a.end()), fb(b.begin(), b.end());
  ChartDelta d;
  std::vector<PatchDelta> all;
  for (const ChartPatch& p : referenceChart()) {
    const std::array<double, 3> in{p.srgb[0] / 255.0, p.srgb[1] / 255.0, p.srgb[2] / 255.0};
    auto through = [&](const std::vector<float>& lut) {
      std::array<double, 3> out = calib::tetrahedral(lut.data(), int(calib::kLutEdge), in);
      for (double& v : out) v /= 255;
      return srgbToLab(out);
    };
    all.push_back({p.name, ciede2000(through(fa), through(fb))});
    d.mean += all.back().de;
    d.max = std::max(d.max, all.back().de);
  }
  d.mean /= double(all.size());
  std::stable_sort(all.begin(), all.end(),
                   [](const PatchDelta& x, const PatchDelta& y) { return x.de > y.de; });
  all.resize(std::min(all.size(), kWorstPatches));
  d.worst = all;
  return d;
}

std::vector<DiffEntry> diffCalibration(const calib::CalibrationFile& a,
                                       const calib::CalibrationFile& b) {
  return Differ(a, b).run();
}

std::string diffLine(const DiffEntry& e) {
  std::string line = e.record + ": " + e.change;
  if (e.colour) {
    char text[96];
    std::snprintf(text, sizeof(text), ", dE00 mean %.2f max %.2f (worst:", e.colour->mean,
                  e.colour->max);
    line += text;
    for (size_t i = 0; i < e.colour->worst.size(); ++i) {
      std::snprintf(text, sizeof(text), "%s %s %.2f", i == 0 ? "" : ",",
                    e.colour->worst[i].patch.c_str(), e.colour->worst[i].de);
      line += text;
    }
    line += ")";
  }
  return line;
}

nlohmann::json diffJson(const std::vector<DiffEntry>& entries) {
  nlohmann::json list = nlohmann::json::array();
  for (const DiffEntry& e : entries) {
    nlohmann::json j = {{"record", e.record}, {"change", e.change}};
    if (e.colour) {
      nlohmann::json worst = nlohmann::json::array();
      for (const PatchDelta& p : e.colour->worst)
        worst.push_back({{"patch", p.patch}, {"de", p.de}});
      j["ciede2000"] = {{"mean", e.colour->mean}, {"max", e.colour->max}, {"worst", worst}};
    }
    list.push_back(j);
  }
  return list;
}

}  // namespace lumo
