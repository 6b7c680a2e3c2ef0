// Every operation that changes a volume, in every situation that makes a difference to what it writes: what stands
// ready before it, the call itself, and what is left where it is stopped between two writes. Tests run through the list
// to stop the operations, to make them fail and to repair what they leave. Stands on the library's interface and the
// test host.
//
// The volume that an operation changes is A, in container u"VOL"; a copy from another volume reads B, in u"SOURCE".
// Both hold files and directories that no operation has anything to do with. File names are unique in a volume.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/judgement.h"
#include "support/test_host.h"

namespace testhost {

struct Operation {
  std::string name;
  uint32_t blockSize = 0;
  std::function<void()> prepare;     // brings the situation about on volume A, which is mounted and empty
  std::function<void()> begin;       // opens the file that the call works on; each time after mounting. May be empty
  std::function<bool()> run;         // the call: its result
  std::vector<std::string> touched;  // the files and directories on A that the call may change

  uint32_t sourceBlockSize = 0;  // of volume B; 0 = there is no such volume

  // Of a call with two paths: the names that it looks up for the first and for the second. A failure while it looks for
  // the second deliberately leaves a reference to what the first led to.
  uint32_t firstPathNames = 0;
  uint32_t secondPathNames = 0;
};

const std::vector<Operation>& Operations();

extern const FileName kChangedContainer;  // u"VOL"

// Throws, with the library's error code, unless it was done.
void Must(bool done, const std::string& what);

// Makes the containers of an operation's situation. Before and after, nothing is mounted and there are no files.
FileSet Prepare(const Operation& operation);

// Puts the prepared files in place, mounts them and opens what the operation needs; an empty trace. The clock then is
// later than when they were prepared.
void Begin(const Operation& operation, const FileSet& prepared);

// The states of the container after 0, 1, 2 ... writes of the whole operation; nothing is mounted afterwards. Throws
// where the operation fails.
std::vector<FileImage> StopStates(const Operation& operation, const FileSet& prepared);

// Mounts a container as A. False, with the error code set, where that fails.
bool MountContainer(const FileImage& image);

// The contents of a file.
Bytes ReadFile(const std::string& path);

// What a mounted volume holds: all files by name, as far as they can be listed and read.
std::map<std::string, Bystanders::File> ReadVolume(const std::string& volume);

}  // namespace testhost
