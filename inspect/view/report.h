// How the report of a check reads, and as JSON what a repair does and keeps. Stands on json, check and repair.
#pragma once

#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/repair/action.h"
#include "inspect/repair/promise.h"
#include "inspect/view/json.h"

namespace orba::inspect {

// After the worst finding: "clean", "leaks", "interrupted" or "damaged".
const char* Verdict(const Report& report);

// "damaged, marked as being updated: damage 1, interrupted 0, leak 0, note 0"
std::string VerdictText(const Report& report);

// For people: a line for each finding, then a summary that ends with the verdict.
std::string ToText(const Report& report);

// For programs: the members of an object, the same as an object of their own, and the parts of a plan. docs/json.md
// tells what they mean.
void AddReport(const Report& report, JsonObject* json);
std::string ToJson(const Report& report);
std::string ToJson(const Promise& promise);
std::string ToJson(const std::vector<Action>& actions);

}  // namespace orba::inspect
