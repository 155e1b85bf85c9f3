// The host's two log outputs on Linux. The Android log prints logcat
// "threadtime" lines (MM-DD HH:MM:SS.mmm  PID  TID P TAG: message); the
// offline log writes one line per statement to its own file. Captures see
// every line of both, whatever the destinations are.
#include <android/log.h>
#include <hostsim/log_sink.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <vyalgo2/VyLog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

int32_t gVyCamLogLevel = 0;
uint32_t gVyCamLogGroup = 0xFFFFFFFFu;
int32_t gVyCamOfflineLogLevel = 0;
uint32_t gVyCamOfflineLogGroup = 0xFFFFFFFFu;
uint32_t gVyCamDebugMask = 0;

namespace hostsim {
namespace {

struct Sinks {
  std::mutex mutex;
  std::vector<LogCapture*> captures;
  FILE* androidFile = stderr;  // null: dropped
  bool androidOwned = false;
  FILE* offlineFile = nullptr;
  int androidMinPriority = ANDROID_LOG_VERBOSE;
};

Sinks& sinks() {
  static Sinks s;
  return s;
}

// Marked as a printf-style formatter so callers' format strings are checked
// and clang accepts the non-literal format passed on here.
__attribute__((format(printf, 1, 0))) std::string vformat(const char* fmt, va_list ap) {
  va_list copy;
  va_copy(copy, ap);
  int n = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  if (n < 0) return std::string();
  std::string out(static_cast<size_t>(n), '\0');
  std::vsnprintf(out.data(), out.size() + 1, fmt, ap);
  return out;
}

std::string timestamp() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  std::tm tm{};
  localtime_r(&tv.tv_sec, &tm);
  char buf[32];
  std::strftime(buf, sizeof(buf), "%m-%d %H:%M:%S", &tm);
  char out[64];
  std::snprintf(out, sizeof(out), "%s.%03ld", buf, static_cast<long>(tv.tv_usec / 1000));
  return out;
}

char priorityLetter(int prio) {
  static const char kLetters[] = "??VDIWEFS";
  return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}

// logcat's threadtime shape, one header per line of the message; trailing
// line breaks are dropped as logcat does. Tags shorter than 8 characters are
// padded to 8.
std::string threadtimeLines(int prio, const std::string& tag, const std::string& message) {
  char head[160];
  std::snprintf(head, sizeof(head), "%s %5d %5ld %c %-8s: ", timestamp().c_str(),
                static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                priorityLetter(prio), tag.c_str());
  std::string text = message;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::string out;
  size_t start = 0;
  do {
    size_t nl = text.find('\n', start);
    if (nl == std::string::npos) nl = text.size();
    out += head;
    out.append(text, start, nl - start);
    out += '\n';
    start = nl + 1;
  } while (start <= text.size());
  return out;
}

void publish(const LogRecord& rec, const std::string& line) {
  Sinks& s = sinks();
  std::lock_guard<std::mutex> lock(s.mutex);
  for (LogCapture* c : s.captures) c->add(rec);
  FILE* out = rec.offline ? s.offlineFile : s.androidFile;
  if (out != nullptr && (rec.offline || rec.priority >= s.androidMinPriority)) {
    std::fputs(line.c_str(), out);
    std::fflush(out);
  }
}

void replaceFile(FILE*& slot, bool& owned, FILE* next, bool nextOwned) {
  if (owned && slot != nullptr) std::fclose(slot);
  slot = next;
  owned = nextOwned;
}

}  // namespace

LogCapture::LogCapture() {
  std::lock_guard<std::mutex> lock(sinks().mutex);
  sinks().captures.push_back(this);
}

LogCapture::~LogCapture() {
  std::lock_guard<std::mutex> lock(sinks().mutex);
  auto& v = sinks().captures;
  v.erase(std::remove(v.begin(), v.end(), this), v.end());
}

std::vector<LogRecord> LogCapture::records() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_records;
}

