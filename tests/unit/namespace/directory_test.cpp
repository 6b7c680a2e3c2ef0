#include "namespace/directory.h"

#include <string.h>

#include <functional>
#include <random>

#include "base/name.h"
#include "namespace/current_directory.h"
#include "nodes/block_map.h"
#include "space/block_io.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;

// Blocks of 1024 bytes hold 32 entries. Node 2 is directory D, in block 3; node 3 is file F in the root, which is what
// all entries made by Fill name. directory_ is D, held by the test alone.
class Directory : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    MakeDirectory("D");
    MakeFile("F");
    directory_ = OrbNodeGet(volume_, 2);
    testhost::ClearTrace();
    ClearError();
  }
  void TearDown() override {
    OrbNodeRelease(directory_);
    TreeTest::TearDown();
  }

  // Appends entries N002, N003 ... until the directory has `count` of them, "." and ".." included.
  void Fill(uint32_t count) {
    while (directory_->record.size < 32 * count) {
      ASSERT_TRUE(OrbDirAddEntry(directory_, NameAt(directory_->record.size / 32).c_str(), 3, false));
    }
    Commit();
  }

  static std::string NameAt(uint32_t index) {
    const std::string digits = std::to_string(index);
    return "N" + std::string(3 - digits.size(), '0') + digits;
  }

  // Ends an update, so that the next one's calls are whole.
  void Commit() {
    ASSERT_TRUE(OrbCommitVolume(volume_));
    testhost::ClearTrace();
    ClearError();
  }

  // Lets go of D, breaks the container and holds D anew.
  void DamageDirectory(const std::function<void(Bytes*)>& change) {
    OrbNodeRelease(directory_);
    Damage(change);
    directory_ = OrbNodeGet(volume_, 2);
    testhost::ClearTrace();
    ClearError();
  }

  // Overwrites the node number of an entry of a block.
  static void SetEntryNode(Bytes* image, uint32_t block, uint32_t index, uint16_t number) {
    testhost::WriteU16(*image, testhost::BlockOffset(*image, block) + index * 32, number);
  }

  static void PutEntry(Bytes* image, uint32_t block, uint32_t index, const OrbDirEntry& entry) {
    testhost::WriteRecord(*image, testhost::BlockOffset(*image, block) + index * 32, entry);
  }

  std::string NameStored(uint32_t block, uint32_t index) { return testhost::NameOf(StoredEntry(block, index)); }

  // Removes an entry and lets its node go. Result: the outcome.
  std::string Remove(const char* name, bool requireEmpty = false) {
    OrbNode* const node = OrbDirRemoveEntry(directory_, name, requireEmpty);
    const std::string outcome = Outcome(node != nullptr);
    OrbNodeRelease(node);
    return outcome;
  }

  OrbNode* directory_ = nullptr;
};

// ---- Lookup ---------------------------------------------------------------------------------------------------------

TEST_F(Directory, lookup_finds_the_dots_like_any_other_name) {
  EXPECT_EQ(OrbDirLookup(directory_, "."), 2u);
  EXPECT_EQ(OrbDirLookup(directory_, ".."), 1u);
  EXPECT_EQ(OrbDirLookup(volume_->root, "."), 1u);
  EXPECT_EQ(OrbDirLookup(volume_->root, ".."), 1u);
}

TEST_F(Directory, lookup_passes_over_case) {
  EXPECT_EQ(OrbDirLookup(volume_->root, "d"), 2u);
  EXPECT_EQ(OrbDirLookup(volume_->root, "f"), 3u);
  EXPECT_EQ(Outcome(true), "");
}

// The block scanned as a whole, whatever it holds, finds what comparing its names one by one finds.
TEST_F(Directory, lookup_among_random_bytes_is_that_of_comparing_name_by_name) {
  const char kBytes[] = {'A', 'a', 'A', 'a',    'Z',    'z',    'B',    '@',   '[',
                         '`', '{', '1', '\x7F', '\x80', '\xC1', '\xE1', '\xFF'};
  std::minstd_rand random(1);
  const auto below = [&random](size_t limit) { return static_cast<size_t>(random()) % limit; };
  const auto fill = [&](char* name, size_t length) {
    for (size_t i = 0; i < length; ++i) name[i] = kBytes[below(sizeof kBytes)];
  };
  directory_->record.size = 1024;
  uint32_t found = 0;
  for (uint32_t round = 0; round < 500; ++round) {
    OrbDirEntry entries[32];
    for (uint16_t i = 0; i < 32; ++i) {
      entries[i].node = static_cast<uint16_t>(below(0x10000) | 1);
      fill(entries[i].name, sizeof entries[i].name);
      if (below(8) != 0) entries[i].name[below(below(2) != 0 ? 4 : 30)] = '\0';  // else it has no terminator
    }
    testhost::PatchFile(u"VOL", 1040 + 2 * 1024,
                        Bytes(reinterpret_cast<uint8_t*>(entries), reinterpret_cast<uint8_t*>(entries + 32)));
    for (uint32_t look = 0; look < 16; ++look) {
      char name[30] = {};
      fill(name, 1 + below(below(2) != 0 ? 3 : 29));
      if (below(2) != 0) memcpy(name, entries[below(32)].name, 29);  // often one that is there
      for (char& c : name) {
        if (below(4) == 0 && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))) c = static_cast<char>(c ^ 0x20);
      }
      uint16_t expected = 0;
      for (uint32_t i = 0; i < 32 && expected == 0; ++i) {
        if (OrbNameCompare(name, entries[i].name) == 0) expected = entries[i].node;
      }
      ASSERT_EQ(OrbDirLookup(directory_, name), expected) << "round " << round << ", look " << look;
      found += expected != 0 ? 1 : 0;
    }
  }
  EXPECT_GT(found, 1000u);
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Directory, lookup_of_an_absent_name_is_0_without_an_error) {
  EXPECT_EQ(OrbDirLookup(directory_, "X"), 0u);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Calls(), "read block 3");
}

