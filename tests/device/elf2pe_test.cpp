// The converter, on ELF files made here byte by byte.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <initializer_list>

#include "convert_error.h"
#include "elf_image.h"
#include "export_list.h"
#include "pe_format.h"
#include "pe_image.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kBase = 0x10000000;
constexpr uint32_t kText = kBase + 0x1000;
constexpr uint32_t kData = kBase + 0x2000;

// The text of the ConvertError that `action` throws, "" if it throws none.
std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const elf2pe::ConvertError& error) {
    return error.what();
  }
  return "";
}

// ---- Reading ELF ----------------------------------------------------------------------------------------------------

struct TestRelocation {
  uint32_t address;
  uint32_t kind;
  uint32_t symbol;
};

// Numbers of the sections and symbols of every file made below.
enum : uint16_t { kNullSection, kTextSection, kDataSection, kRelSection, kSymbolSection, kNameSection, kSections };
enum : uint32_t { kNullSymbol, kFunction, kVariable, kConstant, kMissing, kSymbols };

// A linked ARM program: 16 bytes of .text, 8 of .data of which the file holds none, relocations for .text.
struct ElfFile {
  Elf32_Ehdr header{};
  Elf32_Shdr sections[kSections]{};
  Elf32_Sym symbols[kSymbols]{};
  std::vector<TestRelocation> relocations;
  uint32_t text[4] = {0xE3A00001, 0xE12FFF1E, kData + 4, 0};
  std::string names = std::string("\0Function\0Variable\0Constant\0Missing\0.text\0.data\0.other\0", 56);

  ElfFile() {
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS32;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_type = ET_EXEC;
    header.e_machine = EM_ARM;
    header.e_entry = kText;
    header.e_shoff = sizeof header;
    header.e_shentsize = sizeof(Elf32_Shdr);
    header.e_shnum = kSections;
    header.e_shstrndx = kNameSection;
    symbols[kFunction] = {Name("Function"), kText, 8, 0, 0, kTextSection};
    symbols[kVariable] = {Name("Variable"), kData + 4, 4, 0, 0, kDataSection};
    symbols[kConstant] = {Name("Constant"), 0x1234, 0, 0, 0, SHN_ABS};
    symbols[kMissing] = {Name("Missing"), 0, 0, 0, 0, SHN_UNDEF};
    sections[kTextSection] = {
        Name(".text"), SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, kText, 0, sizeof text, 0, 0, 4, 0};
    sections[kDataSection] = {Name(".data"), SHT_NOBITS, SHF_ALLOC | SHF_WRITE, kData, 0, 8, 0, 0, 4, 0};
    sections[kRelSection] = {0, SHT_REL, 0, 0, 0, 0, kSymbolSection, kTextSection, 4, sizeof(Elf32_Rel)};
    sections[kSymbolSection] = {0, SHT_SYMTAB, 0, 0, 0, sizeof symbols, kNameSection, 0, 4, sizeof(Elf32_Sym)};
    sections[kNameSection] = {0, SHT_STRTAB, 0, 0, 0, 0, 0, 0, 1, 0};
    relocations = {{kText + 8, R_ARM_ABS32, kVariable}};
  }

  uint32_t Name(const char* name) const { return static_cast<uint32_t>(names.find(name)); }

  Bytes File() const {
    std::vector<Elf32_Rel> table;
    for (const TestRelocation& relocation : relocations) {
      table.push_back({relocation.address, ELF32_R_INFO(relocation.symbol, relocation.kind)});
    }
    Elf32_Shdr placed[kSections];
    std::memcpy(placed, sections, sizeof placed);
    placed[kRelSection].sh_size = static_cast<uint32_t>(table.size() * sizeof(Elf32_Rel));
    placed[kNameSection].sh_size = static_cast<uint32_t>(names.size());

    Bytes contents;
    const auto place = [&](uint16_t section, const void* bytes) {
      placed[section].sh_offset = static_cast<uint32_t>(sizeof header + sizeof placed + contents.size());
      const auto* start = static_cast<const uint8_t*>(bytes);
      contents.insert(contents.end(), start, start + placed[section].sh_size);
    };
    place(kTextSection, text);
    place(kRelSection, table.data());
    place(kSymbolSection, symbols);
    place(kNameSection, names.data());

    Bytes file(sizeof header + sizeof placed + contents.size());
    std::memcpy(file.data(), &header, sizeof header);
    std::memcpy(file.data() + sizeof header, placed, sizeof placed);
    std::memcpy(file.data() + sizeof header + sizeof placed, contents.data(), contents.size());
    return file;
  }

