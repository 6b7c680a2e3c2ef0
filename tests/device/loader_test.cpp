// The loader of device images, on an image made by elf2pe of hand-written ARM code.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "elf_image.h"
#include "export_list.h"
#include "pe_format.h"
#include "pe_image.h"
#include "pe_loader.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kLinkedBase = 0x10000000;
constexpr uint32_t kText = kLinkedBase + 0x1000;
constexpr uint32_t kData = kLinkedBase + 0x2000;
constexpr uint32_t kSlots = kLinkedBase + 0x3000;
constexpr uint32_t kElsewhere = 0x34560000;

constexpr uint32_t kReturn1 = 0xE3A00001;  // mov r0, #1
constexpr uint32_t kReturn0 = 0xE3A00000;  // mov r0, #0
constexpr uint32_t kBxLr = 0xE12FFF1E;

Bytes Words(const std::vector<uint32_t>& words) {
  Bytes bytes(words.size() * 4);
  std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

// A DLL that exports GetNumber (ARM: returns Number), Number (data, 42), Length (its import strlen) and Seven (Thumb).
// Its entry point returns what `entryCode` leaves in r0.
Bytes MakeDll(uint32_t entryCode = kReturn1) {
  elf2pe::ElfImage elf;
  elf.entry = kText;
  elf.sections = {
      {".text", kText,
       Words({entryCode, kBxLr,                            // the entry point
              0xE59F0004, 0xE5900000, kBxLr, kData,        // GetNumber: ldr r0, =Number; ldr r0, [r0]; bx lr
              0xE59FC004, 0xE59CC000, 0xE12FFF1C, kSlots,  // Length: ldr ip, =__imp_strlen; ldr ip, [ip]; bx ip
              0x47702007})},                               // Seven: movs r0, #7; bx lr
      {".data", kData, Words({42, 0})},
      {".idata", kSlots, Words({0})},
  };
  elf.symbols = {{"GetNumber", kText + 8},
                 {"Length", kText + 24},
                 {"Seven", kText + 40 + 1},
                 {"Number", kData},
                 {"__imp_strlen", kSlots}};
  elf.addressWords = {kText + 20, kText + 36};
  const elf2pe::ExportList exports{"toy.dll",
                                   {{"GetNumber", false}, {"Length", false}, {"Number", true}, {"Seven", false}}};
  return elf2pe::BuildPe(elf, exports, {pe::kMachineArm, 4, 0, "COREDLL.dll"});
}

size_t CountingStrlen(const char* text) { return std::strlen(text) + 100; }

void* ResolveStrlen(const char* library, const char* name) {
  if (std::strcmp(library, "COREDLL.dll") != 0 || std::strcmp(name, "strlen") != 0) return nullptr;
  return reinterpret_cast<void*>(CountingStrlen);
}

void* ResolveNothing(const char*, const char*) { return nullptr; }

class Loader : public testing::Test {
 protected:
  ~Loader() override {
    if (image_ != nullptr) device::UnloadImage(image_);
    std::remove(kPath);
  }

  // Returns the reason of the failure, "" for success.
  std::string Load(const Bytes& dll, void* where = nullptr, device::Resolver resolver = ResolveStrlen) {
    std::ofstream(kPath, std::ios::binary)
        .write(reinterpret_cast<const char*>(dll.data()), static_cast<std::streamsize>(dll.size()));
    std::string error;
    image_ = device::LoadImage(kPath, where, resolver, &error);
    return error;
  }

  template <typename Function>
  Function* Exported(const char* name) {
    return reinterpret_cast<Function*>(device::FindExport(*image_, name));
  }

  static constexpr const char* kPath = "loader_test.dll";
  device::Image* image_ = nullptr;
};

// The rights to read and write the page that holds `address`, as the system lists them: "r-". The emulator does not
// list the right to execute.
std::string RightsOf(const void* address) {
  const auto wanted = reinterpret_cast<uintptr_t>(address);
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    unsigned long begin = 0;
    unsigned long end = 0;
    char rights[5];
    if (std::sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, rights) == 3 && wanted >= begin && wanted < end) {
      return std::string(rights, 2);
    }
  }
  return "unmapped";
}

