#include "space/free_chain.h"

#include <stdlib.h>
#include <string.h>

#include "space/block_io.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::FreeChainOf;
using testhost::FreeChainView;
using testhost::TraceText;
using Blocks = std::vector<uint32_t>;

// A fresh volume of blocks of 1024 bytes, its container made longer to 20 blocks. Block n lies at 16 + 1024 n.
class FreeChain : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    volume_ = FormatAndMount();
    testhost::ResizeFile(u"VOL", 1040 + 20 * 1024);
  }

  // Gives blocks back, each of which must succeed, ends the update and forgets the calls.
  void Free(const Blocks& blocks) {
    for (const uint32_t block : blocks) ASSERT_TRUE(FreeBlock(volume_, block)) << block;
    ASSERT_TRUE(OrbCommitVolume(volume_));
    testhost::ClearTrace();
  }

  void DropCache() {
    free(volume_->freeChain);
    volume_->freeChain = nullptr;
  }

  static FreeChainView OnDisk(uint32_t block) { return FreeChainOf(FileBytes(u"VOL"), block); }
  static uint32_t HeadOnDisk() { return testhost::HeaderOf(FileBytes(u"VOL")).freeChainHead; }

  Blocks Cached() const {
    const FreeChainRecord* const record = volume_->freeChain;
    return Blocks(record->heap, record->heap + record->count);
  }

  Volume* volume_ = nullptr;
};

// ---- Taking blocks at the container's end ---------------------------------------------------------------------------

TEST_F(FreeChain, alloc_without_a_chain_is_the_block_at_the_end_and_writes_nothing) {
  EXPECT_EQ(AllocBlock(volume_), 21u);
  EXPECT_EQ(TraceText(), "size");
  EXPECT_EQ(testhost::FileSize(u"VOL"), 1040u + 20 * 1024);
}

TEST_F(FreeChain, alloc_again_before_a_write_is_the_same_block) {  // F4
  EXPECT_EQ(AllocBlock(volume_), 21u);
  EXPECT_EQ(AllocBlock(volume_), 21u);
}

TEST_F(FreeChain, alloc_at_an_end_inside_a_block_is_that_block) {
  testhost::ResizeFile(u"VOL", 1040 + 20 * 1024 + 1);
  EXPECT_EQ(AllocBlock(volume_), 21u);
  testhost::ResizeFile(u"VOL", 1040 + 21 * 1024 - 1);
  EXPECT_EQ(AllocBlock(volume_), 21u);
}

TEST_F(FreeChain, alloc_in_an_empty_data_area_is_block_1) {
  testhost::ResizeFile(u"VOL", 1040);
  EXPECT_EQ(AllocBlock(volume_), 1u);
}

TEST_F(FreeChain, alloc_at_the_end_of_a_container_without_its_data_area_is_damage) {
  testhost::ResizeFile(u"VOL", 1039);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
}

TEST_F(FreeChain, alloc_without_the_containers_size_fails_with_the_querys_code_and_changes_nothing) {
  const Bytes before = FileBytes(u"VOL");
  FailNthCall(Call::kGetFileSize, 1, coredll::kHostNotReady);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(TraceText(), "size !21");
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(FileBytes(u"VOL"), before);
  EXPECT_EQ(AllocBlock(volume_), 21u);
}

TEST_F(FreeChain, alloc_from_a_chain_does_not_need_the_containers_size) {  // F3
  Free({20, 9});
  FailNthCall(Call::kGetFileSize, 1, coredll::kHostNotReady, Repeat::kFromThenOn);
  EXPECT_EQ(AllocBlock(volume_), 9u);
  EXPECT_EQ(AllocBlock(volume_), 20u);
  EXPECT_EQ(testhost::FaultsFired(), 0u);
}

