// Searches: what patterns match, what a record says, and the table of 64 searches.
#include <cstddef>
#include <set>

#include "support.h"

namespace api {
namespace {

using Names = std::vector<std::string>;

class FindTest : public VolumeTest {
 protected:
  Outcome TryFind(const char* pattern) {
    Found found;
    return Ended(orb->findFirstFile(pattern, &found));
  }

  // What the form under test finds.
  Names FoundBy(const std::string& pattern) {
    Names names;
    Found found = {};
    const OrbHandle search = orb->findFirstFile(pattern.c_str(), &found);
    if (search == ORB_INVALID_HANDLE) {
      EXPECT_EQ(OrbGetLastError(), ORB_ERROR_NO_MORE_ENTRIES) << pattern;
      return names;
    }
    do names.push_back(found.name);
    while (orb->findNextFile(search, &found) != 0);
    EXPECT_EQ(OrbGetLastError(), ORB_ERROR_NO_MORE_ENTRIES) << pattern;
    EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
    return names;
  }
};

// ---- Patterns -------------------------------------------------------------------------------------------------------

TEST_P(FindTest, pattern_matches_by_the_rule) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  const Names all = {"A",      "AA",     "AB",  "ABC", "ACC", "BA", "A.TXT", "B.TXT", "A.B.TXT",
                     "XA.TXT", "README", "XYA", "A~1", "[X]", "A.", ".A",    "..."};
  for (const std::string& name : all) MakeFile("D/" + name);
  Names everything = {".", ".."};
  everything.insert(everything.end(), all.begin(), all.end());

  const struct {
    const char* pattern;
    Names expected;
  } cases[] = {
      {"*", everything},
      {"**", everything},
      {"*.*", {".", "..", "A.TXT", "B.TXT", "A.B.TXT", "XA.TXT", "A.", ".A", "..."}},
      {"A*", {"A", "AA", "AB", "ABC", "ACC", "A.TXT", "A.B.TXT", "A~1", "A."}},
      {"a*", {"A", "AA", "AB", "ABC", "ACC", "A.TXT", "A.B.TXT", "A~1", "A."}},
      {"*A", {"A", "BA", "XYA", ".A"}},  // not AA: the star stops at its first A
      {"*A*", {"A", "AA", "AB", "ABC", "ACC", "BA", "A.TXT", "A.B.TXT", "XA.TXT", "README", "XYA", "A~1", "A.", ".A"}},
      {"*.TXT", {"A.TXT", "B.TXT", "XA.TXT"}},  // not A.B.TXT
      {"*.txt", {"A.TXT", "B.TXT", "XA.TXT"}},
      {"*.*.TXT", {"A.B.TXT"}},
      {"x*.TXT", {"XA.TXT"}},
      {"A?", {"AA", "AB", "A."}},
      {"?", {".", "A"}},
      {"??", {"..", "AA", "AB", "BA", "A.", ".A"}},
      {"???", {"ABC", "ACC", "XYA", "A~1", "[X]", "..."}},
      {"?A", {"AA", "BA", ".A"}},
      {"?*", everything},
      {"*?", everything},
      {"??*",
       {"..", "AA", "AB", "ABC", "ACC", "BA", "A.TXT", "B.TXT", "A.B.TXT", "XA.TXT", "README", "XYA", "A~1", "[X]",
        "A.", ".A", "..."}},
      {"A?C", {"ABC", "ACC"}},
      {"A*C", {"ABC"}},  // not ACC
      {"A**C", {"ABC"}},
      {"*C*C", {"ACC"}},
      {"*E", {}},  // not README: the star stops at its first E
      {"R*E", {}},
      {"R*D*", {"README"}},
      {"README", {"README"}},
      {"readme", {"README"}},
      {"README?", {}},
      {"README*", {"README"}},
      {"[X]", {"[X]"}},
      {"[XYZ]", {}},
      {"A~?", {"A~1"}},
      {"...", {"..."}},
      {".*", {".", "..", ".A", "..."}},
      {"X", {}},
      {"A B", {}},
      {"A<", {}},
      {"*\\*", {}},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(FoundBy(std::string("D/") + each.pattern), each.expected) << each.pattern;
  }
}

TEST_P(FindTest, pattern_of_nothing_lists_all) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  MakeFile("D/F");
  for (const char* pattern : {"D/", "/D/", "VOL:/D//", "VOL:D/"}) {
    EXPECT_EQ(FoundBy(pattern), (Names{".", "..", "F"})) << pattern;
  }
  for (const char* pattern : {"/", "VOL:/", "VOL:", "//", ".", "..", "./", "D/..", "D/../"}) {
    EXPECT_EQ(FoundBy(pattern), (Names{".", "..", "D"})) << pattern;
  }
}

