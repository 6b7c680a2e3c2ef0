// The fixtures and shorthands of the black-box tests. They know the public header and nothing else, so that the same
// sources run against every build of the library: containers are files in the current folder, made and looked into with
// the standard library alone.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "orba.h"

namespace api {

using Bytes = std::vector<unsigned char>;
using WideString = std::basic_string<OrbWideChar>;

WideString Wide(const std::string& ascii);
std::string Narrow(const OrbWideChar* wide);

// ---- Outcomes -------------------------------------------------------------------------------------------------------

// What a call came to: its result and the error it left behind.
struct Outcome {
  OrbU32 value;
  OrbU32 code;
};
bool operator==(const Outcome& a, const Outcome& b);
std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

Outcome Succeeded(OrbU32 value = 1);
Outcome Failed(OrbU32 code, OrbU32 value = 0);

// Reads the error behind the call that the argument is.
template <typename Value>
Outcome Ended(Value value) {
  return {static_cast<OrbU32>(value), OrbGetLastError()};
}

// ---- Both forms -----------------------------------------------------------------------------------------------------

// What a search returns, in either form.
struct Found {
  OrbU32 attributes;
  std::string time;  // as Stamp() writes it
  OrbU32 size;
  std::string name;
};

// The functions that take or return strings, as if they had one form. Outputs are written only where the call wrote.
struct Form {
  const char* name;
  OrbBool (*getVolumeInfo)(const char* volume, OrbU32* bitmapBytes, OrbU32* blockSize);
  OrbBool (*unmountVolume)(const char* volume);
  OrbBool (*createFile)(const char* path, OrbU32 attributes);
  OrbBool (*createDirectory)(const char* path);
  OrbBool (*copyFile)(const char* source, const char* target);
  OrbBool (*moveFile)(const char* source, const char* target);
  OrbBool (*renameFile)(const char* path, const char* newName);
  OrbBool (*deleteFile)(const char* path);
  OrbU32 (*getFileAttributes)(const char* path);
  OrbBool (*setFileAttributes)(const char* path, OrbI32 attributes);
  OrbHandle (*openFile)(const char* path, OrbU32 mode);
  OrbBool (*getCurrentDirectory)(std::string* path);
  OrbBool (*setCurrentDirectory)(const char* path);
  OrbBool (*getFullPathName)(std::string* full, const char* path);
  OrbHandle (*findFirstFile)(const char* pattern, Found* found);
  OrbBool (*findNextFile)(OrbHandle search, Found* found);
};
extern const Form kAnsiForm;
extern const Form kWideForm;

// Expects each function with a path to fail with the code, and with the failure value that is its own.
void ExpectEveryPathCallToFail(const Form& orb, const std::string& path, OrbU32 code);

// ---- Containers as bytes --------------------------------------------------------------------------------------------

extern const char kFirst[];   // the container that most tests work in
extern const char kSecond[];  // two more host files
extern const char kThird[];
extern const char kMemory[];  // the memory file

// A name that no host takes: where a star is one of a name's characters, half of a surrogate pair is not.
extern const OrbWideChar kIllegal[];

bool FileExists(const std::string& name);
Bytes ReadWhole(const std::string& name);
void WriteWhole(const std::string& name, const Bytes& bytes);

// Overwrites bytes of an existing file; beyond its end, it grows.
void Patch(const std::string& name, std::size_t offset, const Bytes& bytes);
void PatchU16(const std::string& name, std::size_t offset, OrbU32 value);
void PatchU32(const std::string& name, std::size_t offset, OrbU32 value);

// A container's bytes, and where things lie in them. Offsets beyond the end fail the test and read as 0.
class Image {
 public:
  explicit Image(const std::string& container);

  std::size_t size() const { return bytes_.size(); }
  OrbU32 U8(std::size_t offset) const;
  OrbU32 U16(std::size_t offset) const;
  OrbU32 U32(std::size_t offset) const;
  std::string Text(std::size_t offset, std::size_t length) const;
  // Whether `length` bytes from the offset on all hold the value.
  bool All(std::size_t offset, std::size_t length, unsigned char value) const;

