// The reader of inspect/ beside the mounted library: the same names, sizes, times, attributes and bytes, from the same
// container, and on damaged ones at least what the library reads.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "inspect/container/reader.h"
#include "library_test.h"

namespace orba {
namespace {

using inspect::Budget;
using inspect::Listed;
using inspect::MemoryImage;
using inspect::Node;
using inspect::Onward;
using inspect::Problem;
using inspect::Reader;
using inspect::Step;
using inspect::Trouble;

struct Thing {
  OrbU32 attributes = 0;
  OrbU32 size = 0;
  std::vector<int> time;
  Bytes contents;
};
bool operator==(const Thing& a, const Thing& b) {
  return a.attributes == b.attributes && a.size == b.size && a.time == b.time && a.contents == b.contents;
}
std::ostream& operator<<(std::ostream& out, const Thing& thing) {
  return out << thing.attributes << " " << thing.size << " bytes, " << thing.contents.size() << " read";
}

// By path, in upper case.
using Tree = std::map<std::string, Thing>;

// Reads a file by the library's calls. False when it cannot be read whole.
bool ReadByLibrary(const std::string& path, Bytes* contents) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ);
  if (file == ORB_INVALID_HANDLE) return false;
  contents->resize(OrbGetFileSize(file) < 1u << 21 ? OrbGetFileSize(file) : 0);
  OrbU32 done = 0;
  const bool read = OrbReadFile(file, contents->data(), static_cast<OrbU32>(contents->size()), &done) != 0;
  OrbCloseFile(file);
  return read && done == contents->size() && done > 0;
}

// What the library lists, at most `most` things. Files that it cannot read whole are left out.
void ListByLibrary(const std::string& directory, std::size_t most, Tree* tree) {
  std::vector<std::string> below;
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA(("A:" + directory + "/*").c_str(), &found);
  if (search == ORB_INVALID_HANDLE) return;
  for (bool more = true; more && tree->size() < most; more = OrbFindNextFileA(search, &found) != 0) {
    const std::string name = found.name;
    if (name == "." || name == "..") continue;
    const std::string path = directory + "/" + name;
    Thing thing;
    thing.attributes = found.attributes;
    thing.size = found.size;
    thing.time = {found.time.year, found.time.month,  found.time.day,
                  found.time.hour, found.time.minute, found.time.second};
    const bool isDirectory = (found.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0;
    if (isDirectory) below.push_back(path);
    const bool whole = isDirectory || found.size == 0 || ReadByLibrary("A:" + path, &thing.contents);
    if (whole) tree->emplace(path, thing);
  }
  OrbFindClose(search);
  for (const std::string& path : below) ListByLibrary(path, most, tree);
}

Tree ListByReader(Reader* reader) {
  Tree tree;
  Node root;
  EXPECT_FALSE(reader->Root(&root));
  Budget budget(reader->geometry());
  const auto take = [&](const Step& step) {
    EXPECT_NE(step.what, Step::What::kProblem) << step.path << ": " << ToText(step.problem);
    if (step.what != Step::What::kEntry) return Onward::kOn;
    EXPECT_FALSE(step.entry->problem) << step.path;
    EXPECT_FALSE(step.entry->nameProblem) << step.path;
    EXPECT_EQ(step.entry->place, Listed::Place::kListed) << step.path;
    const OrbNodeRecord& record = step.entry->node.record;
    Thing thing;
    thing.attributes = record.attributes;
    thing.size = record.size;
    thing.time = {record.time.year, record.time.month,  record.time.day,
                  record.time.hour, record.time.minute, record.time.second};
    if (!step.entry->node.directory) {
      const auto append = [&thing](const std::uint8_t* bytes, std::size_t count) {
        thing.contents.insert(thing.contents.end(), bytes, bytes + count);
        return true;
      };
      EXPECT_FALSE(reader->ReadAll(step.entry->node, append, &budget)) << step.path;
    }
    tree.emplace(step.path, thing);
    return Onward::kOn;
  };
  EXPECT_TRUE(Walk(reader, root, "", take, &budget));
  return tree;
}

class ReaderBesideLibrary : public LibraryTest, public testing::WithParamInterface<uint32_t> {
 protected:
  // A tree of files of many sizes in nested directories, with gaps where some were deleted, cut and moved.
  void Fill(uint32_t blockSize, uint32_t seed) {
    std::minstd_rand random(seed);
    const auto pick = [&random](std::size_t count) { return static_cast<uint32_t>(random() % count); };
    FormatAndMount(64, blockSize);
    std::vector<std::string> directories = {"A:"};
    std::vector<std::string> files;
    for (int i = 0; i < 160; ++i) {
      const std::string path = directories[pick(directories.size())] + "/N" + std::to_string(i);
      if (pick(6) == 0 && path.size() < 60) {
        ASSERT_TRUE(OrbCreateDirectoryA(path.c_str()));
        directories.push_back(path);
      } else {
        Write(path, pick(8) == 0 ? pick(40 * blockSize) : pick(3 * blockSize), seed + static_cast<uint32_t>(i));
        files.push_back(path);
      }
      if (files.empty()) continue;
      const std::string& other = files[pick(files.size())];
      if (pick(9) == 0) OrbDeleteFileA(other.c_str());
      if (pick(9) == 0) OrbMoveFileA(other.c_str(), (directories[pick(directories.size())] + "/M").c_str());
      if (pick(9) == 0) OrbSetFileAttributesA(other.c_str(), static_cast<OrbI32>(pick(4)));
      if (pick(9) == 0) Cut(other, pick(2 * blockSize));
    }
    _OrbCrearError();
  }

  static void Write(const std::string& path, uint32_t size, uint32_t seed) {
    ASSERT_TRUE(OrbCreateFileA(path.c_str(), 0));
    const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_WRITE);
    const Bytes contents = Pattern(size, seed);
    OrbU32 done = 0;
    ASSERT_TRUE(OrbWriteFile(file, contents.data(), size, &done));
    OrbCloseFile(file);
  }

  static void Cut(const std::string& path, uint32_t size) {
    const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ | ORB_OPEN_WRITE);
    if (file == ORB_INVALID_HANDLE) return;
    OrbSetFileSize(file, size);
    OrbCloseFile(file);
  }
};

