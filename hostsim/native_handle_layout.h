// The integers an image buffer's native handle carries after its one fd.
#pragma once

namespace hostsim {

enum HandleInt {
  kHandleMagic = 0,
  kHandleFormat,
  kHandleWidth,
  kHandleHeight,
  kHandleStride,
  kHandleScanline,
  kHandleSizeLow,
  kHandleSizeHigh,
  kHandleInts,
};

// Marks handles made by ImageBuffer ("LUMO").
constexpr int kHandleMagicValue = 0x4c554d4f;

}  // namespace hostsim
