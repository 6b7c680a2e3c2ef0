// mount and umount: a container as a folder of the host.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "inspect/check/check.h"
#include "inspect/container/patched_image.h"
#include "inspect/repair/repair.h"
#include "mount/background.h"
#include "mount/container_tree.h"
#include "mount/file_system.h"
#include "mount/log.h"
#include "mount/unmount.h"
#include "mount/volume_tree.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/fsck.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/host_image.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/mount_failure.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/session.h"
#include "volume/layout.h"

namespace orba::tool {

namespace {

// ---- What is mounted ------------------------------------------------------------------------------------------------

// A container as a tree, with all that the tree stands on.
class Mounted {
 public:
  virtual ~Mounted() = default;
  virtual mount::Tree* tree() = 0;
  virtual bool readOnly() const = 0;
  // Nothing of it is in use any more. Throws a Failure where a change may not be on the disk.
  virtual void Close() {}
};

// How far a container can still grow: up to the largest size, and up to what its disk has left.
std::uint64_t GrowthOf(std::uint64_t size, const std::string& path) {
  return std::min(ORB_MAX_CONTAINER_SIZE - std::min<std::uint64_t>(size, ORB_MAX_CONTAINER_SIZE),
                  host::FreeSpace(path));
}

class MountedVolume : public Mounted {
 public:
  explicit MountedVolume(const Address& root)
      : session_(Session::kEach),
        volume_(session_.PathOf(root)),
        file_(OpenForReading(host::RealPath(root.container))),
        path_("/proc/self/fd/" + std::to_string(file_.get())) {
    volume_.erase(volume_.find(':'));
    tree_ = std::make_unique<mount::VolumeTree>(
        volume_, mount::VolumeHost{[this](mount::Space* space) { return Measure(space); },
                                   [this] { return host::Sync(file_.get()) ? 0 : errno; }});
  }

  mount::Tree* tree() override { return tree_.get(); }
  bool readOnly() const override { return false; }
  void Close() override {
    tree_ = nullptr;
    session_.Close();
  }

 private:
  // The library does not tell; the container's own records do.
  int Measure(mount::Space* space) const {
    const std::unique_ptr<FileImage> image = FileImage::Of(file_.get());
    if (image == nullptr) return EIO;
    const int error = mount::MeasureContainer(*image, space);
    const std::uint64_t more = error != 0 ? 0 : GrowthOf(image->Size(), path_) / space->blockSize;
    space->blocks += more;
    space->free += more;
    return error;
  }

  Session session_;
  std::string volume_;
  Descriptor file_;
  std::string path_;  // which does not lead through the folder, as its name may
  std::unique_ptr<mount::VolumeTree> tree_;
};

class MountedContainer : public Mounted {
 public:
  explicit MountedContainer(const std::string& path) : raw_(path), tree_(raw_.image()) {
    if (!tree_.readable()) throw LibraryFailure("cannot open " + path, path, ORB_ERROR_DAMAGED_VOLUME);
  }
  mount::Tree* tree() override { return &tree_; }
  bool readOnly() const override { return true; }

 private:
  RawContainer raw_;
  mount::ContainerTree tree_;
};

// A container with the writes of its repair laid over it in memory.
class RepairedContainer : public Mounted {
 public:
  explicit RepairedContainer(const std::string& path) : raw_(path), repaired_(raw_.image()) {
    const inspect::Plan plan = PlanRepair(raw_.image(), Now());
    if (!plan.possible) {
      throw Failure("cannot repair " + path, plan.problem + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")", "",
                    ORB_ERROR_DAMAGED_VOLUME);
    }
    if (plan.BreaksPromise()) {
      Report("warning: the repair would cost files that can be read without it; see which with: orba repair -n " +
             ShellWord(path));
    } else if (!plan.IsComplete()) {
      Report("warning: not all of the damage to " + path + " can be repaired");
    }
    for (const inspect::Action& action : plan.actions) {
      for (const inspect::Write& write : action.writes) {
        repaired_.Write(write.offset, write.bytes.data(), write.bytes.size());
      }
    }
    tree_ = std::make_unique<mount::ContainerTree>(repaired_);
  }
  mount::Tree* tree() override { return tree_.get(); }
  bool readOnly() const override { return true; }

