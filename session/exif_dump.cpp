// Parser of the plugin's parameter text dumps.
#include "exif_dump.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace lumo {

std::vector<ExifBlock> readExifDump(const std::string& path) {
  std::vector<ExifBlock> blocks;
  std::ifstream in(path);
  std::string line;
  ExifBlock current;
  bool open = false;
  auto flush = [&] {
    if (open) blocks.push_back(current);
    current = ExifBlock{};
    open = false;
  };
  while (std::getline(in, line)) {
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    const std::string key = line.substr(0, eq), value = line.substr(eq + 1);
    // A block starts at frameNum (preview) or at width (snapshot, or preview
    // without frame numbers).
    if (key == "frameNum" || (key == "width" && (!open || !current.width.empty()))) flush();
    open = true;
    if (key == "frameNum")
      current.frameNum = uint32_t(std::strtoul(value.c_str(), nullptr, 10));
    else if (key == "width")
      current.width = value;
    else if (key == "height")
      current.height = value;
    else if (key == "aiscene")
      current.aiscene = value;
    else if (key == "lux")
      current.lux = value;
    else if (key == "cct")
      current.cct = value;
    else if (key == "zoom_ratio")
      current.zoomRatio = value;
    else if (key == "shading")
      current.shading = value;
    else if (key == "lut_algo_input") {
      std::istringstream values(value.substr(value.find('[') + 1));
      unsigned v;
      while (values >> v) current.lut.push_back(uint8_t(v));
    }
  }
  flush();
  return blocks;
}

}  // namespace lumo
