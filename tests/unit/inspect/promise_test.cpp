#include "inspect/repair/promise.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "inspect/container/patched_image.h"
#include "tests/support/image_builder.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::Counting;
using testimage::ImageBuilder;

// The root holds A and SAME (of equal size), D, D/B (behind map blocks) and D/EMPTY.
struct Promised : ImageBuilder {
  Promised() : ImageBuilder(1024, 32) {
    a = AddFile(1, "A", 1500);
    same = AddFile(1, "SAME", 1500);
    d = AddDirectory(1, "D");
    b = AddFile(d, "B", 10 * 1024);
    empty = AddFile(d, "EMPTY", 0u);
  }
  // Takes the entry of the root or D out, as a removal does.
  void Remove(std::uint16_t directory, std::uint32_t index) {
    const std::uint32_t last = Size(directory) / kDirEntrySize - 1;
    const auto from = bytes().begin() + static_cast<std::ptrdiff_t>(EntryOffset(directory, last));
    std::copy_n(from, kDirEntrySize, bytes().begin() + static_cast<std::ptrdiff_t>(EntryOffset(directory, index)));
    Put16(EntryOffset(directory, last), 0);
    SetSize(directory, last * kDirEntrySize);
  }
  void Mark() { Put32(kStateFlagsOffset, kVolumeDirty); }
  // Makes a node's slot a copy of another's.
  void CopyRecord(std::uint16_t from, std::uint16_t to) {
    const auto record = bytes().begin() + static_cast<std::ptrdiff_t>(NodeOffset(from));
    std::copy_n(record, kNodeSize, bytes().begin() + static_cast<std::ptrdiff_t>(NodeOffset(to)));
  }

  std::uint16_t a, same, d, b, empty;
};

Promise Judged(const ImageBuilder& before, const ImageBuilder& after, const Vouched& vouched = {}) {
  return JudgePromise(MemoryImage(before.bytes()), MemoryImage(after.bytes()), vouched);
}

using Paths = std::vector<std::string>;

TEST(Promise, same_container_keeps_all) {
  const Promise promise = Judged(Promised(), Promised());
  EXPECT_EQ(promise.readable, 4u);
  EXPECT_EQ(promise.kept, 4u);
  EXPECT_EQ(promise.regained + promise.mended + promise.toLost + promise.excused, 0u);
  EXPECT_TRUE(promise.holds());
  EXPECT_EQ(ToText(promise), "keeps 4 of 4 readable files\n");
}

TEST(Promise, file_gone_is_a_loss) {
  Promised after;
  after.Remove(1, 2);
  const Promise promise = Judged(Promised(), after);
  EXPECT_EQ(promise.readable, 4u);
  EXPECT_EQ(promise.kept, 3u);
  EXPECT_EQ(promise.losses, Paths{"/A"});
  EXPECT_EQ(ToText(promise), "keeps 3 of 4 readable files\nwould lose /A\n");
}

TEST(Promise, empty_file_gone_is_a_loss) {
  Promised after;
  after.Remove(after.d, 3);
  EXPECT_EQ(Judged(Promised(), after).losses, Paths{"/D/EMPTY"});
}

TEST(Promise, directory_gone_all_below_is_lost) {
  Promised after;
  after.Remove(1, 4);
  const Promise promise = Judged(Promised(), after);
  EXPECT_EQ(promise.kept, 2u);
  EXPECT_EQ(promise.losses, (Paths{"/D/B", "/D/EMPTY"}));
}

// Files may name blocks that others have named twice as often as there are blocks, and 1,024 times more: five read all
// 262 again.
TEST(Promise, files_that_read_the_same_blocks_over_and_over_are_not_judged_and_none_is_given) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "F", 262 * 1024);
  for (std::uint32_t i = 0; i < 9; ++i) {
    const std::uint16_t other = image.AddFile(1, "F" + std::to_string(i), 0u);
    std::copy_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(file)) + 16, 48,
                image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(other)) + 16);
  }
  const Promise promise = Judged(image, image);
  EXPECT_EQ(promise.readable, 1 + 5u);
  EXPECT_EQ(promise.kept, 1 + 5u);
  EXPECT_EQ(promise.unread, 4u);
  EXPECT_EQ(promise.regained + promise.mended + promise.toLost, 0u);
  EXPECT_FALSE(promise.holds());
  EXPECT_EQ(ToText(promise),
            "keeps 6 of 6 readable files; whether 4 files are kept is not known: they read the same blocks as others "
            "over and over\n");
}

