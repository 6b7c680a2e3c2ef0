// Standard input as the source of a put. It may come from a program that reads the very container that it is to be
// written to; so its first piece is taken before the container is opened, and all of it where that is still busy then.
// Stands on host_file and failure.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/orba/host_file.h"

namespace orba::tool {

// Takes all of an input into a temporary file without a name.
Descriptor TakenIntoFile(int input, const std::string& path);

class StandardInput {
 public:
  // Waits for the first piece, or the end. Throws a Failure where it cannot be read.
  StandardInput();

  // Takes what is left into a temporary file, so that whoever writes it can come to its end.
  void TakeAll();

  // Bytes read, less than `count` at the end alone.
  std::size_t Read(void* buffer, std::size_t count);

 private:
  Descriptor input_;
  std::vector<char> first_;
  std::size_t used_ = 0;  // of the first piece
  bool ended_ = false;
  std::optional<Descriptor> rest_;
};

}  // namespace orba::tool
