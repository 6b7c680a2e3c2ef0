// A buffer for the length of one operation, freed on every way out. Stands on the error state.
#pragma once

#include <stdint.h>
#include <stdlib.h>

namespace orba {

// Takes memory, as malloc and calloc do; null with ORB_ERROR_OUT_OF_MEMORY set where there is none.
void* Allocate(uint32_t size);
void* AllocateZeroed(uint32_t size);

// Owns what one of them returned: `const Scratch block(Allocate(size));`
struct Scratch {
  uint8_t* const bytes;  // null where memory ran out
  explicit Scratch(void* memory) : bytes(static_cast<uint8_t*>(memory)) {}
  [[gnu::always_inline]] ~Scratch() { free(bytes); }  // out of line it would force the object onto the stack
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  template <typename Record>
  Record* As() const {
    return reinterpret_cast<Record*>(bytes);
  }
};

}  // namespace orba
