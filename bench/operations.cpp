// Times of calls, beside the same transfers on a plain file of the host, and the container calls that they make.
// Compare times within one run only; the counts of reads, writes and seeks repeat exactly.
//
//   operations [--benchmark_filter=REGEX]     makes bench.orba and bench.plain in the current folder and removes them
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "orba.h"

namespace {

constexpr char16_t kContainer[] = u"bench.orba";
constexpr char kContainerName[] = "bench.orba";
constexpr char kPlainName[] = "bench.plain";
constexpr uint32_t kFileSize = 1U << 20;

// A benchmark that measures failures would look fast.
void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "%s failed: 0x%08X\n", what, OrbGetLastError());
  std::exit(1);
}

// A new volume "B", gone at the end of the scope.
class BenchVolume {
 public:
  explicit BenchVolume(uint32_t blockSize) {
    std::remove(kContainerName);
    Require(OrbCreateVolumeEx(kContainer, 512, blockSize) != 0, "formatting");
    Require(OrbMountVolume(kContainer, u"B") != 0, "mounting");
  }
  BenchVolume(const BenchVolume&) = delete;
  BenchVolume& operator=(const BenchVolume&) = delete;
  ~BenchVolume() {
    OrbUnmountVolumeA("B");
    std::remove(kContainerName);
  }
};

OrbHandle Open(const char* path) {
  const OrbHandle file = OrbOpenFileA(path, ORB_OPEN_READ | ORB_OPEN_WRITE);
  Require(file != ORB_INVALID_HANDLE, "opening");
  return file;
}

void Write(OrbHandle file, const std::vector<char>& bytes) {
  OrbU32 done = 0;
  Require(OrbWriteFile(file, bytes.data(), static_cast<OrbU32>(bytes.size()), &done) != 0, "writing");
}

OrbHandle NewFile(const char* path, uint32_t size) {
  Require(OrbCreateFileA(path, 0) != 0, "creating");
  const OrbHandle file = Open(path);
  if (size > 0) Write(file, std::vector<char>(size, 'x'));
  return file;
}

std::string Numbered(const char* prefix, int64_t number) { return prefix + std::to_string(number); }

// The container calls of one iteration, as counters in the output.
class CallCounts {
 public:
  explicit CallCounts(benchmark::State& state)
      : state_(state), reads_(g_dwReadCount), writes_(g_dwWriteCount), seeks_(g_dwSeekCount) {}
  CallCounts(const CallCounts&) = delete;
  CallCounts& operator=(const CallCounts&) = delete;
  ~CallCounts() {
    const auto perCall = [](OrbU32 count) { return benchmark::Counter(count, benchmark::Counter::kAvgIterations); };
    state_.counters["reads"] = perCall(g_dwReadCount - reads_);
    state_.counters["writes"] = perCall(g_dwWriteCount - writes_);
    state_.counters["seeks"] = perCall(g_dwSeekCount - seeks_);
  }

 private:
  benchmark::State& state_;
  const OrbU32 reads_, writes_, seeks_;
};

// ---- Transfers of a whole file: the arguments are the block size and the bytes of a call ----------------------------

template <typename Transfer>
void TransferThroughFile(benchmark::State& state, Transfer transfer) {
  const BenchVolume volume(static_cast<uint32_t>(state.range(0)));
  const OrbHandle file = NewFile("B:/FILE", kFileSize);
  const auto size = static_cast<uint32_t>(state.range(1));
  std::vector<char> buffer(size, 'y');
  const CallCounts counts(state);
  for (auto _ : state) {
    Require(OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN) == 0, "seeking");
    for (uint32_t position = 0; position < kFileSize; position += size) {
      OrbU32 done = 0;
      Require(transfer(file, buffer.data(), size, &done) != 0 && done == size, "the transfer");
    }
  }
  state.SetBytesProcessed(state.iterations() * kFileSize);
  OrbCloseFile(file);
}

void Read(benchmark::State& state) { TransferThroughFile(state, OrbReadFile); }
void Overwrite(benchmark::State& state) { TransferThroughFile(state, OrbWriteFile); }

