#include "space/block_io.h"

#include <string.h>

#include <functional>

#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

// A fresh volume of blocks of 1024 bytes: block 1 at 1040, block 2 at 2064, the end at 3088.
class BlockIo : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    volume_ = FormatAndMount();
    bytes_ = Pattern(1024);
  }

  bool IsMarked() const { return testhost::IsMarkedDirty(FileBytes(u"VOL")); }

  // Puts the volume into the failed state that a failed metadata write leaves.
  void FailVolume() {
    FailNthCall(Call::kWriteFile, 1, coredll::kHostNotReady);
    ASSERT_FALSE(MarkVolumeDirty(volume_));
    testhost::ClearFaults();
    testhost::ClearTrace();
    ClearError();
  }

  Volume* volume_ = nullptr;
  Bytes bytes_;
};

// ---- Addresses ------------------------------------------------------------------------------------------------------

TEST_F(BlockIo, blocks_count_from_1_at_the_start_of_the_data_area) {
  EXPECT_EQ(BlockPosition(volume_, 1), 1040u);
  EXPECT_EQ(BlockPosition(volume_, 2), 2064u);
  EXPECT_EQ(BlockPosition(volume_, 1000000), 1040u + 999999u * 1024u);
}

TEST_F(BlockIo, block_size_and_data_area_come_from_the_header) {
  volume_->header.blockSize = 8192;
  volume_->header.blockShift = 0xFF00000D;  // the low byte counts
  volume_->header.dataOffset = 5000;
  EXPECT_EQ(BlockPosition(volume_, 1), 5000u);
  EXPECT_EQ(BlockPosition(volume_, 3), 5000u + 2 * 8192u);
}

TEST_F(BlockIo, block_out_of_reach_has_a_position_that_every_seek_refuses) {
  for (const uint32_t block : {0u, 0x00200001u, 0x00400000u, 0x00400001u, 0x80000001u, 0xFFFFFFFFu}) {
    EXPECT_GE(BlockPosition(volume_, block), 0x80000000u) << block;
  }
}

TEST_F(BlockIo, block_of_a_data_area_out_of_reach_is_out_of_reach) {
  for (const uint32_t offset : {0x80000000u, 0xF0000000u, 0xFFFFFC00u}) {
    volume_->header.dataOffset = offset;
    for (const uint32_t block : {0u, 1u, 2u, 3u, 0x00200000u, 0x00400000u, 0xFFFFFFFFu}) {
      EXPECT_GE(BlockPosition(volume_, block), 0x80000000u) << offset << " " << block;
    }
  }
}

TEST_F(BlockIo, bytes_of_a_block_out_of_reach_are_refused_by_the_host_and_not_found_elsewhere) {
  const Bytes before = FileBytes(u"VOL");
  for (const uint32_t block : {0u, 0x00400001u, 0xFFFFFFFFu}) {
    for (const uint32_t offset : {0u, 1u, 64u, 1020u}) {
      Bytes word(4);
      EXPECT_FALSE(ReadBlockBytes(word.data(), volume_, block, offset, 4));
      EXPECT_EQ(GetError(), ORB_ERROR_READ);
      EXPECT_FALSE(WriteBlockBytes("abcd", volume_, block, kDataWrite, offset, 4));
      EXPECT_EQ(GetError(), ORB_ERROR_READ);
    }
  }
  EXPECT_EQ(testhost::CallCount(Call::kReadFile), 0u);
  EXPECT_EQ(FileBytes(u"VOL"), before);
}

