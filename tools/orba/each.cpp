#include "tools/orba/each.h"

namespace orba::tool {

void ReportAll(const std::vector<Failure>& failures) {
  constexpr std::size_t kShown = 20;
  for (std::size_t i = 0; i < failures.size() && i < kShown; ++i) Report(failures[i]);
  if (failures.size() > kShown) Report("and " + std::to_string(failures.size() - kShown) + " more of the kind");
}

}  // namespace orba::tool
