// ext2 in a host file, through libext2fs: 4 KiB blocks, no journal, no lazy tricks.
#include <ext2fs/ext2_fs.h>
#include <ext2fs/ext2fs.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "bench/backend.h"

namespace bench {
namespace {

constexpr char kImage[] = "bench.ext2";
constexpr blk64_t kBlocks = 40960;  // 160 MiB
constexpr __u32 kInodes = 8192;

void Check(errcode_t code, const char* what) {
  if (code != 0) std::fprintf(stderr, "ext2: %s\n", error_message(code));
  Require(code == 0, what);
}

class Ext2 : public Backend {
 public:
  Ext2() = default;
  ~Ext2() override { std::remove(kImage); }
  Ext2(const Ext2&) = delete;
  Ext2& operator=(const Ext2&) = delete;

  void FormatAndMount() override {
    std::remove(kImage);
    std::ofstream(kImage, std::ios::binary).close();
    std::filesystem::resize_file(kImage, kBlocks * 4096);  // a hole: the inode tables are zeros
    ext2_super_block parameters = {};
    parameters.s_log_block_size = 2;
    parameters.s_rev_level = EXT2_DYNAMIC_REV;
    parameters.s_inodes_count = kInodes;
    parameters.s_feature_incompat = EXT2_FEATURE_INCOMPAT_FILETYPE;
    ext2fs_blocks_count_set(&parameters, kBlocks);
    Check(ext2fs_initialize(kImage, EXT2_FLAG_RW, &parameters, unix_io_manager, &fs_), "formatting");
    Check(ext2fs_allocate_tables(fs_), "allocating tables");
    for (ext2_ino_t inode = 1; inode < EXT2_FIRST_INODE(fs_->super); ++inode) {
      if (inode != EXT2_ROOT_INO) ext2fs_inode_alloc_stats2(fs_, inode, 1, 0);
    }
    Check(ext2fs_mkdir(fs_, EXT2_ROOT_INO, EXT2_ROOT_INO, nullptr), "making the root");
    Check(ext2fs_close_free(&fs_), "closing");
    Mount();
  }
  void Mount() override {
    Check(ext2fs_open(kImage, EXT2_FLAG_RW, 0, 4096, unix_io_manager, &fs_), "mounting");
    Check(ext2fs_read_bitmaps(fs_), "reading the bitmaps");
  }
  void Unmount() override { Check(ext2fs_close_free(&fs_), "unmounting"); }

  void Create(const std::string& name) override { NewInode(name); }
  void CreateWith(const std::string& name, const void* bytes, size_t count) override {
    OpenNew(name, count);
    Write(bytes, count);
    Close();
  }
  void LookUp(const std::string& name) override {
    ext2_inode inode;
    Check(ext2fs_read_inode(fs_, InodeOf(name), &inode), "looking up");
  }
  void Rename(const std::string& from, const std::string& to) override {
    const ext2_ino_t inode = InodeOf(from);
    Link(to, inode);
    Check(ext2fs_unlink(fs_, EXT2_ROOT_INO, from.c_str(), inode, 0), "renaming");
  }
  void Delete(const std::string& name) override {
    const ext2_ino_t number = InodeOf(name);
    Check(ext2fs_unlink(fs_, EXT2_ROOT_INO, name.c_str(), number, 0), "deleting");
    ext2_inode inode;
    Check(ext2fs_read_inode(fs_, number, &inode), "deleting");
    Check(ext2fs_punch(fs_, number, &inode, nullptr, 0, ~0ULL), "freeing blocks");
    inode.i_links_count = 0;
    inode.i_dtime = static_cast<__u32>(std::time(nullptr));
    Check(ext2fs_write_inode(fs_, number, &inode), "deleting");
    ext2fs_inode_alloc_stats2(fs_, number, -1, 0);
  }
  size_t Enumerate() override {
    Listing listing = {fs_, 0};
    Check(ext2fs_dir_iterate(fs_, EXT2_ROOT_INO, 0, nullptr, CountFile, &listing), "listing");
    return listing.files;
  }

  void OpenNew(const std::string& name, size_t) override { OpenInode(NewInode(name)); }
  void Open(const std::string& name) override { OpenInode(InodeOf(name)); }
  void Seek(size_t position) override { Check(ext2fs_file_llseek(file_, position, EXT2_SEEK_SET, nullptr), "seeking"); }
  void Read(void* bytes, size_t count) override {
    unsigned done = 0;
    Check(ext2fs_file_read(file_, bytes, static_cast<unsigned>(count), &done), "reading");
    Require(done == count, "reading");
  }
  void Write(const void* bytes, size_t count) override {
    unsigned done = 0;
    Check(ext2fs_file_write(file_, bytes, static_cast<unsigned>(count), &done), "writing");
    Require(done == count, "writing");
  }
  void Close() override { Check(ext2fs_file_close(file_), "closing"); }

 private:
  struct Listing {
    ext2_filsys fs;
    size_t files;
  };

  static int CountFile(ext2_dir_entry* entry, int, int, char*, void* context) {
    auto* const listing = static_cast<Listing*>(context);
    ext2_inode inode;
    Check(ext2fs_read_inode(listing->fs, entry->inode, &inode), "listing");
    if (LINUX_S_ISREG(inode.i_mode)) ++listing->files;
    return 0;
  }

  ext2_ino_t InodeOf(const std::string& name) const {
    ext2_ino_t inode = 0;
    Check(ext2fs_lookup(fs_, EXT2_ROOT_INO, name.c_str(), static_cast<int>(name.size()), nullptr, &inode),
          "looking up");
    return inode;
  }

  void Link(const std::string& name, ext2_ino_t inode) {
    errcode_t code = ext2fs_link(fs_, EXT2_ROOT_INO, name.c_str(), inode, EXT2_FT_REG_FILE);
    if (code == EXT2_ET_DIR_NO_SPACE) {
      Check(ext2fs_expand_dir(fs_, EXT2_ROOT_INO), "growing the directory");
      code = ext2fs_link(fs_, EXT2_ROOT_INO, name.c_str(), inode, EXT2_FT_REG_FILE);
    }
    Check(code, "linking");
  }

  ext2_ino_t NewInode(const std::string& name) {
    ext2_ino_t number = 0;  // the name is looked up first, as whoever creates a file does
    Require(ext2fs_lookup(fs_, EXT2_ROOT_INO, name.c_str(), static_cast<int>(name.size()), nullptr, &number) ==
                EXT2_ET_FILE_NOT_FOUND,
            "creating");
    Check(ext2fs_new_inode(fs_, EXT2_ROOT_INO, LINUX_S_IFREG | 0644, nullptr, &number), "creating");
    Link(name, number);
    ext2fs_inode_alloc_stats2(fs_, number, 1, 0);
    ext2_inode inode = {};
    inode.i_mode = LINUX_S_IFREG | 0644;
    inode.i_links_count = 1;
    inode.i_mtime = inode.i_ctime = inode.i_atime = static_cast<__u32>(std::time(nullptr));
    Check(ext2fs_write_new_inode(fs_, number, &inode), "creating");
    return number;
  }

  void OpenInode(ext2_ino_t inode) { Check(ext2fs_file_open(fs_, inode, EXT2_FILE_WRITE, &file_), "opening"); }

  ext2_filsys fs_ = nullptr;
  ext2_file_t file_ = nullptr;
};

}  // namespace

std::unique_ptr<Backend> MakeExt2() { return std::make_unique<Ext2>(); }

}  // namespace bench
