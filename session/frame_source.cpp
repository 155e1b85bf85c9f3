// Input images of session frames.
#include "frame_source.h"

#include <filesystem>
#include <utility>

#include "failure.h"
#include "image_files.h"
#include "picture_crop.h"
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

// A picture larger than the frame's width or height is cropped to its centre.
// The picture itself (moved, not copied) when it already has the frame's size.
Image cropToFrame(Image picture, const SessionFrame& frame, const std::string& path) {
  const Geometry& g = picture.geometry;
  const uint32_t w = frame.width.value_or(g.width), h = frame.height.value_or(g.height);
  if (w > g.width || h > g.height) {
    const char* field = w > g.width ? "width" : "height";
    throw Failure(frame.where(field) + std::to_string(w > g.width ? w : h) + " is larger than " +
                  path + " (" + std::to_string(g.width) + "x" + std::to_string(g.height) +
                  "): a picture can only be cropped");
  }
  if (w == g.width && h == g.height) return picture;
  return cropCentre(picture, w, h);
}

}  // namespace

FrameImage loadFrameImage(const SessionFrame& frame, const std::string& baseDir) {
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
    // A picture that is not cropped may come straight in the buffer's layout.
    std::optional<PixelFormat> decodeAs;
    if (!frame.width && !frame.height) decodeAs = frame.format.value_or(PixelFormat::NV21);
    try {
      source = readImage(path, hints, decodeAs);
    } catch (const Failure& e) {
      throw Failure(frame.where("input") + e.what());
    }
    if (!raw) source = cropToFrame(std::move(source), frame, path);
  }
  FrameImage out;
  out.width = source.geometry.width;
  out.height = source.geometry.height;
  const PixelFormat format =
      frame.format.value_or(raw ? source.geometry.format : PixelFormat::NV21);
  const bool padded = isYuv(format) && (out.width % 2 != 0 || out.height % 2 != 0);
  if (padded) source = padToEven(source);
  Geometry target{format, source.geometry.width, source.geometry.height,
                  frame.stride.value_or(raw && format == source.geometry.format
                                            ? source.geometry.stride
                                            : tightStride(format, source.geometry.width)),
                  frame.scanline.value_or(raw ? source.geometry.scanline : source.geometry.height)};
  std::string bad = checkGeometry(target);
  if (!bad.empty()) {
    const auto says = [&bad](const char* word) { return bad.find(word) != std::string::npos; };
    const char* field = frame.stride && says("stride")       ? "stride"
                        : frame.scanline && says("scanline") ? "scanline"
                                                             : "width";
    if (padded)
      bad += " (" + std::string(formatName(format)) + " frames of odd size are padded to " +
             std::to_string(target.width) + "x" + std::to_string(target.height) + ")";
    if (isYuv(format) && bad.find("stride must be even") != std::string::npos)
      bad += "; rgba frames take any stride";
    throw Failure(frame.where(field) + bad);
  }
  const Geometry& sg = source.geometry;
  const bool asItIs =
      sg.format == format && sg.stride == target.stride && sg.scanline == target.scanline;
  out.buffer =
      asItIs ? std::move(source) : convertImage(source, format, target.stride, target.scanline);
  return out;
}

}  // namespace lumo
