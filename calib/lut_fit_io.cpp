// The look fit's inputs and outputs: picture pairs from files or a folder,
// the .cube text, the JSON record and the lines the tool prints.
#include <calib/lut_fit.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "image_files.h"
#include "yuv_convert.h"

namespace calib {
namespace {

namespace fs = std::filesystem;

// A PNG's bit depth from its header (signature, IHDR length and type, width,
// height, then the depth byte); 0 when the file is no PNG.
int pngBitDepth(const std::string& path) {
  static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  unsigned char head[25] = {};
  std::ifstream in(path, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(head), sizeof(head))) return 0;
  if (!std::equal(kSignature, kSignature + 8, head)) return 0;
  return head[24];
}

RgbImage readPicture(const std::string& path) {
  if (lumo::fileKindOf(path) == lumo::FileKind::Png && pngBitDepth(path) == 16)
    throw std::runtime_error(path +
                             ": 16-bit PNG: the fit works on 8-bit pictures, as the camera "
                             "renders them; save both pictures with 8 bits per channel");
  const lumo::Image read = lumo::readImage(path);
  const lumo::Image rgba = read.geometry.format == lumo::PixelFormat::RGBA
                               ? read
                               : lumo::convertImage(read, lumo::PixelFormat::RGBA);
  RgbImage out;
  out.width = int(rgba.geometry.width);
  out.height = int(rgba.geometry.height);
  out.rgb.resize(size_t(out.width) * out.height * 3);
  for (int y = 0; y < out.height; ++y) {
    const uint8_t* row = rgba.row(uint32_t(y));
    uint8_t* dst = &out.rgb[size_t(y) * out.width * 3];
    for (int x = 0; x < out.width; ++x)
      for (int c = 0; c < 3; ++c) dst[3 * x + c] = row[4 * x + c];
  }
  return out;
}

nlohmann::json statsJson(const ErrorStats& s) {
  return {{"pixels", s.pixels}, {"mean", s.mean}, {"p95", s.p95}, {"p99", s.p99}, {"max", s.max}};
}

nlohmann::json binsJson(const std::vector<ErrorBin>& bins) {
  nlohmann::json out = nlohmann::json::array();
  for (const ErrorBin& b : bins)
    out.push_back({{"label", b.label}, {"pixels", b.pixels}, {"mean", b.mean}, {"p95", b.p95}});
  return out;
}

std::string statsLine(const char* what, const ErrorStats& s) {
  char text[160];
  std::snprintf(text, sizeof(text), "%s: CIEDE2000 mean %.2f, p95 %.2f, max %.2f (%zu pixels)",
                what, s.mean, s.p95, s.max, s.pixels);
  return text;
}

}  // namespace

FitPair loadFitPair(const std::string& before, const std::string& after) {
  FitPair pair;
  pair.name = before + " / " + after;
  pair.before = readPicture(before);
  pair.after = readPicture(after);
  return pair;
}

std::vector<std::pair<std::string, std::string>> pairsInFolder(const std::string& dir) {
  const fs::path b = fs::path(dir) / "before", a = fs::path(dir) / "after";
  for (const fs::path& p : {b, a})
    if (!fs::is_directory(p))
      throw std::runtime_error(p.string() +
                               ": no such folder (--pairs expects DIR/before and "
                               "DIR/after holding pictures of the same names)");
  const auto names = [](const fs::path& folder) {
    std::vector<std::string> out;
    for (const auto& entry : fs::directory_iterator(folder))
      if (entry.is_regular_file()) out.push_back(entry.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
  };
  const std::vector<std::string> before = names(b), after = names(a);
  for (const std::string& n : before)
    if (!std::binary_search(after.begin(), after.end(), n))
      throw std::runtime_error((b / n).string() + ": no picture of that name in " + a.string());
  for (const std::string& n : after)
    if (!std::binary_search(before.begin(), before.end(), n))
      throw std::runtime_error((a / n).string() + ": no picture of that name in " + b.string());
  if (before.empty()) throw std::runtime_error(b.string() + ": no pictures");
  std::vector<std::pair<std::string, std::string>> out;
  for (const std::string& n : before) out.emplace_back((b / n).string(), (a / n).string());
  return out;
}

std::string fitCubeText(const LutFit& fit, const std::string& title) {
  std::string out = "TITLE \"" + title + "\"\nLUT_3D_SIZE " + std::to_string(fit.edge) + "\n";
  char row[64];
  for (size_t i = 0; i + 2 < fit.lattice.size(); i += 3) {
    std::snprintf(row, sizeof(row), "%.6f %.6f %.6f\n", fit.lattice[i], fit.lattice[i + 1],
                  fit.lattice[i + 2]);
    out += row;
  }
  return out;
}

nlohmann::json fitJson(const LutFit& fit) {
  nlohmann::json j;
  j["lattice_size"] = fit.edge;
  j["smooth"] = fit.smooth;
  j["smooth_tried"] = nlohmann::json::array();
  for (const auto& [w, e] : fit.smoothTried)
    j["smooth_tried"].push_back({{"smooth", w}, {"held_out_mean", e}});
  j["identity"] = fit.identity;
  j["held_out_by"] = fit.heldOutBy;
  j["training"] = statsJson(fit.training);
  j["training"]["pixels_fitted"] = fit.trainingPixels;
  j["held_out"] = statsJson(fit.heldOut);
  j["held_out"]["pixels_total"] = fit.heldOutPixels;
  j["coverage"] = {{"cells", fit.cells},
                   {"cells_with_data", fit.cells - fit.emptyCells.size()},
                   {"share", fit.coverage()},
                   {"empty_cells_filled_by", "smoothness"},
                   {"empty_cells", fit.emptyCells}};
  j["by_hue"] = binsJson(fit.byHue);
  j["by_lightness"] = binsJson(fit.byLightness);
  j["notes"] = fit.notes;
  return j;
}

std::vector<std::string> fitLines(const LutFit& fit) {
  std::vector<std::string> out;
  char text[200];
  std::snprintf(text, sizeof(text), "lattice %d points, smoothness %g%s", fit.edge, fit.smooth,
                fit.smoothTried.empty() ? "" : " (lowest held-out error of:");
  std::string line = text;
  for (const auto& [w, e] : fit.smoothTried) {
    std::snprintf(text, sizeof(text), " %g -> %.3f", w, e);
    line += text;
  }
  out.push_back(line + (fit.smoothTried.empty() ? "" : ")"));
  std::snprintf(text, sizeof(text),
                "coverage: %zu of %zu cells held data (%.1f%%); cells without data are filled "
                "by smoothness",
                fit.cells - fit.emptyCells.size(), fit.cells, 100 * fit.coverage());
  out.push_back(text);
  out.push_back(statsLine("training", fit.training));
  if (fit.heldOut.pixels > 0)
    out.push_back(statsLine(("held out (" + fit.heldOutBy + ")").c_str(), fit.heldOut));
  for (const std::string& n : fit.notes) out.push_back("note: " + n);
  return out;
}

}  // namespace calib
