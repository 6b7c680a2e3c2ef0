#include "tools/orba/raw_container.h"

#include <cerrno>

#include "orba.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/patience.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

class WatchedImage : public inspect::Image {
 public:
  explicit WatchedImage(const inspect::Image& base) : base_(base) {}

  std::uint64_t Size() const override { return base_.Size(); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    CheckInterrupt();
    Progress::HasRead(count);
    return base_.Read(offset, out, count);
  }

 private:
  const inspect::Image& base_;
};

Descriptor Open(const std::string& path, RawContainer::Access access, int* refusal) {
  const std::string name = path == "-" ? "./-" : path;
  if (access == RawContainer::kWrite) {
    Descriptor file = OpenForWriting(name);
    if (file.get() >= 0) return file;
    *refusal = errno;
  }
  return OpenForReading(name);
}

}  // namespace

RawContainer::RawContainer(const std::string& path, Access access)
    : path_(path), file_(Open(path, access, &refusal_)), target_(file_.get()) {
  // The library locks the same way. A file system without locks has no one to keep out.
  Patience patience;
  while (host::LockFile(file_.get(), access == kWrite) == host::Lock::kRefused) {
    if (!patience.WaitMore()) throw BusyFailure(path, host::HolderOf(file_.get()));
  }
  Reread();
}

void RawContainer::Reread() {
  image_ = FileImage::Of(file_.get());
  if (image_ == nullptr) throw HostFailure("cannot read " + ShellWord(path_), errno);
  watched_ = std::make_unique<WatchedImage>(*image_);
}

inspect::Target* RawContainer::target() {
  if (refusal_ != 0) throw HostFailure("cannot write " + ShellWord(path_), refusal_);
  if (host::StatusOf(path_).id != host::StatusOf(file_.get()).id) {
    throw Failure("cannot write " + ShellWord(path_), "another file has taken its place meanwhile",
                  "nothing was changed; try again");
  }
  return &target_;
}

}  // namespace orba::tool
