#include "unit/tree_test.h"

#include <set>

#include "inspect/check/check.h"

namespace orba {

namespace {

using testhost::CallRecord;
using testhost::FileBytes;

// Keeps the calls of a look at the volume out of the trace.
struct Untraced {
  Untraced() { testhost::SetTracing(false); }
  ~Untraced() { testhost::SetTracing(true); }
  Untraced(const Untraced&) = delete;
  Untraced& operator=(const Untraced&) = delete;
};

bool IsNodeBlock(const Bytes& image, uint32_t block) {
  for (uint32_t k = 0; k < kNodeTableEntries; ++k) {
    if (testhost::NodeTableEntry(image, k) == block) return true;
  }
  return false;
}

uint32_t FirstNodeOf(const Bytes& image, uint32_t block) {
  uint32_t k = 0;
  while (testhost::NodeTableEntry(image, k) != block) ++k;
  return k * testhost::HeaderOf(image).blockSize / kNodeSize + 1;
}

// A place in the container in the volume's terms.
std::string PlaceText(const Bytes& image, uint64_t position, uint32_t count) {
  const VolumeHeader header = testhost::HeaderOf(image);
  if (position == 0 && count == kHeaderSize) return "header";
  if (position == header.nodeTableOffset && count == header.nodeTableSize) return "table";
  if (position == header.bitmapOffset && count == header.bitmapSize) return "bitmap";
  if (position < header.dataOffset) return "byte " + std::to_string(position) + ":" + std::to_string(count);
  const auto block = static_cast<uint32_t>((position - header.dataOffset) / header.blockSize + 1);
  const auto offset = static_cast<uint32_t>((position - header.dataOffset) % header.blockSize);
  if (offset == 0 && count == header.blockSize) return "block " + std::to_string(block);
  if (count == kNodeSize && offset % kNodeSize == 0 && IsNodeBlock(image, block)) {
    return "node " + std::to_string(FirstNodeOf(image, block) + offset / kNodeSize);
  }
  return "block " + std::to_string(block) + "+" + std::to_string(offset) + ":" + std::to_string(count);
}

std::string WriteText(const Bytes& image, const CallRecord& record) {
  if (record.position != kStateFlagsOffset || record.count != 4) {
    return PlaceText(image, record.position, record.count);
  }
  if (record.data.size() != 4) return "flags";
  return (record.data[0] & kVolumeDirty) != 0 ? "mark" : "clear";
}

std::string FailureText(const CallRecord& record) {
  return record.error != 0 ? " !" + std::to_string(record.error) : "";
}

// One call; reads and writes with the verb in front, but for the mark, which nobody reads.
std::string CallText(const Bytes& image, const CallRecord& record) {
  switch (record.call) {
    case Call::kReadFile:
      return "read " + PlaceText(image, record.position, record.count);
    case Call::kWriteFile: {
      const std::string place = WriteText(image, record);
      return place == "mark" || place == "clear" ? place : "write " + place;
    }
    case Call::kSetFilePointer:
      return "seek " + std::to_string(record.distance);
    case Call::kGetFileSize:
      return "size";
    case Call::kFlushFileBuffers:
      return "flush";
    default:
      return testhost::ToText(record);
  }
}

void Append(std::string* text, const std::string& part) {
  if (!text->empty()) *text += " / ";
  *text += part;
}

bool IsTransferAt(const CallRecord& record, int32_t position) {
  return (record.call == Call::kReadFile || record.call == Call::kWriteFile) &&
         record.position == static_cast<uint64_t>(position);
}

bool IsContainerCall(const CallRecord& record, const char16_t* container) {
  return record.name == container && record.call <= Call::kCloseHandle;
}

std::string TransferText(const char16_t* container, Call kind) {
  const Bytes image = FileBytes(container);
  std::string text;
  for (const CallRecord& record : testhost::Trace()) {
    if (record.call != kind || record.name != container) continue;
    Append(&text,
           (kind == Call::kWriteFile ? WriteText(image, record) : PlaceText(image, record.position, record.count)) +
               FailureText(record));
  }
  return text;
}

// The first call that failed, in the volume's terms; a seek with the transfer that it was for.
std::string FirstFailure(const Bytes& image) {
  for (const CallRecord& record : testhost::Trace()) {
    if (record.error != 0) return CallText(image, record);
  }
  return "no call failed";
}

}  // namespace

void TreeTest::SetUp() {
  LibraryTest::SetUp();
  testhost::KeepWriteData(true);
  volume_ = FormatAndMount();
}

void TreeTest::Start(uint32_t bitmapSize, uint32_t blockSize) {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  testhost::RemoveFile(u"VOL");
  volume_ = FormatAndMount(bitmapSize, blockSize);
}

void TreeTest::Remount() {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1) << std::hex << GetError();
  volume_ = Mount();
  ASSERT_NE(volume_, nullptr) << std::hex << GetError();
  testhost::ClearTrace();
}

