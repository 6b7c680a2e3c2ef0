#include "inspect/view/json.h"

#include <cstdio>

namespace orba::inspect {

std::string JsonText(const std::string& text) {
  std::string json = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      json += '\\';
      json += c;
    } else if (byte < 0x20 || byte > 0x7E) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      json += escaped;
    } else {
      json += c;
    }
  }
  return json + "\"";
}

JsonObject& JsonObject::Json(const char* name, const std::string& value) {
  members_ += (members_.empty() ? "\"" : ",\"") + std::string(name) + "\":" + value;
  return *this;
}

std::string JsonTexts(const std::vector<std::string>& texts) {
  JsonArray json;
  for (const std::string& text : texts) json.Add(JsonText(text));
  return json.Done();
}

}  // namespace orba::inspect
