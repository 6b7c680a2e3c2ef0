// SHA-256 of contents that come in pieces. Stands on failure.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace orba::tool {

class Digest {
 public:
  Digest();

  void Add(const void* bytes, std::size_t count);

  // Of all that was added, in 64 hexadecimal digits of lower case.
  std::string Text() const;

 private:
  struct Close {
    void operator()(void* handle) const;
  };
  std::unique_ptr<void, Close> handle_;
};

}  // namespace orba::tool
