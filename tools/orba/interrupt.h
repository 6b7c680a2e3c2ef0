// Ctrl-C and its relatives. A signal only raises a flag; work looks at it between two steps, so that nothing is left
// half done that can be finished or taken back. Stands on the host alone.
#pragma once

namespace orba::tool {

struct Interrupt {
  int signal;
};

// From here on SIGINT, SIGTERM and SIGHUP wait to be noticed; a second one of the same kind does not, and one that
// whoever started the program has it ignore stays ignored. A write to a reader that went away fails with EPIPE, one
// past the limit for the size of files with EFBIG, and one that has to wait is ended by a signal (EINTR).
void CatchInterrupts();

// Throws an Interrupt when a signal has come.
void CheckInterrupt();

// Waits until there is something to read, or the end. Throws an Interrupt when a signal comes first.
void AwaitInput(int descriptor);

// Ends the program the way the signal would have.
[[noreturn]] void DieOf(const Interrupt& interrupt);

}  // namespace orba::tool