// Without the separator, the last part is a pattern: here one that names the directory itself.
TEST_P(FindTest, pattern_a_directorys_name_finds_the_directory) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(FoundBy("D"), (Names{"D"}));
  EXPECT_EQ(FoundBy("/D"), (Names{"D"}));
  EXPECT_EQ(FoundBy("D/."), (Names{"D"}));
}

TEST_P(FindTest, pattern_29_characters_is_accepted_30_refused) {
  MakeFile(std::string(29, 'N'));
  EXPECT_EQ(FoundBy(std::string(29, '?')), (Names{std::string(29, 'N')}));
  EXPECT_EQ(TryFind(std::string(30, '?').c_str()), Failed(ORB_ERROR_INVALID_NAME, ORB_INVALID_HANDLE));
  EXPECT_EQ(TryFind(std::string(30, '*').c_str()), Failed(ORB_ERROR_INVALID_NAME, ORB_INVALID_HANDLE));
}

// ---- Records --------------------------------------------------------------------------------------------------------

TEST_P(FindTest, record_of_a_file_says_all) {
  const std::string before = Now();
  EXPECT_EQ(Ended(orb->createFile("file.txt", ORB_ATTRIBUTE_USER)), Succeeded());
  const OrbHandle file = Open("FILE.TXT");
  WriteAt(file, 0, Pattern(1, 12345));
  Close(file);
  Found found;
  const OrbHandle search = orb->findFirstFile("F*", &found);
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(found.name, "FILE.TXT");
  EXPECT_EQ(found.attributes, 2u);
  EXPECT_EQ(found.size, 12345u);
  EXPECT_LE(before, found.time);
  EXPECT_LE(found.time, Now());
}

TEST_P(FindTest, record_of_directories_says_size_and_bit) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  MakeFile("D/F");
  Found found;
  const OrbHandle search = orb->findFirstFile("D/*", &found);
  EXPECT_EQ(found.name, ".");
  EXPECT_EQ(found.attributes, 8u);
  EXPECT_EQ(found.size, 96u);
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(found.name, "..");
  EXPECT_EQ(found.attributes, 0x000Eu);
  EXPECT_EQ(found.size, 96u);
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(FindTest, record_of_an_open_file_is_up_to_date) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  WriteAt(file, 0, Pattern(1, 77));
  EXPECT_EQ(SizeOf("F"), 77u);
  Close(file);
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_P(FindTest, nothing_matches_fails_no_more_entries_and_holds_nothing) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(TryFind("D/X*"), Failed(ORB_ERROR_NO_MORE_ENTRIES, ORB_INVALID_HANDLE));
  }
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

TEST_P(FindTest, directory_missing_fails_path_not_found) {
  EXPECT_EQ(TryFind("X/*"), Failed(ORB_ERROR_PATH_NOT_FOUND, ORB_INVALID_HANDLE));
  EXPECT_EQ(TryFind("X/"), Failed(ORB_ERROR_PATH_NOT_FOUND, ORB_INVALID_HANDLE));
  EXPECT_EQ(TryFind("X/Y/"), Failed(ORB_ERROR_PATH_NOT_FOUND, ORB_INVALID_HANDLE));
}

