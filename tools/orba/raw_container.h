// A container as bytes, for what works without mounting it. While it is open here nobody mounts it, and while one run
// means to write to it no other reads it. Stands on host_file, failure and inspect/.
#pragma once

#include <memory>
#include <string>

#include "tools/orba/host_file.h"
#include "tools/orba/host_image.h"

namespace orba::tool {

class RawContainer {
 public:
  enum Access { kRead, kWrite };

  // Throws a Failure where the host refuses or another program has the container open. Writing is left to others; the
  // access only says who else may have it open meanwhile.
  explicit RawContainer(const std::string& path, Access access = kRead);

  const inspect::Image& image() const { return *image_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  Descriptor lock_;
  std::unique_ptr<FileImage> image_;
};

}  // namespace orba::tool
