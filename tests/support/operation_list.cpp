// The situations of all operations, and the operations themselves.
#include <stdio.h>

#include <algorithm>

#include "orba.h"
#include "support/operations.h"
#include "volume/volume.h"

namespace testhost {

namespace {

OrbHandle g_File;       // what Open opened last
uint32_t g_FilesNamed;  // names given out by MakeFiles

// ---- Making a situation ---------------------------------------------------------------------------------------------

const orba::Volume* Changed() { return orba::VolumeFind("A", nullptr); }
uint32_t BlockSize() { return Changed()->header.blockSize; }
uint32_t EntriesPerBlock() { return Changed()->entriesPerBlock; }
uint32_t MapSlots() { return Changed()->wordsPerBlock; }

uint32_t NodesInUse() {
  uint32_t used = 0;
  for (uint32_t i = 0; i < 8 * Changed()->header.bitmapSize; ++i) {
    if ((Changed()->bitmap[i / 8] & (0x80 >> (i % 8))) == 0) ++used;
  }
  return used;
}

void Open(const std::string& path) {
  g_File = OrbOpenFileA(path.c_str(), ORB_OPEN_READ | ORB_OPEN_WRITE);
  Must(g_File != ORB_INVALID_HANDLE, "open " + path);
}

void OpenAt(const std::string& path, uint32_t position) {
  Open(path);
  Must(OrbSetFilePointer(g_File, static_cast<OrbI32>(position), ORB_SEEK_BEGIN) == position, "seek in " + path);
}

bool Write(uint32_t count, uint32_t seed) {
  Bytes data(count);
  for (uint32_t i = 0; i < count; ++i) data[i] = static_cast<uint8_t>(seed + i * 7 + i / 251);
  OrbU32 done = 0;
  return OrbWriteFile(g_File, data.data(), count, &done) != 0;
}

void MakeDirectory(const std::string& path) { Must(OrbCreateDirectoryA(path.c_str()), "directory " + path); }

void MakeFile(const std::string& path, uint32_t size, uint32_t attributes = 0) {
  Must(OrbCreateFileA(path.c_str(), attributes), "file " + path);
  if (size == 0) return;
  Open(path);
  Must(Write(size, size + static_cast<uint8_t>(path.back())), "write " + path);
  Must(OrbCloseFile(g_File), "close " + path);
}

// Empty files with names that are nowhere else.
void MakeFiles(const std::string& directory, uint32_t count) {
  for (; count > 0; --count) {
    char name[16];
    snprintf(name, sizeof name, "/N%04u", ++g_FilesNamed);
    MakeFile(directory + name, 0);
  }
}

void Delete(const std::string& path) { Must(OrbDeleteFileA(path.c_str()), "delete " + path); }

// Brings a directory to this many entries, "." and ".." included. It must not hold more than `present` yet.
void FillDirectory(const std::string& directory, uint32_t entries, uint32_t present = 2) {
  MakeFiles(directory, entries - present);
}

// Uses every number of the last node block, so that the next node needs a new one; or sees to it that it does not.
void FillNodeBlock() {
  while (NodesInUse() % Changed()->nodesPerBlock != 0) MakeFiles("/FILL", 1);
}
void LeaveRoomInNodeBlock(uint32_t nodes = 1) {
  while (NodesInUse() % Changed()->nodesPerBlock == 0 ||
         NodesInUse() % Changed()->nodesPerBlock + nodes > Changed()->nodesPerBlock) {
    MakeFiles("/FILL", 1);
  }
}

// Blocks that a file of this many data blocks takes, its map's included.
uint32_t BlocksTaken(uint32_t dataBlocks) {
  const uint32_t slots = MapSlots();
  if (dataBlocks <= 6) return dataBlocks;
  if (dataBlocks <= 6 + slots) return dataBlocks + 1;
  return dataBlocks + 2 + (dataBlocks - 6 - slots + slots - 1) / slots;
}

// Puts this many blocks into the free chain, which is empty: the first becomes a record that lists the others, as far
// as it can hold them.
void FreeBlocks(uint32_t count) {
  LeaveRoomInNodeBlock(2);
  uint32_t dataBlocks = 1;
  while (BlocksTaken(dataBlocks + 1) <= count) ++dataBlocks;
  const uint32_t rest = count - BlocksTaken(dataBlocks);
  MakeFile("/FILL/TEMP", dataBlocks * BlockSize());
  MakeFile("/FILL/TEMP2", rest * BlockSize());
  Delete("/FILL/TEMP");
  Delete("/FILL/TEMP2");
}

void Resize(const std::string& path, uint32_t size) {
  Open(path);
  Must(OrbSetFileSize(g_File, size), "resize " + path);
  Must(OrbCloseFile(g_File), "close " + path);
}

constexpr uint32_t kRootEntries = 7;  // after MakeBystanders

// What no operation has anything to do with.
void MakeBystanders() {
  const uint32_t block = BlockSize();
  MakeFile("/B.EMPTY", 0);
  MakeFile("/B.PART", 300, ORB_ATTRIBUTE_USER);
  MakeFile("/B.BLOCK", block);
  MakeDirectory("/KEEP");
  MakeFile("/KEEP/LONG", 7 * block + 10);
  MakeDirectory("/KEEP/SUB");
  MakeFile("/KEEP/SUB/DEEP", 2 * block + 500);
  MakeDirectory("/FILL");
}

// ---- The list -------------------------------------------------------------------------------------------------------

class List {
 public:
  explicit List(std::vector<Operation>* list, uint32_t blockSize) : list_(list), blockSize_(blockSize) {}

