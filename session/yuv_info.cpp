// Inspection of raw dumps for `lumo yuv info`.
#include "yuv_info.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "failure.h"

namespace lumo {
namespace {

std::string quoted(const std::string& word) {
  std::string out = "'";
  for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Where a value came from: an option, the name, or (when neither says) `otherwise`.
uint32_t pick(uint32_t option, uint32_t named, std::string& from, const char* otherwise) {
  if (option != 0) {
    from = "option";
    return option;
  }
  if (named != 0) {
    from = "name";
    return named;
  }
  from = otherwise;
  return 0;
}

std::string sizeText(const Geometry& g, bool tight) {
  std::string s = std::to_string(fullBytes(g));
  if (tight) s = std::to_string(tightBytes(g)) + " (chroma cut after its last used row)";
  return s;
}

const char* chromaName(PixelFormat f) { return f == PixelFormat::NV12 ? "UV" : "VU"; }

std::string sourceText(const std::string& from) {
  if (from == "option") return "the options";
  if (from == "name") return "the name";
  if (from == "size") return "the file size";
  return "the file size and common camera picture sizes";
}

}  // namespace

YuvInfo inspectRaw(const std::string& path, const RawHints& hints) {
  YuvInfo info;
  info.path = path;
  std::error_code ec;
  info.bytes = std::filesystem::file_size(path, ec);
  if (ec) {
    info.problems.push_back("cannot read: " + ec.message());
    return info;
  }
  if (fileKindOf(path) != FileKind::Raw) {
    info.problems.push_back("a PNG or JPEG file, not a raw dump");
    return info;
  }
  info.dump = pluginDumpName(path);
  const auto named = geometryFromName(path);
  if (hints.format) {
    info.format = *hints.format;
    info.formatFrom = "option";
  } else if (auto f = formatFromName(path)) {
    info.format = *f;
    info.formatFrom = "name";
  } else {
    info.formatFrom = "assumed";  // camera dumps are NV21 unless they say otherwise
  }
  Geometry& s = info.stated;
  s.format = info.format;
  std::string heightFrom;
  s.width = pick(hints.width, named ? named->width : 0, info.widthFrom, "guess");
  s.height = pick(hints.height, named ? named->height : 0, heightFrom, "guess");
  if (info.widthFrom != heightFrom) info.widthFrom = "option";  // one given, the other named
  s.stride = pick(hints.stride, named ? named->stride : 0, info.strideFrom, "size");
  s.scanline = pick(hints.scanline, named ? named->scanline : 0, info.scanlineFrom, "size");

  if (s.width == 0 || s.height == 0) {
    if (s.width != 0 || s.height != 0) {
      info.problems.push_back("give both the width and the height, or neither");
      return info;
    }
    info.layouts = layoutsForSizeAnyPicture(info.bytes, info.format);
    if (info.formatFrom == "assumed") {
      const auto rgba = layoutsForSizeAnyPicture(info.bytes, PixelFormat::RGBA);
      info.layouts.insert(info.layouts.end(), rgba.begin(), rgba.end());
    }
    if (!info.layouts.empty()) info.format = info.layouts.front().geometry.format;
    if (info.layouts.empty())
      info.problems.push_back(std::to_string(info.bytes) +
                              " bytes fit no common camera picture size with the usual "
                              "alignments: give --width and --height");
    else if (info.layouts.size() > 1)
      info.problems.push_back("the size fits several pictures: give --width and --height");
    return info;
  }
  if (s.stride != 0) {
    Geometry check = completeGeometry(s);
    const std::string bad = checkGeometry(check);
    if (!bad.empty()) {
      info.problems.push_back(bad);
      return info;
    }
  }
  info.layouts = layoutsForSize(info.bytes, s);
  if (!info.layouts.empty()) return info;
  // Say what the stated geometry needs, and whether another padding would fit.
  const Geometry tight = completeGeometry(s);
  std::string need = std::to_string(fullBytes(tight));
  if (tightBytes(tight) != fullBytes(tight))
    need = std::to_string(tightBytes(tight)) + " or " + need;
  std::string problem = std::to_string(info.bytes) + " bytes do not match " +
                        describeGeometry(tight) + " (expected " + need + " bytes)";
  Geometry open = s;
  open.stride = hints.stride;
  open.scanline = hints.scanline;
  if (const auto other = layoutsForSize(info.bytes, open); !other.empty())
    problem += "; the size fits " + describeGeometry(other.front().geometry);
  info.problems.push_back(problem);
  return info;
}

std::string ffplayCommand(const YuvInfo& info, std::string* why) {
  if (info.layouts.empty()) {
    if (why) *why = "the layout is not known";
    return {};
  }
  const RawLayout& l = info.layouts.front();
  const Geometry& g = l.geometry;
  // rawvideo frames are whole buffers of video_size; a chroma plane that
  // starts after padding rows but stops early is no such frame.
  if (l.tight) {
    if (why)
      *why = "the chroma plane starts after " + std::to_string(g.scanline - g.height) +
             " padding rows but stops after its last used row; write a preview with -o";
    return {};
  }
  std::string cmd = std::string("ffplay -f rawvideo -pixel_format ") + formatName(g.format) +
                    " -video_size " + std::to_string(g.stride) + "x" + std::to_string(g.scanline);
  if (g.stride != g.width || g.scanline != g.height)
    cmd += " -vf crop=" + std::to_string(g.width) + ":" + std::to_string(g.height) + ":0:0";
  return cmd + " " + quoted(info.path);
}

std::string describeInfo(const YuvInfo& info) {
  std::string out = info.path + "\n";
  auto line = [&out](const char* key, const std::string& value) {
    char head[16];
    std::snprintf(head, sizeof(head), "  %-10s", key);
    out += head + value + "\n";
  };
  if (info.dump) {
    const PluginDumpName& d = *info.dump;
    line("dump", "plugin image dump: image \"" + d.imageName + "\", " + d.instance + ", frame " +
                     std::to_string(d.frame) + ", " + d.role);
  }
  // A file that is no raw dump (a picture, one that cannot be read) has no format to show.
  if (!info.formatFrom.empty())
    line("format", std::string(formatName(info.format)) + " (" +
                       (info.formatFrom == "assumed"
                            ? "assumed: the name does not say; nv12 has the same size"
                            : "from the " + info.formatFrom) +
                       ")");
  line("size", std::to_string(info.bytes) + " bytes");
  if (!info.layouts.empty()) {
    const RawLayout& l = info.layouts.front();
    const Geometry& g = l.geometry;
    line("geometry", std::to_string(g.width) + "x" + std::to_string(g.height) + " stride " +
                         std::to_string(g.stride) + " scanline " + std::to_string(g.scanline) +
                         " (picture size from " + sourceText(info.widthFrom) + ", stride from " +
                         sourceText(info.strideFrom) + ", scanline from " +
                         sourceText(info.scanlineFrom) + ")");
    line("padding", std::to_string(g.stride - g.width) + " bytes per row (stride aligned to " +
                        std::to_string(l.strideAlignment) + "), " +
                        std::to_string(g.scanline - g.height) + " rows (scanline aligned to " +
                        std::to_string(l.scanlineAlignment) + ")");
    const uint64_t rowBytesY = isYuv(g.format) ? g.stride : uint64_t(g.stride) * 4;
    const uint64_t plane0 = rowBytesY * g.scanline;
    line(isYuv(g.format) ? "Y plane" : "RGBA",
         std::to_string(rowBytesY) + " x " + std::to_string(g.scanline) +
             " rows = " + std::to_string(plane0) + " bytes at 0");
    if (isYuv(g.format)) {
      const uint32_t rows = l.tight ? (g.height + 1) / 2 : (g.scanline + 1) / 2;
      line((std::string(chromaName(g.format)) + " plane").c_str(),
           std::to_string(g.stride) + " x " + std::to_string(rows) + " rows = " +
               std::to_string(uint64_t(g.stride) * rows) + " bytes at " + std::to_string(plane0));
    }
    line("total", sizeText(g, l.tight) + " bytes = the file size");
    for (size_t i = 1; i < info.layouts.size() && i < 5; ++i)
      line("also fits", describeGeometry(info.layouts[i].geometry) +
                            (info.layouts[i].tight ? " (chroma cut short)" : ""));
    if (info.layouts.size() > 5)
      line("also fits", std::to_string(info.layouts.size() - 5) + " more");
    std::string why;
    const std::string cmd = ffplayCommand(info, &why);
    line("ffplay", cmd.empty() ? "none: " + why : cmd);
  }
  for (const std::string& p : info.problems) line("problem", p);
  return out;
}

nlohmann::json infoJson(const YuvInfo& info) {
  nlohmann::json j = {{"file", info.path},
                      {"bytes", info.bytes},
                      {"format", formatName(info.format)},
                      {"format_from", info.formatFrom},
                      {"ok", info.ok()},
                      {"problems", info.problems}};
  if (info.dump)
    j["dump"] = {{"image_name", info.dump->imageName},
                 {"instance", info.dump->instance},
                 {"frame", info.dump->frame},
                 {"role", info.dump->role}};
  nlohmann::json layouts = nlohmann::json::array();
  for (const RawLayout& l : info.layouts)
    layouts.push_back({{"width", l.geometry.width},
                       {"height", l.geometry.height},
                       {"stride", l.geometry.stride},
                       {"scanline", l.geometry.scanline},
                       {"chroma_cut_short", l.tight}});
  j["layouts"] = layouts;
  if (!info.layouts.empty())
    j["from"] = {{"picture_size", info.widthFrom},
                 {"stride", info.strideFrom},
                 {"scanline", info.scanlineFrom}};
  const std::string cmd = ffplayCommand(info);
  j["ffplay"] = cmd.empty() ? nlohmann::json() : nlohmann::json(cmd);
  return j;
}

Image readLayout(const YuvInfo& info) {
  if (info.layouts.empty()) throw Failure(info.path + ": the layout is not known");
  Image image = makeImage(info.layouts.front().geometry);
  std::ifstream in(info.path, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(image.bytes.data()), std::streamsize(info.bytes)))
    throw Failure(info.path + ": cannot read");
  return image;
}

}  // namespace lumo
