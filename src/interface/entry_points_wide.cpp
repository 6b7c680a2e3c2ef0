// The W forms. Each converts its strings, calls its A form and returns what that returns.
#include "base/text.h"
#include "files/find.h"
#include "interface/entry_points.h"

using namespace orba;

namespace {

// One string to convert, and a number to pass on.
OrbU32 WithAnsi(const OrbWideChar* wide, OrbU32 (*call)(const char*, OrbU32), OrbU32 argument) {
  const AnsiString ansi(wide);
  return ansi.text != nullptr ? call(ansi.text, argument) : 0;
}

// Two strings to convert, in their order.
OrbBool WithTwoAnsi(const OrbWideChar* first, const OrbWideChar* second,
                    OrbBool(ORB_CALL* call)(const char*, const char*)) {
  const AnsiString one(first);
  if (one.text == nullptr) return 0;
  const AnsiString two(second);
  return two.text != nullptr ? call(one.text, two.text) : 0;
}

OrbU32 AsResult(OrbBool result) { return static_cast<OrbU32>(result); }

// Converts a full path into the caller's buffer.
OrbBool WidenPath(OrbWideChar* output, const char* path) {
  return OrbAnsiToWide(output, path, ORB_WIDE_PATH_BUFFER) > 0;
}

// Copies a record, the name last: where that does not convert, the rest is in the caller's record already (Q16).
OrbBool WidenFound(OrbFindDataW* wide, const OrbFindDataA* ansi) {
  wide->attributes = ansi->attributes;
  wide->time = ansi->time;
  wide->size = ansi->size;
  return OrbAnsiToWide(wide->name, ansi->name, sizeof wide->name / sizeof wide->name[0]) > 0;
}

}  // namespace

OrbBool ORB_CALL OrbGetVolumeInfoW(const OrbWideChar* volume, OrbU32* bitmapBytes, OrbU32* blockSize) {
  const AnsiString name(volume);
  return name.text != nullptr ? OrbGetVolumeInfoA(name.text, bitmapBytes, blockSize) : 0;
}

OrbBool ORB_CALL OrbUnmountVolumeW(const OrbWideChar* volume) {
  return static_cast<OrbBool>(WithAnsi(
      volume, [](const char* text, OrbU32) { return AsResult(OrbUnmountVolumeA(text)); }, 0));
}

OrbBool ORB_CALL OrbCreateFileW(const OrbWideChar* path, OrbU32 attributes) {
  return static_cast<OrbBool>(WithAnsi(
      path, [](const char* text, OrbU32 argument) { return AsResult(OrbCreateFileA(text, argument)); }, attributes));
}

OrbBool ORB_CALL OrbCreateDirectoryW(const OrbWideChar* path) { return OrbCreateFileW(path, ORB_ATTRIBUTE_DIRECTORY); }

OrbBool ORB_CALL OrbCopyFileW(const OrbWideChar* source, const OrbWideChar* target) {
  return WithTwoAnsi(source, target, OrbCopyFileA);
}

OrbBool ORB_CALL OrbMoveFileW(const OrbWideChar* source, const OrbWideChar* target) {
  return WithTwoAnsi(source, target, OrbMoveFileA);
}

OrbBool ORB_CALL OrbRenameFileW(const OrbWideChar* path, const OrbWideChar* newName) {
  return WithTwoAnsi(path, newName, OrbRenameFileA);
}

OrbBool ORB_CALL OrbDeleteFileW(const OrbWideChar* path) {
  return static_cast<OrbBool>(WithAnsi(
      path, [](const char* text, OrbU32) { return AsResult(OrbDeleteFileA(text)); }, 0));
}

OrbU32 ORB_CALL OrbGetFileAttributesW(const OrbWideChar* path) {
  return WithAnsi(
      path, [](const char* text, OrbU32) { return OrbGetFileAttributesA(text); }, 0);
}

OrbBool ORB_CALL OrbSetFileAttributesW(const OrbWideChar* path, OrbI32 attributes) {
  return static_cast<OrbBool>(WithAnsi(
      path,
      [](const char* text, OrbU32 argument) {
        return AsResult(OrbSetFileAttributesA(text, static_cast<OrbI32>(argument)));
      },
      static_cast<OrbU32>(attributes)));
}

OrbHandle ORB_CALL OrbOpenFileW(const OrbWideChar* path, OrbU32 mode) {
  return WithAnsi(
      path, [](const char* text, OrbU32 argument) { return OrbOpenFileA(text, argument); }, mode);
}

OrbBool ORB_CALL OrbGetCurrentDirectoryW(OrbWideChar* buffer) {
  if (!Given(buffer)) return 0;
  char path[ORB_PATH_BUFFER];
  return OrbGetCurrentDirectoryA(path) && WidenPath(buffer, path);
}

OrbBool ORB_CALL OrbSetCurrentDirectoryW(const OrbWideChar* path) {
  return static_cast<OrbBool>(WithAnsi(
      path, [](const char* text, OrbU32) { return AsResult(OrbSetCurrentDirectoryA(text)); }, 0));
}

OrbBool ORB_CALL OrbGetFullPathNameW(OrbWideChar* output, const OrbWideChar* path) {
  if (!Given(output)) return 0;
  const AnsiString ansi(path);
  if (ansi.text == nullptr) return 0;
  char full[ORB_PATH_BUFFER];
  return OrbGetFullPathNameA(full, ansi.text) && WidenPath(output, full);
}

OrbHandle ORB_CALL OrbFindFirstFileW(const OrbWideChar* pattern, OrbFindDataW* found) {
  const AnsiString ansi(pattern);
  if (ansi.text == nullptr) return 0;
  if (!Given(found)) return ORB_INVALID_HANDLE;
  OrbFindDataA record;
  const OrbHandle search = OrbFindFirstFileA(ansi.text, &record);
  if (search == ORB_INVALID_HANDLE || WidenFound(found, &record)) return search;
  OrbFindCloseHandle(search);  // not the entry point, which would clear the reason
  return ORB_INVALID_HANDLE;
}

OrbBool ORB_CALL OrbFindNextFileW(OrbHandle search, OrbFindDataW* found) {
  if (!Given(found)) return 0;
  OrbFindDataA record;
  return OrbFindNextFileA(search, &record) && WidenFound(found, &record);
}