// A data area that begins 1124 bytes into the container: 2097150 blocks end before 2^31, the next would begin there and
// be cut. It is not a block, not even the part of it that lies below.
TEST_F(BlockIo, block_cut_by_two_gigabytes_is_out_of_reach) {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  testhost::RemoveFile(u"VOL");
  volume_ = FormatAndMount(100, 1024);
  ASSERT_EQ(volume_->header.dataOffset, 1124u);
  testhost::ResizeFile(u"VOL", 0x7FFFFFFF);
  const uint32_t last = 2097150;
  EXPECT_EQ(BlockPosition(volume_, last), 1124u + (last - 1) * 1024);
  EXPECT_EQ(BlockPosition(volume_, last + 1), 0xFFFFFFFFu);
  Bytes block(1024);
  EXPECT_TRUE(ReadBlock(block.data(), volume_, last));
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, last, kDataWrite));
  EXPECT_EQ(FileBytes(u"VOL", 1124u + (last - 1) * 1024, 1024), bytes_);

  const testhost::FileImage before = testhost::GetFile(u"VOL");
  const std::function<bool()> refused[] = {
      [&] { return ReadBlock(block.data(), volume_, last + 1); },
      [&] { return ReadBlockBytes(block.data(), volume_, last + 1, 0, 1); },
      [&] { return WriteBlock(bytes_.data(), volume_, last + 1, kDataWrite); },
      [&] { return WriteBlockBytes(bytes_.data(), volume_, last + 1, kDataWrite, 0, 1); },
  };
  for (const auto& call : refused) {
    ClearError();
    testhost::ClearTrace();
    EXPECT_FALSE(call());
    EXPECT_EQ(GetError(), ORB_ERROR_READ);
    EXPECT_EQ(TraceText(), "seek -1 !131");
  }
  EXPECT_EQ(testhost::GetFile(u"VOL"), before);
  EXPECT_EQ(volume_->failed, 0u);
}

// ---- Reads ----------------------------------------------------------------------------------------------------------

TEST_F(BlockIo, read_is_one_seek_and_one_read) {
  const Bytes image = FileBytes(u"VOL");
  EXPECT_TRUE(ReadVolumeBytes(volume_, bytes_.data(), 1000, 24));
  EXPECT_EQ(TraceText(), "seek 1000 / read 1000 24");
  EXPECT_EQ(Bytes(bytes_.begin(), bytes_.begin() + 24), Bytes(image.begin() + 1000, image.begin() + 1024));
}

TEST_F(BlockIo, block_is_read_whole) {
  EXPECT_TRUE(ReadBlock(bytes_.data(), volume_, 2));
  EXPECT_EQ(TraceText(), "seek 2064 / read 2064 1024");
  EXPECT_EQ(bytes_, FileBytes(u"VOL", 2064, 1024));
}

TEST_F(BlockIo, byte_range_of_a_block_is_read_alone) {
  EXPECT_TRUE(ReadBlockBytes(bytes_.data(), volume_, 2, 32, 4));
  EXPECT_EQ(TraceText(), "seek 2096 / read 2096 4");
  EXPECT_EQ(Bytes(bytes_.begin(), bytes_.begin() + 4), (Bytes{1, 0, '.', '.'}));
}

TEST_F(BlockIo, read_past_the_end_of_the_container_is_damage) {
  testhost::ResizeFile(u"VOL", 3087);
  EXPECT_FALSE(ReadBlock(bytes_.data(), volume_, 2));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  EXPECT_FALSE(ReadBlock(bytes_.data(), volume_, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  EXPECT_EQ(volume_->failed, 0u);
}

TEST_F(BlockIo, short_read_is_damage) {
  testhost::ShortenNthRead(1, 1023);
  EXPECT_FALSE(ReadBlock(bytes_.data(), volume_, 1));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
}

TEST_F(BlockIo, failed_seek_fails_the_read_with_its_code) {
  FailNthCall(Call::kSetFilePointer, 1, coredll::kHostInvalidParameter);
  EXPECT_FALSE(ReadBlock(bytes_.data(), volume_, 1));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(TraceText(), "seek 1040 !87");
  EXPECT_EQ(volume_->failed, 0u);
}

TEST_F(BlockIo, failed_read_fails_with_its_code) {
  FailNthCall(Call::kReadFile, 1, coredll::kHostAccessDenied);
  EXPECT_FALSE(ReadBlock(bytes_.data(), volume_, 1));
  EXPECT_EQ(GetError(), ORB_ERROR_ACCESS_DENIED);
  EXPECT_EQ(volume_->failed, 0u);
}

TEST_F(BlockIo, failed_volume_stays_readable) {
  FailVolume();
  EXPECT_TRUE(ReadVolumeBytes(volume_, bytes_.data(), 0, 128));
  EXPECT_TRUE(ReadBlock(bytes_.data(), volume_, 1));
  EXPECT_TRUE(ReadBlockBytes(bytes_.data(), volume_, 1, 0, 4));
  EXPECT_EQ(GetError(), 0u);
}

// ---- Data writes ----------------------------------------------------------------------------------------------------

TEST_F(BlockIo, data_write_is_one_seek_and_one_write) {
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 2, kDataWrite));
  EXPECT_EQ(TraceText(), "seek 2064 / write 2064 1024");
  EXPECT_EQ(FileBytes(u"VOL", 2064, 1024), bytes_);
  EXPECT_FALSE(IsMarked());
}

