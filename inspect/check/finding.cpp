#include "inspect/check/finding.h"

namespace orba::inspect {

namespace {

struct KindInfo {
  const char* name;
  Severity severity;
};

constexpr Severity kNote = Severity::kNote;
constexpr Severity kLeak = Severity::kLeak;
constexpr Severity kHalfMade = Severity::kHalfMade;
constexpr Severity kDamage = Severity::kDamage;

// In the order of Kind.
constexpr KindInfo kKindInfo[] = {
    {"unreadable", kDamage},
    {"container-short", kDamage},
    {"container-long", kDamage},
    {"trailing-bytes", kNote},
    {"header-signature", kDamage},
    {"header-version", kDamage},
    {"header-field", kDamage},
    {"header-reserved", kDamage},
    {"header-shift-bits", kNote},
    {"reserved-region", kNote},
    {"layout-unknown", kDamage},
    {"table-outside", kDamage},
    {"table-unneeded", kDamage},
    {"node-block-foreign", kDamage},
    {"node-block-idle", kNote},
    {"node-signature", kDamage},
    {"node-number", kDamage},
    {"node-placeless", kDamage},
    {"root-free", kDamage},
    {"root-lost", kDamage},
    {"node-attributes", kDamage},
    {"node-reserved", kDamage},
    {"node-time", kNote},
    {"node-size", kDamage},
    {"map-missing", kDamage},
    {"map-foreign", kDamage},
    {"map-hole", kDamage},
    {"map-outside", kDamage},
    {"map-beyond-size", kDamage},
    {"block-shared", kDamage},
    {"growth-half-made", kHalfMade},
    {"shrink-half-made", kHalfMade},
    {"dir-size", kDamage},
    {"dir-hole", kDamage},
    {"dir-past-size", kDamage},
    {"dir-block-foreign", kDamage},
    {"dir-after-end", kNote},
    {"dir-dot", kDamage},
    {"dir-dotdot", kDamage},
    {"dir-cycle", kDamage},
    {"name-illegal", kDamage},
    {"name-lower", kDamage},
    {"name-duplicate", kDamage},
    {"entry-outside", kDamage},
    {"entry-to-root", kDamage},
    {"entry-to-free", kDamage},
    {"entry-to-lost", kDamage},
    {"many-names", kDamage},
    {"append-half-made", kHalfMade},
    {"removal-half-made", kHalfMade},
    {"entry-doubled", kHalfMade},
    {"last-block-given-back", kHalfMade},
    {"two-names", kHalfMade},
    {"chain-outside", kDamage},
    {"chain-signature", kDamage},
    {"chain-count", kDamage},
    {"chain-cycle", kDamage},
    {"chain-zero-entry", kDamage},
    {"chain-entry-outside", kDamage},
    {"chain-heap-order", kDamage},
    {"chain-duplicate", kDamage},
    {"chain-block-in-use", kDamage},
    {"chain-partial", kNote},
    {"block-leaked", kLeak},
    {"node-leaked", kLeak},
};
static_assert(sizeof kKindInfo / sizeof kKindInfo[0] == kKinds, "one row for each kind");

}  // namespace

const char* Name(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kLeak:
      return "leak";
    case Severity::kHalfMade:
      return "half-made";
    case Severity::kDamage:
      return "damage";
  }
  return "damage";
}

const char* Name(Kind kind) { return kKindInfo[static_cast<std::size_t>(kind)].name; }

std::string Counted(std::uint64_t count, const char* one, const char* many) {
  const std::string name = count == 1 ? one : many != nullptr ? many : std::string(one) + "s";
  return std::to_string(count) + " " + name;
}

Severity SeverityOf(Kind kind) { return kKindInfo[static_cast<std::size_t>(kind)].severity; }

}  // namespace orba::inspect