std::vector<std::string> LogCapture::androidMessages() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> out;
  for (const auto& r : m_records)
    if (!r.offline) out.push_back(r.message);
  return out;
}

std::vector<std::string> LogCapture::offlineMessages() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> out;
  for (const auto& r : m_records)
    if (r.offline) out.push_back(r.message);
  return out;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_records.clear();
}

void LogCapture::add(const LogRecord& record) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_records.push_back(record);
}

bool setAndroidLogFile(const std::string& path) {
  Sinks& s = sinks();
  std::lock_guard<std::mutex> lock(s.mutex);
  if (path.empty()) {
    replaceFile(s.androidFile, s.androidOwned, stderr, false);
    return true;
  }
  if (path == "-") {
    replaceFile(s.androidFile, s.androidOwned, nullptr, false);
    return true;
  }
  FILE* f = std::fopen(path.c_str(), "a");
  if (f == nullptr) return false;
  replaceFile(s.androidFile, s.androidOwned, f, true);
  return true;
}

bool setOfflineLogFile(const std::string& path) {
  Sinks& s = sinks();
  std::lock_guard<std::mutex> lock(s.mutex);
  bool owned = s.offlineFile != nullptr;
  if (path.empty()) {
    replaceFile(s.offlineFile, owned, nullptr, false);
    return true;
  }
  FILE* f = std::fopen(path.c_str(), "a");
  if (f == nullptr) return false;
  replaceFile(s.offlineFile, owned, f, true);
  return true;
}

void setAndroidLogMinPriority(int priority) {
  std::lock_guard<std::mutex> lock(sinks().mutex);
  sinks().androidMinPriority = priority;
}

}  // namespace hostsim

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string msg = hostsim::vformat(fmt, ap);
  va_end(ap);
  hostsim::LogRecord rec;
  rec.priority = prio;
  rec.tag = tag ? tag : "";
  rec.message = msg;
  std::string line = hostsim::threadtimeLines(prio, rec.tag, msg);
  hostsim::publish(rec, line);
  return static_cast<int>(msg.size());
}

namespace vydebug {

std::string Log::getFileName(const char* path) {
  if (path == nullptr) return std::string();
  std::string p(path);
  size_t slash = p.find_last_of('/');
  size_t dirStart = 0;
  if (slash != std::string::npos && slash > 0) {
    size_t prev = p.find_last_of('/', slash - 1);
    dirStart = (prev == std::string::npos) ? 0 : prev + 1;
  }
  std::string tail = p.substr(dirStart);
  size_t dot = tail.find_last_of('.');
  size_t lastSlash = tail.find_last_of('/');
  if (dot != std::string::npos && (lastSlash == std::string::npos || dot > lastSlash)) {
    tail.erase(dot);
  }
  return tail;
}

const char* Log::vyaGroupToString(int group) {
  switch (group) {
    case 1:
      return "VyaCore";
    case 2:
      return "VyaPlugin";
    case 4:
      return "VyaNode";
    case 8:
      return "VyaMeta";
    default:
      return "VyaUnknown";
  }
}

int Log::catchLogEncryptLog(int, const char*, int, const char*, const char*, const char*, ...) {
  return 0;
}

void Log::logSystem(int group, const char* level, const char* file, const char* function, int line,
                    const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string msg = hostsim::vformat(fmt, ap);
  va_end(ap);
  hostsim::LogRecord rec;
  rec.offline = true;
  rec.level = level ? level : "";
  rec.tag = vyaGroupToString(group);
  rec.message = msg;
  char head[256];
  std::snprintf(head, sizeof(head), "%s %5d %5ld %s %s %s:%d %s() ", hostsim::timestamp().c_str(),
                static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                rec.level.c_str(), rec.tag.c_str(), file ? file : "", line,
                function ? function : "");
  hostsim::publish(rec, std::string(head) + msg + "\n");
}

}  // namespace vydebug
