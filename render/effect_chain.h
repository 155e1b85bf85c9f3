// The effect chain a script describes, as the renderer applies it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace lumo::render {

// 17 lattice points per axis, 3 bytes (R, G, B) per point; red varies
// fastest, then green, then blue.
inline constexpr int kLutSize = 17;
inline constexpr int kLutChannels = 3;
inline constexpr int kLutPoints = kLutSize * kLutSize * kLutSize;
inline constexpr int kLutBytes = kLutPoints * kLutChannels;

using LutLattice = std::array<uint8_t, kLutBytes>;

struct LutEffect {
  double strength = 1.0;  // 0: original colour, 1: looked-up colour
  bool hasLattice = false;
  LutLattice lattice{};
};

// Radial gain with light and dark protection (docs/renderer.md).
struct StyleEffect {
  double width = 0;  // geometry the parameters were tuned for; 0: the frame's own
  double height = 0;
  double smoothStart = 0;
  double smoothEnd = 0;
  double coordScale = 0;
  double valueScale = 0;
  double preserveK = 0;
  double preserveB = 0;
  double preserveV = 0;
  double preserveT = 0;

  // True when no pixel can change: the gain is 1 everywhere.
  bool isIdentity() const { return valueScale == 0 || (preserveK == 0 && preserveB <= 0); }
};

enum class EffectKind { Lut, Style };

// Effects in script order. Each kind occurs at most once in practice, but
// the chain keeps whatever order and repetition the script asked for.
struct EffectChain {
  std::vector<EffectKind> order;
  std::vector<LutEffect> luts;      // in script order
  std::vector<StyleEffect> styles;  // in script order

  size_t size() const { return order.size(); }
  bool empty() const { return order.empty(); }
};

}  // namespace lumo::render
