#include "support/host_test.h"

namespace testhost {

void HostTest::TearDown() {
  if (!nothingHeld_) return;
  EXPECT_EQ(OpenHandles(), 0u) << "host handles left open";
  EXPECT_EQ(AllocationsHeld(), 0u) << BytesHeld() << " bytes not freed";
}

}  // namespace testhost
