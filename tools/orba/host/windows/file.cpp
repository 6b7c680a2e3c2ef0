// Files, directories and disks. Everything may be read, written, renamed and removed by others meanwhile unless the
// caller says otherwise: that is what the flags for sharing say.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

#include "tools/orba/host/windows/windows.h"

namespace orba::tool::host {

namespace {

constexpr DWORD kEveryone = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kDirectoriesToo = FILE_FLAG_BACKUP_SEMANTICS;
constexpr std::int64_t kTicks = 10000000;  // of 100 ns, in a second
constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;

struct Closer {
  void operator()(void* handle) const {
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
  }
};
using Owned = std::unique_ptr<std::remove_pointer_t<HANDLE>, Closer>;

bool Is(const Owned& handle) { return handle.get() != INVALID_HANDLE_VALUE; }

std::uint64_t Joined(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

std::int64_t SecondsOf(const FILETIME& time) {
  const auto ticks = static_cast<std::int64_t>(Joined(time.dwHighDateTime, time.dwLowDateTime));
  return ticks / kTicks - kSecondsFrom1601To1970;
}

// Links are files and directories with a tag; so is what is not on the disk at the moment, with another tag.
bool IsLink(HANDLE handle) {
  FILE_ATTRIBUTE_TAG_INFO tag = {};
  return GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &tag, sizeof tag) != 0 &&
         (tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (tag.ReparseTag == IO_REPARSE_TAG_SYMLINK || tag.ReparseTag == IO_REPARSE_TAG_MOUNT_POINT);
}

Status Told(HANDLE handle) {
  Status status;
  const DWORD type = GetFileType(handle) & ~static_cast<DWORD>(FILE_TYPE_REMOTE);
  if (type == FILE_TYPE_PIPE || type == FILE_TYPE_CHAR) {
    status.kind = type == FILE_TYPE_PIPE ? Kind::kPipe : Kind::kDevice;
    return status;
  }
  BY_HANDLE_FILE_INFORMATION told = {};
  if (GetFileInformationByHandle(handle, &told) == 0) {
    FailAsWindows();
    return status;
  }
  const bool directory = (told.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  status.kind = directory ? Kind::kDirectory : Kind::kFile;
  status.size = Joined(told.nFileSizeHigh, told.nFileSizeLow);
  status.id = {told.dwVolumeSerialNumber, Joined(told.nFileIndexHigh, told.nFileIndexLow)};
  status.changed = SecondsOf(told.ftLastWriteTime);
  return status;
}

bool IsFileWithSeparator(const std::string& path) {
  const std::size_t end = path.find_last_not_of("/\\") + 1;
  if (end == path.size() || end == 0) return false;
  const DWORD attributes = GetFileAttributesW(WidePath(path.substr(0, end)).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// For its attributes alone, which goes whoever has it open.
Owned OpenToAsk(const std::string& path, DWORD flags) {
  Owned handle(CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES, kEveryone, nullptr, OPEN_EXISTING,
                           kDirectoriesToo | flags, nullptr));
  if (Is(handle)) return handle;
  FailAsWindows();
  if (errno == EINVAL) errno = ENOENT;  // no file has such a name
  if (errno == ENOENT && IsFileWithSeparator(path)) errno = ENOTDIR;
  return handle;
}

// So that a call can be made again: a program that looks for viruses opens what was just closed.
template <typename Call>
bool MadeAgain(const Call& call) {
  for (DWORD pause = 1; pause <= 512; pause *= 2) {
    if (call()) return true;
    if (GetLastError() != ERROR_SHARING_VIOLATION) break;
    Sleep(pause);
  }
  return FailAsWindows();
}

}  // namespace

HANDLE HandleOf(int file) {
  switch (file) {
    case kInput:
      return GetStdHandle(STD_INPUT_HANDLE);
    case kOutput:
      return GetStdHandle(STD_OUTPUT_HANDLE);
    case kError:
      return GetStdHandle(STD_ERROR_HANDLE);
    default:
      return LongToHandle(file);
  }
}

int FileOf(HANDLE handle) {
  if (handle == INVALID_HANDLE_VALUE) FailAsWindows();
  return static_cast<int>(HandleToLong(handle));
}

// ---- What is there --------------------------------------------------------------------------------------------------

Status StatusOf(const std::string& path) {
  const Owned handle = OpenToAsk(path, 0);
  return Is(handle) ? Told(handle.get()) : Status{};
}

Status OwnStatusOf(const std::string& path) {
  const Owned handle = OpenToAsk(path, FILE_FLAG_OPEN_REPARSE_POINT);
  if (!Is(handle)) return {};
  Status status = Told(handle.get());
  if (IsLink(handle.get())) status.kind = Kind::kLink;
  return status;
}

Status StatusOf(int file) { return Told(HandleOf(file)); }

bool ListDirectory(const std::string& path, std::vector<std::string>* names) {
  std::wstring pattern = WidePath(path);
  pattern += !pattern.empty() && pattern.back() == L'\\' ? L"*" : L"\\*";
  WIN32_FIND_DATAW found = {};
  const std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> search(FindFirstFileW(pattern.c_str(), &found), FindClose);
  if (search.get() == INVALID_HANDLE_VALUE) return FailAsWindows();
  do {
    const std::string name = Narrow(found.cFileName);
    if (name != "." && name != "..") names->push_back(name);
  } while (FindNextFileW(search.get(), &found) != 0);
  return GetLastError() == ERROR_NO_MORE_FILES || FailAsWindows();
}

std::string RealPath(const std::string& path) {
  const Owned handle = OpenToAsk(path, 0);
  if (!Is(handle)) return "";
  const DWORD size = GetFinalPathNameByHandleW(handle.get(), nullptr, 0, FILE_NAME_NORMALIZED);
  std::wstring place(size, L'\0');
  place.resize(size == 0 ? 0 : GetFinalPathNameByHandleW(handle.get(), place.data(), size, FILE_NAME_NORMALIZED));
  if (place.empty()) FailAsWindows();
  return Narrow(place);
}

std::uint64_t FreeSpace(const std::string& path) {
  std::wstring disk(path.size() + MAX_PATH, L'\0');
  ULARGE_INTEGER free = {};
  const bool done = GetVolumePathNameW(WidePath(path).c_str(), disk.data(), static_cast<DWORD>(disk.size())) != 0 &&
                    GetDiskFreeSpaceExW(disk.c_str(), &free, nullptr, nullptr) != 0;
  return done ? free.QuadPart : UINT64_MAX;
}

// ---- Open files -----------------------------------------------------------------------------------------------------

namespace {

DWORD Flags(Share share) {
  if (share == Share::kNobody) return 0;
  // Whoever renames or removes it does not change it.
  return share == Share::kReaders ? FILE_SHARE_READ | FILE_SHARE_DELETE : kEveryone;
}

// A name like the X of a pattern, different each time.
std::string AnyName(std::size_t length) {
  static std::atomic<std::uint64_t> number = 0;
  LARGE_INTEGER counter = {};
  QueryPerformanceCounter(&counter);
  const std::uint64_t seed = static_cast<std::uint64_t>(counter.QuadPart) ^ std::uint64_t{GetCurrentProcessId()} << 32;
  std::uint64_t rest = (seed + ++number) * 6364136223846793005u >> 11;
  std::string name;
  for (; name.size() < length; rest /= 36) name += "abcdefghijklmnopqrstuvwxyz0123456789"[rest % 36];
  return name;
}

int CreateByPattern(std::string* path, DWORD flags) {
  const std::size_t start = path->find_last_not_of('X') + 1;
  for (;;) {
    path->replace(start, std::string::npos, AnyName(path->size() - start));
    const HANDLE handle = CreateFileW(WidePath(*path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL | flags, nullptr);
    if (handle != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS) return FileOf(handle);
  }
}

}  // namespace

int OpenForReading(const std::string& path, Share share) {
  const int file = FileOf(CreateFileW(WidePath(path).c_str(), GENERIC_READ, Flags(share), nullptr, OPEN_EXISTING,
                                      kDirectoriesToo, nullptr));
  if (file < 0 && errno == EINVAL) errno = ENOENT;
  return file;
}

int OpenForWriting(const std::string& path, Share share) {
  const int file = FileOf(CreateFileW(WidePath(path).c_str(), GENERIC_READ | GENERIC_WRITE, Flags(share), nullptr,
                                      OPEN_EXISTING, 0, nullptr));
  if (file < 0 && errno == EACCES && StatusOf(path).kind == Kind::kDirectory) errno = EISDIR;
  return file;
}

int CreateNew(const std::string& path) {
  return FileOf(CreateFileW(WidePath(path).c_str(), GENERIC_WRITE, kEveryone, nullptr, CREATE_NEW,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

int CreateTemporary(std::string* path) { return CreateByPattern(path, 0); }

int CreateUnnamed() {
  wchar_t folder[MAX_PATH + 1] = {};
  if (GetTempPathW(MAX_PATH + 1, folder) == 0) return FileOf(INVALID_HANDLE_VALUE);
  std::string path = Narrow(folder) + ".orba-XXXXXX";
  return CreateByPattern(&path, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE);
}

int DuplicateStandardInput() {
  HANDLE copy = INVALID_HANDLE_VALUE;
  const HANDLE self = GetCurrentProcess();
  if (DuplicateHandle(self, HandleOf(kInput), self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS) == 0) {
    errno = EBADF;
    return -1;
  }
  return FileOf(copy);
}

bool Close(int file) { return CloseHandle(HandleOf(file)) != 0 || FailAsWindows(); }

namespace {

constexpr std::size_t kPiece = 1 << 30;  // one call transfers less than 4 GB

DWORD Piece(std::size_t count) { return static_cast<DWORD>(count < kPiece ? count : kPiece); }

OVERLAPPED At(std::uint64_t offset) {
  OVERLAPPED place = {};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

std::ptrdiff_t Done(BOOL success, DWORD count) {
  if (success != 0) return static_cast<std::ptrdiff_t>(count);
  const DWORD error = GetLastError();
  if (error == ERROR_HANDLE_EOF || error == ERROR_BROKEN_PIPE) return 0;
  FailAsWindows();
  return -1;
}

// What is typed, in whole characters; Ctrl-Z at the beginning of a line is the end.
std::ptrdiff_t ReadConsoleText(HANDLE console, char* bytes, std::size_t count) {
  constexpr std::size_t kMostBytes = 3;  // of UTF-8 for a unit
  wchar_t line[1024];
  const std::size_t room = count / kMostBytes < 1024 ? count / kMostBytes : 1024;
  DWORD units = 0;
  if (room == 0) return 0;
  if (ReadConsoleW(console, line, static_cast<DWORD>(room), &units, nullptr) == 0) return Done(FALSE, 0);
  constexpr wchar_t kEnd = 0x1A;
  if (units == 0 || line[0] == kEnd) return 0;
  const std::string text = Narrow(std::wstring(line, units));
  text.copy(bytes, text.size());
  return static_cast<std::ptrdiff_t>(text.size());
}

// A read of a pipe or of the console, which may last. It has a thread of its own and a buffer of its own: where a
// signal ends the wait for it, nobody knows when it ends itself.
struct SlowRead {
  HANDLE from;
  std::vector<char> bytes;
  std::ptrdiff_t result = 0;
  int error = 0;
};

DWORD WINAPI Perform(void* place) {
  auto* const read = static_cast<SlowRead*>(place);
  DWORD mode = 0;
  DWORD done = 0;
  if (GetConsoleMode(read->from, &mode) != 0) {
    read->result = ReadConsoleText(read->from, read->bytes.data(), read->bytes.size());
  } else {
    const BOOL success = ReadFile(read->from, read->bytes.data(), Piece(read->bytes.size()), &done, nullptr);
    read->result = Done(success, done);
  }
  read->error = errno;
  return 0;
}

std::ptrdiff_t ReadSlowly(HANDLE from, void* bytes, std::size_t count) {
  constexpr std::size_t kMost = 65536;
  auto read = std::make_unique<SlowRead>();
  read->from = from;
  read->bytes.resize(count < kMost ? count : kMost);
  const Owned thread(CreateThread(nullptr, 0, Perform, read.get(), 0, nullptr));
  if (thread == nullptr) {
    FailAsWindows();
    return -1;
  }
  if (!AwaitThread(thread.get())) {
    CancelSynchronousIo(thread.get());
    static_cast<void>(read.release());
    errno = EINTR;
    return -1;
  }
  if (read->result > 0) std::memcpy(bytes, read->bytes.data(), static_cast<std::size_t>(read->result));
  errno = read->error;
  return read->result;
}

}  // namespace

std::ptrdiff_t Read(int file, void* bytes, std::size_t count) {
  const HANDLE handle = HandleOf(file);
  if (GetFileType(handle) != FILE_TYPE_DISK) return ReadSlowly(handle, bytes, count);
  DWORD done = 0;
  const BOOL success = ReadFile(handle, bytes, Piece(count), &done, nullptr);
  return Done(success, done);
}

std::ptrdiff_t Write(int file, const void* bytes, std::size_t count) {
  DWORD done = 0;
  if (WriteFile(HandleOf(file), bytes, Piece(count), &done, nullptr) != 0) return static_cast<std::ptrdiff_t>(done);
  FailAsWindows();
  return -1;
}

std::ptrdiff_t ReadAt(int file, std::uint64_t offset, void* bytes, std::size_t count) {
  OVERLAPPED place = At(offset);
  DWORD done = 0;
  const BOOL success = ReadFile(HandleOf(file), bytes, Piece(count), &done, &place);
  return Done(success, done);
}

std::ptrdiff_t WriteAt(int file, std::uint64_t offset, const void* bytes, std::size_t count) {
  OVERLAPPED place = At(offset);
  DWORD done = 0;
  if (WriteFile(HandleOf(file), bytes, Piece(count), &done, &place) != 0) return static_cast<std::ptrdiff_t>(done);
  FailAsWindows();
  return -1;
}

bool Rewind(int file) { return SetFilePointerEx(HandleOf(file), {}, nullptr, FILE_BEGIN) != 0 || FailAsWindows(); }

bool Truncate(int file, std::uint64_t size) {
  FILE_END_OF_FILE_INFO end = {};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  return SetFileInformationByHandle(HandleOf(file), FileEndOfFileInfo, &end, sizeof end) != 0 || FailAsWindows();
}

// Only files can be synced: the system stores names as they change.
bool Sync(int file) {
  return FlushFileBuffers(HandleOf(file)) != 0 || StatusOf(file).kind != Kind::kFile || FailAsWindows();
}

// Only an administrator may sync a whole disk.
bool CanSyncDisks() { return false; }

bool SyncDisk(const std::string& /*path*/) {
  errno = EACCES;
  return false;
}

std::string HolderOf(const std::string& /*path*/) { return ""; }

bool SetTime(int file, std::int64_t seconds) {
  const std::int64_t since1601 = seconds + kSecondsFrom1601To1970;
  if (since1601 <= 0 || since1601 > INT64_MAX / kTicks) {
    errno = EINVAL;
    return false;
  }
  const auto ticks = static_cast<std::uint64_t>(since1601 * kTicks);
  const FILETIME time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  return SetFileTime(HandleOf(file), nullptr, &time, &time) != 0 || FailAsWindows();
}

bool SetTimeToNow(int file) {
  FILETIME time = {};
  GetSystemTimeAsFileTime(&time);
  return SetFileTime(HandleOf(file), nullptr, &time, &time) != 0 || FailAsWindows();
}

void TakeOverSyncs() { SetEnvironmentVariableW(L"ORBA_SYNC", L"caller"); }

void SetClock(const std::array<unsigned, 6>& time) {
  std::wstring text;
  for (const unsigned part : time) text += (text.empty() ? L"" : L" ") + std::to_wstring(part);
  SetEnvironmentVariableW(L"ORBA_CLOCK", text.c_str());
}

void ResetClock() { SetEnvironmentVariableW(L"ORBA_CLOCK", nullptr); }

// ---- Names ----------------------------------------------------------------------------------------------------------

bool Rename(const std::string& from, const std::string& to, bool overwrite) {
  const DWORD flags = MOVEFILE_WRITE_THROUGH | (overwrite ? MOVEFILE_REPLACE_EXISTING : 0u);
  const std::wstring wideFrom = WidePath(from);
  const std::wstring wideTo = WidePath(to);
  if (MadeAgain([&] { return MoveFileExW(wideFrom.c_str(), wideTo.c_str(), flags) != 0; })) return true;
  // A file that another one has open is one that may not be replaced.
  const int error = errno;
  const Owned target(CreateFileW(wideTo.c_str(), DELETE, kEveryone, nullptr, OPEN_EXISTING, 0, nullptr));
  const bool busy = !Is(target) && GetLastError() == ERROR_SHARING_VIOLATION;
  errno = busy ? EBUSY : error;
  return false;
}

// The new file gets the old one's permissions by this.
bool Replace(const std::string& path, const std::string& by, const std::string& kept) {
  if (!kept.empty() && OwnStatusOf(kept).kind != Kind::kNothing) {
    errno = EEXIST;
    return false;
  }
  const std::wstring wide = WidePath(path);
  const std::wstring wideBy = WidePath(by);
  const std::wstring wideKept = kept.empty() ? L"" : WidePath(kept);
  return MadeAgain([&] {
    return ReplaceFileW(wide.c_str(), wideBy.c_str(), kept.empty() ? nullptr : wideKept.c_str(),
                        REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) != 0;
  });
}

bool Remove(const std::string& path) {
  const std::wstring wide = WidePath(path);
  return MadeAgain([&] { return DeleteFileW(wide.c_str()) != 0; });
}

bool RemoveUnused(const std::string& path) {
  const Owned file(CreateFileW(WidePath(path).c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  return Is(file) || FailAsWindows();
}

bool RemoveDirectory(const std::string& path) {
  return RemoveDirectoryW(WidePath(path).c_str()) != 0 || FailAsWindows();
}

bool MakeDirectory(const std::string& path) {
  return CreateDirectoryW(WidePath(path).c_str(), nullptr) != 0 || FailAsWindows();
}

int OpenDirectory(const std::string& path) {
  const int file = FileOf(CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, kEveryone,
                                      nullptr, OPEN_EXISTING, kDirectoriesToo, nullptr));
  return file;
}

}  // namespace orba::tool::host
