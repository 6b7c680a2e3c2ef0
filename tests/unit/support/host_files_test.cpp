#include <stdexcept>

#include "support/host_test.h"

namespace testhost {
namespace {

namespace coredll = orba::coredll;
using coredll::CloseHandle;
using coredll::FlushFileBuffers;
using coredll::GetFileSize;
using coredll::GetLastError;
using coredll::kFileBegin;
using coredll::kFileCurrent;
using coredll::kFileEnd;
using coredll::kInvalidHandle;
using coredll::SetFilePointer;

class HostFiles : public HostTest {
 protected:
  static Handle Create(const char16_t* name) {
    return coredll::CreateFileW(name, coredll::kGenericReadWrite, 0, nullptr, coredll::kCreateNew,
                                coredll::kRandomAccess, 0);
  }
  static Handle Open(const char16_t* name) {
    return coredll::CreateFileW(name, coredll::kGenericReadWrite, 0, nullptr, coredll::kOpenExisting,
                                coredll::kRandomAccess, 0);
  }
  static Bytes Read(Handle file, uint32_t count) {
    Bytes bytes(count);
    uint32_t done = 99;
    EXPECT_EQ(coredll::ReadFile(file, bytes.data(), count, &done, nullptr), 1);
    bytes.resize(done);
    return bytes;
  }
  static void Write(Handle file, const Bytes& bytes) {
    uint32_t done = 99;
    EXPECT_EQ(coredll::WriteFile(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &done, nullptr), 1);
    EXPECT_EQ(done, bytes.size());
  }
};

TEST_F(HostFiles, create_new_makes_an_empty_file) {
  const Handle file = Create(u"A");
  EXPECT_NE(file, kInvalidHandle);
  EXPECT_NE(file, 0u);
  EXPECT_EQ(FileNames(), std::vector<FileName>{u"A"});
  EXPECT_EQ(FileSize(u"A"), 0u);
}

TEST_F(HostFiles, create_new_on_an_existing_file_fails_with_80_and_keeps_it) {
  SetFile(u"A", Bytes{1, 2});
  EXPECT_EQ(Create(u"A"), kInvalidHandle);
  EXPECT_EQ(GetLastError(), 80u);
  EXPECT_EQ(FileBytes(u"A"), (Bytes{1, 2}));
  EXPECT_EQ(OpenHandles(), 0u);
}

TEST_F(HostFiles, open_of_a_missing_file_fails_with_2_and_makes_none) {
  EXPECT_EQ(Open(u"A"), kInvalidHandle);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_FALSE(FileExists(u"A"));
}

TEST_F(HostFiles, second_open_fails_with_32_until_the_first_is_closed) {
  const Handle file = Create(u"A");
  EXPECT_EQ(Open(u"A"), kInvalidHandle);
  EXPECT_EQ(GetLastError(), 32u);
  EXPECT_EQ(CloseHandle(file), 1);
  EXPECT_NE(Open(u"A"), kInvalidHandle);
}

TEST_F(HostFiles, names_differing_in_case_are_different_files) {
  Create(u"A");
  EXPECT_NE(Create(u"a"), kInvalidHandle);
}

TEST_F(HostFiles, empty_name_fails_with_3_and_a_lone_surrogate_with_123) {
  EXPECT_EQ(Create(u""), kInvalidHandle);
  EXPECT_EQ(GetLastError(), 3u);
  for (const FileName& name : {FileName{0xD800}, FileName{0xDC00, u'A'}, FileName{0xD800, 0xD800, 0xDC00}}) {
    EXPECT_EQ(Create(name.c_str()), kInvalidHandle);
    EXPECT_EQ(GetLastError(), 123u);
  }
  EXPECT_NE(Create(FileName{0xD83D, 0xDE00}.c_str()), kInvalidHandle);
}

TEST_F(HostFiles, other_disposition_or_template_fails_with_87) {
  EXPECT_EQ(coredll::CreateFileW(u"A", coredll::kGenericReadWrite, 0, nullptr, 2, 0, 0), kInvalidHandle);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(coredll::CreateFileW(u"A", coredll::kGenericReadWrite, 0, nullptr, coredll::kCreateNew, 0, 5),
            kInvalidHandle);
  EXPECT_FALSE(FileExists(u"A"));
}

TEST_F(HostFiles, write_then_read_moves_the_position) {
  const Handle file = Create(u"A");
  Write(file, {1, 2, 3});
  Write(file, {4});
  EXPECT_EQ(Read(file, 10), Bytes());
  EXPECT_EQ(SetFilePointer(file, 1, nullptr, kFileBegin), 1u);
  EXPECT_EQ(Read(file, 2), (Bytes{2, 3}));
  EXPECT_EQ(Read(file, 2), (Bytes{4}));
}

TEST_F(HostFiles, positions_belong_to_the_handle) {
  const Handle a = Create(u"A");
  const Handle b = Create(u"B");
  Write(a, {1, 2, 3});
  Write(b, {9});
  EXPECT_EQ(SetFilePointer(a, 0, nullptr, kFileCurrent), 3u);
  EXPECT_EQ(SetFilePointer(b, 0, nullptr, kFileCurrent), 1u);
}

TEST_F(HostFiles, write_past_the_end_reads_zeros_between) {
  const Handle file = Create(u"A");
  EXPECT_EQ(SetFilePointer(file, 3, nullptr, kFileBegin), 3u);
  EXPECT_EQ(GetFileSize(file, nullptr), 0u);
  Write(file, {7});
  EXPECT_EQ(FileBytes(u"A"), (Bytes{0, 0, 0, 7}));
  EXPECT_EQ(GetFileSize(file, nullptr), 4u);
}

TEST_F(HostFiles, read_and_write_of_nothing_succeed_with_a_null_buffer) {
  const Handle file = Create(u"A");
  uint32_t done = 99;
  EXPECT_EQ(coredll::ReadFile(file, nullptr, 0, &done, nullptr), 1);
  EXPECT_EQ(done, 0u);
  done = 99;
  EXPECT_EQ(coredll::WriteFile(file, nullptr, 0, &done, nullptr), 1);
  EXPECT_EQ(done, 0u);
}

TEST_F(HostFiles, null_buffer_with_a_count_fails_with_87) {
  const Handle file = Create(u"A");
  uint32_t done = 99;
  EXPECT_EQ(coredll::WriteFile(file, nullptr, 1, &done, nullptr), 0);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(done, 0u);
}

TEST_F(HostFiles, handle_without_write_access_fails_to_write_with_5) {
  SetFile(u"A", Bytes{1});
  const Handle file = coredll::CreateFileW(u"A", 0x80000000, 0, nullptr, coredll::kOpenExisting, 0, 0);
  uint32_t done = 99;
  EXPECT_EQ(coredll::WriteFile(file, "x", 1, &done, nullptr), 0);
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_EQ(Read(file, 1), (Bytes{1}));
}

TEST_F(HostFiles, seek_takes_each_origin) {
  SetFile(u"A", Bytes(100));
  const Handle file = Open(u"A");
  EXPECT_EQ(SetFilePointer(file, 40, nullptr, kFileBegin), 40u);
  EXPECT_EQ(SetFilePointer(file, -15, nullptr, kFileCurrent), 25u);
  EXPECT_EQ(SetFilePointer(file, -1, nullptr, kFileEnd), 99u);
  EXPECT_EQ(SetFilePointer(file, 28, nullptr, kFileEnd), 128u);
}

TEST_F(HostFiles, seek_below_zero_fails_with_131_and_stays) {
  const Handle file = Create(u"A");
  Write(file, {1, 2});
  EXPECT_EQ(SetFilePointer(file, -3, nullptr, kFileCurrent), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 131u);
  EXPECT_EQ(SetFilePointer(file, static_cast<int32_t>(0x80000000u), nullptr, kFileBegin), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 131u);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, kFileCurrent), 2u);
}

