// Reading a dump folder back into session lines.
#include "dump_session.h"

#include <lumo/contract.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <tuple>

#include "dump_name.h"
#include "exif_dump.h"
#include "failure.h"
#include "output_names.h"
#include "yuv_info.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;
// Keys keep the order a session line is usually written in.
using OrderedJson = nlohmann::ordered_json;

std::string regexQuoted(const std::string& text) {
  static const std::string kSpecial = R"(\^$.|?*+()[]{})";
  std::string out;
  for (char c : text) {
    if (kSpecial.find(c) != std::string::npos) out += '\\';
    out += c;
  }
  return out;
}

// What the plugin's printf name pattern (only %s fields) makes, as a regex:
// a field given as null is captured, the others must read as given.
std::regex dumpNameRegex(const char* pattern, std::initializer_list<const char*> fields) {
  std::string re = "^";
  auto field = fields.begin();
  for (const char* p = pattern; *p != '\0'; ++p) {
    if (p[0] == '%' && p[1] == 's' && field != fields.end()) {
      re += *field == nullptr ? "(.*)" : regexQuoted(*field);
      ++field;
      ++p;
    } else {
      re += regexQuoted(std::string(1, *p));
    }
  }
  return std::regex(re + "$");
}

struct ImageDump {
  fs::path path;
  PluginDumpName name;
};

struct PreviewBlock {
  std::string file;  // the text dump holding it
  ExifBlock block;
};

bool isDecimal(const std::string& s) {
  return !s.empty() && s.size() <= 10 && s.find_first_not_of("0123456789") == std::string::npos;
}

// The metadata a text block recorded, as session keys. The plugin wrote lux
// and CCT as the 16-bit values it used, which the session sends back as they
// are; the scene as the name the plugin matched, which the session spells the
// same way.
OrderedJson metaOf(const ExifBlock& b, const std::string& where,
                   std::vector<std::string>& warnings) {
  OrderedJson meta = OrderedJson::object();
  meta["stylization"] = 1;
  for (const auto& [key, text] :
       {std::pair<const char*, std::string>{"lux", b.lux}, {"cct", b.cct}}) {
    if (isDecimal(text))
      meta[key] = std::stoul(text);
    else
      warnings.push_back(where + ": " + key + " \"" + text + "\" is not a number: left out");
  }
  char* end = nullptr;
  const double zoom = std::strtod(b.zoomRatio.c_str(), &end);
  if (!b.zoomRatio.empty() && end && *end == '\0')
    meta["zoom"] = zoom;
  else
    warnings.push_back(where + ": zoom_ratio \"" + b.zoomRatio + "\" is not a number: left out");
  if (isCameraScene(b.aiscene))
    meta["scene"] = b.aiscene;
  else
    warnings.push_back(where + ": aiscene \"" + b.aiscene +
                       "\" is no scene the camera reports (a debug override?): left out");
  return meta;
}

std::string relativeTo(const fs::path& file, const std::string& dir) {
  const fs::path base = fs::absolute(dir.empty() ? "." : dir).lexically_normal();
  const fs::path rel = fs::absolute(file).lexically_normal().lexically_relative(base);
  return rel.empty() ? fs::absolute(file).string() : rel.string();
}

}  // namespace

