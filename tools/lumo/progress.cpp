// Terminal progress line.
#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace lumo {

bool stderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool enabled)
    : m_enabled(enabled), m_start(std::chrono::steady_clock::now()), m_last(m_start) {}

// The line is wiped, not ended, so results printed next start on a clean
// screen line.
Progress::~Progress() {
  if (m_drawn) std::fputs("\r\033[K", stderr);
}

std::string progressText(size_t done, size_t total, double seconds) {
  char text[96];
  const double fps = seconds > 0 ? double(done) / seconds : 0.0;
  int n = std::snprintf(text, sizeof(text), "frames %zu/%zu  %.1f fps", done, total, fps);
  if (done > 0 && done < total && fps > 0) {
    const auto left = static_cast<unsigned long>(double(total - done) / fps + 0.5);
    std::snprintf(text + n, sizeof(text) - size_t(n), "  %lu:%02lu left", left / 60, left % 60);
  }
  return text;
}

void Progress::update(size_t done, size_t total) {
  if (!m_enabled) return;
  const auto now = std::chrono::steady_clock::now();
  // Redraw at most ten times a second, and always for the last frame.
  if (done != total && now - m_last < std::chrono::milliseconds(100) && m_drawn) return;
  m_last = now;
  const double seconds = std::chrono::duration<double>(now - m_start).count();
  std::fprintf(stderr, "\r\033[K%s", progressText(done, total, seconds).c_str());
  std::fflush(stderr);
  m_drawn = true;
}

}  // namespace lumo
