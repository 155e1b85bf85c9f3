// The look fit over picture pairs: checks, the split into training and
// held-out pixels, the accumulation on worker threads, the two solves and
// the error measured in CIEDE2000.
#include <calib/colour_difference.h>
#include <calib/lut_fit.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "jfif.h"
#include "lut_fit_internal.h"

namespace calib {
namespace {

// One pair: pixels are held out in tiles (a held-out pixel's neighbours
// are held out with it, so the check is not a near copy of training data).
constexpr int kTile = 16;
constexpr uint32_t kHeldOutOneIn = 5;
// Pixels measured per set: enough for a steady 99th percentile.
constexpr size_t kSampleTarget = 400000;
// Chroma under which a colour counts as neutral in the hue breakdown.
constexpr double kNeutralChroma = 8;
constexpr int kHueSector = 30;
constexpr int kLightnessBand = 20;
// Rows per unit of work of the accumulation.
constexpr int kBandRows = 64;
// The lattice the smoothness is chosen on and larger fits start from.
constexpr int kCoarseEdge = 17;
// Positions compared when checking alignment, and how much better a shifted
// after picture must line up before the pair counts as misaligned.
constexpr double kGradientSamples = 100000;
constexpr double kShiftMargin = 0.05;
constexpr int kMaxShift = 16;  // pixels, along rows, columns and diagonals

bool heldOutTile(int x, int y) {
  uint32_t h = uint32_t(x / kTile) * 73856093u ^ uint32_t(y / kTile) * 19349663u;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  h ^= h >> 15;
  return h % kHeldOutOneIn == 0;
}

struct Split {
  bool byPairs = false;
  std::vector<bool> heldPair;  // byPairs: which pairs are held out
  bool held(size_t pair, int x, int y) const {
    return byPairs ? bool(heldPair[pair]) : heldOutTile(x, y);
  }
};

Split splitOf(const std::vector<FitPair>& pairs, std::string& said) {
  Split s;
  s.heldPair.assign(pairs.size(), false);
  if (pairs.size() >= 3) {
    s.byPairs = true;
    said = "whole pairs:";
    for (size_t i = 2; i < pairs.size(); i += kHeldOutOneIn) {
      s.heldPair[i] = true;
      said += (said.back() == ':' ? " " : ", ") + pairs[i].name;
    }
  } else {
    said = "1 in " + std::to_string(kHeldOutOneIn) + " tiles of " + std::to_string(kTile) + " x " +
           std::to_string(kTile) + " pixels";
  }
  return s;
}

// The normal equations of one lattice size, training and held-out apart.
struct Level {
  fit::Geometry g;
  fit::Normal training, heldOut;
  explicit Level(int edge) : g(edge), training(edge), heldOut(edge) {}
  void merge(const Level& other) {
    training.merge(other.training);
    heldOut.merge(other.heldOut);
  }
};

// One pass over the pixels fills every lattice size in `edges`.
std::vector<Level> accumulate(const std::vector<FitPair>& pairs, const Split& split,
                              const std::vector<int>& edges, unsigned threads) {
  struct Work {
    size_t pair;
    int row0, row1;
  };
  std::vector<Work> work;
  for (size_t p = 0; p < pairs.size(); ++p)
    for (int y = 0; y < pairs[p].before.height; y += kBandRows)
      work.push_back({p, y, std::min(y + kBandRows, pairs[p].before.height)});
  threads = std::max(1u, std::min<unsigned>(threads, unsigned(work.size())));
  std::vector<std::vector<Level>> parts(threads);
  for (auto& part : parts)
    for (const int e : edges) part.emplace_back(e);
  std::atomic<size_t> next{0};
  const auto run = [&](std::vector<Level>& into) {
    for (size_t w; (w = next.fetch_add(1)) < work.size();) {
      const Work& job = work[w];
      const FitPair& pair = pairs[job.pair];
      const int width = pair.before.width;
      for (int y = job.row0; y < job.row1; ++y) {
        const uint8_t* b = &pair.before.rgb[size_t(y) * width * 3];
        const uint8_t* a = &pair.after.rgb[size_t(y) * width * 3];
        for (int x = 0; x < width; ++x) {
          const bool held = split.held(job.pair, x, y);
          for (Level& l : into) (held ? l.heldOut : l.training).add(l.g, b + 3 * x, a + 3 * x);
        }
      }
    }
  };
  std::vector<std::thread> pool;
  for (unsigned t = 1; t < threads; ++t) pool.emplace_back(run, std::ref(parts[t]));
  run(parts[0]);
  for (std::thread& t : pool) t.join();
  for (unsigned t = 1; t < threads; ++t)
    for (size_t l = 0; l < edges.size(); ++l) parts[0][l].merge(parts[t][l]);
  return std::move(parts[0]);
}

ErrorStats statsOf(std::vector<double> errors) {
  ErrorStats s;
  s.pixels = errors.size();
  if (errors.empty()) return s;
  std::sort(errors.begin(), errors.end());
  double sum = 0;
  for (const double e : errors) sum += e;
  s.mean = sum / double(errors.size());
  const auto at = [&](double q) { return errors[size_t(q * double(errors.size() - 1))]; };
  s.p95 = at(0.95);
  s.p99 = at(0.99);
  s.max = errors.back();
  return s;
}

struct Measured {
  std::vector<double> training, heldOut;
  std::vector<Lab> heldOutTarget, trainingTarget;
};

// A sample of the pixels through `lattice`, rounded to code values as the
// renderer writes them, against the after pictures.
Measured measure(const std::vector<FitPair>& pairs, const Split& split, const LutFit& fit,
                 bool heldOutOnly = false) {
  size_t total = 0;
  for (const FitPair& p : pairs) total += size_t(p.before.width) * p.before.height;
  // An odd stride walks across the tile grid instead of along it.
  const size_t stride = std::max<size_t>(1, total / kSampleTarget) | 1;
  const fit::Geometry g(fit.edge);
  Measured m;
  size_t k = 0;
  for (size_t p = 0; p < pairs.size(); ++p) {
    const FitPair& pair = pairs[p];
    const size_t n = size_t(pair.before.width) * pair.before.height;
    for (; k < n; k += stride) {
      const int x = int(k % pair.before.width), y = int(k / pair.before.width);
      const bool held = split.held(p, x, y);
      if (heldOutOnly && !held) continue;
      const uint8_t* b = &pair.before.rgb[k * 3];
      const uint8_t* a = &pair.after.rgb[k * 3];
      const std::array<double, 3> got = fit::apply(g, fit.lattice, b);
      uint8_t out[3];
      for (int c = 0; c < 3; ++c)
        out[c] = uint8_t(std::clamp(std::floor(got[c] + 0.5), 0.0, 255.0));
      const Lab want = srgb8ToLab(a[0], a[1], a[2]);
      const double de = ciede2000(srgb8ToLab(out[0], out[1], out[2]), want);
      if (held) {
        m.heldOut.push_back(de);
        m.heldOutTarget.push_back(want);
      } else {
        m.training.push_back(de);
        m.trainingTarget.push_back(want);
      }
    }
    k -= n;
  }
  return m;
}

std::vector<ErrorBin> binsOf(const std::vector<double>& errors, const std::vector<Lab>& targets,
                             bool byHue) {
  const int bins = byHue ? 360 / kHueSector + 1 : 100 / kLightnessBand;
  std::vector<std::vector<double>> split(bins);
  for (size_t i = 0; i < errors.size(); ++i) {
    const Lab& t = targets[i];
    int bin;
    if (byHue)
      bin = chroma(t) < kNeutralChroma ? bins - 1
                                       : std::min(bins - 2, int(hueDegrees(t) / kHueSector));
    else
      bin = std::clamp(int(t[0] / kLightnessBand), 0, bins - 1);
    split[bin].push_back(errors[i]);
  }
  std::vector<ErrorBin> out;
  for (int bin = 0; bin < bins; ++bin) {
    ErrorBin b;
    if (byHue)
      b.label = bin == bins - 1 ? "neutral"
                                : "hue " + std::to_string(bin * kHueSector) + "-" +
                                      std::to_string((bin + 1) * kHueSector);
    else
      b.label = "L* " + std::to_string(bin * kLightnessBand) + "-" +
                std::to_string((bin + 1) * kLightnessBand);
    const ErrorStats s = statsOf(std::move(split[bin]));
    b.pixels = s.pixels;
    b.mean = s.mean;
    b.p95 = s.p95;
    out.push_back(std::move(b));
  }
  return out;
}

bool samePictures(const std::vector<FitPair>& pairs) {
  return std::all_of(pairs.begin(), pairs.end(),
                     [](const FitPair& p) { return p.before.rgb == p.after.rgb; });
}

std::string percent(double share) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f%%", 100 * share);
  return text;
}

// Luma of both pictures for comparing their gradients, at most about
// kGradientSamples positions on a regular grid.
class Gradients {
public:
  Gradients(const RgbImage& a, const RgbImage& b)
      : m_width(a.width), m_height(a.height), m_a(lumaOf(a)), m_b(lumaOf(b)) {
    const double pixels = double(m_width) * m_height;
    m_step = std::max(1, int(std::sqrt(pixels / kGradientSamples)));
  }