TEST_F(Directory, lookup_reads_blocks_one_by_one_up_to_the_name) {
  Fill(70);
  EXPECT_EQ(OrbDirLookup(directory_, "N031"), 3u);
  EXPECT_EQ(Calls(), "read block 3");
  testhost::ClearTrace();
  EXPECT_EQ(OrbDirLookup(directory_, "N032"), 3u);
  EXPECT_EQ(Calls(), "read block 3 / read block 4");
  testhost::ClearTrace();
  EXPECT_EQ(OrbDirLookup(directory_, "X"), 0u);
  EXPECT_EQ(Calls(), "read block 3 / read block 4 / read block 5");
}

TEST_F(Directory, lookup_beyond_six_blocks_goes_through_the_map) {
  Fill(6 * 32 + 1);  // block 9 is the map's, or the seventh of the directory
  const uint32_t map = directory_->record.indirect;
  EXPECT_EQ(OrbDirLookup(directory_, "N192"), 3u);
  EXPECT_EQ(Reads(), "block 3 / block 4 / block 5 / block 6 / block 7 / block 8 / block " + std::to_string(map) +
                         "+0:4 / block 9");
}

TEST_F(Directory, lookup_takes_one_buffer_and_frees_it) {
  Fill(70);
  const uint32_t calls = testhost::AllocationCalls();
  const size_t held = testhost::AllocationsHeld();
  OrbDirLookup(directory_, "X");
  EXPECT_EQ(testhost::AllocationCalls(), calls + 1);
  EXPECT_EQ(testhost::AllocationsHeld(), held);
}

TEST_F(Directory, lookup_whose_read_fails_is_0_with_the_code) {
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_EQ(OrbDirLookup(directory_, "."), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
}

// ---- Where a scan ends ----------------------------------------------------------------------------------------------

TEST_F(Directory, scan_stops_at_number_0_even_where_entries_follow) {  // D2
  Fill(40);
  DamageDirectory([](Bytes* image) { SetEntryNode(image, 3, 5, 0); });
  EXPECT_EQ(OrbDirLookup(directory_, "N004"), 3u);
  testhost::ClearTrace();
  EXPECT_EQ(OrbDirLookup(directory_, "N006"), 0u);
  EXPECT_EQ(OrbDirLookup(directory_, "N035"), 0u);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Reads(), "block 3 / block 3");
}

TEST_F(Directory, scan_looks_at_the_last_block_to_its_end_whatever_the_size) {  // Q23
  Fill(5);
  DamageDirectory([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 16, 64); });
  EXPECT_EQ(OrbDirLookup(directory_, "N004"), 3u);
  EXPECT_EQ(OrbDirLookup(directory_, "N005"), 0u);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Reads(), "block 3 / block 3");
  char name[kNameSize];
  EXPECT_TRUE(OrbDirFindName(name, directory_, 3));
  EXPECT_STREQ(name, "N002");
  EXPECT_FALSE(OrbDirIsEmpty(directory_));
}

TEST_F(Directory, scan_does_not_go_into_a_block_that_the_size_does_not_reach) {  // D2
  Fill(33);
  DamageDirectory([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 16, 1024); });
  EXPECT_EQ(OrbDirLookup(directory_, "N032"), 0u);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Reads(), "block 3");
}

TEST_F(Directory, size_that_is_no_multiple_of_32_counts_in_blocks) {
  Fill(40);
  DamageDirectory([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 16, 1025); });
  EXPECT_EQ(OrbDirLookup(directory_, "N039"), 3u);
  EXPECT_EQ(Reads(), "block 3 / block 4");
}

TEST_F(Directory, size_of_0_or_above_what_a_volume_can_fill_is_damage) {
  char name[kNameSize] = "-";
  const std::function<bool()> operations[] = {
      [&] { return OrbDirLookup(directory_, ".") != 0; },
      [&] { return OrbDirFindName(name, directory_, 3); },
      [&] { return OrbDirAddEntry(directory_, "X", 3, false); },
      [&] { return OrbDirAddEntry(directory_, "X", 3, true); },
      [&] { return OrbDirRenameEntry(directory_, "X", "Y", true); },
      [&] { return OrbDirRemoveEntry(directory_, "X", false) != nullptr; },
      [&] { return OrbDirIsEmpty(directory_); },
      [&] { return OrbDirSetParent(directory_, 1); },
  };
  for (const uint32_t size : {0u, 2u * 65536 * 32 + 1, 0x80000000u, 0xFFFFFFFFu}) {
    directory_->record.size = size;
    EXPECT_FALSE(IsDirSizeSane(directory_));
    for (const auto& operation : operations) {
      ClearError();
      EXPECT_FALSE(operation()) << size;
      EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << size;
    }
  }
  EXPECT_EQ(Calls(), "");
  directory_->record.size = 2 * 65536 * 32;
  EXPECT_TRUE(IsDirSizeSane(directory_));
}

