// orba, on a host file or on the memory file.
#include "orba.h"

#include <cstdio>

#include "bench/backend.h"

namespace bench {
namespace {

constexpr char16_t kMemory[] = u"??MEM??";
constexpr char16_t kContainer[] = u"bench.orba";
constexpr char kContainerName[] = "bench.orba";

class Orba : public Backend {
 public:
  explicit Orba(OrbaIn in)
      : container_(in == OrbaIn::kMemory ? kMemory : kContainer),
        inMemory_(in == OrbaIn::kMemory),
        bitmapBytes_(in == OrbaIn::kAlignedFile ? 3072 : 1024) {}
  ~Orba() override { std::remove(kContainerName); }
  Orba(const Orba&) = delete;
  Orba& operator=(const Orba&) = delete;

  void FormatAndMount() override {
    if (!inMemory_) std::remove(kContainerName);
    Require(OrbCreateVolumeEx(container_, bitmapBytes_, 4096) != 0, "formatting");
    Mount();
  }
  void Mount() override { Require(OrbMountVolume(container_, u"B") != 0, "mounting"); }
  void Unmount() override { Require(OrbUnmountVolumeA("B") != 0, "unmounting"); }
  bool KeepsUnmounted() const override { return !inMemory_; }

  void Create(const std::string& name) override { Require(OrbCreateFileA(Path(name).c_str(), 0) != 0, "creating"); }
  void CreateWith(const std::string& name, const void* bytes, size_t count) override {
    OpenNew(name, count);
    Write(bytes, count);
    Close();
  }
  void LookUp(const std::string& name) override {
    Require(OrbGetFileAttributesA(Path(name).c_str()) != 0xFFFFFFFF, "looking up");
  }
  void Rename(const std::string& from, const std::string& to) override {
    Require(OrbRenameFileA(Path(from).c_str(), to.c_str()) != 0, "renaming");
  }
  void Delete(const std::string& name) override { Require(OrbDeleteFileA(Path(name).c_str()) != 0, "deleting"); }
  size_t Enumerate() override {
    OrbFindDataA found;
    const OrbHandle search = OrbFindFirstFileA("B:/*", &found);
    Require(search != ORB_INVALID_HANDLE, "searching");
    size_t files = 0;
    do {
      if ((found.attributes & ORB_ATTRIBUTE_DIRECTORY) == 0) ++files;
    } while (OrbFindNextFileA(search, &found) != 0);
    OrbFindClose(search);
    return files;
  }

  void OpenNew(const std::string& name, size_t) override {
    Create(name);
    Open(name);
  }
  void Open(const std::string& name) override {
    file_ = OrbOpenFileA(Path(name).c_str(), ORB_OPEN_READ | ORB_OPEN_WRITE);
    Require(file_ != ORB_INVALID_HANDLE, "opening");
  }
  void Seek(size_t position) override {
    Require(OrbSetFilePointer(file_, static_cast<OrbI32>(position), ORB_SEEK_BEGIN) == position, "seeking");
  }
  void Read(void* bytes, size_t count) override {
    OrbU32 done = 0;
    Require(OrbReadFile(file_, bytes, static_cast<OrbU32>(count), &done) != 0 && done == count, "reading");
  }
  void Write(const void* bytes, size_t count) override {
    OrbU32 done = 0;
    Require(OrbWriteFile(file_, bytes, static_cast<OrbU32>(count), &done) != 0 && done == count, "writing");
  }
  void Close() override { Require(OrbCloseFile(file_) != 0, "closing"); }

 private:
  static std::string Path(const std::string& name) { return "B:/" + name; }

  const char16_t* container_;
  bool inMemory_;
  OrbU32 bitmapBytes_;
  OrbHandle file_ = ORB_INVALID_HANDLE;
};

}  // namespace

std::unique_ptr<Backend> MakeOrba(OrbaIn in) { return std::make_unique<Orba>(in); }

}  // namespace bench
