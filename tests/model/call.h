// One call of the interface, as a record: chosen, printed, kept in a file and made again. Stands on the interface
// alone.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "orba.h"

namespace model {

enum class Op {
  kFormat,
  kMount,
  kUnmount,
  kInfo,
  kCreate,
  kMakeDirectory,
  kCopy,
  kMove,
  kRename,
  kDelete,
  kGetAttributes,
  kSetAttributes,
  kOpen,
  kSeek,
  kRead,
  kWrite,
  kSetSize,
  kGetSize,
  kFlush,
  kClose,
  kSetCurrent,
  kGetCurrent,
  kFullPath,
  kFindFirst,
  kFindNext,
  kFindClose,
  kNull,
  kErrorState,
  kCount
};

// Replaying a call needs nothing else. What a field means depends on the call: a and b are names, x is mostly a handle.
struct Call {
  Op op = Op::kNull;
  bool wide = false;
  std::string a, b;
  std::uint32_t x = 0, y = 0, z = 0;
};

// As a line of a program, nearly: OrbOpenFileW("DATA:/A", 0x3).
std::string Print(const Call& call);

// Both return false at the end of the file.
bool Save(const Call& call, std::FILE* file);
bool Load(Call* call, std::FILE* file);

// ---- Containers -----------------------------------------------------------------------------------------------------

struct Sizes {
  std::uint32_t bitmapBytes, blockSize;
};

// The first ones exist from the beginning, the others until a call formats them do not.
constexpr int kContainerCount = 8;
constexpr Sizes kAtStart[] = {{16, 1024}, {2, 2048}, {32, 4096}, {0, 1024}, {16, 1024}};
constexpr int kStartCount = 5;

// This one is nearly as large as a container can be. What can still be had is what one file takes until its map needs
// two blocks at once, and one block to fail for the second.
constexpr int kNearlyFull = 4;
constexpr std::uint32_t kRoomLeft = 265;

// What the calls that format choose from. The first one stands for OrbCreateVolume.
constexpr Sizes kFormats[] = {{1024, 4096}, {4, 1024},    {3, 1024},    {2, 8192},    {896, 1024}, {0, 2048},
                              {6, 2048},    {897, 1024},  {1793, 2048}, {16, 512},    {16, 0},     {16, 16384},
                              {16, 1025},   {7169, 8192}, {1, 1024},    {3585, 4096}, {0, 0},      {0xFFFFFFFF, 1024}};
constexpr std::uint32_t kFormatCount = sizeof kFormats / sizeof kFormats[0];

std::string ContainerName(int number);

}  // namespace model
