#include <stdexcept>

#include "support/host_test.h"

namespace testhost {
namespace {

namespace coredll = orba::coredll;
using coredll::CloseHandle;
using coredll::GetLastError;
using coredll::kFileBegin;
using coredll::kInvalidHandle;

// A host with the file "VOL" of 100 bytes, each its own position, opened.
class HostCalls : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    Bytes bytes(100);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
    SetFile(u"VOL", bytes);
    file_ = Open(u"VOL");
    ClearTrace();
  }

  static Handle Open(const char16_t* name) {
    return coredll::CreateFileW(name, coredll::kGenericReadWrite, 0, nullptr, coredll::kOpenExisting,
                                coredll::kRandomAccess, 0);
  }
  uint32_t Seek(int32_t distance) { return coredll::SetFilePointer(file_, distance, nullptr, kFileBegin); }
  int32_t Read(uint32_t count) {
    buffer_.assign(count, 0xCC);
    done_ = 99;
    return coredll::ReadFile(file_, buffer_.data(), count, &done_, nullptr);
  }
  int32_t Write(const Bytes& bytes) {
    done_ = 99;
    return coredll::WriteFile(file_, bytes.data(), static_cast<uint32_t>(bytes.size()), &done_, nullptr);
  }

  Handle file_ = kInvalidHandle;
  Bytes buffer_;
  uint32_t done_ = 0;
};

// ---- Trace ----------------------------------------------------------------------------------------------------------

TEST_F(HostCalls, trace_tells_every_container_call_in_order) {
  Seek(52);
  Write({1, 2, 3, 4});
  Read(4);
  coredll::SetFilePointer(file_, -6, nullptr, coredll::kFileCurrent);
  coredll::SetFilePointer(file_, 0, nullptr, coredll::kFileEnd);
  coredll::FlushFileBuffers(file_);
  coredll::GetFileSize(file_, nullptr);
  coredll::GetTickCount();
  CloseHandle(file_);
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / read 56 4 / seek current-6 / seek end+0 / flush / size / close");
  EXPECT_EQ(Trace().size(), 9u);
}

TEST_F(HostCalls, trace_tells_create_and_open_with_their_names) {
  coredll::CreateFileW(u"N\u00FC", coredll::kGenericReadWrite, 0, nullptr, coredll::kCreateNew, coredll::kRandomAccess,
                       0);
  Open(u"NONE");
  EXPECT_EQ(TraceText(), "create N\\u252 / open NONE !2");
}

TEST_F(HostCalls, trace_keeps_the_arguments_of_create_file) {
  const Handle handle = coredll::CreateFileW(u"N", 0xC0000000, 0, nullptr, 1, 0x10000000, 0);
  ASSERT_EQ(Trace().size(), 1u);
  const CallRecord& record = Trace()[0];
  EXPECT_EQ(record.call, Call::kCreateFile);
  EXPECT_EQ(record.handle, handle);
  EXPECT_EQ(record.name, u"N");
  EXPECT_EQ(record.access, 0xC0000000u);
  EXPECT_EQ(record.shareMode, 0u);
  EXPECT_EQ(record.disposition, 1u);
  EXPECT_EQ(record.flags, 0x10000000u);
  EXPECT_EQ(record.error, 0u);
}

TEST_F(HostCalls, trace_tells_short_reads_and_failures) {
  Seek(98);
  Read(4);
  Seek(-1);
  CloseHandle(file_);
  Read(1);
  EXPECT_EQ(TraceText(), "seek 98 / read 98 4 =2 / seek -1 !131 / close / read 0 1 !6");
}

TEST_F(HostCalls, trace_of_one_file_leaves_out_the_others) {
  SetFile(u"B", Bytes{1});
  const Handle other = Open(u"B");
  Seek(5);
  coredll::GetFileSize(other, nullptr);
  EXPECT_EQ(TraceText(u"VOL"), "seek 5");
  EXPECT_EQ(TraceText(u"B"), "open B / size");
}

TEST_F(HostCalls, trace_of_chosen_kinds_may_name_any_call) {
  coredll::GetTickCount();
  Seek(1);
  Read(1);
  SystemTime now;
  coredll::GetSystemTime(&now);
  EXPECT_EQ(TraceText({Call::kGetTickCount, Call::kReadFile, Call::kGetSystemTime}), "tick / read 1 1 / time");
}

TEST_F(HostCalls, writes_are_listed_with_absolute_positions) {
  Seek(10);
  Write({1, 2});
  Write({3});
  const std::vector<CallRecord> writes = Writes();
  ASSERT_EQ(writes.size(), 2u);
  EXPECT_EQ(writes[0].position, 10u);
  EXPECT_EQ(writes[0].count, 2u);
  EXPECT_EQ(writes[1].position, 12u);
  EXPECT_EQ(writes[1].name, u"VOL");
  EXPECT_EQ(writes[1].data, Bytes());
}

