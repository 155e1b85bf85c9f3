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

// Calibration written by prepareDevice(): one cell per scene, covering lux
// and CCT 0..60000. LUT block k of each scene below; "food" is missing on
// purpose so that its frames find no parameters.
struct SceneLut {
  const char* name;
  size_t lutBlock;
};
constexpr SceneLut kScenes[] = {
    {"common", 0}, {"plants", 1}, {"night", 2}, {"sunrise_sunset", 3}, {"protrait", 4}};
constexpr size_t kLutBlocks = 5;
constexpr uint16_t kCalibratedMax = 60000;
// Shading of zoom ratio 1 (block 0) and of zoom ratio 2 (block 1).
constexpr std::array<float, 8> kShadingZoom1 = {0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f};
constexpr std::array<float, 8> kShadingZoom2 = {1.5f, 0.0f, 0.0f, 0.75f, 0.0f, 0.0f, 0.0f, 0.0f};

// Byte p of LUT block k, made up so that blocks differ everywhere.
uint8_t lutByte(size_t block, size_t p);
std::vector<uint8_t> lutBlock(size_t block);
size_t lutBlockOf(const std::string& scene);

calib::CalibrationFile testCalibration();
// Replaces the device's calibration file (read by the first initialize of a process).
void installCalibration(const calib::CalibrationFile& file);

// Once per process: a fresh device root with the calibration file and an
// empty dump folder. Returns the root.
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
std::shared_ptr<VyMetadata> makeMetadata(const FrameTags& tags);

// One input image (filled with a pattern) and one zeroed output image.
struct Frame {
  std::unique_ptr<hostsim::ImageBuffer> input;
  std::unique_ptr<hostsim::ImageBuffer> output;
  vyalgo2::ProcessRequestInfo request;
  bool outputEqualsInput() const;
  bool outputUntouched() const;  // still all zero
};
Frame makeFrame(uint32_t width, uint32_t height, uint32_t frameNum,
                std::shared_ptr<VyMetadata> metadata, uint32_t stride = 0);

// A line the plugin object logged on the Android log.
struct PluginLine {
  int priority;          // 3 debug, 4 info, 6 error
  std::string function;  // e.g. "processRequest"
  std::string text;      // the message after the function
  bool operator==(const PluginLine& o) const {
    return priority == o.priority && function == o.function && text == o.text;
  }
};
std::ostream& operator<<(std::ostream& os, const PluginLine& line);
// Lines of lumo_filter/VyLumoFilterPlugin only (the store and trigger lines are left out).
std::vector<PluginLine> pluginLines(const hostsim::LogCapture& capture);
// Lines of one source file ("lumo_filter/paramTrigger"), text only.
std::vector<std::string> linesOf(const hostsim::LogCapture& capture, const std::string& file);

std::string readFile(const std::string& path);
// Regular files below `folder`, names only, sorted.
std::vector<std::string> filesIn(const std::string& folder);

// The expected text of one parameter dump block.
struct ExifBlock {
  std::optional<uint32_t> frameNum;  // preview blocks only
  int width, height;
  std::string scene;
  int lux, cct;
  float zoom;
  std::string shading;  // the bracketed shading text, e.g. "[ 0.1 0.9 2 1 0.5 0.25 1 0]"
  size_t lutBlock;
};
std::string exifText(const ExifBlock& block);

// Runs `body` in a forked child (for state that only a fresh process has,
// like switches read when a library loads). Returns the child's exit code:
// 0 when the body ran without a failed expectation.
int runInChild(const std::function<void()>& body);

}  // namespace lumotest