  // Pearson correlation of a's gradients at (x, y) with b's at (x + dx, y + dy);
  // 1 when either is flat (nothing to misalign). A look may invert tones: the
  // sign says nothing about alignment.
  double correlation(int dx, int dy) const {
    double sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0, n = 0;
    const auto take = [&](double x, double y) {
      sx += x, sy += y, sxx += x * x, syy += y * y, sxy += x * y, n += 1;
    };
    const int x0 = std::max(0, -dx), x1 = std::min(m_width, m_width - dx) - 1;
    const int y0 = std::max(0, -dy), y1 = std::min(m_height, m_height - dy) - 1;
    for (int y = y0; y < y1; y += m_step)
      for (int x = x0; x < x1; x += m_step) {
        const size_t i = size_t(y) * m_width + x;
        const size_t j = size_t(y + dy) * m_width + (x + dx);
        take(m_a[i + 1] - m_a[i], m_b[j + 1] - m_b[j]);
        take(m_a[i + m_width] - m_a[i], m_b[j + m_width] - m_b[j]);
      }
    if (n == 0) return 1;
    const double vx = sxx - sx * sx / n, vy = syy - sy * sy / n;
    if (vx < 1e-6 * n || vy < 1e-6 * n) return 1;
    return std::fabs(sxy - sx * sy / n) / std::sqrt(vx * vy);
  }

private:
  static std::vector<float> lumaOf(const RgbImage& p) {
    std::vector<float> out(size_t(p.width) * p.height);
    for (size_t i = 0; i < out.size(); ++i)
      out[i] = float(lumo::jfif::kRToY * p.rgb[3 * i] + lumo::jfif::kGToY * p.rgb[3 * i + 1] +
                     lumo::jfif::kBToY * p.rgb[3 * i + 2]);
    return out;
  }

