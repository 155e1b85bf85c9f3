// Shared benchmark fixtures of the renderer: a smooth look lattice, a
// vignette style, a gradient-with-noise frame, and the same frame and LUT
// written to files for tools that compare against the renderer.
#pragma once

#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "effect_chain.h"
#include "frame_view.h"
#include "render_test_support.h"

namespace lumo::render::bench {

// A warm, contrasty look: a smooth lattice like the ones the plugin uploads.
inline LutLattice lookLattice() {
  return testing::makeLattice([](double r, double g, double b) {
    auto curve = [](double v) {
      const double t = v / 255;
      return 255 * (t * t * (3 - 2 * t) * 0.7 + t * 0.3);
    };
    const double y = 0.299 * r + 0.587 * g + 0.114 * b;
    return std::array<double, 3>{curve(r) * 1.05 + 4, curve(g), curve(0.8 * b + 0.2 * y) * 0.95};
  });
}

inline StyleEffect lookStyle() {
  StyleEffect s;
  s.smoothStart = 0.3;
  s.smoothEnd = 1.0;
  s.coordScale = 1.0;
  s.valueScale = -0.35;  // vignette
  s.preserveK = 1.2;
  s.preserveB = 0.1;
  s.preserveV = 0.2;
  s.preserveT = 0.95;
  return s;
}

// A plain in-memory frame (no guard pages: the benchmark measures memory speed).
struct Frame {
  std::vector<uint8_t> bytes;
  FrameView view;
  Frame(FrameLayout layout, uint32_t width, uint32_t height) {
    const size_t lumaBytes = size_t(width) * height, chromaBytes = lumaBytes / 2;
    bytes.resize(lumaBytes + chromaBytes);
    view = {layout, width, height, bytes.data(), width, bytes.data() + lumaBytes, width};
  }
};

inline void fillFrame(Frame& f) {
  // A gradient with noise: every lattice cell gets visited.
  std::minstd_rand rng(42);
  const FrameView& v = f.view;
  for (uint32_t y = 0; y < v.height; ++y)
    for (uint32_t x = 0; x < v.width; ++x)
      v.luma[y * v.lumaStride + x] = uint8_t((x * 255 / v.width + (rng() & 31)) & 255);
  for (uint32_t y = 0; y < v.height / 2; ++y)
    for (uint32_t x = 0; x < v.width; ++x)
      v.chroma[y * v.chromaStride + x] = uint8_t(64 + (y * 128 / (v.height / 2)) + (rng() & 15));
}

// Raw NV21 frame and the same LUT as a .cube file (red varying fastest).
inline bool writeFixture(const std::string& dir) {
  Frame frame(FrameLayout::NV21, 4000, 3000);
  fillFrame(frame);
  std::ofstream image(dir + "/frame_4000x3000.nv21", std::ios::binary);
  image.write(reinterpret_cast<const char*>(frame.bytes.data()),
              std::streamsize(frame.bytes.size()));
  std::ofstream cube(dir + "/look.cube");
  cube << "TITLE \"render bench look\"\nLUT_3D_SIZE " << kLutSize << "\n";
  const LutLattice lattice = lookLattice();
  char line[64];
  for (int i = 0; i < kLutPoints; ++i) {
    std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", lattice[3 * i] / 255.0,
                  lattice[3 * i + 1] / 255.0, lattice[3 * i + 2] / 255.0);
    cube << line;
  }
  return bool(image) && bool(cube);
}

}  // namespace lumo::render::bench
