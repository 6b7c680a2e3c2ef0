// The test host: platform/coredll.h implemented in memory, linked in place of the real host, and the means to look at
// and upset it. Files are named images; a trace tells every call; single calls can be made to fail; a journal rebuilds
// what a stop after any write would have left.
//
// Everything is one process-wide state that ResetHost puts back. host_test.h has a GoogleTest fixture that does so and
// checks for leaks; allocations.h fails and counts the library's memory; image_view.h reads containers' records.
//
// A typical fault loop, until the operation is through without meeting the fault:
//   for (uint32_t n = 1;; ++n) {
//     ... prepare ...
//     FailNthCall(n, kHostDiskFull);
//     ... run the operation ...
//     const bool failed = FaultsFired() != 0;
//     ClearFaults();
//     if (!failed) break;
//     ... judge result, error code and bytes ...
//   }
// Asking for what cannot be (a missing file, an n of 0, a host code of 0, a state after more writes than there were)
// throws.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "platform/coredll.h"
#include "support/allocations.h"
#include "support/file_image.h"

namespace testhost {

using orba::coredll::Handle;
using orba::coredll::SystemTime;
using FileName = std::u16string;

// Puts everything back: no files, handles or faults, an empty trace, the first clock values, the memory-file library
// present, complete and unloaded, no allocation counted. Handle values are never used twice, not even after a reset.
void ResetHost();

// ASCII text as a wide string.
FileName WideName(const char* text);

// ---- Files ----------------------------------------------------------------------------------------------------------
// Names are compared exactly and name files, never directories. An empty name meets host error 3, an unpaired surrogate
// 123, a missing file 2, a second open 32 whatever the share modes. Only the library goes through handles: the
// functions below work on open files too and appear in no trace or journal.

// All files by name. Cheap to copy.
using FileSet = std::map<FileName, FileImage>;

bool FileExists(const FileName& name);
std::vector<FileName> FileNames();

// Creates the file or replaces its contents; handles to it stay open.
void SetFile(const FileName& name, const FileImage& image);
void SetFile(const FileName& name, const Bytes& bytes);

// The contents; of a missing file none. FileBytes takes the file's size in memory, so not for pretended gigabytes.
FileImage GetFile(const FileName& name);
Bytes FileBytes(const FileName& name);
Bytes FileBytes(const FileName& name, uint64_t position, size_t count);
uint64_t FileSize(const FileName& name);

// Cuts a file, or lengthens it by zeros that take no memory. Patches bytes, lengthening the file where needed.
void ResizeFile(const FileName& name, uint64_t size);
void PatchFile(const FileName& name, uint64_t position, const Bytes& bytes);

// Deletes a file; its handles become invalid.
void RemoveFile(const FileName& name);

// Snapshot copies all files; Restore puts them back, deletes the others and leaves handles to files that are in both
// open, where they are.
FileSet Snapshot();
void Restore(const FileSet& files);

// Handles open now. DropHandles invalidates them all, as the end of the process would.
size_t OpenHandles();
void DropHandles();

// ---- Time -----------------------------------------------------------------------------------------------------------
// The clock starts at Saturday 2001-02-03 04:05:06.007 and stands. The tick count starts at 1000.

void SetClock(const SystemTime& now);
void SetTickCount(uint32_t milliseconds);

// Every GetTickCount returns the count and then advances it by `milliseconds` (0 at first).
void SetTickStep(uint32_t milliseconds);

// ---- Calls and their trace ------------------------------------------------------------------------------------------

enum class Call {
  kCreateFile,  // CREATE_NEW and OPEN_EXISTING alike
  kReadFile,
  kWriteFile,
  kSetFilePointer,
  kFlushFileBuffers,
  kGetFileSize,
  kCloseHandle,
  kLoadLibrary,
  kGetProcAddress,
  kFreeLibrary,
  kWideToAnsi,
  kAnsiToWide,
  kCreateMemFile,  // the entry points of the memory-file library
  kReadMemFile,
  kWriteMemFile,
  kSeekMemFile,
  kGetMemFileSize,
  kDeleteMemFile,
  kGetTickCount,  // these two cannot fail and count in no "n-th call"
  kGetSystemTime,
};
constexpr size_t kCallKinds = static_cast<size_t>(Call::kGetSystemTime) + 1;

struct CallRecord {
  Call call = Call::kCreateFile;
  Handle handle = orba::coredll::kInvalidHandle;  // of CreateFileW the result
  FileName name;                                  // the file; of a library call the library or the procedure
  uint64_t position = 0;                          // read and write: where in the file
  int32_t distance = 0;                           // seek: as given
  uint32_t method = 0;                            // seek: as given
  uint32_t count = 0;                             // read and write: bytes asked for; conversion: units of room given
  uint32_t done = 0;                              // read and write: bytes transferred; seek: new position; size: size
  uint32_t error = 0;                             // host error of a call that failed, else 0
  uint32_t access = 0;                            // CreateFileW, as given, and the next three
  uint32_t shareMode = 0;
  uint32_t disposition = 0;
  uint32_t flags = 0;
  Bytes data;  // write: the bytes asked to be written, if KeepWriteData(true)
};

// Every call since ResetHost or ClearTrace, in order.
const std::vector<CallRecord>& Trace();
void ClearTrace();

// The container's calls (files and memory file) in one line: "open VOL / seek 52 / write 52 4 / read 1024 4096".
//   create N, open N, read POSITION COUNT, write POSITION COUNT, seek DISTANCE, flush, size, close
//   the memory file's: memcreate, memread, memwrite, memseek, memsize, memdelete
//   other calls, only where asked for by kind: load N, proc N, free, toansi, towide, tick, time
// A seek with another origin than the start reads "seek current+5" or "seek end-5". " =N" after a read or write tells a
// transfer of fewer bytes than asked, " !N" a call that failed with host error N.
std::string TraceText();
std::string TraceText(std::initializer_list<Call> kinds);  // calls of these kinds alone
std::string TraceText(const FileName& name);               // calls on this file alone
std::string ToText(const CallRecord& record);

// The write records alone.
std::vector<CallRecord> Writes();

// Calls of a kind, and all calls that can fail, since ResetHost or ClearTrace.
uint32_t CallCount(Call kind);
uint32_t CallCount();

// Whether trace records keep the bytes written (at first not); whether calls are recorded at all (at first they are;
// calls count either way).
void KeepWriteData(bool keep);
void SetTracing(bool on);

// Each call of this kind lets the tick count advance by `milliseconds` (0 at first).
void SetCallDuration(Call kind, uint32_t milliseconds);

// ---- Faults ---------------------------------------------------------------------------------------------------------
// Each order waits for the n-th matching call from now (1 = the next), then acts on it once or from then on. Orders are
// kept side by side; where two would act on one call, the older one does and the other waits for the next.

// The call fails with `hostCode` and does nothing; but a failing CloseHandle, FreeLibrary or DeleteMemFile lets go all
// the same, as hosts do. GetProcAddressW returns null, conversions 0 or what SetFailedConversion says. The first form
// counts all calls that can fail.
void FailNthCall(uint32_t n, uint32_t hostCode, Repeat repeat = Repeat::kOnce);
void FailNthCall(Call kind, uint32_t n, uint32_t hostCode, Repeat repeat = Repeat::kOnce);

// What a conversion that is ordered to fail returns: 0 at first; some hosts return less.
void SetFailedConversion(int32_t result);

// The read or write transfers at most `bytes` bytes and reports success.
void ShortenNthRead(uint32_t n, uint32_t bytes, Repeat repeat = Repeat::kOnce);
void ShortenNthWrite(uint32_t n, uint32_t bytes, Repeat repeat = Repeat::kOnce);

// The write leaves its first `bytes` bytes in the file, yet fails with `hostCode` and reports 0 bytes written.
void TearNthWrite(uint32_t n, uint32_t bytes, uint32_t hostCode, Repeat repeat = Repeat::kOnce);

// Calls acted upon since ResetHost or ClearFaults. ClearFaults ends all orders, those for allocations too.
uint32_t FaultsFired();
void ClearFaults();

// ---- Stops ----------------------------------------------------------------------------------------------------------

// Records every change the library makes to a file, so that one run of an operation yields what a stop after each
// single write would have left behind.
//   WriteJournal journal(u"VOL");
//   ... run the operation ...
//   journal.Stop();
//   for (size_t k = 0; k <= journal.count(); ++k) Inspect(journal.StateAfter(k));
class WriteJournal {
 public:
  // Starts recording.
  explicit WriteJournal(const FileName& name);
  ~WriteJournal();
  WriteJournal(const WriteJournal&) = delete;
  WriteJournal& operator=(const WriteJournal&) = delete;

