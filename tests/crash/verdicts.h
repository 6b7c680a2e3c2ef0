// What each operation leaves where it is stopped, and where it meets a full disk or the end of memory: the expectations
// for the tests of operations, and the place to look the order of writes up. They lie in expected/NAME.txt, with the
// block size behind the name where it makes a difference. A file reads
//   0 clean                               before the first write
//   1-2 marked                            after one write, and after two: nothing amiss but the dirty mark
//   3 marked, node-leaked 1               after three: one node that no entry refers to
//   4 marked, growth-interrupted 1          and so on, to the operation's end
// with kinds of findings by their names in inspect/check/finding.h. A call that fails leaves what a stop at the same
// place leaves, unmarked where the volume goes on; but for want of space or memory it may undo what it has done so far.
// So then, counted from 1, where it is not as after a stop:
//   full disk:                            after a call whose n-th write met a full disk
//   no memory:                            after a call whose n-th allocation failed
//   end of memory:                        the same with all later ones failing too; where not given, as "no memory"
//
// `crash_tests --update` writes the files anew. Read every change: it is the verdict on the library.
#pragma once

#include <string>

#include "support/operations.h"

namespace orba {

enum class Situation { kStop, kFullDisk, kNoMemory, kEndOfMemory };

// Compares a VerdictList with the file, or keeps it for UpdateVerdicts.
void ExpectVerdicts(const testhost::Operation& operation, Situation situation, const std::string& verdicts);

// From now on verdicts are kept, not compared.
void KeepVerdicts();

// Writes the files of all operations whose verdicts were kept with each block size in each situation. Result: false
// where a file cannot be written.
bool UpdateVerdicts();

}  // namespace orba
