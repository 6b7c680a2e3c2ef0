// A container as bytes, for what works without mounting it. While it is open here nobody mounts it, and while one run
// means to write to it no other reads it. Stands on host_file, failure and inspect/.
#pragma once

#include <memory>
#include <string>

#include "inspect/container/image.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/host_image.h"
#include "tools/orba/host_target.h"

namespace orba::tool {

// Opened once: whatever happens to its name meanwhile, reading and writing concern one and the same file.
class RawContainer {
 public:
  enum Access { kRead, kWrite };

  // Throws a Failure where the host refuses or another program has the container open. Where only reading is allowed,
  // kWrite is no failure before target is called.
  explicit RawContainer(const std::string& path, Access access = kRead);

  // As it was when it was read first, or after Reread. Reading it is ended by a signal: throws an Interrupt.
  const inspect::Image& image() const { return *watched_; }
  void Reread();

  // What to write to. Throws a Failure where writing is not allowed, where another file has taken the name, and where
  // the container has changed since it was read: not every program asks for the lock.
  inspect::Target* target();

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int refusal_ = 0;  // why it is open for reading only
  Descriptor file_;
  HostTarget target_;
  host::Status read_;  // when it was read
  std::unique_ptr<FileImage> image_;
  std::unique_ptr<inspect::Image> watched_;
};

}  // namespace orba::tool
