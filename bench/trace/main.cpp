// Writes the container calls of each workload to a file of its name.
//
//   workload_traces FOLDER
#include <cstdio>

#include "bench/trace/host.h"
#include "bench/workloads.h"

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: workload_traces FOLDER\n");
    return 2;
  }
  for (const bench::Workload& workload : bench::Workloads()) {
    const std::unique_ptr<bench::Backend> orba = bench::MakeOrba(bench::OrbaIn::kFile);
    bench::Trace trace;
    std::vector<bench::Call> calls;
    bench::RecordCalls(&calls);
    workload.prepare(*orba);
    for (const bench::Call& call : calls) {
      if (call.access == bench::Access::kWrite) trace.prepared.push_back(call);
    }
    bench::RecordCalls(&trace.timed);
    workload.run(*orba);
    bench::RecordCalls(nullptr);
    workload.finish(*orba);
    bench::SaveTrace(std::string(arguments[1]) + "/" + workload.name, trace);
  }
  return 0;
}
