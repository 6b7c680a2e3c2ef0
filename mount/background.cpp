#include "mount/background.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace orba::mount {

namespace {

int g_ready = -1;  // the pipe on which the old process waits

// Ends as the child does.
[[noreturn]] void Follow(pid_t child, int ready) {
  char byte;
  ssize_t got = read(ready, &byte, 1);
  while (got < 0 && errno == EINTR) {
    kill(child, SIGTERM);  // what this process was sent
    got = read(ready, &byte, 1);
  }
  if (got == 1) _exit(0);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (WIFSIGNALED(status)) {
    std::signal(WTERMSIG(status), SIG_DFL);
    raise(WTERMSIG(status));
  }
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

}  // namespace

bool GoToBackground() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const pid_t child = fork();
  if (child != 0) close(ends[1]);
  if (child > 0) Follow(child, ends[0]);
  close(ends[0]);
  g_ready = ends[1];
  return child == 0;
}

void Leave() {
  setsid();
  const int ignored = chdir("/");
  static_cast<void>(ignored);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int stream = 0; stream < 3; ++stream) dup2(nowhere, stream);
  if (nowhere > 2) close(nowhere);
  const ssize_t written = write(g_ready, "", 1);
  static_cast<void>(written);
  close(g_ready);
}

}  // namespace orba::mount
