// Reading, writing, positioning and resizing open files.
#include <algorithm>

#include "support.h"

namespace api {
namespace {

constexpr OrbU32 kReadWrite = ORB_OPEN_READ | ORB_OPEN_WRITE;

struct Geometry {
  OrbU32 blockSize;
  const char* container;
};

std::string GeometryName(const ::testing::TestParamInfo<Geometry>& info) {
  return std::to_string(info.param.blockSize) + (info.param.container == kMemory ? "InMemory" : "OnHost");
}

// One open file "F" on a volume of a given block size.
class TransferTest : public ApiTest, public ::testing::WithParamInterface<Geometry> {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    block_ = GetParam().blockSize;
    FormatAndMount(GetParam().container, 64, block_, "VOL");
    MakeFile("F");
    file_ = Open("F", kReadWrite);
  }

  void TearDown() override {
    Close(file_);
    ApiTest::TearDown();
  }

  OrbU32 Position() {
    const OrbU32 position = OrbSetFilePointer(file_, 0, ORB_SEEK_CURRENT);
    EXPECT_EQ(OrbGetLastError(), 0u);
    return position;
  }

  Outcome Seek(OrbI32 distance, OrbU32 origin) { return Ended(OrbSetFilePointer(file_, distance, origin)); }

  // The whole file, read in one go.
  Bytes All() { return ReadAt(file_, 0, OrbGetFileSize(file_)); }

  // Closes, unmounts, mounts and opens again; on the memory file, which does not survive that, only closes and opens.
  void Reopen() {
    Close(file_);
    if (GetParam().container != kMemory) {
      Unmount("VOL");
      Mount(GetParam().container, "VOL");
    }
    file_ = Open("F", kReadWrite);
  }