TEST_F(Directory, block_missing_from_the_map_is_damage) {
  Fill(40);
  DamageDirectory([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 36, 0); });
  EXPECT_EQ(OrbDirLookup(directory_, "N031"), 3u);
  EXPECT_EQ(OrbDirLookup(directory_, "N032"), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
}

TEST_F(Directory, block_beyond_the_container_cannot_be_read) {
  directory_->record.direct[0] = 1000;
  EXPECT_EQ(OrbDirLookup(directory_, "."), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
}

// ---- What is not a directory ----------------------------------------------------------------------------------------

TEST_F(Directory, operations_refuse_what_is_not_a_valid_directory) {
  OrbNode stranger = *volume_->root;
  NodeRef file(OrbNodeGet(volume_, 3));
  testhost::ClearTrace();
  for (OrbNode* node : {static_cast<OrbNode*>(nullptr), &stranger, file.node}) {
    char name[kNameSize] = "-";
    const std::function<bool()> operations[] = {
        [&] { return OrbDirLookup(node, ".") != 0; },
        [&] { return OrbDirOpenChild(node, ".") != nullptr; },
        [&] { return OrbDirOpenChild(node, "") != nullptr; },
        [&] { return OrbDirFindName(name, node, 2); },
        [&] { return OrbDirAddEntry(node, "X", 3, false); },
        [&] { return OrbDirRenameEntry(node, "X", "Y", true); },
        [&] { return OrbDirRemoveEntry(node, "X", false) != nullptr; },
        [&] { return OrbDirIsEmpty(node); },
        [&] { return OrbDirSetParent(node, 1); },
    };
    for (const auto& operation : operations) {
      ClearError();
      EXPECT_FALSE(operation());
      EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
    }
  }
  EXPECT_EQ(Calls(), "");
}

TEST_F(Directory, operations_without_memory_fail_and_change_nothing) {
  Fill(5);
  char name[kNameSize];
  const std::function<bool()> operations[] = {
      [&] { return OrbDirLookup(directory_, "N002") != 0; },
      [&] { return OrbDirFindName(name, directory_, 3); },
      [&] { return OrbDirAddEntry(directory_, "X", 3, false); },
      [&] { return OrbDirRenameEntry(directory_, "X", "N002", false); },
      [&] { return OrbDirRemoveEntry(directory_, "N002", false) != nullptr; },
      [&] { return OrbDirIsEmpty(directory_); },
      [&] { return OrbDirSetParent(directory_, 1); },
  };
  const Bytes before = Image();
  for (const auto& operation : operations) {
    ClearError();
    FailNthAllocation(1);
    EXPECT_FALSE(operation());
    EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  }
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(Calls(), "");
}

TEST_F(Directory, opening_a_child_without_memory_for_block_or_node_fails_and_holds_nothing) {
  for (uint32_t n = 1; n <= 2; ++n) {
    ClearError();
    testhost::ClearTrace();
    FailNthAllocation(n);
    EXPECT_EQ(OrbDirOpenChild(volume_->root, "F"), nullptr) << n;
    EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY) << n;
    EXPECT_EQ(Calls(), n == 1 ? "" : "read block 2");
    EXPECT_EQ(NodesListed(), 2u) << n;
  }
}

TEST_F(Directory, add_at_a_block_border_without_memory_for_the_new_block_changes_nothing) {
  Fill(32);
  const Bytes before = Image();
  FailNthAllocation(1);
  EXPECT_FALSE(OrbDirAddEntry(directory_, "X", 3, false));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(directory_->record.size, 1024u);
  EXPECT_EQ(directory_->record.direct[1], 0u);
  EXPECT_EQ(Image(), before);
  ClearError();
  EXPECT_TRUE(OrbDirAddEntry(directory_, "X", 3, false));
  EXPECT_EQ(directory_->record.direct[1], 4u);
  Commit();
}

// ---- Opening a child ------------------------------------------------------------------------------------------------

TEST_F(Directory, open_of_an_empty_name_is_the_directory_itself) {
  EXPECT_EQ(OrbDirOpenChild(directory_, ""), directory_);
  EXPECT_EQ(directory_->references, 2u);
  EXPECT_EQ(Calls(), "");
  OrbNodeRelease(directory_);
}

TEST_F(Directory, open_gives_the_node_with_a_reference) {
  OrbNode* const file = OrbDirOpenChild(volume_->root, "F");
  EXPECT_EQ(file->record.number, 3u);
  EXPECT_EQ(file->references, 1u);
  EXPECT_EQ(Calls(), "read block 2 / read node 3");
  OrbNodeRelease(file);
  OrbNode* const parent = OrbDirOpenChild(directory_, "..");
  EXPECT_EQ(parent, volume_->root);
  OrbNodeRelease(parent);
}

