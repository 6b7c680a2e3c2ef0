#include "tools/orba/syntax.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>

#include "tools/orba/failure.h"

namespace orba::tool {

namespace {

std::vector<std::string> Split(const std::string& names) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start < names.size();) {
    const std::size_t end = std::min(names.find(',', start), names.size());
    parts.push_back(names.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

bool IsLong(const std::string& name) { return name.size() > 2; }

// "1024, 2048 or 4096"
std::string Alternatives(const std::vector<std::string>& choices) {
  std::string text;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + choices[i];
  }
  return text;
}

template <typename Number>
std::function<bool(const std::string&)> Within(Syntax::Numbers range, Number* number,
                                               std::optional<std::uint64_t> (*read)(const std::string&)) {
  return [range, number, read](const std::string& text) {
    const std::optional<std::uint64_t> given = read(text);
    if (!given.has_value() || *given < range.first || *given > range.second) return false;
    *number = static_cast<std::uint32_t>(*given);
    return true;
  };
}

std::string RangeText(const char* kind, Syntax::Numbers range) {
  if (range == Syntax::kAll) return kind;
  return std::string(kind) + " from " + std::to_string(range.first) + " to " + std::to_string(range.second);
}

// The number and the rest of the text behind it.
std::optional<std::uint64_t> NumberAhead(const std::string& text, std::string* rest) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;  // no sign, no blank
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  char* end = nullptr;
  errno = 0;
  const std::uint64_t number = std::strtoull(text.c_str(), &end, hexadecimal ? 16 : 10);
  if (errno != 0) return std::nullopt;
  *rest = end;
  return number;
}

}  // namespace

std::optional<std::uint64_t> NumberIn(const std::string& text) {
  std::string rest;
  const std::optional<std::uint64_t> number = NumberAhead(text, &rest);
  return rest.empty() ? number : std::nullopt;
}

std::optional<std::uint64_t> SizeIn(const std::string& text) {
  std::string rest;
  const std::optional<std::uint64_t> number = NumberAhead(text, &rest);
  if (!number.has_value() || rest.empty()) return number;
  unsigned shift = 0;
  if (rest == "K" || rest == "k") shift = 10;
  if (rest == "M" || rest == "m") shift = 20;
  if (shift == 0 || *number > UINT64_MAX >> shift) return std::nullopt;
  return *number << shift;
}

Option& Syntax::Add(const char* names, const char* value, const char* meaning,
                    std::function<bool(const std::string&)> take) {
  options_.push_back({Split(names), value, meaning, {}, std::move(take), "", false});
  return options_.back();
}

void Syntax::Flag(const char* names, bool* on, const char* meaning) {
  Add(names, "", meaning, [on](const std::string&) { return *on = true; });
}

void Syntax::Text(const char* names, const char* value, std::string* text, const char* meaning) {
  Add(names, value, meaning, [text](const std::string& given) {
    *text = given;
    return !given.empty();
  }).takes = std::string("a ") + value;
}

void Syntax::Choice(const char* names, const char* value, std::string* text, const std::vector<std::string>& choices,
                    const char* meaning) {
  Option& option = Add(names, value, meaning, [text, choices](const std::string& given) {
    *text = given;
    return std::find(choices.begin(), choices.end(), given) != choices.end();
  });
  option.choices = choices;
  option.takes = Alternatives(choices);
}

void Syntax::Number(const char* names, const char* value, std::uint32_t* number, Numbers range, const char* meaning) {
  Add(names, value, meaning, Within(range, number, NumberIn)).takes = RangeText("a number", range);
}

void Syntax::Number(const char* names, const char* value, std::optional<std::uint32_t>* number, Numbers range,
                    const char* meaning) {
  Add(names, value, meaning, Within(range, number, NumberIn)).takes = RangeText("a number", range);
}

void Syntax::NumberOrBare(const char* names, const char* value, std::optional<std::uint32_t>* number, Numbers range,
                          std::uint32_t bare, const char* meaning) {
  const auto within = Within(range, number, NumberIn);
  Option& option = Add(names, value, meaning, [=](const std::string& text) {
    if (text.empty()) *number = bare;
    return text.empty() || within(text);
  });
  option.takes = RangeText("a number", range);
  option.mayBeBare = true;
}

void Syntax::Size(const char* names, const char* value, std::optional<std::uint32_t>* size, Numbers range,
                  const char* meaning) {
  Add(names, value, meaning, Within(range, size, SizeIn)).takes = RangeText("a size", range);
}

void Syntax::SizeOutOf(const char* names, const char* value, std::uint32_t* size,
                       const std::vector<std::uint32_t>& choices, const char* meaning) {
  AddSizeOutOf(
      names, value, [size](std::uint32_t given) { *size = given; }, choices, meaning);
}

void Syntax::SizeOutOf(const char* names, const char* value, std::optional<std::uint32_t>* size,
                       const std::vector<std::uint32_t>& choices, const char* meaning) {
  AddSizeOutOf(
      names, value, [size](std::uint32_t given) { *size = given; }, choices, meaning);
}

void Syntax::AddSizeOutOf(const char* names, const char* value, const std::function<void(std::uint32_t)>& set,
                          const std::vector<std::uint32_t>& choices, const char* meaning) {
  Option& option = Add(names, value, meaning, [set, choices](const std::string& text) {
    const std::optional<std::uint64_t> given = SizeIn(text);
    if (!given.has_value() || std::find(choices.begin(), choices.end(), *given) == choices.end()) return false;
    set(static_cast<std::uint32_t>(*given));
    return true;
  });
  for (const std::uint32_t choice : choices) option.choices.push_back(std::to_string(choice));
  option.takes = Alternatives(option.choices);
}