  OrbU32 block_ = 0;
  OrbHandle file_ = 0;
};

// ---- Writing and reading back ---------------------------------------------------------------------------------------

TEST_P(TransferTest, write_every_size_around_the_blocks_is_read_back) {
  OrbU32 seed = 1;
  for (const OrbU32 blocks : {0u, 1u, 2u, 5u, 6u, 7u}) {
    for (const OrbI32 off : {-1, 0, 1}) {
      if (blocks == 0 && off < 0) continue;
      const Bytes data = Pattern(++seed, blocks * block_ + static_cast<OrbU32>(off));
      EXPECT_EQ(Ended(OrbSetFileSize(file_, 0)), Succeeded());
      WriteAt(file_, 0, data);
      EXPECT_EQ(Ended(OrbGetFileSize(file_)), Succeeded(static_cast<OrbU32>(data.size())));
      EXPECT_EQ(All(), data) << data.size();
    }
  }
  Reopen();
  EXPECT_EQ(All(), Pattern(seed, 7 * block_ + 1));
}

TEST_P(TransferTest, write_in_pieces_is_the_same_as_at_once) {
  const Bytes data = Pattern(1, 9 * block_ + 100);
  for (const OrbU32 piece : {1u, 7u, 512u, block_ - 1, block_, block_ + 1, 3 * block_ + 5}) {
    EXPECT_EQ(Ended(OrbSetFileSize(file_, 0)), Succeeded());
    const OrbU32 total = piece == 1 ? block_ + 2 : static_cast<OrbU32>(data.size());
    for (OrbU32 position = 0; position < total;) {
      const OrbU32 count = std::min(piece, total - position);
      OrbU32 done = 0;
      ASSERT_EQ(Ended(OrbWriteFile(file_, data.data() + position, count, &done)), Succeeded());
      ASSERT_EQ(done, count);
      position += count;
      ASSERT_EQ(Position(), position);
    }
    EXPECT_EQ(All(), Bytes(data.begin(), data.begin() + total)) << piece;
  }
}

TEST_P(TransferTest, read_in_pieces_is_the_same_as_at_once) {
  const Bytes data = Pattern(1, 9 * block_ + 100);
  WriteAt(file_, 0, data);
  for (const OrbU32 piece : {3u, 512u, block_ - 1, block_, block_ + 1, 3 * block_ + 5}) {
    EXPECT_EQ(Seek(0, ORB_SEEK_BEGIN), Succeeded(0));
    Bytes read(data.size() + piece);
    OrbU32 position = 0;
    for (OrbU32 done = 1; done != 0; position += done) {
      ASSERT_EQ(Ended(OrbReadFile(file_, read.data() + position, piece, &done)), Succeeded());
    }
    read.resize(position);
    EXPECT_EQ(read, data) << piece;
  }
}

// The first map begins behind 6 blocks, the second behind as many more as a block holds numbers.
TEST_P(TransferTest, write_across_both_map_borders_is_read_back) {
  const OrbU32 words = block_ / 4;
  const OrbU32 blocks = 6 + (block_ == 1024 ? 2 : 1) * words + 20;
  const Bytes data = Pattern(5, blocks * block_ - 17);
  WriteAt(file_, 0, data);
  EXPECT_TRUE(All() == data);
  Reopen();
  EXPECT_TRUE(All() == data);
  for (const OrbU32 border : {6u, 6 + words, 6 + 2 * words}) {
    const OrbU32 position = border * block_;
    if (position + 100 > data.size()) continue;
    EXPECT_EQ(ReadAt(file_, position - 50, 100), Bytes(data.begin() + position - 50, data.begin() + position + 50))
        << border;
  }
}

TEST_P(TransferTest, write_and_read_any_positions_and_sizes_match_a_vector) {
  Random random(block_);
  Bytes model;
  const OrbU32 limit = 10 * block_;
  for (OrbU32 step = 0; step < 300; ++step) {
    const OrbU32 size = static_cast<OrbU32>(model.size());
    const OrbU32 position = random.Below(size + 1);
    const OrbU32 count = random.Below(4) == 0 ? random.Below(3 * block_) : random.Below(50);
    const OrbU32 action = random.Below(8);
    if (action == 0) {
      const OrbU32 newSize = random.Below(limit);
      ASSERT_EQ(Ended(OrbSetFileSize(file_, newSize)), Succeeded()) << step;
      model.resize(newSize);
    } else if (action < 4) {
      const Bytes data = Pattern(step, count);
      WriteAt(file_, position, data);
      model.resize(std::max<std::size_t>(size, position + count));
      std::copy(data.begin(), data.end(), model.begin() + position);
    } else {
      const OrbU32 available = std::min(count, size - position);
      const Bytes expected(model.begin() + position, model.begin() + position + available);
      ASSERT_TRUE(ReadAt(file_, position, available) == expected) << step << " at " << position;
    }
    ASSERT_EQ(OrbGetFileSize(file_), model.size()) << step;
  }
  EXPECT_TRUE(All() == model);
  Reopen();
  EXPECT_TRUE(All() == model);
}

TEST_P(TransferTest, write_inside_overwrites_and_keeps_the_size) {
  Bytes data = Pattern(1, 3 * block_);
  WriteAt(file_, 0, data);
  const Bytes more = Pattern(2, block_ + 10);
  WriteAt(file_, block_ - 5, more);
  std::copy(more.begin(), more.end(), data.begin() + block_ - 5);
  EXPECT_EQ(All(), data);
  EXPECT_EQ(Ended(OrbGetFileSize(file_)), Succeeded(3 * block_));
}

TEST_P(TransferTest, write_over_the_end_overwrites_and_extends) {
  Bytes data = Pattern(1, block_ - 4);
  WriteAt(file_, 0, data);
  const Bytes more = Pattern(2, 10);
  WriteAt(file_, block_ - 4, more);
  data.insert(data.end(), more.begin(), more.end());
  EXPECT_EQ(Ended(OrbGetFileSize(file_)), Succeeded(block_ + 6));
  EXPECT_EQ(All(), data);
}

TEST_P(TransferTest, write_of_nothing_changes_nothing) {
  WriteAt(file_, 0, Pattern(1, 10));
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file_, Pattern(2, 1).data(), 0, &done)), Succeeded());
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Position(), 10u);
  EXPECT_EQ(All(), Pattern(1, 10));
}

TEST_P(TransferTest, read_at_the_end_succeeds_with_nothing) {
  WriteAt(file_, 0, Pattern(1, 10));
  unsigned char byte = 0xA5;
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbReadFile(file_, &byte, 1, &done)), Succeeded());
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(byte, 0xA5);
}

