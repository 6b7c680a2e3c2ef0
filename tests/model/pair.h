// The library and the model side by side: makes each call on both and compares what it returns, the code it leaves and
// what it hands out; then looks, through further calls that are compared like any other, at what the call touched.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/model/call.h"
#include "tests/model/model.h"

namespace model {

class Pair {
 public:
  // The first difference, described; it ends the sequence. Empty as long as there is none.
  std::string difference;

  explicit Pair(Wrong wrong) : model_(kContainerCount) { model_.wrong = wrong; }

  const Model& TheModel() const { return model_; }

  // Formats the containers of the start, in the current folder, and mounts three of them.
  void Prepare();

  // One call, and after it
  //   - the listing of each directory that it names or whose files it concerns, of the current one where there is none,
  //     and of a directory that it made or moved: names, order, sizes, attributes, time stamps;
  //   - the bytes of the file that it wrote, resized or made by copying;
  //   - after a mount, everything on the volume.
  // Each of them is what the exports say: where a directory is being searched already, or no slot is free, that code.
  // Of a file above 1 MiB only the bytes before the position and before the end are read, and a file that is not open
  // for reading is closed and opened again to read it; where it could not be opened again, its bytes have to wait.
  void Run(const Call& call);

  // Everything that is mounted, as it stands; then unmounts, mounts every container and compares it whole, and has it
  // checked: nothing broken, and exactly the blocks lost that the model has lost.
  void Finish();

 private:
  void Perform(const Call& call);
  void PerformPath(const Call& call);
  void PerformFlush(const Call& call);
  void PerformVolume(const Call& call);
  void PerformFindFirst(const Call& call);
  void PerformFullPath(const Call& call);
  void PerformTransfer(const Call& call);
  void PerformNull(const Call& call);
  void PerformErrorState(const Call& call);
  void Expect(bool same, const std::string& what);
  void Compare(const Result& expected, std::uint32_t value);
  void CompareFound(const Result& expected, std::uint32_t value, const Found& want, bool wide, const OrbFindDataA& a,
                    const OrbFindDataW& w);
  std::vector<int> DirectoriesOf(const Call& call) const;
  int FileOf(const Call& call) const;
  void List(int directory, bool wide);
  void ListPath(const std::string& path, bool wide);
  void CompareBytes(int file);
  void CompareOpenFile(int file, std::uint32_t handle);
  void CompareReopened(int file, std::uint32_t handle, const OpenFile& open);
  void ReadAt(std::uint32_t handle, std::uint32_t position, std::uint32_t count);
  void Walk(int root);
  void CheckContainer(int number);

  Model model_;
  Result last_;        // what the model said to the last call
  std::string where_;  // for a look: after what, and at what
};

}  // namespace model
