#include "operations/mount.h"

#include <string.h>

#include <initializer_list>

#include "namespace/current_directory.h"
#include "nodes/node.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class Mounting : public LibraryTest {
 protected:
  // The fresh container "VOL" with a free-chain record in block 3 that lists nothing.
  static void FormatWithChain() {
    Format();
    Bytes image = FileBytes(u"VOL");
    const Bytes signature = {'F', 'B', 'C', '1'};
    testhost::PatchFile(u"VOL", 48, Word(3));
    testhost::PatchFile(u"VOL", image.size(), signature);
    testhost::ResizeFile(u"VOL", image.size() + 1024);
  }

  static void ExpectNothingLeft() {
    EXPECT_EQ(g_VolumeListHead.next, nullptr);
    EXPECT_EQ(g_pCurrentDir, nullptr);
    EXPECT_EQ(NodesListed(), 0u);
    EXPECT_EQ(testhost::OpenHandles(), 0u);
    EXPECT_EQ(testhost::AllocationsHeld(), 0u);
  }
};

// ---- What is read ---------------------------------------------------------------------------------------------------

TEST_F(Mounting, header_tables_and_root_are_read_and_nothing_is_written) {
  Format();
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(TraceText(),
            "open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / seek 1024 / read 1024 16 / seek 1040 / "
            "read 1040 64");
}

TEST_F(Mounting, head_of_the_free_chain_is_read_before_the_root) {
  FormatWithChain();
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(TraceText(),
            "open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / seek 1024 / read 1024 16 / seek 3088 / "
            "read 3088 1024 / seek 1040 / read 1040 64");
}

TEST_F(Mounting, empty_bitmap_is_a_read_of_nothing) {
  Format(0, 1024);
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(TraceText(),
            "open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / seek 1024 / read 1024 0 / seek 1024 / "
            "read 1024 64");
}

TEST_F(Mounting, volume_without_a_bitmap_holds_the_root_alone) {
  FormatAndMount(0, 1024);
  EXPECT_EQ(OrbGetFileAttributesA("/"), 0x000Eu);
  EXPECT_EQ(OrbCreateFileA("F", 0), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_FREE_NODE);
}

TEST_F(Mounting, record_holds_what_was_read) {  // V2
  FormatWithChain();
  const Bytes image = FileBytes(u"VOL");
  const Volume* const volume = Mount();
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(0, memcmp(&volume->header, image.data(), 128));
  EXPECT_EQ(0, memcmp(volume->nodeTable, &image[128], 896));
  EXPECT_EQ(0, memcmp(volume->bitmap, &image[1024], 16));
  EXPECT_EQ(0, memcmp(volume->freeChain, &image[3088], 1024));
  EXPECT_EQ(volume->failed, 0u);
  EXPECT_EQ(volume->next, nullptr);
  EXPECT_EQ(volume->nodesPerBlock, 16u);
  EXPECT_EQ(volume->entriesPerBlock, 32u);
  EXPECT_EQ(volume->wordsPerBlock, 256u);
  EXPECT_EQ(volume->chainCapacity, 253u);
  EXPECT_STREQ(volume->name, "A");
  EXPECT_EQ(volume->root->record.number, 1);
  EXPECT_EQ(volume->root->record.attributes, 0x000E);
}

TEST_F(Mounting, data_area_behind_a_reserved_region_is_found) {
  Format();
  const Bytes image = FileBytes(u"VOL");
  testhost::PatchFile(u"VOL", 32, Word(100));
  testhost::PatchFile(u"VOL", 36, Word(1140));
  testhost::PatchFile(u"VOL", 1140, Bytes(image.begin() + 1040, image.end()));
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(Outcome(OrbCreateFileA("F", 0)), "");
  EXPECT_EQ(OrbGetFileAttributesA("F"), 0u);
}

// ---- What it costs --------------------------------------------------------------------------------------------------