  Operation& Add(const std::string& name, const std::vector<std::string>& touched, std::function<void()> prepare,
                 std::function<bool()> run) {
    Operation operation;
    operation.name = name + "_" + std::to_string(blockSize_);
    operation.blockSize = blockSize_;
    operation.prepare = [prepare] {
      g_FilesNamed = 0;
      MakeBystanders();
      prepare();
    };
    operation.run = std::move(run);
    operation.touched = touched;
    list_->push_back(std::move(operation));
    return list_->back();
  }

  bool small() const { return blockSize_ == 1024; }
  uint32_t blockSize() const { return blockSize_; }

 private:
  std::vector<Operation>* list_;
  uint32_t blockSize_;
};

void AddCreations(List list) {
  const auto add = [&](const std::string& kind, const std::string& situation, std::function<void()> prepare) {
    const bool directory = kind == "create_directory";
    list.Add(kind + situation, {"/DIR"}, std::move(prepare), [directory] {
      return OrbCreateFileA("/DIR/NEW", directory ? ORB_ATTRIBUTE_DIRECTORY : ORB_ATTRIBUTE_USER) != 0;
    });
  };
  for (const std::string kind : {"create_file", "create_directory"}) {
    add(kind, "", [] { MakeDirectory("/DIR"); });
    add(kind, "_in_new_node_block", [] {
      MakeDirectory("/DIR");
      FillNodeBlock();
    });
    add(kind, "_in_new_parent_block", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", EntriesPerBlock());
      LeaveRoomInNodeBlock();
    });
    list.Add(
        kind + "_in_new_root_block", {"/"},
        [] {
          FillDirectory("", EntriesPerBlock(), kRootEntries);
          LeaveRoomInNodeBlock();
        },
        [kind] { return OrbCreateFileA("/NEW", kind == "create_directory" ? ORB_ATTRIBUTE_DIRECTORY : 0) != 0; });
    add(kind, "_in_new_node_and_parent_block", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", EntriesPerBlock());
      FillNodeBlock();
    });
    add(kind, "_from_chain", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", EntriesPerBlock());
      FreeBlocks(4);
      FillNodeBlock();
    });
    add(kind, "_popping_record_for_node_block", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", EntriesPerBlock());
      FreeBlocks(1);
      FillNodeBlock();
    });
    add(kind, "_popping_record_for_parent_block", [kind] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", EntriesPerBlock());
      FreeBlocks(kind == "create_directory" ? 2 : 1);
      LeaveRoomInNodeBlock();
    });
    if (!list.small()) continue;
    add(kind, "_in_indirect_parent_block", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", 6 * EntriesPerBlock());
      LeaveRoomInNodeBlock();
    });
    add(kind, "_in_further_indirect_parent_block", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", 7 * EntriesPerBlock());
      LeaveRoomInNodeBlock();
    });
    add(kind, "_in_indirect_parent_block_from_chain", [] {
      MakeDirectory("/DIR");
      FillDirectory("/DIR", 6 * EntriesPerBlock());
      FreeBlocks(3);
      LeaveRoomInNodeBlock();
    });
    add(kind, "_popping_record_before_another", [] {
      MakeDirectory("/DIR");
      FreeBlocks(255);
      FillNodeBlock();
    });
  }
}

