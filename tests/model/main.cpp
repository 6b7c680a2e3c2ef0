// Drives the library and the model side by side with random calls and compares every result, code, listing and byte.
//
// Each sequence runs in a child process, so that it starts with a fresh library and a crash or a hang is a finding like
// any other. A sequence that fails is shortened: calls are left out as long as it still fails, and what remains is
// printed.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>

#include "tests/model/call.h"
#include "tests/model/chooser.h"
#include "tests/model/pair.h"

namespace {

using model::Call;
using model::Pair;
using model::Wrong;

struct Options {
  std::uint32_t seed = 1, seeds = 1, calls = 2000;
  double seconds = 0;
  Wrong wrong = Wrong::kNothing;
};

constexpr char kUsage[] =
    "usage: orba_model [--seed N] [--seeds N] [--calls N] [--seconds N] [--wrong KIND]\n"
    "Compares the library with a model, in random calls. Runs the given number of seeds from the first one on "
    "(default\n"
    "one, 1), with so many calls each (default 2000), or as many as fit in the given seconds. In each tenth seed a "
    "file\n"
    "grows as far as it can. Containers, and the calls of a seed that fails, are written to the current folder.\n"
    "  --wrong KIND  makes the model predict one thing wrongly, to see that the comparison finds it:\n";

struct Mistake {
  const char* kind;
  const char* what;
};

// In the order of Wrong.
constexpr Mistake kMistakes[] = {
    {"nothing", "nothing"},
    {"code", "deleting a directory that holds names fails with another code"},
    {"size", "a file that is cut keeps one byte too many"},
    {"order", "deleting a name leaves the others in their order"},
    {"byte", "the last byte of a long write differs"},
    {"time", "renaming changes the time stamp of the directory"},
    {"attributes", "a copy has no attributes"},
    {"handle", "opening a file passes over a free handle"},
    {"room", "a volume has room for one block more"},
    {"info", "the bitmap of a volume is one byte larger"},
};
static_assert(sizeof kMistakes / sizeof kMistakes[0] == static_cast<std::size_t>(Wrong::kCount), "a text for each");

// ---- One sequence, in a child ---------------------------------------------------------------------------------------

constexpr int kSame = 0, kDifferent = 10;
constexpr char kCallsFile[] = "model-calls";

// Runs a body in a child; returns its exit status, or 128 + signal.
int InChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(300);
    std::_Exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunCalls(const Options& options, const std::vector<Call>& calls, bool print) {
  Pair pair(options.wrong);
  pair.Prepare();
  for (std::size_t i = 0; i < calls.size() && pair.difference.empty(); ++i) {
    if (print) std::printf("  %s\n", Print(calls[i]).c_str());
    std::fflush(stdout);
    pair.Run(calls[i]);
  }
  if (pair.difference.empty()) pair.Finish();
  if (print && !pair.difference.empty()) std::printf("  -> %s\n", pair.difference.c_str());
  std::fflush(stdout);
  return pair.difference.empty() ? kSame : kDifferent;
}

// Chooses and runs the calls of a seed; with a file, each is written there before it is made.
int RunSeed(const Options& options, std::uint32_t seed, std::FILE* file) {
  Pair pair(options.wrong);
  pair.Prepare();
  model::Chooser chooser(seed, options.calls, seed % 10 == 0, pair.TheModel());
  for (std::uint32_t done = 0; done < options.calls && pair.difference.empty(); ++done) {
    const Call call = chooser.Next();
    if (file != nullptr && !Save(call, file)) std::abort();
    pair.Run(call);
  }
  if (pair.difference.empty()) pair.Finish();
  return pair.difference.empty() ? kSame : kDifferent;
}

// ---- Shortening -----------------------------------------------------------------------------------------------------

// The calls that a failing seed makes, up to the one that fails. A seed makes the same calls each time.
std::vector<Call> CallsOf(const Options& options, std::uint32_t seed) {
  std::vector<Call> calls;
  std::FILE* const file = std::fopen(kCallsFile, "w+b");
  if (file == nullptr) return calls;
  InChild([&] { return RunSeed(options, seed, file); });
  std::rewind(file);
  for (Call call; Load(&call, file);) calls.push_back(call);
  std::fclose(file);
  return calls;
}

// After leaving out a call that took a handle, those that were taken later mostly have the number before.
void LowerHandles(std::vector<Call>* calls, std::size_t from) {
  for (std::size_t i = from; i < calls->size(); ++i) {
    Call& call = (*calls)[i];
    const bool hasHandle = call.op >= model::Op::kSeek && call.op <= model::Op::kClose;
    if (hasHandle && call.x > 0x10000 && call.x < 0x10000 + ORB_MAX_OPEN_FILES) --call.x;
  }
}

// One pass of leaving out groups of calls. True where that was possible.
bool LeaveOut(const Options& options, std::vector<Call>* calls, std::size_t group) {
  const auto fails = [&](const std::vector<Call>& some) {
    return InChild([&] { return RunCalls(options, some, false); }) != kSame;
  };
  bool shorter = false;
  for (std::size_t at = 0; at < calls->size();) {
    std::vector<Call> fewer(*calls);
    const std::size_t end = std::min(at + group, fewer.size());
    fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(at), fewer.begin() + static_cast<std::ptrdiff_t>(end));
    bool found = fails(fewer);
    if (!found && group == 1 && (*calls)[at].op == model::Op::kOpen) {
      LowerHandles(&fewer, at);
      found = fails(fewer);
    }
    if (found) {
      calls->swap(fewer);
      shorter = true;
    } else {
      at += group;
    }
  }
  return shorter;
}