TEST_F(HostCalls, written_bytes_are_kept_on_request) {
  KeepWriteData(true);
  Write({1, 2});
  ASSERT_EQ(Writes().size(), 1u);
  EXPECT_EQ(Writes()[0].data, (Bytes{1, 2}));
}

TEST_F(HostCalls, calls_are_counted_by_kind_and_in_all) {
  Seek(0);
  Read(1);
  Read(1);
  coredll::GetTickCount();
  EXPECT_EQ(CallCount(Call::kReadFile), 2u);
  EXPECT_EQ(CallCount(Call::kSetFilePointer), 1u);
  EXPECT_EQ(CallCount(Call::kWriteFile), 0u);
  EXPECT_EQ(CallCount(Call::kGetTickCount), 1u);
  EXPECT_EQ(CallCount(), 3u);
}

TEST_F(HostCalls, clear_trace_forgets_records_and_counts) {
  Seek(0);
  ClearTrace();
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(CallCount(), 0u);
}

TEST_F(HostCalls, calls_count_though_tracing_is_off) {
  SetTracing(false);
  Seek(0);
  EXPECT_EQ(Trace().size(), 0u);
  EXPECT_EQ(CallCount(Call::kSetFilePointer), 1u);
}

TEST_F(HostCalls, test_access_to_files_is_not_traced) {
  PatchFile(u"VOL", 0, {1});
  FileBytes(u"VOL");
  EXPECT_EQ(Trace().size(), 0u);
}

// ---- Time -----------------------------------------------------------------------------------------------------------

TEST_F(HostCalls, tick_count_stands_still_at_first) {
  EXPECT_EQ(coredll::GetTickCount(), 1000u);
  EXPECT_EQ(coredll::GetTickCount(), 1000u);
}

TEST_F(HostCalls, tick_step_advances_after_each_query_and_wraps) {
  SetTickCount(0xFFFFFFFF);
  SetTickStep(3);
  EXPECT_EQ(coredll::GetTickCount(), 0xFFFFFFFFu);
  EXPECT_EQ(coredll::GetTickCount(), 2u);
}

TEST_F(HostCalls, call_duration_passes_during_calls_of_its_kind) {
  SetCallDuration(Call::kReadFile, 7);
  Seek(0);
  EXPECT_EQ(coredll::GetTickCount(), 1000u);
  Read(1);
  EXPECT_EQ(coredll::GetTickCount(), 1007u);
}

TEST_F(HostCalls, clock_is_what_was_set) {
  SetClock({1999, 12, 5, 31, 23, 59, 58, 999});
  SystemTime now;
  coredll::GetSystemTime(&now);
  EXPECT_EQ(now.year, 1999);
  EXPECT_EQ(now.month, 12);
  EXPECT_EQ(now.dayOfWeek, 5);
  EXPECT_EQ(now.day, 31);
  EXPECT_EQ(now.hour, 23);
  EXPECT_EQ(now.minute, 59);
  EXPECT_EQ(now.second, 58);
  EXPECT_EQ(now.milliseconds, 999);
}

TEST_F(HostCalls, clock_starts_at_the_documented_time) {
  SystemTime now;
  coredll::GetSystemTime(&now);
  EXPECT_EQ(now.year, 2001);
  EXPECT_EQ(now.month, 2);
  EXPECT_EQ(now.day, 3);
  EXPECT_EQ(now.hour, 4);
  EXPECT_EQ(now.minute, 5);
  EXPECT_EQ(now.second, 6);
}

// ---- Faults ---------------------------------------------------------------------------------------------------------

TEST_F(HostCalls, nth_call_of_all_fails_once) {
  FailNthCall(3, 21);
  EXPECT_EQ(Seek(10), 10u);
  coredll::GetTickCount();
  EXPECT_EQ(Read(1), 1);
  EXPECT_EQ(FaultsFired(), 0u);
  EXPECT_EQ(Seek(20), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 21u);
  EXPECT_EQ(FaultsFired(), 1u);
  EXPECT_EQ(Seek(20), 20u);
  EXPECT_EQ(FaultsFired(), 1u);
}

TEST_F(HostCalls, nth_call_of_a_kind_fails_from_then_on) {
  FailNthCall(Call::kReadFile, 2, 5, Repeat::kFromThenOn);
  EXPECT_EQ(Read(1), 1);
  EXPECT_EQ(Seek(0), 0u);
  EXPECT_EQ(Read(1), 0);
  EXPECT_EQ(Read(1), 0);
  EXPECT_EQ(Write({1}), 1);
  EXPECT_EQ(FaultsFired(), 2u);
  EXPECT_EQ(TraceText({Call::kReadFile}), "read 0 1 / read 0 1 !5 / read 0 1 !5");
}