void AddWrites(List list) {
  const uint32_t block = list.blockSize();
  // A file of `size` bytes is opened and `count` bytes are written at `position`. `before` comes ahead of the file,
  // `after` behind it.
  const auto add = [&](const std::string& name, uint32_t size, uint32_t position, uint32_t count,
                       std::function<void()> after = {}) {
    list.Add(
            name, {"/FILE"},
            [=] {
              MakeFile("/FILE", size);
              if (after) after();
            },
            [=] { return Write(count, 99); })
        .begin = [=] { OpenAt("/FILE", position); };
  };
  const auto append = [&](const std::string& name, uint32_t size, uint32_t count, std::function<void()> after = {}) {
    add("append_" + name, size, size, count, std::move(after));
  };
  const auto free = [](uint32_t count) { return [count] { FreeBlocks(count); }; };
  const uint32_t half = block / 2;
  const uint32_t slots = block / 4;
  const uint32_t direct = 6 * block;
  append("first_bytes", 0, 100);
  append("within_block", 100, 100);
  append("to_fill_one_block", block - 100, 100);
  append("direct_blocks", block + half, 3 * block);
  append("direct_blocks_from_chain", block + half, 3 * block, free(4));
  append("across_indirect_border", direct - half, 2 * block);
  append("across_indirect_border_from_chain", direct - half, 2 * block, free(5));
  append("within_indirect", 8 * block, 2 * block);
  append("block_popping_record", block, 100, free(1));
  append("block_popping_record_in_indirect", 8 * block, 100, free(1));
  append("blocks_popping_record_in_between", direct - half, 3 * block, free(3));
  append("indirect_block_popping_record", direct, 100, free(1));
  add("append_after_shrink", 8 * block, direct, block + 100, [direct] { Resize("/FILE", direct); });
  add("overwrite_across_indirect_border", 8 * block, 5 * block - half, 2 * block);
  add("overwrite_file_of_one_block", block, 100, 100);
  add("overwrite_and_append", direct - half, direct - block - half, 3 * block);
  if (!list.small()) return;
  const uint32_t indirect = direct + slots * block;
  const uint32_t second = indirect + slots * block;
  append("block_popping_record_before_another", block, 100, free(255));
  append("across_double_border", indirect - half, 2 * block);
  append("across_double_border_from_chain", indirect - half, 2 * block, free(8 - 2));
  append("across_double_border_popping_record", indirect, 100, free(2));
  append("across_double_border_popping_record_first", indirect, 100, free(1));
  append("across_second_level_border", second - half, 2 * block);
  append("within_second_level", indirect + 3 * block, block);
  add("overwrite_across_double_border", indirect + 2 * block, indirect - block - half, 3 * block);
  add("overwrite_across_second_level_border", second + block, second - block - half, 2 * block);
}

void AddResizes(List list) {
  const uint32_t block = list.blockSize();
  const auto add = [&](const std::string& name, uint32_t from, uint32_t to, std::function<void()> after = {}) {
    list.Add((from < to ? "grow_" : "shrink_") + name, {"/FILE"},
             [=] {
               MakeFile("/FILE", from);
               if (after) after();
             },
             [=] { return OrbSetFileSize(g_File, to) != 0; })
        .begin = [] { Open("/FILE"); };
  };
  const auto free = [](uint32_t count) { return [count] { FreeBlocks(count); }; };
  const uint32_t half = block / 2;
  const uint32_t slots = block / 4;
  const uint32_t direct = 6 * block;
  add("within_block", 100, 200);
  add("from_nothing", 0, 2 * block);
  add("across_indirect_border", direct - half, 8 * block);
  add("across_indirect_border_from_chain", direct - half, 8 * block, free(5));
  add("popping_record", 0, block + 1, free(1));
  add("within_block", 200, 100);
  add("by_direct_blocks", 4 * block, 2 * block + half);
  add("across_indirect_border", 8 * block, direct - half);
  add("to_nothing", 2 * block, 0);
  add("to_nothing_keeping_indirect", 7 * block, 0);
  add("into_chain", 8 * block, direct - half, free(4));
  if (!list.small()) return;
  const uint32_t indirect = direct + slots * block;
  const uint32_t second = indirect + slots * block;
  add("popping_record_before_another", block, 2 * block, free(255));
  add("across_double_border", indirect - half, indirect + 2 * block);
  add("across_double_border_popping_record", indirect, indirect + 1, free(3));
  add("across_second_level_border", second - half, second + block);
  add("across_double_border", indirect + 2 * block, indirect - half);
  add("across_second_level_border", second + block, second - half);
  add("onto_full_record", 3 * block, half, free(254));
  add("filling_record", 4 * block, half, free(253));
}

