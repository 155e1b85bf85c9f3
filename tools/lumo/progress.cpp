// Terminal progress line.
#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace lumo {

bool stderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool enabled)
    : m_enabled(enabled), m_start(std::chrono::steady_clock::now()), m_last(m_start) {}

Progress::~Progress() {
  if (m_drawn) std::fputs("\n", stderr);
}

void Progress::update(size_t done, size_t total) {
  if (!m_enabled) return;
  const auto now = std::chrono::steady_clock::now();
  // Redraw at most ten times a second, and always for the last frame.
  if (done != total && now - m_last < std::chrono::milliseconds(100) && m_drawn) return;
  m_last = now;
  const double seconds = std::chrono::duration<double>(now - m_start).count();
  std::fprintf(stderr, "\r\033[Kframes %zu/%zu  %.1f fps", done, total,
               seconds > 0 ? double(done) / seconds : 0.0);
  std::fflush(stderr);
  m_drawn = true;
}

}  // namespace lumo
