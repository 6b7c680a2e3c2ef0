#include <string.h>

#include "support/host_test.h"

namespace testhost {
namespace {

namespace coredll = orba::coredll;
using coredll::GetLastError;
using coredll::MultiByteToWideChar;
using coredll::WideCharToMultiByte;

class HostText : public HostTest {};

TEST_F(HostText, to_ansi_counts_the_terminator) {
  char out[8];
  memset(out, 'x', sizeof out);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"AbC", -1, out, 8, nullptr, nullptr), 4);
  EXPECT_STREQ(out, "AbC");
  EXPECT_EQ(out[4], 'x');
}

TEST_F(HostText, to_ansi_of_a_count_writes_no_terminator) {
  char out[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"AbC", 2, out, 4, nullptr, nullptr), 2);
  EXPECT_EQ(std::string(out, 4), "Abxx");
}

TEST_F(HostText, to_ansi_has_the_characters_of_windows_1252) {
  char out[8];
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"\u20AC\u00E9\u0178\u0081", -1, out, 8, nullptr, nullptr), 5);
  EXPECT_STREQ(out, "\x80\xE9\x9F\x81");
}

TEST_F(HostText, to_ansi_puts_a_question_mark_for_others) {
  char out[8];
  int32_t used = 0;
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"a\u0100\u0080\u4E00b", -1, out, 8, nullptr, &used), 6);
  EXPECT_STREQ(out, "a???b");
  EXPECT_EQ(used, 1);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"\u0100", -1, out, 8, "_", nullptr), 2);
  EXPECT_STREQ(out, "_");
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"ab", -1, out, 8, nullptr, &used), 3);
  EXPECT_EQ(used, 0);
}

TEST_F(HostText, to_ansi_that_does_not_fit_fails_with_122_within_the_buffer) {
  char out[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"ABC", -1, out, 3, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), 122u);
  EXPECT_EQ(out[3], 'x');
}

TEST_F(HostText, size_zero_measures) {
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"ABC", -1, nullptr, 0, nullptr, nullptr), 4);
  EXPECT_EQ(MultiByteToWideChar(0, 0, "ABCD", -1, nullptr, 0), 5);
}

TEST_F(HostText, every_byte_comes_back_through_both_ways) {
  for (int byte = 1; byte < 256; ++byte) {
    const char ansi[2] = {static_cast<char>(byte), 0};
    char16_t wide[2];
    char back[2];
    ASSERT_EQ(MultiByteToWideChar(0, 0, ansi, -1, wide, 2), 2) << byte;
    ASSERT_EQ(WideCharToMultiByte(0, 0, wide, -1, back, 2, nullptr, nullptr), 2) << byte;
    EXPECT_STREQ(back, ansi) << byte;
  }
}

TEST_F(HostText, to_wide_that_does_not_fit_fails_with_122_within_the_buffer) {
  char16_t out[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWideChar(0, 0, "ABC", -1, out, 3), 0);
  EXPECT_EQ(GetLastError(), 122u);
  EXPECT_EQ(out[3], u'x');
  EXPECT_EQ(MultiByteToWideChar(0, 0, "ABC", -1, out, 4), 4);
  EXPECT_EQ(std::u16string(out), u"ABC");
}

TEST_F(HostText, bad_arguments_fail_with_87) {
  char out[4];
  char16_t wide[4];
  EXPECT_EQ(WideCharToMultiByte(1252, 0, u"A", -1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(WideCharToMultiByte(0, 1, u"A", -1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(WideCharToMultiByte(0, 0, nullptr, -1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"A", 0, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"A", -1, nullptr, 4, nullptr, nullptr), 0);
  EXPECT_EQ(MultiByteToWideChar(0, 0, nullptr, -1, wide, 4), 0);
  EXPECT_EQ(MultiByteToWideChar(0, 0, "A", -1, wide, -1), 0);
}

TEST_F(HostText, conversions_fail_on_order) {
  char out[4];
  char16_t wide[4];
  FailNthCall(Call::kWideToAnsi, 1, 1113);
  FailNthCall(Call::kAnsiToWide, 1, 87);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"A", -1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), 1113u);
  EXPECT_EQ(MultiByteToWideChar(0, 0, "A", -1, wide, 4), 0);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"A", -1, out, 4, nullptr, nullptr), 2);
  EXPECT_EQ(TraceText({Call::kWideToAnsi, Call::kAnsiToWide}), "toansi !1113 / towide !87 / toansi");
}

TEST_F(HostText, conversions_failing_on_order_return_what_the_test_says) {
  char out[4] = {};
  char16_t wide[4] = {};
  SetFailedConversion(-1);
  FailNthCall(Call::kWideToAnsi, 1, 1113);
  FailNthCall(Call::kAnsiToWide, 1, 1113);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"A", -1, out, 4, nullptr, nullptr), -1);
  EXPECT_EQ(MultiByteToWideChar(0, 0, "A", -1, wide, 4), -1);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(wide[0], 0);
  ResetHost();
  FailNthCall(Call::kWideToAnsi, 1, 1113);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"A", -1, out, 4, nullptr, nullptr), 0);
}

TEST_F(HostText, conversions_record_the_room_they_are_given) {
  char out[8];
  char16_t wide[8];
  WideCharToMultiByte(0, 0, u"A", -1, out, 8, nullptr, nullptr);
  MultiByteToWideChar(0, 0, "A", -1, wide, 7);
  MultiByteToWideChar(0, 0, "A", -1, nullptr, 0);
  ASSERT_EQ(Trace().size(), 3u);
  EXPECT_EQ(Trace()[0].count, 8u);
  EXPECT_EQ(Trace()[1].count, 7u);
  EXPECT_EQ(Trace()[2].count, 0u);
}

}  // namespace
}  // namespace testhost