TEST_P(FindTest, directory_is_a_file_fails_with_the_reason) {
  MakeFile("F");
  EXPECT_EQ(TryFind("F/*"), Failed(ORB_ERROR_PATH_NOT_FOUND, ORB_INVALID_HANDLE));
  EXPECT_EQ(TryFind("F/"), Failed(ORB_ERROR_NOT_A_DIRECTORY, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->deleteFile("F")), Succeeded());
}

TEST_P(FindTest, volume_missing_fails_not_mounted) {
  EXPECT_EQ(TryFind("OTHER:*"), Failed(ORB_ERROR_NOT_MOUNTED, ORB_INVALID_HANDLE));
}

TEST_P(FindTest, directory_searched_already_fails_already_open) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  Found found;
  const OrbHandle search = orb->findFirstFile("D/*", &found);
  for (const char* pattern : {"D/*", "D/", "/D/X", "VOL:/D/*"}) {
    EXPECT_EQ(TryFind(pattern), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE)) << pattern;
  }
  const OrbHandle root = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(OrbFindClose(root)), Succeeded());
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(FoundBy("D/*"), (Names{".", ".."}));
}

TEST_P(FindTest, end_reached_stays_reached) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES));
  }
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(FindTest, end_reached_without_closing_keeps_the_directory_busy) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES));
  EXPECT_EQ(TryFind("*"), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(FindTest, handle_not_of_a_search_fails_invalid_handle) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  Found found = {};
  const OrbHandle search = orb->findFirstFile("*", &found);
  const OrbU32 slot = search & 0xFFFF;
  found.name = "as before";
  for (const OrbHandle bad : {0u, slot, file, 0x10000u | slot, 0x30000u | slot, 0x20040u, 0x2FFFFu, 0x120000u | slot,
                              0x20000u | ((slot + 1) % ORB_MAX_SEARCHES), 0xFFFFFFFFu}) {
    EXPECT_EQ(Ended(orb->findNextFile(bad, &found)), Failed(ORB_ERROR_INVALID_HANDLE)) << bad;
    EXPECT_EQ(Ended(OrbFindClose(bad)), Failed(ORB_ERROR_INVALID_HANDLE)) << bad;
  }
  EXPECT_EQ(found.name, "as before");
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(Ended(OrbFindClose(search)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_INVALID_HANDLE));
  Close(file);
}

// ---- A directory that changes under its search ----------------------------------------------------------------------

TEST_P(FindTest, name_added_during_a_search_is_found) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  MakeFile("F");
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(found.name, "F");
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(FindTest, name_added_after_the_end_is_found) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES));
  MakeFile("F");
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(found.name, "F");
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

// Each deletion moves the last name into the hole just passed, so that only every other pass sees all.
TEST_P(FindTest, names_deleted_during_a_search_are_skipped_not_repeated) {
  for (const char* name : {"A", "B", "C", "D"}) MakeFile(name);
  Found found;
  Names seen;
  const OrbHandle search = orb->findFirstFile("?", &found);
  while (orb->findNextFile(search, &found) != 0) {
    seen.push_back(found.name);
    EXPECT_EQ(Ended(orb->deleteFile(found.name.c_str())), Succeeded());
  }
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(seen, (Names{"A", "B"}));
  EXPECT_EQ(FoundBy("?"), (Names{".", "D", "C"}));
}

TEST_P(FindTest, directory_emptied_during_a_search_ends_it) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  for (int i = 0; i < 40; ++i) MakeFile("D/F" + std::to_string(i));
  Found found;
  const OrbHandle search = orb->findFirstFile("D/F39", &found);
  EXPECT_EQ(found.name, "F39");
  for (int i = 0; i < 40; ++i) EXPECT_EQ(Ended(orb->deleteFile(("D/F" + std::to_string(i)).c_str())), Succeeded());
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, FindTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- The table ------------------------------------------------------------------------------------------------------

