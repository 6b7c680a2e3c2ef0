#include "tests/model/model.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace model {

namespace {

constexpr std::uint32_t kHandle = ORB_INVALID_HANDLE;
constexpr std::uint32_t kNodeBlocks = 224;
constexpr std::uint32_t kDirect = 6;  // blocks that need no map block

std::string Upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return text;
}

bool Legal(const std::string& name) {
  if (name.empty() || name.size() > ORB_MAX_NAME) return false;
  return std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::strchr("!#$%&'()-^~@{}[]_.", c) != nullptr;
  });
}

// "*" takes everything up to the first character that the pattern goes on with.
bool Matches(const std::string& name, const std::string& pattern) {
  std::size_t at = 0;
  bool star = false;
  for (const char p : pattern) {
    if (p == '*') {
      star = true;
    } else if (p == '?') {
      if (at++ >= name.size()) return false;
    } else {
      if (star) at = std::min(name.find(p, at), name.size());
      star = false;
      if (at >= name.size() || name[at] != p) return false;
      ++at;
    }
  }
  return star || at == name.size();
}

Result Ok(std::uint32_t value = 1) { return {value, 0}; }
Result Failed(std::uint32_t code, std::uint32_t value = 0) { return {value, code}; }
Result BoolOf(std::uint32_t code) { return {code == 0 ? 1u : 0u, code}; }

bool EndsInSlash(const std::string& path) { return !path.empty() && path.back() == '/'; }

}  // namespace

int Model::NewNode(int volume, bool directory, std::uint32_t attributes) {
  auto node = std::make_unique<Node>();
  node->directory = directory;
  node->attributes = attributes;
  node->volume = volume;
  node->stamp = now;
  nodes_[++lastNode_] = std::move(node);
  return lastNode_;
}

// ---- Formatting -----------------------------------------------------------------------------------------------------

Result Model::Format(int container, std::uint32_t bitmapBytes, std::uint32_t blockSize, bool folderExists) {
  if (blockSize != 1024 && blockSize != 2048 && blockSize != 4096 && blockSize != 8192) {
    return Failed(ORB_ERROR_INVALID_ARGUMENT);
  }
  if (bitmapBytes > blockSize / 64 * 448 / 8) return Failed(ORB_ERROR_INVALID_ARGUMENT);
  if (!folderExists) return Failed(ORB_ERROR_PATH_NOT_FOUND);
  Volume& volume = volumes_[static_cast<std::size_t>(container)];
  if (volume.formatted) return Failed(ORB_ERROR_FILE_EXISTS);
  volume.formatted = true;
  volume.blockSize = blockSize;
  volume.bitmapBytes = bitmapBytes;
  volume.numbers.assign(std::min(8 * bitmapBytes, kNodeBlocks * blockSize / 64), false);
  if (!volume.numbers.empty()) volume.numbers[0] = true;  // the root's; it exists without a bitmap too
  volume.nodeBlocks.assign(kNodeBlocks, false);
  volume.nodeBlocks[0] = true;
  // A block may be appended while the container stays below 2 GiB.
  const std::uint64_t size = 1024 + bitmapBytes + 2 * blockSize;
  volume.room = (0x80000000u - blockSize - size + blockSize - 1) / blockSize;
  if (wrong == Wrong::kRoom) ++volume.room;
  volume.root = NewNode(container, true, 0x000E);
  At(volume.root).entries = {{".", volume.root}, {"..", volume.root}};
  At(volume.root).parent = volume.root;
  return Ok();
}

std::uint64_t Model::LeaveRoom(int container, std::uint64_t room) {
  Volume& volume = volumes_[static_cast<std::size_t>(container)];
  const std::uint64_t skipped = volume.room - room - (wrong == Wrong::kRoom ? 1 : 0);
  volume.room -= skipped;
  volume.lost += skipped;
  return skipped;
}

// ---- Node numbers and blocks ----------------------------------------------------------------------------------------

// The lowest number, and a block for its record where there is none yet.
std::uint32_t Model::TakeNumber(int volume, std::uint32_t* number) {
  Volume& v = volumes_[static_cast<std::size_t>(volume)];
  const auto place = std::find(v.numbers.begin(), v.numbers.end(), false);
  if (place == v.numbers.end()) return ORB_ERROR_NO_FREE_NODE;
  *number = static_cast<std::uint32_t>(place - v.numbers.begin());
  const std::uint32_t block = *number / (v.blockSize / 64);
  if (!v.nodeBlocks[block]) {
    if (v.room == 0) return ORB_ERROR_VOLUME_FULL;
    --v.room;
    v.nodeBlocks[block] = true;
  }
  *place = true;
  return 0;
}

