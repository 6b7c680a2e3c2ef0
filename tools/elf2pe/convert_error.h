// The one way in which the converter fails: a sentence for the person who runs it.
#pragma once

#include <stdexcept>

namespace elf2pe {

struct ConvertError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace elf2pe
