// Containers with random damage. Whatever their bytes are, no call crashes, hangs or reads outside its memory (which
// the sanitizers see), each call says by its error state whether it failed, and nothing is left once the volume is
// unmounted. Every failure names the seed of its damage.
#include <string.h>

#include <algorithm>
#include <random>

#include "files/find.h"
#include "nodes/node.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using Random = std::mt19937;

uint32_t Below(Random& random, uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

// A place to break: `count` bytes from `offset` on.
struct Region {
  size_t offset;
  size_t count;
};

class DamagedContainer : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    testhost::SetTracing(false);
  }

  // The volume to break: directories of one and of more blocks, one inside the other, files of no block, of one, of
  // eight and, where blocks are small, of 264, and a free chain of two records.
  Bytes MakeVolume(uint32_t blockSize) {
    OrbUnmountVolumeA("A");
    testhost::RemoveFile(u"VOL");
    volume_ = FormatAndMount(32, blockSize);
    MakeDirectory("D");
    MakeDirectory("D/E");
    MakeFile("EMPTY");
    MakeFile("D/ONE", Pattern(100));
    MakeFile("D/E/EIGHT", Pattern(8 * blockSize - 5));
    if (blockSize == 1024) {
      MakeFile("GONE", Pattern(256 * 1024));
      MakeFile("BIG", Pattern(264 * 1024));
      Delete("GONE");
    } else {
      MakeFile("GONE", Pattern(4 * blockSize));
      Delete("GONE");
    }
    MakeFiles("D/E/N", 1, 100);
    EXPECT_EQ(Findings(), "");
    EXPECT_EQ(OrbUnmountVolumeA("A"), 1);
    return Image();
  }

  // Breaks a few places of these regions.
  static void Break(Bytes* image, const std::vector<Region>& regions, Random& random) {
    const uint32_t times = 1 + Below(random, 4);
    const uint32_t blocks = testhost::BlockCount(*image);
    for (uint32_t i = 0; i < times; ++i) {
      const Region& region = regions[Below(random, static_cast<uint32_t>(regions.size()))];
      BreakOnce(image, region.offset + Below(random, static_cast<uint32_t>(region.count)), blocks, random);
    }
  }

  static void BreakOnce(Bytes* image, size_t place, uint32_t blocks, Random& random) {
    const uint32_t telling[] = {0,          1,          2,          3,  8,  blocks - 1, blocks,    blocks + 1,
                                0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 64, 96, 0x00010000, 0x00200001};
    const size_t word = std::min(place & ~size_t{3}, image->size() - 4);
    switch (Below(random, 5)) {
      case 0:
        (*image)[place] = static_cast<uint8_t>((*image)[place] ^ 1 << Below(random, 8));
        break;
      case 1:
        (*image)[place] = static_cast<uint8_t>(random());
        break;
      case 2:
        testhost::WriteU32(*image, word, telling[Below(random, sizeof telling / sizeof telling[0])]);
        break;
      case 3:
        testhost::WriteU32(*image, word, 1 + Below(random, blocks));  // some other block
        break;
      default: {  // 32 bytes from elsewhere
        const size_t to = std::min(place & ~size_t{31}, image->size() - 32);
        const size_t from = Below(random, static_cast<uint32_t>(image->size() / 32)) * 32;
        std::copy_n(image->begin() + static_cast<std::ptrdiff_t>(std::min(from, image->size() - 32)), 32,
                    image->begin() + static_cast<std::ptrdiff_t>(to));
      }
    }
  }

  // Mounts a broken container, calls everything on it, unmounts it, and looks whether all is as before.
  void Suffer(const Bytes& image, Random& random) {
    testhost::SetFile(u"VOL", image);
    if (OrbMountVolume(u"VOL", u"A") != 0) {
      CallEverything(random);
      OrbUnmountVolumeA("A");
    } else {
      EXPECT_NE(GetError(), 0u);
    }
    EXPECT_EQ(NodesListed(), 0u);
    EXPECT_EQ(testhost::OpenHandles(), 0u);
    EXPECT_EQ(testhost::AllocationsHeld(), 0u);
    EXPECT_EQ(g_VolumeListHead.next, nullptr);
  }

  void CallEverything(Random& random) {
    std::vector<std::string> names = {"/",          "D",       "D/E",     "EMPTY",   "D/ONE", "D/E/EIGHT",
                                      "D/E/N1",     "D/E/N96", "D/E/N40", "BIG",     "D/.",   "D/E/..",
                                      "D/E/../ONE", "NEW",     "D/NEW",   "D/E/NEW", "A:/D",  "GONE"};
    std::shuffle(names.begin(), names.end(), random);
    for (const char* directory : {"/", "D/", "D/E/*", "*.NONE"}) List(directory);
    for (const std::string& name : names) UseName(name.c_str(), random);
    for (const std::string& name : names) UseFile(name.c_str(), random);
    for (const std::string& name : names) Note(OrbDeleteFileA(name.c_str()) != 0);
    for (const char* directory : {"/", "D/", "D/E/"}) List(directory);
  }

  // A call that succeeded leaves a clear error state, one that failed its code.
  static bool Note(bool succeeded) {
    EXPECT_EQ(succeeded, GetError() == 0) << std::hex << GetError();
    return succeeded;
  }

  static void List(const char* pattern) {
    OrbFindDataA found;
    const OrbHandle search = OrbFindFirstFileA(pattern, &found);
    if (!Note(search != ORB_INVALID_HANDLE)) return;
    for (uint32_t i = 0; i < 500; ++i) {
      EXPECT_LT(strlen(found.name), 30u);
      if (!Note(OrbFindNextFileA(search, &found) != 0)) break;
    }
    OrbFindDataW wide;
    Note(OrbFindNextFileW(search, &wide) != 0);
    Note(OrbFindClose(search) != 0);
  }

  void UseName(const char* name, Random& random) {
    char path[ORB_PATH_BUFFER];
    Note(OrbGetFullPathNameA(path, name) != 0);
    EXPECT_LT(strlen(path), 128u);
    OrbGetFileAttributesA(name);  // 0xFFFF may be what is stored
    Note(OrbSetFileAttributesA(name, static_cast<OrbI32>(Below(random, 4))) != 0);
    Note(OrbSetFileAttributesA(name, 0) != 0);
    if (Note(OrbSetCurrentDirectoryA(name) != 0)) {
      Note(OrbGetCurrentDirectoryA(path) != 0);
      Note(OrbSetCurrentDirectoryA("A:/") != 0);
    }
    Note(OrbCreateFileA(name, Below(random, 2) * 8) != 0);
    Note(OrbRenameFileA(name, "R") != 0);
    Note(OrbRenameFileA("D/R", "ONE") != 0);
    const std::string target = std::string(Below(random, 2) == 0 ? "/M" : "D/E/M") + std::to_string(Below(random, 9));
    // A target that does not resolve would keep a reference, as it should.
    if (!Note(OrbGetFullPathNameA(path, target.c_str()) != 0)) return;
    Note(OrbCopyFileA(name, target.c_str()) != 0);
    if (!Note(OrbGetFullPathNameA(path, (target + "X").c_str()) != 0)) return;
    Note(OrbMoveFileA(name, (target + "X").c_str()) != 0);
  }

  void UseFile(const char* name, Random& random) {
    const OrbHandle file = OrbOpenFileA(name, ORB_OPEN_READ | ORB_OPEN_WRITE);
    if (!Note(file != ORB_INVALID_HANDLE)) return;
    buffer_.resize(20000);
    const uint32_t size = OrbGetFileSize(file);
    OrbU32 done = 0;
    Transfer(OrbReadFile(file, buffer_.data(), 20000, &done), done);
    OrbSetFilePointer(file, -static_cast<OrbI32>(Below(random, 3000)), ORB_SEEK_END);
    Transfer(OrbReadFile(file, buffer_.data(), 5000, &done), done);
    Transfer(OrbWriteFile(file, buffer_.data(), Below(random, 5000), &done), done);
    Note(OrbSetFileSize(file, size / 2) != 0);
    OrbSetFilePointer(file, 0, ORB_SEEK_END);
    Transfer(OrbWriteFile(file, buffer_.data(), Below(random, 5000), &done), done);
    if (size < 1000000) Note(OrbSetFileSize(file, size + Below(random, 9000)) != 0);
    Note(OrbFlushFileBuffers(file) != 0);
    Note(OrbCloseFile(file) != 0);
  }

  static void Transfer(OrbBool succeeded, OrbU32 done) {
    Note(succeeded != 0);
    EXPECT_LE(done, 20000u);
  }

  // Runs many seeds with damage in these regions.
  void Run(const Bytes& sound, const std::vector<Region>& regions, uint32_t seeds) {
    for (uint32_t seed = 1; seed <= seeds && !HasFailure(); ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      Random random(seed);
      Bytes image = sound;
      Break(&image, regions, random);
      Suffer(image, random);
    }
  }

  // The places of a kind in a sound container.
  static Region BlockAt(const Bytes& image, uint32_t block) {
    return {testhost::BlockOffset(image, block), testhost::HeaderOf(image).blockSize};
  }
  static std::vector<Region> NodeRecords(const Bytes& image) {
    std::vector<Region> regions;
    for (uint32_t node = 1; node <= 9; ++node) regions.push_back({testhost::NodeOffset(image, node), 64});
    return regions;
  }
  static std::vector<Region> DirectoryBlocks(const Bytes& image) {
    std::vector<Region> regions;
    for (const uint32_t node : {1u, 2u, 3u}) {
      const OrbNodeRecord record = testhost::NodeOf(image, node);
      for (const uint32_t block : record.direct) {
        if (block != kNoBlock) regions.push_back(BlockAt(image, block));
        if (block != kNoBlock) regions.push_back({testhost::BlockOffset(image, block), 4 * 32});
      }
    }
    return regions;
  }
  static std::vector<Region> MapBlocks(const Bytes& image) {
    std::vector<Region> regions;
    for (uint32_t node = 1; node <= 16; ++node) {
      const OrbNodeRecord record = testhost::NodeOf(image, node);
      for (const uint32_t block : {record.indirect, record.doubleIndirect}) {
        if (block == kNoBlock) continue;
        regions.push_back(BlockAt(image, block));
        regions.push_back({testhost::BlockOffset(image, block), 16});
      }
      if (record.doubleIndirect != kNoBlock) {
        const size_t slot = testhost::BlockOffset(image, record.doubleIndirect);
        regions.push_back({testhost::BlockOffset(image, testhost::ReadU32(image, slot)), 16});
      }
    }
    return regions;
  }
  static std::vector<Region> ChainRecords(const Bytes& image) {
    std::vector<Region> regions = {{48, 4}};
    for (uint32_t block = testhost::HeaderOf(image).freeChainHead; block != kNoBlock;
         block = testhost::FreeChainOf(image, block).next) {
      regions.push_back(BlockAt(image, block));
      regions.push_back({testhost::BlockOffset(image, block), 20});
    }
    return regions;
  }

  Bytes buffer_;
};

