#include "support/host_test.h"

namespace testhost {
namespace {

namespace coredll = orba::coredll;
using coredll::FreeLibrary;
using coredll::GetLastError;
using coredll::GetProcAddressW;
using coredll::LoadLibraryW;

constexpr uint32_t kInvalid = 0xFFFFFFFF;

class HostLibraries : public HostTest {
 protected:
  void Load() {
    module_ = LoadLibraryW(u"memfile.dll");
    create_ = Bind<uint32_t()>(u"CreateMemFile");
    read_ = Bind<uint32_t(void*, uint32_t, uint32_t*)>(u"ReadMemFile");
    write_ = Bind<uint32_t(const void*, uint32_t, uint32_t*)>(u"WriteMemFile");
    seek_ = Bind<uint32_t(int32_t, uint32_t)>(u"SeekMemFile");
    size_ = Bind<uint32_t()>(u"GetMemFileSize");
    delete_ = Bind<uint32_t()>(u"DeleteMemFile");
    ClearTrace();
  }

  template <typename Function>
  Function* Bind(const char16_t* name) {
    return reinterpret_cast<Function*>(GetProcAddressW(module_, name));
  }

  uint32_t Write(const Bytes& bytes) { return write_(bytes.data(), static_cast<uint32_t>(bytes.size()), &done_); }