TEST_F(Directory, open_of_an_absent_name_is_null_without_an_error) {
  EXPECT_EQ(OrbDirOpenChild(directory_, "X"), nullptr);
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Directory, open_of_a_number_that_does_not_exist_is_damage) {
  DamageDirectory([](Bytes* image) { SetEntryNode(image, 2, 3, 500); });
  EXPECT_EQ(OrbDirOpenChild(volume_->root, "F"), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
}

// ---- The name of a node ---------------------------------------------------------------------------------------------

TEST_F(Directory, find_name_gives_the_first_name_of_a_number) {
  Fill(5);
  char name[kNameSize];
  EXPECT_TRUE(OrbDirFindName(name, directory_, 3));
  EXPECT_STREQ(name, "N002");
}

TEST_F(Directory, find_name_passes_over_the_dots) {
  char name[kNameSize] = "-";
  EXPECT_FALSE(OrbDirFindName(name, directory_, 2));
  EXPECT_STREQ(name, "");
  EXPECT_EQ(GetError(), 0u);
  EXPECT_FALSE(OrbDirFindName(name, directory_, 1));
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Directory, find_name_cuts_a_name_without_a_terminator_at_29_characters) {
  DamageDirectory([](Bytes* image) {
    const size_t entry = testhost::BlockOffset(*image, 2) + 3 * 32;  // F
    for (size_t i = 2; i < 32; ++i) (*image)[entry + i] = 'Q';
  });
  char name[kNameSize];
  EXPECT_TRUE(OrbDirFindName(name, volume_->root, 3));
  EXPECT_EQ(std::string(name), std::string(29, 'Q'));
  EXPECT_EQ(OrbDirLookup(volume_->root, std::string(29, 'Q').c_str()), 0u);  // it is not that name
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Directory, find_name_whose_read_fails_leaves_an_empty_name) {
  char name[kNameSize] = "-";
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(OrbDirFindName(name, directory_, 3));
  EXPECT_STREQ(name, "");
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
}

// ---- Appending ------------------------------------------------------------------------------------------------------

TEST_F(Directory, add_writes_the_block_and_then_the_stamped_node) {  // D3
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  EXPECT_TRUE(OrbDirAddEntry(directory_, "name.Txt", 3, false));
  EXPECT_EQ(Calls(), "read block 3 / mark / write block 3 / write node 2");
  EXPECT_EQ(directory_->record.size, 96u);
  EXPECT_EQ(Stored(2).size, 96u);
  EXPECT_EQ(Stored(2).time.year, 2010u);
  EXPECT_EQ(StoredEntry(3, 2).node, 3u);
  EXPECT_EQ(NameStored(3, 2), "NAME.TXT");
  Commit();
}

TEST_F(Directory, add_clears_what_was_left_in_the_slot) {
  DamageDirectory([](Bytes* image) {
    const size_t slot = testhost::BlockOffset(*image, 3) + 64;
    for (size_t i = 2; i < 32; ++i) (*image)[slot + i] = 0xEE;
  });
  ASSERT_TRUE(OrbDirAddEntry(directory_, "AB", 3, false));
  Bytes expected(32);
  expected[0] = 3;
  expected[2] = 'A';
  expected[3] = 'B';
  EXPECT_EQ(testhost::FileBytes(u"VOL", testhost::BlockOffset(Image(), 3) + 64, 32), expected);
  Commit();
}

TEST_F(Directory, add_at_a_block_border_writes_a_new_block_before_the_node) {  // D4
  Fill(32);
  EXPECT_TRUE(OrbDirAddEntry(directory_, "LAST", 3, false));
  EXPECT_EQ(Calls(), "size / mark / write block 4 / write node 2");
  EXPECT_EQ(directory_->record.size, 33u * 32);
  EXPECT_EQ(Stored(2).direct[1], 4u);
  Bytes expected(1024);
  expected[0] = 3;
  memcpy(&expected[2], "LAST", 4);
  EXPECT_EQ(testhost::BlockOf(Image(), 4), expected);
  Commit();
}

TEST_F(Directory, add_at_a_block_border_takes_the_lowest_free_block) {
  MakeFile("A", Pattern(1024));
  MakeFile("B", Pattern(1024));
  Delete("A");
  Delete("B");  // block 4 is the chain's record, block 5 its entry
  Fill(32);
  EXPECT_TRUE(OrbDirAddEntry(directory_, "LAST", 3, false));
  EXPECT_EQ(Calls(), "mark / write block 4 / write block 5 / write node 2");
  Commit();
}

TEST_F(Directory, add_of_the_first_entry_of_the_seventh_block_makes_the_map_block_before_the_node) {
  Fill(6 * 32);
  EXPECT_TRUE(OrbDirAddEntry(directory_, "LAST", 3, false));
  EXPECT_EQ(Calls(), "size / mark / write block 9 / size / write block 10 / write node 2");
  EXPECT_EQ(Stored(2).indirect, 10u);
  Commit();
}

TEST_F(Directory, add_with_check_refuses_names_that_break_the_rule) {
  for (const char* name : {"", "A B", "A/B", "123456789012345678901234567890", "\xC4"}) {
    ClearError();
    EXPECT_FALSE(OrbDirAddEntry(directory_, name, 3, true)) << name;
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME) << name;
  }
  EXPECT_EQ(Calls(), "");
}

TEST_F(Directory, add_with_check_refuses_a_name_that_is_there_in_any_case) {
  Fill(3);
  for (const char* name : {"N002", "n002", ".", ".."}) {
    ClearError();
    EXPECT_FALSE(OrbDirAddEntry(directory_, name, 3, true)) << name;
    EXPECT_EQ(GetError(), ORB_ERROR_FILE_EXISTS) << name;
  }
  EXPECT_EQ(Writes(), "");
}

TEST_F(Directory, add_with_check_whose_lookup_fails_keeps_the_code) {
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(OrbDirAddEntry(directory_, "X", 3, true));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(directory_->record.size, 64u);
}

