#include "support/allocations.h"

#include <string.h>

#include <algorithm>
#include <stdexcept>
#include <unordered_map>

// What the linker's --wrap leaves as the real functions, and calls instead of them.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void __real_free(void* memory);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void __wrap_free(void* memory);
}

namespace testhost {

namespace {

constexpr int kFreshFill = 0xA5;
constexpr int kFreedFill = 0x5A;

struct Allocations {
  std::unordered_map<void*, size_t> held;  // address and size
  size_t bytes = 0;
  size_t peak = 0;
  uint32_t calls = 0;
  uint32_t untilFault = 0;  // allocations up to the failing one, 0 = none fails
  Repeat repeat = Repeat::kOnce;
  uint32_t fired = 0;
  bool busy = false;  // the table itself is allocating or freeing: not the library
};

// Never destroyed: memory is freed until the very end of the process.
Allocations& Table() {
  static Allocations* const table = new Allocations;
  return *table;
}

// Counts an allocation and tells whether it is to fail.
bool TakeFault(Allocations& table) {
  ++table.calls;
  if (table.untilFault == 0) return false;
  if (table.untilFault > 1) {
    --table.untilFault;
    return false;
  }
  if (table.repeat == Repeat::kOnce) table.untilFault = 0;
  ++table.fired;
  return true;
}

void NoteHeld(Allocations& table, void* memory, size_t size) {
  if (memory == nullptr) return;
  table.busy = true;
  table.held[memory] = size;
  table.busy = false;
  table.bytes += size;
  table.peak = std::max(table.peak, table.bytes);
}

void NoteFreed(Allocations& table, void* memory) {
  const auto entry = table.held.find(memory);
  if (entry == table.held.end()) return;
  memset(memory, kFreedFill, entry->second);
  table.bytes -= entry->second;
  table.busy = true;
  table.held.erase(entry);
  table.busy = false;
}

}  // namespace

void FailNthAllocation(uint32_t n, Repeat repeat) {
  if (n == 0) throw std::invalid_argument("allocations count from 1");
  Allocations& table = Table();
  table.untilFault = n;
  table.repeat = repeat;
  table.fired = 0;
}

void ClearAllocationFaults() {
  Table().untilFault = 0;
  Table().fired = 0;
}

uint32_t AllocationFaultsFired() { return Table().fired; }
uint32_t AllocationCalls() { return Table().calls; }
size_t AllocationsHeld() { return Table().held.size(); }
size_t BytesHeld() { return Table().bytes; }
size_t PeakBytes() { return Table().peak; }
void ResetPeakBytes() { Table().peak = Table().bytes; }

void ResetAllocations() {
  Allocations& table = Table();
  table.busy = true;
  table.held.clear();
  table.busy = false;
  table.bytes = 0;
  table.peak = 0;
  table.calls = 0;
  ClearAllocationFaults();
}

}  // namespace testhost

void* __wrap_malloc(size_t size) {
  testhost::Allocations& table = testhost::Table();
  if (table.busy) return __real_malloc(size);
  if (testhost::TakeFault(table)) return nullptr;
  void* memory = __real_malloc(size);
  if (memory != nullptr) memset(memory, testhost::kFreshFill, size);
  testhost::NoteHeld(table, memory, size);
  return memory;
}

void* __wrap_calloc(size_t count, size_t size) {
  testhost::Allocations& table = testhost::Table();
  if (table.busy) return __real_calloc(count, size);
  if (testhost::TakeFault(table)) return nullptr;
  if (size != 0 && count > SIZE_MAX / size) return nullptr;
  void* memory = __real_calloc(count, size);
  testhost::NoteHeld(table, memory, count * size);
  return memory;
}

void __wrap_free(void* memory) {
  testhost::Allocations& table = testhost::Table();
  if (!table.busy && memory != nullptr) testhost::NoteFreed(table, memory);
  __real_free(memory);
}
