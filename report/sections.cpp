// Section bodies.
#include "sections.h"

#include <calib/calibration_reader.h>
#include <color_math.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "pictures.h"
#include "selection_findings.h"

namespace lumo::report {
namespace {

std::string range(uint16_t a, uint16_t b) { return std::to_string(a) + "–" + std::to_string(b); }

const char* const kShadingNames[] = {
    "SmoothStartValue",   "SmoothEndValue",     "SmoothCoordScale",   "SmoothValueScale",
    "LightDarkPreserveK", "LightDarkPreserveB", "LightDarkPreserveV", "LightDarkPreserveT"};

// The band grid of one tree entry: a row per lux band, a cell per CCT band.
template <typename CellBody>
std::string bandGrid(const std::vector<calib::LuxBand>& bands, CellBody body) {
  std::string html = "<table class=\"grid\"><tr><th>lux band</th><th>CCT bands (kelvin)</th></tr>";
  for (size_t l = 0; l < bands.size(); ++l) {
    const calib::LuxBand& lux = bands[l];
    html += "<tr><th>" + range(lux.start, lux.end) + " lux</th><td>";
    if (lux.ccts.empty()) html += "<span class=\"warn\">no CCT band</span>";
    for (size_t c = 0; c < lux.ccts.size(); ++c) {
      const calib::CctBand& cct = lux.ccts[c];
      const std::string limits =
          "lux " + range(lux.start, lux.end) + ", CCT " + range(cct.start, cct.end) + " K";
      html += "<div class=\"cell\" title=\"" + escapeHtml(limits) + "\">" + body(cct) + "<br>" +
              range(cct.start, cct.end) + " K</div>";
    }
    html += "</td></tr>";
  }
  return html + "</table>";
}

// A row of coloured squares, each with its words.
std::string colourKey(const std::vector<std::pair<Rgb8, std::string>>& keys) {
  std::string html = "<p class=\"legend\">";
  for (const auto& [colour, words] : keys)
    html += "<span class=\"key\"><span class=\"square\" style=\"background:" + cssColour(colour) +
            "\"></span> " + escapeHtml(words) + "</span>";
  return html + "</p>";
}

double radialGain(const calib::ShadingBlock& s, double d) {
  return 1.0 + double(s[3]) * render::smoothstep(double(s[0]), double(s[1]), d * double(s[2]));
}

}  // namespace

std::string blockLabel(const BlockNames& names, size_t block) {
  const auto it = names.find(block);
  const std::string number = "block " + std::to_string(block);
  return it == names.end() ? number : it->second + " (" + number + ")";
}

Section calibrationSection(const calib::CalibrationFile& file, std::string& styles,
                           const BlockNames& names) {
  const Image chart = referenceChart();
  std::string body =
      "<p class=\"note\">Each cell: the LUT block its CCT band names (with its look's name "
      "where the looks are known), applied to the "
      "reference chart (two rows of colour patches, a row of skin tones, a grey "
      "ramp) by the renderer. Hover a cell for its band limits.</p>";
  styles += ".chart0{background-image:url(" + dataUri("image/png", pngBytes(chart)) + ")}";
  body += "<div class=\"cell\"><div class=\"swatch chart0\"></div><br>reference chart</div>";
  std::set<uint16_t> drawn;
  const auto swatch = [&](const calib::CctBand& cct) {
    if (cct.index >= file.luts.size() || file.luts[cct.index].size() != calib::kLutBlockBytes)
      return "<div class=\"swatch\"></div><span class=\"warn\">block " + std::to_string(cct.index) +
             " not in the pool</span>";
    if (drawn.insert(cct.index).second)
      styles += ".lut" + std::to_string(cct.index) + "{background-image:url(" +
                dataUri("image/png", pngBytes(applyLut(chart, file.luts[cct.index].data()))) + ")}";
    const auto name = names.find(cct.index);
    return "<div class=\"swatch lut" + std::to_string(cct.index) + "\"></div>" +
           (name == names.end() ? std::string()
                                : "<span class=\"look\">" + escapeHtml(name->second) + "</span> ") +
           "block " + std::to_string(cct.index);
  };
  for (const calib::SceneBlock& scene : file.scenes) {
    body += "<h3 class=\"scene\">scene " + escapeHtml(scene.name) + "</h3>";
    body += bandGrid(scene.luxBands, swatch);
  }
  body += "<h3>Shading per zoom ratio</h3>";
  for (const calib::ZoomBlock& zoom : file.zooms) {
    body += "<h3 class=\"zoom\">zoom " + ratioText(zoom.ratio) + "</h3>";
    std::set<uint16_t> blocks;
    body += bandGrid(zoom.luxBands, [&](const calib::CctBand& cct) {
      blocks.insert(cct.index);
      return "shading block " + std::to_string(cct.index);
    });
    body += "<table class=\"shading\"><tr><th>block</th>";
    for (const char* name : kShadingNames) body += "<th>" + std::string(name) + "</th>";
    body += "</tr>";
    std::vector<Curve> curves;
    for (const uint16_t b : blocks) {
      body += "<tr><td>" + std::to_string(b) + "</td>";
      if (b >= file.shadings.size()) {
        body += "<td colspan=\"8\" class=\"warn\">not in the shading pool</td></tr>";
        continue;
      }
      const calib::ShadingBlock& s = file.shadings[b];
      for (const float v : s) body += "<td>" + fixed(double(v), 4) + "</td>";
      body += "</tr>";
      Curve c{"block " + std::to_string(b), paletteColour(b), {}};
      for (int i = 0; i <= 50; ++i) c.points.emplace_back(i / 50.0, radialGain(s, i / 50.0));
      curves.push_back(c);
    }
    body += "</table>";
    body += curveChart(curves, "distance from the centre (corners = 1)", "radial gain");
  }
  return {"calibration", "Calibration", body};
}

Rgb8 sampleColour(const CoverageSample& s) {
  if (!s.found) return {200, 200, 200};
  if (!s.inPool) return {90, 0, 0};
  double r = 0, g = 0, b = 0, total = 0;
  for (int i = 0; i < 4; ++i) {
    const double w = double(s.weight[i]);
    if (!std::isfinite(w)) return {90, 0, 0};
    if (w <= 0) continue;
    const Rgb8 c = paletteColour(s.corner[i]);
    r += w * c.r;
    g += w * c.g;
    b += w * c.b;
    total += w;
  }
  if (total <= 0) return {90, 0, 0};
  return {int(std::lround(r / total)), int(std::lround(g / total)), int(std::lround(b / total))};
}

namespace {

std::string cornerList(const CoverageSample& s, const char* what) {
  std::string t;
  for (int i = 0; i < 4; ++i)
    t += std::string(i ? ", " : "") + what + " " + std::to_string(s.corner[i]);
  return t;
}

std::string weightList(const CoverageSample& s) {
  std::string t;
  for (int i = 0; i < 4; ++i) t += (i ? ", " : "") + fixed(double(s.weight[i]), 3);
  return t;
}

std::string mapChart(const CoverageMap& m, const char* what) {
  Plane p;
  p.xs = m.lux;
  p.ys = m.cct;
  p.xLabel = "lux (log)";
  p.yLabel = "CCT K";
  const size_t nx = m.lux.size(), ny = m.cct.size();
  Image picture =
      makeImage(completeGeometry({PixelFormat::RGBA, uint32_t(nx), uint32_t(ny), 0, 0}));
  for (size_t row = 0; row < ny; ++row) {
    uint8_t* line = picture.row(uint32_t(ny - 1 - row));
    for (size_t col = 0; col < nx; ++col) {
      const Rgb8 c = sampleColour(m.samples[row * nx + col]);
      line[4 * col] = uint8_t(c.r);
      line[4 * col + 1] = uint8_t(c.g);
      line[4 * col + 2] = uint8_t(c.b);
      line[4 * col + 3] = 255;
    }
    // Hover runs: cells of this row with the same four corners.
    for (size_t col = 0; col < nx;) {
      const CoverageSample& first = m.samples[row * nx + col];
      size_t end = col + 1;
      while (end < nx && m.samples[row * nx + end].found == first.found &&
             m.samples[row * nx + end].corner == first.corner)
        ++end;
      const CoverageSample& last = m.samples[row * nx + end - 1];
      std::string title = "CCT " + fixed(m.cct[row], 0) + " K, lux " + fixed(m.lux[col], 0) + "–" +
                          fixed(m.lux[end - 1], 0) + ": ";
      if (!first.found) {
        title += "no parameter set";
      } else {
        title += cornerList(first, what) + "; weights " + weightList(first);
        if (end - 1 > col) title += " … " + weightList(last);
        if (!first.inPool) title += " (a block outside the pool: the frame gets no parameters)";
      }
      p.regions.push_back({row, col, end, title});
      col = end;
    }
  }
  p.pictureUri = dataUri("image/png", pngBytes(picture));
  return planeChart(p);
}

std::string legend(const std::vector<CoverageMap>& maps, const char* what,
                   const BlockNames& names = {}) {
  std::set<uint16_t> seen;
  for (const CoverageMap& m : maps)
    for (const CoverageSample& s : m.samples)
      for (int i = 0; i < 4; ++i)
        if (s.found && s.weight[i] > 0) seen.insert(s.corner[i]);
  std::vector<std::pair<Rgb8, std::string>> keys;
  for (const uint16_t k : seen)
    keys.emplace_back(paletteColour(k),
                      what + (" " + std::to_string(k)) + (names.count(k) ? " " + names.at(k) : ""));
  return colourKey(keys);
}

}  // namespace

std::vector<calib::Finding> coverageFindings(const calib::CalibrationFile& file,
                                             const std::vector<CoverageMap>& scenes,
                                             const std::vector<CoverageMap>& zooms,
                                             const SelectionProbe* probe) {
  std::vector<calib::Finding> out = selectionFindings(file);

  // Blocks a tree entry names that no sample chooses with a weight.
  const auto unused = [&](const std::string& where, const std::vector<calib::LuxBand>& bands,
                          const CoverageMap* map, const auto& extraProbe) {
    std::set<uint16_t> named, chosen;
    for (const calib::LuxBand& l : bands)
      for (const calib::CctBand& c : l.ccts) named.insert(c.index);
    const auto take = [&](const CoverageSample& s) {
      for (int i = 0; i < 4; ++i)
        if (s.found && s.weight[i] > 0) chosen.insert(s.corner[i]);
    };
    if (map != nullptr)
      for (const CoverageSample& s : map->samples) take(s);
    if (probe != nullptr)
      for (const calib::LuxBand& l : bands)
        for (const calib::CctBand& c : l.ccts)
          for (const uint16_t lux : {l.start, l.end, uint16_t((l.start + l.end) / 2)})
            for (const uint16_t cct : {c.start, c.end, uint16_t((c.start + c.end) / 2)})
              take(extraProbe(lux, cct));
    for (const uint16_t k : named)
      if (!chosen.count(k))
        out.push_back(
            {calib::Finding::Severity::Warning,
             {},
             where,
             "block " + std::to_string(k) + " is named by a band but never chosen with a weight",
             ""});
  };
  std::set<std::string> doneScenes;
  for (const calib::SceneBlock& s : file.scenes) {
    if (!doneScenes.insert(s.name).second) continue;
    const CoverageMap* map = nullptr;
    for (const CoverageMap& m : scenes)
      if (m.key == s.name) map = &m;
    unused("scene " + s.name, s.luxBands, map,
           [&](uint16_t l, uint16_t c) { return probe->lut(s.name, l, c); });
  }
  std::set<float> doneZooms;
  for (const calib::ZoomBlock& z : file.zooms) {
    if (!doneZooms.insert(z.ratio).second) continue;
    const CoverageMap* map = nullptr;
    for (const CoverageMap& m : zooms)
      if (m.key == ratioText(z.ratio)) map = &m;
    unused("zoom " + ratioText(z.ratio), z.luxBands, map,
           [&](uint16_t l, uint16_t c) { return probe->shading(z.ratio, l, c); });
  }
  return out;
}

Section coverageSection(const std::vector<CoverageMap>& scenes,
                        const std::vector<CoverageMap>& zooms,
                        const std::vector<calib::Finding>& findings, const BlockNames& names) {
  std::string body =
      "<p class=\"note\">Every point is what the plugin's own selection picks for that lux and "
      "CCT: the colour of a block, or the weighted mix of the four blocks it blends. Grey: the "
      "scene has no parameter set; dark red: a weight that is not finite (a value above every "
      "band) or a block outside the pool. Hover a point for its four corners and weights.</p>";
  body += legend(scenes, "LUT", names);
  for (const CoverageMap& m : scenes)
    body += "<div class=\"map scene-map\"><h3>scene " + escapeHtml(m.key) + "</h3>" +
            mapChart(m, "LUT") + "</div>";
  body += "<h3>Shading by zoom ratio</h3>" + legend(zooms, "shading");
  for (const CoverageMap& m : zooms)
    body += "<div class=\"map zoom-map\"><h3>zoom " + escapeHtml(m.key) + "</h3>" +
            mapChart(m, "shading") + "</div>";
  body += "<h3>Warnings</h3>";
  if (findings.empty()) body += "<p class=\"ok\">none</p>";
  body += "<ul class=\"findings\">";
  for (const calib::Finding& f : findings)
    body += "<li class=\"warn\"><b>" + escapeHtml(f.record) + "</b>: " + escapeHtml(f.message) +
            "</li>";
  return {"coverage", "Coverage", body + "</ul>"};
}

namespace {

// Marks under the timeline's frames.
constexpr Rgb8 kFilteredMark{46, 125, 50}, kHeldMark{239, 156, 0}, kCopiedMark{198, 40, 40};

std::string optionalText(const std::optional<double>& v, int decimals) {
  return v ? fixed(*v, decimals) : "–";
}

std::string cornersText(const ReplayFrame& f) {
  if (!f.lutIndex) return "–";
  std::string t;
  for (int i = 0; i < 4; ++i) {
    t += (i ? ", " : "") + std::to_string((*f.lutIndex)[i]);
    if (f.lutWeight) t += " × " + fixed((*f.lutWeight)[i], 3);
  }
  return t;
}

}  // namespace

Section replaySection(const std::vector<ReplayFrame>& frames) {
  std::string body;
  std::vector<std::string> instances;
  for (const ReplayFrame& f : frames)
    if (std::find(instances.begin(), instances.end(), f.instance) == instances.end())
      instances.push_back(f.instance);
  // The same scene has the same colour in every instance's timeline: the
  // camera's scenes by their place in its list, anything else after them.
  const auto& known = calib::knownSceneNames();
  const auto sceneColour = [&](const std::string& scene) {
    return paletteColour(size_t(std::find(known.begin(), known.end(), scene) - known.begin()));
  };
  const auto sceneWords = [](const std::string& scene) {
    return scene.empty() ? std::string("(none)") : scene;
  };
  const auto mark = [](const ReplayFrame& f) {
    return !f.filtered ? kCopiedMark : f.heldScript.empty() ? kFilteredMark : kHeldMark;
  };
  for (const std::string& instance : instances) {
    Timeline t;
    Lane lux, cct, zoom, scene;
    lux.label = "lux";
    lux.logScale = true;
    cct.label = "CCT K";
    zoom.label = "zoom";
    scene.label = "AI scene";
    for (size_t i = 0; i < frames.size(); ++i) {
      const ReplayFrame& f = frames[i];
      if (f.instance != instance) continue;
      lux.values.push_back(f.lux.value_or(NAN));
      cct.values.push_back(f.cct.value_or(NAN));
      zoom.values.push_back(f.zoom.value_or(NAN));
      scene.categories.push_back(sceneWords(f.scene));
      scene.categoryFill.push_back(sceneColour(f.scene));
      t.frameHref.push_back("#frame-" + std::to_string(i));
      t.frameTitle.push_back("frame " + std::to_string(f.frame) + ": " + f.outcome +
                             (f.heldScript.empty() ? "" : "; " + f.heldScript));
      t.frameMark.push_back(mark(f));
    }
    t.lanes = {lux, cct, zoom, scene};
    body += "<h3 class=\"instance\">" + escapeHtml(instance) + "</h3>" + timelineChart(t);
  }
  if (!frames.empty()) {
    std::vector<std::pair<Rgb8, std::string>> scenes;
    std::set<std::string> listed;
    for (const ReplayFrame& f : frames)
      if (listed.insert(sceneWords(f.scene)).second)
        scenes.emplace_back(sceneColour(f.scene), "AI scene " + sceneWords(f.scene));
    body += colourKey(scenes);
    std::vector<std::pair<Rgb8, std::string>> marks{{kFilteredMark, "mark: filtered"},
                                                    {kCopiedMark, "mark: copied"}};
    if (std::any_of(frames.begin(), frames.end(),
                    [](const auto& f) { return !f.heldScript.empty(); }))
      marks.insert(marks.begin() + 1,
                   {kHeldMark,
                    "mark: filtered with a script held from a frame of another size "
                    "(the plugin rebuilds its script only when the selection changes)"});
    body += colourKey(marks);
  }
  for (size_t i = 0; i < frames.size(); ++i) {
    const ReplayFrame& f = frames[i];
    body += "<div class=\"frame\" id=\"frame-" + std::to_string(i) + "\"><h3>frame " +
            std::to_string(f.frame) + " (" + escapeHtml(f.instance) + ")</h3>";
    if (!f.before.empty() && !f.after.empty()) {
      body +=
          "<div class=\"compare\"><div class=\"pictures\"><img class=\"before\" "
          "alt=\"before\" src=\"" +
          f.before + "\"><img class=\"after\" alt=\"after\" src=\"" + f.after +
          "\"><span class=\"divider\"></span></div><input class=\"wipe\" type=\"range\" "
          "min=\"0\" max=\"100\" value=\"50\" aria-label=\"before/after\"></div><p "
          "class=\"note\">left of the white line: before; right of it: after (the "
          "slider moves the line)</p>";
    } else {
      body += "<p class=\"note\">" + escapeHtml(f.pictureNote) + "</p>";
    }
    body += "<table><tr><th>scene</th><td>" + escapeHtml(f.scene) +
            "</td></tr><tr><th>lux</th><td>" + optionalText(f.lux, 3) +
            "</td></tr><tr><th>CCT</th><td>" + optionalText(f.cct, 0) +
            "</td></tr><tr><th>zoom</th><td>" + optionalText(f.zoom, 3) +
            "</td></tr><tr><th>plugin</th><td>" + escapeHtml(f.outcome) + "</td></tr>";
    if (!f.detail.empty()) body += "<tr><th>why</th><td>" + escapeHtml(f.detail) + "</td></tr>";
    if (!f.heldScript.empty())
      body += "<tr><th>script size</th><td class=\"warn\">" + escapeHtml(f.heldScript) +
              ": the selection did not change, so the plugin kept an earlier frame's script, "
              "its radial gain laid out for that size</td></tr>";
    body += "<tr><th>LUT corners</th><td>" + escapeHtml(cornersText(f)) + "</td></tr>";
    if (!f.shading.empty()) {
      std::string s;
      for (size_t k = 0; k < f.shading.size(); ++k) s += (k ? ", " : "") + fixed(f.shading[k], 4);
      body += "<tr><th>shading</th><td>" + s + "</td></tr>";
    }
    body += "</table>";
    if (!f.script.empty()) body += "<pre class=\"script\">" + escapeHtml(f.script) + "</pre>";
    body += "</div>";
  }
  body +=
      "<p class=\"note\">\"changed\": the four LUT corners differ from the instance's previous "
      "frame, so the plugin re-blended.</p>";
  body +=
      "<table class=\"frames\"><tr><th>#</th><th>frame</th><th>instance</th><th>scene</th>"
      "<th>lux</th><th>CCT</th><th>zoom</th><th>plugin</th><th>LUT corners × weights</th>"
      "<th>changed</th></tr>";
  for (size_t i = 0; i < frames.size(); ++i) {
    const ReplayFrame& f = frames[i];
    body += "<tr class=\"frame-row\"><td><a href=\"#frame-" + std::to_string(i) + "\">" +
            std::to_string(i) + "</a></td><td>" + std::to_string(f.frame) + "</td><td>" +
            escapeHtml(f.instance) + "</td><td>" + escapeHtml(f.scene) + "</td><td>" +
            optionalText(f.lux, 1) + "</td><td>" + optionalText(f.cct, 0) + "</td><td>" +
            optionalText(f.zoom, 2) + "</td><td class=\"" + (f.filtered ? "ok" : "warn") + "\">" +
            escapeHtml(f.outcome) +
            (f.heldScript.empty()
                 ? ""
                 : "<br><span class=\"warn\">" + escapeHtml(f.heldScript) + "</span>") +
            "</td><td>" + escapeHtml(cornersText(f)) + "</td><td>" +
            (f.selectionChanged ? "yes" : "") + "</td></tr>";
  }
  body += "</table>";
  return {"replay", "Replay", body};
}

Section strengthSection(const std::string& caption, const std::vector<StrengthPicture>& pictures) {
  std::string body = "<p class=\"note\">" + escapeHtml(caption) + "</p><div class=\"strip\">";
  for (const StrengthPicture& p : pictures)
    body += "<figure style=\"display:inline-block;margin:4px\"><img alt=\"strength " +
            fixed(p.strength, 2) + "\" src=\"" + p.uri + "\"><figcaption>cube_strength " +
            fixed(p.strength, 2) + "</figcaption></figure>";
  return {"strength", "Strength strip", body + "</div>"};
}

}  // namespace lumo::report
