#include "inspect/container/reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>

#include "tests/support/image_builder.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::BadByte;
using testimage::Bytes;
using testimage::Counting;
using testimage::ImageBuilder;
using testimage::Pattern;

// The root holds A (a file of 1500 bytes), D and D/B (of 300 KiB), D/E, D/E/EMPTY.
struct SmallTree : ImageBuilder {
  explicit SmallTree(std::uint32_t size = 1024) : ImageBuilder(size, 32) {
    a = AddFile(1, "A", 1500);
    d = AddDirectory(1, "D");
    b = AddFile(d, "B", 300 * 1024);
    e = AddDirectory(d, "E");
    empty = AddFile(e, "EMPTY", 0u);
  }
  std::uint16_t a, d, b, e, empty;
};

// An image with its reader.
struct Opened {
  explicit Opened(const ImageBuilder& builder) : image(builder.bytes()), reader(image) {}

  Node Find(const std::string& path) {
    Node node;
    EXPECT_FALSE(reader.Find(path, &node).IsFailure()) << path;
    return node;
  }
  Trouble FindTrouble(const std::string& path) {
    Node node;
    return reader.Find(path, &node).trouble;
  }
  Bytes Contents(const Node& file, Trouble expected = Trouble::kNone) {
    Bytes bytes;
    const Problem problem = reader.ReadAll(file, [&bytes](const std::uint8_t* piece, std::size_t count) {
      bytes.insert(bytes.end(), piece, piece + count);
      return true;
    });
    EXPECT_EQ(problem.trouble, expected) << Name(problem.trouble);
    return bytes;
  }

  MemoryImage image;
  Reader reader;
};

std::vector<std::string> Names(const Listing& listing) {
  std::vector<std::string> names;
  for (const Listed& entry : listing.entries) names.push_back(entry.name);
  return names;
}

std::vector<Trouble> Troubles(const std::vector<Problem>& problems) {
  std::vector<Trouble> troubles;
  for (const Problem& problem : problems) troubles.push_back(problem.trouble);
  return troubles;
}

using Strings = std::vector<std::string>;
using Found = std::vector<Trouble>;

// What a walk from the root tells: "/A", "/D", "/D/ (left)", "/D: directory-loop".
Strings WalkAll(Reader* reader) {
  Strings told;
  Node root;
  EXPECT_FALSE(reader->Root(&root).IsFailure());
  Budget budget(reader->geometry());
  const auto tell = [&told](const Step& step) {
    const char* const rest = step.what == Step::What::kLeave ? "/" : "";
    const std::string why = step.what == Step::What::kProblem ? std::string(": ") + Name(step.problem.trouble) : "";
    told.push_back(step.path + rest + why);
    return Onward::kOn;
  };
  EXPECT_TRUE(Walk(reader, root, "", tell, &budget));
  return told;
}

// ---- Opening --------------------------------------------------------------------------------------------------------

TEST(Reader, sound_container_opens_without_problems) {
  Opened opened{SmallTree()};
  EXPECT_TRUE(opened.reader.readable());
  EXPECT_FALSE(opened.reader.marked());
  EXPECT_TRUE(opened.reader.problems().empty());
  EXPECT_EQ(opened.reader.geometry().blockSize, 1024u);
  EXPECT_EQ(opened.reader.FreeNodes(), 256u - 6);
}

TEST(Reader, marked_container_is_read_all_the_same) {
  SmallTree image;
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  Opened opened(image);
  EXPECT_TRUE(opened.reader.marked());
  EXPECT_TRUE(opened.reader.problems().empty());
  EXPECT_EQ(opened.Contents(opened.Find("/A")), Pattern(1500, 1501));
}

TEST(Reader, header_erased_problem_said_and_contents_read) {
  SmallTree image;
  std::fill(image.bytes().begin(), image.bytes().begin() + kHeaderSize, std::uint8_t{0});
  Opened opened(image);
  EXPECT_EQ(Troubles(opened.reader.problems()), Found{Trouble::kHeaderDamaged});
  EXPECT_EQ(opened.Contents(opened.Find("/A")), Pattern(1500, 1501));
}

TEST(Reader, header_alone_tells_of_the_mark) {
  SmallTree image;
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  image.bytes().resize(kHeaderSize);
  EXPECT_TRUE(Opened(image).reader.marked());
}

TEST(Reader, container_that_ends_within_its_tables_is_said) {
  SmallTree image;
  image.bytes().resize(1030);
  EXPECT_EQ(Troubles(Opened(image).reader.problems()), Found{Trouble::kContainerShort});
  image.bytes().resize(1000);
  EXPECT_EQ(Troubles(Opened(image).reader.problems()), (Found{Trouble::kContainerShort, Trouble::kContainerShort}));
}

TEST(Reader, header_field_damaged_is_said) {
  for (const std::uint32_t offset : {0u, 4u, 8u, 40u}) {
    SmallTree image;
    image.Put32(offset, image.Get32(offset) ^ 0x100);
    Opened opened(image);
    EXPECT_EQ(Troubles(opened.reader.problems()), Found{Trouble::kHeaderDamaged}) << offset;
    EXPECT_EQ(opened.reader.problems()[0].node, 0u) << offset;
    EXPECT_EQ(opened.Contents(opened.Find("/A")), Pattern(1500, 1501)) << offset;
  }
}

TEST(Reader, host_cannot_read_the_tables_is_said) {
  const SmallTree image;
  const BadByte table(image.bytes(), 500);
  EXPECT_EQ(Troubles(Reader(table).problems()), Found{Trouble::kHostCannotRead});
  const BadByte bitmap(image.bytes(), 1030);
  Reader reader(bitmap);
  Node node;
  EXPECT_EQ(Troubles(reader.problems()), Found{Trouble::kHostCannotRead});
  EXPECT_FALSE(reader.Find("/A", &node));
  EXPECT_EQ(reader.FreeNodes(), 0u);
}

