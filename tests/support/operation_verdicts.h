// What each operation leaves where it is stopped, and where it meets a full disk or the end of memory: the expectations
// for the tests of operations, and the place to look the order of writes up. A row reads
//   0 clean                               before the first write
//   1-2 marked                            after one write, and after two: nothing amiss but the dirty mark
//   3 marked, node-leaked 1               after three: one node that nothing names
//   4 marked, append-interrupted 1          and so on, to the operation's end
// with kinds of findings by their names in inspect/check/finding.h. Then, where it is not as after a stop,
//   full disk:                            after a call whose n-th write met a full disk
//   no memory:                            after a call whose n-th allocation failed
//   end of memory:                        the same with all later ones failing too; where not given, as "no memory"
#pragma once

#include <string>

namespace testhost {

// The verdicts of an operation, "" where it has none. Names are looked up with the block size first, then without.
std::string VerdictsOf(const std::string& operation, const std::string& blockSize);

}  // namespace testhost
