// The checks of a header, one by one, in their order, and end to end through a mount.
#include <functional>

#include "operations/mount.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FileBytes;

class Header : public LibraryTest {
 protected:
  // The header of a fresh volume.
  static VolumeHeader Fresh(uint32_t bitmapSize = 16, uint32_t blockSize = 1024) {
    Format(bitmapSize, blockSize);
    const VolumeHeader header = testhost::HeaderOf(FileBytes(u"VOL"));
    testhost::RemoveFile(u"VOL");
    return header;
  }

  static uint32_t CodeOf(const VolumeHeader& header) {
    ClearError();
    const bool good = CheckHeader(header);
    EXPECT_EQ(good, GetError() == 0);
    return GetError();
  }
};

struct HeaderFault {
  const char* name;
  std::function<void(VolumeHeader&)> cause;
  uint32_t code;
};

// In the order of the checks.
const HeaderFault kFaults[] = {
    {"signature", [](VolumeHeader& h) { h.signature ^= 0x20; }, ORB_ERROR_DAMAGED_VOLUME},
    {"version", [](VolumeHeader& h) { h.version ^= 0x01000000; }, ORB_ERROR_WRONG_VERSION},
    {"header size", [](VolumeHeader& h) { h.headerSize = 129; }, ORB_ERROR_DAMAGED_VOLUME},
    {"node-block table size", [](VolumeHeader& h) { h.nodeTableSize = 892; }, ORB_ERROR_DAMAGED_VOLUME},
    {"block size", [](VolumeHeader& h) { h.blockSize = 512; }, ORB_ERROR_INVALID_ARGUMENT},
    {"block shift", [](VolumeHeader& h) { h.blockShift = 11; }, ORB_ERROR_DAMAGED_VOLUME},
    {"bitmap size", [](VolumeHeader& h) { h.bitmapSize = 7169; }, ORB_ERROR_INVALID_ARGUMENT},
    {"node-block table offset", [](VolumeHeader& h) { h.nodeTableOffset = 127; }, ORB_ERROR_DAMAGED_VOLUME},
    {"bitmap offset", [](VolumeHeader& h) { h.bitmapOffset = 1025; }, ORB_ERROR_DAMAGED_VOLUME},
    {"reserved offset", [](VolumeHeader& h) { h.reservedOffset += 1; }, ORB_ERROR_DAMAGED_VOLUME},
    {"data offset", [](VolumeHeader& h) { h.dataOffset += 3; }, ORB_ERROR_DAMAGED_VOLUME},
    {"dirty mark", [](VolumeHeader& h) { h.stateFlags |= 1; }, ORB_ERROR_NOT_CLEAN},
};

TEST_F(Header, fresh_one_passes_for_every_block_size) {
  for (const uint32_t size : {1024u, 2048u, 4096u, 8192u}) EXPECT_EQ(CodeOf(Fresh(16, size)), 0u) << size;
}

TEST_F(Header, each_fault_has_its_code) {
  for (const HeaderFault& fault : kFaults) {
    VolumeHeader header = Fresh();
    fault.cause(header);
    EXPECT_EQ(CodeOf(header), fault.code) << fault.name;
  }
}

TEST_F(Header, of_two_faults_the_earlier_check_decides) {
  const size_t count = sizeof kFaults / sizeof kFaults[0];
  for (size_t first = 0; first < count; ++first) {
    for (size_t second = first + 1; second < count; ++second) {
      VolumeHeader header = Fresh();
      kFaults[second].cause(header);
      kFaults[first].cause(header);
      EXPECT_EQ(CodeOf(header), kFaults[first].code) << kFaults[first].name << ", " << kFaults[second].name;
    }
  }
}

TEST_F(Header, all_of_it_zero_is_a_bad_signature) { EXPECT_EQ(CodeOf(VolumeHeader()), ORB_ERROR_DAMAGED_VOLUME); }

TEST_F(Header, block_sizes_are_four) {
  for (const uint32_t size : {0u, 1u, 256u, 1023u, 1025u, 3072u, 16384u, 0x80000000u, 0xFFFFFC00u}) {
    VolumeHeader header = Fresh();
    header.blockSize = size;
    EXPECT_EQ(CodeOf(header), ORB_ERROR_INVALID_ARGUMENT) << size;
  }
}

TEST_F(Header, only_the_low_byte_of_the_shift_counts) {
  VolumeHeader header = Fresh();
  for (const uint32_t shift : {10u, 0x10Au, 0xFFFFFF0Au}) {
    header.blockShift = shift;
    EXPECT_EQ(CodeOf(header), 0u) << shift;
  }
}

