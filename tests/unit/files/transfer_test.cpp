#include "files/transfer.h"

#include <string.h>

#include <algorithm>

#include "files/open_file.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostAccessDenied;
using coredll::kHostDiskFull;
using coredll::kHostNotReady;
using testhost::FailNthCall;

// Blocks of 1024 bytes. File F is node 2; its blocks are 3, 4, 5 ... as it is made in one go.
class Transfer : public TreeTest {
 protected:
  // Makes F and opens it for reading and writing.
  void OpenNew(const Bytes& contents) {
    MakeFile("F", contents);
    file_ = Open("F");
  }

  OrbNode* node() const { return g_OpenFileTable[file_ & 0xFFFF].node; }
  uint32_t position() const { return g_OpenFileTable[file_ & 0xFFFF].position; }
  uint32_t size() const { return node()->record.size; }

  void Seek(uint32_t position) {
    ASSERT_EQ(OrbSetFilePointer(file_, static_cast<OrbI32>(position), ORB_SEEK_BEGIN), position);
  }

  std::string Write(const Bytes& bytes) {
    done_ = 77;
    return Outcome(OrbWriteFile(file_, bytes.data(), static_cast<OrbU32>(bytes.size()), &done_));
  }

  std::string Read(uint32_t count) {
    buffer_.assign(count, 0xCC);
    done_ = 77;
    return Outcome(OrbReadFile(file_, buffer_.data(), count, &done_));
  }

  std::string SetSize(uint32_t size) { return Outcome(OrbSetFileSize(file_, size)); }

  static Bytes Part(const Bytes& bytes, size_t from, size_t count) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                 bytes.begin() + static_cast<std::ptrdiff_t>(from + count));
  }

  // The sizes that node 2 was stored with, in order.
  static std::vector<uint32_t> SizesStored() {
    std::vector<uint32_t> sizes;
    for (const testhost::CallRecord& record : testhost::Writes()) {
      if (record.count == 64) sizes.push_back(testhost::ReadU32(record.data, 16));
    }
    return sizes;
  }

  // An operation on F, opened anew for each run.
  Operation OnOpenFile(const std::function<bool()>& run) {
    return {[this] { file_ = Open("F"); }, run, [this] { OrbCloseFile(file_); }};
  }

  OrbHandle file_ = ORB_INVALID_HANDLE;
  Bytes buffer_;
  OrbU32 done_ = 0;
};

// ---- Positioning ----------------------------------------------------------------------------------------------------

TEST_F(Transfer, seek_of_each_origin_gives_the_position_or_the_code) {  // Q5
  OpenNew(Pattern(100));
  constexpr uint32_t kSeek = ORB_ERROR_SEEK;
  constexpr uint32_t kBad = ORB_ERROR_INVALID_ARGUMENT;
  const struct {
    uint32_t before;
    int32_t distance;
    uint32_t origin;
    uint32_t result;  // the new position, or the code
  } rows[] = {
      {7, 0, 0, 0},
      {7, 100, 0, 100},
      {7, 101, 0, kSeek},
      {7, -1, 0, kSeek},
      {7, INT32_MAX, 0, kSeek},
      {7, INT32_MIN, 0, kSeek},
      {7, 0, 1, 7},
      {7, -7, 1, 0},
      {7, -8, 1, kSeek},
      {7, 93, 1, 100},
      {7, 94, 1, kSeek},
      {7, INT32_MAX, 1, kSeek},
      {7, INT32_MIN, 1, kSeek},
      {100, 1, 1, kSeek},
      {7, 0, 2, 100},
      {7, -100, 2, 0},
      {7, -101, 2, kSeek},
      {7, 1, 2, kSeek},
      {7, INT32_MIN, 2, kSeek},
      {7, 0, 3, kBad},
      {7, 1000, 3, kBad},
      {7, 0, 0xFFFFFFFF, kBad},
  };
  for (const auto& row : rows) {
    Seek(row.before);
    const uint32_t result = OrbSetFilePointer(file_, row.distance, row.origin);
    if (row.result == kSeek || row.result == kBad) {
      EXPECT_EQ(result, 0xFFFFFFFFu) << row.distance << " from " << row.origin;
      EXPECT_EQ(GetError(), row.result) << row.distance << " from " << row.origin;
      EXPECT_EQ(position(), row.before);
    } else {
      EXPECT_EQ(result, row.result) << row.distance << " from " << row.origin;
      EXPECT_EQ(GetError(), 0u);
      EXPECT_EQ(position(), row.result);
    }
  }
  EXPECT_EQ(Calls(), "");
}

TEST_F(Transfer, seek_in_an_empty_file_stays_at_0) {
  OpenNew({});
  for (const uint32_t origin : {0u, 1u, 2u}) {
    EXPECT_EQ(OrbSetFilePointer(file_, 0, origin), 0u);
    EXPECT_EQ(OrbSetFilePointer(file_, 1, origin), 0xFFFFFFFFu);
    EXPECT_EQ(OrbSetFilePointer(file_, -1, origin), 0xFFFFFFFFu);
  }
}

