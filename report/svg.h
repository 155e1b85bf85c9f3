// Inline SVG charts drawn by the report itself: curves over x, a plane of
// coloured cells over a log-lux x CCT grid, and a frame timeline with one
// link per frame.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumo::report {

struct Rgb8 {
  int r = 0, g = 0, b = 0;
};
std::string cssColour(const Rgb8& c);  // "#rrggbb"
// Distinct colours for small integers (block indices, scene numbers).
Rgb8 paletteColour(size_t index);

struct Curve {
  std::string name;
  Rgb8 colour;
  std::vector<std::pair<double, double>> points;
};

// x and y ranges follow the data (y padded a little); axes with a few ticks.
std::string curveChart(const std::vector<Curve>& curves, const std::string& xLabel,
                       const std::string& yLabel, int width = 420, int height = 220);

// A plane of cells: columns along x (values in `xs`, shown on a log axis when
// `logX`), rows along y (values in `ys`, the first at the bottom). The cells
// come as one picture (thousands of SVG cells with their own hover text would
// weigh megabytes); hover texts belong to runs of cells.
struct Plane {
  std::vector<double> xs, ys;
  bool logX = true;
  std::string xLabel, yLabel;
  // The cells as one picture (a data URI of xs.size() x ys.size() pixels,
  // top row = the last of ys), and hover regions over it: a run of cells
  // [col0, col1) of one row with its text.
  std::string pictureUri;
  struct Region {
    size_t row = 0, col0 = 0, col1 = 0;
    std::string title;
  };
  std::vector<Region> regions;
};
std::string planeChart(const Plane& plane, int cellWidth = 6, int cellHeight = 6);

// Lanes stacked over one frame axis: numeric lanes as lines (NaN: no value),
// a category lane as coloured boxes, and one link per frame to `href`.
struct Lane {
  std::string label;
  std::vector<double> values;  // numeric lane
  bool logScale = false;
  std::vector<std::string> categories;  // category lane (values unused)
  std::vector<Rgb8> categoryFill;       // colour per category entry (empty: by first use)
};
struct Timeline {
  std::vector<Lane> lanes;
  std::vector<std::string> frameHref;          // one per frame
  std::vector<std::string> frameTitle;         // hover text per frame
  std::vector<std::optional<Rgb8>> frameMark;  // a mark under the frame (outcome)
};
std::string timelineChart(const Timeline& timeline, int width = 900);

}  // namespace lumo::report
