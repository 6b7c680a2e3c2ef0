#include "interface/entry_points.h"

#include <string.h>

#include "base/byte_order.h"
#include "base/text.h"
#include "files/find.h"
#include "files/open_file.h"
#include "files/transfer.h"
#include "namespace/current_directory.h"
#include "namespace/directory.h"
#include "namespace/path.h"
#include "operations/attributes.h"
#include "operations/copy.h"
#include "operations/create.h"
#include "operations/format.h"
#include "operations/full_path.h"
#include "operations/mount.h"
#include "operations/move.h"
#include "operations/remove.h"
#include "space/block_io.h"
#include "volume/time_stamp.h"

using namespace orba;

namespace {

constexpr OrbU32 kDefaultBitmapSize = 1024;
constexpr OrbU32 kDefaultBlockSize = 4096;

// Step 1 of the frame, and the first pointer of step 2.
[[gnu::noinline]] bool Begin(const void* required) {
  ClearError();
  return Given(required);
}

// The same for a transfer: what was done is 0 before anything else is looked at.
bool BeginTransfer(const void* buffer, OrbU32 count, OrbU32* done) {
  if (!Begin(done)) return false;
  *done = 0;
  return count == 0 || Given(buffer);
}

// Step 4 of the frame. The volume is null for an invalid handle: the operation's result stands.
OrbBool Commit(Volume* volume, bool done) {
  if (volume == nullptr) return done;
  return OrbCommitVolume(volume) && done;
}

// Steps 4 and 5 of the frame for the directory that was worked on.
OrbBool CommitAndRelease(OrbNode* directory, bool done) {
  const NodeRef held(directory);
  return Commit(directory->volume, done);
}

// Fails and keeps the reference on the source (Q4).
OrbBool FailKeeping(NodeRef* source) {
  source->Take();
  return 0;
}

// The directory to search, held, and the pattern. A path that ends in a separator is the directory itself, all of it.
OrbNode* ResolvePattern(char* pattern, const char* path) {
  if (!EndsInSeparator(path)) return OrbWalkPath(pattern, path);
  pattern[0] = '\0';
  return ResolveDirectory(path);
}

}  // namespace

// ---- Volumes --------------------------------------------------------------------------------------------------------

OrbBool ORB_CALL OrbCreateVolume(const OrbWideChar* container) {
  return OrbCreateVolumeEx(container, kDefaultBitmapSize, kDefaultBlockSize);
}

OrbBool ORB_CALL OrbCreateVolumeEx(const OrbWideChar* container, OrbU32 bitmapBytes, OrbU32 blockSize) {
  return Begin(container) && FormatVolume(container, bitmapBytes, blockSize);
}

OrbBool ORB_CALL OrbMountVolume(const OrbWideChar* container, const OrbWideChar* volume) {
  if (!Begin(container)) return 0;
  const AnsiString name(volume);
  return name.text != nullptr && MountVolume(container, name.text);
}

OrbBool ORB_CALL OrbGetVolumeInfoA(const char* volume, OrbU32* bitmapBytes, OrbU32* blockSize) {
  return Begin(volume) && GetVolumeInfo(volume, bitmapBytes, blockSize);
}

OrbBool ORB_CALL OrbUnmountVolumeA(const char* volume) { return Begin(volume) && UnmountVolume(volume); }

// ---- Files and directories by name ----------------------------------------------------------------------------------

OrbBool ORB_CALL OrbCreateFileA(const char* path, OrbU32 attributes) {
  if (!Begin(path)) return 0;
  char name[kNameSize];
  NodeRef parent(OrbWalkPath(name, path));
  if (parent.node == nullptr) return 0;
  if (EndsInSeparator(path)) name[0] = '\0';  // there is no name to create
  const bool created = OrbCreateNodeAt(parent.node, name, static_cast<uint16_t>(attributes));
  return CommitAndRelease(parent.Take(), created);
}

OrbBool ORB_CALL OrbCreateDirectoryA(const char* path) { return OrbCreateFileA(path, ORB_ATTRIBUTE_DIRECTORY); }

OrbBool ORB_CALL OrbCopyFileA(const char* source, const char* target) {
  if (!Begin(source) || !Given(target)) return 0;
  NodeRef file(ResolveFile(source));
  if (file.node == nullptr) return 0;
  char name[kNameSize];
  NodeRef directory(OrbWalkPath(name, target));
  if (directory.node == nullptr) return FailKeeping(&file);
  const bool copied = OrbCopyNodeTo(directory.node, name, file.node);
  return CommitAndRelease(directory.Take(), copied);
}

OrbBool ORB_CALL OrbMoveFileA(const char* source, const char* target) {
  if (!Begin(source) || !Given(target)) return 0;
  char fromName[kNameSize];
  char toName[kNameSize];
  NodeRef from(OrbWalkPath(fromName, source));
  if (from.node == nullptr) return 0;
  NodeRef to(OrbWalkPath(toName, target));
  if (to.node == nullptr) return FailKeeping(&from);
  const bool moved = OrbMoveNode(to.node, toName, from.node, fromName);
  return CommitAndRelease(to.Take(), moved);
}

OrbBool ORB_CALL OrbRenameFileA(const char* path, const char* newName) {
  if (!Begin(path) || !Given(newName)) return 0;
  char name[kNameSize];
  NodeRef directory(OrbWalkPath(name, path));
  if (directory.node == nullptr) return 0;
  const bool renamed = OrbDirRenameEntry(directory.node, newName, name, true);
  return CommitAndRelease(directory.Take(), renamed);
}

