// `lumo replay SESSION.jsonl` and `lumo run IMAGE`.
#include <lumo/contract.h>

#include <filesystem>
#include <memory>

#include "commands.h"
#include "failure.h"
#include "host_options.h"
#include "report_command.h"
#include "session.h"

namespace lumo {
namespace {

struct RunOptions {
  HostCommandOptions host;
  std::string image;
  std::string output;
  std::string scene, lux, cct, zoom, instance = "snapshot", format, imageName;
  int faces = -1;
  uint32_t width = 0, height = 0, stride = 0, scanline = 0;
};

}  // namespace

void addReplayCommand(CLI::App& app) {
  auto o = std::make_shared<HostCommandOptions>();
  auto session = std::make_shared<std::string>();
  auto reportPage = std::make_shared<std::string>();
  CLI::App* c = app.add_subcommand(
      "replay",
      "Feed a capture session (one JSON object per line, one line per frame) through "
      "the plugin as the camera host does");
  c->add_option("SESSION", *session, "Session file (.jsonl); - reads standard input")->required();
  addHostOptions(*c, *o);
  c->add_option("--report", *reportPage,
                "Also write an offline HTML page of the run (docs/report.md)");
  c->footer(
      "Session line: {\"instance\": \"preview\"|\"snapshot\", \"frame\": N, \"width\": W, "
      "\"height\": H, \"stride\": S, \"scanline\": L, \"format\": \"nv21\"|\"nv12\"|\"rgba\", "
      "\"input\": FILE|\"generated:NAME\", \"output\": FILE, \"meta\": {\"cct\": K, \"lux\": L, "
      "\"scene\": ID|NAME, \"faces\": N, \"zoom\": Z, \"image_name\": S, \"stylization\": N, "
      "\"tags\": {...}}}. Only \"instance\" is required. YUV frames are bound to RGB with "
      "full-range BT.601 (JFIF). See docs/lumo.md.");
  c->callback([o, session, reportPage] {
    const auto frames = readSession(*session);
    if (frames.empty()) throw Failure(*session + ": no frames in the session");
    for (const SessionFrame& f : frames)
      if (f.output)
        if (const std::string why = outputNameProblem(*f.output); !why.empty())
          throw Failure(f.where("output") + "\"" + *f.output + "\": " + why);
    const auto dir = std::filesystem::path(*session).parent_path();
    const std::string sessionDir = dir.empty() ? "." : dir.string();
    const auto reports = runFrames(frames, *o, sessionDir);
    if (!reportPage->empty())
      writeSessionReport(frames, reports, sessionDir,
                         std::filesystem::path(*session).filename().string(), *reportPage);
  });
}

void addRunCommand(CLI::App& app) {
  auto o = std::make_shared<RunOptions>();
  o->host.stylization = 1;
  CLI::App* c = app.add_subcommand("run", "Run one image through the plugin");
  c->add_option("IMAGE", o->image,
                "Input: PNG, JPEG, raw .nv21/.nv12/.rgba dump, or generated:NAME")
      ->required();
  c->add_option("-o,--output", o->output, "Output image (.png, .jpg, .nv21, .nv12, .rgba)")
      ->required()
      ->check(outputImageName());
  c->add_option("--scene", o->scene, "AI scene id or name: " + sceneNameList());
  c->add_option("--lux", o->lux, "Lux index (float: number, nan, inf, -inf, 0x3f800000)");
  c->add_option("--cct", o->cct, "Colour temperature in kelvin");
  c->add_option("--zoom", o->zoom, "Zoom ratio (float)");
  c->add_option("--faces", o->faces, "Number of face rectangles")->check(CLI::Range(0, 1 << 20));
  c->add_option("--image-name", o->imageName, "Snapshot image name tag");
  c->add_option("--instance", o->instance, "snapshot (process mode 0) or preview (mode 1)")
      ->check(CLI::IsMember({"snapshot", "preview"}));
  c->add_option("--format", o->format,
                "Buffer format handed to the plugin: nv21 (default), "
                "nv12, rgba")
      ->check(CLI::IsMember({"nv21", "nv12", "rgba"}));
  c->add_option("--width", o->width,
                "Width of a raw input or generated scene; a PNG or JPEG is cropped to it "
                "(centred)")
      ->check(CLI::Range(1u, kMaxFrameSide));
  c->add_option("--height", o->height,
                "Height of a raw input or generated scene; a PNG or JPEG is cropped to it "
                "(centred)")
      ->check(CLI::Range(1u, kMaxFrameSide));
  c->add_option("--stride", o->stride, "Row stride in pixels of the buffer")
      ->check(CLI::Range(1u, kMaxFrameSide));
  c->add_option("--scanline", o->scanline, "Rows per plane of the buffer")
      ->check(CLI::Range(1u, kMaxFrameSide));
  addHostOptions(*c, o->host, false);
  c->footer(
      "The session stylisation type defaults to 1 here so the plugin is enabled; pass "
      "--stylization 0 to see the host copy instead. YUV is full-range BT.601 (JFIF). YUV "
      "frames of odd size are padded to even by repeating the last column and row, and the "
      "result is cropped back; --format rgba hands the plugin the picture as it is.");
  c->callback([o] {
    SessionFrame f;
    f.file = "run";
    f.line = 0;
    f.instance = o->instance == "preview" ? InstanceKind::Preview : InstanceKind::Snapshot;
    f.input = o->image;
    if (o->width) f.width = o->width;
    if (o->height) f.height = o->height;
    if (o->stride) f.stride = o->stride;
    if (o->scanline) f.scanline = o->scanline;
    if (!o->format.empty()) f.format = parseFormat(o->format);
    checkFrameMemory(f);
    if (!o->scene.empty()) {
      const std::string& scene = o->scene;
      if (scene == kPortraitScene || scene == "portrait") {
        // The camera reports portraits through faces, not through a scene id.
        f.meta.scene = kCommonSceneId;
        f.meta.faces = 1;
      } else if (auto id = sceneIdOfName(scene)) {
        f.meta.scene = *id;
      } else if (!scene.empty() && scene.size() <= 10 &&
                 scene.find_first_not_of("0123456789") == std::string::npos &&
                 std::stoull(scene) <= 0xFFFFFFFFull) {
        f.meta.scene = uint32_t(std::stoull(scene));
      } else {
        throw CLI::ValidationError(
            "--scene", "expected an id or one of " + sceneNameList() + ", got " + scene);
      }
    }
    if (!o->lux.empty()) f.meta.lux = parseFloatArgument(o->lux, "--lux");
    if (!o->zoom.empty()) f.meta.zoom = parseFloatArgument(o->zoom, "--zoom");
    if (!o->cct.empty()) {
      try {
        f.meta.cct = unsignedArgument(o->cct, "");
      } catch (const Failure& e) {
        throw CLI::ValidationError("--cct", e.what());
      }
    }
    if (o->faces >= 0) f.meta.faces = uint32_t(o->faces);
    if (!o->imageName.empty()) f.meta.imageName = o->imageName;
    const std::filesystem::path out(o->output);
    o->host.outDir = out.parent_path().empty() ? "." : out.parent_path().string();
    // A mistyped folder is refused rather than created, as cp or convert would.
    if (!std::filesystem::is_directory(o->host.outDir))
      throw Failure(o->output + ": the folder " + o->host.outDir + " does not exist");
    f.output = out.filename().string();
    try {
      runFrames({f}, o->host, ".");
    } catch (const Failure& e) {
      // Geometry given on the command line that the picture cannot have is a usage error.
      const std::string message = e.what();
      for (const char* field : {"width", "height", "stride", "scanline", "format"}) {
        const std::string tag = std::string(f.file) + ": --" + field + ": ";
        const auto at = message.find(tag);
        if (at == 0)
          throw CLI::ValidationError(std::string("--") + field, message.substr(at + tag.size()));
      }
      throw;
    }
  });
}

}  // namespace lumo
