#include "pe_loader.h"

#include <sys/mman.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "pe_format.h"

namespace device {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kMaxImageSize = 0x1000000;
constexpr uint32_t kProcessAttach = 1;
constexpr uint32_t kProcessDetach = 0;

// What goes wrong while an image is loaded; LoadImage turns it into its result.
struct LoadError {
  std::string reason;
};

void Require(bool condition, const std::string& reason) {
  if (!condition) throw LoadError{reason};
}

uint32_t RoundUpToPage(uint32_t size) { return (size + pe::kSectionAlignment - 1) & ~(pe::kSectionAlignment - 1); }

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  Require(file.is_open() && !bytes.empty(), "cannot be read");
  return bytes;
}

template <typename Record>
Record FileRecord(const Bytes& file, uint64_t offset) {
  Record record;
  Require(offset + sizeof record <= file.size(), "is cut short");
  std::memcpy(&record, file.data() + offset, sizeof record);
  return record;
}

struct Headers {
  pe::NtHeaders nt;
  std::vector<pe::SectionHeader> sections;
};

Headers ReadHeaders(const Bytes& file) {
  Require(FileRecord<uint16_t>(file, 0) == pe::kDosSignature, "is no executable image");
  const auto start = FileRecord<uint32_t>(file, pe::kNtHeadersOffset);
  Headers headers{FileRecord<pe::NtHeaders>(file, start), {}};
  const pe::OptionalHeader& optional = headers.nt.optional;
  Require(headers.nt.signature == pe::kPeSignature && optional.magic == pe::kOptionalMagic, "is no PE32 image");
  const uint16_t machine = headers.nt.file.machine;
  Require(machine == pe::kMachineArm || machine == pe::kMachineThumb || machine == pe::kMachineArmThumb2,
          "is not for an ARM processor");
  Require(headers.nt.file.characteristics == pe::kDllCharacteristics, "is no relocatable DLL");
  Require(optional.subsystem == pe::kSubsystemWindowsCe, "is not for Windows CE");
  Require(optional.sectionAlignment == pe::kSectionAlignment && optional.sizeOfImage <= kMaxImageSize,
          "has a layout that is not supported");
  for (uint32_t i = 0; i < headers.nt.file.numberOfSections; ++i) {
    headers.sections.push_back(
        FileRecord<pe::SectionHeader>(file, start + sizeof(pe::NtHeaders) + uint64_t{i} * sizeof(pe::SectionHeader)));
    const pe::SectionHeader& section = headers.sections.back();
    Require(section.rva % pe::kSectionAlignment == 0 && section.rva != 0 && section.rva < optional.sizeOfImage &&
                section.virtualSize <= optional.sizeOfImage - section.rva,
            "has a section outside of its memory");
    Require(uint64_t{section.pointerToRawData} + section.sizeOfRawData <= file.size(), "is cut short");
  }
  return headers;
}

// Fresh memory, zeroed, writable; not where the image was linked to be, or relocation would go untested.
uint8_t* Map(uint32_t size, void* where, uint32_t linkedBase) {
  const int placed = where != nullptr ? MAP_FIXED_NOREPLACE : 0;  // a mere hint to the emulator
  void* memory = mmap(where, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | placed, -1, 0);
  const bool fits = memory != MAP_FAILED && (where == nullptr || memory == where) &&
                    reinterpret_cast<uintptr_t>(memory) != linkedBase;
  if (!fits && memory != MAP_FAILED) munmap(memory, size);
  Require(fits, "finds no memory where it should go");
  return static_cast<uint8_t*>(memory);
}

void CopySections(const Bytes& file, const Headers& headers, uint8_t* memory) {
  std::memcpy(memory, file.data(), std::min<size_t>(headers.nt.optional.sizeOfHeaders, file.size()));
  for (const pe::SectionHeader& section : headers.sections) {
    std::memcpy(memory + section.rva, file.data() + section.pointerToRawData,
                std::min(section.sizeOfRawData, section.virtualSize));
  }
}

// The bytes at `rva`; the image is checked to be large enough.
template <typename Record>
Record* At(uint8_t* memory, uint32_t size, uint32_t rva) {
  Require(rva <= size && size - rva >= sizeof(Record), "has a table outside of its memory");
  return reinterpret_cast<Record*>(memory + rva);
}

