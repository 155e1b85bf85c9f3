// The plain double-precision renderer: the truth the vector kernels are held to.
#pragma once

#include <cstdint>

#include "chain_plan.h"
#include "frame_view.h"

namespace lumo::render {

// Renders rows [rowBegin, rowEnd) of `in` into `out` (same size and colour
// family; `out` may be `in`). For 4:2:0 frames rowBegin must be even.
void renderReferenceRows(const ChainPlan& plan, const FrameView& in, const FrameView& out,
                         uint32_t rowBegin, uint32_t rowEnd);

}  // namespace lumo::render
