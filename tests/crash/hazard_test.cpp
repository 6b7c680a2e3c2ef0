// The few places where the order of writes leaves a volume in use with more than a leak: the mark was lost, or the call
// that met a full disk was the one that stores a directory's size. What follows from it is stated here, exactly; repair
// mends it.
#include "crash/operation_test.h"

namespace orba {

namespace {

using testhost::Operation;

const Operation& Named(const std::string& name) {
  for (const Operation& operation : testhost::Operations()) {
    if (operation.name == name) return operation;
  }
  throw std::out_of_range(name);
}

std::string Disk() { return testhost::Verdict(testhost::GetFile(testhost::kChangedContainer)); }
std::string Repaired() {
  return testhost::Verdict(RunRepair(testhost::GetFile(testhost::kChangedContainer)).images.back());
}

std::vector<std::string> NamesIn(const char* directory) {
  std::vector<std::string> names;
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA(directory, &found);
  for (bool more = search != ORB_INVALID_HANDLE; more; more = OrbFindNextFileA(search, &found) != 0) {
    names.push_back(found.name);
  }
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MORE_ENTRIES);
  EXPECT_EQ(OrbFindClose(search), 1);
  return names;
}

// Runs an operation of which one write meets a full disk; the volume stays mounted.
void RunOnFullDisk(const Operation& operation, uint32_t write) {
  const testhost::FileSet prepared = testhost::Prepare(operation);
  testhost::Begin(operation, prepared);
  testhost::FailNthCall(Call::kWriteFile, write, 112);
  EXPECT_FALSE(operation.run());
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
}

class FullDisk : public LibraryTest {};

// The size on the disk counts an entry whose number is cleared already. The next name goes behind it, where nobody
// looks.
TEST_F(FullDisk, under_the_node_of_a_directory_that_lost_its_last_entry_hides_the_next_name) {
  RunOnFullDisk(Named("delete_empty_file_1024"), 3);
  EXPECT_EQ(Disk(), "removal-interrupted 1, node-leaked 1");
  EXPECT_EQ(Outcome(OrbCreateFileA("/DIR/AFTER", 0)), "");
  EXPECT_EQ(OrbGetFileAttributesA("/DIR/AFTER"), ORB_INVALID_ATTRIBUTES);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Disk(), "dir-hole 1, node-leaked 1");
  EXPECT_EQ(Repaired(), "clean");
}

// A directory in memory knows better: nothing comes of it.
TEST_F(FullDisk, under_the_node_of_the_root_that_lost_its_last_entry_is_put_right_by_the_next_name) {
  RunOnFullDisk(Named("delete_in_root_from_middle_1024"), 3);
  EXPECT_EQ(Disk(), "removal-interrupted 1, node-leaked 1");
  EXPECT_EQ(UseVolume(), "");
  EXPECT_EQ(Disk(), "node-leaked 1");
  EXPECT_EQ(Repaired(), "clean");
}

// The directory on the disk still names the block, and so the next file shares it.
TEST_F(FullDisk, under_the_node_of_a_directory_that_gave_its_last_block_back_shares_the_block) {
  RunOnFullDisk(Named("delete_empty_file_alone_in_block_into_chain_1024"), 3);
  EXPECT_EQ(Disk(), "last-block-freed 1");
  const Bytes data = Pattern(1024);
  OrbU32 done = 0;
  EXPECT_EQ(Outcome(OrbCreateFileA("/AFTER", 0)), "");
  const OrbHandle file = OrbOpenFileA("/AFTER", ORB_OPEN_WRITE);
  EXPECT_EQ(Outcome(OrbWriteFile(file, data.data(), 1024, &done)), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
  EXPECT_EQ(testhost::Inspect(testhost::GetFile(testhost::kChangedContainer)).Count(inspect::Kind::kBlockShared), 1u);
  EXPECT_EQ(Repaired(), "clean");
}

// Stored again, the directory lets go of it.
TEST_F(FullDisk, under_the_node_of_the_root_that_gave_its_last_block_back_is_put_right_by_the_next_name) {
  RunOnFullDisk(Named("delete_in_root_alone_in_block_into_chain_1024"), 3);
  EXPECT_EQ(Disk(), "last-block-freed 1");
  EXPECT_EQ(UseVolume(), "");
  EXPECT_EQ(Disk(), "node-leaked 1");
  EXPECT_EQ(Repaired(), "clean");
}

// The slot is cleared on the disk, the size is not stored: what is in the blocks before can be read, the last cannot,
// and nothing can be added.
TEST_F(FullDisk, under_the_node_of_a_directory_that_gave_an_indirect_block_back_refuses_new_names) {
  RunOnFullDisk(Named("delete_empty_file_alone_in_indirect_block_1024"), 5);
  EXPECT_EQ(Disk(), "shrink-interrupted 1, node-leaked 1");
  EXPECT_EQ(Outcome(OrbCreateFileA("/DIR/AFTER", 0)), "DAMAGED_RECORD");
  EXPECT_EQ(OrbGetFileAttributesA("/DIR/N0001"), 0u);
  EXPECT_EQ(Disk(), "shrink-interrupted 1, node-leaked 1");
  EXPECT_EQ(Repaired(), "clean");
}

// The entry is there, the size does not count it, and the node was given up again for want of space. The name is found,
// and cannot be removed, until the next name takes the place.
TEST_F(FullDisk, under_the_node_of_a_directory_that_got_an_entry_leaves_the_name_of_a_free_node) {
  RunOnFullDisk(Named("create_file_1024"), 5);
  EXPECT_EQ(Disk(), "dir-beyond-size 1");
  EXPECT_EQ(OrbGetFileAttributesA("/DIR/NEW"), 2u);
  EXPECT_EQ(Outcome(OrbCreateFileA("/DIR/NEW", 0)), "FILE_EXISTS");
  EXPECT_EQ(Outcome(OrbDeleteFileA("/DIR/NEW")), "DAMAGED_RECORD");
  EXPECT_EQ(Disk(), "dir-beyond-size 1");
  EXPECT_EQ(Repaired(), "clean");
  EXPECT_EQ(Outcome(OrbCreateFileA("/DIR/OTHER", 0)), "");
  EXPECT_EQ(Disk(), "clean");
  EXPECT_EQ(OrbGetFileAttributesA("/DIR/NEW"), ORB_INVALID_ATTRIBUTES);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
}

// A search ends where the size does when it goes on from there, so that it lists nothing, yet the directory is not
// empty to what looks at its third entry. A name made and deleted again clears it.
TEST_F(FullDisk, under_the_node_of_an_empty_directory_that_got_an_entry_keeps_it_from_being_deleted) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
  testhost::FailNthCall(Call::kWriteFile, 5, 112);  // mark, node, bitmap, entry, D's node
  EXPECT_EQ(Outcome(OrbCreateFileA("D/X", 0)), "DISK_FULL");
  ASSERT_EQ(testhost::FaultsFired(), 1u);
  EXPECT_EQ(Disk(), "dir-beyond-size 1");
  for (int mounts = 0; mounts < 2; ++mounts) {
    EXPECT_EQ(NamesIn("D/"), (std::vector<std::string>{".", ".."}));
    EXPECT_EQ(OrbGetFileAttributesA("D/X"), 0u);
    EXPECT_EQ(Outcome(OrbDeleteFileA("D/X")), "DAMAGED_RECORD");
    EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "NOT_EMPTY");
    EXPECT_EQ(Disk(), "dir-beyond-size 1");
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    ASSERT_NE(Mount(), nullptr);
  }
  EXPECT_EQ(Repaired(), "clean");
  EXPECT_EQ(Outcome(OrbCreateFileA("D/Y", 0)), "");
  EXPECT_EQ(NamesIn("D/"), (std::vector<std::string>{".", "..", "Y"}));
  EXPECT_EQ(Disk(), "clean");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D/Y")), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "");
  EXPECT_EQ(Disk(), "clean");
}