  void Stop();

  struct Write {
    uint64_t position;
    Bytes bytes;  // as they reached the file
  };
  // Writes of 0 bytes are among them.
  const std::vector<Write>& writes() const { return writes_; }
  size_t count() const { return writes_.size(); }

  // The file after the first k writes, 0 <= k <= count(). With `torn` the first `torn` bytes of the next write as well.
  FileImage ImageAfter(size_t k, size_t torn = 0) const;
  Bytes StateAfter(size_t k, size_t torn = 0) const { return ImageAfter(k, torn).ToBytes(); }

  // For the host: a write to this file took place.
  void Record(uint64_t position, const void* data, size_t count);
  const FileName& name() const { return name_; }

 private:
  FileName name_;
  FileImage base_;
  std::vector<Write> writes_;
};

// ---- The memory-file library ----------------------------------------------------------------------------------------
// LoadLibraryW("memfile.dll") finds it. It behaves as memfile.h says; when the last reference is freed, its file is
// gone. Calling an entry point while it is not loaded ends the program, as it would.

// Whether it can be found (at first yes). Procedures hidden are not found by GetProcAddressW.
void SetMemFilePresent(bool present);
void HideProcedure(const FileName& name);

struct MemFileCounts {
  uint32_t loads = 0;       // LoadLibraryW that succeeded
  uint32_t frees = 0;       // FreeLibrary
  uint32_t references = 0;  // loads not yet freed
  uint32_t creates = 0;     // calls, failed ones included
  uint32_t deletes = 0;
};
MemFileCounts MemFile();

// The memory file's contents; none when there is no memory file. SetMemFileImage replaces them.
FileImage MemFileImage();
void SetMemFileImage(const FileImage& image);

}  // namespace testhost
