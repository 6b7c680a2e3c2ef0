#include "tools/orba/fsck.h"

#include <algorithm>
#include <sstream>

#include "orba.h"

namespace orba::tool {

bool IsSound(const inspect::Report& report) { return report.readable && report.IsClean() && !report.marked; }

TimeStamp Now() {
  OrbTime now = {};
  OrbGetTime(&now);
  return {now.year, now.month, now.day, now.hour, now.minute, now.second, 0};
}

std::string PaintedReport(const std::string& text) {
  if (!IsColoured(Stream::kOutput)) return text;
  struct Paint {
    const char* word;
    Colour colour;
  };
  constexpr Paint kPaints[] = {{"damage", Colour::kRed},
                               {"interrupted", Colour::kYellow},
                               {"leak", Colour::kCyan},
                               {"note", Colour::kGrey},
                               {"clean", Colour::kGreen}};
  std::istringstream lines(text);
  std::string painted;
  for (std::string line; std::getline(lines, line);) {
    for (const Paint& paint : kPaints) {
      if (line.rfind(paint.word, 0) != 0) continue;
      const std::size_t end = line.find_first_of(" ,:");
      line = Painted(Stream::kOutput, paint.colour, line.substr(0, end)) + line.substr(std::min(end, line.size()));
      break;
    }
    painted += line + "\n";
  }
  return painted;
}

std::string ShortList(const std::string& lines, bool whole) {
  constexpr std::ptrdiff_t kShown = 40;
  const std::ptrdiff_t count = std::count(lines.begin(), lines.end(), '\n');
  if (whole || count <= kShown) return lines;
  std::size_t end = 0;
  for (std::ptrdiff_t i = 0; i < kShown; ++i) end = lines.find('\n', end) + 1;
  return lines.substr(0, end) + "and " + std::to_string(count - kShown) + " more; --verbose shows all\n";
}

void SayAfterwards(const std::string& text) {
  try {
    Print(text);
    FlushOutput();
  } catch (const Failure& failure) {
    Report(failure);
  } catch (const OutputClosed&) {
    // The work is done all the same.
  }
}

}  // namespace orba::tool
