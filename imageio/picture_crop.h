// Fitting pictures to buffers. A 4:2:0 buffer holds one chroma sample per
// 2x2 block, so YUV frames of odd size are handed to the plugin padded to
// even by repeating the last column and row, and the result is cropped back
// to the picture. Pictures (PNG, JPEG) can also be cropped to a smaller size.
#pragma once

#include <cstdint>

#include "image.h"

namespace lumo {

// The same image with an even width and height: the last column and row
// repeated (YUV: the last chroma samples already cover the new pixels).
// Stride and scanline grow only when they must.
Image padToEven(const Image& image);

// The centred width x height part of an RGBA picture (odd margins leave the
// extra pixel on the right and at the bottom).
Image cropCentre(const Image& rgba, uint32_t width, uint32_t height);

// Keeps the buffer as it is laid out and narrows the picture inside it to
// its top-left width x height: what a padded frame shrinks back to.
void shrinkPicture(Image& image, uint32_t width, uint32_t height);

}  // namespace lumo