TEST_F(Directory, add_whose_block_is_not_written_leaves_the_size) {
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbDirAddEntry(directory_, "X", 3, false));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(directory_->record.size, 64u);
  EXPECT_EQ(StoredEntry(3, 2).node, 0u);
  Commit();
}

TEST_F(Directory, add_whose_node_is_not_written_takes_the_size_back_and_leaves_the_entry_to_the_next) {
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbDirAddEntry(directory_, "X", 3, false));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(directory_->record.size, 64u);
  EXPECT_EQ(NameStored(3, 2), "X");
  Commit();
  EXPECT_EQ(OrbDirLookup(directory_, "X"), 3u);
  EXPECT_EQ(Remove("X"), "DAMAGED_RECORD");  // it stands past the size
  EXPECT_EQ(NameStored(3, 2), "X");
  ClearError();
  EXPECT_TRUE(OrbDirAddEntry(directory_, "Y", 3, true));
  EXPECT_EQ(NameStored(3, 2), "Y");
  EXPECT_EQ(OrbDirLookup(directory_, "X"), 0u);
  Commit();
}

TEST_F(Directory, add_whose_node_is_not_written_loses_the_new_block) {
  Fill(32);
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbDirAddEntry(directory_, "X", 3, false));
  EXPECT_EQ(directory_->record.size, 1024u);
  Commit();
  EXPECT_EQ(OrbDirLookup(directory_, "X"), 0u);
  EXPECT_TRUE(OrbDirAddEntry(directory_, "X", 3, true));
  EXPECT_EQ(Stored(2).direct[1], 5u);
  Commit();
}

// ---- Renaming -------------------------------------------------------------------------------------------------------

TEST_F(Directory, rename_writes_the_one_block_and_nothing_else) {  // Q8
  Fill(40);
  const OrbNodeRecord before = Stored(2);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  EXPECT_TRUE(OrbDirRenameEntry(directory_, "new", "n034", true));
  EXPECT_EQ(Calls(), "read block 3 / read block 4 / read block 3 / read block 4 / mark / write block 4");
  EXPECT_EQ(NameStored(4, 2), "NEW");
  const OrbNodeRecord after = Stored(2);
  EXPECT_EQ(memcmp(&after, &before, sizeof after), 0);
  Commit();
}

TEST_F(Directory, rename_to_a_shorter_name_leaves_the_rest_of_the_field) {
  ASSERT_TRUE(OrbDirAddEntry(directory_, "LONGNAME", 3, false));
  Commit();
  EXPECT_TRUE(OrbDirRenameEntry(directory_, "ab", "LONGNAME", true));
  const OrbDirEntry entry = StoredEntry(3, 2);
  EXPECT_EQ(memcmp(entry.name, "AB\0GNAME", 9), 0);
  EXPECT_EQ(entry.node, 3u);
  EXPECT_EQ(OrbDirLookup(directory_, "AB"), 3u);
  EXPECT_EQ(OrbDirLookup(directory_, "LONGNAME"), 0u);
  EXPECT_EQ(OrbDirLookup(directory_, "ABGNAME"), 0u);
  Commit();
}

TEST_F(Directory, rename_with_check_refuses_names_in_their_order) {  // D1
  Fill(4);
  const struct {
    const char* newName;
    const char* oldName;
    uint32_t code;
  } rows[] = {
      {"X", ".", ORB_ERROR_INVALID_NAME},      {"X", "..", ORB_ERROR_INVALID_NAME},
      {"", "N002", ORB_ERROR_INVALID_NAME},    {"A B", "N002", ORB_ERROR_INVALID_NAME},
      {"N003", "N002", ORB_ERROR_FILE_EXISTS}, {"n003", "N002", ORB_ERROR_FILE_EXISTS},
      {"n002", "N002", ORB_ERROR_FILE_EXISTS}, {"..", "N002", ORB_ERROR_FILE_EXISTS},
      {"N003", "NONE", ORB_ERROR_FILE_EXISTS}, {"X", "NONE", ORB_ERROR_FILE_NOT_FOUND},
      {"X", "", ORB_ERROR_FILE_NOT_FOUND},
  };
  for (const auto& row : rows) {
    ClearError();
    EXPECT_FALSE(OrbDirRenameEntry(directory_, row.newName, row.oldName, true)) << row.oldName << " " << row.newName;
    EXPECT_EQ(GetError(), row.code) << row.oldName << " to " << row.newName;
  }
  EXPECT_EQ(Writes(), "");
}

TEST_F(Directory, rename_without_check_takes_the_names_as_they_are) {
  Fill(4);
  EXPECT_TRUE(OrbDirRenameEntry(directory_, "N003", "N002", false));
  EXPECT_EQ(NameStored(3, 2), "N003");
  EXPECT_FALSE(OrbDirRenameEntry(directory_, "X", "..", false));  // skipped, not found
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  Commit();
}

TEST_F(Directory, rename_whose_lookup_or_scan_or_write_fails_keeps_the_code) {
  Fill(3);
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(OrbDirRenameEntry(directory_, "X", "N002", true));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  ClearError();
  FailNthCall(Call::kReadFile, 2, coredll::kHostNotReady);
  EXPECT_FALSE(OrbDirRenameEntry(directory_, "X", "N002", true));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  ClearError();
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbDirRenameEntry(directory_, "X", "N002", true));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(NameStored(3, 2), "N002");
  Commit();
}

// ---- Removing -------------------------------------------------------------------------------------------------------

