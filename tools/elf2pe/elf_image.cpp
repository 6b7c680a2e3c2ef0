#include "elf_image.h"

#include <elf.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "convert_error.h"

namespace elf2pe {

namespace {

using Bytes = std::vector<uint8_t>;

std::string Hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value);
  return text;
}

template <typename Record>
Record ReadRecord(const Bytes& file, uint64_t offset, const char* what) {
  Record record;
  if (offset > file.size() || file.size() - offset < sizeof record) {
    throw ConvertError(std::string(what) + " lies outside the file");
  }
  std::memcpy(&record, file.data() + offset, sizeof record);
  return record;
}

Elf32_Ehdr ReadFileHeader(const Bytes& file) {
  const auto header = ReadRecord<Elf32_Ehdr>(file, 0, "the ELF header");
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) throw ConvertError("not an ELF file");
  if (header.e_ident[EI_CLASS] != ELFCLASS32 || header.e_ident[EI_DATA] != ELFDATA2LSB || header.e_machine != EM_ARM) {
    throw ConvertError("not a little-endian 32-bit ARM file");
  }
  if (header.e_type != ET_EXEC) throw ConvertError("not a linked program");
  if (header.e_shentsize != sizeof(Elf32_Shdr) || header.e_shnum == 0) throw ConvertError("no section table");
  return header;
}

std::vector<Elf32_Shdr> ReadSectionTable(const Bytes& file, const Elf32_Ehdr& header) {
  std::vector<Elf32_Shdr> table;
  for (uint32_t i = 0; i < header.e_shnum; ++i) {
    table.push_back(
        ReadRecord<Elf32_Shdr>(file, uint64_t{header.e_shoff} + i * sizeof(Elf32_Shdr), "a section header"));
    const Elf32_Shdr& section = table.back();
    if (section.sh_type == SHT_NOBITS || section.sh_type == SHT_NULL) continue;
    if (section.sh_offset > file.size() || file.size() - section.sh_offset < section.sh_size) {
      throw ConvertError("section " + std::to_string(i) + " lies outside the file");
    }
  }
  return table;
}

std::string ReadString(const Bytes& file, const Elf32_Shdr& strings, uint32_t offset) {
  if (strings.sh_type != SHT_STRTAB || offset >= strings.sh_size) throw ConvertError("a name lies outside its table");
  const char* start = reinterpret_cast<const char*>(file.data()) + strings.sh_offset + offset;
  const size_t room = strings.sh_size - offset;
  const size_t length = strnlen(start, room);
  if (length == room) throw ConvertError("a name has no end");
  return std::string(start, length);
}

const Elf32_Shdr& Linked(const std::vector<Elf32_Shdr>& table, uint32_t index) {
  if (index >= table.size()) throw ConvertError("a section names section " + std::to_string(index) + ", there is none");
  return table[index];
}

bool IsLoaded(const Elf32_Shdr& section) { return (section.sh_flags & SHF_ALLOC) != 0 && section.sh_size != 0; }

std::vector<ElfSection> ReadLoadedSections(const Bytes& file, const Elf32_Ehdr& header,
                                           const std::vector<Elf32_Shdr>& table) {
  std::vector<ElfSection> sections;
  for (const Elf32_Shdr& section : table) {
    if (!IsLoaded(section)) continue;
    if (section.sh_size > 0x10000000) throw ConvertError("a section is larger than 256 MiB");
    ElfSection loaded{ReadString(file, Linked(table, header.e_shstrndx), section.sh_name), section.sh_addr,
                      Bytes(section.sh_size)};
    if (section.sh_type != SHT_NOBITS) {
      std::memcpy(loaded.bytes.data(), file.data() + section.sh_offset, section.sh_size);
    }
    sections.push_back(std::move(loaded));
  }
  std::sort(sections.begin(), sections.end(),
            [](const ElfSection& a, const ElfSection& b) { return a.address < b.address; });
  for (size_t i = 0; i + 1 < sections.size(); ++i) {
    if (uint64_t{sections[i].address} + sections[i].bytes.size() > sections[i + 1].address) {
      throw ConvertError("sections " + sections[i].name + " and " + sections[i + 1].name + " overlap");
    }
  }
  return sections;
}

// Where a symbol is, as far as relocation asks.
enum class Place { kImage, kAbsolute, kNowhere };

struct Symbol {
  std::string name;
  uint32_t value;
  Place place;
};

std::vector<Symbol> ReadSymbols(const Bytes& file, const std::vector<Elf32_Shdr>& table, const Elf32_Shdr& section) {
  std::vector<Symbol> symbols;
  const Elf32_Shdr& strings = Linked(table, section.sh_link);
  for (uint32_t offset = 0; offset + sizeof(Elf32_Sym) <= section.sh_size; offset += sizeof(Elf32_Sym)) {
    const auto symbol = ReadRecord<Elf32_Sym>(file, uint64_t{section.sh_offset} + offset, "a symbol");
    Place place = Place::kNowhere;
    if (symbol.st_shndx == SHN_ABS) {
      place = Place::kAbsolute;
    } else if (symbol.st_shndx != SHN_UNDEF && symbol.st_shndx < table.size() &&
               (table[symbol.st_shndx].sh_flags & SHF_ALLOC) != 0) {
      place = Place::kImage;
    }
    symbols.push_back({ReadString(file, strings, symbol.st_name), symbol.st_value, place});
  }
  return symbols;
}

