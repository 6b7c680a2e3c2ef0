// JSON text, member by member. Stands on the standard library alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orba::inspect {

// A JSON string. Bytes outside of ASCII become those of Latin-1, so that any bytes give valid text.
std::string JsonText(const std::string& text);

class JsonObject {
 public:
  JsonObject& Text(const char* name, const std::string& value) { return Json(name, JsonText(value)); }
  JsonObject& Number(const char* name, std::uint64_t value) { return Json(name, std::to_string(value)); }
  JsonObject& Flag(const char* name, bool value) { return Json(name, value ? "true" : "false"); }
  // `value` is JSON already.
  JsonObject& Json(const char* name, const std::string& value);

  std::string Done() const { return "{" + members_ + "}"; }

 private:
  std::string members_;
};

class JsonArray {
 public:
  // `value` is JSON already.
  void Add(const std::string& value) { elements_ += (elements_.empty() ? "" : ",") + value; }

  std::string Done() const { return "[" + elements_ + "]"; }

 private:
  std::string elements_;
};

// An array of strings.
std::string JsonTexts(const std::vector<std::string>& texts);

}  // namespace orba::inspect
