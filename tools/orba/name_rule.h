// The names that a container takes, and how to make one of a name that it does not take. Stands on address and failure.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "tools/orba/address.h"

namespace orba::tool {

extern const char* const kNameRule;  // in one sentence

// What is wrong with a name, such as "it has 31 characters"; empty for a legal one.
std::string NameProblem(const std::string& name);

// Throws a Failure where a name on the way to `address` cannot exist: for places that are to be made.
void RequireLegal(const Address& address);

// A legal name in upper case that resembles `name` and is not among `taken`: other characters become "_", a long name
// is shortened before its ending, and a number tells equal names apart.
std::string LegalName(const std::string& name, const std::set<std::string>& taken);

// The name in a container of each of `names`, which one directory is to hold: its own, in upper case, where that is
// legal and none before it has the same. Of the others it is empty or, with `rename`, legal and unlike all others. What
// is in the container already does not matter: the same names come out in every run.
std::vector<std::string> StoredNames(const std::vector<std::string>& names, bool rename);

}  // namespace orba::tool