TEST_F(BlockIo, data_write_of_a_byte_range_writes_it_alone) {
  EXPECT_TRUE(WriteBlockBytes("abcd", volume_, 2, kDataWrite, 1020, 4));
  EXPECT_EQ(TraceText(), "seek 3084 / write 3084 4");
  EXPECT_EQ(FileBytes(u"VOL", 3084, 4), (Bytes{'a', 'b', 'c', 'd'}));
}

TEST_F(BlockIo, write_past_the_end_makes_the_container_longer) {
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 3, kDataWrite));
  EXPECT_EQ(testhost::FileSize(u"VOL"), 4112u);
}

TEST_F(BlockIo, category_bits_without_bit_0_are_a_data_write) {
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 2, 0x700));
  EXPECT_EQ(TraceText(), "seek 2064 / write 2064 1024");
}

TEST_F(BlockIo, failed_data_write_leaves_the_volume_writable) {
  const struct {
    Call call;
    uint32_t host, code;
  } failures[] = {{Call::kSetFilePointer, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, coredll::kHostDiskFull, ORB_ERROR_DISK_FULL},
                  {Call::kWriteFile, 9999, ORB_ERROR_WRITE}};
  for (const auto& failure : failures) {
    FailNthCall(failure.call, 1, failure.host);
    EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kDataWrite));
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(volume_->failed, 0u);
  }
  testhost::ShortenNthWrite(1, 1023);
  EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kDataWrite));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  EXPECT_EQ(volume_->failed, 0u);
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 2, kDataWrite));
}

// ---- Metadata writes and the mark -----------------------------------------------------------------------------------

TEST_F(BlockIo, metadata_write_sets_the_mark_first) {  // B1
  testhost::KeepWriteData(true);
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 2064 / write 2064 1024");
  EXPECT_EQ(testhost::Writes()[0].data, (Bytes{1, 0, 0, 0}));
  EXPECT_EQ(volume_->header.stateFlags, 1u);
}

TEST_F(BlockIo, every_category_is_a_metadata_write) {
  for (const uint32_t flags : {0x001u, 0x101u, 0x201u, 0x301u, 0x401u}) {
    testhost::ClearTrace();
    EXPECT_TRUE(WriteBlockBytes("abcd", volume_, 2, flags, 0, 4));
    EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 2064 / write 2064 4") << flags;
    EXPECT_TRUE(OrbCommitVolume(volume_));
  }
}

TEST_F(BlockIo, second_metadata_write_does_not_set_the_mark_again) {
  ASSERT_TRUE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
  testhost::ClearTrace();
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 1, kNodeWrite));
  EXPECT_EQ(TraceText(), "seek 1040 / write 1040 1024");
}

TEST_F(BlockIo, mark_leaves_the_other_flags_as_they_are) {
  volume_->header.stateFlags = 0x80000010;
  EXPECT_TRUE(MarkVolumeDirty(volume_));
  EXPECT_EQ(FileBytes(u"VOL", 52, 4), Word(0x80000011));
  EXPECT_TRUE(OrbCommitVolume(volume_));
  EXPECT_EQ(FileBytes(u"VOL", 52, 4), Word(0x80000010));
}

TEST_F(BlockIo, mark_that_is_set_writes_nothing) {
  ASSERT_TRUE(MarkVolumeDirty(volume_));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4");
  EXPECT_TRUE(MarkVolumeDirty(volume_));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4");
}

TEST_F(BlockIo, mark_that_cannot_be_written_fails_the_volume_whatever_the_code) {
  const struct {
    Call call;
    uint32_t host, code;
  } failures[] = {{Call::kSetFilePointer, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, coredll::kHostDiskFull, ORB_ERROR_DISK_FULL}};
  for (const auto& failure : failures) {
    FailNthCall(failure.call, 1, failure.host);
    EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(volume_->failed, 1u);
    EXPECT_EQ(volume_->header.stateFlags, 1u);
    EXPECT_NE(FileBytes(u"VOL", 2064, 1024), bytes_);
    volume_->failed = 0;
    volume_->header.stateFlags = 0;
  }
}

