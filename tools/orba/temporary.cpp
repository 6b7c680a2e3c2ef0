#include "tools/orba/temporary.h"

#include <algorithm>
#include <cstring>

namespace orba::tool {

namespace {

constexpr const char* kTemporaryName = "~ORBA-";
constexpr const char* kTemporaryEnding = ".TMP";

std::string NumberedName(unsigned number) { return kTemporaryName + std::to_string(number) + kTemporaryEnding; }

}  // namespace

bool IsTemporaryName(const std::string& name) {
  const std::size_t before = std::strlen(kTemporaryName);
  const std::size_t after = std::strlen(kTemporaryEnding);
  if (name.size() <= before + after || name.compare(0, before, kTemporaryName) != 0) return false;
  const std::string number = name.substr(before, name.size() - before - after);
  return name.compare(name.size() - after, after, kTemporaryEnding) == 0 &&
         number.find_first_not_of("0123456789") == std::string::npos;
}

std::string FreeTemporaryName(const std::vector<Item>& items) {
  for (unsigned number = 1;; ++number) {
    std::string name = NumberedName(number);
    const auto same = [&name](const Item& item) { return item.name == name; };
    if (std::none_of(items.begin(), items.end(), same)) return name;
  }
}

Address TemporaryBeside(Session* session, const Address& target) {
  Address beside;
  unsigned number = 0;
  do {
    beside = target.Parent().Child(NumberedName(++number));
  } while (FindItem(session, beside).has_value());
  beside.standsFor = target.Text();
  return beside;
}

void Replace(Session* session, const Address& temporary, const Address& target) {
  Delete(session, target);
  try {
    Rename(session, temporary, target.Name());
  } catch (Failure& failure) {
    failure.AddAdvice("its new contents are left in " + ShellWord(temporary.container + ":" + temporary.Path()));
    throw;
  }
}

}  // namespace orba::tool