// ---- Making ---------------------------------------------------------------------------------------------------------

void TreeTest::MakeFile(const char* path, const Bytes& contents) {
  ASSERT_EQ(Outcome(OrbCreateFileA(path, 0)), "") << path;
  if (!contents.empty()) {
    const OrbHandle file = Open(path, ORB_OPEN_WRITE);
    OrbU32 done = 0;
    ASSERT_EQ(Outcome(OrbWriteFile(file, contents.data(), static_cast<OrbU32>(contents.size()), &done)), "") << path;
    ASSERT_EQ(OrbCloseFile(file), 1) << path;
  }
  testhost::ClearTrace();
}

void TreeTest::MakeDirectory(const char* path) {
  ASSERT_EQ(Outcome(OrbCreateDirectoryA(path)), "") << path;
  testhost::ClearTrace();
}

void TreeTest::MakeFiles(const char* prefix, uint32_t first, uint32_t last) {
  for (uint32_t i = first; i <= last; ++i) MakeFile((prefix + std::to_string(i)).c_str());
}

void TreeTest::Delete(const char* path) {
  ASSERT_EQ(Outcome(OrbDeleteFileA(path)), "") << path;
  testhost::ClearTrace();
}

OrbHandle TreeTest::Open(const char* path, uint32_t mode) {
  const OrbHandle file = OrbOpenFileA(path, mode);
  EXPECT_NE(file, ORB_INVALID_HANDLE) << path << " " << std::hex << GetError();
  testhost::ClearTrace();
  return file;
}

void TreeTest::Resize(const char* path, uint32_t size) {
  const OrbHandle file = Open(path, ORB_OPEN_WRITE);
  ASSERT_EQ(Outcome(OrbSetFileSize(file, size)), "") << path;
  ASSERT_EQ(OrbCloseFile(file), 1) << path;
  testhost::ClearTrace();
}

// ---- Looking --------------------------------------------------------------------------------------------------------

Bytes TreeTest::Contents(const char* path) {
  const Untraced untraced;
  const OrbHandle file = OrbOpenFileA(path, ORB_OPEN_READ);
  EXPECT_NE(file, ORB_INVALID_HANDLE) << path << " " << std::hex << GetError();
  if (file == ORB_INVALID_HANDLE) return {};
  Bytes bytes(OrbGetFileSize(file));
  OrbU32 done = 0;
  EXPECT_EQ(Outcome(OrbReadFile(file, bytes.data(), static_cast<OrbU32>(bytes.size()), &done)), "") << path;
  EXPECT_EQ(done, bytes.size()) << path;
  EXPECT_EQ(OrbCloseFile(file), 1) << path;
  return bytes;
}

Lines TreeTest::Names(const char* directory) {
  const Untraced untraced;
  Lines names;
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA((directory + std::string("/")).c_str(), &found);
  EXPECT_NE(search, ORB_INVALID_HANDLE) << directory << " " << std::hex << GetError();
  if (search == ORB_INVALID_HANDLE) return names;
  do {
    const std::string name = found.name;
    if (name != "." && name != "..") names.push_back(name);
  } while (OrbFindNextFileA(search, &found) != 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MORE_ENTRIES) << directory;
  EXPECT_EQ(OrbFindClose(search), 1);
  return names;
}

uint16_t TreeTest::NumberOf(const char* path) {
  const Untraced untraced;
  ClearError();
  const NodeRef node(OrbResolvePath(path));
  ClearError();
  return node.node != nullptr ? node.node->record.number : uint16_t{0};
}

std::string TreeTest::Findings(const char16_t* container) { return FindingsIn(Image(container)); }

