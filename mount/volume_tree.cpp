#include "mount/volume_tree.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/name_symbols.h"
#include "inspect/container/date.h"
#include "inspect/container/names.h"
#include "mount/log.h"
#include "volume/layout.h"

namespace orba::mount {

namespace {

// The library's last failure as POSIX has it. What it has no word for is logged with its code.
int ErrorOf(OrbU32 code, const std::string& path) {
  switch (code) {
    case ORB_ERROR_FILE_NOT_FOUND:
    case ORB_ERROR_PATH_NOT_FOUND:
    case ORB_ERROR_NO_MORE_ENTRIES:
      return ENOENT;
    case ORB_ERROR_FILE_EXISTS:
      return EEXIST;
    case ORB_ERROR_INVALID_NAME:
    case ORB_ERROR_INVALID_ARGUMENT:
      return EINVAL;
    case ORB_ERROR_WRONG_KIND:
      return EISDIR;
    case ORB_ERROR_ACCESS_DENIED:
      return EACCES;
    case ORB_ERROR_NOT_EMPTY:
      return ENOTEMPTY;
    case ORB_ERROR_OUT_OF_MEMORY:
      return ENOMEM;
    case ORB_ERROR_IN_USE:
    case ORB_ERROR_ALREADY_OPEN:
      return EBUSY;
    case ORB_ERROR_NO_FREE_NODE:
    case ORB_ERROR_DISK_FULL:
    case ORB_ERROR_VOLUME_FULL:
      return ENOSPC;
    case ORB_ERROR_WRITE_PROTECTED:
      return EROFS;
    case ORB_ERROR_TOO_MANY_OPEN_FILES:
      return ENFILE;
    default: {
      char number[16];
      std::snprintf(number, sizeof number, "0x%08" PRIX32, static_cast<std::uint32_t>(code));
      Log(path + ": the library reports error " + number);
      return EIO;
    }
  }
}

int LastError(const std::string& path) { return ErrorOf(OrbGetLastError(), path); }

std::int64_t SecondsOf(const OrbTime& time) {
  const TimeStamp stamp = {time.year, time.month, time.day, time.hour, time.minute, time.second, 0};
  return inspect::IsDate(stamp) ? inspect::SecondsSince1970(stamp) : 0;
}

constexpr std::uint32_t kMeasuredGrowth = 16u << 20;  // bytes that a file can get before space is looked for

// Why a name cannot be given.
int RefuseName(const std::string& name) {
  const bool tooLong = name.size() > ORB_MAX_NAME;
  Log("refused the name " + name + ": " +
      (tooLong ? "it has more than " + std::to_string(ORB_MAX_NAME) + " characters"
               : std::string("names have letters, digits and " ORBA_NAME_SYMBOLS)));
  return tooLong ? ENAMETOOLONG : EINVAL;
}

// What a block map can hold: six blocks, those of one map block, and those of as many map blocks as one has room for.
std::uint32_t LargestFile(std::uint64_t blockSize) {
  const std::uint64_t slots = blockSize / sizeof(std::uint32_t);
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(ORB_MAX_FILE_SIZE, (kDirectBlocks + slots + slots * slots) * blockSize));
}

}  // namespace

VolumeTree::VolumeTree(const std::string& volume, VolumeHost host) : volume_(volume + ":"), host_(std::move(host)) {
  if (OrbGetVolumeInfoA(volume.c_str(), nullptr, &blockSize_) != 0) largest_ = LargestFile(blockSize_);
  auto root = std::make_unique<Object>();
  root->inode = next_++;
  root->directory = true;
  root_ = root.get();
  objects_.emplace(root_->inode, std::move(root));
}

VolumeTree::~VolumeTree() {
  std::vector<Object*> hidden;
  for (const auto& [inode, object] : objects_) {
    if (object->hidden) hidden.push_back(object.get());
  }
  for (Object* object : hidden) Delete(object);
  while (!held_.empty()) CloseHandle(held_.front());
}

// ---- Objects --------------------------------------------------------------------------------------------------------

VolumeTree::Object* VolumeTree::ObjectOf(Inode inode) const {
  const auto found = objects_.find(inode);
  return found == objects_.end() ? nullptr : found->second.get();
}

