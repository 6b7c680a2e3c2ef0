// diff: what differs between two containers, or a container and a tree of the host. Both sides are walked in step, in
// the order of the names as a container has them.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/json.h"
#include "tools/orba/look.h"
#include "tools/orba/terminal.h"
#include "tools/orba/time_text.h"

namespace orba::tool {

namespace {

struct DiffOptions {
  std::vector<std::string> operands;
  bool stat = false;
  bool time = false;
  bool quiet = false;
  bool json = false;
};

// ---- The two sides --------------------------------------------------------------------------------------------------

// A file or directory of one side.
struct Entry {
  std::string name;  // as its side has it
  bool isDirectory = false;
  std::uint64_t size = 0;
  std::optional<std::int64_t> time;
  Match match;       // in a container
  std::string path;  // on the host
};

// Hands out the next bytes of a file, fewer than asked for at its end alone.
using Pull = std::function<std::size_t(void* bytes, std::size_t count)>;

// Every member throws a Failure for what cannot be read.
class Side {
 public:
  virtual ~Side() = default;
  virtual Entry Top() = 0;
  virtual std::vector<Entry> List(const Entry& directory) = 0;
  // Hands the contents of a file to `take`, piece by piece, until that returns false.
  virtual void Read(const Entry& file, const inspect::Reader::Take& take) = 0;
  virtual Pull Open(const Entry& file) = 0;
  // Ends the run: whether something could not be read that was reported without a Failure.
  virtual bool Finish() = 0;
  virtual std::vector<std::string> Problems() = 0;  // what that was
};

class ContainerSide : public Side {
 public:
  explicit ContainerSide(const std::string& operand) : address_(ParseAddress(operand)), walker_(&look_) {}

  Entry Top() override { return EntryOf({address_, GetItem(&look_, address_, "compare")}); }

  std::vector<Entry> List(const Entry& directory) override {
    std::vector<Entry> entries;
    for (const Item& item : walker_.List(directory.match)) {
      // Where no path leads the walker has told of it.
      if (item.named) entries.push_back(EntryOf({directory.match.address.Child(item.name), item}));
    }
    return entries;
  }

  void Read(const Entry& file, const inspect::Reader::Take& take) override { look_.Read(file.match, take); }

  Pull Open(const Entry& file) override {
    return [this, match = file.match, position = std::uint32_t{0}](void* bytes, std::size_t count) mutable {
      const std::size_t done = look_.ReadAt(match, position, bytes, static_cast<std::uint32_t>(count));
      position += static_cast<std::uint32_t>(done);
      return done;
    };
  }

  bool Finish() override { return look_.Finish(kSuccess) != kSuccess; }
  std::vector<std::string> Problems() override { return look_.TakeProblems(); }

 private:
  static Entry EntryOf(const Match& match) {
    const Item& item = match.item;
    return {item.name, item.IsDirectory(), item.size, SecondsOf(item.time), match, ""};
  }

  Address address_;
  Look look_;
  LookWalker walker_;
};

class HostSide : public Side {
 public:
  explicit HostSide(std::string path) : path_(std::move(path)) {}

  Entry Top() override {
    std::optional<Entry> top = EntryOf(path_, path_);
    if (!top.has_value()) throw HostFailure("cannot compare " + path_, errno);
    return std::move(*top);
  }

  std::vector<Entry> List(const Entry& directory) override {
    CheckInterrupt();
    std::vector<Entry> entries;
    for (const std::string& name : ListHostDirectory(directory.path)) {
      std::optional<Entry> entry = EntryOf(JoinPath(directory.path, name), name);
      if (entry.has_value()) entries.push_back(std::move(*entry));
    }
    return entries;
  }

  void Read(const Entry& file, const inspect::Reader::Take& take) override {
    const Pull pull = Open(file);
    std::vector<std::uint8_t> piece(kPiece);
    for (std::size_t count = pull(piece.data(), kPiece); count > 0; count = pull(piece.data(), kPiece)) {
      if (!take(piece.data(), count)) return;
    }
  }

  Pull Open(const Entry& file) override {
    const auto opened = std::make_shared<Descriptor>(OpenForReading(file.path));
    return [opened, path = file.path](void* bytes, std::size_t count) {
      return ReadOrdinary(opened->get(), path, bytes, count);
    };
  }

  bool Finish() override { return !problems_.empty(); }
  std::vector<std::string> Problems() override { return problems_; }