TEST_F(HostCalls, failed_read_transfers_nothing) {
  FailNthCall(1, 1235);
  EXPECT_EQ(Read(2), 0);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(buffer_, (Bytes{0xCC, 0xCC}));
  EXPECT_EQ(Read(1), 1);
  EXPECT_EQ(buffer_, (Bytes{0}));
}

TEST_F(HostCalls, failed_write_changes_nothing) {
  FailNthCall(1, 112);
  EXPECT_EQ(Write({77, 78}), 0);
  EXPECT_EQ(GetLastError(), 112u);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(FileBytes(u"VOL", 0, 2), (Bytes{0, 1}));
  EXPECT_EQ(TraceText(), "write 0 2 !112");
}

TEST_F(HostCalls, failed_seek_stays) {
  Seek(5);
  FailNthCall(1, 87);
  EXPECT_EQ(Seek(50), 0xFFFFFFFFu);
  Read(1);
  EXPECT_EQ(buffer_, (Bytes{5}));
}

TEST_F(HostCalls, failed_create_makes_no_file) {
  FailNthCall(Call::kCreateFile, 1, 112);
  EXPECT_EQ(coredll::CreateFileW(u"N", coredll::kGenericReadWrite, 0, nullptr, coredll::kCreateNew, 0, 0),
            kInvalidHandle);
  EXPECT_EQ(GetLastError(), 112u);
  EXPECT_FALSE(FileExists(u"N"));
  EXPECT_EQ(OpenHandles(), 1u);
}