TEST_F(Loader, loader_any_address_code_finds_its_data) {
  ASSERT_EQ("", Load(MakeDll()));
  EXPECT_NE(kLinkedBase, reinterpret_cast<uintptr_t>(image_->memory));
  EXPECT_EQ(42, Exported<int()>("GetNumber")());
  *Exported<int>("Number") = 43;
  EXPECT_EQ(43, Exported<int()>("GetNumber")());
}

TEST_F(Loader, loader_given_address_image_is_there) {
  ASSERT_EQ("", Load(MakeDll(), reinterpret_cast<void*>(kElsewhere)));
  EXPECT_EQ(kElsewhere, reinterpret_cast<uintptr_t>(image_->memory));
  EXPECT_EQ(kElsewhere + 0x2000, reinterpret_cast<uintptr_t>(device::FindExport(*image_, "Number")));
  EXPECT_EQ(42, Exported<int()>("GetNumber")());
}

TEST_F(Loader, loader_linked_address_given_is_refused) {
  EXPECT_EQ("loader_test.dll finds no memory where it should go",
            Load(MakeDll(), reinterpret_cast<void*>(kLinkedBase)));
}

TEST_F(Loader, loader_address_taken_is_refused) {
  ASSERT_EQ("", Load(MakeDll(), reinterpret_cast<void*>(kElsewhere)));
  std::string error;
  EXPECT_EQ(nullptr, device::LoadImage(kPath, reinterpret_cast<void*>(kElsewhere), ResolveStrlen, &error));
  EXPECT_EQ("loader_test.dll finds no memory where it should go", error);
}

TEST_F(Loader, loader_import_is_called_through_its_slot) {
  ASSERT_EQ("", Load(MakeDll()));
  EXPECT_EQ(105u, Exported<size_t(const char*)>("Length")("hello"));
}

TEST_F(Loader, loader_thumb_export_is_called_as_thumb) {
  ASSERT_EQ("", Load(MakeDll()));
  EXPECT_EQ(1u, reinterpret_cast<uintptr_t>(device::FindExport(*image_, "Seven")) & 1);
  EXPECT_EQ(7, Exported<int()>("Seven")());
}

TEST_F(Loader, loader_unknown_export_is_null) {
  ASSERT_EQ("", Load(MakeDll()));
  EXPECT_EQ(nullptr, device::FindExport(*image_, ""));
  EXPECT_EQ(nullptr, device::FindExport(*image_, "Number2"));
  EXPECT_EQ(nullptr, device::FindExport(*image_, "Zero"));
}

TEST_F(Loader, loader_sections_are_protected_as_they_ask) {
  ASSERT_EQ("", Load(MakeDll()));
  EXPECT_EQ("r-", RightsOf(image_->memory));
  EXPECT_EQ("r-", RightsOf(image_->memory + 0x1000));  // .text
  EXPECT_EQ("rw", RightsOf(image_->memory + 0x2000));  // .data
  EXPECT_EQ("rw", RightsOf(image_->memory + 0x3000));  // .idata
  EXPECT_EQ("r-", RightsOf(image_->memory + 0x4000));  // .edata
  EXPECT_EQ("--", RightsOf(image_->memory + 0x5000));  // .reloc
}

TEST_F(Loader, loader_missing_import_is_named) {
  EXPECT_EQ("loader_test.dll needs strlen of COREDLL.dll, which is not there",
            Load(MakeDll(), nullptr, ResolveNothing));
}

TEST_F(Loader, loader_entry_point_fails_image_is_gone) {
  EXPECT_EQ("loader_test.dll does not want to be loaded", Load(MakeDll(kReturn0), reinterpret_cast<void*>(kElsewhere)));
  EXPECT_EQ("unmapped", RightsOf(reinterpret_cast<void*>(kElsewhere)));
}

TEST_F(Loader, loader_missing_file_is_refused) {
  std::string error;
  EXPECT_EQ(nullptr, device::LoadImage("no-such.dll", nullptr, ResolveStrlen, &error));
  EXPECT_EQ("no-such.dll cannot be read", error);
}

