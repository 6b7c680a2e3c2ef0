#include "tools/orba/incoming.h"

#include "tools/orba/interrupt.h"
#include "tools/orba/temporary.h"
#include "tools/orba/volume_file.h"

namespace orba::tool {

namespace {

constexpr std::size_t kPiece = 256 * 1024;

}  // namespace

void Incoming::MakeDirectory(const Address& target) {
  if (!made_.insert(session_->PathOf(target)).second) return;  // two sources may share it
  CreateDirectory(session_, target);
  temporary_[session_->PathOf(target)] = FreeTemporaryName({});
}

void Incoming::WriteFile(const Address& target, bool replaces, OrbU32 attributes, const Source& source) {
  Address beside = target.Parent();
  const std::string directory = session_->PathOf(beside);
  beside = beside.Child(TemporaryIn(beside, directory));
  beside.standsFor = target.Text();
  try {
    CreateFile(session_, beside);
    CopyIn(source, beside);
    if (attributes != 0) SetAttributes(session_, beside, attributes);
    if (!replaces) Rename(session_, beside, target.Name());
  } catch (...) {
    OrbDeleteFileA(session_->PathOf(beside).c_str());
    temporary_.erase(directory);  // it may be there still
    throw;
  }
  if (replaces) Replace(session_, beside, target);
}

void Incoming::CopyIn(const Source& source, const Address& target) {
  piece_.resize(kPiece);
  std::size_t count = source(piece_.data(), kPiece);
  if (count == 0) return;
  VolumeFile written(session_, target, ORB_OPEN_WRITE);
  for (; count > 0; count = count < kPiece ? 0 : source(piece_.data(), kPiece)) {
    CheckInterrupt();
    written.Write(piece_.data(), static_cast<OrbU32>(count));
    progress_->Advance(count);
  }
  written.Close();
}

// A free temporary name in a directory, which is looked through once. What an interrupted run has left there goes.
const std::string& Incoming::TemporaryIn(const Address& directory, const std::string& path) {
  const auto known = temporary_.find(path);
  if (known != temporary_.end()) return known->second;
  std::vector<Item> left;
  for (const Item& item : ListItems(session_, directory)) {
    if (!IsTemporaryName(item.name)) continue;
    if (item.IsDirectory()) {
      left.push_back(item);
      continue;
    }
    const Address address = directory.Child(item.name);
    Delete(session_, address);
    Report("removed " + address.Text() + ", which an interrupted put, import, cp or mv had left");
  }
  return temporary_[path] = FreeTemporaryName(left);
}

}  // namespace orba::tool
