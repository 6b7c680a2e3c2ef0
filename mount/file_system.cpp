#include "mount/file_system.h"

#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <unordered_map>
#include <utility>

#include "mount/log.h"

namespace orba::mount {

namespace {

constexpr double kForever = 1e6;  // seconds that the kernel may keep what does not change behind its back
constexpr std::uint64_t kReader = 0, kWriter = 1;  // what an open file's handle says
constexpr const char* kPrefix = "user.orba.";
constexpr const char* kAttributes = "user.orba.attributes";

// What a directory held when it was opened, "." and ".." first.
struct OpenDirectory {
  std::vector<Child> children;
  int error;  // behind the last
};

struct Served {
  Tree* tree;
  const Settings& settings;
  std::unordered_map<std::uint64_t, OpenDirectory> directories = {};  // by handle
  std::uint64_t lastDirectory = 0;
};

// What one request is about.
struct Request {
  explicit Request(fuse_req_t request)
      : handle(request), served(static_cast<Served*>(fuse_req_userdata(request))), tree(served->tree) {}

  fuse_req_t handle;
  Served* served;
  Tree* tree;
};

// Does the work of a request, which answers it and returns 0, or returns an error to answer with.
template <typename Work>
void Answer(fuse_req_t handle, const Work& work) {
  int error = ENOMEM;
  try {
    error = work(Request(handle));
  } catch (const std::bad_alloc&) {
    // Said by the error.
  }
  if (error != 0) fuse_reply_err(handle, error);
}

// ---- Attributes -----------------------------------------------------------------------------------------------------

struct stat StatOf(const Request& request, const Status& status) {
  const Settings& settings = request.served->settings;
  struct stat result = {};
  result.st_ino = status.inode;
  const bool readOnly = (status.attributes & kReadOnlyAttribute) != 0 && !status.directory;
  const mode_t permissions = (status.directory ? 0777u : readOnly ? 0444u : 0666u) & ~settings.mask;
  result.st_mode = permissions | static_cast<mode_t>(status.directory ? S_IFDIR : S_IFREG);
  result.st_nlink = status.nameless ? 0 : 1;  // of a directory as well: how many lie in it is not known
  result.st_uid = settings.user;
  result.st_gid = settings.group;
  result.st_size = status.size;
  result.st_blksize = 4096;
  result.st_blocks = (status.size + 511) / 512;
  result.st_mtim.tv_sec = result.st_atim.tv_sec = result.st_ctim.tv_sec = status.changed;
  return result;
}

fuse_entry_param EntryOf(const Request& request, const Status& status) {
  fuse_entry_param entry = {};
  entry.ino = status.inode;
  entry.attr = StatOf(request, status);
  entry.attr_timeout = kForever;
  entry.entry_timeout = request.served->settings.readOnly ? kForever : 0;
  return entry;
}

int ReplyStatus(const Request& request, fuse_ino_t inode) {
  Status status;
  const int error = request.tree->Get(inode, &status);
  if (error != 0) return error;
  const struct stat result = StatOf(request, status);
  fuse_reply_attr(request.handle, &result, kForever);
  return 0;
}

// "r-": read-only, and not the user's own.
std::string AttributeText(std::uint32_t attributes) {
  return std::string((attributes & kReadOnlyAttribute) != 0 ? "r" : "-") +
         ((attributes & kUserAttribute) != 0 ? "u" : "-");
}

std::optional<std::uint32_t> AttributesIn(const std::string& text) {
  std::uint32_t attributes = 0;
  for (const char c : text) {
    if (c != 'r' && c != 'u' && c != '-') return std::nullopt;
    if (c != '-') attributes |= c == 'r' ? kReadOnlyAttribute : kUserAttribute;
  }
  return attributes;
}

int ChangeAttributes(const Request& request, fuse_ino_t inode, std::uint32_t bit, bool on) {
  Status status;
  const int error = request.tree->Get(inode, &status);
  if (error != 0) return error;
  if (status.directory || ((status.attributes & bit) != 0) == on) return 0;
  return request.tree->SetAttributes(inode, status.attributes ^ bit);
}

// Times are the container's own business: those that are set are taken and forgotten.
int Change(const Request& request, fuse_ino_t inode, const struct stat& wanted, int which) {
  const Settings& settings = request.served->settings;
  if ((which & FUSE_SET_ATTR_UID) != 0 && wanted.st_uid != settings.user) return EPERM;
  if ((which & FUSE_SET_ATTR_GID) != 0 && wanted.st_gid != settings.group) return EPERM;
  if ((which & FUSE_SET_ATTR_SIZE) != 0) {
    const int error = request.tree->Resize(inode, static_cast<std::uint64_t>(wanted.st_size));
    if (error != 0) return error;
  }
  if ((which & FUSE_SET_ATTR_MODE) == 0) return 0;
  return ChangeAttributes(request, inode, kReadOnlyAttribute, (wanted.st_mode & S_IWUSR) == 0);
}

void OnForget(fuse_req_t handle, fuse_ino_t inode, std::uint64_t /*count*/) {
  Request(handle).tree->Forget(inode);
  fuse_reply_none(handle);
}

void OnForgetMany(fuse_req_t handle, std::size_t count, fuse_forget_data* forgotten) {
  const Request request(handle);
  for (std::size_t i = 0; i < count; ++i) request.tree->Forget(forgotten[i].ino);
  fuse_reply_none(handle);
}

void OnGetStatus(fuse_req_t handle, fuse_ino_t inode, fuse_file_info* /*file*/) {
  Answer(handle, [&](const Request& request) { return ReplyStatus(request, inode); });
}

void OnSetStatus(fuse_req_t handle, fuse_ino_t inode, struct stat* wanted, int which, fuse_file_info* /*file*/) {
  Answer(handle, [&](const Request& request) {
    const int error = Change(request, inode, *wanted, which);
    return error != 0 ? error : ReplyStatus(request, inode);
  });
}

// ---- Extended attributes --------------------------------------------------------------------------------------------

int ListRemarks(const Request& request, fuse_ino_t inode, std::vector<Remark>* remarks) {
  Status status;
  const int error = request.tree->Get(inode, &status);
  if (error != 0) return error;
  if (!status.directory) remarks->push_back({"attributes", AttributeText(status.attributes)});
  return request.tree->Remarks(inode, remarks);
}

int ReplyText(const Request& request, const std::string& text, std::size_t room) {
  if (room == 0) {
    fuse_reply_xattr(request.handle, text.size());
    return 0;
  }
  if (text.size() > room) return ERANGE;
  fuse_reply_buf(request.handle, text.data(), text.size());
  return 0;
}

void OnGetRemark(fuse_req_t handle, fuse_ino_t inode, const char* name, std::size_t room) {
  Answer(handle, [&](const Request& request) {
    if (std::strncmp(name, kPrefix, std::strlen(kPrefix)) != 0) return ENODATA;
    std::vector<Remark> remarks;
    const int error = ListRemarks(request, inode, &remarks);
    if (error != 0) return error;
    for (const Remark& remark : remarks) {
      if (kPrefix + remark.name == name) return ReplyText(request, remark.text, room);
    }
    return ENODATA;
  });
}

void OnListRemarks(fuse_req_t handle, fuse_ino_t inode, std::size_t room) {
  Answer(handle, [&](const Request& request) {
    std::vector<Remark> remarks;
    const int error = ListRemarks(request, inode, &remarks);
    if (error != 0) return error;
    std::string names;
    for (const Remark& remark : remarks) names += kPrefix + remark.name + std::string(1, '\0');
    return ReplyText(request, names, room);
  });
}

void OnSetRemark(fuse_req_t handle, fuse_ino_t inode, const char* name, const char* value, std::size_t size,
                 int flags) {
  Answer(handle, [&](const Request& request) {
    if (std::strcmp(name, kAttributes) != 0) return EOPNOTSUPP;
    if ((flags & XATTR_CREATE) != 0) return EEXIST;
    const std::optional<std::uint32_t> attributes = AttributesIn({value, size});
    if (!attributes.has_value()) return EINVAL;
    Status status;
    int error = request.tree->Get(inode, &status);
    if (error == 0 && status.directory) error = EOPNOTSUPP;
    if (error == 0 && status.attributes != *attributes) error = request.tree->SetAttributes(inode, *attributes);
    if (error == 0) fuse_reply_err(handle, 0);
    return error;
  });
}

void OnRemoveRemark(fuse_req_t handle, fuse_ino_t /*inode*/, const char* name) {
  fuse_reply_err(handle, std::strncmp(name, kPrefix, std::strlen(kPrefix)) == 0 ? EOPNOTSUPP : ENODATA);
}

// ---- Names ----------------------------------------------------------------------------------------------------------

void OnLookUp(fuse_req_t handle, fuse_ino_t directory, const char* name) {
  Answer(handle, [&](const Request& request) {
    Status status;
    const int error = request.tree->Find(directory, name, &status);
    if (error != 0) return error;
    const fuse_entry_param entry = EntryOf(request, status);
    fuse_reply_entry(handle, &entry);
    return 0;
  });
}

// A file that is to have no permission for writing is read-only.
int Make(const Request& request, fuse_ino_t directory, const char* name, mode_t mode, Status* status) {
  const int error = request.tree->Create(directory, name, S_ISDIR(mode), status);
  if (error != 0 || S_ISDIR(mode) || (mode & S_IWUSR) != 0) return error;
  status->attributes |= kReadOnlyAttribute;
  return 0;
}

int ReplyMade(const Request& request, const Status& status) {
  const fuse_entry_param entry = EntryOf(request, status);
  fuse_reply_entry(request.handle, &entry);
  return 0;
}

void OnMakeNode(fuse_req_t handle, fuse_ino_t directory, const char* name, mode_t mode, dev_t /*device*/) {
  Answer(handle, [&](const Request& request) {
    if (!S_ISREG(mode)) return EPERM;
    Status status;
    int error = Make(request, directory, name, mode, &status);
    if (error == 0 && status.attributes != 0) error = request.tree->SetAttributes(status.inode, status.attributes);
    return error != 0 ? error : ReplyMade(request, status);
  });
}

void OnMakeDirectory(fuse_req_t handle, fuse_ino_t directory, const char* name, mode_t mode) {
  Answer(handle, [&](const Request& request) {
    Status status;
    const int error = Make(request, directory, name, mode | S_IFDIR, &status);
    return error != 0 ? error : ReplyMade(request, status);
  });
}

// The file is opened before it becomes read-only: whoever makes a file may write to it.
void OnCreate(fuse_req_t handle, fuse_ino_t directory, const char* name, mode_t mode, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    Status status;
    int error = Make(request, directory, name, mode | S_IFREG, &status);
    if (error != 0) return error;
    const bool writes = (file->flags & O_ACCMODE) != O_RDONLY;
    error = request.tree->Open(status.inode, writes);
    if (error == 0 && status.attributes != 0) error = request.tree->SetAttributes(status.inode, status.attributes);
    if (error != 0) return error;
    file->fh = writes ? kWriter : kReader;
    file->keep_cache = 1;
    const fuse_entry_param entry = EntryOf(request, status);
    if (fuse_reply_create(handle, &entry, file) == -ENOENT) request.tree->Close(status.inode, writes);
    return 0;
  });
}

