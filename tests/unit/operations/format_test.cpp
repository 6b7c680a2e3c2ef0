#include "operations/format.h"

#include <string.h>

#include <algorithm>

#include "nodes/node.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class Formatting : public LibraryTest {
 protected:
  // A format that fails keeps its handle; a new process would not have it.
  void TearDown() override {
    testhost::DropHandles();
    LibraryTest::TearDown();
  }
};

void PutText(Bytes& bytes, size_t at, const char* text) { memcpy(&bytes[at], text, strlen(text)); }
void PutU32(Bytes& bytes, size_t at, uint32_t value) { testhost::WriteU32(bytes, at, value); }
void PutU16(Bytes& bytes, size_t at, uint16_t value) { testhost::WriteU16(bytes, at, value); }

// A fresh container, byte by byte, as the format describes it; the clock is the test host's first one.
Bytes FreshImage(uint32_t m, uint32_t b, uint32_t shift) {
  const uint32_t data = 1024 + m;
  Bytes image(data + 2 * b);
  PutText(image, 0, "ORBA1.0 ");
  const uint32_t words[] = {128, 128, 896, 1024, m, data, 0, data, b, shift, 0, 0};
  for (size_t i = 0; i < 12; ++i) PutU32(image, 8 + 4 * i, words[i]);
  PutU32(image, 128, 1);
  for (uint32_t i = 0; i < m; ++i) image[1024 + i] = i == 0 ? 0x7F : 0xFF;
  for (uint32_t slot = 0; slot < b / 64; ++slot) {
    PutText(image, data + slot * 64, "INO1");
    PutU16(image, data + slot * 64 + 4, static_cast<uint16_t>(slot + 1));
  }
  PutU16(image, data + 6, 0x000E);
  const Bytes stamp = {0xD1, 0x07, 2, 3, 4, 5, 6};
  std::copy(stamp.begin(), stamp.end(), image.begin() + data + 8);
  PutU32(image, data + 16, 64);
  PutU32(image, data + 32, 2);
  PutU16(image, data + b, 1);
  PutText(image, data + b + 2, ".");
  PutU16(image, data + b + 32, 1);
  PutText(image, data + b + 34, "..");
  return image;
}

// ---- What is written ------------------------------------------------------------------------------------------------

TEST_F(Formatting, container_is_exactly_the_format_for_every_block_size) {
  const struct {
    uint32_t blockSize, shift, largest;
  } sizes[] = {{1024, 10, 896}, {2048, 11, 1792}, {4096, 12, 3584}, {8192, 13, 7168}};
  for (const auto& size : sizes) {
    for (const uint32_t m : {0u, 1u, 3u, 16u, size.largest}) {
      ASSERT_EQ(Outcome(OrbCreateVolumeEx(u"VOL", m, size.blockSize)), "") << size.blockSize << " " << m;
      EXPECT_EQ(FileBytes(u"VOL"), FreshImage(m, size.blockSize, size.shift)) << size.blockSize << " " << m;
      testhost::RemoveFile(u"VOL");
    }
  }
}

TEST_F(Formatting, default_volume_has_10240_bytes_and_begins_with_signature_and_version) {
  ASSERT_EQ(Outcome(OrbCreateVolume(u"VOL")), "");
  EXPECT_EQ(FileBytes(u"VOL"), FreshImage(1024, 4096, 12));
  EXPECT_EQ(testhost::FileSize(u"VOL"), 10240u);
  EXPECT_EQ(FileBytes(u"VOL", 0, 8), (Bytes{'O', 'R', 'B', 'A', '1', '.', '0', ' '}));
}

TEST_F(Formatting, state_flags_end_clear_and_the_volume_mounts) {
  ASSERT_EQ(OrbCreateVolume(u"VOL"), 1);
  EXPECT_EQ(FileBytes(u"VOL", 52, 4), (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(Outcome(OrbMountVolume(u"VOL", u"A")), "");
}

TEST_F(Formatting, node_slots_after_the_root_carry_their_number_and_no_kind) {
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  const Bytes image = FileBytes(u"VOL");
  for (uint16_t number = 2; number <= 16; ++number) {
    const OrbNodeRecord record = testhost::NodeOf(image, number);
    EXPECT_EQ(record.signature, kNodeSignature);
    EXPECT_EQ(record.number, number);
    EXPECT_EQ(record.attributes, 0);
  }
}

TEST_F(Formatting, five_writes_follow_each_other_then_the_flush_the_mark_and_the_header) {
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  EXPECT_EQ(TraceText(),
            "create VOL / close / open VOL / write 0 128 / write 128 896 / write 1024 16 / write 1040 1024 / "
            "write 2064 1024 / flush / seek 52 / write 52 4 / seek 0 / write 0 128 / close");
  EXPECT_EQ(testhost::CallCount(), 14u);
}

TEST_F(Formatting, empty_bitmap_is_a_write_of_nothing) {
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 0, 8192), 1);
  EXPECT_EQ(TraceText(),
            "create VOL / close / open VOL / write 0 128 / write 128 896 / write 1024 0 / write 1024 8192 / "
            "write 9216 8192 / flush / seek 52 / write 52 4 / seek 0 / write 0 128 / close");
}

