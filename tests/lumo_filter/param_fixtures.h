// Shared fixtures of the store and trigger tests: calibration files written
// through the calibration writer into a temporary folder, and log captures.
#pragma once

#include <calib/calibration_file.h>
#include <hostsim/log_sink.h>

#include <cstdint>
#include <string>
#include <vector>

#include "paramUtil.h"

namespace lumotest {

// A temporary folder removed with everything in it.
class TempDir {
public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return m_path; }
  std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
  std::string m_path;
};

// A LUT block whose bytes follow from `seed` (byte p = seed * 31 + p * 7, mod 256).
calib::LutBlock patternLut(unsigned seed);
uint8_t patternByte(unsigned seed, size_t p);

calib::LuxBand luxBand(uint16_t start, uint16_t end, std::vector<calib::CctBand> ccts);

std::string writeBytes(const TempDir& dir, const std::string& name,
                       const std::vector<uint8_t>& bytes);
std::string writeCalib(const TempDir& dir, const std::string& name,
                       const calib::CalibrationFile& file);

// Message part of the Android log lines ("<group> <file>:<line> <func>()" cut off).
std::vector<std::string> messages(const hostsim::LogCapture& capture);
std::vector<std::string> errorMessages(const hostsim::LogCapture& capture);
// Function names of the Android log lines.
std::vector<std::string> functions(const hostsim::LogCapture& capture);

// The state of a store that loaded nothing.
bool storeIsEmpty(const ParamUtil& store);

// Keeps the Android log off stderr while tests run; captures still see it.
void quietLogs();

}  // namespace lumotest
