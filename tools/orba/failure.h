// What went wrong, as the user reads it: what failed on what, why (with the code's name and number) and what to do.
// Everything in the tool fails by throwing a Failure; commands catch it where they can go on with the next operand.
// Stands on orba.h alone.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace orba::tool {

// What the program exits with.
enum ExitStatus : int {
  kSuccess = 0,
  kFailed = 1,
  kUsage = 16,
  // check and repair exit as fsck does:
  kRepaired = 1,
  kDamageLeft = 4,
  kCouldNotWork = 8,
  // diff and verify as diff does:
  kDifferent = 1,
  kTrouble = 2,
};

class Failure : public std::exception {
 public:
  // `what` is a phrase such as "cannot read card.orb:/A.TXT"; `advice` may be empty, or lines.
  Failure(const std::string& what, const std::string& why, const std::string& advice, std::uint32_t code = 0);

  const char* what() const noexcept override { return message_.c_str(); }

  void AddAdvice(const std::string& advice);  // a line or more

  // The library's result code, 0 when the library had no part in it.
  std::uint32_t code() const { return code_; }

  // Nothing more can be written to where this happened, whatever the file.
  bool IsFinal() const { return final_; }
  void MakeFinal() { final_ = true; }

 private:
  std::string message_;
  std::uint32_t code_;
  bool final_ = false;
};

// The command line makes no sense. `command` is the sub-command's name, or empty.
class UsageFailure : public Failure {
 public:
  UsageFailure(const std::string& command, const std::string& why);
};

// The library's last call on `container` (as the user wrote it) failed.
Failure LibraryFailure(const std::string& what, const std::string& container);
Failure LibraryFailure(const std::string& what, const std::string& container, std::uint32_t code);

// A call to the host failed with an errno value. The second form says what to do instead of the usual.
Failure HostFailure(const std::string& what, int error);
Failure HostFailure(const std::string& what, int error, const std::string& advice);

// "ORB_ERROR_NOT_CLEAN"
std::string CodeName(std::uint32_t code);

// "ORB_ERROR_NOT_CLEAN, 0x3000000C"
std::string CodeText(std::uint32_t code);

// The text with control characters, and bytes that are not UTF-8, as "\x0A": names of the host may hold anything,
// terminal commands included.
std::string Visible(const std::string& text);

// The word as a shell takes it: quoted where that is needed.
std::string ShellWord(const std::string& word);

// Prints "orba: " and the message on standard error.
void Report(const Failure& failure);
void Report(const std::string& message);

// That memory has run out, which takes none to say.
void ReportNoMemory() noexcept;
// What the program ends with then: kFailed, unless set.
int StatusWithoutMemory() noexcept;
void SetStatusWithoutMemory(int status) noexcept;

}  // namespace orba::tool
