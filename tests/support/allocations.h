// Counts and fails the library's memory allocations. Works in programs linked with
//   -Wl,--wrap=malloc,--wrap=calloc,--wrap=free
// where every malloc, calloc and free written in the program's own objects comes here. What new and the C++ library
// allocate is not seen. A pointer that was not handed out here, or before the last reset, is freed and not counted.
//
// Memory from malloc is filled with 0xA5 and freed memory with 0x5A, so that reading either shows.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace testhost {

enum class Repeat {
  kOnce,
  kFromThenOn,
};

// The n-th allocation from now (1 = the next) returns null; with kFromThenOn all later ones too.
// Replaces an earlier order; ends with ClearAllocationFaults or ResetAllocations.
void FailNthAllocation(uint32_t n, Repeat repeat = Repeat::kOnce);
void ClearAllocationFaults();

// Allocations failed since the last FailNthAllocation, ClearAllocationFaults or reset.
uint32_t AllocationFaultsFired();

// Since the last reset: allocations asked for, failed ones included; those still held, and their bytes.
uint32_t AllocationCalls();
size_t AllocationsHeld();
size_t BytesHeld();

// The most bytes held at a time since the last reset or ResetPeakBytes, which starts again from the bytes held now.
size_t PeakBytes();
void ResetPeakBytes();

// Forgets every allocation so far, every count and every ordered failure.
void ResetAllocations();

}  // namespace testhost
