// Layer: the memory file, the container "??MEM??". A separate library, memfile.dll, keeps it; this layer loads that
// library and forwards to its six entry points. Stands on the device's library calls and the error state.
//
// There is one memory file for the process, so no handle is passed. The library is loaded by MemFileCreate alone, once
// more each time, and unloaded once by MemFileDelete (Q15); mounting never loads it. A call whose entry point is not
// bound fails with ORB_ERROR_NO_MEMFILE and returns 0. Failures inside memfile.dll set no code of their own.
#pragma once

#include <stdint.h>

namespace orba {

// Loads memfile.dll and creates the memory file, or empties it.  fails: ORB_ERROR_MEMFILE_NOT_FOUND,
// ORB_ERROR_NO_MEMFILE
bool MemFileCreate();

// Read and write at the memory file's position. The result is memfile.dll's own, unchanged; callers must check for a
// short transfer.
bool MemFileRead(void* buffer, uint32_t count, uint32_t* done);
bool MemFileWrite(const void* buffer, uint32_t count, uint32_t* done);

// Returns the new position, 0xFFFFFFFF on failure. Where memfile.dll lacks the call: 0 with ORB_ERROR_NO_MEMFILE, which
// passes for a position; the code stays set.
uint32_t MemFileSeek(int32_t distance, uint32_t method);

// Returns the size in bytes; 0 with ORB_ERROR_NO_MEMFILE where memfile.dll lacks the call.
uint32_t MemFileGetSize();

// Discards the memory file and unloads memfile.dll (also where the entry point is missing, which fails).
bool MemFileDelete();

}  // namespace orba
