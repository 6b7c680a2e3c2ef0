// Long texts that tests expect, one file for each group of them in tests/unit/inspect/expected. With ORBA_UPDATE set in
// the environment the files are written anew; every change is then to be read before it is kept.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace testtext {

struct Case {
  const char* name;
  std::function<std::string()> run;
};

// Each case's name and text, one after the other, are what the group's file holds.
inline void ExpectTexts(const std::string& group, const std::vector<Case>& cases) {
  std::string found;
  for (const Case& each : cases) found += std::string("== ") + each.name + "\n" + each.run();
  const std::string path = ORBA_EXPECTED_TEXTS "/" + group + ".txt";
  if (std::getenv("ORBA_UPDATE") != nullptr) std::ofstream(path) << found;
  std::stringstream expected;
  expected << std::ifstream(path).rdbuf();
  EXPECT_EQ(found, expected.str());
}

}  // namespace testtext
