// What the tests of the block map share: one file on a volume, and its map forged or grown.
#pragma once

#include <vector>

#include "nodes/block_map.h"
#include "nodes/node.h"
#include "space/block_io.h"
#include "unit/library_test.h"

namespace orba {

using Blocks = std::vector<uint32_t>;

// A volume with the empty file "F", node 2, held as `node_`. The container ends after block 2; with blocks of 1024
// bytes block n lies at 16 + 1024 n.
class BlockMapTest : public LibraryTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Starts anew with another block size.
  void Start(uint32_t blockSize);

  uint32_t PositionOf(uint32_t block) const { return BlockPosition(volume_, block); }
  uint32_t WordAt(uint32_t block, uint32_t slot) const;
  void PutWord(uint32_t block, uint32_t slot, uint32_t value);
  Bytes BlockBytes(uint32_t block) const { return testhost::BlockOf(testhost::FileBytes(u"VOL"), block); }

  // Makes the container end after `blocks` blocks.
  void SetBlocks(uint32_t blocks);

  // Appends whole blocks until the file has `count`, and returns their numbers in order. The trace is empty afterwards.
  Blocks Grow(uint32_t count);

  // The blocks that the writes in the trace have put into the free chain, in order. The trace must keep their bytes.
  Blocks FreedOrder() const;

  // Ends the update and forgets the calls.
  void EndUpdate();

  Volume* volume_ = nullptr;
  OrbNode* node_ = nullptr;
};

}  // namespace orba