// The object of a name that is there.
VolumeTree::Object* VolumeTree::Meet(Object* directory, const std::string& name, bool isDirectory) {
  const auto known = directory->children.find(name);
  if (known != directory->children.end()) return known->second;
  auto object = std::make_unique<Object>();
  object->inode = next_++;
  object->parent = directory;
  object->name = name;
  object->directory = isDirectory;
  Object* const met = object.get();
  directory->children.emplace(name, met);
  objects_.emplace(met->inode, std::move(object));
  return met;
}

void VolumeTree::Drop(Object* object) {
  object->parent->known = false;
  object->parent->children.erase(object->name);
  objects_.erase(object->inode);
}

void VolumeTree::Reattach(Object* object, Object* directory, const std::string& name) {
  object->parent->known = directory->known = object->known = false;
  object->parent->children.erase(object->name);
  object->parent = directory;
  object->name = name;
  directory->children[name] = object;
}

// The error of the library's last call, which was to change names of the directory and may have changed some.
int VolumeTree::Failed(Object* directory, const std::string& path) {
  const int error = LastError(path);
  directory->known = false;
  directory->unsure = true;
  return error;
}

std::string VolumeTree::PathOf(const Object* object) const {
  std::string path;
  for (const Object* at = object; at->parent != nullptr; at = at->parent) path.insert(0, "/" + at->name);
  return volume_ + path;
}

// ---- Looking --------------------------------------------------------------------------------------------------------

// What stands at a path; of the root, whose path is that of the volume, the first of what it holds, which is itself.
int VolumeTree::Look(const std::string& path, OrbFindDataA* found) const {
  const OrbHandle search = OrbFindFirstFileA((path == volume_ ? path + "/" : path).c_str(), found);
  if (search == ORB_INVALID_HANDLE) return LastError(path);
  OrbFindClose(search);
  return 0;
}

void VolumeTree::Note(Object* object, const OrbFindDataA& found) {
  object->attributes = found.attributes & (kReadOnlyAttribute | kUserAttribute);
  object->size = found.size;
  object->changed = SecondsOf(found.time);
  object->known = true;
}

int VolumeTree::GetObject(Object* object, Status* status) const {
  if (!object->known) {
    OrbFindDataA found = {};
    const int error = Look(PathOf(object), &found);
    if (error != 0) return error;
    Note(object, found);
  }
  status->inode = object->inode;
  status->directory = object->directory;
  status->nameless = object->hidden;
  status->attributes = object->attributes | (object->sealed ? kReadOnlyAttribute : 0);
  status->size = object->size;
  status->changed = object->changed;
  return 0;
}

