// The rule for names in directories. Stands on fields.
#pragma once

#include <cstdint>
#include <string>

#include "volume/layout.h"

namespace orba::inspect {

// A letter, a digit or one of ORBA_NAME_SYMBOLS.
bool IsNameCharacter(char c);

// 1 to 29 name characters, and neither "." nor "..". Lower case passes.
bool IsLegalName(const std::string& name);

// A to Z for a to z; nothing else changes.
std::string UpperCase(std::string name);

// The name in an entry: up to its NUL, or all 30 bytes when it has none (which no legal name does).
std::string NameOf(const OrbDirEntry& entry);

// The two entries at `bytes` are "." and "..", each of some node.
bool AreDots(const std::uint8_t* bytes);

// The name with every byte outside the visible ASCII characters, and the backslash, as \xNN: fit for a message.
std::string Printable(const std::string& name);

// Stores a name of at most 29 characters and its NUL in the entry, with zeros behind.
void SetName(OrbDirEntry* entry, const std::string& name);

}  // namespace orba::inspect
