// How the test host's calls are carried out; for the test host's own sources. Each call makes one HostCall, which
// counts it, lets time pass, finds out whether it is to fail, and leaves its record in the trace when it ends.
#pragma once

#include "support/test_host.h"

namespace testhost {

class HostCall {
 public:
  explicit HostCall(Call kind);
  ~HostCall();
  HostCall(const HostCall&) = delete;
  HostCall& operator=(const HostCall&) = delete;

  // The call is ordered to fail without doing anything. Its last error and record are already set.
  bool fails() const { return fails_; }

  // The transfer is ordered to stop after at most this many bytes, no matter how many were asked for.
  uint32_t limit() const { return limit_; }

  // The transfer, so limited, is to be reported as failed. Only after it was made: sets last error and record.
  bool Tears();

  // Sets the last error and the record's; returns 0 for a call to return.
  int32_t Fail(uint32_t hostCode);

  // Keeps the bytes to be written in the record, if the test wants them.
  void NoteData(const void* data, uint32_t count);

  CallRecord record;

 private:
  bool fails_ = false;
  uint32_t limit_ = 0xFFFFFFFF;
  uint32_t tearCode_ = 0;
};

// Tells the journals of this file about a write.
void RecordInJournals(const FileName& name, uint64_t position, const void* data, size_t count);

// The parts of ResetHost.
void ResetCalls();
void ResetFiles();
void ResetLibraries();
void ResetText();

}  // namespace testhost
