// The workloads on orba and its peers, and on the floor below orba: its own container calls with no file system. Each
// repetition is one whole workload in a new volume; the repetitions of all come in turn, so that a busy machine slows
// everybody. Times are processor time per operation, the kernel's included: nothing here waits for a disk, so that is
// the time it takes where nobody else is busy. script/bench runs this and reads the results.
//
//   workloads FOLDER_OF_TRACES [Google Benchmark's options]     works in the current folder
#include <benchmark/benchmark.h>
#include <time.h>

#include <cstdio>
#include <fstream>
#include <functional>

#include "bench/backend.h"
#include "bench/floor.h"
#include "bench/host_calls.h"
#include "bench/workloads.h"
#include "orba.h"

namespace {

using bench::Backend;
using bench::Workload;

struct Counts {
  double reads, writes, seeks, hostCalls;
};

Counts CountsNow() {
  return {static_cast<double>(g_dwReadCount), static_cast<double>(g_dwWriteCount), static_cast<double>(g_dwSeekCount),
          static_cast<double>(bench::HostCalls())};
}

// Seconds that this thread has kept the processor busy, in the kernel as well.
double BusySeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Times `run` as one iteration that stands for `operations`.
template <typename Run>
void Time(benchmark::State& state, size_t operations, Run run) {
  const Counts before = CountsNow();
  const double start = BusySeconds();
  run();
  const double taken = BusySeconds() - start;
  const Counts after = CountsNow();
  const auto each = static_cast<double>(operations);
  state.SetIterationTime(taken);
  state.counters["us_per_op"] = taken * 1e6 / each;
  state.counters["reads"] = (after.reads - before.reads) / each;
  state.counters["writes"] = (after.writes - before.writes) / each;
  state.counters["seeks"] = (after.seeks - before.seeks) / each;
  state.counters["host_calls"] = (after.hostCalls - before.hostCalls) / each;
}

void RunOn(benchmark::State& state, const std::function<std::unique_ptr<Backend>()>& make, const Workload& workload) {
  const std::unique_ptr<Backend> backend = make();
  for (auto _ : state) {
    workload.prepare(*backend);
    Time(state, workload.operations, [&] { workload.run(*backend); });
    workload.finish(*backend);
  }
}

void RunFloor(benchmark::State& state, const std::string& trace, bool inMemory, const Workload& workload) {
  bench::Floor floor(trace, inMemory);
  for (auto _ : state) {
    floor.Prepare();
    Time(state, workload.operations, [&] { floor.Run(); });
  }
}

void Register(const std::string& traces) {
  const std::pair<const char*, std::function<std::unique_ptr<Backend>()>> backends[] = {
      {"orba-file", [] { return bench::MakeOrba(bench::OrbaIn::kFile); }},
      {"orba-aligned", [] { return bench::MakeOrba(bench::OrbaIn::kAlignedFile); }},
      {"orba-memory", [] { return bench::MakeOrba(bench::OrbaIn::kMemory); }},
      {"ext2", [] { return bench::MakeExt2(); }},
      {"sqlite-off", [] { return bench::MakeSqlite(false); }},
      {"sqlite-wal", [] { return bench::MakeSqlite(true); }},
  };
  const auto once = [](benchmark::internal::Benchmark* registered) { registered->Iterations(1)->UseManualTime(); };
  for (const Workload& workload : bench::Workloads()) {
    const std::string name = std::string(workload.name) + "/";
    for (const auto& [backend, make] : backends) {
      if (workload.remounts && !make()->KeepsUnmounted()) continue;
      once(benchmark::RegisterBenchmark((name + backend).c_str(), [make = make, &workload](benchmark::State& state) {
        RunOn(state, make, workload);
      }));
    }
    const std::string trace = traces + "/" + workload.name;
    if (!std::ifstream(trace)) continue;
    for (const bool inMemory : {false, true}) {
      once(benchmark::RegisterBenchmark(
          (name + (inMemory ? "floor-memory" : "floor-file")).c_str(),
          [=, &workload](benchmark::State& state) { RunFloor(state, trace, inMemory, workload); }));
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2 || arguments[1][0] == '-') {
    std::fprintf(stderr, "usage: workloads FOLDER_OF_TRACES [OPTION...]\n");
    return 2;
  }
  Register(arguments[1]);
  arguments[1] = arguments[0];
  --count;
  ++arguments;
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
