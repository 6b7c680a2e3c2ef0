// The mounted containers of one run. A container is mounted when it is first needed and unmounted when the session
// ends. Stands on address, host_file and failure.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"

namespace orba::tool {

// Every member but the destructor throws a Failure with the address where the library refuses.
class Session {
 public:
  // When changes are on the disk: all at once when the session closes, or each file's when the library closes it. A
  // loss of power before leaves what the host has written by then.
  enum Syncs { kAtTheEnd, kEach };

  explicit Session(Syncs syncs = kAtTheEnd);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Unmounts everything; throws when a container did not close cleanly or not all of it is on the disk.
  void Close();

  // The container of this name is the host's file `file`.
  void PlaceAt(const std::string& container, const std::string& file) { files_[container] = file; }

  // The path by which the library knows the place, such as "V1:/LOGS". Mounts the container.
  std::string PathOf(const Address& address);

  OrbU32 BlockSize(const Address& address);
  OrbU32 NodeLimit(const Address& address);  // files and directories that the container can hold

 private:
  struct Volume {
    std::string name;
    std::string container;  // as it was written first
    std::string path;       // where it is
    Descriptor file;        // to sync it: its name may lead to another one by then. Not open where the library's
                            // lock keeps this program out too
  };

  const Volume& Mount(const Address& address);
  OrbU32 MountAs(const std::string& volume, const std::string& container);
  // The same container may be written in several ways.
  std::map<std::string, host::FileId> ids_;
  std::map<host::FileId, Volume> volumes_;
  std::map<std::string, std::string> files_;  // of containers that are elsewhere
  unsigned mounted_ = 0;
};

// Unless `done`, throws the library's failure: "cannot ACTION card.orb:/A.TXT".
void Require(OrbBool done, const char* action, const Address& address);

// While one lives, what the library creates or writes is stamped with this time instead of the present.
class ClockStandsAt {
 public:
  explicit ClockStandsAt(const OrbTime& time);
  ~ClockStandsAt();
  ClockStandsAt(const ClockStandsAt&) = delete;
  ClockStandsAt& operator=(const ClockStandsAt&) = delete;
};

using WideText = std::basic_string<OrbWideChar>;

// The host's name for a container as the library takes it. Throws on a name that is not UTF-8.
WideText WideName(const std::string& container);

}  // namespace orba::tool
