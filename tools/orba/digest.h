// SHA-256 of contents that come in pieces. Stands on failure and host.
#pragma once

#include <cstddef>
#include <string>

#include "tools/orba/host/host.h"

namespace orba::tool {

class Digest {
 public:
  Digest();  // throws a Failure where it cannot be computed

  void Add(const void* bytes, std::size_t count) { sum_.Add(bytes, count); }

  // Of all that was added, in 64 hexadecimal digits of lower case. To be called last, and once.
  std::string Text() const;

 private:
  host::Sha256 sum_;
};

}  // namespace orba::tool