TEST(Reader, no_container_every_call_says_so) {
  const MemoryImage image(Bytes(5000, 7));
  Reader reader(image);
  Node node;
  EXPECT_FALSE(reader.readable());
  EXPECT_EQ(Troubles(reader.problems()), Found{Trouble::kLayoutUnknown});
  EXPECT_EQ(reader.Root(&node).trouble, Trouble::kLayoutUnknown);
  EXPECT_EQ(reader.Find("/A", &node).trouble, Trouble::kLayoutUnknown);
  EXPECT_EQ(reader.FindIn(node, "A", &node).trouble, Trouble::kLayoutUnknown);
  EXPECT_EQ(Troubles(reader.List(node).problems), Found{Trouble::kLayoutUnknown});
  EXPECT_EQ(reader.ReadAll(node, [](const std::uint8_t*, std::size_t) { return true; }).trouble,
            Trouble::kLayoutUnknown);
  Extent extent;
  EXPECT_EQ(reader.FindExtent(node, 0, 1, &extent).trouble, Trouble::kLayoutUnknown);
  Problem problem;
  EXPECT_EQ(reader.FreeBlocks(&problem), 0u);
  EXPECT_EQ(problem.trouble, Trouble::kLayoutUnknown);
  EXPECT_EQ(reader.FreeNodes(), 0u);
}

TEST(Reader, empty_file_is_no_container) {
  const MemoryImage image{Bytes()};
  EXPECT_FALSE(Reader(image).readable());
}

TEST(Reader, bitmap_of_no_bytes_root_alone_is_there) {
  Opened opened{ImageBuilder(1024, 0)};
  EXPECT_TRUE(opened.reader.problems().empty());
  EXPECT_TRUE(opened.Find("/").directory);
  EXPECT_EQ(WalkAll(&opened.reader), Strings{"/"});
  EXPECT_EQ(opened.FindTrouble("/A"), Trouble::kNotFound);
  EXPECT_EQ(opened.reader.FreeNodes(), 0u);
}

TEST(Reader, free_chain_is_counted_with_its_records) {
  SmallTree image;
  const std::uint32_t first = image.AppendBlock();
  const std::uint32_t second = image.AppendBlock();
  image.SetChain({{first}, {second, second}});
  Opened opened(image);
  Problem problem;
  EXPECT_EQ(opened.reader.FreeBlocks(&problem), 4u);
  EXPECT_FALSE(problem);
}

TEST(Reader, free_chain_full_record_is_counted) {
  SmallTree image;
  std::vector<std::uint32_t> blocks;
  for (std::uint32_t i = 0; i < 253; ++i) blocks.push_back(image.AppendBlock());
  image.SetChain({blocks});
  Problem problem;
  EXPECT_EQ(Opened(image).reader.FreeBlocks(&problem), 254u);
  EXPECT_FALSE(problem);
}

TEST(Reader, free_chain_broken_is_counted_up_to_there) {
  SmallTree sound;
  const std::uint32_t behind = sound.AppendBlock();
  const std::vector<std::uint32_t> records = sound.SetChain({{}, {behind}});
  const std::uint64_t second = sound.BlockOffset(records[1]);
  for (const auto& [offset, value] : std::vector<std::pair<std::uint64_t, std::uint32_t>>{
           {second, 0x31434247}, {second + 8, 254}, {sound.BlockOffset(records[0]) + 4, 1000000}}) {
    SmallTree image = sound;
    image.Put32(offset, value);
    Problem problem;
    EXPECT_EQ(Opened(image).reader.FreeBlocks(&problem), offset < second ? 1u : 2u) << offset;
    EXPECT_EQ(problem.trouble, Trouble::kBlockForeign) << offset;
  }
}

TEST(Reader, free_chain_in_a_circle_is_counted_once_and_said) {
  SmallTree image;
  const std::uint32_t record = image.SetChain({{}})[0];
  image.Put32(image.BlockOffset(record) + 4, record);
  Opened opened(image);
  Problem problem;
  EXPECT_EQ(opened.reader.FreeBlocks(&problem), 1u);
  EXPECT_EQ(problem.trouble, Trouble::kBlockForeign);
  EXPECT_EQ(problem.block, record);
  EXPECT_EQ(problem.node, 0u);
}

// ---- Paths ----------------------------------------------------------------------------------------------------------

TEST(Reader, path_is_found_whatever_the_case_and_the_slashes) {
  const SmallTree image;
  Opened opened(image);
  EXPECT_EQ(opened.Find("/D/E/EMPTY").number, image.empty);
  EXPECT_EQ(opened.Find("//d/e//empty/").number, image.empty);
  EXPECT_EQ(opened.Find("D/./E/../B").number, image.b);
  EXPECT_EQ(opened.Find("D/../A").number, image.a);
  EXPECT_EQ(opened.Find("/../..").number, kRootNode);
  EXPECT_EQ(opened.Find("").number, kRootNode);
}

TEST(Reader, path_name_of_the_whole_width_is_found) {
  ImageBuilder image(1024, 32);
  const std::string longest(29, 'L');
  const std::uint16_t file = image.AddFile(1, longest, 5);
  Opened opened(image);
  EXPECT_EQ(opened.Find(longest).number, file);
  EXPECT_EQ(opened.FindTrouble(longest.substr(1)), Trouble::kNotFound);
  EXPECT_EQ(opened.FindTrouble(longest + "L"), Trouble::kNotFound);
  EXPECT_EQ(opened.FindTrouble(longest + "LL"), Trouble::kNotFound);
}

TEST(Reader, path_leads_to_names_in_lower_case) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "A", 5);
  image.PutText(image.EntryOffset(1, 2) + 2, "az{Q");
  Opened opened(image);
  EXPECT_EQ(opened.Find("/AZ{q").number, file);
  EXPECT_EQ(opened.FindTrouble("/AZ[Q"), Trouble::kNotFound);
}

TEST(Reader, path_that_is_not_there_says_why) {
  Opened opened{SmallTree()};
  EXPECT_EQ(opened.FindTrouble("/X"), Trouble::kNotFound);
  EXPECT_EQ(opened.FindTrouble("/X/Y"), Trouble::kNotFound);
  EXPECT_EQ(opened.FindTrouble("/A/Y"), Trouble::kNotADirectory);
}

TEST(Reader, path_beside_a_block_that_cannot_be_read_says_that) {
  SmallTree image;
  image.Put32(image.NodeOffset(image.e) + 32, 0);
  Opened opened(image);
  Node node;
  const Problem problem = opened.reader.Find("/D/E/EMPTY", &node);
  EXPECT_EQ(problem.trouble, Trouble::kHole);
  EXPECT_EQ(problem.node, image.e);
  EXPECT_EQ(problem.index, 0u);
}

