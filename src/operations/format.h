// Operation: formatting, which makes a new container with an empty volume in it. Stands on the container, the layout
// and block I/O.
#pragma once

#include <stdint.h>

#include "platform/coredll.h"

namespace orba {

// Creates a container and formats it.
//   bitmapSize  node bitmap in bytes, 0 to MaxBitmapSize(blockSize)
//   blockSize   1024, 2048, 4096 or 8192
//   fails   ORB_ERROR_INVALID_ARGUMENT: nothing was created. The container's codes for creating and opening. After that
//           the unfinished container stays on disk and open, and does not mount (Q14).
//   writes  in sequence from the start: 1. zeros for the header   2. node-block table   3. node bitmap   4. the first
//           node block, with the root   5. the root's directory block; after a flush   6. the header: the commit point.
//           The header goes through the volume's write path, which sets the dirty mark; the header, copied before that,
//           overwrites it (Q22).
bool FormatVolume(const WideChar* container, uint32_t bitmapSize, uint32_t blockSize);

}  // namespace orba
