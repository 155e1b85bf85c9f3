// File-system faults of the simulated device. A read-only device refuses
// every open for writing; a full one takes a limited number of bytes across
// all files opened while the limit is set, through a stdio stream whose
// writes stop where the space ends, as a real partition's would.
#include "device_files.h"

#include <fcntl.h>
#include <hostsim/device_root.h>
#include <hostsim/file_faults.h>
#include <platform/device_path.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>

#include "device_path_guard.h"

namespace hostsim {
namespace {

std::mutex& faultMutex() {
  static std::mutex m;
  return m;
}

FileFaults& faultValue() {
  static FileFaults faults;
  return faults;
}

// Takes up to `wanted` bytes of the space left; all of them without a limit.
size_t takeSpace(size_t wanted) {
  std::lock_guard<std::mutex> lock(faultMutex());
  int64_t& left = faultValue().spaceLeft;
  if (left < 0) return wanted;
  const size_t granted = left < static_cast<int64_t>(wanted) ? static_cast<size_t>(left) : wanted;
  left -= static_cast<int64_t>(granted);
  return granted;
}

ssize_t limitedRead(void* cookie, char* buffer, size_t size) {
  return ::read(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), buffer, size);
}

// Fewer bytes than asked marks the stream as failed (glibc sets its error flag).
ssize_t limitedWrite(void* cookie, const char* buffer, size_t size) {
  const int fd = static_cast<int>(reinterpret_cast<intptr_t>(cookie));
  const size_t granted = takeSpace(size);
  size_t done = 0;
  while (done < granted) {
    const ssize_t n = ::write(fd, buffer + done, granted - done);
    if (n < 0) return done > 0 ? static_cast<ssize_t>(done) : -1;
    done += static_cast<size_t>(n);
  }
  if (done < size) {
    errno = ENOSPC;
    return done > 0 ? static_cast<ssize_t>(done) : -1;
  }
  return static_cast<ssize_t>(done);
}

int limitedSeek(void* cookie, off64_t* offset, int whence) {
  const off64_t at =
      ::lseek64(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), *offset, whence);
  if (at < 0) return -1;
  *offset = at;
  return 0;
}

int limitedClose(void* cookie) {
  return ::close(static_cast<int>(reinterpret_cast<intptr_t>(cookie)));
}

bool opensForWriting(const char* mode) { return std::strpbrk(mode, "wa+") != nullptr; }

// open(2) flags of an fopen mode: r, w or a, then any of "+", "b", "x", "e".
int openFlags(const char* mode) {
  const bool update = std::strchr(mode, '+') != nullptr;
  int flags = update ? O_RDWR : O_RDONLY;
  if (mode[0] == 'w') flags = (update ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
  if (mode[0] == 'a') flags = (update ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
  if (std::strchr(mode, 'x') != nullptr) flags |= O_EXCL;
  return flags;
}

FILE* openStream(const char* devicePath, const char* mode) {
  const std::string root = deviceRoot();
  if (root.empty() || devicePath[0] != '/') return std::fopen(devicePath, mode);
  const int fd = openBeneathRoot(root, devicePath, openFlags(mode));
  if (fd < 0) return nullptr;
  FILE* file = ::fdopen(fd, mode);
  if (file == nullptr) ::close(fd);
  return file;
}

}  // namespace

void setFileFaults(const FileFaults& faults) {
  std::lock_guard<std::mutex> lock(faultMutex());
  faultValue() = faults;
}

FileFaults fileFaults() {
  std::lock_guard<std::mutex> lock(faultMutex());
  return faultValue();
}

FILE* openHostFile(const char* devicePath, const char* mode) {
  if (devicePath == nullptr || mode == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  const FileFaults faults = fileFaults();
  if (faults.readOnly && opensForWriting(mode)) {
    errno = EROFS;
    return nullptr;
  }
  FILE* file = openStream(devicePath, mode);
  if (file == nullptr || faults.spaceLeft < 0) return file;
  // The descriptor moves to a stream whose writes draw on the space left.
  const int fd = ::dup(::fileno(file));
  std::fclose(file);
  if (fd < 0) return nullptr;
  const cookie_io_functions_t io{limitedRead, limitedWrite, limitedSeek, limitedClose};
  FILE* limited = ::fopencookie(reinterpret_cast<void*>(static_cast<intptr_t>(fd)), mode, io);
  if (limited == nullptr) ::close(fd);
  return limited;
}

}  // namespace hostsim

namespace vyplatform {

FILE* openDeviceFile(const char* path, const char* mode) {
  return hostsim::openHostFile(path, mode);
}

}  // namespace vyplatform