TEST_F(Transfer, seek_spans_the_largest_size) {
  OpenNew({});
  node()->record.size = 0x7FFFFFFF;
  EXPECT_EQ(OrbSetFilePointer(file_, 0x7FFFFFFF, 0), 0x7FFFFFFFu);
  EXPECT_EQ(OrbSetFilePointer(file_, -0x7FFFFFFF, 1), 0u);
  EXPECT_EQ(OrbSetFilePointer(file_, -0x7FFFFFFF, 2), 0u);
  EXPECT_EQ(OrbSetFilePointer(file_, 0x7FFFFFFF, 1), 0x7FFFFFFFu);
  node()->record.size = 0;
}

TEST_F(Transfer, seek_to_every_position_reads_from_there) {
  const Bytes bytes = Pattern(2100);
  OpenNew(bytes);
  for (const uint32_t at : {0u, 1u, 1023u, 1024u, 1025u, 2047u, 2048u, 2099u}) {
    Seek(at);
    ASSERT_EQ(Read(1), "");
    EXPECT_EQ(buffer_[0], bytes[at]) << at;
  }
}

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(Transfer, read_goes_block_by_block_straight_into_the_buffer) {
  const Bytes bytes = Pattern(3000);
  OpenNew(bytes);
  const uint32_t allocations = testhost::AllocationCalls();
  EXPECT_EQ(Read(3000), "");
  EXPECT_EQ(Calls(), "read block 3 / read block 4 / read block 5+0:952");
  EXPECT_EQ(done_, 3000u);
  EXPECT_EQ(buffer_, bytes);
  EXPECT_EQ(position(), 3000u);
  EXPECT_EQ(testhost::AllocationCalls(), allocations);
}

TEST_F(Transfer, read_from_inside_a_block_begins_with_its_rest) {
  const Bytes bytes = Pattern(3000);
  OpenNew(bytes);
  Seek(10);
  EXPECT_EQ(Read(2500), "");
  EXPECT_EQ(Calls(), "read block 3+10:1014 / read block 4 / read block 5+0:462");
  EXPECT_EQ(buffer_, Part(bytes, 10, 2500));
  EXPECT_EQ(position(), 2510u);
}

TEST_F(Transfer, read_within_one_block_is_one_read) {
  const Bytes bytes = Pattern(3000);
  OpenNew(bytes);
  Seek(1030);
  EXPECT_EQ(Read(5), "");
  EXPECT_EQ(Calls(), "read block 4+6:5");
  EXPECT_EQ(buffer_, Part(bytes, 1030, 5));
}

TEST_F(Transfer, read_up_to_a_block_border_stops_there) {
  OpenNew(Pattern(3000));
  Seek(10);
  EXPECT_EQ(Read(1014), "");
  EXPECT_EQ(Calls(), "read block 3+10:1014");
  EXPECT_EQ(position(), 1024u);
}

TEST_F(Transfer, read_past_the_end_returns_what_is_left) {
  const Bytes bytes = Pattern(100);
  OpenNew(bytes);
  Seek(90);
  EXPECT_EQ(Read(50), "");
  EXPECT_EQ(done_, 10u);
  EXPECT_EQ(Calls(), "read block 3+90:10");
  EXPECT_EQ(Part(buffer_, 0, 10), Part(bytes, 90, 10));
  EXPECT_EQ(buffer_[10], 0xCC);
  EXPECT_EQ(Read(50), "");
  EXPECT_EQ(done_, 0u);
}

TEST_F(Transfer, read_at_the_end_or_of_nothing_is_a_success_of_0_bytes) {
  OpenNew(Pattern(1024));
  EXPECT_EQ(Read(0), "");
  EXPECT_EQ(done_, 0u);
  Seek(1024);
  EXPECT_EQ(Read(10), "");
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(Calls(), "");
}

TEST_F(Transfer, read_through_the_map_reads_a_slot_before_each_block) {
  OpenNew(Pattern(8 * 1024));  // blocks 3 to 8, 9 with map block 10, 11
  Seek(5 * 1024);
  EXPECT_EQ(Read(3 * 1024), "");
  EXPECT_EQ(Calls(), "read block 8 / read block 10+0:4 / read block 9 / read block 10+4:4 / read block 11");
}

TEST_F(Transfer, read_changes_neither_node_nor_container) {
  OpenNew(Pattern(3000));
  const OrbNodeRecord before = node()->record;
  const Bytes image = Image();
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  ASSERT_EQ(Read(3000), "");
  EXPECT_EQ(memcmp(&node()->record, &before, sizeof before), 0);
  EXPECT_EQ(Image(), image);
}

