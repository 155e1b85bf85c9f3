// Session replay through the simulated camera host.
#include "replay.h"

#include <android/log.h>
#include <hostsim/frame_metadata.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <hostsim/plugin_registry.h>
#include <lumo/contract.h>
#include <unistd.h>
#include <vyalgo2/PluginUtils.h>
#include <vyalgo2/VyLog.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "failure.h"
#include "filter_tap.h"
#include "frame_pipeline.h"
#include "frame_source.h"
#include "host_setup.h"
#include "image_files.h"
#include "picture_crop.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;

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
  session.erase(kTagStylizationType);
  const auto stylization = m.stylization ? m.stylization : defaultStylization;
  if (stylization) hostsim::setStylizationType(session, *stylization);
  for (const RawTag& tag : m.tags) {
    // The stylisation type is a session parameter; every other tag rides on the frame.
    VyMetadata& target = (!tag.number && tag.key == kTagStylizationType) ? session : *metadata;
    const int rc = tag.number
                       ? target.update(*tag.number, tag.type, tag.payload.data(), tag.count)
                       : target.update(tag.key.c_str(), tag.type, tag.payload.data(), tag.count);
    if (rc != 0) throw Failure(frame.where("meta.tags." + tag.key) + "the host refused the tag");
  }
  return metadata;
}

std::unique_ptr<hostsim::ImageBuffer> allocate(BufferPool& pool, const Geometry& g,
                                               const SessionFrame& frame) {
  std::string error;
  auto buffer = pool.take({layoutOf(g.format), g.width, g.height, g.stride, g.scanline}, &error);
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
    if (ec) throw Failure(outDir + ": cannot write output files there: " + ec.message());
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
    const fs::path normal = rel.lexically_normal();
    if (rel.is_absolute() || (!normal.empty() && *normal.begin() == ".."))
      throw Failure(frame.where("output") + "\"" + name + "\" must stay inside the output folder");
    const std::string key = rel.lexically_normal().string();
    // A file cannot also be a folder of another output. Checked here, in
    // session order, because the writes themselves may run out of order.
    for (fs::path parent = fs::path(key).parent_path(); !parent.empty();
         parent = parent.parent_path())
      if (auto it = m_final.find(parent.string()); it != m_final.end())
        throw Failure(frame.where("output") + "\"" + name + "\" needs \"" + it->first +
                      "\" as a folder, but line " + std::to_string(it->second) +
                      " writes it as a file");
    if (auto it = m_final.lower_bound(key + "/");
        it != m_final.end() && it->first.starts_with(key + "/"))
      throw Failure(frame.where("output") + "\"" + name + "\" is a folder of line " +
                    std::to_string(it->second) + "'s output \"" + it->first + "\"");
    if (!m_final.emplace(key, frame.line).second)
      throw Failure(frame.where("output") + "\"" + name + "\" is already written by another frame");
    const fs::path staged = m_dir / rel;
    std::error_code ec;
    fs::create_directories(staged.parent_path(), ec);
    return staged.string();
  }
  std::string finalPath(const std::string& name) const {
    return (m_out / name).lexically_normal().string();
  }

  // Claims `name` now (name clashes are found in session order) and returns
  // the write of `image` into the staging folder, to run now or behind the
  // frame loop; its errors name the file the user gets, not the staged one.
  std::function<void()> write(const std::string& name, const SessionFrame& frame, Image image) {
    const std::string staged = stage(name, frame);
    return
        [staged, user = finalPath(name), where = frame.where("output"), image = std::move(image)] {
          try {
            writeImage(staged, image);
          } catch (const Failure& e) {
            std::string message = e.what();
            for (size_t at = message.find(staged); at != std::string::npos;
                 at = message.find(staged, at + user.size()))
              message.replace(at, staged.size(), user);
            throw Failure(where + message);
          }
        };
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
      // A symlinked subfolder would move the output out of the folder.
      fs::path at = m_out;
      for (const fs::path& part : fs::path(rel).parent_path()) {
        at /= part;
        if (fs::is_symlink(at, ec))
          throw Failure(at.string() +
                        ": a symlink; outputs are not written through one (output \"" + rel +
                        "\")");
      }
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
    if (std::regex_search(msg, m, faces) &&
        facesMakePortrait(m[1].str().find_first_not_of('0') != std::string::npos))
      name = kPortraitScene;
  }
  return name;
}

