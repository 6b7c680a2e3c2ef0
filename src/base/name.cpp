#include "base/name.h"

#include <string.h>

#include "base/name_symbols.h"
#include "orba.h"

namespace orba {

namespace {

bool IsLetterOrDigit(char c) { return (c >= '0' && c <= '9') || IsLetter(c); }

bool IsSameLetter(char a, char b) { return ToUpper(a) == ToUpper(b); }

// 1 to ORB_MAX_NAME letters, digits and symbols.
bool IsValid(const char* name) {
  uint32_t length = 0;
  for (; name[length] != '\0'; ++length) {
    if (length == ORB_MAX_NAME) return false;
    if (!IsLetterOrDigit(name[length]) && strchr(ORBA_NAME_SYMBOLS, name[length]) == nullptr) return false;
  }
  return length > 0;
}

}  // namespace

bool OrbIsValidName(const char* name) { return IsValid(name); }

bool OrbIsValidVolumeName(const char* name) { return IsValid(name); }

bool IsReservedName(const char* name) {
  if (*name++ != '.') return false;
  if (*name == '.') ++name;
  return *name == '\0';
}

bool IsLetter(char character) { return ToUpper(character) >= 'A' && ToUpper(character) <= 'Z'; }

char ToUpper(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

int OrbNameCompare(const char* a, const char* b) {
  for (; IsSameLetter(*a, *b); ++a, ++b) {
    if (*a == '\0') return 0;
  }
  return *a - *b;
}

void OrbNameCopyUpper(char* destination, const char* source) {
  do {
    *destination++ = ToUpper(*source);
  } while (*source++ != '\0');
}

bool OrbMatchWildcard(const char* name, const char* pattern) {
  bool star = false;
  for (; *pattern != '\0'; ++pattern) {
    if (*pattern == '*') {
      star = true;
    } else if (*pattern == '?') {
      if (*name++ == '\0') return false;
    } else {
      if (star) {
        while (*name != '\0' && !IsSameLetter(*name, *pattern)) ++name;
        star = false;
      }
      if (!IsSameLetter(*name, *pattern)) return false;
      ++name;
    }
  }
  return star || *name == '\0';
}

}  // namespace orba