void AppendAndEmpty(benchmark::State& state) {
  const BenchVolume volume(static_cast<uint32_t>(state.range(0)));
  const OrbHandle file = NewFile("B:/FILE", kFileSize);
  Require(OrbSetFileSize(file, 0) != 0, "emptying");  // from here on each pass finds the same free blocks
  const std::vector<char> bytes(static_cast<size_t>(state.range(1)), 'y');
  const CallCounts counts(state);
  for (auto _ : state) {
    for (uint32_t size = 0; size < kFileSize; size += static_cast<uint32_t>(bytes.size())) Write(file, bytes);
    Require(OrbSetFileSize(file, 0) != 0, "emptying");
  }
  state.SetBytesProcessed(state.iterations() * kFileSize);
  OrbCloseFile(file);
}

// What the host takes for the same bytes, one system call each.
template <typename Transfer>
void TransferThroughHost(benchmark::State& state, Transfer transfer) {
  const int file = open(kPlainName, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  Require(file >= 0 && ftruncate(file, kFileSize) == 0, "making the plain file");
  const auto size = static_cast<uint32_t>(state.range(0));
  std::vector<char> buffer(size, 'y');
  for (auto _ : state) {
    for (uint32_t position = 0; position < kFileSize; position += size) {
      Require(transfer(file, buffer.data(), size, position) == static_cast<ssize_t>(size), "the transfer");
    }
  }
  state.SetBytesProcessed(state.iterations() * kFileSize);
  close(file);
  std::remove(kPlainName);
}

void HostRead(benchmark::State& state) { TransferThroughHost(state, pread); }
void HostWrite(benchmark::State& state) { TransferThroughHost(state, pwrite); }

// ---- Names: the argument is how many entries the directory holds ----------------------------------------------------

void FillDirectory(int64_t entries) {
  for (int64_t i = 0; i < entries; ++i) Require(OrbCreateFileA(Numbered("B:/F", i).c_str(), 0) != 0, "creating");
}

void OpenAndClose(benchmark::State& state) {
  const BenchVolume volume(1024);
  FillDirectory(state.range(0));
  const std::string last = Numbered("B:/F", state.range(0) - 1);
  const CallCounts counts(state);
  for (auto _ : state) OrbCloseFile(Open(last.c_str()));
}

void CreateAndDelete(benchmark::State& state) {
  const BenchVolume volume(1024);
  FillDirectory(state.range(0));
  const auto createAndDelete = [] {
    Require(OrbCreateFileA("B:/NEW", 0) != 0, "creating");
    Require(OrbDeleteFileA("B:/NEW") != 0, "deleting");
  };
  createAndDelete();  // from here on each pass finds the same free blocks
  const CallCounts counts(state);
  for (auto _ : state) createAndDelete();
}

void ListDirectory(benchmark::State& state) {
  const BenchVolume volume(1024);
  FillDirectory(state.range(0));
  const CallCounts counts(state);
  for (auto _ : state) {
    OrbFindDataA found;
    const OrbHandle search = OrbFindFirstFileA("B:/*", &found);
    int64_t entries = 0;
    while (OrbFindNextFileA(search, &found)) ++entries;
    Require(entries >= state.range(0) && OrbFindClose(search), "listing");
  }
}

void Mount(benchmark::State& state) {
  { const BenchVolume volume(1024); }
  Require(OrbCreateVolumeEx(kContainer, 512, 1024) != 0, "formatting");
  const CallCounts counts(state);
  for (auto _ : state) Require(OrbMountVolume(kContainer, u"B") && OrbUnmountVolumeA("B"), "mounting");
  std::remove(kContainerName);
}

const std::vector<std::vector<int64_t>> kTransfers = {{1024, 4096}, {64, 1024, 4096, 65536}};

BENCHMARK(Read)->ArgsProduct(kTransfers);
BENCHMARK(Overwrite)->ArgsProduct(kTransfers);
BENCHMARK(AppendAndEmpty)->ArgsProduct(kTransfers);
BENCHMARK(HostRead)->Arg(64)->Arg(1024)->Arg(4096)->Arg(65536);
BENCHMARK(HostWrite)->Arg(64)->Arg(1024)->Arg(4096)->Arg(65536);
BENCHMARK(OpenAndClose)->Arg(1)->Arg(30)->Arg(1000);
BENCHMARK(CreateAndDelete)->Arg(1)->Arg(30)->Arg(1000);
BENCHMARK(ListDirectory)->Arg(1)->Arg(30)->Arg(1000);
BENCHMARK(Mount);

}  // namespace

BENCHMARK_MAIN();