// ---- Nodes ----------------------------------------------------------------------------------------------------------

TEST(Reader, node_numbers_that_cannot_be_are_outside) {
  Opened opened{SmallTree()};
  Node node;
  EXPECT_EQ(opened.reader.ReadNode(0, &node).trouble, Trouble::kNodeOutside);
  EXPECT_EQ(opened.reader.ReadNode(257, &node).trouble, Trouble::kNodeOutside);
  EXPECT_EQ(opened.reader.ReadNode(256, &node).trouble, Trouble::kNodeWithoutBlock);
  EXPECT_EQ(node.number, 256u);
}

TEST(Reader, node_free_bit_is_told_and_no_reason_to_stop) {
  SmallTree image;
  image.SetFree(image.a, true);
  Opened opened(image);
  EXPECT_TRUE(opened.Find("/A").free);
  EXPECT_FALSE(opened.Find("/D").free);
}

TEST(Reader, node_slot_overwritten_is_lost) {
  SmallTree image;
  std::fill_n(image.bytes().begin() + static_cast<long>(image.NodeOffset(image.a)), kNodeSize, std::uint8_t{0xEE});
  Opened opened(image);
  EXPECT_EQ(opened.FindTrouble("/A"), Trouble::kNodeLost);
}

TEST(Reader, node_slot_of_zeros_is_lost) {
  SmallTree image;
  std::fill_n(image.bytes().begin() + static_cast<long>(image.NodeOffset(image.a)), kNodeSize, std::uint8_t{0});
  Opened opened(image);
  EXPECT_EQ(opened.FindTrouble("/A"), Trouble::kNodeLost);
}

TEST(Reader, node_another_number_is_a_remark) {
  SmallTree image;
  image.Put16(image.NodeOffset(image.a) + 4, 99);
  Opened opened(image);
  EXPECT_EQ(opened.FindTrouble("/A"), Trouble::kNodeNumber);
  EXPECT_EQ(opened.Find("/A").number, image.a);
  EXPECT_EQ(opened.Contents(opened.Find("/A")), Pattern(1500, 1501));
}

TEST(Reader, node_signature_and_number_gone_is_taken_when_its_fields_are_sound) {
  SmallTree image;
  image.Put32(image.NodeOffset(image.a), 0);
  image.Put16(image.NodeOffset(image.a) + 4, 0);
  Opened opened(image);
  EXPECT_EQ(opened.FindTrouble("/A"), Trouble::kNodeNumber);
}

TEST(Reader, node_without_signature_and_number_is_judged_by_each_field) {
  struct Field {
    std::uint32_t offset, width, value;
    bool sound;
  };
  const std::uint32_t blocks = SmallTree().Blocks();
  const Field fields[] = {
      {6, 2, 1, true},           {6, 2, 2, true},
      {6, 2, 3, true},           {6, 2, 4, false},
      {6, 2, 9, false},          {10, 1, 13, false},
      {16, 4, 0x7FFFFFFF, true}, {16, 4, 0x80000000, false},
      {20, 4, 1, false},         {28, 4, 1, false},
      {32, 4, blocks, true},     {32, 4, blocks + 1, false},
      {52, 4, blocks, true},     {52, 4, blocks + 1, false},
      {56, 4, blocks, true},     {56, 4, blocks + 1, false},
      {60, 4, blocks, true},     {60, 4, blocks + 1, false},
  };
  for (const Field& field : fields) {
    SmallTree image;
    const std::uint64_t slot = image.NodeOffset(image.a);
    image.Put32(slot, 0);
    image.Put16(slot + 4, 0);
    if (field.width == 1) image.Put8(slot + field.offset, static_cast<std::uint8_t>(field.value));
    if (field.width == 2) image.Put16(slot + field.offset, static_cast<std::uint16_t>(field.value));
    if (field.width == 4) image.Put32(slot + field.offset, field.value);
    EXPECT_EQ(Opened(image).FindTrouble("/A"), field.sound ? Trouble::kNodeNumber : Trouble::kNodeLost)
        << field.offset << " " << field.value;
  }
}

TEST(Reader, node_with_signature_or_number_is_taken_whatever_its_fields) {
  for (const bool signature : {true, false}) {
    SmallTree image;
    const std::uint64_t slot = image.NodeOffset(image.a);
    if (signature) {
      image.Put16(slot + 4, 0);
    } else {
      image.Put32(slot, 0);
    }
    image.Put32(slot + 20, 7);
    EXPECT_FALSE(ToText({Opened(image).FindTrouble("/A"), 0, 0, 0}) == ToText({Trouble::kNodeLost, 0, 0, 0}));
    EXPECT_EQ(Opened(image).Find("/A").size(), 1500u);
  }
}

TEST(Reader, directory_without_dots_is_one_as_long_as_a_name_leads_somewhere) {
  const auto kindOf = [](const ImageBuilder& image, std::uint16_t number) {
    Opened opened(image);
    Node node;
    return opened.reader.ReadNode(number, &node).trouble;
  };
  SmallTree image;
  for (const std::uint32_t entry : {0u, 1u}) image.PutText(image.EntryOffset(image.d, entry) + 2, "XX");
  image.Put16(image.EntryOffset(image.d, 0), 200);
  EXPECT_EQ(kindOf(image, image.d), Trouble::kNone);  // B and E lead somewhere
  image.PutText(image.EntryOffset(image.d, 3) + 2, "?");
  EXPECT_EQ(kindOf(image, image.d), Trouble::kNone);  // B does
  image.SetFree(image.b, true);
  EXPECT_EQ(kindOf(image, image.d), Trouble::kNodeKind);
  image.SetFree(image.b, false);
  image.Put16(image.EntryOffset(image.d, 2), 257);
  EXPECT_EQ(kindOf(image, image.d), Trouble::kNodeKind);
  image.Put16(image.EntryOffset(image.d, 2), kRootNode);
  EXPECT_EQ(kindOf(image, image.d), Trouble::kNodeKind);
  SmallTree first = image;
  first.PutText(first.EntryOffset(first.d, 0) + 2, std::string(".\0", 2));
  EXPECT_EQ(kindOf(first, first.d), Trouble::kNone);
  SmallTree own = image;
  own.Put16(own.EntryOffset(own.d, 0), own.d);
  EXPECT_EQ(kindOf(own, own.d), Trouble::kNone);
  SmallTree second = image;
  second.PutText(second.EntryOffset(second.d, 1) + 2, std::string("..\0", 3));
  EXPECT_EQ(kindOf(second, second.d), Trouble::kNone);
}