TEST(Promise, one_byte_otherwise_is_a_loss) {
  for (const std::uint32_t at : {0u, 5u * 1024 + 1023, 6u * 1024, 10u * 1024 - 1}) {
    Promised after;
    after.bytes()[after.BlockOffset(after.MappedBlock(after.b, at / 1024)) + at % 1024] ^= 1;
    EXPECT_EQ(Judged(Promised(), after).losses, Paths{"/D/B"}) << at;
  }
}

TEST(Promise, byte_behind_the_end_does_not_matter) {
  Promised after;
  after.bytes()[after.BlockOffset(after.MappedBlock(after.a, 1)) + 1500 - 1024] ^= 1;
  EXPECT_TRUE(Judged(Promised(), after).holds());
}

TEST(Promise, byte_behind_the_end_of_a_file_in_two_places_does_not_matter) {
  Promised before;
  before.SetSize(before.b, 10 * 1024 - 1);
  Promised after = before;
  after.bytes()[after.BlockOffset(after.MappedBlock(after.b, 9)) + 1023] ^= 1;
  EXPECT_TRUE(Judged(before, after).holds());
}

TEST(Promise, block_gone_is_a_loss) {
  Promised after;
  after.Put32(after.MapOffset(after.b, 7), 0);
  EXPECT_EQ(Judged(Promised(), after).losses, Paths{"/D/B"});
}

TEST(Promise, other_size_is_a_loss) {
  Promised after;
  after.SetSize(after.a, 1499);
  EXPECT_EQ(Judged(Promised(), after).losses, Paths{"/A"});
}

TEST(Promise, other_blocks_of_equal_contents_are_kept) {
  Promised after;
  after.Put32(after.MapOffset(after.a, 0), after.MappedBlock(after.same, 0));
  EXPECT_EQ(Judged(Promised(), after).losses, Paths{"/A"});
  const auto from =
      after.bytes().begin() + static_cast<std::ptrdiff_t>(after.BlockOffset(after.MappedBlock(after.same, 0)));
  const Promised before;
  const auto sound =
      before.bytes().begin() + static_cast<std::ptrdiff_t>(before.BlockOffset(before.MappedBlock(before.a, 0)));
  std::copy_n(sound, 1024, from);
  EXPECT_EQ(Judged(before, after).losses, Paths{"/SAME"});
}

TEST(Promise, file_in_lost_found_is_kept_and_counted) {
  Promised after;
  after.Remove(1, 2);
  const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
  after.AddEntry(lost, "NODE0002", after.a);
  const Promise promise = Judged(Promised(), after);
  EXPECT_TRUE(promise.holds());
  EXPECT_EQ(promise.kept, 4u);
  EXPECT_EQ(promise.toLost, 1u);
  EXPECT_EQ(promise.unnamed, 0u);
  EXPECT_EQ(ToText(promise), "keeps 4 of 4 readable files; 1 goes to /LOST.FND\n");
}

TEST(Promise, directory_in_lost_found_keeps_what_is_below) {
  Promised after;
  after.Remove(1, 4);
  const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
  after.AddEntry(lost, "NODE0004", after.d);
  const Promise promise = Judged(Promised(), after);
  EXPECT_EQ(promise.losses, Paths());
  EXPECT_EQ(promise.toLost, 2u);
}

TEST(Promise, one_file_in_lost_found_stands_for_one_alone) {
  Promised before;
  const Bytes contents(700, 7);
  before.AddFile(1, "X", contents);
  before.AddFile(1, "Y", contents);
  Promised after;
  const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
  after.AddFile(lost, "NODE0007", contents);
  const Promise promise = Judged(before, after);
  EXPECT_EQ(promise.kept, 5u);
  EXPECT_EQ(promise.lost(), 1u);
}