TEST_F(DamagedContainer, with_a_broken_header_does_no_harm) { Run(MakeVolume(1024), {{0, 128}}, 300); }

TEST_F(DamagedContainer, with_a_broken_node_block_table_does_no_harm) { Run(MakeVolume(1024), {{128, 64}}, 100); }

TEST_F(DamagedContainer, with_a_broken_node_bitmap_does_no_harm) { Run(MakeVolume(1024), {{1024, 32}}, 60); }

TEST_F(DamagedContainer, with_broken_nodes_does_no_harm) {
  const Bytes sound = MakeVolume(1024);
  Run(sound, NodeRecords(sound), 200);
}

TEST_F(DamagedContainer, with_broken_directories_does_no_harm) {
  const Bytes sound = MakeVolume(1024);
  Run(sound, DirectoryBlocks(sound), 200);
}

TEST_F(DamagedContainer, with_a_broken_block_map_does_no_harm) {
  const Bytes sound = MakeVolume(1024);
  Run(sound, MapBlocks(sound), 120);
}

TEST_F(DamagedContainer, with_a_broken_free_chain_does_no_harm) {
  const Bytes sound = MakeVolume(1024);
  Run(sound, ChainRecords(sound), 150);
}

TEST_F(DamagedContainer, broken_anywhere_with_any_block_size_does_no_harm) {
  for (const uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    const Bytes sound = MakeVolume(blockSize);
    std::vector<Region> regions = {{0, 128}, {128, 16}, {1024, 32}};
    for (const auto& more : {NodeRecords(sound), DirectoryBlocks(sound), MapBlocks(sound), ChainRecords(sound)}) {
      regions.insert(regions.end(), more.begin(), more.end());
    }
    Run(sound, regions, 80);
  }
}

TEST_F(DamagedContainer, cut_off_anywhere_does_no_harm) {
  const Bytes sound = MakeVolume(2048);
  for (uint32_t seed = 1; seed <= 120 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    Bytes image = sound;
    image.resize(seed <= 40 ? Below(random, 6000) : Below(random, static_cast<uint32_t>(sound.size())));
    Suffer(image, random);
  }
}

TEST_F(DamagedContainer, of_random_bytes_behind_a_sound_header_does_no_harm) {
  const Bytes sound = MakeVolume(1024);
  for (uint32_t seed = 1; seed <= 100 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    Bytes image = sound;
    image.resize(40000);
    const bool small = Below(random, 2) == 0;  // numbers that may be blocks
    for (size_t i = seed % 3 == 0 ? 1024 : 1040; i < image.size(); ++i) {
      image[i] = static_cast<uint8_t>(small ? (i % 4 == 0 ? Below(random, 40) : 0) : random());
    }
    testhost::WriteU32(image, 48, Below(random, 3));
    testhost::WriteU16(image, testhost::BlockOffset(image, 1) + 6, 0x000E);  // a root, at least
    Suffer(image, random);
  }
}

}  // namespace
}  // namespace orba
