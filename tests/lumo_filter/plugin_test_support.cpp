// Fixtures of the plugin tests (see plugin_test_support.h).
#include "plugin_test_support.h"

#include <calib/calibration_file.h>
#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/frame_metadata.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace lumotest {

uint8_t lutByte(size_t block, size_t p) {
  return static_cast<uint8_t>((p * 7 + block * 37 + p / 289) & 0xFF);
}

std::vector<uint8_t> lutBlock(size_t block) {
  std::vector<uint8_t> out(calib::kLutBlockBytes);
  for (size_t p = 0; p < out.size(); ++p) out[p] = lutByte(block, p);
  return out;
}

size_t lutBlockOf(const std::string& scene) {
  for (const SceneLut& s : kScenes)
    if (scene == s.name) return s.lutBlock;
  ADD_FAILURE() << "no calibrated scene " << scene;
  return 0;
}

namespace {

std::vector<calib::LuxBand> oneCell(uint16_t index) {
  calib::LuxBand lux;
  lux.start = 0;
  lux.end = kCalibratedMax;
  lux.ccts.push_back({0, kCalibratedMax, index});
  return {lux};
}

}  // namespace

calib::CalibrationFile testCalibration() {
  calib::CalibrationFile file;
  for (const SceneLut& s : kScenes) {
    calib::SceneBlock scene;
    scene.name = s.name;
    scene.luxBands = oneCell(static_cast<uint16_t>(s.lutBlock));
    file.scenes.push_back(scene);
  }
  for (size_t k = 0; k < kLutBlocks; ++k) file.luts.push_back(lutBlock(k));
  calib::ZoomBlock zoom1;
  zoom1.ratio = 1.0f;
  zoom1.luxBands = oneCell(0);
  calib::ZoomBlock zoom2;
  zoom2.ratio = 2.0f;
  zoom2.luxBands = oneCell(1);
  file.zooms = {zoom1, zoom2};
  file.shadings = {kShadingZoom1, kShadingZoom2};
  return file;
}

namespace {

std::string makeRoot() {
  std::string pattern = (fs::temp_directory_path() / "lumo_plugin_XXXXXX").string();
  char* made = mkdtemp(pattern.data());
  if (made == nullptr) std::abort();
  const fs::path root(made);
  fs::create_directories(root / "odm/etc/camera");
  fs::create_directories(root / "data/vendor/camera");
  hostsim::setDeviceRoot(root.string());
  installCalibration(testCalibration());
  return root.string();
}

}  // namespace

const std::string& prepareDevice() {
  // Never destroyed, so that the clean-up at exit can still read it.
  static const std::string* root = [] {
    const std::string* made = new std::string(makeRoot());
    // Forked children leave through _exit and never run this.
    std::atexit([] { fs::remove_all(prepareDevice()); });
    return made;
  }();
  return *root;
}

void installCalibration(const calib::CalibrationFile& file) {
  std::string error;
  const std::string path = hostsim::deviceRoot() + "/odm/etc/camera/lumo_filter_param.bin";
  if (!calib::writeFile(file, path, &error)) ADD_FAILURE() << "calibration file: " << error;
}

std::string dumpFolder() { return prepareDevice() + "/data/vendor/camera"; }

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

Frame makeFrame(uint32_t width, uint32_t height, uint32_t frameNum,
                std::shared_ptr<VyMetadata> metadata, uint32_t stride) {
  Frame f;
  hostsim::ImageGeometry g;
  g.layout = hostsim::PixelLayout::NV21;
  g.width = width;
  g.height = height;
  g.stride = stride;
  std::string error;
  f.input = hostsim::ImageBuffer::allocate(g, &error);
  f.output = hostsim::ImageBuffer::allocate(g, &error);
  if (!f.input || !f.output) {
    ADD_FAILURE() << "image buffer: " << error;
    std::abort();
  }
  for (size_t i = 0; i < f.input->size(); ++i)
    f.input->data()[i] = static_cast<uint8_t>(i * 13 + 1);
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

struct AndroidLine {
  std::string file, function, text;
};

// Splits "<group> <file>:<line> <function>()<message>", as the plugin prints it.
bool splitAndroidLine(const std::string& message, AndroidLine& out) {
  const std::string group = "VyaPlugin ";
  if (message.compare(0, group.size(), group) != 0) return false;
  const size_t colon = message.find(':', group.size());
  const size_t space = message.find(' ', colon == std::string::npos ? 0 : colon);
  const size_t parens = message.find("()", space == std::string::npos ? 0 : space);
  if (colon == std::string::npos || space == std::string::npos || parens == std::string::npos)
    return false;
  const std::string lineNumber = message.substr(colon + 1, space - colon - 1);
  if (lineNumber.empty() || lineNumber.find_first_not_of("0123456789") != std::string::npos)
    return false;
  out.file = message.substr(group.size(), colon - group.size());
  out.function = message.substr(space + 1, parens - space - 1);
  out.text = message.substr(parens + 2);
  return true;
}

}  // namespace

std::vector<PluginLine> pluginLines(const hostsim::LogCapture& capture) {
  std::vector<PluginLine> out;
  for (const hostsim::LogRecord& r : capture.records()) {
    AndroidLine l;
    if (!r.offline && r.tag == "VyAlgoEngine" && splitAndroidLine(r.message, l) &&
        l.file == "lumo_filter/VyLumoFilterPlugin") {
      out.push_back({r.priority, l.function, l.text});
    }
  }
  return out;
}

std::vector<std::string> linesOf(const hostsim::LogCapture& capture, const std::string& file) {
  std::vector<std::string> out;
  for (const hostsim::LogRecord& r : capture.records()) {
    AndroidLine l;
    if (!r.offline && splitAndroidLine(r.message, l) && l.file == file) out.push_back(l.text);
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
  std::string s;
  if (b.frameNum) s += "frameNum=" + std::to_string(*b.frameNum) + "\n";
  s += "width=" + std::to_string(b.width) + "\n";
  s += "height=" + std::to_string(b.height) + "\n";
  s += "aiscene=" + b.scene + "\n";
  s += "lux=" + std::to_string(b.lux) + "\n";
  s += "cct=" + std::to_string(b.cct) + "\n";
  char zoom[64];
  std::snprintf(zoom, sizeof(zoom), "zoom_ratio=%f\n", static_cast<double>(b.zoom));
  s += zoom;
  s += "shading=" + b.shading + "\n";
  s += "lut_algo_input=[";
  for (uint8_t v : lutBlock(b.lutBlock)) s += " " + std::to_string(v);
  s += "]\n";
  return s;
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
