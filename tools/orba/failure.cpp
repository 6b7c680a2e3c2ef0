#include "tools/orba/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/name_symbols.h"
#include "orba.h"
#include "tools/orba/host/host.h"
#include "tools/orba/terminal.h"
#include "tools/orba/utf8.h"

namespace orba::tool {

namespace {

int g_statusWithoutMemory = kFailed;

struct ResultCode {
  std::uint32_t code;
  const char* name;
  const char* meaning;
  const char* advice;  // "{}" stands for the container
};

constexpr const char* kCheckAdvice = "see the damage with: orba check {}";
constexpr const char* kRepairAdvice =
    "see what is left to do with: orba check {}\n"
    "make it mountable again with: orba repair {}";
constexpr const char* kDiskAdvice = "check the disk that holds the container, then run: orba check {}";
constexpr const char* kVolumeAdvice = "check the name; if it is the right one, see the damage with: orba check {}";
constexpr const char* kInternalAdvice = "this should not happen; please report it, with the command line";

constexpr ResultCode kResultCodes[] = {
    {ORB_ERROR_NO_MORE_ENTRIES, "ORB_ERROR_NO_MORE_ENTRIES", "nothing matches", "list what is there with: orba ls {}"},
    {ORB_ERROR_CANNOT_CREATE, "ORB_ERROR_CANNOT_CREATE", "the host would not create the file",
     "check the folder, its permissions and the room on its disk"},
    {ORB_ERROR_CANNOT_OPEN, "ORB_ERROR_CANNOT_OPEN", "the host would not open the file",
     "check that it is an ordinary file"},
    {ORB_ERROR_WRITE, "ORB_ERROR_WRITE", "writing to the container failed", kDiskAdvice},
    {ORB_ERROR_READ, "ORB_ERROR_READ", "reading the container failed", kDiskAdvice},
    {ORB_ERROR_WRITE_PROTECTED, "ORB_ERROR_WRITE_PROTECTED", "the medium is write-protected",
     "use another disk, or a copy there"},
    {ORB_ERROR_NOT_READY, "ORB_ERROR_NOT_READY", "the device is not ready", "insert or connect it and try again"},
    {ORB_ERROR_ABORTED, "ORB_ERROR_ABORTED", "the host aborted the request", "try again"},
    {ORB_ERROR_CONTAINER_IN_USE, "ORB_ERROR_CONTAINER_IN_USE", "another program has the container open",
     "close it there and try again"},
    {ORB_ERROR_WRONG_VERSION, "ORB_ERROR_WRONG_VERSION", "the container's format version is not 1.0",
     "look at its header with: orba dump {} header"},
    {ORB_ERROR_DAMAGED_VOLUME, "ORB_ERROR_DAMAGED_VOLUME", "it is not a container, or its header is damaged",
     kVolumeAdvice},
    {ORB_ERROR_DAMAGED_RECORD, "ORB_ERROR_DAMAGED_RECORD", "a record inside the container is damaged", kRepairAdvice},
    {ORB_ERROR_NOT_CLEAN, "ORB_ERROR_NOT_CLEAN", "an update of the container was interrupted", kRepairAdvice},
    {ORB_ERROR_ALREADY_MOUNTED, "ORB_ERROR_ALREADY_MOUNTED", "a volume of this name is mounted", kInternalAdvice},
    {ORB_ERROR_INVALID_ARGUMENT, "ORB_ERROR_INVALID_ARGUMENT", "a size or a value is out of range", kCheckAdvice},
    {ORB_ERROR_INVALID_NAME, "ORB_ERROR_INVALID_NAME", "a name breaks the rule",
     "names have 1 to 29 characters out of A-Z 0-9 " ORBA_NAME_SYMBOLS},
    {ORB_ERROR_PATH_TOO_LONG, "ORB_ERROR_PATH_TOO_LONG", "the path is above 127 characters or 62 levels",
     "use fewer or shorter directory names"},
    {ORB_ERROR_OUT_OF_MEMORY, "ORB_ERROR_OUT_OF_MEMORY", "there is not enough memory",
     "close other programs and try again"},
    {ORB_ERROR_NOT_MOUNTED, "ORB_ERROR_NOT_MOUNTED", "the volume is not mounted", kInternalAdvice},
    {ORB_ERROR_FILE_NOT_FOUND, "ORB_ERROR_FILE_NOT_FOUND", "there is no such file or directory",
     "check the name; orba ls lists what a container holds"},
    {ORB_ERROR_PATH_NOT_FOUND, "ORB_ERROR_PATH_NOT_FOUND", "a directory of the path is missing or is a file",
     "check the path; orba ls lists what is there, orba mkdir -p makes directories"},
    {ORB_ERROR_FILE_EXISTS, "ORB_ERROR_FILE_EXISTS", "the name is taken",
     "use another name or remove what has this one"},
    {ORB_ERROR_ALREADY_OPEN, "ORB_ERROR_ALREADY_OPEN", "it is open already", kInternalAdvice},
    {ORB_ERROR_NO_FREE_NODE, "ORB_ERROR_NO_FREE_NODE", "the container holds as many files and directories as it can",
     "remove some, or format a container for more with: orba format --nodes N"},
    {ORB_ERROR_TOO_MANY_OPEN_FILES, "ORB_ERROR_TOO_MANY_OPEN_FILES", "too many files are open",
     "raise the limit of open files (ulimit -n)"},
    {ORB_ERROR_ACCESS_DENIED, "ORB_ERROR_ACCESS_DENIED", "it may not be opened for writing",
     "check who may write it; inside a container: orba attrib shows and changes what is read-only"},
    {ORB_ERROR_DISK_FULL, "ORB_ERROR_DISK_FULL", "the disk that holds the container is full",
     "make room on it, or raise the limit for the size of files (ulimit -f), and try again"},
    {ORB_ERROR_VOLUME_FULL, "ORB_ERROR_VOLUME_FULL", "the container has reached its largest size, or the file has",
     "remove files, or use another container"},
    {ORB_ERROR_INVALID_HANDLE, "ORB_ERROR_INVALID_HANDLE", "the file or search is not open", kInternalAdvice},
    {ORB_ERROR_WRONG_KIND, "ORB_ERROR_WRONG_KIND", "it is a directory where a file is required, or the other way round",
     "check the name with: orba ls -l"},
    {ORB_ERROR_NOT_A_DIRECTORY, "ORB_ERROR_NOT_A_DIRECTORY", "it is not a directory",
     "check the name with: orba ls -l"},
    {ORB_ERROR_CURRENT_DIRECTORY, "ORB_ERROR_CURRENT_DIRECTORY", "it is the current directory", kInternalAdvice},
    {ORB_ERROR_NOT_EMPTY, "ORB_ERROR_NOT_EMPTY", "the directory is not empty", "remove it whole with: orba rm -r"},
    {ORB_ERROR_IN_USE, "ORB_ERROR_IN_USE", "it is in use, or would move into itself", "use another target"},
    {ORB_ERROR_MOVE_NOT_ALLOWED, "ORB_ERROR_MOVE_NOT_ALLOWED", "nothing moves from one container to another",
     "copy it with orba cp -r, then remove it with orba rm -r"},
    {ORB_ERROR_TOO_MANY_SEARCHES, "ORB_ERROR_TOO_MANY_SEARCHES", "too many searches are open", kInternalAdvice},
    {ORB_ERROR_SEEK, "ORB_ERROR_SEEK", "the position lies outside the file", kInternalAdvice},
    {ORB_ERROR_NO_MEMFILE, "ORB_ERROR_NO_MEMFILE", "the memory file is not loaded", kInternalAdvice},
    {ORB_ERROR_MEMFILE_NOT_FOUND, "ORB_ERROR_MEMFILE_NOT_FOUND", "the memory-file library is missing", kInternalAdvice},
};

constexpr ResultCode kUnknownCode = {0, "unknown code", "the library gave no known reason", kInternalAdvice};

const ResultCode& Row(std::uint32_t code) {
  for (const ResultCode& row : kResultCodes) {
    if (row.code == code) return row;
  }
  return kUnknownCode;
}

// The text with control characters, and bytes that are not UTF-8, as "\x0A", and a backslash before each of `others`.
std::string Escaped(const std::string& text, const char* others) {
  std::string escaped;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const std::uint32_t character = NextCharacter(text, &at);
    at = std::max(at, start + 1);
    const bool control = character < ' ' || (character >= 0x7F && character < 0xA0) || character == kNoCharacter;
    if (!control) {
      if (at == start + 1 && std::strchr(others, text[start]) != nullptr) escaped += '\\';
      escaped.append(text, start, at - start);
      continue;
    }
    for (std::size_t i = start; i < at; ++i) {
      char number[8];
      std::snprintf(number, sizeof number, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(text[i])));
      escaped += number;
    }
  }
  return escaped;
}

