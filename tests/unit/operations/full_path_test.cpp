#include "operations/full_path.h"

#include <string.h>

#include "namespace/path.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostNotReady;

class FullPath : public TreeTest {
 protected:
  // The full path, or the outcome with an empty output.
  std::string Full(const char* path) {
    const uint32_t listed = NodesListed();
    memset(out_, 'x', sizeof out_);
    const bool succeeded = OrbGetFullPathNameA(out_, path) != 0;
    EXPECT_EQ(NodesListed(), listed) << path;
    if (succeeded && GetError() == 0) return out_;
    EXPECT_STREQ(out_, "") << path;
    return Outcome(succeeded);
  }

  // Makes directories below each other; returns the path of the last one.
  std::string MakeChain(uint32_t levels, const std::string& name = "D") {
    std::string path;
    for (uint32_t i = 0; i < levels; ++i) {
      MakeDirectory(name.c_str());
      EXPECT_EQ(OrbSetCurrentDirectoryA(name.c_str()), 1);
      path += "/" + name;
    }
    return path;
  }

  static uint32_t BlockReads() { return ReadsOf(1024); }
  static uint32_t NodeReads() { return ReadsOf(64); }

  static uint32_t ReadsOf(uint32_t count) {
    uint32_t reads = 0;
    for (const testhost::CallRecord& record : testhost::Trace()) {
      if (record.call == Call::kReadFile && record.count == count) ++reads;
    }
    return reads;
  }

  char out_[ORB_PATH_BUFFER];
};

TEST_F(FullPath, table_of_paths_gives_each_its_full_name) {
  MakeDirectory("Dir");
  MakeDirectory("Dir/Sub");
  MakeFile("Dir/Sub/file");
  const struct {
    const char* path;
    const char* full;
  } rows[] = {
      {"/", "A:/"},
      {".", "A:/"},
      {"..", "A:/"},
      {"a:", "A:/"},
      {"new.txt", "A:/NEW.TXT"},  // the last name need not exist
      {"a*b c", "A:/A*B C"},      // nor be legal
      {"dir", "A:/DIR"},
      {"dir/", "A:/DIR"},
      {"dir/.", "A:/DIR"},
      {"dir/..", "A:/"},
      {"dir/sub/file", "A:/DIR/SUB/FILE"},
      {"dir//sub//x", "A:/DIR/SUB/X"},
      {"dir/sub/..", "A:/DIR"},
      {"dir/../dir/sub/../x", "A:/DIR/X"},
      {"a:/dir/x", "A:/DIR/X"},
      {"", "PATH_NOT_FOUND"},
      {"x/y", "PATH_NOT_FOUND"},
      {"dir/sub/file/x", "PATH_NOT_FOUND"},
      {"b:/x", "NOT_MOUNTED"},
      {"a b:/x", "INVALID_NAME"},
      {"123456789012345678901234567890", "INVALID_NAME"},
  };
  for (const auto& row : rows) EXPECT_EQ(Full(row.path), row.full) << row.path;
}

