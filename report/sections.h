// The report's sections, each built from plain records: the calibration
// grid with swatches and shading curves, the coverage maps with warnings in
// words, the replay timeline with per-frame pictures, and the strength strip.
#pragma once

#include <calib/calibration_file.h>
#include <calib/finding.h>

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "coverage.h"
#include "html.h"
#include "svg.h"

namespace lumo::report {

// Names of LUT blocks by index (the looks a file was built from); a block
// without one is shown by its number.
using BlockNames = std::map<size_t, std::string>;
// "warm_day (block 3)", or "block 3".
std::string blockLabel(const BlockNames& names, size_t block);

// Calibration: per scene the lux x CCT grid of its bands, each cell with its
// look's name (or block index) and a swatch of that LUT on the reference
// chart; shading per zoom ratio as a table and a plot of each block's radial
// gain. Swatch pictures go into `styles` once per block.
Section calibrationSection(const calib::CalibrationFile& file, std::string& styles,
                           const BlockNames& names = {});

// Findings in words about how the selection covers the calibration, each a
// warning on "scene NAME" or "zoom RATIO": what the band trees alone say
// (selectionFindings) and what the maps show (a block no sample ever chooses).
// `probe`, when given, also tries the middle and both limits of every band,
// so a narrow band between two samples of the maps is not taken for unused.
std::vector<calib::Finding> coverageFindings(const calib::CalibrationFile& file,
                                             const std::vector<CoverageMap>& scenes,
                                             const std::vector<CoverageMap>& zooms,
                                             const SelectionProbe* probe = nullptr);

// Coverage: the maps as coloured planes (each block index its colour, a
// blend the weighted mix), hover text with corners and weights, then the
// findings.
Section coverageSection(const std::vector<CoverageMap>& scenes,
                        const std::vector<CoverageMap>& zooms,
                        const std::vector<calib::Finding>& findings, const BlockNames& names = {});

// One replayed frame as the report shows it.
struct ReplayFrame {
  uint32_t frame = 0;
  std::string instance;  // "preview", "snapshot", "modeN"
  std::optional<double> lux, cct, zoom;
  std::string scene;  // the scene the plugin logged
  bool filtered = false;
  std::string outcome;  // "filtered", "copied: why"
  std::string detail;
  std::optional<std::array<int, 4>> lutIndex;
  std::optional<std::array<double, 4>> lutWeight;
  std::vector<double> shading;
  std::string script;
  bool selectionChanged = false;  // corners differ from the instance's previous frame
  // A filtered frame rendered with a script the plugin kept from an earlier
  // frame of another size ("held script made for 4000x3000 on a 1280x720 frame").
  std::string heldScript;
  std::string before, after;  // data URIs (empty: left out)
  std::string pictureNote;    // why pictures are missing
};

// Replay: a timeline per instance (lux, CCT, zoom, scene lanes, a mark per
// frame for filtered or copied), a table of every frame, and for each frame
// a panel (shown when its link is followed) with the before/after slider, its
// metadata and its effect script.
Section replaySection(const std::vector<ReplayFrame>& frames);

// Strength strip: one picture per LUT strength.
struct StrengthPicture {
  double strength = 0;
  std::string uri;
};
Section strengthSection(const std::string& caption, const std::vector<StrengthPicture>& pictures);

// The LUT strengths of the strip.
constexpr std::array<double, 5> kStrengths = {0.0, 0.25, 0.5, 0.75, 1.0};

// Colour of a coverage sample: the weighted mix of its corners' colours;
// grey when the scene has no set, dark red when a corner is outside the pool
// or a weight is not finite.
Rgb8 sampleColour(const CoverageSample& sample);

}  // namespace lumo::report
