#include "tools/orba/digest.h"

#include <gcrypt.h>

#include <cstdint>
#include <new>

#include "tools/orba/failure.h"

namespace orba::tool {

namespace {

// The library is to be called once before all else. It has secrets to keep for others, not for us.
bool IsReady() {
  static const bool ready = gcry_check_version(GCRYPT_VERSION) != nullptr &&
                            gcry_control(GCRYCTL_DISABLE_SECMEM, 0) == 0 &&
                            gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0) == 0;
  return ready;
}

}  // namespace

void Digest::Close::operator()(void* handle) const { gcry_md_close(static_cast<gcry_md_hd_t>(handle)); }

Digest::Digest() {
  const std::string what = "cannot compute checksums";
  if (!IsReady()) throw Failure(what, "libgcrypt is older than the one this program was built for", "update it");
  gcry_md_hd_t handle = nullptr;
  const gcry_error_t error = gcry_md_open(&handle, GCRY_MD_SHA256, 0);
  if (gcry_err_code(error) == GPG_ERR_ENOMEM) throw std::bad_alloc();
  if (error != 0) throw Failure(what, gcry_strerror(error), "check how libgcrypt is set up");
  handle_.reset(handle);
}

void Digest::Add(const void* bytes, std::size_t count) {
  gcry_md_write(static_cast<gcry_md_hd_t>(handle_.get()), bytes, count);
}

std::string Digest::Text() const {
  const unsigned char* const bytes = gcry_md_read(static_cast<gcry_md_hd_t>(handle_.get()), GCRY_MD_SHA256);
  std::string text;
  for (unsigned i = 0; i < gcry_md_get_algo_dlen(GCRY_MD_SHA256); ++i) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

}  // namespace orba::tool
