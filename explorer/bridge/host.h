// What the module asks of the page that runs it. Everything else it holds itself.
#pragma once

#include <cstdint>

namespace orba::explorer {

#define ORBA_HOST(name) extern "C" __attribute__((import_module("host"), import_name(name)))

// Copies `count` bytes from byte `offset` of the container to `to`. 0 when the browser cannot read them, as when the
// file has changed or gone.
ORBA_HOST("read") std::int32_t HostRead(double offset, std::uint8_t* to, std::uint32_t count);

// What a recovery finds, in order: a directory; a file, whose pieces follow; a piece; the file's end, 1 when it is
// whole. Paths are `length` bytes long.
ORBA_HOST("directory") void HostDirectory(const char* path, std::uint32_t length);
ORBA_HOST("file") void HostFile(const char* path, std::uint32_t length, double seconds);
ORBA_HOST("piece") void HostPiece(const std::uint8_t* bytes, std::uint32_t count);
ORBA_HOST("end") void HostEnd(std::int32_t whole);

#undef ORBA_HOST

}  // namespace orba::explorer
