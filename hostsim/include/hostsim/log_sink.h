// Where the simulator's two log outputs go: logcat-style lines on stderr or
// a file (Android log), the offline log file, and in-memory captures for tests.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace hostsim {

struct LogRecord {
  bool offline = false;  // false: Android log, true: offline log
  int priority = 0;      // Android priority (3 debug, 4 info, 6 error); 0 offline
  std::string level;     // offline level string ("V", "I", "E"); empty on Android
  std::string tag;
  std::string message;  // the formatted text after the tag
};

// Records every line written while it lives (both outputs), in order.
class LogCapture {
public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogRecord> records() const;
  // Messages of one output only, in order.
  std::vector<std::string> androidMessages() const;
  std::vector<std::string> offlineMessages() const;
  void clear();

  void add(const LogRecord& record);

private:
  mutable std::mutex m_mutex;
  std::vector<LogRecord> m_records;
};

// Android log destination: "" for stderr, "-" to drop, otherwise a file path
// (appended). Returns false when the file cannot be opened.
bool setAndroidLogFile(const std::string& path);
// Offline log file path; "" switches the offline file off (captures still see lines).
bool setOfflineLogFile(const std::string& path);
// Minimum Android priority echoed to the Android log destination.
void setAndroidLogMinPriority(int priority);

// Opens the offline log at <device root>/data/vendor/camera/offlinelog/
// vyalgo_offline.log, creating the folders. Returns the path, or empty when
// it cannot be opened.
std::string openOfflineLogUnderDeviceRoot();

// Names of the properties that configure logging. Levels are integers; the
// group masks and the debug mask accept decimal or 0x hexadecimal up to
// 0xFFFFFFFF.
constexpr const char* kPropLogLevel = "persist.vendor.camera.vyalgo.logLevel";
constexpr const char* kPropLogGroup = "persist.vendor.camera.vyalgo.logGroup";
constexpr const char* kPropOfflineLogLevel = "persist.vendor.camera.vyalgo.offlineLogLevel";
constexpr const char* kPropOfflineLogGroup = "persist.vendor.camera.vyalgo.offlineLogGroup";
constexpr const char* kPropDebugMask = "persist.vendor.camera.vyalgo.debugMask";
// 1: write the offline log file under the device root.
constexpr const char* kPropOfflineLogFile = "persist.vendor.camera.vyalgo.offlineLog";
// Destination of the Android log: unset or "" for stderr, "-" to drop, else a file.
constexpr const char* kPropLogcatFile = "vendor.hostsim.logcat.file";

// Sets the log globals and destinations from those properties that are set
// (unset ones leave their setting alone). Runs once when the library loads;
// call it again after changing properties. Returns the problems found.
std::string applyLogProperties();

}  // namespace hostsim
