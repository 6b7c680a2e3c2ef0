#include "inspect/container/names.h"

#include <algorithm>
#include <cstring>

#include "base/name_symbols.h"
#include "inspect/container/fields.h"

namespace orba::inspect {

bool IsNameCharacter(char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  return c != '\0' && std::strchr(ORBA_NAME_SYMBOLS, c) != nullptr;
}

bool IsLegalName(const std::string& name) {
  if (name.empty() || name.size() >= kNameSize || name == "." || name == "..") return false;
  return std::all_of(name.begin(), name.end(), IsNameCharacter);
}

std::string UpperCase(std::string name) {
  for (char& c : name) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return name;
}

std::string NameOf(const OrbDirEntry& entry) {
  const void* end = std::memchr(entry.name, 0, kNameSize);
  return std::string(entry.name, end == nullptr ? entry.name + kNameSize : static_cast<const char*>(end));
}

bool AreDots(const std::uint8_t* bytes) {
  const OrbDirEntry self = DecodeEntry(bytes);
  const OrbDirEntry parent = DecodeEntry(bytes + kDirEntrySize);
  return self.node != 0 && NameOf(self) == "." && parent.node != 0 && NameOf(parent) == "..";
}

std::string Printable(const std::string& name) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F && byte != '\\') {
      text += c;
    } else {
      text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return text;
}

void SetName(OrbDirEntry* entry, const std::string& name) {
  std::memset(entry->name, 0, kNameSize);
  std::memcpy(entry->name, name.data(), std::min<std::size_t>(name.size(), kNameSize - 1));
}

}  // namespace orba::inspect
