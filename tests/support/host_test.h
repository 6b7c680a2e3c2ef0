// The GoogleTest fixture for tests on the test host: every test starts from a fresh host, and a test that says so must
// end with nothing held.
#pragma once

#include <gtest/gtest.h>

#include "support/test_host.h"

namespace testhost {

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetHost(); }
  void TearDown() override;

  // When this test ends there must be no open handle and no memory allocated during it that is not freed.
  void ExpectNothingHeld() { nothingHeld_ = true; }

 private:
  bool nothingHeld_ = false;
};

}  // namespace testhost
