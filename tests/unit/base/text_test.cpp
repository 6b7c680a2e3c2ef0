#include "base/text.h"

#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;

class Text : public LibraryTest {};

TEST_F(Text, wide_to_ansi_copy_converts_every_character) {
  char* const ansi = OrbWideToAnsiAlloc(u"Data 1\u20AC\u00E9");
  ASSERT_NE(ansi, nullptr);
  EXPECT_STREQ(ansi, "Data 1\x80\xE9");
  EXPECT_EQ(GetError(), 0u);
  free(ansi);
}

TEST_F(Text, wide_to_ansi_copy_takes_two_bytes_for_each_character_and_one) {
  char* const ansi = OrbWideToAnsiAlloc(u"ABCDE");
  EXPECT_EQ(testhost::AllocationCalls(), 1u);
  EXPECT_EQ(testhost::BytesHeld(), 11u);
  free(ansi);
}

TEST_F(Text, wide_to_ansi_copy_of_an_empty_string_is_empty) {
  char* const ansi = OrbWideToAnsiAlloc(u"");
  ASSERT_NE(ansi, nullptr);
  EXPECT_STREQ(ansi, "");
  EXPECT_EQ(testhost::BytesHeld(), 1u);
  free(ansi);
}

TEST_F(Text, wide_to_ansi_copy_puts_a_question_mark_for_what_the_code_page_lacks) {
  char* const ansi = OrbWideToAnsiAlloc(u"\u4E2D");
  EXPECT_STREQ(ansi, "?");
  free(ansi);
}

TEST_F(Text, wide_to_ansi_copy_without_memory_fails_before_the_conversion) {
  FailNthAllocation(1);
  EXPECT_EQ(OrbWideToAnsiAlloc(u"A"), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(testhost::CallCount(Call::kWideToAnsi), 0u);
}

TEST_F(Text, wide_to_ansi_copy_that_the_platform_refuses_frees_its_memory) {
  FailNthCall(Call::kWideToAnsi, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbWideToAnsiAlloc(u"A"), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(Text, wide_to_ansi_copy_of_null_is_an_invalid_argument) {
  EXPECT_EQ(OrbWideToAnsiAlloc(nullptr), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(testhost::AllocationCalls(), 0u);
}

TEST_F(Text, wide_to_ansi_returns_the_bytes_with_the_terminator) {
  char out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  EXPECT_EQ(OrbWideToAnsi(out, u"ABC", 8), 4);
  EXPECT_EQ(std::string(out, 5), std::string("ABC\0\x09", 5));
}

TEST_F(Text, wide_to_ansi_of_an_empty_string_is_its_terminator) {
  char out[2] = {9, 9};
  EXPECT_EQ(OrbWideToAnsi(out, u"", 2), 1);
  EXPECT_EQ(std::string(out, 2), std::string("\0\x09", 2));
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Text, wide_to_ansi_without_output_returns_0_and_leaves_the_error_alone) {
  SetError(0x12345678);
  EXPECT_EQ(OrbWideToAnsi(nullptr, u"A", 8), 0);
  EXPECT_EQ(GetError(), 0x12345678u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Text, wide_to_ansi_of_size_0_returns_0_and_leaves_the_error_alone) {
  char out = 'x';
  SetError(0x12345678);
  EXPECT_EQ(OrbWideToAnsi(&out, u"A", 0), 0);
  EXPECT_EQ(GetError(), 0x12345678u);
  EXPECT_EQ(out, 'x');
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(Text, wide_to_ansi_into_too_little_space_fails_as_the_platform_does) {
  char out[3];
  EXPECT_EQ(OrbWideToAnsi(out, u"ABC", 3), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
}

TEST_F(Text, ansi_to_wide_returns_the_characters_with_the_terminator) {
  WideChar out[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_EQ(OrbAnsiToWide(out, "A\x80", 6), 3);
  EXPECT_EQ(std::u16string(out, 4), std::u16string(u"A\u20AC\0\x09", 4));
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Text, ansi_to_wide_of_an_empty_string_is_its_terminator) {
  WideChar out[2] = {9, 9};
  EXPECT_EQ(OrbAnsiToWide(out, "", 2), 1);
  EXPECT_EQ(std::u16string(out, 2), std::u16string(u"\0\x09", 2));
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(Text, ansi_to_wide_that_the_platform_refuses_fails) {
  WideChar out[6];
  FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbAnsiToWide(out, "A", 6), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
}

TEST_F(Text, ansi_to_wide_into_too_little_space_fails_as_the_platform_does) {
  WideChar out[3];
  EXPECT_EQ(OrbAnsiToWide(out, "ABC", 3), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
}

// ---- Less than 0, which some platforms return for a failure ---------------------------------------------------------

TEST_F(Text, negative_result_fails_as_0_does_and_is_passed_on) {
  char ansi[4] = {'x', 'x', 'x', 'x'};
  WideChar wide[4] = {9, 9, 9, 9};
  for (const int32_t result : {0, -1, -0x7FFFFFFF - 1}) {
    testhost::SetFailedConversion(result);
    ClearError();
    FailNthCall(Call::kWideToAnsi, 1, coredll::kHostNoUnicodeTranslation);
    EXPECT_EQ(OrbWideToAnsi(ansi, u"A", 4), result);
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT) << result;
    ClearError();
    FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation);
    EXPECT_EQ(OrbAnsiToWide(wide, "A", 4), result);
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT) << result;
  }
  EXPECT_EQ(std::string(ansi, 4), "xxxx");
  EXPECT_EQ(std::u16string(wide, 4), std::u16string(4, 9));
}

TEST_F(Text, wide_to_ansi_copy_with_a_negative_result_frees_its_memory) {
  testhost::SetFailedConversion(-1);
  FailNthCall(Call::kWideToAnsi, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbWideToAnsiAlloc(u"A"), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

}  // namespace
}  // namespace orba
