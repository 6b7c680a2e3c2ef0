// A buffer for the length of one operation, freed on every way out. Stands on the error state.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include "interface/error.h"

namespace orba {

// Holds size bytes; bytes is null, with ORB_ERROR_OUT_OF_MEMORY set, where memory ran out.
struct Scratch {
  uint8_t* const bytes;
  explicit Scratch(uint32_t size) : bytes(Checked(malloc(size))) {}
  ~Scratch() { free(bytes); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  template <typename Record>
  Record* As() const {
    return reinterpret_cast<Record*>(bytes);
  }

 protected:
  static uint8_t* Checked(void* memory) {
    if (memory == nullptr) Fail(ORB_ERROR_OUT_OF_MEMORY);
    return static_cast<uint8_t*>(memory);
  }
  struct Zeroed {};
  Scratch(uint32_t size, Zeroed) : bytes(Checked(calloc(1, size))) {}
};

// The same, filled with zeros.
struct ZeroedScratch : Scratch {
  explicit ZeroedScratch(uint32_t size) : Scratch(size, Zeroed()) {}
};

}  // namespace orba