std::string Filled(std::string text, const std::string& container) {
  // The "{}" of ORBA_NAME_SYMBOLS follows no space.
  for (std::size_t at = text.find(" {}"); at != std::string::npos; at = text.find(" {}", at + container.size())) {
    text.replace(at + 1, 2, container);
  }
  return text;
}

// Each line of the text wrapped to the terminal's.
std::string InLines(const std::string& text) {
  std::string lines;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::size_t begin = std::min(text.find_first_not_of(' ', at), end);
    const std::string indent(begin - at, ' ');
    lines +=
        (at == 0 ? "" : "\n") + Wrapped(text.substr(begin, end - begin), LineLength(Stream::kError), indent, "      ");
    at = end + 1;
  }
  return lines;
}

const char* HostAdvice(int error) {
  if (host::IsNoSpace(error)) return "make room on the disk and try again";
  switch (error) {
    case EFBIG:
      return "raise the limit for the size of files (ulimit -f), or use another disk";
    case EROFS:
      return "use a folder on another disk";
    case EACCES:
    case EPERM:
      return "check who owns it and its permissions";
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ELOOP:
    case ENAMETOOLONG:
      return "check the path";
    case EEXIST:
      return "use another name, or --force to overwrite it";
    case EMFILE:
    case ENFILE:
      return "raise the limit of open files (ulimit -n)";
    case EBADF:
      return "call the program with its standard streams open";
    default:
      return "check the disk and the folder that hold it, and try again";
  }
}