TEST_F(Loader, loader_file_cut_anywhere_is_refused) {
  const Bytes dll = MakeDll();
  for (size_t size = 0; size < dll.size(); size += 4) {
    EXPECT_NE("", Load(Bytes(dll.begin(), dll.begin() + static_cast<ptrdiff_t>(size)))) << size;
    EXPECT_EQ(nullptr, image_);
  }
}

// A page of image with a relocation table of one block at 0x800: `entries` for the page at 0.
struct RelocationPage {
  Bytes bytes = Bytes(0x1000);
  uint32_t tableSize;

  explicit RelocationPage(const std::vector<uint16_t>& entries) {
    const pe::RelocationBlock header{0, static_cast<uint32_t>(sizeof(pe::RelocationBlock) + 2 * entries.size())};
    std::memcpy(bytes.data() + 0x800, &header, sizeof header);
    std::memcpy(bytes.data() + 0x800 + sizeof header, entries.data(), 2 * entries.size());
    tableSize = header.blockSize;
  }
  void Put(uint32_t offset, uint32_t word) { std::memcpy(bytes.data() + offset, &word, sizeof word); }
  uint32_t Get(uint32_t offset) const {
    uint32_t word;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
  }
  bool Relocate(uint32_t delta) { return device::Relocate(bytes.data(), 0x1000, 0x800, tableSize, delta); }
};

TEST(Relocation, relocation_word_is_moved) {
  RelocationPage page({3 << 12 | 0x10, 0});
  page.Put(0x10, 0x1A345E78);
  page.Put(0x14, 0x1A345E78);
  EXPECT_TRUE(page.Relocate(0xB000));
  EXPECT_EQ(0x1A350E78u, page.Get(0x10));
  EXPECT_EQ(0x1A345E78u, page.Get(0x14));
}

TEST(Relocation, relocation_arm_move_pair_is_moved_with_carry) {
  RelocationPage page({5 << 12 | 0x10, 0});
  page.Put(0x10, 0xE3053E78);  // movw r3, #0x5E78
  page.Put(0x14, 0xE3413A34);  // movt r3, #0x1A34
  EXPECT_TRUE(page.Relocate(0xB000));
  EXPECT_EQ(0xE3003E78u, page.Get(0x10));
  EXPECT_EQ(0xE3413A35u, page.Get(0x14));
}

TEST(Relocation, relocation_thumb_move_pair_is_moved_with_carry) {
  RelocationPage page({7 << 12 | 0x10, 0});
  page.Put(0x10, 0x6378F645);  // movw r3, #0x5E78
  page.Put(0x14, 0x2334F6C1);  // movt r3, #0x1A34
  EXPECT_TRUE(page.Relocate(0xB000));
  EXPECT_EQ(0x6378F640u, page.Get(0x10));
  EXPECT_EQ(0x2335F6C1u, page.Get(0x14));
}

TEST(Relocation, relocation_padding_changes_nothing) {
  RelocationPage page({0, 0});
  page.Put(0, 0x11111111);
  EXPECT_TRUE(page.Relocate(0xB000));
  EXPECT_EQ(0x11111111u, page.Get(0));
}

TEST(Relocation, relocation_unknown_kind_is_refused) {
  for (const uint32_t kind : {1, 2, 4, 6, 8, 9, 10, 15}) {
    RelocationPage page({static_cast<uint16_t>(kind << 12), 0});
    EXPECT_FALSE(page.Relocate(0xB000)) << kind;
  }
}

TEST(Relocation, relocation_place_beyond_the_image_is_refused) {
  RelocationPage word({3 << 12 | 0xFFD, 0});
  EXPECT_FALSE(word.Relocate(0xB000));
  RelocationPage pair({5 << 12 | 0xFFA, 0});
  EXPECT_FALSE(pair.Relocate(0xB000));
}

TEST(Relocation, relocation_damaged_table_is_refused) {
  RelocationPage page({0, 0});
  page.Put(0x804, 16);  // the block claims more than the table has
  EXPECT_FALSE(page.Relocate(0xB000));
  page.Put(0x804, 4);  // less than its own header
  EXPECT_FALSE(page.Relocate(0xB000));
  page.Put(0x804, 12);
  EXPECT_TRUE(page.Relocate(0xB000));
  EXPECT_FALSE(device::Relocate(page.bytes.data(), 0x1000, 0x800, 0x801, 0));
}

}  // namespace
