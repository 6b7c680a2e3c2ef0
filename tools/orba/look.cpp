#include "tools/orba/look.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "inspect/container/names.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/mount_failure.h"

namespace orba::tool {

namespace {

using inspect::Listed;
using inspect::Problem;
using inspect::Trouble;

constexpr std::size_t kMostTold = 20;
constexpr std::size_t kMostKept = 1000;

OrbTime TimeOf(const TimeStamp& stamp) {
  OrbTime time = {};
  time.year = stamp.year;
  time.month = stamp.month;
  time.day = stamp.day;
  time.hour = stamp.hour;
  time.minute = stamp.minute;
  time.second = stamp.second;
  return time;
}

Item ItemOf(const inspect::Node& node, const std::string& name) {
  const OrbU32 others = node.record.attributes & ~OrbU32{ORB_ATTRIBUTE_DIRECTORY};
  Item item = {name, others | (node.directory ? ORB_ATTRIBUTE_DIRECTORY : 0u), node.size(), TimeOf(node.record.time)};
  item.node = node.number;
  return item;
}

// What the library would have said of a container that is not there, or is none.
void RequireOrdinary(const Address& address) {
  const host::Status status = host::StatusOf(address.container);
  if (status.kind == host::Kind::kFile) return;
  OrbU32 code = ORB_ERROR_ACCESS_DENIED;
  if (status.kind == host::Kind::kNothing) {
    const bool noFolder = errno == ENOTDIR || !IsHostDirectory(ParentOf(address.container));
    if (errno != ENOENT && errno != ENOTDIR) throw HostFailure("cannot open " + ShellWord(address.container), errno);
    code = noFolder ? ORB_ERROR_PATH_NOT_FOUND : ORB_ERROR_FILE_NOT_FOUND;
  }
  throw MountFailure(address, code, status);
}

}  // namespace

// ---- Containers -----------------------------------------------------------------------------------------------------

Look::Container& Look::Open(const Address& address) {
  const std::string& name = address.container;
  const auto known = ids_.find(name);
  if (known != ids_.end()) return *containers_.at(known->second);
  RequireOrdinary(address);
  const std::string word = ShellWord(name);
  auto container = std::make_unique<Container>(name);
  const host::FileId id = host::StatusOf(name).id;
  const inspect::Reader& reader = container->reader;
  if (!reader.readable()) throw LibraryFailure("cannot open " + word, name, ORB_ERROR_DAMAGED_VOLUME);
  if (reader.header().signature == kVolumeSignature && reader.header().version != kVolumeVersion) {
    throw LibraryFailure("cannot open " + word, name, ORB_ERROR_WRONG_VERSION);  // it may mean anything
  }
  const bool fresh = containers_.emplace(id, std::move(container)).second;
  ids_[name] = id;
  Container& opened = *containers_.at(id);
  if (fresh && opened.reader.marked()) {
    Report("warning: " + word + " is marked: an update of it was interrupted, and what it changed may be incomplete");
  }
  if (fresh && !opened.reader.problems().empty()) {
    Tell(address, "cannot read all of " + word, ToText(opened.reader.problems().front()));
  }
  return opened;
}

inspect::Budget& Look::BudgetOf(const Address& address) {
  Container& container = Open(address);
  return budgets_.try_emplace(ids_.at(address.container), container.reader.geometry()).first->second;
}

OrbU32 Look::BlockSize(const Address& address) { return Open(address).reader.geometry().blockSize; }

// ---- What is told ---------------------------------------------------------------------------------------------------

void Look::Tell(const Address& address, const std::string& what, const std::string& why) {
  damaged_.insert(address.container);
  TellLeftOut(what, why);
}

void Look::TellLeftOut(const std::string& what, const std::string& why) {
  const Failure failure(what, why, "");
  if (++told_ <= kMostTold) Report(failure);
  if (problems_.size() < kMostKept) problems_.emplace_back(failure.what());
}

std::vector<std::string> Look::TakeProblems() { return std::exchange(problems_, {}); }

int Look::Finish(int status) {
  if (told_ > kMostTold) Report("and " + std::to_string(told_ - kMostTold) + " more of the kind");
  for (const std::string& container : damaged_) {
    const std::string word = ShellWord(container);
    Report(word + " is damaged\n      see the damage with: orba check " + word +
           "\n      fetch everything that is left with: orba recover " + word + " DIR");
  }
  return damaged_.empty() && told_ == 0 ? status : kFailed;
}

// ---- Places ---------------------------------------------------------------------------------------------------------

std::optional<Item> Look::Find(const Address& address) {
  inspect::Reader& reader = Open(address).reader;
  for (const std::string& name : address.names) {
    if (name.size() > ORB_MAX_NAME) {
      throw LibraryFailure("cannot read " + address.Text(), address.container, ORB_ERROR_INVALID_NAME);
    }
  }
  inspect::Node node;
  const Problem problem = reader.Find(address.Path(), &node);
  if (problem.trouble == Trouble::kNotFound || problem.trouble == Trouble::kNotADirectory) return std::nullopt;
  if (problem.IsFailure()) {
    damaged_.insert(address.container);
    throw Failure("cannot read " + address.Text(), ToText(problem), "");
  }
  return ItemOf(node, address.IsRoot() ? "." : inspect::UpperCase(address.Name()));
}

std::vector<Item> Look::List(const Address& directory) {
  const std::optional<Item> item = Find(directory);
  return item.has_value() && item->IsDirectory() ? ListItem({directory, *item}) : std::vector<Item>();
}

std::vector<Item> Look::ListItem(const Match& directory) {
  CheckInterrupt();
  const Address& address = directory.address;
  inspect::Reader& reader = Open(address).reader;
  inspect::Node node;
  std::vector<Item> items;
  const Problem problem = reader.ReadNode(directory.item.node, &node);
  if (problem.IsFailure()) {
    Tell(address, "cannot list " + address.Text(), ToText(problem));
    return items;
  }
  const inspect::Listing listing = reader.List(node, &BudgetOf(address));
  for (const Problem& missing : listing.problems) {
    Tell(address, "cannot list all of " + address.Text(), ToText(missing));
  }
  for (const Listed& entry : listing.entries) {
    const Address place = address.Child(entry.name);
    if (entry.problem.IsFailure()) {
      Tell(place, "cannot read " + place.Text(), ToText(entry.problem));
      continue;
    }
    items.push_back(ItemOf(entry.node, entry.name));
    items.back().named = !entry.nameProblem;
    if (entry.nameProblem) Tell(place, "no path leads to " + place.Text(), ToText(entry.nameProblem));
  }
  std::stable_sort(items.begin(), items.end(), [](const Item& a, const Item& b) { return a.name < b.name; });
  return items;
}

void Look::Read(const Match& file, const inspect::Reader::Take& take) {
  inspect::Reader& reader = Open(file.address).reader;
  inspect::Node node;
  std::uint64_t done = 0;
  Problem problem = reader.ReadNode(file.item.node, &node);
  if (!problem.IsFailure()) {
    problem = reader.ReadAll(
        node,
        [&](const std::uint8_t* bytes, std::size_t count) {
          CheckInterrupt();
          done += count;
          return take(bytes, count);
        },
        &BudgetOf(file.address));
  }
  if (problem.IsFailure()) ThrowUnreadable(file.address, done, problem);
}

void Look::ThrowUnreadable(const Address& file, std::uint64_t done, const Problem& problem) {
  damaged_.insert(file.container);
  throw Failure("cannot read " + file.Text() + " beyond byte " + std::to_string(done), ToText(problem), "");
}

void Look::RequireBlocks(const Match& file) {
  CheckInterrupt();
  inspect::Reader& reader = Open(file.address).reader;
  inspect::Node node;
  inspect::Extent extent;
  std::uint64_t index = 0;
  Problem problem = reader.ReadNode(file.item.node, &node);
  do {
    if (!problem.IsFailure()) problem = reader.FindExtent(node, index, UINT32_MAX, &extent, &BudgetOf(file.address));
    index += extent.count;
  } while (!problem.IsFailure() && extent.count > 0);
  if (!problem.IsFailure()) return;
  damaged_.insert(file.address.container);
  throw Failure(
      "cannot read " + file.address.Text() + " beyond byte " + std::to_string(index * reader.geometry().blockSize),
      ToText(problem), "");
}

std::size_t Look::ReadAt(const Match& file, std::uint32_t position, void* buffer, std::uint32_t count) {
  CheckInterrupt();
  inspect::Reader& reader = Open(file.address).reader;
  inspect::Node node;
  std::uint32_t done = 0;
  Problem problem = reader.ReadNode(file.item.node, &node);
  if (!problem.IsFailure()) problem = reader.Read(node, position, buffer, count, &done);
  if (!problem.IsFailure()) return done;
  ThrowUnreadable(file.address, std::uint64_t{position} + done, problem);
}

std::vector<Item> LookWalker::List(const Match& directory) {
  const std::size_t depth = directory.address.names.size();
  const OrbU32 number = directory.item.node;
  while (!above_.empty() && above_.back().first >= depth) above_.pop_back();
  const bool loop = std::any_of(above_.begin(), above_.end(), [&](const auto& one) { return one.second == number; });
  above_.emplace_back(depth, number);
  const std::string what = "cannot list " + Shortened(directory.address);
  if (depth > kDeepest) {
    look_->TellLeftOut(what, "it lies more than " + std::to_string(kDeepest) + " directories deep");
  } else if (!listed_.insert(number).second) {
    Problem problem;
    problem.trouble = loop ? Trouble::kDirectoryLoop : Trouble::kDirectoryAgain;
    look_->Tell(directory.address, what, ToText(problem));
  } else {
    return look_->ListItem(directory);
  }
  return {};
}

}  // namespace orba::tool