std::uint32_t Model::BlocksOf(int node) const {
  const Node& n = At(node);
  const std::size_t bytes = n.directory ? 32 * n.entries.size() : n.data.size();
  return static_cast<std::uint32_t>((bytes + VolumeOf(node).blockSize - 1) / VolumeOf(node).blockSize);
}

// Gives back what a node has. A file that was cut below 6 blocks has kept its map blocks, and they are lost.
void Model::Discard(int node) {
  Node& n = At(node);
  Volume& v = VolumeOf(node);
  const std::uint32_t blocks = BlocksOf(node);
  const std::uint32_t map = (n.indirect ? 1 : 0) + (n.seconds != 0 ? n.seconds + 1 : 0);
  v.room += blocks;
  (blocks >= kDirect ? v.room : v.lost) += map;
  v.numbers[n.number] = false;
  const std::uint32_t perBlock = v.blockSize / 64;
  const std::size_t first = n.number / perBlock * perBlock;
  const std::size_t end = std::min<std::size_t>(first + perBlock, v.numbers.size());
  if (std::find(v.numbers.begin() + static_cast<std::ptrdiff_t>(first),
                v.numbers.begin() + static_cast<std::ptrdiff_t>(end),
                true) == v.numbers.begin() + static_cast<std::ptrdiff_t>(end)) {
    v.nodeBlocks[first / perBlock] = false;
    ++v.room;
  }
  Bytes().swap(n.data);
  n.entries.clear();
}

// Takes the block of a file or directory with this index, which is the next one. The block itself comes first: where
// there is none left for the map, it is lost.
std::uint32_t Model::Append(int node, std::uint32_t index) {
  Node& n = At(node);
  Volume& v = VolumeOf(node);
  const std::uint32_t words = v.blockSize / 4;
  if (index >= kDirect + words + words * words || v.room == 0) return ORB_ERROR_VOLUME_FULL;
  --v.room;
  if (index < kDirect) return 0;
  const bool inSecond = index >= kDirect + words;
  const std::uint32_t second = inSecond ? (index - kDirect - words) / words : 0;
  std::uint32_t map = 0;
  if (!inSecond && !n.indirect) map = 1;
  if (inSecond && second == n.seconds) map = second == 0 ? 2 : 1;
  if (v.room < map) {
    ++v.lost;
    return ORB_ERROR_VOLUME_FULL;
  }
  v.room -= map;
  if (!inSecond) n.indirect = true;
  if (inSecond && map != 0) ++n.seconds;
  return 0;
}

std::uint32_t Model::AddEntry(int directory, const std::string& name, int node) {
  const std::size_t perBlock = VolumeOf(directory).blockSize / 32;
  const std::size_t count = At(directory).entries.size();
  if (count % perBlock == 0) {
    if (const std::uint32_t code = Append(directory, static_cast<std::uint32_t>(count / perBlock))) return code;
  }
  At(directory).entries.push_back({Upper(name), node});
  At(directory).stamp = now;
  At(node).parent = directory;
  return 0;
}

// ---- Names and paths ------------------------------------------------------------------------------------------------

int Model::Lookup(int directory, const std::string& name) const {
  for (const Entry& entry : At(directory).entries) {
    if (entry.name == Upper(name)) return entry.node;
  }
  return 0;
}

int Model::MountedVolume(const std::string& name) const {
  for (const int volume : mounted_) {
    if (volumes_[static_cast<std::size_t>(volume)].name == Upper(name)) return volume;
  }
  return -1;
}

std::uint32_t Model::Descend(int* present, const std::string& name) const {
  const int child = At(*present).directory ? Lookup(*present, name) : 0;
  if (child == 0) return ORB_ERROR_PATH_NOT_FOUND;
  *present = child;
  return 0;
}

