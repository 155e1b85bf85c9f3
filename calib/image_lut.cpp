// Picture LUTs: layouts from the size, lattices from the pixels, and the
// choice between layouts by distance from the identity.
#include <calib/image_lut.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <stdexcept>

#include "image_files.h"

namespace calib {
namespace {

// Through the project's own PNG and JPEG decoders, as RGB.
RgbImage readPicture(const std::string& path) {
  const lumo::Image rgba = lumo::fileKindOf(path) == lumo::FileKind::Png ? lumo::decodePng(path)
                                                                         : lumo::decodeJpeg(path);
  RgbImage out;
  out.width = int(rgba.geometry.width);
  out.height = int(rgba.geometry.height);
  out.rgb.reserve(size_t(out.width) * size_t(out.height) * 3);
  for (uint32_t y = 0; y < rgba.geometry.height; ++y) {
    const uint8_t* row = rgba.row(y);
    for (uint32_t x = 0; x < rgba.geometry.width; ++x)
      out.rgb.insert(out.rgb.end(), row + 4 * x, row + 4 * x + 3);
  }
  return out;
}

bool fits(const ImageLayout& l, const LayoutChoice& c) {
  if (!c.kind) return true;
  if (*c.kind != l.kind) return false;
  if (l.kind == ImageLayout::Kind::Hald) return true;
  if (c.stripOnly && l.columns != 1 && l.columns != l.edge) return false;
  return l.greenUp == c.greenUp;
}

}  // namespace

bool isImageLutPath(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".png" || ext == ".jpg" || ext == ".jpeg";
}

std::string ImageLayout::name() const {
  if (kind == Kind::Hald) return "hald level " + std::to_string(int(std::lround(std::sqrt(edge))));
  const int rows = edge / columns;
  const std::string grid = std::to_string(columns) + "x" + std::to_string(rows);
  const bool strip = columns == 1 || rows == 1;
  return (strip ? "strip " : "tiles ") + grid + (greenUp ? ", green upwards" : "");
}

std::vector<ImageLayout> candidateLayouts(int width, int height) {
  std::vector<ImageLayout> out;
  for (int level = 2; level * level <= 129; ++level)
    if (width == height && width == level * level * level)
      out.push_back({ImageLayout::Kind::Hald, level * level, 0, false});
  for (int edge = 2; edge <= 129; ++edge) {
    if (width % edge != 0 || height % edge != 0) continue;
    const int columns = width / edge, rows = height / edge;
    if (columns * rows != edge) continue;
    for (bool up : {false, true}) out.push_back({ImageLayout::Kind::Tiles, edge, columns, up});
  }
  return out;
}

std::vector<float> latticeOf(const RgbImage& image, const ImageLayout& l) {
  const size_t n = size_t(l.edge);
  std::vector<float> out(n * n * n * 3);
  for (size_t b = 0; b < n; ++b)
    for (size_t g = 0; g < n; ++g)
      for (size_t r = 0; r < n; ++r) {
        size_t x, y;
        if (l.kind == ImageLayout::Kind::Hald) {
          const size_t i = r + n * (g + n * b);
          x = i % size_t(image.width), y = i / size_t(image.width);
        } else {
          const size_t gy = l.greenUp ? n - 1 - g : g;
          x = (b % size_t(l.columns)) * n + r, y = (b / size_t(l.columns)) * n + gy;
        }
        const uint8_t* px = image.rgb.data() + 3 * (y * size_t(image.width) + x);
        float* o = out.data() + 3 * (r + n * (g + n * b));
        for (int c = 0; c < 3; ++c) o[c] = float(px[c]) / 255.0f;
      }
  return out;
}

double identityDistance(const std::vector<float>& lattice, int edge) {
  const size_t n = size_t(edge);
  double sum = 0;
  for (size_t i = 0; i < lattice.size(); ++i) {
    const size_t p = i / 3, c = i % 3;
    const size_t idx[3] = {p % n, (p / n) % n, p / (n * n)};
    sum += std::fabs(lattice[i] - double(idx[c]) / double(n - 1));
  }
  return lattice.empty() ? 0 : sum / double(lattice.size());
}

LayoutChoice parseLayoutChoice(const std::string& text) {
  if (text.empty() || text == "auto") return {};
  if (text == "hald") return {ImageLayout::Kind::Hald, false, false};
  if (text == "tiles") return {ImageLayout::Kind::Tiles, false, false};
  if (text == "tiles-up") return {ImageLayout::Kind::Tiles, false, true};
  if (text == "strip") return {ImageLayout::Kind::Tiles, true, false};
  throw std::invalid_argument("layout \"" + text +
                              "\": expected auto, hald, tiles, tiles-up or strip");
}

ImageLutRead readImageLut(const std::string& path, const std::string& layoutChoice) {
  const LayoutChoice choice = parseLayoutChoice(layoutChoice);
  // The header alone first: a picture no layout fits is refused undecoded.
  const lumo::PictureSize size = lumo::pictureSize(path);
  std::vector<ImageLayout> layouts = candidateLayouts(int(size.width), int(size.height));
  layouts.erase(std::remove_if(layouts.begin(), layouts.end(),
                               [&](const ImageLayout& l) { return !fits(l, choice); }),
                layouts.end());
  if (layouts.empty())
    throw std::runtime_error(
        path + ": " + std::to_string(size.width) + "x" + std::to_string(size.height) +
        " pixels fit no " + (layoutChoice.empty() ? std::string("LUT") : layoutChoice) +
        " layout (Hald: a square of level^3 pixels; tiles: N tiles of N x N pixels)");
  const RgbImage image = readPicture(path);
  if (uint32_t(image.width) != size.width || uint32_t(image.height) != size.height ||
      image.rgb.size() != size_t(image.width) * size_t(image.height) * 3)
    throw std::runtime_error(path + ": picture decoder gave an inconsistent buffer");
  ImageLutRead best;
  best.identityDistance = 1e300;
  best.candidates = layouts.size();
  for (const ImageLayout& l : layouts) {
    std::vector<float> lattice = latticeOf(image, l);
    const double d = identityDistance(lattice, l.edge);
    if (d < best.identityDistance) {
      if (best.identityDistance < 1e300) {
        best.runnerUp = best.layout;
        best.runnerUpDistance = best.identityDistance;
      }
      best.layout = l;
      best.lattice = std::move(lattice);
      best.identityDistance = d;
    } else if (!best.runnerUp || d < best.runnerUpDistance) {
      best.runnerUp = l;
      best.runnerUpDistance = d;
    }
  }
  return best;
}

}  // namespace calib
