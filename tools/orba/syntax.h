// What a command takes on its command line: flags, options with a value and operands, each with the place where its
// value goes and with the words that help, manual page and completion have for it. Stands on failure.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orba::tool {

struct Option {
  std::vector<std::string> names;    // "-f", "--force"
  std::string value;                 // stands for the value in texts: "BYTES"; empty for a flag
  std::string meaning;               // in the help; empty for one that no text shows
  std::vector<std::string> choices;  // the values that it takes, where they are few

  // Puts the value, empty for a flag, in its place. False for one that the option does not take.
  std::function<bool(const std::string& text)> take;
  std::string takes;       // what it does take: "a number from 1 to 9"
  bool mayBeBare = false;  // the value may be left out, and else stands behind a "=" in the same word
};

// An argument without a name of its own, known by its place among the operands.
struct Operand {
  std::string label;  // "CONTAINER"
  std::size_t fewest;
  std::size_t most;
  std::function<void(const std::string& text)> take;
};

// What options and operands are bound to must outlive the parsing.
class Syntax {
 public:
  static constexpr std::size_t kNoLimit = SIZE_MAX;

  // `names` are written "-f,--force".
  void Flag(const char* names, bool* on, const char* meaning);
  void Text(const char* names, const char* value, std::string* text, const char* meaning);

  void Choice(const char* names, const char* value, std::string* text, const std::vector<std::string>& choices,
              const char* meaning);

  // Decimal or 0x hexadecimal, from `lowest` to `highest`. Sizes may end in K or M: 1024 and 1048576 bytes.
  using Numbers = std::pair<std::uint32_t, std::uint32_t>;
  static constexpr Numbers kAll = {0, UINT32_MAX};
  void Number(const char* names, const char* value, std::uint32_t* number, Numbers range, const char* meaning);
  void Number(const char* names, const char* value, std::optional<std::uint32_t>* number, Numbers range,
              const char* meaning);
  // One of which the value may be left out: "--wait" and "--wait=5". It is `bare` then.
  void NumberOrBare(const char* names, const char* value, std::optional<std::uint32_t>* number, Numbers range,
                    std::uint32_t bare, const char* meaning);
  void Size(const char* names, const char* value, std::optional<std::uint32_t>* size, Numbers range,
            const char* meaning);
  void SizeOutOf(const char* names, const char* value, std::uint32_t* size, const std::vector<std::uint32_t>& choices,
                 const char* meaning);
  void SizeOutOf(const char* names, const char* value, std::optional<std::uint32_t>* size,
                 const std::vector<std::uint32_t>& choices, const char* meaning);

  // The flag that makes Parse return false: --help, and -h where that means nothing else.
  void Help();

  // Long names may be written with one dash too, as find(1) has them.
  void TakeOneDash() { oneDash_ = true; }
  bool takesOneDash() const { return oneDash_; }

  // At most one of these two may be given.
  void Exclude(const char* one, const char* other);

  void One(const char* label, std::string* operand);
  void OneOrNone(const char* label, std::string* operand);
  void Many(const char* label, std::vector<std::string>* operands, std::size_t fewest = 1, std::size_t most = kNoLimit);

  const std::vector<Option>& options() const { return options_; }
  const std::vector<Operand>& operands() const { return operands_; }
  const std::vector<std::pair<std::string, std::string>>& excluded() const { return excluded_; }

 private:
  void AddSizeOutOf(const char* names, const char* value, const std::function<void(std::uint32_t)>& set,
                    const std::vector<std::uint32_t>& choices, const char* meaning);
  Option& Add(const char* names, const char* value, const char* meaning, std::function<bool(const std::string&)> take);

  std::vector<Option> options_;
  std::vector<Operand> operands_;
  std::vector<std::pair<std::string, std::string>> excluded_;
  bool oneDash_ = false;
};

// Those that texts show.
std::vector<Option> ShownOptions(const Syntax& syntax);

// Takes the arguments of `command` (empty for the program itself) apart and puts each value in its place. Options and
// operands may be mixed; what follows "--" is an operand. False when help was asked for, whatever else is missing.
// Throws a UsageFailure; some values may be set by then.
bool Parse(const Syntax& syntax, const std::string& command, const std::vector<std::string>& arguments);

// A number, decimal or 0x hexadecimal; nothing for any other text and above 64 bits.
std::optional<std::uint64_t> NumberIn(const std::string& text);
// The same, and K or M at its end multiply by 1024 and 1048576.
std::optional<std::uint64_t> SizeIn(const std::string& text);

}  // namespace orba::tool
