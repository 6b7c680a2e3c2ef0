#include "tools/orba/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace orba::tool {

namespace {

volatile sig_atomic_t g_signal;
int g_wake[2] = {-1, -1};  // a pipe: what the handler writes ends the wait for input

void Remember(int signal) {
  const int error = errno;
  g_signal = signal;
  const ssize_t ignored = write(g_wake[1], "", 1);
  static_cast<void>(ignored);
  errno = error;
}

}  // namespace

void CatchInterrupts() {
  if (pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0) g_wake[0] = g_wake[1] = -1;  // then a wait goes on
  struct sigaction action = {};
  action.sa_handler = Remember;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    sigaction(signal, &action, &before);
    if (before.sa_handler == SIG_IGN) sigaction(signal, &before, nullptr);  // as nohup wants it
  }
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

void CheckInterrupt() {
  if (g_signal != 0) throw Interrupt{g_signal};
}

void AwaitInput(int descriptor) {
  pollfd waiting[2] = {{descriptor, POLLIN, 0}, {g_wake[0], POLLIN, 0}};
  while (poll(waiting, 2, -1) < 0 && errno == EINTR) CheckInterrupt();
  CheckInterrupt();
}

void DieOf(const Interrupt& interrupt) {
  signal(interrupt.signal, SIG_DFL);
  raise(interrupt.signal);
  exit(128 + interrupt.signal);
}

}  // namespace orba::tool
