#include "tools/orba/json.h"

#include <cstdio>

#include "orba.h"
#include "tools/orba/time_text.h"
#include "tools/orba/utf8.h"

namespace orba::tool {

std::string HostText(const std::string& text) {
  constexpr std::uint32_t kReplacement = 0xFFFD;
  std::string quoted = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const std::uint32_t character = NextCharacter(text, &at);
    if (character == kNoCharacter) at = start + 1;
    char escaped[16];
    if (character == kNoCharacter || character == kReplacement) {
      for (std::size_t i = start; i < at; ++i) {
        std::snprintf(escaped, sizeof escaped, "\\ufffd%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(text[i])));
        quoted += escaped;
      }
    } else if (character < ' ' || character == 0x7F) {
      std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(character));
      quoted += escaped;
    } else {
      if (character == '"' || character == '\\') quoted += '\\';
      quoted.append(text, start, at - start);
    }
  }
  return quoted + "\"";
}

std::string HostTexts(const std::vector<std::string>& texts) {
  JsonArray json;
  for (const std::string& text : texts) json.Add(HostText(text));
  return json.Done();
}

std::string ReasonOf(const Failure& failure) {
  const std::string message = failure.what();
  return message.substr(0, message.find('\n'));
}

void AddError(const Failure& failure, JsonObject* json) {
  json->Json("error", HostText(ReasonOf(failure)));
  if (failure.code() != 0) json->Text("code", CodeName(failure.code()));
}

OpenObject::OpenObject(const char* name, const std::string& text) {
  Print("{\"" + std::string(name) + "\":" + HostText(text));
}

void OpenObject::Add(const JsonObject& members) const {
  const std::string text = members.Done();
  if (text.size() > 2) Print("," + text.substr(1, text.size() - 2));
}

void OpenObject::Close(const JsonObject& members) const {
  Add(members);
  Print("}\n");
}

std::string TimeJson(std::optional<std::int64_t> seconds) {
  if (!seconds.has_value()) return "null";
  std::string text = TimeText(seconds);
  text[10] = 'T';
  return "\"" + text + "Z\"";
}

JsonObject PlaceJson(const Match& match) {
  const Item& item = match.item;
  return JsonObject()
      .Text("path", inspect::Printable(match.address.Path()))
      .Text("kind", item.IsDirectory() ? "directory" : "file")
      .Number("size", item.size)
      .Json("modified", TimeJson(SecondsOf(item.time)))
      .Flag("readOnly", item.IsReadOnly())
      .Flag("system", (item.attributes & ORB_ATTRIBUTE_SYSTEM) != 0)
      .Flag("user", (item.attributes & ORB_ATTRIBUTE_USER) != 0);
}

}  // namespace orba::tool