void OnRemove(fuse_req_t handle, fuse_ino_t directory, const char* name) {
  Answer(handle, [&](const Request& request) {
    const int error = request.tree->Remove(directory, name);
    if (error == 0) fuse_reply_err(handle, 0);
    return error;
  });
}

void OnRename(fuse_req_t handle, fuse_ino_t from, const char* name, fuse_ino_t to, const char* newName,
              unsigned flags) {
  Answer(handle, [&](const Request& request) {
    if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0) return EINVAL;
    const int error = request.tree->Rename(from, name, to, newName, flags == 0);
    if (error == 0) fuse_reply_err(handle, 0);
    return error;
  });
}

void OnMakeLink(fuse_req_t handle, fuse_ino_t /*inode*/, fuse_ino_t /*directory*/, const char* /*name*/) {
  fuse_reply_err(handle, EPERM);
}

void OnMakeSymbolicLink(fuse_req_t handle, const char* /*target*/, fuse_ino_t /*directory*/, const char* /*name*/) {
  fuse_reply_err(handle, EPERM);
}

// ---- Files ----------------------------------------------------------------------------------------------------------

void OnOpen(fuse_req_t handle, fuse_ino_t inode, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    const bool writes = (file->flags & O_ACCMODE) != O_RDONLY;
    int error = request.tree->Open(inode, writes);
    if (error != 0) return error;
    if ((file->flags & O_TRUNC) != 0) error = request.tree->Resize(inode, 0);
    if (error != 0) {
      request.tree->Close(inode, writes);
      return error;
    }
    file->fh = writes ? kWriter : kReader;
    file->keep_cache = 1;
    if (fuse_reply_open(handle, file) == -ENOENT) request.tree->Close(inode, writes);
    return 0;
  });
}

