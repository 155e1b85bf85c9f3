// A temporary folder with a simulated device root holding a small
// calibration file, for tests that replay sessions in their own process.
#pragma once

#include <calib/calibration_file.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "host_setup.h"
#include "replay.h"
#include "session.h"

namespace lumotest {

// Regular files below `dir` (none when it does not exist) and their bytes.
inline std::map<std::string, std::string> filesUnder(const std::filesystem::path& dir) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(dir, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (!it->is_regular_file()) continue;
    std::ifstream in(it->path(), std::ios::binary);
    out[fs::relative(it->path(), dir).string()] = {std::istreambuf_iterator<char>(in), {}};
  }
  return out;
}

// Session frames from their lines, numbered as `lumo replay` numbers them.
inline std::vector<lumo::SessionFrame> sessionOf(const std::vector<std::string>& lines) {
  std::vector<lumo::SessionFrame> frames;
  for (size_t i = 0; i < lines.size(); ++i)
    frames.push_back(lumo::parseFrameLine(lines[i], "s.jsonl", i + 1));
  return frames;
}

class ReplayRoot : public ::testing::Test {
protected:
  // A replay through the real plugin, inputs from the root, outputs into `out`.
  lumo::ReplayOptions replayOptions(const std::string& out) const {
    lumo::ReplayOptions options;
    options.pluginPath = LUMO_PLUGIN_LIBRARY;
    options.outDir = out;
    options.sessionDir = root;
    return options;
  }

  void SetUp() override {
    namespace fs = std::filesystem;
    std::string pattern = (fs::temp_directory_path() / "lumo_sessions_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    root = pattern;
    lumo::HostSetup setup;
    setup.deviceRoot = root + "/device";
    fs::create_directories(setup.deviceRoot);
    setup.logLevel = "error";
    lumo::applyHostSetup(setup);
    calib::CalibrationFile file;
    file.scenes = {{"common", {{0, 60000, {{0, 60000, 0}}}}, std::nullopt}};
    file.zooms = {{1.0f, {{0, 60000, {{0, 60000, 0}}}}, std::nullopt}};
    file.luts = {calib::LutBlock(calib::kLutBlockBytes, 0x80)};
    file.shadings = {{0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f}};
    fs::create_directories(fs::path(lumo::calibrationFilePath()).parent_path());
    std::string error;
    ASSERT_TRUE(calib::writeFile(file, lumo::calibrationFilePath(), &error)) << error;
  }
  void TearDown() override { std::filesystem::remove_all(root); }

  std::string root;
};

}  // namespace lumotest