std::uint32_t Model::Walk(const std::string& path, Place* place) const {
  if (path.empty()) return ORB_ERROR_PATH_NOT_FOUND;
  if (current_ == 0) return ORB_ERROR_NOT_MOUNTED;
  std::string rest = path;
  int volume = At(current_).volume;
  bool named = false;
  const std::size_t colon = path.find(':');
  if (colon != std::string::npos) {
    if (!Legal(path.substr(0, colon))) return ORB_ERROR_INVALID_NAME;
    rest = path.substr(colon + 1);
    volume = MountedVolume(path.substr(0, colon));
    named = true;
    if (volume < 0) return ORB_ERROR_NOT_MOUNTED;
  }
  const bool fromRoot = (!rest.empty() && rest[0] == '/') || (named && At(current_).volume != volume);
  const int root = volumes_[static_cast<std::size_t>(volume)].root;
  int present = fromRoot ? root : current_;

  std::vector<std::string> parts;
  for (std::size_t at = 0; at < rest.size();) {
    const std::size_t end = std::min(rest.find('/', at), rest.size());
    if (end > at) parts.push_back(rest.substr(at, end - at));
    at = end + 1;
  }
  std::string last;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (parts[i].size() > ORB_MAX_NAME) return ORB_ERROR_INVALID_NAME;
    if (i + 1 == parts.size()) {
      last = parts[i];
    } else if (const std::uint32_t code = Descend(&present, parts[i])) {
      return code;
    }
  }
  if (last == "..") {
    if (const std::uint32_t code = Descend(&present, "..")) return code;
  }
  if (last == "." || last == "..") {
    last.clear();
    if (present != root) {
      const int child = present;
      if (const std::uint32_t code = Descend(&present, "..")) return code;
      for (std::size_t i = 2; i < At(present).entries.size(); ++i) {
        if (At(present).entries[i].node == child) last = At(present).entries[i].name;
      }
    }
  } else if (!At(present).directory) {
    return ORB_ERROR_PATH_NOT_FOUND;
  }
  *place = {present, last};
  return 0;
}

std::uint32_t Model::Resolve(const std::string& path, std::uint32_t missing, int* node) const {
  Place place;
  if (const std::uint32_t code = Walk(path, &place)) return code;
  *node = place.name.empty() ? place.directory : Lookup(place.directory, place.name);
  return *node == 0 ? missing : 0;
}

// ---- Who holds a node -----------------------------------------------------------------------------------------------

int Model::OtherHolders(int node) const {
  int holders = At(node).kept + (node == current_ ? 1 : 0);
  for (const OpenFile& file : files_) holders += file.node == node ? 1 : 0;
  for (const Search& search : searches_) holders += search.node == node && !search.detached ? 1 : 0;
  for (const int volume : mounted_) holders += volumes_[static_cast<std::size_t>(volume)].root == node ? 1 : 0;
  return holders;
}

std::uint32_t Model::InUse(int node) const {
  if (OtherHolders(node) == 0) return 0;
  return node == current_ ? ORB_ERROR_CURRENT_DIRECTORY : ORB_ERROR_IN_USE;
}

std::uint32_t Model::NewName(int directory, const std::string& name) const {
  if (!Legal(name)) return ORB_ERROR_INVALID_NAME;
  return Lookup(directory, name) != 0 ? ORB_ERROR_FILE_EXISTS : 0;
}

// ---- Volumes --------------------------------------------------------------------------------------------------------

Result Model::Mount(int container, const std::string& name) {
  if (!Legal(name)) return Failed(ORB_ERROR_INVALID_NAME);
  if (MountedVolume(name) >= 0) return Failed(ORB_ERROR_ALREADY_MOUNTED);
  if (std::find(mounted_.begin(), mounted_.end(), container) != mounted_.end()) {
    return Failed(ORB_ERROR_CONTAINER_IN_USE);
  }
  Volume& volume = volumes_[static_cast<std::size_t>(container)];
  if (!volume.formatted) return Failed(ORB_ERROR_FILE_NOT_FOUND);
  volume.name = Upper(name);
  if (mounted_.empty()) current_ = volume.root;
  mounted_.insert(mounted_.begin(), container);
  return Ok();
}

