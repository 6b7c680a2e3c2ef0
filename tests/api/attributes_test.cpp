// Reading and setting attributes.
#include "support.h"

namespace api {
namespace {

class AttributesTest : public VolumeTest {
 protected:
  void SetUp() override {
    VolumeTest::SetUp();
    MakeFile("F", Pattern(1, 100));
    EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  }
};

TEST_P(AttributesTest, get_root_and_directory_have_the_directory_bit) {
  EXPECT_EQ(Ended(orb->getFileAttributes("/")), Succeeded(0x000E));
  EXPECT_EQ(Ended(orb->getFileAttributes("D")), Succeeded(0x0008));
}

TEST_P(AttributesTest, get_missing_fails_with_16_bits_set) {
  EXPECT_EQ(Ended(orb->getFileAttributes("X")), Failed(ORB_ERROR_FILE_NOT_FOUND, 0xFFFF));
}

TEST_P(AttributesTest, set_every_legal_value_is_kept) {
  for (const OrbI32 attributes : {1, 2, 3, 0}) {
    EXPECT_EQ(Ended(orb->setFileAttributes("f", attributes)), Succeeded());
    EXPECT_EQ(Ended(orb->getFileAttributes("F")), Succeeded(static_cast<OrbU32>(attributes)));
  }
}

TEST_P(AttributesTest, set_any_other_bit_fails_invalid_argument) {
  for (int bit = 2; bit < 32; ++bit) {
    const OrbI32 attributes = static_cast<OrbI32>(1u << bit);
    EXPECT_EQ(Ended(orb->setFileAttributes("F", attributes)), Failed(ORB_ERROR_INVALID_ARGUMENT)) << bit;
    EXPECT_EQ(Ended(orb->setFileAttributes("F", attributes | 1)), Failed(ORB_ERROR_INVALID_ARGUMENT)) << bit;
  }
  EXPECT_EQ(Ended(orb->setFileAttributes("F", -1)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(orb->getFileAttributes("F")), Succeeded(0));
}

TEST_P(AttributesTest, set_bad_value_is_seen_before_the_path) {
  for (const char* path : {"X", "", "X/Y", "D", "OTHER:/"}) {
    EXPECT_EQ(Ended(orb->setFileAttributes(path, 4)), Failed(ORB_ERROR_INVALID_ARGUMENT)) << path;
  }
}

TEST_P(AttributesTest, set_missing_fails_file_not_found) {
  EXPECT_EQ(Ended(orb->setFileAttributes("X", 1)), Failed(ORB_ERROR_FILE_NOT_FOUND));
}

TEST_P(AttributesTest, set_directory_fails_wrong_kind) {
  for (const char* path : {"D", "/", "."}) {
    EXPECT_EQ(Ended(orb->setFileAttributes(path, 0)), Failed(ORB_ERROR_WRONG_KIND)) << path;
    EXPECT_EQ(Ended(orb->setFileAttributes(path, 2)), Failed(ORB_ERROR_WRONG_KIND)) << path;
  }
}

TEST_P(AttributesTest, set_open_file_fails_in_use_unless_nothing_changes) {
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 1)), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("F")), Succeeded(0));
  Close(file);
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 1)), Succeeded());
}

TEST_P(AttributesTest, read_only_refuses_writing_alone) {
  EXPECT_EQ(Ended(orb->setFileAttributes("F", ORB_ATTRIBUTE_READ_ONLY)), Succeeded());
  EXPECT_EQ(Ended(orb->openFile("F", ORB_OPEN_WRITE)), Failed(ORB_ERROR_ACCESS_DENIED, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->openFile("F", ORB_OPEN_READ | ORB_OPEN_WRITE)),
            Failed(ORB_ERROR_ACCESS_DENIED, ORB_INVALID_HANDLE));
  EXPECT_EQ(Contents("F"), Pattern(1, 100));
  Close(Open("F", 0));
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 0)), Succeeded());
  Close(Open("F", ORB_OPEN_WRITE));
}

TEST_P(AttributesTest, user_bit_refuses_nothing) {
  EXPECT_EQ(Ended(orb->setFileAttributes("F", ORB_ATTRIBUTE_USER)), Succeeded());
  Close(Open("F", ORB_OPEN_READ | ORB_OPEN_WRITE));
}

TEST_P(AttributesTest, set_after_closing_holds_nothing) {
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 1)), Succeeded());
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 4)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(orb->setFileAttributes("D", 0)), Failed(ORB_ERROR_WRONG_KIND));
  EXPECT_EQ(Ended(orb->deleteFile("F")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, AttributesTest, ::testing::ValuesIn(EveryVariant()), VariantName);

class AttributesImageTest : public ApiTest, public ::testing::WithParamInterface<OrbI32> {};

TEST_P(AttributesImageTest, set_keeps_the_time_stamp_and_lasts_over_unmounting) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  MakeFile("F", Pattern(1, 100));
  Unmount("VOL");
  MakeOld(kFirst, 2);
  Mount(kFirst, "VOL");
  EXPECT_EQ(Ended(OrbSetFileAttributesA("F", GetParam())), Succeeded());
  const Image image = Look(kFirst, "VOL");
  EXPECT_EQ(image.U16(image.Node(2) + 6), static_cast<OrbU32>(GetParam()));
  EXPECT_EQ(image.U32(52), 0u);
  EXPECT_EQ(Find("F").time, kLongAgo);
  EXPECT_EQ(Find("F").attributes, static_cast<OrbU32>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Values, AttributesImageTest, ::testing::Values(0, 1, 2, 3),
                         ::testing::PrintToStringParamName());

}  // namespace
}  // namespace api
