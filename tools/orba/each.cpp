#include "tools/orba/each.h"

namespace orba::tool {

int Refuse(const std::vector<Failure>& refusals, const std::string& outcome) {
  constexpr std::size_t kShown = 20;
  for (std::size_t i = 0; i < refusals.size() && i < kShown; ++i) Report(refusals[i]);
  if (refusals.size() > kShown) Report("and " + std::to_string(refusals.size() - kShown) + " more of the kind");
  Report(outcome);
  return kFailed;
}

}  // namespace orba::tool
