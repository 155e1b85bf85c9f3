// LUTs stored as pictures, as phone apps trade them: Hald CLUTs (a square
// of level^3 pixels holding a level^2-point lattice, red fastest along the
// rows) and 2D tile layouts (one N x N tile per blue step, red across and
// green down each tile: 8x8 tiles of 64, 4x4 of 16, horizontal and vertical
// strips). The layout is found from the picture's size and confirmed by
// reading it back as a lattice and comparing with the identity: a look is
// much closer to the identity under its own layout than under a wrong one.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace calib {

struct RgbImage {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgb;  // width * height * 3, rows top to bottom
};

bool isImageLutPath(const std::string& path);  // .png, .jpg, .jpeg

struct ImageLayout {
  enum class Kind { Hald, Tiles };
  Kind kind = Kind::Tiles;
  int edge = 0;              // lattice points per edge
  int columns = 0;           // tiles across (Tiles)
  bool greenUp = false;      // green grows upwards inside a tile
  std::string name() const;  // "hald level 4", "tiles 8x8", "strip 16x1", "strip 1x16"
};

// Every layout the picture's size allows.
std::vector<ImageLayout> candidateLayouts(int width, int height);
// The lattice (red fastest, RGB floats 0..1) under a layout.
std::vector<float> latticeOf(const RgbImage& image, const ImageLayout& layout);
// Mean absolute distance of a lattice from the identity (0..1).
double identityDistance(const std::vector<float>& lattice, int edge);

// "auto", "hald", "tiles", "strip" (horizontal or vertical), "tiles-up" (green upwards).
// Empty optional for "auto"; throws std::invalid_argument for anything else.
struct LayoutChoice {
  std::optional<ImageLayout::Kind> kind;
  bool stripOnly = false;
  bool greenUp = false;
};
LayoutChoice parseLayoutChoice(const std::string& text);

struct ImageLutRead {
  ImageLayout layout;
  std::vector<float> lattice;
  double identityDistance = 0;
  size_t candidates = 0;
  // The runner-up, when there was one: a small gap means the choice is a guess.
  std::optional<ImageLayout> runnerUp;
  double runnerUpDistance = 0;
};
// Throws std::runtime_error "FILE: ..." when no layout fits.
ImageLutRead readImageLut(const std::string& path, const std::string& layoutChoice);

}  // namespace calib
