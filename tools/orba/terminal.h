// What depends on who reads the output: colours, the line's width, progress. On anything but a terminal the output is
// plain and progress is silent. Stands on failure and interrupt.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tools/orba/failure.h"

namespace orba::tool {

enum class Stream { kOutput, kError };

bool IsTerminal(Stream stream);
// Columns of the terminal; 80 where nobody says.
std::size_t Width(Stream stream);
// Characters of a line of text: all but one of the terminal's columns, as if these were 40 to 200; 79 elsewhere.
std::size_t LineLength(Stream stream);

// The text in lines of at most so many characters, the first behind `first`, the others behind `indent`. A quoted word
// stays in one piece, and so does a command line, "...: orba ls card.orb": they can be pasted.
std::string Wrapped(const std::string& text, std::size_t length, const std::string& first, const std::string& indent);

enum class Colour { kBold, kRed, kGreen, kYellow, kBlue, kMagenta, kCyan, kGrey };

// A terminal that is not dumb, and NO_COLOR is not set.
bool IsColoured(Stream stream);
// The text in a colour where the stream has colours, else as it is.
std::string Painted(Stream stream, Colour colour, const std::string& text);

// Everything for standard output goes through here. Throws a Failure where it cannot be written, which is only sure
// after FlushOutput. A reader that went away ends the program's output without a word: OutputClosed.
void Print(const std::string& text);
void Print(const void* bytes, std::size_t count);
void FlushOutput();
// As it is, on standard error, behind all that was printed.
void PrintError(const std::string& text);
class OutputClosed {};  // thrown when the reader went away
bool IsOutputLost();    // one of them has failed

// The status of `work`, for commands whose status tells what they found; `failed` where it could not begin or could not
// say what that was.
template <typename Work>
int StatusOf(int failed, const Work& work) {
  try {
    const int status = work();
    FlushOutput();
    return status;
  } catch (const UsageFailure&) {
    throw;
  } catch (const Failure& failure) {
    Report(failure);
  } catch (const OutputClosed&) {
    // Nobody reads any more what was found.
  } catch (const std::bad_alloc&) {
    ReportNoMemory();
  }
  return failed;
}

// What a thread prints, until it is its turn.
struct Kept {
  std::vector<std::pair<Stream, std::string>> pieces;
  std::size_t size = 0;  // of all
};
void PrintKept(const Kept& kept);

// While there is one, all that its thread prints goes to `kept`, and progress is not drawn.
class Keeping {
 public:
  explicit Keeping(Kept* kept);
  ~Keeping();
  Keeping(const Keeping&) = delete;
  Keeping& operator=(const Keeping&) = delete;
};

// In columns, as many as fit `width`, filled downwards. `shown` are the texts with colours, `texts` the same without.
std::string InColumns(const std::vector<std::string>& texts, const std::vector<std::string>& shown, std::size_t width);

// "1023", "1.5K", "20M": at most four characters up to 9999 of the largest unit, rounded up.
std::string HumanSize(std::uint64_t bytes);

std::string PadLeft(const std::string& text, std::size_t width, char filler = ' ');
std::string PadRight(const std::string& text, std::size_t width);

// A bar on standard error for work of `total` units, drawn only on a terminal and only for long work; behind it, once
// there is something to tell, how fast it goes and how long it will take.
class Progress {
 public:
  // `label` such as "put". `quiet` keeps it from drawing at all. Without knowing the total: what is done and how fast.
  static constexpr std::uint64_t kUnknown = UINT64_MAX;
  // The same, for work that consists in reading containers: what is done is what was read.
  static constexpr std::uint64_t kReading = UINT64_MAX - 1;
  enum class Unit { kBytes, kContainers };
  Progress(std::string label, std::uint64_t total, bool quiet, Unit unit = Unit::kBytes);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Work is counted in bytes; a file costs this much beside its contents.
  static constexpr std::uint64_t kFile = 4096;
  // Less than this is not long work.
  static constexpr std::uint64_t kLongWork = 4 * 1024 * 1024;

  void SetItem(const std::string& name) { item_ = name; }
  void Advance(std::uint64_t units);
  // Of a container so many bytes were read.
  static void HasRead(std::uint64_t bytes);

  // Takes the bar away, for a message; the next Advance draws it again. PrintKept does it for what was kept.
  static void Hide();

 private:
  void Draw();
  bool KnowsTotal() const { return total_ < kReading; }
  std::string Bar() const;
  std::string Rate() const;
  std::string Amount(std::uint64_t units) const;

  std::string label_;
  std::uint64_t total_;
  Unit unit_;
  std::uint64_t done_ = 0;
  std::string item_;
  bool drawn_ = false;
  bool enabled_;
  std::chrono::steady_clock::time_point begun_;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace orba::tool