// ---- The mark lost: the header was the first metadata that the operation wrote --------------------------------------

class MarkLost : public LibraryTest {
 protected:
  // Mounts what is left after some writes, without a mark.
  static void MountStopped(const char* operation, size_t writes) {
    const testhost::FileSet prepared = testhost::Prepare(Named(operation));
    const testhost::FileImage state = testhost::StopStates(Named(operation), prepared).at(writes);
    EXPECT_FALSE(testhost::Inspect(state).marked);
    EXPECT_TRUE(testhost::MountContainer(state));
  }
};

TEST_F(MarkLost, between_the_two_names_of_a_move_leaves_both_in_use) {
  MountStopped("move_file_to_new_block_popping_record_1024", 4);
  EXPECT_EQ(Disk(), "many-names 1");
  EXPECT_EQ(OrbGetFileAttributesA("/FROM/OLD"), 0u);
  EXPECT_EQ(OrbGetFileAttributesA("/TO/NEW"), 0u);
  EXPECT_EQ(Outcome(OrbDeleteFileA("/FROM/OLD")), "");
  EXPECT_EQ(Disk(), "entry-to-free 1");
  EXPECT_EQ(Repaired(), "clean");
}

TEST_F(MarkLost, before_the_size_of_a_directory_is_stored_hides_the_next_name) {
  MountStopped("move_file_to_new_block_popping_record_1024", 5);
  EXPECT_EQ(Disk(), "removal-interrupted 1");
  EXPECT_EQ(Outcome(OrbCreateFileA("/FROM/AFTER", 0)), "");
  EXPECT_EQ(OrbGetFileAttributesA("/FROM/AFTER"), ORB_INVALID_ATTRIBUTES);
  EXPECT_EQ(Disk(), "dir-hole 1");
  EXPECT_EQ(Repaired(), "clean");
}

// The last block holds a free-chain record, which reads as an entry "C1" of node 16966.
TEST_F(MarkLost, while_a_directory_gives_its_last_block_back_leaves_an_entry_without_a_node) {
  MountStopped("move_file_popping_record_and_giving_block_back_1024", 5);
  EXPECT_EQ(Disk(), "last-block-freed 1");
  EXPECT_EQ(OrbGetFileAttributesA("/FROM/OLD"), ORB_INVALID_ATTRIBUTES);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OrbGetFileAttributesA("/FROM/C1"), ORB_INVALID_ATTRIBUTES);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(OrbGetFileAttributesA("/TO/NEW"), 0u);
  EXPECT_EQ(Repaired(), "clean");
}

TEST_F(MarkLost, before_a_file_s_size_is_stored_leaves_its_block_to_the_next_growth) {
  MountStopped("append_block_popping_record_in_indirect_1024", 4);
  EXPECT_EQ(Disk(), "growth-interrupted 1");
  const OrbHandle file = OrbOpenFileA("/FILE", ORB_OPEN_WRITE);
  EXPECT_EQ(OrbGetFileSize(file), 8u * 1024);
  EXPECT_EQ(Outcome(OrbSetFileSize(file, 9 * 1024)), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
  EXPECT_EQ(Disk(), "block-leaked 1");
  EXPECT_EQ(Repaired(), "clean");
}

}  // namespace

}  // namespace orba
