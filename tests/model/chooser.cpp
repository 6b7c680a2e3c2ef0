#include "tests/model/chooser.h"

#include <cctype>

namespace model {

namespace {

// A file of 1024-byte blocks ends here: 6 + 256 + 256 x 256 of them.
constexpr std::uint32_t kReach = 65798 * 1024;

}  // namespace

Call Chooser::Next() {
  static constexpr int kWeights[] = {2,  4,  1, 1, 16, 8, 6, 10, 6, 12, 4, 5, 10, 8,
                                     12, 16, 8, 2, 1,  8, 4, 2,  4, 6,  8, 4, 1,  1};
  static_assert(sizeof kWeights / sizeof kWeights[0] == static_cast<std::size_t>(Op::kCount), "a weight for each call");
  if (quiet_ > 0) --quiet_;
  if (!queue_.empty() || QueueGrowth()) {
    const Call queued = queue_.front();
    queue_.pop_front();
    return queued;
  }
  std::discrete_distribution<int> ops(std::begin(kWeights), std::end(kWeights));
  Call c;
  c.op = static_cast<Op>(ops(random_));
  c.wide = Below(3) == 0;
  switch (c.op) {
    case Op::kFormat:
    case Op::kMount:
    case Op::kUnmount:
    case Op::kInfo:
      ChooseVolume(&c);
      break;
    case Op::kSeek:
    case Op::kRead:
    case Op::kWrite:
    case Op::kSetSize:
    case Op::kGetSize:
    case Op::kFlush:
    case Op::kClose:
    case Op::kFindNext:
    case Op::kFindClose:
      ChooseHandle(&c);
      break;
    case Op::kNull:
    case Op::kErrorState:
      c.x = Below(1u << 30);
      c.y = Below(1000);
      break;
    default:
      ChooseName(&c);
  }
  return c;
}

void Chooser::ChooseVolume(Call* c) {
  switch (c->op) {
    case Op::kFormat:
      c->x = Below(kContainerCount);
      c->y = Below(kFormatCount);
      if (Below(12) == 0) c->a = "no-such-folder/";
      break;
    case Op::kMount:
      c->x = Below(kContainerCount);
      c->a = Pick({"DATA", "logs", "X", "Data", "FULL", "", "BAD NAME", std::string(29, 'V'), std::string(30, 'V')});
      break;
    default:
      c->a = Pick({"data", "LOGS", "X", "NONE", "Full", std::string(29, 'v')});
      c->y = Below(4);
  }
}

void Chooser::ChooseName(Call* c) {
  switch (c->op) {
    case Op::kCreate:
      c->a = Path(true);
      c->x = Pick<std::uint32_t>({0, 0, 0, 1, 2, 3, 8, 9, 4, 16, 0x10000});
      break;
    case Op::kCopy:
    case Op::kMove:
      c->a = Path(false);
      c->b = Path(true);
      break;
    case Op::kRename:
      c->a = Path(false);
      c->b = Name();
      break;
    case Op::kSetAttributes:
      c->a = Path(false);
      c->x = Pick<std::uint32_t>({0, 0, 1, 2, 3, 4, 8, 0x10001, 0xFFFFFFFF});
      break;
    case Op::kOpen:
      c->a = Path(false);
      c->x = Pick<std::uint32_t>({3, 3, 3, 3, 1, 2, 0, 4, 0x10003});
      break;
    case Op::kFindFirst:
      c->a = Directory() + "/";
      if (Below(2) == 0) c->a += Pick({"*", "*.TXT", "a*", "?", "*B", "A?", "."});
      break;
    case Op::kMakeDirectory:
      c->a = Path(true);
      break;
    case Op::kSetCurrent:
      c->a = Below(2) == 0 ? Path(false) : Directory();
      break;
    case Op::kGetCurrent:
      break;
    default:
      c->a = Path(false);
  }
}

void Chooser::ChooseHandle(Call* c) {
  c->x = c->op == Op::kFindNext || c->op == Op::kFindClose ? SearchHandle() : FileHandle();
  switch (c->op) {
    case Op::kSeek:
      c->y = Below(4) == 0 ? 0 - Below(3000) : Below(9000);
      c->z = Below(8) == 0 ? 3 : Below(3);
      break;
    case Op::kRead:
    case Op::kWrite:
      c->y = Length();
      break;
    case Op::kSetSize:
      c->y = Size(c->x);
      break;
    default:
      break;
  }
}

// Grows an open file of small blocks past what their map can name, writes across the end, and mostly cuts it again.
bool Chooser::QueueGrowth() {
  if (quiet_ > 0) return false;
  for (std::uint32_t i = 0; i < model_.Files().size(); ++i) {
    const OpenFile& file = model_.Files()[i];
    if (file.node == 0 || (file.mode & ORB_OPEN_WRITE) == 0) continue;
    const Volume& volume = model_.VolumeOf(file.node);
    if (volume.blockSize != 1024 || volume.room < 100000) continue;
    const std::uint32_t handle = 0x10000 | i;
    queue_.push_back({Op::kSetSize, false, "", "", handle, Pick<std::uint32_t>({kReach - 50, kReach, 0x7FFFFFFF}), 0});
    queue_.push_back({Op::kSeek, false, "", "", handle, 0u - 100, ORB_SEEK_END});
    queue_.push_back({Op::kWrite, false, "", "", handle, 500, 0});
    queue_.push_back({Op::kSetSize, false, "", "", handle, kReach + 1, 0});
    if (Below(4) != 0) queue_.push_back({Op::kSetSize, false, "", "", handle, Length(), 0});
    quiet_ = ~0u;
    return true;
  }
  return false;
}

std::string Chooser::Name() {
  if (Below(25) == 0) {
    return Pick({"", ".", "..", "bad name", "a*b", std::string(29, 'n'), std::string(30, 'n'), "\xE9", "a/b", "-_^~"});
  }
  std::string name(1, static_cast<char>('A' + Below(6)));
  if (Below(2) == 0) name += static_cast<char>('a' + Below(6));
  if (Below(3) == 0) name += std::to_string(Below(60));
  if (Below(4) == 0) name += ".txt";
  return name;
}

std::string Chooser::Directory() {
  const auto directories = model_.Paths(true);
  if (directories.empty() || Below(20) == 0) return Pick({"X:", ".", "..", "NONE:/a", "A/B", "/"});
  std::string path = Pick(directories);
  if (path.back() == '/') path.pop_back();
  if (Below(12) == 0) path += Pick({"/.", "/..", "//", "/./.."});
  return path;
}

// Mostly something that is there, or, for a new name, a place where there could be one.
std::string Chooser::Path(bool fresh) {
  if (Below(40) == 0) return Pick({"", "/", ".", "..", "x:y:z", ":", "NONE:/A", "A", "a/b/c", "DATA:", "DATA:A"});
  const auto paths = model_.Paths(Below(5) == 0);
  std::string path;
  if (!fresh && !paths.empty() && Below(6) != 0) {
    path = Pick(paths);
  } else {
    path = Directory() + "/";
    path += Name();
  }
  if (Below(8) == 0) {
    for (char& c : path) c = static_cast<char>(std::tolower(c));
  }
  if (Below(30) == 0) path += "/";
  return path;
}

std::uint32_t Chooser::FileHandle() {
  std::vector<std::uint32_t> open;
  for (std::uint32_t i = 0; i < model_.Files().size(); ++i) {
    if (model_.Files()[i].node != 0) open.push_back(0x10000 | i);
  }
  if (open.empty() || Below(25) == 0) return Pick<std::uint32_t>({0, 0x10000, 0x10005, 0x20000, 0x10080, 0xFFFFFFFF});
  return Pick(open);
}

std::uint32_t Chooser::SearchHandle() {
  std::vector<std::uint32_t> open;
  for (std::uint32_t i = 0; i < model_.Searches().size(); ++i) {
    if (model_.Searches()[i].node != 0) open.push_back(0x20000 | i);
  }
  if (open.empty() || Below(25) == 0) return Pick<std::uint32_t>({0, 0x10000, 0x20000, 0x20040, 0xFFFFFFFF});
  return Pick(open);
}

// Lengths gather around the borders of blocks and of the block map.
std::uint32_t Chooser::Length() {
  static const std::vector<std::uint32_t> kBorders = {0,        10,       1024,     2048, 4096,
                                                      6 * 1024, 6 * 2048, 6 * 4096, 7000, 262 * 1024};
  const std::uint32_t border = Below(30) == 0 ? kBorders.back() : kBorders[Below(9)];
  const std::uint32_t jitter = Below(4) == 0 ? Below(900) : Below(3);
  return Below(2) == 0 || border < jitter ? border + jitter : border - jitter;
}

// Where the volume is nearly full also sizes that cannot be reached.
std::uint32_t Chooser::Size(std::uint32_t handle) {
  if (Below(30) == 0) return Pick<std::uint32_t>({0x80000000, 0xFFFFFFFF});
  const int node = handle >> 16 == 1 ? model_.NodeOf(handle) : 0;
  if (node != 0 && model_.VolumeOf(node).room < 1000 && Below(3) == 0) return Pick<std::uint32_t>({0x7FFFFFFF, kReach});
  if (Below(6) == 0) return 0;
  const std::uint32_t length = Length();
  return Below(2) == 0 ? length : length + Length();
}

}  // namespace model
