#include "tools/orba/digest.h"

#include "tools/orba/failure.h"

namespace orba::tool {

Digest::Digest() {
  if (!sum_.problem().empty()) throw Failure("cannot compute checksums", sum_.problem(), "update the system");
}

std::string Digest::Text() const {
  std::string text;
  for (const std::uint8_t byte : sum_.Sum()) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace orba::tool