// A data area that begins 1124 bytes into the container: the block behind 2097150 others would be cut at 2^31.
TEST_F(FreeChain, block_cut_by_two_gigabytes_is_neither_given_out_nor_taken_back) {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  testhost::RemoveFile(u"VOL");
  volume_ = FormatAndMount(100, 1024);
  const uint32_t last = 2097150;
  testhost::ResizeFile(u"VOL", 1124u + (last - 1) * 1024);
  EXPECT_EQ(AllocBlock(volume_), last);
  testhost::ResizeFile(u"VOL", 1124u + last * 1024);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
  ClearError();
  testhost::ResizeFile(u"VOL", 0x7FFFFFFF);
  EXPECT_FALSE(FreeBlock(volume_, last + 1));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
}

TEST_F(FreeChain, growth_ends_below_two_gigabytes_for_every_block_size) {
  for (const uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    testhost::RemoveFile(u"VOL");
    volume_ = FormatAndMount(16, blockSize);
    const uint32_t limit = 0x80000000u - blockSize;
    testhost::ResizeFile(u"VOL", limit - 1);
    EXPECT_EQ(AllocBlock(volume_), (limit - 1 - 1040) / blockSize + 1) << blockSize;
    for (const uint32_t size : {limit, limit + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu}) {
      testhost::ResizeFile(u"VOL", size);
      ClearError();
      EXPECT_EQ(AllocBlock(volume_), 0u) << blockSize << " " << size;
      EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL) << blockSize << " " << size;
    }
  }
}

// ---- Giving blocks back ---------------------------------------------------------------------------------------------

TEST_F(FreeChain, first_block_freed_becomes_an_empty_record_and_then_the_head) {
  EXPECT_TRUE(FreeBlock(volume_, 20));
  EXPECT_EQ(TraceText(), "size / seek 52 / write 52 4 / seek 20496 / write 20496 1024 / seek 0 / write 0 128");
  Bytes record(1024);
  memcpy(record.data(), "FBC1", 4);
  EXPECT_EQ(testhost::BlockOf(FileBytes(u"VOL"), 20), record);
  EXPECT_EQ(HeadOnDisk(), 20u);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(0, memcmp(volume_->freeChain, record.data(), 1024));
}

TEST_F(FreeChain, next_block_freed_is_one_write_of_the_record) {
  Free({20});
  EXPECT_TRUE(FreeBlock(volume_, 9));
  EXPECT_EQ(TraceText(), "size / seek 52 / write 52 4 / seek 20496 / write 20496 1024");
  EXPECT_EQ(OnDisk(20).heap, Blocks({9}));
  EXPECT_EQ(OnDisk(20).next, 0u);
  EXPECT_EQ(HeadOnDisk(), 20u);
}

TEST_F(FreeChain, entries_stand_as_a_heap_with_the_lowest_first) {  // F2
  Free({20, 9, 3, 5});
  EXPECT_EQ(OnDisk(20).heap, Blocks({3, 9, 5}));
  Free({4, 8, 2});
  EXPECT_EQ(OnDisk(20).heap, Blocks({2, 4, 3, 9, 8, 5}));
}

TEST_F(FreeChain, equal_entries_may_stand_side_by_side) {
  Free({20, 7, 7, 7});
  EXPECT_EQ(OnDisk(20).heap, Blocks({7, 7, 7}));
  EXPECT_EQ(AllocBlock(volume_), 7u);
  EXPECT_EQ(AllocBlock(volume_), 7u);
}

TEST_F(FreeChain, block_that_was_never_written_is_freed_without_a_change) {
  EXPECT_TRUE(FreeBlock(volume_, 21));
  EXPECT_EQ(TraceText(), "size");
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(AllocBlock(volume_), 21u);
}

TEST_F(FreeChain, block_written_in_part_is_freed_without_a_change) {
  for (const uint32_t part : {1u, 1023u}) {
    testhost::ResizeFile(u"VOL", 1040 + 20 * 1024 + part);
    EXPECT_TRUE(FreeBlock(volume_, 21)) << part;
    EXPECT_EQ(volume_->header.freeChainHead, 0u);
  }
  testhost::ResizeFile(u"VOL", 1040 + 21 * 1024);
  EXPECT_TRUE(FreeBlock(volume_, 21));
  EXPECT_EQ(volume_->header.freeChainHead, 21u);
}

