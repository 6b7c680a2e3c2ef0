#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <initializer_list>

#include "tools/orba/host/host.h"

namespace orba::tool::host {

namespace {

std::atomic<int> g_signal;  // no lock: a handler may write it
int g_wake[2] = {-1, -1};   // a pipe: what the handler writes ends the wait for input

void Remember(int signal) {
  const int error = errno;
  g_signal = signal;
  const ssize_t ignored = write(g_wake[1], "", 1);
  static_cast<void>(ignored);
  errno = error;
}

}  // namespace

void SetUpStandardStreams() {
  for (const int stream : {kInput, kOutput, kError}) {
    // The lowest free number is given out.
    if (fcntl(stream, F_GETFD) < 0) open("/dev/null", stream == kInput ? O_WRONLY : O_RDONLY);
  }
}

bool IsTerminal(int stream) { return isatty(stream) != 0; }

std::size_t Columns(int stream) {
  winsize size = {};
  return ioctl(stream, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

int OutputError() { return errno; }

bool IsUtf8() { return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

void CatchSignals() {
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

int CaughtSignal() { return g_signal; }

void Pause(int milliseconds) {
  pollfd waiting = {g_wake[0], POLLIN, 0};
  poll(&waiting, 1, milliseconds);
}

void AwaitInput(int file) {
  pollfd waiting[2] = {{file, POLLIN, 0}, {g_wake[0], POLLIN, 0}};
  while (poll(waiting, 2, -1) < 0 && errno == EINTR && g_signal == 0) continue;
}

void DieOf(int signal) {
  ::signal(signal, SIG_DFL);
  raise(signal);
  exit(128 + signal);
}

}  // namespace orba::tool::host