TEST(Promise, two_files_in_lost_found_stand_for_two_alone) {
  Promised before;
  Promised after;
  const Bytes contents(700, 7);
  for (const char* name : {"X", "Y", "Z"}) before.AddFile(1, name, contents);
  const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
  after.AddFile(lost, "NODE0007", contents);
  after.AddFile(lost, "NODE0008", contents);
  const Promise promise = Judged(before, after);
  EXPECT_EQ(promise.kept, 6u);
  EXPECT_EQ(promise.losses.size(), 1u);
}

TEST(Promise, many_files_that_differ_in_a_byte_are_told_apart_in_lost_found) {
  for (const std::size_t place : {0u, 99u}) {
    ImageBuilder before(1024, 32);
    ImageBuilder after(1024, 32);
    const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
    for (std::uint8_t i = 0; i < 200; ++i) {
      Bytes contents(100, 40);
      contents[place] = i;
      before.AddFile(1, "F" + std::to_string(i), contents);
      after.AddFile(lost, "N" + std::to_string(i), contents);
    }
    EXPECT_EQ(Judged(before, after).losses, Paths()) << place;
  }
}

// The two texts have one hash, 0.
TEST(Promise, other_contents_of_the_same_hash_do_not_stand_for_it) {
  const std::string text = "!0IC=VloaY";
  const std::string other = "QvXtM>@Fp%";
  Promised before;
  before.AddFile(1, "X", Bytes(text.begin(), text.end()));
  Promised after;
  after.AddFile(after.AddDirectory(1, "LOST.FND"), "NODE0007", Bytes(other.begin(), other.end()));
  EXPECT_EQ(Judged(before, after).losses, Paths{"/X"});
}

// /A goes to a directory of this name.
Promise JudgedWithAIn(const std::string& directory) {
  Promised after;
  after.Remove(1, 2);
  after.AddEntry(after.AddDirectory(1, directory), "NODE0002", after.a);
  return Judged(Promised(), after);
}

TEST(Promise, name_of_lost_found_was_taken_the_next_one_serves) {
  const Promise promise = JudgedWithAIn("LOST.FND~2");
  EXPECT_EQ(promise.losses, Paths());
  EXPECT_EQ(promise.toLost, 1u);
}

TEST(Promise, directory_whose_name_begins_as_lost_found_does_not_serve) {
  const Promise promise = JudgedWithAIn("LOST.FND2");
  EXPECT_EQ(promise.losses, Paths{"/A"});
  EXPECT_EQ(promise.toLost, 0u);
}

TEST(Promise, file_of_the_name_of_lost_found_does_not_serve) {
  for (const char* name : {"LOST.FND", "LOST.FND~2"}) {
    Promised after;
    after.Remove(1, 2);
    after.AddEntry(1, name, after.a);
    EXPECT_EQ(Judged(Promised(), after).losses, Paths{"/A"}) << name;
  }
}

TEST(Promise, file_elsewhere_is_a_loss) {
  Promised after;
  after.Remove(1, 2);
  after.AddEntry(after.d, "A", after.a);
  const Promise promise = Judged(Promised(), after);
  EXPECT_EQ(promise.losses, Paths{"/A"});
  EXPECT_EQ(promise.regained, 1u);
  EXPECT_EQ(promise.unnamed, 0u);
}

TEST(Promise, file_that_was_there_already_is_none_that_comes_back) {
  Promised before;
  before.AddFile(before.AddDirectory(1, "LOST.FND"), "OLD", 70u);
  Promised after;
  const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
  after.AddFile(lost, "OLD", 70u);
  after.AddFile(lost, "NEW", 90u);
  const Promise promise = Judged(before, after);
  EXPECT_TRUE(promise.holds());
  EXPECT_EQ(promise.regained, 1u);
  EXPECT_EQ(promise.toLost, 1u);
  EXPECT_EQ(promise.unnamed, 1u);
  EXPECT_EQ(ToText(promise), "keeps 5 of 5 readable files; 1 more comes back; 1 goes to /LOST.FND\n");
}

TEST(Promise, file_under_the_name_of_a_lost_node_has_come_to_lost_found) {
  Promised after;
  const std::uint16_t lost = after.AddDirectory(1, "LOST.FND");
  after.AddFile(lost, "X", 90u);
  Promised before = after;
  before.Put16(before.EntryOffset(lost, 2), 250);
  const Promise promise = Judged(before, after);
  EXPECT_EQ(promise.toLost, 1u);
  EXPECT_EQ(promise.regained, 1u);
}