TEST(Reader, directory_of_zeros_is_one) {
  SmallTree image;
  const auto block = static_cast<long>(image.BlockOffset(image.MappedBlock(image.e, 0)));
  std::fill_n(image.bytes().begin() + block, 1024, std::uint8_t{0});
  Opened opened(image);
  EXPECT_TRUE(opened.Find("/D/E").directory);
  EXPECT_EQ(opened.FindTrouble("/D/E"), Trouble::kNone);
}

TEST(Reader, directory_kind_is_told_by_its_second_block_too) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  for (int i = 0; i < 40; ++i) image.AddFile(directory, "F" + std::to_string(i), 0u);
  const auto first = static_cast<long>(image.BlockOffset(image.MappedBlock(directory, 0)));
  std::fill_n(image.bytes().begin() + first, 1024, std::uint8_t{0xEE});
  Opened opened(image);
  EXPECT_TRUE(opened.Find("/D").directory);
  EXPECT_EQ(opened.FindTrouble("/D/F39"), Trouble::kNone);
}

TEST(Reader, file_that_only_looks_like_a_directory_is_a_file) {
  const auto isDirectory = [](std::uint32_t size, std::uint16_t number, const std::string& dot,
                              const std::string& dots) {
    ImageBuilder image(1024, 32);
    Bytes contents(size, 0);
    contents[0] = static_cast<std::uint8_t>(number);
    std::copy(dot.begin(), dot.end(), contents.begin() + 2);
    std::copy(dots.begin(), dots.end(), contents.begin() + 34);
    image.AddFile(1, "F", contents);
    return Opened(image).Find("/F").directory;
  };
  EXPECT_TRUE(isDirectory(64, 2, ".", ".."));
  EXPECT_TRUE(isDirectory(96, 2, ".", ".."));
  EXPECT_FALSE(isDirectory(65, 2, ".", ".."));
  EXPECT_FALSE(isDirectory(64, 3, ".", ".."));
  EXPECT_FALSE(isDirectory(64, 2, "X", ".."));
  EXPECT_FALSE(isDirectory(64, 2, ".", "."));
}

TEST(Reader, directory_with_a_files_attributes_is_a_directory) {
  SmallTree image;
  image.Put16(image.NodeOffset(image.d) + 6, 0);
  Opened opened(image);
  EXPECT_EQ(opened.FindTrouble("/D"), Trouble::kNodeKind);
  EXPECT_EQ(opened.Find("/D/E/EMPTY").number, image.empty);
}

TEST(Reader, file_with_a_directorys_attributes_is_a_file) {
  SmallTree image;
  image.Put16(image.NodeOffset(image.a) + 6, ORB_NODE_DIRECTORY);
  Opened opened(image);
  EXPECT_EQ(opened.FindTrouble("/A"), Trouble::kNodeKind);
  EXPECT_EQ(opened.Contents(opened.Find("/A")), Pattern(1500, 1501));
}

TEST(Reader, file_with_a_directorys_attributes_is_judged_by_its_own_blocks) {
  SmallTree hole;
  hole.Put16(hole.NodeOffset(hole.a) + 6, ORB_NODE_DIRECTORY);
  hole.Put32(hole.MapOffset(hole.a, 1), 0);
  EXPECT_EQ(Opened(hole).FindTrouble("/A"), Trouble::kNodeKind);
  SmallTree beyond;
  beyond.Put16(beyond.NodeOffset(beyond.a) + 6, ORB_NODE_DIRECTORY);
  beyond.Put32(beyond.MapOffset(beyond.a, 2), beyond.MappedBlock(1, 0));
  EXPECT_EQ(Opened(beyond).FindTrouble("/A"), Trouble::kNodeKind);
}

TEST(Reader, file_whose_first_block_the_host_cannot_read_is_a_file) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "F", 64u);
  const std::uint64_t block = image.BlockOffset(image.MappedBlock(2, 0));
  const BadByte host(image.bytes(), block);
  Reader reader(host);
  Node node;
  EXPECT_FALSE(reader.Find("/F", &node));
  EXPECT_FALSE(node.directory);
}

TEST(Reader, root_that_is_no_directory_is_lost) {
  SmallTree image;
  image.Put16(image.NodeOffset(1) + 6, 0);
  image.Put16(image.EntryOffset(1, 0), 9);
  Opened opened(image);
  Node node;
  EXPECT_EQ(opened.reader.Root(&node).trouble, Trouble::kNodeLost);
}

// ---- Contents -------------------------------------------------------------------------------------------------------

class ReaderBlockSize : public testing::TestWithParam<std::uint32_t> {};

TEST_P(ReaderBlockSize, contents_of_every_depth_of_the_map) {
  const std::uint32_t blockSize = GetParam();
  const std::uint32_t slots = blockSize / 4;
  for (const std::uint32_t blocks : {1u, 6u, 7u, 6 + slots, 8 + slots}) {
    ImageBuilder image(blockSize, 16);
    const std::uint32_t size = blocks * blockSize - 3;
    image.AddFile(1, "F", size);
    Opened opened(image);
    EXPECT_EQ(opened.Contents(opened.Find("/F")), Pattern(size, size + 1)) << blocks;
  }
}

TEST_P(ReaderBlockSize, contents_from_any_position) {
  const std::uint32_t blockSize = GetParam();
  const std::uint32_t size = 9 * blockSize + 5;
  ImageBuilder image(blockSize, 16);
  image.AddFile(1, "F", size);
  Opened opened(image);
  const Node file = opened.Find("/F");
  const Bytes all = Pattern(size, size + 1);
  for (const std::uint32_t position : {0u, 1u, blockSize - 1, blockSize, 6 * blockSize - 1, 6 * blockSize, size - 1}) {
    for (const std::uint32_t count : {0u, 1u, 2u, blockSize, blockSize + 1, size}) {
      Bytes part(count + 1, 0xAA);
      std::uint32_t done = 77;
      EXPECT_FALSE(opened.reader.Read(file, position, part.data(), count, &done));
      ASSERT_EQ(done, std::min(count, size - position));
      EXPECT_TRUE(std::equal(part.begin(), part.begin() + done, all.begin() + position)) << position << " " << count;
      EXPECT_EQ(part[done], 0xAA);
    }
  }
  std::uint32_t done = 77;
  EXPECT_FALSE(opened.reader.Read(file, size, nullptr, 5, &done));
  EXPECT_EQ(done, 0u);
  EXPECT_FALSE(opened.reader.Read(file, size + 1, nullptr, 5, &done));
  EXPECT_EQ(done, 0u);
}

