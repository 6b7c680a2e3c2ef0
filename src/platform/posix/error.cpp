#include <errno.h>

#include "platform/posix/posix.h"

namespace orba {
namespace {

thread_local uint32_t g_lastError;

}  // namespace

uint32_t coredll::GetLastError() { return g_lastError; }

namespace posix {

using namespace coredll;

void SetLastError(uint32_t code) { g_lastError = code; }

int32_t Fail(uint32_t code) {
  SetLastError(code);
  return 0;
}

uint32_t HostErrorFromErrno(int error) {
  switch (error) {
    case ENOENT:
      return kHostFileNotFound;
    case ENOTDIR:
    case ELOOP:
      return kHostPathNotFound;
    case EMFILE:
    case ENFILE:
      return kHostTooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EISDIR:
      return kHostAccessDenied;
    case EBADF:
      return kHostInvalidHandle;
    case ENOMEM:
      return kHostNotEnoughMemory;
    case EROFS:
      return kHostWriteProtected;
    case ENXIO:
    case ENODEV:
    case ENOMEDIUM:
      return kHostNotReady;
    case EAGAIN:   // another open's lock or lease
    case EBUSY:    // in use by the kernel
    case ETXTBSY:  // running as a program
      return kHostSharingViolation;
    case EEXIST:
      return kHostFileExists;
    case EINVAL:
    case EFAULT:
      return kHostInvalidParameter;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:  // the file may not grow: to its writer there is no difference, and nothing is lost or broken
      return kHostDiskFull;
    case ENAMETOOLONG:
    case EILSEQ:  // characters the medium cannot store
      return kHostInvalidName;
    case ECANCELED:
      return kHostRequestAborted;
    default:
      return kHostGeneralFailure;
  }
}

}  // namespace posix
}  // namespace orba
