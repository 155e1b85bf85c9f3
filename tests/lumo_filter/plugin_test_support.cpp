// Fixtures of the plugin tests (see plugin_test_support.h).
#include "plugin_test_support.h"

#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/frame_metadata.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace lumotest {

std::vector<uint8_t> lutBlock(size_t block) {
  std::vector<uint8_t> out(calib::kLutBlockBytes);
  for (size_t p = 0; p < out.size(); ++p) out[p] = (p * 7 + block * 37 + p / 289) & 0xFF;
  return out;
}

size_t lutBlockOf(const std::string& scene) {
  for (const SceneLut& s : kScenes)
    if (scene == s.name) return s.lutBlock;
  ADD_FAILURE() << "no calibrated scene " << scene;
  return 0;
}

calib::CalibrationFile testCalibration() {
  auto cell = [](uint16_t index) {
    return std::vector<calib::LuxBand>{{0, 60000, {{0, 60000, index}}}};
  };
  calib::CalibrationFile file;
  for (const SceneLut& s : kScenes) {
    file.scenes.push_back({s.name, cell(static_cast<uint16_t>(s.lutBlock)), std::nullopt});
    file.luts.push_back(lutBlock(s.lutBlock));
  }
  file.zooms = {{1.0f, cell(0), std::nullopt}, {2.0f, cell(1), std::nullopt}};
  file.shadings = {kShadingZoom1, kShadingZoom2};
  return file;
}

const std::string& prepareDevice() {
  // Never destroyed, so that the clean-up at exit can still read it.
  static const std::string* root = [] {
    std::string pattern = (fs::temp_directory_path() / "lumo_plugin_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    fs::create_directories(pattern + "/odm/etc/camera");
    fs::create_directories(pattern + "/data/vendor/camera");
    hostsim::setDeviceRoot(pattern);
    installCalibration(testCalibration());
    // Forked children leave through _exit and never run this.
    std::atexit([] { fs::remove_all(prepareDevice()); });
    return new std::string(pattern);
  }();
  return *root;
}

void installCalibration(const calib::CalibrationFile& file) {
  std::string error;
  const std::string path = hostsim::deviceRoot() + "/odm/etc/camera/lumo_filter_param.bin";
  if (!calib::writeFile(file, path, &error)) ADD_FAILURE() << "calibration file: " << error;
}

std::string dumpFolder() { return prepareDevice() + "/data/vendor/camera"; }

FrameTags sceneTags(uint32_t scene, float lux, uint32_t cct, float zoom,
                    std::optional<std::string> name) {
  FrameTags t;
  t.scene = scene;
  t.lux = lux;
  t.cct = cct;
  t.zoom = zoom;
  t.imageName = std::move(name);
  return t;
}

std::shared_ptr<VyMetadata> makeMetadata(const FrameTags& tags) {
  hostsim::FrameConditions c;
  c.cct = tags.cct;
  c.luxIndex = tags.lux;
  c.aiScene = tags.scene;
  if (tags.faceValues > 0) c.faceValues = std::vector<int32_t>(tags.faceValues, 10);
  c.zoomRatio = tags.zoom;
  c.imageName = tags.imageName;
  return hostsim::makeFrameMetadata(c);
}

Frame makeFrame(uint32_t width, uint32_t height, uint32_t frameNum, const FrameTags& tags,
                uint32_t stride) {
  Frame f;
  const hostsim::ImageGeometry g{hostsim::PixelLayout::NV21, width, height, stride, 0};
  std::string error;
  f.input = hostsim::ImageBuffer::allocate(g, &error);
  f.output = hostsim::ImageBuffer::allocate(g, &error);
  if (!f.input || !f.output) {
    ADD_FAILURE() << "image buffer: " << error;
    std::abort();
  }
  for (size_t i = 0; i < f.input->size(); ++i) f.input->data()[i] = uint8_t(i * 13 + 1);
  const std::shared_ptr<VyMetadata> metadata = makeMetadata(tags);
  f.request.inputBuffers[0].push_back(f.input->imageParams(metadata));
  f.request.outputBuffers[0].push_back(f.output->imageParams(metadata));
  f.request.frameNum = frameNum;
  return f;
}

bool Frame::outputEqualsInput() const {
  return std::memcmp(input->data(), output->data(), input->size()) == 0;
}

bool Frame::outputUntouched() const {
  return std::all_of(output->data(), output->data() + output->size(),
                     [](uint8_t b) { return b == 0; });
}

std::ostream& operator<<(std::ostream& os, const PluginLine& line) {
  return os << "{" << line.priority << ", " << line.function << ", \"" << line.text << "\"}";
}

namespace {

// Splits "VyaPlugin <file>:<line> <function>()<message>" into file, function, message.
bool splitLine(const std::string& m, std::string& file, std::string& function, std::string& text) {
  const std::string group = "VyaPlugin ";
  const size_t colon = m.find(':');
  const size_t space = m.find(' ', colon == std::string::npos ? m.size() : colon);
  const size_t parens = m.find("()", space == std::string::npos ? m.size() : space);
  if (m.compare(0, group.size(), group) != 0 || parens == std::string::npos) return false;
  const std::string number = m.substr(colon + 1, space - colon - 1);
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return false;
  file = m.substr(group.size(), colon - group.size());
  function = m.substr(space + 1, parens - space - 1);
  text = m.substr(parens + 2);
  return true;
}

}  // namespace

std::vector<PluginLine> pluginLines(const hostsim::LogCapture& capture) {
  std::vector<PluginLine> out;
  for (const hostsim::LogRecord& r : capture.records()) {
    std::string file, function, text;
    if (!r.offline && r.tag == "VyAlgoEngine" && splitLine(r.message, file, function, text) &&
        file == "lumo_filter/VyLumoFilterPlugin")
      out.push_back({r.priority, function, text});
  }
  return out;
}

std::vector<std::string> linesOf(const hostsim::LogCapture& capture, const std::string& file) {
  std::vector<std::string> out;
  for (const hostsim::LogRecord& r : capture.records()) {
    std::string f, function, text;
    if (!r.offline && splitLine(r.message, f, function, text) && f == file) out.push_back(text);
  }
  return out;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> out;
  std::error_code ec;
  for (const auto& e : fs::recursive_directory_iterator(folder, ec))
    if (e.is_regular_file()) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

std::string exifText(const ExifBlock& b) {
  char zoom[64];
  std::snprintf(zoom, sizeof(zoom), "%f", static_cast<double>(b.zoom));
  std::string s = b.frameNum ? "frameNum=" + std::to_string(*b.frameNum) + "\n" : "";
  s += "width=" + std::to_string(b.width) + "\nheight=" + std::to_string(b.height) +
       "\naiscene=" + b.scene + "\nlux=" + std::to_string(b.lux) +
       "\ncct=" + std::to_string(b.cct) + "\nzoom_ratio=" + zoom + "\nshading=" + b.shading +
       "\nlut_algo_input=[";
  for (uint8_t v : lutBlock(lutBlockOf(b.scene))) s += " " + std::to_string(v);
  return s + "]\n";
}

int runInChild(const std::function<void()>& body) {
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

}  // namespace lumotest
