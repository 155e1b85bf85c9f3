// Diff section: heat maps of chart colour differences and the worst cells.
#include "diff_section.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <tuple>
#include <vector>

#include "calib_diff.h"
#include "pictures.h"

namespace lumo::report {
namespace {

constexpr size_t kWorstCells = 5;

struct CellDelta {
  std::string where;
  uint16_t blockA = 0, blockB = 0;  // the baseline's block, the changed file's
  ChartDelta delta;
};

bool inPool(const calib::CalibrationFile& f, uint16_t index) {
  return index < f.luts.size() && f.luts[index].size() == calib::kLutBlockBytes;
}

std::string heat(double mean) {
  const double t = std::clamp(mean / kHeatTop, 0.0, 1.0);
  char colour[32];
  std::snprintf(colour, sizeof(colour), "rgb(255,%d,%d)", int(255 * (1 - t)), int(255 * (1 - t)));
  return colour;
}

std::string swatchClass(const std::string& side, uint16_t block) {
  return "d" + side + std::to_string(block);
}

}  // namespace

Section diffSection(const calib::CalibrationFile& baseline, const calib::CalibrationFile& changed,
                    const std::string& baselineName, const std::string& changedName,
                    std::string& styles, const BlockNames& baselineBlocks,
                    const BlockNames& changedBlocks) {
  const std::string was = escapeHtml(baselineName), now = escapeHtml(changedName);
  std::string body = "<p class=\"baseline\">Baseline: <b>" + was + "</b>; changed: <b>" + now +
                     "</b>. Every change reads from the baseline to the changed file.</p>";
  body += "<p class=\"note\">Each cell: CIEDE2000 between " + was + "'s and " + now +
          "'s LUT for the same scene, lux band and CCT band, over the 24 patches of the colour "
          "checker (mean, and maximum in the hover text); white is no change, full red a mean "
          "of " +
          fixed(kHeatTop, 0) + " or more.</p>";
  std::vector<CellDelta> cells;
  for (const calib::SceneBlock& sn : changed.scenes) {
    const auto sb = std::find_if(baseline.scenes.begin(), baseline.scenes.end(),
                                 [&](const calib::SceneBlock& s) { return s.name == sn.name; });
    body += "<h3 class=\"scene\">scene " + escapeHtml(sn.name) + "</h3>";
    if (sb == baseline.scenes.end()) {
      body += "<p class=\"warn\">not in " + was + " (added)</p>";
      continue;
    }
    body += "<table class=\"diff\">";
    for (size_t l = 0; l < sn.luxBands.size(); ++l) {
      const calib::LuxBand& ln = sn.luxBands[l];
      body +=
          "<tr><th>lux " + std::to_string(ln.start) + "&ndash;" + std::to_string(ln.end) + "</th>";
      for (size_t c = 0; c < ln.ccts.size(); ++c) {
        const calib::CctBand& cn = ln.ccts[c];
        const bool there = l < sb->luxBands.size() && c < sb->luxBands[l].ccts.size();
        const uint16_t ib = there ? sb->luxBands[l].ccts[c].index : 0;
        if (!there || !inPool(changed, cn.index) || !inPool(baseline, ib)) {
          body += "<td class=\"warn\">no cell to compare</td>";
          continue;
        }
        CellDelta cell{
            sn.name + ", lux band " + std::to_string(l) + ", cct band " + std::to_string(c), ib,
            cn.index, lutDelta(baseline.luts[ib], changed.luts[cn.index])};
        body +=
            "<td class=\"heat\" style=\"background:" + heat(cell.delta.mean) + "\" title=\"" +
            escapeHtml(cell.where + ": " + blockLabel(baselineBlocks, ib) + " -> " +
                       blockLabel(changedBlocks, cn.index) + ", max " + fixed(cell.delta.max, 2)) +
            "\">" + fixed(cell.delta.mean, 2) + "</td>";
        cells.push_back(std::move(cell));
      }
      body += "</tr>";
    }
    body += "</table>";
  }

  const std::vector<DiffEntry> changes = diffCalibration(baseline, changed);
  body += "<h3>Changes from " + was + " to " + now + "</h3>";
  if (changes.empty()) body += "<p>none</p>";
  body += "<ul class=\"changes\">";
  for (const DiffEntry& e : changes) body += "<li>" + escapeHtml(diffLine(e)) + "</li>";
  body += "</ul>";

  std::sort(cells.begin(), cells.end(),
            [](const CellDelta& x, const CellDelta& y) { return x.delta.max > y.delta.max; });
  while (!cells.empty() && cells.back().delta.max <= 0) cells.pop_back();
  if (cells.size() > kWorstCells) cells.resize(kWorstCells);
  body += "<h3>Worst cells</h3>";
  if (cells.empty()) body += "<p>every compared cell renders the chart alike</p>";
  const Image chart = referenceChart();
  std::map<std::string, bool> drawn;
  for (const CellDelta& cell : cells) {
    body += "<div class=\"worst\"><p>" + escapeHtml(cell.where) + ": mean " +
            fixed(cell.delta.mean, 2) + ", max " + fixed(cell.delta.max, 2) + "</p>";
    for (const auto& [side, file, block, name, blocks] :
         {std::tuple{std::string("a"), &baseline, cell.blockA, &baselineName, &baselineBlocks},
          std::tuple{std::string("b"), &changed, cell.blockB, &changedName, &changedBlocks}}) {
      const std::string cls = swatchClass(side, block);
      if (drawn.emplace(cls, true).second)
        styles += "." + cls + "{background-image:url(" +
                  dataUri("image/png", pngBytes(applyLut(chart, file->luts[block].data()))) + ")}";
      body += "<div class=\"cell\"><div class=\"swatch " + cls + "\"></div><br>" +
              escapeHtml(*name) + "<br>" + escapeHtml(blockLabel(*blocks, block)) + "</div>";
    }
    body += "</div>";
  }
  return {"diff", "Diff", body};
}

}  // namespace lumo::report