TEST_F(FullPath, current_directory_is_the_full_path_of_the_dot) {
  MakeDirectory("Dir");
  MakeDirectory("Dir/Sub");
  ASSERT_EQ(OrbGetCurrentDirectoryA(out_), 1);
  EXPECT_STREQ(out_, "A:/");
  ASSERT_EQ(OrbSetCurrentDirectoryA("dir/sub"), 1);
  ASSERT_EQ(OrbGetCurrentDirectoryA(out_), 1);
  EXPECT_STREQ(out_, "A:/DIR/SUB");
  EXPECT_EQ(Full("x"), "A:/DIR/SUB/X");
  EXPECT_EQ(Full("../x"), "A:/DIR/X");
  EXPECT_EQ(Full("/x"), "A:/X");
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(FullPath, without_a_current_directory_fails) {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(Full("."), "NOT_MOUNTED");
  memset(out_, 'x', sizeof out_);
  EXPECT_EQ(Outcome(OrbGetCurrentDirectoryA(out_)), "NOT_MOUNTED");
  EXPECT_STREQ(out_, "");
}

TEST_F(FullPath, volume_name_comes_as_the_volume_keeps_it) {
  Format(16, 1024, u"OTHER");
  ASSERT_NE(Mount(u"OTHER", u"my.Volume"), nullptr);
  EXPECT_EQ(Full("MY.volume:x"), "MY.VOLUME:/X");
}

TEST_F(FullPath, directory_names_come_as_stored) {
  MakeDirectory("Dir");
  Damage([](Bytes* image) { (*image)[testhost::BlockOffset(*image, 2) + 64 + 2] = 'd'; });  // "dIR"
  EXPECT_EQ(Full("DIR/x"), "A:/dIR/X");
}

TEST_F(FullPath, of_the_root_s_names_reads_nothing) {
  EXPECT_EQ(Full("x"), "A:/X");
  EXPECT_EQ(Calls(), "");
}

TEST_F(FullPath, climbs_and_then_looks_up_the_names_downward) {
  MakeDirectory("D");    // node 2, block 3
  MakeDirectory("D/E");  // node 3, block 4
  EXPECT_EQ(Full("D/E/x"), "A:/D/E/X");
  EXPECT_EQ(Calls(),
            "read block 2 / read node 2 / read block 3 / read node 3 / "  // the walk
            "read block 4 / read node 2 / read block 3 / "                // up to the root, which is held
            "read block 2 / read block 3");                               // the names of D and E
}

// ---- Limits ---------------------------------------------------------------------------------------------------------

TEST_F(FullPath, of_127_characters_succeeds_and_of_128_fails) {
  // "A:/" and four names of 29 characters with their "/" are 123.
  const std::string name(29, 'N');
  const std::string path = MakeChain(4, name);
  EXPECT_EQ(Full("LAST"), "A:" + path + "/LAST");
  EXPECT_EQ(strlen(out_), 127u);
  EXPECT_EQ(Full("LAST5"), "PATH_TOO_LONG");
  EXPECT_EQ(Full(name.c_str()), "PATH_TOO_LONG");
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(FullPath, whose_directories_are_127_characters_leaves_room_for_an_empty_name_alone) {
  // "A:/", three names of 29 characters, one of 28 and one of 4, each with its "/": 3 + 90 + 29 + 5 = 127.
  const std::string name(29, 'N');
  std::string path = MakeChain(3, name);
  path += MakeChain(1, std::string(28, 'M'));
  path += MakeChain(1, "EEEE");
  EXPECT_EQ(Full("."), "A:" + path);
  EXPECT_EQ(strlen(out_), 126u);
  EXPECT_EQ(Full("x"), "PATH_TOO_LONG");  // the directories with their "/" fill the 127
  MakeDirectory("F");
  EXPECT_EQ(Full("F/."), "PATH_TOO_LONG");
  EXPECT_EQ(Full("F/x"), "PATH_TOO_LONG");  // the directories alone are too long
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(FullPath, climbs_62_levels_above_the_parent_and_no_more) {
  // One-letter names: the length gives out at 62 directories, "A:/" and 62 x 2 being 127; so the levels are looked at
  // where the length would do: below.
  MakeChain(62);
  testhost::ClearTrace();
  EXPECT_EQ(
      Full("."), "A:" + [] {
        std::string path;
        for (int i = 0; i < 62; ++i) path += "/D";
        return path;
      }());
  EXPECT_EQ(strlen(out_), 126u);
  // The walk: ".." of the last directory and its name in the one above; then 61 times "..", 61 names on the way down.
  EXPECT_EQ(BlockReads(), 2u + 61 + 61);
  EXPECT_EQ(NodeReads(), 1u + 60);  // the last directory and the root are held
  testhost::ClearTrace();
  EXPECT_EQ(Full("x"), "PATH_TOO_LONG");
  EXPECT_EQ(BlockReads(), 62u + 62);
  EXPECT_EQ(NodeReads(), 61u);
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(FullPath, of_63_levels_gives_up_after_62_and_looks_up_no_name) {
  MakeChain(63);
  testhost::ClearTrace();
  EXPECT_EQ(Full("x"), "PATH_TOO_LONG");
  EXPECT_EQ(BlockReads(), 62u);
  EXPECT_EQ(NodeReads(), 62u);
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(FullPath, of_a_directory_ring_gives_up_at_63_levels) {
  MakeDirectory("D");
  MakeDirectory("D/E");
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 3) + 32, 3); });  // D's ".." is E
  testhost::ClearTrace();
  EXPECT_EQ(Full("D/x"), "PATH_TOO_LONG");
  EXPECT_EQ(BlockReads(), 1u + 62);  // the walk and 62 steps up
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_F(FullPath, with_any_allocation_failing_is_empty) {
  MakeDirectory("D");
  MakeDirectory("D/E");
  Remount();
  for (uint32_t n = 1;; ++n) {
    testhost::FailNthAllocation(n);
    const std::string full = Full("D/E/x");
    const bool failed = testhost::AllocationFaultsFired() != 0;
    testhost::ClearFaults();
    if (!failed) {
      EXPECT_EQ(full, "A:/D/E/X");
      EXPECT_EQ(n, 11u);  // before: the chain; twice a block and a node down; a block each way up; the two names
      break;
    }
    EXPECT_EQ(full, "OUT_OF_MEMORY") << n;
  }
}

TEST_F(FullPath, with_any_read_failing_is_empty) {
  MakeDirectory("D");
  MakeDirectory("D/E");
  for (uint32_t n = 1; n <= 9; ++n) {
    testhost::FailNthCall(Call::kReadFile, n, kHostNotReady);
    EXPECT_EQ(Full("D/E/x"), "NOT_READY") << n;
    EXPECT_EQ(testhost::FaultsFired(), n);
  }
  testhost::FailNthCall(Call::kReadFile, 10, kHostNotReady);
  EXPECT_EQ(Full("D/E/x"), "A:/D/E/X");
}

TEST_F(FullPath, through_a_directory_without_a_parent_entry_is_damage) {
  MakeDirectory("D");
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 3) + 32, 0); });
  EXPECT_EQ(Full("D/x"), "DAMAGED_RECORD");
}