  elf2pe::ElfImage Read() const { return elf2pe::ReadElf(File()); }
  std::string Error() const {
    return ErrorOf([this] { Read(); });
  }
};

TEST(ElfImage, elf_linked_program_is_read) {
  const elf2pe::ElfImage image = ElfFile().Read();
  EXPECT_EQ(kText, image.entry);
  ASSERT_EQ(2u, image.sections.size());
  EXPECT_EQ(".text", image.sections[0].name);
  EXPECT_EQ(16u, image.sections[0].bytes.size());
  EXPECT_EQ(".data", image.sections[1].name);
  EXPECT_EQ(Bytes(8), image.sections[1].bytes);
  const std::map<std::string, uint32_t> symbols = {{"Function", kText}, {"Variable", kData + 4}};
  EXPECT_EQ(symbols, image.symbols);
  EXPECT_EQ(std::vector<uint32_t>{kText + 8}, image.addressWords);
}

TEST(ElfImage, elf_relative_references_are_no_address_words) {
  ElfFile file;
  for (const uint32_t kind : std::initializer_list<uint32_t>{R_ARM_CALL, R_ARM_JUMP24, R_ARM_THM_PC22, R_ARM_THM_JUMP24,
                                                             R_ARM_REL32, R_ARM_PREL31}) {
    file.relocations.push_back({kText, kind, kFunction});
  }
  file.relocations.push_back({kText + 4, R_ARM_V4BX, kNullSymbol});
  file.relocations.push_back({0, R_ARM_NONE, kNullSymbol});
  EXPECT_EQ(std::vector<uint32_t>{kText + 8}, file.Read().addressWords);
}

TEST(ElfImage, elf_absolute_symbol_does_not_move) {
  ElfFile file;
  file.relocations.push_back({kText + 12, R_ARM_ABS32, kConstant});
  EXPECT_EQ(std::vector<uint32_t>{kText + 8}, file.Read().addressWords);
}

TEST(ElfImage, elf_address_words_in_any_order_are_sorted_once_each) {
  ElfFile file;
  file.relocations = {
      {kText + 12, R_ARM_ABS32, kFunction}, {kText + 8, R_ARM_ABS32, kVariable}, {kText + 12, R_ARM_ABS32, kFunction}};
  EXPECT_EQ((std::vector<uint32_t>{kText + 8, kText + 12}), file.Read().addressWords);
}

TEST(ElfImage, elf_unknown_relocation_is_refused_with_its_place) {
  for (const uint32_t kind : std::initializer_list<uint32_t>{R_ARM_MOVW_ABS_NC, R_ARM_MOVT_ABS, R_ARM_TARGET1,
                                                             R_ARM_GOT32, R_ARM_ABS8, R_ARM_RELATIVE}) {
    ElfFile file;
    file.relocations.push_back({kText + 4, kind, kFunction});
    EXPECT_EQ("at 0x10001004: relocation of kind " + std::to_string(kind) + ", which a PE image cannot express",
              file.Error());
  }
}

TEST(ElfImage, elf_undefined_reference_is_refused) {
  ElfFile file;
  file.relocations.push_back({kText + 4, R_ARM_ABS32, kMissing});
  EXPECT_EQ("at 0x10001004: a reference to Missing, which is undefined", file.Error());
}

TEST(ElfImage, elf_relative_reference_out_of_the_image_is_refused) {
  ElfFile file;
  file.relocations.push_back({kText + 4, R_ARM_CALL, kConstant});
  EXPECT_EQ("at 0x10001004: a relative reference to Constant, which is not in the image", file.Error());
}

