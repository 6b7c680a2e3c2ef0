#include "storage/container.h"

#include <functional>
#include <map>

#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

using Codes = std::map<uint32_t, uint32_t>;  // host code to library code

// Host file "VOL" of the ten bytes 0 to 9, opened.
class Container : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    testhost::SetFile(u"VOL", Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    file_ = ContainerOpen(u"VOL");
    ASSERT_NE(file_, kNoContainer);
    testhost::ClearTrace();
  }
  void TearDown() override {
    testhost::DropHandles();
    LibraryTest::TearDown();
  }

  // Lets `operation` fail at the host with every code and holds its result against the codes that have a meaning of
  // their own and the one for all others.
  static void ExpectTranslation(Call kind, const std::function<bool()>& operation, const Codes& codes,
                                uint32_t defaultCode) {
    std::vector<uint32_t> hosts = {0x10002, 0xFFFF0008, 0x7FFFFFFF, 0xFFFFFFFF};
    for (uint32_t host = 1; host <= 2000; ++host) hosts.push_back(host);
    testhost::SetTracing(false);
    for (const uint32_t host : hosts) {
      const auto own = codes.find(host);
      testhost::ClearFaults();
      FailNthCall(kind, 1, host);
      ClearError();
      EXPECT_FALSE(operation()) << host;
      EXPECT_EQ(GetError(), own != codes.end() ? own->second : defaultCode) << host;
      EXPECT_EQ(testhost::FaultsFired(), 1u) << host;
    }
  }

  uint32_t file_ = kNoContainer;
};

// ---- What the host's codes mean -------------------------------------------------------------------------------------

const Codes kCreateCodes = {{3, ORB_ERROR_PATH_NOT_FOUND}, {8, ORB_ERROR_OUT_OF_MEMORY},
                            {14, ORB_ERROR_OUT_OF_MEMORY}, {19, ORB_ERROR_WRITE_PROTECTED},
                            {21, ORB_ERROR_NOT_READY},     {80, ORB_ERROR_FILE_EXISTS},
                            {123, ORB_ERROR_INVALID_NAME}, {1235, ORB_ERROR_ABORTED}};

const Codes kWriteCodes = {{5, ORB_ERROR_ACCESS_DENIED},  {6, ORB_ERROR_DAMAGED_RECORD},   {8, ORB_ERROR_OUT_OF_MEMORY},
                           {14, ORB_ERROR_OUT_OF_MEMORY}, {19, ORB_ERROR_WRITE_PROTECTED}, {21, ORB_ERROR_NOT_READY},
                           {112, ORB_ERROR_DISK_FULL},    {1235, ORB_ERROR_ABORTED}};

TEST_F(Container, create_translates_the_code_of_the_failed_creation) {
  ExpectTranslation(
      Call::kCreateFile, [] { return ContainerCreate(u"NEW"); }, kCreateCodes, ORB_ERROR_CANNOT_CREATE);
  EXPECT_FALSE(testhost::FileExists(u"NEW"));
}

TEST_F(Container, create_translates_the_code_of_the_failed_close_alike) {
  ExpectTranslation(
      Call::kCloseHandle,
      [] {
        const bool created = ContainerCreate(u"NEW");
        testhost::RemoveFile(u"NEW");
        return created;
      },
      kCreateCodes, ORB_ERROR_CANNOT_CREATE);
}

TEST_F(Container, open_translates_the_code) {
  ExpectTranslation(
      Call::kCreateFile, [] { return ContainerOpen(u"VOL") != kNoContainer; },
      {{2, ORB_ERROR_FILE_NOT_FOUND},
       {3, ORB_ERROR_PATH_NOT_FOUND},
       {4, ORB_ERROR_TOO_MANY_OPEN_FILES},
       {5, ORB_ERROR_ACCESS_DENIED},
       {8, ORB_ERROR_OUT_OF_MEMORY},
       {14, ORB_ERROR_OUT_OF_MEMORY},
       {19, ORB_ERROR_WRITE_PROTECTED},
       {21, ORB_ERROR_NOT_READY},
       {32, ORB_ERROR_CONTAINER_IN_USE},
       {123, ORB_ERROR_INVALID_NAME},
       {1235, ORB_ERROR_ABORTED}},
      ORB_ERROR_CANNOT_OPEN);
}

