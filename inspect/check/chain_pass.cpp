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
    work->Add(Kind::kChainSignature, {0, block, offset});
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
  MarkEntries(work, block, place, record.heap);
  return record.next;
}

}  // namespace

void WalkChain(Work* work) {
  std::uint32_t block = work->model().header.freeChainHead;
  std::uint64_t link = offsetof(VolumeHeader, freeChainHead);  // where `block` was read
  while (block != kNoBlock) {
    if (!work->geometry().Holds(block)) {
      work->Add(Kind::kChainOutside, {0, block, link});
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
