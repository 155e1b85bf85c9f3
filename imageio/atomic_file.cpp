// Temporary-then-rename output files.
#include "atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "failure.h"

namespace lumo {
namespace {

// Linux states the umask in /proc without changing it. Where that line is
// missing the umask is set and put back, which is safe only because this runs
// during static initialisation, before any thread of ours exists.
mode_t readUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) == 0)
      return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
  }
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

const mode_t g_startupUmask = readUmask();

}  // namespace

mode_t startupUmask() { return g_startupUmask; }

AtomicFile::AtomicFile(std::string path, Durability durability)
    : m_path(std::move(path)), m_durability(durability) {
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
  const int fd = ::fileno(m_stream);
  bool failed = std::fflush(m_stream) != 0 || std::ferror(m_stream) != 0;
  if (!failed && m_durability == Durability::sync) failed = ::fsync(fd) != 0;
  // mkstemp creates 0600; outputs are ordinary user files.
  if (!failed) failed = ::fchmod(fd, 0666 & ~g_startupUmask) != 0;
  const int savedErrno = errno;
  const bool closeFailed = std::fclose(m_stream) != 0;
  m_stream = nullptr;
  if (failed || closeFailed)
    throw Failure(m_path + ": cannot write: " + std::strerror(failed ? savedErrno : errno));
  if (std::rename(m_temp.c_str(), m_path.c_str()) != 0)
    throw Failure(m_path + ": cannot rename into place: " + std::strerror(errno));
  m_committed = true;
}

void writeFileAtomically(const std::string& path, const void* bytes, size_t size,
                         Durability durability) {
  AtomicFile file(path, durability);
  if (size != 0 && std::fwrite(bytes, 1, size, file.stream()) != size)
    throw Failure(path + ": cannot write: " + std::strerror(errno));
  file.commit();
}

}  // namespace lumo
