#include "operations/attributes.h"

#include <string.h>

#include "namespace/path.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostAccessDenied;
using coredll::kHostDiskFull;
using coredll::kHostNotReady;

// F is node 2, a file with attributes 0; D is node 3, a directory.
class Attributes : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    MakeFile("F", Pattern(10));
    MakeDirectory("D");
  }

  static std::string Set(const char* path, int32_t attributes) {
    return Outcome(OrbSetFileAttributesA(path, attributes));
  }

  // The attribute word in decimal, or the outcome of a call that returned 0xFFFF.
  static std::string Get(const char* path) {
    const OrbU32 attributes = OrbGetFileAttributesA(path);
    return attributes == 0xFFFF && GetError() != 0 ? Outcome(false) : std::to_string(attributes);
  }
};

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(Attributes, get_returns_the_word_of_files_and_directories) {
  EXPECT_EQ(Get("F"), "0");
  EXPECT_EQ(Get("d"), "8");
  EXPECT_EQ(Get("/"), "14");
  EXPECT_EQ(Get("D/.."), "14");
  EXPECT_EQ(Get("F/"), "0");
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Attributes, get_reads_the_directory_and_the_node) {
  testhost::ClearTrace();
  EXPECT_EQ(Get("F"), "0");
  EXPECT_EQ(Calls(), "read block 2 / read node 2");
}

TEST_F(Attributes, get_of_an_open_file_works) {
  const OrbHandle file = Open("F");
  EXPECT_EQ(Get("F"), "0");
  EXPECT_EQ(OrbCloseFile(file), 1);
}

TEST_F(Attributes, get_that_fails_returns_ffff_with_the_code) {  // Q2
  EXPECT_EQ(OrbGetFileAttributesA("X"), 0xFFFFu);
  EXPECT_EQ(Get("X"), "FILE_NOT_FOUND");
  EXPECT_EQ(Get("X/Y"), "PATH_NOT_FOUND");
  EXPECT_EQ(Get(""), "PATH_NOT_FOUND");
  EXPECT_EQ(Get("B:/X"), "NOT_MOUNTED");
  testhost::FailNthCall(Call::kReadFile, 2, kHostNotReady);
  EXPECT_EQ(Get("F"), "NOT_READY");
  EXPECT_EQ(NodesListed(), 1u);
}

// ---- Setting --------------------------------------------------------------------------------------------------------

TEST_F(Attributes, set_replaces_the_word_and_stamps_nothing) {
  const OrbNodeRecord before = Stored(2);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 6});
  testhost::ClearTrace();
  EXPECT_EQ(Set("F", 3), "");
  EXPECT_EQ(Calls(), "read block 2 / read node 2 / mark / write node 2 / clear");
  OrbNodeRecord expected = before;
  expected.attributes = 3;
  const OrbNodeRecord after = Stored(2);
  EXPECT_EQ(memcmp(&after, &expected, sizeof after), 0);
  EXPECT_EQ(Set("F", 0), "");
  EXPECT_EQ(Get("F"), "0");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Attributes, set_to_the_value_it_has_stores_nothing) {  // Q11
  testhost::ClearTrace();
  EXPECT_EQ(Set("F", 0), "");
  EXPECT_EQ(Writes(), "");
}

TEST_F(Attributes, set_to_the_value_it_has_still_commits) {
  volume_->header.stateFlags = kVolumeDirty;
  testhost::ClearTrace();
  EXPECT_EQ(Set("F", 0), "");
  EXPECT_EQ(Writes(), "clear");
  volume_->failed = 1;
  EXPECT_EQ(Set("F", 0), "WRITE");
}

TEST_F(Attributes, set_refuses_every_other_bit_before_it_looks_at_the_path) {
  testhost::ClearTrace();
  for (uint32_t bit = 0; bit < 32; ++bit) {
    const int32_t attributes = static_cast<int32_t>(1u << bit);
    if (bit < 2) continue;
    EXPECT_EQ(Set("F", attributes), "INVALID_ARGUMENT") << bit;
    EXPECT_EQ(Set("NONE", attributes), "INVALID_ARGUMENT") << bit;
    EXPECT_EQ(Set("", attributes), "INVALID_ARGUMENT") << bit;
  }
  EXPECT_EQ(Set("F", 4), "INVALID_ARGUMENT");
  EXPECT_EQ(Set("F", -1), "INVALID_ARGUMENT");
  EXPECT_EQ(Set("D", 8), "INVALID_ARGUMENT");
  EXPECT_EQ(Calls(), "");
}

TEST_F(Attributes, set_table_of_bad_paths_gives_each_its_code) {
  testhost::ClearTrace();
  EXPECT_EQ(Set("X", 1), "FILE_NOT_FOUND");
  EXPECT_EQ(Set("X/Y", 1), "PATH_NOT_FOUND");
  EXPECT_EQ(Set("D", 1), "WRONG_KIND");
  EXPECT_EQ(Set("D", 0), "WRONG_KIND");
  EXPECT_EQ(Set("/", 0), "WRONG_KIND");
  EXPECT_EQ(Set("B:/F", 0), "NOT_MOUNTED");
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Attributes, set_that_fails_early_does_not_commit) {
  volume_->header.stateFlags = kVolumeDirty;
  const OrbHandle file = Open("F");
  volume_->header.stateFlags = kVolumeDirty;
  testhost::ClearTrace();
  EXPECT_EQ(Set("F", 1), "IN_USE");
  EXPECT_EQ(Set("D", 1), "WRONG_KIND");
  EXPECT_EQ(Set("X", 1), "FILE_NOT_FOUND");
  EXPECT_EQ(Set("F", 4), "INVALID_ARGUMENT");
  EXPECT_EQ(Writes(), "");
  volume_->header.stateFlags = 0;
  EXPECT_EQ(OrbCloseFile(file), 1);
}

TEST_F(Attributes, set_of_an_open_file_is_in_use_unless_nothing_changes) {
  const OrbHandle file = Open("F");
  EXPECT_EQ(Set("F", 1), "IN_USE");
  EXPECT_EQ(Get("F"), "0");
  EXPECT_EQ(Set("F", 0), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
  EXPECT_EQ(Set("F", 1), "");
}

TEST_F(Attributes, set_read_only_forbids_writing_and_allows_reading_and_deleting) {
  EXPECT_EQ(Set("F", 1), "");
  EXPECT_EQ(OrbOpenFileA("F", ORB_OPEN_WRITE), ORB_INVALID_HANDLE);
  EXPECT_EQ(GetError(), ORB_ERROR_ACCESS_DENIED);
  EXPECT_EQ(Contents("F"), Pattern(10));
  EXPECT_EQ(Outcome(OrbDeleteFileA("F")), "");
}

TEST_F(Attributes, set_with_every_call_failing) {
  const Operation setting = {nullptr, [] { return OrbSetFileAttributesA("F", 1) != 0; }, nullptr};
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, setting),
            (Lines{"mark: WRITE", "write node 2: DISK_FULL", "clear: DISK_FULL, marked"}));
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, setting),
            (Lines{"mark: WRITE", "write node 2: WRITE, marked", "clear: ACCESS_DENIED, marked"}));
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, setting),
            (Lines{"read block 2: NOT_READY", "read node 2: NOT_READY"}));
  EXPECT_EQ(FailEachAllocation(setting), (Lines{"OUT_OF_MEMORY", "OUT_OF_MEMORY"}));
}

}  // namespace
}  // namespace orba
