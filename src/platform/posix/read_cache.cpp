#include "platform/posix/read_cache.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

namespace orba {
namespace posix {

// A line of the file has its place in one set, where it takes any of four ways: the one that was not used for longest.
struct CacheLine {
  uint64_t number;  // in the file, from 0; or kNoLine
  uint64_t used;    // the cache's clock when it was last read
  uint8_t* bytes;   // null until first needed
};

constexpr uint32_t kWays = 4;
constexpr uint32_t kSets = kCacheLines / kWays;
static_assert(kCacheReadAhead < kSets, "the lines of a run must not take each other's place");

struct ReadCache {
  CacheLine lines[kSets][kWays];
  uint64_t clock;
  uint64_t behindLastRun;  // the line that a sequential reader misses next
  uint32_t ahead;          // lines that the last run fetched at most
  uint32_t firstEnd;       // where line 0 ends: it may be shorter than the others, so that they begin where blocks do
  bool fitted;             // firstEnd was learnt from a reader
};

namespace {

constexpr uint64_t kNoLine = UINT64_MAX;

uint64_t Smaller(uint64_t a, uint64_t b) { return a < b ? a : b; }

uint64_t LineOf(const ReadCache* cache, uint64_t position) {
  return position < cache->firstEnd ? 0 : (position - cache->firstEnd) / kCacheLineSize + 1;
}

uint64_t LineEnd(const ReadCache* cache, uint64_t number) { return cache->firstEnd + number * kCacheLineSize; }

uint64_t LineStart(const ReadCache* cache, uint64_t number) { return number == 0 ? 0 : LineEnd(cache, number - 1); }

CacheLine* FindLine(ReadCache* cache, uint64_t number) {
  for (CacheLine& line : cache->lines[number % kSets]) {
    if (line.number == number) return &line;
  }
  return nullptr;
}

// A line to read `number` into, its old contents forgotten; null without memory.
CacheLine* TakeLine(ReadCache* cache, uint64_t number) {
  CacheLine* oldest = nullptr;
  for (CacheLine& line : cache->lines[number % kSets]) {
    if (oldest == nullptr || line.used < oldest->used) oldest = &line;
  }
  if (oldest->bytes == nullptr) oldest->bytes = static_cast<uint8_t*>(malloc(kCacheLineSize));
  if (oldest->bytes == nullptr) return nullptr;
  oldest->number = kNoLine;
  oldest->used = ++cache->clock;
  return oldest;
}

int ReadPlain(int descriptor, uint64_t position, uint8_t* buffer, uint32_t count, uint32_t* done) {
  while (*done < count) {
    const ssize_t moved = pread(descriptor, buffer + *done, count - *done, static_cast<off_t>(position + *done));
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return errno;
    if (moved == 0) break;  // cut shorter by a program that did not ask for the lock
    *done += static_cast<uint32_t>(moved);
  }
  return 0;
}

// Lines of the file in a row that are fetched at once.
struct Run {
  uint64_t first;
  uint32_t count;
  CacheLine* lines[kCacheReadAhead];
};

// The lines to fetch for a reader who misses `first` and wants all before `end`: as far as he wants them, further where
// he reads in order, up to the first that is there already. None without memory.
void TakeRun(ReadCache* cache, uint64_t size, uint64_t first, uint64_t end, Run* run) {
  const bool inOrder = first == cache->behindLastRun;
  cache->ahead = inOrder ? static_cast<uint32_t>(Smaller(2 * cache->ahead, kCacheReadAhead)) : 1;
  const uint64_t wanted = LineOf(cache, end - 1) + 1 - first;
  const uint64_t ahead = Smaller(cache->ahead, LineOf(cache, size - 1) + 1 - first);
  const uint64_t most = Smaller(wanted > ahead ? wanted : ahead, kCacheReadAhead);
  run->first = first;
  run->count = 0;
  while (run->count < most && (run->count == 0 || FindLine(cache, first + run->count) == nullptr)) {
    CacheLine* const line = TakeLine(cache, first + run->count);
    if (line == nullptr) break;
    run->lines[run->count++] = line;
  }
  cache->behindLastRun = first + run->count;
}

// Reads a run from the file until its bytes before `needed`, a position, are there. `*reached` is the position behind
// what came: at or behind `needed` unless the file fails (errno) or ends.
int FetchRun(const ReadCache* cache, const Run& run, int descriptor, uint64_t needed, uint64_t* reached) {
  *reached = LineStart(cache, run.first);
  while (*reached < needed) {
    iovec pieces[kCacheReadAhead];
    int count = 0;
    for (uint32_t i = 0; i < run.count; i++) {
      const uint64_t start = LineStart(cache, run.first + i);
      const uint64_t end = LineEnd(cache, run.first + i);
      if (end <= *reached) continue;
      const uint64_t there = *reached > start ? *reached - start : 0;
      pieces[count++] = {run.lines[i]->bytes + there, static_cast<size_t>(end - start - there)};
    }
    const auto position = static_cast<off_t>(*reached);
    const ssize_t moved = count == 1 ? pread(descriptor, pieces[0].iov_base, pieces[0].iov_len, position)
                                     : preadv(descriptor, pieces, count, position);
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return errno;
    if (moved == 0) break;
    *reached += static_cast<uint64_t>(moved);
  }
  return 0;
}

// Keeps those lines of a run that came in full.
void KeepRun(const ReadCache* cache, const Run& run, uint64_t size, uint64_t reached) {
  for (uint32_t i = 0; i < run.count; i++) {
    const uint64_t start = LineStart(cache, run.first + i);
    const uint64_t end = LineEnd(cache, run.first + i);
    const uint64_t endInFile = Smaller(end, size);
    if (reached < endInFile) return;
    memset(run.lines[i]->bytes + (endInFile - start), 0, static_cast<size_t>(end - endInFile));
    run.lines[i]->number = run.first + i;
  }
}

// The part of the bytes from `begin` to before `end` that lies in the first of their lines.
struct Part {
  uint64_t line;
  uint64_t offset;
  uint32_t length;
};

Part FirstPart(const ReadCache* cache, uint64_t begin, uint64_t end) {
  const uint64_t line = LineOf(cache, begin);
  return {line, begin - LineStart(cache, line), static_cast<uint32_t>(Smaller(end, LineEnd(cache, line)) - begin)};
}

// Whoever reads a line's worth reads whole blocks; from the first of them on, lines begin where blocks do. What was
// read before is forgotten.
void FitLines(ReadCache* cache, uint64_t position) {
  cache->fitted = true;
  const auto offset = static_cast<uint32_t>(position % kCacheLineSize);
  if (offset == 0) return;
  cache->firstEnd = offset;
  cache->behindLastRun = kNoLine;
  for (auto& set : cache->lines) {
    for (CacheLine& line : set) line.number = kNoLine;
  }
}

}  // namespace

ReadCache* NewReadCache() {
  auto* const cache = static_cast<ReadCache*>(calloc(1, sizeof(ReadCache)));
  if (cache == nullptr) return nullptr;
  for (auto& set : cache->lines) {
    for (CacheLine& line : set) line.number = kNoLine;
  }
  cache->behindLastRun = kNoLine;
  cache->firstEnd = kCacheLineSize;
  return cache;
}

void FreeReadCache(ReadCache* cache) {
  if (cache == nullptr) return;
  for (auto& set : cache->lines) {
    for (CacheLine& line : set) free(line.bytes);
  }
  free(cache);
}

int ReadCached(ReadCache* cache, int descriptor, uint64_t size, uint64_t position, void* buffer, uint32_t count,
               uint32_t* done) {
  auto* const to = static_cast<uint8_t*>(buffer);
  const uint64_t end = position + count;
  *done = 0;
  if (cache == nullptr) return ReadPlain(descriptor, position, to, count, done);
  if (!cache->fitted && count >= kCacheLineSize) FitLines(cache, position);
  while (*done < count) {
    Part part = FirstPart(cache, position + *done, end);
    CacheLine* const line = FindLine(cache, part.line);
    if (line != nullptr) {
      line->used = ++cache->clock;
      memcpy(to + *done, line->bytes + part.offset, part.length);
      *done += part.length;
      continue;
    }
    Run run;
    TakeRun(cache, size, part.line, end, &run);
    if (run.count == 0) {
      uint32_t moved = 0;
      const int error = ReadPlain(descriptor, position + *done, to + *done, part.length, &moved);
      *done += moved;
      if (error != 0 || moved < part.length) return error;
      continue;
    }
    const uint64_t needed = Smaller(end, LineEnd(cache, run.first + run.count - 1));
    uint64_t reached;
    const int error = FetchRun(cache, run, descriptor, needed, &reached);
    KeepRun(cache, run, size, reached);
    const uint64_t copied = Smaller(reached, needed);
    while (position + *done < copied) {
      part = FirstPart(cache, position + *done, copied);
      memcpy(to + *done, run.lines[part.line - run.first]->bytes + part.offset, part.length);
      *done += part.length;
    }
    // What cannot be read may lie in the lines beside the asked bytes.
    if (error != 0) return ReadPlain(descriptor, position, to, count, done);
    if (reached < needed) return 0;
  }
  return 0;
}

void UpdateCache(ReadCache* cache, uint64_t position, const void* bytes, uint32_t count) {
  if (cache == nullptr) return;
  const auto* const from = static_cast<const uint8_t*>(bytes);
  const uint64_t end = position + count;
  for (uint64_t at = position; at < end;) {
    const Part part = FirstPart(cache, at, end);
    CacheLine* const line = FindLine(cache, part.line);
    if (line != nullptr) memcpy(line->bytes + part.offset, from + (at - position), part.length);
    at += part.length;
  }
}

void DropFromCache(ReadCache* cache, uint64_t position, uint32_t count) {
  if (cache == nullptr) return;
  const uint64_t end = position + count;
  for (uint64_t at = position; at < end;) {
    const Part part = FirstPart(cache, at, end);
    CacheLine* const line = FindLine(cache, part.line);
    if (line != nullptr) line->number = kNoLine;
    at += part.length;
  }
}

}  // namespace posix
}  // namespace orba
