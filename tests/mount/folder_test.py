"""What a mounted container is like as a folder: names, files, errors, attributes, space."""
import calendar
import ctypes
import errno
import mmap
import os
import stat
import subprocess
import threading
import unittest

from mounted import MountTest


class FolderTest(MountTest):
    def setUp(self):
        super().setUp()
        self.format("card.orb", "-b", "1024", "--nodes", "256")
        self.serve()

    # ---- names

    def test_names_are_stored_in_upper_case_and_found_in_any(self):
        self.at("Readme.txt").write_bytes(b"hello")
        self.at("logs").mkdir()
        self.at("LOGS/day-1.txt").write_bytes(b"one")
        self.assertEqual(self.names(), ["LOGS", "README.TXT"])
        self.assertEqual(self.at("rEADME.TXT").read_bytes(), b"hello")
        self.assertEqual(self.at("logs/DAY-1.txt").read_bytes(), b"one")
        self.assertEqual(os.stat(self.at("README.TXT")).st_ino, os.stat(self.at("readme.txt")).st_ino)

    def test_what_is_done_under_one_spelling_shows_under_every_other(self):
        self.at("A.TXT").write_bytes(b"old")
        self.assertEqual(self.at("a.txt").read_bytes(), b"old")
        self.at("a.txt").write_bytes(b"new")
        self.assertEqual(self.at("A.txt").read_bytes(), b"new")
        self.at("A.TXT").unlink()
        self.assertFalse(self.at("a.txt").exists())
        self.assertFalse(self.at("A.TXT").exists())
        self.at("Dir").mkdir()
        self.at("DIR").rename(self.at("other"))
        self.assertFalse(self.at("dir").exists())
        self.at("OTHER").rmdir()
        self.assertEqual(self.names(), [])

    def test_other_case_of_its_own_name_is_no_new_name(self):
        self.at("a").write_bytes(b"kept")
        os.rename(self.at("a"), self.at("A"))
        self.assertEqual(self.at("a").read_bytes(), b"kept")

    def test_illegal_names_are_refused_and_logged(self):
        for name in ("with blank", "plus+", "ümlaut"):
            self.assertFalse(self.at(name).exists())
            self.fails_with(errno.EINVAL, self.at(name).touch)
            self.fails_with(errno.EINVAL, self.at(name).mkdir)
        self.at("A").touch()
        self.fails_with(errno.EINVAL, os.rename, self.at("A"), self.at("x y"))
        self.fails_with(errno.ENAMETOOLONG, self.at("L" * 30).touch)
        self.at("L" * 29).touch()
        self.assertEqual(self.names(), ["A", "L" * 29])
        self.assertIn("refused the name with blank: names have letters", self.log())
        self.assertIn("refused the name " + "L" * 30 + ": it has more than 29 characters", self.log())
        self.assertEqual(os.statvfs(self.at(".")).f_namemax, 29)

    def test_paths_have_any_length(self):
        path = self.at("/".join(["D" * 29] * 12))
        path.mkdir(parents=True)
        (path / "FILE").write_bytes(b"deep")
        self.assertEqual((path / "file").read_bytes(), b"deep")

    def test_listings_and_look_ups_agree(self):
        for number in range(20):
            self.at(f"F{number}").write_bytes(bytes(number))
        self.at("D").mkdir()
        self.at("F3").unlink()
        self.at("F4").rename(self.at("D/F4"))
        os.truncate(self.at("F5"), 100)
        self.at("F6").write_bytes(b"more than before")
        for folder, count in ((self.at("."), 19), (self.at("D"), 1)):
            entries = list(os.scandir(folder))
            self.assertEqual(len(entries), count)
            for entry in entries:
                found = os.stat(entry.path)
                self.assertEqual((entry.inode(), entry.is_dir()), (found.st_ino, stat.S_ISDIR(found.st_mode)))
        sizes = [os.stat(self.at(name)).st_size for name in ("F2", "D/F4", "F5", "F6", "F19")]
        self.assertEqual(sizes, [2, 4, 100, 16, 19])
        self.fails_with(errno.ENOENT, os.stat, self.at("F3"))
        self.fails_with(errno.ENOENT, os.stat, self.at("F4"))

    # ---- files

    def test_a_file_is_written_anywhere_and_grows_with_zeros(self):
        with open(self.at("F"), "w+b", buffering=0) as file:
            self.assertEqual(os.pwrite(file.fileno(), b"end", 5000), 3)
            self.assertEqual(os.pwrite(file.fileno(), b"begin", 0), 5)
            self.assertEqual(os.pread(file.fileno(), 9000, 0), b"begin" + bytes(4995) + b"end")
            file.truncate(4)
            file.truncate(8)
            os.posix_fallocate(file.fileno(), 0, 10)
        with open(self.at("F"), "ab") as file:
            file.write(b"more")
        self.assertEqual(self.at("f").read_bytes(), b"begi" + bytes(6) + b"more")
        os.truncate(self.at("f"), 0)
        self.assertEqual(os.stat(self.at("F")).st_size, 0)

    def test_a_file_is_open_many_times(self):
        files = [open(self.at("F"), "wb", buffering=0) for _ in range(10)]
        for number, file in enumerate(files):
            os.pwrite(file.fileno(), b"%d" % number, number)
        for file in files:
            file.close()
        self.assertEqual(self.at("F").read_bytes(), b"0123456789")

    def test_more_files_are_open_than_the_library_opens(self):
        files = [open(self.at(f"F{number}"), "w+b", buffering=0) for number in range(200)]
        for number, file in enumerate(files):
            file.write(b"%d" % number)
        for number, file in enumerate(files):
            self.assertEqual(os.pread(file.fileno(), 10, 0), b"%d" % number)
        for file in files:
            file.close()
        self.unmount()
        self.assert_clean()

    def test_an_open_file_outlives_its_name(self):
        with open(self.at("F"), "w+b", buffering=0) as file:
            file.write(b"still")
            self.at("f").unlink()
            self.assertEqual(self.names(), [])
            self.assertEqual(os.fstat(file.fileno()).st_nlink, 0)
            self.at("F").write_bytes(b"another")
            file.write(b" there")
            self.assertEqual(os.pread(file.fileno(), 100, 0), b"still there")
            self.assertEqual(self.at("F").read_bytes(), b"another")
        self.unmount()
        self.assertEqual(self.listing(), ["F"])
        self.assert_clean()

    def test_a_folder_goes_though_a_file_of_it_is_open(self):
        self.at("D").mkdir()
        with open(self.at("D/F"), "w+b", buffering=0) as file:
            self.at("D/F").unlink()
            self.at("D").rmdir()
            file.write(b"x")
            self.assertEqual(os.pread(file.fileno(), 2, 0), b"x")
            self.assertEqual(self.names(), [])
        self.unmount()
        self.assertEqual(self.listing(), [])
        self.assert_clean()

    def test_a_folder_that_was_removed_is_empty_to_those_who_have_it_open(self):
        self.at("D").mkdir()
        folder = os.open(self.at("D"), os.O_RDONLY)
        self.at("D").rmdir()
        self.assertEqual(os.fstat(folder).st_nlink, 0)
        self.assertEqual(os.listdir(folder), [])
        self.at("D").mkdir()
        self.at("D/NEW").touch()
        self.assertEqual(os.listdir(folder), [])
        self.fails_with(errno.ENOENT, os.open, "OLD", os.O_CREAT | os.O_WRONLY, dir_fd=folder)
        self.assertEqual(os.stat(self.at("D")).st_nlink, 1)
        os.close(folder)

    def test_an_open_file_is_renamed_and_moved(self):
        self.at("D").mkdir()
        with open(self.at("F"), "w+b", buffering=0) as file:
            file.write(b"1")
            os.rename(self.at("F"), self.at("G"))
            file.write(b"2")
            os.rename(self.at("G"), self.at("D/H"))
            file.write(b"3")
            os.rename(self.at("D"), self.at("E"))
            file.write(b"4")
        self.assertEqual(self.at("E/H").read_bytes(), b"1234")

    def test_mapped_files_are_read_and_written(self):
        self.at("F").write_bytes(bytes(10000))
        with open(self.at("F"), "r+b") as file, mmap.mmap(file.fileno(), 0) as mapped:
            mapped[8190:8194] = b"page"
            mapped.flush()
        self.assertEqual(self.at("f").read_bytes(), bytes(8190) + b"page" + bytes(1806))

    # ---- rename

    def test_rename_overwrites_files_and_empty_folders(self):
        self.at("A").write_bytes(b"a")
        self.at("B").write_bytes(b"b")
        with open(self.at("b"), "rb") as old:
            os.rename(self.at("a"), self.at("b"))
            self.assertEqual(old.read(), b"b")
        self.assertEqual(self.at("B").read_bytes(), b"a")
        self.at("D/SUB").mkdir(parents=True)
        self.at("E").mkdir()
        os.rename(self.at("D"), self.at("E"))
        self.assertEqual(self.names("E"), ["SUB"])
        self.at("FULL/X").mkdir(parents=True)
        self.fails_with(errno.ENOTEMPTY, os.rename, self.at("E"), self.at("FULL"))
        self.fails_with(errno.EISDIR, os.rename, self.at("B"), self.at("E"))
        self.fails_with(errno.ENOTDIR, os.rename, self.at("E"), self.at("B"))
        self.fails_with(errno.EINVAL, os.rename, self.at("E"), self.at("E/SUB/E"))
        self.fails_with(errno.ENOENT, os.rename, self.at("NONE"), self.at("B"))
        self.assertEqual(self.names(), ["B", "E", "FULL"])
        self.unmount()
        self.assert_clean()

    def test_rename_obeys_its_flags(self):
        rename = ctypes.CDLL(None, use_errno=True).renameat2
        no_replace, exchange = 1, 2

        def call(old, new, flags):
            done = rename(-100, os.fsencode(self.at(old)), -100, os.fsencode(self.at(new)), flags)
            return 0 if done == 0 else ctypes.get_errno()

        self.at("A").write_bytes(b"a")
        self.at("B").write_bytes(b"b")
        self.assertEqual(call("A", "B", no_replace), errno.EEXIST)
        self.assertEqual(call("A", "B", exchange), errno.EINVAL)
        self.assertEqual(call("A", "C", no_replace), 0)
        self.assertEqual(self.names(), ["B", "C"])

    # ---- errors

    def test_errors_are_those_of_any_folder(self):
        self.at("D/SUB").mkdir(parents=True)
        self.at("F").touch()
        self.fails_with(errno.ENOENT, open, self.at("NONE"))
        self.fails_with(errno.ENOENT, self.at("NONE/X").touch)
        self.fails_with(errno.ENOTDIR, open, self.at("F/X"))
        self.fails_with(errno.EISDIR, open, self.at("D"), "w")
        self.fails_with(errno.EEXIST, self.at("d").mkdir)
        self.fails_with(errno.EEXIST, os.open, self.at("f"), os.O_CREAT | os.O_EXCL)
        self.fails_with(errno.ENOTEMPTY, self.at("D").rmdir)
        self.fails_with(errno.ENOTDIR, self.at("F").rmdir)
        self.fails_with(errno.EISDIR, self.at("D").unlink)
        self.fails_with(errno.EPERM, os.symlink, "F", self.at("S"))
        self.fails_with(errno.EPERM, os.link, self.at("F"), self.at("L"))
        self.fails_with(errno.EPERM, os.mkfifo, self.at("P"))
        self.fails_with(errno.EPERM, os.chown, self.at("F"), os.geteuid() + 1, -1)

    def test_a_file_has_a_largest_size(self):
        largest = (6 + 256 + 256 * 256) * 1024  # what a block map of 1024 bytes leads to
        with open(self.at("F"), "wb", buffering=0) as file:
            self.fails_with(errno.EFBIG, os.pwrite, file.fileno(), b"x", largest)
            self.fails_with(errno.EFBIG, os.truncate, self.at("F"), largest + 1)
            self.fails_with(errno.EFBIG, os.pwrite, file.fileno(), b"x", 1 << 40)
        self.assertEqual(os.stat(self.at("F")).st_size, 0)

    def test_too_many_files_are_ENOSPC(self):
        made = 0
        with self.assertRaises(OSError) as caught:
            for made in range(300):
                self.at(f"F{made}").touch()
        self.assertEqual((caught.exception.errno, made), (errno.ENOSPC, 255))
        self.assertEqual(os.statvfs(self.at(".")).f_ffree, 0)

    # ---- attributes

    def test_read_only_files_are_those_without_permission_to_write(self):
        self.at("F").write_bytes(b"x")
        os.chmod(self.at("F"), 0o444)
        self.assertEqual(stat.S_IMODE(os.stat(self.at("f")).st_mode), 0o444)
        self.fails_with(errno.EACCES, open, self.at("F"), "r+b")
        self.fails_with(errno.EACCES, os.truncate, self.at("F"), 0)
        self.assertEqual(self.at("F").read_bytes(), b"x")
        self.assertEqual(os.getxattr(self.at("F"), "user.orba.attributes"), b"r-")
        os.setxattr(self.at("F"), "user.orba.attributes", b"u")
        self.assertEqual(os.getxattr(self.at("F"), "user.orba.attributes"), b"-u")
        self.assertEqual(os.listxattr(self.at("F")), ["user.orba.attributes"])
        self.fails_with(errno.EINVAL, os.setxattr, self.at("F"), "user.orba.attributes", b"x")
        self.fails_with(errno.EOPNOTSUPP, os.setxattr, self.at("F"), "user.other", b"x")
        self.fails_with(errno.ENODATA, os.getxattr, self.at("F"), "user.other")
        self.fails_with(errno.EEXIST, os.setxattr, self.at("F"), "user.orba.attributes", b"r", os.XATTR_CREATE)
        self.fails_with(errno.EOPNOTSUPP, os.removexattr, self.at("F"), "user.orba.attributes")
        self.fails_with(errno.ENODATA, os.removexattr, self.at("F"), "user.other")
        with open(self.at("F"), "r+b", buffering=0) as file:
            os.chmod(self.at("F"), 0o400)
            file.write(b"y")
            self.assertEqual(stat.S_IMODE(os.stat(self.at("F")).st_mode), 0o444)
        self.unmount()
        self.assertEqual(self.ok("attrib", "card.orb:/F"), "ru  card.orb:/F\n")
        self.assertEqual(self.ok("cat", "card.orb:/F"), "y")

    def test_who_makes_a_read_only_file_may_write_it(self):
        file = os.open(self.at("F"), os.O_CREAT | os.O_WRONLY, 0o444)
        os.write(file, b"once")
        os.close(file)
        self.assertEqual(self.at("F").read_bytes(), b"once")
        self.fails_with(errno.EACCES, os.open, self.at("F"), os.O_WRONLY)
        self.at("F").unlink()

    def test_times_that_are_set_do_not_last(self):
        self.at("F").write_bytes(b"x")
        before = os.stat(self.at("F")).st_mtime
        os.utime(self.at("F"), (1000, 1000))
        self.assertEqual(os.stat(self.at("F")).st_mtime, before)

    def test_times_are_those_of_the_container(self):
        self.unmount()
        self.format("other.orb")
        self.put_text("other.orb:/F")
        self.set_time(2, (2011, 12, 13, 14, 15, 16), "other.orb")
        self.serve(name="other.orb")
        self.assertEqual(os.stat(self.at("F")).st_mtime, calendar.timegm((2011, 12, 13, 14, 15, 16)))

    def test_space_is_what_is_free_and_what_can_grow(self):
        before = os.statvfs(self.at("."))
        self.assertEqual(before.f_frsize, 1024)
        self.assertEqual((before.f_files, before.f_ffree), (256, 255))
        self.at("F").write_bytes(bytes(100 * 1024))
        after = os.statvfs(self.at("."))
        self.assertEqual(after.f_ffree, 254)
        self.assertLessEqual(after.f_bfree, before.f_bfree - 100)
        self.assertEqual(os.stat(self.at("F")).st_blocks, 200)

    def test_readers_see_what_a_writer_adds(self):
        with open(self.at("LOG"), "wb", buffering=0) as writer, open(self.at("log"), "rb", buffering=0) as reader:
            for number in range(100):
                writer.write(b"%04d" % number)
                self.assertEqual(reader.read(), b"%04d" % number)

    def test_two_who_write_at_once_lose_nothing(self):
        def write(name):
            for number in range(50):
                self.at(f"{name}{number}").write_bytes(name.encode() * number)

        threads = [threading.Thread(target=write, args=(name,)) for name in "PQ"]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for name in "PQ":
            for number in range(50):
                self.assertEqual(self.at(f"{name}{number}").read_bytes(), name.encode() * number)