// After these no other file fares better.
bool EndsAllWriting(std::uint32_t code) {
  return code == ORB_ERROR_DISK_FULL || code == ORB_ERROR_WRITE || code == ORB_ERROR_NO_FREE_NODE ||
         code == ORB_ERROR_NOT_READY;
}

}  // namespace

Failure::Failure(const std::string& what, const std::string& why, const std::string& advice, std::uint32_t code)
    : message_(Visible(what)), code_(code) {
  if (!why.empty()) message_ += ": " + Visible(why);
  AddAdvice(advice);
}

void Failure::AddAdvice(const std::string& advice) {
  std::size_t start = 0;
  while (start < advice.size()) {
    const std::size_t end = advice.find('\n', start);
    message_ += "\n      " + advice.substr(start, end - start);
    start = end == std::string::npos ? advice.size() : end + 1;
  }
}

UsageFailure::UsageFailure(const std::string& command, const std::string& why)
    : Failure(command.empty() ? why : command + ": " + why, "",
              "see how it is called with: orba" + (command.empty() ? "" : " " + command) + " --help") {}

Failure LibraryFailure(const std::string& what, const std::string& container) {
  return LibraryFailure(what, container, OrbGetLastError());
}

Failure LibraryFailure(const std::string& what, const std::string& container, std::uint32_t code) {
  const ResultCode& row = Row(code);
  Failure failure(what, std::string(row.meaning) + " (" + CodeText(code) + ")",
                  Filled(row.advice, ShellWord(container)), code);
  if (EndsAllWriting(code)) failure.MakeFinal();
  return failure;
}

Failure HostFailure(const std::string& what, int error) { return HostFailure(what, error, HostAdvice(error)); }

Failure HostFailure(const std::string& what, int error, const std::string& advice) {
  const char* const name = host::ErrorName(error);
  Failure failure(
      what, host::ErrorText(error) + " (" + (name != nullptr ? name : "errno") + ", " + std::to_string(error) + ")",
      advice);
  if (host::IsNoSpace(error) || error == EROFS) failure.MakeFinal();
  return failure;
}

std::string CodeName(std::uint32_t code) { return Row(code).name; }

std::string CodeText(std::uint32_t code) {
  char number[16];
  std::snprintf(number, sizeof number, "0x%08X", static_cast<unsigned>(code));
  return CodeName(code) + ", " + number;
}

std::string Visible(const std::string& text) { return Escaped(text, ""); }

std::string ShellWord(const std::string& word) {
  const bool plain = word.find_first_not_of(host::kPlainInShell) == std::string::npos;
  if (!word.empty() && word[0] != '~' && plain) return word;
  return Visible(word) != word ? "$'" + Escaped(word, "\\'") + "'" : host::Quoted(word);
}

void Report(const Failure& failure) { Report(std::string(failure.what())); }

void Report(const std::string& message) {
  const std::string prefix = "orba:";
  std::string text = prefix + " " + message;
  if (IsTerminal(Stream::kError)) text = InLines(text);
  PrintError(Painted(Stream::kError, Colour::kRed, prefix) + text.substr(prefix.size()) + "\n");
}

int StatusWithoutMemory() noexcept { return g_statusWithoutMemory; }

void SetStatusWithoutMemory(int status) noexcept { g_statusWithoutMemory = status; }

void ReportNoMemory() noexcept { std::fputs("orba: there is not enough memory\n", stderr), std::fflush(stderr); }

}  // namespace orba::tool
