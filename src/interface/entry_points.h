// Layer: the entry points, declared in orba.h. Stands on every operation below.
//
// The A forms and the functions without an A/W pair do the work, in one frame:
//   1. clear the error state
//   2. check pointers, resolve the path or paths (each gives one node reference)
//   3. run the operation
//   4. where the call changes a volume, commit it, whether or not the operation succeeded; a failed commit makes the
//      result 0
//   5. release the references
// The W forms convert their strings and call the A form; they clear nothing themselves. They fail with 0 where a string
// does not convert, also those whose A form fails with another value (Q1).
#pragma once

#include "base/error.h"
#include "orba.h"

namespace orba {

// False, with ORB_ERROR_INVALID_ARGUMENT set, for a null pointer where one is required.
inline bool Given(const void* pointer) { return pointer != nullptr || Fail(ORB_ERROR_INVALID_ARGUMENT); }

}  // namespace orba
