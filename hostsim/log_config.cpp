// Logging configuration from system properties, applied when the library
// loads and on request.
#include <cutils/properties.h>
#include <hostsim/log_sink.h>
#include <platform/device_path.h>
#include <vyalgo2/VyLog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace hostsim {
namespace {

constexpr const char* kOfflineLogPath = "/data/vendor/camera/offlinelog/vyalgo_offline.log";

// The raw value of a set property; false when unset or empty.
bool readProperty(const char* name, std::string& value) {
  char buf[PROPERTY_VALUE_MAX];
  if (property_get(name, buf, "") <= 0) return false;
  value = buf;
  return true;
}

bool parseNumber(const std::string& text, long long min, long long max, long long& out) {
  errno = 0;
  char* end = nullptr;
  out = std::strtoll(text.c_str(), &end, 0);
  return errno == 0 && end != text.c_str() && *end == '\0' && out >= min && out <= max;
}

template <typename T>
void applyNumber(const char* name, long long min, long long max, T& target, std::string& problems) {
  std::string value;
  if (!readProperty(name, value)) return;
  long long parsed = 0;
  if (parseNumber(value, min, max, parsed)) {
    target = static_cast<T>(parsed);
  } else {
    if (!problems.empty()) problems += "; ";
    problems += std::string(name) + ": \"" + value + "\" is not a number in range";
  }
}

}  // namespace

std::string openOfflineLogUnderDeviceRoot() {
  const std::string path = vyplatform::devicePath(kOfflineLogPath);
  if (path.empty()) return path;  // refused: it passes through a symlink
  std::error_code ec;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
  return setOfflineLogFile(path) ? path : std::string();
}

std::string applyLogProperties() {
  std::string problems;
  applyNumber(kPropLogLevel, INT32_MIN, INT32_MAX, gVyCamLogLevel, problems);
  applyNumber(kPropLogGroup, 0, UINT32_MAX, gVyCamLogGroup, problems);
  applyNumber(kPropOfflineLogLevel, INT32_MIN, INT32_MAX, gVyCamOfflineLogLevel, problems);
  applyNumber(kPropOfflineLogGroup, 0, UINT32_MAX, gVyCamOfflineLogGroup, problems);
  applyNumber(kPropDebugMask, 0, UINT32_MAX, gVyCamDebugMask, problems);

  std::string value;
  if (readProperty(kPropOfflineLogFile, value) && value == "1" &&
      openOfflineLogUnderDeviceRoot().empty()) {
    if (!problems.empty()) problems += "; ";
    problems += std::string("cannot open the offline log ") + kOfflineLogPath;
  }
  if (readProperty(kPropLogcatFile, value) && !setAndroidLogFile(value)) {
    if (!problems.empty()) problems += "; ";
    problems += "cannot open the log file " + value;
  }
  return problems;
}

namespace {

// Switches set in the environment take effect before any plugin loads.
const bool kAppliedAtLoad = [] {
  const std::string problems = applyLogProperties();
  if (!problems.empty()) std::fprintf(stderr, "vyhost: logging: %s\n", problems.c_str());
  return true;
}();

}  // namespace

}  // namespace hostsim
