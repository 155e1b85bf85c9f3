// Temporary-then-rename output files.
#include "atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "failure.h"

namespace lumo {

AtomicFile::AtomicFile(std::string path) : m_path(std::move(path)) {
  const std::filesystem::path p(m_path);
  const std::filesystem::path dir = p.has_parent_path() ? p.parent_path() : ".";
  std::string pattern = (dir / ("." + p.filename().string() + ".tmp-XXXXXX")).string();
  const int fd = ::mkstemp(pattern.data());
  if (fd < 0) throw Failure(m_path + ": cannot create: " + std::strerror(errno));
  m_temp = pattern;
  m_stream = ::fdopen(fd, "wb");
  if (m_stream == nullptr) {
    ::close(fd);
    ::unlink(m_temp.c_str());
    throw Failure(m_path + ": cannot open: " + std::strerror(errno));
  }
}

AtomicFile::~AtomicFile() {
  if (m_stream != nullptr) std::fclose(m_stream);
  if (!m_committed && !m_temp.empty()) ::unlink(m_temp.c_str());
}

void AtomicFile::commit() {
  const bool writeFailed = std::fflush(m_stream) != 0 || std::ferror(m_stream) != 0;
  const int savedErrno = errno;
  const bool closeFailed = std::fclose(m_stream) != 0;
  m_stream = nullptr;
  if (writeFailed || closeFailed)
    throw Failure(m_path + ": cannot write: " + std::strerror(writeFailed ? savedErrno : errno));
  // mkstemp creates 0600; outputs are ordinary user files.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::chmod(m_temp.c_str(), 0666 & ~mask);
  if (std::rename(m_temp.c_str(), m_path.c_str()) != 0)
    throw Failure(m_path + ": cannot rename into place: " + std::strerror(errno));
  m_committed = true;
}

void writeFileAtomically(const std::string& path, const void* bytes, size_t size) {
  AtomicFile file(path);
  if (size != 0 && std::fwrite(bytes, 1, size, file.stream()) != size)
    throw Failure(path + ": cannot write: " + std::strerror(errno));
  file.commit();
}

}  // namespace lumo
