#include "base/scratch.h"

#include "base/error.h"

namespace orba {

namespace {

void* Checked(void* memory) {
  if (memory == nullptr) Fail(ORB_ERROR_OUT_OF_MEMORY);
  return memory;
}

}  // namespace

void* Allocate(uint32_t size) { return Checked(malloc(size)); }

void* AllocateZeroed(uint32_t size) { return Checked(calloc(1, size)); }

}  // namespace orba