void Syntax::Help() {
  const auto isTaken = [](const Option& option) { return option.names[0] == "-h"; };
  const bool taken = std::any_of(options_.begin(), options_.end(), isTaken);
  Add(taken ? "--help" : "-h,--help", "", "print this help", nullptr);
}

void Syntax::Exclude(const char* one, const char* other) { excluded_.emplace_back(one, other); }

void Syntax::One(const char* label, std::string* operand) {
  operands_.push_back({label, 1, 1, [operand](const std::string& text) { *operand = text; }});
}

void Syntax::OneOrNone(const char* label, std::string* operand) {
  operands_.push_back({label, 0, 1, [operand](const std::string& text) { *operand = text; }});
}

void Syntax::Many(const char* label, std::vector<std::string>* operands, std::size_t fewest, std::size_t most) {
  operands_.push_back({label, fewest, most, [operands](const std::string& text) { operands->push_back(text); }});
}

std::vector<Option> ShownOptions(const Syntax& syntax) {
  std::vector<Option> options;
  for (const Option& option : syntax.options()) {
    if (!option.meaning.empty()) options.push_back(option);
  }
  return options;
}

// ---- Taking the command line apart ----------------------------------------------------------------------------------

namespace {

// Finds the options with the C library's parser, which knows in how many ways they may be written.
class Parser {
 public:
  Parser(const Syntax& syntax, const std::string& command, const std::vector<std::string>& arguments)
      : syntax_(syntax), command_(command), arguments_(arguments) {
    words_.push_back(program_.data());
    for (std::string& argument : arguments_) words_.push_back(argument.data());
    for (std::size_t i = 0; i < syntax.options().size(); ++i) Announce(i);
    longNames_.push_back({nullptr, 0, nullptr, 0});
  }

  bool Run() {
    const int count = static_cast<int>(words_.size());
    words_.push_back(nullptr);
    optind = 0;  // begin anew
    opterr = 0;
    const auto find = syntax_.takesOneDash() ? getopt_long_only : getopt_long;
    for (;;) {
      const int found = find(count, words_.data(), letters_.c_str(), longNames_.data(), nullptr);
      if (found == -1) break;
      // Some parsers report a value too many as one that is missing.
      if (found == ':' && !At(optopt).value.empty()) {
        Fail(Named(optopt) + " needs a value: " + Named(optopt) + " " + At(optopt).value);
      }
      if (found == ':' || found == '?') FailUnknown(words_[static_cast<std::size_t>(optind) - 1]);
      if (At(found).take == nullptr) return false;
      Take(found, optarg == nullptr ? "" : optarg);
    }
    for (const auto& [one, other] : syntax_.excluded()) {
      if (given_.count(one) != 0 && given_.count(other) != 0) Fail(one + " and " + other + " exclude each other");
    }
    TakeOperands({words_.begin() + optind, words_.end() - 1});
    return true;
  }

 private:
  static constexpr int kLong = 256;  // above all letters: an option found by its long name

  void Announce(std::size_t number) {
    const Option& option = syntax_.options()[number];
    for (const std::string& name : option.names) {
      if (IsLong(name)) {
        const int valued = option.mayBeBare ? optional_argument : required_argument;
        longNames_.push_back(
            {name.c_str() + 2, option.value.empty() ? no_argument : valued, nullptr, kLong + static_cast<int>(number)});
      } else {
        letters_ += name[1] + std::string(option.value.empty() ? "" : ":");
      }
    }
  }

  // The option that getopt found, and how it is called in messages.
  const Option& At(int found) const {
    const std::vector<Option>& options = syntax_.options();
    if (found >= kLong) return options[static_cast<std::size_t>(found - kLong)];
    const std::string name = Named(found);
    return *std::find_if(options.begin(), options.end(), [&name](const Option& option) {
      return std::find(option.names.begin(), option.names.end(), name) != option.names.end();
    });
  }
  std::string Named(int found) const {
    return found >= kLong ? At(found).names.back() : std::string{'-', static_cast<char>(found)};
  }

  void Take(int found, const std::string& text) {
    const Option& option = At(found);
    if (!option.take(text)) Fail(Named(found) + " takes " + option.takes + ", not \"" + text + "\"");
    given_.insert(option.names.back());
  }

  void TakeOperands(const std::vector<std::string>& texts) const {
    std::size_t next = 0;
    for (const Operand& operand : syntax_.operands()) {
      std::size_t count = 0;
      for (; next < texts.size() && count < operand.most; ++next, ++count) {
        if (texts[next].empty()) Fail("an operand is empty where " + operand.label + " should stand");
        operand.take(texts[next]);
      }
      if (count < operand.fewest) Fail(operand.label + " is missing");
    }
    if (next < texts.size()) Fail("\"" + texts[next] + "\" is one operand too many");
  }

  [[noreturn]] void FailUnknown(const std::string& word) const {
    if (optopt >= kLong) Fail(Named(optopt) + " takes no value");
    Fail("there is no option \"" + (optopt == 0 ? word : Named(optopt)) + "\"");
  }

  [[noreturn]] void Fail(const std::string& why) const { throw UsageFailure(command_, why); }

  const Syntax& syntax_;
  const std::string& command_;
  std::string program_ = "orba";
  std::vector<std::string> arguments_;
  std::vector<char*> words_;   // the arguments as getopt takes and sorts them
  std::string letters_ = ":";  // so that a missing value can be told from an unknown option
  std::vector<option> longNames_;
  std::set<std::string> given_;  // by the last of their names
};

}  // namespace

bool Parse(const Syntax& syntax, const std::string& command, const std::vector<std::string>& arguments) {
  return Parser(syntax, command, arguments).Run();
}

}  // namespace orba::tool
