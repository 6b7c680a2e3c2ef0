// Layer: byte order. Containers are little-endian; every multi-byte field passes through here on its way in and out,
// one field at a time. Stands on nothing.
#pragma once

#include <stdint.h>

namespace orba {

// A property of the build: every device the library runs on is little-endian, so conversion is the identity.
constexpr bool kHostIsLittleEndian = true;

// Converts one field of n bytes between disk and host order, in place; its own inverse. On a big-endian host it
// reverses the bytes; n below 2 changes nothing.
void ConvertBytes(void* field, uint32_t n, bool hostIsLittleEndian = kHostIsLittleEndian);

// The same for a field of a record; costs nothing where it is the identity.
template <typename Integer>
void ConvertField(Integer* field) {
  if constexpr (!kHostIsLittleEndian) ConvertBytes(field, sizeof *field);
}

// Converts count words, each on its own.
inline void ConvertWords(uint32_t* words, uint32_t count) {
  if constexpr (!kHostIsLittleEndian) {
    for (uint32_t i = 0; i < count; ++i) ConvertBytes(&words[i], sizeof words[i]);
  }
}

}  // namespace orba
