// Debug output of the plugin: the parameter text dump ("exif" files) and the
// input/output image dumps. Nothing here logs or reports failures: dumping
// must never change what the frame does, and the text dump's writes are
// deliberately unchecked (a full partition can leave a text cut short).
#include <lumo/contract.h>
#include <platform/device_path.h>
#include <sys/stat.h>
#include <vyalgo2/PluginUtils.h>

#include <chrono>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "VyLumoFilterPlugin.h"

namespace {

// Dump file names and paths are formatted into buffers of this size.
constexpr size_t kDumpPathBytes = 256;
constexpr size_t kImageDumpNameBytes = 128;

std::string localTimeStamp() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm local{};
  localtime_r(&now, &local);
  std::ostringstream out;
  out << std::put_time(&local, "%Y-%m-%d_%H-%M-%S");
  return out.str();
}

}  // namespace

void VyLumoFilterPlugin::openPreviewExifFile() {
  char name[kDumpPathBytes] = {};
  std::snprintf(name, sizeof(name), lumo::kPreviewExifName, m_instanceName.c_str(),
                localTimeStamp().c_str());
  openExifFile(name);
}

void VyLumoFilterPlugin::openSnapshotExifFile() {
  char name[kDumpPathBytes] = {};
  std::snprintf(name, sizeof(name), lumo::kSnapshotExifName, m_imageName.c_str(),
                m_instanceName.c_str());
  openExifFile(name);
}

void VyLumoFilterPlugin::openExifFile(const char* fileName) {
  char path[kDumpPathBytes] = {};
  std::snprintf(path, sizeof(path), "%s%s", lumo::kDumpFolder, fileName);
  closeExifFile();  // a second initialize must not leak the first file
  // The name is the phone's; only the open goes through the host's mapping.
  m_exifFile = vyplatform::openDeviceFile(path, "wb+");
  chmod(vyplatform::devicePath(path).c_str(), 0666);
}

void VyLumoFilterPlugin::closeExifFile() {
  if (m_exifFile != nullptr) std::fclose(m_exifFile);
  m_exifFile = nullptr;
}

void VyLumoFilterPlugin::exifDump(FILE* file, param_lut_t* lut, param_shading_float_t* /*shading*/,
                                  unsigned int frameNum) {
  if (file == nullptr || lut == nullptr || !m_shading) return;
  if (m_processMode != 0 && m_processMode != 1) return;
  // One picture per snapshot file, so only preview blocks carry a frame number.
  if (m_processMode == 1) std::fprintf(file, "frameNum=%d\n", static_cast<int>(frameNum));
  std::fprintf(file, "width=%d\n", m_width);
  std::fprintf(file, "height=%d\n", m_height);
  std::fprintf(file, "aiscene=%s\n", m_triggerInfo.aiscene.c_str());
  std::fprintf(file, "lux=%d\n", m_triggerInfo.lux);
  std::fprintf(file, "cct=%d\n", m_triggerInfo.cct);
  std::fprintf(file, "zoom_ratio=%f\n", static_cast<double>(m_triggerInfo.zoom_ratio));

  std::ostringstream shadingText;
  shadingText << "[";
  for (size_t i = 0; i < SHADING_FLOATS; ++i) shadingText << " " << m_shading->data[i];
  shadingText << "]";
  std::fprintf(file, "shading=%s\n", shadingText.str().c_str());

  std::ostringstream lutText;
  lutText << "[";
  for (size_t i = 0; i < LUT_BYTES; ++i) lutText << " " << static_cast<unsigned>(lut->data[i]);
  lutText << "]";
  std::fprintf(file, "lut_algo_input=%s\n", lutText.str().c_str());
}

void VyLumoFilterPlugin::dumpImage(std::map<std::string, vyalgo2::VyImageBuffer>& images) {
  for (auto& [role, buffer] : images) {
    char name[kImageDumpNameBytes] = {};
    std::snprintf(name, sizeof(name), lumo::kImageDumpName, m_imageName.c_str(),
                  lumo::kImageDumpModule, m_instanceName.c_str(), m_frameNum, role.c_str(),
                  buffer.width, buffer.height, buffer.stride);
    vyalgo2::PluginUtils::dumpToFile(&buffer, name);
  }
}