TEST_P(TransferTest, read_more_than_there_is_gives_the_rest_and_touches_no_more) {
  WriteAt(file_, 0, Pattern(1, 2 * block_ + 10));
  EXPECT_EQ(Seek(5, ORB_SEEK_BEGIN), Succeeded(5));
  Bytes buffer(4 * block_, 0xA5);
  OrbU32 done = 0;
  EXPECT_EQ(Ended(OrbReadFile(file_, buffer.data(), 4 * block_, &done)), Succeeded());
  EXPECT_EQ(done, 2 * block_ + 5);
  EXPECT_EQ(Position(), 2 * block_ + 10);
  const Bytes data = Pattern(1, 2 * block_ + 10);
  EXPECT_TRUE(std::equal(data.begin() + 5, data.end(), buffer.begin()));
  EXPECT_EQ(Bytes(buffer.begin() + done, buffer.end()), Bytes(buffer.size() - done, 0xA5));
}

TEST_P(TransferTest, read_huge_count_is_cut_to_the_file) {
  WriteAt(file_, 0, Pattern(1, 10));
  EXPECT_EQ(Seek(0, ORB_SEEK_BEGIN), Succeeded(0));
  Bytes buffer(10);
  OrbU32 done = 0;
  EXPECT_EQ(Ended(OrbReadFile(file_, buffer.data(), 0xFFFFFFFF, &done)), Succeeded());
  EXPECT_EQ(done, 10u);
  EXPECT_EQ(buffer, Pattern(1, 10));
}

TEST_P(TransferTest, read_of_nothing_succeeds) {
  WriteAt(file_, 0, Pattern(1, 10));
  EXPECT_EQ(Seek(3, ORB_SEEK_BEGIN), Succeeded(3));
  OrbU32 done = 7;
  unsigned char byte = 0xA5;
  EXPECT_EQ(Ended(OrbReadFile(file_, &byte, 0, &done)), Succeeded());
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(byte, 0xA5);
  EXPECT_EQ(Position(), 3u);
}

// ---- Positions ------------------------------------------------------------------------------------------------------

TEST_P(TransferTest, seek_from_the_beginning_reaches_all_of_the_file) {
  WriteAt(file_, 0, Pattern(1, 1000));
  for (const OrbI32 position : {0, 1, 500, 999, 1000}) {
    EXPECT_EQ(Seek(position, ORB_SEEK_BEGIN), Succeeded(static_cast<OrbU32>(position)));
  }
}

TEST_P(TransferTest, seek_from_the_current_position_is_relative) {
  WriteAt(file_, 0, Pattern(1, 1000));
  EXPECT_EQ(Seek(-1000, ORB_SEEK_CURRENT), Succeeded(0));
  EXPECT_EQ(Seek(600, ORB_SEEK_CURRENT), Succeeded(600));
  EXPECT_EQ(Seek(-100, ORB_SEEK_CURRENT), Succeeded(500));
  EXPECT_EQ(Seek(0, ORB_SEEK_CURRENT), Succeeded(500));
  EXPECT_EQ(Seek(500, ORB_SEEK_CURRENT), Succeeded(1000));
}

TEST_P(TransferTest, seek_from_the_end_is_relative) {
  WriteAt(file_, 0, Pattern(1, 1000));
  EXPECT_EQ(Seek(0, ORB_SEEK_END), Succeeded(1000));
  EXPECT_EQ(Seek(-1, ORB_SEEK_END), Succeeded(999));
  EXPECT_EQ(Seek(-1000, ORB_SEEK_END), Succeeded(0));
}

TEST_P(TransferTest, seek_outside_the_file_fails_and_stays) {
  constexpr OrbI32 kMin = static_cast<OrbI32>(0x80000000u);
  constexpr OrbI32 kMax = 0x7FFFFFFF;
  WriteAt(file_, 0, Pattern(1, 1000));
  EXPECT_EQ(Seek(300, ORB_SEEK_BEGIN), Succeeded(300));
  const struct {
    OrbI32 distance;
    OrbU32 origin;
  } cases[] = {{-1, ORB_SEEK_BEGIN},     {1001, ORB_SEEK_BEGIN},  {kMin, ORB_SEEK_BEGIN},   {kMax, ORB_SEEK_BEGIN},
               {-301, ORB_SEEK_CURRENT}, {701, ORB_SEEK_CURRENT}, {kMin, ORB_SEEK_CURRENT}, {kMax, ORB_SEEK_CURRENT},
               {1, ORB_SEEK_END},        {-1001, ORB_SEEK_END},   {kMin, ORB_SEEK_END},     {kMax, ORB_SEEK_END}};
  for (const auto& each : cases) {
    EXPECT_EQ(Seek(each.distance, each.origin), Failed(ORB_ERROR_SEEK, ORB_INVALID_POSITION))
        << each.distance << " from " << each.origin;
    EXPECT_EQ(Position(), 300u);
  }
}

