// The fixture for tests that go through all operations. Each operation is prepared once; a test then begins it again
// and again from there, upsets it and looks at what it leaves.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "inspect/repair/action.h"
#include "support/operations.h"
#include "unit/library_test.h"

namespace orba {

// What a stop after some of an operation's writes leaves.
struct StopState {
  testhost::FileImage image;
  inspect::Report report;  // without its model
};

class OperationTest : public LibraryTest, public ::testing::WithParamInterface<const testhost::Operation*> {
 protected:
  void SetUp() override;

  const testhost::Operation& operation() const { return *GetParam(); }
  const testhost::FileSet& prepared() const { return *prepared_; }

  // The container after 0, 1, 2 ... writes.
  const std::vector<StopState>& states() const { return *states_; }

  // Which writes of the whole operation, counted from 0, are of file data: the block is a file's in the end, and what
  // is written is not a free-chain record. `writes` are all of them.
  std::set<size_t> DataWrites(const std::vector<testhost::CallRecord>& writes) const;

 private:
  const testhost::FileSet* prepared_ = nullptr;
  const std::vector<StopState>* states_ = nullptr;
};

// Makes a file in the root directory of volume A, which is mounted, reads it again and deletes it. Result: "", or which
// step failed with which code.
std::string UseVolume();

// What is there now that was not there before: "", or the kinds of findings. One leaked block more is not told: it may
// have been taken out of the free chain in memory.
std::string Worse(const inspect::Report& before, const inspect::Report& after);

// A repair, which is expected to be able to mend all.
struct RepairRun {
  inspect::Report before;                   // without its model
  std::vector<testhost::FileImage> images;  // the container after 0, 1, 2 ... writes
  std::vector<inspect::Write> writes;
};
RepairRun RunRepair(const testhost::FileImage& image);

// "marked, clean", "marked, leaks", "unmarked, interrupted", ...
std::string ClassOf(const inspect::Report& report);

// Which of many like cases have their turn: so many at both ends, and each `step`-th.
struct Turns {
  size_t ends;
  size_t step;
};
constexpr Turns kAll = {0, 1};

// Whether case `k` of `count`, counted from 0, has its turn. Under the sanitizers, which look for other faults and are
// slow, tests take fewer.
inline bool HasTurn(size_t k, size_t count, [[maybe_unused]] Turns plain, [[maybe_unused]] Turns sanitized) {
#ifdef ORBA_SANITIZED
  const Turns turns = sanitized;
#else
  const Turns turns = plain;
#endif
  return k < turns.ends || k + turns.ends >= count || k % turns.step == 0;
}

// The operations as parameters, and the names of their tests.
std::vector<const testhost::Operation*> AllOperations();
std::string NameOfOperation(const ::testing::TestParamInfo<const testhost::Operation*>& info);

// Adds to a sum that is printed when all tests of the program are through.
void Count(const std::string& what, size_t number = 1);

}  // namespace orba