Result Model::Unmount(const std::string& name) {
  const int container = MountedVolume(name);
  if (container < 0) return Failed(ORB_ERROR_NOT_MOUNTED);
  const auto place = std::find(mounted_.begin(), mounted_.end(), container);
  if (current_ != 0 && At(current_).volume == container) {
    current_ = 0;
    if (place + 1 != mounted_.end()) {
      current_ = volumes_[static_cast<std::size_t>(*(place + 1))].root;
    } else if (place != mounted_.begin()) {
      current_ = volumes_[static_cast<std::size_t>(*(place - 1))].root;
    }
  }
  for (OpenFile& file : files_) {
    if (file.node != 0 && At(file.node).volume == container) file.node = 0;
  }
  bool searched = false;
  for (Search& search : searches_) {
    if (search.node == 0 || search.detached || At(search.node).volume != container) continue;
    search.detached = true;
    searched = true;
  }
  for (auto& [number, node] : nodes_) {
    if (node->volume == container) node->kept = 0;
  }
  mounted_.erase(place);
  volumes_[static_cast<std::size_t>(container)].name.clear();
  return searched ? Failed(ORB_ERROR_INVALID_HANDLE) : Ok();
}

Result Model::VolumeInfo(const std::string& name, std::uint32_t* bitmapBytes, std::uint32_t* blockSize) {
  const int container = MountedVolume(name);
  if (container < 0) return Failed(ORB_ERROR_NOT_MOUNTED);
  const Volume& volume = volumes_[static_cast<std::size_t>(container)];
  if (bitmapBytes != nullptr) *bitmapBytes = volume.bitmapBytes + (wrong == Wrong::kInfo ? 1 : 0);
  if (blockSize != nullptr) *blockSize = volume.blockSize;
  return Ok();
}

// ---- Files and directories by name ----------------------------------------------------------------------------------

Result Model::Create(const std::string& path, std::uint32_t attributes) {
  attributes &= 0xFFFF;
  Place place;
  if (const std::uint32_t code = Walk(path, &place)) return Failed(code);
  if (EndsInSlash(path)) place.name.clear();
  if (const std::uint32_t code = NewName(place.directory, place.name)) return Failed(code);
  if ((attributes & ~0x000Bu) != 0) return Failed(ORB_ERROR_INVALID_ARGUMENT);
  const int volume = At(place.directory).volume;
  std::uint32_t number = 0;
  if (const std::uint32_t code = TakeNumber(volume, &number)) return Failed(code);
  const bool directory = (attributes & 8) != 0;
  const int node = NewNode(volume, directory, directory ? 8 : attributes);
  At(node).number = number;
  std::uint32_t code = directory ? Append(node, 0) : 0;
  if (code == 0) {
    if (directory) At(node).entries = {{".", node}, {"..", place.directory}};
    code = AddEntry(place.directory, place.name, node);
  }
  if (code != 0) Discard(node);
  return BoolOf(code);
}

Result Model::Copy(const std::string& source, const std::string& target) {
  int file = 0;
  if (const std::uint32_t code = Resolve(source, ORB_ERROR_FILE_NOT_FOUND, &file)) return Failed(code);
  Place place;
  if (const std::uint32_t code = Walk(target, &place)) {
    ++At(file).kept;
    return Failed(code);
  }
  if (At(file).directory) return Failed(ORB_ERROR_WRONG_KIND);
  if (const std::uint32_t code = NewName(place.directory, place.name)) return Failed(code);
  const int volume = At(place.directory).volume;
  std::uint32_t number = 0;
  if (const std::uint32_t code = TakeNumber(volume, &number)) return Failed(code);
  const int node = NewNode(volume, false, wrong == Wrong::kAttributes ? 0 : At(file).attributes);
  At(node).number = number;
  At(node).stamp = At(file).stamp;
  std::uint32_t code = Fill(node, file);
  if (code == 0) code = AddEntry(place.directory, place.name, node);
  if (code != 0) Discard(node);
  return BoolOf(code);
}

std::uint32_t Model::Fill(int copy, int source) {
  const Bytes& from = At(source).data;
  Bytes& to = At(copy).data;
  const std::size_t blockSize = VolumeOf(copy).blockSize;
  while (to.size() < from.size()) {
    if (const std::uint32_t code = Append(copy, BlocksOf(copy))) return code;
    const std::size_t end = std::min(to.size() + blockSize, from.size());
    to.insert(to.end(), from.begin() + static_cast<std::ptrdiff_t>(to.size()),
              from.begin() + static_cast<std::ptrdiff_t>(end));
  }
  return 0;
}

std::uint32_t Model::RenameIn(int directory, const std::string& oldName, const std::string& newName) {
  if (const std::uint32_t code = NewName(directory, newName)) return code;
  for (std::size_t i = 2; i < At(directory).entries.size(); ++i) {
    if (At(directory).entries[i].name != Upper(oldName)) continue;
    At(directory).entries[i].name = Upper(newName);
    if (wrong == Wrong::kStamp) At(directory).stamp = now;
    return 0;
  }
  return ORB_ERROR_FILE_NOT_FOUND;
}