class FindTableTest : public VolumeTest {
 protected:
  // 66 directories, of which 64 are being searched.
  void SetUp() override {
    VolumeTest::SetUp();
    for (OrbU32 i = 0; i < ORB_MAX_SEARCHES + 2; ++i) {
      EXPECT_EQ(Ended(orb->createDirectory(Name(i).c_str())), Succeeded());
    }
    for (OrbU32 i = 0; i < ORB_MAX_SEARCHES; ++i) searches_.push_back(Search(i));
  }

  void TearDown() override {
    for (const OrbHandle search : searches_) EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
    VolumeTest::TearDown();
  }

  static std::string Name(OrbU32 i) { return "D" + std::to_string(i); }

  OrbHandle Search(OrbU32 i) {
    Found found;
    return orb->findFirstFile((Name(i) + "/").c_str(), &found);
  }

  void CloseSearch(OrbU32 i) { EXPECT_EQ(Ended(OrbFindClose(searches_[i])), Succeeded()); }

  std::vector<OrbHandle> searches_;
};

TEST_P(FindTableTest, slots_are_taken_in_turn) {
  for (OrbU32 i = 0; i < ORB_MAX_SEARCHES; ++i) {
    EXPECT_EQ(searches_[i], 0x20000u | ((searches_[0] + i) % ORB_MAX_SEARCHES)) << i;
  }
}

TEST_P(FindTableTest, slots_all_taken_fails_too_many_searches) {
  EXPECT_EQ(Ended(Search(64)), Failed(ORB_ERROR_TOO_MANY_SEARCHES, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(Search(5)), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE));
}

TEST_P(FindTableTest, slots_keep_searches_apart) {
  Found found;
  for (const OrbHandle search : searches_) {
    EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
    EXPECT_EQ(found.name, "..");
  }
}

TEST_P(FindTableTest, slots_some_free_are_taken_from_the_cursor_on) {
  CloseSearch(40);
  CloseSearch(3);
  EXPECT_EQ(Search(64), searches_[3]);
  EXPECT_EQ(Search(65), searches_[40]);
  CloseSearch(39);
  CloseSearch(41);
  EXPECT_EQ(Search(39), searches_[41]);
  EXPECT_EQ(Search(41), searches_[39]);
}

// A search that finds nothing takes a slot and gives it back; the next one lands there.
TEST_P(FindTableTest, slot_of_a_search_that_found_nothing_is_free_again) {
  CloseSearch(10);
  Found found;
  EXPECT_EQ(Ended(orb->findFirstFile("D64/X", &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES, ORB_INVALID_HANDLE));
  EXPECT_EQ(Search(65), searches_[10]);
}

INSTANTIATE_TEST_SUITE_P(Forms, FindTableTest,
                         ::testing::Values(Variant{&kAnsiForm, kFirst}, Variant{&kWideForm, kMemory}), VariantName);

// ---- The callers' records, byte by byte -----------------------------------------------------------------------------

static_assert(sizeof(OrbTime) == 8 && sizeof(OrbFindDataA) == 48 && sizeof(OrbFindDataW) == 136, "callers know these");
static_assert(offsetof(OrbFindDataA, time) == 4 && offsetof(OrbFindDataA, size) == 12 &&
                  offsetof(OrbFindDataA, name) == 16,
              "callers know these");
static_assert(offsetof(OrbFindDataW, time) == 4 && offsetof(OrbFindDataW, size) == 12 &&
                  offsetof(OrbFindDataW, name) == 16,
              "callers know these");

class FindRecordTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
    MakeFile("F", Pattern(1, 0x1234));
    EXPECT_EQ(Ended(OrbSetFileAttributesA("F", 3)), Succeeded());
    Unmount("VOL");
    MakeOld(kFirst, 2);
    // The stamp's reserved byte is copied as it is stored.
    Patch(kFirst, Image(kFirst).Node(2) + 15, {0x77});
    Mount(kFirst, "VOL");
  }

  static Bytes ExpectedHead() { return {3, 0, 0, 0, 1999 & 0xFF, 1999 >> 8, 2, 3, 4, 5, 6, 0x77, 0x34, 0x12, 0, 0}; }
};