TEST_F(Directory, remove_of_the_last_entry_clears_its_number_and_keeps_its_name) {
  Fill(4);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  OrbNode* const removed = OrbDirRemoveEntry(directory_, "n003", false);
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->record.number, 3u);
  EXPECT_EQ(removed->references, 1u);
  OrbNodeRelease(removed);
  EXPECT_EQ(Calls(), "read block 3 / read node 3 / mark / write block 3 / write node 2");
  EXPECT_EQ(StoredEntry(3, 3).node, 0u);
  EXPECT_EQ(NameStored(3, 3), "N003");
  EXPECT_EQ(StoredEntry(3, 2).node, 3u);
  EXPECT_EQ(Stored(2).size, 96u);
  EXPECT_EQ(Stored(2).time.year, 2010u);
  Commit();
}

TEST_F(Directory, remove_moves_the_last_entry_of_the_same_block_into_the_hole) {  // D3, Q10
  Fill(6);
  EXPECT_EQ(Remove("N002"), "");
  EXPECT_EQ(Calls(), "read block 3 / read node 3 / mark / write block 3 / write node 2");
  EXPECT_EQ(NameStored(3, 2), "N005");
  EXPECT_EQ(NameStored(3, 3), "N003");
  EXPECT_EQ(StoredEntry(3, 5).node, 0u);
  EXPECT_EQ(Stored(2).size, 160u);
  Commit();
}

TEST_F(Directory, remove_from_another_block_writes_the_hole_s_block_before_the_last) {  // Q24
  Fill(34);
  EXPECT_EQ(Remove("N002"), "");
  EXPECT_EQ(Calls(), "read block 3 / read node 3 / read block 4 / mark / write block 3 / write block 4 / write node 2");
  EXPECT_EQ(NameStored(3, 2), "N033");
  EXPECT_EQ(StoredEntry(4, 0).node, 3u);
  EXPECT_EQ(StoredEntry(4, 1).node, 0u);
  EXPECT_EQ(Stored(2).size, 33u * 32);
  Commit();
}

TEST_F(Directory, remove_of_the_only_entry_of_a_block_frees_the_block_unwritten) {  // D4
  Fill(33);
  EXPECT_EQ(Remove("N032"), "");
  // Block 4 becomes the free chain's record.
  EXPECT_EQ(Calls(),
            "read block 3 / read block 4 / read node 3 / size / mark / write block 4 / write header / write node 2");
  EXPECT_EQ(Stored(2).size, 1024u);
  EXPECT_EQ(Stored(2).direct[1], 0u);
  EXPECT_EQ(ChainHead(), 4u);
  Commit();
  EXPECT_EQ(OrbDirLookup(directory_, "N031"), 3u);
}

TEST_F(Directory, remove_that_empties_the_last_block_writes_the_hole_s_block_first) {
  Fill(33);
  EXPECT_EQ(Remove("N005"), "");
  EXPECT_EQ(Calls(),
            "read block 3 / read node 3 / read block 4 / mark / write block 3 / size / write block 4 / write header / "
            "write node 2");
  EXPECT_EQ(NameStored(3, 5), "N032");
  EXPECT_EQ(Stored(2).direct[1], 0u);
  Commit();
}

TEST_F(Directory, remove_that_empties_a_mapped_block_clears_the_map_s_slot_and_keeps_the_map_block) {
  Fill(6 * 32 + 1);
  const uint32_t map = directory_->record.indirect;
  EXPECT_EQ(Remove("N192"), "");
  EXPECT_EQ(Writes(), "mark / block " + std::to_string(map) + "+0:4 / block 9 / header / node 2");
  EXPECT_EQ(Stored(2).indirect, map);
  Commit();
  EXPECT_TRUE(OrbDirAddEntry(directory_, "AGAIN", 3, false));
  EXPECT_EQ(Stored(2).indirect, map);
  Commit();
}

TEST_F(Directory, remove_of_all_entries_in_any_order_leaves_the_dots) {
  for (const uint32_t step : {1u, 31u, 97u}) {
    Fill(100);
    for (uint32_t i = 0; i < 98; ++i) ASSERT_EQ(Remove(NameAt(2 + i * step % 98).c_str()), "") << i;
    EXPECT_EQ(directory_->record.size, 64u);
    EXPECT_TRUE(OrbDirIsEmpty(directory_));
    EXPECT_EQ(Stored(2).direct[0], 3u);
    EXPECT_EQ(Stored(2).direct[1], 0u);
    Commit();
  }
}

TEST_F(Directory, remove_refuses_the_dots) {  // D1
  for (const char* name : {".", ".."}) {
    ClearError();
    EXPECT_EQ(OrbDirRemoveEntry(directory_, name, false), nullptr);
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
  }
  EXPECT_EQ(Calls(), "");
}

TEST_F(Directory, remove_of_an_absent_name_is_file_not_found) {
  EXPECT_EQ(Remove("NONE"), "FILE_NOT_FOUND");
  EXPECT_EQ(Calls(), "read block 3");
}

TEST_F(Directory, remove_of_a_node_held_elsewhere_fails_and_changes_nothing) {
  Fill(3);
  const NodeRef holder(OrbNodeGet(volume_, 3));
  const Bytes before = Image();
  EXPECT_EQ(Remove("N002"), "IN_USE");
  EXPECT_EQ(holder.node->references, 1u);
  EXPECT_EQ(directory_->record.size, 96u);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(Image(), before);
}

