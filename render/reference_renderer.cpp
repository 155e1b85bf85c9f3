// The plain double-precision renderer, one block or pixel at a time.
#include "reference_renderer.h"

namespace lumo::render {

void renderReferenceRows(const ChainPlan& plan, const FrameView& in, const FrameView& out,
                         uint32_t rowBegin, uint32_t rowEnd) {
  if (isYuv(in.layout)) {
    const uint32_t blocksX = (in.width + 1) / 2;
    for (uint32_t by = rowBegin / 2; 2 * by < rowEnd; ++by)
      for (uint32_t bx = 0; bx < blocksX; ++bx) renderYuvBlock<double>(plan, in, out, bx, by);
  } else {
    for (uint32_t y = rowBegin; y < rowEnd; ++y)
      for (uint32_t x = 0; x < in.width; ++x) renderRgbaPixel<double>(plan, in, out, x, y);
  }
}

}  // namespace lumo::render
