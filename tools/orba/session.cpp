#include "tools/orba/session.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tools/orba/failure.h"
#include "tools/orba/mount_failure.h"
#include "tools/orba/patience.h"
#include "tools/orba/utf8.h"

namespace orba::tool {

void Require(OrbBool done, const char* action, const Address& address) {
  if (done == 0) throw LibraryFailure(std::string("cannot ") + action + " " + address.Text(), address.container);
}

ClockStandsAt::ClockStandsAt(const OrbTime& time) {
  host::SetClock({time.year, time.month, time.day, time.hour, time.minute, time.second});
}

ClockStandsAt::~ClockStandsAt() { host::ResetClock(); }

WideText WideName(const std::string& container) {
  // The library would take this one name for the memory file.
  const std::string name = host::NativePath(container == "??MEM??" ? "./" + container : container);
  WideText wide;
  for (std::size_t at = 0; at < name.size();) {
    std::uint32_t character = NextCharacter(name, &at);
    if (character == kNoCharacter) {
      throw Failure("cannot use " + ShellWord(name) + " as a container", "its name is not UTF-8", "rename it");
    }
    if (character >= 0x10000) {
      character -= 0x10000;
      wide += static_cast<OrbWideChar>(0xD800 + (character >> 10));
      character = 0xDC00 + (character & 0x3FF);
    }
    wide += static_cast<OrbWideChar>(character);
  }
  return wide;
}

Session::Session(Syncs syncs) {
  if (syncs == kAtTheEnd) host::TakeOverSyncs();
}

Session::~Session() {
  for (const auto& [id, volume] : volumes_) OrbUnmountVolumeA(volume.name.c_str());
}

void Session::Close() {
  while (!volumes_.empty()) {
    const Volume volume = std::move(volumes_.begin()->second);
    volumes_.erase(volumes_.begin());
    const std::string what = "cannot close " + ShellWord(volume.container);
    if (OrbUnmountVolumeA(volume.name.c_str()) == 0) throw LibraryFailure(what, volume.container);
    const Descriptor again(volume.file.get() < 0 ? host::OpenForWriting(volume.path) : -1);
    const int file = volume.file.get() < 0 ? again.get() : volume.file.get();
    if (file < 0 || !host::Sync(file)) throw HostFailure(what, errno);
  }
  ids_.clear();
}

const Session::Volume& Session::Mount(const Address& address) {
  const auto known = ids_.find(address.container);
  if (known != ids_.end()) return volumes_.at(known->second);
  const auto elsewhere = files_.find(address.container);
  const std::string& container = elsewhere == files_.end() ? address.container : elsewhere->second;
  const host::Status status = host::StatusOf(container);
  if (status.kind == host::Kind::kNothing || volumes_.count(status.id) == 0) {
    const std::string name = "V" + std::to_string(++mounted_);
    Patience patience;
    OrbU32 code = MountAs(name, container);
    while (code == ORB_ERROR_CONTAINER_IN_USE && patience.WaitMore()) code = MountAs(name, container);
    if (code != ORB_ERROR_NONE) throw MountFailure(address, code, status);
    volumes_.emplace(status.id,
                     Volume{name, address.container, container, Descriptor(host::OpenForReading(container))});
  }
  ids_[address.container] = status.id;
  return volumes_.at(status.id);
}

// The library's code, ORB_ERROR_NONE for success.
OrbU32 Session::MountAs(const std::string& volume, const std::string& container) {
  const WideText wideVolume(volume.begin(), volume.end());
  return OrbMountVolume(WideName(container).c_str(), wideVolume.c_str()) != 0 ? ORB_ERROR_NONE : OrbGetLastError();
}

std::string Session::PathOf(const Address& address) { return Mount(address).name + ":" + address.Path(); }

OrbU32 Session::BlockSize(const Address& address) {
  OrbU32 size = 0;
  Require(OrbGetVolumeInfoA(Mount(address).name.c_str(), nullptr, &size), "use", address);
  return size;
}

OrbU32 Session::NodeLimit(const Address& address) {
  OrbU32 bitmapBytes = 0;
  Require(OrbGetVolumeInfoA(Mount(address).name.c_str(), &bitmapBytes, nullptr), "use", address);
  return std::max<OrbU32>(8 * bitmapBytes, 1);  // the root is there even when the bitmap is empty
}

}  // namespace orba::tool
