#include "inspect/check/finding.h"

#include <algorithm>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

using std::to_string;

constexpr Severity kNote = Severity::kNote;
constexpr Severity kLeak = Severity::kLeak;
constexpr Severity kInterrupted = Severity::kInterrupted;
constexpr Severity kDamage = Severity::kDamage;

// In a sentence stand in braces
//   {node} {block} {count}    of the finding's place; {lastNode} and {lastBlock} end a row of `count` of them
//   {0} {1} {2}               the facts' numbers
//   {name} {owner} {earlier}  the other facts
//   {field}                   the header's field at the place
//   {count#byte|bytes}        a number with its noun
//   {count?is|are}            one text for one, another for any other number
//   {0|first|second|third}    the text for 0, 1, 2; the last one for greater numbers too
// Texts to choose from may hold braces themselves.
constexpr std::array<KindInfo, kKinds> kKindInfo = {{
    // ---- The container and its header
    {Kind::kUnreadable, kDamage, "unreadable", "", "the host cannot read here"},
    // 0: the bitmap is reached
    {Kind::kContainerShort, kDamage, "container-short", "C1",
     "the container ends before {0|the node bitmap; nothing can be read|its data area}"},
    {Kind::kContainerLong, kDamage, "container-long", "C1",
     "the container has 2^31 bytes or more; a host cannot seek so far"},
    // 0: they begin a block that is in use, 1: that block
    {Kind::kTrailingBytes, kNote, "trailing-bytes", "",
     "{count#byte follows|bytes follow} the last whole block; {0|the next block appended overwrites "
     "{count?it|them}|{count?it begins|they begin} block {1}, which is in use}"},
    {Kind::kHeaderSignature, kDamage, "header-signature", "C1",
     "the container does not begin with \"ORBA\"; a mount refuses this"},
    {Kind::kHeaderVersion, kDamage, "header-version", "C1", "the version is not \"1.0 \"; a mount refuses this"},
    // 0: what it is, 1: what it should be, 2: all fields agree with each other
    {Kind::kHeaderField, kDamage, "header-field", "C1",
     "{field} is {0} and should be {1}; a mount {2|refuses this|believes it and finds no root}"},
    // 0: a flag
    {Kind::kHeaderReserved, kDamage, "header-reserved", "C1",
     "{0|a reserved byte of the header is not zero|state flags are set that have no meaning}"},
    {Kind::kHeaderShiftBits, kNote, "header-shift-bits", "",
     "the block shift has bits above its low byte, which nothing reads"},
    // 0: its size
    {Kind::kReservedRegion, kNote, "reserved-region", "",
     "the header keeps {0#byte|bytes} free between bitmap and data area"},
    {Kind::kHeaderTorn, kInterrupted, "header-torn", "",
     "the free chain begins in block {block}, which holds no record of it: of an update of the header, or of that "
     "record, a part was written"},
    {Kind::kLayoutUnknown, kDamage, "layout-unknown", "C1",
     "block size and bitmap size are contradictory and no root directory was found; nothing further was read"},

    // ---- Node-block table, bitmap, node blocks. 0: the table entry
    {Kind::kTableOutside, kDamage, "table-outside", "C3",
     "table entry {0} refers to block {block}, which lies beyond the container's end"},
    {Kind::kTableUnneeded, kDamage, "table-unneeded", "C4",
     "table entry {0} refers to a block for nodes that the volume cannot have"},
    {Kind::kTableTorn, kInterrupted, "table-torn", "",
     "table entry {0} refers to block {block}, which holds no nodes, and none of its nodes is in use: of an update of "
     "the table, or of that block, a part was written"},
    // 1 and 2: the first and the last node
    {Kind::kNodeBlockForeign, kDamage, "node-block-foreign", "C4",
     "table entry {0} refers to block {block}, which holds no nodes; nodes {1} to {2} are lost"},
    {Kind::kNodeBlockUnused, kNote, "node-block-unused", "S3", "block {block} holds nodes, none of them in use"},
    {Kind::kNodeSignature, kDamage, "node-signature", "C4", "the node's slot does not begin with \"INO1\""},
    // 0: the number that it has
    {Kind::kNodeNumber, kDamage, "node-number", "C4", "the slot has number {0} instead of its own"},
    // 0: the table has no place for it
    {Kind::kNodeWithoutBlock, kDamage, "node-without-block", "C4, S2",
     "the bitmap says that {count?the node is|nodes {node} to {lastNode} are} in use, but {0|no node block holds "
     "{count?its record|their records}|the node-block table has no room for {count?it|them}}"},
    // 0: the node
    {Kind::kBitmapTorn, kInterrupted, "bitmap-torn", "",
     "\"{name}\" refers to node {0}, which the bitmap calls free: of an update, the one was written and the other not"},
    {Kind::kRootFree, kDamage, "root-free", "C4",
     "the bitmap says that the root's node is free; it would be allocated again"},
    // 0: it can be read
    {Kind::kRootLost, kDamage, "root-lost", "C4",
     "{0|the root directory's node cannot be read; no path leads anywhere|the root's node is not a directory}"},

    // ---- Node records and block maps
    // 0: the contents of a directory, or of no directory, speak against them; 1: the attributes
    {Kind::kNodeAttributes, kDamage, "node-attributes", "C4",
     "{0|attributes {1} are not a file's, a directory's or the root's"
     "|the attributes are a file's, but the contents are this directory's"
     "|the attributes are a directory's, but the contents are not}"},
    {Kind::kNodeReserved, kDamage, "node-reserved", "C4", "a reserved byte of the node is not zero"},
    {Kind::kNodeTime, kNote, "node-time", "", "the time stamp is not a date of the calendar"},
    // 0: the size
    {Kind::kNodeSize, kDamage, "node-size", "C5", "a size of {0#byte|bytes} is more than a block map can hold"},
    // 0: only the order is wrong, 1: the first logical block that it serves, 2: the blocks that the size counts
    {Kind::kMapBlockMissing, kDamage, "map-block-missing", "C5, M1",
     "{0|no block-map block serves logical block {1} and what follows; the size counts {2#block|blocks}"
     "|there is a double-indirect block but no indirect block}"},
    // 0: what the block shows itself to be, 1: the first logical block that it serves
    {Kind::kMapBlockForeign, kDamage, "map-block-foreign", "C5, M2",
     "block {block} should serve logical block {1} and what follows, but holds "
     "{0|anything|no block numbers|node records|a directory}"},
    // 0: in the double-indirect block, 1: the blocks that the size counts, 2: the first that is missing
    {Kind::kMapHole, kDamage, "map-hole", "C5, M1",
     "{0|no block for {count} of {1#logical block|logical blocks}, from {2} on; reading there fails"
     "|the double-indirect block has a gap before this slot}"},
    // 0: a block-map block, 1 and 2: the first and the last logical block
    {Kind::kMapOutside, kDamage, "map-outside", "C3, M4",
     "{0|{count?logical block {1} is block {block}, which lies beyond the container's end"
     "|logical blocks {1} to {2} are blocks beyond the container's end, the first block {block}}"
     "|the map refers to block {block} as block-map block, which lies beyond the container's end}"},
    // 0: the first logical block
    {Kind::kMapBeyondSize, kDamage, "map-beyond-size", "C5",
     "{count#block|blocks} past the size, from logical block {0} on; the size may be damaged"},
    {Kind::kBlockShared, kDamage, "block-shared", "C2",
     "block {block} serves {owner}, but also {earlier}; a write to the one changes the other"},
    // 0: the logical block
    {Kind::kGrowthInterrupted, kInterrupted, "growth-interrupted", "",
     "logical block {0} lies past the size: growth was stopped before it stored the size"},
    {Kind::kShrinkInterrupted, kInterrupted, "shrink-interrupted", "",
     "logical block {0}, the last, is already out of the map: a shrink was stopped before it stored the size"},

    // ---- Directories
    // 0: the size
    {Kind::kDirSize, kDamage, "dir-size", "C6, D2",
     "a directory cannot have {0#byte|bytes}: it has 32 for each entry, and two entries at least"},
    // 0: the first such entry
    {Kind::kDirHole, kDamage, "dir-hole", "C6, D2",
     "{count#entry|entries} inside the size without a node, from entry {0} on; a reader takes that for the "
     "directory's end"},
    {Kind::kDirBeyondSize, kDamage, "dir-beyond-size", "C6, D2",
     "{count#entry|entries} behind the last one that the size counts, where an end mark should be"},
    // 0: the first entry
    {Kind::kDirBlockForeign, kDamage, "dir-block-foreign", "C6",
     "block {block} should hold the directory's entries from {0} on, but holds something else"},
    {Kind::kDirAfterEnd, kNote, "dir-after-end", "", "node numbers behind the directory's end mark are not zero"},
    // 0: the node that the entry refers to, here and below
    {Kind::kDirDot, kDamage, "dir-dot", "C6, D1",
     "the first entry is \"{name}\" of node {0} instead of \".\" of the directory itself"},
    {Kind::kDirDotDot, kDamage, "dir-dotdot", "C6, D1",
     "the second entry is \"{name}\" of node {0} instead of \"..\" of the directory above"},
    {Kind::kDirCycle, kDamage, "dir-cycle", "C7",
     "this directory is contained in itself, through others or directly; no path leads to it"},
    {Kind::kNameIllegal, kDamage, "name-illegal", "C6", "the name \"{name}\" is not one that a path can hold"},
    {Kind::kNameLowerCase, kDamage, "name-lower-case", "C6", "the name \"{name}\" is not in upper case"},
    {Kind::kNameDuplicate, kDamage, "name-duplicate", "C6",
     "the name \"{name}\" occurs twice; only the first can be opened"},
    {Kind::kEntryOutside, kDamage, "entry-outside", "C7",
     "\"{name}\" refers to node {0}, a number that the volume does not have"},
    {Kind::kEntryToRoot, kDamage, "entry-to-root", "C7", "\"{name}\" refers to the root, which has no name"},
    {Kind::kEntryToFree, kDamage, "entry-to-free", "C7, S2",
     "\"{name}\" refers to node {0}, which is free and would be allocated again"},
    {Kind::kEntryToLost, kDamage, "entry-to-lost", "C7", "\"{name}\" refers to node {0}, whose record is lost"},
    {Kind::kManyNames, kDamage, "many-names", "C7",
     "{count#entry refers|entries refer} to this node; deleting one leaves the others without a node"},
    {Kind::kAppendInterrupted, kInterrupted, "append-interrupted", "",
     "\"{name}\" of node {0} stands just past the size: an entry was added, but not yet counted"},
    {Kind::kRemovalInterrupted, kInterrupted, "removal-interrupted", "",
     "the last entry is cleared but the size still counts it: a removal was stopped before it stored the size"},
    {Kind::kEntryDoubled, kInterrupted, "entry-doubled", "",
     "\"{name}\" was copied into the place of a removed entry but still stands at the end"},
    {Kind::kLastBlockFreed, kInterrupted, "last-block-freed", "D4",
     "block {block}, the directory's last, is already free: a removal was stopped before it stored the size"},
    // 0 and 1: the directories
    {Kind::kTwoNames, kInterrupted, "two-names", "",
     "the node has a name in node {0} and one in node {1}: a move was stopped before it removed the old one"},

    // 0: which part was written
    {Kind::kDirTorn, kInterrupted, "dir-torn", "",
     "{0|\"{name}\" stands in the place of a removed entry and still at the end of the same block"
     "|\"{name}\" refers to the last entry's node, by a name that is partly a removed entry's"
     "|the entry just past the size has no name yet}: a part of the block was written"},

    // ---- Free chain
    {Kind::kChainOutside, kDamage, "chain-outside", "C3",
     "the free chain goes on in block {block}, which lies beyond the container's end"},
    {Kind::kChainSignature, kDamage, "chain-signature", "C8",
     "block {block} is linked as a free-chain record but does not begin with \"FBC1\""},
    // 0: the entries that the record has room for, 1: those that it counts
    {Kind::kChainCount, kDamage, "chain-count", "C8", "the record counts {1#entry|entries} and has room for {0}"},
    {Kind::kChainCycle, kDamage, "chain-cycle", "C8", "the free chain leads back to block {block}"},
    {Kind::kChainZeroEntry, kDamage, "chain-zero-entry", "C8, F2", "the record lists block 0; a mount refuses this"},
    // 0: the block listed
    {Kind::kChainEntryOutside, kDamage, "chain-entry-outside", "C3",
     "the record lists block {0}, which lies beyond the container's end; it would be allocated"},
    // 0: the entry, counted from 1
    {Kind::kChainHeapOrder, kDamage, "chain-heap-order", "C8, F2",
     "entry {0} is smaller than its parent; the lowest block would not be allocated first"},
    // 0: it is a record
    {Kind::kChainDuplicate, kDamage, "chain-duplicate", "C2",
     "block {block} {0|is in the free chain twice; it would be allocated twice"
     "|is a free-chain record and listed in one}"},
    // 0: the entries that it counts
    {Kind::kChainTorn, kInterrupted, "chain-torn", "",
     "the record counts {0#entry|entries}, but not all of them are there: of an update of the record, a part was "
     "written"},
    {Kind::kChainBlockInUse, kDamage, "chain-block-in-use", "C2",
     "block {block} is in the free chain but serves {earlier}; it would be allocated again"},
    {Kind::kChainPartial, kNote, "chain-partial", "", "a record behind the head is not full"},

    // ---- Leaks. 0: 1 where there is damage, and what refers to it may be lost with that; 2 on a marked container
    {Kind::kBlockLeaked, kLeak, "block-leaked", "",
     "{count?block {block} is|blocks {block} to {lastBlock} are} neither in use nor in the free chain; "
     "{0|ordinary use can leave this behind: map blocks of a file that was shortened before it was deleted, or of a "
     "directory that was large once|the damage may hide what refers to {count?it|them}"
     "|the interrupted update can have left {count?it|them} behind}"},
    // 1: the size
    {Kind::kNodeLeaked, kLeak, "node-leaked", "",
     "the node is in use, with {1#byte|bytes}, but has no name{0||; the damage may hide it}"},
}};