TEST(Promise, unreadable_file_may_say_goodbye_or_be_mended) {
  Promised before;
  before.Put32(before.MapOffset(before.b, 7), 0);
  const Promise mended = Judged(before, Promised());
  EXPECT_EQ(mended.readable, 3u);
  EXPECT_EQ(mended.kept, 3u);
  EXPECT_EQ(mended.mended, 1u);
  EXPECT_EQ(mended.regained, 0u);
  Promised gone;
  gone.Remove(gone.d, 2);
  EXPECT_TRUE(Judged(before, gone).holds());
  EXPECT_EQ(Judged(before, before).mended, 0u);
}

TEST(Promise, entry_to_a_lost_node_is_nothing_to_keep) {
  Promised before;
  before.Put16(before.EntryOffset(1, 2), 250);
  const Promise promise = Judged(before, Promised());
  EXPECT_EQ(promise.readable, 3u);
  EXPECT_EQ(promise.regained, 1u);
}

TEST(Promise, illegal_name_in_its_directory_may_change) {
  Promised before;
  before.PutText(before.EntryOffset(1, 2) + 2, "?");
  const Promise promise = Judged(before, Promised());
  EXPECT_EQ(promise.readable, 4u);
  EXPECT_EQ(promise.kept, 4u);
  EXPECT_EQ(promise.regained, 0u);
}

TEST(Promise, unreadable_file_of_an_illegal_name_is_mended_under_its_new_one) {
  Promised before;
  before.PutText(before.EntryOffset(1, 2) + 2, "?");
  before.Put32(before.MapOffset(before.a, 1), 0);
  const Promise promise = Judged(before, Promised());
  EXPECT_EQ(promise.mended, 1u);
  EXPECT_EQ(promise.regained, 0u);
}

TEST(Promise, illegal_name_of_a_directory_may_change) {
  Promised before;
  before.PutText(before.EntryOffset(1, 4) + 2, "?");
  EXPECT_TRUE(Judged(before, Promised()).holds());
}

TEST(Promise, illegal_name_does_not_let_the_file_go) {
  Promised before;
  before.AddFile(1, "?", 900u);
  EXPECT_EQ(Judged(before, Promised()).losses, Paths{"/?"});
}

TEST(Promise, lower_case_name_is_the_path) {
  Promised before;
  before.PutText(before.EntryOffset(1, 2) + 2, "a");
  EXPECT_TRUE(Judged(before, Promised()).holds());
}

TEST(Promise, second_of_equal_names_may_be_anywhere) {
  Promised before;
  const std::uint16_t second = before.AddFile(1, "A", testimage::Pattern(4000, 9));
  Promised after;
  after.AddFile(1, "A~2", testimage::Pattern(4000, 9));
  EXPECT_EQ(Judged(before, after).losses, Paths());
  EXPECT_EQ(Judged(before, Promised()).losses, Paths{"/A"});
  EXPECT_EQ(before.Size(second), 4000u);
}

TEST(Promise, another_nodes_slot_may_be_read_anywhere) {
  Promised before;
  before.CopyRecord(before.b, before.a);
  EXPECT_TRUE(Judged(before, Promised()).holds());
}

// What lies under the one is read under the other.
TEST(Promise, slots_of_two_directories_changed_places_both_are_looked_through) {
  for (const bool first : {false, true}) {
    ImageBuilder after(1024, 32);
    const std::uint16_t d = after.AddDirectory(1, "D"), e = after.AddDirectory(1, "E");
    after.AddFile(first ? d : e, "F", 900u);
    ImageBuilder before = after;
    before.AddFile(first ? e : d, "GONE", 800u);
    const auto slot = [&](std::uint16_t node) {
      return before.bytes().begin() + static_cast<std::ptrdiff_t>(before.NodeOffset(node));
    };
    std::swap_ranges(slot(d), slot(d) + kNodeSize, slot(e));
    const Promise promise = Judged(before, after);
    EXPECT_EQ(promise.readable, 2u);
    EXPECT_EQ(promise.losses, Paths{first ? "/D/GONE" : "/E/GONE"});
  }
}

