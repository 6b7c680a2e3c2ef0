// Windows' errors as errno values, with names and texts.
#include <cerrno>
#include <cstring>

#include "tools/orba/host/windows/windows.h"

namespace orba::tool::host {

namespace {

constexpr DWORD kDiskQuotaExceeded = 1295;  // has no name in the headers

}  // namespace

int ErrnoOf(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_BAD_PATHNAME:
      return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES:
      return EMFILE;
    case ERROR_ACCESS_DENIED:
    case ERROR_PRIVILEGE_NOT_HELD:
      return EACCES;
    case ERROR_INVALID_HANDLE:
      return EBADF;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
      return ENOMEM;
    case ERROR_WRITE_PROTECT:
      return EROFS;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_DELETE_PENDING:
      return EBUSY;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return EEXIST;
    case ERROR_INVALID_PARAMETER:
    case ERROR_INVALID_NAME:
      return EINVAL;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case kDiskQuotaExceeded:
      return ENOSPC;
    case ERROR_FILE_TOO_LARGE:
      return EFBIG;
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
    case ERROR_PIPE_NOT_CONNECTED:
      return EPIPE;
    case ERROR_DIRECTORY:
      return ENOTDIR;
    case ERROR_DIR_NOT_EMPTY:
      return ENOTEMPTY;
    case ERROR_FILENAME_EXCED_RANGE:
      return ENAMETOOLONG;
    case ERROR_CANT_RESOLVE_FILENAME:
      return ELOOP;
    case ERROR_OPERATION_ABORTED:
      return EINTR;
    default:
      return EIO;
  }
}

bool FailAsWindows() {
  errno = ErrnoOf(GetLastError());
  return false;
}

namespace {

struct Row {
  int error;
  const char* name;
};

constexpr Row kRows[] = {
    {ENOENT, "ENOENT"},
    {EINTR, "EINTR"},
    {EIO, "EIO"},
    {EBADF, "EBADF"},
    {ENOMEM, "ENOMEM"},
    {EACCES, "EACCES"},
    {EBUSY, "EBUSY"},
    {EEXIST, "EEXIST"},
    {ENOTDIR, "ENOTDIR"},
    {EISDIR, "EISDIR"},
    {EINVAL, "EINVAL"},
    {EMFILE, "EMFILE"},
    {EFBIG, "EFBIG"},
    {ENOSPC, "ENOSPC"},
    {EROFS, "EROFS"},
    {EPIPE, "EPIPE"},
    {ELOOP, "ELOOP"},
    {EAGAIN, "EAGAIN"},
    {ENOTEMPTY, "ENOTEMPTY"},
    {EPERM, "EPERM"},
    {ENFILE, "ENFILE"},
    {EXDEV, "EXDEV"},
    {ENAMETOOLONG, "ENAMETOOLONG"},
};

}  // namespace

const char* ErrorName(int error) {
  for (const Row& row : kRows) {
    if (row.error == error) return row.name;
  }
  return nullptr;
}

std::string ErrorText(int error) {
  if (error == EBUSY) return "another program has it open";
  if (error == ELOOP) return "Too many levels of symbolic links";
  return strerror(error);
}

bool IsNoSpace(int error) { return error == ENOSPC; }

}  // namespace orba::tool::host
