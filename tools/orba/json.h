// What commands print with --json: one object for each container, on a line of its own. docs/json.md is for those who
// read it. Stands on failure, look and inspect/.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "inspect/container/names.h"
#include "inspect/view/json.h"
#include "tools/orba/failure.h"
#include "tools/orba/look.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

using inspect::JsonArray;
using inspect::JsonObject;

// Names of the host, and messages that hold some, as a JSON string. They may be any bytes: each one that is not UTF-8
// becomes U+FFFD and two hexadecimal digits, and so does each of a U+FFFD, so that nothing else reads the same.
std::string HostText(const std::string& text);
std::string HostTexts(const std::vector<std::string>& texts);

// The message in one line, without the advice.
std::string ReasonOf(const Failure& failure);

// The members of a place in a container: path, kind, size, time and attributes.
JsonObject PlaceJson(const Match& match);
// "2026-11-21T03:15:09Z", or null where there is no date.
std::string TimeJson(std::optional<std::int64_t> seconds);

void AddError(const Failure& failure, JsonObject* json);

// The object of a container. Has `fill` add to it, and prints it in any case; what `fill` fails with stands in it as
// the error, and is thrown on. `name` is "container" and `text` the container's, or what else it begins with.
template <typename Fill>
void PrintObject(const char* name, const std::string& text, const Fill& fill) {
  JsonObject json;
  json.Json(name, HostText(text));
  try {
    fill(&json);
  } catch (const Failure& failure) {
    AddError(failure, &json);
    Print(json.Done() + "\n");
    throw;
  }
  Print(json.Done() + "\n");
}

// An object that is printed as it comes, for what has to be told before it is done.
class OpenObject {
 public:
  OpenObject(const char* name, const std::string& text);
  void Add(const JsonObject& members) const;
  // The end, with what else belongs to it.
  void Close(const JsonObject& members) const;
};

// The object of an operand of the commands that look inside: container and path, what `fill` adds, and what could not
// be read.
template <typename Fill>
void PrintLook(Look* look, const std::string& operand, const Fill& fill) {
  const Address address = ParseAddress(operand);
  PrintObject("container", address.container, [&](JsonObject* json) {
    json->Text("path", inspect::Printable(address.Path()));
    try {
      fill(address, json);
    } catch (const Failure&) {
      json->Json("problems", HostTexts(look->TakeProblems()));
      throw;
    }
    json->Json("problems", HostTexts(look->TakeProblems()));
  });
}

}  // namespace orba::tool