TEST(ElfImage, elf_unaligned_address_word_is_refused) {
  ElfFile file;
  file.relocations = {{kText + 6, R_ARM_ABS32, kVariable}};
  EXPECT_EQ("at 0x10001006: an address word that is not aligned to 4", file.Error());
}

TEST(ElfImage, elf_relocation_outside_its_section_is_refused) {
  for (const uint32_t address : {kText + 16, kText - 4, kData}) {
    ElfFile file;
    file.relocations = {{address, R_ARM_ABS32, kVariable}};
    EXPECT_NE(std::string::npos, file.Error().find("a relocation outside its section"));
  }
}

TEST(ElfImage, elf_relocation_of_unknown_symbol_is_refused) {
  ElfFile file;
  file.relocations = {{kText + 8, R_ARM_ABS32, kSymbols}};
  EXPECT_EQ("at 0x10001008: a relocation against symbol 5", file.Error());
}

TEST(ElfImage, elf_without_relocations_is_refused) {
  ElfFile file;
  file.sections[kRelSection].sh_type = SHT_PROGBITS;
  EXPECT_EQ("no relocations in it; link with -q", file.Error());
}

TEST(ElfImage, elf_relocations_with_addends_are_refused) {
  ElfFile file;
  file.sections[kRelSection].sh_type = SHT_RELA;
  EXPECT_EQ("relocations with addends of their own", file.Error());
}

TEST(ElfImage, elf_other_files_are_refused) {
  EXPECT_EQ("the ELF header lies outside the file", ErrorOf([] { elf2pe::ReadElf({}); }));
  EXPECT_EQ("not an ELF file", ErrorOf([] { elf2pe::ReadElf(Bytes(100)); }));
  ElfFile wide;
  wide.header.e_ident[EI_CLASS] = ELFCLASS64;
  EXPECT_EQ("not a little-endian 32-bit ARM file", wide.Error());
  ElfFile foreign;
  foreign.header.e_machine = EM_386;
  EXPECT_EQ("not a little-endian 32-bit ARM file", foreign.Error());
  ElfFile object;
  object.header.e_type = ET_REL;
  EXPECT_EQ("not a linked program", object.Error());
}

TEST(ElfImage, elf_overlapping_sections_are_refused) {
  ElfFile file;
  file.sections[kDataSection].sh_addr = kText + 12;
  EXPECT_EQ("sections .text and .data overlap", file.Error());
}

TEST(ElfImage, elf_cut_anywhere_is_refused) {
  const Bytes whole = ElfFile().File();
  EXPECT_EQ("", ErrorOf([&] { elf2pe::ReadElf(whole); }));
  for (size_t size = 0; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_NE("", ErrorOf([&] { elf2pe::ReadElf(cut); })) << size;
  }
}

// ---- Export lists ---------------------------------------------------------------------------------------------------

TEST(ExportList, exports_list_with_comments_is_sorted) {
  const elf2pe::ExportList list =
      elf2pe::ParseExportList("; heading\nLIBRARY toy ; its name\nEXPORTS\n  beta\n\n  Zeta DATA\n  _alpha\n");
  EXPECT_EQ("toy.dll", list.library);
  ASSERT_EQ(3u, list.exports.size());
  EXPECT_EQ("Zeta", list.exports[0].name);
  EXPECT_TRUE(list.exports[0].isData);
  EXPECT_EQ("_alpha", list.exports[1].name);
  EXPECT_EQ("beta", list.exports[2].name);
  EXPECT_FALSE(list.exports[2].isData);
}

TEST(ExportList, exports_library_with_extension_keeps_it) {
  EXPECT_EQ("toy.cpl", elf2pe::ParseExportList("LIBRARY toy.cpl\nEXPORTS\n a\n").library);
}

TEST(ExportList, exports_bad_lists_are_refused) {
  const auto error = [](const char* text) { return ErrorOf([text] { elf2pe::ParseExportList(text); }); };
  EXPECT_EQ("the export list names no library", error("EXPORTS\n a\n"));
  EXPECT_EQ("the export list is empty", error("LIBRARY toy\nEXPORTS\n"));
  EXPECT_EQ("the export list names a twice", error("LIBRARY toy\nEXPORTS\n a\n b\n a\n"));
  EXPECT_EQ("line 3 of the export list is not understood", error("LIBRARY toy\nEXPORTS\n a @5\n"));
  EXPECT_EQ("line 2 of the export list is not understood", error("LIBRARY toy\nSTUB x\n"));
  EXPECT_EQ("line 1 of the export list is not understood", error("name\n"));
}

