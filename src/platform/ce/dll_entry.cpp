// The entry point of a device DLL. Every table starts zeroed and there is nothing to set up, or to take down.
#include <stdint.h>

extern "C" int32_t DllEntry(void* /*instance*/, uint32_t /*reason*/, void* /*reserved*/) { return 1; }