TEST_P(TransferTest, seek_unknown_origin_fails_invalid_argument) {
  WriteAt(file_, 0, Pattern(1, 10));
  for (const OrbU32 origin : {3u, 4u, 0x10000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Seek(0, origin), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_POSITION)) << origin;
  }
  EXPECT_EQ(Position(), 10u);
}

TEST_P(TransferTest, seek_empty_file_knows_0_alone) {
  for (const OrbU32 origin : {ORB_SEEK_BEGIN, ORB_SEEK_CURRENT, ORB_SEEK_END}) {
    EXPECT_EQ(Seek(0, origin), Succeeded(0));
    EXPECT_EQ(Seek(1, origin), Failed(ORB_ERROR_SEEK, ORB_INVALID_POSITION));
    EXPECT_EQ(Seek(-1, origin), Failed(ORB_ERROR_SEEK, ORB_INVALID_POSITION));
  }
}

// ---- Sizes ----------------------------------------------------------------------------------------------------------

TEST_P(TransferTest, set_size_above_the_largest_fails_invalid_argument) {
  WriteAt(file_, 0, Pattern(1, 10));
  for (const OrbU32 size : {0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Ended(OrbSetFileSize(file_, size)), Failed(ORB_ERROR_INVALID_ARGUMENT)) << size;
  }
  EXPECT_EQ(All(), Pattern(1, 10));
}

TEST_P(TransferTest, set_size_grown_adds_zeros) {
  for (const OrbU32 from : {0u, 1u, block_ - 1, block_, block_ + 1}) {
    for (const OrbU32 to : {block_ - 1, block_, block_ + 1, 3 * block_ + 7, 8 * block_}) {
      if (to < from) continue;
      EXPECT_EQ(Ended(OrbSetFileSize(file_, 0)), Succeeded());
      WriteAt(file_, 0, Bytes(block_ + 1, 0xA5));  // what grows again must not show this
      EXPECT_EQ(Ended(OrbSetFileSize(file_, from)), Succeeded());
      EXPECT_EQ(Ended(OrbSetFileSize(file_, to)), Succeeded());
      Bytes expected(to);
      std::fill(expected.begin(), expected.begin() + from, static_cast<unsigned char>(0xA5));
      EXPECT_EQ(All(), expected) << from << " to " << to;
    }
  }
}

TEST_P(TransferTest, set_size_grown_leaves_the_position) {
  WriteAt(file_, 0, Pattern(1, 100));
  EXPECT_EQ(Seek(50, ORB_SEEK_BEGIN), Succeeded(50));
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 5 * block_)), Succeeded());
  EXPECT_EQ(Position(), 50u);
}

TEST_P(TransferTest, set_size_shrunk_keeps_the_beginning) {
  const Bytes data = Pattern(1, 8 * block_ + 3);
  for (const OrbU32 to : {8 * block_, 7 * block_ + 1, 6 * block_, block_ + 1, block_, block_ - 1, 1u, 0u}) {
    EXPECT_EQ(Ended(OrbSetFileSize(file_, 0)), Succeeded());
    WriteAt(file_, 0, data);
    EXPECT_EQ(Ended(OrbSetFileSize(file_, to)), Succeeded());
    EXPECT_EQ(Ended(OrbGetFileSize(file_)), Succeeded(to));
    EXPECT_EQ(All(), Bytes(data.begin(), data.begin() + to)) << to;
  }
}

TEST_P(TransferTest, set_size_below_the_position_moves_it_to_the_end) {
  WriteAt(file_, 0, Pattern(1, 3000));
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 1000)), Succeeded());
  EXPECT_EQ(Position(), 1000u);
}

TEST_P(TransferTest, set_size_above_position_leaves_it) {
  WriteAt(file_, 0, Pattern(1, 3000));
  EXPECT_EQ(Seek(500, ORB_SEEK_BEGIN), Succeeded(500));
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 1000)), Succeeded());
  EXPECT_EQ(Position(), 500u);
}

TEST_P(TransferTest, set_size_the_same_changes_nothing) {
  WriteAt(file_, 0, Pattern(1, 3000));
  EXPECT_EQ(Seek(7, ORB_SEEK_BEGIN), Succeeded(7));
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 3000)), Succeeded());
  EXPECT_EQ(Position(), 7u);
  EXPECT_EQ(All(), Pattern(1, 3000));
}