void AddDeletions(List list) {
  const uint32_t block = list.blockSize();
  const uint32_t entries = block / 32;
  const auto add = [&](const std::string& name, std::function<void()> prepare) {
    list.Add(name, {"/DIR", "/DIR/OLD"}, std::move(prepare), [] { return OrbDeleteFileA("/DIR/OLD") != 0; });
  };
  // A file of `size` bytes that is entry `entry` of a directory of `count` entries.
  const auto file = [](uint32_t size, uint32_t entry, uint32_t count) {
    MakeDirectory("/DIR");
    FillDirectory("/DIR", entry);
    MakeFile("/DIR/OLD", size);
    FillDirectory("/DIR", count, entry + 1);
  };
  const auto addFile = [&](const std::string& name, uint32_t size, uint32_t entry, uint32_t count,
                           std::function<void()> after = {}) {
    add("delete_" + name, [=] {
      file(size, entry, count);
      if (after) after();
    });
  };
  const auto free = [](uint32_t blocks) { return [blocks] { FreeBlocks(blocks); }; };
  addFile("empty_file", 0, 2, 3);
  addFile("empty_file_from_middle", 0, 2, 6);
  addFile("empty_file_from_other_block", 0, 2, entries + 4);
  addFile("empty_file_alone_in_block", 0, entries, entries + 1);
  addFile("empty_file_alone_in_block_into_chain", 0, entries, entries + 1, free(3));
  addFile("empty_file_emptying_other_block", 0, 2, entries + 1);
  addFile("empty_file_emptying_other_block_into_chain", 0, 2, entries + 1, free(3));
  addFile("file", 3 * block, 2, 3);
  addFile("file_into_chain", 3 * block, 2, 3, free(3));
  addFile("file_with_indirect", 8 * block, 2, 3);
  addFile("file_with_parent_block", 8 * block, entries, entries + 1);
  add("delete_file_with_node_block", [=] {
    MakeDirectory("/DIR");
    FillNodeBlock();
    MakeFile("/DIR/OLD", 2 * block);
  });
  add("delete_empty_file_with_node_block", [] {
    MakeDirectory("/DIR");
    FillNodeBlock();
    MakeFile("/DIR/OLD", 0);
  });
  add("delete_file_with_node_and_parent_block", [=] {
    MakeDirectory("/DIR");
    FillDirectory("/DIR", EntriesPerBlock());
    FillNodeBlock();
    MakeFile("/DIR/OLD", 2 * block);
  });
  const auto addInRoot = [&](const std::string& name, uint32_t entry, uint32_t count,
                             std::function<void()> after = {}) {
    list.Add(
        "delete_in_root_" + name, {"/", "/OLD"},
        [=] {
          FillDirectory("", entry, kRootEntries);
          MakeFile("/OLD", 100);
          FillDirectory("", count, entry + 1);
          if (after) after();
        },
        [] { return OrbDeleteFileA("/OLD") != 0; });
  };
  addInRoot("from_middle", kRootEntries, kRootEntries + 3);
  addInRoot("from_other_block", kRootEntries, entries + 4);
  addInRoot("alone_in_block", entries, entries + 1);
  addInRoot("alone_in_block_into_chain", entries, entries + 1, free(3));
  addInRoot("emptying_other_block", kRootEntries, entries + 1);
  addFile("file_after_shrink", 8 * block, 2, 3, [=] { Resize("/DIR/OLD", 3 * block); });
  addFile("file_shrunk_to_nothing", 8 * block, 2, 3, [] { Resize("/DIR/OLD", 0); });
  add("delete_directory", [] {
    MakeDirectory("/DIR");
    MakeDirectory("/DIR/OLD");
  });
  add("delete_directory_with_node_and_parent_block", [] {
    MakeDirectory("/DIR");
    FillDirectory("/DIR", EntriesPerBlock());
    FillNodeBlock();
    MakeDirectory("/DIR/OLD");
  });
  if (!list.small()) return;
  addFile("empty_file_alone_in_block_onto_full_record", 0, entries, entries + 1, free(254));
  addInRoot("alone_in_indirect_block", 6 * entries, 6 * entries + 1);
  addFile("empty_file_alone_in_indirect_block", 0, 6 * entries, 6 * entries + 1);
  addFile("empty_file_emptying_indirect_block", 0, 2, 6 * entries + 1);
  addFile("empty_file_emptying_indirect_block_into_chain", 0, 2, 6 * entries + 1, free(3));
  addFile("file_onto_full_record", 3 * block, 2, 3, free(254));
  addFile("file_filling_record", 3 * block, 2, 3, free(253));
  addFile("file_with_double_indirect", (6 + 256 + 3) * block, 2, 3);
  addFile("file_with_two_second_levels", (6 + 256 + 256 + 1) * block, 2, 3);
}

