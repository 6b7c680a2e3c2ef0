// Interruptions from outside, such as Ctrl-C. A signal only raises a flag; work looks at it between two steps, so that
// nothing is left interrupted that can be finished or taken back. Stands on host.
#pragma once

namespace orba::tool {

struct Interrupt {
  int signal;
};

// Throws an Interrupt when a signal has come.
void CheckInterrupt();

// Waits until there is something to read, or the end. Throws an Interrupt when a signal comes first.
void AwaitInput(int file);

}  // namespace orba::tool
