// Fit section: error figures, the lattice coverage picture, error bars.
#include "fit_section.h"

#include <algorithm>
#include <cstdio>

#include "pictures.h"

namespace lumo::report {
namespace {

// Slices of the coverage picture per row, and a gap between them in pixels.
constexpr int kSlicesPerRow = 4;
constexpr int kGap = 1;
// Width in CSS pixels of the coverage picture and of the longest error bar.
constexpr int kCoverageWidth = 520;
constexpr int kBarWidth = 260;

std::string general(double v) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", v);
  return text;
}

std::string errorsRow(const std::string& what, const FitErrors& e) {
  return "<tr><th>" + escapeHtml(what) + "</th><td>" + fixed(e.mean, 2) + "</td><td>" +
         fixed(e.p95, 2) + "</td><td>" + fixed(e.max, 2) + "</td><td>" + std::to_string(e.pixels) +
         "</td></tr>";
}

// Each blue slice of the lattice as a block of (edge - 1)^2 pixels, red to
// the right and green upwards; a cell with data shows its middle colour.
Image coveragePicture(const FitRecord& fit, int& columns, int& rows) {
  const int n = fit.edge - 1;
  columns = std::min(kSlicesPerRow, n);
  rows = (n + columns - 1) / columns;
  const uint32_t width = uint32_t(columns * (n + kGap) - kGap);
  const uint32_t height = uint32_t(rows * (n + kGap) - kGap);
  Image img = makeImage({PixelFormat::RGBA, width, height, width, height});
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      uint8_t* p = img.row(y) + 4 * x;
      p[0] = p[1] = p[2] = 255;
    }
  std::vector<bool> empty(size_t(n) * n * n, false);
  for (const uint32_t c : fit.emptyCells)
    if (c < empty.size()) empty[c] = true;
  const auto mid = [n](int i) { return uint8_t((2 * i + 1) * 255 / (2 * n)); };
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        const int x = (b % columns) * (n + kGap) + r;
        const int y = (b / columns) * (n + kGap) + (n - 1 - g);
        uint8_t* p = img.row(uint32_t(y)) + 4 * x;
        if (empty[size_t(r) + size_t(n) * (g + size_t(n) * b)]) {
          // Dark, with a light dot on alternate cells so the gaps read as holes.
          const uint8_t v = (r + g) % 2 == 0 ? 40 : 90;
          p[0] = p[1] = p[2] = v;
        } else {
          p[0] = mid(r), p[1] = mid(g), p[2] = mid(b);
        }
      }
  return img;
}

std::string binsTable(const std::string& caption, const std::vector<FitBin>& bins) {
  double top = 0;
  for (const FitBin& b : bins) top = std::max(top, b.mean);
  std::string html = "<table style=\"display:inline-table;margin-right:24px\"><tr><th>" +
                     escapeHtml(caption) +
                     "</th><th>pixels</th><th>mean</th><th>p95</th><th></th></tr>";
  for (const FitBin& b : bins) {
    const int w = top > 0 ? int(kBarWidth * b.mean / top + 0.5) : 0;
    html += "<tr><td>" + escapeHtml(b.label) + "</td><td>" + std::to_string(b.pixels) + "</td>";
    if (b.pixels == 0) {
      html += "<td colspan=\"3\" class=\"note\">no pixels</td></tr>";
      continue;
    }
    html += "<td>" + fixed(b.mean, 2) + "</td><td>" + fixed(b.p95, 2) +
            "</td><td><div style=\"height:10px;background:#1565c0;width:" + std::to_string(w) +
            "px\"></div></td></tr>";
  }
  return html + "</table>";
}

}  // namespace

Section fitSection(const FitRecord& fit) {
  std::string body = "<p>" + escapeHtml(fit.name) + ": " + std::to_string(fit.edge) +
                     "-point lattice, smoothness " + general(fit.smooth) + "</p>";
  body +=
      "<table><tr><th>CIEDE2000</th><th>mean</th><th>p95</th><th>max</th>"
      "<th>pixels</th></tr>" +
      errorsRow("training", fit.training) +
      errorsRow("held out (" + fit.heldOutBy + ")", fit.heldOut) + "</table>";
  for (const std::string& n : fit.notes) body += "<p class=\"warn\">" + escapeHtml(n) + "</p>";

  if (fit.edge >= 2) {
    const size_t cells = size_t(fit.edge - 1) * (fit.edge - 1) * (fit.edge - 1);
    const size_t empty = size_t(std::count_if(fit.emptyCells.begin(), fit.emptyCells.end(),
                                              [&](uint32_t c) { return c < cells; }));
    body += "<h3>Lattice coverage</h3><p class=\"note\">" + std::to_string(cells - empty) + " of " +
            std::to_string(cells) +
            " cells held data. One square per blue step (blue grows left to right, then down), "
            "red to the right and green upwards inside it; a cell that held data shows its "
            "own colour, an empty one is dark: its nodes come from the smoothness term, a "
            "guess.</p>";
    int columns = 0, rows = 0;
    const Image picture = coveragePicture(fit, columns, rows);
    body += "<img style=\"image-rendering:pixelated\" alt=\"lattice coverage\" width=\"" +
            std::to_string(kCoverageWidth) + "\" src=\"" + dataUri("image/png", pngBytes(picture)) +
            "\">";
  }
  body +=
      "<h3>Error by hue and lightness</h3><p class=\"note\">CIEDE2000 of the held-out "
      "pixels (training pixels when none were held out), by the hue and the CIELAB "
      "lightness of their after colour; colours with chroma under 8 count as "
      "neutral.</p>";
  body +=
      "<div>" + binsTable("hue", fit.byHue) + binsTable("lightness", fit.byLightness) + "</div>";
  return {"fit", "Fitted look", body};
}

}  // namespace lumo::report
