#include <algorithm>
#include <map>
#include <set>

#include "unit/nodes/block_map_test.h"

namespace orba {

void BlockMapTest::SetUp() {
  LibraryTest::SetUp();
  Start(1024);
}

void BlockMapTest::TearDown() {
  OrbNodeRelease(node_);
  LibraryTest::TearDown();
}

void BlockMapTest::Start(uint32_t blockSize) {
  if (volume_ != nullptr) {
    OrbNodeRelease(node_);
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    testhost::RemoveFile(u"VOL");
  }
  volume_ = FormatAndMount(16, blockSize);
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  node_ = OrbNodeGet(volume_, 2);
  ASSERT_NE(node_, nullptr);
  testhost::ClearTrace();
}

uint32_t BlockMapTest::WordAt(uint32_t block, uint32_t slot) const {
  return testhost::ReadU32(testhost::FileBytes(u"VOL", PositionOf(block) + slot * 4, 4), 0);
}

void BlockMapTest::PutWord(uint32_t block, uint32_t slot, uint32_t value) {
  testhost::PatchFile(u"VOL", PositionOf(block) + slot * 4, Word(value));
}

void BlockMapTest::SetBlocks(uint32_t blocks) {
  testhost::ResizeFile(u"VOL", volume_->header.dataOffset + uint64_t{blocks} * volume_->header.blockSize);
}

Blocks BlockMapTest::Grow(uint32_t count) {
  const uint32_t blockSize = volume_->header.blockSize;
  for (uint32_t i = node_->record.size / blockSize; i < count; ++i) {
    const Bytes data = Pattern(blockSize, i);
    EXPECT_TRUE(AppendFileBlock(node_, i * blockSize, data.data(), blockSize, kDataWrite)) << i;
    node_->record.size += blockSize;
  }
  EXPECT_TRUE(OrbNodeWrite(node_));
  Blocks blocks;
  for (uint32_t i = 0; i < count; ++i) blocks.push_back(LookupFileBlock(node_, i * blockSize));
  EndUpdate();
  return blocks;
}

Blocks BlockMapTest::FreedOrder() const {
  const uint32_t blockSize = volume_->header.blockSize;
  std::map<uint32_t, std::multiset<uint32_t>> records;  // by their own block
  Blocks freed;
  for (const testhost::CallRecord& write : testhost::Writes()) {
    if (write.count != blockSize || testhost::ReadU32(write.data, 0) != kFreeChainSignature) continue;
    const uint32_t block = (static_cast<uint32_t>(write.position) - volume_->header.dataOffset) / blockSize + 1;
    std::multiset<uint32_t> now;
    for (uint32_t k = 0; k < testhost::ReadU32(write.data, 8); ++k) {
      now.insert(testhost::ReadU32(write.data, kFreeChainHeader + 4 * k));
    }
    if (now.empty()) {
      freed.push_back(block);
    } else {
      const std::multiset<uint32_t>& before = records[block];
      std::set_difference(now.begin(), now.end(), before.begin(), before.end(), std::back_inserter(freed));
    }
    records[block] = now;
  }
  return freed;
}

void BlockMapTest::EndUpdate() {
  ASSERT_TRUE(OrbCommitVolume(volume_));
  testhost::ClearTrace();
}

}  // namespace orba
