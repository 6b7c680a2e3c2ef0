#include "inspect/repair/action.h"

#include "inspect/check/finding.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

using std::to_string;

struct Wording {
  ActionKind kind;
  // {node}, {other}: path and number; {number}: of the node alone; {name}, {new}: in quotation marks; {path}: the new
  // name as it is; {block}, {first}, {last}: numbers; {count UNIT}, {first UNIT}: with the unit in its right form.
  const char* text;
  const char* many;  // where there is another sentence for a count above 1
};

// In the order of ActionKind.
constexpr Wording kWordings[] = {
    {ActionKind::kSetMark, "marks the container as being updated", nullptr},
    {ActionKind::kClearMark, "clears the mark of an update in progress", nullptr},
    {ActionKind::kWriteHeader, "writes the header anew, for blocks of {first} bytes and a bitmap of {last} bytes",
     nullptr},
    {ActionKind::kPointTable, "points table entry {first} at block {block}, which holds its nodes", nullptr},
    {ActionKind::kClearTable, "clears table entry {first}: it leads to no node block",
     "clears table entries {first} to {last}: they lead to no node blocks"},
    {ActionKind::kSignSlot, "writes signature and number into the slot of node {number}", nullptr},
    {ActionKind::kClearFreeSlot, "clears the slot of node {number}, which is free", nullptr},
    {ActionKind::kClearLostSlot, "clears the slot of node {number}, whose record is lost, and frees the node", nullptr},
    {ActionKind::kUseRoot, "notes in the bitmap that the root's node is in use", nullptr},
    {ActionKind::kFreeNumbers, "notes in the bitmap that node {first} is free: no node block holds it",
     "notes in the bitmap that nodes {first} to {last} are free: no node block holds them"},
    {ActionKind::kUseNamed, "notes in the bitmap that node {number}, to which {name} refers, is in use", nullptr},
    {ActionKind::kUseWithData,
     "notes in the bitmap that node {number}, which has {count byte} in blocks that nothing else uses, is in use",
     nullptr},
    {ActionKind::kFixRecord, "gives {node} attributes {first} and clears its reserved bytes", nullptr},
    {ActionKind::kMakeRootRecord, "makes a new root node for the directory in block {block}", nullptr},
    {ActionKind::kMakeRoot, "makes a new, empty root directory", nullptr},
    {ActionKind::kMakeRecord, "makes a new record of node {number} for the directory in block {block}", nullptr},
    {ActionKind::kMakeNodeBlock,
     "makes a new block for the nodes of table entry {first}, with the directories among them", nullptr},
    {ActionKind::kReturnRecord, "gives node {number} its record back, which lies in a lost block as well", nullptr},
    {ActionKind::kMoveRecord, "gives node {number} its record back, which lies in the slot of node {first}", nullptr},
    {ActionKind::kMoveRecords,
     "writes the node block of table entry {first} anew, as block {block}, with {count record} from the slots of other "
     "nodes",
     nullptr},
    {ActionKind::kReturnSectors,
     "writes a block of {node} anew, as block {block}: {count sector} of it and of node records had changed places",
     nullptr},
    {ActionKind::kFreeNode, "frees node {number}: it holds nothing and has no name", nullptr},
    {ActionKind::kReturnMap, "gives {node} its block-map block {block} back, which leads to {count block}", nullptr},
    {ActionKind::kReturnEntries, "gives {node} its block {block} with {count entry} back", nullptr},
    {ActionKind::kReturnFirst, "gives {node} its first block back", nullptr},
    {ActionKind::kNewFirst, "gives {node} a new first block", nullptr},
    {ActionKind::kSplitReturn, "gives {node} its own first block {block} back: block {first} is another directory's",
     nullptr},
    {ActionKind::kSplitNew, "gives {node} a first block of its own: block {first} is another directory's", nullptr},
    {ActionKind::kCopyBlock, "gives {node} a copy of block {block}, which something else uses too", nullptr},
    {ActionKind::kTakeTwice, "takes block {block} out of {node}: there already",
     "takes {count block} out of {node}: there already"},
    {ActionKind::kTakeStray, "takes block {block} out of {node}: past the size and something else's",
     "takes {count block} out of {node}: past the size and something else's"},
    {ActionKind::kTakeForeignMap, "takes block {block} out of {node}: something else's, and no block numbers",
     "takes {count block} out of {node}: something else's, and no block numbers"},
    {ActionKind::kTakeNoNumbers, "takes block {block} out of {node}: no block numbers in it",
     "takes {count block} out of {node}: no block numbers in them"},
    {ActionKind::kTakeNoEntries, "takes block {block} out of {node}: no entries in it",
     "takes {count block} out of {node}: no entries in them"},
    {ActionKind::kTakeOutside, "takes block {block} out of {node}: beyond the container's end",
     "takes {count block} out of {node}: beyond the container's end"},
    {ActionKind::kTakeDouble, "takes the double-indirect block, which serves nothing, out of {node}", nullptr},
    {ActionKind::kTakeUnneeded, "takes block-map blocks that serve nothing out of {node}", nullptr},
    {ActionKind::kCountGrown, "counts the entry {name} that was added to {node}", nullptr},
    {ActionKind::kUndoGrowth, "takes block {block}, with which it was about to grow, out of {node}", nullptr},
    {ActionKind::kFixSize, "corrects the size of {node}, which has blocks past its size", nullptr},
    {ActionKind::kFillHoles, "fills {count missing block} of {node} with zeros", nullptr},
    {ActionKind::kCutShrunk, "cuts {node} off after {count block}: the next was being freed", nullptr},
    {ActionKind::kCutMissing, "cuts {node} off after {count block}: the rest is not there", nullptr},
    {ActionKind::kCutHole, "cuts {node} off before its first missing block", nullptr},
    {ActionKind::kCutTail, "cuts {node} off after {count byte}: the rest is not there", nullptr},
    {ActionKind::kFillTail, "fills block {block}, in which the container ends, up with zeros", nullptr},
    {ActionKind::kDropFreedBlock, "takes the last block out of {node}: it was already freed", nullptr},
    {ActionKind::kWholeEntries, "makes the size of {node} one of whole entries", nullptr},
    {ActionKind::kSetEnd, "sets the end mark of {node} over {name}, which its size does not count", nullptr},
    {ActionKind::kCountMore, "counts {count entry} more in {node}", nullptr},
    {ActionKind::kCountLess, "counts {count entry} less in {node}", "counts {count entry} fewer in {node}"},
    {ActionKind::kCloseGaps, "closes the gaps between the entries of {node}", nullptr},
    {ActionKind::kEmptyCopy, "takes {count entry} out of {node}, whose first block is a copy of that of {other}",
     nullptr},
    {ActionKind::kRemoveSecond, "removes {name} from {node}: node {first} keeps its name {new} in {other}", nullptr},
    {ActionKind::kRemoveTwice, "removes {name} from {node}: it is there twice", nullptr},
    {ActionKind::kRemoveDangling, "removes {name} from {node}: node {first} is not there", nullptr},
    {ActionKind::kRemoveMany, "removes {count name} from {node}: the nodes are not there or keep other names", nullptr},
    {ActionKind::kEndMove,
     "ends the interrupted move of node {first}, the only one with two names: removes {name} from {node}; it keeps "
     "{new} in {other}",
     nullptr},
    {ActionKind::kEndRemoval,
     "ends the interrupted removal in {node}: removes {name}, written in part over the removed entry; node {first}, "
     "the "
     "only one with two names, keeps {new}",
     nullptr},
    {ActionKind::kUndoRemoval,
     "takes the interrupted removal in {node} back: {name}, whose entry is cleared, refers to node {first} again, the "
     "only one without a name",
     nullptr},
    {ActionKind::kCopyNode, "gives {name} in {node} a copy of {new} in {other}: both refer to node {first}", nullptr},
    {ActionKind::kKeepCopy, "keeps what {name} was read as, as {path}", nullptr},
    {ActionKind::kRepoint,
     "lets {name} in {node} refer to node {first}, which has lost its name, and no longer to node {last}", nullptr},
    {ActionKind::kRename, "renames {name} in {node} to {new}", nullptr},
    {ActionKind::kWriteDot, "writes {name} of {node} anew", nullptr},
    {ActionKind::kBreakCycle, "takes {other} out of {node}, which lies in it: no path leads there", nullptr},
    {ActionKind::kMakeLostFound, "makes the directory {path}", nullptr},
    {ActionKind::kLink, "links node {number}, which has {count byte} but no name, as {path}", nullptr},
    {ActionKind::kBuildChain, "builds the free chain anew: {count block} in {first record}", nullptr},
};

