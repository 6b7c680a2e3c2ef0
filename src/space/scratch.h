// A buffer for the length of one operation, freed on every way out. Stands on the error state.
#pragma once

#include <stdint.h>
#include <stdlib.h>

namespace orba {

// Takes memory, as malloc and calloc do; null with ORB_ERROR_OUT_OF_MEMORY set where there is none.
void* Allocate(uint32_t size);
void* AllocateZeroed(uint32_t size);

// Owns a buffer; bytes is null where memory ran out.
struct Scratch {
  uint8_t* const bytes;
  explicit Scratch(uint32_t size) : Scratch(Allocate(size)) {}
  [[gnu::always_inline]] ~Scratch() { free(bytes); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  template <typename Record>
  Record* As() const {
    return reinterpret_cast<Record*>(bytes);
  }

 protected:
  explicit Scratch(void* memory) : bytes(static_cast<uint8_t*>(memory)) {}
};

// The same, filled with zeros.
struct ZeroedScratch : Scratch {
  explicit ZeroedScratch(uint32_t size) : Scratch(AllocateZeroed(size)) {}
};

}  // namespace orba