 private:
  static constexpr std::size_t kPiece = 64 * 1024;

  // Nothing, reported, for what a container cannot hold.
  std::optional<Entry> EntryOf(const std::string& path, const std::string& name) {
    const host::Status status = host::StatusOf(path);
    const bool isDirectory = status.kind == host::Kind::kDirectory;
    const bool link = path != path_ && isDirectory && host::OwnStatusOf(path).kind == host::Kind::kLink;
    if (!link && (isDirectory || status.kind == host::Kind::kFile)) {
      return Entry{name, isDirectory, status.size, status.changed, {}, path};
    }
    if (status.kind == host::Kind::kNothing) {
      Tell(HostFailure("cannot compare " + path, errno));
    } else {
      Tell(Failure("cannot compare " + path,
                   link ? "it is a symbolic link to a directory"
                        : "it is neither a file nor a directory but " + KindText(status.kind),
                   ""));
    }
    return std::nullopt;
  }

  void Tell(const Failure& failure) {
    Report(failure);
    problems_.push_back(ReasonOf(failure));
  }

  std::string path_;
  std::vector<std::string> problems_;
};

// ---- The comparison -------------------------------------------------------------------------------------------------

struct Tally {
  std::uint64_t files = 0;
  std::uint64_t directories = 0;
  std::uint64_t bytes = 0;

  void Add(const Entry& entry) {
    ++(entry.isDirectory ? directories : files);
    if (!entry.isDirectory) bytes += entry.size;
  }
  std::string Text() const {
    return inspect::Counted(files, "file") + " with " + inspect::Counted(bytes, "byte") + ", " +
           inspect::Counted(directories, "directory", "directories");
  }
  std::string Json() const {
    return JsonObject().Number("files", files).Number("bytes", bytes).Number("directories", directories).Done();
  }
};

// How two files differ; of those of the same size, from which byte on.
struct Changes {
  bool size = false;
  std::optional<std::uint64_t> firstByte;
  bool time = false;

  bool Any() const { return size || firstByte.has_value() || time; }
};

class Comparison {
 public:
  Comparison(const DiffOptions& options, Side* before, Side* after)
      : options_(options), before_(before), after_(after) {}

  // kSuccess where nothing differs, else kDifferent or kTrouble.
  int Run() {
    const Entry before = before_->Top();
    const Entry after = after_->Top();
    if (before.isDirectory != after.isDirectory) {
      throw Failure("cannot compare " + options_.operands[0] + " and " + options_.operands[1],
                    "one is a directory, the other a file", "compare two of a kind");
    }
    if (before.isDirectory) {
      CompareDirectories(before, after, "");
    } else {
      CompareFiles(before, after, options_.operands[1]);
    }
    if (options_.stat && !options_.quiet && !options_.json) PrintTallies();
    // Both say what they have to say.
    trouble_ = before_->Finish() || trouble_;
    trouble_ = after_->Finish() || trouble_;
    if (trouble_) return kTrouble;
    return removed_.Any() || added_.Any() || changed_.Any() ? kDifferent : kSuccess;
  }

  // What Run has found, and what it could not read.
  void AddTo(JsonObject* json) const {
    if (!options_.stat) json->Json("differences", differences_.Done());
    json->Json("added", added_.Json())
        .Json("removed", removed_.Json())
        .Json("changed", changed_.Json())
        .Json("same", same_.Json());
    std::vector<std::string> problems = problems_;
    for (Side* const side : {before_, after_}) {
      for (std::string& problem : side->Problems()) problems.push_back(std::move(problem));
    }
    json->Json("problems", HostTexts(problems));
  }

 private:
  struct Counted : Tally {
    bool Any() const { return files > 0 || directories > 0; }
  };

  // Sorted as a container compares names; of names that differ in letter case alone the order stays.
  std::vector<std::pair<std::string, Entry>> Listed(Side* side, const Entry& directory) {
    std::vector<std::pair<std::string, Entry>> listed;
    try {
      for (Entry& entry : side->List(directory)) {
        const std::string key = inspect::UpperCase(entry.name);
        listed.emplace_back(key, std::move(entry));
      }
    } catch (const Failure& failure) {
      TellTrouble(failure);
    }
    const auto comesFirst = [](const auto& a, const auto& b) { return a.first < b.first; };
    std::stable_sort(listed.begin(), listed.end(), comesFirst);
    return listed;
  }

