// The fixture of the tests on the real host: a scratch folder of its own, removed afterwards, and the shorthands for
// opening files there.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <functional>
#include <string>

#include "platform/coredll.h"

namespace orba {

// The call in the named process failed, or never came to its result.
constexpr uint32_t kChildDied = 0xFFFFFFF0;
// What the named process had to make for its test is not permitted here.
constexpr uint32_t kNotPermitted = 0xFFFFFFF1;

// Forks, runs `work` in the child and returns its result.
uint32_t InChild(const std::function<uint32_t()>& work);

class PlatformTest : public ::testing::Test {
 protected:
  PlatformTest();
  ~PlatformTest() override;

  const std::string& folder() const { return folder_; }
  std::string Path(const std::string& name) const { return folder_ + "/" + name; }

  // Whether anything exists under the name.
  bool Exists(const std::string& name) const;
  std::string Contents(const std::string& name) const;
  void MakeFile(const std::string& name, const std::string& contents) const;

 private:
  std::string folder_;
};

// UTF-8 to the host's wide characters. `text` must be sound.
std::u16string Wide(const std::string& text);

coredll::Handle Create(const std::string& path);
coredll::Handle Open(const std::string& path);

// 0 when the file opens (it is closed again), else the code.
uint32_t OpenCode(const std::string& path);
uint32_t CreateCode(const std::string& path);

// Writes or reads at the position, expects all bytes to be moved.
void Write(coredll::Handle file, const std::string& bytes);
std::string Read(coredll::Handle file, uint32_t count);

// Makes a file system of `bytes` in memory and its root the current folder; `readOnly` when it is to be
// write-protected. False where the system does not permit that. For children of the test.
bool EnterScratch(uint32_t bytes, bool readOnly);

}  // namespace orba