void AddRenames(List list) {
  const uint32_t entries = list.blockSize() / 32;
  const auto add = [&](const std::string& name, uint32_t before, std::function<bool()> run) {
    list.Add(
        name, {"/DIR", "/DIR/OLD"},
        [=] {
          MakeDirectory("/DIR");
          FillDirectory("/DIR", before);
          MakeFile("/DIR/OLD", 100);
        },
        std::move(run));
  };
  const auto rename = [] { return OrbRenameFileA("/DIR/OLD", "NEW") != 0; };
  add("rename", 2, rename);
  add("rename_in_second_block", entries, rename);
  add("set_attributes", 2,
      [] { return OrbSetFileAttributesA("/DIR/OLD", ORB_ATTRIBUTE_READ_ONLY | ORB_ATTRIBUTE_USER) != 0; });
}

void AddMoves(List list) {
  list.Add(
      "move_within_directory", {"/", "/OLD"}, [] { MakeFile("/OLD", 100); },
      [] { return OrbMoveFileA("/OLD", "/NEW") != 0; });

  const uint32_t entries = list.blockSize() / 32;
  const auto make = [](bool directory) {
    if (!directory) return MakeFile("/FROM/OLD", 100);
    MakeDirectory("/FROM/OLD");
    MakeFile("/FROM/OLD/INSIDE", 1100);
  };
  for (const bool directory : {false, true}) {
    // It is entry `entry` of `count` in its directory and moves into one of `there`.
    const auto add = [&](const std::string& situation, uint32_t entry, uint32_t count, uint32_t there,
                         std::function<void()> after = {}) {
      Operation& move =
          list.Add((directory ? "move_directory" : "move_file") + situation, {"/FROM", "/FROM/OLD", "/TO"},
                   [=] {
                     MakeDirectory("/FROM");
                     MakeDirectory("/TO");
                     FillDirectory("/TO", there);
                     FillDirectory("/FROM", entry);
                     make(directory);
                     FillDirectory("/FROM", count, entry + 1);
                     if (after) after();
                   },
                   [] { return OrbMoveFileA("/FROM/OLD", "/TO/NEW") != 0; });
      move.firstPathNames = move.secondPathNames = 1;
    };
    const auto free = [](uint32_t blocks) { return [blocks] { FreeBlocks(blocks); }; };
    add("", 2, 3, 2);
    add("_from_middle", 2, 6, 2);
    add("_from_other_block", 2, entries + 4, 2);
    add("_to_new_block", 2, 3, entries);
    add("_to_new_block_from_chain", 2, 3, entries, free(3));
    add("_to_new_block_popping_record", 2, 3, entries, free(1));
    add("_giving_block_back", entries, entries + 1, 2);
    add("_giving_block_back_into_chain", entries, entries + 1, 2, free(3));
    add("_emptying_other_block", 2, entries + 1, 2);
    add("_taking_and_giving_blocks", entries, entries + 1, entries);
    add("_popping_record_and_giving_block_back", entries, entries + 1, entries, free(1));
    if (!list.small()) continue;
    add("_to_indirect_block", 2, 3, 6 * entries);
    add("_giving_indirect_block_back", 6 * entries, 6 * entries + 1, 2);
    add("_emptying_indirect_block", 2, 6 * entries + 1, 2);
  }
  list.Add(
      "move_directory_to_root", {"/", "/FROM", "/FROM/OLD"},
      [=] {
        MakeDirectory("/FROM");
        make(true);
      },
      [] { return OrbMoveFileA("/FROM/OLD", "/NEW") != 0; });
  list.Add(
          "move_directory_from_root", {"/", "/OLD", "/TO"},
          [] {
            MakeDirectory("/TO");
            MakeDirectory("/OLD");
            MakeFile("/OLD/INSIDE", 1100);
          },
          [] { return OrbMoveFileA("/OLD", "/TO/NEW") != 0; })
      .secondPathNames = 1;
}

