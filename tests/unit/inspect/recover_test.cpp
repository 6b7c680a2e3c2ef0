#include "inspect/repair/recover.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/memory_destination.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::BadByte;
using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::LongImage;
using testimage::MemoryDestination;
using testimage::Pattern;

struct ThreeFiles : ImageBuilder {
  ThreeFiles() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1500);
    AddDirectory(1, "D");
    AddFile(3, "B", 300 * 1024);
    AddDirectory(3, "E");
    AddFile(5, "EMPTY", 0);
  }
};

// The search for the layout looks past the end of so small a container.
TEST(Recover, header_lost_and_host_reads_all_nothing_is_unreadable) {
  MemoryDestination destination;
  ImageBuilder image(1024, 32);
  image.AddFile(1, "A", 10);
  std::fill_n(image.bytes().begin(), 128, std::uint8_t{0});
  const Recovered result = Recover(MemoryImage(image.bytes()), "out", &destination);
  EXPECT_EQ(result.files, 1u);
  EXPECT_EQ(result.unreadable, 0u);
}

TEST(Recover, sound_container_everything_is_copied) {
  MemoryDestination destination;
  const ThreeFiles image;
  const Recovered result = Recover(MemoryImage(image.bytes()), "out", &destination);
  EXPECT_TRUE(result.possible);
  EXPECT_EQ(result.files, 3u);
  EXPECT_EQ(result.directories, 2u);
  EXPECT_EQ(result.bytes, 1500u + 300 * 1024);
  EXPECT_TRUE(result.repairs.empty());
  EXPECT_TRUE(result.failures.empty());
  EXPECT_EQ(destination.files["out/A"].contents, Pattern(1500, 1501));
  EXPECT_EQ(destination.files["out/D/B"].contents, Pattern(300 * 1024, 300 * 1024 + 1));
  EXPECT_EQ(destination.files["out/D/E/EMPTY"].contents, Bytes());
}

TEST(Recover, container_too_long_everything_is_copied) {
  MemoryDestination destination;
  const ThreeFiles image;
  const Recovered result = Recover(LongImage(image.bytes(), kContainerLimit), "out", &destination);
  EXPECT_TRUE(result.possible);
  EXPECT_EQ(result.files, 3u);
  EXPECT_EQ(result.unreadable, 0u);
  EXPECT_EQ(destination.files["out/D/B"].contents, Pattern(300 * 1024, 300 * 1024 + 1));
}

// The last block of /A ends with the last byte that a container can have.
TEST(Recover, container_as_long_as_can_be_its_last_byte_counts) {
  constexpr std::uint64_t kLength = 0x7FFFFFFF;
  constexpr std::uint32_t kReserved = 8191 - 1056;  // of the data area's offset, 1056, to the next one that fits
  constexpr std::uint32_t kLast = (kLength - 8191) / 8192;
  struct Longest : MemoryImage {
    using MemoryImage::MemoryImage;
    std::uint64_t Size() const override { return kLength; }
    bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
      if (offset > kLength || count > kLength - offset) return false;
      std::memset(out, 7, count);
      const std::uint64_t end = MemoryImage::Size();
      if (offset >= end) return true;
      return MemoryImage::Read(offset, out, static_cast<std::size_t>(std::min<std::uint64_t>(count, end - offset)));
    }
  };
  ImageBuilder image(8192, 32);
  const std::uint16_t node = image.AddFile(1, "A", 2 * 8192);
  image.Put32(image.MapOffset(node, 1), kLast);
  image.Put32(32, kReserved);
  image.Put32(36, 1056 + kReserved);
  image.bytes().insert(image.bytes().begin() + 1056, kReserved, std::uint8_t{0});
  MemoryDestination destination;
  const Recovered result = Recover(Longest(image.bytes()), "out", &destination);
  EXPECT_EQ(result.files, 1u);
  const Bytes& contents = destination.files["out/A"].contents;
  ASSERT_EQ(contents.size(), 2u * 8192);
  EXPECT_EQ(contents.back(), 7);
}

TEST(Recover, time_stamps_are_handed_on) {
  MemoryDestination destination;
  Recover(MemoryImage(ThreeFiles().bytes()), "out", &destination);
  const TimeStamp& time = destination.files["out/A"].time;
  EXPECT_EQ(time.year, 2004);
  EXPECT_EQ(time.month, 6);
  EXPECT_EQ(time.second, 45);
}