void Model::Remove(int directory, const std::string& name) {
  std::vector<Entry>& entries = At(directory).entries;
  for (std::size_t i = 2; i < entries.size(); ++i) {
    if (entries[i].name != Upper(name)) continue;
    if (wrong == Wrong::kOrder) {
      entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
    } else {
      entries[i] = entries.back();
      entries.pop_back();
    }
    At(directory).stamp = now;
    if (entries.size() % (VolumeOf(directory).blockSize / 32) == 0) ++VolumeOf(directory).room;
    return;
  }
}

Result Model::Move(const std::string& source, const std::string& target) {
  Place from, to;
  if (const std::uint32_t code = Walk(source, &from)) return Failed(code);
  if (const std::uint32_t code = Walk(target, &to)) {
    ++At(from.directory).kept;
    return Failed(code);
  }
  if (from.directory == to.directory) return BoolOf(RenameIn(from.directory, from.name, to.name));
  if (At(from.directory).volume != At(to.directory).volume) return Failed(ORB_ERROR_MOVE_NOT_ALLOWED);
  const int node = from.name.empty() ? 0 : Lookup(from.directory, from.name);
  if (node == 0) return Failed(ORB_ERROR_FILE_NOT_FOUND);
  if (const std::uint32_t code = InUse(node)) return Failed(code);
  if (At(node).directory) {
    const int root = volumes_[static_cast<std::size_t>(At(node).volume)].root;
    for (int above = to.directory; above != root; above = At(above).parent) {
      if (above == node) return Failed(ORB_ERROR_IN_USE);
    }
  } else if (node == to.directory) {
    return Failed(ORB_ERROR_IN_USE);
  }
  if (const std::uint32_t code = NewName(to.directory, to.name)) return Failed(code);
  if (const std::uint32_t code = AddEntry(to.directory, to.name, node)) return Failed(code);
  if (At(node).directory) At(node).entries[1].node = to.directory;
  Remove(from.directory, from.name);
  return Ok();
}

Result Model::Rename(const std::string& path, const std::string& newName) {
  Place place;
  if (const std::uint32_t code = Walk(path, &place)) return Failed(code);
  return BoolOf(RenameIn(place.directory, place.name, newName));
}

Result Model::Delete(const std::string& path) {
  Place place;
  if (const std::uint32_t code = Walk(path, &place)) return Failed(code);
  const int node = place.name.empty() ? 0 : Lookup(place.directory, place.name);
  if (node == 0) return Failed(ORB_ERROR_FILE_NOT_FOUND);
  if (const std::uint32_t code = InUse(node)) return Failed(code);
  if (At(node).directory && At(node).entries.size() > 2) {
    return Failed(wrong == Wrong::kCode ? ORB_ERROR_IN_USE : ORB_ERROR_NOT_EMPTY);
  }
  Remove(place.directory, place.name);
  Discard(node);
  for (Search& search : searches_) {  // only searches that lost their volume can still hold it
    if (search.node == node) search.detached = true;
  }
  return Ok();
}

Result Model::GetAttributes(const std::string& path) {
  int node = 0;
  if (const std::uint32_t code = Resolve(path, ORB_ERROR_FILE_NOT_FOUND, &node)) return Failed(code, 0xFFFF);
  return Ok(At(node).attributes);
}

Result Model::SetAttributes(const std::string& path, std::int32_t attributes) {
  if ((attributes & ~3) != 0) return Failed(ORB_ERROR_INVALID_ARGUMENT);
  int node = 0;
  if (const std::uint32_t code = Resolve(path, ORB_ERROR_FILE_NOT_FOUND, &node)) return Failed(code);
  if (At(node).directory) return Failed(ORB_ERROR_WRONG_KIND);
  if (static_cast<std::uint32_t>(attributes) == At(node).attributes) return Ok();
  if (OtherHolders(node) > 0) return Failed(ORB_ERROR_IN_USE);
  At(node).attributes = static_cast<std::uint32_t>(attributes);
  return Ok();
}

// ---- Open files -----------------------------------------------------------------------------------------------------