OrbBool ORB_CALL OrbDeleteFileA(const char* path) {
  if (!Begin(path)) return 0;
  char name[kNameSize];
  NodeRef parent(OrbWalkPath(name, path));
  if (parent.node == nullptr) return 0;
  const bool deleted = OrbDeleteNodeAt(parent.node, name);
  return CommitAndRelease(parent.Take(), deleted);
}

OrbU32 ORB_CALL OrbGetFileAttributesA(const char* path) {
  if (!Begin(path)) return ORB_INVALID_ATTRIBUTES;  // 16 bits (Q2)
  const NodeRef node(ResolveFile(path));
  return node.node != nullptr ? node.node->record.attributes : ORB_INVALID_ATTRIBUTES;
}

OrbBool ORB_CALL OrbSetFileAttributesA(const char* path, OrbI32 attributes) {
  if (!Begin(path) || !AreSettable(attributes)) return 0;
  const NodeRef file(ResolveFile(path));
  if (file.node == nullptr || !MaySetAttributes(file.node, attributes)) return 0;  // nothing done: nothing to commit
  return Commit(file.node->volume, OrbSetAttributes(file.node, static_cast<uint16_t>(attributes)));
}

// ---- Open files -----------------------------------------------------------------------------------------------------

OrbHandle ORB_CALL OrbOpenFileA(const char* path, OrbU32 mode) {
  if (!Begin(path)) return ORB_INVALID_HANDLE;
  const NodeRef file(ResolveFile(path));
  return file.node != nullptr ? OrbOpenFile(file.node, static_cast<uint16_t>(mode)) : ORB_INVALID_HANDLE;
}

OrbU32 ORB_CALL OrbSetFilePointer(OrbHandle file, OrbI32 distance, OrbU32 origin) {
  ClearError();
  return OrbSeekFile(file, distance, origin);
}

OrbBool ORB_CALL OrbReadFile(OrbHandle file, void* buffer, OrbU32 count, OrbU32* done) {
  if (!BeginTransfer(buffer, count, done)) return 0;
  return OrbReadOpenFile(file, buffer, count, done);
}

OrbBool ORB_CALL OrbWriteFile(OrbHandle file, const void* buffer, OrbU32 count, OrbU32* done) {
  if (!BeginTransfer(buffer, count, done)) return 0;
  const bool written = OrbWriteOpenFile(file, buffer, count, done);
  return Commit(OrbGetHandleVolume(file), written);
}

OrbBool ORB_CALL OrbFlushFileBuffers(OrbHandle file) {
  ClearError();
  return OrbFlushFile(file);
}

OrbBool ORB_CALL OrbSetFileSize(OrbHandle file, OrbU32 size) {
  ClearError();
  const bool resized = OrbSetOpenFileSize(file, size);
  return Commit(OrbGetHandleVolume(file), resized);
}

OrbU32 ORB_CALL OrbGetFileSize(OrbHandle file) {
  ClearError();
  return OrbGetOpenFileSize(file);
}

OrbBool ORB_CALL OrbCloseFile(OrbHandle file) {
  ClearError();
  return OrbCloseOpenFile(file);
}

// ---- Current directory and full path names --------------------------------------------------------------------------

OrbBool ORB_CALL OrbGetCurrentDirectoryA(char* buffer) { return Begin(buffer) && OrbGetFullPathName(buffer, "."); }

OrbBool ORB_CALL OrbSetCurrentDirectoryA(const char* path) {
  if (!Begin(path)) return 0;
  const NodeRef directory(ResolveDirectory(path));
  return directory.node != nullptr && OrbSetCurrentDirNode(directory.node);
}

OrbBool ORB_CALL OrbGetFullPathNameA(char* output, const char* path) {
  return Begin(output) && Given(path) && OrbGetFullPathName(output, path);
}

// ---- Searches -------------------------------------------------------------------------------------------------------

OrbHandle ORB_CALL OrbFindFirstFileA(const char* pattern, OrbFindDataA* found) {
  if (!Begin(pattern) || !Given(found)) return ORB_INVALID_HANDLE;
  char name[kNameSize];
  const NodeRef directory(ResolvePattern(name, pattern));
  if (directory.node == nullptr) return ORB_INVALID_HANDLE;
  const OrbHandle search = OrbFindOpen(directory.node, name);
  if (search == ORB_INVALID_HANDLE || OrbFindNext(search, found)) return search;
  OrbFindCloseHandle(search);
  return ORB_INVALID_HANDLE;
}

OrbBool ORB_CALL OrbFindNextFileA(OrbHandle search, OrbFindDataA* found) {
  return Begin(found) && OrbFindNext(search, found);
}

OrbBool ORB_CALL OrbFindClose(OrbHandle search) {
  ClearError();
  return OrbFindCloseHandle(search);
}

// ---- Errors, time, byte order ---------------------------------------------------------------------------------------

OrbU32 ORB_CALL OrbGetLastError(void) { return GetError(); }

// The names as callers link to them (Q3).

void ORB_CALL _OrbSetError(OrbU32 code) { SetError(code); }

void ORB_CALL _OrbCrearError(void) { ClearError(); }

void ORB_CALL OrbConvertEndian(void* bytes, OrbU32 n) {
  ClearError();
  if (n > 0 && Given(bytes)) ConvertBytes(bytes, n);
}

void ORB_CALL OrbGetTime(OrbTime* now) {
  if (!Begin(now)) return;
  TimeStamp stamp;
  GetTime(&stamp);
  memcpy(static_cast<void*>(now), &stamp, offsetof(TimeStamp, reserved));  // seven bytes, wherever they lie
}