TEST(Recover, damaged_container_names_survive_and_lost_nodes_are_there) {
  MemoryDestination destination;
  ThreeFiles image;
  image.Put32(40, 0);                       // no block size
  image.SetFree(2, true);                   // A's node free
  image.Put16(image.EntryOffset(3, 2), 0);  // B without a name
  const Bytes before = image.bytes();
  const Recovered result = Recover(MemoryImage(before), "out", &destination);
  EXPECT_EQ(result.files, 3u);
  EXPECT_FALSE(result.repairs.empty());
  EXPECT_EQ(destination.files["out/A"].contents, Pattern(1500, 1501));
  EXPECT_EQ(destination.files["out/LOST.FND/NODE0004"].contents, Pattern(300 * 1024, 300 * 1024 + 1));
}

TEST(Recover, host_cannot_read_a_sector_zeros_stand_there) {
  MemoryDestination destination;
  const ThreeFiles image;
  const BadByte bad(image.bytes(), image.BlockOffset(image.MappedBlock(2, 1)) + 5);
  const Recovered result = Recover(bad, "out", &destination);
  EXPECT_EQ(result.unreadable, 1u);
  Bytes contents = Pattern(1500, 1501);
  const std::uint64_t into = image.BlockOffset(image.MappedBlock(2, 1)) % 512;  // the sector begins before the block
  std::fill(contents.begin() + 1024 - static_cast<std::ptrdiff_t>(into), contents.end(), std::uint8_t{0});
  EXPECT_EQ(destination.files["out/A"].contents, contents);
}

// Sectors end 480 and 992 bytes into the block, with entries 14 and 30.
TEST(Recover, host_cannot_read_a_sector_of_a_directory_the_other_names_survive) {
  ImageBuilder image(1024, 32);
  for (std::uint32_t i = 2; i < 32; ++i) image.AddFile(1, "F" + std::to_string(i), i);
  MemoryDestination destination;
  const Recovered result = Recover(BadByte(image.bytes(), image.EntryOffset(1, 15)), "out", &destination);
  EXPECT_EQ(result.unreadable, 1u);
  EXPECT_EQ(result.files, 30u);
  for (std::uint32_t i = 2; i < 32; ++i) {
    const bool named = i < 15 || i == 31;
    EXPECT_EQ(destination.files.count("out/F" + std::to_string(i)), named ? 1u : 0u) << i;
  }
}

TEST(Recover, names_that_hosts_reserve_are_changed_and_stay_unique) {
  MemoryDestination destination;
  ImageBuilder image(1024, 32);
  for (const char* name : {"AUX", "_AUX", "COM1.TXT", "COM", "END.", "END._", "NULL"}) image.AddFile(1, name, 3);
  const Recovered result = Recover(MemoryImage(image.bytes()), "out", &destination);
  EXPECT_EQ(result.files, 7u);
  for (const char* name : {"_AUX", "_AUX~2", "_COM1.TXT", "COM", "END._", "END._~2", "NULL"}) {
    EXPECT_EQ(destination.files.count(std::string("out/") + name), 1u) << name;
  }
  EXPECT_EQ(result.renamed, (std::vector<std::string>{"/AUX -> _AUX", "/_AUX -> _AUX~2", "/COM1.TXT -> _COM1.TXT",
                                                      "/END. -> END._", "/END._ -> END._~2"}));
}

// Every node is in use: of a file with two names repair can make no second one.
struct Full : ImageBuilder {
  explicit Full(const std::string& last, const std::string& other = "F", std::uint32_t size = 700)
      : ImageBuilder(1024, 1) {
    const std::uint16_t file = AddFile(1, "A", size);
    for (const std::string& name : {std::string("B"), std::string("C"), std::string("D"), std::string("E"), other}) {
      AddFile(1, name, 0u);
    }
    AddDirectory(1, last);
    AddEntry(8, "TOO", file);
  }
};

TEST(Recover, repair_would_cost_a_file_it_is_copied_all_the_same) {
  const Full image("G");
  ASSERT_TRUE(PlanRepair(MemoryImage(image.bytes()), {2010, 1, 2, 3, 4, 5, 0}).BreaksPromise());
  MemoryDestination destination;
  const Recovered result = Recover(MemoryImage(image.bytes()), "out", &destination);
  EXPECT_EQ(result.failures, std::vector<std::string>());
  EXPECT_EQ(result.files, 7u);
  EXPECT_EQ(destination.files.size(), 7u);
  std::uint32_t copies = 0;
  for (const auto& [path, file] : destination.files) copies += file.contents == Pattern(700, 701) ? 1 : 0;
  EXPECT_EQ(copies, 2u);
  EXPECT_EQ(destination.directories, (std::vector<std::string>{"out", "out/G", "out/LOST.FND"}));
  EXPECT_EQ(result.directories, 2u);
}