INSTANTIATE_TEST_SUITE_P(all, ReaderBlockSize, testing::Values(1024, 2048, 4096, 8192));

TEST(Reader, contents_up_to_a_hole) {
  SmallTree image;
  image.Put32(image.MapOffset(image.b, 20), 0);
  Opened opened(image);
  const Bytes whole = Pattern(300 * 1024, 300 * 1024 + 1);
  EXPECT_EQ(opened.Contents(opened.Find("/D/B"), Trouble::kHole), Bytes(whole.begin(), whole.begin() + 20 * 1024));
}

TEST(Reader, contents_up_to_a_block_outside) {
  SmallTree image;
  image.Put32(image.MapOffset(image.a, 1), 100000);
  Opened opened(image);
  const Node file = opened.Find("/A");
  std::uint8_t bytes[1500];
  std::uint32_t done = 0;
  const Problem problem = opened.reader.Read(file, 10, bytes, sizeof bytes, &done);
  EXPECT_EQ(problem.trouble, Trouble::kBlockOutside);
  EXPECT_EQ(problem.node, image.a);
  EXPECT_EQ(problem.index, 1u);
  EXPECT_EQ(problem.block, 100000u);
  EXPECT_EQ(done, 1014u);
}

TEST(Reader, contents_without_map_block_end_before_it) {
  SmallTree image;
  image.Put32(image.NodeOffset(image.b) + 56, 0);
  Opened opened(image);
  EXPECT_EQ(opened.Contents(opened.Find("/D/B"), Trouble::kHole).size(), 6u * 1024);
}

TEST(Reader, contents_with_the_second_map_block_outside_end_before_it) {
  SmallTree image;
  image.Put32(image.BlockOffset(image.Get32(image.NodeOffset(image.b) + 60)), 0xFFFFFFFF);
  Opened opened(image);
  EXPECT_EQ(opened.Contents(opened.Find("/D/B"), Trouble::kBlockOutside).size(), (6u + 256) * 1024);
}

TEST(Reader, contents_up_to_what_the_host_cannot_read) {
  const SmallTree image;
  const std::uint64_t bad = image.BlockOffset(image.MappedBlock(image.b, 30));
  const BadByte host(image.bytes(), bad + 100);
  Reader reader(host);
  Node file;
  ASSERT_FALSE(reader.Find("/D/B", &file));
  std::size_t count = 0;
  const Problem problem = reader.ReadAll(file, [&count](const std::uint8_t*, std::size_t piece) {
    count += piece;
    return true;
  });
  EXPECT_EQ(problem.trouble, Trouble::kHostCannotRead);
  EXPECT_EQ(problem.index, 30u);
  EXPECT_EQ(count, 30u * 1024);
}

TEST(Reader, contents_from_within_a_block_up_to_what_the_host_cannot_read) {
  const SmallTree image;
  const std::uint64_t bad = image.BlockOffset(image.MappedBlock(image.b, 3));
  const BadByte host(image.bytes(), bad + 100);
  Reader reader(host);
  Node file;
  ASSERT_FALSE(reader.Find("/D/B", &file));
  const Bytes whole = Opened(image).Contents(file);
  Bytes bytes(3000);
  std::uint32_t done = 0;
  EXPECT_EQ(reader.Read(file, 1500, bytes.data(), 3000, &done).trouble, Trouble::kHostCannotRead);
  ASSERT_EQ(done, 3u * 1024 - 1500);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + done, whole.begin() + 1500));
}

TEST(Reader, contents_taker_may_stop) {
  Opened opened{SmallTree()};
  int calls = 0;
  EXPECT_FALSE(opened.reader.ReadAll(opened.Find("/D/B"), [&calls](const std::uint8_t*, std::size_t) {
    ++calls;
    return false;
  }));
  EXPECT_EQ(calls, 1);
}

TEST(Reader, contents_of_a_directory_are_no_files) {
  Opened opened{SmallTree()};
  EXPECT_EQ(opened.Contents(opened.Find("/D"), Trouble::kNotAFile), Bytes());
}

TEST(Reader, size_beyond_the_container_ends_with_its_blocks) {
  SmallTree image;
  const std::uint32_t indirect = image.Get32(image.NodeOffset(image.b) + 56);
  const std::uint32_t top = image.Get32(image.NodeOffset(image.b) + 60);
  for (std::uint32_t slot = 0; slot < 256; ++slot) {  // every map block leads to the same data
    image.Put32(image.BlockOffset(indirect) + 4 * slot, 1);
    image.Put32(image.BlockOffset(top) + 4 * slot, indirect);
  }
  image.SetSize(image.b, 60000000);
  Opened opened(image);
  const Bytes bytes = opened.Contents(opened.Find("/D/B"), Trouble::kSizeImpossible);
  EXPECT_GE(bytes.size(), std::size_t{opened.reader.geometry().blocks} * 1024);
  EXPECT_LT(bytes.size(), std::size_t{opened.reader.geometry().blocks} * 1024 + 65536);
}

TEST(Reader, extent_ends_where_blocks_lie_apart) {
  SmallTree image;
  image.Put32(image.MapOffset(image.b, 3), image.MappedBlock(image.b, 5));
  Opened opened(image);
  const Node file = opened.Find("/D/B");
  Extent extent;
  EXPECT_FALSE(opened.reader.FindExtent(file, 0, 100, &extent));
  EXPECT_EQ(extent.block, image.MappedBlock(image.b, 0));
  EXPECT_EQ(extent.count, 3u);
  EXPECT_FALSE(opened.reader.FindExtent(file, 0, 2, &extent));
  EXPECT_EQ(extent.count, 2u);
  EXPECT_FALSE(opened.reader.FindExtent(file, 3, 100, &extent));
  EXPECT_EQ(extent.count, 1u);
  EXPECT_FALSE(opened.reader.FindExtent(file, 300, 100, &extent));
  EXPECT_EQ(extent.count, 0u);
}

