// Chooses calls that meet something: mostly names, handles and sizes that the model has, and now and then anything. The
// random choices are made in a fixed order, so that a seed means the same calls whatever compiler built the program.
#pragma once

#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "tests/model/call.h"
#include "tests/model/model.h"

namespace model {

class Chooser {
 public:
  // Of `count` calls in all. The same seed chooses the same calls, as long as the model does what it did. With
  // `toTheEnd` one file grows, late in the sequence, as far as the map of its blocks goes.
  Chooser(std::uint32_t seed, std::uint32_t count, bool toTheEnd, const Model& m)
      : random_(seed), model_(m), quiet_(toTheEnd ? count / 2 : ~0u) {}

  Call Next();

 private:
  std::uint32_t Below(std::uint32_t n) { return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(random_); }

  template <typename T = std::string>
  T Pick(const std::vector<T>& from) {
    return from[Below(static_cast<std::uint32_t>(from.size()))];
  }

  void ChooseVolume(Call* c);
  void ChooseName(Call* c);
  void ChooseHandle(Call* c);
  bool QueueGrowth();
  std::string Name();
  std::string Directory();
  std::string Path(bool fresh);
  std::uint32_t FileHandle();
  std::uint32_t SearchHandle();
  std::uint32_t Length();
  std::uint32_t Size(std::uint32_t handle);

  std::mt19937 random_;
  const Model& model_;
  std::uint32_t quiet_;  // calls until a file may grow to the end
  std::deque<Call> queue_;
};

}  // namespace model
