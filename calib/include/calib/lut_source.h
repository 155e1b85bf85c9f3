// LUT files as graders write them, brought onto the 17-point lattice of a
// LUT block. Everything OpenColorIO reads is accepted (.cube in the Iridas
// and Resolve dialects with their shapers and input ranges, .3dl, .clf,
// .ctf, .csp, .spi3d, ...): the file's whole transform is evaluated exactly
// at the 17^3 lattice points, so shapers, domains and the file's own
// tetrahedral interpolation are baked in. What is lost is measured: the
// block is interpolated tetrahedrally over a dense grid and compared with
// the exact transform.
#pragma once

#include <calib/calibration_file.h>
#include <calib/finding.h>

#include <array>
#include <string>
#include <vector>

namespace calib {

constexpr int kMinSourceEdge = 2;
constexpr int kMaxSourceEdge = 129;

struct LutSourceInfo {
  std::string format;   // OpenColorIO's format name ("iridas_cube", "flame", ...) or "image"
  std::string dialect;  // .cube: "Iridas" or "Resolve"; pictures: the layout ("tiles 8x8")
  std::string title;    // empty when the file has none
  int size3d = 0;       // lattice points per edge, 0 when the file has no 3D lattice
  int size1d = 0;       // entries of a 1D shaper or 1D LUT, 0 when absent
  std::array<double, 3> domainMin{0, 0, 0};
  std::array<double, 3> domainMax{1, 1, 1};
  // Pictures: set when another layout reads almost as close to the identity.
  std::string layoutDoubt;
  // The file's own 3D lattice, red index fastest, RGB floats (empty without one).
  std::vector<float> lattice;
};

// In 8-bit code values over a dense grid of the unit cube.
struct ResampleError {
  double max = 0;
  double mean = 0;
};

struct LutImport {
  LutBlock lut;
  LutSourceInfo info;
  ResampleError error;
};

// Throws std::runtime_error "FILE: ..." naming what could not be read.
// Pictures (.png, .jpg) are read as Hald CLUTs or 2D tile layouts
// (image_lut.h); `imageLayout` forces one ("hald", "tiles", "strip", ...).
LutImport importLut(const std::string& path, const std::string& imageLayout = "");

// Tetrahedral interpolation in a lattice of `edge` points, red fastest,
// RGB floats; `rgb` in 0..1.
std::array<double, 3> tetrahedral(const float* lattice, int edge, const std::array<double, 3>& rgb);

// Lattice order as seen by correlating each output channel with the lattice
// indices: a file written blue-fastest reads back with red following the blue index.
bool looksBlueFastest(const std::vector<float>& lattice, int edge);

// Text for the build report: "33-point lattice resampled to 17 ...".
std::string describeImport(const LutImport& import);

}  // namespace calib

namespace calib {

// What looks wrong with a source, as warnings without a record; the rule is
// stable for scripts: "blue-fastest", "out-of-range", "nan", "domain",
// "near-identity", "near-constant", "layout-ambiguous".
std::vector<Finding> lutProblems(const LutImport& import);

}  // namespace calib
