// What the inspection has to say: findings, each with its kind, its place and the facts that its sentence needs. The
// table in finding.cpp says all else about a kind: severity, name, the rules that do not hold, the sentence. Stands on
// the model.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "inspect/check/model.h"

namespace orba::inspect {

enum class Severity : std::uint8_t {
  kNote,         // breaks no rule, but is worth a look
  kLeak,         // space in use that nothing refers to; nothing is lost but the space
  kInterrupted,  // what an operation that was stopped between two writes leaves: its end or its undoing is known
  kDamage,       // breaks a rule of the format
};

// From the worst down.
inline constexpr std::array kSeverities = {Severity::kDamage, Severity::kInterrupted, Severity::kLeak, Severity::kNote};

// "note", "leak", "interrupted", "damage"
const char* Name(Severity severity);

enum class Kind : std::uint8_t {
  // the container and its header
  kUnreadable,
  kContainerShort,
  kContainerLong,
  kTrailingBytes,
  kHeaderSignature,
  kHeaderVersion,
  kHeaderField,
  kHeaderReserved,
  kHeaderShiftBits,
  kReservedRegion,
  kHeaderTorn,
  kLayoutUnknown,
  // node-block table, bitmap, node blocks
  kTableOutside,
  kTableUnneeded,
  kTableTorn,
  kNodeBlockForeign,
  kNodeBlockUnused,
  kNodeSignature,
  kNodeNumber,
  kNodeWithoutBlock,
  kBitmapTorn,
  kRootFree,
  kRootLost,
  // node records and block maps
  kNodeAttributes,
  kNodeReserved,
  kNodeTime,
  kNodeSize,
  kMapBlockMissing,
  kMapBlockForeign,
  kMapHole,
  kMapOutside,
  kMapBeyondSize,
  kBlockShared,
  kGrowthInterrupted,
  kShrinkInterrupted,
  // directories
  kDirSize,
  kDirHole,
  kDirBeyondSize,
  kDirBlockForeign,
  kDirAfterEnd,
  kDirDot,
  kDirDotDot,
  kDirCycle,
  kNameIllegal,
  kNameLowerCase,
  kNameDuplicate,
  kEntryOutside,
  kEntryToRoot,
  kEntryToFree,
  kEntryToLost,
  kManyNames,
  kAppendInterrupted,
  kRemovalInterrupted,
  kEntryDoubled,
  kLastBlockFreed,
  kTwoNames,
  kDirTorn,
  // free chain
  kChainOutside,
  kChainSignature,
  kChainCount,
  kChainCycle,
  kChainZeroEntry,
  kChainEntryOutside,
  kChainHeapOrder,
  kChainDuplicate,
  kChainTorn,
  kChainBlockInUse,
  kChainPartial,
  // leaks
  kBlockLeaked,
  kNodeLeaked,
};
constexpr std::size_t kKinds = static_cast<std::size_t>(Kind::kNodeLeaked) + 1;

// What is to be known of a kind. Names and the words for severities are stable: scripts may rely on them.
struct KindInfo {
  Kind kind;
  Severity severity;
  const char* name;      // "block-shared"
  const char* rules;     // "C6, D2": the rules of check.h, and of the library's headers, that do not hold; "" = none
  const char* sentence;  // with the facts left open
};

// Every kind, in the order of Kind.
const std::array<KindInfo, kKinds>& AllKinds();

const char* Name(Kind kind);
Severity SeverityOf(Kind kind);

constexpr std::uint64_t kNoOffset = ~std::uint64_t{0};

// Where a finding lies. Parts left out are unknown.
struct Place {
  std::uint32_t node = 0;            // 0 = no node's
  std::uint32_t block = 0;           // 0 = outside the data area, or no block's
  std::uint64_t offset = kNoOffset;  // byte in the container
  std::uint32_t count = 1;           // how many things of this kind the finding stands for, such as blocks in a row
};

// What else a sentence needs. The table says for each kind what the numbers are.
struct Facts {
  std::array<std::uint64_t, 3> numbers = {};
  std::string name = {};   // an entry's, as it stands
  BlockInfo owner = {};    // who refers to the block
  BlockInfo earlier = {};  // who has it
};

struct Finding : Place {
  Kind kind = Kind::kUnreadable;
  Facts facts;
  std::string path;  // the node's path, where it has a node
};

// One sentence: what is wrong and what it means.
std::string Sentence(const Finding& finding);

// "1 block", "2 blocks"; for a plural of another kind: Counted(n, "entry", "entries").
std::string Counted(std::uint64_t count, const char* one, const char* many = nullptr);

}  // namespace orba::inspect