OpenFile* Model::FileOf(std::uint32_t handle) {
  const std::uint32_t slot = handle & 0xFFFF;
  if (handle >> 16 != 1 || slot >= files_.size() || files_[slot].node == 0) return nullptr;
  return &files_[slot];
}

Result Model::Open(const std::string& path, std::uint32_t mode) {
  mode &= 0xFFFF;
  int node = 0;
  if (const std::uint32_t code = Resolve(path, ORB_ERROR_FILE_NOT_FOUND, &node)) return Failed(code, kHandle);
  if (At(node).directory) return Failed(ORB_ERROR_WRONG_KIND, kHandle);
  if ((mode & ~3u) != 0) return Failed(ORB_ERROR_INVALID_ARGUMENT, kHandle);
  if ((At(node).attributes & 1) != 0 && (mode & 2) != 0) return Failed(ORB_ERROR_ACCESS_DENIED, kHandle);
  bool found = false;
  for (const OpenFile& file : files_) {
    if (file.node == node) return Failed(ORB_ERROR_ALREADY_OPEN, kHandle);
    if (found) continue;
    found = files_[fileCursor_].node == 0;
    if (!found) fileCursor_ = (fileCursor_ + 1) % files_.size();
  }
  if (!found) return Failed(ORB_ERROR_TOO_MANY_OPEN_FILES, kHandle);
  if (OtherHolders(node) > 0) return Failed(ORB_ERROR_IN_USE, kHandle);
  if (wrong == Wrong::kHandle) fileCursor_ = (fileCursor_ + 1) % files_.size();
  files_[fileCursor_] = {node, 0, mode};
  return Ok(0x10000 | static_cast<std::uint32_t>(fileCursor_));
}

Result Model::Seek(std::uint32_t handle, std::int32_t distance, std::uint32_t origin) {
  OpenFile* const file = FileOf(handle);
  if (file == nullptr) return Failed(ORB_ERROR_INVALID_HANDLE, kHandle);
  const std::int64_t size = SizeOf(*file);
  if (origin > 2) return Failed(ORB_ERROR_INVALID_ARGUMENT, kHandle);
  const std::int64_t start = origin == 0 ? 0 : origin == 1 ? file->position : size;
  if (start + distance < 0 || start + distance > size) return Failed(ORB_ERROR_SEEK, kHandle);
  file->position = static_cast<std::uint32_t>(start + distance);
  return Ok(file->position);
}

Result Model::Read(std::uint32_t handle, std::uint32_t count, Bytes* out) {
  out->clear();
  OpenFile* const file = FileOf(handle);
  if (file == nullptr) return Failed(ORB_ERROR_INVALID_HANDLE);
  if ((file->mode & 1) == 0) return Failed(ORB_ERROR_ACCESS_DENIED);
  const std::uint32_t n = std::min(count, SizeOf(*file) - file->position);
  const auto start = At(file->node).data.begin() + file->position;
  out->assign(start, start + n);
  file->position += n;
  return Ok();
}

Result Model::Write(std::uint32_t handle, const Bytes& bytes, std::uint32_t* done) {
  *done = 0;
  OpenFile* const file = FileOf(handle);
  if (file == nullptr) return Failed(ORB_ERROR_INVALID_HANDLE);
  if ((file->mode & 2) == 0) return Failed(ORB_ERROR_ACCESS_DENIED);
  Bytes& data = At(file->node).data;
  const std::uint32_t blockSize = VolumeOf(file->node).blockSize;
  while (*done < bytes.size()) {
    const std::uint32_t end = std::min(file->position / blockSize * blockSize + blockSize,
                                       file->position + static_cast<std::uint32_t>(bytes.size()) - *done);
    if (file->position == data.size() && file->position % blockSize == 0) {
      if (const std::uint32_t code = Append(file->node, file->position / blockSize)) return Failed(code);
    }
    if (end > data.size()) {
      data.resize(end);
      At(file->node).stamp = now;
    }
    const auto from = bytes.begin() + *done;
    std::copy(from, from + (end - file->position), data.begin() + file->position);
    *done += end - file->position;
    file->position = end;
  }
  if (*done > 0 && data.size() == blockSize) At(file->node).stamp = now;
  if (wrong == Wrong::kByte && *done > 1000) data[file->position - 1] ^= 1;
  return Ok();
}

