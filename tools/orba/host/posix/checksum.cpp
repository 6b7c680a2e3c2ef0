#include <gcrypt.h>

#include <algorithm>
#include <new>

#include "tools/orba/host/host.h"

namespace orba::tool::host {

namespace {

// The library is to be called once before all else. It has secrets to keep for others, not for us.
bool IsReady() {
  static const bool ready = gcry_check_version(GCRYPT_VERSION) != nullptr &&
                            gcry_control(GCRYCTL_DISABLE_SECMEM, 0) == 0 &&
                            gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0) == 0;
  return ready;
}

gcry_md_hd_t StateOf(void* state) { return static_cast<gcry_md_hd_t>(state); }

}  // namespace

Sha256::Sha256() : state_(nullptr, [](void* state) { gcry_md_close(StateOf(state)); }) {
  if (!IsReady()) {
    problem_ = "libgcrypt is older than the one this program was built for";
    return;
  }
  gcry_md_hd_t state = nullptr;
  const gcry_error_t error = gcry_md_open(&state, GCRY_MD_SHA256, 0);
  if (gcry_err_code(error) == GPG_ERR_ENOMEM) throw std::bad_alloc();
  if (error != 0) problem_ = gcry_strerror(error);
  state_.reset(state);
}

void Sha256::Add(const void* bytes, std::size_t count) { gcry_md_write(StateOf(state_.get()), bytes, count); }

std::array<std::uint8_t, Sha256::kSize> Sha256::Sum() const {
  std::array<std::uint8_t, kSize> sum = {};
  std::copy_n(gcry_md_read(StateOf(state_.get()), GCRY_MD_SHA256), kSize, sum.begin());
  return sum;
}

}  // namespace orba::tool::host