void AddCopies(List list) {
  const uint32_t block = list.blockSize();
  const auto add = [&](const std::string& name, const std::string& source,
                       std::function<void()> prepare) -> Operation& {
    Operation& copy = list.Add("copy_" + name, {"/DIR"}, std::move(prepare),
                               [source] { return OrbCopyFileA(source.c_str(), "/DIR/NEW") != 0; });
    copy.firstPathNames = static_cast<uint32_t>(std::count(source.begin(), source.end(), '/'));
    copy.secondPathNames = 1;
    return copy;
  };
  const auto directory = [] { MakeDirectory("/DIR"); };
  add("empty_file", "/B.EMPTY", directory);
  add("file", "/KEEP/SUB/DEEP", directory);
  add("file_across_indirect_border", "/KEEP/LONG", directory);
  add("file_across_indirect_border_from_chain", "/KEEP/LONG", [] {
    MakeDirectory("/DIR");
    FreeBlocks(12);
  });
  add("file_popping_record", "/B.BLOCK", [] {
    MakeDirectory("/DIR");
    FreeBlocks(1);
  });
  add("file_in_new_node_and_parent_block", "/B.BLOCK", [] {
    MakeDirectory("/DIR");
    FillDirectory("/DIR", EntriesPerBlock());
    FillNodeBlock();
  });
  add("file_popping_record_for_node_block", "/B.BLOCK", [] {
    MakeDirectory("/DIR");
    FreeBlocks(1);
    FillNodeBlock();
  });
  const auto addFrom = [&](uint32_t sourceBlockSize, uint32_t size) {
    add("file_from_blocks_of_" + std::to_string(sourceBlockSize), "B:/SOURCE", [=] {
      MakeDirectory("/DIR");
      MakeFile("B:/SOURCE", size);
    }).sourceBlockSize = sourceBlockSize;
  };
  addFrom(list.small() ? 4096 : 1024, 2 * 4096 + 1500);
  addFrom(8192, 8192 + 5000);
  if (!list.small()) return;
  add("file_across_double_border", "/SOURCE", [=] {
    MakeDirectory("/DIR");
    MakeFile("/SOURCE", (6 + 256 + 2) * block);
  });
  add("file_across_double_border_popping_record", "B:/SOURCE", [=] {
    MakeDirectory("/DIR");
    MakeFile("B:/SOURCE", (6 + 256 + 1) * block);
    FreeBlocks(265);
  }).sourceBlockSize = 1024;
}

}  // namespace

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> list = [] {
    std::vector<Operation> all;
    for (const uint32_t blockSize : {1024u, 4096u}) {
      AddCreations(List(&all, blockSize));
      AddWrites(List(&all, blockSize));
      AddResizes(List(&all, blockSize));
      AddDeletions(List(&all, blockSize));
      AddRenames(List(&all, blockSize));
      AddMoves(List(&all, blockSize));
      AddCopies(List(&all, blockSize));
    }
    return all;
  }();
  return list;
}

}  // namespace testhost