// A file that shrinks to almost nothing and grows again goes through its maps in both directions.
TEST_P(TransferTest, set_size_down_and_up_again_keeps_what_is_left) {
  const Bytes data = Pattern(3, 280 * 1024);
  WriteAt(file_, 0, data);
  for (const OrbU32 size : {270u * 1024, 7 * block_, 6 * block_, block_ / 2, 0u}) {
    EXPECT_EQ(Ended(OrbSetFileSize(file_, size)), Succeeded());
    WriteAt(file_, size, Bytes(data.begin() + size, data.end()));
    EXPECT_TRUE(All() == data) << size;
  }
}

INSTANTIATE_TEST_SUITE_P(Volumes, TransferTest,
                         ::testing::Values(Geometry{1024, kFirst}, Geometry{2048, kFirst}, Geometry{4096, kFirst},
                                           Geometry{8192, kFirst}, Geometry{1024, kMemory}, Geometry{8192, kMemory}),
                         GeometryName);

// ---- The largest map ------------------------------------------------------------------------------------------------

TEST_F(ApiTest, set_size_beyond_the_map_fails_volume_full) {
  constexpr OrbU32 kCapacity = (6 + 256 + 256 * 256) * 1024;
  static_assert(kCapacity == 67377152, "the most that a file of small blocks holds");
  FormatAndMount(kMemory, 64, 1024, "MEM");
  MakeFile("F");
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(OrbSetFileSize(file, kCapacity + 1)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(kCapacity));
  const Bytes data = Pattern(1, 2000);
  WriteAt(file, kCapacity - 2000, data);
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file, data.data(), 1, &done)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(ReadAt(file, kCapacity - 2000, 2000), data);
  EXPECT_EQ(Ended(OrbSetFileSize(file, 5000)), Succeeded());
  Close(file);
  EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
}

// ---- Time stamps ----------------------------------------------------------------------------------------------------

class StampTest : public ApiTest {
 protected:
  // A file of so many bytes, with an old time stamp, opened.
  void MakeOldFile(OrbU32 size) {
    FormatAndMount(kFirst, 64, 1024, "VOL");
    MakeFile("F", Pattern(1, size));
    Unmount("VOL");
    MakeOld(kFirst, 2);
    Mount(kFirst, "VOL");
    before_ = Now();
    file_ = Open("F", kReadWrite);
  }

  void ExpectStamped() { EXPECT_LE(before_, Find("F").time); }
  void ExpectOld() { EXPECT_EQ(Find("F").time, kLongAgo); }

  void TearDown() override {
    Close(file_);
    ApiTest::TearDown();
  }

  OrbHandle file_ = 0;
  std::string before_;
};

TEST_F(StampTest, stamp_after_reading_stays) {
  MakeOldFile(3000);
  ReadAt(file_, 0, 3000);
  ExpectOld();
}

TEST_F(StampTest, stamp_after_overwriting_stays) {
  MakeOldFile(3000);
  WriteAt(file_, 0, Pattern(2, 3000));
  ExpectOld();
}

TEST_F(StampTest, stamp_after_overwriting_a_file_of_one_block_is_new) {
  MakeOldFile(1024);
  WriteAt(file_, 10, Pattern(2, 1));
  ExpectStamped();
}

TEST_F(StampTest, stamp_after_overwriting_a_file_of_almost_one_block_stays) {
  MakeOldFile(1023);
  WriteAt(file_, 0, Pattern(2, 1023));
  ExpectOld();
}

TEST_F(StampTest, stamp_after_writing_nothing_stays) {
  MakeOldFile(1024);
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file_, nullptr, 0, &done)), Succeeded());
  ExpectOld();
}

TEST_F(StampTest, stamp_after_growing_by_writing_is_new) {
  MakeOldFile(3000);
  WriteAt(file_, 3000, Pattern(2, 1));
  ExpectStamped();
}

TEST_F(StampTest, stamp_after_growing_is_new) {
  MakeOldFile(3000);
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 3001)), Succeeded());
  ExpectStamped();
}

TEST_F(StampTest, stamp_after_shrinking_is_new) {
  MakeOldFile(3000);
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 2999)), Succeeded());
  ExpectStamped();
}

TEST_F(StampTest, stamp_after_setting_the_same_size_stays) {
  MakeOldFile(3000);
  EXPECT_EQ(Ended(OrbSetFileSize(file_, 3000)), Succeeded());
  ExpectOld();
}

