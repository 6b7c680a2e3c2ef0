#include "explorer/bridge/json.h"

#include <cstdio>

namespace orba::explorer {

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

}  // namespace orba::explorer