void OnRelease(fuse_req_t handle, fuse_ino_t inode, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    request.tree->Close(inode, file->fh == kWriter);
    fuse_reply_err(handle, 0);
    return 0;
  });
}

void OnRead(fuse_req_t handle, fuse_ino_t inode, std::size_t count, off_t position, fuse_file_info* /*file*/) {
  Answer(handle, [&](const Request& request) {
    const std::unique_ptr<char[]> bytes(new char[count]);
    std::size_t done = 0;
    const int error = request.tree->Read(inode, static_cast<std::uint64_t>(position), bytes.get(), count, &done);
    if (error == 0) fuse_reply_buf(handle, bytes.get(), done);
    return error;
  });
}

void OnWrite(fuse_req_t handle, fuse_ino_t inode, const char* bytes, std::size_t count, off_t position,
             fuse_file_info* /*file*/) {
  Answer(handle, [&](const Request& request) {
    std::size_t done = 0;
    const int error = request.tree->Write(inode, static_cast<std::uint64_t>(position), bytes, count, &done);
    if (error == 0) fuse_reply_write(handle, done);
    return error;
  });
}

int ReplySynced(const Request& request) {
  const int error = request.tree->Sync();
  if (error == 0) fuse_reply_err(request.handle, 0);
  return error;
}