constexpr bool AreInOrder() {
  for (std::size_t i = 0; i < kKinds; ++i) {
    if (static_cast<std::size_t>(kKindInfo[i].kind) != i) return false;
  }
  return true;
}
static_assert(AreInOrder(), "a row for each kind, in the order of Kind");

// What a block serves as, by BlockUse. {0}: the owner's index.
constexpr const char* kUses[] = {
    "nothing",
    "as node block of table entry {0}",
    "as block-map block of node {node}",
    "as block {0} of file {node}",
    "as block {0} of directory {node}",
    "as free-chain record",
    "as free block",
};

// The sentence with its braces filled in.
class Filling {
 public:
  Filling(const Place& place, const Facts& facts) : place_(place), facts_(facts) {}

  std::string Fill(const std::string& pattern) const;

 private:
  std::string Insert(const std::string& slot) const;
  std::string TextOf(const std::string& key) const;
  std::uint64_t NumberOf(const std::string& key) const;
  static std::string OwnerText(const BlockInfo& owner);

  const Place& place_;
  const Facts& facts_;
};

// One past the brace that closes the one at `open`.
std::size_t EndOfBraces(const std::string& pattern, std::size_t open) {
  int depth = 0;
  for (std::size_t at = open; at < pattern.size(); ++at) {
    if (pattern[at] == '{') ++depth;
    if (pattern[at] == '}' && --depth == 0) return at + 1;
  }
  return pattern.size();
}

