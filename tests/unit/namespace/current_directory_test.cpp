#include "namespace/current_directory.h"

#include "unit/library_test.h"

namespace orba {
namespace {

// Volume "A", whose root (held by the volume and as the current directory) is joined by a directory and a file.
class CurrentDirectory : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    volume_ = FormatAndMount();
    ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
    ASSERT_EQ(OrbCreateFileA("F", 0), 1);
    directory_ = OrbNodeGet(volume_, 2);
    file_ = OrbNodeGet(volume_, 3);
    ASSERT_EQ(volume_->root->references, 2u);
    testhost::ClearTrace();
  }
  void TearDown() override {
    OrbNodeRelease(directory_);
    OrbNodeRelease(file_);
    LibraryTest::TearDown();
  }

  Volume* volume_ = nullptr;
  OrbNode* directory_ = nullptr;
  OrbNode* file_ = nullptr;
};

TEST_F(CurrentDirectory, set_moves_the_reference) {
  EXPECT_TRUE(OrbSetCurrentDirNode(directory_));
  EXPECT_EQ(g_pCurrentDir, directory_);
  EXPECT_EQ(directory_->references, 2u);
  EXPECT_EQ(volume_->root->references, 1u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(CurrentDirectory, set_again_to_the_same_keeps_one_reference) {
  EXPECT_TRUE(OrbSetCurrentDirNode(directory_));
  EXPECT_TRUE(OrbSetCurrentDirNode(directory_));
  EXPECT_EQ(directory_->references, 2u);
}

TEST_F(CurrentDirectory, set_to_a_file_fails_and_keeps_the_previous_and_its_reference) {
  EXPECT_FALSE(OrbSetCurrentDirNode(file_));
  EXPECT_EQ(GetError(), ORB_ERROR_WRONG_KIND);
  EXPECT_EQ(g_pCurrentDir, volume_->root);
  EXPECT_EQ(volume_->root->references, 2u);
  EXPECT_EQ(file_->references, 1u);
}

TEST_F(CurrentDirectory, set_to_a_node_that_is_not_on_the_list_fails_and_keeps_the_previous) {
  OrbNode stranger = {};
  stranger.references = 1;
  stranger.record.attributes = ORB_NODE_DIRECTORY;
  EXPECT_FALSE(OrbSetCurrentDirNode(&stranger));
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(g_pCurrentDir, volume_->root);
  EXPECT_EQ(volume_->root->references, 2u);
}

TEST_F(CurrentDirectory, set_to_a_file_that_is_not_valid_reports_the_validity_first) {
  OrbNode stranger = {};
  EXPECT_FALSE(OrbSetCurrentDirNode(&stranger));
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
}

TEST_F(CurrentDirectory, set_to_null_releases_the_reference_and_every_path_fails) {
  EXPECT_TRUE(OrbSetCurrentDirNode(nullptr));
  EXPECT_EQ(g_pCurrentDir, nullptr);
  EXPECT_EQ(volume_->root->references, 1u);
  EXPECT_EQ(OrbGetFileAttributesA("F"), 0xFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
  EXPECT_EQ(OrbGetFileAttributesA("A:/F"), 0xFFFFu);  // absolute ones, too
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
}

TEST_F(CurrentDirectory, set_to_null_twice_is_a_success) {
  EXPECT_TRUE(OrbSetCurrentDirNode(nullptr));
  EXPECT_TRUE(OrbSetCurrentDirNode(nullptr));
}

TEST_F(CurrentDirectory, get_adds_a_reference) {
  OrbNode* const current = OrbGetCurrentDirNode();
  EXPECT_EQ(current, volume_->root);
  EXPECT_EQ(current->references, 3u);
  OrbNodeRelease(current);
}

TEST_F(CurrentDirectory, get_without_one_is_null) {
  OrbSetCurrentDirNode(nullptr);
  EXPECT_EQ(OrbGetCurrentDirNode(), nullptr);
}

TEST_F(CurrentDirectory, is_volume_compares_the_volume_of_the_directory) {
  Format(16, 1024, u"OTHER");
  Volume* const other = Mount(u"OTHER", u"B");
  EXPECT_TRUE(OrbIsCurrentDirVolume(volume_));
  EXPECT_FALSE(OrbIsCurrentDirVolume(other));
  OrbSetCurrentDirNode(directory_);
  EXPECT_TRUE(OrbIsCurrentDirVolume(volume_));
  OrbSetCurrentDirNode(nullptr);
  EXPECT_FALSE(OrbIsCurrentDirVolume(volume_));
}

TEST_F(CurrentDirectory, is_node_compares_the_node) {
  EXPECT_TRUE(OrbIsCurrentDirNode(volume_->root));
  EXPECT_FALSE(OrbIsCurrentDirNode(directory_));
}

}  // namespace
}  // namespace orba
