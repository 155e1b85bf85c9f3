// Every file the project writes appears whole or not at all: it is written
// under a temporary name in the destination folder and renamed into place on
// commit, so a reader never sees half a file.
//
// Permissions: a committed file gets 0666 less the umask the process started
// with (read once, before main, without changing it), like any file fopen
// creates. Writing never touches process-wide state, so writer threads can
// commit side by side.
//
// fsync policy: `Durability::sync` flushes the data to the disk before the
// rename, so that after a crash the path holds either the old file or the
// whole new one. It is for files a device loads (calibration). Pictures,
// reports and other outputs a run can simply remake use `Durability::visible`:
// readers still never see half a file, but a crash may lose the newest ones.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>

namespace lumo {

enum class Durability { visible, sync };

class AtomicFile {
public:
  // Opens a temporary file beside `path`; throws Failure when it cannot.
  explicit AtomicFile(std::string path, Durability durability = Durability::visible);
  // Removes the temporary file unless committed.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  std::FILE* stream() const { return m_stream; }
  // Flushes, closes and renames; throws Failure on any error.
  void commit();

private:
  std::string m_path;
  std::string m_temp;
  std::FILE* m_stream = nullptr;
  Durability m_durability;
  bool m_committed = false;
};

// Writes `bytes` to `path` atomically.
void writeFileAtomically(const std::string& path, const void* bytes, size_t size,
                         Durability durability = Durability::visible);

// The umask the process started with.
mode_t startupUmask();

}  // namespace lumo
