// Ctrl-C and its relatives. A signal only raises a flag; work looks at it between two steps, so that nothing is left half
// done that can be finished or taken back. Stands on the host alone.
#pragma once

namespace orba::tool {

struct Interrupt {
  int signal;
};

// From here on SIGINT, SIGTERM and SIGHUP wait to be noticed; SIGPIPE becomes a failed write.
void CatchInterrupts();

// Throws an Interrupt when a signal has come.
void CheckInterrupt();

// Ends the program the way the signal would have.
[[noreturn]] void DieOf(const Interrupt& interrupt);

}  // namespace orba::tool
