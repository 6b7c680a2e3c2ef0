// What the commands for damage share: reports, long lists and signs of progress. Stands on failure, terminal and
// inspect/.
#pragma once

#include <string>

#include "inspect/check/check.h"
#include "tools/orba/failure.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

// Clean and not marked: the library mounts it.
bool IsSound(const inspect::Report& report);

// The stamp of what a repair makes itself.
TimeStamp Now();

// Lines of a report, each painted after the severity or verdict that it begins with.
std::string PaintedReport(const std::string& text);

// The first lines of a long list and how many more there are; `whole` keeps them all.
std::string ShortList(const std::string& lines, bool whole);

// For what is said after the work: where it cannot be written, that is reported, and the work stays done.
void SayAfterwards(const std::string& text);

// What `work` makes of a container that it reads, with a sign of how far it has come.
template <typename Work>
auto Watched(const char* label, bool quiet, const Work& work) {
  const Progress progress(label, Progress::kReading, quiet);
  return work();
}

}  // namespace orba::tool