TEST_F(BlockIo, failed_metadata_write_fails_the_volume) {  // B3
  const struct {
    Call call;
    uint32_t n, host, code;
  } failures[] = {{Call::kSetFilePointer, 2, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, 2, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, 2, coredll::kHostNotEnoughMemory, ORB_ERROR_OUT_OF_MEMORY},
                  {Call::kWriteFile, 2, 9999, ORB_ERROR_WRITE}};
  for (const auto& failure : failures) {
    FailNthCall(failure.call, failure.n, failure.host);
    EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(volume_->failed, 1u);
    EXPECT_TRUE(IsMarked());
    volume_->failed = 0;
    ASSERT_TRUE(OrbCommitVolume(volume_));
  }
}

TEST_F(BlockIo, short_metadata_write_fails_the_volume) {
  testhost::ShortenNthWrite(2, 1000);
  EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  EXPECT_EQ(volume_->failed, 1u);
}

TEST_F(BlockIo, metadata_write_that_meets_a_full_disk_leaves_the_volume_usable) {  // B3, Q21
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->failed, 0u);
  EXPECT_TRUE(OrbCommitVolume(volume_));
  EXPECT_FALSE(IsMarked());
  EXPECT_TRUE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
}

TEST_F(BlockIo, failed_volume_refuses_every_write_without_a_call) {  // B3, V5
  FailVolume();
  const std::function<bool()> writes[] = {
      [&] { return WriteVolumeBytes(volume_, bytes_.data(), 0, 4, kDataWrite); },
      [&] { return WriteVolumeBytes(volume_, bytes_.data(), 0, 4, kMetadataWrite); },
      [&] { return WriteBlock(bytes_.data(), volume_, 2, kDataWrite); },
      [&] { return WriteBlock(bytes_.data(), volume_, 2, kNodeWrite); },
      [&] { return WriteBlockBytes(bytes_.data(), volume_, 2, kDataWrite, 0, 4); },
      [&] { return StoreVolumeHeader(volume_); },
      [&] { return StoreNodeBlockTable(volume_); },
      [&] { return StoreNodeBitmap(volume_); },
      [&] { return OrbCommitVolume(volume_); },
  };
  for (const auto& write : writes) {
    ClearError();
    EXPECT_FALSE(write());
    EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  }
  EXPECT_EQ(testhost::CallCount(), 0u);
  EXPECT_EQ(volume_->failed, 1u);
}

TEST_F(BlockIo, data_write_after_a_failed_metadata_write_is_refused_while_reads_work) {
  FailNthCall(Call::kWriteFile, 2, coredll::kHostNotReady);
  ASSERT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kMetadataWrite));
  EXPECT_FALSE(WriteBlock(bytes_.data(), volume_, 2, kDataWrite));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  ClearError();
  EXPECT_TRUE(ReadBlock(bytes_.data(), volume_, 2));
  EXPECT_EQ(GetError(), 0u);
}

// ---- Commit ---------------------------------------------------------------------------------------------------------

TEST_F(BlockIo, commit_clears_the_mark) {  // B2
  ASSERT_TRUE(MarkVolumeDirty(volume_));
  testhost::ClearTrace();
  EXPECT_TRUE(OrbCommitVolume(volume_));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4");
  EXPECT_FALSE(IsMarked());
  EXPECT_EQ(volume_->header.stateFlags, 0u);
}

TEST_F(BlockIo, commit_of_a_clean_volume_writes_nothing) {
  EXPECT_TRUE(OrbCommitVolume(volume_));
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockIo, commit_that_cannot_be_written_fails_the_volume_whatever_the_code) {
  const struct {
    Call call;
    uint32_t host, code;
  } failures[] = {{Call::kSetFilePointer, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, coredll::kHostNotReady, ORB_ERROR_NOT_READY},
                  {Call::kWriteFile, coredll::kHostDiskFull, ORB_ERROR_DISK_FULL}};
  for (const auto& failure : failures) {
    ASSERT_TRUE(MarkVolumeDirty(volume_));
    FailNthCall(failure.call, 1, failure.host);
    EXPECT_FALSE(OrbCommitVolume(volume_));
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(volume_->failed, 1u);
    EXPECT_EQ(volume_->header.stateFlags, 0u);
    EXPECT_TRUE(IsMarked());
    volume_->failed = 0;
  }
}

// ---- The three fixed tables -----------------------------------------------------------------------------------------

