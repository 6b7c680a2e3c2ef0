#include "tools/orba/session.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "tools/orba/failure.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/utf8.h"
#include "tools/orba/wildcard.h"

namespace orba::tool {

namespace {

constexpr const char* kPassingName = "~ORBA-";
constexpr const char* kPassingEnding = ".TMP";

bool IsMissing(OrbU32 code) {
  return code == ORB_ERROR_FILE_NOT_FOUND || code == ORB_ERROR_PATH_NOT_FOUND || code == ORB_ERROR_NO_MORE_ENTRIES;
}

Item ItemOf(const OrbFindDataA& found) { return {found.name, found.attributes, found.size, found.time}; }

// One search, closed in any case: a directory can be searched once at a time.
class Search {
 public:
  Search(const std::string& pattern, OrbFindDataA* found) : handle_(OrbFindFirstFileA(pattern.c_str(), found)) {}
  ~Search() {
    if (IsOpen()) OrbFindClose(handle_);
  }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  bool IsOpen() const { return handle_ != ORB_INVALID_HANDLE; }
  bool Next(OrbFindDataA* found) { return OrbFindNextFileA(handle_, found) != 0; }

 private:
  OrbHandle handle_;
};

void Require(OrbBool done, const char* action, const Address& address) {
  if (done == 0) throw LibraryFailure(std::string("cannot ") + action + " " + address.Text(), address.container);
}

// The address with the end alone of a long path, for a message.
std::string Shortened(const Address& address) {
  constexpr std::size_t kLongest = 60;
  std::string text = address.Text();
  if (text.size() <= address.container.size() + kLongest) return text;
  return address.container + ":..." + text.substr(text.size() - kLongest);
}

bool IsReadOnly(OrbU32 code) { return code == ORB_ERROR_ACCESS_DENIED || code == ORB_ERROR_WRITE_PROTECTED; }

// A copy in a file without a name.
Descriptor CopyForLooking(const std::string& container) {
  const RawContainer original(container);  // while it is open nobody changes it
  const Descriptor source = OpenForReading(container == "-" ? "./-" : container);
  Descriptor copy = OpenPassingFile();
  std::vector<char> buffer(256 * 1024);
  while (const std::size_t count = ReadFully(source.get(), container, buffer.data(), buffer.size())) {
    WriteFully(copy.get(), "a copy of " + container + " to look into", buffer.data(), count);
  }
  return copy;
}

bool IsOrdinary(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// What to do where there is no container of this name. The file that was meant may be there under another reading.
std::string AdviceOnMissing(const Address& address) {
  const std::string& container = address.container;
  const std::string trimmed = container.substr(0, container.find_last_not_of('/') + 1);
  if (trimmed != container && IsOrdinary(trimmed)) return "the root of that container is " + trimmed + ":/";
  if (IsOrdinary(address.written)) {
    return "the root of the container " + address.written + " is " + address.written + ":/";
  }
  const std::size_t colon = container.rfind(':');
  if (colon == std::string::npos) {
    return "check the name, or make a container with: orba format " + ShellWord(container);
  }
  return "a path inside a container begins with \"/\": " + container.substr(0, colon) + ":/" +
         container.substr(colon + 1);
}

// `status` is what the host knows of the container, zeros if nothing.
Failure MountFailure(const Address& address, OrbU32 code, const struct stat& status) {
  const std::string& container = address.container;
  const std::string what = "cannot open " + container;
  const std::string coded = " (" + CodeText(code) + ")";
  if (code == ORB_ERROR_ACCESS_DENIED && status.st_mode != 0 && !S_ISREG(status.st_mode)) {
    return Failure(what, "it is no ordinary file but " + KindOf(status.st_mode) + coded, "check the name", code);
  }
  if (code == ORB_ERROR_ACCESS_DENIED) {
    return Failure(what, "the host does not let you write to it" + coded,
                   "check who owns it and its permissions, or work on a copy", code);
  }
  if (code == ORB_ERROR_WRITE_PROTECTED) {
    return Failure(what, "the medium is write-protected" + coded, "work on a copy on another disk", code);
  }
  if (code == ORB_ERROR_PATH_NOT_FOUND) {
    return Failure(what, "a folder on the way to it is missing, or is no folder" + coded,
                   container.back() == '/' ? AdviceOnMissing(address) : "check the name", code);
  }
  if (code != ORB_ERROR_FILE_NOT_FOUND) return LibraryFailure(what, container, code);
  return Failure(what, "there is no such container" + coded, AdviceOnMissing(address), code);
}

}  // namespace

std::u16string WideName(const std::string& container) {
  // The library would take this one name for the memory file.
  const std::string name = container == "??MEM??" ? "./" + container : container;
  std::u16string wide;
  for (std::size_t at = 0; at < name.size();) {
    std::uint32_t character = NextCharacter(name, &at);
    if (character == kNoCharacter) {
      throw Failure("cannot use \"" + name + "\" as a container", "its name is no UTF-8 text", "rename it");
    }
    if (character >= 0x10000) {
      character -= 0x10000;
      wide += static_cast<char16_t>(0xD800 + (character >> 10));
      character = 0xDC00 + (character & 0x3FF);
    }
    wide += static_cast<char16_t>(character);
  }
  return wide;
}

// ---- Mounting -------------------------------------------------------------------------------------------------------

Session::~Session() {
  for (const auto& [id, volume] : volumes_) OrbUnmountVolumeA(volume.name.c_str());
}

void Session::Close() {
  while (!volumes_.empty()) {
    const Volume volume = volumes_.begin()->second;
    volumes_.erase(volumes_.begin());
    if (OrbUnmountVolumeA(volume.name.c_str()) == 0) {
      throw LibraryFailure("cannot close " + volume.container, volume.container);
    }
  }
  ids_.clear();
}

const Session::Volume& Session::Mount(const Address& address) {
  const std::string& container = address.container;
  const auto known = ids_.find(container);
  if (known != ids_.end()) return volumes_.at(known->second);
  struct stat status = {};
  const bool exists = stat(container.c_str(), &status) == 0;
  const FileId id(status.st_dev, status.st_ino);
  if (!exists || volumes_.count(id) == 0) {
    const std::string name = "V" + std::to_string(++mounted_);
    OrbU32 code = MountAs(name, container);
    if (IsReadOnly(code) && purpose_ == kLook && S_ISREG(status.st_mode)) {
      copies_.push_back(CopyForLooking(container));
      code = MountAs(name, "/proc/self/fd/" + std::to_string(copies_.back().get()));
    }
    if (code != ORB_ERROR_NONE) throw MountFailure(address, code, status);
    volumes_[id] = {name, container};
  }
  ids_[container] = id;
  return volumes_.at(id);
}

// The library's code, ORB_ERROR_NONE for success.
OrbU32 Session::MountAs(const std::string& volume, const std::string& container) {
  const std::u16string wideVolume(volume.begin(), volume.end());
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
  return 8 * bitmapBytes;
}

// ---- Looking --------------------------------------------------------------------------------------------------------

std::optional<Item> Session::Find(const Address& address) {
  OrbFindDataA found;
  const Search search(PathOf(address), &found);  // a root is listed, and "." comes first
  if (search.IsOpen()) return ItemOf(found);
  if (IsMissing(OrbGetLastError())) return std::nullopt;
  throw LibraryFailure("cannot read " + address.Text(), address.container);
}

Item Session::Get(const Address& address, const char* action) {
  const std::optional<Item> item = Find(address);
  if (!item.has_value()) {
    throw LibraryFailure(std::string("cannot ") + action + " " + address.Text(), address.container,
                         ORB_ERROR_FILE_NOT_FOUND);
  }
  if (address.asDirectory && !item->IsDirectory()) {
    throw LibraryFailure(std::string("cannot ") + action + " " + address.Text() + "/", address.container,
                         ORB_ERROR_NOT_A_DIRECTORY);
  }
  return *item;
}

std::vector<Item> Session::List(const Address& directory) {
  CheckInterrupt();
  std::vector<Item> items;
  OrbFindDataA found;
  const std::string path = PathOf(directory);
  Search search(directory.IsRoot() ? path : path + "/", &found);
  if (search.IsOpen()) {
    do {
      if (std::string(found.name) != "." && std::string(found.name) != "..") items.push_back(ItemOf(found));
    } while (search.Next(&found));
  }
  if (OrbGetLastError() != ORB_ERROR_NO_MORE_ENTRIES) {
    throw LibraryFailure("cannot list " + directory.Text(), directory.container);
  }
  std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) { return a.name < b.name; });
  return items;
}

