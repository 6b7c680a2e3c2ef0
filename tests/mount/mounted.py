"""Mounts containers in the scratch folder of a test, and unmounts them whatever happens."""
import os
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tool"))

from support import LIMIT, ORBA, ToolTest  # noqa: E402


class MountTest(ToolTest):
    def setUp(self):
        super().setUp()
        if not os.path.exists("/dev/fuse"):
            self.fail("this did not run: the system has no /dev/fuse")
        self.served = None
        self.path("mnt").mkdir()
        self.addCleanup(self.clear_away)

    def clear_away(self):
        subprocess.run(["fusermount3", "-uz", self.path("mnt")], stderr=subprocess.DEVNULL, check=False)
        if self.served is not None:
            self.served.kill()
            self.served.wait()

    def mount(self, *options, name="card.orb", warns=False):
        """Mounts in the background, as people do."""
        result = self.orba("mount", *options, name, "mnt")
        self.assertEqual(result.status, 0, result)
        self.assertEqual(result.out, "", result)
        if not warns:
            self.assertEqual(result.err, "", result)
        self.assertTrue(os.path.ismount(self.path("mnt")))
        return result

    def serve(self, *options, name="card.orb"):
        """Mounts in the foreground: `self.served` is the process, what it logs goes to a file."""
        with open(self.path("log"), "wb") as log:
            self.served = subprocess.Popen([ORBA, "mount", "-f", *options, name, "mnt"], cwd=self.folder, stdout=log,
                                           stderr=log, env=self.environment())
        self.wait_until(lambda: os.path.ismount(self.path("mnt")) or self.served.poll() is not None)
        self.assertTrue(os.path.ismount(self.path("mnt")), self.path("log").read_text())

    def unmount(self):
        self.ok("umount", "mnt")
        self.assertFalse(os.path.ismount(self.path("mnt")))
        if self.served is not None:
            self.assertEqual(self.served.wait(LIMIT), 0)
            self.served = None

    def remount(self):
        self.unmount()
        self.assert_clean()
        self.mount()

    def log(self):
        return self.path("log").read_text()

    def at(self, name):
        return self.path("mnt") / name

    def names(self, name="."):
        return sorted(os.listdir(self.at(name)))

    def fails_with(self, error, call, *arguments, **options):
        with self.assertRaises(OSError) as caught:
            call(*arguments, **options)
        self.assertEqual(os.strerror(caught.exception.errno), os.strerror(error))

    def run_program(self, *arguments, stdin=b"", status=0, cwd=None):
        """A program of the host that must end with `status`; what it printed."""
        done = subprocess.run([str(argument) for argument in arguments], input=stdin, capture_output=True,
                              cwd=cwd or self.folder, env=self.environment(), timeout=LIMIT, check=False)
        self.assertEqual(done.returncode, status, (arguments, done.stdout, done.stderr))
        return done.stdout.decode(errors="surrogateescape")