// The texts between bars, those in inner braces not counted.
std::vector<std::string> Choices(const std::string& texts) {
  std::vector<std::string> choices(1);
  int depth = 0;
  for (const char c : texts) {
    if (c == '{') ++depth;
    if (c == '}') --depth;
    if (c == '|' && depth == 0) {
      choices.emplace_back();
    } else {
      choices.back() += c;
    }
  }
  return choices;
}

std::string Filling::Fill(const std::string& pattern) const {
  std::string text;
  for (std::size_t at = 0; at < pattern.size();) {
    const std::size_t open = std::min(pattern.find('{', at), pattern.size());
    text += pattern.substr(at, open - at);
    if (open == pattern.size()) break;
    at = EndOfBraces(pattern, open);
    text += Insert(pattern.substr(open + 1, at - open - 2));
  }
  return text;
}

std::string Filling::Insert(const std::string& slot) const {
  const std::size_t end = slot.find_first_of("#?|");
  if (end == std::string::npos) return TextOf(slot);
  const std::uint64_t number = NumberOf(slot.substr(0, end));
  const std::vector<std::string> choices = Choices(slot.substr(end + 1));
  if (slot[end] == '#') return to_string(number) + " " + Fill(choices[number == 1 ? 0 : 1]);
  if (slot[end] == '?') return Fill(choices[number == 1 ? 0 : 1]);
  return Fill(choices[static_cast<std::size_t>(std::min<std::uint64_t>(number, choices.size() - 1))]);
}