  int m_width, m_height;
  std::vector<float> m_a, m_b;
  int m_step = 1;
};

}  // namespace

double gradientCorrelation(const RgbImage& a, const RgbImage& b) {
  return Gradients(a, b).correlation(0, 0);
}

void checkPair(const FitPair& pair) {
  const RgbImage &b = pair.before, &a = pair.after;
  if (b.width != a.width || b.height != a.height)
    throw std::runtime_error(pair.name + ": sizes differ: before " + std::to_string(b.width) +
                             " x " + std::to_string(b.height) + ", after " +
                             std::to_string(a.width) + " x " + std::to_string(a.height) +
                             " (the fit compares the pictures pixel by pixel)");
  if (b.width <= 0 || b.height <= 0 || b.rgb.size() != size_t(b.width) * b.height * 3 ||
      a.rgb.size() != b.rgb.size())
    throw std::runtime_error(pair.name + ": empty picture");
  const Gradients gradients(b, a);
  const double r = gradients.correlation(0, 0);
  char text[1024];
  if (r < kMinGradientCorrelation) {
    std::snprintf(text, sizeof(text),
                  ": pictures look misaligned: their luma gradients correlate at %.2f (at least "
                  "%.2f expected); the fit needs the same framing, pixel for pixel",
                  r, kMinGradientCorrelation);
    throw std::runtime_error(pair.name + text);
  }
  // A look changes colours where they are; a shifted after picture lines up
  // better with the before once moved back.
  int bestX = 0, bestY = 0;
  double best = r;
  for (int d = 1; d <= kMaxShift; ++d)
    for (const int dy : {-d, 0, d})
      for (const int dx : {-d, 0, d}) {
        if (dx == 0 && dy == 0) continue;
        const double shifted = gradients.correlation(dx, dy);
        if (shifted > best) best = shifted, bestX = dx, bestY = dy;
      }
  if (best > r + kShiftMargin) {
    std::snprintf(text, sizeof(text),
                  ": pictures look misaligned: after lines up with before when moved by %d, %d "
                  "pixels (luma gradients correlate at %.2f there, %.2f as given); the fit "
                  "needs the same framing, pixel for pixel",
                  -bestX, -bestY, best, r);
    throw std::runtime_error(pair.name + text);
  }
}