TEST_F(Mounting, memory_is_the_record_the_tables_and_the_root) {
  for (const uint32_t size : {1024u, 8192u}) {
    Format(16, size);
    ASSERT_NE(Mount(), nullptr);
    EXPECT_EQ(testhost::BytesHeld(), sizeof(Volume) + 896 + 16 + sizeof(OrbNode)) << size;
    EXPECT_EQ(testhost::AllocationsHeld(), 4u);
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    testhost::RemoveFile(u"VOL");
  }
}

TEST_F(Mounting, free_chain_costs_one_block_however_long_it_is) {  // F1
  FormatWithChain();
  testhost::ResizeFile(u"VOL", testhost::FileSize(u"VOL") + 1024);
  testhost::PatchFile(u"VOL", 3088 + 4, Word(4));  // next
  testhost::PatchFile(u"VOL", 3088 + 1024, Bytes{'F', 'B', 'C', '1'});
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(testhost::BytesHeld(), sizeof(Volume) + 896 + 16 + sizeof(OrbNode) + 1024);
}

TEST_F(Mounting, memory_does_not_grow_with_the_volume) {
  FormatAndMount(896, 1024);
  const size_t empty = testhost::BytesHeld();
  for (int i = 0; i < 60; ++i) ASSERT_EQ(OrbCreateFileA(("F" + std::to_string(i)).c_str(), 0), 1);
  EXPECT_EQ(testhost::BytesHeld(), empty);
}

// ---- Names ----------------------------------------------------------------------------------------------------------

TEST_F(Mounting, name_is_stored_in_upper_case) {
  Format();
  Volume* const volume = Mount(u"VOL", u"data-1a");
  ASSERT_NE(volume, nullptr);
  EXPECT_STREQ(volume->name, "DATA-1A");
}

TEST_F(Mounting, every_legal_character_is_accepted) {
  Format();
  for (const char c : std::string("abcxyzABCXYZ0123456789!#$%&'()-^~@{}[]_.")) {
    const std::u16string name(1, static_cast<char16_t>(c));
    EXPECT_NE(Mount(u"VOL", name.c_str()), nullptr) << c;
    EXPECT_EQ(OrbUnmountVolumeA(std::string(1, c).c_str()), 1) << c;
  }
}

