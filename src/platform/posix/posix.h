// The device calls on Linux, shared by the files of this folder:
//   error.cpp    GetLastError, errno to host codes
//   files.cpp    CreateFileW to CloseHandle, the handle table
//   read_cache   the bytes of an open file that were read lately
//   text.cpp     the ANSI code page, UTF-8 names
//   library.cpp  LoadLibraryW and its companions
//   clock.cpp    GetTickCount, GetSystemTime
// Promises what platform/coredll.h says; stands on the C library alone. As the device does, it keeps the last error for
// each thread; the handle table is one for the process, and callers serialise.
//
// Where the hosts differ:
//   names    a host path, "/" between folders, in UTF-8; "\" and the case of letters mean nothing special.
//   locks    an exclusive open excludes every other open made through this layer, in all processes: by flock, or where
//            the file system lacks it by a lock on the file's range. Linux locks are advisory: programs that open the
//            file on their own are not kept out, and what they change, bytes or size, may stay unseen.
//            Where the file system has no locks at all, files open all the same and nothing keeps two opens apart, in
//            this process or another: what either writes, the other may overwrite. Such files are not cached.
//   files    only regular files open; a folder, FIFO or device is access denied.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "platform/coredll.h"

namespace orba {
namespace posix {

// The platform's codes that coredll.h has no name for because the library never meets them.
constexpr uint32_t kHostInvalidFlags = 1004;

// Notes the reason for GetLastError of this thread.
void SetLastError(uint32_t code);

// The same, with the result 0 that most failing calls return.
int32_t Fail(uint32_t code);

// The host code for `error`, an errno value; kHostGeneralFailure for all without a counterpart. What an errno means
// only while a name is opened is CreateFileW's to tell.
uint32_t HostErrorFromErrno(int error);

// Writes `wide` to `out` as UTF-8 with its terminator. False, with `out` undefined, when a surrogate has no partner or
// when the text takes more than `outSize` bytes.
bool Utf8FromWide(const WideChar* wide, char* out, size_t outSize);

}  // namespace posix
}  // namespace orba
