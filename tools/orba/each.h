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

// For plans that cannot be carried out: reports the refusals, the first of them at least, and gives the exit status.
int Refuse(const std::vector<Failure>& refusals, const std::string& outcome);

}  // namespace orba::tool