TEST_F(Formatting, header_is_zeros_at_first_and_the_mark_is_set_before_it_is_written) {
  testhost::KeepWriteData(true);
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  const std::vector<testhost::CallRecord> writes = testhost::Writes();
  ASSERT_EQ(writes.size(), 7u);
  EXPECT_EQ(writes[0].data, Bytes(128));
  EXPECT_EQ(writes[5].data, (Bytes{1, 0, 0, 0}));
  EXPECT_EQ(Bytes(writes[6].data.begin() + 52, writes[6].data.end()), Bytes(76));
}

TEST_F(Formatting, clock_is_read_once) {
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  EXPECT_EQ(testhost::CallCount(Call::kGetSystemTime), 1u);
}

TEST_F(Formatting, buffers_are_taken_one_after_the_other) {
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  EXPECT_EQ(testhost::AllocationCalls(), 5u);  // table, bitmap, node block, directory block, header copy
  EXPECT_EQ(testhost::PeakBytes(), 1024u);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(Formatting, formatting_mounts_nothing) {
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_EQ(testhost::OpenHandles(), 0u);
}

// ---- Arguments ------------------------------------------------------------------------------------------------------

TEST_F(Formatting, block_size_other_than_four_is_refused_before_anything_is_created) {
  for (const uint32_t size :
       {0u, 1u, 512u, 1023u, 1025u, 1536u, 3072u, 16384u, 0x400u << 16, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(OrbCreateVolumeEx(u"VOL", 16, size), 0) << size;
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT) << size;
  }
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Formatting, bitmap_above_the_limit_is_refused_before_anything_is_created) {
  const struct { uint32_t blockSize, largest; } sizes[] = {{1024, 896}, {2048, 1792}, {4096, 3584}, {8192, 7168}};
  for (const auto& size : sizes) {
    for (const uint32_t m : {size.largest + 1, 0x80000000u, 0xFFFFFFFFu}) {
      EXPECT_EQ(OrbCreateVolumeEx(u"VOL", m, size.blockSize), 0) << size.blockSize << " " << m;
      EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
    }
  }
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Formatting, bad_sizes_are_noticed_before_an_existing_container) {
  testhost::SetFile(u"VOL", Bytes{1});
  EXPECT_EQ(OrbCreateVolumeEx(u"VOL", 897, 1024), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
}

TEST_F(Formatting, existing_container_is_refused_and_left_untouched) {
  testhost::SetFile(u"VOL", Bytes{1, 2, 3});
  EXPECT_EQ(OrbCreateVolume(u"VOL"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_EXISTS);
  EXPECT_EQ(FileBytes(u"VOL"), (Bytes{1, 2, 3}));
  EXPECT_EQ(TraceText(), "create VOL !80");
}

TEST_F(Formatting, both_forms_clear_the_error_first) {
  _OrbSetError(0x12345678);
  EXPECT_EQ(Outcome(OrbCreateVolume(u"ONE")), "");
  _OrbSetError(0x12345678);
  EXPECT_EQ(Outcome(OrbCreateVolumeEx(u"TWO", 16, 1024)), "");
}

// ---- Failures -------------------------------------------------------------------------------------------------------

// The calls of a format, what each one's failure with "not ready", "disk full" and an unknown code reports, and whether
// the container is open afterwards.
struct FailingCall {
  const char* call;
  uint32_t notReady, diskFull, unknown;
  bool open;
  uint32_t mount;  // what mounting it reports then, 0 = it mounts
};

const FailingCall kFailingCalls[] = {
    {"create", ORB_ERROR_NOT_READY, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CANNOT_CREATE, false, ORB_ERROR_FILE_NOT_FOUND},
    {"close of the new file", ORB_ERROR_NOT_READY, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CANNOT_CREATE, false,
     ORB_ERROR_DAMAGED_VOLUME},
    {"open", ORB_ERROR_NOT_READY, ORB_ERROR_CANNOT_OPEN, ORB_ERROR_CANNOT_OPEN, false, ORB_ERROR_DAMAGED_VOLUME},
    {"placeholder", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"node-block table", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"bitmap", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"node block", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"directory block", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"flush", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"seek to the mark", ORB_ERROR_NOT_READY, ORB_ERROR_READ, ORB_ERROR_READ, true, ORB_ERROR_DAMAGED_VOLUME},
    {"mark", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"seek to the header", ORB_ERROR_NOT_READY, ORB_ERROR_READ, ORB_ERROR_READ, true, ORB_ERROR_DAMAGED_VOLUME},
    {"header", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, true, ORB_ERROR_DAMAGED_VOLUME},
    {"close", ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL, ORB_ERROR_WRITE, false, 0},
};

void ExpectFailure(uint32_t n, uint32_t host, uint32_t code, const FailingCall& expected) {
  SCOPED_TRACE(expected.call);
  FailNthCall(n, host);
  EXPECT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 0);
  EXPECT_EQ(testhost::FaultsFired(), 1u);
  EXPECT_EQ(GetError(), code);
  EXPECT_EQ(testhost::CallCount(), n);  // nothing is called any more
  EXPECT_EQ(testhost::OpenHandles(), expected.open ? 1u : 0u);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
  testhost::DropHandles();
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), expected.mount == 0 ? 1 : 0);
  EXPECT_EQ(GetError(), expected.mount);
  OrbUnmountVolumeA("A");
  testhost::ResetHost();
}