TEST_F(Container, read_translates_the_code) {
  ExpectTranslation(
      Call::kReadFile,
      [this] {
        uint8_t byte = 0;
        uint32_t done = 0;
        return ContainerRead(file_, &byte, 1, &done);
      },
      {{5, ORB_ERROR_ACCESS_DENIED},
       {6, ORB_ERROR_DAMAGED_RECORD},
       {8, ORB_ERROR_OUT_OF_MEMORY},
       {14, ORB_ERROR_OUT_OF_MEMORY},
       {21, ORB_ERROR_NOT_READY},
       {1235, ORB_ERROR_ABORTED}},
      ORB_ERROR_READ);
}

TEST_F(Container, write_translates_the_code) {
  ExpectTranslation(
      Call::kWriteFile,
      [this] {
        uint32_t done = 0;
        return ContainerWrite(file_, "x", 1, &done);
      },
      kWriteCodes, ORB_ERROR_WRITE);
  EXPECT_EQ(FileBytes(u"VOL").size(), 10u);
}

TEST_F(Container, flush_translates_the_code_as_write_does) {
  ExpectTranslation(
      Call::kFlushFileBuffers, [this] { return ContainerFlush(file_); }, kWriteCodes, ORB_ERROR_WRITE);
}

TEST_F(Container, close_translates_the_code_as_write_does) {
  ExpectTranslation(
      Call::kCloseHandle, [this] { return ContainerClose(file_); }, kWriteCodes, ORB_ERROR_WRITE);
}

TEST_F(Container, seek_translates_the_code) {
  ExpectTranslation(
      Call::kSetFilePointer, [this] { return ContainerSeek(file_, 0, 0) != kSeekFailed; },
      {{5, ORB_ERROR_ACCESS_DENIED},
       {6, ORB_ERROR_DAMAGED_RECORD},
       {8, ORB_ERROR_OUT_OF_MEMORY},
       {14, ORB_ERROR_OUT_OF_MEMORY},
       {21, ORB_ERROR_NOT_READY},
       {87, ORB_ERROR_DAMAGED_RECORD},
       {1235, ORB_ERROR_ABORTED}},
      ORB_ERROR_READ);
}

TEST_F(Container, size_query_translates_the_code) {
  ExpectTranslation(
      Call::kGetFileSize, [this] { return ContainerGetSize(file_) != kSizeFailed; },
      {{5, ORB_ERROR_ACCESS_DENIED},
       {6, ORB_ERROR_DAMAGED_RECORD},
       {8, ORB_ERROR_OUT_OF_MEMORY},
       {14, ORB_ERROR_OUT_OF_MEMORY},
       {21, ORB_ERROR_NOT_READY},
       {1235, ORB_ERROR_ABORTED}},
      ORB_ERROR_READ);
}

// ---- Create and open ------------------------------------------------------------------------------------------------

TEST_F(Container, create_makes_an_empty_file_and_leaves_it_closed) {
  EXPECT_TRUE(ContainerCreate(u"NEW"));
  EXPECT_EQ(FileBytes(u"NEW"), Bytes());
  EXPECT_EQ(TraceText(), "create NEW / close");
  EXPECT_EQ(testhost::OpenHandles(), 1u);
}

TEST_F(Container, create_asks_for_a_new_exclusive_random_access_file) {
  ContainerCreate(u"NEW");
  const testhost::CallRecord& call = testhost::Trace()[0];
  EXPECT_EQ(call.access, 0xC0000000u);
  EXPECT_EQ(call.shareMode, 0u);
  EXPECT_EQ(call.disposition, 1u);
  EXPECT_EQ(call.flags, 0x10000000u);
}

