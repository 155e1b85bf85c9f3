#include "device_path_guard.h"

#include <android/log.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <vector>

namespace hostsim {
namespace {

constexpr const char* kTag = "VyHost";

// The plugin opens a dump and then chmods the same path, so a run of refusals
// of one path is logged once.
void warnRefused(const char* devicePath, const char* why) {
  static std::mutex m;
  static std::string last;
  {
    std::lock_guard<std::mutex> lock(m);
    if (last == devicePath) return;
    last = devicePath;
  }
  __android_log_print(ANDROID_LOG_WARN, kTag, "device path %s refused: %s", devicePath, why);
}

std::vector<std::string> split(const std::string& relative) {
  std::vector<std::string> parts;
  size_t from = 0;
  while (from < relative.size()) {
    size_t to = relative.find('/', from);
    if (to == std::string::npos) to = relative.size();
    parts.push_back(relative.substr(from, to - from));
    from = to + 1;
  }
  return parts;
}

class Fd {
public:
  explicit Fd(int fd) : m_fd(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (m_fd >= 0) ::close(m_fd);
  }
  int get() const { return m_fd; }
  void reset(int fd) {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = fd;
  }

private:
  int m_fd;
};

bool isSymlinkAt(int dir, const std::string& name) {
  struct stat st {};
  return ::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
}

}  // namespace

BeneathRoot resolveBeneath(const char* devicePath) {
  BeneathRoot out;
  std::vector<std::string> kept;
  const std::string path = devicePath;
  for (std::string& part : split(path)) {
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      kept.push_back(std::move(part));
    } else if (kept.empty()) {
      out.refused = true;
      return out;
    } else {
      kept.pop_back();
    }
  }
  for (const std::string& part : kept) out.relative += (out.relative.empty() ? "" : "/") + part;
  out.trailingSlash = !path.empty() && path.back() == '/';
  return out;
}

std::string confinedHostPath(const std::string& root, const char* devicePath) {
  const BeneathRoot at = resolveBeneath(devicePath);
  if (at.refused) {
    warnRefused(devicePath, "it leads out of the device root");
    return "";
  }
  // Components that do not exist yet are fine: the open that follows creates
  // or fails on them without following anything.
  std::string prefix = root;
  for (const std::string& part : split(at.relative)) {
    prefix += "/" + part;
    struct stat st {};
    if (::lstat(prefix.c_str(), &st) != 0) break;
    if (S_ISLNK(st.st_mode)) {
      warnRefused(devicePath, "it passes through a symlink under the device root");
      return "";
    }
  }
  const bool slash = !at.relative.empty() && at.trailingSlash;
  return root + "/" + at.relative + (slash ? "/" : "");
}

int openBeneathRoot(const std::string& root, const char* devicePath, int flags) {
  const BeneathRoot at = resolveBeneath(devicePath);
  if (at.refused) {
    warnRefused(devicePath, "it leads out of the device root");
    errno = EACCES;
    return -1;
  }
  Fd dir(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0) return -1;
  const std::vector<std::string> parts = split(at.relative);
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    const int next =
        ::openat(dir.get(), parts[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      const int error = errno;
      if (!isSymlinkAt(dir.get(), parts[i])) {
        errno = error;
        return -1;
      }
      warnRefused(devicePath, "it passes through a symlink under the device root");
      errno = EACCES;
      return -1;
    }
    dir.reset(next);
  }
  const std::string last = parts.empty() ? "." : parts.back();
  const int fd = ::openat(dir.get(), last.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd < 0 && errno == ELOOP) {
    warnRefused(devicePath, "it is a symlink under the device root");
    errno = EACCES;
  }
  return fd;
}

}  // namespace hostsim
