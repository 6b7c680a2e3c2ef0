#include "namespace/path.h"

#include <functional>

#include "namespace/current_directory.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;

// Volume "A", mounted first, and "B", mounted last:
//   A:/D (node 2) / E (3) / F (4), a file;  A:/G (5), a file
//   B:/D (node 2)
// The current directory is A's root.
class Path : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    MakeDirectory("D");
    MakeDirectory("D/E");
    MakeFile("D/E/F");
    MakeFile("G");
    Format(16, 2048, u"OTHER");
    other_ = Mount(u"OTHER", u"B");
    ASSERT_NE(other_, nullptr);
    MakeDirectory("B:/D");
    listed_ = NodesListed();
  }

  void SetCurrent(const char* path) {
    ASSERT_EQ(OrbSetCurrentDirectoryA(path), 1) << path;
    testhost::ClearTrace();
  }

  // "A 1 NAME" for a walk that succeeds: the directory's volume and number and the final name; else the code. Whatever
  // the walk does, no reference but the one it returns may be left.
  std::string Walk(const char* path) {
    const uint32_t listed = NodesListed();
    const uint32_t references = References();
    char name[kNameSize] = "before";
    ClearError();
    OrbNode* const directory = OrbWalkPath(name, path);
    if (directory == nullptr) {
      EXPECT_STREQ(name, "") << path;
      EXPECT_EQ(References(), references) << path;
      return Outcome(false);
    }
    EXPECT_EQ(GetError(), 0u) << path;
    EXPECT_EQ(References(), references + 1) << path;
    const std::string text =
        std::string(directory->volume->name) + " " + std::to_string(directory->record.number) + " " + name;
    OrbNodeRelease(directory);
    EXPECT_EQ(NodesListed(), listed) << path;
    return text;
  }

  // "A 1" for a path that resolves, "missing" where only the last name is not there, else the code.
  std::string Resolve(const char* path) {
    const uint32_t references = References();
    ClearError();
    OrbNode* const node = OrbResolvePath(path);
    if (node == nullptr) {
      EXPECT_EQ(References(), references) << path;
      return GetError() == 0 ? "missing" : Outcome(false);
    }
    const std::string text = std::string(node->volume->name) + " " + std::to_string(node->record.number);
    OrbNodeRelease(node);
    EXPECT_EQ(References(), references) << path;
    return text;
  }

  static uint32_t References() {
    uint32_t count = 0;
    for (const OrbNode* node = g_NodeListHead.next; node != nullptr; node = node->next) count += node->references;
    return count;
  }

  Volume* other_ = nullptr;
  uint32_t listed_ = 0;
};

// ---- The volume part ------------------------------------------------------------------------------------------------

TEST_F(Path, split_of_each_path_gives_its_volume) {
  const struct {
    const char* path;
    const char* volume;
    const char* rest;  // null: INVALID_NAME
  } rows[] = {
      {"", "", ""},
      {"a/b", "", "a/b"},
      {"A:", "A", ""},
      {"A:x", "A", "x"},
      {"A:/x:y", "A", "/x:y"},
      {"12345678901234567890123456789:x", "12345678901234567890123456789", "x"},
      {"123456789012345678901234567890:x", nullptr, nullptr},
      {":x", nullptr, nullptr},
      {"a/b:c", nullptr, nullptr},
      {"A B:c", nullptr, nullptr},
      {"\xC4:c", nullptr, nullptr},
      {"*:c", nullptr, nullptr},
      {".:c", ".", "c"},
  };
  for (const auto& row : rows) {
    char volume[kNameSize] = "before";
    ClearError();
    const char* const rest = OrbSplitVolumeName(volume, row.path);
    if (row.rest == nullptr) {
      EXPECT_EQ(rest, nullptr) << row.path;
      EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME) << row.path;
    } else {
      EXPECT_STREQ(rest, row.rest) << row.path;
      EXPECT_STREQ(volume, row.volume) << row.path;
      EXPECT_EQ(GetError(), 0u) << row.path;
    }
  }
}

TEST_F(Path, component_of_each_path_is_split_off) {
  const struct {
    const char* position;
    const char* component;
    const char* rest;  // null: INVALID_NAME
  } rows[] = {
      {"", "", ""},
      {"/", "", ""},
      {"///", "", ""},
      {"a", "a", ""},
      {"/a", "a", ""},
      {"a/", "a", ""},
      {"//a//b/", "a", "b/"},
      {"a b*?/c", "a b*?", "c"},  // only the length is looked at
      {"12345678901234567890123456789/b", "12345678901234567890123456789", "b"},
      {"123456789012345678901234567890/b", nullptr, nullptr},
      {"123456789012345678901234567890", nullptr, nullptr},
  };
  for (const auto& row : rows) {
    char component[kNameSize] = "before";
    ClearError();
    const char* const rest = OrbNextPathComponent(component, row.position);
    if (row.rest == nullptr) {
      EXPECT_EQ(rest, nullptr) << row.position;
      EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME) << row.position;
    } else {
      EXPECT_STREQ(rest, row.rest) << row.position;
      EXPECT_STREQ(component, row.component) << row.position;
    }
  }
}