// The attributes said so, the contents of its first block did not.
TEST(Promise, directory_that_was_read_as_a_file_and_is_one_again_is_nothing_to_keep) {
  ImageBuilder before(1024, 32);
  const std::uint16_t file = before.AddFile(1, "F", 900u);
  const std::uint16_t d = before.AddDirectory(1, "D");
  const ImageBuilder after = before;
  before.Put32(before.MapOffset(d, 0), before.MappedBlock(file, 0));
  const Promise promise = Judged(before, after);
  EXPECT_EQ(promise.readable, 1u);
  EXPECT_EQ(promise.kept, 1u);
}

TEST(Promise, another_directorys_slot_is_looked_through_once) {
  Promised before;
  before.CopyRecord(before.d, before.a);
  const Promise promise = Judged(before, Promised());
  EXPECT_EQ(promise.readable, 3u);
  EXPECT_TRUE(promise.holds());
}

TEST(Promise, roots_slot_in_another_place_is_not_looked_through_again) {
  Promised before;
  before.CopyRecord(1, before.a);
  EXPECT_EQ(Judged(before, Promised()).readable, 3u);
}

TEST(Promise, two_other_nodes_slots_may_be_read_from_one_file) {
  Promised before;
  before.CopyRecord(before.b, before.a);
  before.CopyRecord(before.b, before.same);
  EXPECT_EQ(Judged(before, Promised()).losses, Paths());
}

TEST(Promise, directory_whose_slot_carries_a_files_number_is_looked_through) {
  Promised before;
  before.Put16(before.NodeOffset(before.d) + 4, before.a);
  Promised after;
  after.Remove(1, 4);
  EXPECT_EQ(Judged(before, after).losses, (Paths{"/D/B", "/D/EMPTY"}));
}

// /D/F, and /E, whose first block is a copy of that of /D.
struct CopiedBlock : testimage::ImageBuilder {
  CopiedBlock() : ImageBuilder(1024, 32) {
    d = AddDirectory(1, "D");
    AddFile(d, "F", 900u);
    e = AddDirectory(1, "E");
  }
  void Copy(std::uint16_t directory) {
    const auto from = bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(MappedBlock(directory, 0)));
    std::copy_n(from, 1024, bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(MappedBlock(e, 0))));
    SetSize(e, std::max(Size(e), Size(directory)));
  }
  std::uint16_t d;
  std::uint16_t e;
};

TEST(Promise, what_a_copied_directory_block_refers_to_is_kept_where_the_original_has_it) {
  CopiedBlock before;
  const CopiedBlock after = before;
  before.Copy(before.d);
  const Promise promise = Judged(before, after);
  EXPECT_EQ(promise.readable, 2u);
  EXPECT_EQ(promise.kept, 2u);
}

TEST(Promise, what_a_directory_block_of_its_own_refers_to_is_not_kept_elsewhere) {
  CopiedBlock before;
  const CopiedBlock after = before;
  before.Copy(before.d);
  before.Put16(before.EntryOffset(before.e, 0), before.e);
  EXPECT_EQ(Judged(before, after).losses, Paths{"/E/F"});
}

TEST(Promise, what_a_directory_block_without_a_dot_refers_to_is_not_kept_elsewhere) {
  CopiedBlock before;
  const CopiedBlock after = before;
  before.Copy(before.d);
  before.PutText(before.EntryOffset(before.e, 0) + 2, "X");
  EXPECT_EQ(Judged(before, after).losses, Paths{"/E/F"});
}

TEST(Promise, what_a_copy_of_the_roots_block_refers_to_is_kept_where_the_root_has_it) {
  CopiedBlock before;
  before.AddFile(1, "G", 800u);
  const CopiedBlock after = before;
  before.Copy(1);
  const Promise promise = Judged(before, after);
  EXPECT_EQ(promise.readable, 3u);
  EXPECT_EQ(promise.kept, 3u);
}

TEST(Promise, what_the_second_block_of_a_directory_refers_to_is_not_kept_elsewhere) {
  CopiedBlock before;
  for (const std::uint16_t directory : {before.d, before.e}) {
    while (before.Size(directory) < 1024) before.AddFile(directory, "F" + std::to_string(before.Size(directory)), 0u);
  }
  CopiedBlock after = before;
  const std::uint16_t late = before.AddFile(before.e, "LATE", 900u);
  before.Copy(before.d);
  EXPECT_EQ(after.AddFile(1, "LATE", 900u), late);
  EXPECT_EQ(Judged(before, after).losses, Paths{"/E/LATE"});
}

