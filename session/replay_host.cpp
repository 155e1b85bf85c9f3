// The per-frame side of the simulated camera host.
#include "replay_host.h"

#include <android/log.h>
#include <hostsim/device_root.h>
#include <hostsim/frame_metadata.h>
#include <hostsim/image_buffer.h>
#include <lumo/contract.h>
#include <vyalgo2/PluginUtils.h>
#include <vyalgo2/VyLog.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>

#include "failure.h"
#include "host_setup.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHostTag = "LumoHost";

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

// The host buffer over `image`'s own memory when that is a shared memory
// file, as every frame-sized image's is: the plugin reads and writes the
// image itself, nothing is copied. A small image lives on the heap and gets
// a pooled buffer with its bytes copied in (`copyIn`) and back by the caller.
std::unique_ptr<hostsim::ImageBuffer> hostBuffer(BufferPool& pool, Image& image, bool copyIn,
                                                 const SessionFrame& frame) {
  std::string error;
  std::unique_ptr<hostsim::ImageBuffer> buffer;
  if (const int fd = frameMemoryFd(image.bytes.data()); fd >= 0)
    buffer = hostsim::ImageBuffer::borrow(image.geometry, image.bytes.data(), image.bytes.size(),
                                          fd, &error);
  else if ((buffer = pool.take(image.geometry, &error)) && copyIn)
    std::memcpy(buffer->data(), image.bytes.data(), buffer->size());
  if (!buffer) throw Failure(frame.where("width") + "the host cannot allocate the frame: " + error);
  return buffer;
}

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

// The host's device root while a host's plugin is called; the process's own
// root comes back after.
class DeviceRootScope {
public:
  explicit DeviceRootScope(const std::string& root) : m_active(!root.empty()) {
    if (!m_active) return;
    m_previous = hostsim::deviceRoot();
    hostsim::setDeviceRoot(root);
  }
  ~DeviceRootScope() {
    if (m_active) hostsim::setDeviceRoot(m_previous);
  }
  DeviceRootScope(const DeviceRootScope&) = delete;
  DeviceRootScope& operator=(const DeviceRootScope&) = delete;

private:
  bool m_active;
  std::string m_previous;
};

}  // namespace

ReplayHost::ReplayHost(const std::string& pluginPath, std::optional<uint8_t> stylization,
                       hostsim::LogCapture& capture, FilterTap& tap, std::string deviceRoot)
    : m_pluginPath(pluginPath),
      m_stylization(stylization),
      m_capture(capture),
      m_tap(tap),
      m_deviceRoot(std::move(deviceRoot)) {
  DeviceRootScope root(m_deviceRoot);
  std::string error;
  if (!fs::exists(pluginPath)) throw Failure(pluginPath + ": no plugin library there (--plugin)");
  const bool calibrationThere = calibrationFileReady();
  if (!m_registry.load(pluginPath, &error)) throw Failure(error);
  if (m_registry.findProvider(kProviderName) == nullptr)
    throw Failure(pluginPath + ": registers no provider named " + kProviderName);
  if (!calibrationThere)
    std::fprintf(stderr,
                 "lumo: note: no calibration file at %s: the plugin passes frames through\n",
                 calibrationFilePath().c_str());
  m_evidence.store = calibrationThere ? StoreState::Loaded : StoreState::Absent;
  // Without the plugin's debug lines the selection leaves no trace in the log.
  m_evidence.debugLines = gVyCamLogLevel < 3 && (gVyCamLogGroup & 2u) != 0;
}

ReplayHost::~ReplayHost() {
  DeviceRootScope root(m_deviceRoot);
  for (uint32_t mode : m_created) m_instances[mode]->destroy();
  m_instances.clear();
}

FrameReport ReplayHost::process(const SessionFrame& frame, const FrameImage& source, Image& input,
                                Image& output) {
  DeviceRootScope root(m_deviceRoot);
  // The capture and the tap may have seen another host's frame since.
  m_capture.clear();
  m_tap.take();
  const uint32_t mode = processModeOf(frame);
  auto& plugin = m_instances[mode];
  if (!plugin) {
    plugin = m_registry.create(kProviderName);
    if (!plugin) throw Failure(m_pluginPath + ": the provider created no plugin object");
    m_created.push_back(mode);
    vyalgo2::CreateInfo info;
    info.processMode = mode;
    plugin->initialize(&info, vyalgo2::VyaNodeInterface{});
  }
  const Geometry g = input.geometry;
  // A picture's own size is known only once it is read; the host buffers are not made
  // for one above the limit either.
  if (std::max({g.width, g.height, g.stride, g.scanline}) > kMaxFrameSide)
    throw Failure(frame.where("input") + std::to_string(g.width) + "x" + std::to_string(g.height) +
                  " is above the " + std::to_string(kMaxFrameSide) +
                  " pixel limit of a frame side");
  if (const std::string problem = frameMemoryProblem(g.width, g.height, g.stride, g.scanline,
                                                     g.format, availableMemoryBytes());
      !problem.empty())
    throw Failure(frame.where("input") + problem);
  if (input.bytes.size() < bufferBytes(g))
    throw Failure(frame.where("input") + "the frame holds fewer bytes than its geometry needs");
  // A fresh output, cleared as a new host buffer is.
  output = Image{};
  output.geometry = g;
  output.bytes.resize(bufferBytes(g));
  auto in = hostBuffer(m_pool, input, true, frame);
  auto out = hostBuffer(m_pool, output, false, frame);
  auto metadata = frameMetadata(frame, m_session, m_stylization);
  // The store is loaded when the first instance initialises.
  if (auto problem = rejectedStoreMessage(m_capture.androidMessages())) {
    m_evidence.store = StoreState::Rejected;
    m_evidence.storeProblem = *problem;
  }
  m_capture.clear();
  m_tap.take();

  FrameReport report;
  report.frame = frame.frame;
  report.instance = frame.instance;
  report.processMode = mode;
  report.width = source.width;
  report.height = source.height;
  report.format = g.format;
  vyalgo2::VyaParams params;
  params.pSessionMetadata = std::make_shared<VyMetadata>(m_session);
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
  report.aiscene = sceneFromLog(m_capture.androidMessages());
  // Without a scene result the plugin takes the common scene and says nothing.
  if (report.enabled && report.aiscene.empty()) report.aiscene = kCommonScene;
  m_evidence.frame = frame.frame;
  m_evidence.enabled = report.enabled;
  m_evidence.messages = m_capture.androidMessages();
  m_evidence.renders = m_tap.take();
  m_evidence.scene = report.aiscene;
  report.outcome = readFrameOutcome(m_evidence, m_traces[mode]);

  if (out->data() != output.bytes.data()) {
    std::memcpy(output.bytes.data(), out->data(), out->size());
    m_pool.give(std::move(out));
  }
  if (in->data() != input.bytes.data()) m_pool.give(std::move(in));
  return report;
}

}  // namespace lumo