  // The offset of a block (counted from 1), of a node's record, and of slot 0 to 5 of its direct blocks' numbers.
  std::size_t Block(OrbU32 block) const;
  std::size_t Node(OrbU32 number) const;
  OrbU32 Direct(OrbU32 node, OrbU32 slot) const;
  OrbU32 NodeSize(OrbU32 node) const;

  // The number of blocks that the container holds, and of those that its free chain offers.
  OrbU32 Blocks() const;
  OrbU32 FreeBlocks() const;

 private:
  Bytes bytes_;
};

// ---- Data -----------------------------------------------------------------------------------------------------------

// The same numbers for the same seed, everywhere.
class Random {
 public:
  explicit Random(OrbU32 seed) : state_(seed * 2654435761u + 12345u) {}
  OrbU32 Next();
  OrbU32 Below(OrbU32 limit) { return Next() % limit; }

 private:
  OrbU32 state_;
};

// Bytes that differ from seed to seed and from place to place.
Bytes Pattern(OrbU32 seed, std::size_t size);

// A time stamp as text that sorts by time, such as "2009-08-07 23:59:01", and the present one.
std::string Stamp(const OrbTime& time);
std::string Now();

// The moment long past that MakeOld sets.
extern const char kLongAgo[];

// ---- Fixtures -------------------------------------------------------------------------------------------------------

// Starts and ends with nothing mounted, nothing open and none of the containers left over; says so where a test leaves
// more behind than that.
class ApiTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Each expects to succeed.
  void Format(const char* container, OrbU32 bitmapBytes, OrbU32 blockSize);
  void Mount(const char* container, const char* volume);
  void Unmount(const char* volume);
  void FormatAndMount(const char* container, OrbU32 bitmapBytes, OrbU32 blockSize, const char* volume);

  // The container of a mounted volume, which is unmounted to look at it (containers are opened exclusively) and then
  // mounted again.
  Image Look(const char* container, const char* volume);

  Outcome TryFormat(const char* container, OrbU32 bitmapBytes, OrbU32 blockSize);
  Outcome TryMount(const char* container, const char* volume);

  // Creates a file with the contents; opens, expecting to succeed; reads or replaces all of a file.
  void MakeFile(const std::string& path, const Bytes& contents = {});
  OrbHandle Open(const std::string& path, OrbU32 mode = ORB_OPEN_READ | ORB_OPEN_WRITE);
  void Close(OrbHandle file);
  Bytes Contents(const std::string& path);

  // Reads or writes at a position, expecting all bytes to be moved.
  Bytes ReadAt(OrbHandle file, OrbU32 position, OrbU32 count);
  void WriteAt(OrbHandle file, OrbU32 position, const Bytes& bytes);

  // The names that a pattern finds, in order; and what it finds first.
  std::vector<std::string> List(const std::string& pattern);
  Found Find(const std::string& pattern);
  OrbU32 SizeOf(const std::string& path) { return Find(path).size; }

  // Sets the time stamp of a node in an unmounted container to kLongAgo.
  void MakeOld(const char* container, OrbU32 node);
};

// A volume "VOL" of small blocks, used through either form, on a host file or on the memory file.
struct Variant {
  const Form* form;
  const char* container;
};
std::ostream& operator<<(std::ostream& out, const Variant& variant);
std::vector<Variant> EveryVariant();
std::vector<Variant> EveryFormOnHost();  // where a test looks into the container, or damages it
std::string VariantName(const ::testing::TestParamInfo<Variant>& info);

class VolumeTest : public ApiTest, public ::testing::WithParamInterface<Variant> {
 protected:
  static constexpr OrbU32 kBlock = 1024;
  static constexpr OrbU32 kBitmap = 64;

  void SetUp() override;

  const char* container() const { return GetParam().container; }

  const Form* orb = nullptr;  // the functions under test
};

}  // namespace api