enum class Meaning { kNothing, kAddressWord, kRelative };

Meaning MeaningOf(uint32_t kind) {
  switch (kind) {
    case R_ARM_NONE:
    case R_ARM_V4BX:
      return Meaning::kNothing;
    case R_ARM_ABS32:
      return Meaning::kAddressWord;
    case R_ARM_PC24:
    case R_ARM_REL32:
    case R_ARM_THM_PC22:  // a Thumb BL
    case R_ARM_CALL:
    case R_ARM_JUMP24:
    case R_ARM_THM_JUMP24:
    case R_ARM_THM_JUMP19:
    case R_ARM_THM_PC11:
    case R_ARM_THM_PC9:
    case R_ARM_PREL31:
      return Meaning::kRelative;
    default:
      throw ConvertError("relocation of kind " + std::to_string(kind) + ", which a PE image cannot express");
  }
}

void ReadRelocations(const Bytes& file, const std::vector<Elf32_Shdr>& table, const Elf32_Shdr& section,
                     ElfImage* image) {
  const Elf32_Shdr& symbolTable = Linked(table, section.sh_link);
  if (symbolTable.sh_type != SHT_SYMTAB) throw ConvertError("a relocation table without symbols");
  const std::vector<Symbol> symbols = ReadSymbols(file, table, symbolTable);
  const Elf32_Shdr& target = Linked(table, section.sh_info);

  for (uint32_t offset = 0; offset + sizeof(Elf32_Rel) <= section.sh_size; offset += sizeof(Elf32_Rel)) {
    const auto relocation = ReadRecord<Elf32_Rel>(file, uint64_t{section.sh_offset} + offset, "a relocation");
    const uint32_t address = relocation.r_offset;
    try {
      const Meaning meaning = MeaningOf(ELF32_R_TYPE(relocation.r_info));
      if (meaning == Meaning::kNothing) continue;
      if (address < target.sh_addr || address - target.sh_addr >= target.sh_size || target.sh_size < 4) {
        throw ConvertError("a relocation outside its section");
      }
      const uint32_t index = ELF32_R_SYM(relocation.r_info);
      if (index >= symbols.size()) throw ConvertError("a relocation against symbol " + std::to_string(index));
      const Symbol& symbol = symbols[index];
      if (symbol.place == Place::kNowhere) throw ConvertError("a reference to " + symbol.name + ", which is undefined");
      const bool moves = symbol.place == Place::kImage;
      if (meaning == Meaning::kRelative && !moves) {
        throw ConvertError("a relative reference to " + symbol.name + ", which is not in the image");
      }
      if (meaning != Meaning::kAddressWord || !moves) continue;
      if (address % 4 != 0) throw ConvertError("an address word that is not aligned to 4");
      image->addressWords.push_back(address);
    } catch (const ConvertError& error) {
      throw ConvertError("at " + Hex(address) + ": " + error.what());
    }
  }
}

}  // namespace

const ElfSection* ElfImage::Find(uint32_t address) const {
  for (const ElfSection& section : sections) {
    if (address >= section.address && address - section.address < section.bytes.size()) return &section;
  }
  return nullptr;
}

ElfImage ReadElf(const Bytes& file) {
  const Elf32_Ehdr header = ReadFileHeader(file);
  const std::vector<Elf32_Shdr> table = ReadSectionTable(file, header);

  ElfImage image;
  image.entry = header.e_entry;
  image.sections = ReadLoadedSections(file, header, table);
  if (image.sections.empty()) throw ConvertError("nothing in it is loaded");

  bool haveSymbols = false;
  bool haveRelocations = false;
  for (const Elf32_Shdr& section : table) {
    if (section.sh_type == SHT_SYMTAB) {
      haveSymbols = true;
      for (const Symbol& symbol : ReadSymbols(file, table, section)) {
        if (symbol.place == Place::kImage && !symbol.name.empty()) image.symbols[symbol.name] = symbol.value;
      }
    }
    const bool relocates = section.sh_type == SHT_REL || section.sh_type == SHT_RELA;
    if (!relocates || !IsLoaded(Linked(table, section.sh_info))) continue;
    if (section.sh_type == SHT_RELA) throw ConvertError("relocations with addends of their own");
    haveRelocations = true;
    ReadRelocations(file, table, section, &image);
  }
  if (!haveSymbols) throw ConvertError("no symbols in it");
  if (!haveRelocations) throw ConvertError("no relocations in it; link with -q");

  std::sort(image.addressWords.begin(), image.addressWords.end());
  image.addressWords.erase(std::unique(image.addressWords.begin(), image.addressWords.end()), image.addressWords.end());
  return image;
}

}  // namespace elf2pe
