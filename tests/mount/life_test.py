"""From mounting to unmounting: the background, signals, a kill, who else may have the container, wrong usage."""
import errno
import os
import signal
import subprocess
import unittest

from mounted import MountTest
from support import LIMIT, ORBA, obey_modes


class LifeTest(MountTest):
    def setUp(self):
        super().setUp()
        self.format("card.orb")

    def test_mount_returns_when_the_folder_works_and_umount_when_the_container_is_free(self):
        for _ in range(5):
            self.mount()
            self.at("F").write_bytes(b"x" * 10000)
            self.unmount()
            self.assertEqual(self.ok("cat", "card.orb:/F"), "x" * 10000)
            self.assert_clean()

    def test_the_background_keeps_no_stream_and_no_folder_of_who_began_it(self):
        done = subprocess.run([ORBA, "mount", "card.orb", "mnt"], cwd=self.folder, capture_output=True, timeout=LIMIT,
                              env=self.environment(), check=True)  # which waits for the ends of both pipes
        self.assertEqual((done.stdout, done.stderr), (b"", b""))
        self.unmount()

    def test_what_cannot_be_mounted_fails_at_once(self):
        self.assertIn("there is no such container", self.fails(1, "mount", "none.orb", "mnt"))
        self.assertIn("make it with: mkdir nowhere", self.fails(1, "mount", "card.orb", "nowhere"))
        self.write("file")
        self.assertIn("it is not a folder but an ordinary file", self.fails(1, "mount", "card.orb", "file"))
        self.assertIn("unknown option(s): `-o nonsense'", self.fails(1, "mount", "-o", "nonsense", "card.orb", "mnt"))
        self.write("text.orb", b"not a container")
        self.fails(1, "mount", "text.orb", "mnt")
        self.fails(16, "mount", "card.orb")
        self.assertIn("takes a number", self.fails(16, "mount", "-o", "uid=me", "card.orb", "mnt"))
        self.assertIn("no container is mounted there", self.fails(1, "umount", "mnt"))
        self.assertFalse(os.path.ismount(self.path("mnt")))
        self.assert_clean()

    def test_nobody_else_has_a_container_that_is_mounted_to_write(self):
        self.mount()
        busy = self.fails(1, "ls", "card.orb")
        self.assertIn("another program has the container open", busy)
        self.assertIn(f"\n      it is mounted; unmount it with: orba umount {self.path('mnt')}\n", busy)
        self.path("second").mkdir()
        self.assertIn("another program has the container open", self.fails(1, "mount", "card.orb", "second"))
        self.assertIn("another program has the container open", self.fails(1, "mount", "-r", "card.orb", "second"))

    def test_readers_share_a_container_that_is_mounted_to_read(self):
        self.put_text("card.orb:/F", "both")
        before = self.read("card.orb")
        self.mount("-r")
        self.assertEqual(self.at("f").read_bytes(), b"both")
        self.assertEqual(self.ok("cat", "card.orb:/F"), "both")
        self.assertIn("another program has the container open", self.fails(1, "rm", "card.orb:/F"))
        self.fails_with(errno.EROFS, self.at("G").touch)
        self.fails_with(errno.EROFS, open, self.at("F"), "r+b")
        self.fails_with(errno.EROFS, self.at("F").unlink)
        self.unmount()
        self.assertEqual(self.read("card.orb"), before)

    def test_a_signal_ends_it_in_order(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            self.serve()
            self.at("F").write_bytes(b"written")
            self.served.send_signal(number)
            self.assertEqual(self.served.wait(LIMIT), 0)
            self.served = None
            self.assertFalse(os.path.ismount(self.path("mnt")))
            self.assertEqual(self.ok("cat", "card.orb:/F"), "written")
            self.assert_clean()

    def test_a_folder_in_use_stays_unless_lazy(self):
        self.serve()
        with open(self.at("F"), "wb", buffering=0) as file:
            self.assertIn("busy", self.fails(1, "umount", "mnt"))
            file.write(b"before")
            self.ok("umount", "--lazy", "mnt")
            self.assertFalse(os.path.ismount(self.path("mnt")))
            file.write(b" and after")
        self.assertEqual(self.served.wait(LIMIT), 0)
        self.assertEqual(self.ok("cat", "card.orb:/F"), "before and after")

    def test_a_kill_costs_nothing_that_was_written(self):
        self.serve()
        file = os.open(self.at("F"), os.O_CREAT | os.O_WRONLY)
        os.write(file, b"w" * 50000)
        self.at("D").mkdir()
        gone = os.open(self.at("GONE"), os.O_CREAT | os.O_WRONLY)
        self.at("GONE").unlink()
        self.served.kill()
        self.served.wait(LIMIT)
        for descriptor in (file, gone):
            self.fails_with(errno.ENOTCONN, os.close, descriptor)
        self.fails_with(errno.ENOTCONN, os.listdir, self.path("mnt"))
        self.assertIn("clear it with: orba umount mnt", self.fails(1, "mount", "card.orb", "mnt"))
        self.served = None
        self.ok("umount", "mnt")
        self.assert_clean()
        self.assertEqual(self.ok("cat", "card.orb:/F"), "w" * 50000)
        self.assertEqual(self.listing(), ["D", "F", "~ORBA-1.TMP"])

    def test_a_kill_in_the_middle_of_changes_leaves_what_repair_mends(self):
        marks = 0
        for number in range(12):
            self.serve()
            script = "i=0; while :; do echo $i > A$i; mkdir D$i; mv A$i D$i/B; i=$((i+1)); done"
            busy = subprocess.Popen(["sh", "-c", script], cwd=self.path("mnt"), stderr=subprocess.DEVNULL,
                                    start_new_session=True)
            self.wait_until(lambda mine=3 + number: len(os.listdir(self.path("mnt"))) > mine)
            self.served.kill()
            self.served.wait(LIMIT)
            self.served = None
            os.killpg(busy.pid, signal.SIGKILL)
            busy.wait(LIMIT)
            self.wait_until(lambda: self.orba("umount", "mnt").status == 0)  # its children take a moment to end
            marks += self.orba("check", "card.orb").status != 0
            self.assertIn(self.orba("repair", "-q", "card.orb").status, (0, 1))
            self.assert_clean()
            self.assertNotEqual(self.listing(), [])
            self.mount()
            for folder in self.names():
                if folder.startswith("D") and self.names(folder):
                    self.assertEqual(self.at(f"{folder}/B").read_bytes(), folder[1:].encode() + b"\n")
            self.run_program("sh", "-c", "rm -rf mnt/*")
            self.unmount()
        self.assertLessEqual(marks, 12)

    def test_everything_belongs_to_who_mounts_unless_told(self):
        self.put_text("card.orb:/F")
        self.mount("-o", "uid=12,gid=34,umask=027")
        status = os.stat(self.at("F"))
        self.assertEqual((status.st_uid, status.st_gid, status.st_mode & 0o777), (12, 34, 0o640))
        self.assertEqual(os.stat(self.at(".")).st_mode & 0o777, 0o750)
        self.unmount()
        self.mount("-o", "ro,noatime")
        self.assertEqual(os.stat(self.at("F")).st_uid, os.geteuid())
        self.fails_with(errno.EROFS, self.at("G").touch)

    def test_a_container_may_lie_in_the_folder_that_shows_it(self):
        self.write("mnt/inside.orb", self.read("card.orb"))
        self.mount(name="mnt/inside.orb")
        self.at("F").write_bytes(b"x")
        self.assertGreater(os.statvfs(self.at(".")).f_bfree, 0)
        self.assertEqual(self.names(), ["F"])
        self.unmount()
        self.assertEqual(self.ok("cat", "mnt/inside.orb:/F"), "x")

    def test_the_table_of_mounts_shows_the_container(self):
        self.write("a b,c.orb", self.read("card.orb"))
        self.mount(name="a b,c.orb")
        shown = self.run_program("findmnt", "-n", "-o", "SOURCE,FSTYPE", self.path("mnt")).split()
        self.assertEqual(" ".join(shown), f"{self.folder.resolve()}/a b,c.orb fuse.orba")
        self.unmount()

    def test_a_container_that_cannot_be_written_is_mounted_to_read(self):
        self.put_text("card.orb:/F", "read")
        self.path("card.orb").chmod(0o444)
        result = self.orba("mount", "card.orb", "mnt", preexec_fn=obey_modes)
        self.assertEqual(result.status, 0, result)
        self.assertEqual(result.err, "orba: warning: card.orb cannot be written to; it is mounted read-only\n")
        self.assertEqual(self.at("F").read_bytes(), b"read")
        self.unmount()

    def test_the_helper_of_mount_hands_on_what_concerns_orba(self):
        self.put_text("card.orb:/F")
        helper = [os.environ["ORBA_MOUNT_HELPER"], "card.orb", "mnt"]
        path = {**self.environment(), "PATH": os.path.dirname(ORBA) + ":" + os.environ["PATH"]}

        def run(*options):
            return subprocess.run([*helper, *options], cwd=self.folder, env=path, timeout=LIMIT, check=False,
                                  capture_output=True)

        self.assertEqual(run("-o", "rw,nofail,x-systemd.automount,umask=077", "-t", "fuse.orba").stderr, b"")
        self.assertEqual(os.stat(self.at("F")).st_mode & 0o777, 0o600)
        self.unmount()
        self.assertEqual(run("-r").returncode, 0)
        self.fails_with(errno.EROFS, self.at("G").touch)
        self.unmount()
        for word in ("relatime,lazytime,iversion,silent", "noexec,nosuid,nodev,user=somebody,X-mount.mkdir"):
            self.assertEqual(run("-o", word).stderr, b"")
            self.unmount()
        self.assertIn(b"unknown option", run("-o", "nonsense").stderr)


if __name__ == "__main__":
    unittest.main()