  coredll::Module module_ = nullptr;
  uint32_t (*create_)() = nullptr;
  uint32_t (*read_)(void*, uint32_t, uint32_t*) = nullptr;
  uint32_t (*write_)(const void*, uint32_t, uint32_t*) = nullptr;
  uint32_t (*seek_)(int32_t, uint32_t) = nullptr;
  uint32_t (*size_)() = nullptr;
  uint32_t (*delete_)() = nullptr;
  uint32_t done_ = 99;
};

TEST_F(HostLibraries, memfile_offers_its_six_entry_points) {
  Load();
  EXPECT_NE(module_, nullptr);
  EXPECT_NE(create_, nullptr);
  EXPECT_NE(read_, nullptr);
  EXPECT_NE(write_, nullptr);
  EXPECT_NE(seek_, nullptr);
  EXPECT_NE(size_, nullptr);
  EXPECT_NE(delete_, nullptr);
}

TEST_F(HostLibraries, other_libraries_and_procedures_are_missing) {
  EXPECT_EQ(LoadLibraryW(u"MEMFILE.dll"), nullptr);
  EXPECT_EQ(GetLastError(), 126u);
  Load();
  EXPECT_EQ(GetProcAddressW(module_, u"creatememfile"), nullptr);
  EXPECT_EQ(GetLastError(), 127u);
}

TEST_F(HostLibraries, memfile_can_be_absent) {
  SetMemFilePresent(false);
  EXPECT_EQ(LoadLibraryW(u"memfile.dll"), nullptr);
  EXPECT_EQ(MemFile().loads, 0u);
}

TEST_F(HostLibraries, hidden_procedure_is_missing_alone) {
  HideProcedure(u"SeekMemFile");
  Load();
  EXPECT_EQ(seek_, nullptr);
  EXPECT_NE(size_, nullptr);
}

TEST_F(HostLibraries, loads_frees_and_references_are_counted) {
  Load();
  LoadLibraryW(u"memfile.dll");
  EXPECT_EQ(FreeLibrary(module_), 1);
  EXPECT_EQ(MemFile().loads, 2u);
  EXPECT_EQ(MemFile().frees, 1u);
  EXPECT_EQ(MemFile().references, 1u);
  EXPECT_EQ(FreeLibrary(module_), 1);
  EXPECT_EQ(FreeLibrary(module_), 0);
  EXPECT_EQ(GetLastError(), 6u);
  EXPECT_EQ(GetProcAddressW(module_, u"ReadMemFile"), nullptr);
}

TEST_F(HostLibraries, failed_load_and_lookup_tell_the_code) {
  FailNthCall(Call::kLoadLibrary, 1, 14);
  EXPECT_EQ(LoadLibraryW(u"memfile.dll"), nullptr);
  EXPECT_EQ(GetLastError(), 14u);
  FailNthCall(Call::kGetProcAddress, 3, 8);
  Load();
  EXPECT_NE(read_, nullptr);
  EXPECT_EQ(write_, nullptr);
  EXPECT_EQ(GetLastError(), 8u);
}

TEST_F(HostLibraries, library_calls_are_traced_by_name) {
  LoadLibraryW(u"memfile.dll");
  GetProcAddressW(nullptr, u"ReadMemFile");
  FreeLibrary(nullptr);
  EXPECT_EQ(TraceText({Call::kLoadLibrary, Call::kGetProcAddress, Call::kFreeLibrary}),
            "load memfile.dll / proc ReadMemFile !6 / free !6");
}

TEST_F(HostLibraries, memory_file_reads_what_was_written) {
  Load();
  EXPECT_EQ(create_(), 1u);
  EXPECT_EQ(seek_(2, 0), 2u);
  EXPECT_EQ(Write({7, 8, 9}), 1u);
  EXPECT_EQ(done_, 3u);
  EXPECT_EQ(size_(), 5u);
  EXPECT_EQ(seek_(-4, 1), 1u);
  uint8_t buffer[6] = {1, 1, 1, 1, 1, 1};
  EXPECT_EQ(read_(buffer, 6, &done_), 1u);
  EXPECT_EQ(done_, 4u);
  EXPECT_EQ(Bytes(buffer, buffer + 6), (Bytes{0, 7, 8, 9, 1, 1}));
  EXPECT_EQ(MemFileImage().ToBytes(), (Bytes{0, 0, 7, 8, 9}));
  EXPECT_EQ(TraceText(), "memcreate / memseek 2 / memwrite 2 3 / memsize / memseek current-4 / memread 1 6 =4");
  EXPECT_EQ(TraceText(u"??MEM??"), TraceText());
}

TEST_F(HostLibraries, creating_again_empties_the_memory_file) {
  Load();
  create_();
  Write({1});
  EXPECT_EQ(create_(), 1u);
  EXPECT_EQ(size_(), 0u);
  EXPECT_EQ(seek_(0, 1), 0u);
  EXPECT_EQ(MemFile().creates, 2u);
}

TEST_F(HostLibraries, calls_without_a_memory_file_fail) {
  Load();
  uint8_t byte = 0;
  EXPECT_EQ(read_(&byte, 1, &done_), 0u);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(write_(&byte, 1, &done_), 0u);
  EXPECT_EQ(seek_(0, 0), kInvalid);
  EXPECT_EQ(size_(), kInvalid);
  EXPECT_EQ(delete_(), 0u);
}

TEST_F(HostLibraries, delete_discards_the_memory_file) {
  Load();
  create_();
  Write({1});
  EXPECT_EQ(delete_(), 1u);
  EXPECT_EQ(MemFile().deletes, 1u);
  EXPECT_EQ(MemFileImage().size(), 0u);
  EXPECT_EQ(size_(), kInvalid);
}

TEST_F(HostLibraries, last_free_discards_the_memory_file) {
  Load();
  create_();
  Write({1});
  FreeLibrary(module_);
  Load();
  EXPECT_EQ(size_(), kInvalid);
}

TEST_F(HostLibraries, memory_file_ends_below_two_gigabytes) {
  Load();
  create_();
  EXPECT_EQ(seek_(0x7FFFFFFF, 0), 0x7FFFFFFFu);
  EXPECT_EQ(seek_(1, 1), kInvalid);
  EXPECT_EQ(seek_(-1, 0), kInvalid);
  EXPECT_EQ(Write({1}), 0u);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(size_(), 0u);
  EXPECT_EQ(seek_(0x7FFFFFFE, 0), 0x7FFFFFFEu);
  EXPECT_EQ(Write({1}), 1u);
  EXPECT_EQ(size_(), 0x7FFFFFFFu);
}

TEST_F(HostLibraries, memory_file_calls_fail_on_order) {
  Load();
  FailNthCall(Call::kCreateMemFile, 1, 8);
  EXPECT_EQ(create_(), 0u);
  EXPECT_EQ(create_(), 1u);
  FailNthCall(Call::kWriteMemFile, 1, 8);
  EXPECT_EQ(Write({1}), 0u);
  EXPECT_EQ(size_(), 0u);
  FailNthCall(1, 8);
  EXPECT_EQ(seek_(0, 0), kInvalid);
  EXPECT_EQ(FaultsFired(), 3u);
}

TEST_F(HostLibraries, set_image_is_what_reads_see) {
  Load();
  create_();
  SetMemFileImage(FileImage(Bytes{4, 5}));
  uint8_t byte = 0;
  EXPECT_EQ(read_(&byte, 1, &done_), 1u);
  EXPECT_EQ(byte, 4);
}

using HostLibrariesDeathTest = HostLibraries;

TEST_F(HostLibrariesDeathTest, call_after_the_library_is_gone_ends_the_program) {
  Load();
  FreeLibrary(module_);
  EXPECT_DEATH(create_(), "memcreate while memfile.dll is not loaded");
}

}  // namespace
}  // namespace testhost
