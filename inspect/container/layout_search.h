// Finds out where the blocks of a container lie when its first bytes are lost, header, table, bitmap and the root's
// record: from what is spread over the rest of it. Stands on image and bytes.
#pragma once

#include <cstdint>

#include "inspect/container/image.h"

namespace orba::inspect {

struct Layout {
  std::uint32_t blockSize = 0;  // 0 = not to be made out
  std::uint32_t dataOffset = 0;
};

// Reads all of the container, once. For each block size the places of node records and directories give the place of
// block 1, for numbered records lie in numbered places of a block, and directories begin blocks. A block size is borne
// out by
//   - the root's directory in block 2, where formatting puts it,
//   - the first node block in block 1, which is its place for all time,
//   - each directory that lies in the block that its record names,
//   - each run of node records that fills just one block,
// and contradicted by directories that lie elsewhere than their records say and by runs that begin or end within a
// block. At least two such witnesses more must be for it than against it, and no other size may be borne out as well.
Layout SearchLayout(const Image& image);

}  // namespace orba::inspect