TEST_F(Transfer, read_without_the_mode_is_denied_whatever_the_count) {
  MakeFile("F", Pattern(10));
  file_ = Open("F", ORB_OPEN_WRITE);
  EXPECT_EQ(Read(1), "ACCESS_DENIED");
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(Read(0), "ACCESS_DENIED");
}

TEST_F(Transfer, read_that_fails_keeps_what_it_had) {
  const Bytes bytes = Pattern(3000);
  OpenNew(bytes);
  Seek(10);
  FailNthCall(Call::kReadFile, 3, kHostNotReady);
  EXPECT_EQ(Read(2990), "NOT_READY");
  EXPECT_EQ(done_, 2038u);
  EXPECT_EQ(position(), 2048u);
  EXPECT_EQ(Part(buffer_, 0, 2038), Part(bytes, 10, 2038));
  EXPECT_EQ(Read(952), "");
  EXPECT_EQ(buffer_, Part(bytes, 2048, 952));
}

TEST_F(Transfer, read_that_falls_short_is_damage) {
  OpenNew(Pattern(3000));
  testhost::ShortenNthRead(2, 1023);
  EXPECT_EQ(Read(3000), "DAMAGED_VOLUME");
  EXPECT_EQ(done_, 1024u);
  EXPECT_EQ(position(), 1024u);
}

TEST_F(Transfer, read_of_a_block_that_the_map_does_not_name_is_damage) {
  OpenNew(Pattern(3000));
  node()->record.direct[1] = 0;
  EXPECT_EQ(Read(3000), "DAMAGED_RECORD");
  EXPECT_EQ(done_, 1024u);
  EXPECT_EQ(position(), 1024u);
}

TEST_F(Transfer, read_on_a_failed_volume_goes_on) {
  OpenNew(Pattern(3000));
  volume_->failed = 1;
  EXPECT_EQ(Read(3000), "");
  EXPECT_EQ(buffer_, Pattern(3000));
}

// ---- Writing --------------------------------------------------------------------------------------------------------

TEST_F(Transfer, write_inside_the_file_is_data_alone) {
  OpenNew(Pattern(3000));
  const OrbNodeRecord before = Stored(2);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  Seek(10);
  EXPECT_EQ(Write(Pattern(2500, 2)), "");
  EXPECT_EQ(Calls(), "write block 3+10:1014 / write block 4 / write block 5+0:462");
  EXPECT_EQ(done_, 2500u);
  EXPECT_EQ(position(), 2510u);
  const OrbNodeRecord after = Stored(2);
  EXPECT_EQ(memcmp(&after, &before, sizeof after), 0);
  Seek(0);
  ASSERT_EQ(Read(3000), "");
  Bytes expected = Pattern(3000);
  const Bytes written = Pattern(2500, 2);
  std::copy(written.begin(), written.end(), expected.begin() + 10);
  EXPECT_EQ(buffer_, expected);
}

