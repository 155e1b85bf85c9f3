// Progress of long runs on stderr: one updating line (frames done, frames
// per second) when stderr is a terminal, nothing otherwise.
#pragma once

#include <chrono>
#include <cstddef>

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

// True when stderr is a terminal.
bool stderrIsTerminal();

}  // namespace lumo
