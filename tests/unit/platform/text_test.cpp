#include <gtest/gtest.h>
#include <string.h>

#include <map>
#include <string>

#include "platform/posix/posix.h"

namespace orba {
namespace {

using coredll::GetLastError;
using coredll::MultiByteToWideChar;
using coredll::WideCharToMultiByte;

// What Windows-1252 has at 0x80 to 0x9F, as text; the five open places hold a blank.
const char16_t kSpecials[] = u"€ ‚ƒ„…†‡ˆ‰Š‹Œ Ž  ‘’“”•–—˜™š›œ žŸ";
static_assert(sizeof kSpecials == 33 * sizeof(char16_t), "one for each byte");

char16_t Reference(unsigned byte) {
  if (byte < 0x80 || byte > 0x9F) return static_cast<char16_t>(byte);
  const char16_t special = kSpecials[byte - 0x80];
  return special != u' ' ? special : static_cast<char16_t>(byte);
}

std::string ToAnsi(const std::u16string& wide) {
  std::string out(wide.size() + 1, '#');
  const int32_t written =
      WideCharToMultiByte(0, 0, wide.c_str(), -1, out.data(), static_cast<int32_t>(out.size()), nullptr, nullptr);
  EXPECT_EQ(wide.size() + 1, static_cast<size_t>(written));
  EXPECT_EQ('\0', out.back());
  out.pop_back();
  return out;
}

TEST(PosixText, ansi_to_wide_every_byte_is_its_character) {
  for (unsigned byte = 0; byte < 256; byte++) {
    const char in = static_cast<char>(byte);
    char16_t out[2] = {0, 0x5555};
    ASSERT_EQ(1, MultiByteToWideChar(0, 0, &in, 1, out, 1));
    EXPECT_EQ(Reference(byte), out[0]) << "byte " << byte;
    EXPECT_EQ(0x5555, out[1]);
  }
}

TEST(PosixText, wide_to_ansi_every_unit_is_its_byte_or_a_question_mark) {
  std::map<char16_t, unsigned> bytes;
  for (unsigned byte = 0; byte < 256; byte++) bytes[Reference(byte)] = byte;
  ASSERT_EQ(256u, bytes.size());
  for (unsigned unit = 0; unit < 0x10000; unit++) {
    const char16_t in = static_cast<char16_t>(unit);
    const auto entry = bytes.find(in);
    unsigned char out[2] = {0, 0x55};
    int32_t used = -1;
    ASSERT_EQ(1, WideCharToMultiByte(0, 0, &in, 1, reinterpret_cast<char*>(out), 1, nullptr, &used));
    EXPECT_EQ(entry != bytes.end() ? entry->second : '?', out[0]) << "unit " << unit;
    EXPECT_EQ(entry != bytes.end() ? 0 : 1, used) << "unit " << unit;
    EXPECT_EQ(0x55, out[1]);
  }
}

TEST(PosixText, wide_to_ansi_terminated_text_counts_its_terminator) {
  EXPECT_EQ("DATA:/A\xC4\x80.TXT", ToAnsi(u"DATA:/A\u00C4\u20AC.TXT"));
  EXPECT_EQ("", ToAnsi(u""));
}

TEST(PosixText, wide_to_ansi_surrogate_pair_is_two_question_marks) { EXPECT_EQ("a??b", ToAnsi(u"a\U0001F600b")); }

TEST(PosixText, wide_to_ansi_lone_surrogates_are_one_question_mark_each) {
  EXPECT_EQ("?x?", ToAnsi(std::u16string{0xD83D, u'x', 0xDE00}));
}

TEST(PosixText, wide_to_ansi_similar_letters_are_not_substituted) { EXPECT_EQ("???", ToAnsi(u"\u0100\uFF21\u2212")); }

TEST(PosixText, wide_to_ansi_default_character_is_the_callers) {
  char out[3];
  EXPECT_EQ(3, WideCharToMultiByte(0, 0, u"a\u0100", -1, out, 3, "_", nullptr));
  EXPECT_STREQ("a_", out);
}

TEST(PosixText, wide_to_ansi_exact_fit_succeeds) {
  char out[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(3, WideCharToMultiByte(0, 0, u"ab", -1, out, 3, nullptr, nullptr));
  EXPECT_EQ(0, memcmp("ab\0#", out, 4));
}

TEST(PosixText, wide_to_ansi_one_short_fails_with_122_inside_the_buffer) {
  char out[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(0, WideCharToMultiByte(0, 0, u"abc", -1, out, 3, nullptr, nullptr));
  EXPECT_EQ(122u, GetLastError());
  EXPECT_EQ('#', out[3]);
}

TEST(PosixText, wide_to_ansi_size_0_measures) {
  EXPECT_EQ(4, WideCharToMultiByte(0, 0, u"abc", -1, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(2, WideCharToMultiByte(0, 0, u"abc", 2, nullptr, 0, nullptr, nullptr));
}

TEST(PosixText, ansi_to_wide_terminated_text_counts_its_terminator) {
  char16_t out[4] = {1, 1, 1, 1};
  EXPECT_EQ(3, MultiByteToWideChar(0, 0, "a\x80", -1, out, 4));
  EXPECT_EQ(std::u16string(u"a\u20AC"), out);
  EXPECT_EQ(1, out[3]);
}

TEST(PosixText, ansi_to_wide_one_short_fails_with_122_inside_the_buffer) {
  char16_t out[4] = {1, 1, 1, 1};
  EXPECT_EQ(0, MultiByteToWideChar(0, 0, "abc", -1, out, 3));
  EXPECT_EQ(122u, GetLastError());
  EXPECT_EQ(1, out[3]);
}

TEST(PosixText, ansi_to_wide_size_0_measures) {
  EXPECT_EQ(4, MultiByteToWideChar(0, 0, "abc", -1, nullptr, 0));
  EXPECT_EQ(2, MultiByteToWideChar(0, 0, "abc", 2, nullptr, 0));
}

struct RefusedText {
  const char* what;
  uint32_t codePage, flags;
  bool text;
  int32_t count;
  bool out;
  int32_t outSize;
  uint32_t code;
};

const RefusedText kRefused[] = {
    {"another code page", 65001, 0, true, -1, true, 8, 87},
    {"flags", 0, 0x400, true, -1, true, 8, 1004},
    {"no text", 0, 0, false, -1, true, 8, 87},
    {"a count of 0", 0, 0, true, 0, true, 8, 87},
    {"a negative size", 0, 0, true, -1, true, -1, 87},
    {"no buffer for its size", 0, 0, true, -1, false, 8, 87},
};

TEST(PosixText, wide_to_ansi_bad_arguments_fail_with_their_code) {
  for (const RefusedText& refused : kRefused) {
    char out[8];
    posix::SetLastError(0);
    EXPECT_EQ(0, WideCharToMultiByte(refused.codePage, refused.flags, refused.text ? u"abc" : nullptr, refused.count,
                                     refused.out ? out : nullptr, refused.outSize, nullptr, nullptr))
        << refused.what;
    EXPECT_EQ(refused.code, GetLastError()) << refused.what;
  }
}

TEST(PosixText, ansi_to_wide_bad_arguments_fail_with_their_code) {
  for (const RefusedText& refused : kRefused) {
    char16_t out[8];
    posix::SetLastError(0);
    EXPECT_EQ(0, MultiByteToWideChar(refused.codePage, refused.flags, refused.text ? "abc" : nullptr, refused.count,
                                     refused.out ? out : nullptr, refused.outSize))
        << refused.what;
    EXPECT_EQ(refused.code, GetLastError()) << refused.what;
  }
}

TEST(PosixText, utf8_border_characters_take_one_to_four_bytes) {
  char out[32];
  ASSERT_TRUE(posix::Utf8FromWide(u"\u0001\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF", out, 32));
  EXPECT_STREQ(
      "\x01\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", out);
}

TEST(PosixText, utf8_unpaired_surrogates_fail) {
  char out[32];
  const std::u16string high{0xD83D}, low{0xDE00}, swapped{0xDE00, 0xD83D}, two{0xD83D, 0xD83D}, ended{0xDBFF, u'a'},
      past{0xDBFF, 0xE000};
  for (const std::u16string& text : {high, low, swapped, two, ended, past}) {
    EXPECT_FALSE(posix::Utf8FromWide(text.c_str(), out, sizeof out));
  }
}

TEST(PosixText, utf8_that_does_not_fit_fails_inside_the_buffer) {
  char out[5] = {'#', '#', '#', '#', '#'};
  EXPECT_TRUE(posix::Utf8FromWide(u"a\u20AC", out, 5));
  out[4] = '#';
  EXPECT_FALSE(posix::Utf8FromWide(u"a\u20AC", out, 4));
  EXPECT_FALSE(posix::Utf8FromWide(u"a\u20AC", out, 2));
  EXPECT_EQ('#', out[4]);
}

}  // namespace
}  // namespace orba
