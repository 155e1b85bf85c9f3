// The 4:2:0 LUT + style chain in 16-bit fixed point, 32 chroma columns per
// vector on AVX-512 (16 on AVX2, 8 on arm64's 128-bit NEON and SVE2_128):
// twice the lanes of the float kernels and integer dot products for the
// tetrahedral weights. It covers the parameter ranges where its formats
// cannot overflow (makeFixedPointParams says when); everything else, and
// every CPU without the kernel, goes through the float kernels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "effect_chain.h"
#include "fused_kernels.h"

namespace lumo::render {

// The lattice regrouped per cell (r | g << 4 | b << 8, 16 cells per axis)
// and tetrahedron, entry cell * 8 + code, where the code's bits say which
// of r >= g, g >= b and r >= b hold: `rg` holds the four corners' red then
// green bytes (c0 c1 c2 c3 c0 c1 c2 c3), `b` their blue bytes (c0 c1 c2 c3),
// so one fetch per table brings everything a pixel needs in the order its
// weights use. `b` has one spare entry at the end: the kernel fetches 8
// bytes from each 4-byte entry.
struct FixedPointTables {
  std::vector<uint64_t> rg;
  std::vector<uint32_t> b;
};
FixedPointTables buildFixedPointTables(const LutLattice& lattice);

// Frame-wide constants in the kernel's formats. Colours are Q7 code values
// (0..32640), lattice positions Q12 lattice units, gains Q15 halves.
struct FixedPointParams {
  bool usable = false;  // the chain fits the formats and the tables exist
  const uint64_t* rg = nullptr;
  const uint32_t* b = nullptr;
  bool blend = false;  // strength below 1
  int16_t strength = 0;
  bool hasStyle = false;
  int16_t protectA = 0, protectB = 0;  // protection, Q12, from Q7 luma
  bool knee = false;
  int16_t kneeA = 0, kneeB = 0;
};

// `tables` must outlive the result.
FixedPointParams makeFixedPointParams(const FusedParams& fused, const EffectChain& chain,
                                      const FixedPointTables& tables);

// The style's radial factors of one row pair. Rows y and height - 1 - y lie
// equally far from the centre, so a row pair's factors serve its mirror
// image with the rows swapped.
struct RadialRows {
  std::vector<int16_t> values;
  bool filled = false;    // the kernel computes them when false
  bool swapRows = false;  // first row uses the second's factors and back
};

// True when the instruction set chosen now has the kernel.
bool fixedPointKernelPresent();

// Renders the first multiple of 32 (AVX-512), 16 (AVX2) or 8 (NEON) column
// pairs of a row pair; returns how many it did (0 where the CPU has no such
// kernel).
size_t renderFixedPointRowPair(const FixedPointParams& fixed, const FusedParams& fused,
                               const YuvRowPair& rows, size_t pairs, RadialRows& radial);

}  // namespace lumo::render