TEST_F(HostFiles, seek_with_an_unknown_origin_or_a_high_word_fails_with_87) {
  const Handle file = Create(u"A");
  int32_t high = 0;
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, 3), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(SetFilePointer(file, 0, &high, kFileBegin), 0xFFFFFFFFu);
}

TEST_F(HostFiles, pretended_two_gigabytes_take_writes_at_their_end) {
  SetFile(u"A", FileImage());
  ResizeFile(u"A", 0x7FFFF000);
  const Handle file = Open(u"A");
  EXPECT_EQ(GetFileSize(file, nullptr), 0x7FFFF000u);
  EXPECT_EQ(SetFilePointer(file, 0x7FFFF000, nullptr, kFileBegin), 0x7FFFF000u);
  Write(file, {1, 2, 3});
  EXPECT_EQ(FileSize(u"A"), 0x7FFFF003u);
  EXPECT_EQ(FileBytes(u"A", 0x7FFFEFFF, 3), (Bytes{0, 1, 2}));
  EXPECT_EQ(GetFile(u"A").pages(), 1u);
}

TEST_F(HostFiles, closed_and_foreign_handles_fail_with_6) {
  const Handle file = Create(u"A");
  EXPECT_EQ(CloseHandle(file), 1);
  for (const Handle bad : {file, Handle{0}, kInvalidHandle, Handle{0xFFFFFFFE}}) {
    uint8_t byte = 0;
    uint32_t done = 99;
    EXPECT_EQ(CloseHandle(bad), 0);
    EXPECT_EQ(GetLastError(), 6u);
    EXPECT_EQ(coredll::ReadFile(bad, &byte, 1, &done, nullptr), 0);
    EXPECT_EQ(coredll::WriteFile(bad, &byte, 1, &done, nullptr), 0);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(SetFilePointer(bad, 0, nullptr, kFileBegin), 0xFFFFFFFFu);
    EXPECT_EQ(GetFileSize(bad, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(FlushFileBuffers(bad), 0);
  }
}

TEST_F(HostFiles, success_keeps_the_last_error) {
  EXPECT_EQ(Open(u"A"), kInvalidHandle);
  const Handle file = Create(u"A");
  EXPECT_EQ(FlushFileBuffers(file), 1);
  EXPECT_EQ(GetLastError(), 2u);
}

TEST_F(HostFiles, open_handles_are_counted) {
  EXPECT_EQ(OpenHandles(), 0u);
  const Handle a = Create(u"A");
  Create(u"B");
  EXPECT_EQ(OpenHandles(), 2u);
  CloseHandle(a);
  EXPECT_EQ(OpenHandles(), 1u);
}

TEST_F(HostFiles, handle_values_are_never_used_twice) {
  const Handle first = Create(u"A");
  CloseHandle(first);
  EXPECT_NE(Open(u"A"), first);
  ResetHost();
  EXPECT_NE(Create(u"A"), first);
}

TEST_F(HostFiles, drop_handles_frees_the_file_for_another_open) {
  const Handle file = Create(u"A");
  DropHandles();
  EXPECT_EQ(FlushFileBuffers(file), 0);
  EXPECT_NE(Open(u"A"), kInvalidHandle);
}

TEST_F(HostFiles, patch_and_resize_work_on_an_open_file) {
  const Handle file = Create(u"A");
  Write(file, {1, 2, 3, 4});
  PatchFile(u"A", 1, {9});
  ResizeFile(u"A", 3);
  SetFilePointer(file, 0, nullptr, kFileBegin);
  EXPECT_EQ(Read(file, 10), (Bytes{1, 9, 3}));
}

TEST_F(HostFiles, restore_brings_back_bytes_and_deletes_newer_files) {
  const Handle a = Create(u"A");
  Write(a, {1, 2});
  const FileSet before = Snapshot();
  Write(a, {3});
  const Handle b = Create(u"B");
  Restore(before);
  EXPECT_EQ(FileNames(), std::vector<FileName>{u"A"});
  EXPECT_EQ(FileBytes(u"A"), (Bytes{1, 2}));
  EXPECT_EQ(SetFilePointer(a, 0, nullptr, kFileCurrent), 3u);
  EXPECT_EQ(CloseHandle(b), 0);
  EXPECT_EQ(OpenHandles(), 1u);
}

TEST_F(HostFiles, remove_file_invalidates_its_handles_alone) {
  const Handle a = Create(u"A");
  const Handle b = Create(u"B");
  RemoveFile(u"A");
  EXPECT_EQ(FlushFileBuffers(a), 0);
  EXPECT_EQ(FlushFileBuffers(b), 1);
}

TEST_F(HostFiles, asking_for_a_missing_file_throws) {
  EXPECT_THROW(FileBytes(u"A"), std::out_of_range);
  EXPECT_THROW(ResizeFile(u"A", 1), std::out_of_range);
  EXPECT_THROW(RemoveFile(u"A"), std::out_of_range);
}

TEST_F(HostFiles, reset_removes_files_and_handles) {
  Create(u"A");
  ResetHost();
  EXPECT_EQ(FileNames(), std::vector<FileName>());
  EXPECT_EQ(OpenHandles(), 0u);
}

TEST_F(HostFiles, wide_name_widens_ascii) { EXPECT_EQ(WideName("A:1.x"), u"A:1.x"); }

}  // namespace
}  // namespace testhost