std::string Filling::TextOf(const std::string& key) const {
  if (key == "name") return Printable(facts_.name);
  if (key == "owner") return OwnerText(facts_.owner);
  if (key == "earlier") return OwnerText(facts_.earlier);
  if (key != "field") return to_string(NumberOf(key));
  const auto field = std::find_if(kHeaderFields.begin(), kHeaderFields.end(),
                                  [this](const Field& each) { return each.offset == place_.offset; });
  return field == kHeaderFields.end() ? "" : field->meaning;
}

std::uint64_t Filling::NumberOf(const std::string& key) const {
  if (key == "node") return place_.node;
  if (key == "block") return place_.block;
  if (key == "count") return place_.count;
  if (key == "lastNode") return std::uint64_t{place_.node} + place_.count - 1;
  if (key == "lastBlock") return std::uint64_t{place_.block} + place_.count - 1;
  return facts_.numbers[static_cast<std::size_t>(key[0] - '0')];
}

std::string Filling::OwnerText(const BlockInfo& owner) {
  const Place place = {owner.node};
  const Facts facts = {{owner.index}};
  return Filling(place, facts).Fill(kUses[static_cast<std::size_t>(owner.use)]);
}

}  // namespace

const char* Name(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kLeak:
      return "leak";
    case Severity::kInterrupted:
      return "interrupted";
    case Severity::kDamage:
      return "damage";
  }
  return "damage";
}

const std::array<KindInfo, kKinds>& AllKinds() { return kKindInfo; }

const char* Name(Kind kind) { return kKindInfo[static_cast<std::size_t>(kind)].name; }

Severity SeverityOf(Kind kind) { return kKindInfo[static_cast<std::size_t>(kind)].severity; }

std::string Sentence(const Finding& finding) {
  return Filling(finding, finding.facts).Fill(kKindInfo[static_cast<std::size_t>(finding.kind)].sentence);
}

std::string Counted(std::uint64_t count, const char* one, const char* many) {
  const std::string name = count == 1 ? one : many != nullptr ? many : std::string(one) + "s";
  return std::to_string(count) + " " + name;
}

}  // namespace orba::inspect
