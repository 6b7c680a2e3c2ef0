#include "tools/orba/host/windows/windows.h"
// After the header that it needs.
#include <bcrypt.h>

#include <algorithm>
#include <new>

namespace orba::tool::host {

namespace {

// One for the whole run; null where Windows cannot.
BCRYPT_ALG_HANDLE Algorithm() {
  static const BCRYPT_ALG_HANDLE algorithm = [] {
    BCRYPT_ALG_HANDLE opened = nullptr;
    return BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&opened, BCRYPT_SHA256_ALGORITHM, nullptr, 0)) ? opened : nullptr;
  }();
  return algorithm;
}

}  // namespace

Sha256::Sha256() : state_(nullptr, [](void* state) { BCryptDestroyHash(state); }) {
  BCRYPT_HASH_HANDLE state = nullptr;
  const bool made =
      Algorithm() != nullptr && BCRYPT_SUCCESS(BCryptCreateHash(Algorithm(), &state, nullptr, 0, nullptr, 0, 0));
  if (!made) problem_ = "Windows cannot compute SHA-256";
  state_.reset(state);
}

void Sha256::Add(const void* bytes, std::size_t count) {
  auto* from = static_cast<unsigned char*>(const_cast<void*>(bytes));  // only read
  constexpr std::size_t kMost = 1 << 30;
  while (count > 0) {
    const auto part = static_cast<ULONG>(std::min(count, kMost));
    if (!BCRYPT_SUCCESS(BCryptHashData(state_.get(), from, part, 0))) throw std::bad_alloc();
    from += part;
    count -= part;
  }
}

std::array<std::uint8_t, Sha256::kSize> Sha256::Sum() const {
  std::array<std::uint8_t, kSize> sum = {};
  if (!BCRYPT_SUCCESS(BCryptFinishHash(state_.get(), sum.data(), kSize, 0))) throw std::bad_alloc();
  return sum;
}

}  // namespace orba::tool::host
