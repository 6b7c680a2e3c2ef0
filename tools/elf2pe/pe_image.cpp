#include "pe_image.h"

#include <algorithm>
#include <cstring>

#include "convert_error.h"
#include "pe_format.h"

namespace elf2pe {

namespace {

using Bytes = std::vector<uint8_t>;

struct PeSection {
  std::string name;
  uint32_t rva;
  Bytes bytes;
  uint32_t flags;
};

struct Directories {
  pe::DataDirectory exports{};
  pe::DataDirectory imports{};
  pe::DataDirectory relocations{};
  pe::DataDirectory addressTable{};
};

uint32_t RoundUp(uint32_t value, uint32_t unit) { return (value + unit - 1) / unit * unit; }

uint32_t SizeOf(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

template <typename Record>
void Append(Bytes* bytes, const Record& record) {
  const auto* start = reinterpret_cast<const uint8_t*>(&record);
  bytes->insert(bytes->end(), start, start + sizeof record);
}

void AppendString(Bytes* bytes, const std::string& text) {
  bytes->insert(bytes->end(), text.begin(), text.end());
  bytes->push_back(0);
}

void Put(Bytes* bytes, uint32_t offset, uint32_t value) { std::memcpy(bytes->data() + offset, &value, sizeof value); }

// .idata is written by the loader when it binds, and some loaders page read-only sections in from the file again later;
// so it stays writable.
uint32_t FlagsOf(const std::string& name) {
  constexpr uint32_t kReadOnlyData = pe::kSectionRead | pe::kSectionData;
  if (name == ".text") return pe::kSectionRead | pe::kSectionExecute | pe::kSectionCode;
  if (name == ".rdata") return kReadOnlyData;
  if (name == ".data" || name == ".idata") return kReadOnlyData | pe::kSectionWrite;
  throw ConvertError("section " + name + " has no place in the image");
}

std::vector<PeSection> TakeSections(const ElfImage& elf, uint32_t base) {
  static const char* const kOrder[] = {".text", ".rdata", ".data", ".idata"};
  std::vector<PeSection> sections;
  size_t place = 0;
  uint32_t expected = pe::kSectionAlignment;
  for (const ElfSection& section : elf.sections) {
    const uint32_t flags = FlagsOf(section.name);
    while (place < 4 && section.name != kOrder[place]) ++place;
    if (place++ == 4) throw ConvertError("section " + section.name + " is out of order");
    const uint32_t rva = section.address - base;
    if (rva != expected) {
      throw ConvertError("section " + section.name + " does not start on the page after the one before");
    }
    sections.push_back({section.name, rva, section.bytes, flags});
    expected = RoundUp(rva + SizeOf(section.bytes), pe::kSectionAlignment);
  }
  if (sections.front().name != ".text") throw ConvertError("there is no .text");
  return sections;
}

uint32_t NextRva(const std::vector<PeSection>& sections) {
  const PeSection& last = sections.back();
  return RoundUp(last.rva + SizeOf(last.bytes), pe::kSectionAlignment);
}

// The names of the import slots, in slot order. Every word of .idata must be one.
std::vector<std::string> SlotNames(const ElfImage& elf, uint32_t address, uint32_t size) {
  const std::string prefix = "__imp_";
  std::vector<std::string> names(size / 4);
  for (const auto& [symbol, value] : elf.symbols) {
    if (symbol.compare(0, prefix.size(), prefix) != 0) continue;
    const uint32_t offset = value - address;
    if (value < address || offset >= size || offset % 4 != 0 || !names[offset / 4].empty()) {
      throw ConvertError(symbol + " is no import slot");
    }
    names[offset / 4] = symbol.substr(prefix.size());
  }
  for (const std::string& name : names) {
    if (name.empty()) throw ConvertError("a word of .idata is no import slot");
  }
  if (size % 4 != 0) throw ConvertError(".idata is not made of words");
  return names;
}

// Grows .idata, which holds the bare slots: end of the slots, lookup table, directory, hints with names, library name.
void AddImports(const ElfImage& elf, uint32_t base, const std::string& library, PeSection* idata,
                Directories* directories) {
  const uint32_t slotsSize = SizeOf(idata->bytes);
  const std::vector<std::string> names = SlotNames(elf, base + idata->rva, slotsSize);

  const uint32_t lookup = slotsSize + 4;
  const uint32_t directory = lookup + slotsSize + 4;
  const uint32_t directorySize = 2 * sizeof(pe::ImportDescriptor);  // the second, all zero, ends it
  Bytes& bytes = idata->bytes;
  bytes.resize(directory + directorySize);
  for (uint32_t i = 0; i < names.size(); ++i) {
    const uint32_t hintAndName = idata->rva + SizeOf(bytes);
    Put(&bytes, 4 * i, hintAndName);
    Put(&bytes, lookup + 4 * i, hintAndName);
    Append(&bytes, uint16_t{0});  // no hint: the loader searches
    AppendString(&bytes, names[i]);
    bytes.resize(RoundUp(SizeOf(bytes), 2));
  }
  const pe::ImportDescriptor descriptor{idata->rva + lookup, 0, 0, idata->rva + SizeOf(bytes), idata->rva};
  std::memcpy(bytes.data() + directory, &descriptor, sizeof descriptor);
  AppendString(&bytes, library);

  directories->imports = {idata->rva + directory, directorySize};
  directories->addressTable = {idata->rva, slotsSize + 4};
}

// An exported function keeps bit 0: that is how its callers learn that it is Thumb code.
uint32_t ExportedRva(const ElfImage& elf, uint32_t base, const Export& exported) {
  const auto symbol = elf.symbols.find(exported.name);
  if (symbol == elf.symbols.end()) throw ConvertError("exports " + exported.name + ", which is not in the image");
  const ElfSection* section = elf.Find(exported.isData ? symbol->second : symbol->second & ~1u);
  const std::string wanted = exported.isData ? ".data" : ".text";
  if (section == nullptr || section->name != wanted) throw ConvertError(exported.name + " does not lie in " + wanted);
  return symbol->second - base;
}

// The directory, addresses, name pointers, ordinals, then the strings.
PeSection BuildExports(const ElfImage& elf, uint32_t base, const ExportList& list, uint32_t rva,
                       Directories* directories) {
  const auto count = static_cast<uint32_t>(list.exports.size());
  if (count > 0xFFFF) throw ConvertError("more exports than ordinals");
  const uint32_t functions = sizeof(pe::ExportDirectory);
  const uint32_t names = functions + 4 * count;
  const uint32_t ordinals = names + 4 * count;

  Bytes bytes(ordinals + 2 * count);
  const uint32_t libraryName = rva + SizeOf(bytes);
  AppendString(&bytes, list.library);
  for (uint32_t i = 0; i < count; ++i) {
    Put(&bytes, functions + 4 * i, ExportedRva(elf, base, list.exports[i]));
    Put(&bytes, names + 4 * i, rva + SizeOf(bytes));
    const auto ordinal = static_cast<uint16_t>(i);
    std::memcpy(bytes.data() + ordinals + 2 * i, &ordinal, sizeof ordinal);
    AppendString(&bytes, list.exports[i].name);
  }
  const pe::ExportDirectory directory{
      0, 0, 0, 0, libraryName, 1, count, count, rva + functions, rva + names, rva + ordinals};
  std::memcpy(bytes.data(), &directory, sizeof directory);

  directories->exports = {rva, SizeOf(bytes)};
  return {".edata", rva, std::move(bytes), pe::kSectionRead | pe::kSectionData};
}

// One block for each page that holds address words, every block a multiple of 4 bytes long.
PeSection BuildRelocations(const ElfImage& elf, uint32_t base, uint32_t rva, Directories* directories) {
  Bytes bytes;
  const std::vector<uint32_t>& words = elf.addressWords;
  for (size_t i = 0; i < words.size();) {
    const uint32_t page = (words[i] - base) / pe::kSectionAlignment * pe::kSectionAlignment;
    Bytes entries;
    for (; i < words.size() && words[i] - base - page < pe::kSectionAlignment; ++i) {
      Append(&entries, static_cast<uint16_t>(pe::kRelocationWord << 12 | (words[i] - base - page)));
    }
    if (entries.size() % 4 != 0) Append(&entries, uint16_t{pe::kRelocationPadding});
    Append(&bytes, pe::RelocationBlock{page, static_cast<uint32_t>(sizeof(pe::RelocationBlock)) + SizeOf(entries)});
    bytes.insert(bytes.end(), entries.begin(), entries.end());
  }
  directories->relocations = {rva, SizeOf(bytes)};
  return {".reloc", rva, std::move(bytes), pe::kSectionRead | pe::kSectionData | pe::kSectionDiscardable};
}

// Trailing zeros of data need no place in the file.
uint32_t RawSize(const PeSection& section) {
  size_t size = section.bytes.size();
  if (section.name == ".data") {
    while (size > 0 && section.bytes[size - 1] == 0) --size;
  }
  return RoundUp(static_cast<uint32_t>(size), pe::kFileAlignment);
}

pe::NtHeaders BuildHeaders(const std::vector<PeSection>& sections, uint32_t base, uint32_t entry, uint32_t headersSize,
                           const Directories& directories, const PeOptions& options) {
  pe::NtHeaders headers{};
  headers.signature = pe::kPeSignature;
  headers.file.machine = options.machine;
  headers.file.numberOfSections = static_cast<uint16_t>(sections.size());
  headers.file.sizeOfOptionalHeader = sizeof(pe::OptionalHeader);
  headers.file.characteristics = pe::kDllCharacteristics;

  pe::OptionalHeader& optional = headers.optional;
  optional.magic = pe::kOptionalMagic;
  optional.majorLinkerVersion = 1;
  for (const PeSection& section : sections) {
    uint32_t& total = section.name == ".text" ? optional.sizeOfCode : optional.sizeOfInitializedData;
    total += RawSize(section);
  }
  optional.addressOfEntryPoint = entry - base;
  optional.baseOfCode = sections.front().rva;
  optional.baseOfData = sections.size() > 1 ? sections[1].rva : 0;
  optional.imageBase = base;
  optional.sectionAlignment = pe::kSectionAlignment;
  optional.fileAlignment = pe::kFileAlignment;
  optional.majorOperatingSystemVersion = options.subsystemMajor;
  optional.minorOperatingSystemVersion = options.subsystemMinor;
  optional.majorSubsystemVersion = options.subsystemMajor;
  optional.minorSubsystemVersion = options.subsystemMinor;
  optional.sizeOfImage = NextRva(sections);
  optional.sizeOfHeaders = headersSize;
  optional.subsystem = pe::kSubsystemWindowsCe;
  optional.sizeOfStackReserve = 0x10000;
  optional.sizeOfStackCommit = 0x1000;
  optional.sizeOfHeapReserve = 0x100000;
  optional.sizeOfHeapCommit = 0x1000;
  optional.numberOfDirectories = pe::kDirectories;
  optional.directory[pe::kExportDirectory] = directories.exports;
  optional.directory[pe::kImportDirectory] = directories.imports;
  optional.directory[pe::kRelocationDirectory] = directories.relocations;
  optional.directory[pe::kAddressTable] = directories.addressTable;
  return headers;
}

// The sum of all 16-bit words, carries folded in, plus the length. The field itself counts as zero.
uint32_t CheckSum(const Bytes& file) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < file.size(); i += 2) {
    sum += static_cast<uint32_t>(file[i] | file[i + 1] << 8);
    sum = (sum & 0xFFFF) + (sum >> 16);
  }
  return sum + SizeOf(file);
}

Bytes BuildFile(const std::vector<PeSection>& sections, uint32_t base, uint32_t entry, const Directories& directories,
                const PeOptions& options) {
  const auto sectionTable = static_cast<uint32_t>(pe::kDosHeaderSize + sizeof(pe::NtHeaders));
  const uint32_t headersSize =
      RoundUp(sectionTable + static_cast<uint32_t>(sections.size() * sizeof(pe::SectionHeader)), pe::kFileAlignment);

  Bytes file(pe::kDosHeaderSize);
  std::memcpy(file.data(), &pe::kDosSignature, sizeof pe::kDosSignature);
  Put(&file, pe::kNtHeadersOffset, pe::kDosHeaderSize);
  Append(&file, BuildHeaders(sections, base, entry, headersSize, directories, options));
  uint32_t offset = headersSize;
  for (const PeSection& section : sections) {
    pe::SectionHeader header{};
    std::memcpy(header.name, section.name.data(), std::min(section.name.size(), sizeof header.name));
    header.virtualSize = SizeOf(section.bytes);
    header.rva = section.rva;
    header.sizeOfRawData = RawSize(section);
    header.pointerToRawData = header.sizeOfRawData != 0 ? offset : 0;
    header.characteristics = section.flags;
    Append(&file, header);
    offset += header.sizeOfRawData;
  }
  file.resize(headersSize);
  for (const PeSection& section : sections) {
    const uint32_t rawSize = RawSize(section);
    const size_t kept = std::min<size_t>(rawSize, section.bytes.size());
    file.insert(file.end(), section.bytes.begin(), section.bytes.begin() + static_cast<ptrdiff_t>(kept));
    file.resize(file.size() + rawSize - kept);
  }
  Put(&file, pe::kDosHeaderSize + offsetof(pe::NtHeaders, optional) + offsetof(pe::OptionalHeader, checkSum),
      CheckSum(file));
  return file;
}

}  // namespace

Bytes BuildPe(const ElfImage& elf, const ExportList& exports, const PeOptions& options) {
  const uint32_t base = elf.sections.front().address - pe::kSectionAlignment;
  if (base % 0x10000 != 0) throw ConvertError("the image base is not a multiple of 64 KiB");
  const ElfSection* entrySection = elf.Find(elf.entry & ~1u);
  if (entrySection == nullptr || entrySection->name != ".text") throw ConvertError("the entry point is not in .text");

  std::vector<PeSection> sections = TakeSections(elf, base);
  Directories directories;
  if (sections.back().name == ".idata") {
    AddImports(elf, base, options.importLibrary, &sections.back(), &directories);
  }
  sections.push_back(BuildExports(elf, base, exports, NextRva(sections), &directories));
  if (!elf.addressWords.empty()) {
    sections.push_back(BuildRelocations(elf, base, NextRva(sections), &directories));
  }
  return BuildFile(sections, base, elf.entry, directories, options);
}

}  // namespace elf2pe