  void CompareDirectories(const Entry& before, const Entry& after, const std::string& path) {
    same_.Add(before);
    const auto left = Listed(before_, before);
    const auto right = Listed(after_, after);
    auto one = left.begin();
    auto other = right.begin();
    while (one != left.end() || other != right.end()) {
      CheckInterrupt();
      const bool onlyBefore = other == right.end() || (one != left.end() && one->first < other->first);
      const bool onlyAfter = !onlyBefore && (one == left.end() || other->first < one->first);
      if (onlyBefore) {
        TellOnly(before_, one->second, path + one->second.name, '-', &removed_);
      } else if (onlyAfter) {
        TellOnly(after_, other->second, path + other->second.name, '+', &added_);
      } else {
        ComparePair(one->second, other->second, path);
      }
      if (!onlyAfter) ++one;
      if (!onlyBefore) ++other;
    }
  }

  void ComparePair(const Entry& before, const Entry& after, const std::string& path) {
    if (before.isDirectory && after.isDirectory) {
      CompareDirectories(before, after, path + after.name + "/");
    } else if (before.isDirectory || after.isDirectory) {
      TellOnly(before_, before, path + before.name, '-', &removed_);
      TellOnly(after_, after, path + after.name, '+', &added_);
    } else {
      CompareFiles(before, after, path + after.name);
    }
  }

  // Something that the other side has not, with everything below it.
  void TellOnly(Side* side, const Entry& entry, const std::string& path, char sign, Counted* tally) {
    CheckInterrupt();
    tally->Add(entry);
    if (options_.json) {
      const bool added = sign == '+';
      JsonObject difference = DifferenceJson(added ? "added" : "removed", path, entry.isDirectory);
      AddSide(added ? "after" : "before", entry, &difference);
      differences_.Add(difference.Done());
    } else {
      PrintLine(sign, path + (entry.isDirectory ? "/" : ""));
    }
    if (!entry.isDirectory) return;
    for (const auto& [key, below] : Listed(side, entry)) TellOnly(side, below, path + "/" + below.name, sign, tally);
  }

  void CompareFiles(const Entry& before, const Entry& after, const std::string& path) {
    Changes changes;
    changes.size = before.size != after.size;
    if (!changes.size) changes.firstByte = FirstDifference(before, after);
    changes.time = options_.time && before.time != after.time;
    (changes.Any() ? changed_ : same_).Add(after);
    if (!changes.Any()) return;
    if (options_.json) {
      JsonObject difference = DifferenceJson("changed", path, false);
      AddSide("before", before, &difference);
      AddSide("after", after, &difference);
      if (changes.firstByte.has_value()) difference.Number("firstByte", *changes.firstByte);
      differences_.Add(difference.Done());
      return;
    }
    std::string text;
    if (changes.size) text = "  size " + std::to_string(before.size) + " -> " + std::to_string(after.size);
    if (changes.firstByte.has_value()) text = "  contents from byte " + std::to_string(*changes.firstByte) + " on";
    if (changes.time) text += "  time " + TimeText(before.time) + " -> " + TimeText(after.time);
    PrintLine('!', path, text);
  }

  static JsonObject DifferenceJson(const char* change, const std::string& path, bool isDirectory) {
    JsonObject json;
    json.Text("change", change).Json("path", HostText(path)).Text("kind", isDirectory ? "directory" : "file");
    return json;
  }

  static void AddSide(const char* name, const Entry& entry, JsonObject* difference) {
    JsonObject json;
    if (!entry.isDirectory) json.Number("size", entry.size);
    difference->Json(name, json.Json("modified", TimeJson(entry.time)).Done());
  }

  // Of files of the same size: the first byte that differs. What cannot be read is reported.
  std::optional<std::uint64_t> FirstDifference(const Entry& before, const Entry& after) {
    // A container's reader bounds its own work where it hands out the bytes.
    const bool reversed = before.path.empty() ? false : after.path.empty();
    std::optional<std::uint64_t> found;
    try {
      const Pull pull = reversed ? before_->Open(before) : after_->Open(after);
      std::vector<std::uint8_t> piece;
      std::uint64_t position = 0;
      const auto compare = [&](const std::uint8_t* bytes, std::size_t count) {
        CheckInterrupt();
        piece.resize(count);
        const std::size_t done = pull(piece.data(), count);
        const std::uint8_t* const end = std::mismatch(bytes, bytes + done, piece.begin()).first;
        position += static_cast<std::uint64_t>(end - bytes);
        if (end != bytes + count) found = position;
        return !found.has_value();
      };
      if (reversed) {
        after_->Read(after, compare);
      } else {
        before_->Read(before, compare);
      }
    } catch (const Failure& failure) {
      TellTrouble(failure);
    }
    return found;
  }