TEST_F(FullPath, through_a_parent_that_does_not_list_the_directory_is_damage) {
  MakeDirectory("D");
  MakeDirectory("E");
  MakeDirectory("E/F");
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 5) + 32, 2); });  // F's ".." is D
  EXPECT_EQ(Full("E/F/x"), "DAMAGED_RECORD");
}

TEST_F(FullPath, chain_is_released_up_to_its_first_null) {
  OrbNode** const chain = static_cast<OrbNode**>(calloc(kMaxLevels, sizeof(OrbNode*)));
  chain[0] = OrbNodeAlloc();
  chain[1] = OrbNodeAlloc();
  OrbNode* const behind = OrbNodeAlloc();
  chain[3] = behind;
  OrbReleaseNodeChain(chain);
  EXPECT_EQ(NodesListed(), 2u);
  OrbNodeRelease(behind);
  OrbReleaseNodeChain(nullptr);
}

TEST_F(FullPath, chain_is_released_to_its_end) {
  OrbNode** const chain = static_cast<OrbNode**>(calloc(kMaxLevels, sizeof(OrbNode*)));
  for (uint32_t i = 0; i < kMaxLevels; ++i) chain[i] = OrbNodeAlloc();
  OrbReleaseNodeChain(chain);
  EXPECT_EQ(NodesListed(), 1u);
}

}  // namespace
}  // namespace orba
