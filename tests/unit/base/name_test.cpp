#include "base/name.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

namespace orba {
namespace {

const std::string kSpecial = "!#$%&'()-^~@{}[]_.";

bool IsAllowed(unsigned character) {
  if (character >= 0x80) return false;
  const char c = static_cast<char>(character);
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         kSpecial.find(c) != std::string::npos;
}

// ---- The two rules --------------------------------------------------------------------------------------------------

TEST(Name, rules_accept_80_characters_and_refuse_all_other_bytes) {
  unsigned accepted = 0;
  for (unsigned character = 1; character < 256; ++character) {
    const char name[] = {static_cast<char>(character), '\0'};
    const char within[] = {'A', static_cast<char>(character), 'B', '\0'};
    EXPECT_EQ(OrbIsValidName(name), IsAllowed(character)) << character;
    EXPECT_EQ(OrbIsValidName(within), IsAllowed(character)) << character;
    EXPECT_EQ(OrbIsValidVolumeName(name), IsAllowed(character)) << character;
    EXPECT_EQ(OrbIsValidVolumeName(within), IsAllowed(character)) << character;
    accepted += OrbIsValidName(name) ? 1 : 0;
  }
  EXPECT_EQ(accepted, 26u + 26u + 10u + 18u);
}

TEST(Name, rules_accept_all_special_characters_together) {
  EXPECT_TRUE(OrbIsValidName(kSpecial.c_str()));
  EXPECT_TRUE(OrbIsValidVolumeName(kSpecial.c_str()));
}

TEST(Name, rules_refuse_what_a_path_or_a_pattern_means_by_itself) {
  for (const char* name :
       {" ", "A B", "A/B", "A\\B", "A:B", "*", "A?", "\"A\"", "<", ">", "|", "+", ",", ";", "=", "`"}) {
    EXPECT_FALSE(OrbIsValidName(name)) << name;
    EXPECT_FALSE(OrbIsValidVolumeName(name)) << name;
  }
}

TEST(Name, rules_accept_1_to_29_characters) {
  for (size_t length = 0; length <= 64; ++length) {
    const std::string name(length, 'A');
    EXPECT_EQ(OrbIsValidName(name.c_str()), length >= 1 && length <= 29) << length;
    EXPECT_EQ(OrbIsValidVolumeName(name.c_str()), length >= 1 && length <= 29) << length;
  }
}

TEST(Name, rules_accept_the_dots) {
  EXPECT_TRUE(OrbIsValidName("."));
  EXPECT_TRUE(OrbIsValidName(".."));
}

TEST(Name, dots_are_told_from_all_other_names) {
  EXPECT_TRUE(IsReservedName("."));
  EXPECT_TRUE(IsReservedName(".."));
  for (const char* name : {"", "A", ".A", "A.", "...", "..A"}) {
    EXPECT_FALSE(IsReservedName(name)) << name;
  }
}

// ---- Case -----------------------------------------------------------------------------------------------------------

TEST(Name, letters_are_a_to_z_in_either_case_and_no_other_byte) {
  for (unsigned character = 0; character < 256; ++character) {
    const char c = static_cast<char>(character);
    EXPECT_EQ(IsLetter(c), (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) << character;
  }
}

TEST(Name, upper_case_changes_letters_a_to_z_alone) {
  for (unsigned character = 0; character < 256; ++character) {
    const char c = static_cast<char>(character);
    EXPECT_EQ(ToUpper(c), c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c) << character;
  }
}

TEST(Name, compare_passes_over_case) {
  EXPECT_EQ(OrbNameCompare("Abc.Txt", "aBC.tXT"), 0);
  EXPECT_EQ(OrbNameCompare("", ""), 0);
}

TEST(Name, compare_of_names_that_differ_is_the_difference_of_the_characters_as_they_stand) {
  EXPECT_EQ(OrbNameCompare("ab", "AC"), 'b' - 'C');
  EXPECT_EQ(OrbNameCompare("AC", "ab"), 'C' - 'b');
  EXPECT_EQ(OrbNameCompare("AB", "ABC"), -'C');
  EXPECT_EQ(OrbNameCompare("ABC", "AB"), 'C');
}

TEST(Name, compare_reads_a_stored_name_without_a_terminator_no_further_than_its_30_bytes) {
  char* const stored = static_cast<char*>(malloc(30));  // its end is the end of memory that may be read
  ASSERT_NE(stored, nullptr);
  memset(stored, 'A', 30);
  EXPECT_NE(OrbNameCompare(std::string(29, 'a').c_str(), stored), 0);
  EXPECT_NE(OrbNameCompare("A", stored), 0);
  free(stored);
}

TEST(Name, copy_goes_up_to_the_terminator_in_upper_case) {
  char out[8] = "-------";
  OrbNameCopyUpper(out, "a1[z");
  EXPECT_STREQ(out, "A1[Z");
  EXPECT_EQ(out[5], '-');
  OrbNameCopyUpper(out, "");
  EXPECT_EQ(out[0], '\0');
  EXPECT_EQ(out[1], '1');
}

// ---- Wildcards ------------------------------------------------------------------------------------------------------

TEST(Name, wildcard_patterns_match_their_names_alone) {  // Q7
  const struct {
    const char* name;
    const char* pattern;
    bool matches;
  } rows[] = {
      {"", "*", true},
      {"A", "*", true},
      {"A.B.TXT", "*", true},
      {"A.TXT", "*.TXT", true},
      {"A.TXT", "*.txt", true},
      {"a.txt", "*.TXT", true},
      {"A.B.TXT", "*.TXT", false},  // the star stops at the first "."
      {".TXT", "*.TXT", true},
      {"TXT", "*.TXT", false},
      {"XA.TXT", "X*.TXT", true},
      {"xa.txt", "x*.TXT", true},
      {"xa.b.txt", "x*.TXT", false},
      {"A", "A*", true},
      {"ABC", "a*", true},
      {"BA", "A*", false},
      {"AAB", "*AB", false},  // stops at the first A, and B does not follow
      {"XAB", "*AB", true},
      {"ABAB", "*AB", false},
      {"ABAB", "*AB*", true},
      {"ABC", "*C", true},
      {"ABC", "*D", false},
      {"ABC", "**", true},
      {"ABC", "**C", true},
      {"A", "A?", false},
      {"AB", "A?", true},
      {"ABC", "A?", false},
      {"", "?", false},
      {"A", "?", true},
      {"AB", "??", true},
      {"A", "??", false},
      {"ABC", "?B?", true},
      {"ABC", "*?", true},  // "?" takes the A, the star is still pending at the end
      {"", "*?", false},
      {"ABC", "?*", true},
      {"ABC", "*?C", true},  // A is taken, the star goes to C
      {"AC", "*?C", true},
      {"C", "*?C", false},
      {"ABCD", "A*?D", true},
      {"", "", true},
      {"A", "", false},
      {"", "A", false},
      {"A", "A", true},
      {"A", "a", true},
      {"A", "B", false},
      {"AB", "A", false},
      {"A", "AB", false},
      {".", "*.*", true},
      {"A", "*.*", false},
      {"A.", "*.*", true},
      {"..", "*.*", true},
      {"..", "..", true},
      {"A.B", "*.?", true},
      {"A.", "*.?", false},
      {"A*B", "A*B", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(OrbMatchWildcard(row.name, row.pattern), row.matches) << row.name << " against " << row.pattern;
  }
}

TEST(Name, wildcard_of_a_name_itself_matches_it_in_any_case) {
  for (const char* name : {"A", "README.TXT", "!#$%&'()-^~@{}[]_.", "12345678901234567890123456789"}) {
    EXPECT_TRUE(OrbMatchWildcard(name, name)) << name;
  }
  EXPECT_TRUE(OrbMatchWildcard("README.TXT", "readme.txt"));
}

}  // namespace
}  // namespace orba
