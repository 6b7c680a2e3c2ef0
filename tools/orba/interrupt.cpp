#include "tools/orba/interrupt.h"

#include <signal.h>
#include <stdlib.h>

#include <initializer_list>

namespace orba::tool {

namespace {

volatile sig_atomic_t g_signal;

void Remember(int signal) { g_signal = signal; }

}  // namespace

void CatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = Remember;
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);  // the second one does not wait
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

void CheckInterrupt() {
  if (g_signal != 0) throw Interrupt{g_signal};
}

void DieOf(const Interrupt& interrupt) {
  signal(interrupt.signal, SIG_DFL);
  raise(interrupt.signal);
  exit(128 + interrupt.signal);
}

}  // namespace orba::tool