TEST(Promise, what_ends_with_the_operation_is_told_by_its_path) {
  Promise promise;
  EXPECT_EQ(ExcusedText(promise), "");
  promise.firstExcused = "/A/X";
  promise.excused = 1;
  EXPECT_EQ(ExcusedText(promise), "/A/X ends with the interrupted operation");
  promise.excused = 2;
  EXPECT_EQ(ExcusedText(promise), "2 end with the interrupted operation, first /A/X");
}

TEST(Promise, another_file_in_lost_found_does_not_stand_for_it) {
  Promised after;
  after.Remove(1, 2);
  after.AddFile(after.AddDirectory(1, "LOST.FND"), "NODE0009", 1500u);
  const Promise promise = Judged(Promised(), after);
  EXPECT_EQ(promise.losses, Paths{"/A"});
  EXPECT_EQ(promise.kept, 3u);
}

TEST(Promise, illegal_name_may_go_to_another_directory) {
  Promised before;
  before.AddFile(1, "?", 900u);
  Promised after;
  after.AddFile(after.d, "X", testimage::Pattern(900, 901));
  EXPECT_EQ(Judged(before, after).losses, Paths());
}

TEST(Promise, directory_of_an_illegal_name_may_go_to_another_directory) {
  Promised before;
  const std::uint16_t odd = before.AddDirectory(1, "?");
  before.AddFile(odd, "IN", 900u);
  Promised after;
  after.AddFile(after.d, "X", testimage::Pattern(900, 902));
  EXPECT_EQ(Judged(before, after).losses, Paths());
  EXPECT_EQ(Judged(before, Promised()).losses, Paths{"/?/IN"});
}

TEST(Promise, directory_with_a_legal_name_too_stays_there) {
  ImageBuilder before(1024, 32);
  const std::uint16_t directory = before.AddDirectory(1, "D");
  before.AddFile(directory, "B", 900u);
  before.PutText(before.EntryOffset(1, 2) + 2, "?");  // comes first
  before.AddEntry(1, "D", directory);
  ImageBuilder after(1024, 32);
  after.AddFile(1, "B", 900u);
  EXPECT_EQ(Judged(before, after).losses, Paths{"/D/B"});
}

TEST(Promise, file_of_more_blocks_than_there_are_is_nothing_to_keep) {
  Promised before;
  const std::uint32_t indirect = before.Get32(before.NodeOffset(before.b) + 56);
  for (std::uint32_t slot = 0; slot < 256; ++slot) before.Put32(before.BlockOffset(indirect) + 4 * slot, 1);
  before.SetSize(before.b, 200 * 1024);
  EXPECT_EQ(Judged(before, before).readable, 3u);
  before.SetSize(before.b, before.Blocks() * 1024);
  EXPECT_EQ(Judged(before, before).readable, 4u);
  before.SetSize(before.b, before.Blocks() * 1024 + 1);
  EXPECT_EQ(Judged(before, before).readable, 3u);
}

TEST(Promise, file_without_its_first_block_is_nothing_to_keep) {
  Promised before;
  before.Put32(before.MapOffset(before.a, 0), 0);
  EXPECT_EQ(Judged(before, before).readable, 3u);
}

// ---- The operation that the mark vouches for ------------------------------------------------------------------------

struct Moving : Promised {
  Moving() { AddEntry(1, "MOVED", b); }
};

TEST(Promise, file_with_two_names_keeps_both_without_a_mark) {
  EXPECT_EQ(Judged(Moving(), Promised()).losses, Paths{"/MOVED"});
  EXPECT_EQ(Judged(Moving(), Promised(), {Promised().b}).losses, Paths{"/MOVED"});
}

TEST(Promise, file_with_two_names_has_one_copy_in_lost_found_for_both) {
  Promised after;
  after.Remove(after.d, 2);
  after.AddEntry(after.AddDirectory(1, "LOST.FND"), "NODE0005", after.b);
  const Promise promise = Judged(Moving(), after);
  EXPECT_EQ(promise.kept, 5u);
  EXPECT_EQ(promise.losses, Paths());
}