// A tag nobody in the camera stack reads is most likely a typo of one that
// is read: say so once per tag, on the first line that uses it.
void warnUnreadTags(const std::vector<SessionFrame>& frames) {
  static const char* const kRead[] = {kTagAwbFrameControl, kTagAecFrameControl, kTagAiSceneResult,
                                      kTagSnapshotImageName, kTagStylizationType};
  std::set<std::string> warned;
  for (const SessionFrame& frame : frames) {
    for (const RawTag& tag : frame.meta.tags) {
      const bool read =
          tag.number ? (*tag.number == kTagZoomRatio || *tag.number == kTagFaceRectangles)
                     : std::find(std::begin(kRead), std::end(kRead), tag.key) != std::end(kRead);
      if (read || !warned.insert(tag.key).second) continue;
      std::fprintf(stderr,
                   "lumo: warning: %sno part of the camera stack reads this tag (names read: %s, "
                   "%s, %s, %s, %s; numbers: ANDROID_CONTROL_ZOOM_RATIO, "
                   "ANDROID_STATISTICS_FACE_RECTANGLES); said once\n",
                   frame.where("meta.tags." + tag.key).c_str(), kRead[0], kRead[1], kRead[2],
                   kRead[3], kRead[4]);
    }
  }
}

}  // namespace

std::string defaultOutputName(const SessionFrame& frame) {
  char name[64];
  std::snprintf(name, sizeof(name), "frame_%06u_%s.png", frame.frame,
                modeLabel(processModeOf(frame)).c_str());
  return name;
}

std::vector<std::string> outputNames(const std::vector<SessionFrame>& frames) {
  std::map<std::string, size_t> uses;
  for (const SessionFrame& f : frames)
    if (!f.output) ++uses[defaultOutputName(f)];
  std::vector<std::string> names;
  for (const SessionFrame& f : frames) {
    if (f.output) {
      names.push_back(*f.output);
      continue;
    }
    std::string name = defaultOutputName(f);
    if (uses[name] > 1) name.insert(name.rfind('.'), "_line" + std::to_string(f.line));
    names.push_back(name);
  }
  return names;
}

