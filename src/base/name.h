// Layer: the rules of names: which are legal, how they compare, how they are stored, what a wildcard matches. Stands on
// nothing; volumes, directories and searches all come here.
//
// A name is 1 to ORB_MAX_NAME letters, digits and ORBA_NAME_SYMBOLS, all below 0x80. Letter case never matters: names
// are stored in upper case.
#pragma once

#include <stdint.h>

namespace orba {

// The rules for files and for volumes accept the same names today; they are two, so that either can change alone.
// "." and ".." pass; operations that must refuse them test for them.
bool OrbIsValidName(const char* name);
bool OrbIsValidVolumeName(const char* name);

// True for "." and "..", which every directory has.
bool IsReservedName(const char* name);

// True for a-z and A-Z.
bool IsLetter(char character);

// Upper case of a letter of a-z; everything else is unchanged.
char ToUpper(char character);

// Returns 0 where the names are equal without regard to case, otherwise the difference of the first two characters that
// differ. Reads b (a name as stored) no further than a's terminator.
int OrbNameCompare(const char* a, const char* b);

// Copies up to and including the terminator, in upper case. Callers validate the source: nothing checks for room.
void OrbNameCopyUpper(char* destination, const char* source);

// Matches in one pass, without backtracking (Q7): "*" skips to the first character equal to the one that
// follows it in the pattern, so "*.TXT" matches A.TXT but not A.B.TXT; "?" takes exactly one character.
bool OrbMatchWildcard(const char* name, const char* pattern);

}  // namespace orba
