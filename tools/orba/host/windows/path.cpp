// Arguments and paths.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "tools/orba/host/windows/windows.h"

namespace orba::tool::host {

const char* const kPlainInShell = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./\\:@+~";

std::wstring Wide(const std::string& text) {
  const int size = static_cast<int>(text.size());
  const int count = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), count);
  return wide;
}

std::string Narrow(const std::wstring& text) {
  const int size = static_cast<int>(text.size());
  const int count = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(count), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), count, nullptr, nullptr);
  return narrow;
}

// ---- Arguments ------------------------------------------------------------------------------------------------------

namespace {

// The next argument of a command line, by the rules of the C run time: 2n backslashes before a quotation mark are n,
// one more makes the mark a character; two marks inside quotes are one.
Argument TakeArgument(const std::wstring& line, std::size_t* at) {
  std::wstring text;
  bool quoted = false;
  bool everQuoted = false;
  while (*at < line.size() && (quoted || (line[*at] != L' ' && line[*at] != L'\t'))) {
    std::size_t backslashes = 0;
    while (*at < line.size() && line[*at] == L'\\') ++backslashes, ++*at;
    const bool mark = *at < line.size() && line[*at] == L'"';
    text.append(mark ? backslashes / 2 : backslashes, L'\\');
    if (!mark) {
      if (backslashes == 0) text += line[(*at)++];
      continue;
    }
    const bool twice = quoted && *at + 1 < line.size() && line[*at + 1] == L'"';
    if (backslashes % 2 != 0 || twice) {
      text += L'"';
      *at += twice && backslashes % 2 == 0 ? 2 : 1;
      continue;
    }
    quoted = !quoted;
    everQuoted = true;
    ++*at;
  }
  return {Narrow(text), !everQuoted};
}

// The program's own name has no backslashes with a meaning of their own.
std::size_t BehindProgramName(const std::wstring& line) {
  bool quoted = false;
  std::size_t at = 0;
  while (at < line.size() && (quoted || (line[at] != L' ' && line[at] != L'\t'))) {
    if (line[at] == L'"') quoted = !quoted;
    ++at;
  }
  return at;
}

}  // namespace

std::vector<Argument> Arguments(int /*argc*/, char** /*argv*/) {
  const std::wstring line = GetCommandLineW();
  std::vector<Argument> arguments;
  for (std::size_t at = BehindProgramName(line);;) {
    at = std::min(line.find_first_not_of(L" \t", at), line.size());
    if (at == line.size()) return arguments;
    arguments.push_back(TakeArgument(line, &at));
  }
}

std::string Quoted(const std::string& word) { return "\"" + word + "\""; }

// ---- Paths ----------------------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kLongest = 240;  // that every call takes; some leave room for a short name behind a directory

bool IsDrive(const std::string& path, std::size_t at) {
  return path.size() > at + 1 && std::isalpha(static_cast<unsigned char>(path[at])) != 0 && path[at + 1] == ':';
}

std::size_t Separators(const std::string& path) {
  std::size_t count = 0;
  while (count < path.size() && IsSeparator(path[count])) ++count;
  return count;
}

// Behind the next name and the separator that follows it.
std::size_t BehindName(const std::string& path, std::size_t at) {
  while (at < path.size() && !IsSeparator(path[at])) ++at;
  return std::min(at + 1, path.size());
}

// "\\?\" and "\\.\"
bool HasDevicePrefix(const std::string& path) {
  return path.size() >= 4 && Separators(path) == 2 && (path[2] == '?' || path[2] == '.') && IsSeparator(path[3]);
}

std::wstring Absolute(const std::wstring& path) {
  const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  std::wstring full(size, L'\0');
  full.resize(size == 0 ? 0 : GetFullPathNameW(path.c_str(), size, full.data(), nullptr));
  return full;
}

}  // namespace

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

std::size_t DriveLength(const std::string& path) {
  const std::size_t before = HasDevicePrefix(path) ? 4 : 0;
  return IsDrive(path, before) ? before + 2 : 0;
}

std::size_t RootLength(const std::string& path) {
  const std::size_t drive = DriveLength(path);
  if (drive > 0) return drive < path.size() && IsSeparator(path[drive]) ? drive + 1 : drive;
  if (Separators(path) != 2) return std::min<std::size_t>(Separators(path), 1);
  return BehindName(path, BehindName(path, 2));  // server and share
}

std::string SeparatorAfter(const std::string& directory) {
  if (directory.empty() || IsSeparator(directory.back()) || directory.size() == DriveLength(directory)) return "";
  return directory.find('\\') == std::string::npos ? "/" : "\\";
}

std::wstring WidePath(const std::string& path) {
  const std::wstring full = path.empty() ? L"" : Absolute(Wide(path));
  if (full.rfind(L"\\\\?\\", 0) == 0 || full.rfind(L"\\\\.\\", 0) == 0) return full;
  if (full.rfind(L"\\\\", 0) == 0) return L"\\\\?\\UNC" + full.substr(1);
  return full.empty() ? full : L"\\\\?\\" + full;
}

std::string NativePath(const std::string& path) {
  return Absolute(Wide(path)).size() < kLongest ? path : Narrow(WidePath(path));
}

std::string FromSystemText(const wchar_t* text) { return text == nullptr ? "" : Narrow(text); }

// ---- Names ----------------------------------------------------------------------------------------------------------

namespace {

constexpr const char* kForbidden = "<>:\"/\\|?*";

// What Windows takes for a device, whatever follows the first dot: "NUL", "COM1.TXT".
bool IsDeviceName(const std::string& name) {
  std::string stem = name.substr(0, std::min(name.find('.'), name.size()));
  stem.erase(stem.find_last_not_of(' ') + 1);
  for (char& c : stem) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const char* const device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"}) {
    if (stem == device) return true;
  }
  const bool numbered = stem.size() == 4 && (stem.rfind("COM", 0) == 0 || stem.rfind("LPT", 0) == 0);
  return numbered && stem[3] >= '1' && stem[3] <= '9';
}

bool IsForbidden(char c) { return static_cast<unsigned char>(c) < ' ' || std::strchr(kForbidden, c) != nullptr; }

}  // namespace

std::string NameProblem(const std::string& name) {
  const auto forbidden = std::find_if(name.begin(), name.end(), IsForbidden);
  if (forbidden != name.end()) return std::string("Windows has no \"") + *forbidden + "\" in names";
  if (IsDeviceName(name)) return "Windows takes this name for a device";
  const bool cut = !name.empty() && (name.back() == '.' || name.back() == ' ');
  return cut ? "Windows has no name that ends in a dot or a blank" : "";
}

}  // namespace orba::tool::host
