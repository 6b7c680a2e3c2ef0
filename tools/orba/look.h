// Looking into containers without mounting them, for the commands that change nothing: they work on containers that can
// only be read, on marked ones, and on damaged ones as far as possible. Whatever cannot be read is reported as it is
// met, the rest goes on. Stands on raw_container, walk and inspect/.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "inspect/container/reader.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/walk.h"

namespace orba::tool {

// The containers of one run. Each is opened when it is first needed, and nobody writes to it from then on; a marked or
// damaged one is reported once. Throws a Failure where nothing of a container can be read.
class Look : public Places {
 public:
  std::optional<Item> Find(const Address& address) override;
  std::vector<Item> List(const Address& directory) override;

  OrbU32 BlockSize(const Address& address);

  // Begins another way through containers. Blocks that it comes by again and again, as only crossed block maps have it,
  // are read a few times and then refused.
  void BeginWalk() { budgets_.clear(); }

  // What a directory holds, sorted by name.
  std::vector<Item> ListItem(const Match& directory);

  // Hands the contents of a file to `take`, piece by piece. Throws when not all of it can be read.
  void Read(const Match& file, const inspect::Reader::Take& take);

  // Throws when a block of the file cannot be found. Reads none of its contents.
  void RequireBlocks(const Match& file);

  // Up to `count` bytes of a file from `position` on, fewer at its end alone. Throws when one of them cannot be read.
  std::size_t ReadAt(const Match& file, std::uint32_t position, void* buffer, std::uint32_t count);

  // Reports "WHAT: WHY" as something that cannot be read; further ones beyond the first are counted alone.
  void Tell(const Address& address, const std::string& what, const std::string& why);

  // Reports, in the same way, what was left out though nothing is wrong with it.
  void TellLeftOut(const std::string& what, const std::string& why);

  // What was told since the last call, in a line each: the first thousand of them.
  std::vector<std::string> TakeProblems();

  // Ends the run: says what to do about what was told. kFailed when something was, else `status`.
  int Finish(int status);

 private:
  struct Container {
    explicit Container(const std::string& path) : raw(path), reader(raw.image()) {}
    RawContainer raw;
    inspect::Reader reader;
  };

  Container& Open(const Address& address);
  inspect::Budget& BudgetOf(const Address& address);
  [[noreturn]] void ThrowUnreadable(const Address& file, std::uint64_t done, const inspect::Problem& problem);

  std::map<std::string, host::FileId> ids_;  // the same container may be written in several ways
  std::map<host::FileId, std::unique_ptr<Container>> containers_;
  std::map<host::FileId, inspect::Budget> budgets_;
  std::set<std::string> damaged_;  // containers of which something was told
  std::vector<std::string> problems_;
  std::size_t told_ = 0;
};

// Goes through one tree. Lists each directory once: one that leads back to itself or was listed under another name is
// told and has nothing in it.
class LookWalker {
 public:
  // Directories that lie deeper are told and not entered.
  static constexpr std::size_t kDeepest = 512;

  explicit LookWalker(Look* look) : look_(look) { look_->BeginWalk(); }
  // To be called for a directory before those that lie in it.
  std::vector<Item> List(const Match& directory);

 private:
  Look* look_;
  std::set<OrbU32> listed_;
  std::vector<std::pair<std::size_t, OrbU32>> above_;  // with how deep they lie
};

}  // namespace orba::tool