  void PrintLine(char sign, const std::string& path, const std::string& more = "") const {
    if (options_.quiet || options_.stat) return;
    Print(std::string(1, sign) + " " + Visible(path) + more + "\n");
  }

  void PrintTallies() const {
    Print("added     " + added_.Text() + "\n");
    Print("removed   " + removed_.Text() + "\n");
    Print("changed   " + changed_.Text() + "\n");
    Print("the same  " + same_.Text() + "\n");
  }

  void TellTrouble(const Failure& failure) {
    Report(failure);
    problems_.push_back(ReasonOf(failure));
    trouble_ = true;
  }

  const DiffOptions& options_;
  Side* before_;
  Side* after_;
  Counted added_;
  Counted removed_;
  Counted changed_;
  Counted same_;
  JsonArray differences_;
  std::vector<std::string> problems_;
  bool trouble_ = false;
};

// A folder of the host is a tree, and so is a file where the other side is one inside a container. All else is an
// address.
std::unique_ptr<Side> OpenSide(const std::string& operand, const std::string& other) {
  const bool inside = operand.find(":/") != std::string::npos;
  const host::Kind kind = inside ? host::Kind::kNothing : host::StatusOf(operand).kind;
  const bool file = kind == host::Kind::kFile && other.find(":/") != std::string::npos && other.back() != '/';
  if (kind == host::Kind::kDirectory) return std::make_unique<HostSide>(operand);
  if (file) {
    ContainerSide counterpart(other);
    if (!counterpart.Top().isDirectory) return std::make_unique<HostSide>(operand);
  }
  return std::make_unique<ContainerSide>(operand);
}

int Compare(const DiffOptions& options, JsonObject* json) {
  const std::unique_ptr<Side> before = OpenSide(options.operands[0], options.operands[1]);
  const std::unique_ptr<Side> after = OpenSide(options.operands[1], options.operands[0]);
  Comparison comparison(options, before.get(), after.get());
  const int status = comparison.Run();
  if (json != nullptr) comparison.AddTo(json);
  return status;
}

int RunDiff(const DiffOptions& options) {
  SetStatusWithoutMemory(kTrouble);
  return StatusOf(kTrouble, [&] {
    if (!options.json || options.quiet) return Compare(options, nullptr);
    int status = kSuccess;
    PrintObject("before", options.operands[0], [&](JsonObject* json) {
      json->Json("after", HostText(options.operands[1]));
      status = Compare(options, json);
    });
    return status;
  });
}

Run DefineDiff(Syntax* syntax) {
  auto options = std::make_shared<DiffOptions>();
  syntax->Flag("--stat", &options->stat, "counts and sizes alone");
  syntax->Flag("-t,--time", &options->time, "a file that differs in its time alone differs too");
  syntax->Flag("-q,--quiet", &options->quiet, "the exit status alone, also with --json");
  syntax->Flag("--json", &options->json, "one JSON object; with --stat without the single differences");
  syntax->Exclude("--stat", "--quiet");
  syntax->Many("CONTAINER[:/PATH] or FOLDER", &options->operands, 2, 2);
  return [options] { return RunDiff(*options); };
}

}  // namespace

const Command kDiffCommand = {
    "diff",
    kLookGroup,
    "BEFORE AFTER",
    "compare containers, directories in them and folders of the host",
    "Compares two trees, each in a container or on the host, or two files. A line for each difference, sorted by path: "
    "- for what only BEFORE has, + for what only AFTER has, with everything below it, ! for a file whose size or "
    "contents differ, with both sizes or the first byte that does. Names are compared without regard to letter case, "
    "as in a container. Times count with --time alone: put does not keep the host's.\n\n"
    "Exits with 0 when nothing differs, 1 when something does, 2 when not everything could be compared.",
    "orba diff monday.orb tuesday.orb\n"
    "orba diff config card.orb:/CONFIG\n"
    "orba diff --stat card.orb:/LOGS archive.orb:/LOGS",
    DefineDiff,
};

}  // namespace orba::tool