TEST_F(Transfer, write_to_an_empty_file_writes_data_then_mark_and_node) {
  OpenNew({});
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  EXPECT_EQ(Write(Pattern(10)), "");
  EXPECT_EQ(Calls(), "size / write block 3 / mark / write node 2 / clear");
  Bytes expected = Pattern(10);
  expected.resize(1024);  // a partial new block is zero behind the data
  EXPECT_EQ(testhost::BlockOf(Image(), 3), expected);
  EXPECT_EQ(Stored(2).size, 10u);
  EXPECT_EQ(Stored(2).direct[0], 3u);
  EXPECT_EQ(Stored(2).time.year, 2010u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, write_over_the_end_of_the_last_block_stores_the_node_for_both_pieces) {
  OpenNew(Pattern(1020));
  Seek(1020);
  EXPECT_EQ(Write(Pattern(10, 2)), "");
  EXPECT_EQ(Calls(), "write block 3+1020:4 / mark / write node 2 / size / write block 4 / write node 2 / clear");
  EXPECT_EQ(SizesStored(), (std::vector<uint32_t>{1024, 1030}));
  EXPECT_EQ(size(), 1030u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, write_of_whole_blocks_stores_the_node_after_each) {
  OpenNew({});
  EXPECT_EQ(Write(Pattern(3 * 1024)), "");
  EXPECT_EQ(Calls(),
            "size / write block 3 / mark / write node 2 / size / write block 4 / write node 2 / size / write block 5 / "
            "write node 2 / clear");
  EXPECT_EQ(SizesStored(), (std::vector<uint32_t>{1024, 2048, 3072}));
}

TEST_F(Transfer, write_takes_blocks_of_the_free_chain_first) {
  MakeFile("X", Pattern(2000));  // blocks 3 and 4
  MakeFile("F");
  Delete("X");  // 3 is the record, 4 its entry
  file_ = Open("F");
  EXPECT_EQ(Write(Pattern(3 * 1024)), "");
  EXPECT_EQ(
      Calls(),
      "mark / write block 3 / write block 4 / write node 3 / write header / write block 3 / write node 3 / size / "
      "write block 5 / write node 3 / clear");
}

TEST_F(Transfer, write_into_the_seventh_block_makes_the_map_block_after_the_data) {
  OpenNew(Pattern(6 * 1024));
  Seek(6 * 1024);
  EXPECT_EQ(Write(Pattern(1024)), "");
  EXPECT_EQ(Calls(), "size / write block 9 / size / mark / write block 10 / write node 2 / clear");
  EXPECT_EQ(Stored(2).indirect, 10u);
  Bytes expected(1024);
  expected[0] = 9;
  EXPECT_EQ(testhost::BlockOf(Image(), 10), expected);
  testhost::ClearTrace();
  EXPECT_EQ(Write(Pattern(1)), "");
  EXPECT_EQ(Calls(), "size / write block 11 / mark / write block 10+4:4 / write node 2 / clear");
}

TEST_F(Transfer, write_into_the_first_doubly_mapped_block_makes_both_map_blocks) {
  OpenNew(Pattern((6 + 256) * 1024));
  const uint32_t last = Blocks();
  Seek((6 + 256) * 1024);
  EXPECT_EQ(Write(Pattern(1024)), "");
  EXPECT_EQ(Writes(), "block " + std::to_string(last + 1) + " / mark / block " + std::to_string(last + 2) +
                          " / block " + std::to_string(last + 3) + " / node 2 / clear");
  EXPECT_EQ(Stored(2).doubleIndirect, last + 3);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, write_across_every_border_reads_back) {
  OpenNew({});
  const Bytes bytes = Pattern((6 + 256 + 256 + 3) * 1024 + 5);
  size_t at = 0;
  for (const size_t piece : {1u, 1022u, 1u, 1u, 5000u, 1024u, 300000u}) {
    ASSERT_EQ(Write(Part(bytes, at, piece)), "");
    at += piece;
  }
  ASSERT_EQ(Write(Part(bytes, at, bytes.size() - at)), "");
  EXPECT_EQ(OrbCloseFile(file_), 1);
  Remount();
  EXPECT_EQ(Contents("F"), bytes);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, write_of_nothing_checks_handle_and_mode_alone) {
  OpenNew(Pattern(1024));  // one block long, and still not stamped
  EXPECT_EQ(Write({}), "");
  EXPECT_EQ(done_, 0u);
  volume_->failed = 1;
  OrbU32 done = 77;
  EXPECT_EQ(OrbWriteOpenFile(file_, nullptr, 0, &done), true);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Calls(), "");
  volume_->failed = 0;
  ASSERT_EQ(OrbCloseFile(file_), 1);
  file_ = Open("F", ORB_OPEN_READ);
  EXPECT_EQ(Write({}), "ACCESS_DENIED");
}

TEST_F(Transfer, write_without_the_mode_is_denied) {
  MakeFile("F");
  file_ = Open("F", ORB_OPEN_READ);
  EXPECT_EQ(Write(Pattern(1)), "ACCESS_DENIED");
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(Calls(), "");
}

TEST_F(Transfer, write_allocates_for_a_partial_new_block_alone) {
  OpenNew(Pattern(2048));
  uint32_t before = testhost::AllocationCalls();
  ASSERT_EQ(Write(Pattern(2000)), "");
  EXPECT_EQ(testhost::AllocationCalls(), before);
  Seek(2048);
  before = testhost::AllocationCalls();
  ASSERT_EQ(Write(Pattern(1024)), "");
  EXPECT_EQ(testhost::AllocationCalls(), before);
  ASSERT_EQ(Write(Pattern(1)), "");
  EXPECT_EQ(testhost::AllocationCalls(), before + 1);
}

// ---- A file of exactly one block ------------------------------------------------------------------------------------

TEST_F(Transfer, write_inside_a_file_of_one_block_stamps_and_stores_it) {  // Q6
  OpenNew(Pattern(1024));
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  EXPECT_EQ(Write(Pattern(10)), "");
  EXPECT_EQ(Calls(), "write block 3+0:10 / mark / write node 2 / clear");
  EXPECT_EQ(Stored(2).time.year, 2010u);
}

TEST_F(Transfer, write_that_makes_a_file_one_block_long_stores_it_twice) {
  OpenNew({});
  EXPECT_EQ(Write(Pattern(1024)), "");
  EXPECT_EQ(Calls(), "size / write block 3 / mark / write node 2 / write node 2 / clear");
}

TEST_F(Transfer, write_inside_files_of_other_sizes_stamps_nothing) {  // Q6
  for (const uint32_t size : {1u, 1023u, 1025u, 2048u}) {
    MakeFile("F", Pattern(size));
    file_ = Open("F");
    EXPECT_EQ(Write(Pattern(1)), "");
    EXPECT_EQ(Calls(), "write block 3+0:1") << size;
    ASSERT_EQ(OrbCloseFile(file_), 1);
    OrbDeleteFileA("F");
    Start(16, 1024);
  }
}

TEST_F(Transfer, write_stamps_a_file_of_the_volume_s_block_size_whatever_that_is) {
  for (const uint32_t blockSize : {2048u, 4096u, 8192u}) {
    Start(16, blockSize);
    OpenNew(Pattern(blockSize));
    EXPECT_EQ(Write(Pattern(1)), "");
    EXPECT_EQ(Calls(), "write block 3+0:1 / mark / write node 2 / clear");
    ASSERT_EQ(OrbCloseFile(file_), 1);
  }
}

TEST_F(Transfer, write_whose_extra_stamp_fails_counts_as_written) {
  OpenNew(Pattern(1024));
  FailNthCall(Call::kWriteFile, 3, kHostDiskFull);
  EXPECT_EQ(Write(Pattern(10, 2)), "DISK_FULL");
  EXPECT_EQ(done_, 10u);
  EXPECT_EQ(position(), 10u);
}

// ---- Writes that fail -----------------------------------------------------------------------------------------------

TEST_F(Transfer, write_whose_data_fails_keeps_what_it_had_and_the_volume) {
  OpenNew(Pattern(100));
  Seek(100);
  FailNthCall(Call::kWriteFile, 6, kHostAccessDenied);  // data, mark, node, data, node, data
  EXPECT_EQ(Write(Pattern(3000, 2)), "ACCESS_DENIED");
  EXPECT_EQ(
      Calls(),
      "write block 3+100:924 / mark / write node 2 / size / write block 4 / write node 2 / size / write block 5 !5 / "
      "clear");
  EXPECT_EQ(done_, 924u + 1024u);
  EXPECT_EQ(position(), 2048u);
  EXPECT_EQ(size(), 2048u);
  EXPECT_EQ(Stored(2).size, 2048u);
  EXPECT_EQ(volume_->failed, 0u);
  EXPECT_EQ(Findings(), "");
  EXPECT_EQ(Write(Pattern(10)), "");  // and goes on
}

TEST_F(Transfer, write_whose_node_fails_has_counted_the_piece) {
  OpenNew(Pattern(100));
  Seek(100);
  FailNthCall(Call::kWriteFile, 5, kHostDiskFull);  // data, mark, node, data, node
  EXPECT_EQ(Write(Pattern(3000, 2)), "DISK_FULL");
  EXPECT_EQ(done_, 924u + 1024u);
  EXPECT_EQ(position(), 2048u);
  EXPECT_EQ(size(), 2048u);
  EXPECT_EQ(Stored(2).size, 1024u);
  EXPECT_EQ(Findings(), "block-leaked");
  EXPECT_EQ(Write(Pattern(10)), "");  // the next node write brings it to disk
  EXPECT_EQ(Stored(2).size, 2058u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, write_on_a_failed_volume_fails) {
  OpenNew(Pattern(100));
  volume_->failed = 1;
  EXPECT_EQ(Write(Pattern(10)), "WRITE");
  EXPECT_EQ(done_, 0u);
  Seek(100);
  EXPECT_EQ(Write(Pattern(2000)), "WRITE");
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(Calls(), "");
}

TEST_F(Transfer, write_at_the_container_s_limit_writes_what_fits) {
  OpenNew(Pattern(1000));
  testhost::ResizeFile(u"VOL", 1040 + 1024u * ((0x80000000u - 1040) / 1024 - 1));  // one more block fits
  Seek(1000);
  testhost::ClearTrace();
  EXPECT_EQ(Write(Pattern(3000)), "VOLUME_FULL");
  EXPECT_EQ(done_, 24u + 1024u);
  EXPECT_EQ(size(), 2048u);
  EXPECT_EQ(Write(Pattern(1)), "VOLUME_FULL");
  EXPECT_EQ(done_, 0u);
}

TEST_F(Transfer, write_past_the_map_s_capacity_takes_no_block) {
  OpenNew({});
  constexpr uint32_t kCapacity = (6 + 256 + 256 * 256) * 1024;
  EXPECT_EQ(kCapacity, 67377152u);
  node()->record.size = kCapacity;
  Seek(kCapacity);
  EXPECT_EQ(Write(Pattern(1)), "VOLUME_FULL");
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(SetSize(kCapacity + 1), "VOLUME_FULL");
  EXPECT_EQ(Calls(), "");
  node()->record.size = 0;
  g_OpenFileTable[0].position = 0;
}

TEST_F(Transfer, write_with_any_write_meeting_a_full_disk_leaves_a_lost_block_at_most) {
  MakeFile("F", Pattern(6 * 1024 - 10));
  const Operation writing = OnOpenFile([this] {
    Seek(6 * 1024 - 10);
    testhost::ClearTrace();
    return Write(Pattern(20)).empty();
  });
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, writing),
            (Lines{
                "write block 8+1014:10: DISK_FULL",
                "mark: WRITE",
                "write node 2: DISK_FULL",
                "write block 9: DISK_FULL",
                "write block 10: DISK_FULL, block-leaked",
                "write node 2: DISK_FULL, block-leaked",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Transfer, write_with_any_write_failing_otherwise_leaves_a_lost_block_at_most) {
  MakeFile("F", Pattern(6 * 1024 - 10));
  const Operation writing = OnOpenFile([this] {
    Seek(6 * 1024 - 10);
    testhost::ClearTrace();
    return Write(Pattern(20)).empty();
  });
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, writing),
            (Lines{
                "write block 8+1014:10: ACCESS_DENIED",
                "mark: WRITE",
                "write node 2: WRITE, marked",
                "write block 9: ACCESS_DENIED",
                "write block 10: WRITE, marked block-leaked",
                "write node 2: WRITE, marked block-leaked",
                "clear: ACCESS_DENIED, marked",
            }));
  EXPECT_EQ(FailEach(Call::kGetFileSize, kHostAccessDenied, Repeat::kOnce, writing),
            (Lines{"size: ACCESS_DENIED", "size: ACCESS_DENIED, block-leaked"}));
}

TEST_F(Transfer, write_with_any_allocation_failing_leaves_a_lost_block_at_most) {
  MakeFile("F", Pattern(6 * 1024));
  const Operation writing = OnOpenFile([this] {
    Seek(6 * 1024);
    return Write(Pattern(20)).empty();
  });
  // A block taken at the container's end and not written does not exist; one that was written is lost.
  EXPECT_EQ(FailEachAllocation(writing), (Lines{"OUT_OF_MEMORY", "OUT_OF_MEMORY, block-leaked"}));
}

TEST_F(Transfer, write_stopped_after_any_write_leaves_a_lost_block_at_most) {
  OpenNew(Pattern(6 * 1024 - 10));
  Seek(6 * 1024 - 10);
  testhost::WriteJournal journal(u"VOL");
  ASSERT_EQ(Write(Pattern(20)), "");
  journal.Stop();
  Lines left;
  for (size_t k = 0; k <= journal.count(); ++k) left.push_back(FindingsIn(journal.StateAfter(k)));
  EXPECT_EQ(left, (Lines{"", "", "marked", "marked", "marked block-leaked", "marked block-leaked", "marked", ""}));
}

// ---- Growing --------------------------------------------------------------------------------------------------------

TEST_F(Transfer, grow_zeroes_the_last_block_s_rest_and_adds_zero_blocks) {
  OpenNew(Pattern(2048));
  ASSERT_EQ(SetSize(1500), "");
  testhost::ClearTrace();
  EXPECT_EQ(SetSize(5000), "");
  EXPECT_EQ(
      Calls(),
      "read block 4 / write block 4 / mark / write node 2 / size / write block 5 / write node 2 / size / write block "
      "6 / write node 2 / size / write block 7 / write node 2 / clear");
  EXPECT_EQ(SizesStored(), (std::vector<uint32_t>{2048, 3072, 4096, 5000}));
  Bytes expected = Pattern(1500);
  expected.resize(5000);
  ASSERT_EQ(Read(5000), "");
  EXPECT_EQ(buffer_, expected);
  EXPECT_EQ(testhost::BlockOf(Image(), 7), Bytes(1024));
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, grow_within_the_last_block_takes_no_block) {
  OpenNew(Pattern(100));
  EXPECT_EQ(SetSize(1000), "");
  EXPECT_EQ(Calls(), "read block 3 / write block 3 / mark / write node 2 / clear");
  EXPECT_EQ(SizesStored(), std::vector<uint32_t>{1000});
  EXPECT_EQ(SetSize(1024), "");
  EXPECT_EQ(Blocks(), 3u);
  EXPECT_EQ(SetSize(1025), "");
  EXPECT_EQ(Blocks(), 4u);
}

TEST_F(Transfer, grow_of_a_file_without_its_last_block_fails_and_changes_nothing) {
  OpenNew(Pattern(100));
  node()->record.direct[0] = 0;
  EXPECT_EQ(SetSize(1000), "DAMAGED_RECORD");
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(size(), 100u);
}

TEST_F(Transfer, grow_from_nothing_or_a_border_reads_nothing) {
  OpenNew({});
  EXPECT_EQ(SetSize(1024), "");
  EXPECT_EQ(Calls(), "size / write block 3 / mark / write node 2 / clear");
  testhost::ClearTrace();
  EXPECT_EQ(SetSize(1025), "");
  EXPECT_EQ(Calls(), "size / write block 4 / mark / write node 2 / clear");
}

TEST_F(Transfer, grow_keeps_the_position) {
  OpenNew(Pattern(100));
  Seek(50);
  ASSERT_EQ(SetSize(5000), "");
  EXPECT_EQ(position(), 50u);
}

TEST_F(Transfer, grow_takes_one_buffer) {
  OpenNew(Pattern(100));
  const uint32_t before = testhost::AllocationCalls();
  ASSERT_EQ(SetSize(5000), "");
  EXPECT_EQ(testhost::AllocationCalls(), before + 1);
}

TEST_F(Transfer, grow_with_any_write_meeting_a_full_disk_keeps_the_size_reached) {
  MakeFile("F", Pattern(500));
  const Operation growing = OnOpenFile([this] {
    testhost::ClearTrace();
    return SetSize(2000).empty();
  });
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, growing),
            (Lines{
                "write block 3: DISK_FULL",
                "mark: WRITE",
                "write node 2: DISK_FULL",
                "write block 4: DISK_FULL",
                "write node 2: DISK_FULL, block-leaked",
                "clear: DISK_FULL, marked",
            }));
  EXPECT_EQ(FailEachAllocation(growing), Lines{"OUT_OF_MEMORY"});
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, growing), Lines{"read block 3: NOT_READY"});
}

