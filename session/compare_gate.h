// The regression gate over a comparison: score limits that no frame may
// cross, the scenes or LUT blocks a change is meant to touch, and the table
// the command prints.
#pragma once

#include <string>
#include <vector>

#include "compare.h"

namespace lumo {

// "p95>2.0", "max>=5", "mean>0.5", "share>0.01" (or "share>1%").
struct ScoreLimit {
  std::string metric;  // mean, p95, max, share
  bool orEqual = false;
  double value = 0;
  std::string text;  // as given
};
// Throws Failure saying what was expected.
ScoreLimit parseScoreLimit(const std::string& text);

// "scene=food", "scene=food,plants", "lut=12,13": frames in those scenes, or
// blending those LUT blocks on either side, may change.
struct ExpectedChanges {
  std::vector<std::string> scenes;
  std::vector<int> luts;
};
// Adds one --expect-changes value; throws Failure saying what was expected.
void addExpectedChanges(ExpectedChanges& expected, const std::string& text);

// One line per frame that crosses a limit or changes where no change is
// expected (nothing is expected when `expected` is empty); empty: the gate passes.
std::vector<std::string> gateFailures(const CompareResult& result,
                                      const std::vector<ScoreLimit>& limits,
                                      const ExpectedChanges& expected, bool expectSet);

// The table on stdout: the header lines and one row per frame, most changed first.
std::string compareTable(const CompareResult& result);

}  // namespace lumo
