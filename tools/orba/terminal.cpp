#include "tools/orba/terminal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "inspect/container/names.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"
#include "tools/orba/interrupt.h"

namespace orba::tool {

namespace {

Progress* g_progress;  // the one that is drawn, if any
bool g_outputLost;
thread_local Kept* t_kept;  // where what this thread prints goes, if not out

void Keep(Stream stream, const void* bytes, std::size_t count) {
  auto& pieces = t_kept->pieces;
  if (pieces.empty() || pieces.back().first != stream) pieces.emplace_back(stream, "");
  pieces.back().second.append(static_cast<const char*>(bytes), count);
  t_kept->size += count;
}

int Number(Stream stream) { return stream == Stream::kOutput ? host::kOutput : host::kError; }

const char* Sequence(Colour colour) {
  switch (colour) {
    case Colour::kBold:
      return "\033[1m";
    case Colour::kRed:
      return "\033[1;31m";
    case Colour::kGreen:
      return "\033[32m";
    case Colour::kYellow:
      return "\033[33m";
    case Colour::kBlue:
      return "\033[1;34m";
    case Colour::kMagenta:
      return "\033[35m";
    case Colour::kCyan:
      return "\033[36m";
    case Colour::kGrey:
      return "\033[90m";
  }
  return "";
}

[[noreturn]] void FailOutput() {
  const int error = host::OutputError();
  g_outputLost = true;
  if (error == EPIPE) throw OutputClosed();
  if (error == EINTR) CheckInterrupt();
  Failure failure = HostFailure("cannot write to standard output", error);
  failure.MakeFinal();
  throw failure;
}

}  // namespace

bool IsTerminal(Stream stream) { return host::IsTerminal(Number(stream)); }

std::size_t Width(Stream stream) {
  const std::size_t told = host::Columns(Number(stream));
  if (told > 0) return told;
  const char* const columns = std::getenv("COLUMNS");
  const long width = columns != nullptr ? std::strtol(columns, nullptr, 10) : 0;
  return width > 0 && width < 10000 ? static_cast<std::size_t>(width) : 80;
}

std::size_t LineLength(Stream stream) {
  return IsTerminal(stream) ? std::clamp<std::size_t>(Width(stream), 40, 200) - 1 : 79;
}

namespace {

// Where the piece of text that begins at `at` and must not be broken ends.
std::size_t EndOfPiece(const std::string& text, std::size_t at) {
  if (at > 1 && text[at - 2] == ':' && text.compare(at, 5, "orba ") == 0) return text.size();
  std::size_t end = std::min(text.find(' ', at), text.size());
  const char quote = text[at];
  if (quote != '\'' && quote != '"') return end;
  const std::size_t closing = text.find(quote, at + 1);
  if (closing != std::string::npos) end = std::max(end, std::min(text.find(' ', closing), text.size()));
  return end;
}

std::size_t Characters(const std::string& text) {
  const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

}  // namespace

std::string Wrapped(const std::string& text, std::size_t length, const std::string& first, const std::string& indent) {
  std::string lines;
  std::string line = first;
  bool empty = true;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = EndOfPiece(text, at);
    const std::string piece = text.substr(at, end - at);
    if (!empty && Characters(line) + 1 + Characters(piece) > length) {
      lines += line + "\n";
      line = indent;
      empty = true;
    }
    line += (empty ? "" : " ") + piece;
    empty = false;
    at = end + 1;
  }
  return lines + line;
}

bool IsColoured(Stream stream) {
  const char* const refused = std::getenv("NO_COLOR");
  const char* const kind = std::getenv("TERM");
  const bool dumb = kind != nullptr && std::strcmp(kind, "dumb") == 0;
  return !dumb && (refused == nullptr || refused[0] == '\0') && IsTerminal(stream);
}

std::string Painted(Stream stream, Colour colour, const std::string& text) {
  return IsColoured(stream) ? Sequence(colour) + text + "\033[0m" : text;
}

void Print(const std::string& text) { Print(text.data(), text.size()); }

void Print(const void* bytes, std::size_t count) {
  if (t_kept != nullptr) return Keep(Stream::kOutput, bytes, count);
  if (std::fwrite(bytes, 1, count, stdout) != count) FailOutput();
}

void FlushOutput() {
  if (t_kept == nullptr && std::fflush(stdout) != 0) FailOutput();
}

void PrintError(const std::string& text) {
  if (t_kept != nullptr) return Keep(Stream::kError, text.data(), text.size());
  std::fflush(stdout);
  Progress::Hide();
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
}

void PrintKept(const Kept& kept) {
  if (IsTerminal(Stream::kOutput) && !kept.pieces.empty()) Progress::Hide();
  for (const auto& [stream, text] : kept.pieces) {
    if (stream == Stream::kOutput) Print(text);
    if (stream == Stream::kError) PrintError(text);
  }
  if (IsTerminal(Stream::kOutput)) FlushOutput();
}

Keeping::Keeping(Kept* kept) { t_kept = kept; }
Keeping::~Keeping() { t_kept = nullptr; }

bool IsOutputLost() { return g_outputLost; }

std::string InColumns(const std::vector<std::string>& texts, const std::vector<std::string>& shown, std::size_t width) {
  constexpr std::size_t kGap = 2;
  const std::size_t count = texts.size();
  std::size_t rows = 1;
  std::vector<std::size_t> widths;
  for (; rows <= count; ++rows) {
    widths.assign((count + rows - 1) / rows, 0);
    for (std::size_t i = 0; i < count; ++i) widths[i / rows] = std::max(widths[i / rows], texts[i].size());
    std::size_t line = kGap * (widths.size() - 1);
    for (const std::size_t column : widths) line += column;
    if (line <= width || rows == count) break;
  }
  std::string lines;
  for (std::size_t row = 0; row < rows && row < count; ++row) {
    for (std::size_t i = row; i < count; i += rows) {
      const bool last = i + rows >= count;
      lines += shown[i] + (last ? "" : std::string(widths[i / rows] + kGap - texts[i].size(), ' '));
    }
    lines += "\n";
  }
  return lines;
}

std::string HumanSize(std::uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes);
  const char* const units = "KMG";
  std::uint64_t unit = 1024;
  std::size_t i = 0;
  while (i < 2 && (bytes + unit - 1) / unit >= 1024) unit *= 1024, ++i;
  const std::uint64_t tenths = (bytes * 10 + unit - 1) / unit;
  const std::string number = tenths < 100 ? std::to_string(tenths / 10) + "." + std::to_string(tenths % 10)
                                          : std::to_string((tenths + 9) / 10);
  return number + units[i];
}

