// The report's section for a fitted look: which cells of the lattice held
// data, and the error on held-out pixels by hue and by lightness.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "html.h"

namespace lumo::report {

struct FitErrors {
  size_t pixels = 0;
  double mean = 0, p95 = 0, max = 0;
};

struct FitBin {
  std::string label;  // "hue 0-30", "neutral", "L* 40-60"
  size_t pixels = 0;
  double mean = 0, p95 = 0;
};

struct FitRecord {
  std::string name;  // the written .cube
  int edge = 0;      // lattice points per axis
  double smooth = 0;
  std::vector<uint32_t> emptyCells;  // r + g * (edge - 1) + b * (edge - 1)^2
  std::string heldOutBy;
  FitErrors training, heldOut;
  std::vector<FitBin> byHue, byLightness;
  std::vector<std::string> notes;
};

// The errors as figures, the coverage as one small map per blue slice of
// the lattice (red across, green up; a cell with data in its own colour, an
// empty one dark and crossed), the error by hue and by lightness as bars.
Section fitSection(const FitRecord& fit);

}  // namespace lumo::report
