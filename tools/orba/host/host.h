// All that the tool asks of the host it runs on: arguments, paths, files, the console, signals. Each host brings these
// calls in a folder of its own beside this header; nothing above includes a header of a host. Paths and texts are
// UTF-8, or on Linux whatever bytes the host has. Calls that fail leave the reason in errno. Stands on nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orba::tool::host {

// ---- Arguments and paths --------------------------------------------------------------------------------------------

struct Argument {
  std::string text;
  bool expandable = false;  // no shell has seen to its wildcards, and it was not quoted
};

// What the program was called with, its own name left out.
std::vector<Argument> Arguments(int argc, char** argv);

bool IsSeparator(char c);  // between the names of a path
// What precedes the first name of a path: "/", or on Windows "C:", "C:\", "\\server\share\". 0 for a relative path.
std::size_t RootLength(const std::string& path);
// Between a directory as it was written and a name in it; empty where none is needed.
std::string SeparatorAfter(const std::string& directory);
// Where a ":" can separate a container from a path inside it: behind the drive letter, if there is one.
std::size_t DriveLength(const std::string& path);
// As calls take it that know nothing of this header: a path that is too long for them is written in another way.
std::string NativePath(const std::string& path);

// What a library has in wide characters, where these are the system's own and nothing else holds all of a text; empty
// elsewhere, and for none.
std::string FromSystemText(const wchar_t* text);

// Why no file can have this name, such as "it holds \":\""; empty for one that a file can have.
std::string NameProblem(const std::string& name);

// The characters that the host's shell takes as they are, and a word in its quotes.
extern const char* const kPlainInShell;
std::string Quoted(const std::string& word);

// ---- What is there --------------------------------------------------------------------------------------------------

enum class Kind { kNothing, kFile, kDirectory, kLink, kPipe, kSocket, kDevice };

using FileId = std::pair<std::uint64_t, std::uint64_t>;  // disk and number: differs between any two files

struct Status {
  Kind kind = Kind::kNothing;
  std::uint64_t size = 0;
  FileId id;
  std::int64_t changed = 0;      // seconds since 1970
  std::int64_t nanoseconds = 0;  // behind them; 0 where nobody can write to a file that another has for itself
};

// Of what the path leads to; kNothing with errno set where there is none or it cannot be asked.
Status StatusOf(const std::string& path);
// The same, but a symbolic link is a kLink itself.
Status OwnStatusOf(const std::string& path);
Status StatusOf(int file);

// The names in a directory, unsorted, "." and ".." left out.
bool ListDirectory(const std::string& path, std::vector<std::string>* names);

// Where links lead to in the end; empty on failure.
std::string RealPath(const std::string& path);

std::uint64_t FreeSpace(const std::string& path);  // for new data on the disk of the path; UINT64_MAX where unknown

// ---- Open files -----------------------------------------------------------------------------------------------------

// Who else may have a file open. The library opens containers for itself alone.
enum class Share { kAll, kReaders, kNobody };

// Descriptors, -1 on failure. Programs that this one starts do not get them.
//   EBUSY   another one has the file open, and the two do not go together. A file system that knows no such thing lets
//           all have it.
int OpenForReading(const std::string& path, Share share = Share::kAll);  // never waits, not even for a pipe's writer
int OpenForWriting(const std::string& path, Share share = Share::kAll);  // for reading as well; it must be there
int CreateNew(const std::string& path);                                  // EEXIST where the name is taken
// For reading as well. Replaces the X at the path's end so that the name is new; the file is for nobody else until it
// is closed. Other users can read it as far as they may read new files of this user.
int CreateTemporary(std::string* path);
int CreateUnnamed();  // where temporary files belong; gone when it is closed
int DuplicateStandardInput();
bool Close(int file);  // false where something written before has failed; closed all the same

// Bytes done, which may be fewer than `count`; 0 at the end; -1 on failure, EINTR after a signal.
std::ptrdiff_t Read(int file, void* bytes, std::size_t count);
std::ptrdiff_t Write(int file, const void* bytes, std::size_t count);

