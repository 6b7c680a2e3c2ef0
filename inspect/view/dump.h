// Annotated bytes: what lies where in a container. Every line begins with the byte offset in the container, then the
// bytes, then what they mean. Nothing here judges: that is the checker's task, whose report says what to expect where.
// Stands on check.
#pragma once

#include <cstdint>
#include <string>

#include "inspect/check/check.h"
#include "inspect/container/image.h"

namespace orba::inspect {

// Each takes the report of a check of the same image and returns whole lines, one of them for what the container does
// not hold.
std::string DumpHeader(const Image& image);
std::string DumpTable(const Report& report);
std::string DumpBitmap(const Report& report);
std::string DumpNode(const Image& image, const Report& report, std::uint32_t number);
std::string DumpBlock(const Image& image, const Report& report, std::uint32_t block);
std::string DumpChain(const Image& image, const Report& report);
std::string DumpDirectory(const Image& image, const Report& report, std::uint32_t number);

// `count` bytes from `offset` as hexadecimal and text, 16 a line; lines that repeat are left out with "*".
std::string DumpBytes(const Image& image, std::uint64_t offset, std::uint64_t count);

}  // namespace orba::inspect
