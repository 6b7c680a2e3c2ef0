// What the inspection says of a container's bytes, in one line that a test can state; and whether everything that an
// operation has nothing to do with is still there, byte for byte. Stands on inspect/ and the file image.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/image.h"
#include "support/file_image.h"

namespace testhost {

// A file image as the inspection reads it. The file image must live as long.
class InspectedImage : public orba::inspect::Image {
 public:
  explicit InspectedImage(const FileImage& image) : image_(image) {}

  uint64_t Size() const override { return image_.size(); }
  bool Read(uint64_t offset, void* out, size_t count) const override;

 private:
  const FileImage& image_;
};

orba::inspect::Report Inspect(const FileImage& image);

// The verdict in one line: "clean", "marked", or the kinds of findings with their numbers, as in
// "marked, two-names 1, block-leaked 3". Leaked blocks are counted one by one, everything else by findings. Notes are
// left out.
std::string Verdict(const orba::inspect::Report& report);
inline std::string Verdict(const FileImage& image) { return Verdict(Inspect(image)); }

// The container with the dirty mark taken off.
FileImage Unmarked(FileImage image);

// A row of verdicts, numbered from `number` on, as text with a line for each run of equal ones:
//   0 clean
//   1-4 marked
//   5-9 marked, block-leaked 5 to 1
//   10 clean
// A run of at least three that differ in one number alone, which rises or falls by one each time, is one line as well;
// so is one in which two to four verdicts come round at least three times:
//   3-9 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
std::string VerdictList(const std::vector<std::string>& verdicts, size_t number = 0);

// The same for some numbers alone.
std::string VerdictList(const std::map<size_t, std::string>& verdicts);

// Every file and directory of a container but those named: what they hold and how they are called.
class Bystanders {
 public:
  // Those of a sound container whose path is not in `except`.
  Bystanders(const FileImage& image, const std::vector<std::string>& except);

  // "" where each of them is there in this other state of the container, under its own name and within reach of the
  // root, with an identical record and identical contents; else which is not, and why.
  std::string MissingFrom(const FileImage& image, const orba::inspect::Report& report) const;

  // "" where each file that holds something is within reach with identical contents, under whatever name.
  std::string LostFrom(const FileImage& image, const orba::inspect::Report& report) const;

  // The same for files alone, given what a volume holds by name (ReadVolume). File names are unique in the container.
  struct File {
    uint32_t attributes;
    Bytes contents;
  };
  std::string MissingFrom(const std::map<std::string, File>& volume) const;

  size_t count() const { return nodes_.size(); }

 private:
  struct Node {
    std::string name;
    orba::OrbNodeRecord record;
    Bytes contents;
  };
  std::map<uint16_t, Node> nodes_;  // by number
};

}  // namespace testhost