// ---- Directories ----------------------------------------------------------------------------------------------------

TEST(Reader, list_tells_entries_in_order_with_their_nodes) {
  const SmallTree image;
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/D"));
  EXPECT_TRUE(listing.problems.empty());
  ASSERT_EQ(Names(listing), (Strings{"B", "E"}));
  EXPECT_EQ(listing.entries[0].number, image.b);
  EXPECT_EQ(listing.entries[0].index, 2u);
  EXPECT_EQ(listing.entries[0].place, Listed::Place::kListed);
  EXPECT_EQ(listing.entries[0].node.size(), 300u * 1024);
  EXPECT_FALSE(listing.entries[0].node.directory);
  EXPECT_TRUE(listing.entries[1].node.directory);
}

TEST(Reader, list_of_a_file_says_so) {
  Opened opened{SmallTree()};
  EXPECT_EQ(Troubles(opened.reader.List(opened.Find("/A")).problems), Found{Trouble::kNotADirectory});
}

TEST(Reader, list_entry_of_a_lost_node_is_told_with_the_reason) {
  SmallTree image;
  image.Put16(image.EntryOffset(1, 2), 300);
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/"));
  ASSERT_EQ(Names(listing), (Strings{"A", "D"}));
  EXPECT_EQ(listing.entries[0].problem.trouble, Trouble::kNodeOutside);
  EXPECT_EQ(listing.entries[0].number, 300u);
  EXPECT_FALSE(listing.entries[1].problem);
}

TEST(Reader, list_reserved_and_illegal_and_equal_names_are_told) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "A", 5);
  for (const char* const name : {"..", ".", "B C", "a", "OK"}) image.AddEntry(1, name, file);
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/"));
  ASSERT_EQ(Names(listing), (Strings{"A", "..", ".", "B C", "a", "OK"}));
  std::vector<Problem> problems;
  for (const Listed& entry : listing.entries) problems.push_back(entry.nameProblem);
  EXPECT_EQ(Troubles(problems), (Found{Trouble::kNone, Trouble::kNameReserved, Trouble::kNameReserved,
                                       Trouble::kNameIllegal, Trouble::kNameTwice, Trouble::kNone}));
}

TEST(Reader, list_dots_behind_their_places_are_told) {
  ImageBuilder image(1024, 32);
  image.AddEntry(1, "..", 1);
  image.AddEntry(1, ".", 1);
  EXPECT_EQ(Names(Opened(image).reader.List(Opened(image).Find("/"))), (Strings{"..", "."}));
}

TEST(Reader, list_few_illegal_names_do_not_make_a_block_foreign) {
  for (const int names : {5, 6}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t file = image.AddFile(1, "A", 5);
    for (int i = 0; i < 29; ++i) image.AddEntry(1, "A" + std::to_string(i), file);
    for (int i = 0; i < names; ++i) image.AddEntry(1, "?" + std::to_string(i), file);
    Opened opened(image);
    const Listing listing = opened.reader.List(opened.Find("/"));
    EXPECT_EQ(Troubles(listing.problems), names == 6 ? Found{Trouble::kBlockForeign} : Found{});
    EXPECT_EQ(listing.entries.size(), names == 6 ? 30u : 35u);
  }
}

TEST(Reader, list_sizes_that_no_directory_has_are_told) {
  for (const std::uint32_t size : {0u, 65u, 0x400020u}) {
    SmallTree image;
    image.SetSize(image.d, size);
    Opened opened(image);
    Node node;
    ASSERT_FALSE(opened.reader.ReadNode(image.d, &node).IsFailure());
    const Listing listing = opened.reader.List(node);
    ASSERT_FALSE(listing.problems.empty()) << size;
    EXPECT_EQ(listing.problems[0].trouble, Trouble::kDirectorySize) << size;
    EXPECT_EQ(listing.entries.size(), size == 0 ? 0u : 2u);
  }
}

TEST(Reader, list_block_that_the_host_cannot_read_is_told) {
  const SmallTree image;
  const std::uint32_t block = image.MappedBlock(image.e, 0);
  const BadByte host(image.bytes(), image.BlockOffset(block) + 70);
  Reader reader(host);
  Node node;
  ASSERT_FALSE(reader.ReadNode(image.e, &node));
  const Listing listing = reader.List(node);
  ASSERT_EQ(Troubles(listing.problems), Found{Trouble::kHostCannotRead});
  EXPECT_EQ(listing.problems[0].block, block);
}

TEST(Reader, list_dots_that_are_others_are_entries) {
  SmallTree image;
  image.PutText(image.EntryOffset(1, 0) + 2, "X");
  image.Put16(image.EntryOffset(1, 0), image.a);
  Opened opened(image);
  EXPECT_EQ(Names(opened.reader.List(opened.Find("/"))), (Strings{"X", "A", "D"}));
}

TEST(Reader, list_behind_a_hole_goes_on) {
  SmallTree image;
  image.Put16(image.EntryOffset(1, 2), 0);
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/"));
  ASSERT_EQ(Names(listing), Strings{"D"});
  EXPECT_EQ(listing.entries[0].place, Listed::Place::kBehindHole);
}

TEST(Reader, list_behind_a_missing_block_goes_on_as_behind_a_hole) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = testimage::FillDirectory(&image, 70);
  image.Put32(image.MapOffset(directory, 1), 0);
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/FULL"));
  ASSERT_EQ(listing.entries.size(), 30u + 6);
  EXPECT_EQ(listing.entries[29].place, Listed::Place::kListed);
  EXPECT_EQ(listing.entries[30].place, Listed::Place::kBehindHole);
}

TEST(Reader, list_of_crossed_directories_ends_where_the_budget_does) {
  const SmallTree image;
  Opened opened(image);
  Budget budget(opened.reader.geometry());
  while (budget.MeetNode(image.d)) {
  }
  const Node root = opened.Find("/");
  const Listing listing = opened.reader.List(root, &budget);  // A is met for the first time, D is not
  EXPECT_EQ(Names(listing), Strings{"A"});
  EXPECT_EQ(Troubles(listing.problems), Found{Trouble::kCrossed});
}

