#include "namespace/name.h"

#include <string.h>

#include "orba.h"

namespace orba {

namespace {

char g_FileNameCharacters[] = "!#$%&'()-^~@{}[]_.";
char g_VolumeNameCharacters[] = "!#$%&'()-^~@{}[]_.";

bool IsLetterOrDigit(char c) { return (c >= '0' && c <= '9') || (ToUpper(c) >= 'A' && ToUpper(c) <= 'Z'); }

bool IsValid(const char* name, const char* table) {
  uint32_t length = 0;
  for (; name[length] != '\0'; ++length) {
    if (length == ORB_MAX_NAME) return false;
    if (!IsLetterOrDigit(name[length]) && strchr(table, name[length]) == nullptr) return false;
  }
  return length > 0;
}

}  // namespace

bool OrbIsValidName(const char* name) { return IsValid(name, g_FileNameCharacters); }

bool OrbIsValidVolumeName(const char* name) { return IsValid(name, g_VolumeNameCharacters); }

bool IsDotName(const char* name) { return name[0] == '.' && name[1] == '\0'; }

bool IsDotDotName(const char* name) { return name[0] == '.' && IsDotName(name + 1); }

bool IsReservedName(const char* name) { return IsDotName(name) || IsDotDotName(name); }

char ToUpper(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

int OrbNameCompare(const char* a, const char* b) {
  for (; ToUpper(*a) == ToUpper(*b); ++a, ++b) {
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
        while (*name != '\0' && ToUpper(*name) != ToUpper(*pattern)) ++name;
        star = false;
      }
      if (ToUpper(*name) != ToUpper(*pattern)) return false;
      ++name;
    }
  }
  return star || *name == '\0';
}

}  // namespace orba
