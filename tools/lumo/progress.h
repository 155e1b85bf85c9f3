// Progress of long runs on stderr: one updating line (frames done, frames
// per second, time left) when stderr is a terminal, nothing otherwise; the
// line is cleared when the run ends.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace lumo {

class Progress {
public:
  explicit Progress(bool enabled);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(size_t done, size_t total);

private:
  bool m_enabled;
  bool m_drawn = false;
  std::chrono::steady_clock::time_point m_start;
  std::chrono::steady_clock::time_point m_last;
};

// "frames 3/10  1.5 fps  0:05 left" (no time left before the first frame
// or after the last).
std::string progressText(size_t done, size_t total, double seconds);

// True when stderr is a terminal.
bool stderrIsTerminal();

}  // namespace lumo
