// Output file names.
#include "output_names.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace lumo {
std::string lowerExtension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return ext;
}

const char* const kOutputExtensions = ".png, .jpg, .jpeg, .nv21, .nv12, .rgba";

std::string outputNameProblem(const std::string& path) {
  const std::string ext = lowerExtension(path);
  if (ext == ".png" || ext == ".jpg" || ext == ".jpeg" || rawOutputFormat(path)) return {};
  const std::string found = ext.empty() ? "no extension" : "\"" + ext + "\"";
  return "cannot tell what to write from " + found + " (known: " + kOutputExtensions + ")";
}

std::optional<PixelFormat> rawOutputFormat(const std::string& path) {
  const std::string ext = lowerExtension(path);
  return ext.empty() ? std::nullopt : parseFormat(ext.substr(1));
}

std::string rawOutputName(const std::string& stem, const Geometry& g) {
  std::string name = stem + "_" + std::to_string(g.width) + "x" + std::to_string(g.height) + "_" +
                     std::to_string(g.stride);
  if (g.scanline != g.height) name += "_" + std::to_string(g.scanline);
  return name + "." + formatName(g.format);
}

}  // namespace lumo