// One of those who have the file open closes it.
void OnClose(fuse_req_t handle, fuse_ino_t /*inode*/, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    if (file->fh == kWriter) return ReplySynced(request);
    fuse_reply_err(handle, 0);
    return 0;
  });
}

void OnSync(fuse_req_t handle, fuse_ino_t /*inode*/, int /*dataOnly*/, fuse_file_info* /*file*/) {
  Answer(handle, [&](const Request& request) { return ReplySynced(request); });
}

void OnAllocate(fuse_req_t handle, fuse_ino_t inode, int mode, off_t position, off_t length, fuse_file_info* /*file*/) {
  Answer(handle, [&](const Request& request) {
    if (mode != 0) return EOPNOTSUPP;
    Status status;
    int error = request.tree->Get(inode, &status);
    const auto end = static_cast<std::uint64_t>(position) + static_cast<std::uint64_t>(length);
    if (error == 0 && end > status.size) error = request.tree->Resize(inode, end);
    if (error == 0) fuse_reply_err(handle, 0);
    return error;
  });
}

// ---- Directories ----------------------------------------------------------------------------------------------------

void OnOpenDirectory(fuse_req_t handle, fuse_ino_t inode, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    OpenDirectory directory = {{{".", true, inode}, {"..", true, inode}}, 0};
    directory.error = request.tree->List(inode, &directory.children);
    if (directory.error != 0 && directory.children.size() == 2) return directory.error;
    Served& served = *request.served;
    file->fh = ++served.lastDirectory;
    file->keep_cache = served.settings.readOnly ? 1 : 0;
    served.directories.emplace(file->fh, std::move(directory));
    if (fuse_reply_open(handle, file) == -ENOENT) served.directories.erase(file->fh);
    return 0;
  });
}

void OnReadDirectory(fuse_req_t handle, fuse_ino_t /*inode*/, std::size_t room, off_t position, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    const OpenDirectory& directory = request.served->directories.at(file->fh);
    std::vector<char> bytes(room);
    std::size_t used = 0;
    auto at = static_cast<std::size_t>(position);
    for (; at < directory.children.size(); ++at) {
      const Child& child = directory.children[at];
      struct stat status = {};
      status.st_ino = child.inode;
      status.st_mode = child.directory ? S_IFDIR : S_IFREG;
      const std::size_t size = fuse_add_direntry(handle, bytes.data() + used, room - used, child.name.c_str(), &status,
                                                 static_cast<off_t>(at + 1));
      if (size > room - used) break;
      used += size;
    }
    if (used == 0 && at >= directory.children.size() && directory.error != 0) return directory.error;
    fuse_reply_buf(handle, bytes.data(), used);
    return 0;
  });
}

void OnReleaseDirectory(fuse_req_t handle, fuse_ino_t /*inode*/, fuse_file_info* file) {
  Answer(handle, [&](const Request& request) {
    request.served->directories.erase(file->fh);
    fuse_reply_err(handle, 0);
    return 0;
  });
}

void OnMeasure(fuse_req_t handle, fuse_ino_t /*inode*/) {
  Answer(handle, [&](const Request& request) {
    Space space;
    const int error = request.tree->Measure(&space);
    if (error != 0) return error;
    struct statvfs result = {};
    result.f_bsize = result.f_frsize = space.blockSize;
    result.f_blocks = space.blocks;
    result.f_bfree = result.f_bavail = space.free;
    result.f_files = space.nodes;
    result.f_ffree = result.f_favail = space.freeNodes;
    result.f_namemax = kLongestName;
    fuse_reply_statfs(handle, &result);
    return 0;
  });
}

void OnBegin(void* /*served*/, fuse_conn_info* connection) {
  // The kernel need not guess from sizes and times whether contents have changed: only through it they do. Nor does it
  // gain by asking for attributes with the names, as it has to ask for each name again.
  connection->want &= ~static_cast<unsigned>(FUSE_CAP_AUTO_INVAL_DATA | FUSE_CAP_READDIRPLUS);
}

