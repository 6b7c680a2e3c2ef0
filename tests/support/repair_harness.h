// What repair promises, as checks for tests: one run makes a container clean and unmarked; a stop after any single
// write leaves one from which a second run does the same and keeps as much.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/repair/repair.h"

namespace testimage {

using Bytes = std::vector<std::uint8_t>;

constexpr orba::TimeStamp kRepairTime = {2010, 1, 2, 3, 4, 5, 0};

// The container once the first `count` writes of the plan are made.
Bytes AfterWrites(const orba::inspect::Plan& plan, const Bytes& before, std::size_t count);
std::size_t WriteCount(const orba::inspect::Plan& plan);

// Path -> contents of every file that the root leads to; of a directory, "/" with no contents. Files whose map is not
// whole are left out.
std::map<std::string, Bytes> Tree(const Bytes& container);

// The same paths with the same contents; a failure tells paths and sizes.
testing::AssertionResult SameFiles(const std::map<std::string, Bytes>& files,
                                   const std::map<std::string, Bytes>& expected);

// Plans, applies, checks that the result is clean and unmarked (a test failure otherwise), and returns the container.
// The plan's texts, one a line, go to `texts`.
Bytes Repaired(const Bytes& container, std::string* texts = nullptr);

// The sentences of the plan, one a line, without those that set and clear the mark.
std::string StepsOf(const Bytes& container);

// Repaired, and the same from every state in which the repair may stop. What the second run keeps is held against what
// one run keeps: every file's contents must still be there, under whatever name. Returns the container after one run.
Bytes RepairedFromEveryStop(const Bytes& container, std::string* texts = nullptr);

}  // namespace testimage
