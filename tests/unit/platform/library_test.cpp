// Loading libraries: where they are found, how long they stay.
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "memfile/memfile.h"
#include "unit/platform/platform_test.h"
#include "unit/platform/system_calls.h"

namespace orba {
namespace {

using coredll::FreeLibrary;
using coredll::GetLastError;
using coredll::GetProcAddressW;
using coredll::LoadLibraryW;
using coredll::Module;
namespace fs = std::filesystem;

// Copies of the memory-file library under names of their own, so that nothing else has them loaded.
class PosixLibrary : public PlatformTest {
 protected:
  static fs::path ProgramFolder() { return fs::read_symlink("/proc/self/exe").parent_path(); }
  static fs::path MemFileLibrary() { return ProgramFolder() / "../lib/libmemfile.so"; }

  ~PosixLibrary() override {
    for (const fs::path& copy : copies_) fs::remove(copy);
  }

  // Copies the library as libNAME.so and returns NAME, which no other process uses.
  std::string CopyTo(const fs::path& folder, const std::string& what) {
    const std::string name = "orba_" + what + "_" + std::to_string(getpid());
    copies_.push_back(folder / ("lib" + name + ".so"));
    fs::copy_file(MemFileLibrary(), copies_.back(), fs::copy_options::overwrite_existing);
    return name;
  }

  bool Loaded() const {
    void* library = dlopen(copies_.back().c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
  }

 private:
  std::vector<fs::path> copies_;
};

template <typename Function>
Function* Bound(Module module, const char16_t* name) {
  return reinterpret_cast<Function*>(GetProcAddressW(module, name));
}

TEST_F(PosixLibrary, load_memfile_offers_its_six_entry_points) {
  const Module module = LoadLibraryW(u"memfile.dll");
  ASSERT_NE(nullptr, module);
  for (const char16_t* name :
       {u"CreateMemFile", u"ReadMemFile", u"WriteMemFile", u"SeekMemFile", u"GetMemFileSize", u"DeleteMemFile"}) {
    EXPECT_NE(nullptr, GetProcAddressW(module, name));
  }
  EXPECT_EQ(1, FreeLibrary(module));
}

TEST_F(PosixLibrary, load_beside_the_program_needs_no_loader_path) {
  const std::string name = CopyTo(ProgramFolder(), "beside");
  const Module module = LoadLibraryW(Wide(name + ".dll").c_str());
  ASSERT_NE(nullptr, module);
  EXPECT_TRUE(Loaded());
  EXPECT_EQ(1, FreeLibrary(module));
  EXPECT_FALSE(Loaded());
}

TEST_F(PosixLibrary, load_beside_the_program_ignores_the_current_directory) {
  const std::string name = CopyTo(ProgramFolder(), "moved");
  const uint32_t found = InChild(
      [&] { return chdir(folder().c_str()) == 0 && LoadLibraryW(Wide(name + ".dll").c_str()) != nullptr ? 1u : 0u; });
  EXPECT_EQ(1u, found);
}

TEST_F(PosixLibrary, load_from_the_current_directory_fails_with_126) {
  const std::string name = CopyTo(folder(), "here");
  const uint32_t code = InChild([&] {
    if (chdir(folder().c_str()) != 0 || LoadLibraryW(Wide(name + ".dll").c_str()) != nullptr) return kChildDied;
    return GetLastError();
  });
  EXPECT_EQ(126u, code);
}

TEST_F(PosixLibrary, load_name_without_or_with_capital_extension_is_the_same_library) {
  const std::string name = CopyTo(ProgramFolder(), "name");
  const Module module = LoadLibraryW(Wide(name + ".dll").c_str());
  ASSERT_NE(nullptr, module);
  EXPECT_EQ(module, LoadLibraryW(Wide(name).c_str()));
  EXPECT_EQ(module, LoadLibraryW(Wide(name + ".DLL").c_str()));
  for (int i = 0; i < 3; i++) EXPECT_EQ(1, FreeLibrary(module));
  EXPECT_FALSE(Loaded());
}

TEST_F(PosixLibrary, load_name_with_another_extension_keeps_it) {
  const std::string name = CopyTo(ProgramFolder(), "version.2");
  const Module module = LoadLibraryW(Wide(name).c_str());
  ASSERT_NE(nullptr, module);
  EXPECT_EQ(1, FreeLibrary(module));
}

TEST_F(PosixLibrary, load_twice_stays_until_freed_twice) {
  const std::string name = CopyTo(ProgramFolder(), "twice");
  const Module first = LoadLibraryW(Wide(name + ".dll").c_str());
  const Module second = LoadLibraryW(Wide(name + ".dll").c_str());
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, second);
  ASSERT_EQ(1u, Bound<MemFileU32()>(first, u"CreateMemFile")());
  MemFileU32 done = 0;
  ASSERT_EQ(1u, (Bound<MemFileU32(const void*, MemFileU32, MemFileU32*)>(first, u"WriteMemFile")("abc", 3, &done)));
  EXPECT_EQ(1, FreeLibrary(first));
  EXPECT_TRUE(Loaded());
  EXPECT_EQ(3u, Bound<MemFileU32()>(second, u"GetMemFileSize")());
  EXPECT_EQ(1u, Bound<MemFileU32()>(second, u"DeleteMemFile")());
  EXPECT_EQ(1, FreeLibrary(second));
  EXPECT_FALSE(Loaded());
}

TEST_F(PosixLibrary, load_by_a_library_does_not_keep_that_one_loaded) {
  const fs::path path = ProgramFolder() / "../lib/liborba.so";
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, library) << dlerror();
  const auto create = reinterpret_cast<int (*)(const char16_t*)>(dlsym(library, "OrbCreateVolume"));
  ASSERT_NE(nullptr, create);
  EXPECT_EQ(1, create(u"??MEM??"));
  dlclose(library);
  EXPECT_EQ(nullptr, dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD));
}