std::vector<Match> Session::Expand(const Address& pattern, const char* action) {
  std::vector<Match> matches;
  const bool wild = std::any_of(pattern.names.begin(), pattern.names.end(), HasWildcard);
  if (!wild) return {{pattern, Get(pattern, action)}};
  Address root = pattern;
  root.names.clear();
  ExpandBelow(root, pattern, 0, &matches);
  if (matches.empty()) {
    throw LibraryFailure(std::string("cannot ") + action + " " + pattern.Text(), pattern.container,
                         ORB_ERROR_NO_MORE_ENTRIES);
  }
  return matches;
}

void Session::ExpandBelow(const Address& directory, const Address& pattern, std::size_t depth,
                          std::vector<Match>* matches) {
  const bool last = depth + 1 == pattern.names.size();
  std::vector<Item> items;
  if (HasWildcard(pattern.names[depth])) {
    for (Item& item : List(directory)) {
      if (Matches(item.name, pattern.names[depth])) items.push_back(std::move(item));
    }
  } else if (const std::optional<Item> item = Find(directory.Child(pattern.names[depth]))) {
    items.push_back(*item);
  }
  for (const Item& item : items) {
    const Address address = directory.Child(item.name);
    if (last && (item.IsDirectory() || !pattern.asDirectory)) matches->push_back({address, item});
    if (!last && item.IsDirectory()) ExpandBelow(address, pattern, depth + 1, matches);
  }
}