TEST(Recover, repair_would_cost_a_file_it_goes_to_the_lost_found_that_is_there) {
  MemoryDestination destination;
  const Recovered result = Recover(MemoryImage(Full("LOST.FND").bytes()), "out", &destination);
  EXPECT_EQ(result.files, 7u);
  EXPECT_EQ(destination.directories, (std::vector<std::string>{"out", "out/LOST.FND"}));
  EXPECT_EQ(destination.files["out/LOST.FND/A"].contents, Pattern(700, 701));
}

TEST(Recover, repair_would_cost_a_file_and_lost_found_is_a_file_there_is_another) {
  MemoryDestination destination;
  const Recovered result = Recover(MemoryImage(Full("G", "LOST.FND").bytes()), "out", &destination);
  EXPECT_EQ(result.failures, std::vector<std::string>());
  EXPECT_EQ(destination.directories, (std::vector<std::string>{"out", "out/G", "out/LOST.FND~2"}));
  EXPECT_EQ(destination.files.count("out/LOST.FND"), 1u);
  EXPECT_EQ(destination.files["out/LOST.FND~2/A"].contents, Pattern(700, 701));
}

TEST(Recover, repair_would_cost_a_file_step_is_told_its_path) {
  MemoryDestination destination;
  std::string last;
  Recover(MemoryImage(Full("G").bytes()), "out", &destination, [&](const std::string& path) { last = path; });
  EXPECT_EQ(last, "/LOST.FND/A");
}

TEST(Recover, repair_would_cost_a_file_and_the_folder_is_refused_nothing_is_copied) {
  MemoryDestination destination;
  destination.refused = "out";
  const Recovered result = Recover(MemoryImage(Full("G").bytes()), "out", &destination);
  EXPECT_EQ(result.failures, std::vector<std::string>{"/: refused"});
  EXPECT_TRUE(destination.directories.empty());
  EXPECT_TRUE(destination.files.empty());
}

// The file's last byte lies in the next sector.
TEST(Recover, repair_would_cost_a_file_with_a_bad_sector_the_byte_behind_it_is_copied) {
  const Full image("G", "F", 512);
  const std::uint64_t start = image.BlockOffset(image.MappedBlock(2, 0));
  ASSERT_EQ(start % 512, 1u);
  MemoryDestination destination;
  Recover(BadByte(image.bytes(), start), "out", &destination);
  Bytes contents(512);
  contents.back() = Pattern(512, 513).back();
  EXPECT_EQ(destination.files["out/LOST.FND/A"].contents, contents);
}

// A container that is another one from the first directory on that is made.
struct Changing : Image {
  Changing(const Bytes& first, const Bytes& then) : before(first), after(then) {}
  std::uint64_t Size() const override { return before.Size(); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    return (changed ? after : before).Read(offset, out, count);
  }
  const MemoryImage before;
  const MemoryImage after;
  bool changed = false;
};
struct ChangingDestination : MemoryDestination {
  explicit ChangingDestination(Changing* image) : container(image) {}
  std::string MakeDirectory(const std::string& path) override {
    container->changed = true;
    return MemoryDestination::MakeDirectory(path);
  }
  Changing* container;
};

TEST(Recover, container_changes_meanwhile_what_can_be_read_is_copied_to_its_place) {
  ThreeFiles image;
  image.AddFile(image.AddDirectory(1, "P"), "Q", 70u);
  const Bytes sound = image.bytes();
  image.SetSize(7, 2048);
  image.AddEntry(3, "LOOP", 3);
  image.AddEntry(3, "GONE", 250);
  image.AddEntry(3, "LAST", 2);
  Changing container(sound, image.bytes());
  ChangingDestination destination(&container);
  const Recovered result = Recover(container, "out", &destination);
  EXPECT_EQ(result.failures,
            (std::vector<std::string>{"/D/LOOP: it leads back to a directory above it",
                                      "/D/GONE: no block holds its node 250", "/P: no block for logical block 1"}));
  EXPECT_EQ(result.files, 5u);
  for (const char* path : {"out/A", "out/D/B", "out/D/E/EMPTY", "out/D/LAST", "out/P/Q"}) {
    EXPECT_EQ(destination.files.count(path), 1u) << path;
  }
}

TEST(Recover, root_is_lost_meanwhile_that_is_the_failure) {
  ThreeFiles image;
  const Bytes sound = image.bytes();
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(1)), 64, std::uint8_t{0});
  Changing container(sound, image.bytes());
  ChangingDestination destination(&container);
  const Recovered result = Recover(container, "out", &destination);
  EXPECT_TRUE(result.possible);
  EXPECT_EQ(result.failures, std::vector<std::string>{"/: the record of its node 1 is lost"});
}

