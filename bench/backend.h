// What the workloads need of whoever keeps files in a single host file or in memory. One volume, one open file at a
// time. A call that fails ends the program: a benchmark that measures failures would look fast.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

class Backend {
 public:
  Backend() = default;
  Backend(const Backend&) = delete;
  Backend& operator=(const Backend&) = delete;
  virtual ~Backend() = default;

  // Makes an empty volume in place of the one before, and opens it.
  virtual void FormatAndMount() = 0;
  virtual void Mount() = 0;
  virtual void Unmount() = 0;
  virtual bool KeepsUnmounted() const { return true; }  // false: unmounting ends the volume

  // Files of the root directory.
  virtual void Create(const std::string& name) = 0;
  virtual void CreateWith(const std::string& name, const void* bytes, size_t count) = 0;
  virtual void LookUp(const std::string& name) = 0;
  virtual void Rename(const std::string& from, const std::string& to) = 0;
  virtual void Delete(const std::string& name) = 0;
  virtual size_t Enumerate() = 0;  // with each file's size; returns their number

  // A new file, or one that exists. Who has to know how much a new file will hold before it is written is told.
  virtual void OpenNew(const std::string& name, size_t size) = 0;
  virtual void Open(const std::string& name) = 0;
  virtual void Seek(size_t position) = 0;
  virtual void Read(void* bytes, size_t count) = 0;  // both go on where the last transfer ended
  virtual void Write(const void* bytes, size_t count) = 0;
  virtual void Close() = 0;
};

enum class OrbaIn {
  kFile,
  kAlignedFile,
  kMemory
};  // aligned: with a bitmap that lets blocks begin on the host's pages
std::unique_ptr<Backend> MakeOrba(OrbaIn in);
std::unique_ptr<Backend> MakeExt2();
std::unique_ptr<Backend> MakeSqlite(bool writeAheadLog);

// Ends the program unless `ok`.
void Require(bool ok, const char* what);

}  // namespace bench