TEST_P(ReaderBesideLibrary, sound_container_is_read_alike) {
  for (uint32_t seed = 1; seed <= 3; ++seed) {
    Fill(GetParam(), seed);
    Tree library;
    ListByLibrary("", 1000, &library);
    EXPECT_GT(library.size(), 60u);
    OrbU32 bitmap = 0;
    OrbU32 blockSize = 0;
    ASSERT_TRUE(OrbGetVolumeInfoA("A", &bitmap, &blockSize));
    ASSERT_TRUE(OrbUnmountVolumeA("A"));
    const MemoryImage image(testhost::FileBytes(u"VOL"));
    Reader reader(image);
    EXPECT_TRUE(reader.problems().empty());
    EXPECT_FALSE(reader.marked());
    EXPECT_EQ(reader.geometry().blockSize, blockSize);
    EXPECT_EQ(reader.geometry().bitmapSize, bitmap);
    EXPECT_EQ(ListByReader(&reader), library);
    for (const auto& [path, thing] : library) {
      Node node;
      EXPECT_FALSE(reader.Find(path, &node)) << path;
      EXPECT_EQ(node.size(), thing.size) << path;
    }
    testhost::RemoveFile(u"VOL");
  }
}

// What the reader takes for lost although the library follows it, whatever it holds.
bool IsRefused(Trouble trouble) {
  return trouble == Trouble::kNodeLost || trouble == Trouble::kBlockForeign || trouble == Trouble::kNotADirectory ||
         trouble == Trouble::kNotAFile;
}

TEST_P(ReaderBesideLibrary, damaged_container_is_read_as_far_as_the_library_reads_it) {
  Fill(GetParam(), 5);
  ASSERT_TRUE(OrbUnmountVolumeA("A"));
  const Bytes sound = testhost::FileBytes(u"VOL");
  std::minstd_rand random(GetParam());
  uint32_t files = 0;
  uint32_t refused = 0;
  for (int round = 0; round < 40; ++round) {
    Bytes damaged = sound;
    for (int i = 0; i <= round % 4; ++i) {  // table, bitmap and the first blocks: most of them metadata
      damaged[128 + random() % (sound.size() / 8)] ^= static_cast<uint8_t>(1u << random() % 8);
    }
    testhost::SetFile(u"VOL", damaged);
    if (Mount() == nullptr) continue;
    Tree library;
    ListByLibrary("", 400, &library);
    ASSERT_TRUE(OrbUnmountVolumeA("A"));
    const MemoryImage image(damaged);
    Reader reader(image);
    for (const auto& [path, thing] : library) {
      if ((thing.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0) continue;
      ++files;
      Node node;
      Bytes contents;
      Problem problem = reader.Find(path, &node);
      if (!problem.IsFailure()) {
        problem = reader.ReadAll(node, [&contents](const std::uint8_t* bytes, std::size_t count) {
          contents.insert(contents.end(), bytes, bytes + count);
          return true;
        });
      }
      if (problem.IsFailure() && IsRefused(problem.trouble)) {
        ++refused;
      } else if (!problem.IsFailure()) {
        EXPECT_EQ(contents, thing.contents) << path << " of round " << round;
      } else {
        ADD_FAILURE() << path << " of round " << round << ": " << ToText(problem);
      }
    }
  }
  EXPECT_GT(files, 1500u);
  EXPECT_LT(refused, files / 50);
}

INSTANTIATE_TEST_SUITE_P(blockSizes, ReaderBesideLibrary, testing::Values(1024, 2048, 4096, 8192));

}  // namespace
}  // namespace orba
