// Layer: string conversion. Inside the library every path and name is an ANSI byte string; wide strings appear only at
// the W entry points, which convert here. Stands on the device's code page and the error state.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include "platform/coredll.h"

namespace orba {

// Returns an ANSI copy in new memory (free it), or null: ORB_ERROR_OUT_OF_MEMORY; ORB_ERROR_INVALID_ARGUMENT where the
// platform cannot convert or wide is null.
char* OrbWideToAnsiAlloc(const WideChar* wide);

// Converts into out[outSize]. Returns the bytes written, terminator included; 0 or less on failure:
// ORB_ERROR_INVALID_ARGUMENT where the platform fails; a null out or an outSize of 0 gives 0 and sets no error.
int32_t OrbWideToAnsi(char* out, const WideChar* wide, int32_t outSize);

// Converts into out[outChars]. Returns the characters written, terminator included; 0 or less with
// ORB_ERROR_INVALID_ARGUMENT on failure.
int32_t OrbAnsiToWide(WideChar* out, const char* ansi, int32_t outChars);

// An ANSI copy of a wide string for the length of one call; text is null where the conversion failed.
struct AnsiString {
  char* const text;
  [[gnu::always_inline]] explicit AnsiString(const WideChar* wide) : text(OrbWideToAnsiAlloc(wide)) {}
  [[gnu::always_inline]] ~AnsiString() { free(text); }
  AnsiString(const AnsiString&) = delete;
  AnsiString& operator=(const AnsiString&) = delete;
};

}  // namespace orba
