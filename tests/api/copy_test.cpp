// Copying files, within a volume and between volumes of any two block sizes.
#include <cstdio>
#include <tuple>

#include "support.h"

namespace api {
namespace {

class CopyTest : public VolumeTest {};

TEST_P(CopyTest, file_to_another_name_is_the_same_twice) {
  MakeFile("F", Pattern(1, 5000));
  EXPECT_EQ(Ended(orb->copyFile("f", "g")), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "F", "G"}));
  EXPECT_EQ(Contents("F"), Pattern(1, 5000));
  EXPECT_EQ(Contents("G"), Pattern(1, 5000));
}

TEST_P(CopyTest, copy_changed_leaves_the_source) {
  MakeFile("F", Pattern(1, 5000));
  EXPECT_EQ(Ended(orb->copyFile("F", "G")), Succeeded());
  const OrbHandle file = Open("G");
  WriteAt(file, 0, Pattern(2, 5000));
  Close(file);
  EXPECT_EQ(Contents("F"), Pattern(1, 5000));
}

TEST_P(CopyTest, file_into_a_subdirectory_is_there) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  MakeFile("F", Pattern(1, 100));
  EXPECT_EQ(Ended(orb->copyFile("F", "D/F")), Succeeded());
  EXPECT_EQ(Contents("D/F"), Pattern(1, 100));
}

TEST_P(CopyTest, attributes_are_copied) {
  for (OrbU32 attributes = 0; attributes < 4; ++attributes) {
    const std::string name = "F" + std::to_string(attributes);
    EXPECT_EQ(Ended(orb->createFile(name.c_str(), attributes)), Succeeded());
    EXPECT_EQ(Ended(orb->copyFile(name.c_str(), (name + "C").c_str())), Succeeded());
    EXPECT_EQ(Ended(orb->getFileAttributes((name + "C").c_str())), Succeeded(attributes));
  }
}

TEST_P(CopyTest, file_empty_is_empty) {
  MakeFile("F");
  EXPECT_EQ(Ended(orb->copyFile("F", "G")), Succeeded());
  EXPECT_EQ(SizeOf("G"), 0u);
}

TEST_P(CopyTest, source_open_is_copied) {
  MakeFile("F", Pattern(1, 100));
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(orb->copyFile("F", "G")), Succeeded());
  Close(file);
  EXPECT_EQ(Contents("G"), Pattern(1, 100));
}

TEST_P(CopyTest, file_to_another_volume_and_back_is_the_same) {
  FormatAndMount(kSecond, 64, 4096, "OTHER");
  MakeFile("F", Pattern(1, 10000));
  EXPECT_EQ(Ended(orb->copyFile("F", "OTHER:/G")), Succeeded());
  EXPECT_EQ(Contents("OTHER:G"), Pattern(1, 10000));
  EXPECT_EQ(Ended(orb->copyFile("OTHER:/G", "H")), Succeeded());
  EXPECT_EQ(Contents("H"), Pattern(1, 10000));
  EXPECT_EQ(List("OTHER:*"), (std::vector<std::string>{".", "..", "G"}));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "F", "H"}));
}