TEST(Promise, stopped_move_one_name_is_enough) {
  Moving before;
  before.Mark();
  const Promise promise = Judged(before, Promised());
  EXPECT_TRUE(promise.holds());
  EXPECT_EQ(promise.readable, 5u);
  EXPECT_EQ(promise.kept, 4u);
  EXPECT_EQ(promise.excused, 1u);
  EXPECT_EQ(ToText(promise), "keeps 4 of 5 readable files; /MOVED ends with the interrupted operation\n");
  EXPECT_TRUE(Judged(before, Promised(), {before.b}).holds());
  EXPECT_EQ(Judged(before, Promised(), {before.a}).losses, Paths{"/MOVED"});
}

TEST(Promise, stopped_move_one_name_is_enough_wherever_it_is) {
  Promised before;
  before.AddEntry(1, "?", before.b);
  before.Mark();
  Promised after;
  after.PutText(after.EntryOffset(after.d, 2) + 2, "X");
  const Promise promise = Judged(before, after);
  EXPECT_TRUE(promise.holds());
  EXPECT_EQ(promise.kept, 4u);
  EXPECT_EQ(promise.firstExcused, "/D/B");
}

TEST(Promise, stopped_move_both_names_gone_is_a_loss) {
  Moving before;
  before.Mark();
  Promised after;
  after.Remove(after.d, 2);
  EXPECT_EQ(Judged(before, after).lost(), 2u);
}

TEST(Promise, two_stopped_moves_are_one_too_many) {
  Moving before;
  before.Mark();
  before.AddEntry(before.d, "ALSO", before.a);
  EXPECT_EQ(Judged(before, Promised()).lost(), 1u);
}

TEST(Promise, stopped_creation_may_be_taken_back) {
  Promised before;
  before.Mark();
  Promised after;
  after.Remove(after.d, 3);
  EXPECT_TRUE(Judged(before, after).holds());
  after.Remove(1, 2);
  EXPECT_EQ(Judged(before, after).losses, Paths{"/A"});
}

TEST(Promise, stopped_removal_does_not_take_contents_along) {
  Promised before;
  before.Mark();
  Promised after;
  after.Remove(1, 2);
  EXPECT_EQ(Judged(before, after).losses, Paths{"/A"});
  EXPECT_EQ(Judged(before, after, {before.a}).losses, Paths{"/A"});
}

TEST(Promise, directory_with_two_names_keeps_one_with_all_below) {
  Promised before;
  before.AddEntry(before.AddDirectory(1, "E"), "MOVED", before.d);
  Promised after;
  after.AddEntry(after.AddDirectory(1, "E"), "MOVED", after.d);
  EXPECT_TRUE(Judged(before, after).holds());
  EXPECT_EQ(Judged(before, after).readable, 4u);
  after.Remove(1, 4);
  EXPECT_TRUE(Judged(before, after).holds());
}

TEST(Promise, directory_that_holds_itself_is_looked_through_once) {
  Promised image;
  image.AddEntry(image.d, "LOOP", image.d);
  const Promise promise = Judged(image, image);
  EXPECT_EQ(promise.readable, 4u);
  EXPECT_EQ(promise.kept, 4u);
}

TEST(Promise, directory_of_another_number_keeps_what_is_below) {
  Promised after;
  const std::uint16_t another = after.AddDirectory(1, "N");
  after.AddEntry(another, "B", after.b);
  after.AddEntry(another, "EMPTY", after.empty);
  after.Put16(after.EntryOffset(1, 4), another);
  after.Remove(1, 5);
  EXPECT_EQ(Judged(Promised(), after).losses, Paths());
}

TEST(Promise, directory_behind_a_hole_and_under_another_name_is_a_loss) {
  Promised after;
  after.Put16(after.EntryOffset(1, 2), after.d);
  after.PutText(after.EntryOffset(1, 2) + 2, "X");
  after.Put16(after.EntryOffset(1, 3), 0);
  EXPECT_EQ(Judged(Promised(), after).losses, (Paths{"/A", "/SAME", "/D/B", "/D/EMPTY"}));
}