TEST_F(Transfer, grow_whose_first_node_write_fails_has_the_zeroed_block_in_memory_and_the_next_call_stores_it) {
  OpenNew(Pattern(500));
  FailNthCall(Call::kWriteFile, 3, kHostDiskFull);
  EXPECT_EQ(SetSize(2000), "DISK_FULL");
  EXPECT_EQ(Writes(), "block 3 / mark / node 2 !112 / clear");
  EXPECT_EQ(OrbGetFileSize(file_), 1024u);
  EXPECT_EQ(Stored(2).size, 500u);
  EXPECT_EQ(Findings(), "");
  EXPECT_EQ(SetSize(2000), "");
  EXPECT_EQ(OrbGetFileSize(file_), 2000u);
  EXPECT_EQ(Stored(2).size, 2000u);
  EXPECT_EQ(Findings(), "");
  EXPECT_EQ(OrbCloseFile(file_), 1);
  Bytes expected = Pattern(500);
  expected.resize(2000);
  EXPECT_EQ(Contents("F"), expected);
}

// The size is reached in memory alone: setting it again finds nothing to do, any other size stores it.
TEST_F(Transfer, grow_whose_last_node_write_fails_is_stored_by_the_next_call_with_another_size) {
  OpenNew(Pattern(500));
  FailNthCall(Call::kWriteFile, 5, kHostDiskFull);
  EXPECT_EQ(SetSize(2000), "DISK_FULL");
  EXPECT_EQ(Writes(), "block 3 / mark / node 2 / block 4 / node 2 !112 / clear");
  EXPECT_EQ(OrbGetFileSize(file_), 2000u);
  EXPECT_EQ(Stored(2).size, 1024u);
  EXPECT_EQ(Stored(2).direct[1], 0u);
  EXPECT_EQ(Findings(), "block-leaked");
  testhost::ClearTrace();
  EXPECT_EQ(SetSize(2000), "");
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(Stored(2).size, 1024u);
  EXPECT_EQ(SetSize(2001), "");
  EXPECT_EQ(Calls(), "read block 4 / write block 4 / mark / write node 2 / clear");
  EXPECT_EQ(Stored(2).size, 2001u);
  EXPECT_EQ(Stored(2).direct[1], 4u);
  EXPECT_EQ(Findings(), "");
}

