// LUT files of any format OpenColorIO reads, evaluated onto the 17-point
// lattice, with the header facts and the lattice kept for the doctor.
#include <calib/image_lut.h>
#include <calib/lut_source.h>
#include <calib/text_encoding.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "ocio/ocio_module.h"

namespace fs = std::filesystem;

namespace calib {
namespace {

// Points per edge of the grid the resampling error is measured on; not a
// multiple of 16 so that it falls between the block's lattice points.
constexpr int kErrorGrid = 52;

// Two picture layouts whose readings are this close to the identity (mean,
// 0..1; 2.5 code values) cannot be told apart by the round trip.
constexpr double kLayoutMargin = 0.01;

// The longest 1D shaper taken: 16-bit tables have 65536 entries.
constexpr long kMaxShaperSize = 65536;

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// The header facts of a .cube that OpenColorIO does not hand back, and the
// text it should be given: OpenColorIO's Resolve reader refuses TITLE,
// which Resolve itself writes, so title lines become comments before it
// sees the file (the title is kept here; line numbers stay). OpenColorIO
// also takes a DOMAIN line of fewer than three numbers without a word,
// which is refused here with `path` and the line.
//
// A table row before the size line is refused too. The format puts its
// keywords first, and when both .cube readers fail OpenColorIO hands the file
// to every other reader: its Discreet .lut reader (2.1) leaks its table when
// the first row starts with a number too large for an int.
std::string scanCube(const std::string& text, const std::string& path, LutSourceInfo& info) {
  std::istringstream in(text);
  std::string line, cleaned;
  bool resolveKeys = false, sizes1d = false, sizes3d = false;
  for (size_t number = 1; std::getline(in, line); ++number) {
    std::string body = line;
    if (!body.empty() && body.back() == '\r') body.pop_back();
    std::istringstream words(body);
    std::string key;
    words >> key;
    // OpenColorIO takes keywords in any case ("lut_3d_size" too), so the
    // checks below do; messages show the word as written.
    const std::string word = lower(key);
    const size_t lead = body.find_first_not_of(" \t");
    if (!sizes1d && !sizes3d && lead != std::string::npos &&
        std::string_view("0123456789+-.").find(body[lead]) != std::string_view::npos)
      throw std::runtime_error(path + ": cannot read .cube file: line " + std::to_string(number) +
                               ": a table row before LUT_3D_SIZE or LUT_1D_SIZE");
    if (word == "title") {
      const auto q1 = body.find('"'), q2 = body.rfind('"');
      if (q1 != std::string::npos && q2 > q1) {
        info.title = body.substr(q1 + 1, q2 - q1 - 1);
      } else {  // unquoted: the rest of the line
        std::string rest;
        std::getline(words >> std::ws, rest);
        info.title = rest;
      }
      cleaned += "#\n";
      continue;
    }
    if (word == "lut_1d_input_range" || word == "lut_3d_input_range") resolveKeys = true;
    if (word == "domain_min" || word == "domain_max") {
      std::array<double, 3>& d = word == "domain_min" ? info.domainMin : info.domainMax;
      std::string extra;
      if (!(words >> d[0] >> d[1] >> d[2]) || (words >> extra))
        throw std::runtime_error(path + ": cannot read .cube file: line " + std::to_string(number) +
                                 ": " + key + ": expected three numbers, got \"" + body + "\"");
    }
    if (word == "lut_1d_size" || word == "lut_3d_size") {
      // OpenColorIO reserves whatever size the line says before reading a
      // single entry; a size no LUT has is refused here with its line.
      const bool lattice = word == "lut_3d_size";
      const long most = lattice ? kMaxSourceEdge : kMaxShaperSize;
      std::string value, extra;
      words >> value;
      size_t used = 0;
      long size = 0;
      try {
        size = std::stol(value, &used);
      } catch (const std::exception&) {
        used = 0;
      }
      if (used == 0 || used != value.size() || (words >> extra) || size < 2 || size > most)
        throw std::runtime_error(path + ": cannot read .cube file: line " + std::to_string(number) +
                                 ": " + key + ": expected an integer 2 to " + std::to_string(most) +
                                 ", got \"" + value + "\"");
      (lattice ? sizes3d : sizes1d) = true;
    }
    cleaned += line + "\n";
  }
  info.dialect = resolveKeys || (sizes1d && sizes3d) ? "Resolve" : "Iridas";
  info.format = info.dialect == "Resolve" ? "resolve_cube" : "iridas_cube";
  return cleaned;
}

// A private copy for OpenColorIO, removed when the import ends.
struct TempCopy {
  fs::path path;
  explicit TempCopy(const std::string& text, const std::string& ext) {
    static std::atomic<unsigned> counter{0};
    path = fs::temp_directory_path() /
           ("lumo_lut_" + std::to_string(::getpid()) + "_" + std::to_string(counter++) + ext);
    std::ofstream(path, std::ios::binary) << text;
  }
  ~TempCopy() {
    std::error_code ec;
    fs::remove(path, ec);
  }
  TempCopy(const TempCopy&) = delete;
  TempCopy& operator=(const TempCopy&) = delete;
};

double codeValue(float v) { return std::isfinite(v) ? std::clamp(double(v), 0.0, 1.0) * 255 : 0; }

// `exact` evaluates the source in place on RGB float triples.
ResampleError measure(const std::function<void(std::vector<float>&)>& evaluate,
                      const LutBlock& lut) {
  std::vector<float> exact(size_t(kErrorGrid) * kErrorGrid * kErrorGrid * 3);
  size_t o = 0;
  for (int b = 0; b < kErrorGrid; ++b)
    for (int g = 0; g < kErrorGrid; ++g)
      for (int r = 0; r < kErrorGrid; ++r)
        for (int c : {r, g, b}) exact[o++] = float(c) / float(kErrorGrid - 1);
  const std::vector<float> points = exact;
  evaluate(exact);
  std::vector<float> block(lut.begin(), lut.end());
  ResampleError e;
  double sum = 0;
  for (size_t i = 0; i < points.size(); i += 3) {
    const auto got =
        tetrahedral(block.data(), int(kLutEdge), {points[i], points[i + 1], points[i + 2]});
    for (int c = 0; c < 3; ++c) {
      const double d = std::fabs(got[c] - codeValue(exact[i + c]));
      e.max = std::max(e.max, d);
      sum += d;
    }
  }
  e.mean = sum / double(points.size());
  return e;
}

}  // namespace

std::array<double, 3> tetrahedral(const float* lattice, int edge,
                                  const std::array<double, 3>& rgb) {
  int base[3];
  double f[3];
  for (int c = 0; c < 3; ++c) {
    const double p = std::clamp(rgb[c], 0.0, 1.0) * (edge - 1);
    base[c] = std::min(int(p), edge - 2);
    f[c] = p - base[c];
  }
  int axis[3] = {0, 1, 2};
  std::sort(axis, axis + 3, [&](int a, int b) { return f[a] > f[b]; });
  auto at = [&](const int* idx) {
    return lattice + 3 * (size_t(idx[0]) + size_t(edge) * (size_t(idx[1]) + size_t(edge) * idx[2]));
  };
  int idx[3] = {base[0], base[1], base[2]};
  const double w[4] = {1 - f[axis[0]], f[axis[0]] - f[axis[1]], f[axis[1]] - f[axis[2]],
                       f[axis[2]]};
  std::array<double, 3> out{0, 0, 0};
  for (int k = 0; k < 4; ++k) {
    if (k > 0) ++idx[axis[k - 1]];
    const float* v = at(idx);
    for (int c = 0; c < 3; ++c) out[c] += w[k] * v[c];
  }
  return out;
}

bool looksBlueFastest(const std::vector<float>& lattice, int edge) {
  // Pearson correlation of one output channel with one lattice index.
  auto corr = [&](int channel, int axis) {
    double sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    const double n = double(lattice.size() / 3);
    for (size_t i = 0; i < lattice.size() / 3; ++i) {
      const size_t idx[3] = {i % edge, (i / edge) % edge, i / (size_t(edge) * edge)};
      const double x = double(idx[axis]), y = lattice[3 * i + channel];
      if (!std::isfinite(y)) continue;
      sx += x, sy += y, sxx += x * x, syy += y * y, sxy += x * y;
    }
    const double vx = sxx - sx * sx / n, vy = syy - sy * sy / n;
    return vx > 0 && vy > 1e-12 ? std::fabs(sxy - sx * sy / n) / std::sqrt(vx * vy) : 0.0;
  };
  if (edge < 2 || lattice.size() != size_t(edge) * edge * edge * 3) return false;
  return corr(0, 2) > corr(0, 0) + 0.1 && corr(2, 0) > corr(2, 2) + 0.1;
}

namespace {

// A picture's lattice, resampled with tetrahedral interpolation.
LutImport importImage(const std::string& path, const std::string& layout) {
  LutImport result;
  ImageLutRead read;
  try {
    read = readImageLut(path, layout);
  } catch (const std::invalid_argument& e) {
    throw std::runtime_error(path + ": " + e.what());
  }
  LutSourceInfo& info = result.info;
  info.format = "image";
  info.dialect = read.layout.name();
  info.size3d = read.layout.edge;
  info.lattice = std::move(read.lattice);
  if (read.runnerUp && read.runnerUpDistance - read.identityDistance < kLayoutMargin) {
    char text[200];
    std::snprintf(text, sizeof(text),
                  "layouts \"%s\" and \"%s\" read almost alike (mean distance from the identity "
                  "%.1f and %.1f code values): force one with \"layout\"",
                  read.layout.name().c_str(), read.runnerUp->name().c_str(),
                  read.identityDistance * 255, read.runnerUpDistance * 255);
    info.layoutDoubt = text;
  }
  result.lut.resize(kLutBlockBytes);
  size_t o = 0;
  for (size_t b = 0; b < kLutEdge; ++b)
    for (size_t g = 0; g < kLutEdge; ++g)
      for (size_t r = 0; r < kLutEdge; ++r) {
        const double k = double(kLutEdge - 1);
        const auto v = tetrahedral(info.lattice.data(), info.size3d, {r / k, g / k, b / k});
        for (double x : v) result.lut[o++] = uint8_t(std::lround(codeValue(float(x))));
      }
  result.error = measure(
      [&](std::vector<float>& p) {
        for (size_t i = 0; i < p.size(); i += 3) {
          const auto v = tetrahedral(info.lattice.data(), info.size3d, {p[i], p[i + 1], p[i + 2]});
          for (int c = 0; c < 3; ++c) p[i + c] = float(v[c]);
        }
      },
      result.lut);
  return result;
}

}  // namespace

LutImport importLut(const std::string& path, const std::string& imageLayout) {
  if (isImageLutPath(path)) {
    if (!fs::is_regular_file(path)) throw std::runtime_error(path + ": cannot open picture LUT");
    return importImage(path, imageLayout);
  }
  const std::string ext = lower(fs::path(path).extension().string());
  const std::string kind = (ext.empty() ? "LUT" : ext) + " file";
  if (!fs::is_regular_file(path)) throw std::runtime_error(path + ": cannot open " + kind);
  LutImport result;
  LutSourceInfo& info = result.info;
  std::unique_ptr<TempCopy> copy;
  std::string source = path;
  if (ext == ".cube") {
    const std::string text = readText(path);
    if (const std::string problem = utf16Problem(std::string_view(text).substr(0, 4));
        !problem.empty())
      throw std::runtime_error(path + ": cannot read .cube file: " + problem);
    copy = std::make_unique<TempCopy>(scanCube(text, path, info), ext);
    // OpenColorIO takes an empty domain and divides by zero at every point.
    for (int c = 0; c < 3; ++c)
      if (!(info.domainMax[c] > info.domainMin[c]))
        throw std::runtime_error(path + ": cannot read .cube file: DOMAIN_MAX must exceed " +
                                 "DOMAIN_MIN in every channel (channel " + "RGB"[c] + ": " +
                                 std::to_string(info.domainMin[c]) + " .. " +
                                 std::to_string(info.domainMax[c]) + ")");
    source = copy->path.string();
  } else {
    const char* name =
        ext.empty() ? nullptr : ocio::module().formatOfExtension(ext.substr(1).c_str());
    if (name == nullptr)
      throw std::runtime_error(path + ": not a LUT format this tool reads (extension \"" + ext +
                               "\"; see docs/calibration.md)");
    info.format = name;
  }
  std::vector<float> points(kLutEdge * kLutEdge * kLutEdge * 3);
  size_t o = 0;
  for (size_t b = 0; b < kLutEdge; ++b)
    for (size_t g = 0; g < kLutEdge; ++g)
      for (size_t r = 0; r < kLutEdge; ++r)
        for (size_t c : {r, g, b}) points[o++] = float(c) / float(kLutEdge - 1);
  const ocio::Module& reader = ocio::module();
  std::unique_ptr<void, void (*)(void*)> lut(nullptr, reader.close);
  try {
    std::string error;
    lut.reset(reader.open(source.c_str(), &info, &error));
    if (!lut) throw std::runtime_error(error);
    reader.apply(lut.get(), points.data(), long(kLutEdge * kLutEdge * kLutEdge));
  } catch (const std::exception& e) {
    std::string what = e.what();
    // OpenColorIO names the copy it was given; the user knows the file by its own name.
    if (copy) {
      for (size_t at; (at = what.find(source)) != std::string::npos;)
        what.replace(at, source.size(), fs::path(path).filename().string());
    }
    std::replace(what.begin(), what.end(), '\n', ' ');
    // When every reader for the extension failed, the one for the dialect
    // the header shows has the message that matters.
    const std::string marker = "'" + info.format + "' failed with: ";
    if (const size_t at = what.find(marker); !info.format.empty() && at != std::string::npos) {
      what = what.substr(at + marker.size());
      what = what.substr(0, what.find("    '"));
      while (!what.empty() && what.back() == ' ') what.pop_back();
    }
    throw std::runtime_error(path + ": cannot read " + kind + ": " + what);
  }
  if (info.size3d != 0 && (info.size3d < kMinSourceEdge || info.size3d > kMaxSourceEdge))
    throw std::runtime_error(path + ": lattice of " + std::to_string(info.size3d) +
                             " points per edge; expected 2 to 129");
  result.lut.resize(kLutBlockBytes);
  for (size_t i = 0; i < result.lut.size(); ++i)
    result.lut[i] = uint8_t(std::lround(codeValue(points[i])));
  result.error =
      measure([&](std::vector<float>& p) { reader.apply(lut.get(), p.data(), long(p.size() / 3)); },
              result.lut);
  return result;
}

std::string describeImport(const LutImport& import) {
  const LutSourceInfo& info = import.info;
  std::string what;
  if (info.size3d == int(kLutEdge))
    what = "17-point lattice taken as is";
  else if (info.size3d != 0)
    what = std::to_string(info.size3d) + "-point lattice resampled to 17 (tetrahedral)";
  else
    what = "no 3D lattice; transform evaluated at the 17-point lattice";
  if (info.size1d != 0) what += ", " + std::to_string(info.size1d) + "-entry shaper baked in";
  char error[96];
  std::snprintf(error, sizeof(error), "; error max %.2f mean %.3f code values", import.error.max,
                import.error.mean);
  return info.format + (info.dialect.empty() ? "" : " (" + info.dialect + ")") + ": " + what +
         error;
}

std::vector<Finding> lutProblems(const LutImport& import) {
  std::vector<Finding> out;
  const auto add = [&](const char* rule, std::string message) {
    out.push_back({Finding::Severity::Warning, {}, "", std::move(message), rule});
  };
  const LutSourceInfo& info = import.info;
  char text[256];
  if (info.domainMin != std::array<double, 3>{0, 0, 0} ||
      info.domainMax != std::array<double, 3>{1, 1, 1}) {
    std::snprintf(
        text, sizeof(text),
        "input domain %g %g %g .. %g %g %g, not 0..1: the camera's 0..1 inputs are mapped "
        "through it (built in)",
        info.domainMin[0], info.domainMin[1], info.domainMin[2], info.domainMax[0],
        info.domainMax[1], info.domainMax[2]);
    add("domain", text);
  }
  // Values and order are the file's own lattice's.
  const std::vector<float>& l = info.lattice;
  size_t nan = 0, outside = 0;
  double lo = 1e300, hi = -1e300;
  for (const float v : l) {
    if (!std::isfinite(v)) {
      ++nan;
      continue;
    }
    if (v < -1e-6 || v > 1 + 1e-6) ++outside;
    lo = std::min(lo, double(v)), hi = std::max(hi, double(v));
  }
  if (nan != 0) {
    std::snprintf(text, sizeof(text), "%zu lattice values are NaN or infinite (built as 0)", nan);
    add("nan", text);
  }
  if (outside != 0) {
    std::snprintf(text, sizeof(text),
                  "%zu lattice values outside 0..1 (range %.4g .. %.4g; clamped when built)",
                  outside, lo, hi);
    add("out-of-range", text);
  }
  if (!info.layoutDoubt.empty()) add("layout-ambiguous", info.layoutDoubt);
  if (looksBlueFastest(l, info.size3d))
    add("blue-fastest",
        "lattice looks written blue-fastest: output red follows the blue index (the "
        "format wants red fastest; red and blue would swap)");
  // Identity and constancy are of the whole transform (shaper and domain
  // included), as the built block has it.
  const LutBlock& b = import.lut;
  int identityDev = 0;
  std::array<int, 3> cmin{255, 255, 255}, cmax{0, 0, 0};
  for (size_t i = 0; i < b.size(); ++i) {
    const size_t p = i / 3, c = i % 3;
    const size_t idx[3] = {p % kLutEdge, (p / kLutEdge) % kLutEdge, p / (kLutEdge * kLutEdge)};
    const int expected = int(std::lround(255.0 * double(idx[c]) / double(kLutEdge - 1)));
    identityDev = std::max(identityDev, std::abs(int(b[i]) - expected));
    cmin[c] = std::min(cmin[c], int(b[i])), cmax[c] = std::max(cmax[c], int(b[i]));
  }
  const int spread = std::max({cmax[0] - cmin[0], cmax[1] - cmin[1], cmax[2] - cmin[2]});
  if (!b.empty() && identityDev <= 1) {
    std::snprintf(text, sizeof(text),
                  "the look is nearly the identity (at most %d code value%s from it)", identityDev,
                  identityDev == 1 ? "" : "s");
    add("near-identity", text);
  } else if (!b.empty() && spread < 2) {
    std::snprintf(text, sizeof(text), "the look is nearly constant (outputs span %d code value%s)",
                  spread, spread == 1 ? "" : "s");
    add("near-constant", text);
  }
  return out;
}

}  // namespace calib
