// Parses raw-dump geometry out of file names.
#include "dump_name.h"

#include <lumo/contract.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>

namespace lumo {
namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

uint32_t toU32(const std::string& digits) {
  const unsigned long long v = std::stoull(digits);
  return v > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(v);
}

}  // namespace

std::optional<PixelFormat> formatFromName(const std::string& path) {
  const std::filesystem::path p(path);
  const std::string ext = lower(p.extension().string());
  if (!ext.empty()) {
    if (auto f = parseFormat(ext.substr(1))) return f;
  }
  static const std::regex word("(^|[^a-z0-9])(nv21|nv12|rgba)([^a-z0-9]|$)");
  std::smatch m;
  const std::string stem = lower(p.stem().string());
  if (std::regex_search(stem, m, word)) return parseFormat(m[2].str());
  return std::nullopt;
}

std::optional<PluginDumpName> pluginDumpName(const std::string& path) {
  // The plugin formats names into 128 bytes; a long image name can cut the
  // geometry off, and then the name is not one of these.
  static const std::regex name(std::string("^(.*)_\\[") + lumo::kImageDumpModule +
                               "\\]_([A-Za-z]*)_frame\\[(\\d{1,10})\\]_([a-z]+)_(\\d{1,9})x("
                               "\\d{1,9})_(\\d{1,9})$");
  const std::string stem = std::filesystem::path(path).stem().string();
  std::smatch m;
  if (!std::regex_match(stem, m, name)) return std::nullopt;
  PluginDumpName out;
  out.imageName = m[1].str();
  out.instance = m[2].str();
  out.frame = toU32(m[3].str());
  out.role = m[4].str();
  out.width = toU32(m[5].str());
  out.height = toU32(m[6].str());
  out.stride = toU32(m[7].str());
  return out;
}

std::optional<NameGeometry> geometryFromName(const std::string& path) {
  const std::string stem = std::filesystem::path(path).stem().string();
  static const std::regex spelled(
      "width_(\\d{1,9})_height_(\\d{1,9})(?:_stride_(\\d{1,9}))?(?:_scanline_(\\d{1,9}))?",
      std::regex::icase);
  // The dump-name form sits at the end of the stem: _WxH, then stride, then scanline.
  static const std::regex compact("(?:^|_)(\\d{1,9})x(\\d{1,9})(?:_(\\d{1,9}))?(?:_(\\d{1,9}))?$");
  std::smatch m;
  if (!std::regex_search(stem, m, spelled) && !std::regex_search(stem, m, compact))
    return std::nullopt;
  NameGeometry g;
  g.width = toU32(m[1].str());
  g.height = toU32(m[2].str());
  if (m[3].matched) g.stride = toU32(m[3].str());
  if (m[4].matched) g.scanline = toU32(m[4].str());
  g.format = formatFromName(path);
  return g;
}

}  // namespace lumo