TEST_F(HostCalls, failed_flush_and_size_query_tell_the_code) {
  FailNthCall(Call::kFlushFileBuffers, 1, 6);
  FailNthCall(Call::kGetFileSize, 1, 21);
  EXPECT_EQ(coredll::FlushFileBuffers(file_), 0);
  EXPECT_EQ(GetLastError(), 6u);
  EXPECT_EQ(coredll::GetFileSize(file_, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 21u);
}

TEST_F(HostCalls, failed_close_lets_the_handle_go) {
  FailNthCall(Call::kCloseHandle, 1, 19);
  EXPECT_EQ(CloseHandle(file_), 0);
  EXPECT_EQ(GetLastError(), 19u);
  EXPECT_EQ(OpenHandles(), 0u);
}

TEST_F(HostCalls, short_read_succeeds_with_fewer_bytes) {
  ShortenNthRead(2, 3);
  EXPECT_EQ(Read(5), 1);
  EXPECT_EQ(done_, 5u);
  EXPECT_EQ(Read(5), 1);
  EXPECT_EQ(done_, 3u);
  EXPECT_EQ(buffer_, (Bytes{5, 6, 7, 0xCC, 0xCC}));
  EXPECT_EQ(Read(5), 1);
  EXPECT_EQ(buffer_, (Bytes{8, 9, 10, 11, 12}));
  EXPECT_EQ(TraceText(), "read 0 5 / read 5 5 =3 / read 8 5");
  EXPECT_EQ(FaultsFired(), 1u);
}

TEST_F(HostCalls, short_write_succeeds_with_fewer_bytes) {
  ShortenNthWrite(1, 1, Repeat::kFromThenOn);
  EXPECT_EQ(Write({70, 71}), 1);
  EXPECT_EQ(done_, 1u);
  EXPECT_EQ(Write({80, 81}), 1);
  EXPECT_EQ(FileBytes(u"VOL", 0, 4), (Bytes{70, 80, 2, 3}));
  EXPECT_EQ(FaultsFired(), 2u);
}

TEST_F(HostCalls, torn_write_leaves_its_first_bytes_and_fails) {
  TearNthWrite(1, 1, 31);
  EXPECT_EQ(Write({70, 71}), 0);
  EXPECT_EQ(GetLastError(), 31u);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(FileBytes(u"VOL", 0, 3), (Bytes{70, 1, 2}));
  EXPECT_EQ(coredll::SetFilePointer(file_, 0, nullptr, coredll::kFileCurrent), 0u);
  EXPECT_EQ(TraceText({Call::kWriteFile}), "write 0 2 !31");
}

TEST_F(HostCalls, older_order_acts_first_and_the_other_on_the_next_call) {
  FailNthCall(1, 21);
  FailNthCall(Call::kReadFile, 1, 5);
  Read(1);
  EXPECT_EQ(GetLastError(), 21u);
  Read(1);
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_EQ(Read(1), 1);
}

TEST_F(HostCalls, clear_faults_ends_all_orders) {
  FailNthCall(1, 21, Repeat::kFromThenOn);
  Read(1);
  ClearFaults();
  EXPECT_EQ(FaultsFired(), 0u);
  EXPECT_EQ(Read(1), 1);
}

TEST_F(HostCalls, impossible_orders_throw) {
  EXPECT_THROW(FailNthCall(0, 5), std::invalid_argument);
  EXPECT_THROW(FailNthCall(1, 0), std::invalid_argument);
  EXPECT_THROW(TearNthWrite(1, 1, 0), std::invalid_argument);
  EXPECT_THROW(FailNthCall(Call::kGetTickCount, 1, 5), std::invalid_argument);
  EXPECT_EQ(Read(1), 1);
}

// ---- Stops ----------------------------------------------------------------------------------------------------------

TEST_F(HostCalls, journal_rebuilds_the_state_after_each_write) {
  SetFile(u"B", Bytes{1, 2, 3});
  file_ = Open(u"B");
  WriteJournal journal(u"B");
  Seek(1);
  Write({20, 30, 40});
  Seek(0);
  Write({10});
  ASSERT_EQ(journal.count(), 2u);
  EXPECT_EQ(journal.StateAfter(0), (Bytes{1, 2, 3}));
  EXPECT_EQ(journal.StateAfter(1), (Bytes{1, 20, 30, 40}));
  EXPECT_EQ(journal.StateAfter(2), (Bytes{10, 20, 30, 40}));
  EXPECT_EQ(journal.StateAfter(2), FileBytes(u"B"));
  EXPECT_EQ(journal.writes()[1].position, 0u);
  EXPECT_EQ(journal.writes()[1].bytes, (Bytes{10}));
}

TEST_F(HostCalls, journal_tears_the_next_write) {
  WriteJournal journal(u"VOL");
  Write({50, 51, 52});
  const Bytes torn = journal.StateAfter(0, 2);
  EXPECT_EQ(Bytes(torn.begin(), torn.begin() + 4), (Bytes{50, 51, 2, 3}));
  EXPECT_THROW(journal.StateAfter(0, 4), std::out_of_range);
  EXPECT_THROW(journal.StateAfter(1, 1), std::out_of_range);
  EXPECT_THROW(journal.StateAfter(2), std::out_of_range);
}

TEST_F(HostCalls, journal_holds_what_reached_the_file) {
  WriteJournal journal(u"VOL");
  FailNthCall(1, 31);
  ShortenNthWrite(2, 1);
  TearNthWrite(3, 2, 31);
  Write({50, 51});
  Write({60, 61});
  Write({70, 71, 72});
  ASSERT_EQ(journal.count(), 2u);
  EXPECT_EQ(journal.writes()[0].bytes, (Bytes{60}));
  EXPECT_EQ(journal.writes()[1].bytes, (Bytes{70, 71}));
  EXPECT_EQ(journal.StateAfter(2), FileBytes(u"VOL"));
}

TEST_F(HostCalls, journal_of_one_file_ignores_others_and_what_follows_stop) {
  SetFile(u"B", Bytes{1});
  WriteJournal journal(u"B");
  Write({5});
  EXPECT_EQ(journal.count(), 0u);
  file_ = Open(u"B");
  Write({5});
  journal.Stop();
  Write({6});
  EXPECT_EQ(journal.count(), 1u);
}

TEST_F(HostCalls, journal_of_pretended_gigabytes_stays_small) {
  ResizeFile(u"VOL", 0x7FFFFFFF);
  WriteJournal journal(u"VOL");
  Seek(0x7FFFFFF0);
  Write({5});
  EXPECT_EQ(journal.ImageAfter(1).size(), 0x7FFFFFFFu);
  EXPECT_EQ(journal.ImageAfter(1).pages(), 2u);
  EXPECT_TRUE(journal.ImageAfter(1) == GetFile(u"VOL"));
}

TEST_F(HostCalls, reset_ends_faults_trace_and_journals) {
  WriteJournal journal(u"VOL");
  FailNthCall(1, 5, Repeat::kFromThenOn);
  SetTickStep(1);
  ResetHost();
  EXPECT_EQ(Trace().size(), 0u);
  SetFile(u"VOL", Bytes{1});
  file_ = Open(u"VOL");
  EXPECT_EQ(Write({2}), 1);
  EXPECT_EQ(journal.count(), 0u);
  coredll::GetTickCount();
  EXPECT_EQ(coredll::GetTickCount(), 1000u);
}

}  // namespace
}  // namespace testhost