TEST(Recover, file_is_refused_the_others_are_copied) {
  MemoryDestination destination;
  destination.refused = "out/A";
  const Recovered result = Recover(MemoryImage(ThreeFiles().bytes()), "out", &destination);
  EXPECT_EQ(result.files, 2u);
  EXPECT_EQ(result.failures, std::vector<std::string>{"/A: refused"});
}

TEST(Recover, directory_is_refused_what_lies_in_it_is_not_tried) {
  MemoryDestination destination;
  destination.refused = "out/D/E";
  const Recovered result = Recover(MemoryImage(ThreeFiles().bytes()), "out", &destination);
  EXPECT_EQ(result.failures, std::vector<std::string>{"/D/E: refused"});
  EXPECT_EQ(result.directories, 1u);
  EXPECT_EQ(result.files, 2u);
  EXPECT_EQ(destination.directories, (std::vector<std::string>{"out", "out/D"}));
}

TEST(Recover, directory_is_refused_what_comes_after_it_is_in_its_place) {
  ThreeFiles image;
  image.AddFile(1, "Z", 3u);
  MemoryDestination destination;
  destination.refused = "out/D";
  EXPECT_EQ(Recover(MemoryImage(image.bytes()), "out", &destination).files, 2u);
  EXPECT_EQ(destination.files.count("out/Z"), 1u);
}

TEST(Recover, contents_are_not_taken_they_do_not_count) {
  struct Refusing : MemoryDestination {
    std::string WriteFile(const std::string&, const TimeStamp&, const Contents& contents) override {
      contents([](const std::uint8_t*, std::size_t) { return false; });
      return "no room";
    }
  } destination;
  const Recovered result = Recover(MemoryImage(Full("G").bytes()), "out", &destination);
  EXPECT_EQ(result.files, 0u);
  EXPECT_EQ(result.bytes, 0u);
}

TEST(Recover, folder_is_refused_nothing_is_copied) {
  MemoryDestination destination;
  destination.refused = "out";
  const Recovered result = Recover(MemoryImage(ThreeFiles().bytes()), "out", &destination);
  EXPECT_TRUE(result.possible);
  EXPECT_EQ(result.failures, std::vector<std::string>{"/: refused"});
  EXPECT_EQ(result.files, 0u);
}

TEST(Recover, no_container_says_so_and_copies_nothing) {
  MemoryDestination destination;
  const Recovered result = Recover(MemoryImage(Bytes(50000, 3)), "out", &destination);
  EXPECT_FALSE(result.possible);
  EXPECT_EQ(result.failures.size(), 1u);
  EXPECT_TRUE(destination.directories.empty());
}

TEST(Recover, step_is_told_each_path) {
  MemoryDestination destination;
  std::vector<std::string> paths;
  Recover(MemoryImage(ThreeFiles().bytes()), "out", &destination,
          [&](const std::string& path) { paths.push_back(path); });
  EXPECT_EQ(paths, (std::vector<std::string>{"/A", "/D", "/D/B", "/D/E", "/D/E/EMPTY"}));
}

TEST(Recover, many_equal_names_on_the_host_stay_apart) {
  ImageBuilder image(1024, 32);
  for (const char* name : {"END.", "END._", "END._~2", "END._~3"}) image.AddFile(1, name, 3);
  MemoryDestination destination;
  EXPECT_EQ(Recover(MemoryImage(image.bytes()), "out", &destination).files, 4u);
  EXPECT_EQ(destination.files.size(), 4u);
}

TEST(HostName, reserved_names_are_prefixed) {
  EXPECT_EQ(HostName("A.TXT"), "A.TXT");
  EXPECT_EQ(HostName("CON"), "_CON");
  EXPECT_EQ(HostName("PRN.A.B"), "_PRN.A.B");
  EXPECT_EQ(HostName("LPT9"), "_LPT9");
  EXPECT_EQ(HostName("LPT"), "LPT");
  EXPECT_EQ(HostName("LPT10"), "LPT10");
  EXPECT_EQ(HostName("LPT-"), "LPT-");
  EXPECT_EQ(HostName("LPTA"), "LPTA");
  EXPECT_EQ(HostName("COM0"), "_COM0");
  EXPECT_EQ(HostName("CONE"), "CONE");
  EXPECT_EQ(HostName("X."), "X._");
}

TEST(HostName, illegal_names_become_legal) {
  EXPECT_EQ(HostName(""), "_");
  EXPECT_EQ(HostName("."), "__");
  EXPECT_EQ(HostName(".."), "___");
  EXPECT_EQ(HostName("../A"), ".._A");
  EXPECT_EQ(HostName("A B\xFF/"), "A_B__");
  EXPECT_EQ(HostName("a"), "a");
}

}  // namespace
}  // namespace orba::inspect
