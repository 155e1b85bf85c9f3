// Output file names.
#include "output_names.h"

namespace lumo {

std::string rawOutputName(const std::string& stem, const Geometry& g) {
  std::string name = stem + "_" + std::to_string(g.width) + "x" + std::to_string(g.height) + "_" +
                     std::to_string(g.stride);
  if (g.scanline != g.height) name += "_" + std::to_string(g.scanline);
  return name + "." + formatName(g.format);
}

}  // namespace lumo
