// Files behind 32-bit handles. Position and size belong to the handle: the exclusive lock keeps the size ours, so
// seeking and asking for the size need no system call. It keeps the bytes ours as well, so those read lately are
// cached; a write is one positional call, at once.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/posix.h"
#include "platform/posix/read_cache.h"

namespace orba {
namespace {

static_assert(sizeof(off_t) == 8, "build a 32-bit host with _FILE_OFFSET_BITS=64");

// How a file is kept from other opens: as file systems allow.
enum class Lock : uint8_t { kWhole, kRange, kNone };

struct OpenFile {
  int descriptor;  // kUnused while the entry is free
  Lock lock;
  bool synced;    // flushed by this handle, and not written to since
  uint32_t lost;  // the host code with which a flush failed, or 0
  uint64_t position;
  uint64_t size;
  posix::ReadCache* cache;  // null before the first read, and without memory or a lock
};

constexpr int kUnused = -1;
constexpr uint32_t kFirstTableSize = 8;

// Handle n is entry n - 1. There are never more handles than descriptors, so none comes near the reserved values
// 0xFFFFFFFE and 0xFFFFFFFF. The table lives while a file is open.
OpenFile* g_files;
uint32_t g_tableSize;
uint32_t g_openFiles;

OpenFile* FindOpenFile(coredll::Handle handle) {
  const uint32_t entry = handle - 1;
  if (entry < g_tableSize && g_files[entry].descriptor != kUnused) return &g_files[entry];
  posix::SetLastError(coredll::kHostInvalidHandle);
  return nullptr;
}

// A free entry, or null without memory for one.
OpenFile* FreeEntry() {
  for (uint32_t i = 0; i < g_tableSize; i++) {
    if (g_files[i].descriptor == kUnused) return &g_files[i];
  }
  const uint32_t grown = g_tableSize == 0 ? kFirstTableSize : 2 * g_tableSize;
  auto* files = static_cast<OpenFile*>(realloc(g_files, grown * sizeof(OpenFile)));
  if (files == nullptr) return nullptr;
  for (uint32_t i = g_tableSize; i < grown; i++) files[i].descriptor = kUnused;
  OpenFile* entry = &files[g_tableSize];
  g_files = files;
  g_tableSize = grown;
  return entry;
}

void FreeTableIfUnused() {
  if (g_openFiles != 0) return;
  free(g_files);
  g_files = nullptr;
  g_tableSize = 0;
}

int32_t FailErrno() { return posix::Fail(posix::HostErrorFromErrno(errno)); }

// Writes the folder part of `path` to `folder`, which holds PATH_MAX bytes as `path` does.
void FolderOf(const char* path, char* folder) {
  const char* slash = strrchr(path, '/');
  if (slash == nullptr) path = "./", slash = path + 1;
  const size_t length = static_cast<size_t>(slash + 1 - path);
  memcpy(folder, path, length);
  folder[length] = '\0';
}

// The host code for `error`, with which opening `path` failed.
uint32_t OpenError(const char* path, int error) {
  if (error == EINVAL) return coredll::kHostInvalidName;
  if (error == ENOENT) {
    char folder[PATH_MAX];
    struct stat status;
    FolderOf(path, folder);
    if (stat(folder, &status) != 0) return coredll::kHostPathNotFound;
  }
  return posix::HostErrorFromErrno(error);
}

// Opens without waiting for whoever is at the other end of a FIFO or device.
int OpenDescriptor(const char* path, int flags) {
  int descriptor;
  do {
    descriptor = open(path, flags | O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

// Exchanges a descriptor that stands for standard input or output, in a process that closed them, for one that does
// not: a message printed there would land in the file. False, with errno, without another descriptor.
bool LeaveStandardStreams(int* descriptor) {
  if (*descriptor > STDERR_FILENO) return true;
  const int other = fcntl(*descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (other < 0) return false;
  close(*descriptor);
  *descriptor = other;
  return true;
}

bool LockUnsupported(int error) { return error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP; }

int LockRange(int descriptor, short type) {
  struct flock range = {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  int result;
  do {
    result = fcntl(descriptor, F_OFD_SETLK, &range);
  } while (result != 0 && errno == EINTR);
  return result;
}

int LockWhole(int descriptor, int operation) {
  int result;
  do {
    result = flock(descriptor, operation);  // on a network it may take long enough to be interrupted
  } while (result != 0 && errno == EINTR);
  return result;
}

// Locks the descriptor's file as its file system can: as a whole, else all of its range, else not at all. 0, or errno.
int TakeLock(int descriptor, Lock* lock) {
  *lock = Lock::kWhole;
  if (LockWhole(descriptor, LOCK_EX | LOCK_NB) == 0) return 0;
  if (!LockUnsupported(errno)) return errno;
  *lock = Lock::kRange;
  if (LockRange(descriptor, F_WRLCK) == 0) return 0;
  if (errno == EACCES) return EAGAIN;  // either tells of another's lock
  if (!LockUnsupported(errno) && errno != EINVAL) return errno;
  *lock = Lock::kNone;
  return 0;
}

// Closing alone would leave the lock with a process forked off meanwhile.
void EndLock(const OpenFile& file) {
  if (file.lock == Lock::kWhole) LockWhole(file.descriptor, LOCK_UN);
  if (file.lock == Lock::kRange) LockRange(file.descriptor, F_UNLCK);
}

// Makes the descriptor's file ours alone and learns its size. 0, or a host code.
uint32_t TakeFile(int* descriptor, OpenFile* file) {
  if (!LeaveStandardStreams(descriptor)) return posix::HostErrorFromErrno(errno);
  const int error = TakeLock(*descriptor, &file->lock);
  if (error != 0) return posix::HostErrorFromErrno(error);
  struct stat status;
  if (fstat(*descriptor, &status) != 0) return posix::HostErrorFromErrno(errno);
  if (!S_ISREG(status.st_mode)) return coredll::kHostAccessDenied;
  file->size = static_cast<uint64_t>(status.st_size);
  return coredll::kHostNoError;
}

// Makes the name of a new file durable: a later FlushFileBuffers reaches the file alone. A folder that cannot be read
// or synchronised keeps no file from being created.
void SyncFolderOf(const char* path) {
  char folder[PATH_MAX];
  FolderOf(path, folder);
  const int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);
  close(descriptor);
}

// Opens or creates `path` into `entry`. 0, or a host code with nothing open and nothing created; only when another
// process takes the new file before we hold it does that file stay, as theirs.
uint32_t OpenInto(OpenFile* entry, const char* path, bool create) {
  int descriptor = OpenDescriptor(path, create ? O_CREAT | O_EXCL : 0);
  if (descriptor < 0) return OpenError(path, errno);
  const uint32_t error = TakeFile(&descriptor, entry);
  if (error != coredll::kHostNoError) {
    if (create && error != coredll::kHostSharingViolation) unlink(path);
    close(descriptor);
    return error;
  }
  if (create) SyncFolderOf(path);
  entry->descriptor = descriptor;
  entry->synced = false;
  entry->lost = coredll::kHostNoError;
  entry->position = 0;
  entry->cache = nullptr;
  g_openFiles++;
  return coredll::kHostNoError;
}

// Writes at the position and moves it behind what the file took. 0, or a host code.
uint32_t WriteAtPosition(OpenFile* file, const char* bytes, uint32_t count, uint32_t* done) {
  while (*done < count) {
    file->synced = false;
    const ssize_t moved = pwrite(file->descriptor, bytes + *done, count - *done, static_cast<off_t>(file->position));
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return posix::HostErrorFromErrno(errno);
    if (moved == 0) return coredll::kHostGeneralFailure;
    *done += static_cast<uint32_t>(moved);
    file->position += static_cast<uint64_t>(moved);
    if (file->size < file->position) file->size = file->position;
  }
  return coredll::kHostNoError;
}

}  // namespace

// Of the arguments, access and share mode have one value in use; the hint of random access, security and template have
// no counterpart. The empty name is a path not found, as on the device.
coredll::Handle coredll::CreateFileW(const WideChar* name, uint32_t access, uint32_t shareMode, void*,
                                     uint32_t disposition, uint32_t, Handle) {
  const bool create = disposition == kCreateNew;
  char path[PATH_MAX];
  uint32_t error = kHostNoError;
  OpenFile* entry = nullptr;
  if (access != kGenericReadWrite || shareMode != 0 || (!create && disposition != kOpenExisting)) {
    error = kHostInvalidParameter;
  } else if (name == nullptr || name[0] == 0) {
    error = kHostPathNotFound;
  } else if (!posix::Utf8FromWide(name, path, sizeof path)) {
    error = kHostInvalidName;
  } else if ((entry = FreeEntry()) == nullptr) {
    error = kHostNotEnoughMemory;
  } else {
    error = OpenInto(entry, path, create);
  }
  if (error == kHostNoError) return static_cast<Handle>(entry - g_files) + 1;
  FreeTableIfUnused();
  posix::SetLastError(error);
  return kInvalidHandle;
}

// A transfer that fails half way reports failure, `done` tells the bytes that were moved, and the position is behind
// them.
int32_t coredll::ReadFile(Handle handle, void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  if (done == nullptr || overlapped != nullptr) return posix::Fail(kHostInvalidParameter);
  *done = 0;
  OpenFile* file = FindOpenFile(handle);
  if (file == nullptr) return 0;
  const uint64_t left = file->position < file->size ? file->size - file->position : 0;
  if (count > left) count = static_cast<uint32_t>(left);
  if (count == 0) return 1;
  if (buffer == nullptr) return posix::Fail(kHostInvalidParameter);
  if (file->cache == nullptr && file->lock != Lock::kNone) file->cache = posix::NewReadCache();
  const int error = posix::ReadCached(file->cache, file->descriptor, file->size, file->position, buffer, count, done);
  file->position += *done;
  return error == 0 ? 1 : posix::Fail(posix::HostErrorFromErrno(error));
}

int32_t coredll::WriteFile(Handle handle, const void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  if (done == nullptr || overlapped != nullptr) return posix::Fail(kHostInvalidParameter);
  *done = 0;
  OpenFile* file = FindOpenFile(handle);
  if (file == nullptr) return 0;
  const uint64_t start = file->position;
  const uint32_t error = WriteAtPosition(file, static_cast<const char*>(buffer), count, done);
  if (error != kHostNoError) {
    posix::DropFromCache(file->cache, start, count);
    return posix::Fail(error);
  }
  posix::UpdateCache(file->cache, start, buffer, count);
  return 1;
}

// Without the high half only positions below 0xFFFFFFFF can be told; one above fails with kHostInvalidParameter.
uint32_t coredll::SetFilePointer(Handle handle, int32_t distance, int32_t* distanceHigh, uint32_t method) {
  OpenFile* file = FindOpenFile(handle);
  if (file == nullptr) return kInvalidPosition;
  int64_t position = distance;
  if (method == kFileCurrent) position += static_cast<int64_t>(file->position);
  if (method == kFileEnd) position += static_cast<int64_t>(file->size);
  if (method > kFileEnd || distanceHigh != nullptr || position >= kInvalidPosition) {
    posix::SetLastError(kHostInvalidParameter);
    return kInvalidPosition;
  }
  if (position < 0) {
    posix::SetLastError(kHostNegativeSeek);
    return kInvalidPosition;
  }
  file->position = static_cast<uint64_t>(position);
  return static_cast<uint32_t>(position);
}

namespace {

// A program that makes many changes and needs one point at which all are durable sets ORBA_SYNC to "caller", and syncs
// the container itself then.
bool CallerSyncs() {
  const char* const who = getenv("ORBA_SYNC");
  return who != nullptr && strcmp(who, "caller") == 0;
}

}  // namespace

// What nothing was written to since this handle's last flush has nothing to be made durable. Once a flush has failed,
// all fail: the kernel reports what it could not store a single time, and may have dropped it.
int32_t coredll::FlushFileBuffers(Handle handle) {
  OpenFile* file = FindOpenFile(handle);
  if (file == nullptr) return 0;
  if (file->lost != kHostNoError) return posix::Fail(file->lost);
  if (file->synced || CallerSyncs()) return 1;
  int result;
  do {
    result = fdatasync(file->descriptor);  // the size is part of what it makes durable
  } while (result != 0 && errno == EINTR);
  if (result != 0) return posix::Fail(file->lost = posix::HostErrorFromErrno(errno));
  file->synced = true;
  return 1;
}

uint32_t coredll::GetFileSize(Handle handle, uint32_t* sizeHigh) {
  const OpenFile* file = FindOpenFile(handle);
  if (file == nullptr) return kInvalidSize;
  if (sizeHigh != nullptr) *sizeHigh = static_cast<uint32_t>(file->size >> 32);
  return static_cast<uint32_t>(file->size);
}

// The handle is gone whatever the result: failure means that the host lost data written earlier.
int32_t coredll::CloseHandle(Handle handle) {
  OpenFile* file = FindOpenFile(handle);
  if (file == nullptr) return 0;
  const int descriptor = file->descriptor;
  posix::FreeReadCache(file->cache);
  EndLock(*file);
  file->descriptor = kUnused;
  g_openFiles--;
  FreeTableIfUnused();
  return close(descriptor) == 0 || errno == EINTR ? 1 : FailErrno();
}

}  // namespace orba
