#include "tools/orba/standard_input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"

namespace orba::tool {

namespace {

constexpr std::size_t kPiece = 256 * 1024;

}  // namespace

Descriptor TakenIntoFile(int input, const std::string& path) {
  Descriptor file(host::CreateUnnamed());
  if (file.get() < 0) throw HostFailure("cannot make a temporary file", errno);
  std::vector<char> buffer(kPiece);
  while (const std::size_t count = ReadFully(input, path, buffer.data(), kPiece)) {
    WriteFully(file.get(), "what comes from standard input to a temporary file", buffer.data(), count);
  }
  if (!host::Rewind(file.get())) throw HostFailure("cannot read a temporary file", errno);
  return file;
}

StandardInput::StandardInput() : input_(OpenForReading("-")), first_(kPiece) {
  first_.resize(ReadFully(input_.get(), "-", first_.data(), kPiece));
  ended_ = first_.size() < kPiece;
}

void StandardInput::TakeAll() {
  if (ended_ || rest_.has_value()) return;
  rest_.emplace(TakenIntoFile(input_.get(), "-"));
}

std::size_t StandardInput::Read(void* buffer, std::size_t count) {
  if (used_ < first_.size()) {
    const std::size_t part = std::min(count, first_.size() - used_);
    std::memcpy(buffer, first_.data() + used_, part);
    used_ += part;
    return part;
  }
  if (ended_) return 0;
  return ReadFully(rest_.has_value() ? rest_->get() : input_.get(), "-", buffer, count);
}

}  // namespace orba::tool
