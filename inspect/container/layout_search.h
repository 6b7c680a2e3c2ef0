// Finds out where the blocks of a container lie when its first bytes are lost, header, table, bitmap and the root's
// record: from what is spread over the rest of it. Stands on image and fields.
#pragma once

#include <cstdint>

#include "inspect/container/image.h"

namespace orba::inspect {

struct Layout {
  std::uint32_t blockSize = 0;  // 0 = it cannot be found
  std::uint32_t dataOffset = 0;
};

// Reads all of the container, once. For each block size the places of node records and of directories give the place of
// block 1: numbered records lie in numbered slots of a block, and directories begin blocks. A block size is supported
// by
//   - the root's directory in block 2, where formatting puts it,
//   - the first node block in block 1, where it always is,
//   - each directory that lies in the block that its record gives,
//   - each run of node records that fills exactly one block,
// and contradicted by directories that lie elsewhere than their records say and by runs that go on into another block,
// lie where no block begins, or belong to one node block and lie in two. Single sectors count for nothing: they may
// have been overwritten, or written to the wrong place; nor do two directories that lie in each other's place. There
// must be at least two such witnesses for it, more than against it, and more by a greater number than for any other
// size or place. Where there are not, the guess is taken, if nothing contradicts it.
Layout SearchLayout(const Image& image, const Layout& guess = {});

}  // namespace orba::inspect
