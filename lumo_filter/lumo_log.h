// Logging macros of the plugin. Every statement goes to two sinks, both
// gated on the plugin's log group (bit value 2):
//  - the Android log, when gVyCamLogLevel is below the statement's threshold
//    and the host's catch hook does not take the statement;
//  - the offline log, when gVyCamOfflineLogLevel is below the threshold and,
//    for debug and info statements, the debug mask is non-zero.
// Thresholds: debug 3, info 5, error 7.
#pragma once

#include <android/log.h>
#include <vyalgo2/VyLog.h>

#include <string>

#define LUMO_LOG_GROUP 2
#define LUMO_LOG_TAG "VyAlgoEngine"

#define LUMO_LOG_STATEMENT(func, threshold, priority, letter, offlineLevel, needsMask, fmt, ...) \
  do {                                                                                           \
    const bool lumoToAndroid_ =                                                                  \
        gVyCamLogLevel < (threshold) && (gVyCamLogGroup & LUMO_LOG_GROUP) != 0;                  \
    const bool lumoToOffline_ = gVyCamOfflineLogLevel < (threshold) &&                           \
                                (gVyCamOfflineLogGroup & LUMO_LOG_GROUP) != 0 &&                 \
                                (!(needsMask) || gVyCamDebugMask != 0);                          \
    if (lumoToAndroid_ || lumoToOffline_) {                                                      \
      const std::string lumoFile_ = vydebug::Log::getFileName(__FILE__);                         \
      if (lumoToAndroid_ &&                                                                      \
          vydebug::Log::catchLogEncryptLog(LUMO_LOG_GROUP, lumoFile_.c_str(), __LINE__, func,    \
                                           letter, fmt, ##__VA_ARGS__) == 0) {                   \
        __android_log_print(priority, LUMO_LOG_TAG, "%s %s:%d %s()" fmt,                         \
                            vydebug::Log::vyaGroupToString(LUMO_LOG_GROUP), lumoFile_.c_str(),   \
                            __LINE__, func, ##__VA_ARGS__);                                      \
      }                                                                                          \
      if (lumoToOffline_) {                                                                      \
        vydebug::Log::logSystem(LUMO_LOG_GROUP, offlineLevel, lumoFile_.c_str(), func, __LINE__, \
                                fmt, ##__VA_ARGS__);                                             \
      }                                                                                          \
    }                                                                                            \
  } while (0)

// The _IN forms log in the name of the function `func` (a helper that
// logs for its caller).
#define LUMO_LOGD_IN(func, fmt, ...) \
  LUMO_LOG_STATEMENT(func, 3, ANDROID_LOG_DEBUG, "D", "V", true, fmt, ##__VA_ARGS__)
#define LUMO_LOGE_IN(func, fmt, ...) \
  LUMO_LOG_STATEMENT(func, 7, ANDROID_LOG_ERROR, "E", "E", false, fmt, ##__VA_ARGS__)
#define LUMO_LOGD(fmt, ...) LUMO_LOGD_IN(__func__, fmt, ##__VA_ARGS__)
#define LUMO_LOGI(fmt, ...) \
  LUMO_LOG_STATEMENT(__func__, 5, ANDROID_LOG_INFO, "I", "I", true, fmt, ##__VA_ARGS__)
#define LUMO_LOGE(fmt, ...) LUMO_LOGE_IN(__func__, fmt, ##__VA_ARGS__)