Result Model::SetSize(std::uint32_t handle, std::uint32_t size) {
  OpenFile* const file = FileOf(handle);
  if (file == nullptr) return Failed(ORB_ERROR_INVALID_HANDLE);
  if (size > 0x7FFFFFFF) return Failed(ORB_ERROR_INVALID_ARGUMENT);
  if ((file->mode & 2) == 0) return Failed(ORB_ERROR_ACCESS_DENIED);
  Bytes& data = At(file->node).data;
  if (size == data.size()) return Ok();
  const std::uint32_t blocks = BlocksOf(file->node);
  if (size < data.size()) {
    data.resize(size + (wrong == Wrong::kSize ? 1 : 0));
    VolumeOf(file->node).room += blocks - BlocksOf(file->node);
    file->position = std::min(file->position, size);
    At(file->node).stamp = now;
    return Ok();
  }
  const std::uint32_t blockSize = VolumeOf(file->node).blockSize;
  if (data.size() % blockSize != 0) {
    data.resize(std::min(blocks * blockSize, size));
    At(file->node).stamp = now;
  }
  while (data.size() < size) {
    if (const std::uint32_t code = Append(file->node, BlocksOf(file->node))) return Failed(code);
    data.resize(std::min<std::size_t>(data.size() + blockSize, size));
    At(file->node).stamp = now;
  }
  return Ok();
}

Result Model::GetSize(std::uint32_t handle) {
  const OpenFile* const file = FileOf(handle);
  return file != nullptr ? Ok(SizeOf(*file)) : Failed(ORB_ERROR_INVALID_HANDLE, kHandle);
}

Result Model::Flush(std::uint32_t handle) {
  return FileOf(handle) != nullptr ? Ok() : Failed(ORB_ERROR_INVALID_HANDLE);
}

Result Model::Close(std::uint32_t handle) {
  OpenFile* const file = FileOf(handle);
  if (file == nullptr) return Failed(ORB_ERROR_INVALID_HANDLE);
  file->node = 0;
  return Ok();
}

// ---- Current directory and searches ---------------------------------------------------------------------------------

Result Model::SetCurrentDirectory(const std::string& path) {
  int node = 0;
  if (const std::uint32_t code = Resolve(path, ORB_ERROR_PATH_NOT_FOUND, &node)) return Failed(code);
  if (!At(node).directory) return Failed(ORB_ERROR_WRONG_KIND);
  current_ = node;
  return Ok();
}

Result Model::FullPath(const std::string& path, std::string* out) {
  out->clear();
  Place place;
  if (const std::uint32_t code = Walk(path, &place)) return Failed(code);
  const Volume& volume = volumes_[static_cast<std::size_t>(At(place.directory).volume)];
  std::string middle;
  int levels = 0;
  for (int node = place.directory; node != volume.root; node = At(node).parent) {
    if (++levels > 62) return Failed(ORB_ERROR_PATH_TOO_LONG);
    for (std::size_t i = 2; i < At(At(node).parent).entries.size(); ++i) {
      const Entry& entry = At(At(node).parent).entries[i];
      if (entry.node == node) middle = entry.name + "/" + middle;
    }
  }
  const std::string full = volume.name + ":/" + middle + Upper(place.name);
  if (full.size() > ORB_MAX_PATH) return Failed(ORB_ERROR_PATH_TOO_LONG);
  *out = full;
  return Ok();
}

Search* Model::SearchOf(std::uint32_t handle) {
  const std::uint32_t slot = handle & 0xFFFF;
  if (handle >> 16 != 2 || slot >= searches_.size() || searches_[slot].node == 0) return nullptr;
  return &searches_[slot];
}

bool Model::FindMatch(Search* search, Found* found) {
  const std::vector<Entry>& entries = At(search->node).entries;
  while (search->index < entries.size()) {
    const Entry& entry = entries[search->index++];
    if (!Matches(entry.name, Upper(search->pattern))) continue;
    const Node& node = At(entry.node);
    *found = {node.attributes, node.stamp,
              static_cast<std::uint32_t>(node.directory ? 32 * node.entries.size() : node.data.size()), entry.name};
    return true;
  }
  return false;
}

