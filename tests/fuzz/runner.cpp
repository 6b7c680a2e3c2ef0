// Runs a fuzz target without a fuzzer: on the files given, or on random inputs made from a row of seeds. The target
// runs in a child process, so that whatever goes wrong, the input that did it is known and kept.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr unsigned kPatience = 30;  // seconds for one input
constexpr double kNews = 10;        // seconds between two lines of progress

using fuzz::Bytes;

struct Options {
  std::uint64_t seed = 1;
  std::uint64_t runs = 1000;
  double seconds = 0;  // 0: as long as it takes
  std::vector<std::string> files;
};

double Now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

void RunOne(const Bytes& input) {
  alarm(kPatience);
  LLVMFuzzerTestOneInput(input.data(), input.size());
  alarm(0);
}

// True where the child does its work and ends by itself, without leaks.
bool InChild(const std::function<void()>& work) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    work();
    std::exit(0);
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) != child) {
  }
  if (child > 0 && WIFSIGNALED(status)) std::fprintf(stderr, "ended by signal %d\n", WTERMSIG(status));
  return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int Replay(const std::vector<std::string>& files) {
  for (const std::string& name : files) {
    std::ifstream file(name, std::ios::binary);
    const Bytes input{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) {
      std::fprintf(stderr, "%s: cannot be read\n", name.c_str());
      return 2;
    }
    if (!InChild([&] { RunOne(input); })) {
      std::printf("%s: failed\n", name.c_str());
      return 1;
    }
    std::printf("%s: passed\n", name.c_str());
  }
  return 0;
}

void Keep(const std::string& program, std::uint64_t seed) {
  const std::string name = program.substr(program.rfind('/') + 1) + "." + std::to_string(seed) + ".input";
  const Bytes input = fuzz::RandomInput(seed);
  std::ofstream file(name, std::ios::binary);
  file.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
  file.close();
  std::printf("failed at seed %llu; the input is in %s, to be run again as: %s %s\n",
              static_cast<unsigned long long>(seed), file ? name.c_str() : "no file, for it cannot be written",
              program.c_str(), name.c_str());
}

int RunSeeds(const std::string& program, const Options& options) {
  void* const page = mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return 2;
  auto* const done = static_cast<volatile std::uint64_t*>(page);  // the parent sees how far the child came
  const bool passed = InChild([&] {
    const double start = Now();
    double told = start;
    for (; options.seconds > 0 ? Now() - start < options.seconds : *done < options.runs; *done = *done + 1) {
      RunOne(fuzz::RandomInput(options.seed + *done));
      if (Now() - told < kNews) continue;
      told = Now();
      std::printf("%llu inputs, %.0f s\n", static_cast<unsigned long long>(*done + 1), told - start);
      std::fflush(stdout);
    }
  });
  const unsigned long long count = *done;
  if (!passed) {
    Keep(program, options.seed + count);
    return 1;
  }
  std::printf("%llu inputs from seed %llu passed\n", count, static_cast<unsigned long long>(options.seed));
  return 0;
}

bool ReadOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option.compare(0, 2, "--") != 0) {
      options->files.push_back(option);
      continue;
    }
    if (++i == argc) return false;
    if (option == "--seed") {
      options->seed = std::strtoull(argv[i], nullptr, 0);
    } else if (option == "--runs") {
      options->runs = std::strtoull(argv[i], nullptr, 0);
    } else if (option == "--seconds") {
      options->seconds = std::strtod(argv[i], nullptr);
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ReadOptions(argc, argv, &options)) {
    std::fprintf(
        stderr,
        "usage: %s [--seed N] [--runs N] [--seconds N] [FILE...]\n"
        "Runs the inputs in the files; without files, as many random inputs from the first seed on as are asked\n"
        "for, or as fit in the seconds. Exit status: 0 passed, 1 failed (the input is kept in a file), 2 usage.\n",
        argv[0]);
    return 2;
  }
  return options.files.empty() ? RunSeeds(argv[0], options) : Replay(options.files);
}
