// How commands work on many containers: several at a time, each by a thread of its own, and told of in the order of the
// operands. Stands on failure, host_file, syntax and terminal.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "tools/orba/syntax.h"

namespace orba::tool {

// --jobs; 0 without it, for as many as the machine has processors.
void DefineJobs(Syntax* syntax, std::uint32_t* jobs);

// What became of a container: the exit status for it alone, and how the summary counts it.
struct Outcome {
  int status;
  const char* word;
  bool last = false;  // nothing more can be written: this ends the batch
};

struct Batch {
  const char* label;   // of the progress that is drawn where there are several
  std::size_t count;   // of containers
  std::uint32_t jobs;  // at a time at most; 0 = one for each processor
  bool quiet;          // draws no progress
  Outcome failed;      // where the work on one throws a Failure, which is reported
};

// Calls `work` with the numbers from 0 on. What a call prints and reports comes out in one piece, when it is its turn;
// a bound keeps what is held until then small. A failure after which nothing more can be written ends the batch: those
// that did not get their turn have failed, and count as "not tried". Whatever else is thrown ends it, and is thrown on
// once no thread works any more.
std::vector<Outcome> RunBatch(const Batch& batch, const std::function<Outcome(std::size_t number)>& work);

// "3 containers: 2 clean, 1 damaged"; the words in this order.
std::string Summary(const std::vector<Outcome>& outcomes, std::initializer_list<const char*> words);

// The status that comes last in `rising`.
int WorstStatus(const std::vector<Outcome>& outcomes, std::initializer_list<int> rising);

// The places in a folder for what comes out of containers: their names without ".orb", and `suffix` behind. Throws a
// Failure where two are the same but for letter case.
std::vector<std::string> PlacesInto(const std::string& folder, const std::vector<std::string>& containers,
                                    const std::string& suffix);

}  // namespace orba::tool
