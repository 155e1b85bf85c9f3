// Shared fixtures of the store and trigger tests.
#include "param_fixtures.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace lumotest {

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "lumo_param_XXXXXX").string();
  char* made = mkdtemp(tmpl.data());
  if (made == nullptr) throw std::runtime_error("mkdtemp failed");
  m_path = made;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(m_path, ec);
}

uint8_t patternByte(unsigned seed, size_t p) {
  return static_cast<uint8_t>((seed * 31u + p * 7u) & 0xFFu);
}

calib::LutBlock patternLut(unsigned seed) {
  calib::LutBlock lut(calib::kLutBlockBytes);
  for (size_t p = 0; p < lut.size(); p++) lut[p] = patternByte(seed, p);
  return lut;
}

calib::LuxBand luxBand(uint16_t start, uint16_t end, std::vector<calib::CctBand> ccts) {
  calib::LuxBand band;
  band.start = start;
  band.end = end;
  band.ccts = std::move(ccts);
  return band;
}

std::string writeBytes(const TempDir& dir, const std::string& name,
                       const std::vector<uint8_t>& bytes) {
  const std::string path = dir.file(name);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::string writeCalib(const TempDir& dir, const std::string& name,
                       const calib::CalibrationFile& file) {
  return writeBytes(dir, name, calib::serialize(file));
}

namespace {

std::string afterFunction(const std::string& line) {
  // "<group> <file>:<line> <func>()" runs straight into the message.
  const size_t cut = line.find("()");
  return cut == std::string::npos ? line : line.substr(cut + 2);
}

}  // namespace

std::vector<std::string> messages(const hostsim::LogCapture& capture) {
  std::vector<std::string> out;
  for (const std::string& line : capture.androidMessages()) out.push_back(afterFunction(line));
  return out;
}

std::vector<std::string> errorMessages(const hostsim::LogCapture& capture) {
  std::vector<std::string> out;
  for (const hostsim::LogRecord& r : capture.records()) {
    if (!r.offline && r.priority == 6) out.push_back(afterFunction(r.message));
  }
  return out;
}

std::vector<std::string> functions(const hostsim::LogCapture& capture) {
  std::vector<std::string> out;
  for (const std::string& line : capture.androidMessages()) {
    const size_t end = line.find("()");
    const size_t begin = line.rfind(' ', end);
    out.push_back(line.substr(begin + 1, end - begin - 1));
  }
  return out;
}

bool storeIsEmpty(const ParamUtil& store) {
  return store.aiSceneParams.empty() && store.zoomRatioParams.empty() && store.lutCount == 0 &&
         store.shadingCount == 0 && store.lutData == nullptr && store.shadingData == nullptr &&
         store.aiScenesCount == 0 && store.shadingZoomRatioCount == 0;
}

void quietLogs() { hostsim::setAndroidLogFile("-"); }

}  // namespace lumotest
