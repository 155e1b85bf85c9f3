// Ctrl-C and SIGTERM during a run: the first signal is only noted, so the run
// can stop between frames and unwind (removing its staging folder and
// temporary files) before the process ends by that signal; a second one ends
// it at once.
#pragma once

#include "failure.h"

namespace lumo {

class Interrupted : public Failure {
public:
  explicit Interrupted(int signal) : Failure("interrupted"), m_signal(signal) {}
  int signal() const { return m_signal; }

private:
  int m_signal;
};

// Catches SIGINT and SIGTERM for its lifetime; the previous handlers come back after.
class InterruptGuard {
public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

  // Throws Interrupted when a signal came since the guard was made.
  static void check();
  // The signal that came since the guard was made, or 0. Calls the signal
  // cut short (EINTR) fail on their own terms; this tells why.
  static int pending();
};

// Ends the process by `signal` with its default action, as if never caught.
[[noreturn]] void endBySignal(int signal);

}  // namespace lumo