// ---- Building PE ----------------------------------------------------------------------------------------------------

constexpr uint32_t kSlots = kBase + 0x3000;

// Code on two pages, data that is mostly zero, two imports.
elf2pe::ElfImage MakeImage() {
  elf2pe::ElfImage elf;
  elf.entry = kText + 4;
  elf.sections = {{".text", kText, Bytes(16, 0xAA)}, {".data", kData, Bytes(0x800)}, {".idata", kSlots, Bytes(8)}};
  elf.sections[1].bytes[3] = 1;
  elf.symbols = {{"Run", kText + 9}, {"Value", kData + 0x700}, {"__imp_first", kSlots}, {"__imp_second", kSlots + 4}};
  elf.addressWords = {kText, kText + 12, kData + 0x10};
  return elf;
}

const elf2pe::ExportList kExports{"toy.dll", {{"Run", false}, {"Value", true}}};
const elf2pe::PeOptions kOptions{pe::kMachineArm, 4, 0, "COREDLL.dll"};

Bytes Build(const elf2pe::ElfImage& elf) { return elf2pe::BuildPe(elf, kExports, kOptions); }

std::string BuildError(const elf2pe::ElfImage& elf, const elf2pe::ExportList& exports = kExports) {
  return ErrorOf([&] { elf2pe::BuildPe(elf, exports, kOptions); });
}

template <typename Record>
Record Get(const Bytes& file, uint32_t offset) {
  Record record;
  EXPECT_LE(offset + sizeof record, file.size());
  std::memcpy(&record, file.data() + offset, sizeof record);
  return record;
}

pe::NtHeaders HeadersOf(const Bytes& file) { return Get<pe::NtHeaders>(file, Get<uint32_t>(file, 60)); }

pe::SectionHeader SectionOf(const Bytes& file, uint32_t number) {
  return Get<pe::SectionHeader>(file, Get<uint32_t>(file, 60) + static_cast<uint32_t>(sizeof(pe::NtHeaders)) +
                                          number * static_cast<uint32_t>(sizeof(pe::SectionHeader)));
}

// The image as a loader maps it.
Bytes Mapped(const Bytes& file) {
  Bytes image(HeadersOf(file).optional.sizeOfImage);
  for (uint32_t i = 0; i < HeadersOf(file).file.numberOfSections; ++i) {
    const pe::SectionHeader section = SectionOf(file, i);
    std::memcpy(image.data() + section.rva, file.data() + section.pointerToRawData,
                std::min(section.sizeOfRawData, section.virtualSize));
  }
  return image;
}

std::string StringAt(const Bytes& image, uint32_t rva) { return reinterpret_cast<const char*>(image.data()) + rva; }

TEST(PeImage, pe_machine_is_stored_as_given) {
  for (const auto& [machine, value] : {std::pair(pe::kMachineArm, 0x01C0), std::pair(pe::kMachineThumb, 0x01C2)}) {
    EXPECT_EQ(value, HeadersOf(elf2pe::BuildPe(MakeImage(), kExports, {machine, 5, 0, "COREDLL.dll"})).file.machine);
  }
}

TEST(PeImage, pe_headers_say_what_was_asked) {
  const Bytes file = elf2pe::BuildPe(MakeImage(), kExports, {pe::kMachineArmThumb2, 8, 1, "COREDLL.dll"});
  const pe::NtHeaders headers = HeadersOf(file);
  EXPECT_EQ(0x01C4, headers.file.machine);
  EXPECT_EQ(5, headers.file.numberOfSections);
  EXPECT_EQ(0x210E, headers.file.characteristics);
  EXPECT_EQ(0u, headers.file.timeDateStamp);
  EXPECT_EQ(0x1004u, headers.optional.addressOfEntryPoint);
  EXPECT_EQ(kBase, headers.optional.imageBase);
  EXPECT_EQ(0x6000u, headers.optional.sizeOfImage);
  EXPECT_EQ(9, headers.optional.subsystem);
  EXPECT_EQ(8, headers.optional.majorSubsystemVersion);
  EXPECT_EQ(1, headers.optional.minorSubsystemVersion);
}

