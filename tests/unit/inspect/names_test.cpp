#include "inspect/container/names.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "inspect/container/fields.h"

namespace orba::inspect {
namespace {

OrbDirEntry EntryNamed(const std::string& name) {
  OrbDirEntry entry = {};
  SetName(&entry, name);
  return entry;
}

TEST(Names, letters_digits_and_symbols_are_name_characters) {
  const std::string legal = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$%&'()-^~@{}[]_.";
  for (int c = 0; c < 256; ++c) {
    const bool in = c != 0 && legal.find(static_cast<char>(c)) != std::string::npos;
    EXPECT_EQ(IsNameCharacter(static_cast<char>(c)), in) << c;
  }
}

TEST(Names, legal_name_has_1_to_29_characters) {
  EXPECT_FALSE(IsLegalName(""));
  EXPECT_TRUE(IsLegalName("A"));
  EXPECT_TRUE(IsLegalName(std::string(29, 'A')));
  EXPECT_FALSE(IsLegalName(std::string(30, 'A')));
  EXPECT_FALSE(IsLegalName("A B"));
  EXPECT_TRUE(IsLegalName("a"));
}

TEST(Names, dots_alone_are_reserved) {
  EXPECT_FALSE(IsLegalName("."));
  EXPECT_FALSE(IsLegalName(".."));
  EXPECT_TRUE(IsLegalName("..."));
  EXPECT_TRUE(IsLegalName(".A"));
}

TEST(Names, upper_case_changes_letters_alone) { EXPECT_EQ(UpperCase("azAZ09`{@["), "AZAZ09`{@["); }

TEST(Names, name_ends_with_its_nul_or_the_field) {
  OrbDirEntry entry = EntryNamed("ABC");
  EXPECT_EQ(NameOf(entry), "ABC");
  entry.name[4] = 'X';
  EXPECT_EQ(NameOf(entry), "ABC");
  std::memset(entry.name, 'Y', sizeof entry.name);
  EXPECT_EQ(NameOf(entry), std::string(30, 'Y'));
}

TEST(Names, stored_name_has_zeros_behind) {
  OrbDirEntry entry;
  std::memset(&entry, 0xFF, sizeof entry);
  SetName(&entry, "AB");
  EXPECT_EQ(std::string(entry.name, sizeof entry.name), "AB" + std::string(28, '\0'));
  SetName(&entry, std::string(40, 'Z'));
  EXPECT_EQ(std::string(entry.name, sizeof entry.name), std::string(29, 'Z') + std::string(1, '\0'));
}

TEST(Names, printable_name_has_visible_characters_alone) {
  EXPECT_EQ(Printable("A!~"), "A!~");
  EXPECT_EQ(Printable(" "), "\\x20");
  EXPECT_EQ(Printable("\x7f"), "\\x7f");
  EXPECT_EQ(Printable("\\"), "\\x5c");
  EXPECT_EQ(Printable("\xfe"), "\\xfe");
  EXPECT_EQ(Printable(std::string(1, '\0')), "\\x00");
}

TEST(Names, dots_are_two_entries_with_nodes) {
  const auto areDots = [](OrbDirEntry self, std::uint16_t node, OrbDirEntry parent, std::uint16_t above) {
    std::uint8_t bytes[2 * kDirEntrySize];
    self.node = node;
    parent.node = above;
    EncodeEntry(self, bytes);
    EncodeEntry(parent, bytes + kDirEntrySize);
    return AreDots(bytes);
  };
  EXPECT_TRUE(areDots(EntryNamed("."), 2, EntryNamed(".."), 1));
  EXPECT_FALSE(areDots(EntryNamed("."), 0, EntryNamed(".."), 1));
  EXPECT_FALSE(areDots(EntryNamed("."), 2, EntryNamed(".."), 0));
  EXPECT_FALSE(areDots(EntryNamed(".."), 2, EntryNamed(".."), 1));
  EXPECT_FALSE(areDots(EntryNamed("."), 2, EntryNamed("."), 1));
}

}  // namespace
}  // namespace orba::inspect