fuse_lowlevel_ops Operations() {
  fuse_lowlevel_ops operations = {};
  operations.init = OnBegin;
  operations.lookup = OnLookUp;
  operations.forget = OnForget;
  operations.forget_multi = OnForgetMany;
  operations.getattr = OnGetStatus;
  operations.setattr = OnSetStatus;
  operations.mknod = OnMakeNode;
  operations.mkdir = OnMakeDirectory;
  operations.unlink = OnRemove;
  operations.rmdir = OnRemove;
  operations.symlink = OnMakeSymbolicLink;
  operations.link = OnMakeLink;
  operations.rename = OnRename;
  operations.create = OnCreate;
  operations.open = OnOpen;
  operations.read = OnRead;
  operations.write = OnWrite;
  operations.flush = OnClose;
  operations.release = OnRelease;
  operations.fsync = OnSync;
  operations.fallocate = OnAllocate;
  operations.opendir = OnOpenDirectory;
  operations.readdir = OnReadDirectory;
  operations.releasedir = OnReleaseDirectory;
  operations.fsyncdir = OnSync;
  operations.statfs = OnMeasure;
  operations.setxattr = OnSetRemark;
  operations.getxattr = OnGetRemark;
  operations.listxattr = OnListRemarks;
  operations.removexattr = OnRemoveRemark;
  return operations;
}

// ---- Serving --------------------------------------------------------------------------------------------------------

std::string* g_complaints = nullptr;  // of libfuse, while it mounts

std::string InOneLine(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n')) text.replace(at, 1, "; ");
  return text;
}

void TakeComplaint(fuse_log_level level, const char* format, va_list arguments) {
  if (level > FUSE_LOG_WARNING) return;
  char line[512];
  std::vsnprintf(line, sizeof line, format, arguments);
  if (g_complaints != nullptr) {
    *g_complaints += line;  // which may be a part of one
  } else {
    Log(InOneLine(line));
  }
}

std::string Escaped(const std::string& value) {
  std::string escaped;
  for (const char c : value) escaped += (c == ',' || c == '\\' ? "\\" : "") + std::string(1, c);
  return escaped;
}

class Session {
 public:
  Session(Served* served) {
    const Settings& settings = served->settings;
    std::string options = "default_permissions,subtype=orba,fsname=" + Escaped(settings.source);
    if (settings.readOnly) options += ",ro";
    for (const std::string& option : settings.options) options += "," + option;
    for (const char* const word : {"orba", "-o", options.c_str()}) fuse_opt_add_arg(&arguments_, word);
    static const fuse_lowlevel_ops operations = Operations();
    session_ = fuse_session_new(&arguments_, &operations, sizeof operations, served);
  }
  ~Session() {
    if (handles_) fuse_remove_signal_handlers(session_);
    if (mounted_) fuse_session_unmount(session_);
    if (session_ != nullptr) fuse_session_destroy(session_);
    fuse_opt_free_args(&arguments_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool Mount(const std::string& folder) {
    if (session_ == nullptr || fuse_session_mount(session_, folder.c_str()) != 0) return false;
    mounted_ = true;
    // libfuse takes over only those signals that have no handler yet.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction action = {};
      sigaction(signal, nullptr, &action);
      if (action.sa_handler != SIG_IGN) std::signal(signal, SIG_DFL);
    }
    handles_ = fuse_set_signal_handlers(session_) == 0;
    return handles_;
  }

  // Until the folder is unmounted or a signal comes; false where the kernel's requests cannot be read.
  bool Loop() { return fuse_session_loop(session_) >= 0; }

 private:
  fuse_args arguments_ = FUSE_ARGS_INIT(0, nullptr);
  fuse_session* session_ = nullptr;
  bool mounted_ = false;
  bool handles_ = false;
};

}  // namespace

bool IsAvailable() { return true; }

Settings OwnSettings() {
  Settings settings;
  settings.user = geteuid();
  settings.group = getegid();
  settings.mask = umask(0);
  umask(settings.mask);
  return settings;
}

std::string Serve(Tree* tree, const Settings& settings, const std::function<void()>& mounted) {
  std::string complaints;
  g_complaints = &complaints;
  fuse_set_log_func(TakeComplaint);
  Served served = {tree, settings};
  Session session(&served);
  const bool done = session.Mount(settings.folder);
  g_complaints = nullptr;
  if (!done) return complaints.empty() ? "fusermount3 refuses, for the reason above" : InOneLine(complaints);
  mounted();
  if (session.Loop()) return "";
  Log(settings.folder + ": the kernel's requests cannot be read any more");
  return "the kernel's requests cannot be read";
}

}  // namespace orba::mount