TEST_F(Mounting, every_other_character_is_refused) {
  const std::string legal = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!#$%&'()-^~@{}[]_.";
  for (int c = 1; c < 256; ++c) {
    if (legal.find(static_cast<char>(c)) != std::string::npos) continue;
    const char name[] = {'A', static_cast<char>(c), '\0'};
    EXPECT_FALSE(MountVolume(u"VOL", name)) << c;
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME) << c;
  }
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Mounting, name_of_29_characters_is_accepted_and_of_30_refused) {
  Format();
  EXPECT_EQ(Outcome(OrbMountVolume(u"VOL", u"ABCDEFGHIJKLMNOPQRSTUVWXYZ123")), "");
  EXPECT_STREQ(g_VolumeListHead.next->name, "ABCDEFGHIJKLMNOPQRSTUVWXYZ123");
  EXPECT_EQ(OrbMountVolume(u"VOL", u"ABCDEFGHIJKLMNOPQRSTUVWXYZ1234"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
}

TEST_F(Mounting, empty_name_or_one_with_space_slash_or_colon_is_refused) {
  Format();
  for (const char16_t* name : {u"", u"A B", u"A/B", u"A:", u" "}) {
    EXPECT_EQ(OrbMountVolume(u"VOL", name), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
  }
  EXPECT_EQ(TraceText(), "");
}

TEST_F(Mounting, name_that_is_mounted_is_refused_in_any_letter_case_before_the_container_is_opened) {  // V1
  FormatAndMount();
  Format(16, 1024, u"OTHER");
  EXPECT_EQ(OrbMountVolume(u"OTHER", u"a"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_ALREADY_MOUNTED);
  EXPECT_EQ(TraceText(), "");
}

TEST_F(Mounting, bad_name_is_noticed_before_a_missing_container) {
  EXPECT_EQ(OrbMountVolume(u"NONE", u"A B"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
}

TEST_F(Mounting, missing_container_is_file_not_found) {
  EXPECT_EQ(OrbMountVolume(u"NONE", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  ExpectNothingLeft();
}

TEST_F(Mounting, container_that_is_mounted_is_in_use) {
  FormatAndMount();
  EXPECT_EQ(OrbMountVolume(u"VOL", u"B"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_CONTAINER_IN_USE);
}

TEST_F(Mounting, error_is_cleared_first) {
  Format();
  _OrbSetError(0x12345678);
  EXPECT_EQ(Outcome(OrbMountVolume(u"VOL", u"A")), "");
}

// ---- The list and the current directory -----------------------------------------------------------------------------

TEST_F(Mounting, newest_volume_heads_the_list) {  // V1
  for (const char16_t* name : {u"A", u"B", u"C"}) {
    Format(16, 1024, name);
    ASSERT_NE(Mount(name, name), nullptr);
  }
  const Volume* const c = g_VolumeListHead.next;
  EXPECT_STREQ(c->name, "C");
  EXPECT_STREQ(c->next->name, "B");
  EXPECT_STREQ(c->next->next->name, "A");
  EXPECT_EQ(c->next->next->next, nullptr);
}

TEST_F(Mounting, first_volume_becomes_the_current_one_and_later_ones_do_not) {
  Volume* const first = FormatAndMount();
  EXPECT_EQ(g_pCurrentDir, first->root);
  EXPECT_EQ(first->root->references, 2u);
  Format(16, 1024, u"OTHER");
  Volume* const second = Mount(u"OTHER", u"B");
  EXPECT_EQ(g_pCurrentDir, first->root);
  EXPECT_EQ(second->root->references, 1u);
}

TEST_F(Mounting, first_volume_after_all_were_unmounted_becomes_the_current_one) {
  FormatAndMount();
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  Volume* const volume = Mount(u"VOL", u"B");
  EXPECT_EQ(g_pCurrentDir, volume->root);
}

// ---- Information ----------------------------------------------------------------------------------------------------

TEST_F(Mounting, info_tells_the_sizes_without_touching_the_container) {
  ASSERT_EQ(OrbCreateVolume(u"VOL"), 1);
  ASSERT_NE(Mount(u"VOL", u"DATA"), nullptr);
  testhost::ClearTrace();
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(Outcome(OrbGetVolumeInfoA("data", &bitmapBytes, &blockSize)), "");
  EXPECT_EQ(bitmapBytes, 1024u);
  EXPECT_EQ(blockSize, 4096u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Mounting, info_fills_the_pointers_it_is_given) {
  FormatAndMount();
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(Outcome(OrbGetVolumeInfoA("A", nullptr, &blockSize)), "");
  EXPECT_EQ(Outcome(OrbGetVolumeInfoA("A", &bitmapBytes, nullptr)), "");
  EXPECT_EQ(Outcome(OrbGetVolumeInfoA("A", nullptr, nullptr)), "");
  EXPECT_EQ(bitmapBytes, 16u);
  EXPECT_EQ(blockSize, 1024u);
}

TEST_F(Mounting, info_of_an_unknown_name_fails_and_leaves_the_results) {
  FormatAndMount();
  OrbU32 bitmapBytes = 77;
  OrbU32 blockSize = 77;
  for (const char* name : {"B", "", "AA", "A B", "A:", "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMNOPQRSTUVWXYZ"}) {
    EXPECT_EQ(OrbGetVolumeInfoA(name, &bitmapBytes, &blockSize), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
  }
  EXPECT_EQ(bitmapBytes, 77u);
  EXPECT_EQ(blockSize, 77u);
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_F(Mounting, failing_call_ends_it_with_the_calls_code_and_leaves_nothing) {
  FormatWithChain();
  const Bytes image = FileBytes(u"VOL");
  const struct {
    const char* call;
    uint32_t notReady, badHandle, unknown;
  } calls[] = {
      {"name conversion", ORB_ERROR_INVALID_ARGUMENT, ORB_ERROR_INVALID_ARGUMENT, ORB_ERROR_INVALID_ARGUMENT},
      {"open", ORB_ERROR_NOT_READY, ORB_ERROR_CANNOT_OPEN, ORB_ERROR_CANNOT_OPEN},
      {"seek to the header", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"header", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"seek to the table", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"table", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"seek to the bitmap", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"bitmap", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"seek to the chain", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"chain", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"seek to the root", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
      {"root", ORB_ERROR_NOT_READY, ORB_ERROR_DAMAGED_RECORD, ORB_ERROR_READ},
  };
  uint32_t n = 0;
  for (const auto& expected : calls) {
    SCOPED_TRACE(expected.call);
    ++n;
    const struct {
      uint32_t host, code;
    } failures[] = {{coredll::kHostNotReady, expected.notReady},
                    {coredll::kHostInvalidHandle, expected.badHandle},
                    {9999, expected.unknown}};
    for (const auto& failure : failures) {
      FailNthCall(n, failure.host);
      EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
      EXPECT_EQ(testhost::FaultsFired(), 1u);
      EXPECT_EQ(GetError(), failure.code);
      ExpectNothingLeft();
      testhost::ClearFaults();
    }
  }
  testhost::ClearTrace();
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(testhost::CallCount(), n);  // these were all
  EXPECT_EQ(FileBytes(u"VOL"), image);
}

TEST_F(Mounting, container_that_the_host_does_not_open_reports_why_and_leaves_nothing) {
  Format();
  const struct {
    uint32_t host, code;
  } rows[] = {{2, ORB_ERROR_FILE_NOT_FOUND},   {3, ORB_ERROR_PATH_NOT_FOUND}, {4, ORB_ERROR_TOO_MANY_OPEN_FILES},
              {5, ORB_ERROR_ACCESS_DENIED},    {8, ORB_ERROR_OUT_OF_MEMORY},  {14, ORB_ERROR_OUT_OF_MEMORY},
              {19, ORB_ERROR_WRITE_PROTECTED}, {21, ORB_ERROR_NOT_READY},     {32, ORB_ERROR_CONTAINER_IN_USE},
              {123, ORB_ERROR_INVALID_NAME},   {6, ORB_ERROR_CANNOT_OPEN},    {80, ORB_ERROR_CANNOT_OPEN},
              {87, ORB_ERROR_CANNOT_OPEN},     {112, ORB_ERROR_CANNOT_OPEN},  {1235, ORB_ERROR_ABORTED},
              {9999, ORB_ERROR_CANNOT_OPEN}};
  for (const auto& row : rows) {
    testhost::ClearTrace();
    FailNthCall(Call::kCreateFile, 1, row.host);
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << row.host;
    EXPECT_EQ(GetError(), row.code) << row.host;
    EXPECT_EQ(TraceText(), "open VOL !" + std::to_string(row.host));
    ExpectNothingLeft();
  }
}

TEST_F(Mounting, failing_allocation_ends_it_with_out_of_memory_and_leaves_nothing) {
  FormatWithChain();
  const char* const calls[] = {
      "",  // the name
      "",  // the record
      "open VOL / seek 0 / read 0 128 / close",
      "open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / close",
      "open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / seek 1024 / read 1024 16 / close",
      ("open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / seek 1024 / read 1024 16 / seek 3088 / "
       "read 3088 1024 / close"),
  };
  uint32_t n = 0;
  for (const char* expected : calls) {
    testhost::ClearTrace();
    FailNthAllocation(++n);
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << n;
    EXPECT_EQ(testhost::AllocationFaultsFired(), 1u) << n;
    EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY) << n;
    EXPECT_EQ(TraceText(), expected) << n;
    ExpectNothingLeft();
  }
  const uint32_t before = testhost::AllocationCalls();
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(testhost::AllocationCalls() - before, n);  // these were all
}

TEST_F(Mounting, container_that_ends_too_early_is_damaged) {
  Format();
  for (const uint64_t size : std::initializer_list<uint64_t>{0, 1, 127, 128, 1023, 1024, 1039, 1040, 1103}) {
    testhost::ResizeFile(u"VOL", size);
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << size;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME) << size;
    ExpectNothingLeft();
    testhost::RemoveFile(u"VOL");
    Format();
  }
  testhost::ResizeFile(u"VOL", 1104);  // the root's record is all that is read of the blocks
  EXPECT_EQ(Outcome(OrbMountVolume(u"VOL", u"A")), "");
}

TEST_F(Mounting, short_read_by_the_host_is_damage) {
  Format();
  for (uint32_t n = 1; n <= 4; ++n) {
    testhost::ShortenNthRead(n, 5);
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << n;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME) << n;
    ExpectNothingLeft();
  }
}

TEST_F(Mounting, root_without_a_node_block_is_damage) {
  Format();
  testhost::PatchFile(u"VOL", 128, Word(0));
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  ExpectNothingLeft();
}

TEST_F(Mounting, root_in_a_block_out_of_reach_fails_at_the_host) {
  Format();
  for (const uint32_t block : {0xFFFFFFFFu, 0x00400000u, 0x00200001u}) {
    testhost::PatchFile(u"VOL", 128, Word(block));
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << block;
    EXPECT_EQ(GetError(), ORB_ERROR_READ) << block;
    ExpectNothingLeft();
  }
}

TEST_F(Mounting, root_that_is_no_directory_is_damage) {
  Format();
  testhost::PatchFile(u"VOL", 1040 + 6, Bytes{0x06, 0x00});
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  ExpectNothingLeft();
}

TEST_F(Mounting, broken_head_of_the_free_chain_is_damage) {
  const struct {
    const char* what;
    uint32_t offset, value, code;
  } faults[] = {{"signature", 0, 0x31434247, ORB_ERROR_DAMAGED_RECORD},
                {"count above the capacity", 8, 254, ORB_ERROR_DAMAGED_RECORD},
                {"count with the top bit set", 8, 0x80000000, ORB_ERROR_DAMAGED_RECORD},
                {"zero entry", 8, 1, ORB_ERROR_DAMAGED_RECORD}};
  for (const auto& fault : faults) {
    FormatWithChain();
    testhost::PatchFile(u"VOL", 3088 + fault.offset, Word(fault.value));
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << fault.what;
    EXPECT_EQ(GetError(), fault.code) << fault.what;
    ExpectNothingLeft();
    testhost::RemoveFile(u"VOL");
  }
}

TEST_F(Mounting, head_of_the_free_chain_past_the_end_is_damage) {
  Format();
  testhost::PatchFile(u"VOL", 48, Word(3));
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  ExpectNothingLeft();
}

TEST_F(Mounting, container_that_was_not_left_clean_does_not_mount) {
  FormatAndMount();
  FailNthCall(Call::kWriteFile, 3, coredll::kHostNotReady);
  ASSERT_EQ(OrbCreateFileA("F", 0), 0);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_CLEAN);
}

TEST_F(Mounting, failed_close_after_a_failed_mount_is_the_later_code) {
  Format();
  testhost::PatchFile(u"VOL", 4, Bytes{'2'});
  FailNthCall(Call::kCloseHandle, 1, coredll::kHostNotReady);
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  ExpectNothingLeft();
}

TEST_F(Mounting, failed_mount_leaves_other_volumes_and_the_current_directory_alone) {
  Volume* const volume = FormatAndMount();
  Format(16, 1024, u"OTHER");
  FailNthCall(Call::kReadFile, 4, coredll::kHostNotReady);
  EXPECT_EQ(OrbMountVolume(u"OTHER", u"B"), 0);
  EXPECT_EQ(g_VolumeListHead.next, volume);
  EXPECT_EQ(g_pCurrentDir, volume->root);
  EXPECT_EQ(volume->root->references, 2u);
}

}  // namespace
}  // namespace orba