std::ptrdiff_t ReadAt(int file, std::uint64_t offset, void* bytes, std::size_t count);
std::ptrdiff_t WriteAt(int file, std::uint64_t offset, const void* bytes, std::size_t count);

bool Rewind(int file);  // Read begins at the front again

// These two go on where a signal stops them.
bool Truncate(int file, std::uint64_t size);
bool Sync(int file);  // all that was written is on the disk; true as well where the host cannot sync such a file

// All that was written to the disk on which the path lies, names too.
bool SyncDisk(const std::string& path);
bool CanSyncDisks();  // where not, files are synced one by one

// The program that has the file for itself: "process 1234 (orba)"; empty where the system does not tell.
std::string HolderOf(const std::string& path);

bool SetTime(int file, std::int64_t seconds);  // of the last change, since 1970
bool SetTimeToNow(int file);

// From here on the library leaves it to this program when its containers are synced.
void TakeOverSyncs();

// From here on the library's clock stands at this time: year, month, day, hour, minute, second, whatever the numbers.
void SetClock(const std::array<unsigned, 6>& time);
void ResetClock();  // it shows the present time again

// ---- Names ----------------------------------------------------------------------------------------------------------

bool Rename(const std::string& from, const std::string& to, bool overwrite);
// Puts the file `by` in the place of the file `path` in one step, and lets it have the same permissions and, as far as
// the host allows, the same owner. The old one is kept under the new name `kept`, unless that is empty; EEXIST where
// the name is taken. Only a file system that cannot give a file two names has nothing at `path` for a moment then. On
// failure `path` is as before.
bool Replace(const std::string& path, const std::string& by, const std::string& kept);
bool Remove(const std::string& path);
bool RemoveUnused(const std::string& path);     // EBUSY where another one has it for itself
bool RemoveDirectory(const std::string& path);  // an empty one
bool MakeDirectory(const std::string& path);
int OpenDirectory(const std::string& path);  // fit for Sync and SetTime

// ---- Checksums ------------------------------------------------------------------------------------------------------

// SHA-256 of what comes in pieces, by a library that the host has.
class Sha256 {
 public:
  static constexpr std::size_t kSize = 32;

  Sha256();
  // Why it cannot be computed; empty where it can, which the rest needs.
  const std::string& problem() const { return problem_; }
  void Add(const void* bytes, std::size_t count);
  std::array<std::uint8_t, kSize> Sum() const;  // of all that was added; to be called last, and once

 private:
  std::unique_ptr<void, void (*)(void*)> state_;
  std::string problem_;
};

// ---- The console ----------------------------------------------------------------------------------------------------

constexpr int kInput = 0;
constexpr int kOutput = 1;
constexpr int kError = 2;

// To be called first. The streams carry bytes as they are. Where the program was started with one of them closed,
// something that fails as a closed one takes its place: a file opened later would take it otherwise, and messages would
// land in that file.
void SetUpStandardStreams();

bool IsTerminal(int stream);      // one that obeys control sequences
std::size_t Columns(int stream);  // of a terminal; 0 where unknown
bool IsUtf8();                    // the console shows characters beyond ASCII
int OutputError();                // errno after a write to standard output, EPIPE where the reader went away

// ---- Signals --------------------------------------------------------------------------------------------------------

// From here on SIGINT, SIGTERM and SIGHUP wait to be noticed; a second one of the same kind does not, and one that
// whoever started the program has it ignore stays ignored. A write to a reader that went away fails with EPIPE, one
// past the limit for the size of files with EFBIG, and one that has to wait is ended by a signal (EINTR).
void CatchSignals();
int CaughtSignal();                   // 0 while none has come
void Pause(int milliseconds);         // less when a signal came
void AwaitInput(int file);            // returns when there is something to read, or the end, or when a signal came
[[noreturn]] void DieOf(int signal);  // ends the program the way the signal would have

// "ENOSPC"; nullptr for an unknown number.
const char* ErrorName(int error);
std::string ErrorText(int error);  // "No space left on device"
bool IsNoSpace(int error);         // of the disk, or of this user there

}  // namespace orba::tool::host
