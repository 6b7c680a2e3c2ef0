#include "inspect/repair/recover.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <unordered_map>

#include "inspect/container/names.h"
#include "inspect/container/patched_image.h"
#include "inspect/container/reader.h"
#include "inspect/repair/repair.h"

namespace orba::inspect {

namespace {

using std::to_string;

// Zeros where the host cannot read, sector by sector. What lies past the length that a container can have is left out.
class ForgivingImage : public Image {
 public:
  explicit ForgivingImage(const Image& base) : base_(base) {}

  std::uint64_t Size() const override { return std::min<std::uint64_t>(base_.Size(), kContainerLimit - 1); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    if (offset > Size() || count > Size() - offset) return false;
    if (base_.Read(offset, out, count)) return true;
    auto* to = static_cast<std::uint8_t*>(out);
    while (count > 0) {
      const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, kSector - offset % kSector));
      if (!base_.Read(offset, to, piece)) {
        std::memset(to, 0, piece);
        failed_.insert(offset / kSector);
      }
      offset += piece;
      to += piece;
      count -= piece;
    }
    return true;
  }

  std::uint64_t Failed() const { return failed_.size(); }

 private:
  static constexpr std::uint64_t kSector = 512;

  const Image& base_;
  mutable std::set<std::uint64_t> failed_;
};

constexpr const char* kLostFound = "LOST.FND";

// One recovery on its way: a walk through the container as it would be after a repair.
class Copy {
 public:
  Copy(const Image& image, Destination* destination, const std::function<void(const std::string&)>& step,
       Recovered* result)
      : reader_(image), budget_(reader_.geometry()), destination_(destination), step_(step), result_(result) {}

  // False when not even the folder could be made.
  bool Run(const std::string& directory);

  // Copies files of the container as it is, which the repair would cost, into LOST.FND.
  void AddLosses(const Image& before, const std::vector<Loss>& losses);

 private:
  // A directory of the destination.
  struct Folder {
    std::string path;
    std::unordered_map<std::string, std::uint32_t> names;  // taken, with the number to try next behind "~"
  };

  Onward Take(const Step& step);
  void CopyFile(Reader* reader, Budget* budget, const Node& node, const std::string& from, const std::string& to);
  bool Enter(const std::string& from, const std::string& to);
  std::string PathFor(const std::string& name, const std::string& from);
  void Fail(const std::string& path, const std::string& why) { result_->failures.push_back(path + ": " + why); }

  Reader reader_;
  Budget budget_;
  Destination* destination_;
  const std::function<void(const std::string&)>& step_;
  Recovered* result_;
  std::vector<Folder> folders_;  // from the outermost, which stays, to the one in which the walk is
  Folder lostFound_;             // LOST.FND in it, where there is one, once the walk has left it
};

bool Copy::Run(const std::string& directory) {
  if (!Enter("/", directory)) return false;
  Node root;
  const Problem problem = reader_.Root(&root);
  if (problem.IsFailure()) {
    Fail("/", ToText(problem));
  } else {
    const auto take = [this](const Step& step) { return Take(step); };
    Walk(&reader_, root, "", take, &budget_);
  }
  return true;
}

void Copy::AddLosses(const Image& before, const std::vector<Loss>& losses) {
  if (losses.empty()) return;
  Reader reader(before);
  Budget budget(reader.geometry());
  const std::string place = std::string("/") + kLostFound;
  if (!lostFound_.path.empty()) {
    folders_.push_back(lostFound_);
  } else if (Enter(place, PathFor(kLostFound, place))) {
    ++result_->directories;
  } else {
    return;
  }
  for (const Loss& loss : losses) {
    const std::string from = place + "/" + Printable(loss.name);
    Node node;
    node.record = loss.record;
    if (step_) step_(from);
    CopyFile(&reader, &budget, node, from, PathFor(loss.name, from));
  }
}

