// Layer: container access, eight operations on the one file that holds a volume. Each works on a host file, or forwards
// to the memory file, translates the host's reason of a failure into the library's code, and never retries. Stands on
// the device's file calls, the memory file and the error state.
//
// Reads, writes and seeks on host files are counted and timed, successful or not, in the exported counters (orba.h).
#pragma once

#include <stdint.h>

#include "platform/coredll.h"

namespace orba {

constexpr uint32_t kMemoryFile = 0xFFFFFFFE;   // the handle of the memory file; never passed to the host
constexpr uint32_t kNoContainer = 0xFFFFFFFF;  // no handle: the open failed
constexpr uint32_t kSeekFailed = 0xFFFFFFFF;
constexpr uint32_t kSizeFailed = 0xFFFFFFFF;

// Creates a new, empty container and leaves it closed. Fails with ORB_ERROR_FILE_EXISTS where the host file exists; the
// memory file "??MEM??" is emptied instead.
bool ContainerCreate(const WideChar* name);

// Opens a container exclusively. Returns its handle, kMemoryFile for "??MEM??" (nothing is touched), or kNoContainer.
uint32_t ContainerOpen(const WideChar* name);

// Reads at the container's position. A short read is a success: callers compare *done.
bool ContainerRead(uint32_t container, void* buffer, uint32_t count, uint32_t* done);

// Writes at the container's position. On a host file a short write fails with ORB_ERROR_WRITE.
bool ContainerWrite(uint32_t container, const void* buffer, uint32_t count, uint32_t* done);

// Moves the position; distances are signed, so positions from 2^31 on are out of reach. Returns the new position or
// kSeekFailed.
uint32_t ContainerSeek(uint32_t container, int32_t distance, uint32_t method);

// Makes everything written durable; for the memory file there is nothing to do.
bool ContainerFlush(uint32_t container);

// Returns the size in bytes, or kSizeFailed.
uint32_t ContainerGetSize(uint32_t container);

// Closes the handle; the memory file stays (unmounting discards it).
bool ContainerClose(uint32_t container);

}  // namespace orba