 private:
  RawContainer raw_;
  inspect::PatchedImage repaired_;
  std::unique_ptr<mount::ContainerTree> tree_;
};

// ---- mount ----------------------------------------------------------------------------------------------------------

struct MountOptions {
  std::string container;
  std::string folder;
  std::string words;  // of -o
  bool readOnly = false;
  bool repaired = false;
  bool foreground = false;
};

constexpr const char* kOnlyRead = "it is mounted read-only";

// Why a container is not to be written to, as its bytes have it; empty when nothing speaks against it. Throws a Failure
// for one that cannot even be read.
std::string ReasonNotToWrite(const std::string& path) {
  const RawContainer raw(path);
  const inspect::Report report = inspect::Check(raw.image());
  const VolumeHeader& header = report.model.header;
  if (header.signature == kVolumeSignature && header.version != kVolumeVersion) {
    throw LibraryFailure("cannot open " + path, path, ORB_ERROR_WRONG_VERSION);
  }
  if (report.marked) return "is marked: an update of it was interrupted";
  return report.Worst() > inspect::Severity::kLeak || !report.readable ? "is damaged" : "";
}

std::unique_ptr<Mounted> OpenToWrite(const Address& root) {
  try {
    return std::make_unique<MountedVolume>(root);
  } catch (const Failure& failure) {
    if (failure.code() != ORB_ERROR_ACCESS_DENIED && failure.code() != ORB_ERROR_WRITE_PROTECTED) throw;
  }
  Report("warning: " + root.container + " cannot be written to; " + kOnlyRead);
  return std::make_unique<MountedContainer>(root.container);
}

// Fails as the library does where there is no file.
void RequireContainer(const std::string& path) {
  const host::Status status = host::StatusOf(path);
  if (status.kind == host::Kind::kFile) return;
  const bool missing = status.kind == host::Kind::kNothing;
  const bool noFolder = missing && !IsHostDirectory(ParentOf(path));
  Address address;
  address.container = address.written = path;
  throw MountFailure(address,
                     noFolder  ? ORB_ERROR_PATH_NOT_FOUND
                     : missing ? ORB_ERROR_FILE_NOT_FOUND
                               : ORB_ERROR_ACCESS_DENIED,
                     status);
}

std::unique_ptr<Mounted> Open(const MountOptions& options) {
  const std::string path = ParseContainer(options.container);
  RequireContainer(path);
  if (options.repaired) return std::make_unique<RepairedContainer>(path);
  const std::string reason = ReasonNotToWrite(path);
  std::unique_ptr<Mounted> container;
  if (options.readOnly || !reason.empty()) container = std::make_unique<MountedContainer>(path);
  if (!reason.empty()) {
    Report("warning: " + path + " " + reason + "; " + kOnlyRead + "\n      see the damage with: orba check " +
           ShellWord(path) + "\n      mend it with: orba repair " + ShellWord(path));
  }
  return container != nullptr ? std::move(container) : OpenToWrite(ParseAddress(options.container));
}

void RequireLibrary() {
  if (mount::IsAvailable()) return;
  throw Failure("cannot mount or unmount anything", "this build of orba has no libfuse 3",
                "on Linux, install libfuse3-dev and build it again; elsewhere use: orba get");
}

std::uint32_t NumberOf(const std::string& word, const std::string& text, int base) {
  const bool digits =
      !text.empty() && text.find_first_not_of(base == 8 ? "01234567" : "0123456789") == std::string::npos;
  if (!digits || text.size() > 9) throw UsageFailure("mount", "-o " + word + " takes a number, not \"" + text + "\"");
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, base));
}

// Takes what -o was given apart: words that concern the tool, and those for libfuse and the kernel.
void TakeWords(MountOptions* options, mount::Settings* settings) {
  std::size_t start = 0;
  while (start < options->words.size()) {
    const std::size_t end = std::min(options->words.find(',', start), options->words.size());
    const std::string word = options->words.substr(start, end - start);
    const std::size_t equals = std::min(word.find('='), word.size());
    const std::string name = word.substr(0, equals);
    const std::string value = equals < word.size() ? word.substr(equals + 1) : "";
    start = end + 1;
    if (name == "ro") {
      options->readOnly = true;
    } else if (name == "repaired") {
      options->repaired = true;
    } else if (name == "uid") {
      settings->user = NumberOf(name, value, 10);
    } else if (name == "gid") {
      settings->group = NumberOf(name, value, 10);
    } else if (name == "umask") {
      settings->mask = NumberOf(name, value, 8) & 0777;
    } else if (!word.empty() && name != "rw") {
      settings->options.push_back(word);
    }
  }
}

void RequireFolder(const std::string& folder) {
  const std::string what = "cannot mount at " + folder;
  const host::Kind kind = host::StatusOf(folder).kind;
  if (kind == host::Kind::kNothing) {
    const int error = errno;
    throw HostFailure(what, error,
                      error == ENOTCONN
                          ? "the program that served it has gone; clear it with: orba umount " + ShellWord(folder)
                          : "make it with: mkdir " + ShellWord(folder));
  }
  if (kind != host::Kind::kDirectory) throw Failure(what, "it is not a folder but " + KindText(kind), "use a folder");
}

