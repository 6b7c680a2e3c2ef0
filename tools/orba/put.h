// Files and trees of the host on their way into a container, for put and create: first a plan is made of everything,
// with each name and conflict checked; only a plan without a refusal is carried out. Stands on place and failure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/orba/failure.h"
#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/standard_input.h"
#include "tools/orba/weigh.h"

namespace orba::tool {

struct PutOptions {
  std::vector<std::string> operands;  // the last one is the target
  bool force = false;
  bool noClobber = false;
  bool rename = false;
  bool quiet = false;
  bool verbose = false;
  bool recursive = false;  // trees are put whole anyway
  std::string sync = "end";
  std::string manifest;
};

struct PutStep {
  std::string source;
  Address target;
  std::uint64_t size = 0;
  bool isDirectory = false;
  std::optional<Item> replaced;  // the file that is there
};

struct PutPlan {
  std::vector<PutStep> steps;  // directories before what they hold
  std::vector<Failure> refusals;
  std::vector<Failure> skipped;
  std::vector<std::pair<std::string, Address>> renamed;
  std::uint64_t work = 0;
  std::optional<Failure> noRoom;  // for all of it

  bool IsRefused() const { return !refusals.empty() || noRoom.has_value(); }
  // Reports what is skipped and refused.
  void Tell() const;
};

// Why a file cannot be written to `target`, where `there` is or nothing; nothing where it can.
std::optional<Failure> WhyNotWrite(const Address& target, const Item* there, bool force);
// Why a directory cannot be there.
std::optional<Failure> WhyNoDirectory(const Address& target, const Item* there);

// What the container can still take; nothing where it cannot be made out. Where nobody can look into a container that
// is mounted, it is not for that time.
std::optional<Capacity> CapacityFor(Session* session, const Address& target);

// What the last operand refers to in `places`, a container with blocks of this size, decides where the sources go and
// under which names. With `capacity`, what does not fit is refused.
PutPlan PlanPut(const PutOptions& options, Places* places, std::uint64_t blockSize,
                const std::optional<Capacity>& capacity);

// kFailed where something was skipped or failed, which is reported. `input` is standard input where that is the source.
int CarryOutPut(const PutOptions& options, Session* session, StandardInput* input, const PutPlan& plan);

}  // namespace orba::tool
