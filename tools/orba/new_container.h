// A container that is being made: beside its place, under a name of its own, and gone again unless it is published.
// How large its blocks are and how many nodes it has, what it is to hold decides. Stands on session, stamps and host.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/orba/host_file.h"
#include "tools/orba/session.h"
#include "tools/orba/syntax.h"

namespace orba::tool {

struct Shape {
  std::uint32_t blockSize = 0;
  std::uint32_t nodes = 0;        // files and directories that it has room for
  std::uint32_t bitmapBytes = 0;  // for so many
  std::uint64_t size = 0;         // of the container in the end, in bytes
};

// What the user wants of a shape.
struct ShapeOptions {
  std::optional<std::uint32_t> blockSize;
  std::optional<std::uint32_t> nodes;
  std::optional<std::uint32_t> spare;  // nodes beyond those in use

  void Define(Syntax* syntax);
};

// Adds up what a tree takes with each size of blocks.
class Measure {
 public:
  Measure();
  void AddFile(std::uint64_t size);
  void AddDirectory(std::uint64_t entries);  // the root too

  std::uint64_t nodes() const { return nodes_; }

  // The shape of the smallest container that holds it all, of equal ones that with the largest blocks. Throws a Failure
  // that begins with `what` where none does, or not with what the user wants.
  Shape Choose(const ShapeOptions& options, const std::string& what) const;

 private:
  struct Blocks {
    std::uint32_t size = 0;
    std::uint64_t count = 0;
  };

  std::optional<Shape> With(const Blocks& blocks, const ShapeOptions& options) const;
  [[noreturn]] void Refuse(const ShapeOptions& options, const std::string& what) const;

  std::array<Blocks, 4> blocks_;
  std::uint64_t nodes_ = 0;
  std::uint64_t largest_ = 0;  // file, in bytes
  std::uint64_t bytes_ = 0;    // of all files
};

// Every member but the destructor throws a Failure.
class NewContainer {
 public:
  // Makes an empty one that is to be `place`.
  NewContainer(std::string place, const Shape& shape);
  NewContainer(const NewContainer&) = delete;
  NewContainer& operator=(const NewContainer&) = delete;

  // Addresses have the place for it. To be closed before the rest.
  Session* session() { return &*session_; }
  // Where it is as yet.
  const std::string& file() const { return name_->path(); }

  // Gives it its name, on the disk. Fails where the name is taken.
  void Publish();
  // Puts it in the place of the container that is there, which is kept as `kept` unless that is empty: at no time is
  // there none. On failure all is as before.
  void Replace(const std::string& kept);

 private:
  std::string place_;
  std::optional<TemporaryName> name_;
  std::optional<Session> session_;  // goes first
};

}  // namespace orba::tool
