"""Programs that people use on folders, at work on a mounted container; and fio, which writes and verifies files."""
import os
import subprocess
import unittest

from mounted import MountTest


class ProgramsTest(MountTest):
    def setUp(self):
        super().setUp()
        self.format("card.orb")
        self.mount()

    def copy(self, name):
        """A tree with names in upper case: contents of files, None for folders."""
        root = self.path(name)
        return {path.relative_to(root).as_posix().upper(): None if path.is_dir() else path.read_bytes()
                for path in root.rglob("*")}

    def test_cp_and_rm_a_whole_tree(self):
        self.make_tree("tree", 10, 4, seed=7)
        self.run_program("cp", "-r", "tree", "mnt/tree")
        self.remount()
        self.assertEqual(self.copy("mnt/tree"), self.copy("tree"))
        self.run_program("cp", "-r", "mnt/TREE", "back")
        self.assertEqual(self.copy("back"), self.copy("tree"))
        self.run_program("diff", "-r", "back", "mnt/tree")
        self.run_program("cp", "-rf", "tree/.", "mnt/tree")
        self.assertEqual(self.copy("mnt/tree"), self.copy("tree"))
        self.run_program("rm", "-r", "mnt/tree")
        self.assertEqual(self.names(), [])
        self.unmount()
        self.assert_clean()

    def test_rsync_there_and_back(self):
        self.make_tree("tree", 10, 4, seed=8)
        self.run_program("rsync", "-r", "tree/", "mnt/TREE")
        self.write("tree/FILE000.BIN", b"changed")
        self.path("tree/FILE001.BIN").unlink()
        self.run_program("rsync", "-rc", "--delete", "tree/", "mnt/TREE")
        self.assertEqual(self.run_program("rsync", "-rcni", "--delete", "tree/", "mnt/TREE"), "")
        self.remount()
        self.run_program("rsync", "-r", "mnt/TREE/", "back")
        self.assertEqual(self.copy("back"), self.copy("tree"))
        self.run_program("rsync", "-a", "tree/", "mnt/AGAIN")  # times and modes that do not last are no failure
        self.assertEqual(self.copy("mnt/AGAIN"), self.copy("tree"))

    def test_vim_saves(self):
        self.at("note.txt").write_bytes(b"one\ntwo\n")
        self.run_program("vim.tiny", "-u", "NONE", "-es",
                         "-c", "set backup writebackup backupskip= backupcopy=no",
                         "-c", "%s/two/three/", "-c", "wq", self.at("note.txt"))
        self.assertEqual(self.at("NOTE.TXT").read_bytes(), b"one\nthree\n")
        self.assertEqual(self.at("NOTE.TXT~").read_bytes(), b"one\ntwo\n")
        self.run_program("vim.tiny", "-u", "NONE", "-es", "-c", "normal Gofour", "-c", "wq", self.at("NOTE.TXT"))
        self.assertEqual(self.at("note.txt").read_bytes(), b"one\nthree\nfour\n")
        self.assertEqual(self.names(), ["NOTE.TXT", "NOTE.TXT~"])

    def test_ed_and_sed_save(self):
        self.at("A.TXT").write_bytes(b"a\nb\n")
        self.run_program("ed", "-s", self.at("a.txt"), stdin=b"1d\n$a\nc\n.\nw\nq\n")
        self.assertEqual(self.at("A.TXT").read_bytes(), b"b\nc\n")
        self.run_program("sed", "-i", "s/b/d/", self.at("A.TXT"))
        self.assertEqual(self.at("a.txt").read_bytes(), b"d\nc\n")
        self.run_program("sed", "-i.bak", "s/d/e/", self.at("a.txt"))
        self.assertEqual(self.names(), ["A.TXT", "A.TXT.BAK"])

    def test_a_program_saves_by_rename(self):
        self.at("CONFIG").write_bytes(b"old")
        for number in range(20):
            new = self.at("config.new")
            with open(new, "wb") as file:
                file.write(b"%d" % number)
                file.flush()
                os.fsync(file.fileno())
            os.replace(new, self.at("config"))
            folder = os.open(self.at("."), os.O_RDONLY)
            os.fsync(folder)
            os.close(folder)
            self.assertEqual(self.at("CONFIG").read_bytes(), b"%d" % number)
        self.remount()
        self.assertEqual(self.names(), ["CONFIG"])
        self.assertEqual(self.at("CONFIG").read_bytes(), b"19")

    def test_mv_overwrites(self):
        self.at("A").write_bytes(b"a")
        self.at("B").write_bytes(b"b")
        self.run_program("mv", self.at("a"), self.at("b"))
        self.assertEqual((self.names(), self.at("B").read_bytes()), (["B"], b"a"))
        self.write("outside", b"c")
        self.run_program("mv", "outside", self.at("b"))
        self.assertEqual(self.at("B").read_bytes(), b"c")
        self.at("D").mkdir()
        self.run_program("mv", self.at("B"), self.at("d"))
        self.assertEqual(self.names("D"), ["B"])

    def test_tail_follows(self):
        self.at("LOG").write_bytes(b"first\n")
        with subprocess.Popen(["tail", "-n", "+1", "-f", self.at("log")], stdout=subprocess.PIPE) as tail:
            self.assertEqual(tail.stdout.readline(), b"first\n")
            for number in range(3):
                with open(self.at("LOG"), "ab") as log:
                    log.write(b"line %d\n" % number)
                self.assertEqual(tail.stdout.readline(), b"line %d\n" % number)
            tail.kill()

    def test_df_du_and_find_tell_what_is_there(self):
        self.at("D/E").mkdir(parents=True)
        self.at("D/A.BIN").write_bytes(bytes(100 * 1024))
        self.at("D/E/B.TXT").write_bytes(bytes(50 * 1024))
        self.assertEqual(self.run_program("du", "-s", "--apparent-size", "-B1024", "mnt/D").split()[0], "151")
        found = self.run_program("find", "mnt", "-iname", "*.txt", "-size", "50k")
        self.assertEqual(found, "mnt/D/E/B.TXT\n")
        self.assertEqual(self.run_program("find", "mnt", "-type", "d").split(), ["mnt", "mnt/D", "mnt/D/E"])
        kind, blocks, used, _ = self.run_program("df", "--output=fstype,size,used,avail", "-B1024",
                                                 "mnt").splitlines()[1].split()
        self.assertEqual(kind, "fuse.orba")
        self.assertGreaterEqual(int(used), 150)
        self.assertLess(int(used), 250)
        self.assertLessEqual(int(blocks), 2 * 1024 * 1024)

    def test_tar_goes_in_and_comes_out(self):
        self.make_tree("TREE", 5, 3, seed=9)
        self.run_program("tar", "-cf", "tree.tar", "TREE")
        self.run_program("tar", "-xf", "../tree.tar", cwd=self.path("mnt"))
        self.run_program("tar", "-cf", "back.tar", "-C", "mnt", "TREE")
        self.path("back").mkdir()
        self.run_program("tar", "-xf", "back.tar", "-C", "back")
        self.assertEqual(self.copy("back/TREE"), self.copy("TREE"))

    def fio(self, *options):
        said = self.run_program("fio", "--name=JOB", f"--directory={self.path('mnt')}", "--verify=crc32c",
                                "--do_verify=1", "--verify_fatal=1", "--randseed=3", "--thread", "--group_reporting",
                                *options)
        self.assertIn("err= 0", said)

    def test_fio_verifies_what_it_wrote(self):
        self.fio("--rw=randwrite", "--bsrange=512-64k", "--size=8m", "--ioengine=psync", "--fallocate=none")
        self.fio("--rw=randrw", "--bs=4k", "--size=4m", "--numjobs=3", "--fsync=64", "--fallocate=posix")
        self.fio("--rw=write", "--bs=1m", "--size=16m", "--ioengine=mmap", "--fallocate=none")
        self.unmount()
        self.assert_clean()


if __name__ == "__main__":
    unittest.main()