class FullTest(MountTest):
    def setUp(self):
        super().setUp()
        disk = self.path("disk")
        disk.mkdir()
        superuser = [] if os.geteuid() == 0 else ["sudo", "-n"]
        self.run_program(*superuser, "mount", "-t", "tmpfs", "-o", "size=1m,mode=777", "none", disk)
        # The program that served a folder may hold the container for a moment after the folder has gone.
        self.addCleanup(self.wait_until, lambda: subprocess.call([*superuser, "umount", disk]) == 0)
        self.addCleanup(self.clear_away)
        self.format("disk/card.orb", "-b", "1024")
        self.mount(name="disk/card.orb")

    def test_a_full_disk_is_ENOSPC_and_keeps_what_was_written(self):
        with self.assertRaises(OSError) as caught, open(self.at("F"), "wb", buffering=0) as file:
            for _ in range(1100):
                file.write(b"x" * 1024)
        self.assertEqual(caught.exception.errno, errno.ENOSPC)
        size = os.stat(self.at("F")).st_size
        self.assertGreater(size, 900 * 1024)
        self.assertEqual(self.at("F").read_bytes(), b"x" * size)
        self.assertEqual(os.statvfs(self.at(".")).f_bavail, 0)
        self.fails_with(errno.ENOSPC, os.truncate, self.at("F"), size + (1 << 20))
        self.assertEqual(os.stat(self.at("F")).st_size, size)
        self.at("F").unlink()
        self.at("G").write_bytes(b"y" * (size - 8192))
        self.unmount()
        self.assert_clean("disk/card.orb")

    def test_a_file_that_could_not_grow_leaves_nothing_behind(self):
        for size in (10 << 20, 40 << 20):
            self.at("F").touch()
            self.fails_with(errno.ENOSPC, os.truncate, self.at("F"), size)
            with open(self.at("F"), "r+b", buffering=0) as file:
                self.fails_with(errno.ENOSPC, os.pwrite, file.fileno(), b"x", size)
            self.assertEqual(os.stat(self.at("F")).st_size, 0)
            self.at("F").unlink()
        self.unmount()
        self.assert_clean("disk/card.orb")

    def test_growth_without_room_is_not_begun(self):
        before = self.path("disk/card.orb").stat().st_size
        self.at("F").touch()
        self.fails_with(errno.ENOSPC, os.truncate, self.at("F"), 40 << 20)
        self.assertLess(self.path("disk/card.orb").stat().st_size, before + 65536)
        self.unmount()
        self.assert_clean("disk/card.orb")


if __name__ == "__main__":
    unittest.main()