TEST_F(FreeChain, block_0_or_one_beyond_the_end_is_refused) {
  for (const uint32_t block : {0u, 22u, 0x00200001u, 0x00400001u, 0x80000000u, 0xFFFFFFFFu}) {
    testhost::ClearTrace();
    EXPECT_FALSE(FreeBlock(volume_, block)) << block;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << block;
    EXPECT_EQ(TraceText(), "size");
  }
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
}

TEST_F(FreeChain, container_size_is_asked_for_before_the_block_is_judged) {
  FailNthCall(Call::kGetFileSize, 1, coredll::kHostNotReady);
  EXPECT_FALSE(FreeBlock(volume_, 0));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
}

TEST_F(FreeChain, free_without_the_containers_size_changes_nothing) {
  const Bytes fresh = FileBytes(u"VOL");
  FailNthCall(Call::kGetFileSize, 1, coredll::kHostNotReady);
  EXPECT_FALSE(FreeBlock(volume_, 20));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(TraceText(), "size !21");
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(FileBytes(u"VOL"), fresh);

  Free({20, 9});
  const Bytes before = FileBytes(u"VOL");
  FailNthCall(Call::kGetFileSize, 1, coredll::kHostAccessDenied);
  EXPECT_FALSE(FreeBlock(volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_ACCESS_DENIED);
  EXPECT_EQ(TraceText(), "size !5");
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(Cached(), Blocks({9}));
  EXPECT_EQ(FileBytes(u"VOL"), before);
  EXPECT_EQ(volume_->failed, 0u);
}

TEST_F(FreeChain, failed_volume_takes_nothing_back_and_makes_no_call) {
  volume_->failed = 1;
  EXPECT_FALSE(FreeBlock(volume_, 20));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(FreeChain, full_record_is_followed_by_the_next_block_as_the_new_head_for_every_block_size) {
  const struct { uint32_t blockSize, capacity; } sizes[] = {{1024, 253}, {2048, 509}, {4096, 1021}, {8192, 2045}};
  for (const auto& size : sizes) {
    SCOPED_TRACE(size.blockSize);
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    testhost::RemoveFile(u"VOL");
    volume_ = FormatAndMount(16, size.blockSize);
    const uint32_t last = size.capacity + 10;
    testhost::ResizeFile(u"VOL", 1040 + uint64_t{last} * size.blockSize);
    Free({last});
    for (uint32_t block = 1; block <= size.capacity; ++block) ASSERT_TRUE(FreeBlock(volume_, block + 2));
    EXPECT_EQ(volume_->header.freeChainHead, last);
    EXPECT_EQ(OnDisk(last).heap.size(), size.capacity);
    EXPECT_EQ(OnDisk(last).heap.back(), size.capacity + 2);  // the last word of the block

    const uint32_t next = size.capacity + 3;
    EXPECT_TRUE(FreeBlock(volume_, next));
    EXPECT_EQ(HeadOnDisk(), next);
    EXPECT_EQ(OnDisk(next).next, last);
    EXPECT_TRUE(OnDisk(next).heap.empty());
    EXPECT_EQ(OnDisk(last).heap.size(), size.capacity);
    EXPECT_EQ(AllocBlock(volume_), next);
    EXPECT_EQ(HeadOnDisk(), last);
    EXPECT_EQ(AllocBlock(volume_), 3u);
  }
}

TEST_F(FreeChain, new_head_after_a_full_one_is_written_before_the_header) {
  Free({20});
  volume_->chainCapacity = 0;  // as if it were full
  EXPECT_TRUE(FreeBlock(volume_, 19));
  EXPECT_EQ(TraceText(), "size / seek 52 / write 52 4 / seek 19472 / write 19472 1024 / seek 0 / write 0 128");
  EXPECT_EQ(OnDisk(19).next, 20u);
}

TEST_F(FreeChain, container_never_shrinks) {
  Free({20, 19, 18});
  EXPECT_EQ(testhost::FileSize(u"VOL"), 1040u + 20 * 1024);
}

// ---- Taking blocks from the chain -----------------------------------------------------------------------------------

TEST_F(FreeChain, lowest_block_goes_first) {  // F2
  Free({20, 9, 3, 5});
  EXPECT_EQ(AllocBlock(volume_), 3u);
  EXPECT_EQ(AllocBlock(volume_), 5u);
  EXPECT_EQ(AllocBlock(volume_), 9u);
}

TEST_F(FreeChain, alloc_from_the_record_is_one_write_of_it) {
  Free({20, 9, 3, 5});
  EXPECT_EQ(AllocBlock(volume_), 3u);
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 20496 / write 20496 1024");
  EXPECT_EQ(OnDisk(20).heap, Blocks({5, 9}));
  EXPECT_EQ(testhost::ReadU32(FileBytes(u"VOL"), 20496 + 20), 0u);  // where the third entry was
}

TEST_F(FreeChain, last_entry_taken_stays_behind_the_count) {
  Free({20, 9});
  EXPECT_EQ(AllocBlock(volume_), 9u);
  EXPECT_TRUE(OnDisk(20).heap.empty());
  EXPECT_EQ(testhost::ReadU32(FileBytes(u"VOL"), 20496 + 12), 9u);
}

TEST_F(FreeChain, removal_sinks_the_last_entry_to_the_smaller_child) {
  Free({20, 2, 4, 3, 9, 8, 5});
  ASSERT_EQ(OnDisk(20).heap, Blocks({2, 4, 3, 9, 8, 5}));
  EXPECT_EQ(AllocBlock(volume_), 2u);
  EXPECT_EQ(OnDisk(20).heap, Blocks({3, 4, 5, 9, 8}));
  EXPECT_EQ(AllocBlock(volume_), 3u);
  EXPECT_EQ(OnDisk(20).heap, Blocks({4, 8, 5, 9}));
}

TEST_F(FreeChain, empty_last_record_is_handed_out_itself_and_the_chain_ends) {
  Free({20});
  EXPECT_EQ(AllocBlock(volume_), 20u);
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 0 / write 0 128");
  EXPECT_EQ(HeadOnDisk(), 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(AllocBlock(volume_), 21u);
}

TEST_F(FreeChain, empty_record_is_handed_out_and_the_next_one_becomes_the_head) {
  Free({20, 9});
  volume_->chainCapacity = 1;
  Free({19});
  volume_->chainCapacity = 253;
  EXPECT_EQ(AllocBlock(volume_), 19u);
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 0 / write 0 128 / seek 20496 / read 20496 1024");
  EXPECT_EQ(HeadOnDisk(), 20u);
  EXPECT_EQ(Cached(), Blocks({9}));
  EXPECT_EQ(AllocBlock(volume_), 9u);
}

TEST_F(FreeChain, header_written_for_an_empty_record_takes_the_mark_off_the_disk) {
  Free({20});
  EXPECT_EQ(AllocBlock(volume_), 20u);
  EXPECT_FALSE(testhost::IsMarkedDirty(FileBytes(u"VOL")));
  EXPECT_EQ(volume_->header.stateFlags, 1u);
}

TEST_F(FreeChain, record_that_is_not_cached_is_read_first) {  // F1
  Free({20, 9});
  DropCache();
  EXPECT_EQ(AllocBlock(volume_), 9u);
  EXPECT_EQ(TraceText(), "seek 20496 / read 20496 1024 / seek 52 / write 52 4 / seek 20496 / write 20496 1024");
  DropCache();
  testhost::ClearTrace();
  EXPECT_TRUE(FreeBlock(volume_, 8));
  EXPECT_EQ(TraceText(), "size / seek 20496 / read 20496 1024 / seek 20496 / write 20496 1024");
  EXPECT_EQ(OnDisk(20).heap, Blocks({8}));
}

TEST_F(FreeChain, cache_survives_an_unmount_on_the_disk) {
  Free({20, 9, 3, 5});
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  volume_ = Mount();
  EXPECT_EQ(Cached(), Blocks({3, 9, 5}));
}

// ---- Loading --------------------------------------------------------------------------------------------------------

TEST_F(FreeChain, load_without_a_head_releases_the_cache) {
  Free({20});
  volume_->header.freeChainHead = 0;
  EXPECT_TRUE(LoadFreeChain(volume_));
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(TraceText(), "");
}

TEST_F(FreeChain, load_reads_into_the_buffer_it_has) {  // F1, V4
  Free({20, 9});
  const FreeChainRecord* const buffer = volume_->freeChain;
  const uint32_t before = testhost::AllocationCalls();
  EXPECT_TRUE(LoadFreeChain(volume_));
  EXPECT_EQ(volume_->freeChain, buffer);
  EXPECT_EQ(testhost::AllocationCalls(), before);
}

TEST_F(FreeChain, load_refuses_a_record_that_fails_its_check_and_releases_the_cache) {
  const struct {
    const char* what;
    uint32_t word, value;
  } faults[] = {{"signature", 0, 0x31434245},
                {"count above the capacity", 2, 254},
                {"huge count", 2, 0xFFFFFFFF},
                {"first entry zero", 3, 0},
                {"last entry zero", 5, 0}};
  Free({20, 9, 3, 5});
  const Bytes good = FileBytes(u"VOL");
  for (const auto& fault : faults) {
    testhost::SetFile(u"VOL", good);
    ASSERT_TRUE(LoadFreeChain(volume_));
    testhost::PatchFile(u"VOL", 20496 + 4 * fault.word, Word(fault.value));
    EXPECT_FALSE(LoadFreeChain(volume_)) << fault.what;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << fault.what;
    EXPECT_EQ(volume_->freeChain, nullptr) << fault.what;
    EXPECT_EQ(volume_->header.freeChainHead, 20u);
  }
}

TEST_F(FreeChain, load_accepts_a_record_filled_to_its_capacity) {
  Free({20});
  testhost::PatchFile(u"VOL", 20496 + 8, Word(253));
  for (uint32_t k = 0; k < 253; ++k) testhost::PatchFile(u"VOL", 20496 + 12 + 4 * k, Word(k + 1));
  EXPECT_TRUE(LoadFreeChain(volume_));
  EXPECT_EQ(Cached().size(), 253u);
}

TEST_F(FreeChain, load_of_a_record_without_its_heap_order_is_no_failure) {
  Free({20});
  testhost::PatchFile(u"VOL", 20496 + 8, Word(2));
  testhost::PatchFile(u"VOL", 20496 + 12, Word(9));
  testhost::PatchFile(u"VOL", 20496 + 16, Word(3));
  EXPECT_TRUE(LoadFreeChain(volume_));
  EXPECT_EQ(AllocBlock(volume_), 9u);
}

TEST_F(FreeChain, load_of_a_record_past_the_end_fails_as_the_read_and_releases_the_cache) {
  Free({20});
  volume_->header.freeChainHead = 21;
  EXPECT_FALSE(LoadFreeChain(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  EXPECT_EQ(volume_->freeChain, nullptr);
}

TEST_F(FreeChain, load_that_cannot_read_keeps_the_reads_code_and_releases_the_cache) {
  Free({20});
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(LoadFreeChain(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(volume_->freeChain, nullptr);
}

TEST_F(FreeChain, load_without_memory_fails) {
  Free({20});
  DropCache();
  FailNthAllocation(1);
  EXPECT_FALSE(LoadFreeChain(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(TraceText(), "");
}

TEST_F(FreeChain, store_writes_the_cache_into_the_head_block) {
  Free({20, 9});
  volume_->freeChain->heap[0] = 4;
  EXPECT_TRUE(StoreFreeChain(volume_));
  EXPECT_EQ(OnDisk(20).heap, Blocks({4}));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_F(FreeChain, alloc_without_memory_for_the_cache_leaves_the_head) {
  Free({20, 9});
  DropCache();
  FailNthAllocation(1);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(TraceText(), "");
}

TEST_F(FreeChain, alloc_without_memory_for_the_copy_has_taken_the_block_from_the_cache) {
  Free({20, 9, 3});
  FailNthAllocation(1);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(Cached(), Blocks({9}));
  EXPECT_EQ(OnDisk(20).heap, Blocks({3, 9}));
}

TEST_F(FreeChain, alloc_whose_record_cannot_be_written_has_taken_the_block_from_the_cache) {
  const struct {
    uint32_t host, code, failed;
  } failures[] = {{coredll::kHostDiskFull, ORB_ERROR_DISK_FULL, 0}, {coredll::kHostNotReady, ORB_ERROR_NOT_READY, 1}};
  Free({20, 9, 3, 5});
  Blocks left = {5, 9};
  for (const auto& failure : failures) {
    FailNthCall(Call::kWriteFile, 2, failure.host);
    EXPECT_EQ(AllocBlock(volume_), 0u);
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(volume_->failed, failure.failed);
    EXPECT_EQ(Cached(), left);
    left = {9};
    volume_->header.stateFlags = 0;
  }
}

TEST_F(FreeChain, alloc_whose_head_cannot_be_read_releases_the_cache) {  // V4
  Free({20, 9});
  DropCache();
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(AllocBlock(volume_), 9u);
}

TEST_F(FreeChain, alloc_of_an_empty_record_without_memory_for_the_header_leaves_the_head) {
  Free({20});
  FailNthAllocation(1);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(AllocBlock(volume_), 20u);
}

TEST_F(FreeChain, alloc_of_an_empty_record_whose_header_cannot_be_written_has_moved_the_head) {
  for (const uint32_t host : {coredll::kHostDiskFull, coredll::kHostNotReady}) {
    Free({20});
    volume_->chainCapacity = 0;
    Free({19});
    volume_->chainCapacity = 253;
    FailNthCall(Call::kWriteFile, 2, host);
    EXPECT_EQ(AllocBlock(volume_), 0u);
    EXPECT_EQ(GetError(), host == coredll::kHostDiskFull ? ORB_ERROR_DISK_FULL : ORB_ERROR_NOT_READY);
    EXPECT_EQ(volume_->header.freeChainHead, 20u);
    EXPECT_EQ(volume_->freeChain, nullptr);
    EXPECT_EQ(HeadOnDisk(), 19u);
    testhost::ClearFaults();
    if (volume_->failed != 0) break;
    EXPECT_EQ(AllocBlock(volume_), 20u);  // the rest of the chain is sound
    ASSERT_TRUE(OrbCommitVolume(volume_));
  }
}

TEST_F(FreeChain, alloc_of_the_last_record_whose_header_cannot_be_written_has_ended_the_chain_in_memory) {
  const struct {
    uint32_t host, code, failed;
  } failures[] = {{coredll::kHostDiskFull, ORB_ERROR_DISK_FULL, 0}, {coredll::kHostNotReady, ORB_ERROR_NOT_READY, 1}};
  for (const auto& failure : failures) {
    Free({20});
    FailNthCall(Call::kWriteFile, 2, failure.host);
    EXPECT_EQ(AllocBlock(volume_), 0u);
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(volume_->header.freeChainHead, 0u);
    EXPECT_EQ(volume_->freeChain, nullptr);
    EXPECT_EQ(HeadOnDisk(), 20u);
    EXPECT_EQ(volume_->failed, failure.failed);
    ClearError();
    testhost::ClearTrace();
    EXPECT_EQ(AllocBlock(volume_), 21u);  // nothing is known of block 20 any more
    EXPECT_EQ(GetError(), 0u);
    EXPECT_EQ(TraceText(), "size");
  }
}

TEST_F(FreeChain, alloc_of_an_empty_record_whose_successor_cannot_be_read_fails_after_the_header) {
  Free({20});
  volume_->chainCapacity = 0;
  Free({19});
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(HeadOnDisk(), 20u);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(volume_->freeChain, nullptr);
}

TEST_F(FreeChain, alloc_of_an_empty_record_whose_successor_is_broken_is_damage) {
  Free({20});
  volume_->chainCapacity = 0;
  Free({19});
  testhost::PatchFile(u"VOL", 20496, Bytes{'X'});
  EXPECT_EQ(AllocBlock(volume_), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
}

TEST_F(FreeChain, free_without_memory_for_the_copy_has_put_the_block_into_the_cache) {
  Free({20, 9});
  FailNthAllocation(1);
  EXPECT_FALSE(FreeBlock(volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(TraceText(), "size");
  EXPECT_EQ(Cached(), Blocks({3, 9}));
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
}

TEST_F(FreeChain, free_whose_record_cannot_be_written_has_put_the_block_into_the_cache) {
  Free({20, 9});
  FailNthCall(Call::kWriteFile, 2, coredll::kHostNotReady);
  EXPECT_FALSE(FreeBlock(volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(Cached(), Blocks({3, 9}));
  EXPECT_EQ(OnDisk(20).heap, Blocks({9}));
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(volume_->failed, 1u);
}

TEST_F(FreeChain, free_whose_record_meets_a_full_disk_has_put_the_block_into_the_cache_and_goes_on) {
  Free({20, 9});
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(FreeBlock(volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(TraceText(), "size / seek 52 / write 52 4 / seek 20496 / write 20496 1024 !112");
  EXPECT_EQ(Cached(), Blocks({3, 9}));
  EXPECT_EQ(OnDisk(20).heap, Blocks({9}));
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(volume_->failed, 0u);
  EXPECT_TRUE(FreeBlock(volume_, 5));  // the next one brings both to the disk
  EXPECT_EQ(OnDisk(20).heap, Blocks({3, 9, 5}));
}

TEST_F(FreeChain, free_whose_head_cannot_be_loaded_fails_without_a_cache_and_leaves_the_head) {
  Free({20, 9});
  DropCache();
  const Bytes before = FileBytes(u"VOL");
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(FreeBlock(volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  FailNthAllocation(1);
  EXPECT_FALSE(FreeBlock(volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(volume_->freeChain, nullptr);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
  EXPECT_EQ(FileBytes(u"VOL"), before);
  EXPECT_TRUE(FreeBlock(volume_, 3));
  EXPECT_EQ(OnDisk(20).heap, Blocks({3, 9}));
}

TEST_F(FreeChain, free_as_the_first_record_without_memory_leaves_no_chain) {
  for (uint32_t n = 1; n <= 2; ++n) {  // the cache, the copy
    testhost::ClearTrace();
    FailNthAllocation(n);
    EXPECT_FALSE(FreeBlock(volume_, 20));
    EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
    EXPECT_EQ(volume_->header.freeChainHead, 0u);
    EXPECT_EQ(volume_->freeChain, nullptr);
    EXPECT_EQ(TraceText(), "size");
  }
}

TEST_F(FreeChain, free_as_a_new_record_without_memory_for_the_copy_leaves_the_head) {
  Free({20, 9});
  volume_->chainCapacity = 1;
  FailNthAllocation(1);
  EXPECT_FALSE(FreeBlock(volume_, 19));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(AllocBlock(volume_), 9u);
}

TEST_F(FreeChain, free_as_a_new_record_that_cannot_be_written_has_moved_the_head) {
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(FreeBlock(volume_, 20));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(HeadOnDisk(), 0u);
}

TEST_F(FreeChain, free_as_a_new_record_whose_header_is_not_written_leaves_a_lost_block_on_disk) {
  FailNthCall(Call::kWriteFile, 3, coredll::kHostNotReady);
  EXPECT_FALSE(FreeBlock(volume_, 20));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(OnDisk(20).signature, kFreeChainSignature);
  EXPECT_EQ(HeadOnDisk(), 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(volume_->failed, 1u);
}

TEST_F(FreeChain, free_as_a_new_record_without_memory_for_the_header_has_moved_the_head) {
  FailNthAllocation(3);  // after the cache and the record's copy
  EXPECT_FALSE(FreeBlock(volume_, 20));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(volume_->header.freeChainHead, 20u);
  EXPECT_EQ(HeadOnDisk(), 0u);
}

// ---- Taking a block together with its first write -------------------------------------------------------------------

TEST_F(FreeChain, new_block_is_taken_and_written) {
  const Bytes data = Pattern(1024);
  const uint32_t before = testhost::AllocationCalls();
  EXPECT_EQ(AllocWriteBlock(data.data(), volume_, kDataWrite), 21u);
  EXPECT_EQ(TraceText(), "size / seek 21520 / write 21520 1024");
  EXPECT_EQ(testhost::BlockOf(FileBytes(u"VOL"), 21), data);
  EXPECT_EQ(testhost::AllocationCalls(), before);
  EXPECT_EQ(AllocWriteBlock(data.data(), volume_, kDataWrite), 22u);
}

TEST_F(FreeChain, new_block_from_the_chain_is_taken_and_written) {
  Free({20, 9});
  const Bytes data = Pattern(1024);
  EXPECT_EQ(AllocWriteBlock(data.data(), volume_, kDirectoryWrite), 9u);
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 20496 / write 20496 1024 / seek 9232 / write 9232 1024");
}

TEST_F(FreeChain, new_block_of_metadata_sets_the_mark_before_its_write) {
  const Bytes data = Pattern(1024);
  EXPECT_EQ(AllocWriteBlock(data.data(), volume_, kNodeWrite), 21u);
  EXPECT_EQ(TraceText(), "size / seek 52 / write 52 4 / seek 21520 / write 21520 1024");
}

TEST_F(FreeChain, padded_block_is_one_write_of_a_whole_block_with_zeros_behind) {
  const Bytes data = Pattern(100);
  const uint32_t before = testhost::AllocationCalls();
  testhost::ResetPeakBytes();
  const size_t held = testhost::BytesHeld();
  EXPECT_EQ(AllocWriteBlockPadded(data.data(), volume_, kDataWrite, 100), 21u);
  EXPECT_EQ(TraceText(), "size / seek 21520 / write 21520 1024");
  Bytes expected = data;
  expected.resize(1024);
  EXPECT_EQ(testhost::BlockOf(FileBytes(u"VOL"), 21), expected);
  EXPECT_EQ(testhost::AllocationCalls() - before, 1u);
  EXPECT_EQ(testhost::PeakBytes() - held, 1024u);
}

TEST_F(FreeChain, new_block_whose_write_fails_is_lost) {  // Q19
  Free({20, 9});
  const Bytes data = Pattern(1024);
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_EQ(AllocWriteBlock(data.data(), volume_, kDataWrite), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_TRUE(Cached().empty());
  EXPECT_TRUE(OnDisk(20).heap.empty());
}

TEST_F(FreeChain, padded_block_without_memory_is_lost) {
  Free({20, 9});
  FailNthAllocation(2);  // after the record's copy
  EXPECT_EQ(AllocWriteBlockPadded("x", volume_, kDataWrite, 1), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_TRUE(OnDisk(20).heap.empty());
}

TEST_F(FreeChain, failed_volume_gives_no_new_block_and_makes_no_call) {
  volume_->failed = 1;
  const Bytes data = Pattern(1024);
  EXPECT_EQ(AllocWriteBlock(data.data(), volume_, kDataWrite), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  ClearError();
  EXPECT_EQ(AllocWriteBlockPadded("x", volume_, kDataWrite, 1), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(FreeChain, new_block_that_cannot_be_had_is_not_written) {
  FailNthCall(Call::kGetFileSize, 1, coredll::kHostNotReady);
  EXPECT_EQ(AllocWriteBlockPadded("x", volume_, kDataWrite, 1), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
}

// ---- Cost -----------------------------------------------------------------------------------------------------------

TEST_F(FreeChain, taking_and_giving_back_takes_the_memory_of_one_copy) {
  Free({20, 9, 3});
  const size_t held = testhost::BytesHeld();
  testhost::ResetPeakBytes();
  const uint32_t before = testhost::AllocationCalls();
  EXPECT_EQ(AllocBlock(volume_), 3u);
  EXPECT_EQ(testhost::AllocationCalls() - before, 1u);
  EXPECT_TRUE(FreeBlock(volume_, 3));
  EXPECT_EQ(testhost::AllocationCalls() - before, 2u);
  EXPECT_EQ(testhost::PeakBytes() - held, 1024u);
  EXPECT_EQ(testhost::BytesHeld(), held);
}

}  // namespace
}  // namespace orba