std::string PadLeft(const std::string& text, std::size_t width, char filler) {
  return text.size() < width ? std::string(width - text.size(), filler) + text : text;
}

std::string PadRight(const std::string& text, std::size_t width) {
  return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

Progress::Progress(std::string label, std::uint64_t total, bool quiet, Unit unit)
    : label_(std::move(label)),
      total_(total),
      unit_(unit),
      enabled_(!quiet && t_kept == nullptr && total >= (unit == Unit::kBytes ? kLongWork : 1) &&
               g_progress == nullptr && IsTerminal(Stream::kError)),
      begun_(std::chrono::steady_clock::now()),
      last_(begun_) {
  if (!enabled_) return;
  g_progress = this;
  if (KnowsTotal() && unit_ == Unit::kBytes) Draw();
}

Progress::~Progress() {
  if (!enabled_) return;
  Hide();
  g_progress = nullptr;
}

void Progress::Advance(std::uint64_t units) {
  done_ = std::min(done_ + units, total_);
  constexpr std::chrono::milliseconds kPause(100);
  if (!enabled_ || (!KnowsTotal() && done_ < kLongWork)) return;
  const bool end = done_ == total_ && unit_ == Unit::kBytes;
  if (end || std::chrono::steady_clock::now() - last_ >= kPause) Draw();
}

void Progress::HasRead(std::uint64_t bytes) {
  if (t_kept == nullptr && g_progress != nullptr && g_progress->total_ == kReading) g_progress->Advance(bytes);
}

void Progress::Hide() {
  if (t_kept != nullptr || g_progress == nullptr || !g_progress->drawn_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  g_progress->drawn_ = false;
}

// "put [#####...........]  35%  2.1M of 6.0M  3.0M/s  0:02 left  LOGS/DAY1.TXT", never wider than the terminal.
void Progress::Draw() {
  std::string line = label_ + " " + Bar() + Rate() + "  " + inspect::Printable(item_);
  const std::size_t room = Width(Stream::kError) - 1;
  if (line.size() > room) line.resize(room);
  std::fputs(("\r" + line + "\033[K").c_str(), stderr);
  std::fflush(stderr);
  drawn_ = true;
  last_ = std::chrono::steady_clock::now();
}

std::string Progress::Bar() const {
  if (!KnowsTotal()) return Amount(done_);
  constexpr std::size_t kBar = 16;
  const std::size_t filled = static_cast<std::size_t>(kBar * done_ / total_);
  return "[" + std::string(filled, '#') + std::string(kBar - filled, '.') + "] " +
         PadLeft(std::to_string(100 * done_ / total_), 3) + "%  " + Amount(done_) + " of " + Amount(total_);
}

std::string Progress::Amount(std::uint64_t units) const {
  return unit_ == Unit::kBytes ? HumanSize(units) : std::to_string(units);
}

// Over all of the time so far.
std::string Progress::Rate() const {
  using std::chrono::milliseconds;
  const auto passed = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begun_).count();
  constexpr std::int64_t kSoonest = 200;  // before that it tells nothing
  if (passed < kSoonest || done_ == 0) return "";
  const std::uint64_t rate = std::max<std::uint64_t>(1, 1000 * done_ / static_cast<std::uint64_t>(passed));
  std::string text = "  " + Amount(rate) + "/s";
  if (!KnowsTotal() || done_ == total_) return text;
  const std::uint64_t seconds = (total_ - done_ + rate - 1) / rate;
  const std::string minutes =
      seconds < 3600 ? std::to_string(seconds / 60)
                     : std::to_string(seconds / 3600) + ":" + PadLeft(std::to_string(seconds / 60 % 60), 2, '0');
  return text + "  " + minutes + ":" + PadLeft(std::to_string(seconds % 60), 2, '0') + " left";
}

}  // namespace orba::tool
