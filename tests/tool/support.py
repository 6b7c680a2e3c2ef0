"""Runs the real orba in a scratch folder, piped or on a terminal, and makes the containers and trees to run it on."""
import contextlib
import ctypes
import fcntl
import os
import pathlib
import pty
import random
import shutil
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest

ORBA = os.environ["ORBA"]  # the program under test
WINDOWS = ORBA.endswith(".exe")  # it is the one for Windows
WINE = "/usr/lib/wine/wine64"
PROGRAM = [WINE, ORBA] if WINDOWS else [ORBA]  # how it is started
QUOTE = '"' if WINDOWS else "'"  # of the shell for which messages write names
# What a program ends with that Ctrl-C ends: the signal, or what Wine keeps of STATUS_CONTROL_C_EXIT, its last byte.
INTERRUPTED = 0x3A if WINDOWS else -signal.SIGINT
HOST_CALLS = os.environ.get("ORBA_HOST_CALLS", "")  # what notes its calls to the host, and lets them fail
SANITIZED = os.environ.get("ORBA_SANITIZE", "") != ""
LIMIT = 240  # seconds after which a run counts as hanging

# Where things lie in a container that was formatted without options (block size 4096, bitmap 1024 bytes).
STATE_FLAGS = 52
BLOCK_1 = 2048  # the first node block
NODE_SIZE = 64
NODE_TIME = 8


def turns(count):
    """The numbers from 1 to `count`, one for each of many like cases. With sanitizers, which look for other faults and
    are slow, the first two, the last two and some in between."""
    return [number for number in range(1, count + 1) if not SANITIZED or number % 7 == 0 or not 2 < number < count - 1]


def linux_alone(why):
    """To be called by what only Linux has. Under Wine the test ends here, and is counted with the reason."""
    if WINDOWS:
        raise unittest.SkipTest(why)


def open_terminal():
    """Both ends of a new terminal. Where none are mounted, as below a changed root, the superuser makes some."""
    try:
        return pty.openpty()
    except OSError:
        fsopen, fsconfig, fsmount, create = 430, 431, 432, 6  # the same on every kind of processor
        system_call = ctypes.CDLL(None, use_errno=True).syscall
        settings = system_call(fsopen, b"devpts", 0)
        if settings < 0 or system_call(fsconfig, settings, create, None, None, 0) != 0:
            raise
        root = system_call(fsmount, settings, 0, 0)
        master = os.open("ptmx", os.O_RDWR | os.O_NOCTTY, dir_fd=root)
        unlock, open_slave = 0x40045431, 0x5441
        fcntl.ioctl(master, unlock, struct.pack("i", 0))
        slave = fcntl.ioctl(master, open_slave, os.O_RDWR | os.O_NOCTTY)
        os.close(root)
        os.close(settings)
        return master, slave


def obey_modes():
    """In a child, before the program starts: the superuser too may do only what the modes of files allow."""
    if os.geteuid() != 0:
        return
    drop_from_bounding_set, overriding, searching = 24, 1, 2
    control = ctypes.CDLL(None, use_errno=True).prctl
    if any(control(drop_from_bounding_set, right, 0, 0, 0) != 0 for right in (overriding, searching)):
        raise OSError(ctypes.get_errno(), "cannot drop the superuser's rights")


class Result:
    def __init__(self, status, out, err):
        self.status = status
        self.raw = out
        self.out = out.decode(errors="surrogateescape")
        self.err = err.decode(errors="surrogateescape")

    def __repr__(self):
        return f"status {self.status}\n--- out\n{self.out}\n--- err\n{self.err}"


