// The W forms. Each converts its strings, calls its A form and returns what that returns.
#include "files/find.h"
#include "interface/entry_points.h"
#include "interface/text.h"

using namespace orba;

namespace {

// Converts a full path into the caller's buffer.
OrbBool WidenPath(OrbWideChar* output, const char* path) {
  return OrbAnsiToWide(output, path, ORB_WIDE_PATH_BUFFER) > 0;
}

// Copies a record, the name last: where that does not convert, the rest is in the caller's record already.
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
  const AnsiString name(volume);
  return name.text != nullptr ? OrbUnmountVolumeA(name.text) : 0;
}

OrbBool ORB_CALL OrbCreateFileW(const OrbWideChar* path, OrbU32 attributes) {
  const AnsiString ansi(path);
  return ansi.text != nullptr ? OrbCreateFileA(ansi.text, attributes) : 0;
}

OrbBool ORB_CALL OrbCreateDirectoryW(const OrbWideChar* path) { return OrbCreateFileW(path, ORB_ATTRIBUTE_DIRECTORY); }

OrbBool ORB_CALL OrbCopyFileW(const OrbWideChar* source, const OrbWideChar* target) {
  const AnsiString from(source);
  if (from.text == nullptr) return 0;
  const AnsiString to(target);
  return to.text != nullptr ? OrbCopyFileA(from.text, to.text) : 0;
}

OrbBool ORB_CALL OrbMoveFileW(const OrbWideChar* source, const OrbWideChar* target) {
  const AnsiString from(source);
  if (from.text == nullptr) return 0;
  const AnsiString to(target);
  return to.text != nullptr ? OrbMoveFileA(from.text, to.text) : 0;
}

OrbBool ORB_CALL OrbRenameFileW(const OrbWideChar* path, const OrbWideChar* newName) {
  const AnsiString ansi(path);
  if (ansi.text == nullptr) return 0;
  const AnsiString name(newName);
  return name.text != nullptr ? OrbRenameFileA(ansi.text, name.text) : 0;
}

OrbBool ORB_CALL OrbDeleteFileW(const OrbWideChar* path) {
  const AnsiString ansi(path);
  return ansi.text != nullptr ? OrbDeleteFileA(ansi.text) : 0;
}

OrbU32 ORB_CALL OrbGetFileAttributesW(const OrbWideChar* path) {
  const AnsiString ansi(path);
  return ansi.text != nullptr ? OrbGetFileAttributesA(ansi.text) : 0;
}

OrbBool ORB_CALL OrbSetFileAttributesW(const OrbWideChar* path, OrbI32 attributes) {
  const AnsiString ansi(path);
  return ansi.text != nullptr ? OrbSetFileAttributesA(ansi.text, attributes) : 0;
}

OrbHandle ORB_CALL OrbOpenFileW(const OrbWideChar* path, OrbU32 mode) {
  const AnsiString ansi(path);
  return ansi.text != nullptr ? OrbOpenFileA(ansi.text, mode) : 0;
}

OrbBool ORB_CALL OrbGetCurrentDirectoryW(OrbWideChar* buffer) {
  if (!Given(buffer)) return 0;
  char path[ORB_PATH_BUFFER];
  return OrbGetCurrentDirectoryA(path) && WidenPath(buffer, path);
}

OrbBool ORB_CALL OrbSetCurrentDirectoryW(const OrbWideChar* path) {
  const AnsiString ansi(path);
  return ansi.text != nullptr ? OrbSetCurrentDirectoryA(ansi.text) : 0;
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