TEST_F(BlockIo, header_is_written_whole_at_the_start) {
  ASSERT_TRUE(MarkVolumeDirty(volume_));
  testhost::ClearTrace();
  volume_->header.freeChainHead = 77;
  EXPECT_TRUE(StoreVolumeHeader(volume_));
  EXPECT_EQ(TraceText(), "seek 0 / write 0 128");
  EXPECT_EQ(0, memcmp(FileBytes(u"VOL", 0, 128).data(), &volume_->header, 128));
}

TEST_F(BlockIo, header_as_the_first_metadata_write_takes_the_mark_off_the_disk_again) {  // B1, Q22
  EXPECT_TRUE(StoreVolumeHeader(volume_));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 0 / write 0 128");
  EXPECT_FALSE(IsMarked());
  EXPECT_EQ(volume_->header.stateFlags, 1u);
}

TEST_F(BlockIo, header_as_a_later_metadata_write_keeps_the_mark_on_the_disk) {
  ASSERT_TRUE(MarkVolumeDirty(volume_));
  EXPECT_TRUE(StoreVolumeHeader(volume_));
  EXPECT_TRUE(IsMarked());
}

TEST_F(BlockIo, node_block_table_is_written_whole_at_its_place) {
  volume_->nodeTable[223] = 0x01020304;
  EXPECT_TRUE(StoreNodeBlockTable(volume_));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 128 / write 128 896");
  EXPECT_EQ(0, memcmp(FileBytes(u"VOL", 128, 896).data(), volume_->nodeTable, 896));
}

TEST_F(BlockIo, bitmap_is_written_whole_at_its_place_though_one_bit_changed) {
  volume_->bitmap[15] = 0xFE;
  EXPECT_TRUE(StoreNodeBitmap(volume_));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 1024 / write 1024 16");
  EXPECT_EQ(FileBytes(u"VOL", 1039, 1), (Bytes{0xFE}));
}

TEST_F(BlockIo, header_and_table_are_written_from_one_copy_and_the_bitmap_from_none) {
  const uint32_t before = testhost::AllocationCalls();
  StoreVolumeHeader(volume_);
  EXPECT_EQ(testhost::AllocationCalls() - before, 1u);
  StoreNodeBlockTable(volume_);
  EXPECT_EQ(testhost::AllocationCalls() - before, 2u);
  StoreNodeBitmap(volume_);
  EXPECT_EQ(testhost::AllocationCalls() - before, 2u);
}

TEST_F(BlockIo, header_or_table_without_memory_for_the_copy_is_not_written) {
  FailNthAllocation(1);
  EXPECT_FALSE(StoreVolumeHeader(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  ClearError();
  FailNthAllocation(1);
  EXPECT_FALSE(StoreNodeBlockTable(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(testhost::CallCount(), 0u);
  EXPECT_EQ(volume_->failed, 0u);
}

TEST_F(BlockIo, fixed_table_that_cannot_be_written_fails_the_volume_and_frees_its_copy) {
  const size_t held = testhost::AllocationsHeld();
  const std::function<bool()> stores[] = {[&] { return StoreVolumeHeader(volume_); },
                                          [&] { return StoreNodeBlockTable(volume_); },
                                          [&] { return StoreNodeBitmap(volume_); }};
  for (const auto& store : stores) {
    volume_->failed = 0;
    volume_->header.stateFlags = 0;
    FailNthCall(Call::kWriteFile, 2, coredll::kHostWriteProtected);
    EXPECT_FALSE(store());
    EXPECT_EQ(GetError(), ORB_ERROR_WRITE_PROTECTED);
    EXPECT_EQ(volume_->failed, 1u);
    EXPECT_EQ(testhost::AllocationsHeld(), held);
  }
}

TEST_F(BlockIo, reads_and_writes_take_no_memory) {
  const uint32_t before = testhost::AllocationCalls();
  ReadBlock(bytes_.data(), volume_, 1);
  ReadBlockBytes(bytes_.data(), volume_, 1, 0, 4);
  WriteBlock(bytes_.data(), volume_, 3, kMetadataWrite);
  WriteBlockBytes(bytes_.data(), volume_, 3, kDataWrite, 0, 4);
  OrbCommitVolume(volume_);
  EXPECT_EQ(testhost::AllocationCalls(), before);
}

}  // namespace
}  // namespace orba
