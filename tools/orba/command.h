// What a sub-command is: one record from which the help, the manual page and the completion are made, and which brings
// its syntax and its work. Each command's record stands in the file that does its work; commands.cpp lists them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/orba/syntax.h"

namespace orba::tool {

using Run = std::function<int()>;  // the exit status

struct Command {
  const char* name;
  const char* group;     // the heading that it stands under
  const char* operands;  // in the synopsis: "SOURCE... CONTAINER:/PATH"
  const char* summary;   // half a sentence
  const char* details;   // paragraphs, an empty line between them
  const char* examples;  // command lines; text behind "  # " explains
  Run (*define)(Syntax* syntax);
  const char* words = "";  // that may stand among the operands, for the completion: behind the first, or from "+" on
};

const std::vector<const Command*>& Commands();

// Options and operands of a command, its help included, and its work on the values that Parse puts in their places.
struct Definition {
  Syntax syntax;
  Run run;
};
Definition Define(const Command& command);

constexpr const char* kContainerGroup = "Containers";
constexpr const char* kLookGroup = "Looking at what is inside";
constexpr const char* kTransferGroup = "Between the host and a container";
constexpr const char* kChangeGroup = "Changing what is inside";
constexpr const char* kRepairGroup = "Damage";
constexpr const char* kPictureGroup = "Bytes and pictures";

}  // namespace orba::tool
