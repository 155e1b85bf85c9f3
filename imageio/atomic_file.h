// Output files that appear whole or not at all: written under a temporary
// name in the destination folder and renamed into place on commit.
#pragma once

#include <cstdio>
#include <string>

namespace lumo {

class AtomicFile {
public:
  // Opens a temporary file beside `path`; throws Failure when it cannot.
  explicit AtomicFile(std::string path);
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
  bool m_committed = false;
};

// Writes `bytes` to `path` atomically.
void writeFileAtomically(const std::string& path, const void* bytes, size_t size);

}  // namespace lumo