TEST(PeImage, pe_sections_keep_their_place_and_lose_trailing_zeros) {
  const Bytes file = Build(MakeImage());
  const struct {
    const char* name;
    uint32_t rva, virtualSize, rawSize, flags;
  } expected[] = {{".text", 0x1000, 16, 0x200, 0x60000020},
                  {".data", 0x2000, 0x800, 0x200, 0xC0000040},
                  {".idata", 0x3000, 0x5E, 0x200, 0xC0000040},
                  {".edata", 0x4000, 0x4E, 0x200, 0x40000040},
                  {".reloc", 0x5000, 24, 0x200, 0x42000040}};
  for (uint32_t i = 0; i < 5; ++i) {
    const pe::SectionHeader section = SectionOf(file, i);
    EXPECT_EQ(expected[i].name, std::string(section.name, strnlen(section.name, 8)));
    EXPECT_EQ(expected[i].rva, section.rva);
    EXPECT_EQ(expected[i].virtualSize, section.virtualSize) << section.name;
    EXPECT_EQ(expected[i].rawSize, section.sizeOfRawData);
    EXPECT_EQ(0x200 + i * 0x200, section.pointerToRawData);
    EXPECT_EQ(expected[i].flags, section.characteristics);
  }
  EXPECT_EQ(0xC00u, file.size());
}

TEST(PeImage, pe_imports_have_both_tables_and_their_names) {
  const Bytes file = Build(MakeImage());
  const Bytes image = Mapped(file);
  const pe::DataDirectory directory = HeadersOf(file).optional.directory[pe::kImportDirectory];
  EXPECT_EQ(40u, directory.size);
  const auto import = Get<pe::ImportDescriptor>(image, directory.rva);
  EXPECT_EQ("COREDLL.dll", StringAt(image, import.name));
  EXPECT_EQ(0x3000u, import.addressTable);
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Get<uint32_t>(image, import.lookupTable + 4 * i), Get<uint32_t>(image, import.addressTable + 4 * i));
  }
  EXPECT_EQ("first", StringAt(image, Get<uint32_t>(image, import.lookupTable) + 2));
  EXPECT_EQ("second", StringAt(image, Get<uint32_t>(image, import.lookupTable + 4) + 2));
  EXPECT_EQ(0u, Get<uint32_t>(image, import.lookupTable + 8));
  EXPECT_EQ(0u, Get<pe::ImportDescriptor>(image, directory.rva + 20).name);
}

TEST(PeImage, pe_exports_keep_bit_0_and_ordinals) {
  const Bytes file = Build(MakeImage());
  const Bytes image = Mapped(file);
  const auto exports = Get<pe::ExportDirectory>(image, HeadersOf(file).optional.directory[pe::kExportDirectory].rva);
  EXPECT_EQ("toy.dll", StringAt(image, exports.name));
  EXPECT_EQ(1u, exports.ordinalBase);
  EXPECT_EQ(2u, exports.numberOfFunctions);
  EXPECT_EQ(2u, exports.numberOfNames);
  EXPECT_EQ("Run", StringAt(image, Get<uint32_t>(image, exports.names)));
  EXPECT_EQ("Value", StringAt(image, Get<uint32_t>(image, exports.names + 4)));
  EXPECT_EQ(0, Get<uint16_t>(image, exports.ordinals));
  EXPECT_EQ(1, Get<uint16_t>(image, exports.ordinals + 2));
  EXPECT_EQ(0x1009u, Get<uint32_t>(image, exports.functions));
  EXPECT_EQ(0x2700u, Get<uint32_t>(image, exports.functions + 4));
}

