// First layer of elf2pe: reads a linked 32-bit ARM ELF program, as `ld -q` leaves it, into plain memory. Knows nothing
// of PE. Every offset and count in the file is checked; bad input throws ConvertError.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace elf2pe {

struct ElfSection {
  std::string name;
  uint32_t address;
  std::vector<uint8_t> bytes;  // in full; zeros where the file holds none
};

struct ElfImage {
  uint32_t entry;                           // bit 0 set where it is Thumb code
  std::vector<ElfSection> sections;         // the non-empty ones that are loaded, by rising address
  std::map<std::string, uint32_t> symbols;  // global and local names that lie in those sections, bit 0 as for entry
  std::vector<uint32_t> addressWords;       // where the image holds a 32-bit address of itself, rising, no duplicates

  // The section that holds `address`, null if there is none. One byte past its end does not count.
  const ElfSection* Find(uint32_t address) const;
};

// Throws ConvertError: no little-endian 32-bit ARM ELF program; sections that overlap or lie outside the file; a
// relocation kind that has no meaning in a PE image; an address word that is not aligned to 4; a relocation against a
// symbol that is neither absolute nor in the image.
ElfImage ReadElf(const std::vector<uint8_t>& file);

}  // namespace elf2pe