int VolumeTree::Find(Inode directory, const std::string& name, Status* status) {
  Object* const parent = ObjectOf(directory);
  if (parent == nullptr || !inspect::IsLegalName(name)) return ENOENT;
  const std::string stored = inspect::UpperCase(name);
  std::vector<Child> ignored;
  if (!parent->listed && !parent->unsure && ListObject(parent, &ignored) != 0) parent->unsure = true;
  auto known = parent->children.find(stored);
  if (known != parent->children.end() && known->second->hidden) return ENOENT;
  if (parent->unsure) {
    OrbFindDataA found = {};
    const int error = Look(PathIn(PathOf(parent), stored), &found);
    if (error != 0) return error;
    Object* const object = Meet(parent, stored, (found.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0);
    Note(object, found);
    return GetObject(object, status);
  }
  return known == parent->children.end() ? ENOENT : GetObject(known->second, status);
}

int VolumeTree::Get(Inode inode, Status* status) {
  const auto removed = removed_.find(inode);
  if (removed != removed_.end()) {
    *status = removed->second;
    return 0;
  }
  Object* const object = ObjectOf(inode);
  return object == nullptr ? ENOENT : GetObject(object, status);
}

int VolumeTree::List(Inode directory, std::vector<Child>* children) {
  if (removed_.count(directory) != 0) return 0;
  Object* const object = ObjectOf(directory);
  return object == nullptr ? ENOENT : ListObject(object, children);
}

int VolumeTree::ListObject(Object* directory, std::vector<Child>* children) {
  const std::string path = PathOf(directory);
  OrbFindDataA found = {};
  const OrbHandle search = OrbFindFirstFileA((path + "/").c_str(), &found);
  if (search == ORB_INVALID_HANDLE) return LastError(path);
  do {
    const std::string name = found.name;
    if (name == "." || name == "..") continue;
    Object* const child = Meet(directory, name, (found.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0);
    Note(child, found);
    if (!child->hidden) children->push_back({name, child->directory, child->inode});
  } while (OrbFindNextFileA(search, &found) != 0);
  const OrbU32 code = OrbGetLastError();
  OrbFindClose(search);
  if (code != ORB_ERROR_NO_MORE_ENTRIES) return ErrorOf(code, path);
  directory->listed = true;
  return 0;
}

// ---- Handles --------------------------------------------------------------------------------------------------------

// Sees to it that the file has a handle, and one to write with where that is asked for.
int VolumeTree::Take(Object* file, bool forWriting) {
  if (file->handle != ORB_INVALID_HANDLE && (file->handleWrites || !forWriting)) {
    held_.remove(file);
    held_.push_back(file);
    return 0;
  }
  const int closed = CloseHandle(file);
  if (closed != 0) return closed;
  const int error = OpenHandle(file, ORB_OPEN_READ | ORB_OPEN_WRITE);
  return error == EACCES && !forWriting ? OpenHandle(file, ORB_OPEN_READ) : error;
}

int VolumeTree::OpenHandle(Object* file, OrbU32 mode) {
  const std::string path = PathOf(file);
  OrbHandle handle = OrbOpenFileA(path.c_str(), mode);
  while (handle == ORB_INVALID_HANDLE && OrbGetLastError() == ORB_ERROR_TOO_MANY_OPEN_FILES && !held_.empty()) {
    CloseHandle(held_.front());
    handle = OrbOpenFileA(path.c_str(), mode);
  }
  if (handle == ORB_INVALID_HANDLE) return LastError(path);
  file->handle = handle;
  file->handleWrites = (mode & ORB_OPEN_WRITE) != 0;
  held_.push_back(file);
  return 0;
}

int VolumeTree::CloseHandle(Object* file) {
  if (file->handle == ORB_INVALID_HANDLE) return 0;
  const OrbHandle handle = file->handle;
  file->handle = ORB_INVALID_HANDLE;
  if (file->handleWrites) file->known = false;
  held_.remove(file);
  return OrbCloseFile(handle) != 0 ? 0 : LastError(PathOf(file));
}

// ---- Files ----------------------------------------------------------------------------------------------------------

int VolumeTree::Open(Inode file, bool forWriting) {
  Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  if (object->directory) return EISDIR;
  if (forWriting && object->sealed) return EACCES;
  if (forWriting) {
    const int error = Take(object, true);
    if (error != 0) return error;
  }
  ++(forWriting ? object->writers : object->readers);
  return 0;
}

void VolumeTree::Close(Inode file, bool forWriting) {
  Object* const object = ObjectOf(file);
  if (object == nullptr) return;
  --(forWriting ? object->writers : object->readers);
  if (object->writers == 0 && object->sealed) {
    object->sealed = false;
    Status status;
    int error = GetObject(object, &status);
    if (error == 0) error = SetAttributes(file, status.attributes | kReadOnlyAttribute);
    if (error != 0) Log(PathOf(object) + ": cannot be made read-only: " + std::strerror(error));
  }
  if (object->IsOpen()) return;
  if (object->hidden) {
    Delete(object);
  } else {
    CloseHandle(object);
  }
}

int VolumeTree::Read(Inode file, std::uint64_t position, void* bytes, std::size_t count, std::size_t* done) {
  *done = 0;
  Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  const int error = Take(object, false);
  if (error != 0) return error;
  const OrbU32 size = OrbGetFileSize(object->handle);
  if (size == ORB_INVALID_SIZE) return LastError(PathOf(object));
  if (position >= size) return 0;
  const auto wanted = static_cast<OrbU32>(std::min<std::uint64_t>(count, size - position));
  OrbU32 read = 0;
  if (OrbSetFilePointer(object->handle, static_cast<OrbI32>(position), ORB_SEEK_BEGIN) == ORB_INVALID_POSITION ||
      OrbReadFile(object->handle, bytes, wanted, &read) == 0) {
    return LastError(PathOf(object));
  }
  *done = read;
  return 0;
}

// Gives a file with a handle this size, or leaves it the one it had. What cannot have room is not begun: to fill a
// container with zeros and take them away again can take a minute.
int VolumeTree::Extend(Object* file, OrbU32 size) {
  const OrbU32 before = OrbGetFileSize(file->handle);
  if (before == ORB_INVALID_SIZE) return LastError(PathOf(file));
  Space space;
  if (size > before && size - before > kMeasuredGrowth && Measure(&space) == 0 &&
      (size - before) / space.blockSize > space.free) {
    return ENOSPC;
  }
  if (OrbSetFileSize(file->handle, size) != 0) return 0;
  const int error = LastError(PathOf(file));
  OrbSetFileSize(file->handle, before);
  file->cut = true;
  return error;
}

int VolumeTree::Write(Inode file, std::uint64_t position, const void* bytes, std::size_t count, std::size_t* done) {
  *done = 0;
  Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  if (count == 0) return 0;
  if (position >= largest_) return EFBIG;
  const int error = Take(object, true);
  if (error != 0) return error;
  object->known = false;
  const OrbU32 size = OrbGetFileSize(object->handle);
  if (size == ORB_INVALID_SIZE) return LastError(PathOf(object));
  const auto start = static_cast<OrbU32>(position);
  if (start > size) {
    const int extended = Extend(object, start);
    if (extended != 0) return extended;
  }
  const auto wanted = static_cast<OrbU32>(std::min<std::uint64_t>(count, largest_ - position));
  OrbU32 written = 0;
  if (OrbSetFilePointer(object->handle, static_cast<OrbI32>(start), ORB_SEEK_BEGIN) == ORB_INVALID_POSITION ||
      (OrbWriteFile(object->handle, bytes, wanted, &written) == 0 && written == 0)) {
    const int failed = LastError(PathOf(object));
    if (start > size) {
      OrbSetFileSize(object->handle, size);
      object->cut = true;
    }
    return failed;
  }
  *done = written;
  return 0;
}

int VolumeTree::Resize(Inode file, std::uint64_t size) {
  Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  if (size > largest_) return EFBIG;
  const int error = Take(object, true);
  if (error != 0) return error;
  object->known = false;
  object->cut = object->cut || OrbGetFileSize(object->handle) > size;
  return Extend(object, static_cast<OrbU32>(size));
}

// While somebody writes, the library does not make a file read-only, nor change anything of an open one.
int VolumeTree::SetAttributes(Inode file, std::uint32_t attributes) {
  Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  if (object->directory) return EISDIR;
  const int closed = CloseHandle(object);
  if (closed != 0) return closed;
  const bool sealed = object->writers > 0 && (attributes & kReadOnlyAttribute) != 0;
  const std::uint32_t now = sealed ? attributes & ~kReadOnlyAttribute : attributes;
  object->known = false;
  if (OrbSetFileAttributesA(PathOf(object).c_str(), static_cast<OrbI32>(now)) == 0) return LastError(PathOf(object));
  object->sealed = sealed;
  return 0;
}

// Flushing any file does; without one the container itself is synced.
int VolumeTree::Sync() {
  if (held_.empty()) return host_.sync();
  return OrbFlushFileBuffers(held_.back()->handle) != 0 ? 0 : LastError(PathOf(held_.back()));
}

// ---- Names ----------------------------------------------------------------------------------------------------------

int VolumeTree::Create(Inode directory, const std::string& name, bool asDirectory, Status* status) {
  Object* const parent = ObjectOf(directory);
  if (parent == nullptr) return ENOENT;
  if (!inspect::IsLegalName(name)) return RefuseName(name);
  const std::string stored = inspect::UpperCase(name);
  const std::string path = PathIn(PathOf(parent), stored);
  if (OrbCreateFileA(path.c_str(), asDirectory ? ORB_ATTRIBUTE_DIRECTORY : 0) == 0) return Failed(parent, path);
  parent->known = false;
  return GetObject(Meet(parent, stored, asDirectory), status);
}

int VolumeTree::Remove(Inode directory, const std::string& name) {
  Status status;
  const int error = Find(directory, name, &status);
  if (error != 0) return error;
  Object* const object = ObjectOf(status.inode);
  if (object->IsOpen()) return Hide(object);
  if (!object->directory) return Delete(object);
  std::vector<Child> children;
  const int listed = ListObject(object, &children);
  if (listed != 0) return listed;
  if (!children.empty()) return ENOTEMPTY;
  const int cleared = ClearHidden(object);
  return cleared != 0 ? cleared : Delete(object);
}

// Why `object` cannot take the place of `target`.
int VolumeTree::CheckReplacement(const Object* object, Object* target) {
  if (object->directory && !target->directory) return ENOTDIR;
  if (!object->directory && target->directory) return EISDIR;
  if (!target->directory) return 0;
  std::vector<Child> children;
  const int error = ListObject(target, &children);
  if (error != 0) return error;
  return children.empty() ? 0 : ENOTEMPTY;
}

// Of an overwritten file or directory:
//   1. it gets a name that no caller sees,
//   2. the object gets its new name,
//   3. it is deleted, unless it is open.
int VolumeTree::Rename(Inode from, const std::string& name, Inode to, const std::string& newName, bool overwrite) {
  Status status;
  const int missing = Find(from, name, &status);
  if (missing != 0) return missing;
  Object* const object = ObjectOf(status.inode);
  Object* const directory = ObjectOf(to);
  if (directory == nullptr) return ENOENT;
  if (!inspect::IsLegalName(newName)) return RefuseName(newName);
  const std::string stored = inspect::UpperCase(newName);

  const int found = Find(to, stored, &status);
  if (found == ENOENT) return Move(object, directory, stored);
  if (found != 0) return found;
  if (!overwrite) return EEXIST;
  Object* const target = ObjectOf(status.inode);
  if (target == object) return 0;  // its name in other letter case
  int error = CheckReplacement(object, target);
  if (error == 0) error = ClearHidden(target);
  if (error == 0) error = Hide(target);
  if (error != 0) return error;
  error = Move(object, directory, stored);
  if (error != 0) {
    target->hidden = false;  // were it not to get its name back, it is still not to be deleted
    const int back = Move(target, directory, stored);
    if (back != 0) Log(PathOf(target) + ": cannot be given back its name " + stored + ": " + std::strerror(back));
    return error;
  }
  if (!target->IsOpen()) Delete(target);
  return 0;
}

int VolumeTree::Move(Object* object, Object* directory, const std::string& name) {
  const std::string path = PathOf(object);
  if (object->parent == directory) {
    if (OrbRenameFileA(path.c_str(), name.c_str()) == 0) return Failed(directory, path);
  } else {
    const int closed = CloseHandle(object);  // what is open cannot be moved
    if (closed != 0) return closed;
    if (OrbMoveFileA(path.c_str(), PathIn(PathOf(directory), name).c_str()) == 0) {
      object->parent->unsure = true;
      return Failed(directory, path);
    }
  }
  Reattach(object, directory, name);
  return 0;
}

// A name of the kind that the tool, too, has for what is being replaced.
int VolumeTree::FreeName(const Object* directory, std::string* name) const {
  const std::string path = PathOf(directory);
  for (unsigned number = 1;; ++number) {
    *name = "~ORBA-" + std::to_string(number) + ".TMP";
    OrbFindDataA found = {};
    const int error = Look(PathIn(path, *name), &found);
    if (error != 0) return error == ENOENT ? 0 : error;
  }
}

int VolumeTree::Hide(Object* object) {
  std::string name;
  int error = FreeName(object->parent, &name);
  if (error == 0) error = Move(object, object->parent, name);
  if (error == 0) object->hidden = true;
  return error;
}

// Before a directory goes: what in it has lost its name but is open goes on in the root.
int VolumeTree::ClearHidden(Object* directory) {
  std::vector<Object*> hidden;
  for (const auto& [name, object] : directory->children) {
    if (object->hidden) hidden.push_back(object);
  }
  for (Object* object : hidden) {
    std::string name;
    int error = FreeName(root_, &name);
    if (error == 0) error = Move(object, root_, name);
    if (error != 0) return error;
  }
  return 0;
}

int VolumeTree::Delete(Object* object) {
  const std::string path = PathOf(object);
  // Deleting frees the whole map of files that have six blocks. Should there be no space, it frees the rest.
  if (object->cut && Take(object, true) == 0 && OrbGetFileSize(object->handle) < kDirectBlocks * blockSize_) {
    OrbSetFileSize(object->handle, kDirectBlocks * blockSize_);
  }
  CloseHandle(object);
  Status last;
  last.inode = object->inode;
  GetObject(object, &last);
  if (OrbDeleteFileA(path.c_str()) == 0) return Failed(object->parent, path);
  last.nameless = true;
  removed_.emplace(last.inode, last);
  Drop(object);
  return 0;
}

}  // namespace orba::mount
