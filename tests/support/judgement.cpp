#include "support/judgement.h"

#include <string.h>

#include <algorithm>
#include <stdexcept>

#include "inspect/container/block_map.h"
#include "inspect/container/names.h"
#include "inspect/view/report.h"

namespace testhost {

namespace {

namespace inspect = orba::inspect;
using std::to_string;

// ---- Lists of verdicts ----------------------------------------------------------------------------------------------

// A verdict as its words and the numbers between them.
struct Parts {
  std::vector<std::string> words;
  std::vector<long> numbers;
};

Parts Split(const std::string& verdict) {
  Parts parts;
  std::string word;
  for (size_t i = 0; i < verdict.size();) {
    if (verdict[i] < '0' || verdict[i] > '9') {
      word += verdict[i++];
      continue;
    }
    size_t digits = 0;
    parts.numbers.push_back(std::stol(verdict.substr(i), &digits));
    i += digits;
    parts.words.push_back(word);
    word.clear();
  }
  parts.words.push_back(word);
  return parts;
}

// The number that goes from one verdict to the next by one step, all else being equal; its place in *place.
// Result: the step, 1 or -1, or 0 where it is not so.
long Step(const Parts& from, const Parts& to, size_t* place) {
  if (from.words != to.words) return 0;
  long step = 0;
  for (size_t i = 0; i < from.numbers.size(); ++i) {
    if (from.numbers[i] == to.numbers[i]) continue;
    if (step != 0) return 0;
    step = to.numbers[i] - from.numbers[i];
    *place = i;
  }
  return step == 1 || step == -1 ? step : 0;
}

// Part of a list from some verdict on: what it says of those before `end`.
struct Line {
  size_t end;
  std::string text;
};

Line EqualOnes(const std::vector<std::string>& verdicts, size_t first) {
  size_t end = first;
  while (end < verdicts.size() && verdicts[end] == verdicts[first]) ++end;
  return {end, verdicts[first]};
}

Line Steps(const std::vector<std::string>& verdicts, size_t first) {
  const Parts start = Split(verdicts[first]);
  Parts last = start;
  size_t end = first + 1;
  size_t place = 0;
  for (long step = 0; end < verdicts.size(); ++end) {
    const Parts next = Split(verdicts[end]);
    size_t here = 0;
    const long found = Step(last, next, &here);
    if (found == 0 || (step != 0 && (found != step || here != place))) break;
    step = found;
    place = here;
    last = next;
  }
  if (end - first < 3) return {first, ""};
  std::string text;
  for (size_t i = 0; i < start.numbers.size(); ++i) {
    text += start.words[i] + to_string(start.numbers[i]);
    if (i == place) text += " to " + to_string(last.numbers[i]);
  }
  return {end, text + start.words.back()};
}

Line Rounds(const std::vector<std::string>& verdicts, size_t first, size_t period) {
  size_t end = first + period;
  while (end < verdicts.size() && verdicts[end] == verdicts[end - period]) ++end;
  if (end > verdicts.size() || end - first < 3 * period) return {first, ""};
  std::string text = "in turn " + verdicts[first];
  for (size_t i = 1; i < period; ++i) text += "; " + verdicts[first + i];
  return {end, text};
}

// The line that covers the most.
Line NextLine(const std::vector<std::string>& verdicts, size_t first) {
  Line best = EqualOnes(verdicts, first);
  for (const Line& line :
       {Steps(verdicts, first), Rounds(verdicts, first, 2), Rounds(verdicts, first, 3), Rounds(verdicts, first, 4)}) {
    if (line.end > best.end) best = line;
  }
  return best;
}

std::string Range(size_t first, size_t end) {
  return end - first == 1 ? to_string(first) : to_string(first) + "-" + to_string(end - 1);
}

// ---- Bystanders -----------------------------------------------------------------------------------------------------

std::string NameOfNode(const inspect::Model& model, const inspect::NodeInfo& node) {
  if (node.names.empty()) return "";
  const inspect::NameRef& name = node.names.front();
  return inspect::NameOf(model.nodes[name.directory].entries[name.entry].record);
}

bool Goes(const inspect::Model& model, const inspect::NodeInfo& node, const std::string& name) {
  return node.number == orba::kRootNode ? name.empty()
                                        : std::any_of(node.names.begin(), node.names.end(), [&](const auto& ref) {
                                            const auto& entry = model.nodes[ref.directory].entries[ref.entry];
                                            return inspect::NameOf(entry.record) == name;
                                          });
}

Bytes ContentsOf(const InspectedImage& image, const inspect::Model& model, const inspect::NodeInfo& node) {
  const inspect::Geometry& geometry = model.geometry;
  Bytes contents(node.record.size);
  for (uint32_t done = 0; done < contents.size(); done += geometry.blockSize) {
    const uint32_t block = inspect::FindBlock(image, geometry, node.record, done / geometry.blockSize);
    const size_t length = std::min<size_t>(geometry.blockSize, contents.size() - done);
    if (block == 0 || !image.Read(geometry.BlockOffset(block), &contents[done], length)) return {};
  }
  return contents;
}

}  // namespace

bool InspectedImage::Read(uint64_t offset, void* out, size_t count) const {
  return offset + count <= image_.size() && image_.Read(offset, out, count) == count;
}

inspect::Report Inspect(const FileImage& image) { return inspect::Check(InspectedImage(image)); }

std::string Verdict(const inspect::Report& report) {
  std::string text;
  for (const inspect::KindInfo& info : inspect::AllKinds()) {
    if (report.Count(info.kind) == 0 || info.severity == inspect::Severity::kNote) continue;
    const bool blocks = info.kind == inspect::Kind::kBlockLeaked;
    const uint64_t count = blocks ? report.totals.leakedBlocks : report.Count(info.kind);
    text += (text.empty() ? "" : ", ") + std::string(info.name) + " " + to_string(count);
  }
  if (report.marked) return text.empty() ? "marked" : "marked, " + text;
  return text.empty() ? "clean" : text;
}

FileImage Unmarked(FileImage image) {
  const Bytes none(sizeof orba::VolumeHeader::stateFlags);
  image.Write(orba::kStateFlagsOffset, none.data(), none.size());
  return image;
}

std::string VerdictList(const std::vector<std::string>& verdicts, size_t number) {
  std::string text;
  for (size_t first = 0; first < verdicts.size();) {
    const Line line = NextLine(verdicts, first);
    text += Range(number + first, number + line.end) + " " + line.text + "\n";
    first = line.end;
  }
  return text;
}

std::string VerdictList(const std::map<size_t, std::string>& verdicts) {
  std::string text;
  for (auto next = verdicts.begin(); next != verdicts.end();) {
    const size_t first = next->first;
    std::vector<std::string> run;
    for (; next != verdicts.end() && next->first == first + run.size(); ++next) run.push_back(next->second);
    text += VerdictList(run, first);
  }
  return text;
}

Bystanders::Bystanders(const FileImage& image, const std::vector<std::string>& except) {
  const InspectedImage bytes(image);
  const inspect::Report report = inspect::Check(bytes);
  if (!report.IsClean()) throw std::invalid_argument("not a sound container: " + inspect::ToText(report));
  size_t excepted = 0;
  for (const inspect::NodeInfo& node : report.model.nodes) {
    if (node.state != inspect::NodeState::kUsed) continue;
    const std::string path = inspect::PathOf(report.model, node.number);
    if (std::find(except.begin(), except.end(), path) != except.end()) {
      ++excepted;
    } else {
      nodes_[node.number] = {NameOfNode(report.model, node), node.record, ContentsOf(bytes, report.model, node)};
    }
  }
  if (excepted != except.size()) throw std::invalid_argument("a path that is not there");
}

std::string Bystanders::MissingFrom(const FileImage& image, const inspect::Report& report) const {
  const InspectedImage bytes(image);
  const inspect::Model& model = report.model;
  for (const auto& [number, before] : nodes_) {
    const std::string who = "node " + to_string(number) + " \"" + before.name + "\" ";
    if (!model.IsNode(number) || model.nodes[number].state != inspect::NodeState::kUsed) return who + "is not in use";
    const inspect::NodeInfo& node = model.nodes[number];
    if (node.reach != inspect::Reach::kRoot) return who + "is out of reach";
    if (!Goes(model, node, before.name)) return who + "has another name";
    if (memcmp(&node.record, &before.record, sizeof node.record) != 0) return who + "has another record";
    if (ContentsOf(bytes, model, node) != before.contents) return who + "has other contents";
  }
  return "";
}

std::string Bystanders::LostFrom(const FileImage& image, const inspect::Report& report) const {
  const InspectedImage bytes(image);
  const inspect::Model& model = report.model;
  for (const auto& entry : nodes_) {
    const auto& before = entry.second;  // a lambda cannot capture the name of a structured binding
    if (before.contents.empty() || (before.record.attributes & orba::ORB_NODE_DIRECTORY) != 0) continue;
    const bool there = std::any_of(model.nodes.begin(), model.nodes.end(), [&](const inspect::NodeInfo& node) {
      return node.state == inspect::NodeState::kUsed && node.reach == inspect::Reach::kRoot &&
             node.record.size == before.contents.size() && ContentsOf(bytes, model, node) == before.contents;
    });
    if (!there) return "the contents of \"" + before.name + "\" are not there";
  }
  return "";
}

std::string Bystanders::MissingFrom(const std::map<std::string, File>& volume) const {
  for (const auto& [number, before] : nodes_) {
    if ((before.record.attributes & orba::ORB_NODE_DIRECTORY) != 0) continue;
    const auto found = volume.find(before.name);
    if (found == volume.end()) return before.name + " is not found";
    if (found->second.attributes != before.record.attributes) return before.name + " has other attributes";
    if (found->second.contents != before.contents) return before.name + " has other contents";
  }
  return "";
}

}  // namespace testhost
