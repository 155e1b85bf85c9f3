// Shared fixtures of the plugin tests: calibration files written through the
// calibration writer, a device folder with a known calibration file, frames
// with chosen metadata, and the plugin's log lines.
#pragma once

#include <calib/calibration_file.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/filter_factory.h>
#include <hostsim/frame_metadata.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <hostsim/plugin_registry.h>
#include <hostsim/recording_filter.h>
#include <lumo/contract.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyalgo2/HostRecords.h>
#include <vyalgo2/VyMetadata.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumotest {

using Lines = std::vector<std::string>;

// A temporary folder removed with everything in it.
struct TempDir {
  std::string path = std::filesystem::temp_directory_path() / "lumo_param_XXXXXX";
  TempDir() {
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  std::string file(const std::string& name) const { return path + "/" + name; }
};

// Byte p of the LUT block made from `seed`.
inline uint8_t patternByte(unsigned seed, size_t p) { return (seed * 31u + p * 7u) & 0xFFu; }

inline calib::LutBlock patternLut(unsigned seed) {
  calib::LutBlock lut(calib::kLutBlockBytes);
  for (size_t p = 0; p < lut.size(); p++) lut[p] = patternByte(seed, p);
  return lut;
}

using Bands = std::vector<calib::LuxBand>;

// One lux band and one CCT band over every value, naming block `index`.
inline Bands everywhere(uint16_t index) { return {{0, 65535, {{0, 65535, index}}}}; }

// A file of these blocks, `luts` patterned LUT blocks and `shadings` zeroed
// shading blocks.
inline calib::CalibrationFile calibration(std::vector<calib::SceneBlock> scenes,
                                          std::vector<calib::ZoomBlock> zooms, unsigned luts,
                                          size_t shadings) {
  calib::CalibrationFile f;
  f.scenes = std::move(scenes);
  f.zooms = std::move(zooms);
  for (unsigned i = 0; i < luts; i++) f.luts.push_back(patternLut(i));
  f.shadings.resize(shadings);
  return f;
}

inline std::string writeBytes(const TempDir& dir, const std::string& name,
                              const std::vector<uint8_t>& bytes) {
  const std::string path = dir.file(name);
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  return path;
}

// Android log lines cut after "<group> <file>:<line> <func>()", all or errors only.
inline Lines messages(const hostsim::LogCapture& capture, bool errors = false) {
  Lines out;
  for (const hostsim::LogRecord& r : capture.records()) {
    if (r.offline || (errors && r.priority != 6)) continue;
    const size_t cut = r.message.find("()");
    out.push_back(cut == std::string::npos ? r.message : r.message.substr(cut + 2));
  }
  return out;
}

// Keeps the Android log off stderr while tests run; captures still see it.
inline void quietLogs() { hostsim::setAndroidLogFile("-"); }

// One cell per scene over every lux and CCT, each with the LUT block of its
// position; "food" is left out so that its frames find no parameters.
constexpr const char* kScenes[] = {"common", "plants", "night", "sunrise_sunset", "protrait"};

// A patterned NV21 input and a zeroed output.
struct Frame {
  std::unique_ptr<hostsim::ImageBuffer> input, output;
  vyalgo2::ProcessRequestInfo request;
  bool outputEqualsInput() const {
    return std::memcmp(input->data(), output->data(), input->size()) == 0;
  }
};

// A line of one plugin source file on the Android log.
struct PluginLine {
  int priority;  // 3 debug, 4 info, 6 error
  std::string function, text;
  bool operator==(const PluginLine&) const = default;
};
inline std::ostream& operator<<(std::ostream& os, const PluginLine& line) {
  return os << "{" << line.priority << ", " << line.function << ", \"" << line.text << "\"}";
}

inline size_t lutBlockOf(const std::string& scene) {
  const auto* it = std::find(std::begin(kScenes), std::end(kScenes), scene);
  EXPECT_NE(it, std::end(kScenes)) << "no calibrated scene " << scene;
  return it - std::begin(kScenes);
}

// Shading of zoom ratio 1 from block 0, of zoom ratio 2 from block 1.
inline calib::CalibrationFile testCalibration() {
  calib::CalibrationFile file;
  for (const char* scene : kScenes) {
    file.scenes.push_back({scene, everywhere(uint16_t(lutBlockOf(scene))), std::nullopt});
    file.luts.push_back(patternLut(unsigned(lutBlockOf(scene))));
  }
  file.zooms = {{1.0f, everywhere(0), std::nullopt}, {2.0f, everywhere(1), std::nullopt}};
  file.shadings = {{0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f},
                   {1.5f, 0.0f, 0.0f, 0.75f, 0.0f, 0.0f, 0.0f, 0.0f}};
  return file;
}

inline void installCalibration(const calib::CalibrationFile& file) {
  std::string error;
  const std::string path = hostsim::deviceRoot() + "/odm/etc/camera/lumo_filter_param.bin";
  if (!calib::writeFile(file, path, &error)) ADD_FAILURE() << "calibration file: " << error;
}

// Once per process: a device root with the calibration and an empty dump
// folder, removed at exit (forked children leave through _exit and keep it).
inline const std::string& prepareDevice() {
  static const TempDir root;
  [[maybe_unused]] static const bool ready = [] {
    std::filesystem::create_directories(root.path + "/odm/etc/camera");
    std::filesystem::create_directories(root.path + "/data/vendor/camera");
    hostsim::setDeviceRoot(root.path);
    installCalibration(testCalibration());
    return true;
  }();
  return root.path;
}

inline std::string dumpFolder() { return prepareDevice() + "/data/vendor/camera"; }

inline hostsim::FrameConditions sceneTags(uint32_t scene, float lux = 300.0f, uint32_t cct = 5000,
                                          float zoom = 1.0f, std::optional<std::string> name = {}) {
  return {cct, lux, scene, std::nullopt, zoom, std::move(name), std::nullopt};
}

inline Frame makeFrame(uint32_t width, uint32_t height, uint32_t frameNum,
                       const hostsim::FrameConditions& tags, uint32_t stride = 0) {
  Frame f;
  const lumo::Geometry g{lumo::PixelFormat::NV21, width, height, stride, 0};
  std::string error;
  f.input = hostsim::ImageBuffer::allocate(g, &error);
  f.output = hostsim::ImageBuffer::allocate(g, &error);
  if (!f.input || !f.output) throw std::runtime_error("image buffer: " + error);
  for (size_t i = 0; i < f.input->size(); ++i) f.input->data()[i] = uint8_t(i * 13 + 1);
  const std::shared_ptr<VyMetadata> metadata = hostsim::makeFrameMetadata(tags);
  f.request.inputBuffers[0].push_back(f.input->imageParams(metadata));
  f.request.outputBuffers[0].push_back(f.output->imageParams(metadata));
  f.request.frameNum = frameNum;
  return f;
}

// Lines that one source file logged on the Android log under the plugins' tag,
// cut from "VyaPlugin <file>:<line> <function>()<message>".
inline std::vector<PluginLine> pluginLines(
    const hostsim::LogCapture& capture,
    const std::string& file = "lumo_filter/VyLumoFilterPlugin") {
  const std::regex line("VyaPlugin " + file + ":[0-9]+ (\\w+)\\(\\)([\\s\\S]*)");
  std::vector<PluginLine> out;
  std::smatch m;
  for (const hostsim::LogRecord& r : capture.records())
    if (!r.offline && r.tag == "VyAlgoEngine" && std::regex_match(r.message, m, line))
      out.push_back({r.priority, m[1], m[2]});
  return out;
}

// The filter SDK's stand-in: recording filters that share one journal.
inline hostsim::FilterFactory recordingInto(std::shared_ptr<hostsim::FilterJournal> journal) {
  return [journal](videoprocess::VideoFormat f, bool) {
    return new hostsim::RecordingFilter(f, journal);
  };
}

// Asks isEnabled with a session stylisation byte (-1: no tag); the byte after it is noise.
inline bool enabledFor(vyalgo2::PluginWraper& plugin, int stylizationType) {
  vyalgo2::VyaParams params;
  params.pSessionMetadata = std::make_shared<VyMetadata>();
  const uint8_t bytes[2] = {static_cast<uint8_t>(stylizationType), 9};
  if (stylizationType >= 0)
    params.pSessionMetadata->update(lumo::kTagStylizationType, TYPE_BYTE, bytes, 2);
  return plugin.isEnabled(params);
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Names of the files below `folder`, sorted.
inline std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> out;
  std::error_code ec;
  for (const auto& e : std::filesystem::recursive_directory_iterator(folder, ec))
    if (e.is_regular_file()) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

// Runs `body` in a forked child, for switches read only when a library loads.
// Returns its exit code: 0 when no expectation failed.
inline int runInChild(const std::function<void()>& body) {
  prepareDevice();  // made here, so that this process removes it at exit
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

#ifdef LUMO_PLUGIN_LIBRARY
constexpr const char* kProviderName = "com.zentor.plugin.vylumofilter";
// Switches by their name after "persist.vendor.camera.lumofilter.".
using Props = std::vector<std::pair<const char*, const char*>>;

// A host in this process: the library loaded after `properties` were set,
// recording filters (or the linked SDK), and plugin objects made by the provider.
struct Host {
  explicit Host(const Props& properties, bool recordFilters = true) {
    lumotest::prepareDevice();
    hostsim::setAndroidLogFile("-");
    if (recordFilters) factory.emplace(recordingInto(journal));
    for (const auto& [key, value] : properties)
      property_set(("persist.vendor.camera.lumofilter." + std::string(key)).c_str(), value);
    std::string error;
    loaded = registry.load(LUMO_PLUGIN_LIBRARY, &error);
    EXPECT_TRUE(loaded) << error;
  }
  ~Host() {
    for (auto& p : plugins) p->destroy();
  }
  vyalgo2::PluginWraper& make(uint32_t mode) {
    plugins.push_back(registry.create(kProviderName));
    vyalgo2::CreateInfo info;
    info.processMode = mode;
    plugins.back()->initialize(&info, vyalgo2::VyaNodeInterface{});
    return *plugins.back();
  }
  std::shared_ptr<hostsim::FilterJournal> journal = std::make_shared<hostsim::FilterJournal>();
  std::optional<hostsim::FilterFactoryOverride> factory;
  hostsim::PluginRegistry registry;
  bool loaded = false;
  std::vector<hostsim::PluginPtr> plugins;
};
#endif  // LUMO_PLUGIN_LIBRARY

}  // namespace lumotest
