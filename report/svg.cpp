// SVG drawing. Coordinates are rounded to one decimal: enough for the eye,
// and the page stays small.
#include "svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "html.h"

namespace lumo::report {
namespace {

std::string num(double v) { return fixed(v, 1); }

std::string text(double x, double y, const std::string& s, const char* anchor = "start") {
  return "<text x=\"" + num(x) + "\" y=\"" + num(y) + "\" text-anchor=\"" + anchor + "\">" +
         escapeHtml(s) + "</text>";
}

// Round tick values over [lo, hi].
std::vector<double> ticks(double lo, double hi, int wanted) {
  std::vector<double> out;
  if (!(hi > lo)) return {lo};
  const double raw = (hi - lo) / wanted;
  const double mag = std::pow(10.0, std::floor(std::log10(raw)));
  double step = mag;
  for (const double m : {1.0, 2.0, 5.0, 10.0})
    if (raw <= m * mag) {
      step = m * mag;
      break;
    }
  for (double v = std::ceil(lo / step) * step; v <= hi + step * 1e-9; v += step) out.push_back(v);
  return out;
}

std::string tickLabel(double v) {
  char s[32];
  std::snprintf(s, sizeof(s), "%g", std::abs(v) < 1e-12 ? 0.0 : v);
  return s;
}

}  // namespace

std::string cssColour(const Rgb8& c) {
  char s[8];
  std::snprintf(s, sizeof(s), "#%02x%02x%02x", std::clamp(c.r, 0, 255), std::clamp(c.g, 0, 255),
                std::clamp(c.b, 0, 255));
  return s;
}

Rgb8 paletteColour(size_t index) {
  static const Rgb8 kBase[] = {{31, 119, 180},  {255, 127, 14}, {44, 160, 44},   {214, 39, 40},
                               {148, 103, 189}, {140, 86, 75},  {227, 119, 194}, {127, 127, 127},
                               {188, 189, 34},  {23, 190, 207}, {174, 199, 232}, {255, 187, 120}};
  const size_t n = sizeof(kBase) / sizeof(kBase[0]);
  Rgb8 c = kBase[index % n];
  // Past the first round, darker shades of the same hues.
  const int round = int(index / n) % 3;
  c.r = c.r * (3 - round) / 3;
  c.g = c.g * (3 - round) / 3;
  c.b = c.b * (3 - round) / 3;
  return c;
}

std::string curveChart(const std::vector<Curve>& curves, const std::string& xLabel,
                       const std::string& yLabel, int width, int height) {
  double x0 = INFINITY, x1 = -INFINITY, y0 = INFINITY, y1 = -INFINITY;
  for (const Curve& c : curves)
    for (const auto& [x, y] : c.points) {
      if (!std::isfinite(x) || !std::isfinite(y)) continue;
      x0 = std::min(x0, x);
      x1 = std::max(x1, x);
      y0 = std::min(y0, y);
      y1 = std::max(y1, y);
    }
  if (!(x1 >= x0)) x0 = 0, x1 = 1;
  if (!(y1 >= y0)) y0 = 0, y1 = 1;
  if (y1 - y0 < 1e-9) y0 -= 0.5, y1 += 0.5;
  const double pad = (y1 - y0) * 0.05;
  y0 -= pad;
  y1 += pad;
  if (x1 - x0 < 1e-12) x1 = x0 + 1;
  // The y label sits above the plot, clear of the tick labels left of it.
  const double left = 44, right = 8, top = 20, bottom = 30;
  const double pw = width - left - right, ph = height - top - bottom;
  const auto px = [&](double x) { return left + (x - x0) / (x1 - x0) * pw; };
  const auto py = [&](double y) { return top + (y1 - y) / (y1 - y0) * ph; };
  std::string svg = "<svg class=\"chart\" width=\"" + std::to_string(width) + "\" height=\"" +
                    std::to_string(height + 14 * int(curves.size())) + "\">";
  svg += "<rect x=\"" + num(left) + "\" y=\"" + num(top) + "\" width=\"" + num(pw) +
         "\" height=\"" + num(ph) + "\" fill=\"none\" stroke=\"#999\"/>";
  for (const double t : ticks(x0, x1, 5)) svg += text(px(t), top + ph + 12, tickLabel(t), "middle");
  for (const double t : ticks(y0, y1, 4)) {
    svg += "<line x1=\"" + num(left) + "\" x2=\"" + num(left + pw) + "\" y1=\"" + num(py(t)) +
           "\" y2=\"" + num(py(t)) + "\" stroke=\"#eee\"/>";
    svg += text(left - 3, py(t) + 3, tickLabel(t), "end");
  }
  svg += text(left + pw / 2, top + ph + 25, xLabel, "middle");
  svg += text(2, top - 8, yLabel);
  for (size_t i = 0; i < curves.size(); ++i) {
    const Curve& c = curves[i];
    std::string d;
    bool pen = false;
    for (const auto& [x, y] : c.points) {
      if (!std::isfinite(x) || !std::isfinite(y)) {
        pen = false;
        continue;
      }
      d += (pen ? "L" : "M") + num(px(x)) + " " + num(py(y));
      pen = true;
    }
    svg += "<path d=\"" + d + "\" fill=\"none\" stroke-width=\"1.5\" stroke=\"" +
           cssColour(c.colour) + "\"><title>" + escapeHtml(c.name) + "</title></path>";
    const double ly = height + 14.0 * double(i) + 4;
    svg += "<rect x=\"" + num(left) + "\" y=\"" + num(ly) + "\" width=\"10\" height=\"8\" fill=\"" +
           cssColour(c.colour) + "\"/>" + text(left + 14, ly + 8, c.name);
  }
  return svg + "</svg>";
}

std::string planeChart(const Plane& plane, int cellWidth, int cellHeight) {
  const size_t nx = plane.xs.size(), ny = plane.ys.size();
  const int left = 48, bottom = 30, top = 16;
  const int width = left + int(nx) * cellWidth + 10, height = top + int(ny) * cellHeight + bottom;
  std::string svg = "<svg class=\"plane\" width=\"" + std::to_string(width) + "\" height=\"" +
                    std::to_string(height) + "\">";
  svg += "<image x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(top) + "\" width=\"" +
         std::to_string(int(nx) * cellWidth) + "\" height=\"" +
         std::to_string(int(ny) * cellHeight) +
         "\" preserveAspectRatio=\"none\" style=\"image-rendering:pixelated\" href=\"" +
         plane.pictureUri + "\"/>";
  for (const Plane::Region& r : plane.regions) {
    if (r.row >= ny || r.col1 <= r.col0) continue;
    svg += "<rect class=\"hit\" x=\"" + std::to_string(left + int(r.col0) * cellWidth) + "\" y=\"" +
           std::to_string(top + int(ny - 1 - r.row) * cellHeight) + "\" width=\"" +
           std::to_string(int(r.col1 - r.col0) * cellWidth) + "\" height=\"" +
           std::to_string(cellHeight) + "\" fill=\"#000\" fill-opacity=\"0\"><title>" +
           escapeHtml(r.title) + "</title></rect>";
  }
  // Ticks: for a log axis, the powers of ten and their halves inside the range.
  if (nx > 0) {
    const auto colOf = [&](double v) {
      size_t best = 0;
      for (size_t c = 0; c < nx; ++c)
        if (std::abs(plane.xs[c] - v) < std::abs(plane.xs[best] - v)) best = c;
      return best;
    };
    std::vector<double> xt;
    if (plane.logX) {
      for (double p = 1; p <= plane.xs.back(); p *= 10) {
        if (p >= plane.xs.front()) xt.push_back(p);
        if (5 * p >= plane.xs.front() && 5 * p <= plane.xs.back()) xt.push_back(5 * p);
      }
    } else {
      xt = ticks(plane.xs.front(), plane.xs.back(), 6);
    }
    for (const double t : xt)
      svg += text(left + (double(colOf(t)) + 0.5) * cellWidth, top + double(ny) * cellHeight + 11,
                  tickLabel(t), "middle");
  }
  if (ny > 0) {
    for (const double t : ticks(plane.ys.front(), plane.ys.back(), 5)) {
      size_t best = 0;
      for (size_t r = 0; r < ny; ++r)
        if (std::abs(plane.ys[r] - t) < std::abs(plane.ys[best] - t)) best = r;
      svg +=
          text(left - 3, top + (double(ny - 1 - best) + 0.5) * cellHeight + 3, tickLabel(t), "end");
    }
  }
  svg += text(left + double(nx) * cellWidth / 2, double(height) - 4, plane.xLabel, "middle");
  svg += text(2, 10, plane.yLabel);
  return svg + "</svg>";
}

std::string timelineChart(const Timeline& t, int width) {
  const size_t frames = t.frameHref.size();
  const double left = 90, right = 8, laneH = 46, gap = 6;
  const double pw = width - left - right;
  const double step = frames > 0 ? pw / double(frames) : pw;
  const double markH = 10;
  const double height = double(t.lanes.size()) * (laneH + gap) + markH + 16;
  std::string svg = "<svg class=\"timeline\" width=\"" + std::to_string(width) + "\" height=\"" +
                    num(height) + "\">";
  const auto cx = [&](size_t i) { return left + (double(i) + 0.5) * step; };
  double y = 4;
  std::map<std::string, size_t> categoryColour;
  for (const Lane& lane : t.lanes) {
    svg += "<rect x=\"" + num(left) + "\" y=\"" + num(y) + "\" width=\"" + num(pw) +
           "\" height=\"" + num(laneH) + "\" fill=\"#fcfcfc\" stroke=\"#ddd\"/>";
    svg += text(2, y + laneH / 2 + 3, lane.label);
    if (!lane.categories.empty()) {
      for (size_t i = 0; i < lane.categories.size() && i < frames; ++i) {
        const auto at = categoryColour.try_emplace(lane.categories[i], categoryColour.size()).first;
        svg += "<rect x=\"" + num(left + double(i) * step) + "\" y=\"" + num(y + 8) +
               "\" width=\"" + num(std::max(step, 1.0)) + "\" height=\"" + num(laneH - 16) +
               "\" fill=\"" +
               cssColour(i < lane.categoryFill.size() ? lane.categoryFill[i]
                                                      : paletteColour(at->second)) +
               "\"><title>" + escapeHtml(lane.categories[i]) + "</title></rect>";
      }
    } else {
      const auto value = [&](double v) { return lane.logScale ? std::log10(std::max(v, 1.0)) : v; };
      double lo = INFINITY, hi = -INFINITY;
      for (const double v : lane.values)
        if (std::isfinite(v)) lo = std::min(lo, value(v)), hi = std::max(hi, value(v));
      if (!(hi >= lo)) lo = 0, hi = 1;
      // A lane of one value is drawn across its middle and labelled once.
      const bool flat = hi - lo < 1e-9;
      if (flat) lo -= 0.5, hi += 0.5;
      std::string d;
      bool pen = false;
      for (size_t i = 0; i < lane.values.size() && i < frames; ++i) {
        const double v = lane.values[i];
        if (!std::isfinite(v)) {
          pen = false;
          continue;
        }
        const double py = y + 4 + (hi - value(v)) / (hi - lo) * (laneH - 8);
        d += (pen ? "L" : "M") + num(cx(i)) + " " + num(py);
        pen = true;
        svg +=
            "<circle cx=\"" + num(cx(i)) + "\" cy=\"" + num(py) + "\" r=\"1.8\" fill=\"#1565c0\"/>";
      }
      svg += "<path d=\"" + d + "\" fill=\"none\" stroke=\"#1565c0\"/>";
      const auto shown = [&](double v) { return tickLabel(lane.logScale ? std::pow(10, v) : v); };
      if (flat)
        svg += text(left - 3, y + laneH / 2 + 3, shown(lo + 0.5), "end");
      else
        svg += text(left - 3, y + 10, shown(hi), "end") +
               text(left - 3, y + laneH - 2, shown(lo), "end");
    }
    y += laneH + gap;
  }
  for (size_t i = 0; i < frames; ++i) {
    if (i < t.frameMark.size() && t.frameMark[i])
      svg += "<rect x=\"" + num(left + double(i) * step) + "\" y=\"" + num(y) + "\" width=\"" +
             num(std::max(step - 1, 1.0)) + "\" height=\"" + num(markH) + "\" fill=\"" +
             cssColour(*t.frameMark[i]) + "\"/>";
    svg += "<a href=\"" + escapeHtml(t.frameHref[i]) + "\"><rect class=\"hit\" x=\"" +
           num(left + double(i) * step) + "\" y=\"0\" width=\"" + num(step) + "\" height=\"" +
           num(height) + "\" fill=\"#000\" fill-opacity=\"0\">";
    if (i < t.frameTitle.size()) svg += "<title>" + escapeHtml(t.frameTitle[i]) + "</title>";
    svg += "</rect></a>";
  }
  svg += text(left, height - 2, "frames in session order (click one for its pictures)");
  return svg + "</svg>";
}

}  // namespace lumo::report
