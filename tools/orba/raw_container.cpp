#include "tools/orba/raw_container.h"

#include <cerrno>

#include "orba.h"
#include "tools/orba/failure.h"

namespace orba::tool {

RawContainer::RawContainer(const std::string& path, Access access)
    : path_(path), lock_(OpenForReading(path == "-" ? "./-" : path)) {
  // The library locks the same way. A file system without locks has no one to keep out.
  if (host::LockFile(lock_.get(), access == kWrite) == host::Lock::kRefused) {
    throw LibraryFailure("cannot open " + path, path, ORB_ERROR_CONTAINER_IN_USE);
  }
  image_ = FileImage::Open(path);
  if (image_ == nullptr) throw HostFailure("cannot read " + path, errno);
}

}  // namespace orba::tool
