// The fixture for tests of the layers from nodes upward. It says what the library did to a container in the volume's
// own terms, so that a test states a whole order of calls in one line:
//
//   mark, clear     the flags word written with the update mark set, or cleared
//   header, table, bitmap
//   node N          the 64 bytes of node N's record
//   block N         a whole block; "block N+O:L" are the L bytes from byte O of it
//   size, flush     the container's size asked for; a flush
//
// " !E" follows a call that failed with host error E. A seek stands for itself only where no transfer at its place
// follows.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "namespace/path.h"
#include "nodes/node.h"
#include "unit/library_test.h"

namespace orba {

using Lines = std::vector<std::string>;

class TreeTest : public LibraryTest {
 protected:
  void SetUp() override;

  // Formats and mounts another volume in the place of "A"; tests begin with 16 bytes of bitmap and blocks of 1024.
  void Start(uint32_t bitmapSize, uint32_t blockSize);

  // Unmounts "A" and mounts it again, so that nothing is known but what the container holds.
  void Remount();

  // ---- Making, through the library. Each call must succeed; the trace is empty afterwards.

  static void MakeFile(const char* path, const Bytes& contents = {});
  static void MakeDirectory(const char* path);
  static void MakeFiles(const char* prefix, uint32_t first, uint32_t last);  // "F1", "F2", ... empty
  static void Delete(const char* path);
  static OrbHandle Open(const char* path, uint32_t mode = ORB_OPEN_READ | ORB_OPEN_WRITE);

  // Gives a file a size; new bytes are zero.
  static void Resize(const char* path, uint32_t size);

  // ---- Looking, through the library and without a trace

  static Bytes Contents(const char* path);
  static Lines Names(const char* directory);  // in the directory's order, "." and ".." left out
  uint16_t NumberOf(const char* path);        // 0 for what is not there

  // ---- Looking at the container's bytes

  static Bytes Image(const char16_t* container = u"VOL") { return testhost::FileBytes(container); }
  static OrbNodeRecord Stored(uint32_t node) { return testhost::NodeOf(Image(), node); }
  static OrbDirEntry StoredEntry(uint32_t block, uint32_t index) { return testhost::EntryOf(Image(), block, index); }
  static uint32_t Blocks() { return testhost::BlockCount(Image()); }
  static uint32_t ChainHead() { return testhost::HeaderOf(Image()).freeChainHead; }

  // What inspection finds above a note: the kinds' names in order, "marked" first where the update mark is set.
  static std::string Findings(const char16_t* container = u"VOL");
  static std::string FindingsIn(const Bytes& image);

  // Breaks the container while it is not mounted: unmounts "A", lets `change` work on its bytes, mounts it again.
  void Damage(const std::function<void(Bytes*)>& change);

  // ---- Host calls since ClearTrace

  // All calls on a container: "read block 2 / mark / write node 2 / size / clear". Of one kind: "node 2 / clear".
  static std::string Calls(const char16_t* container = u"VOL");
  static std::string Writes(const char16_t* container = u"VOL");
  static std::string Reads(const char16_t* container = u"VOL");

  // ---- Every call failing in turn

  // One operation to fail in all its places.
  struct Operation {
    std::function<void()> prepare;  // after each mount, not failed; may be empty
    std::function<bool()> run;      // the result tells of success
    std::function<void()> finish;   // after each run, not failed; may be empty
  };

  // Runs the operation again and again from the present state of the container, freshly mounted, with its first,
  // second, ... call of a kind failing, until one run meets no failure. A line for each failure:
  //   "write bitmap: WRITE, marked node-leaked"
  // the call, the outcome ("" would be success), what inspection finds in the container. As many nodes must be listed
  // afterwards as before. The container and the mount end as they began.
  Lines FailEach(Call kind, uint32_t hostCode, Repeat repeat, const Operation& operation);

  // The same with the first, second, ... allocation failing: "OUT_OF_MEMORY, ".
  Lines FailEachAllocation(const Operation& operation);

  Volume* volume_ = nullptr;

 private:
  std::string RunOnce(const Operation& operation, const std::function<void()>& fail, bool* failed);
  Lines RunUntilUnharmed(const Operation& operation, const std::function<void(uint32_t)>& failNth);
};

}  // namespace orba
