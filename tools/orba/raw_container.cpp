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

// Below 0 while another program has it open.
Descriptor Open(const std::string& path, RawContainer::Access access, int* refusal) {
  const std::string name = path == "-" ? "./-" : path;
  const bool writing = access == RawContainer::kWrite;
  const host::Share share = writing ? host::Share::kNobody : host::Share::kReaders;
  *refusal = 0;
  if (writing) {
    Descriptor file = tool::OpenForWriting(name, share);
    if (file.get() >= 0 || errno == EBUSY) return file;
    *refusal = errno;
  }
  return tool::OpenForReading(name, share);
}

Descriptor OpenPatiently(const std::string& path, RawContainer::Access access, int* refusal) {
  Patience patience;
  for (;;) {
    Descriptor file = Open(path, access, refusal);
    if (file.get() >= 0) return file;
    if (!patience.WaitMore()) throw BusyFailure(path, host::HolderOf(path));
  }
}

}  // namespace

RawContainer::RawContainer(const std::string& path, Access access)
    : path_(path), file_(OpenPatiently(path, access, &refusal_)), target_(file_.get()) {
  Reread();
}

void RawContainer::Reread() {
  read_ = host::StatusOf(file_.get());
  image_ = FileImage::Of(file_.get());
  if (image_ == nullptr) throw HostFailure("cannot read " + ShellWord(path_), errno);
  watched_ = std::make_unique<WatchedImage>(*image_);
}

inspect::Target* RawContainer::target() {
  if (refusal_ != 0) throw HostFailure("cannot write " + ShellWord(path_), refusal_);
  const host::Status now = host::StatusOf(file_.get());
  const bool replaced = host::StatusOf(path_).id != now.id;
  const bool changed = now.size != read_.size || now.changed != read_.changed || now.nanoseconds != read_.nanoseconds;
  if (replaced || changed) {
    throw Failure("cannot write " + ShellWord(path_),
                  replaced ? "another file has taken its place meanwhile" : "another program has changed it meanwhile",
                  "nothing was changed; try again");
  }
  return &target_;
}

}  // namespace orba::tool