// ---- Walking --------------------------------------------------------------------------------------------------------

TEST_F(Path, walk_table_from_the_root) {
  const struct {
    const char* path;
    const char* outcome;
  } rows[] = {
      {"x", "A 1 x"},
      {"NEW.txt", "A 1 NEW.txt"},  // as it stands in the path
      {"D", "A 1 D"},
      {"/D", "A 1 D"},
      {"D/E", "A 2 E"},
      {"d/e/f", "A 3 f"},
      {"D//E/", "A 2 E"},
      {"//D///E///", "A 2 E"},
      {"D/x y*?", "A 2 x y*?"},  // components are not held against the name rule
      {"/", "A 1 "},
      {"///", "A 1 "},
      {"/.", "A 1 "},
      {"/..", "A 1 "},
      {".", "A 1 "},
      {"..", "A 1 "},
      {"./.", "A 1 "},
      {"D/.", "A 1 D"},
      {"D/..", "A 1 "},
      {"D/E/.", "A 2 E"},
      {"D/E/..", "A 1 D"},  // the parent of E, by the name it is stored under
      {"d/e/../.", "A 1 D"},
      {"D/../D/E", "A 2 E"},
      {"D/./E", "A 2 E"},
      {"D/E/../E/F", "A 3 F"},
      {"../../G", "A 1 G"},
      {"...", "A 1 ..."},
      {"A:", "A 1 "},
      {"A:/", "A 1 "},
      {"a:d/e", "A 2 e"},
      {"B:", "B 1 "},
      {"B:x", "B 1 x"},
      {"b:/D/x", "B 2 x"},
      {"B:D/.", "B 1 D"},
      {"B:/..", "B 1 "},
      {"", "PATH_NOT_FOUND"},
      {"X/F", "PATH_NOT_FOUND"},
      {"D/X/F", "PATH_NOT_FOUND"},
      {"G/x", "PATH_NOT_FOUND"},    // the parent is a file
      {"G/x/y", "PATH_NOT_FOUND"},  // on the way there is a file
      {"G/.", "PATH_NOT_FOUND"},
      {"G/..", "PATH_NOT_FOUND"},
      {"C:/x", "NOT_MOUNTED"},
      {":x", "INVALID_NAME"},
      {"D/E:x", "INVALID_NAME"},
      {"D E:x", "INVALID_NAME"},
      {"123456789012345678901234567890", "INVALID_NAME"},
      {"12345678901234567890123456789", "A 1 12345678901234567890123456789"},
      {"X/123456789012345678901234567890", "PATH_NOT_FOUND"},  // X is looked up first
      {"D/123456789012345678901234567890/x", "INVALID_NAME"},
  };
  for (const auto& row : rows) EXPECT_EQ(Walk(row.path), row.outcome) << row.path;
  EXPECT_EQ(NodesListed(), listed_);
}

TEST_F(Path, walk_table_from_a_directory_below) {
  SetCurrent("D/E");
  const struct {
    const char* path;
    const char* outcome;
  } rows[] = {
      {"F", "A 3 F"},    {".", "A 2 E"},   {"..", "A 1 D"},      {"../..", "A 1 "},
      {"../.", "A 1 D"}, {"/G", "A 1 G"},  {"A:F", "A 3 F"},  // on the volume of the current directory, from there
      {"A:/G", "A 1 G"}, {"A:", "A 3 "},   {"A:..", "A 1 D"},    {"B:x", "B 1 x"},
      {"B:/x", "B 1 x"}, {"B:..", "B 1 "}, {"../../G", "A 1 G"},
  };
  for (const auto& row : rows) EXPECT_EQ(Walk(row.path), row.outcome) << row.path;
  SetCurrent("/");
}

TEST_F(Path, walk_on_another_volume_than_the_current_directory_s_starts_at_its_root) {
  SetCurrent("B:/D");
  EXPECT_EQ(Walk("A:D"), "A 1 D");
  EXPECT_EQ(Walk("A:/D"), "A 1 D");
  EXPECT_EQ(Walk("B:x"), "B 2 x");
  EXPECT_EQ(Walk("/x"), "B 1 x");
  SetCurrent("A:/");
}

TEST_F(Path, walk_without_a_current_directory_fails_for_every_path_but_the_empty_one) {  // Q12
  ASSERT_TRUE(OrbSetCurrentDirNode(nullptr));
  for (const char* path : {"x", "/x", "A:/x", "B:x", "C:/x", ":x", "/", "."}) {
    EXPECT_EQ(Walk(path), "NOT_MOUNTED") << path;
  }
  EXPECT_EQ(Walk(""), "PATH_NOT_FOUND");
  ASSERT_TRUE(OrbSetCurrentDirNode(volume_->root));
}

TEST_F(Path, walk_reads_one_block_and_one_node_for_each_step) {
  Walk("D/E/F");
  EXPECT_EQ(Calls(), "read block 2 / read node 2 / read block 3 / read node 3");
  testhost::ClearTrace();
  Walk("D/.");  // D, its "..", its name; the root is held
  EXPECT_EQ(Calls(), "read block 2 / read node 2 / read block 3 / read block 2");
  testhost::ClearTrace();
  Walk("/");
  EXPECT_EQ(Calls(), "");
}

