// Fused vector kernels: YUV or RGBA in, LUT and style applied, output
// written, with no intermediate image. Dispatched at run time to the best
// instruction set the CPU offers; the float tails at row ends use the same
// per-block code as the reference.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "chain_plan.h"
#include "effect_chain.h"
#include "frame_view.h"

namespace lumo::render {

// True when the chain is at most one LUT effect followed by at most one
// style effect, the shape the fused kernels implement.
bool fusedKernelsSupport(const EffectChain& chain);

// The lattice regrouped so that two 64-bit gathers fetch the four corners a
// colour needs: `corners` holds, per cell (r + 17 g + 289 b), its low and
// high corner; `edges` holds, at cell * 8 + tetrahedron, the two corners in
// between. Each entry packs two points as R0 G0 B0 R1 G1 B1 in its low six
// bytes.
struct FusedTables {
  std::vector<uint64_t> corners;
  std::vector<uint64_t> edges;
};
FusedTables buildFusedTables(const LutLattice& lattice);

// Frame-wide constants of the fused kernels, in float.
struct FusedParams {
  bool hasLut = false;
  float strength = 0;
  const uint64_t* corners = nullptr;  // buildFusedTables of the LUT effect
  const uint64_t* edges = nullptr;
  bool hasStyle = false;
  float ax = 0, bx = 0, ay = 0, by = 0;
  float coordScale = 0, smoothStart = 0;
  float stepScale = 0, stepOffset = 0;  // smoothstep argument from the distance
  bool hardStep = false;                // smoothStart == smoothEnd
  float valueScale = 0;
  float protectScale = 0, preserveB = 0;  // protection from luma in 0..255
  float kneeScale = 0, kneeOffset = 0;    // knee from luma in 0..255
  bool knee = false;                      // preserveV != 0
};

// One row pair of a 4:2:0 frame as the vector kernel sees it.
struct YuvRowPair {
  const uint8_t* y[2];  // y[1] null on a frame's last, unpaired row
  const uint8_t* chroma;
  uint8_t* outY[2];
  uint8_t* outChroma;
  bool inCrFirst, outCrFirst;
  float dy2[2];
  uint32_t width = 0;  // pixels in a row
};

// `tables` must outlive the parameters; the plan must satisfy fusedKernelsSupport.
FusedParams makeFusedParams(const ChainPlan& plan, const FusedTables& tables);

struct FixedPointParams;

// Renders rows [rowBegin, rowEnd) (even rowBegin for 4:2:0) of `in` into `out`:
// the fixed-point kernel where `fixed` is usable, the float kernels for the
// columns it leaves, the per-block code for the last few. `mirrored` (a
// 4:2:0 frame of even height) renders each row pair's mirror image right
// after it, so that the pair's radial factors are computed once for both;
// the rows given are then those of the top half.
void renderFusedRows(const FusedParams& params, const FixedPointParams& fixed,
                     const ChainPlan& plan, const FrameView& in, const FrameView& out,
                     uint32_t rowBegin, uint32_t rowEnd, bool mirrored = false);

// True when rendering in mirrored row pairs saves work for this frame.
bool mirroredRowsPay(const FixedPointParams& fixed, const FrameView& in);

// Name of the instruction set the dispatcher picks now.
const char* fusedKernelTarget();

// The instruction sets the kernels were compiled for (Highway target bits).
int64_t fusedKernelTargetsBuilt();

}  // namespace lumo::render
