// Characters of UTF-8 texts: the host's names may hold any bytes. Stands on nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orba::tool {

constexpr std::uint32_t kNoCharacter = 0xFFFFFFFF;

// The character at `*at`, which moves behind it; kNoCharacter where there is none, and then `*at` may stay.
std::uint32_t NextCharacter(const std::string& text, std::size_t* at);

}  // namespace orba::tool
