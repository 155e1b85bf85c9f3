// Signal handling of runs that must clean up after themselves.
#include "interrupt.h"

#include <signal.h>

#include <csignal>
#include <cstdlib>

namespace lumo {
namespace {

volatile std::sig_atomic_t g_signal = 0;
struct sigaction g_previous[2];
constexpr int kSignals[2] = {SIGINT, SIGTERM};

extern "C" void onSignal(int signal) {
  if (g_signal != 0) {
    // Asked twice: stop now, whatever is left behind.
    ::signal(signal, SIG_DFL);
    ::raise(signal);
    return;
  }
  g_signal = signal;
}

}  // namespace

InterruptGuard::InterruptGuard() {
  g_signal = 0;
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  // No SA_RESTART: a read or open blocked on a pipe must return (EINTR) so
  // the run gets to the check that ends it.
  action.sa_flags = 0;
  for (int i = 0; i < 2; ++i) sigaction(kSignals[i], &action, &g_previous[i]);
}

InterruptGuard::~InterruptGuard() {
  for (int i = 0; i < 2; ++i) sigaction(kSignals[i], &g_previous[i], nullptr);
}

void InterruptGuard::check() {
  if (g_signal != 0) throw Interrupted(g_signal);
}

int InterruptGuard::pending() { return g_signal; }

void endBySignal(int signal) {
  ::signal(signal, SIG_DFL);
  ::raise(signal);
  std::_Exit(128 + signal);  // only if the signal is blocked
}

}  // namespace lumo