const char* StringAt(uint8_t* memory, uint32_t size, uint32_t rva) {
  Require(rva < size && memchr(memory + rva, 0, size - rva) != nullptr, "has a name outside of its memory");
  return reinterpret_cast<const char*>(memory + rva);
}

void Bind(uint8_t* memory, uint32_t size, uint32_t directory, Resolver resolver) {
  if (directory == 0) return;
  for (;; directory += sizeof(pe::ImportDescriptor)) {
    const auto* import = At<pe::ImportDescriptor>(memory, size, directory);
    if (import->name == 0) return;
    const char* library = StringAt(memory, size, import->name);
    for (uint32_t i = 0;; i += 4) {
      const uint32_t entry = *At<uint32_t>(memory, size, import->lookupTable + i);
      uint32_t* slot = At<uint32_t>(memory, size, import->addressTable + i);
      Require(*slot == entry, "has import slots that differ from its lookup table");
      if (entry == 0) break;
      Require((entry & pe::kImportByOrdinal) == 0, "imports by ordinal");
      const char* name = StringAt(memory, size, entry + 2);
      void* address = resolver(library, name);
      Require(address != nullptr, std::string("needs ") + name + " of " + library + ", which is not there");
      *slot = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
    }
  }
}

int ProtectionOf(uint32_t characteristics) {
  if ((characteristics & pe::kSectionDiscardable) != 0) return PROT_NONE;  // only of use while loading
  int protection = PROT_NONE;
  if ((characteristics & pe::kSectionRead) != 0) protection |= PROT_READ;
  if ((characteristics & pe::kSectionWrite) != 0) protection |= PROT_WRITE;
  if ((characteristics & pe::kSectionExecute) != 0) protection |= PROT_EXEC;
  return protection;
}

void Protect(const Headers& headers, uint8_t* memory, uint32_t size) {
  bool done = mprotect(memory, size, PROT_READ) == 0;  // headers, and pages that no section claims
  for (const pe::SectionHeader& section : headers.sections) {
    done &=
        mprotect(memory + section.rva, RoundUpToPage(section.virtualSize), ProtectionOf(section.characteristics)) == 0;
  }
  Require(done, "cannot be protected");
}

int32_t CallEntryPoint(const Image& image, uint32_t reason) {
  using EntryPoint = int32_t (*)(void* instance, uint32_t reason, void* reserved);
  const auto entry = reinterpret_cast<EntryPoint>(image.memory + image.entry);
  return entry(image.memory, reason, nullptr);
}

Image* Load(const Bytes& file, void* where, Resolver resolver) {
  const Headers headers = ReadHeaders(file);
  const pe::OptionalHeader& optional = headers.nt.optional;
  const uint32_t size = RoundUpToPage(optional.sizeOfImage);
  uint8_t* memory = Map(size, where, optional.imageBase);
  try {
    CopySections(file, headers, memory);
    const pe::DataDirectory& relocations = optional.directory[pe::kRelocationDirectory];
    const uint32_t delta = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(memory)) - optional.imageBase;
    Require(relocations.size != 0, "cannot be moved: it has no base relocations");
    Require(Relocate(memory, size, relocations.rva, relocations.size, delta), "has damaged base relocations");
    Bind(memory, size, optional.directory[pe::kImportDirectory].rva, resolver);
    Protect(headers, memory, size);
    __builtin___clear_cache(reinterpret_cast<char*>(memory), reinterpret_cast<char*>(memory) + size);

    const Image image{memory, size, optional.addressOfEntryPoint, optional.directory[pe::kExportDirectory].rva};
    Require(image.entry != 0 && image.entry < size, "has no entry point");
    Require(CallEntryPoint(image, kProcessAttach) != 0, "does not want to be loaded");
    return new Image(image);
  } catch (const LoadError&) {
    munmap(memory, size);
    throw;
  }
}