Onward Copy::Take(const Step& step) {
  if (step.what == Step::What::kLeave) {
    if (step.path == std::string("/") + kLostFound) lostFound_ = folders_.back();
    if (folders_.size() > 1) folders_.pop_back();
    return Onward::kOn;
  }
  const std::string from = Printable(step.path.empty() ? "/" : step.path);
  if (step.what == Step::What::kProblem) {
    if (step.entry != nullptr) folders_.pop_back();  // a directory that the walk does not enter after all
    Fail(from, ToText(step.problem));
    return Onward::kOn;
  }
  const Listed& entry = *step.entry;
  if (entry.problem.IsFailure()) {
    Fail(from, ToText(entry.problem));
    return Onward::kOn;
  }
  const std::string to = PathFor(entry.name, from);
  if (step_) step_(from);
  if (entry.node.directory) {
    if (!Enter(from, to)) return Onward::kPast;
    ++result_->directories;
  } else {
    CopyFile(&reader_, &budget_, entry.node, from, to);
  }
  return Onward::kOn;
}

bool Copy::Enter(const std::string& from, const std::string& to) {
  const std::string problem = destination_->MakeDirectory(to);
  if (!problem.empty()) Fail(from, problem);
  if (problem.empty()) folders_.push_back({to, {}});
  return problem.empty();
}

// Two names never meet on the host, even where "_" was put before one.
std::string Copy::PathFor(const std::string& name, const std::string& from) {
  Folder& folder = folders_.back();
  const std::string wish = HostName(name);
  std::string host = wish;
  while (!folder.names.emplace(host, 2).second) host = wish + "~" + to_string(folder.names[wish]++);
  if (host != name) result_->renamed.push_back(from + " -> " + host);
  return folder.path + "/" + host;
}

void Copy::CopyFile(Reader* reader, Budget* budget, const Node& node, const std::string& from, const std::string& to) {
  const auto contents = [&](const Reader::Take& take) {
    const auto counted = [&](const std::uint8_t* bytes, std::size_t count) {
      const bool taken = take(bytes, count);
      result_->bytes += taken ? count : 0;
      return taken;
    };
    return !reader->ReadAll(node, counted, budget);
  };
  const std::string problem = destination_->WriteFile(to, node.record.time, contents);
  if (problem.empty()) {
    ++result_->files;
  } else {
    Fail(from, problem);
  }
}

}  // namespace

Recovered Recover(const Image& image, const std::string& directory, Destination* destination,
                  const std::function<void(const std::string&)>& step) {
  Recovered result;
  const ForgivingImage forgiving(image);
  const Plan plan = PlanRepair(forgiving, {});  // directories alone get its time, and copies of them have none
  result.possible = plan.possible;
  if (!plan.possible) {
    result.failures.push_back(plan.problem);
    return result;
  }
  PatchedImage repaired(forgiving);
  for (const Action& action : plan.actions) {
    result.repairs.push_back(ToText(action));
    for (const Write& write : action.writes) repaired.Write(write.offset, write.bytes.data(), write.bytes.size());
  }
  Copy copy(repaired, destination, step, &result);
  if (copy.Run(directory)) copy.AddLosses(forgiving, plan.promise.lostFiles);
  result.unreadable = forgiving.Failed();
  return result;
}

std::string HostName(const std::string& name) {
  static const char* const kReserved[] = {"CON", "PRN", "AUX", "NUL", "COM", "LPT"};
  const bool none = name.empty() || name == "." || name == "..";
  std::string host = none ? std::string(name.size() + 1, '_') : name;
  std::replace_if(
      host.begin(), host.end(), [](char c) { return !IsNameCharacter(c); }, '_');
  std::string stem = UpperCase(host.substr(0, host.find('.')));
  if (stem.size() == 4 && stem[3] >= '0' && stem[3] <= '9' &&
      (stem.compare(0, 3, "COM") == 0 || stem.compare(0, 3, "LPT") == 0)) {
    stem.resize(3);
  } else if (stem == "COM" || stem == "LPT") {
    stem.clear();
  }
  const bool reserved = std::find(std::begin(kReserved), std::end(kReserved), stem) != std::end(kReserved);
  return (reserved ? "_" : "") + host + (host.back() == '.' ? "_" : "");
}

}  // namespace orba::inspect
