// Session replay through the simulated camera host.
#include "replay.h"

#include <android/log.h>
#include <hostsim/frame_metadata.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <hostsim/metadata_tags.h>
#include <hostsim/plugin_registry.h>
#include <unistd.h>
#include <vyalgo2/PluginUtils.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <regex>

#include "failure.h"
#include "frame_source.h"
#include "host_setup.h"
#include "image_files.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProviderName = "com.zentor.plugin.vylumofilter";
constexpr const char* kHostTag = "LumoHost";

hostsim::PixelLayout layoutOf(PixelFormat f) {
  switch (f) {
    case PixelFormat::Nv21:
      return hostsim::PixelLayout::NV21;
    case PixelFormat::Nv12:
      return hostsim::PixelLayout::NV12;
    case PixelFormat::Rgba:
      return hostsim::PixelLayout::RGBA8888;
  }
  return hostsim::PixelLayout::NV21;
}

// Copies between the tool's image and a host buffer of the same geometry,
// plane by plane (the host may place planes differently).
void copyPlanes(const Image& image, const hostsim::ImageBuffer& buffer, bool toBuffer) {
  const Geometry& g = image.geometry;
  const uint32_t planes = isYuv(g.format) ? 2 : 1;
  for (uint32_t p = 0; p < planes; ++p) {
    uint8_t* dst = buffer.plane(p);
    const size_t pitch = buffer.rowBytes(p);
    const uint32_t rows = p == 0 ? g.scanline : (g.scanline + 1) / 2;
    for (uint32_t r = 0; r < rows; ++r) {
      uint8_t* hostRow = dst + r * pitch;
      uint8_t* imageRow = const_cast<uint8_t*>(p == 0 ? image.row(r) : image.chromaRow(r));
      if (toBuffer)
        std::memcpy(hostRow, imageRow, rowBytes(g));
      else
        std::memcpy(imageRow, hostRow, rowBytes(g));
    }
  }
}

std::shared_ptr<VyMetadata> frameMetadata(const SessionFrame& frame, VyMetadata& session,
                                          std::optional<uint8_t> defaultStylization) {
  const FrameMeta& m = frame.meta;
  hostsim::FrameConditions c;
  c.cct = m.cct;
  c.luxIndex = m.lux;
  c.aiScene = m.scene;
  c.zoomRatio = m.zoom;
  c.imageName = m.imageName;
  if (m.faces) {
    std::vector<std::array<int32_t, 4>> rects;
    for (uint32_t i = 0; i < *m.faces; ++i)
      rects.push_back({int32_t(100 * i), 100, int32_t(100 * i + 80), 180});
    c.faceValues = hostsim::faceRectangles(rects);
  }
  auto metadata = hostsim::makeFrameMetadata(c);
  if (!metadata) throw Failure(frame.where("meta") + "the host refused the metadata");
  session.erase(hostsim::kTagStylizationType);
  const auto stylization = m.stylization ? m.stylization : defaultStylization;
  if (stylization) hostsim::setStylizationType(session, *stylization);
  for (const RawTag& tag : m.tags) {
    // The stylisation type is a session parameter; every other tag rides on the frame.
    VyMetadata& target =
        (!tag.number && tag.key == hostsim::kTagStylizationType) ? session : *metadata;
    const int rc = tag.number
                       ? target.update(*tag.number, tag.type, tag.payload.data(), tag.count)
                       : target.update(tag.key.c_str(), tag.type, tag.payload.data(), tag.count);
    if (rc != 0) throw Failure(frame.where("meta.tags." + tag.key) + "the host refused the tag");
  }
  return metadata;
}

std::unique_ptr<hostsim::ImageBuffer> allocate(const Geometry& g, const SessionFrame& frame) {
  std::string error;
  auto buffer = hostsim::ImageBuffer::allocate(
      {layoutOf(g.format), g.width, g.height, g.stride, g.scanline}, &error);
  if (!buffer) throw Failure(frame.where("width") + "the host cannot allocate the frame: " + error);
  return buffer;
}

// Output files go to a staging folder first and move into place only when
// the whole session went through.
class Staging {
public:
  explicit Staging(const std::string& outDir) : m_out(outDir) {
    std::error_code ec;
    fs::create_directories(m_out, ec);
    if (ec) throw Failure(outDir + ": cannot create the output folder: " + ec.message());
    m_dir = m_out / (".lumo-staging-" + std::to_string(::getpid()));
    fs::remove_all(m_dir, ec);
    fs::create_directories(m_dir, ec);
    if (ec) throw Failure(m_dir.string() + ": cannot create: " + ec.message());
  }
  ~Staging() {
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // Where to write `name` now, and records where it goes at the end.
  std::string stage(const std::string& name, const SessionFrame& frame) {
    const fs::path rel(name);
    if (rel.is_absolute() || rel.lexically_normal().string().starts_with(".."))
      throw Failure(frame.where("output") + "\"" + name + "\" must stay inside the output folder");
    if (!m_final.emplace(rel.lexically_normal().string(), frame.line).second)
      throw Failure(frame.where("output") + "\"" + name + "\" is already written by another frame");
    const fs::path staged = m_dir / rel;
    std::error_code ec;
    fs::create_directories(staged.parent_path(), ec);
    return staged.string();
  }
  std::string finalPath(const std::string& name) const {
    return (m_out / name).lexically_normal().string();
  }

  void commit() {
    // Check every staged file before moving any: the output folder may have
    // been removed during the session, and moving the survivors would leave
    // a partial set of outputs.
    for (const auto& [rel, line] : m_final) {
      std::error_code ec;
      if (!fs::is_regular_file(m_dir / rel, ec))
        throw Failure(m_out.string() + ": output \"" + rel +
                      "\" vanished before the session ended (was the output folder removed?)");
    }
    for (const auto& [rel, line] : m_final) {
      const fs::path to = m_out / rel;
      std::error_code ec;
      fs::create_directories(to.parent_path(), ec);
      fs::rename(m_dir / rel, to, ec);
      if (ec) throw Failure(to.string() + ": cannot move into place: " + ec.message());
    }
  }

private:
  fs::path m_out;
  fs::path m_dir;
  std::map<std::string, size_t> m_final;
};

std::string sceneFromLog(const std::vector<std::string>& messages) {
  static const std::regex scene("aiscenes = -?\\d+, (\\w+)");
  static const std::regex faces("faceROICount = (\\d+)");
  std::string name;
  std::smatch m;
  for (const std::string& msg : messages) {
    if (std::regex_search(msg, m, scene)) name = m[1].str();
    if (std::regex_search(msg, m, faces) && m[1].str() != "0") name = "protrait";
  }
  return name;
}

}  // namespace

