// Validation of frame views before anything touches their pixels.
#include "frame_view.h"

namespace lumo::render {

FrameView frameView(const Geometry& g, uint8_t* data) {
  FrameView view;
  view.layout = g.format;
  view.width = g.width;
  view.height = g.height;
  view.luma = data;
  view.lumaStride = rowBytes(g);
  if (isYuv(g.format)) {
    view.chroma = data + planeOffset(g, 1);
    view.chromaStride = rowBytes(g);
  }
  return view;
}

std::string checkFrameView(const FrameView& view) {
  if (view.width == 0 || view.height == 0) return "empty frame";
  const size_t pixelBytes = view.layout == FrameLayout::RGBA ? 4 : 1;
  if (view.luma == nullptr) return "no pixel plane";
  if (view.lumaStride < view.width * pixelBytes) return "row stride below the width";
  if (isYuv(view.layout)) {
    if (view.chroma == nullptr) return "no chroma plane";
    if (view.chromaStride < 2 * size_t((view.width + 1) / 2))
      return "chroma stride below the width";
  }
  return {};
}

}  // namespace lumo::render