Result Model::FindFirst(const std::string& path, Found* found) {
  Place place;
  if (EndsInSlash(path)) {
    if (const std::uint32_t code = Resolve(path, ORB_ERROR_PATH_NOT_FOUND, &place.directory)) {
      return Failed(code, kHandle);
    }
  } else if (const std::uint32_t code = Walk(path, &place)) {
    return Failed(code, kHandle);
  }
  if (!At(place.directory).directory) return Failed(ORB_ERROR_NOT_A_DIRECTORY, kHandle);
  bool free = false;
  for (const Search& search : searches_) {
    if (search.node == place.directory && !search.detached) return Failed(ORB_ERROR_ALREADY_OPEN, kHandle);
    if (free) continue;
    free = searches_[searchCursor_].node == 0;
    if (!free) searchCursor_ = (searchCursor_ + 1) % searches_.size();
  }
  if (!free) return Failed(ORB_ERROR_TOO_MANY_SEARCHES, kHandle);
  Search& search = searches_[searchCursor_];
  search = {place.directory, false, 0, place.name.empty() ? "*" : place.name};
  if (FindMatch(&search, found)) return Ok(0x20000 | static_cast<std::uint32_t>(searchCursor_));
  search.node = 0;
  return Failed(ORB_ERROR_NO_MORE_ENTRIES, kHandle);
}

Result Model::FindNext(std::uint32_t handle, Found* found) {
  Search* const search = SearchOf(handle);
  if (search == nullptr || search->detached) return Failed(ORB_ERROR_INVALID_HANDLE);
  return FindMatch(search, found) ? Ok() : Failed(ORB_ERROR_NO_MORE_ENTRIES);
}

Result Model::FindClose(std::uint32_t handle) {
  Search* const search = SearchOf(handle);
  if (search == nullptr) return Failed(ORB_ERROR_INVALID_HANDLE);
  search->node = 0;
  return Ok();
}

// ---- What the test asks ---------------------------------------------------------------------------------------------

std::vector<std::string> Model::Paths(bool directories) const {
  std::vector<std::string> paths;
  for (const int volume : mounted_) {
    const Volume& v = volumes_[static_cast<std::size_t>(volume)];
    std::vector<std::pair<int, std::string>> todo = {{v.root, v.name + ":"}};
    while (!todo.empty()) {
      const auto [node, path] = todo.back();
      todo.pop_back();
      if (At(node).directory == directories) paths.push_back(node == v.root ? path + "/" : path);
      for (std::size_t i = 2; i < At(node).entries.size(); ++i) {
        todo.push_back({At(node).entries[i].node, path + "/" + At(node).entries[i].name});
      }
    }
  }
  return paths;
}

int Model::DirectoryOf(const std::string& path) const {
  Place place;
  return Walk(path, &place) == 0 ? place.directory : 0;
}

int Model::FileAt(const std::string& path) const {
  int node = 0;
  return Resolve(path, 1, &node) == 0 && !At(node).directory ? node : 0;
}

int Model::NodeOf(std::uint32_t handle) const {
  const std::uint32_t slot = handle & 0xFFFF;
  if (handle >> 16 == 1 && slot < files_.size()) return files_[slot].node;
  if (handle >> 16 == 2 && slot < searches_.size() && !searches_[slot].detached) return searches_[slot].node;
  return 0;
}

int Model::RootOf(const std::string& volume) const {
  const int container = MountedVolume(volume);
  return container < 0 ? 0 : volumes_[static_cast<std::size_t>(container)].root;
}

std::uint32_t Model::HandleOf(int node) const {
  for (std::uint32_t i = 0; i < files_.size(); ++i) {
    if (files_[i].node == node) return 0x10000 | i;
  }
  return kHandle;
}

bool Model::PathOf(int node, std::string* path) const {
  const Volume& volume = VolumeOf(node);
  if (volume.name.empty()) return false;
  path->clear();
  for (int child = node; child != volume.root; child = At(child).parent) {
    const std::vector<Entry>& entries = At(At(child).parent).entries;
    std::size_t i = 2;
    while (i < entries.size() && entries[i].node != child) ++i;
    if (i >= entries.size()) return false;
    *path = "/" + entries[i].name + *path;
  }
  if (path->empty()) *path = "/";
  *path = volume.name + ":" + *path;
  return true;
}

std::vector<int> Model::Tree(int root, bool directories) const {
  std::vector<int> all, todo = {root};
  while (!todo.empty()) {
    const int node = todo.back();
    todo.pop_back();
    if (At(node).directory == directories) all.push_back(node);
    for (std::size_t i = 2; i < At(node).entries.size(); ++i) todo.push_back(At(node).entries[i].node);
  }
  return all;
}

}  // namespace model
