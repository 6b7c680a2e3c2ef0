// Carries a repair plan out, and back. Before the first write an undo file holds everything that the plan overwrites, so a
// repair can be taken back whether it ended or was stopped. Stands on repair.
//
// An undo file, all integers little-endian:
//   0   8 bytes  "ORBAUNDO"
//   8   u32      1, the version
//   12  u32      number of ranges
//   16  u64      the container's length
//   24           the ranges: u64 offset, u32 length, the bytes that lay there
//   end u32      CRC-32 of all before
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "inspect/image.h"
#include "inspect/repair.h"

namespace orba::inspect {

// A container that can be written.
class Target {
 public:
  virtual ~Target() = default;

  // Writes bytes, past the end too. False when the host could not write them all.
  virtual bool Write(std::uint64_t offset, const void* bytes, std::size_t count) = 0;
  // Makes the container shorter.
  virtual bool Cut(std::uint64_t size) = 0;
  // Sees to it that what was written outlives this process.
  virtual bool Flush() = 0;
};

class FileTarget : public Target {
 public:
  // Opens an existing file for writing; null when that fails.
  static std::unique_ptr<FileTarget> Open(const std::string& path);

  ~FileTarget() override;
  FileTarget(const FileTarget&) = delete;
  FileTarget& operator=(const FileTarget&) = delete;

  bool Write(std::uint64_t offset, const void* bytes, std::size_t count) override;
  bool Cut(std::uint64_t size) override;
  bool Flush() override;

 private:
  FileTarget(std::FILE* file, std::string path) : file_(file), path_(std::move(path)) {}

  std::FILE* file_;
  std::string path_;
};

// The contents of an undo file for this plan on this container.
std::vector<std::uint8_t> MakeUndo(const Plan& plan, const Image& image);

// Makes the plan's writes in order, each flushed before the next. False at the first that fails; the container is then as
// far as it got, and can be repaired again or taken back.
bool ApplyPlan(const Plan& plan, Target* target);

// Puts back what an undo file holds and cuts the container to its old length. False, with nothing written, when the file is
// no undo file or damaged; false as well when a write fails, and then it can be tried again.
bool ApplyUndo(const std::vector<std::uint8_t>& undo, Target* target);

}  // namespace orba::inspect