// ---- Shrinking ------------------------------------------------------------------------------------------------------

TEST_F(Transfer, shrink_frees_each_block_after_the_node_is_stored_without_it) {
  OpenNew(Pattern(5000));  // blocks 3 to 7
  EXPECT_EQ(SetSize(1500), "");
  EXPECT_EQ(
      Calls(),
      "mark / write node 2 / size / write block 7 / write header / write node 2 / size / write block 7 / write node 2 "
      "/ size / write block 7 / write node 2 / clear");
  EXPECT_EQ(SizesStored(), (std::vector<uint32_t>{4096, 3072, 2048, 1500}));
  EXPECT_EQ(testhost::FreeChainOf(Image(), 7).heap, (std::vector<uint32_t>{5, 6}));
  EXPECT_EQ(Stored(2).direct[2], 0u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, shrink_within_the_last_block_stores_the_node_alone) {
  OpenNew(Pattern(1500));
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  EXPECT_EQ(SetSize(1025), "");
  EXPECT_EQ(Calls(), "mark / write node 2 / clear");
  EXPECT_EQ(Stored(2).time.year, 2010u);
}

TEST_F(Transfer, shrink_to_a_border_stores_no_size_twice) {
  OpenNew(Pattern(2048));
  EXPECT_EQ(SetSize(1024), "");
  EXPECT_EQ(Calls(), "mark / write node 2 / size / write block 4 / write header / clear");
  EXPECT_EQ(SizesStored(), std::vector<uint32_t>{1024});
}

TEST_F(Transfer, shrink_out_of_the_map_clears_the_slot_and_keeps_the_map_block) {
  OpenNew(Pattern(7 * 1024));  // 9 is the seventh block, 10 the map's
  EXPECT_EQ(SetSize(6 * 1024), "");
  EXPECT_EQ(
      Calls(),
      "read block 10+0:4 / mark / write block 10+0:4 / write node 2 / size / write block 9 / write header / clear");
  EXPECT_EQ(Stored(2).indirect, 10u);
  testhost::ClearTrace();
  EXPECT_EQ(SetSize(6 * 1024 + 1), "");
  EXPECT_EQ(Calls(), "mark / write header / write block 9 / write block 10+0:4 / write node 2 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Transfer, shrink_to_0_keeps_the_map_block_even_past_the_file_s_deletion) {
  OpenNew(Pattern(7 * 1024));
  EXPECT_EQ(SetSize(0), "");
  EXPECT_EQ(Stored(2).indirect, 10u);
  EXPECT_EQ(Stored(2).direct[0], 0u);
  ASSERT_EQ(OrbCloseFile(file_), 1);
  Delete("F");
  EXPECT_EQ(Findings(), "block-leaked");
}

TEST_F(Transfer, shrink_moves_a_position_past_the_new_end_to_it) {
  OpenNew(Pattern(3000));
  Seek(3000);
  ASSERT_EQ(SetSize(2000), "");
  EXPECT_EQ(position(), 2000u);
  Seek(10);
  ASSERT_EQ(SetSize(1000), "");
  EXPECT_EQ(position(), 10u);
}

TEST_F(Transfer, shrink_allocates_for_the_chain_alone) {
  OpenNew(Pattern(1500));
  const uint32_t before = testhost::AllocationCalls();
  ASSERT_EQ(SetSize(1100), "");
  EXPECT_EQ(testhost::AllocationCalls(), before);
}

TEST_F(Transfer, shrink_with_any_write_meeting_a_full_disk_loses_blocks_at_most) {
  MakeFile("F", Pattern(2500));
  const Operation shrinking = OnOpenFile([this] {
    testhost::ClearTrace();
    return SetSize(100).empty();
  });
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, shrinking),
            (Lines{
                "mark: WRITE",
                "write node 2: DISK_FULL",
                "write block 5: DISK_FULL, block-leaked",
                "write header: DISK_FULL, block-leaked",
                "write node 2: DISK_FULL",
                "write block 5: DISK_FULL, block-leaked",
                "write node 2: DISK_FULL",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Transfer, shrink_out_of_the_map_stopped_in_between_is_unfinished) {
  OpenNew(Pattern(7 * 1024));
  testhost::WriteJournal journal(u"VOL");
  ASSERT_EQ(SetSize(6 * 1024), "");
  journal.Stop();
  Lines left;
  for (size_t k = 0; k <= journal.count(); ++k) left.push_back(FindingsIn(journal.StateAfter(k)));
  EXPECT_EQ(left, (Lines{"", "marked", "marked shrink-interrupted block-leaked", "marked block-leaked",
                         "marked block-leaked", "marked", ""}));
}

// ---- Set size -------------------------------------------------------------------------------------------------------

TEST_F(Transfer, set_size_to_the_size_it_has_stores_nothing) {
  OpenNew(Pattern(1500));
  EXPECT_EQ(SetSize(1500), "");
  EXPECT_EQ(Calls(), "");
}

TEST_F(Transfer, set_size_decides_by_handle_then_size_then_mode) {
  MakeFile("F", Pattern(10));
  file_ = Open("F", ORB_OPEN_READ);
  EXPECT_EQ(Outcome(OrbSetFileSize(0x10001, 0x80000000)), "INVALID_HANDLE");
  EXPECT_EQ(SetSize(0x80000000), "INVALID_ARGUMENT");
  EXPECT_EQ(SetSize(0xFFFFFFFF), "INVALID_ARGUMENT");
  EXPECT_EQ(SetSize(0x7FFFFFFF), "ACCESS_DENIED");
  EXPECT_EQ(SetSize(10), "ACCESS_DENIED");
  EXPECT_EQ(Calls(), "");
}

TEST_F(Transfer, set_size_to_the_largest_fails_for_want_of_space) {
  OpenNew(Pattern(10));
  testhost::SetTracing(false);
  testhost::ResizeFile(u"VOL", 0x80000000u - 1040);  // one more block fits
  EXPECT_EQ(SetSize(0x7FFFFFFF), "VOLUME_FULL");
  EXPECT_EQ(size(), 2048u);
  testhost::SetTracing(true);
}

TEST_F(Transfer, set_size_on_a_failed_volume_fails) {
  OpenNew(Pattern(1500));
  volume_->failed = 1;
  EXPECT_EQ(SetSize(100), "WRITE");
  EXPECT_EQ(SetSize(9000), "WRITE");
  EXPECT_EQ(Writes(), "");
}

}  // namespace
}  // namespace orba
