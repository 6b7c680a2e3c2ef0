#include "tests/support/repair_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "inspect/container/image.h"
#include "inspect/container/reader.h"
#include "inspect/view/report.h"

namespace testimage {

using orba::inspect::Action;
using orba::inspect::ActionKind;
using orba::inspect::Budget;
using orba::inspect::Check;
using orba::inspect::ForeseeRepair;
using orba::inspect::MemoryImage;
using orba::inspect::Node;
using orba::inspect::Onward;
using orba::inspect::Plan;
using orba::inspect::PlanRepair;
using orba::inspect::Reader;
using orba::inspect::Report;
using orba::inspect::Step;

namespace {

void Make(const orba::inspect::Write& write, Bytes* bytes) {
  ASSERT_LE(write.offset, bytes->size());
  bytes->resize(std::max<std::size_t>(bytes->size(), write.offset + write.bytes.size()));
  std::copy(write.bytes.begin(), write.bytes.end(), bytes->begin() + static_cast<std::ptrdiff_t>(write.offset));
}

// Contents of files that hold something, whatever their names.
std::multiset<Bytes> Contents(const std::map<std::string, Bytes>& tree) {
  std::multiset<Bytes> contents;
  for (const auto& [path, bytes] : tree) {
    if (path.back() != '/' && !bytes.empty()) contents.insert(bytes);
  }
  return contents;
}

std::string Listed(const std::map<std::string, Bytes>& tree) {
  std::string text;
  for (const auto& [path, bytes] : tree) text += path + ":" + std::to_string(bytes.size()) + " ";
  return text;
}

}  // namespace

Bytes AfterWrites(const Plan& plan, const Bytes& before, std::size_t count) {
  Bytes bytes = before;
  for (const auto& action : plan.actions) {
    for (const auto& write : action.writes) {
      if (count-- == 0) return bytes;
      Make(write, &bytes);
    }
  }
  return bytes;
}

std::size_t WriteCount(const Plan& plan) {
  std::size_t count = 0;
  for (const auto& action : plan.actions) count += action.writes.size();
  return count;
}

std::map<std::string, Bytes> Tree(const Bytes& container) {
  const MemoryImage image(container);
  Reader reader(image);
  Node root;
  std::map<std::string, Bytes> tree;
  std::set<std::string> seen;  // of equal names the first is the one that a path leads to
  if (reader.Root(&root).IsFailure()) return tree;
  tree["/"] = {};
  Budget budget(reader.geometry());
  const auto take = [&](const Step& step) {
    if (step.what != Step::What::kEntry) return Onward::kOn;
    if (!seen.insert(step.path).second) return Onward::kPast;
    if (step.entry->problem.IsFailure()) return Onward::kOn;
    if (step.entry->node.directory) {
      tree[step.path + "/"] = {};
      return Onward::kOn;
    }
    Bytes contents;
    const auto append = [&contents](const std::uint8_t* bytes, std::size_t count) {
      contents.insert(contents.end(), bytes, bytes + count);
      return true;
    };
    if (!reader.ReadAll(step.entry->node, append, &budget)) tree[step.path] = contents;
    return Onward::kOn;
  };
  Walk(&reader, root, "", take, &budget);
  return tree;
}

testing::AssertionResult SameFiles(const std::map<std::string, Bytes>& files,
                                   const std::map<std::string, Bytes>& expected) {
  if (files == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << Listed(files) << "instead of " << Listed(expected);
}

Bytes Repaired(const Bytes& container, std::string* texts) {
  const Plan plan = PlanRepair(MemoryImage(container), kRepairTime);
  if (texts != nullptr) {
    texts->clear();
    for (const auto& action : plan.actions) *texts += ToText(action) + "\n";
  }
  EXPECT_TRUE(plan.IsComplete()) << ToText(plan) << ToText(plan.after);
  const Bytes after = AfterWrites(plan, container, WriteCount(plan));
  const Report report = Check(MemoryImage(after));
  EXPECT_TRUE(report.IsClean() && !report.marked) << ToText(plan) << ToText(report);
  return after;
}

std::string StepsOf(const Bytes& container) {
  std::string text;
  for (const Action& action : PlanRepair(MemoryImage(container), kRepairTime).actions) {
    if (action.kind == ActionKind::kSetMark || action.kind == ActionKind::kClearMark) continue;
    text += ToText(action) + "\n";
  }
  return text;
}

Bytes RepairedFromEveryStop(const Bytes& container, std::string* texts) {
  const Bytes once = Repaired(container, texts);
  const std::multiset<Bytes> kept = Contents(Tree(once));
  const Plan plan = PlanRepair(MemoryImage(container), kRepairTime);
  const MemoryImage image(container);
  const auto promise = ForeseeRepair(image, kRepairTime, Check(image));
  EXPECT_TRUE(promise.has_value() && ToText(*promise) == ToText(plan.promise)) << ToText(plan.promise);
  const std::size_t writes = WriteCount(plan);
  for (std::size_t stop = 1; stop < writes && !testing::Test::HasFailure(); ++stop) {
    const Bytes stopped = AfterWrites(plan, container, stop);
    EXPECT_TRUE(Check(MemoryImage(stopped)).marked) << stop;
    std::string second;
    const std::multiset<Bytes> now = Contents(Tree(Repaired(stopped, &second)));
    EXPECT_TRUE(std::includes(now.begin(), now.end(), kept.begin(), kept.end()))
        << "stopped after write " << stop << " of " << writes << ": " << now.size() << " files instead of "
        << kept.size() << "\nfirst run:\n"
        << ToText(plan) << "second run:\n"
        << second;
  }
  return once;
}

}  // namespace testimage