TEST_F(Container, create_of_an_existing_file_fails_and_leaves_it_unchanged) {
  EXPECT_FALSE(ContainerCreate(u"VOL"));
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_EXISTS);
  EXPECT_EQ(FileBytes(u"VOL"), (Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(TraceText(), "create VOL !80");
}

TEST_F(Container, create_that_cannot_close_fails_though_the_file_is_there) {
  FailNthCall(Call::kCloseHandle, 1, coredll::kHostFileNotFound);
  EXPECT_FALSE(ContainerCreate(u"NEW"));
  EXPECT_EQ(GetError(), ORB_ERROR_CANNOT_CREATE);  // this host code means nothing to a creation
  EXPECT_TRUE(testhost::FileExists(u"NEW"));
}

TEST_F(Container, open_asks_for_an_existing_exclusive_random_access_file) {
  testhost::SetFile(u"OTHER", Bytes());
  ContainerOpen(u"OTHER");
  const testhost::CallRecord& call = testhost::Trace()[0];
  EXPECT_EQ(TraceText(), "open OTHER");
  EXPECT_EQ(call.access, 0xC0000000u);
  EXPECT_EQ(call.shareMode, 0u);
  EXPECT_EQ(call.disposition, 3u);
  EXPECT_EQ(call.flags, 0x10000000u);
}

TEST_F(Container, open_of_a_missing_file_fails) {
  EXPECT_EQ(ContainerOpen(u"NONE"), kNoContainer);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
}

TEST_F(Container, open_of_a_file_that_is_open_fails) {
  EXPECT_EQ(ContainerOpen(u"VOL"), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_CONTAINER_IN_USE);
}

TEST_F(Container, open_of_the_memory_file_touches_nothing_even_where_there_is_none) {
  EXPECT_EQ(ContainerOpen(u"??MEM??"), 0xFFFFFFFEu);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Container, name_that_is_not_exactly_the_memory_files_is_a_host_name) {
  for (const char16_t* name : {u"??mem??", u"??Mem??", u"??MEM?", u"??MEM???", u"?MEM??", u" ??MEM??"}) {
    EXPECT_TRUE(ContainerCreate(name));
    EXPECT_TRUE(testhost::FileExists(name));
    const uint32_t file = ContainerOpen(name);
    EXPECT_NE(file, kNoContainer);
    EXPECT_NE(file, kMemoryFile);
  }
  EXPECT_EQ(testhost::MemFile().loads, 0u);
}

// ---- Transfers ------------------------------------------------------------------------------------------------------

TEST_F(Container, read_moves_on_from_the_position) {
  uint8_t bytes[4] = {};
  uint32_t done = 0;
  EXPECT_EQ(ContainerSeek(file_, 3, 0), 3u);
  EXPECT_TRUE(ContainerRead(file_, bytes, 4, &done));
  EXPECT_EQ(done, 4u);
  EXPECT_EQ(bytes[0], 3);
  EXPECT_EQ(bytes[3], 6);
  EXPECT_EQ(TraceText(), "seek 3 / read 3 4");
}

TEST_F(Container, short_read_is_a_success) {
  uint8_t bytes[20];
  uint32_t done = 0;
  EXPECT_TRUE(ContainerRead(file_, bytes, 20, &done));
  EXPECT_EQ(done, 10u);
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Container, short_write_fails_and_is_counted) {
  testhost::ShortenNthWrite(1, 2);
  uint32_t done = 0;
  EXPECT_FALSE(ContainerWrite(file_, "abc", 3, &done));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  EXPECT_EQ(done, 2u);
  EXPECT_EQ(g_dwWriteCount, 1u);
}

TEST_F(Container, empty_transfers_reach_the_host_and_are_counted) {
  uint32_t done = 9;
  uint8_t byte = 0;
  EXPECT_TRUE(ContainerRead(file_, &byte, 0, &done));
  EXPECT_TRUE(ContainerWrite(file_, &byte, 0, &done));
  EXPECT_EQ(TraceText(), "read 0 0 / write 0 0");
  EXPECT_EQ(g_dwReadCount, 1u);
  EXPECT_EQ(g_dwWriteCount, 1u);
}

TEST_F(Container, seek_hands_on_distance_and_method) {
  EXPECT_EQ(ContainerSeek(file_, 4, 0), 4u);
  EXPECT_EQ(ContainerSeek(file_, -1, 1), 3u);
  EXPECT_EQ(ContainerSeek(file_, -2, 2), 8u);
  EXPECT_EQ(TraceText(), "seek 4 / seek current-1 / seek end-2");
}

TEST_F(Container, seek_before_the_start_fails) {
  EXPECT_EQ(ContainerSeek(file_, -1, 0), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_READ);  // the host's code 131 has no meaning of its own
}

TEST_F(Container, size_is_the_hosts) {
  EXPECT_EQ(ContainerGetSize(file_), 10u);
  testhost::ResizeFile(u"VOL", 0xFFFFFFFE);
  EXPECT_EQ(ContainerGetSize(file_), 0xFFFFFFFEu);
}

TEST_F(Container, flush_and_close_reach_the_host) {
  EXPECT_TRUE(ContainerFlush(file_));
  EXPECT_TRUE(ContainerClose(file_));
  EXPECT_EQ(TraceText(), "flush / close");
  EXPECT_EQ(testhost::OpenHandles(), 0u);
}

TEST_F(Container, failed_call_is_not_tried_again) {
  uint32_t done = 0;
  uint8_t byte = 0;
  FailNthCall(1, coredll::kHostNotReady, Repeat::kFromThenOn);
  ContainerCreate(u"NEW");
  ContainerOpen(u"VOL");
  ContainerRead(file_, &byte, 1, &done);
  ContainerWrite(file_, &byte, 1, &done);
  ContainerSeek(file_, 0, 0);
  ContainerFlush(file_);
  ContainerGetSize(file_);
  ContainerClose(file_);
  EXPECT_EQ(TraceText(),
            "create NEW !21 / open VOL !21 / read 0 1 !21 / write 0 1 !21 / seek 0 !21 / flush !21 / size !21 / "
            "close !21");
}

TEST_F(Container, success_leaves_the_error_state_alone) {
  SetError(0x12345678);
  uint32_t done = 0;
  uint8_t byte = 0;
  ContainerCreate(u"NEW");
  ContainerOpen(u"NEW");
  ContainerRead(file_, &byte, 1, &done);
  ContainerWrite(file_, &byte, 1, &done);
  ContainerSeek(file_, 0, 0);
  ContainerFlush(file_);
  ContainerGetSize(file_);
  ContainerClose(file_);
  EXPECT_EQ(GetError(), 0x12345678u);
}

// ---- Counters -------------------------------------------------------------------------------------------------------

struct Counters {
  uint32_t reads, readTime, writes, writeTime, seeks, seekTime;
};

bool operator==(const Counters& a, const Counters& b) {
  return a.reads == b.reads && a.readTime == b.readTime && a.writes == b.writes && a.writeTime == b.writeTime &&
         a.seeks == b.seeks && a.seekTime == b.seekTime;
}

std::ostream& operator<<(std::ostream& out, const Counters& c) {
  return out << c.reads << " " << c.readTime << " / " << c.writes << " " << c.writeTime << " / " << c.seeks << " "
             << c.seekTime;
}

Counters Now() { return {g_dwReadCount, g_dwReadTime, g_dwWriteCount, g_dwWriteTime, g_dwSeekCount, g_dwSeekTime}; }

void LetCallsTakeTime() {
  testhost::SetCallDuration(Call::kReadFile, 3);
  testhost::SetCallDuration(Call::kWriteFile, 50);
  testhost::SetCallDuration(Call::kSetFilePointer, 700);
  for (const Call kind : {Call::kCreateFile, Call::kFlushFileBuffers, Call::kGetFileSize, Call::kCloseHandle}) {
    testhost::SetCallDuration(kind, 10000);
  }
}

TEST_F(Container, counters_start_at_0) { EXPECT_EQ(Now(), (Counters{0, 0, 0, 0, 0, 0})); }

TEST_F(Container, reads_writes_and_seeks_are_counted_and_timed_each_for_itself) {
  LetCallsTakeTime();
  uint8_t byte = 0;
  uint32_t done = 0;
  ContainerRead(file_, &byte, 1, &done);
  EXPECT_EQ(Now(), (Counters{1, 3, 0, 0, 0, 0}));
  ContainerWrite(file_, &byte, 1, &done);
  ContainerWrite(file_, &byte, 1, &done);
  EXPECT_EQ(Now(), (Counters{1, 3, 2, 100, 0, 0}));
  ContainerSeek(file_, 0, 0);
  ContainerSeek(file_, 0, 0);
  ContainerSeek(file_, 0, 0);
  EXPECT_EQ(Now(), (Counters{1, 3, 2, 100, 3, 2100}));
}

TEST_F(Container, failed_reads_writes_and_seeks_are_counted_and_timed) {
  LetCallsTakeTime();
  uint8_t byte = 0;
  uint32_t done = 0;
  FailNthCall(1, coredll::kHostNotReady, Repeat::kFromThenOn);
  ContainerRead(file_, &byte, 1, &done);
  ContainerWrite(file_, &byte, 1, &done);
  ContainerSeek(file_, 0, 0);
  EXPECT_EQ(Now(), (Counters{1, 3, 1, 50, 1, 700}));
}

TEST_F(Container, other_calls_are_neither_counted_nor_timed) {
  LetCallsTakeTime();
  ContainerCreate(u"NEW");
  ContainerOpen(u"NEW");
  ContainerFlush(file_);
  ContainerGetSize(file_);
  ContainerClose(file_);
  EXPECT_EQ(Now(), (Counters{0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(testhost::CallCount(Call::kGetTickCount), 0u);
}

TEST_F(Container, tick_count_is_read_right_before_and_right_after_the_call) {
  uint8_t byte = 0;
  uint32_t done = 0;
  ContainerRead(file_, &byte, 1, &done);
  ContainerWrite(file_, &byte, 1, &done);
  ContainerSeek(file_, 0, 0);
  EXPECT_EQ(TraceText({Call::kGetTickCount, Call::kReadFile, Call::kWriteFile, Call::kSetFilePointer}),
            "tick / read 0 1 / tick / tick / write 1 1 / tick / tick / seek 0 / tick");
}

TEST_F(Container, times_are_differences_even_where_the_tick_count_wraps) {
  LetCallsTakeTime();
  testhost::SetTickCount(0xFFFFFFFF);
  uint8_t byte = 0;
  uint32_t done = 0;
  ContainerRead(file_, &byte, 1, &done);
  EXPECT_EQ(g_dwReadTime, 3u);
}

TEST_F(Container, counters_at_their_limit_wrap_to_0) {
  LetCallsTakeTime();
  g_dwReadCount = g_dwReadTime = g_dwWriteCount = g_dwWriteTime = g_dwSeekCount = g_dwSeekTime = 0xFFFFFFFF;
  uint8_t byte = 0;
  uint32_t done = 0;
  ContainerRead(file_, &byte, 1, &done);
  ContainerWrite(file_, &byte, 1, &done);
  ContainerSeek(file_, 0, 0);
  EXPECT_EQ(Now(), (Counters{0, 2, 0, 49, 0, 699}));
}

// ---- The memory file ------------------------------------------------------------------------------------------------

TEST_F(Container, memory_file_is_created_by_its_library) {
  EXPECT_TRUE(ContainerCreate(u"??MEM??"));
  EXPECT_EQ(TraceText(), "memcreate");
  EXPECT_EQ(testhost::MemFile().loads, 1u);
  EXPECT_FALSE(testhost::FileExists(u"??MEM??"));
}

TEST_F(Container, memory_file_takes_the_same_arguments_and_returns_its_own_results) {
  ContainerCreate(u"??MEM??");
  testhost::ClearTrace();
  uint32_t done = 0;
  Bytes bytes(20);
  EXPECT_TRUE(ContainerWrite(kMemoryFile, "abcdef", 6, &done));
  EXPECT_EQ(done, 6u);
  EXPECT_EQ(ContainerSeek(kMemoryFile, 2, 0), 2u);
  EXPECT_EQ(ContainerSeek(kMemoryFile, 1, 1), 3u);
  EXPECT_TRUE(ContainerRead(kMemoryFile, bytes.data(), 20, &done));
  EXPECT_EQ(done, 3u);
  EXPECT_EQ(ContainerGetSize(kMemoryFile), 6u);
  EXPECT_EQ(TraceText(), "memwrite 0 6 / memseek 2 / memseek current+1 / memread 3 20 =3 / memsize");
}

TEST_F(Container, memory_file_operations_are_neither_counted_nor_timed) {
  ContainerCreate(u"??MEM??");
  testhost::SetTickStep(5);
  uint32_t done = 0;
  uint8_t byte = 0;
  ContainerWrite(kMemoryFile, &byte, 1, &done);
  ContainerSeek(kMemoryFile, 0, 0);
  ContainerRead(kMemoryFile, &byte, 1, &done);
  EXPECT_EQ(Now(), (Counters{0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(testhost::CallCount(Call::kGetTickCount), 0u);
}

TEST_F(Container, flush_and_close_of_the_memory_file_succeed_and_do_nothing) {
  EXPECT_TRUE(ContainerFlush(kMemoryFile));
  EXPECT_TRUE(ContainerClose(kMemoryFile));
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Container, read_of_the_memory_file_before_it_was_made_fails) {
  uint32_t done = 0;
  uint8_t byte = 0;
  EXPECT_FALSE(ContainerRead(ContainerOpen(u"??MEM??"), &byte, 1, &done));
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

}  // namespace
}  // namespace orba
