#include "base/byte_order.h"

namespace orba {

void ConvertBytes(void* field, uint32_t n, bool hostIsLittleEndian) {
  if (hostIsLittleEndian) return;
  uint8_t* bytes = static_cast<uint8_t*>(field);
  for (uint32_t i = 0; i < n / 2; ++i) {
    const uint8_t byte = bytes[i];
    bytes[i] = bytes[n - 1 - i];
    bytes[n - 1 - i] = byte;
  }
}

}  // namespace orba