DumpSession sessionFromDumps(const std::string& dumpDir, const std::string& sessionDir,
                             bool pngOutputs) {
  std::error_code ec;
  if (!fs::is_directory(dumpDir, ec)) throw Failure(dumpDir + ": no such folder");
  DumpSession out;
  std::vector<ImageDump> inputs;
  std::map<std::string, std::vector<fs::path>> snapshotText;  // by image name
  std::vector<std::pair<std::string, fs::path>> previewText;  // time stamp, file
  static const std::regex snapshotName =
      dumpNameRegex(kSnapshotExifName, {nullptr, kSnapshotInstance});
  static const std::regex previewName =
      dumpNameRegex(kPreviewExifName, {kPreviewInstance, nullptr});
  for (auto it = fs::recursive_directory_iterator(dumpDir, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (!it->is_regular_file()) continue;
    const std::string file = it->path().filename().string();
    std::smatch m;
    if (std::regex_match(file, m, previewName)) {
      previewText.emplace_back(m[1].str(), it->path());
    } else if (std::regex_match(file, m, snapshotName)) {
      snapshotText[m[1].str()].push_back(it->path());
    } else if (auto name = pluginDumpName(file); name && name->role == "input") {
      inputs.push_back({it->path(), *name});
    }
  }
  if (ec) throw Failure(dumpDir + ": cannot read: " + ec.message());
  if (inputs.empty()) throw Failure(dumpDir + ": no input image dumps of the plugin in it");

  // Preview blocks by frame number; later files (by their time stamp) last.
  std::sort(previewText.begin(), previewText.end());
  std::map<uint32_t, std::vector<PreviewBlock>> previewBlocks;
  for (const auto& [stamp, file] : previewText)
    for (const ExifBlock& b : readExifDump(file.string()))
      if (b.frameNum) previewBlocks[*b.frameNum].push_back({file.filename().string(), b});
  // A snapshot text dump is rewritten by every snapshot of the same image
  // name: it belongs to the last of them, taken to be the highest frame number.
  std::map<std::string, uint32_t> lastSnapshotFrame;
  for (const ImageDump& d : inputs)
    if (d.name.instance == kSnapshotInstance) {
      auto [it, added] = lastSnapshotFrame.emplace(d.name.imageName, d.name.frame);
      if (!added) it->second = std::max(it->second, d.name.frame);
    }

  std::sort(inputs.begin(), inputs.end(), [](const ImageDump& a, const ImageDump& b) {
    return std::tuple(a.name.frame, a.name.instance != kPreviewInstance, a.name.imageName, a.path) <
           std::tuple(b.name.frame, b.name.instance != kPreviewInstance, b.name.imageName, b.path);
  });
  for (const ImageDump& d : inputs) {
    const std::string where = d.path.filename().string();
    const bool preview = d.name.instance == kPreviewInstance;
    if (!preview && d.name.instance != kSnapshotInstance) {
      out.warnings.push_back(where + ": instance \"" + d.name.instance +
                             "\" is neither preview nor snapshot: left out");
      continue;
    }
    const YuvInfo info = inspectRaw(d.path.string(), {});
    if (!info.ok()) {
      out.warnings.push_back(where + ": " +
                             (info.problems.empty() ? "unknown layout" : info.problems.front()) +
                             ": left out");
      continue;
    }
    const Geometry& g = info.layouts.front().geometry;

    std::optional<ExifBlock> block;
    std::string blockFile;
    if (preview) {
      std::vector<PreviewBlock> found = previewBlocks[d.name.frame];
      const auto sameSize = [&](const PreviewBlock& p) {
        return p.block.width == std::to_string(g.width) &&
               p.block.height == std::to_string(g.height);
      };
      if (std::any_of(found.begin(), found.end(), sameSize))
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&](const PreviewBlock& p) { return !sameSize(p); }),
                    found.end());
      if (found.size() > 1)
        out.warnings.push_back(where + ": " + std::to_string(found.size()) +
                               " preview text blocks hold frame " + std::to_string(d.name.frame) +
                               ": the one in " + found.back().file + " is used");
      if (!found.empty()) {
        block = found.back().block;
        blockFile = found.back().file;
      }
    } else {
      const auto files = snapshotText.find(d.name.imageName);
      if (files != snapshotText.end() && lastSnapshotFrame[d.name.imageName] == d.name.frame) {
        const auto blocks = readExifDump(files->second.front().string());
        if (!blocks.empty()) {
          block = blocks.front();
          blockFile = files->second.front().filename().string();
        }
      } else if (files != snapshotText.end()) {
        out.warnings.push_back(where + ": the text dump of image \"" + d.name.imageName +
                               "\" was rewritten by a later snapshot of the same name");
      }
    }
    if (block &&
        (block->width != std::to_string(g.width) || block->height != std::to_string(g.height)))
      out.warnings.push_back(where + ": " + blockFile + " records " + block->width + "x" +
                             block->height + ", the image is " + std::to_string(g.width) + "x" +
                             std::to_string(g.height));

    OrderedJson line = {{"instance", preview ? "preview" : "snapshot"},
                        {"frame", d.name.frame},
                        {"input", relativeTo(d.path, sessionDir)}};
    // The host picks the dump's extension; one that names no format is a
    // camera buffer, NV21 unless told otherwise.
    if (info.formatFrom == "assumed") {
      line["format"] = formatName(g.format);
      out.warnings.push_back(where + ": the name does not say the pixel format: taken as " +
                             formatName(g.format));
    }
    std::string stem = d.name.imageName.empty() ? "" : d.name.imageName + "_";
    stem += std::string(preview ? "preview" : "snapshot") + "_frame" + std::to_string(d.name.frame);
    line["output"] = pngOutputs ? stem + ".png" : rawOutputName(stem, g);
    OrderedJson meta = OrderedJson::object();
    if (block) {
      meta = metaOf(*block, blockFile + " frame " + std::to_string(d.name.frame), out.warnings);
    } else {
      meta["stylization"] = 1;
      ++out.withoutValues;
      out.warnings.push_back(where +
                             ": no text dump block for this frame: replayed without "
                             "lux, CCT, scene or zoom");
    }
    // Both instances name their dumps after the last image name they saw.
    if (!d.name.imageName.empty()) meta["image_name"] = d.name.imageName;
    line["meta"] = meta;
    out.lines.push_back(line.dump());
    ++(preview ? out.preview : out.snapshot);
  }
  return out;
}

}  // namespace lumo
