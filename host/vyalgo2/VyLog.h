// Host framework logging: the gates (levels, groups, debug mask) and the two
// sinks every plugin statement goes to (Android log and offline log).
#pragma once

#include <cstdint>
#include <string>

// A statement of threshold T reaches a sink when the sink's level is below T
// and the plugin's group bit is set in the sink's group mask.
extern int32_t gVyCamLogLevel;
extern uint32_t gVyCamLogGroup;
extern int32_t gVyCamOfflineLogLevel;
extern uint32_t gVyCamOfflineLogGroup;
// Non-zero enables debug and info statements on the offline log.
extern uint32_t gVyCamDebugMask;

namespace vydebug {

class Log {
public:
  // "dir/name" of a source path: the last folder and the file name without
  // its extension, e.g. "lumo_filter/paramUtil" for ".../lumo_filter/paramUtil.cpp".
  static std::string getFileName(const char* path);

  // Short name of a log group bit, printed at the start of Android log lines.
  static const char* vyaGroupToString(int group);

  // Lets the host divert (encrypt or capture) a statement before it reaches
  // the Android log. Returns 0 when the caller should print it itself.
  static int catchLogEncryptLog(int group, const char* file, int line, const char* function,
                                const char* level, const char* fmt, ...)
      __attribute__((format(printf, 6, 7)));

  // Writes one statement to the offline log file.
  static void logSystem(int group, const char* level, const char* file, const char* function,
                        int line, const char* fmt, ...) __attribute__((format(printf, 6, 7)));
};

}  // namespace vydebug