TEST_F(StampTest, stamp_after_opening_and_closing_stays) {
  MakeOldFile(3000);
  EXPECT_EQ(Ended(OrbFlushFileBuffers(file_)), Succeeded());
  Close(file_);
  file_ = Open("F");
  ExpectOld();
}

// ---- Bytes ----------------------------------------------------------------------------------------------------------

class TransferImageTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
    MakeFile("F");
  }

  void Resize(OrbU32 size) {
    const OrbHandle file = Open("F");
    EXPECT_EQ(Ended(OrbSetFileSize(file, size)), Succeeded());
    Close(file);
  }

  void Write(OrbU32 position, const Bytes& bytes) {
    const OrbHandle file = Open("F");
    WriteAt(file, position, bytes);
    Close(file);
  }
};

TEST_F(TransferImageTest, write_part_of_a_block_pads_it_with_zeros) {
  Write(0, Bytes(10, 0xA5));
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.NodeSize(2), 10u);
  EXPECT_EQ(image.Direct(2, 0), 3u);
  EXPECT_EQ(image.size(), 1024u + 64 + 3 * 1024);
  EXPECT_TRUE(image.All(image.Block(3), 10, 0xA5));
  EXPECT_TRUE(image.All(image.Block(3) + 10, 1014, 0));
}

TEST_F(TransferImageTest, write_seven_blocks_makes_a_map_of_the_seventh) {
  Write(0, Pattern(1, 7 * 1024));
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.Direct(2, 5), 8u);
  EXPECT_EQ(image.U32(image.Node(2) + 56), 10u);
  EXPECT_EQ(image.U32(image.Node(2) + 60), 0u);
  EXPECT_EQ(image.U32(image.Block(10)), 9u);
  EXPECT_TRUE(image.All(image.Block(10) + 4, 1020, 0));
}

TEST_F(TransferImageTest, shrink_below_the_map_keeps_the_map_for_later) {
  Write(0, Pattern(1, 7 * 1024));
  Resize(6 * 1024);
  {
    const Image image = Look(kFirst, "VOL");
    EXPECT_EQ(image.U32(image.Node(2) + 56), 10u);
    EXPECT_EQ(image.U32(image.Block(10)), 0u);
    EXPECT_EQ(image.U32(48), 9u);
    EXPECT_EQ(image.FreeBlocks(), 1u);
  }
  Resize(7 * 1024);
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.U32(image.Node(2) + 56), 10u);
  EXPECT_EQ(image.U32(image.Block(10)), 9u);
  EXPECT_EQ(image.FreeBlocks(), 0u);
  EXPECT_EQ(image.Blocks(), 10u);
}

// Shrunk to nothing first, the file looks empty to its deletion, and its map block stays behind.
TEST_F(TransferImageTest, delete_after_shrinking_to_0_leaves_the_map_taken) {
  Write(0, Pattern(1, 7 * 1024));
  Resize(0);
  EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.Blocks(), 10u);
  EXPECT_EQ(image.FreeBlocks(), 7u);
}

TEST_F(TransferImageTest, freed_blocks_are_taken_lowest_first) {
  Write(0, Pattern(1, 5 * 1024));  // blocks 3 to 7
  Resize(1024);
  Resize(3 * 1024);
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.Direct(2, 0), 3u);
  // Block 7, freed first, is the record of the others, which are taken from the lowest on.
  EXPECT_EQ(image.U32(48), 7u);
  EXPECT_EQ(image.Direct(2, 1), 4u);
  EXPECT_EQ(image.Direct(2, 2), 5u);
  EXPECT_EQ(image.FreeBlocks(), 2u);
}

TEST_F(TransferImageTest, grow_inside_a_block_zeros_the_rest_of_it) {
  Write(0, Bytes(1500, 0xA5));
  Resize(1400);
  Resize(5000);
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.NodeSize(2), 5000u);
  EXPECT_EQ(image.Blocks(), 7u);
  EXPECT_TRUE(image.All(image.Block(3), 1400, 0xA5));
  EXPECT_TRUE(image.All(image.Block(3) + 1400, 5 * 1024 - 1400, 0));
}

TEST_F(TransferImageTest, every_call_leaves_the_volume_clean) {
  Write(0, Pattern(1, 3000));
  EXPECT_EQ(Look(kFirst, "VOL").U32(52), 0u);
  Resize(100);
  EXPECT_EQ(Look(kFirst, "VOL").U32(52), 0u);
}

}  // namespace
}  // namespace api
