// An open file inside a mounted container. Stands on place.
#pragma once

#include "tools/orba/place.h"

namespace orba::tool {

// Every member but the destructor throws a Failure where the library refuses.
class VolumeFile {
 public:
  // `mode` is ORB_OPEN_READ or ORB_OPEN_WRITE.
  VolumeFile(Session* session, const Address& address, OrbU32 mode);
  ~VolumeFile();
  VolumeFile(const VolumeFile&) = delete;
  VolumeFile& operator=(const VolumeFile&) = delete;

  // Bytes read, 0 at the end.
  OrbU32 Read(void* buffer, OrbU32 count);
  void Write(const void* buffer, OrbU32 count);
  void SetSize(OrbU32 size);
  void Close();

 private:
  Address address_;
  OrbHandle handle_;
};

}  // namespace orba::tool
