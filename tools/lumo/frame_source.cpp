// Input images of session frames.
#include "frame_source.h"

#include <filesystem>

#include "failure.h"
#include "image_files.h"
#include "test_scenes.h"
#include "yuv_convert.h"

namespace lumo {
namespace {

std::string resolve(const std::string& name, const std::string& baseDir) {
  const std::filesystem::path p(name);
  if (!p.is_relative() || baseDir.empty() || baseDir == ".") return name;
  return (std::filesystem::path(baseDir) / p).string();
}

// A 4:2:0 buffer needs an even stride; tight RGBA rows need none.
uint32_t tightStride(PixelFormat f, uint32_t width) { return isYuv(f) ? (width + 1) & ~1u : width; }

}  // namespace

Image loadFrameImage(const SessionFrame& frame, const std::string& baseDir) {
  Image source;
  bool raw = false;
  if (!frame.input || frame.input->starts_with(kGeneratedPrefix)) {
    const std::string scene =
        frame.input ? frame.input->substr(std::string(kGeneratedPrefix).size()) : "chart";
    if (!isGeneratedScene(scene)) {
      std::string known;
      for (const auto& n : generatedSceneNames()) known += (known.empty() ? "" : ", ") + n;
      throw Failure(frame.where("input") + "no generated scene \"" + scene + "\" (known: " + known +
                    ")");
    }
    source = generateScene(scene, frame.width.value_or(kDefaultWidth),
                           frame.height.value_or(kDefaultHeight));
  } else {
    const std::string path = resolve(*frame.input, baseDir);
    raw = fileKindOf(path) == FileKind::Raw;
    RawHints hints;
    hints.format = frame.format;
    hints.width = frame.width.value_or(0);
    hints.height = frame.height.value_or(0);
    hints.stride = frame.stride.value_or(0);
    hints.scanline = frame.scanline.value_or(0);
    try {
      source = readImage(path, hints);
    } catch (const Failure& e) {
      throw Failure(frame.where("input") + e.what());
    }
    const Geometry& g = source.geometry;
    if (!raw && frame.width && *frame.width != g.width)
      throw Failure(frame.where("width") + std::to_string(*frame.width) + " does not match " +
                    path + " (" + std::to_string(g.width) + "x" + std::to_string(g.height) + ")");
    if (!raw && frame.height && *frame.height != g.height)
      throw Failure(frame.where("height") + std::to_string(*frame.height) + " does not match " +
                    path + " (" + std::to_string(g.width) + "x" + std::to_string(g.height) + ")");
  }
  const PixelFormat format =
      frame.format.value_or(raw ? source.geometry.format : PixelFormat::Nv21);
  Geometry target{format, source.geometry.width, source.geometry.height,
                  frame.stride.value_or(raw && format == source.geometry.format
                                            ? source.geometry.stride
                                            : tightStride(format, source.geometry.width)),
                  frame.scanline.value_or(raw ? source.geometry.scanline : source.geometry.height)};
  const std::string bad = checkGeometry(target);
  if (!bad.empty()) {
    const char* field = frame.stride && bad.starts_with("stride")       ? "stride"
                        : frame.scanline && bad.starts_with("scanline") ? "scanline"
                                                                        : "width";
    throw Failure(frame.where(field) + bad);
  }
  if (isYuv(format) && (target.width % 2 != 0 || target.height % 2 != 0))
    throw Failure(frame.where("width") + std::string(formatName(format)) +
                  " frames need an even width and height, got " + std::to_string(target.width) +
                  "x" + std::to_string(target.height));
  return convertImage(source, format, target.stride, target.scanline);
}

}  // namespace lumo
