#include "tools/orba/volume_file.h"

namespace orba::tool {

VolumeFile::VolumeFile(Session* session, const Address& address, OrbU32 mode)
    : address_(address), handle_(OrbOpenFileA(session->PathOf(address).c_str(), mode)) {
  Require(handle_ != ORB_INVALID_HANDLE, "open", address_);
}

VolumeFile::~VolumeFile() {
  if (handle_ != ORB_INVALID_HANDLE) OrbCloseFile(handle_);
}

OrbU32 VolumeFile::Read(void* buffer, OrbU32 count) {
  OrbU32 done = 0;
  Require(OrbReadFile(handle_, buffer, count, &done), "read", address_);
  return done;
}

void VolumeFile::Write(const void* buffer, OrbU32 count) {
  OrbU32 done = 0;
  Require(OrbWriteFile(handle_, buffer, count, &done), "write", address_);
}

void VolumeFile::SetSize(OrbU32 size) { Require(OrbSetFileSize(handle_, size), "resize", address_); }

void VolumeFile::Close() {
  const OrbHandle handle = handle_;
  handle_ = ORB_INVALID_HANDLE;
  Require(OrbCloseFile(handle), "finish writing", address_);
}

}  // namespace orba::tool
