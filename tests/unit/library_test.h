// The GoogleTest fixture for white-box tests of the library on the test host. Every test starts with an empty host and
// a library without volumes, nodes or handles. At its end what it mounted is unmounted, and then nothing may be left:
// no host handle, no node, no memory. A test of what stays behind on purpose says so.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "base/error.h"
#include "orba.h"
#include "support/host_test.h"
#include "support/image_view.h"
#include "volume/volume.h"

namespace orba {

using testhost::Bytes;
using testhost::Call;
using testhost::Repeat;

class LibraryTest : public testhost::HostTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // This test leaves handles, nodes or memory behind, and checks by itself that they are the ones it should.
  void LeavesThingsBehind() { checked_ = false; }

  // Formats container u"VOL", of which tests work on the smallest kind unless the block size matters.
  static void Format(uint32_t bitmapSize = 16, uint32_t blockSize = 1024, const char16_t* container = u"VOL");

  // Formats and mounts as "A"; returns the record. The trace is empty and the error state clear afterwards.
  static Volume* FormatAndMount(uint32_t bitmapSize = 16, uint32_t blockSize = 1024);

  // Mounts a container; returns its record, or null with the error code set.
  static Volume* Mount(const char16_t* container = u"VOL", const char16_t* name = u"A");

  // Objects on the node list, dead ones included.
  static uint32_t NodesListed();

 private:
  bool checked_ = true;
};

// "" for a call that succeeded with a clear error state, else its code by name, as failure rows state it.
//   EXPECT_EQ(Outcome(OrbDeleteFileA("X")), "FILE_NOT_FOUND");
std::string Outcome(bool succeeded);

// Blocks of a file in order: `count` bytes that differ from place to place and from seed to seed.
Bytes Pattern(size_t count, uint32_t seed = 1);

// Makes a little-endian word.
Bytes Word(uint32_t value);

}  // namespace orba
