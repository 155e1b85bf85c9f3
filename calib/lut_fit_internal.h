// Pieces of the look fit shared by its files: where a colour lands in the
// lattice, the normal equations, the solve.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace calib::fit {

// The tetrahedron of one colour: the cell's low node, the four corners as
// step bits (1 red, 2 green, 4 blue) from it, and their weights.
struct Tetrahedron {
  int cell = 0;
  int base = 0;
  std::array<int, 4> corner{};
  std::array<double, 4> weight{};
};

// Per-channel tables of an `edge`-point lattice over 8-bit code values.
struct Geometry {
  explicit Geometry(int edge);
  Tetrahedron locate(const uint8_t* rgb) const;

  int edge;
  std::array<int, 256> index{};
  std::array<double, 256> fraction{};
  std::array<int, 8> step{};  // node offset of each step-bit combination
};

// The upper half of A^T A stored per node (slot 0 the diagonal, slot b the
// node `step[b]` further on), A^T y per node in code values, and the
// pixels per cell.
struct Normal {
  explicit Normal(int edge);
  void add(const Geometry& g, const uint8_t* before, const uint8_t* after);
  void merge(const Normal& other);

  int edge;
  std::vector<double> gram;
  std::vector<double> rhs;
  std::vector<uint32_t> count;
  size_t pixels = 0;
};

// The lattice (red fastest, RGB 0..1, clamped) minimising the data term
// plus `smooth` times the second-difference energy. The solver starts from
// `guess` (a lattice of `guessEdge` points, interpolated) or the identity.
std::vector<float> solve(const Normal& normal, double smooth,
                         const std::vector<float>* guess = nullptr, int guessEdge = 0);
extern int lastIterations;  // of the last channel solved, for tuning

// A colour through the lattice, in code values (unrounded).
std::array<double, 3> apply(const Geometry& g, const std::vector<float>& lattice,
                            const uint8_t* rgb);

}  // namespace calib::fit