TEST_F(Directory, remove_of_the_current_directory_says_so) {
  ASSERT_TRUE(OrbSetCurrentDirNode(directory_));
  const Bytes before = Image();
  EXPECT_EQ(OrbDirRemoveEntry(volume_->root, "D", false), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_CURRENT_DIRECTORY);
  EXPECT_EQ(directory_->references, 2u);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(Image(), before);
  ASSERT_TRUE(OrbSetCurrentDirNode(volume_->root));
}

TEST_F(Directory, remove_with_require_empty_refuses_a_directory_with_a_name) {
  MakeDirectory("D/E");  // node 4
  MakeFile("D/E/X");
  ClearError();
  const Bytes before = Image();
  EXPECT_EQ(Remove("E", true), "NOT_EMPTY");
  EXPECT_EQ(directory_->record.size, 96u);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(NodesListed(), 2u);
  Delete("D/E/X");
  ClearError();
  OrbNode* const removed = OrbDirRemoveEntry(directory_, "E", true);
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->record.number, 4u);
  OrbNodeRelease(removed);
  Commit();
}

TEST_F(Directory, remove_without_require_empty_takes_a_full_directory) {
  MakeDirectory("D/E");
  MakeFile("D/E/X");
  ClearError();
  EXPECT_EQ(Remove("E", false), "");
  Commit();
}

TEST_F(Directory, remove_whose_look_for_emptiness_fails_keeps_that_code) {
  MakeDirectory("D/E");
  ClearError();
  FailNthCall(Call::kReadFile, 3, coredll::kHostNotReady);  // after D's block and E's node
  EXPECT_EQ(Remove("E", true), "NOT_READY");
  EXPECT_EQ(NodesListed(), 2u);
}

TEST_F(Directory, remove_whose_node_cannot_be_read_keeps_that_code) {
  Fill(3);
  FailNthCall(Call::kReadFile, 2, coredll::kHostNotReady);
  EXPECT_EQ(Remove("N002"), "NOT_READY");
  EXPECT_EQ(Writes(), "");
}

TEST_F(Directory, remove_of_an_entry_that_names_its_own_directory_or_the_root_finds_them_held) {
  Fill(3);
  DamageDirectory([](Bytes* image) { SetEntryNode(image, 3, 2, 2); });
  EXPECT_EQ(Remove("N002"), "IN_USE");
  DamageDirectory([](Bytes* image) { SetEntryNode(image, 3, 2, 1); });
  EXPECT_EQ(Remove("N002"), "CURRENT_DIRECTORY");  // the root is the current directory
  EXPECT_EQ(Writes(), "");
}

TEST_F(Directory, remove_without_memory_for_the_second_block_changes_nothing) {
  Fill(34);
  const Bytes before = Image();
  FailNthAllocation(3);  // after the first block and the node
  EXPECT_EQ(Remove("N002"), "OUT_OF_MEMORY");
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(NodesListed(), 2u);
}

// N002's place goes to N033, the last of two blocks.
TEST_F(Directory, remove_whose_hole_s_block_is_not_written_changes_nothing) {
  Fill(34);
  const Bytes before = Image();
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_EQ(Remove("N002"), "DISK_FULL");
  EXPECT_EQ(Writes(), "mark / block 3 !112");
  EXPECT_EQ(NodesListed(), 2u);
  EXPECT_EQ(directory_->record.size, 34u * 32);
  Commit();
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(Remove("N002"), "");
  Commit();
}

TEST_F(Directory, remove_whose_last_block_is_not_written_leaves_the_moved_entry_twice) {
  Fill(34);
  Bytes expected = Image();
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_EQ(Remove("N002"), "DISK_FULL");
  EXPECT_EQ(Writes(), "mark / block 3 / block 4 !112");
  EXPECT_EQ(NodesListed(), 2u);
  EXPECT_EQ(directory_->record.size, 34u * 32);
  Commit();
  PutEntry(&expected, 3, 2, testhost::EntryOf(expected, 4, 1));
  EXPECT_EQ(Image(), expected);
}

TEST_F(Directory, remove_whose_node_is_not_written_leaves_a_size_that_is_one_entry_too_large) {
  Fill(34);
  Bytes expected = Image();
  FailNthCall(Call::kWriteFile, 4, coredll::kHostDiskFull);
  EXPECT_EQ(Remove("N002"), "DISK_FULL");
  EXPECT_EQ(Writes(), "mark / block 3 / block 4 / node 2 !112");
  EXPECT_EQ(NodesListed(), 2u);
  EXPECT_EQ(directory_->record.size, 33u * 32);  // who holds the directory knows better
  Commit();
  PutEntry(&expected, 3, 2, testhost::EntryOf(expected, 4, 1));
  SetEntryNode(&expected, 4, 1, 0);
  EXPECT_EQ(Image(), expected);
  EXPECT_EQ(Stored(2).size, 34u * 32);
}