TEST_F(PosixLibrary, load_missing_library_fails_with_126) {
  EXPECT_EQ(nullptr, LoadLibraryW(u"orba_no_such_library.dll"));
  EXPECT_EQ(126u, GetLastError());
}

TEST_F(PosixLibrary, load_file_that_is_no_library_fails_with_126) {
  const std::string name = CopyTo(ProgramFolder(), "text");
  fs::resize_file(ProgramFolder() / ("lib" + name + ".so"), 100);
  EXPECT_EQ(nullptr, LoadLibraryW(Wide(name + ".dll").c_str()));
  EXPECT_EQ(126u, GetLastError());
}

TEST_F(PosixLibrary, load_name_with_a_folder_fails_with_126) {
  const std::string name = CopyTo(ProgramFolder(), "folder");
  const fs::path sub = ProgramFolder() / ("lib" + name);
  fs::create_directory(sub);
  fs::copy_file(MemFileLibrary(), sub / "inside.so");
  EXPECT_EQ(nullptr, LoadLibraryW(Wide(name + "/inside.dll").c_str()));
  EXPECT_EQ(126u, GetLastError());
  fs::remove_all(sub);
  for (const std::string& path : {"../bin/" + name, "./" + name, "/" + name}) {
    EXPECT_EQ(nullptr, LoadLibraryW(Wide(path + ".dll").c_str()));
    EXPECT_EQ(126u, GetLastError());
  }
}

TEST_F(PosixLibrary, load_unusable_names_fail_with_126) {
  const char16_t unpaired[] = {u'a', 0xD83D, 0};
  EXPECT_EQ(nullptr, LoadLibraryW(unpaired));
  EXPECT_EQ(126u, GetLastError());
  for (const size_t length : {249u, 250u, 255u, 256u, 5000u}) {
    EXPECT_EQ(nullptr, LoadLibraryW(std::u16string(length, u'n').c_str()));
    EXPECT_EQ(126u, GetLastError());
  }
}

TEST_F(PosixLibrary, load_without_a_name_fails_with_87) {
  EXPECT_EQ(nullptr, LoadLibraryW(nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(nullptr, LoadLibraryW(u""));
  EXPECT_EQ(87u, GetLastError());
}

TEST_F(PosixLibrary, entry_point_that_is_missing_fails_with_127) {
  const Module module = LoadLibraryW(u"memfile.dll");
  ASSERT_NE(nullptr, module);
  const char16_t unpaired[] = {0xDE00, 0};
  const std::u16string endless(1000, u'n');
  for (const char16_t* name : {u"CreateMemfile", u"", static_cast<const char16_t*>(unpaired), endless.c_str()}) {
    EXPECT_EQ(nullptr, GetProcAddressW(module, name));
    EXPECT_EQ(127u, GetLastError());
  }
  EXPECT_EQ(1, FreeLibrary(module));
}

TEST_F(PosixLibrary, entry_point_without_module_or_name_fails) {
  EXPECT_EQ(nullptr, GetProcAddressW(nullptr, u"CreateMemFile"));
  EXPECT_EQ(6u, GetLastError());
  const Module module = LoadLibraryW(u"memfile.dll");
  ASSERT_NE(nullptr, module);
  EXPECT_EQ(nullptr, GetProcAddressW(module, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(1, FreeLibrary(module));
}

// The program itself stays where it is, however often it is closed.
TEST_F(PosixLibrary, free_of_what_is_not_open_any_more_fails_with_126) {
  const Module program = dlopen(nullptr, RTLD_LAZY);
  int freed = 0;
  while (freed < 10 && FreeLibrary(program) != 0) freed++;
  EXPECT_GE(freed, 1);
  EXPECT_EQ(0, FreeLibrary(program));
  EXPECT_EQ(126u, GetLastError());
  EXPECT_EQ(program, dlopen(nullptr, RTLD_LAZY));
}

TEST_F(PosixLibrary, free_null_fails_with_6) {
  EXPECT_EQ(0, FreeLibrary(nullptr));
  EXPECT_EQ(6u, GetLastError());
}

}  // namespace
}  // namespace orba