TEST(PeImage, pe_relocations_are_blocks_of_one_page_each) {
  const Bytes file = Build(MakeImage());
  const Bytes image = Mapped(file);
  const pe::DataDirectory directory = HeadersOf(file).optional.directory[pe::kRelocationDirectory];
  EXPECT_EQ(24u, directory.size);
  EXPECT_EQ(0x1000u, Get<uint32_t>(image, directory.rva));
  EXPECT_EQ(12u, Get<uint32_t>(image, directory.rva + 4));
  EXPECT_EQ(0x3000, Get<uint16_t>(image, directory.rva + 8));
  EXPECT_EQ(0x300C, Get<uint16_t>(image, directory.rva + 10));
  EXPECT_EQ(0x2000u, Get<uint32_t>(image, directory.rva + 12));
  EXPECT_EQ(12u, Get<uint32_t>(image, directory.rva + 16));
  EXPECT_EQ(0x3010, Get<uint16_t>(image, directory.rva + 20));
  EXPECT_EQ(0x0000, Get<uint16_t>(image, directory.rva + 22));  // fills the block up
}

TEST(PeImage, pe_checksum_is_the_sum_of_the_file) {
  Bytes file = Build(MakeImage());
  const uint32_t field = 64 + 24 + 64;
  const auto stored = Get<uint32_t>(file, field);
  std::memset(file.data() + field, 0, 4);
  uint32_t sum = 0;
  for (uint32_t i = 0; i < file.size(); i += 2) sum += Get<uint16_t>(file, i);
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  EXPECT_EQ(sum + file.size(), stored);
}

TEST(PeImage, pe_same_input_same_bytes) { EXPECT_EQ(Build(MakeImage()), Build(MakeImage())); }

TEST(PeImage, pe_bad_exports_are_refused) {
  EXPECT_EQ("exports Absent, which is not in the image", BuildError(MakeImage(), {"toy.dll", {{"Absent", false}}}));
  EXPECT_EQ("Run does not lie in .data", BuildError(MakeImage(), {"toy.dll", {{"Run", true}}}));
  EXPECT_EQ("Value does not lie in .text", BuildError(MakeImage(), {"toy.dll", {{"Value", false}}}));
}

TEST(PeImage, pe_bad_sections_are_refused) {
  elf2pe::ElfImage unknown = MakeImage();
  unknown.sections[1].name = ".init_array";
  EXPECT_EQ("section .init_array has no place in the image", BuildError(unknown));

  elf2pe::ElfImage gap = MakeImage();
  gap.sections[1].address += 0x1000;
  EXPECT_EQ("section .data does not start on the page after the one before", BuildError(gap));

  elf2pe::ElfImage disorder = MakeImage();
  disorder.sections[1].name = ".idata";
  disorder.sections[2].name = ".data";
  EXPECT_EQ("section .data is out of order", BuildError(disorder));

  elf2pe::ElfImage lowBase = MakeImage();
  for (elf2pe::ElfSection& section : lowBase.sections) section.address += 0x1000;
  lowBase.entry += 0x1000;
  EXPECT_EQ("the image base is not a multiple of 64 KiB", BuildError(lowBase));
}

TEST(PeImage, pe_entry_point_outside_code_is_refused) {
  for (const uint32_t entry : {0u, kText + 16, kData}) {
    elf2pe::ElfImage elf = MakeImage();
    elf.entry = entry;
    EXPECT_EQ("the entry point is not in .text", BuildError(elf));
  }
}

TEST(PeImage, pe_bad_import_slots_are_refused) {
  elf2pe::ElfImage nameless = MakeImage();
  nameless.symbols.erase("__imp_first");
  EXPECT_EQ("a word of .idata is no import slot", BuildError(nameless));

  elf2pe::ElfImage shared = MakeImage();
  shared.symbols["__imp_again"] = kSlots;
  EXPECT_EQ("__imp_first is no import slot", BuildError(shared));

  elf2pe::ElfImage outside = MakeImage();
  outside.symbols["__imp_data"] = kData;
  EXPECT_EQ("__imp_data is no import slot", BuildError(outside));

  elf2pe::ElfImage odd = MakeImage();
  odd.sections[2].bytes.resize(9);
  EXPECT_EQ(".idata is not made of words", BuildError(odd));
}

}  // namespace