void Explain(const Options& options, std::uint32_t seed, int status) {
  std::printf("seed %u: %s\n", seed, status == kDifferent ? "differs from the model" : "crashed or hung");
  std::vector<Call> calls = CallsOf(options, seed);
  for (std::size_t group = calls.size() / 2; group > 1; group /= 2) LeaveOut(options, &calls, group);
  while (LeaveOut(options, &calls, 1)) continue;
  std::printf("the %zu calls that matter, after mounting containers 0 as DATA, 1 as LOGS and %d as FULL:\n",
              calls.size(), model::kNearlyFull);
  InChild([&] { return RunCalls(options, calls, true); });
  std::remove(kCallsFile);
}

// ---- Options --------------------------------------------------------------------------------------------------------

std::uint32_t Number(const char* text) { return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0)); }

bool TakeOption(Options* options, const std::string& name, const char* value) {
  if (name == "--seed") {
    options->seed = Number(value);
  } else if (name == "--seeds") {
    options->seeds = Number(value);
  } else if (name == "--calls") {
    options->calls = Number(value);
  } else if (name == "--seconds") {
    options->seconds = std::strtod(value, nullptr);
  } else if (name == "--wrong") {
    for (int i = 1; i < static_cast<int>(Wrong::kCount); ++i) {
      if (std::string(value) == kMistakes[i].kind) options->wrong = static_cast<Wrong>(i);
    }
    return options->wrong != Wrong::kNothing;
  } else {
    return false;
  }
  return true;
}

int Usage(std::FILE* out, int status) {
  std::fputs(kUsage, out);
  for (int i = 1; i < static_cast<int>(Wrong::kCount); ++i) {
    std::fprintf(out, "      %-12s%s\n", kMistakes[i].kind, kMistakes[i].what);
  }
  std::fputs("Exit status: 0 no difference, 1 a difference (shortened and printed), 2 usage.\n", out);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (argc == 2 && std::string(argv[1]) == "--help") return Usage(stdout, 0);
  if (argc % 2 == 0) return Usage(stderr, 2);
  for (int i = 1; i < argc; i += 2) {
    if (!TakeOption(&options, argv[i], argv[i + 1])) return Usage(stderr, 2);
  }
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  std::uint32_t done = 0;
  for (; options.seconds > 0 ? elapsed() < options.seconds : done < options.seeds; ++done) {
    const std::uint32_t seed = options.seed + done;
    const int status = InChild([&] { return RunSeed(options, seed, nullptr); });
    if (status == kSame) continue;
    Explain(options, seed, status);
    return 1;
  }
  std::printf("%u sequences from seed %u, %llu calls compared, no difference\n", done, options.seed,
              static_cast<unsigned long long>(done) * options.calls);
  return 0;
}
