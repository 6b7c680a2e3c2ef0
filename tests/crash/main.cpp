// The tests, or with --update what they expect written anew: see verdicts.h.
#include <gtest/gtest.h>
#include <string.h>

#include "crash/verdicts.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const bool update = argc == 2 && strcmp(argv[1], "--update") == 0;
  if (argc > 1 && !update) {
    fprintf(stderr, "usage: crash_tests [--update] [--gtest_...]\n");
    return 2;
  }
  if (update) orba::KeepVerdicts();
  const int failed = RUN_ALL_TESTS();
  return update && !orba::UpdateVerdicts() ? 1 : failed;
}