std::vector<FrameReport> replaySession(const std::vector<SessionFrame>& frames,
                                       const ReplayOptions& options, const FrameCallback& onFrame) {
  const std::string pluginPath =
      options.pluginPath.empty() ? defaultPluginPath() : options.pluginPath;
  warnUnreadTags(frames);
  Staging staging(options.outDir);

  hostsim::PluginRegistry registry;
  std::string error;
  if (!fs::exists(pluginPath)) throw Failure(pluginPath + ": no plugin library there (--plugin)");
  const bool calibrationThere = calibrationFileReady();
  if (!registry.load(pluginPath, &error)) throw Failure(error);
  if (registry.findProvider(kProviderName) == nullptr)
    throw Failure(pluginPath + ": registers no provider named " + kProviderName);
  if (!calibrationThere)
    std::fprintf(stderr,
                 "lumo: note: no calibration file at %s: the plugin passes frames through\n",
                 calibrationFilePath().c_str());

  // One instance per process mode, as the host makes one per pipeline node.
  std::map<uint32_t, hostsim::PluginPtr> instances;
  std::vector<uint32_t> created;  // instances are destroyed in the order they were made
  auto destroyAll = [&] {
    for (uint32_t mode : created) instances[mode]->destroy();
    instances.clear();
    created.clear();
  };
  VyMetadata session;
  const std::vector<std::string> names = outputNames(frames);
  std::vector<FrameReport> reports;
  hostsim::LogCapture capture;
  FilterTap tap;
  // Declared after the staging folder: pending writes finish before it goes.
  const size_t helpers = options.jobs > 1 ? options.jobs - 1 : 0;
  BufferPool pool;
  FramePrefetch prefetch(frames, options.sessionDir, helpers);
  BackgroundWrites writes(helpers);
  std::map<uint32_t, InstanceTrace> traces;
  FrameEvidence evidence;
  evidence.store = calibrationThere ? StoreState::Loaded : StoreState::Absent;
  // Without the plugin's debug lines the selection leaves no trace in the log.
  evidence.debugLines = gVyCamLogLevel < 3 && (gVyCamLogGroup & 2u) != 0;
  try {
    for (size_t i = 0; i < frames.size(); ++i) {
      const SessionFrame& frame = frames[i];
      const uint32_t mode = processModeOf(frame);
      auto& plugin = instances[mode];
      if (!plugin) {
        plugin = registry.create(kProviderName);
        if (!plugin) throw Failure(pluginPath + ": the provider created no plugin object");
        created.push_back(mode);
        vyalgo2::CreateInfo info;
        info.processMode = mode;
        plugin->initialize(&info, vyalgo2::VyaNodeInterface{});
      }
      FrameImage source = prefetch.get(i);
      Image& image = source.buffer;
      const Geometry g = image.geometry;
      // A picture's own size is known only once it is read; the host buffers are not made
      // for one above the limit either.
      if (std::max({g.width, g.height, g.stride, g.scanline}) > kMaxFrameSide)
        throw Failure(frame.where("input") + std::to_string(g.width) + "x" +
                      std::to_string(g.height) + " is above the " + std::to_string(kMaxFrameSide) +
                      " pixel limit of a frame side");
      if (const std::string problem = frameMemoryProblem(g.width, g.height, g.stride, g.scanline,
                                                         g.format, availableMemoryBytes());
          !problem.empty())
        throw Failure(frame.where("input") + problem);
      auto in = allocate(pool, g, frame);
      auto out = allocate(pool, g, frame);
      copyPlanes(image, *in, true);
      // The input as the user gets it back is taken now: the frame's own
      // bytes are reused for the result below.
      Image before;
      if (options.keepInputs) before = image;
      auto metadata = frameMetadata(frame, session, options.stylization);
      // The store is loaded when the first instance initialises.
      if (auto problem = rejectedStoreMessage(capture.androidMessages())) {
        evidence.store = StoreState::Rejected;
        evidence.storeProblem = *problem;
      }
      capture.clear();
      tap.take();

      FrameReport report;
      report.frame = frame.frame;
      report.instance = frame.instance;
      report.processMode = mode;
      report.width = source.width;
      report.height = source.height;
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
                            modeLabel(mode).c_str());
      }
      report.aiscene = sceneFromLog(capture.androidMessages());
      // Without a scene result the plugin takes the common scene and says nothing.
      if (report.enabled && report.aiscene.empty()) report.aiscene = kCommonScene;
      evidence.frame = frame.frame;
      evidence.enabled = report.enabled;
      evidence.messages = capture.androidMessages();
      evidence.renders = tap.take();
      evidence.scene = report.aiscene;
      report.outcome = readFrameOutcome(evidence, traces[mode]);

      // The input's bytes have served their turn: the result is read back
      // into them (every byte is copied), so a frame does not cost a second
      // fresh buffer (18 MB for 12 MP) to be faulted in and cleared.
      Image result = std::move(image);
      result.bytes.resize(bufferBytes(g));
      copyPlanes(result, *out, false);
      pool.give(std::move(in));
      pool.give(std::move(out));
      shrinkPicture(result, source.width, source.height);  // back from the even padding
      const std::string& name = names[i];
      writes.submit(staging.write(name, frame, std::move(result)));
      report.output = staging.finalPath(name);
      if (options.keepInputs) {
        const fs::path p(name);
        const std::string beforeName =
            (p.parent_path() / (p.stem().string() + "_before.png")).string();
        shrinkPicture(before, source.width, source.height);
        writes.submit(staging.write(beforeName, frame, std::move(before)));
        report.before = staging.finalPath(beforeName);
      }
      reports.push_back(report);
      if (onFrame) onFrame(report, i + 1, frames.size());
    }
    writes.drain();
  } catch (...) {
    destroyAll();
    throw;
  }
  destroyAll();
  staging.commit();
  return reports;
}

}  // namespace lumo