TEST(Promise, directory_with_two_names_keeps_one_while_another_takes_its_place_under_the_other) {
  Promised before;
  before.AddEntry(1, "OTHER", before.d);
  Promised after;
  after.AddEntry(1, "OTHER", after.d);
  const std::uint16_t another = after.AddDirectory(1, "N");
  after.Put16(after.EntryOffset(1, 4), another);
  after.Remove(1, 6);
  EXPECT_TRUE(Judged(before, after).holds());
}

TEST(Promise, directory_under_another_name_than_it_had_is_a_loss) {
  Promised after;
  after.AddEntry(after.AddDirectory(1, "E"), "MOVED", after.d);
  after.Remove(1, 4);
  EXPECT_EQ(Judged(Promised(), after).lost(), 2u);
}

// ---- What is not read -----------------------------------------------------------------------------------------------

TEST(Promise, untouched_contents_are_not_read) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "BIG", 250 * 1024);
  const Counting before(image.bytes());
  PatchedImage after(before);
  const auto touched = [&after](std::uint64_t offset, std::uint64_t count) { return after.Touches(offset, count); };
  EXPECT_TRUE(JudgePromise(before, after, {}, touched).holds());
  EXPECT_LT(before.read, 40000u);

  const std::uint8_t byte = 0x5A;
  after.Write(image.BlockOffset(image.MappedBlock(2, 200)) + 9, &byte, 1);
  EXPECT_EQ(JudgePromise(before, after, {}, touched).losses, Paths{"/BIG"});
}

TEST(Promise, no_container_promises_nothing) {
  const MemoryImage nothing{Bytes(5000, 7)};
  const Promise promise = JudgePromise(nothing, nothing);
  EXPECT_EQ(promise.readable, 0u);
  EXPECT_TRUE(promise.holds());
  EXPECT_EQ(JudgePromise(MemoryImage(Promised().bytes()), nothing).lost(), 4u);
}

TEST(Promise, container_without_a_root_all_of_it_comes_back) {
  const Promise promise = JudgePromise(MemoryImage(Bytes(5000, 7)), MemoryImage(Promised().bytes()));
  EXPECT_EQ(promise.readable, 0u);
  EXPECT_EQ(promise.regained, 4u);
  EXPECT_EQ(ToText(promise), "keeps 0 of 0 readable files; 4 more come back\n");
}

// More names of one file than are looked at: on both sides a different directory comes first.
TEST(Promise, names_that_are_not_looked_at_are_not_taken_for_kept) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "A", 0u);
  for (const char* name : {"X", "Y"}) {
    const std::uint16_t directory = image.AddDirectory(1, name);
    for (int i = 0; i < 1000; ++i) image.AddEntry(directory, "N" + std::to_string(i), file);
  }
  const Promise promise = Judged(image, image);
  EXPECT_EQ(promise.kept + promise.lost(), promise.readable);
  EXPECT_GT(promise.lost(), 800u);
}

// A name more would go beyond 1,000 bytes; the first that did is the last.
TEST(Promise, path_of_a_loss_longer_than_a_thousand_bytes_is_cut) {
  ImageBuilder before(1024, 32);
  std::uint16_t directory = 1;
  for (int i = 0; i < 45; ++i) directory = before.AddDirectory(directory, std::string(24, 'D'));
  const ImageBuilder after = before;
  std::string path;
  for (int i = 0; i < 40; ++i) path += "/" + std::string(24, 'D');
  for (const std::size_t length : {24u, 25u}) {
    const std::string name(length, 'F');
    ImageBuilder image = before;
    image.AddFile(directory, name, 0u);
    EXPECT_EQ(Judged(image, after).losses, Paths{"..." + path.substr(length == 24 ? 0 : 25) + "/" + name});
  }
}

TEST(Promise, more_losses_than_are_listed_are_counted) {
  ImageBuilder before(1024, 32);
  for (int i = 0; i < 150; ++i) before.AddFile(1, "F" + std::to_string(i), 0u);
  const Promise promise = Judged(before, ImageBuilder(1024, 32));
  EXPECT_EQ(promise.lost(), 150u);
  EXPECT_EQ(promise.losses.size(), kMostLosses);
  EXPECT_NE(ToText(promise).find("would lose 50 more\n"), std::string::npos);
}

}  // namespace
}  // namespace orba::inspect
