// Shared fixtures of the plugin tests: a device folder with a known
// calibration file, frames with chosen metadata, and the plugin's log lines.
#pragma once

#include <calib/calibration_file.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <vyalgo2/HostRecords.h>
#include <vyalgo2/VyMetadata.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumotest {

// One cell per scene over lux and CCT 0..60000, LUT block k each; "food" is
// left out so that its frames find no parameters.
struct SceneLut {
  const char* name;
  size_t lutBlock;
};
constexpr SceneLut kScenes[] = {
    {"common", 0}, {"plants", 1}, {"night", 2}, {"sunrise_sunset", 3}, {"protrait", 4}};
// Shading of zoom ratio 1 (block 0) and of zoom ratio 2 (block 1).
constexpr std::array<float, 8> kShadingZoom1 = {0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f};
constexpr std::array<float, 8> kShadingZoom2 = {1.5f, 0.0f, 0.0f, 0.75f, 0.0f, 0.0f, 0.0f, 0.0f};

std::vector<uint8_t> lutBlock(size_t block);
size_t lutBlockOf(const std::string& scene);
calib::CalibrationFile testCalibration();
void installCalibration(const calib::CalibrationFile& file);
// Once per process: a device root with the calibration and a dump folder.
const std::string& prepareDevice();
std::string dumpFolder();  // <root>/data/vendor/camera

// What a frame's metadata carries; unset members are absent tags.
struct FrameTags {
  std::optional<uint32_t> cct;
  std::optional<float> lux;
  std::optional<uint32_t> scene;
  int faceValues = 0;  // int32 values of the face-rectangle tag (4 per face)
  std::optional<float> zoom;
  std::optional<std::string> imageName;
};
FrameTags sceneTags(uint32_t scene, float lux = 300.0f, uint32_t cct = 5000, float zoom = 1.0f,
                    std::optional<std::string> name = std::nullopt);
std::shared_ptr<VyMetadata> makeMetadata(const FrameTags& tags);

// A patterned NV21 input and a zeroed output.
struct Frame {
  std::unique_ptr<hostsim::ImageBuffer> input, output;
  vyalgo2::ProcessRequestInfo request;
  bool outputEqualsInput() const;
  bool outputUntouched() const;
};
Frame makeFrame(uint32_t width, uint32_t height, uint32_t frameNum, const FrameTags& tags,
                uint32_t stride = 0);

// A line of lumo_filter/VyLumoFilterPlugin on the Android log.
struct PluginLine {
  int priority;  // 3 debug, 4 info, 6 error
  std::string function, text;
  bool operator==(const PluginLine& o) const {
    return priority == o.priority && function == o.function && text == o.text;
  }
};
std::ostream& operator<<(std::ostream& os, const PluginLine& line);
std::vector<PluginLine> pluginLines(const hostsim::LogCapture& capture);
// Texts of one source file's lines, e.g. "lumo_filter/paramTrigger".
std::vector<std::string> linesOf(const hostsim::LogCapture& capture, const std::string& file);

std::string readFile(const std::string& path);
std::vector<std::string> filesIn(const std::string& folder);  // names, sorted, recursive

// The expected text of one parameter dump block.
struct ExifBlock {
  std::optional<uint32_t> frameNum;  // preview blocks only
  int width, height;
  std::string scene;
  int lux, cct;
  float zoom;
  std::string shading;  // e.g. "[ 0.1 0.9 2 1 0.5 0.25 1 0]"
};
std::string exifText(const ExifBlock& block);

// Runs `body` in a forked child, for switches read only when a library loads.
// Returns its exit code: 0 when no expectation failed.
int runInChild(const std::function<void()>& body);

}  // namespace lumotest
