// How clang's fuzzer makes a new input of an old one: mostly byte by byte as it likes, sometimes by one whole patch
// more, and now and then from nothing.
#include <algorithm>

#include "fuzz/fuzz_input.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  if (seed % 8 > 2) return LLVMFuzzerMutate(data, size, room);
  const fuzz::Bytes fresh = fuzz::RandomInput(seed);
  const std::size_t kept = seed % 8 == 0 ? 0 : size;
  const std::size_t added = std::min(kept == 0 ? fresh.size() : fuzz::kPatchSize, room - kept);
  std::copy_n(fresh.end() - static_cast<std::ptrdiff_t>(added), added, data + kept);
  return kept + added;
}