LutFit fitLut(const std::vector<FitPair>& pairs, const FitOptions& options) {
  if (options.edge != 17 && options.edge != 33 && options.edge != 65)
    throw std::invalid_argument("lattice size " + std::to_string(options.edge) +
                                ": 17, 33 or 65 expected");
  if (options.smooth != kChooseSmooth && !(options.smooth >= 0 && std::isfinite(options.smooth)))
    throw std::invalid_argument("smoothness must be a finite number >= 0");
  if (pairs.empty()) throw std::invalid_argument("no picture pairs to fit");
  for (const FitPair& p : pairs) checkPair(p);

  LutFit fit;
  fit.edge = options.edge;
  fit.smooth = options.smooth;
  fit.cells = size_t(fit.edge - 1) * (fit.edge - 1) * (fit.edge - 1);
  const Split split = splitOf(pairs, fit.heldOutBy);
  const unsigned threads =
      options.threads != 0 ? options.threads : std::max(1u, std::thread::hardware_concurrency());
  // Larger lattices start from the 17-point solution, which the smoothness
  // is also chosen on (its scale does not depend on the lattice size): the
  // solver then has only the fine detail left to find.
  std::vector<int> edges = {kCoarseEdge};
  if (fit.edge != kCoarseEdge) edges.push_back(fit.edge);
  std::vector<Level> levels = accumulate(pairs, split, edges, threads);
  Level& coarse = levels.front();
  Level& fine = levels.back();
  fit.trainingPixels = fine.training.pixels;
  fit.heldOutPixels = fine.heldOut.pixels;

  LutFit probe;
  probe.edge = kCoarseEdge;
  if (fit.smooth == kChooseSmooth) {
    fit.smooth = kFallbackSmooth;
    double best = 0;
    for (const double w : kSmoothCandidates) {
      if (coarse.heldOut.pixels == 0) break;
      probe.lattice = fit::solve(coarse.training, w);
      const Measured m = measure(pairs, split, probe, true);
      double mean = 0;
      for (const double v : m.heldOut) mean += v / double(m.heldOut.size());
      fit.smoothTried.emplace_back(w, mean);
      if (fit.smoothTried.size() == 1 || mean < best) best = mean, fit.smooth = w;
    }
  }
  const auto solve = [&](const fit::Normal& n, const fit::Normal& coarseNormal) {
    if (&n == &coarseNormal) return fit::solve(n, fit.smooth);
    probe.lattice = fit::solve(coarseNormal, fit.smooth);
    return fit::solve(n, fit.smooth, &probe.lattice, kCoarseEdge);
  };
  // The held-out pixels measure a LUT that never saw them...
  fit.lattice = solve(fine.training, coarse.training);
  Measured m = measure(pairs, split, fit);
  fit.training = statsOf(m.training);
  fit.heldOut = statsOf(m.heldOut);
  const bool anyHeld = !m.heldOut.empty();
  fit.byHue =
      binsOf(anyHeld ? m.heldOut : m.training, anyHeld ? m.heldOutTarget : m.trainingTarget, true);
  fit.byLightness =
      binsOf(anyHeld ? m.heldOut : m.training, anyHeld ? m.heldOutTarget : m.trainingTarget, false);
  // ...and the LUT written out uses them all.
  const bool anyHeldOut = fine.heldOut.pixels > 0;
  for (Level& l : levels) l.training.merge(l.heldOut);
  if (anyHeldOut) fit.lattice = solve(fine.training, coarse.training);
  for (size_t c = 0; c < fine.training.count.size(); ++c)
    if (fine.training.count[c] == 0) fit.emptyCells.push_back(uint32_t(c));

  fit.identity = samePictures(pairs);
  if (fit.identity)
    fit.notes.push_back("before and after are the same pictures: the fit is the identity");
  const size_t withData = fit.cells - fit.emptyCells.size();
  if (fit.coverage() < kTinyCoverage)
    fit.notes.push_back("only " + std::to_string(withData) + " of " + std::to_string(fit.cells) +
                        " lattice cells (" + percent(fit.coverage()) +
                        ") held data: the LUT follows the look only near these colours; "
                        "everywhere else it is the smoothest continuation, a guess");
  if (!fit.emptyCells.empty())
    fit.notes.push_back(std::to_string(fit.emptyCells.size()) +
                        " cells held no data: their nodes come from the smoothness term");
  if (!anyHeld)
    fit.notes.push_back(
        "no pixels were held out (pictures too small): only the training error "
        "is known");
  return fit;
}

}  // namespace calib
