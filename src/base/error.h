// Layer: the error state. One 32-bit code for the whole process, 0 meaning no error; the vocabulary is orba.h's
// ORB_ERROR_ list. Stands on nothing.
//
// Habit: the code is set where the fault is found, with Fail. Callers pass failures upward unchanged and add a code of
// their own only where the state is still clear (FailIfClear). The last call wins: a later failure overwrites an
// earlier code. Every entry point that does work clears the state first, so a clear state in the middle of a call means
// that nothing has failed so far; "not found" is told from "could not be read" by exactly that.
#pragma once

#include <stdint.h>

#include "orba.h"

namespace orba {

uint32_t GetError();
void SetError(uint32_t code);
void ClearError();

// Sets the code and returns false (0, the failing result nearly everywhere), so that `return Fail(code)` says it all.
inline bool Fail(uint32_t code);

// Fail, unless a more specific code is already set.
inline bool FailIfClear(uint32_t code);

// True where the current error is a lack of space or memory: the failures after which unfinished work is undone (Q20).
bool IsOutOfSpace();

// The class of all failure codes. The calls above pass on what is left without it: an instruction of the device holds a
// small constant, a 32-bit one takes a word of its own, and there are a hundred places that fail.
constexpr uint32_t kFailureClass = 0x30000000;
[[gnu::noinline]] void SetFailure(uint32_t codeWithoutClass);
[[gnu::noinline]] void SetFailureIfClear(uint32_t codeWithoutClass);

inline bool Fail(uint32_t code) {
  SetFailure(code ^ kFailureClass);
  return false;
}

inline bool FailIfClear(uint32_t code) {
  SetFailureIfClear(code ^ kFailureClass);
  return false;
}

}  // namespace orba
