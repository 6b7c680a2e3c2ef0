// What the bytes of a fuzz input mean: a container, nearly always a damaged one, and what to do with it. Every row of
// bytes means something; bytes that are missing are zeros.
//
// An input that begins with "ORBA" is the container itself. Any other holds:
//   byte 0  the sound container to begin with, one of a few
//   byte 1  how many choices follow
//   then    the choices, 4 bytes each: for the target to understand
//   rest    the patches, 6 bytes each: class of place, kind of change, place and value (16 bits each, little-endian)
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

struct Choice {
  std::uint8_t what, first, second, amount;
};

struct Input {
  Bytes image;
  std::vector<Choice> choices;
};

Input ReadInput(const std::uint8_t* data, std::size_t size);

constexpr std::size_t kPatchSize = 6;

// A new input of at most 266 bytes, its patches last; the same for the same seed.
Bytes RandomInput(std::uint64_t seed);

// Ends the program where a promise is broken, with a text that says which.
void Require(bool kept, const std::string& promise);

}  // namespace fuzz
