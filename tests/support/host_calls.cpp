// The test host's calls in general: time, trace, faults and journals.
#include <algorithm>
#include <array>
#include <stdexcept>

#include "support/host_call.h"

namespace testhost {

namespace {

namespace coredll = orba::coredll;

enum class Action { kFail, kShorten, kTear };

struct FaultOrder {
  bool anyKind = false;
  Call kind = Call::kCreateFile;
  uint32_t untilActs = 1;  // matching calls, the acted-upon one included
  Repeat repeat = Repeat::kOnce;
  Action action = Action::kFail;
  uint32_t hostCode = 0;
  uint32_t bytes = 0;
};

struct Calls {
  uint32_t lastError = coredll::kHostNoError;
  SystemTime clock = {2001, 2, 6, 3, 4, 5, 6, 7};
  uint32_t ticks = 1000;
  uint32_t tickStep = 0;
  std::array<uint32_t, kCallKinds> duration{};
  std::array<uint32_t, kCallKinds> count{};
  std::vector<CallRecord> trace;
  bool tracing = true;
  bool keepWriteData = false;
  std::vector<FaultOrder> faults;
  uint32_t faultsFired = 0;
};

Calls g_Calls;
std::vector<WriteJournal*> g_Journals;

size_t Index(Call kind) { return static_cast<size_t>(kind); }
bool CanFail(Call kind) { return kind != Call::kGetTickCount && kind != Call::kGetSystemTime; }

void AddFault(FaultOrder order, uint32_t n) {
  if (n == 0) throw std::invalid_argument("calls count from 1");
  const bool failing = order.action != Action::kShorten;
  if (failing && order.hostCode == coredll::kHostNoError) throw std::invalid_argument("a call fails with a code");
  order.untilActs = n;
  g_Calls.faults.push_back(order);
}

// Lets this call count in every order; returns a copy of the one that acts on it in `acting`.
bool TakeFault(Call kind, FaultOrder* acting) {
  if (!CanFail(kind)) return false;
  size_t chosen = g_Calls.faults.size();
  for (size_t i = 0; i < g_Calls.faults.size(); ++i) {
    FaultOrder& order = g_Calls.faults[i];
    if (!order.anyKind && order.kind != kind) continue;
    if (order.untilActs > 1) {
      --order.untilActs;
    } else if (chosen == g_Calls.faults.size()) {
      chosen = i;
    }
  }
  if (chosen == g_Calls.faults.size()) return false;
  *acting = g_Calls.faults[chosen];
  if (acting->repeat == Repeat::kOnce) g_Calls.faults.erase(g_Calls.faults.begin() + static_cast<ptrdiff_t>(chosen));
  ++g_Calls.faultsFired;
  return true;
}

}  // namespace

// ---- A call ---------------------------------------------------------------------------------------------------------

HostCall::HostCall(Call kind) {
  record.call = kind;
  ++g_Calls.count[Index(kind)];
  g_Calls.ticks += g_Calls.duration[Index(kind)];
  FaultOrder order;
  if (!TakeFault(kind, &order)) return;
  if (order.action == Action::kFail) {
    fails_ = true;
    Fail(order.hostCode);
  } else {
    limit_ = order.bytes;
    if (order.action == Action::kTear) tearCode_ = order.hostCode;
  }
}

HostCall::~HostCall() {
  if (g_Calls.tracing) g_Calls.trace.push_back(std::move(record));
}

bool HostCall::Tears() {
  if (tearCode_ == 0) return false;
  Fail(tearCode_);
  return true;
}

void HostCall::NoteData(const void* data, uint32_t count) {
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  if (g_Calls.keepWriteData && bytes != nullptr) record.data.assign(bytes, bytes + count);
}

int32_t HostCall::Fail(uint32_t hostCode) {
  g_Calls.lastError = hostCode;
  record.error = hostCode;
  return 0;
}

void ResetHost() {
  ResetCalls();
  ResetFiles();
  ResetLibraries();
  ResetText();
  ResetAllocations();
}

void ResetCalls() {
  g_Calls = Calls();
  g_Journals.clear();
}

// ---- Time -----------------------------------------------------------------------------------------------------------

void SetClock(const SystemTime& now) { g_Calls.clock = now; }
void SetTickCount(uint32_t milliseconds) { g_Calls.ticks = milliseconds; }
void SetTickStep(uint32_t milliseconds) { g_Calls.tickStep = milliseconds; }
void SetCallDuration(Call kind, uint32_t milliseconds) { g_Calls.duration[Index(kind)] = milliseconds; }

// ---- Trace ----------------------------------------------------------------------------------------------------------

namespace {

bool IsContainerCall(Call kind) {
  return kind <= Call::kCloseHandle || (kind >= Call::kCreateMemFile && kind <= Call::kDeleteMemFile);
}

// Printable ASCII as it is, anything else by its number.
std::string Printable(const FileName& name) {
  std::string text;
  for (const char16_t c : name) {
    if (c >= 0x20 && c < 0x7F) {
      text += static_cast<char>(c);
    } else {
      text += "\\u" + std::to_string(static_cast<unsigned>(c));
    }
  }
  return text;
}

std::string TransferText(const char* verb, const CallRecord& record) {
  std::string text = verb;
  text += " " + std::to_string(record.position) + " " + std::to_string(record.count);
  if (record.error == 0 && record.done != record.count) text += " =" + std::to_string(record.done);
  return text;
}

std::string SeekText(const char* verb, const CallRecord& record) {
  std::string text = verb;
  text += " ";
  if (record.method == coredll::kFileBegin) return text + std::to_string(record.distance);
  text += record.method == coredll::kFileCurrent ? "current" : record.method == coredll::kFileEnd ? "end" : "?";
  if (record.distance >= 0) text += "+";
  return text + std::to_string(record.distance);
}

std::string CallText(const CallRecord& record) {
  switch (record.call) {
    case Call::kCreateFile:
      return (record.disposition == coredll::kCreateNew ? "create " : "open ") + Printable(record.name);
    case Call::kReadFile:
      return TransferText("read", record);
    case Call::kWriteFile:
      return TransferText("write", record);
    case Call::kSetFilePointer:
      return SeekText("seek", record);
    case Call::kFlushFileBuffers:
      return "flush";
    case Call::kGetFileSize:
      return "size";
    case Call::kCloseHandle:
      return "close";
    case Call::kLoadLibrary:
      return "load " + Printable(record.name);
    case Call::kGetProcAddress:
      return "proc " + Printable(record.name);
    case Call::kFreeLibrary:
      return "free";
    case Call::kWideToAnsi:
      return "toansi";
    case Call::kAnsiToWide:
      return "towide";
    case Call::kCreateMemFile:
      return "memcreate";
    case Call::kReadMemFile:
      return TransferText("memread", record);
    case Call::kWriteMemFile:
      return TransferText("memwrite", record);
    case Call::kSeekMemFile:
      return SeekText("memseek", record);
    case Call::kGetMemFileSize:
      return "memsize";
    case Call::kDeleteMemFile:
      return "memdelete";
    case Call::kGetTickCount:
      return "tick";
    case Call::kGetSystemTime:
      return "time";
  }
  return "?";
}

template <typename Wanted>
std::string JoinedText(Wanted wanted) {
  std::string text;
  for (const CallRecord& record : g_Calls.trace) {
    if (!wanted(record)) continue;
    if (!text.empty()) text += " / ";
    text += ToText(record);
  }
  return text;
}

}  // namespace

const std::vector<CallRecord>& Trace() { return g_Calls.trace; }

void ClearTrace() {
  g_Calls.trace.clear();
  g_Calls.count.fill(0);
}

std::string ToText(const CallRecord& record) {
  const std::string text = CallText(record);
  return record.error != 0 ? text + " !" + std::to_string(record.error) : text;
}

std::string TraceText() {
  return JoinedText([](const CallRecord& record) { return IsContainerCall(record.call); });
}

std::string TraceText(std::initializer_list<Call> kinds) {
  return JoinedText(
      [&](const CallRecord& record) { return std::find(kinds.begin(), kinds.end(), record.call) != kinds.end(); });
}

std::string TraceText(const FileName& name) {
  return JoinedText([&](const CallRecord& record) { return IsContainerCall(record.call) && record.name == name; });
}

std::vector<CallRecord> Writes() {
  std::vector<CallRecord> writes;
  for (const CallRecord& record : g_Calls.trace) {
    if (record.call == Call::kWriteFile) writes.push_back(record);
  }
  return writes;
}

uint32_t CallCount(Call kind) { return g_Calls.count[Index(kind)]; }

uint32_t CallCount() {
  uint32_t calls = 0;
  for (size_t i = 0; i < kCallKinds; ++i) {
    if (CanFail(static_cast<Call>(i))) calls += g_Calls.count[i];
  }
  return calls;
}

void KeepWriteData(bool keep) { g_Calls.keepWriteData = keep; }
void SetTracing(bool on) { g_Calls.tracing = on; }

// ---- Faults ---------------------------------------------------------------------------------------------------------

void FailNthCall(uint32_t n, uint32_t hostCode, Repeat repeat) {
  FaultOrder order;
  order.anyKind = true;
  order.repeat = repeat;
  order.hostCode = hostCode;
  AddFault(order, n);
}

void FailNthCall(Call kind, uint32_t n, uint32_t hostCode, Repeat repeat) {
  if (!CanFail(kind)) throw std::invalid_argument("this call cannot fail");
  FaultOrder order;
  order.kind = kind;
  order.repeat = repeat;
  order.hostCode = hostCode;
  AddFault(order, n);
}

namespace {

FaultOrder PartialTransfer(Call kind, Action action, uint32_t bytes, Repeat repeat) {
  FaultOrder order;
  order.kind = kind;
  order.repeat = repeat;
  order.action = action;
  order.bytes = bytes;
  return order;
}

}  // namespace

void ShortenNthRead(uint32_t n, uint32_t bytes, Repeat repeat) {
  AddFault(PartialTransfer(Call::kReadFile, Action::kShorten, bytes, repeat), n);
}

void ShortenNthWrite(uint32_t n, uint32_t bytes, Repeat repeat) {
  AddFault(PartialTransfer(Call::kWriteFile, Action::kShorten, bytes, repeat), n);
}

void TearNthWrite(uint32_t n, uint32_t bytes, uint32_t hostCode, Repeat repeat) {
  FaultOrder order = PartialTransfer(Call::kWriteFile, Action::kTear, bytes, repeat);
  order.hostCode = hostCode;
  AddFault(order, n);
}

uint32_t FaultsFired() { return g_Calls.faultsFired; }

void ClearFaults() {
  g_Calls.faults.clear();
  g_Calls.faultsFired = 0;
  ClearAllocationFaults();
}

// ---- Stops ----------------------------------------------------------------------------------------------------------

WriteJournal::WriteJournal(const FileName& name) : name_(name), base_(GetFile(name)) { g_Journals.push_back(this); }

WriteJournal::~WriteJournal() { Stop(); }

void WriteJournal::Stop() {
  g_Journals.erase(std::remove(g_Journals.begin(), g_Journals.end(), this), g_Journals.end());
}

void WriteJournal::Record(uint64_t position, const void* data, size_t count) {
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  writes_.push_back({position, count != 0 ? Bytes(bytes, bytes + count) : Bytes()});
}

FileImage WriteJournal::ImageAfter(size_t k, size_t torn) const {
  if (k > count() || (torn != 0 && k == count())) throw std::out_of_range("there were not so many writes");
  FileImage image = base_;
  for (size_t i = 0; i < k; ++i) image.Write(writes_[i].position, writes_[i].bytes.data(), writes_[i].bytes.size());
  if (torn == 0) return image;
  const Write& next = writes_[k];
  if (torn > next.bytes.size()) throw std::out_of_range("the next write is not so long");
  image.Write(next.position, next.bytes.data(), torn);
  return image;
}

void RecordInJournals(const FileName& name, uint64_t position, const void* data, size_t count) {
  for (WriteJournal* journal : g_Journals) {
    if (journal->name() == name) journal->Record(position, data, count);
  }
}

}  // namespace testhost

// ---- The device calls -----------------------------------------------------------------------------------------------

namespace orba {
namespace coredll {

using testhost::Call;
using testhost::HostCall;

uint32_t GetLastError() { return testhost::g_Calls.lastError; }

uint32_t GetTickCount() {
  HostCall call(Call::kGetTickCount);
  const uint32_t now = testhost::g_Calls.ticks;
  testhost::g_Calls.ticks += testhost::g_Calls.tickStep;
  return now;
}

void GetSystemTime(SystemTime* now) {
  HostCall call(Call::kGetSystemTime);
  *now = testhost::g_Calls.clock;
}

}  // namespace coredll
}  // namespace orba
