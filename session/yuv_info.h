// `lumo yuv info`: what a raw dump holds. The geometry comes from options,
// from the name (both dump-name forms, and the plugin's own image dump names)
// or, for what they leave open, from the file size with the usual camera
// stride and scanline alignments. The arithmetic is checked and shown, and a
// ready ffplay command line is built for the buffer as it is laid out.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "dump_name.h"
#include "image.h"
#include "image_files.h"
#include "raw_geometry.h"

namespace lumo {

struct YuvInfo {
  std::string path;
  uint64_t bytes = 0;
  PixelFormat format = PixelFormat::NV21;
  std::string formatFrom;  // "option", "name", "assumed"
  std::optional<PluginDumpName> dump;
  Geometry stated;                                  // what options and name say (zero: not said)
  std::string widthFrom, strideFrom, scanlineFrom;  // "option", "name", "size", "guess"
  std::vector<RawLayout> layouts;                   // every layout that fits the size, best first
  std::vector<std::string> problems;                // the arithmetic does not add up

  bool ok() const { return problems.empty() && !layouts.empty(); }
};

YuvInfo inspectRaw(const std::string& path, const RawHints& hints);

// Empty when no rawvideo frame size fits the layout; `why` then says why.
std::string ffplayCommand(const YuvInfo& info, std::string* why = nullptr);

// Indented lines for people; a JSON object for scripts.
std::string describeInfo(const YuvInfo& info);
nlohmann::json infoJson(const YuvInfo& info);

// The picture of the best layout, read from the file. Throws Failure.
Image readLayout(const YuvInfo& info);

}  // namespace lumo