TEST(Reader, list_past_the_size_up_to_the_end_mark) {
  SmallTree image;
  image.SetSize(1, 3 * kDirEntrySize);
  image.Put16(image.EntryOffset(1, 5), image.a);
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/"));
  ASSERT_EQ(Names(listing), (Strings{"A", "D"}));
  EXPECT_EQ(listing.entries[0].place, Listed::Place::kListed);
  EXPECT_EQ(listing.entries[1].place, Listed::Place::kPastSize);
}

TEST(Reader, list_block_that_holds_something_else_is_passed_over) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  for (int i = 0; i < 70; ++i) image.AddFile(directory, "F" + std::to_string(i), 0u);
  const std::uint32_t block = image.MappedBlock(directory, 1);
  std::fill_n(image.bytes().begin() + static_cast<long>(image.BlockOffset(block)), 1024, std::uint8_t{0xEE});
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/D"));
  ASSERT_EQ(Troubles(listing.problems), Found{Trouble::kBlockForeign});
  EXPECT_EQ(listing.problems[0].index, 1u);
  EXPECT_EQ(listing.problems[0].block, block);
  EXPECT_EQ(listing.entries.size(), 70u - 32);
  EXPECT_EQ(listing.entries.back().name, "F69");
}

TEST(Reader, list_last_block_back_in_the_free_chain_is_no_entry) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  for (int i = 0; i < 31; ++i) image.AddFile(directory, "F" + std::to_string(i), 0u);
  const std::uint64_t last = image.BlockOffset(image.MappedBlock(directory, 1));
  std::fill_n(image.bytes().begin() + static_cast<long>(last), 1024, std::uint8_t{0});
  image.Put32(last, kFreeChainSignature);
  Opened opened(image);
  const Listing listing = opened.reader.List(opened.Find("/D"));
  EXPECT_EQ(Troubles(listing.problems), Found{Trouble::kBlockForeign});
  EXPECT_EQ(listing.entries.size(), 30u);
}

TEST(Reader, list_entry_that_reads_like_a_chain_record_is_an_entry_when_its_node_is_in_use) {
  ImageBuilder image(8192, 7168);  // "FB" is node 16966 here, and "C1" its name
  const std::uint16_t directory = image.AddDirectory(1, "D");
  for (int i = 0; i < 254; ++i) image.AddEntry(directory, "F" + std::to_string(i), 2);
  image.AddEntry(directory, "C1", 16966);
  Opened free(image);
  EXPECT_EQ(Troubles(free.reader.List(free.Find("/D")).problems), Found{Trouble::kBlockForeign});
  image.SetFree(16966, false);
  Opened used(image);
  const Listing listing = used.reader.List(used.Find("/D"));
  EXPECT_TRUE(listing.problems.empty());
  EXPECT_EQ(listing.entries.back().name, "C1");
  image.Put32(image.EntryOffset(directory, 256) + 4, 1);  // a next record
  Opened chained(image);
  EXPECT_EQ(Troubles(chained.reader.List(chained.Find("/D")).problems), Found{Trouble::kBlockForeign});
  image.Put32(image.EntryOffset(directory, 256) + 8, 2046);  // more entries than a record holds
  Opened counted(image);
  EXPECT_TRUE(counted.reader.List(counted.Find("/D")).problems.empty());
}

TEST(Reader, list_impossible_size_is_told_and_bounded) {
  SmallTree image;
  image.SetSize(image.d, 0xFFFFFFFF);
  Opened opened(image);
  Node directory;
  ASSERT_FALSE(opened.reader.ReadNode(image.d, &directory).IsFailure());
  const Listing listing = opened.reader.List(directory);
  ASSERT_FALSE(listing.problems.empty());
  EXPECT_EQ(listing.problems[0].trouble, Trouble::kDirectorySize);
  EXPECT_EQ(listing.problems.size(), 1u + 4096 - 1);
  EXPECT_EQ(Names(listing), (Strings{"B", "E"}));
}

// ---- Walks ----------------------------------------------------------------------------------------------------------

TEST(Reader, walk_tells_everything_depth_first) {
  Opened opened{SmallTree()};
  EXPECT_EQ(WalkAll(&opened.reader), (Strings{"/A", "/D", "/D/B", "/D/E", "/D/E/EMPTY", "/D/E/", "/D/", "/"}));
}

TEST(Reader, walk_loop_and_second_name_are_told_and_not_entered) {
  SmallTree image;
  image.AddEntry(image.e, "UP", image.d);
  image.AddEntry(image.e, "SELF", image.e);
  image.AddEntry(1, "AGAIN", image.e);
  Opened opened(image);
  EXPECT_EQ(WalkAll(&opened.reader),
            (Strings{"/A", "/D", "/D/B", "/D/E", "/D/E/EMPTY", "/D/E/UP", "/D/E/UP: directory-loop", "/D/E/SELF",
                     "/D/E/SELF: directory-loop", "/D/E/", "/D/", "/AGAIN", "/AGAIN: directory-again", "/"}));
}

TEST(Reader, walk_what_cannot_be_read_is_told) {
  SmallTree image;
  image.Put32(image.NodeOffset(image.e) + 32, 0);
  Opened opened(image);
  EXPECT_EQ(WalkAll(&opened.reader), (Strings{"/A", "/D", "/D/B", "/D/E", "/D/E: hole", "/D/E/", "/D/", "/"}));
}

TEST(Reader, walk_visitor_stops_and_passes_by) {
  Opened opened{SmallTree()};
  const Node root = opened.Find("/");
  Strings told;
  Budget budget(opened.reader.geometry());
  const auto pass = [&told](const Step& step) {
    told.push_back(step.path);
    return step.path == "/D" ? Onward::kPast : Onward::kOn;
  };
  EXPECT_TRUE(Walk(&opened.reader, root, "", pass, &budget));
  EXPECT_EQ(told, (Strings{"/A", "/D", ""}));
  told.clear();
  const auto stop = [&told](const Step& step) {
    told.push_back(step.path);
    return step.path == "/D/B" ? Onward::kStop : Onward::kOn;
  };
  EXPECT_FALSE(Walk(&opened.reader, root, "", stop, &budget));
  EXPECT_EQ(told, (Strings{"/A", "/D", "/D/B"}));
}

