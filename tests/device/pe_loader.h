// Loads Windows CE DLLs into an ARM Linux process, the way the device does: maps the image away from the address it was
// linked for, applies its base relocations, binds its imports, protects its sections, clears the instruction cache and
// calls the entry point. Addresses keep bit 0 as stored, so ARM and Thumb code both work.
#pragma once

#include <cstdint>
#include <string>

namespace device {

struct Image {
  uint8_t* memory;
  uint32_t size;
  uint32_t entry;    // RVA
  uint32_t exports;  // RVA of the export directory, 0 = exports nothing
};

// Returns the address of what `library` exports as `name`, null if there is no such thing.
using Resolver = void* (*)(const char* library, const char* name);

// Returns the loaded image, or null with the reason in `error` and nothing left behind.
//   where   an address to map at, a multiple of 64 KiB; null leaves the choice to the system. Never the linked address.
Image* LoadImage(const std::string& path, void* where, Resolver resolver, std::string* error);

// Calls the entry point for the last time and unmaps the image.
void UnloadImage(Image* image);

// Returns null if the image does not export `name`.
void* FindExport(const Image& image, const char* name);

// Adds `delta` to every address that the table of base relocations names: kinds 0 (padding), 3 (word), 5 (ARM move
// pair) and 7 (Thumb-2 move pair). Returns false on any other kind, or where the table or what it names leaves the
// image.
//   image    `imageSize` bytes, the whole image as mapped
bool Relocate(uint8_t* image, uint32_t imageSize, uint32_t tableRva, uint32_t tableSize, uint32_t delta);

}  // namespace device
