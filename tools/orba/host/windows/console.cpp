// The console and its signals. Windows runs handlers in a thread of their own, beside the one that works.
#include <fcntl.h>
#include <io.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "tools/orba/host/windows/windows.h"

namespace orba::tool::host {

namespace {

std::atomic<int> g_signal;
HANDLE g_wake;  // an event: a signal has come

struct ConsoleMode {
  HANDLE console = nullptr;
  DWORD before = 0;
};

ConsoleMode g_modes[2];  // of output and error, as they were
UINT g_codePage;         // as it was

void RestoreConsole() {
  for (const ConsoleMode& mode : g_modes) {
    if (mode.console != nullptr) SetConsoleMode(mode.console, mode.before);
  }
  if (g_codePage != 0) SetConsoleOutputCP(g_codePage);
}

// The console is shared with whoever started the program, and is put back for them.
void SetUpConsole() {
  const int streams[] = {kOutput, kError};
  for (std::size_t i = 0; i < 2; ++i) {
    DWORD mode = 0;
    const HANDLE console = HandleOf(streams[i]);
    if (GetConsoleMode(console, &mode) == 0) continue;
    g_modes[i] = {console, mode};
    SetConsoleMode(console, mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    if (g_codePage == 0) g_codePage = GetConsoleOutputCP();
  }
  if (g_codePage == 0) return;
  SetConsoleOutputCP(CP_UTF8);
  std::atexit(RestoreConsole);
}

// False where the system is to end the program. When the window closes it does so as soon as this returns.
BOOL WINAPI Remember(DWORD event) {
  const bool typed = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  const int before = g_signal.exchange(typed ? SIGINT : SIGTERM);
  if (typed && before == SIGINT) return FALSE;
  SetEvent(g_wake);
  if (!typed) Sleep(INFINITE);
  return TRUE;
}

}  // namespace

void SetUpStandardStreams() {
  for (FILE* const stream : {stdin, stdout, stderr}) {
    if (_fileno(stream) >= 0) _setmode(_fileno(stream), _O_BINARY);
  }
  // Unbuffered, as they are on a console, they would carry byte by byte, and characters in pieces.
  static char buffers[2][65536];
  std::setvbuf(stdout, buffers[0], _IOFBF, sizeof buffers[0]);
  std::setvbuf(stderr, buffers[1], _IOFBF, sizeof buffers[1]);
  SetUpConsole();
}

bool IsTerminal(int stream) {
  DWORD mode = 0;
  return GetConsoleMode(HandleOf(stream), &mode) != 0 && (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

std::size_t Columns(int stream) {
  CONSOLE_SCREEN_BUFFER_INFO screen = {};
  if (GetConsoleScreenBufferInfo(HandleOf(stream), &screen) == 0) return 0;
  return static_cast<std::size_t>(screen.srWindow.Right - screen.srWindow.Left + 1);
}

bool IsUtf8() { return true; }

// The C run time calls a pipe without a reader an invalid argument.
int OutputError() {
  const int error = errno;
  return error == EINVAL && GetFileType(HandleOf(kOutput)) == FILE_TYPE_PIPE ? EPIPE : error;
}

void CatchSignals() {
  g_wake = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(Remember, TRUE);
}

int CaughtSignal() { return g_signal; }

void Pause(int milliseconds) { WaitForSingleObject(g_wake, static_cast<DWORD>(milliseconds)); }

bool AwaitThread(HANDLE thread) {
  const HANDLE either[] = {thread, g_wake};
  return WaitForMultipleObjects(2, either, FALSE, INFINITE) == WAIT_OBJECT_0;
}

// Read waits itself.
void AwaitInput(int /*file*/) {}

void DieOf(int /*signal*/) {
  std::fflush(nullptr);
  RestoreConsole();
  ExitProcess(static_cast<UINT>(STATUS_CONTROL_C_EXIT));
}

}  // namespace orba::tool::host