// Only creating refuses them.
TEST_P(CopyTest, target_ending_in_separators_is_the_name_before_them) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  MakeFile("F", Pattern(1, 100));
  EXPECT_EQ(Ended(orb->copyFile("F", "NEW/")), Succeeded());
  EXPECT_EQ(Ended(orb->copyFile("F", "/D/NEW//")), Succeeded());
  EXPECT_EQ(Contents("NEW"), Pattern(1, 100));
  EXPECT_EQ(Contents("D/NEW"), Pattern(1, 100));
  EXPECT_EQ(Ended(orb->copyFile("F", "NEW/")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->copyFile("F", "D/")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "D", "F", "NEW"}));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_P(CopyTest, source_missing_fails_file_not_found) {
  EXPECT_EQ(Ended(orb->copyFile("X", "Y")), Failed(ORB_ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Ended(orb->copyFile("X", "MISSING/Y")), Failed(ORB_ERROR_FILE_NOT_FOUND));
}

TEST_P(CopyTest, source_directory_fails_wrong_kind) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  for (const char* path : {"D", "D/", ".", "/", "VOL:"}) {
    EXPECT_EQ(Ended(orb->copyFile(path, "E")), Failed(ORB_ERROR_WRONG_KIND)) << path;
  }
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

TEST_P(CopyTest, target_taken_fails_file_exists) {
  MakeFile("F", Pattern(1, 10));
  MakeFile("G", Pattern(2, 20));
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  for (const char* name : {"G", "g", "D", "F", "f"}) {
    EXPECT_EQ(Ended(orb->copyFile("F", name)), Failed(ORB_ERROR_FILE_EXISTS)) << name;
  }
  EXPECT_EQ(Contents("G"), Pattern(2, 20));
  Close(Open("F"));
}

TEST_P(CopyTest, target_illegal_name_fails_invalid_name) {
  MakeFile("F");
  for (const char* name : {"A*", "A B", "/", "."}) {
    EXPECT_EQ(Ended(orb->copyFile("F", name)), Failed(ORB_ERROR_INVALID_NAME)) << name;
  }
  Close(Open("F"));
}

// The source stays held when the target's directory does not resolve, until its volume is unmounted.
TEST_P(CopyTest, target_directory_missing_holds_the_source) {
  MakeFile("F", Pattern(1, 10));
  EXPECT_EQ(Ended(orb->copyFile("F", "MISSING/G")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Ended(orb->openFile("F", ORB_OPEN_READ)), Failed(ORB_ERROR_IN_USE, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->deleteFile("F")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 1)), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(orb->setFileAttributes("F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("F")), Succeeded(0));
  EXPECT_EQ(Ended(orb->copyFile("F", "G")), Succeeded());
  EXPECT_EQ(Contents("G"), Pattern(1, 10));
}

TEST_P(CopyTest, target_not_resolved_whatever_the_reason_holds_the_source) {
  int number = 0;
  const struct {
    std::string target;
    OrbU32 code;
  } cases[] = {{"", ORB_ERROR_PATH_NOT_FOUND},
               {"OTHER:G", ORB_ERROR_NOT_MOUNTED},
               {"A B:G", ORB_ERROR_INVALID_NAME},
               {std::string(30, 'G'), ORB_ERROR_INVALID_NAME},
               {"F0/G", ORB_ERROR_PATH_NOT_FOUND}};
  for (const auto& each : cases) {
    const std::string source = "F" + std::to_string(number++);
    MakeFile(source);
    EXPECT_EQ(Ended(orb->copyFile(source.c_str(), each.target.c_str())), Failed(each.code)) << each.target;
    EXPECT_EQ(Ended(orb->openFile(source.c_str(), 0)), Failed(ORB_ERROR_IN_USE, ORB_INVALID_HANDLE)) << each.target;
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, CopyTest, ::testing::ValuesIn(EveryVariant()), VariantName);

class CopyOnHostTest : public VolumeTest {};

TEST_P(CopyOnHostTest, source_held_is_free_after_its_volume_was_unmounted) {
  MakeFile("F");
  EXPECT_EQ(Ended(orb->copyFile("F", "MISSING/G")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Ended(orb->openFile("F", 0)), Failed(ORB_ERROR_IN_USE, ORB_INVALID_HANDLE));
  Unmount("VOL");
  Mount(kFirst, "VOL");
  Close(Open("F"));
}

// ---- Between block sizes --------------------------------------------------------------------------------------------

class CopyBlockSizesTest : public ApiTest, public ::testing::WithParamInterface<std::tuple<Variant, OrbU32, OrbU32>> {
 protected:
  const Form* const orb = std::get<0>(GetParam()).form;
  const OrbU32 from = std::get<1>(GetParam());
  const OrbU32 to = std::get<2>(GetParam());
};

TEST_P(CopyBlockSizesTest, copy_sizes_around_every_border_is_the_same) {
  FormatAndMount(kMemory, 64, from, "FROM");
  FormatAndMount(kFirst, 64, to, "TO");
  for (const OrbU32 block : {from, to}) {
    for (const OrbU32 blocks : {0u, 1u, 2u, 6u, 7u}) {
      for (const OrbI32 off : {-1, 0, 1}) {
        const OrbU32 size = block * blocks + static_cast<OrbU32>(off);
        if (size > 0x7FFFFFFF) continue;
        MakeFile("FROM:F", Pattern(size, size));
        EXPECT_EQ(Ended(orb->copyFile("FROM:F", "TO:F")), Succeeded()) << size;
        EXPECT_EQ(SizeOf("TO:F"), size);
        EXPECT_EQ(Contents("TO:F"), Pattern(size, size)) << size;
        EXPECT_EQ(Ended(OrbDeleteFileA("TO:F")), Succeeded());
        EXPECT_EQ(Ended(OrbDeleteFileA("FROM:F")), Succeeded());
      }
    }
  }
}

// No more blocks than the data needs, the rest of the last one zero.
TEST_P(CopyBlockSizesTest, copy_takes_the_blocks_it_needs) {
  FormatAndMount(kMemory, 64, from, "FROM");
  for (const OrbU32 size : {1u, 1024u, 1500u, 2048u, 4096u, 5000u, 6144u}) {
    FormatAndMount(kFirst, 64, to, "TO");
    MakeFile("FROM:F", Pattern(1, size));
    EXPECT_EQ(Ended(orb->copyFile("FROM:F", "TO:F")), Succeeded()) << size;
    EXPECT_EQ(Ended(OrbDeleteFileA("FROM:F")), Succeeded());
    Unmount("TO");
    const Image image(kFirst);
    const OrbU32 blocks = (size + to - 1) / to;
    EXPECT_EQ(image.NodeSize(2), size);
    EXPECT_EQ(image.Blocks(), 2 + blocks) << size;
    for (OrbU32 slot = 0; slot < 6; ++slot) EXPECT_EQ(image.Direct(2, slot), slot < blocks ? 3 + slot : 0) << size;
    EXPECT_TRUE(image.All(image.Block(3) + size, std::size_t{blocks} * to - size, 0)) << size;
    std::remove(kFirst);
  }
}

INSTANTIATE_TEST_SUITE_P(Pairs, CopyBlockSizesTest,
                         ::testing::Combine(::testing::ValuesIn(EveryFormOnHost()),
                                            ::testing::Values(1024u, 2048u, 4096u, 8192u),
                                            ::testing::Values(1024u, 2048u, 4096u, 8192u)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).form->name) +
                                  std::to_string(std::get<1>(test.param)) + "to" +
                                  std::to_string(std::get<2>(test.param));
                         });

TEST_P(CopyOnHostTest, large_file_goes_through_both_maps) {
  FormatAndMount(kMemory, 64, 8192, "LARGE");
  const Bytes data = Pattern(1, 300001);
  MakeFile("LARGE:F", data);
  EXPECT_EQ(Ended(orb->copyFile("LARGE:F", "F")), Succeeded());
  EXPECT_EQ(Contents("F"), data);
  EXPECT_EQ(Ended(orb->copyFile("F", "G")), Succeeded());
  EXPECT_EQ(Contents("G"), data);
  EXPECT_EQ(Ended(orb->copyFile("G", "LARGE:G")), Succeeded());
  EXPECT_EQ(Contents("LARGE:G"), data);
}

// ---- Times ----------------------------------------------------------------------------------------------------------

TEST_P(CopyOnHostTest, any_size_keeps_the_sources_stamp) {
  const std::vector<OrbU32> sizes = {0, 1, 1024, 5000};
  for (const OrbU32 size : sizes) MakeFile("F" + std::to_string(size), Pattern(1, size));
  Unmount("VOL");
  for (OrbU32 node = 2; node < 2 + sizes.size(); ++node) MakeOld(kFirst, node);
  Mount(kFirst, "VOL");
  FormatAndMount(kSecond, 64, 2048, "OTHER");
  for (const OrbU32 size : sizes) {
    const std::string name = "F" + std::to_string(size);
    EXPECT_EQ(Ended(orb->copyFile(name.c_str(), (name + "C").c_str())), Succeeded()) << size;
    EXPECT_EQ(Ended(orb->copyFile(name.c_str(), ("OTHER:" + name).c_str())), Succeeded()) << size;
  }
  Unmount("VOL");
  Unmount("OTHER");
  Mount(kFirst, "VOL");
  Mount(kSecond, "OTHER");
  for (const OrbU32 size : sizes) {
    const std::string name = "F" + std::to_string(size);
    for (const std::string& path : {name, name + "C", "OTHER:" + name}) EXPECT_EQ(Find(path).time, kLongAgo) << path;
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, CopyOnHostTest, ::testing::ValuesIn(EveryFormOnHost()), VariantName);

}  // namespace
}  // namespace api
