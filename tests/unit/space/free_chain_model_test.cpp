// The free chain against a simple model of it, over many random operations.
#include <algorithm>
#include <random>
#include <set>

#include "space/block_io.h"
#include "space/free_chain.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FileBytes;
using testhost::FreeChainOf;
using testhost::FreeChainView;

// A stack of records, each with its own block and the blocks that it lists.
class Model {
 public:
  explicit Model(uint32_t capacity) : capacity_(capacity) {}

  struct Record {
    uint32_t block;
    std::multiset<uint32_t> free;
  };

  // The block that is handed out next, `end` where the chain is empty.
  uint32_t Take(uint32_t end) {
    if (records_.empty()) return end;
    Record& head = records_.back();
    if (head.free.empty()) {
      const uint32_t block = head.block;
      records_.pop_back();
      return block;
    }
    const uint32_t block = *head.free.begin();
    head.free.erase(head.free.begin());
    return block;
  }

  void Give(uint32_t block) {
    if (!records_.empty() && records_.back().free.size() < capacity_) {
      records_.back().free.insert(block);
    } else {
      records_.push_back({block, {}});
    }
  }

  const std::vector<Record>& records() const { return records_; }

 private:
  uint32_t capacity_;
  std::vector<Record> records_;  // the head last
};

class FreeChainModel : public LibraryTest {
 protected:
  static void ExpectHeap(const std::vector<uint32_t>& heap, const std::multiset<uint32_t>& expected) {
    ASSERT_EQ(std::multiset<uint32_t>(heap.begin(), heap.end()), expected);
    for (size_t k = 2; k <= heap.size(); ++k) ASSERT_LE(heap[k / 2 - 1], heap[k - 1]) << "entry " << k;
  }

  static void ExpectChainOnDisk(const Model& model) {
    const Bytes image = FileBytes(u"VOL");
    uint32_t block = testhost::HeaderOf(image).freeChainHead;
    for (auto record = model.records().rbegin(); record != model.records().rend(); ++record) {
      ASSERT_EQ(block, record->block);
      const FreeChainView view = FreeChainOf(image, block);
      ASSERT_EQ(view.signature, kFreeChainSignature);
      ExpectHeap(view.heap, record->free);
      block = view.next;
    }
    ASSERT_EQ(block, 0u);
  }

  static void ExpectCache(const Volume* volume, const Model& model, bool whole) {
    if (model.records().empty()) {
      ASSERT_EQ(volume->freeChain, nullptr);
      return;
    }
    const FreeChainRecord* const record = volume->freeChain;
    ASSERT_NE(record, nullptr);
    const std::multiset<uint32_t>& expected = model.records().back().free;
    ASSERT_EQ(record->count, expected.size());
    if (expected.empty()) return;
    ASSERT_EQ(record->heap[0], *expected.begin());
    if (!whole) return;
    ExpectHeap(std::vector<uint32_t>(record->heap, record->heap + record->count), expected);
  }

  // Takes and frees blocks at random, more of one and more of the other by turns.
  void Run(uint32_t blockSize, uint32_t capacity, uint32_t operations, uint32_t turn, uint32_t seed) {
    Volume* const volume = FormatAndMount(16, blockSize);
    testhost::SetTracing(false);
    const Bytes data(blockSize, 0x55);
    Model model(capacity);
    std::vector<uint32_t> taken;
    std::mt19937 random(seed);
    uint32_t blocks = 2;
    for (uint32_t i = 0; i < operations; ++i) {
      const bool mostlyTaking = i / turn % 2 == 0;
      const bool take = taken.empty() || (random() % 4 != 0) == mostlyTaking;
      if (take) {
        const uint32_t expected = model.Take(blocks + 1);
        ASSERT_EQ(AllocWriteBlock(data.data(), volume, kDataWrite), expected) << "operation " << i;
        blocks = std::max(blocks, expected);
        taken.push_back(expected);
      } else {
        const size_t at = random() % taken.size();
        std::swap(taken[at], taken.back());
        ASSERT_TRUE(FreeBlock(volume, taken.back())) << "operation " << i;
        model.Give(taken.back());
        taken.pop_back();
      }
      ASSERT_NO_FATAL_FAILURE(ExpectCache(volume, model, i % 13 == 0)) << "operation " << i;
      if (i % 997 != 0) continue;
      ASSERT_NO_FATAL_FAILURE(ExpectChainOnDisk(model)) << "operation " << i;
    }
    ExpectChainOnDisk(model);

    // Nothing is lost: all that is free comes out again before the container grows.
    size_t free = 0;
    for (const Model::Record& record : model.records()) free += 1 + record.free.size();
    EXPECT_EQ(free + taken.size() + 2, blocks);
    std::set<uint32_t> all(taken.begin(), taken.end());
    for (size_t i = 0; i < free; ++i) {
      const uint32_t block = AllocWriteBlock(data.data(), volume, kDataWrite);
      EXPECT_TRUE(all.insert(block).second) << block;
    }
    EXPECT_EQ(all.size() + 2, blocks);
    EXPECT_EQ(*all.rbegin(), blocks);
    EXPECT_EQ(volume->header.freeChainHead, 0u);
    EXPECT_EQ(AllocBlock(volume), blocks + 1);
  }
};

TEST_F(FreeChainModel, thousands_of_operations_over_several_records_of_1024_bytes) { Run(1024, 253, 12000, 1500, 1); }

TEST_F(FreeChainModel, thousands_of_operations_around_an_empty_chain) { Run(1024, 253, 6000, 7, 2); }

TEST_F(FreeChainModel, thousands_of_operations_over_several_records_of_2048_bytes) { Run(2048, 509, 8000, 2000, 3); }

TEST_F(FreeChainModel, thousands_of_operations_on_records_of_4096_bytes) { Run(4096, 1021, 5000, 1200, 4); }

TEST_F(FreeChainModel, thousands_of_operations_on_records_of_8192_bytes) { Run(8192, 2045, 3000, 700, 5); }

}  // namespace
}  // namespace orba
