#include "tools/orba/interrupt.h"

#include "tools/orba/host/host.h"

namespace orba::tool {

void CheckInterrupt() {
  const int signal = host::CaughtSignal();
  if (signal != 0) throw Interrupt{signal};
}

void AwaitInput(int file) {
  host::AwaitInput(file);
  CheckInterrupt();
}

}  // namespace orba::tool