TEST_F(Path, walk_whose_reads_fail_keeps_the_code_and_no_reference) {
  for (const char* path : {"D/E/F", "D/E/.", "D/E/.."}) {
    for (uint32_t n = 1;; ++n) {
      FailNthCall(Call::kReadFile, n, coredll::kHostNotReady);
      const std::string outcome = Walk(path);
      const bool failed = testhost::FaultsFired() != 0;
      testhost::ClearFaults();
      if (!failed) break;
      EXPECT_EQ(outcome, "NOT_READY") << path << " " << n;
      EXPECT_EQ(NodesListed(), listed_) << path << " " << n;
    }
  }
}

TEST_F(Path, walk_without_memory_fails_and_keeps_no_reference) {
  for (uint32_t n = 1;; ++n) {
    testhost::FailNthAllocation(n);
    const std::string outcome = Walk("D/E/..");
    const bool failed = testhost::AllocationFaultsFired() != 0;
    testhost::ClearFaults();
    if (!failed) break;
    EXPECT_EQ(outcome, "OUT_OF_MEMORY") << n;
    EXPECT_EQ(NodesListed(), listed_) << n;
  }
}

TEST_F(Path, walk_up_from_a_directory_without_a_parent_entry_is_path_not_found) {
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 3) + 32, 0); });
  EXPECT_EQ(Walk("A:/D/."), "PATH_NOT_FOUND");
  EXPECT_EQ(Walk("A:/D/.."), "PATH_NOT_FOUND");
}

TEST_F(Path, walk_up_to_a_parent_that_does_not_list_the_directory_is_path_not_found) {
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 3) + 32, 3); });  // ".." is E
  EXPECT_EQ(Walk("A:/D/."), "PATH_NOT_FOUND");
}

TEST_F(Path, walk_up_to_a_parent_that_is_a_file_is_path_not_found) {
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 3) + 32, 5); });  // ".." is G
  EXPECT_EQ(Walk("A:/D/."), "PATH_NOT_FOUND");
  EXPECT_EQ(Walk("A:/D/../x"), "PATH_NOT_FOUND");
}

TEST_F(Path, walk_through_a_name_of_a_node_that_does_not_exist_is_damage) {
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 2) + 64, 4000); });
  EXPECT_EQ(Walk("A:/D/x"), "DAMAGED_RECORD");
}

TEST_F(Path, end_in_a_separator_is_told_from_all_other_ends) {
  for (const char* path : {"/", "//", "A/", "A:/", "A:/B//"}) EXPECT_TRUE(EndsInSeparator(path)) << path;
  for (const char* path : {"", "A", "/A", "A:", "A:/B", "A/B.", "A\\"}) EXPECT_FALSE(EndsInSeparator(path)) << path;
}

// ---- Resolving ------------------------------------------------------------------------------------------------------

TEST_F(Path, resolve_of_each_path_gives_its_node_or_code) {
  const struct {
    const char* path;
    const char* outcome;
  } rows[] = {
      {"/", "A 1"},
      {"D", "A 2"},
      {"d/e/f", "A 4"},
      {"D/E/", "A 3"},
      {"D/E/F/", "A 4"},  // a trailing "/" adds nothing, not even behind a file
      {"D/E/..", "A 2"},
      {"D/..", "A 1"},
      {"D/.", "A 2"},
      {"A:", "A 1"},
      {"B:", "B 1"},
      {"B:d", "B 2"},
      {"X", "missing"},
      {"D/X", "missing"},
      {"D/X/", "missing"},
      {"A B", "missing"},
      {"X/Y", "PATH_NOT_FOUND"},
      {"G/Y", "PATH_NOT_FOUND"},
      {"G/.", "PATH_NOT_FOUND"},
      {"", "PATH_NOT_FOUND"},
      {"C:/", "NOT_MOUNTED"},
      {"A B:/", "INVALID_NAME"},
  };
  for (const auto& row : rows) EXPECT_EQ(Resolve(row.path), row.outcome) << row.path;
  EXPECT_EQ(NodesListed(), listed_);
}

TEST_F(Path, resolve_whose_last_reads_fail_keeps_the_code_and_no_reference) {
  for (uint32_t n = 1; n <= 6; ++n) {
    FailNthCall(Call::kReadFile, n, coredll::kHostNotReady);
    EXPECT_EQ(Resolve("D/E/F"), "NOT_READY") << n;
    EXPECT_EQ(NodesListed(), listed_) << n;
  }
  FailNthCall(Call::kReadFile, 7, coredll::kHostNotReady);
  EXPECT_EQ(Resolve("D/E/F"), "A 4");
}

TEST_F(Path, resolve_shares_the_node_with_its_holders) {
  const NodeRef held(OrbResolvePath("D/E/F"));
  const NodeRef again(OrbResolvePath("d/e/f"));
  EXPECT_EQ(held.node, again.node);
  EXPECT_EQ(held.node->references, 2u);
  EXPECT_EQ(NodesListed(), listed_ + 1);
}

}  // namespace
}  // namespace orba
