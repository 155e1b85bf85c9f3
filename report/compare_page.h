// The page of a calibration comparison over captures: a summary, the gate's
// verdict, a table of every frame (most changed first) and, for the most
// changed frames, the input beside both outputs and a map of where they differ.
#pragma once

#include <string>
#include <vector>

#include "image.h"

namespace lumo::report {

// Data URIs of one frame's small pictures.
struct ComparePictures {
  std::string before, against, after, difference;
};
// From the input and the two outputs (one geometry, any pixel format); the
// difference map is white where the outputs agree and full red at a
// CIEDE2000 of 10 or more.
ComparePictures comparePictures(const Image& input, const Image& against, const Image& after);

struct CompareRow {
  std::string frame;  // "session:line (frame N, instance)"
  std::string scene;
  double mean = 0, p95 = 0, max = 0, share = 0;
  bool identical = true;
  std::string choice;   // "same" or what changed, with both choices
  std::string problem;  // the frame did not run
  const ComparePictures* pictures = nullptr;
};

struct ComparePage {
  std::string calibNew, calibAgainst;
  double threshold = 2.0;
  std::vector<std::string> gate;  // failures; empty when the gate passed (or none was set)
  bool gateSet = false;
  std::vector<CompareRow> rows;  // most changed first
};

std::string comparePage(const ComparePage& data);

}  // namespace lumo::report