constexpr bool AreInOrder() {
  std::size_t at = 0;
  for (const Wording& wording : kWordings) {
    if (static_cast<std::size_t>(wording.kind) != at++) return false;
  }
  return at == static_cast<std::size_t>(ActionKind::kBuildChain) + 1;
}
static_assert(AreInOrder(), "one sentence for each kind");

// "/LOGS (node 5)"; "(node 5)" where no path leads there.
std::string Place(const std::string& path, std::uint16_t number) {
  const std::string node = "(node " + to_string(number) + ")";
  return path.empty() || path == node ? node : path + " " + node;
}

std::string Quoted(const std::string& name) { return "\"" + Printable(name) + "\""; }

std::string Value(const Action& action, const std::string& key) {
  if (key == "node") return Place(action.path, action.node);
  if (key == "other") return Place(action.otherPath, action.other);
  if (key == "number") return to_string(action.node);
  if (key == "block") return to_string(action.block);
  if (key == "first") return to_string(action.first);
  if (key == "last") return to_string(action.last);
  if (key == "name") return Quoted(action.name);
  if (key == "new") return Quoted(action.newName);
  if (key == "path") return action.newName;
  const std::size_t space = key.find(' ');
  const std::string unit = key.substr(space + 1);
  const std::uint64_t count = key.compare(0, space, "count") == 0 ? action.count : action.first;
  return unit == "entry" ? Counted(count, "entry", "entries") : Counted(count, unit.c_str());
}

}  // namespace

std::string ToText(const Action& action) {
  const Wording& wording = kWordings[static_cast<std::size_t>(action.kind)];
  const std::string form = action.count != 1 && wording.many != nullptr ? wording.many : wording.text;
  std::string text;
  for (std::size_t at = 0;;) {
    const std::size_t open = form.find('{', at);
    text += form.substr(at, open - at);
    if (open == std::string::npos) break;
    const std::size_t close = form.find('}', open);
    text += Value(action, form.substr(open + 1, close - open - 1));
    at = close + 1;
  }
  return action.dropsChain ? text + "; drops the free chain for now" : text;
}

}  // namespace orba::inspect
