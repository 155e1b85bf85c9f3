// Property, device-root and log preparation of the simulated host.
#include "host_setup.h"

#include <android/log.h>
#include <calib/calibration_reader.h>
#include <hostsim/device_root.h>
#include <hostsim/log_sink.h>
#include <hostsim/properties.h>
#include <lumo/contract.h>
#include <platform/device_path.h>

#include <filesystem>

#include "failure.h"

namespace lumo {
namespace {

int priorityOf(const std::string& level) {
  if (level == "verbose") return ANDROID_LOG_VERBOSE;
  if (level == "debug") return ANDROID_LOG_DEBUG;
  if (level == "info") return ANDROID_LOG_INFO;
  if (level == "warn") return ANDROID_LOG_WARN;
  if (level == "error") return ANDROID_LOG_ERROR;
  if (level == "silent") return ANDROID_LOG_SILENT;
  throw Failure("--log-level: expected verbose, debug, info, warn, error or silent, got \"" +
                level + "\"");
}

}  // namespace

void applyHostSetup(const HostSetup& setup) {
  std::string error;
  if (!setup.propsFile.empty() && !hostsim::loadPropertyFile(setup.propsFile, &error))
    throw Failure(error);
  for (const std::string& p : setup.props)
    if (!hostsim::setPropertyArgument(p, &error)) throw Failure("--prop " + p + ": " + error);
  if (!setup.deviceRoot.empty())
    hostsim::setDeviceRoot(std::filesystem::absolute(setup.deviceRoot));
  if (!hostsim::deviceRoot().empty() && !std::filesystem::is_directory(hostsim::deviceRoot()))
    throw Failure(hostsim::deviceRoot() +
                  ": the device root is not an existing folder (LUMO_DEVICE_ROOT or "
                  "--device-root)");
  if (!hostsim::deviceRoot().empty()) {
    // A simulated device has its vendor folders; the plugin never creates them.
    if (dumpFolderPath().empty())
      throw Failure(hostsim::deviceRoot() +
                    "/data/vendor/camera/: refused, the dump folder passes through a "
                    "symlink, which the simulator never follows");
    std::error_code ec;
    std::filesystem::create_directories(dumpFolderPath(), ec);
    if (ec) throw Failure(dumpFolderPath() + ": cannot create: " + ec.message());
  }
  const std::string problems = hostsim::applyLogProperties();
  if (!problems.empty()) throw Failure(problems);
  if (!setup.logcatFile.empty() && !hostsim::setAndroidLogFile(setup.logcatFile))
    throw Failure(setup.logcatFile + ": cannot open the log file");
  if (!setup.offlineLog.empty() && !hostsim::setOfflineLogFile(setup.offlineLog))
    throw Failure(setup.offlineLog + ": cannot open the offline log file");
  const std::string level =
      setup.logLevel.empty() ? (setup.logcatFile.empty() ? "warn" : "verbose") : setup.logLevel;
  hostsim::setAndroidLogMinPriority(priorityOf(level));
}

std::string calibrationFilePath() { return vyplatform::devicePath(kParamFilePath); }

bool calibrationFileReady() {
  namespace fs = std::filesystem;
  const std::string path = calibrationFilePath();
  if (path.empty())
    throw Failure(hostsim::deviceRoot() + kParamFilePath +
                  ": refused, the path passes through a symlink, which the simulator never "
                  "follows; copy the file into the device root");
  std::error_code ec;
  // Under a device root the path holds no symlink by now (devicePath refuses one).
  const fs::file_status status = fs::status(path, ec);
  if (status.type() == fs::file_type::not_found) return false;
  if (ec) throw Failure(path + ": the calibration file cannot be read: " + ec.message());
  const char* kind = status.type() == fs::file_type::directory ? "a folder"
                     : status.type() == fs::file_type::fifo    ? "a FIFO"
                     : status.type() == fs::file_type::regular ? nullptr
                                                               : "not a regular file";
  if (kind != nullptr)
    throw Failure(path + ": the calibration file is " + kind + "; expected a regular file");
  const uintmax_t size = fs::file_size(path, ec);
  if (ec) throw Failure(path + ": the calibration file cannot be read: " + ec.message());
  if (size > calib::kMaxCalibrationBytes)
    throw Failure(path + ": the calibration file has " + std::to_string(size) +
                  " bytes, above the " + calib::calibrationSizeLimit() +
                  " such a file may have (they are kilobytes to a few megabytes)");
  return true;
}

std::string dumpFolderPath() { return vyplatform::devicePath(kDumpFolder); }

std::string defaultPluginPath() {
  std::error_code ec;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return "liblumo_filter.so";
  return (self.parent_path().parent_path() / "lib" / "liblumo_filter.so").string();
}

}  // namespace lumo