// Serves the folder until it is unmounted.
void ServeFolder(const MountOptions& options, mount::Settings settings) {
  const std::unique_ptr<Mounted> mounted = Open(options);
  settings.readOnly = mounted->readOnly();
  const std::string problem = mount::Serve(mounted->tree(), settings, [&options] {
    CheckInterrupt();
    if (options.foreground) return;
    mount::LogToSystem();
    mount::Leave();
  });
  if (!problem.empty()) {
    throw Failure("cannot mount " + options.container + " at " + options.folder, problem, "");
  }
  try {
    mounted->Close();
  } catch (const Failure& failure) {
    mount::Log(failure.what());
    throw;
  }
}

int RunMount(MountOptions options) {
  RequireLibrary();
  mount::Settings settings = mount::OwnSettings();
  TakeWords(&options, &settings);
  const std::string path = ParseContainer(options.container);
  RequireFolder(options.folder);
  settings.folder = options.folder;
  settings.source = host::RealPath(path);
  if (!options.foreground && !mount::GoToBackground()) throw HostFailure("cannot go to the background", errno);
  ServeFolder(options, settings);
  return kSuccess;
}

Run DefineMount(Syntax* syntax) {
  auto options = std::make_shared<MountOptions>();
  syntax->Flag("-r,--read-only", &options->readOnly, "change nothing; others may read the container meanwhile");
  syntax->Flag("--repaired", &options->repaired, "as it would be after orba repair, read-only; nothing is repaired");
  syntax->Flag("-f,--foreground", &options->foreground,
               "serve the folder from here, until Ctrl-C; log on standard error");
  syntax->Text("-o", "WORDS", &options->words,
               "as of mount(8): ro, repaired, uid=N, gid=N, umask=N, allow_other and the like, commas between them");
  syntax->One("CONTAINER", &options->container);
  syntax->One("FOLDER", &options->folder);
  return [options] { return RunMount(*options); };
}

// ---- umount ---------------------------------------------------------------------------------------------------------

// The program that served the folder closes the container after the folder has gone.
void AwaitRelease(const std::string& container) {
  constexpr std::chrono::seconds kLongest(30);
  const auto end = std::chrono::steady_clock::now() + kLongest;
  for (;;) {
    const Descriptor file(host::OpenForReading(container, host::Share::kReaders));
    if (file.get() >= 0 || errno != EBUSY || std::chrono::steady_clock::now() > end) return;
    host::Pause(5);
    CheckInterrupt();
  }
}

struct UnmountOptions {
  std::string folder;
  bool lazy = false;
};

int RunUnmount(const UnmountOptions& options) {
  RequireLibrary();
  const std::string what = "cannot unmount " + options.folder;
  const std::string container = mount::ContainerAt(options.folder);
  if (container.empty()) throw Failure(what, "no container is mounted there", "see what is with: findmnt -t fuse.orba");
  const std::string problem = mount::Unmount(options.folder, options.lazy);
  if (!problem.empty()) {
    throw Failure(what, problem,
                  "see who uses it with: fuser -vm " + ShellWord(options.folder) +
                      "\nor let it go as soon as nobody does, with: --lazy");
  }
  if (!options.lazy) AwaitRelease(container);
  return kSuccess;
}

Run DefineUnmount(Syntax* syntax) {
  auto options = std::make_shared<UnmountOptions>();
  syntax->Flag("-l,--lazy", &options->lazy, "take it out of sight now, and close it when nobody uses it any more");
  syntax->One("FOLDER", &options->folder);
  return [options] { return RunUnmount(*options); };
}

}  // namespace

const Command kMountCommand = {
    "mount",
    kTransferGroup,
    "CONTAINER FOLDER",
    "show a container as a folder",
    "Everything that works on folders works on the container then: shells, editors, file managers, rsync. Returns as "
    "soon as the folder can be used; orba umount ends it.\n\n"
    "A container that is marked or damaged, and one that cannot be written to, is mounted read-only, with a warning, "
    "and what cannot be read fails with an input/output error. --repaired shows it as a repair would leave it. "
    "Neither changes a byte of it.\n\n"
    "Names follow the rule below. Others are refused, with a line in the system's log. A file is read-only when its "
    "owner may not write; other permissions, owners and times that are set do not last. The extended attribute "
    "user.orba.attributes holds r and u as attrib shows them. Links cannot be made. What was written to a file is on "
    "the disk when the file is closed, or at fsync.",
    "orba mount card.orb /mnt/card\n"
    "orba mount --repaired damaged.orb /mnt/card  # look before you repair\n"
    "orba mount -f -o umask=077 card.orb /mnt/card",
    DefineMount,
};

const Command kUnmountCommand = {
    "umount",
    kTransferGroup,
    "FOLDER",
    "end what mount began",
    "Returns when the container is closed and others can open it. Refused while the folder is in use.",
    "orba umount /mnt/card",
    DefineUnmount,
};

}  // namespace orba::tool
