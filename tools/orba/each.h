// How commands with several operands go on: one that fails is reported, the others still get their turn.
#pragma once

#include <string>
#include <vector>

#include "tools/orba/failure.h"

namespace orba::tool {

// Calls `work` with every operand and gives the exit status. Stops early only where nothing more can be written.
template <typename Operands, typename Work>
int ForEach(const Operands& operands, const Work& work) {
  int status = kSuccess;
  for (const auto& operand : operands) {
    try {
      work(operand);
    } catch (const Failure& failure) {
      Report(failure);
      status = kFailed;
      if (failure.IsFinal()) break;
    }
  }
  return status;
}

// Reports the first failures and how many more there are.
void ReportAll(const std::vector<Failure>& failures);

}  // namespace orba::tool
