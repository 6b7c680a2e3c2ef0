#include "mount/container_tree.h"

#include <algorithm>

#include "inspect/container/date.h"
#include "inspect/container/names.h"
#include "mount/log.h"

namespace orba::mount {

namespace {

using inspect::Onward;
using inspect::Step;

// A name that callers can use for whatever bytes an entry holds.
std::string ShownName(const inspect::Listed& entry) {
  if (!entry.nameProblem) return entry.name;
  std::string shown;
  for (const char c : entry.name) shown += c == '/' ? std::string("\\x2F") : inspect::Printable(std::string(1, c));
  return shown.empty() || shown == "." || shown == ".." ? "_" + shown : shown;
}

int MeasureReader(inspect::Reader* reader, Space* space) {
  if (!reader->readable()) return EIO;
  space->blockSize = reader->geometry().blockSize;
  space->blocks = reader->geometry().blocks;
  space->free = reader->FreeBlocks();
  space->nodes = reader->geometry().nodeLimit();
  space->freeNodes = reader->FreeNodes();
  return 0;
}

}  // namespace

int MeasureContainer(const inspect::Image& image, Space* space) {
  inspect::Reader reader(image);
  return MeasureReader(&reader, space);
}

ContainerTree::ContainerTree(const inspect::Image& image) : reader_(image) {
  Object root;
  root.problem = reader_.Root(&root.node);
  objects_.push_back(root);
  if (!readable() || root.problem.IsFailure()) return;
  directories_[root.node.number] = kRootInode;
  inspect::Budget budget(reader_.geometry());
  Walk(
      &reader_, root.node, "", [this](const Step& step) { return Take(step); }, &budget);
  equals_.clear();
}

Onward ContainerTree::Take(const Step& step) {
  const Inode directory = directories_.at(step.directory.number);
  switch (step.what) {
    case Step::What::kEntry:
      Add(directory, *step.entry);
      break;
    case Step::What::kProblem: {
      Object* const concerned = step.entry != nullptr ? &objects_.back() : ObjectOf(directory);
      if (!concerned->problem.IsFailure()) concerned->problem = step.problem;
      break;
    }
    case Step::What::kLeave:
      break;
  }
  return Onward::kOn;
}

void ContainerTree::Add(Inode parent, const inspect::Listed& entry) {
  const Inode inode = objects_.size() + 1;
  Object object;
  object.parent = parent;
  object.name = FreeName(parent, ShownName(entry));
  object.node = entry.node;
  object.problem = entry.problem;
  Object* const directory = ObjectOf(parent);
  directory->byName.emplace(inspect::UpperCase(object.name), inode);
  directory->children.push_back(inode);
  if (entry.node.directory && !entry.problem.IsFailure()) directories_.emplace(entry.node.number, inode);
  objects_.push_back(std::move(object));
}

// The name, or where it is taken one with a number behind it. No number is tried twice: a damaged directory may hold
// one name a hundred thousand times.
std::string ContainerTree::FreeName(Inode directory, const std::string& shown) {
  const auto& taken = ObjectOf(directory)->byName;
  std::string name = shown;
  while (taken.count(inspect::UpperCase(name)) != 0) {
    unsigned& last = equals_.emplace(std::make_pair(directory, inspect::UpperCase(shown)), 1).first->second;
    name = shown + "~" + std::to_string(++last);
  }
  return name;
}

std::string ContainerTree::PathOf(const Object& object) const {
  std::vector<const std::string*> names;
  for (const Object* at = &object; at->parent != 0; at = &objects_[at->parent - 1]) names.push_back(&at->name);
  std::string path;
  for (auto name = names.rbegin(); name != names.rend(); ++name) path += "/" + **name;
  return path;
}

// ---- Looking --------------------------------------------------------------------------------------------------------

int ContainerTree::Find(Inode directory, const std::string& name, Status* status) {
  const Object* const object = ObjectOf(directory);
  if (object == nullptr) return ENOENT;
  const auto found = object->byName.find(inspect::UpperCase(name));
  return found == object->byName.end() ? ENOENT : Get(found->second, status);
}

int ContainerTree::Get(Inode inode, Status* status) {
  const Object* const object = ObjectOf(inode);
  if (object == nullptr) return ENOENT;
  const inspect::Node& node = object->node;
  status->inode = inode;
  status->directory = node.directory || inode == kRootInode;
  status->attributes = node.record.attributes & (kReadOnlyAttribute | kUserAttribute);
  status->size = node.size();
  status->changed = inspect::IsDate(node.record.time) ? inspect::SecondsSince1970(node.record.time) : 0;
  return 0;
}

int ContainerTree::List(Inode directory, std::vector<Child>* children) {
  const Object* const object = ObjectOf(directory);
  if (object == nullptr) return ENOENT;
  if (object->problem.IsFailure()) Log(PathOf(*object) + "/: " + ToText(object->problem));
  const auto entered = directories_.find(object->node.number);
  if (entered == directories_.end()) return EIO;
  if (entered->second != directory) return ELOOP;
  for (const Inode child : object->children) {
    const Object& one = objects_[child - 1];
    children->push_back({one.name, one.node.directory, child});
  }
  return object->problem.IsFailure() ? EIO : 0;
}

int ContainerTree::Remarks(Inode inode, std::vector<Remark>* remarks) {
  const Object* const object = ObjectOf(inode);
  if (object == nullptr) return ENOENT;
  remarks->push_back({"node", std::to_string(object->node.number)});
  if (object->problem) remarks->push_back({"problem", ToText(object->problem)});
  return 0;
}

int ContainerTree::Measure(Space* space) { return MeasureReader(&reader_, space); }

// ---- Files ----------------------------------------------------------------------------------------------------------

int ContainerTree::Open(Inode file, bool forWriting) {
  const Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  if (object->node.directory) return EISDIR;
  if (forWriting) return EROFS;
  if (!object->problem.IsFailure()) return 0;
  Log(PathOf(*object) + ": " + ToText(object->problem));
  return EIO;
}

int ContainerTree::Read(Inode file, std::uint64_t position, void* bytes, std::size_t count, std::size_t* done) {
  *done = 0;
  const Object* const object = ObjectOf(file);
  if (object == nullptr) return ENOENT;
  if (position >= object->node.size()) return 0;
  std::uint32_t read = 0;
  const auto wanted = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, object->node.size() - position));
  const inspect::Problem problem =
      reader_.Read(object->node, static_cast<std::uint32_t>(position), bytes, wanted, &read);
  if (problem.IsFailure()) {
    Log(PathOf(*object) + ": " + ToText(problem));
    return EIO;
  }
  *done = read;
  return 0;
}

}  // namespace orba::mount
