// Annotated bytes: what lies where in a container, for eyes. Every line begins with the byte offset in the container,
// then the bytes, then what they mean. Nothing here judges; that is check's business, whose report is taken for
// orientation.
#pragma once

#include <cstdint>
#include <string>

#include "inspect/check/check.h"
#include "inspect/container/image.h"

namespace orba::inspect {

// Each takes the report of a check of the same image, and answers with whole lines. What the container does not hold is
// said in a line.
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