TEST_F(FindRecordTest, ansi_record_has_the_documented_bytes) {
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("F", &found);
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(&found);
  EXPECT_EQ(Bytes(bytes, bytes + 16), ExpectedHead());
  EXPECT_EQ(Bytes(bytes + 16, bytes + 18), (Bytes{'F', 0}));
}

TEST_F(FindRecordTest, wide_record_has_the_documented_bytes) {
  OrbFindDataW found;
  const OrbHandle search = OrbFindFirstFileW(Wide("F").c_str(), &found);
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(&found);
  EXPECT_EQ(Bytes(bytes, bytes + 16), ExpectedHead());
  EXPECT_EQ(Bytes(bytes + 16, bytes + 20), (Bytes{'F', 0, 0, 0}));
}

// An entry of number 0 ends a listing, whatever lies behind it.
TEST_F(FindRecordTest, entry_of_number_0_ends_the_listing) {
  MakeFile("G");
  MakeFile("H");
  Unmount("VOL");
  PatchU16(kFirst, Image(kFirst).Block(2) + 32 * 3, 0);
  Mount(kFirst, "VOL");
  EXPECT_EQ(List("*"), (Names{".", "..", "F"}));
  EXPECT_EQ(Ended(OrbGetFileAttributesA("H")), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

// ---- Large directories ----------------------------------------------------------------------------------------------

struct DirectorySizes {
  OrbU32 blockSize;
  const char* container;
};

class LargeDirectoryTest : public ApiTest, public ::testing::WithParamInterface<DirectorySizes> {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    perBlock_ = GetParam().blockSize / 32;
    FormatAndMount(GetParam().container, 64, GetParam().blockSize, "VOL");
    EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
  }

  static std::string Name(OrbU32 i) { return "F" + std::to_string(i); }

  void MakeFiles(OrbU32 count) {
    for (OrbU32 i = 0; i < count; ++i) MakeFile("D/" + Name(i));
  }

  OrbU32 perBlock_ = 0;
};

TEST_P(LargeDirectoryTest, names_over_a_block_border_are_all_there) {
  const OrbU32 count = perBlock_ + 3;
  MakeFiles(count);
  EXPECT_EQ(SizeOf("D"), 32 * (count + 2));
  Names expected = {".", ".."};
  for (OrbU32 i = 0; i < count; ++i) expected.push_back(Name(i));
  EXPECT_EQ(List("D/*"), expected);
  for (OrbU32 i = 0; i < count; ++i) {
    EXPECT_EQ(Ended(OrbGetFileAttributesA(("D/" + Name(i)).c_str())), Succeeded(0)) << i;
  }
  EXPECT_EQ(Ended(OrbCreateFileA(("D/" + Name(0)).c_str(), 0)), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(OrbCreateFileA(("D/" + Name(count - 1)).c_str(), 0)), Failed(ORB_ERROR_FILE_EXISTS));
}

TEST_P(LargeDirectoryTest, names_deleted_from_the_front_keep_the_rest) {
  const OrbU32 count = perBlock_ + 10;
  MakeFiles(count);
  std::set<std::string> left;
  for (OrbU32 i = 0; i < count; ++i) left.insert(Name(i));
  for (OrbU32 i = 0; i < count; ++i) {
    EXPECT_EQ(Ended(OrbDeleteFileA(("D/" + Name(i)).c_str())), Succeeded()) << i;
    left.erase(Name(i));
    const Names names = List("D/F*");
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), left);
    EXPECT_EQ(names.size(), left.size());
    EXPECT_EQ(SizeOf("D"), 32 * (2 + left.size()));
  }
  EXPECT_EQ(Ended(OrbDeleteFileA("D")), Succeeded());
}

