// Operation: mounting, volume information, unmounting. Stands on everything below the entry points: it loads a volume's
// tables, chain and root, and closes what is open on it.
#pragma once

#include <stdint.h>

#include "platform/coredll.h"
#include "volume/volume.h"

namespace orba {

// Mounts a container under a name, newest in the list; the root of the first volume becomes the current directory. The
// container is opened exclusively and not written to. The memory file takes any number of mounts (Q15).
//   fails  ORB_ERROR_OUT_OF_MEMORY, ORB_ERROR_INVALID_NAME, ORB_ERROR_ALREADY_MOUNTED, the container's codes for
//          opening, CheckHeader's, LoadFreeChain's, OrbNodeGet's for the root, ORB_ERROR_DAMAGED_RECORD for a root that
//          is not a directory. Nothing is left: no list entry, no open container, no memory.
bool MountVolume(const WideChar* container, const char* name);

// Stores a mounted volume's sizes through the pointers that are not null.
//   fails  ORB_ERROR_NOT_MOUNTED
bool GetVolumeInfo(const char* name, OrbU32* bitmapSize, OrbU32* blockSize);

// Unmounts a volume: moves the current directory off it, closes its files, tries to close its searches, unlinks and
// frees the record, closes the container (or discards the memory file). Writes nothing: every operation has left the
// container clean.
//   fails  ORB_ERROR_NOT_MOUNTED (also a name no volume can have): nothing changed. Otherwise the volume is gone, but a
//          file, a search or the container did not close.
bool UnmountVolume(const char* name);

// Unmounts the newest volume until none is left; false if any did not close cleanly. Nothing calls it when the library
// is unloaded: a process that ends takes its volumes with it, and they are clean.
bool VolumeUnmountAll();

// Checks a header just read, in host order, in this order: signature (ORB_ERROR_DAMAGED_VOLUME), version
// (ORB_ERROR_WRONG_VERSION), header and table size (DAMAGED_VOLUME), block size (ORB_ERROR_INVALID_ARGUMENT), block
// shift (DAMAGED_VOLUME), bitmap size (INVALID_ARGUMENT), the regions' places (DAMAGED_VOLUME), dirty mark
// (ORB_ERROR_NOT_CLEAN).
bool CheckHeader(const VolumeHeader& header);

}  // namespace orba
