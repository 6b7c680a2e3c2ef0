#include "bench/workloads.h"

#include <cstdlib>
#include <random>

namespace bench {
namespace {

constexpr size_t kFileSize = size_t{64} << 20;
constexpr size_t kBlock = 4096;
constexpr size_t kRandomTransfers = kFileSize / kBlock;
constexpr size_t kFiles = 1000;
constexpr size_t kSmallSize = 2000;
constexpr size_t kMounts = 50;
constexpr char kLarge[] = "LARGE.BIN";

// Page-aligned, as long as the longest transfer, and not all zeros.
char* Buffer() {
  static char* const buffer = [] {
    auto* bytes = static_cast<char*>(std::aligned_alloc(kBlock, 16 * kBlock));
    for (size_t i = 0; i < 16 * kBlock; ++i) bytes[i] = static_cast<char>(i * 7);
    return bytes;
  }();
  return buffer;
}

std::string Numbered(const char* prefix, size_t number) {
  std::string digits = std::to_string(number);
  return prefix + std::string(4 - digits.size(), '0') + digits + ".DAT";
}

// The blocks of the large file in an order that is the same in every run.
const std::vector<size_t>& RandomPositions() {
  static const std::vector<size_t> positions = [] {
    std::mt19937 random(1);
    std::vector<size_t> made(kRandomTransfers);
    for (size_t& position : made) position = random() % (kFileSize / kBlock) * kBlock;
    return made;
  }();
  return positions;
}

template <size_t kCall>
void WriteLarge(Backend& backend) {
  backend.OpenNew(kLarge, kFileSize);
  for (size_t position = 0; position < kFileSize; position += kCall) {
    backend.Write(Buffer(), kFileSize - position < kCall ? kFileSize - position : kCall);
  }
  backend.Close();
}

template <size_t kCall>
void ReadLarge(Backend& backend) {
  for (size_t position = 0; position < kFileSize; position += kCall) backend.Read(Buffer(), kCall);
}

void ReadRandom(Backend& backend) {
  for (const size_t position : RandomPositions()) {
    backend.Seek(position);
    backend.Read(Buffer(), kBlock);
  }
}

void WriteRandom(Backend& backend) {
  for (const size_t position : RandomPositions()) {
    backend.Seek(position);
    backend.Write(Buffer(), kBlock);
  }
}

template <void (Backend::*kOperation)(const std::string&)>
void EachFile(Backend& backend) {
  for (size_t i = 0; i < kFiles; ++i) (backend.*kOperation)(Numbered("FILE", i));
}

void CreateSmall(Backend& backend) {
  for (size_t i = 0; i < kFiles; ++i) backend.CreateWith(Numbered("FILE", i), Buffer(), kSmallSize);
}

void RenameEach(Backend& backend) {
  for (size_t i = 0; i < kFiles; ++i) backend.Rename(Numbered("FILE", i), Numbered("NEW", i));
}

void Enumerate(Backend& backend) { Require(backend.Enumerate() == kFiles, "finding every file"); }

void FormatAndMountOften(Backend& backend) {
  for (size_t i = 0; i < kMounts; ++i) {
    backend.FormatAndMount();
    backend.Unmount();
  }
}

void MountOften(Backend& backend) {
  for (size_t i = 0; i < kMounts; ++i) {
    backend.Mount();
    backend.Unmount();
  }
}

void Nothing(Backend&) {}
void Empty(Backend& backend) { backend.FormatAndMount(); }
void WithFiles(Backend& backend) {
  backend.FormatAndMount();
  EachFile<&Backend::Create>(backend);
}
void WithSmallFiles(Backend& backend) {
  backend.FormatAndMount();
  CreateSmall(backend);
}
void WithLarge(Backend& backend) {
  backend.FormatAndMount();
  WriteLarge<16 * kBlock>(backend);
}
void WithLargeOpen(Backend& backend) {
  WithLarge(backend);
  backend.Open(kLarge);
}
void Full(Backend& backend) {
  WithSmallFiles(backend);
  WriteLarge<16 * kBlock>(backend);
  backend.Unmount();
}

void Unmount(Backend& backend) { backend.Unmount(); }
void CloseAndUnmount(Backend& backend) {
  backend.Close();
  backend.Unmount();
}

}  // namespace

const std::vector<Workload>& Workloads() {
  constexpr size_t k64 = 16 * kBlock;
  static const std::vector<Workload> workloads = {
      {"write-64K", "64 KiB appended", kFileSize / k64, Empty, WriteLarge<k64>, Unmount, false},
      {"write-4K", "4 KiB appended", kFileSize / kBlock, Empty, WriteLarge<kBlock>, Unmount, false},
      {"write-100", "100 bytes appended", (kFileSize + 99) / 100, Empty, WriteLarge<100>, Unmount, false},
      {"read-64K", "64 KiB read in order", kFileSize / k64, WithLargeOpen, ReadLarge<k64>, CloseAndUnmount, false},
      {"read-4K", "4 KiB read in order", kFileSize / kBlock, WithLargeOpen, ReadLarge<kBlock>, CloseAndUnmount, false},
      {"random-read", "4 KiB read anywhere", kRandomTransfers, WithLargeOpen, ReadRandom, CloseAndUnmount, false},
      {"random-overwrite", "4 KiB overwritten anywhere", kRandomTransfers, WithLargeOpen, WriteRandom, CloseAndUnmount,
       false},
      {"create", "empty file created", kFiles, Empty, EachFile<&Backend::Create>, Unmount, false},
      {"look-up", "file looked up", kFiles, WithFiles, EachFile<&Backend::LookUp>, Unmount, false},
      {"enumerate", "file listed", kFiles, WithFiles, Enumerate, Unmount, false},
      {"small-files", "file of 2,000 bytes created", kFiles, Empty, CreateSmall, Unmount, false},
      {"delete", "file of 2,000 bytes deleted", kFiles, WithSmallFiles, EachFile<&Backend::Delete>, Unmount, false},
      {"rename", "file renamed", kFiles, WithFiles, RenameEach, Unmount, false},
      {"format-mount", "volume made, mounted, unmounted", kMounts, Nothing, FormatAndMountOften, Nothing, false},
      {"mount-full", "full volume mounted, unmounted", kMounts, Full, MountOften, Nothing, true},
      {"delete-64M", "file of 64 MiB deleted", 1, WithLarge, [](Backend& backend) { backend.Delete(kLarge); }, Unmount,
       false},
  };
  return workloads;
}

}  // namespace bench