std::vector<Item> Walker::List(const Address& directory) {
  const bool sane = listed_++ < session_->NodeLimit(directory) && directory.names.size() <= kDeepest;
  if (sane) return session_->List(directory);
  throw LibraryFailure("cannot list " + Shortened(directory) + ": directories contain each other, or lie more than " +
                           std::to_string(kDeepest) + " deep",
                       directory.container, ORB_ERROR_DAMAGED_RECORD);
}

// ---- Changing -------------------------------------------------------------------------------------------------------

void Session::CreateFile(const Address& address) {
  Require(OrbCreateFileA(PathOf(address).c_str(), 0), "create", address);
}

void Session::CreateDirectory(const Address& address) {
  Require(OrbCreateDirectoryA(PathOf(address).c_str()), "make the directory", address);
}

void Session::Delete(const Address& address) { Require(OrbDeleteFileA(PathOf(address).c_str()), "remove", address); }

void Session::Rename(const Address& address, const std::string& newName) {
  Require(OrbRenameFileA(PathOf(address).c_str(), newName.c_str()), "rename", address);
}

void Session::SetAttributes(const Address& address, OrbU32 attributes) {
  Require(OrbSetFileAttributesA(PathOf(address).c_str(), static_cast<OrbI32>(attributes)), "set the attributes of",
          address);
}

bool IsPassingName(const std::string& name) {
  const std::size_t before = std::strlen(kPassingName);
  const std::size_t after = std::strlen(kPassingEnding);
  if (name.size() <= before + after || name.compare(0, before, kPassingName) != 0) return false;
  const std::string number = name.substr(before, name.size() - before - after);
  return name.compare(name.size() - after, after, kPassingEnding) == 0 &&
         number.find_first_not_of("0123456789") == std::string::npos;
}

Address TemporaryBeside(Session* session, const Address& target) {
  Address beside;
  unsigned number = 0;
  do {
    beside = target.Parent().Child(kPassingName + std::to_string(++number) + kPassingEnding);
    if (session->PathOf(beside).size() > ORB_MAX_PATH) return target;
  } while (session->Find(beside).has_value());
  beside.standsFor = target.Text();
  return beside;
}

Failure ReadOnlyFailure(const std::string& what, const Address& address, const std::string& which) {
  return Failure(what, which + " is read-only (" + CodeText(ORB_ERROR_ACCESS_DENIED) + ")",
                 "clear the attribute with: orba attrib -r " + ShellWord(address.Text()), ORB_ERROR_ACCESS_DENIED);
}

void Replace(Session* session, const Address& temporary, const Address& target) {
  session->Delete(target);
  try {
    session->Rename(temporary, target.Name());
  } catch (Failure& failure) {
    failure.AddAdvice("its new contents are left in " + temporary.container + ":" + temporary.Path());
    throw;
  }
}

// ---- Open files -----------------------------------------------------------------------------------------------------

VolumeFile::VolumeFile(Session* session, const Address& address, OrbU32 mode)
    : address_(address), handle_(OrbOpenFileA(session->PathOf(address).c_str(), mode)) {
  Require(handle_ != ORB_INVALID_HANDLE, "open", address_);
}

VolumeFile::~VolumeFile() {
  if (handle_ != ORB_INVALID_HANDLE) OrbCloseFile(handle_);
}

OrbU32 VolumeFile::Read(void* buffer, OrbU32 count) {
  OrbU32 done = 0;
  Require(OrbReadFile(handle_, buffer, count, &done), "read", address_);
  return done;
}

void VolumeFile::Write(const void* buffer, OrbU32 count) {
  OrbU32 done = 0;
  Require(OrbWriteFile(handle_, buffer, count, &done), "write", address_);
}

void VolumeFile::SetSize(OrbU32 size) { Require(OrbSetFileSize(handle_, size), "resize", address_); }

void VolumeFile::Close() {
  const OrbHandle handle = handle_;
  handle_ = ORB_INVALID_HANDLE;
  Require(OrbCloseFile(handle), "finish writing", address_);
}

}  // namespace orba::tool
