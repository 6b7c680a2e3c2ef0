#include "support/operations.h"

#include <stdexcept>

#include "base/error.h"
#include "operations/mount.h"
#include "orba.h"
#include "support/result_code.h"
#include "volume/volume.h"

namespace testhost {

const FileName kChangedContainer = u"VOL";

namespace {

const FileName kSourceContainer = u"SOURCE";
constexpr uint32_t kBitmapSize = 40;  // 320 nodes

void Mount(const FileName& container, const FileName& name) {
  Must(OrbMountVolume(container.c_str(), name.c_str()), "mount");
}

void MountAll(const Operation& operation) {
  Mount(kChangedContainer, u"A");
  if (operation.sourceBlockSize != 0) Mount(kSourceContainer, u"B");
}

void Format(const FileName& container, uint32_t blockSize) {
  Must(OrbCreateVolumeEx(container.c_str(), kBitmapSize, blockSize), "format");
}

}  // namespace

void Must(bool done, const std::string& what) {
  if (!done) throw std::logic_error("cannot prepare: " + what + " " + NameOfCode(orba::GetError()));
}

FileSet Prepare(const Operation& operation) {
  Format(kChangedContainer, operation.blockSize);
  if (operation.sourceBlockSize != 0) Format(kSourceContainer, operation.sourceBlockSize);
  MountAll(operation);
  operation.prepare();
  Must(orba::VolumeUnmountAll(), "unmount");
  const FileSet prepared = Snapshot();
  Restore({});
  return prepared;
}

void Begin(const Operation& operation, const FileSet& prepared) {
  Restore(prepared);
  SetClock({2002, 3, 1, 4, 5, 6, 7, 8});
  MountAll(operation);
  if (operation.begin) operation.begin();
  ClearTrace();
}

std::vector<FileImage> StopStates(const Operation& operation, const FileSet& prepared) {
  Begin(operation, prepared);
  WriteJournal journal(kChangedContainer);
  Must(operation.run(), operation.name);
  journal.Stop();
  Must(orba::VolumeUnmountAll(), "unmount");
  std::vector<FileImage> states = {journal.ImageAfter(0)};
  for (const WriteJournal::Write& write : journal.writes()) {
    FileImage next = states.back();
    next.Write(write.position, write.bytes.data(), write.bytes.size());
    states.push_back(next);
  }
  Restore({});
  return states;
}

bool MountContainer(const FileImage& image) {
  SetFile(kChangedContainer, image);
  return OrbMountVolume(kChangedContainer.c_str(), u"A") != 0;
}

namespace {

// False where it cannot be read whole.
bool TryReadFile(const std::string& path, Bytes* contents) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ);
  if (file == ORB_INVALID_HANDLE) return false;
  contents->resize(OrbGetFileSize(file));
  OrbU32 done = 0;
  const bool read = OrbReadFile(file, contents->data(), static_cast<OrbU32>(contents->size()), &done) != 0;
  return OrbCloseFile(file) != 0 && read && done == contents->size();
}

void ReadDirectory(const std::string& path, std::map<std::string, Bystanders::File>* files) {
  OrbFindDataA found;
  std::vector<std::string> directories;
  const OrbHandle search = OrbFindFirstFileA((path + "/").c_str(), &found);
  if (search == ORB_INVALID_HANDLE) return;
  do {
    const std::string name = found.name;
    if (name == "." || name == "..") continue;
    Bytes contents;
    if ((found.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0) {
      directories.push_back(path + "/" + name);
    } else if (TryReadFile(path + "/" + name, &contents)) {
      (*files)[name] = {found.attributes, contents};
    }
  } while (OrbFindNextFileA(search, &found));
  Must(OrbFindClose(search), "end of list");
  for (const std::string& directory : directories) ReadDirectory(directory, files);
}

}  // namespace

Bytes ReadFile(const std::string& path) {
  Bytes contents;
  Must(TryReadFile(path, &contents), "read " + path);
  return contents;
}

std::map<std::string, Bystanders::File> ReadVolume(const std::string& volume) {
  std::map<std::string, Bystanders::File> files;
  ReadDirectory(volume + ":", &files);
  return files;
}

}  // namespace testhost