uint32_t Read32(const uint8_t* bytes) {
  uint32_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

void Write32(uint8_t* bytes, uint32_t value) { std::memcpy(bytes, &value, sizeof value); }

// ARM MOVW/MOVT: the upper 4 bits of the value in bits 16 to 19, the lower 12 in bits 0 to 11.
uint32_t ArmMoveValue(uint32_t code) { return (code >> 4 & 0xF000) | (code & 0xFFF); }

uint32_t WithArmMoveValue(uint32_t code, uint32_t value) {
  return (code & 0xFFF0F000) | (value & 0xF000) << 4 | (value & 0xFFF);
}

// Thumb-2 MOVW/MOVT, two halfwords, the first one low: the value's bits 12 to 15 in bits 0 to 3 of the first halfword,
// bit 11 in bit 10 of the first, bits 8 to 10 in bits 12 to 14 of the second, bits 0 to 7 in bits 0 to 7 of the second.
uint32_t ThumbMoveValue(uint32_t code) {
  return (code & 0xF) << 12 | (code >> 10 & 1) << 11 | (code >> 28 & 7) << 8 | (code >> 16 & 0xFF);
}

uint32_t WithThumbMoveValue(uint32_t code, uint32_t value) {
  return (code & 0x8F00FBF0) | (value >> 12 & 0xF) | (value >> 11 & 1) << 10 | (value >> 8 & 7) << 28 |
         (value & 0xFF) << 16;
}

template <uint32_t ValueOf(uint32_t), uint32_t WithValue(uint32_t, uint32_t)>
void RelocateMovePair(uint8_t* place, uint32_t delta) {
  const uint32_t low = Read32(place);
  const uint32_t high = Read32(place + 4);
  const uint32_t address = (ValueOf(high) << 16 | ValueOf(low)) + delta;
  Write32(place, WithValue(low, address & 0xFFFF));
  Write32(place + 4, WithValue(high, address >> 16));
}

}  // namespace

Image* LoadImage(const std::string& path, void* where, Resolver resolver, std::string* error) {
  try {
    return Load(ReadFile(path), where, resolver);
  } catch (const LoadError& failure) {
    *error = path + " " + failure.reason;
    return nullptr;
  }
}

void UnloadImage(Image* image) {
  CallEntryPoint(*image, kProcessDetach);
  munmap(image->memory, image->size);
  delete image;
}

// Searches by halves, as the device does: exports out of order would not be found.
void* FindExport(const Image& image, const char* name) {
  if (image.exports == 0) return nullptr;
  const auto* directory = reinterpret_cast<const pe::ExportDirectory*>(image.memory + image.exports);
  const auto* names = reinterpret_cast<const uint32_t*>(image.memory + directory->names);
  const auto* ordinals = reinterpret_cast<const uint16_t*>(image.memory + directory->ordinals);
  const auto* functions = reinterpret_cast<const uint32_t*>(image.memory + directory->functions);
  uint32_t low = 0;
  uint32_t high = directory->numberOfNames;
  while (low < high) {
    const uint32_t middle = (low + high) / 2;
    const int order = std::strcmp(name, reinterpret_cast<const char*>(image.memory + names[middle]));
    if (order == 0) return image.memory + functions[ordinals[middle]];
    (order < 0 ? high : low) = order < 0 ? middle : middle + 1;
  }
  return nullptr;
}

bool Relocate(uint8_t* image, uint32_t imageSize, uint32_t tableRva, uint32_t tableSize, uint32_t delta) {
  if (tableRva > imageSize || tableSize > imageSize - tableRva) return false;
  const uint8_t* block = image + tableRva;
  for (uint32_t left = tableSize; left != 0;) {
    pe::RelocationBlock header;
    if (left < sizeof header) return false;
    std::memcpy(&header, block, sizeof header);
    if (header.blockSize < sizeof header || header.blockSize > left || header.blockSize % 4 != 0) return false;
    for (uint32_t offset = sizeof header; offset < header.blockSize; offset += 2) {
      const uint32_t entry = static_cast<uint32_t>(block[offset] | block[offset + 1] << 8);
      const uint32_t kind = entry >> 12;
      const uint64_t rva = uint64_t{header.pageRva} + (entry & 0xFFF);
      const uint32_t width = kind == pe::kRelocationWord ? 4 : 8;
      if (kind == pe::kRelocationPadding) continue;
      if (rva + width > imageSize) return false;
      uint8_t* place = image + rva;
      if (kind == pe::kRelocationWord) {
        Write32(place, Read32(place) + delta);
      } else if (kind == pe::kRelocationArmMove) {
        RelocateMovePair<ArmMoveValue, WithArmMoveValue>(place, delta);
      } else if (kind == pe::kRelocationThumbMove) {
        RelocateMovePair<ThumbMoveValue, WithThumbMoveValue>(place, delta);
      } else {
        return false;
      }
    }
    block += header.blockSize;
    left -= header.blockSize;
  }
  return true;
}

}  // namespace device