TEST_F(Formatting, failing_call_ends_it_with_the_calls_code_and_the_container_stays) {  // Q14
  uint32_t n = 0;
  for (const FailingCall& expected : kFailingCalls) {
    ++n;
    ExpectFailure(n, coredll::kHostNotReady, expected.notReady, expected);
    ExpectFailure(n, coredll::kHostDiskFull, expected.diskFull, expected);
    ExpectFailure(n, 9999, expected.unknown, expected);
  }
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 1);
  EXPECT_EQ(testhost::CallCount(), n);  // these were all
}

TEST_F(Formatting, container_that_the_host_does_not_create_or_open_reports_why) {
  const struct {
    uint32_t host, create, open;
  } rows[] = {
      {2, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_FILE_NOT_FOUND},
      {3, ORB_ERROR_PATH_NOT_FOUND, ORB_ERROR_PATH_NOT_FOUND},
      {4, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_TOO_MANY_OPEN_FILES},
      {5, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_ACCESS_DENIED},
      {6, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CANNOT_OPEN},
      {8, ORB_ERROR_OUT_OF_MEMORY, ORB_ERROR_OUT_OF_MEMORY},
      {14, ORB_ERROR_OUT_OF_MEMORY, ORB_ERROR_OUT_OF_MEMORY},
      {19, ORB_ERROR_WRITE_PROTECTED, ORB_ERROR_WRITE_PROTECTED},
      {21, ORB_ERROR_NOT_READY, ORB_ERROR_NOT_READY},
      {32, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CONTAINER_IN_USE},
      {80, ORB_ERROR_FILE_EXISTS, ORB_ERROR_CANNOT_OPEN},
      {87, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CANNOT_OPEN},
      {112, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CANNOT_OPEN},
      {123, ORB_ERROR_INVALID_NAME, ORB_ERROR_INVALID_NAME},
      {1235, ORB_ERROR_ABORTED, ORB_ERROR_ABORTED},
      {9999, ORB_ERROR_CANNOT_CREATE, ORB_ERROR_CANNOT_OPEN},
  };
  for (const auto& row : rows) {
    for (uint32_t n = 1; n <= 2; ++n) {
      testhost::ClearTrace();
      FailNthCall(Call::kCreateFile, n, row.host);
      EXPECT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 0) << row.host;
      EXPECT_EQ(GetError(), n == 1 ? row.create : row.open) << row.host;
      EXPECT_EQ(TraceText(), (n == 1 ? "create VOL !" : "create VOL / close / open VOL !") + std::to_string(row.host));
      EXPECT_EQ(testhost::OpenHandles(), 0u) << row.host;
      ASSERT_EQ(testhost::FileExists(u"VOL"), n == 2) << row.host;
      if (n == 1) continue;
      EXPECT_EQ(FileBytes(u"VOL"), Bytes()) << row.host;
      testhost::RemoveFile(u"VOL");
    }
  }
}

TEST_F(Formatting, short_write_ends_it_with_a_write_failure) {
  for (uint32_t n = 1; n <= 7; ++n) {
    testhost::ShortenNthWrite(n, 3);
    EXPECT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
    EXPECT_EQ(testhost::CallCount(Call::kWriteFile), n);
    EXPECT_EQ(testhost::OpenHandles(), 1u);
    testhost::ResetHost();
  }
}

// The last call at the container.
std::string LastCall() {
  const std::string calls = TraceText();
  return calls.substr(calls.rfind(" / ") + 3);
}

TEST_F(Formatting, failing_allocation_ends_it_with_out_of_memory) {
  const char* const after[] = {"write 0 128", "write 128 896", "write 1024 16", "write 1040 1024", "flush"};
  for (uint32_t n = 1; n <= 5; ++n) {
    FailNthAllocation(n);
    EXPECT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 0);
    EXPECT_EQ(testhost::AllocationFaultsFired(), 1u);
    EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
    EXPECT_EQ(LastCall(), after[n - 1]);
    EXPECT_EQ(testhost::OpenHandles(), 1u);
    EXPECT_EQ(testhost::AllocationsHeld(), 0u);
    testhost::DropHandles();
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
    testhost::ResetHost();
  }
}

TEST_F(Formatting, half_written_container_is_in_use_until_the_process_ends) {  // Q14
  FailNthCall(Call::kFlushFileBuffers, 1, coredll::kHostNotReady);
  ASSERT_EQ(OrbCreateVolumeEx(u"VOL", 16, 1024), 0);
  testhost::ClearFaults();
  EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_CONTAINER_IN_USE);
}

}  // namespace
}  // namespace orba
