// Borrowed view of one image's pixels: NV21, NV12 or RGBA, with its row strides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "geometry.h"

namespace lumo::render {

// The kernels name the pixel format by what it means to them: a layout.
using FrameLayout = PixelFormat;

// Plane pointers borrow the caller's memory. For the 4:2:0 layouts `luma`
// holds width x height samples and `chroma` the interleaved chroma pairs of
// ceil(width/2) x ceil(height/2) blocks (V,U for NV21, U,V for NV12). For
// RGBA `luma` holds the 4-byte pixels and `chroma` is unused.
struct FrameView {
  FrameLayout layout = FrameLayout::NV21;
  uint32_t width = 0;
  uint32_t height = 0;
  uint8_t* luma = nullptr;
  size_t lumaStride = 0;  // bytes between rows
  uint8_t* chroma = nullptr;
  size_t chromaStride = 0;  // bytes between chroma rows
};

// The view of `data` laid out as `geometry` says.
FrameView frameView(const Geometry& geometry, uint8_t* data);

// Empty when the view can be rendered, otherwise what is wrong with it.
std::string checkFrameView(const FrameView& view);

}  // namespace lumo::render
