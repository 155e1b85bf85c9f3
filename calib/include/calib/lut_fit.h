// Look matching: a 3D LUT fitted to before/after pictures by lattice
// regression. Every before colour lands in one tetrahedron of the lattice
// exactly as the renderer interpolates it (red fastest, the path from the
// cell's low corner to its high corner along the axes in decreasing order of
// their fractions), so the fitted nodes are the best ones for that
// interpolation. The fit minimises
//   mean over pixels of |interpolated(before) - after|^2
//   + smooth * (edge - 1) * sum over nodes of the squared second differences
//     (along each axis and, doubled, across each pair of axes),
// which approximates smooth times the integral of the squared second
// derivatives over the unit cube whatever the lattice size: an affine look
// costs nothing, and cells without data are filled by the smoothest
// continuation of their neighbours. A faint pull towards the identity keeps
// the system solvable when the pictures hold almost no colours.
#pragma once

#include <calib/image_lut.h>

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace calib {

// One pair of 8-bit RGB pictures of the same scene, before and after the look.
struct FitPair {
  std::string name;  // "before.png / after.png", for messages
  RgbImage before, after;
};

// Without a given smoothness the fit tries these and keeps the one with the
// lowest held-out error: pictures that cover the cube want little smoothing
// (the data decide), a few photos want more (the gaps between their colours
// are bridged smoothly). docs/look-matching.md has the measurements.
constexpr double kSmoothCandidates[] = {1e-7, 1e-6, 1e-5, 1e-4};
// Used when nothing could be held out.
constexpr double kFallbackSmooth = 1e-5;
constexpr double kChooseSmooth = -1;
// Pearson correlation of the luma gradients of before and after below which
// a pair is taken for misaligned.
constexpr double kMinGradientCorrelation = 0.3;
// Coverage below which the fit warns that it describes only a corner of the cube.
constexpr double kTinyCoverage = 0.02;

struct FitOptions {
  int edge = 17;                  // 17, 33 or 65 points per axis
  double smooth = kChooseSmooth;  // >= 0: as given; kChooseSmooth: by held-out error
  unsigned threads = 0;           // 0: one per core
};

// CIEDE2000 over a set of pixels.
struct ErrorStats {
  size_t pixels = 0;  // pixels measured (a sample of large sets)
  double mean = 0, p95 = 0, p99 = 0, max = 0;
};

// Held-out error of the pixels whose after colour falls in one hue sector
// or lightness band.
struct ErrorBin {
  std::string label;  // "hue 0-30", "neutral", "L* 20-40"
  size_t pixels = 0;
  double mean = 0;
  double p95 = 0;
};

struct LutFit {
  int edge = 0;
  double smooth = 0;
  // Smoothness values tried and their held-out mean CIEDE2000 (empty when given).
  std::vector<std::pair<double, double>> smoothTried;
  std::vector<float> lattice;  // edge^3 RGB nodes, red fastest, 0..1
  size_t cells = 0;            // (edge - 1)^3
  // Cells no training pixel fell in (r + g * (edge - 1) + b * (edge - 1)^2):
  // their nodes come from the smoothness term alone.
  std::vector<uint32_t> emptyCells;
  double coverage() const { return cells == 0 ? 0 : 1 - double(emptyCells.size()) / cells; }

  std::string heldOutBy;  // what was held out, in words
  size_t trainingPixels = 0, heldOutPixels = 0;
  // Training pixels through the LUT fitted to them; held-out pixels through
  // the same LUT, which never saw them. The LUT written out is then fitted
  // to every pixel.
  ErrorStats training, heldOut;
  std::vector<ErrorBin> byHue, byLightness;  // held-out pixels (training without any)
  bool identity = false;                     // every before equals its after
  std::vector<std::string> notes;            // what the user should know, in words
};

// Throws std::runtime_error "NAME: ..." for pictures of different sizes,
// empty pictures, and pairs whose luma gradients hardly correlate.
void checkPair(const FitPair& pair);
// Pearson correlation of the luma gradients of two same-sized pictures;
// 1 when either is flat (nothing to misalign).
double gradientCorrelation(const RgbImage& a, const RgbImage& b);

// Throws std::invalid_argument for a bad option, std::runtime_error for bad pairs.
LutFit fitLut(const std::vector<FitPair>& pairs, const FitOptions& options = {});

// The fitted colour of an 8-bit before colour, in code values 0..255 (unrounded).
std::array<double, 3> applyFit(const LutFit& fit, const uint8_t rgb[3]);

// TITLE, LUT_3D_SIZE and the nodes red fastest (LF line endings).
std::string fitCubeText(const LutFit& fit, const std::string& title);
nlohmann::json fitJson(const LutFit& fit);
std::vector<std::string> fitLines(const LutFit& fit);

// Reading pairs from files: PNG, JPEG or raw frames (geometry in the name),
// as 8-bit RGB. Throws std::runtime_error naming the file for anything
// unreadable, for 16-bit PNGs and for pictures of different sizes.
FitPair loadFitPair(const std::string& before, const std::string& after);
// DIR/before/NAME with DIR/after/NAME, by sorted name; throws when a folder
// is missing, a name has no partner, or there is no pair at all.
std::vector<std::pair<std::string, std::string>> pairsInFolder(const std::string& dir);

}  // namespace calib