std::string TreeTest::FindingsIn(const Bytes& image) {
  const inspect::Report report = inspect::Check(inspect::MemoryImage(image));
  std::set<inspect::Kind> kinds;
  for (const inspect::Finding& finding : report.findings) {
    if (inspect::SeverityOf(finding.kind) != inspect::Severity::kNote) kinds.insert(finding.kind);
  }
  std::string text = report.marked ? "marked" : "";
  for (const inspect::Kind kind : kinds) text += (text.empty() ? "" : " ") + std::string(inspect::Name(kind));
  return text;
}

void TreeTest::Damage(const std::function<void(Bytes*)>& change) {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1) << std::hex << GetError();
  Bytes image = Image();
  change(&image);
  testhost::SetFile(u"VOL", image);
  volume_ = Mount();
  ASSERT_NE(volume_, nullptr) << std::hex << GetError();
  testhost::ClearTrace();
}

// ---- Host calls -----------------------------------------------------------------------------------------------------

std::string TreeTest::Calls(const char16_t* container) {
  const Bytes image = FileBytes(container);
  std::vector<CallRecord> calls;
  for (const CallRecord& record : testhost::Trace()) {
    if (IsContainerCall(record, container)) calls.push_back(record);
  }
  std::string text;
  for (size_t i = 0; i < calls.size(); ++i) {
    const bool leads = calls[i].call == Call::kSetFilePointer && calls[i].error == 0 && i + 1 < calls.size() &&
                       IsTransferAt(calls[i + 1], calls[i].distance);
    if (!leads) Append(&text, CallText(image, calls[i]) + FailureText(calls[i]));
  }
  return text;
}

std::string TreeTest::Writes(const char16_t* container) { return TransferText(container, Call::kWriteFile); }

std::string TreeTest::Reads(const char16_t* container) { return TransferText(container, Call::kReadFile); }

// ---- Every call failing in turn -------------------------------------------------------------------------------------

std::string TreeTest::RunOnce(const Operation& operation, const std::function<void()>& fail, bool* failed) {
  if (operation.prepare) operation.prepare();
  const uint32_t listed = NodesListed();
  testhost::ClearTrace();
  fail();
  const bool succeeded = operation.run();
  *failed = testhost::FaultsFired() + testhost::AllocationFaultsFired() != 0;
  const std::string outcome = Outcome(succeeded);
  testhost::ClearFaults();
  const std::string call = FirstFailure(Image());
  EXPECT_EQ(NodesListed(), listed) << call << ": references kept";
  const std::string left = Findings();
  if (operation.finish) operation.finish();
  return (call == "no call failed" ? "" : call + ": ") + outcome + (left.empty() ? "" : ", " + left);
}

Lines TreeTest::RunUntilUnharmed(const Operation& operation, const std::function<void(uint32_t)>& failNth) {
  Lines lines;
  const testhost::FileSet files = testhost::Snapshot();
  bool failed = true;
  for (uint32_t n = 1; failed; ++n) {
    EXPECT_EQ(OrbUnmountVolumeA("A"), 1) << std::hex << GetError();
    testhost::Restore(files);
    volume_ = Mount();
    if (volume_ == nullptr || n > 1000) {
      ADD_FAILURE() << "run " << n << " has no volume, or there is no end";
      return lines;
    }
    const std::string line = RunOnce(
        operation, [&] { failNth(n); }, &failed);
    if (failed) {
      lines.push_back(line);
    } else {
      EXPECT_EQ(line, "") << "the operation does not succeed unharmed";
    }
  }
  EXPECT_EQ(OrbUnmountVolumeA("A"), 1) << std::hex << GetError();
  testhost::Restore(files);
  volume_ = Mount();
  testhost::ClearTrace();
  return lines;
}

Lines TreeTest::FailEach(Call kind, uint32_t hostCode, Repeat repeat, const Operation& operation) {
  return RunUntilUnharmed(operation, [&](uint32_t n) { testhost::FailNthCall(kind, n, hostCode, repeat); });
}

Lines TreeTest::FailEachAllocation(const Operation& operation) {
  return RunUntilUnharmed(operation, [](uint32_t n) { testhost::FailNthAllocation(n); });
}

}  // namespace orba
