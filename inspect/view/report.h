// How the report of a check reads. Stands on check.
#pragma once

#include <string>

#include "inspect/check/check.h"

namespace orba::inspect {

// For people: a line for each finding, then a summary. For programs: one JSON object.
std::string ToText(const Report& report);
std::string ToJson(const Report& report);

}  // namespace orba::inspect