std::string defaultOutputName(const SessionFrame& frame) {
  char name[64];
  std::snprintf(name, sizeof(name), "frame_%06u_%s.png", frame.frame, instanceName(frame.instance));
  return name;
}

std::vector<FrameReport> replaySession(const std::vector<SessionFrame>& frames,
                                       const ReplayOptions& options, const FrameCallback& onFrame) {
  const std::string pluginPath =
      options.pluginPath.empty() ? defaultPluginPath() : options.pluginPath;
  Staging staging(options.outDir);

  hostsim::PluginRegistry registry;
  std::string error;
  if (!fs::exists(pluginPath)) throw Failure(pluginPath + ": no plugin library there (--plugin)");
  if (!registry.load(pluginPath, &error)) throw Failure(error);
  if (registry.findProvider(kProviderName) == nullptr)
    throw Failure(pluginPath + ": registers no provider named " + kProviderName);
  if (!fs::exists(calibrationFilePath()))
    std::fprintf(stderr,
                 "lumo: note: no calibration file at %s: the plugin passes frames through\n",
                 calibrationFilePath().c_str());

  std::map<InstanceKind, hostsim::PluginPtr> instances;
  std::vector<InstanceKind> created;  // instances are destroyed in the order they were made
  auto destroyAll = [&] {
    for (InstanceKind kind : created) instances[kind]->destroy();
    instances.clear();
    created.clear();
  };
  VyMetadata session;
  std::vector<FrameReport> reports;
  hostsim::LogCapture capture;
  try {
    for (size_t i = 0; i < frames.size(); ++i) {
      const SessionFrame& frame = frames[i];
      auto& plugin = instances[frame.instance];
      if (!plugin) {
        plugin = registry.create(kProviderName);
        if (!plugin) throw Failure(pluginPath + ": the provider created no plugin object");
        created.push_back(frame.instance);
        vyalgo2::CreateInfo info;
        info.processMode = frame.instance == InstanceKind::Preview ? 1 : 0;
        plugin->initialize(&info, vyalgo2::VyaNodeInterface{});
      }
      const Image image = loadFrameImage(frame, options.sessionDir);
      const Geometry& g = image.geometry;
      auto in = allocate(g, frame);
      auto out = allocate(g, frame);
      copyPlanes(image, *in, true);
      auto metadata = frameMetadata(frame, session, options.stylization);
      capture.clear();

      FrameReport report;
      report.frame = frame.frame;
      report.instance = frame.instance;
      report.width = g.width;
      report.height = g.height;
      report.format = g.format;
      vyalgo2::VyaParams params;
      params.pSessionMetadata = std::make_shared<VyMetadata>(session);
      report.enabled = plugin->isEnabled(params);
      vyalgo2::ProcessRequestInfo request;
      request.frameNum = frame.frame;
      request.inputBuffers[0] = {in->imageParams(metadata)};
      request.outputBuffers[0] = {out->imageParams(metadata)};
      if (report.enabled) {
        report.result = plugin->processRequest(&request);
      } else {
        vyalgo2::VyImageBuffer src, dst;
        plugin->convertImageParams(request.inputBuffers[0][0], src);
        plugin->convertImageParams(request.outputBuffers[0][0], dst);
        vyalgo2::PluginUtils::vyCopyBuffer(&dst, &src);
        __android_log_print(ANDROID_LOG_INFO, kHostTag,
                            "frame %u: %s plugin not enabled, input copied to output", frame.frame,
                            instanceName(frame.instance));
      }
      report.aiscene = sceneFromLog(capture.androidMessages());
      // Without a scene result the plugin takes the common scene and says nothing.
      if (report.enabled && report.aiscene.empty()) report.aiscene = "common";

      Image result = makeImage(g);
      copyPlanes(result, *out, false);
      const std::string name = frame.output.value_or(defaultOutputName(frame));
      writeImage(staging.stage(name, frame), result);
      report.output = staging.finalPath(name);
      if (options.keepInputs) {
        const fs::path p(name);
        const std::string beforeName =
            (p.parent_path() / (p.stem().string() + "_before.png")).string();
        writeImage(staging.stage(beforeName, frame), image);
        report.before = staging.finalPath(beforeName);
      }
      reports.push_back(report);
      if (onFrame) onFrame(report, i + 1, frames.size());
    }
  } catch (...) {
    destroyAll();
    throw;
  }
  destroyAll();
  staging.commit();
  return reports;
}

}  // namespace lumo