TEST_P(LargeDirectoryTest, names_renamed_in_the_second_block_are_found) {
  const OrbU32 count = perBlock_ + 3;
  MakeFiles(count);
  EXPECT_EQ(Ended(OrbRenameFileA(("D/" + Name(count - 2)).c_str(), "X")), Succeeded());
  EXPECT_EQ(Ended(OrbMoveFileA(("D/" + Name(count - 1)).c_str(), "/Y")), Succeeded());
  const Names names = List("D/*");
  EXPECT_EQ(names.back(), "X");
  EXPECT_EQ(names.size(), count + 1);
}

INSTANTIATE_TEST_SUITE_P(Volumes, LargeDirectoryTest,
                         ::testing::Values(DirectorySizes{1024, kFirst}, DirectorySizes{2048, kFirst},
                                           DirectorySizes{1024, kMemory}, DirectorySizes{4096, kMemory},
                                           DirectorySizes{8192, kMemory}),
                         [](const auto& sizes) {
                           return std::to_string(sizes.param.blockSize) +
                                  (sizes.param.container == kMemory ? "InMemory" : "OnHost");
                         });

// 32 entries to a block of 1024 bytes: the 31st name takes a second block, and its deletion gives that back.
TEST_F(ApiTest, directory_31st_name_takes_and_gives_back_a_block) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
  for (int i = 0; i < 30; ++i) MakeFile("D/F" + std::to_string(i));
  const Image full = Look(kFirst, "VOL");
  EXPECT_EQ(full.NodeSize(2), 1024u);
  EXPECT_EQ(full.Direct(2, 1), 0u);
  MakeFile("D/LAST");
  const Image grown = Look(kFirst, "VOL");
  EXPECT_EQ(grown.NodeSize(2), 1056u);
  EXPECT_EQ(grown.Blocks(), full.Blocks() + 2);  // one more for node 33
  EXPECT_EQ(grown.U16(grown.Block(grown.Direct(2, 1))), 33u);
  EXPECT_TRUE(grown.All(grown.Block(grown.Direct(2, 1)) + 32, 992, 0));
  EXPECT_EQ(Ended(OrbDeleteFileA("D/LAST")), Succeeded());
  const Image shrunk = Look(kFirst, "VOL");
  EXPECT_EQ(shrunk.NodeSize(2), 1024u);
  EXPECT_EQ(shrunk.Direct(2, 1), 0u);
  EXPECT_EQ(shrunk.FreeBlocks(), 2u);  // both again
}

// Six blocks of 32 entries, then the block map.
TEST_F(ApiTest, directory_beyond_six_blocks_uses_the_map) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
  Names expected = {".", ".."};
  for (int i = 0; i < 230; ++i) {
    MakeFile("D/F" + std::to_string(i));
    expected.push_back("F" + std::to_string(i));
  }
  EXPECT_EQ(List("D/*"), expected);
  const Image image = Look(kFirst, "VOL");
  const OrbU32 map = image.U32(image.Node(2) + 56);
  EXPECT_NE(map, 0u);
  EXPECT_NE(image.U32(image.Block(map) + 4), 0u);
  EXPECT_EQ(image.U32(image.Block(map) + 8), 0u);
  for (int i = 0; i < 230; ++i) EXPECT_EQ(Ended(OrbDeleteFileA(("D/F" + std::to_string(i)).c_str())), Succeeded()) << i;
  EXPECT_EQ(List("D/*"), (Names{".", ".."}));
  EXPECT_EQ(Ended(OrbDeleteFileA("D")), Succeeded());
}

}  // namespace
}  // namespace api
