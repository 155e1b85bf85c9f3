// Lattice regression: the normal equations of the fit are accumulated pixel
// by pixel (each pixel touches the four nodes of its tetrahedron), the
// smoothness term is added as D^T D of the second-difference operator, and
// one sparse Cholesky factorisation solves all three channels.
#include <calib/lut_fit.h>
#include <calib/lut_source.h>

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <thread>

#include "lut_fit_internal.h"

namespace calib {
namespace fit {

Geometry::Geometry(int e) : edge(e) {
  const double scale = double(e - 1) / 255;
  for (int v = 0; v < 256; ++v) {
    // The renderer's arithmetic: scale, truncate, keep the last cell closed.
    const double x = v * scale;
    index[v] = std::min(int(x), e - 2);
    fraction[v] = x - index[v];
  }
  for (int bits = 0; bits < 8; ++bits)
    step[bits] = (bits & 1) + (bits & 2 ? e : 0) + (bits & 4 ? e * e : 0);
}

Tetrahedron Geometry::locate(const uint8_t* rgb) const {
  Tetrahedron t;
  const double f[3] = {fraction[rgb[0]], fraction[rgb[1]], fraction[rgb[2]]};
  // Axes by decreasing fraction; ties keep r before g before b, as the renderer does.
  int a = 0, b = 1, c = 2;
  if (f[b] > f[a]) std::swap(a, b);
  if (f[c] > f[b]) {
    std::swap(b, c);
    if (f[b] > f[a]) std::swap(a, b);
  }
  t.cell = index[rgb[0]] + (edge - 1) * (index[rgb[1]] + (edge - 1) * index[rgb[2]]);
  t.base = index[rgb[0]] + edge * (index[rgb[1]] + edge * index[rgb[2]]);
  t.corner = {0, 1 << a, (1 << a) | (1 << b), 7};
  t.weight = {1 - f[a], f[a] - f[b], f[b] - f[c], f[c]};
  return t;
}

Normal::Normal(int e) : edge(e), gram(size_t(e) * e * e * 8), rhs(size_t(e) * e * e * 3) {
  const size_t cells = size_t(e - 1) * (e - 1) * (e - 1);
  count.assign(cells, 0);
}

void Normal::add(const Geometry& g, const uint8_t* before, const uint8_t* after) {
  const Tetrahedron t = g.locate(before);
  for (int i = 0; i < 4; ++i) {
    const size_t node = size_t(t.base + g.step[t.corner[i]]);
    double* row = &gram[node * 8];
    const double wi = t.weight[i];
    row[0] += wi * wi;
    // Corners grow along the path, so corner j - corner i is an offset with
    // non-negative steps: stored at the lower node under those steps' bits.
    for (int j = i + 1; j < 4; ++j) row[t.corner[j] ^ t.corner[i]] += wi * t.weight[j];
    double* r = &rhs[node * 3];
    r[0] += wi * after[0];
    r[1] += wi * after[1];
    r[2] += wi * after[2];
  }
  ++count[t.cell];
  ++pixels;
}

void Normal::merge(const Normal& other) {
  for (size_t i = 0; i < gram.size(); ++i) gram[i] += other.gram[i];
  for (size_t i = 0; i < rhs.size(); ++i) rhs[i] += other.rhs[i];
  for (size_t i = 0; i < count.size(); ++i) count[i] += other.count[i];
  pixels += other.pixels;
}

namespace {

using Sparse = Eigen::SparseMatrix<double>;
using Triplet = Eigen::Triplet<double>;

// Second differences of the lattice, one row per difference: along each
// axis (1, -2, 1) and across each pair of axes (the mixed difference,
// weighted sqrt 2 so that its square counts twice, as in the thin-plate energy).
Sparse secondDifferences(int e) {
  std::vector<Triplet> t;
  const int step[3] = {1, e, e * e};
  int row = 0;
  const double mixed = std::sqrt(2.0);
  for (int b = 0; b < e; ++b)
    for (int g = 0; g < e; ++g)
      for (int r = 0; r < e; ++r) {
        const int idx[3] = {r, g, b};
        const int node = r + e * (g + e * b);
        for (int a = 0; a < 3; ++a) {
          if (idx[a] == 0 || idx[a] == e - 1) continue;
          t.emplace_back(row, node - step[a], 1.0);
          t.emplace_back(row, node, -2.0);
          t.emplace_back(row, node + step[a], 1.0);
          ++row;
        }
        for (int a = 0; a < 3; ++a)
          for (int c = a + 1; c < 3; ++c) {
            if (idx[a] == e - 1 || idx[c] == e - 1) continue;
            t.emplace_back(row, node, mixed);
            t.emplace_back(row, node + step[a], -mixed);
            t.emplace_back(row, node + step[c], -mixed);
            t.emplace_back(row, node + step[a] + step[c], mixed);
            ++row;
          }
      }
  Sparse d(row, e * e * e);
  d.setFromTriplets(t.begin(), t.end());
  return d;
}

// A faint pull towards the identity, relative to the data term (a mean
// over pixels): it decides only what neither data nor smoothness decide.
constexpr double kIdentityPull = 1e-7;
// Relative residual at which the solve stops: far below a code value.
constexpr double kTolerance = 1e-9;
constexpr int kMaxIterations = 5000;

}  // namespace

int lastIterations = 0;

std::vector<float> solve(const Normal& n, double smooth, const std::vector<float>* guess,
                         int guessEdge) {
  const int e = n.edge;
  const int nodes = e * e * e;
  const double perPixel = n.pixels > 0 ? 1.0 / double(n.pixels) : 0.0;
  std::vector<Triplet> t;
  t.reserve(size_t(nodes) * 15);
  Geometry g(e);
  for (int node = 0; node < nodes; ++node) {
    const double* row = &n.gram[size_t(node) * 8];
    t.emplace_back(node, node, row[0] * perPixel + kIdentityPull);
    for (int bits = 1; bits < 8; ++bits) {
      if (row[bits] == 0) continue;
      const int other = node + g.step[bits];
      t.emplace_back(node, other, row[bits] * perPixel);
      t.emplace_back(other, node, row[bits] * perPixel);
    }
  }
  Sparse m(nodes, nodes);
  m.setFromTriplets(t.begin(), t.end());
  if (smooth > 0) {
    const Sparse d = secondDifferences(e);
    const Sparse r = Sparse(d.transpose()) * d;
    m += (smooth * (e - 1)) * r;
  }
  Eigen::MatrixXd b(nodes, 3);
  for (int node = 0; node < nodes; ++node) {
    const int idx[3] = {node % e, (node / e) % e, node / (e * e)};
    for (int c = 0; c < 3; ++c)
      b(node, c) = n.rhs[size_t(node) * 3 + c] / 255 * perPixel + kIdentityPull * idx[c] / (e - 1);
  }
  // Conjugate gradients from a guess: a direct factorisation of this 3D
  // stencil fills in far too much beyond a few thousand nodes.
  Eigen::ConjugateGradient<Sparse, Eigen::Lower | Eigen::Upper, Eigen::IncompleteCholesky<double>>
      cg;
  cg.setTolerance(kTolerance);
  cg.setMaxIterations(kMaxIterations);
  cg.compute(m);
  if (cg.info() != Eigen::Success)
    throw std::runtime_error("the fit's equations could not be prepared for solving");
  Eigen::MatrixXd start(nodes, 3);
  for (int node = 0; node < nodes; ++node) {
    const std::array<double, 3> at = {double(node % e) / (e - 1), double((node / e) % e) / (e - 1),
                                      double(node / (e * e)) / (e - 1)};
    const std::array<double, 3> v =
        guess != nullptr ? tetrahedral(guess->data(), guessEdge, at) : at;
    for (int c = 0; c < 3; ++c) start(node, c) = v[c];
  }
  Eigen::MatrixXd x(nodes, 3);
  for (int c = 0; c < 3; ++c) {
    x.col(c) = cg.solveWithGuess(b.col(c), start.col(c));
    lastIterations = cg.iterations();
  }
  std::vector<float> lattice(size_t(nodes) * 3);
  for (int node = 0; node < nodes; ++node)
    for (int c = 0; c < 3; ++c)
      lattice[size_t(node) * 3 + c] = float(std::clamp(x(node, c), 0.0, 1.0));
  return lattice;
}

std::array<double, 3> apply(const Geometry& g, const std::vector<float>& lattice,
                            const uint8_t* rgb) {
  const Tetrahedron t = g.locate(rgb);
  std::array<double, 3> out{0, 0, 0};
  for (int i = 0; i < 4; ++i) {
    const float* v = &lattice[size_t(t.base + g.step[t.corner[i]]) * 3];
    for (int c = 0; c < 3; ++c) out[c] += t.weight[i] * v[c] * 255;
  }
  return out;
}

}  // namespace fit

std::array<double, 3> applyFit(const LutFit& fit, const uint8_t rgb[3]) {
  return fit::apply(fit::Geometry(fit.edge), fit.lattice, rgb);
}

}  // namespace calib