class ToolTest(unittest.TestCase):
    """Each test has an empty folder of its own as current directory of all it runs."""

    def setUp(self):
        self.maxDiff = None
        self.last_run = None
        folder = tempfile.mkdtemp(prefix="orba-tool-", dir=os.environ.get("ORBA_SCRATCH"))
        self.folder = pathlib.Path(folder).resolve()  # as the system tells it of an open file
        self.addCleanup(shutil.rmtree, self.folder)

    def environment(self, changes=None):
        environment = {name: value for name, value in os.environ.items() if name not in ("NO_COLOR", "COLUMNS")}
        environment.update({"LC_ALL": "C.UTF-8", "TERM": "xterm", "TZ": "UTC+5"})
        environment.update(changes or {})
        return environment

    def orba(self, *arguments, stdin=b"", environment=None, **options):
        """One run, piped."""
        if "preexec_fn" in options:
            linux_alone("modes and limits that a process gives itself before the program starts")
        done = subprocess.run([*PROGRAM, *map(str, arguments)], input=stdin, capture_output=True, cwd=self.folder,
                              env=self.environment(environment), timeout=LIMIT, check=False, **options)
        self.last_run = arguments, Result(done.returncode, done.stdout, done.stderr)
        return self.last_run[1]

    def ok(self, *arguments, **options):
        """One run that must succeed without a word on standard error; its standard output."""
        result = self.orba(*arguments, **options)
        self.assertEqual((result.status, result.err), (0, ""), result)
        return result.out

    def fails(self, status, *arguments, **options):
        """One run that must end with `status` and a message, and print nothing else; the message."""
        result = self.orba(*arguments, **options)
        self.assertEqual(result.status, status, result)
        self.assertEqual(result.out, "", result)
        self.assertTrue(result.err.startswith("orba: "), result)
        return result.err

    def on_terminal(self, *arguments, columns=80, environment=None):
        """One run with standard output and error on a terminal; what arrives there is both `out` and `err`."""
        linux_alone("a terminal of Linux")
        master, slave = open_terminal()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        attributes = termios.tcgetattr(slave)
        attributes[1] &= ~termios.OPOST  # line ends arrive as they were written
        termios.tcsetattr(slave, termios.TCSANOW, attributes)
        process = subprocess.Popen([*PROGRAM, *map(str, arguments)], stdin=slave, stdout=slave, stderr=slave,
                                   cwd=self.folder, env=self.environment(environment))
        os.close(slave)
        seen = b""
        while True:
            try:
                part = os.read(master, 65536)
            except OSError:  # how a terminal ends
                break
            if not part:
                break
            seen += part
        os.close(master)
        return Result(process.wait(LIMIT), seen, seen)

    def host_calls(self, *arguments, at=None, stdin=b""):
        """One run; its status and the calls by which it changed the host's disk, with paths below the scratch folder.
        `at` lets one of them fail: see host_calls.c."""
        log = self.folder.parent / (self.folder.name + ".calls")
        try:
            environment = {**self.failing(at), "HOST_CALLS_LOG": str(log)}
            status = self.orba(*arguments, stdin=stdin, environment=environment).status
            calls = log.read_text(errors="surrogateescape") if log.exists() else ""
        finally:
            log.unlink(missing_ok=True)
        return status, calls.replace(str(self.folder.resolve()), "").splitlines()

    @staticmethod
    def failing(at):
        """The environment in which a call to the host fails."""
        linux_alone("calls to the host watched by a library that is loaded before")
        return {"LD_PRELOAD": HOST_CALLS, "ASAN_OPTIONS": "verify_asan_link_order=0",
                **({} if at is None else {"HOST_CALLS_AT": at})}

    @contextlib.contextmanager
    def held(self, name, alone=True):
        """While another program has a file open: for itself alone, or beside others that read."""
        if not WINDOWS:
            with open(self.path(name), "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX if alone else fcntl.LOCK_SH)
                yield
            return
        with subprocess.Popen([WINE, os.environ["ORBA_HOLD"], name, "alone" if alone else "shared"], cwd=self.folder,
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE) as holder:
            self.assertEqual(holder.stdout.readline().strip(), b"held")
            yield
            holder.stdin.close()

    def interrupt(self, *arguments, begun, afresh):
        """One run that Ctrl-C ends in the midst of its work, once `begun` tells that there is some. `afresh` comes
        before, and before the next where a run was too quick."""
        for _ in range(100):
            afresh()
            with subprocess.Popen([*PROGRAM, *arguments], cwd=self.folder, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, env=self.environment()) as process:
                self.wait_until(lambda run=process: begun() or run.poll() is not None)
                process.send_signal(signal.SIGINT)
                _, message = process.communicate(timeout=LIMIT)
            if process.returncode != 0:
                break
        self.assertEqual((process.returncode, message), (INTERRUPTED, b"orba: interrupted\n"))

    def wait_until(self, condition):
        """Waits for what must come, without a word on how long it may take."""
        start = time.monotonic()
        while not condition():
            self.assertLess(time.monotonic() - start, LIMIT, "it hangs")
            time.sleep(0.005)

    # ---- the host's side

    def path(self, name):
        return self.folder / name

    def write(self, name, contents=b""):
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents)
        return path

    def read(self, name):
        return self.path(name).read_bytes()

    def host_names(self, name="."):
        return sorted(entry.name for entry in self.path(name).iterdir())

    def make_tree(self, name, directories, files_each, seed):
        """A tree of binary files of all sizes around the block size; directories lie up to four deep."""
        chance = random.Random(seed)
        paths = [pathlib.PurePath(name)]
        sizes = [0, 1, 511, 1024, 4095, 4096, 4097, 9000, 30000]
        count = 0
        for number in range(directories):
            parents = [path for path in paths if len(path.parts) < 5]
            paths.append(chance.choice(parents) / f"DIR-{number}")
        for path in paths:
            for number in range(files_each):
                self.write(path / f"FILE{number:03}.BIN", chance.randbytes(chance.choice(sizes)))
                count += 1
        for path in paths:
            self.path(path).mkdir(parents=True, exist_ok=True)
        return count

    def contents(self, name):
        """All of a host tree: the bytes of each file, None for a directory, by path."""
        root = self.path(name)
        return {path.relative_to(root).as_posix(): None if path.is_dir() else path.read_bytes()
                for path in root.rglob("*")}

    # ---- the container's side

    def format(self, name="card.orb", *options):
        self.ok("format", *options, name)
        return name

    def put_text(self, address, text="text"):
        self.ok("put", "-", address, stdin=text.encode())

    def patch(self, name, offset, contents):
        with open(self.path(name), "r+b") as container:
            container.seek(offset)
            container.write(contents)

    def mark_dirty(self, name="card.orb"):
        self.patch(name, STATE_FLAGS, b"\x01")

    def set_time(self, node, stamp, name="card.orb"):
        """Stamps one of the first 64 nodes with (year, month, day, hour, minute, second)."""
        self.patch(name, BLOCK_1 + (node - 1) * NODE_SIZE + NODE_TIME, struct.pack("<H5B", *stamp))

    def listing(self, address="card.orb"):
        """Names in a directory of a container."""
        return self.ok("ls", address).splitlines()

    def assert_clean(self, name="card.orb"):
        result = self.orba("check", name)
        self.assertEqual(result.status, 0, result)
