// Framework utilities plugins call on host image buffers.
#pragma once

#include <vyalgo2/VyImageBuffer.h>

namespace vyalgo2 {

class PluginUtils {
public:
  // Copies the pixels of `src` into `dst` plane by plane, row by row,
  // honouring each buffer's stride and scanline. Returns 0, or -1 when the
  // formats or sizes differ or a plane address is missing.
  static int vyCopyBuffer(VyImageBuffer* dst, VyImageBuffer* src);
  // Writes the buffer's planes to the device's camera dump folder under
  // `name` plus an extension for the format. Returns 0 or -1.
  static int dumpToFile(VyImageBuffer* buffer, const char* name);
};

}  // namespace vyalgo2
