#include "tools/orba/raw_container.h"

#include <sys/file.h>

#include <cerrno>

#include "orba.h"
#include "tools/orba/failure.h"

namespace orba::tool {

RawContainer::RawContainer(const std::string& path, Access access)
    : path_(path), lock_(OpenForReading(path == "-" ? "./-" : path)) {
  // The library locks the same way. A file system without locks has no one to keep out.
  if (flock(lock_.get(), (access == kWrite ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    throw LibraryFailure("cannot open " + path, path, ORB_ERROR_CONTAINER_IN_USE);
  }
  image_ = FileImage::Open(path);
  if (image_ == nullptr) throw HostFailure("cannot read " + path, errno);
}

}  // namespace orba::tool