TEST(Reader, walk_stopped_at_a_problem_tells_so) {
  SmallTree image;
  image.SetSize(1, 65);
  Opened opened(image);
  Budget budget(opened.reader.geometry());
  int told = 0;
  const auto stop = [&told](const Step&) {
    ++told;
    return Onward::kStop;
  };
  EXPECT_FALSE(Walk(&opened.reader, opened.Find("/"), "", stop, &budget));
  EXPECT_EQ(told, 1);
}

// A container in which each directory is all directories: paths without number.
TEST(Reader, walk_of_crossed_directories_is_bounded) {
  ImageBuilder image(1024, 128);
  std::vector<std::uint16_t> directories;
  for (int i = 0; i < 200; ++i) directories.push_back(image.AddDirectory(1, "D" + std::to_string(i)));
  for (const std::uint16_t directory : directories) {  // all of them have the root's blocks
    image.SetSize(directory, image.Size(1));
    for (std::uint32_t i = 0; i < 6; ++i) {
      image.Put32(image.NodeOffset(directory) + 32 + 4 * i, image.MappedBlock(1, i));
    }
    image.Put32(image.NodeOffset(directory) + 56, image.Get32(image.NodeOffset(1) + 56));
  }
  Opened opened(image);
  const Strings told = WalkAll(&opened.reader);
  EXPECT_LT(told.size(), 20000u);
  EXPECT_TRUE(std::any_of(told.begin(), told.end(),
                          [](const std::string& line) { return line.find(": crossed") != std::string::npos; }));
}

TEST(Reader, walk_long_chain_of_directories_is_gone_down) {
  ImageBuilder image(1024, 448);
  std::uint16_t parent = 1;
  for (int i = 0; i < 3000; ++i) parent = image.AddDirectory(parent, "D");
  Opened opened(image);
  const Strings told = WalkAll(&opened.reader);
  EXPECT_EQ(told.size(), 6001u);
}

// Walks over everything and reads it. Result: the bytes handed over.
std::uint64_t ReadEverything(const Image& image) {
  Reader reader(image);
  Node root;
  if (reader.Root(&root).IsFailure()) return 0;
  Budget budget(reader.geometry());
  std::uint64_t bytes = 0;
  const auto read = [&](const Step& step) {
    if (step.what == Step::What::kEntry && !step.entry->node.directory && !step.entry->problem.IsFailure()) {
      reader.ReadAll(
          step.entry->node,
          [&bytes](const std::uint8_t*, std::size_t count) {
            bytes += count;
            return true;
          },
          &budget);
    }
    return Onward::kOn;
  };
  Walk(&reader, root, "", read, &budget);
  return bytes;
}

TEST(Reader, damage_of_all_kinds_work_is_in_proportion_to_the_container) {
  ImageBuilder sound(1024, 64);
  std::vector<std::uint16_t> directories = {1};
  for (std::size_t i = 0; i < 12; ++i) {
    directories.push_back(sound.AddDirectory(directories[i / 3], "D" + std::to_string(i)));
  }
  for (std::size_t i = 0; i < 100; ++i) {
    sound.AddFile(directories[i % 13], "F" + std::to_string(i), i % 10 == 0 ? 9000u : 900u);
  }
  const std::uint32_t metadata = 1024 + 64 + 40 * 1024;
  std::minstd_rand random(7);
  for (int round = 0; round < 200; ++round) {
    Bytes damaged = sound.bytes();
    for (int i = 0; i < 1 + round; ++i) {
      const std::size_t at = 128 + random() % metadata;
      const std::size_t from = random() % (damaged.size() - 64);
      switch (random() % 3) {
        case 0:
          damaged[at] = static_cast<std::uint8_t>(random());
          break;
        case 1:  // a record copied over another
          std::copy_n(damaged.begin() + static_cast<long>(from / 32 * 32), 32,
                      damaged.begin() + static_cast<long>(at / 32 * 32));
          break;
        default:
          damaged[at] ^= static_cast<std::uint8_t>(1u << random() % 8);
      }
    }
    const Counting image(damaged);
    const std::uint64_t bytes = ReadEverything(image);
    EXPECT_LE(bytes, 4 * damaged.size()) << round;
    EXPECT_LE(image.read, 12 * damaged.size() + (4u << 20)) << round;
  }
}

TEST(Reader, budget_is_free_for_what_is_met_once_and_ends_for_the_rest) {
  const SmallTree image;
  const Opened opened(image);
  const std::uint32_t blocks = opened.reader.geometry().blocks;
  Budget budget(opened.reader.geometry());
  for (std::uint32_t block = 1; block <= blocks; ++block) EXPECT_TRUE(budget.Meet(block));
  for (std::uint32_t node = 1; node < 0x10000; ++node) EXPECT_TRUE(budget.MeetNode(static_cast<std::uint16_t>(node)));
  std::uint32_t again = 0;
  while (budget.Meet(1)) ++again;
  EXPECT_EQ(again, 2 * blocks + 1024);
  EXPECT_FALSE(budget.Step());
  EXPECT_FALSE(budget.MeetNode(1));
  EXPECT_FALSE(budget.Meet(blocks + 1));
}

TEST(Reader, texts_name_the_place) {
  EXPECT_EQ(ToText({Trouble::kHole, 5, 7, 0}), "no block for logical block 7");
  EXPECT_EQ(ToText({Trouble::kBlockOutside, 5, 7, 99}),
            "logical block 7 is block 99, which the container does not hold");
  EXPECT_EQ(ToText({Trouble::kNodeOutside, 300, 2, 0}),
            "its entry refers to node 300, which the container cannot have");
  EXPECT_STREQ(Name(Trouble::kNone), "none");
  EXPECT_STREQ(Name(Trouble::kNameTwice), "name-twice");
  EXPECT_EQ(ToText(Problem{}), "");
}

TEST(Reader, texts_every_trouble_has_its_own) {
  std::set<std::string> names;
  std::set<std::string> texts;
  for (int i = 0; i <= static_cast<int>(Trouble::kNameTwice); ++i) {
    names.insert(Name(static_cast<Trouble>(i)));
    texts.insert(ToText({static_cast<Trouble>(i), 0, 0, 0}));
  }
  EXPECT_EQ(names.size(), static_cast<std::size_t>(Trouble::kNameTwice) + 1);
  EXPECT_EQ(texts.size(), names.size());
}

}  // namespace
}  // namespace orba::inspect
