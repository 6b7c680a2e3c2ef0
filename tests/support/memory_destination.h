// A place for recovered files that needs no host: it keeps them in memory, by path.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inspect/repair/recover.h"

namespace testimage {

class MemoryDestination : public orba::inspect::Destination {
 public:
  struct File {
    std::vector<std::uint8_t> contents;
    orba::TimeStamp time = {};
    bool whole = false;
  };

  std::string MakeDirectory(const std::string& path) override {
    if (path == refused) return "refused";
    directories.push_back(path);
    return "";
  }

  std::string WriteFile(const std::string& path, const orba::TimeStamp& time, const Contents& contents) override {
    if (path == refused || files.count(path) != 0) return "refused";
    File& file = files[path];
    file.time = time;
    file.whole = contents([&file](const std::uint8_t* bytes, std::size_t count) {
      file.contents.insert(file.contents.end(), bytes, bytes + count);
      return true;
    });
    return file.whole ? "" : "blocks are missing";
  }

  std::string refused;  // a path that it does not take
  std::map<std::string, File> files;
  std::vector<std::string> directories;  // in the order of their making
};

}  // namespace testimage
