// Shared fixtures of the store and trigger tests: calibration files written
// through the calibration writer into a temporary folder, and log captures.
#pragma once

#include <calib/calibration_file.h>
#include <hostsim/log_sink.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "paramUtil.h"

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

// "[ b0 b1 ... b49]": the head of a LUT as the dump and debug prints show it.
inline std::string lutHead(const uint8_t* lut) {
  std::string text = "[";
  for (size_t p = 0; p < 50; p++) text += " " + std::to_string(lut[p]);
  return text + "]";
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

inline bool storeIsEmpty(const ParamUtil& store) {
  return store.aiSceneParams.empty() && store.zoomRatioParams.empty() && store.lutCount == 0 &&
         store.shadingCount == 0 && store.lutData == nullptr && store.shadingData == nullptr &&
         store.aiScenesCount == 0 && store.shadingZoomRatioCount == 0;
}

// Keeps the Android log off stderr while tests run; captures still see it.
inline void quietLogs() { hostsim::setAndroidLogFile("-"); }

}  // namespace lumotest
