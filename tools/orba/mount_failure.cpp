#include "tools/orba/mount_failure.h"

#include "orba.h"
#include "tools/orba/host_file.h"
#include "tools/orba/patience.h"

namespace orba::tool {

namespace {

bool IsOrdinary(const std::string& path) { return host::StatusOf(path).kind == host::Kind::kFile; }

// One that separates nothing, since no "/" follows it; npos where there is none.
std::size_t IdleColon(const std::string& container) {
  const std::size_t colon = container.rfind(':');
  return colon != std::string::npos && colon >= host::DriveLength(container) ? colon : std::string::npos;
}

std::string WithSlashes(std::string path) {
  for (char& c : path) c = host::IsSeparator(c) ? '/' : c;
  return path;
}

// What to do where there is no container of this name. The address may have been meant in another way.
std::string AdviceOnMissing(const Address& address) {
  const std::string& container = address.container;
  const std::string trimmed = WithoutSeparators(container);
  if (trimmed != container && IsOrdinary(trimmed)) return "the root of that container is " + ShellWord(trimmed + ":/");
  if (IsOrdinary(address.written)) {
    return "the root of the container " + ShellWord(address.written) + " is " + ShellWord(address.written + ":/");
  }
  const std::size_t colon = IdleColon(container);
  if (colon == std::string::npos) {
    return "check the name, or make a container with: orba format " + ShellWord(container);
  }
  const std::string path = WithSlashes(container.substr(colon + 1));
  return "a path inside a container begins with \"/\": " +
         ShellWord(container.substr(0, colon) + (path.rfind('/', 0) == 0 ? ":" : ":/") + path);
}

// The same where something on the way is missing or is a file: perhaps the container.
std::string AdviceOnWay(const Address& address) {
  const std::string& container = address.container;
  if (EndsWithSeparator(container) || IdleColon(container) != std::string::npos) return AdviceOnMissing(address);
  for (std::size_t at = 1; at < container.size(); ++at) {
    const std::string front = container.substr(0, at);
    if (host::IsSeparator(container[at]) && IsOrdinary(front)) {
      return "a place inside a container is written " + ShellWord(front + ":/" + WithSlashes(container.substr(at + 1)));
    }
  }
  return "check the name";
}

}  // namespace

Failure MountFailure(const Address& address, std::uint32_t code, const host::Status& status) {
  const std::string& container = address.container;
  const std::string what = "cannot open " + ShellWord(container);
  const std::string coded = " (" + CodeText(code) + ")";
  if (code == ORB_ERROR_ACCESS_DENIED && status.kind != host::Kind::kNothing && status.kind != host::Kind::kFile) {
    return Failure(what, "it is not an ordinary file but " + KindText(status.kind) + coded, "check the name", code);
  }
  if (code == ORB_ERROR_ACCESS_DENIED) {
    return Failure(what, "the host does not let you write to it" + coded,
                   "check who owns it and its permissions, or work on a copy", code);
  }
  if (code == ORB_ERROR_WRITE_PROTECTED) {
    return Failure(what, "the medium is write-protected" + coded, "work on a copy on another disk", code);
  }
  if (code == ORB_ERROR_PATH_NOT_FOUND) {
    return Failure(what, "a folder on the way to it is missing, or is not a folder" + coded, AdviceOnWay(address),
                   code);
  }
  if (code == ORB_ERROR_CONTAINER_IN_USE) return BusyFailure(container, host::HolderOf(container));
  if (code != ORB_ERROR_FILE_NOT_FOUND) return LibraryFailure(what, container, code);
  return Failure(what, "there is no such container" + coded, AdviceOnMissing(address), code);
}

}  // namespace orba::tool
