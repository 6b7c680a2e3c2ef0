#include <unordered_set>

#include "inspect/check/work.h"
#include "inspect/container/fields.h"

namespace orba::inspect {

namespace {

void MarkEntry(Work* work, std::uint32_t record, std::uint32_t place, std::uint32_t entry, std::uint64_t offset) {
  if (entry == kNoBlock) {
    work->Add(Kind::kChainZeroEntry, {0, record, offset});
    return;
  }
  if (!work->geometry().Holds(entry)) {
    work->Add(Kind::kChainEntryOutside, {0, record, offset}, {{entry}});
    return;
  }
  if (work->chainMark[entry] != kNotInChain) {
    work->Add(Kind::kChainDuplicate, {0, entry, offset});
    return;
  }
  work->chainMark[entry] = kListed;
  work->chainPlace[entry] = place;
}

// An update takes one number out of the head record or puts one in, which changes its count and one path of its heap.
// Where a part of that was written, the last entry counted may be missing, and those on the path stand twice or out of
// order. Other records are not updated.
bool IsTorn(const Work& work, const std::vector<std::uint32_t>& heap) {
  if (!work.WasUpdated() || heap.empty()) return false;
  std::size_t levels = 0;
  while (heap.size() >> levels != 0) ++levels;
  const std::size_t there = heap.size() - (heap.back() == kNoBlock ? 1 : 0);
  std::size_t faults = heap.size() - there;
  std::unordered_set<std::uint32_t> seen;
  for (std::size_t k = 1; k <= there; ++k) {
    const std::uint32_t entry = heap[k - 1];
    if (!work.geometry().Holds(entry)) return false;
    if (!seen.insert(entry).second || (k > 1 && entry < heap[k / 2 - 1])) ++faults;
    if (faults > levels) return false;
  }
  return faults > 0;
}

void MarkTorn(Work* work, std::uint32_t block, const std::vector<std::uint32_t>& heap) {
  const std::uint64_t offset = work->geometry().BlockOffset(block) + offsetof(FreeChainRecord, count);
  work->Add(Kind::kChainTorn, {0, block, offset}, {{heap.size()}});
  for (const std::uint32_t entry : heap) {
    if (entry == kNoBlock || work->chainMark[entry] != kNotInChain) continue;
    work->chainMark[entry] = kListed;
    work->chainPlace[entry] = 0;
  }
}

void MarkEntries(Work* work, std::uint32_t block, std::uint32_t place, const std::vector<std::uint32_t>& heap) {
  bool ordered = true;
  for (std::uint32_t k = 1; k <= heap.size(); ++k) {
    const std::uint32_t entry = heap[k - 1];
    const std::uint64_t offset = work->geometry().BlockOffset(block) + HeapOffset(k - 1);
    MarkEntry(work, block, place, entry, offset);
    if (k == 1 || !ordered || entry == kNoBlock || entry >= heap[k / 2 - 1]) continue;
    ordered = false;
    work->Add(Kind::kChainHeapOrder, {0, block, offset}, {{k}});
  }
}

// The next record, 0 at the chain's end and where it cannot be followed further.
std::uint32_t ReadRecord(Work* work, std::uint32_t block) {
  const Geometry& geometry = work->geometry();
  const std::uint64_t offset = geometry.BlockOffset(block);
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  if (!work->Read(offset, bytes.data(), bytes.size())) return kNoBlock;
  const ChainRecord record = DecodeChain(bytes);
  if (record.signature != kFreeChainSignature) {
    const bool torn = work->WasUpdated() && block == work->model().header.freeChainHead;
    work->Add(torn ? Kind::kHeaderTorn : Kind::kChainSignature, {0, block, offset});
    return kNoBlock;
  }
  const std::uint32_t count = record.count;
  const std::uint64_t countOffset = offset + offsetof(FreeChainRecord, count);
  if (count > geometry.chainCapacity()) {
    work->Add(Kind::kChainCount, {0, block, countOffset}, {{geometry.chainCapacity(), count}});
    return kNoBlock;
  }
  const auto place = static_cast<std::uint32_t>(work->model().chain.size());
  if (place > 0 && count < geometry.chainCapacity()) {
    work->Add(Kind::kChainPartial, {0, block, countOffset});
  }
  if (work->chainMark[block] != kNotInChain) {
    work->Add(Kind::kChainDuplicate, {0, block, offset}, {{true}});
  }
  work->chainMark[block] = kRecord;
  work->chainPlace[block] = place;
  work->model().chain.push_back({block, count});
  if (place == 0 && IsTorn(*work, record.heap)) {
    MarkTorn(work, block, record.heap);
  } else {
    MarkEntries(work, block, place, record.heap);
  }
  return record.next;
}

}  // namespace

void WalkChain(Work* work) {
  std::uint32_t block = work->model().header.freeChainHead;
  std::uint64_t link = offsetof(VolumeHeader, freeChainHead);  // where `block` was read
  while (block != kNoBlock) {
    if (!work->geometry().Holds(block)) {
      const bool torn = work->WasUpdated() && link == offsetof(VolumeHeader, freeChainHead);
      work->Add(torn ? Kind::kHeaderTorn : Kind::kChainOutside, {0, block, link});
      return;
    }
    if (work->chainMark[block] == kRecord) {
      work->Add(Kind::kChainCycle, {0, block, link});
      return;
    }
    link = work->geometry().BlockOffset(block) + offsetof(FreeChainRecord, next);
    block = ReadRecord(work, block);
  }
}

void ClaimChain(Work* work) {
  std::vector<BlockInfo>& blocks = work->model().blocks;
  for (std::uint32_t block = 1; block < blocks.size(); ++block) {
    if (work->chainMark[block] == kNotInChain || work->freed[block]) continue;
    BlockInfo& info = blocks[block];
    if (info.use == BlockUse::kNothing) {
      info.use = work->chainMark[block] == kRecord ? BlockUse::kChainRecord : BlockUse::kFree;
      info.index = work->chainPlace[block];
      continue;
    }
    info.shared = true;
    work->Add(Kind::kChainBlockInUse, {info.node, block, work->geometry().BlockOffset(block)}, {{}, "", {}, info});
  }
}

}  // namespace orba::inspect
