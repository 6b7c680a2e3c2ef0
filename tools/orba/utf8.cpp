#include "tools/orba/utf8.h"

namespace orba::tool {

namespace {

// The bytes of the character of a UTF-8 text that begins with `first`, 0 where none does.
std::size_t LengthOfCharacter(unsigned char first) {
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  if (first < 0xE0) return 2;
  return first < 0xF0 ? 3 : 4;
}

}  // namespace

std::uint32_t NextCharacter(const std::string& text, std::size_t* at) {
  const auto first = static_cast<unsigned char>(text[*at]);
  const std::size_t length = LengthOfCharacter(first);
  if (length == 0 || text.size() - *at < length) return kNoCharacter;
  std::uint32_t character = length == 1 ? first : first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[*at + i]);
    if ((byte & 0xC0) != 0x80) return kNoCharacter;
    character = character << 6 | (byte & 0x3F);
  }
  *at += length;
  const bool overlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  return overlong || surrogate || character > 0x10FFFF ? kNoCharacter : character;
}

}  // namespace orba::tool
