// The comparison page, on the report's page frame and picture helpers.
#include "compare_page.h"

#include <calib/colour_difference.h>

#include <algorithm>

#include "diff_section.h"
#include "html.h"
#include "pictures.h"

namespace lumo::report {
namespace {

constexpr uint32_t kPictureSide = 360;

const char* const kStyles =
    ".cmp td,.cmp th{padding:2px 8px;text-align:right;font-variant-numeric:tabular-nums}"
    ".cmp td.l,.cmp th.l{text-align:left}.cmp tr.same{color:#888}"
    ".pics{display:flex;gap:8px;flex-wrap:wrap}.pics figure{margin:0}"
    ".pics img{display:block;max-width:300px}.fail{color:#b00020;font-weight:bold}"
    ".pass{color:#1b5e20;font-weight:bold}";

std::string cell(const std::string& text, bool left = false) {
  return std::string(left ? "<td class=\"l\">" : "<td>") + escapeHtml(text) + "</td>";
}

std::string figure(const std::string& uri, const std::string& caption) {
  return "<figure><img alt=\"" + escapeHtml(caption) + "\" src=\"" + uri + "\"><figcaption>" +
         escapeHtml(caption) + "</figcaption></figure>";
}

}  // namespace

ComparePictures comparePictures(const Image& input, const Image& against, const Image& after) {
  const Image a = thumbnail(toRgba(against), kPictureSide);
  const Image b = thumbnail(toRgba(after), kPictureSide);
  Image diff = a;
  for (uint32_t y = 0; y < diff.geometry.height; ++y) {
    const uint8_t* p = a.row(y);
    const uint8_t* q = b.row(y);
    uint8_t* d = diff.row(y);
    for (uint32_t x = 0; x < diff.geometry.width; ++x, p += 4, q += 4, d += 4) {
      const double de = calib::ciede2000(calib::srgb8ToLab(p[0], p[1], p[2]),
                                         calib::srgb8ToLab(q[0], q[1], q[2]));
      const uint8_t rest = uint8_t(255 * (1 - std::clamp(de / kHeatTop, 0.0, 1.0)) + 0.5);
      d[0] = 255;
      d[1] = d[2] = rest;
      d[3] = 255;
    }
  }
  return {dataUri("image/jpeg", jpegBytes(thumbnail(toRgba(input), kPictureSide), 85)),
          dataUri("image/jpeg", jpegBytes(a, 85)), dataUri("image/jpeg", jpegBytes(b, 85)),
          dataUri("image/png", pngBytes(diff))};
}

std::string comparePage(const ComparePage& data) {
  size_t changed = 0, missing = 0;
  for (const CompareRow& r : data.rows) {
    if (!r.problem.empty())
      ++missing;
    else if (!r.identical || r.choice != "same")
      ++changed;
  }
  std::string summary = "<p>New calibration <b>" + escapeHtml(data.calibNew) + "</b> against <b>" +
                        escapeHtml(data.calibAgainst) +
                        "</b>: " + std::to_string(data.rows.size()) + " frames, " +
                        std::to_string(changed) + " changed" +
                        (missing ? ", " + std::to_string(missing) + " missing" : "") +
                        ". Distances are CIEDE2000 between the two outputs; share is the part of "
                        "the pixels above " +
                        fixed(data.threshold, 2) + ".</p>";
  if (data.gateSet) {
    if (data.gate.empty()) {
      summary += "<p class=\"pass\">Gate passed.</p>";
    } else {
      summary += "<p class=\"fail\">Gate failed:</p><ul>";
      for (const std::string& g : data.gate) summary += "<li>" + escapeHtml(g) + "</li>";
      summary += "</ul>";
    }
  }

  std::string pictures;
  for (const CompareRow& r : data.rows) {
    if (r.pictures == nullptr) continue;
    pictures += "<h3>" + escapeHtml(r.frame) + "</h3><p>scene " + escapeHtml(r.scene) + ", p95 " +
                fixed(r.p95, 2) + ", max " + fixed(r.max, 2) + "; " + escapeHtml(r.choice) +
                "</p><div class=\"pics\">" + figure(r.pictures->before, "input") +
                figure(r.pictures->against, "against " + data.calibAgainst) +
                figure(r.pictures->after, "new " + data.calibNew) +
                figure(r.pictures->difference, "difference (white 0, red 10+)") + "</div>";
  }
  if (pictures.empty()) pictures = "<p class=\"note\">No frame's pixels changed.</p>";

  std::string table =
      "<table class=\"cmp\"><tr><th class=\"l\">frame</th><th class=\"l\">scene</th><th>mean</th>"
      "<th>p95</th><th>max</th><th>share %</th><th class=\"l\">plugin's choice</th></tr>";
  for (const CompareRow& r : data.rows) {
    if (!r.problem.empty()) {
      table += "<tr>" + cell(r.frame, true) +
               "<td class=\"l\" colspan=\"6\">missing: " + escapeHtml(r.problem) + "</td></tr>";
      continue;
    }
    const bool same = r.identical && r.choice == "same";
    table += std::string(same ? "<tr class=\"same\">" : "<tr>") + cell(r.frame, true) +
             cell(r.scene, true) + cell(fixed(r.mean, 4)) + cell(fixed(r.p95, 4)) +
             cell(fixed(r.max, 4)) + cell(fixed(100 * r.share, 2)) + cell(r.choice, true) + "</tr>";
  }
  table += "</table>";
  return page("Calibration compare",
              {{"summary", "Summary", summary},
               {"pictures", "Most changed frames", pictures},
               {"frames", "Every frame", table}},
              kStyles);
}

}  // namespace lumo::report