TEST_F(Header, shift_of_32_or_more_is_damage) {
  VolumeHeader header = Fresh();
  for (uint32_t shift = 0; shift < 256; ++shift) {
    header.blockShift = shift;
    EXPECT_EQ(CodeOf(header), shift == 10 ? 0u : ORB_ERROR_DAMAGED_VOLUME) << shift;
  }
}

TEST_F(Header, bitmap_limit_depends_on_the_block_size) {
  const struct { uint32_t blockSize, largest; } sizes[] = {{1024, 896}, {2048, 1792}, {4096, 3584}, {8192, 7168}};
  for (const auto& size : sizes) {
    VolumeHeader header = Fresh(size.largest, size.blockSize);
    EXPECT_EQ(CodeOf(header), 0u) << size.blockSize;
    header.bitmapSize += 1;
    header.reservedOffset += 1;
    header.dataOffset += 1;
    EXPECT_EQ(CodeOf(header), ORB_ERROR_INVALID_ARGUMENT) << size.blockSize;
  }
}

TEST_F(Header, reserved_region_may_be_there_where_the_data_follows_it) {
  VolumeHeader header = Fresh();
  header.reservedSize = 100;
  EXPECT_EQ(CodeOf(header), ORB_ERROR_DAMAGED_VOLUME);
  header.dataOffset += 100;
  EXPECT_EQ(CodeOf(header), 0u);
}

TEST_F(Header, reserved_region_does_not_wrap_around) {
  VolumeHeader header = Fresh();
  header.reservedSize = 0xFFFFFFFF;
  header.dataOffset -= 1;
  EXPECT_EQ(CodeOf(header), ORB_ERROR_DAMAGED_VOLUME);
}

// A data area that began at 2^31 or behind it would lie in no container.
TEST_F(Header, reserved_region_ends_below_two_gigabytes) {
  VolumeHeader header = Fresh();
  ASSERT_EQ(header.reservedOffset, 1040u);
  header.reservedSize = 0x80000000u - 1040;
  header.dataOffset = 0x80000000u;
  EXPECT_EQ(CodeOf(header), ORB_ERROR_DAMAGED_VOLUME);
  header.reservedSize -= 1;
  header.dataOffset -= 1;
  EXPECT_EQ(CodeOf(header), 0u);
}

TEST_F(Header, reserved_region_up_to_two_gigabytes_mounts_no_further_than_the_root) {
  const struct {
    uint32_t reservedSize, code;
    const char* calls;
  } rows[] = {
      {0x80000000u - 1040, ORB_ERROR_DAMAGED_VOLUME, "open VOL / seek 0 / read 0 128 / close"},
      // The header is good; the root's block would be cut at 2^31.
      {0x80000000u - 1040 - 1, ORB_ERROR_READ,
       "open VOL / seek 0 / read 0 128 / seek 128 / read 128 896 / seek 1024 / read 1024 16 / seek -1 !131 / close"},
  };
  for (const auto& row : rows) {
    Format();
    testhost::PatchFile(u"VOL", 32, Word(row.reservedSize));
    testhost::PatchFile(u"VOL", 36, Word(1040 + row.reservedSize));
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0);
    EXPECT_EQ(GetError(), row.code);
    EXPECT_EQ(testhost::TraceText(), row.calls);
    EXPECT_EQ(testhost::AllocationsHeld(), 0u);
    testhost::RemoveFile(u"VOL");
  }
}

TEST_F(Header, flags_other_than_the_mark_do_not_matter) {
  VolumeHeader header = Fresh();
  header.stateFlags = 0xFFFFFFFE;
  EXPECT_EQ(CodeOf(header), 0u);
}

TEST_F(Header, bytes_behind_the_flags_do_not_matter) {
  VolumeHeader header = Fresh();
  for (uint8_t& byte : header.reserved) byte = 0xEE;
  EXPECT_EQ(CodeOf(header), 0u);
}

TEST_F(Header, mount_reports_each_fault_and_leaves_nothing) {
  for (const HeaderFault& fault : kFaults) {
    Format();
    Bytes image = FileBytes(u"VOL");
    VolumeHeader header = testhost::HeaderOf(image);
    fault.cause(header);
    testhost::WriteRecord(image, 0, header);
    testhost::SetFile(u"VOL", image);
    EXPECT_EQ(OrbMountVolume(u"VOL", u"A"), 0) << fault.name;
    EXPECT_EQ(GetError(), fault.code) << fault.name;
    EXPECT_EQ(testhost::TraceText(), "open VOL / seek 0 / read 0 128 / close") << fault.name;
    EXPECT_EQ(testhost::AllocationsHeld(), 0u) << fault.name;
    EXPECT_EQ(FileBytes(u"VOL"), image) << fault.name;
    testhost::RemoveFile(u"VOL");
  }
}

}  // namespace
}  // namespace orba