// N005's place goes to N032, alone in block 4, which becomes the free chain's record.
TEST_F(Directory, remove_that_empties_a_block_with_a_write_failing_leaves_what_was_written) {
  Fill(33);
  const Bytes before = Image();
  const testhost::FileSet files = testhost::Snapshot();
  const struct {
    uint32_t write;
    const char* writes;
    uint32_t head, size, block;  // on disk: the chain's, the directory's and its second block
    bool isRecord;               // block 4 is one
  } stops[] = {
      {2, "mark / block 3 !112", 0, 33 * 32, 4, false},
      {3, "mark / block 3 / block 4 !112 / node 2", 0, 32 * 32, 0, false},
      {4, "mark / block 3 / block 4 / header !112 / node 2", 0, 32 * 32, 0, true},
      {5, "mark / block 3 / block 4 / header / node 2 !112", 4, 33 * 32, 4, true},
  };
  for (const auto& stop : stops) {
    SCOPED_TRACE(stop.writes);
    FailNthCall(Call::kWriteFile, stop.write, coredll::kHostDiskFull);
    EXPECT_EQ(Remove("N005"), "DISK_FULL");
    EXPECT_EQ(Writes(), stop.writes);
    EXPECT_EQ(NodesListed(), 2u);
    EXPECT_EQ(NameStored(3, 5), stop.write == 2 ? "N005" : "N032");
    EXPECT_EQ(ChainHead(), stop.head);
    EXPECT_EQ(Stored(2).size, stop.size);
    EXPECT_EQ(Stored(2).direct[1], stop.block);
    const Bytes block = testhost::BlockOf(Image(), 4);
    if (stop.isRecord) {
      Bytes record(1024);
      memcpy(record.data(), "FBC1", 4);
      EXPECT_EQ(block, record);
    } else {
      EXPECT_EQ(block, testhost::BlockOf(before, 4));
    }
    Commit();
    DamageDirectory([&](Bytes* image) { *image = files.at(u"VOL").ToBytes(); });
  }
}

// ---- Emptiness and parent -------------------------------------------------------------------------------------------

TEST_F(Directory, is_empty_reads_the_first_block_alone) {
  EXPECT_TRUE(OrbDirIsEmpty(directory_));
  EXPECT_EQ(Calls(), "read block 3");
  Fill(40);
  EXPECT_FALSE(OrbDirIsEmpty(directory_));
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Calls(), "read block 3");
}

TEST_F(Directory, is_empty_looks_at_the_third_entry_alone) {
  Fill(5);
  DamageDirectory([](Bytes* image) { SetEntryNode(image, 3, 2, 0); });
  EXPECT_TRUE(OrbDirIsEmpty(directory_));
}

TEST_F(Directory, is_empty_that_cannot_be_read_is_false_with_the_code) {
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(OrbDirIsEmpty(directory_));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
}

TEST_F(Directory, set_parent_writes_the_first_block_and_stamps_nothing) {
  const OrbNodeRecord before = Stored(2);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  EXPECT_TRUE(OrbDirSetParent(directory_, 77));
  EXPECT_EQ(Calls(), "read block 3 / mark / write block 3");
  EXPECT_EQ(StoredEntry(3, 1).node, 77u);
  EXPECT_EQ(NameStored(3, 1), "..");
  EXPECT_EQ(StoredEntry(3, 0).node, 2u);
  const OrbNodeRecord after = Stored(2);
  EXPECT_EQ(memcmp(&after, &before, sizeof after), 0);
  Commit();
}

TEST_F(Directory, set_parent_that_fails_keeps_the_code) {
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(OrbDirSetParent(directory_, 77));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbDirSetParent(directory_, 77));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(StoredEntry(3, 1).node, 1u);
  Commit();
}

// ---- Entries --------------------------------------------------------------------------------------------------------

TEST_F(Directory, entry_is_made_with_zeros_behind_its_name) {
  OrbDirEntry entry;
  memset(&entry, 0xEE, sizeof entry);
  MakeDirEntry(&entry, 0x1234, "a.b");
  Bytes expected(32);
  expected[0] = 0x34;
  expected[1] = 0x12;
  memcpy(&expected[2], "A.B", 3);
  EXPECT_EQ(memcmp(&entry, expected.data(), 32), 0);
  EXPECT_EQ(EntryNode(&entry), 0x1234u);
}

TEST_F(Directory, entry_name_is_copied_up_to_29_characters) {
  OrbDirEntry entry;
  memset(&entry, 'Z', sizeof entry);
  char name[kNameSize];
  CopyEntryName(name, &entry);
  EXPECT_EQ(std::string(name), std::string(29, 'Z'));
}

TEST_F(Directory, cursor_goes_through_the_entries_and_ends_without_an_error) {
  Fill(35);
  Bytes room(1024);
  DirCursor cursor = {directory_, reinterpret_cast<OrbDirEntry*>(room.data()), 0, kNoBlock};
  uint32_t seen = 0;
  for (OrbDirEntry* entry = OrbDirEntryAt(&cursor); entry != nullptr; entry = OrbDirEntryAfter(&cursor, entry)) ++seen;
  EXPECT_EQ(seen, 35u);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Calls(), "read block 3 / read block 4");
}

TEST_F(Directory, cursor_begins_in_the_middle_of_a_block_and_ends_behind_the_last_one) {
  Fill(64);
  Bytes room(1024);
  DirCursor cursor = {directory_, reinterpret_cast<OrbDirEntry*>(room.data()), 62, kNoBlock};
  OrbDirEntry* entry = OrbDirEntryAt(&cursor);
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->name, "N062");
  EXPECT_EQ(cursor.block, 4u);
  entry = OrbDirEntryAfter(&cursor, entry);
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->name, "N063");
  EXPECT_EQ(OrbDirEntryAfter(&cursor, entry), nullptr);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(Calls(), "read block 4");
}

}  // namespace
}  // namespace orba
