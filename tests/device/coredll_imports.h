// COREDLL.dll for device images that run in an ARM Linux process.
#pragma once

namespace device {

// A pe_loader Resolver. The device calls are this project's own implementation for Linux, but for the three that load
// libraries, which load device images; the C library's functions are the process's own.
void* ResolveCoredll(const char* library, const char* name);

}  // namespace device
