"""A mounted container beside a plain folder: the same calls on both, at random but from a seed, with the names of the
plain folder in upper case. Both must answer alike all the time, and hold the same in the end.

    random_test.py [SEED [STEPS]]"""
import os
import random
import stat
import sys
import unittest

from mounted import MountTest

SEEDS = (1, 2)
STEPS = 1500


class Side:
    """One of the two folders, with its open files."""

    def __init__(self, root, spell):
        self.root, self.spell, self.files = root, spell, {}

    def path(self, names):
        return os.path.join(self.root, *[self.spell(name) for name in names])

    def do(self, call):
        try:
            return call(self)
        except OSError as error:
            return error.errno


class RandomTest(MountTest):
    def compare(self, seed, steps):
        self.chance = random.Random(seed)
        spelling = random.Random(seed)
        self.path("plain").mkdir(exist_ok=True)
        self.format(f"card{seed}.orb", "-b", "1024")
        self.mount(name=f"card{seed}.orb")
        plain = Side(self.path("plain"), str.upper)
        mounted = Side(self.path("mnt"), lambda name: "".join(spelling.choice((c.upper(), c.lower())) for c in name))
        for step in range(steps):
            what, call = self.draw(plain)
            answers = [side.do(call) for side in (plain, mounted)]
            self.assertEqual(answers[0], answers[1], (seed, step, what))
        for side in (plain, mounted):
            for file in side.files.values():
                os.close(file)
        self.assertEqual(self.tree("mnt"), self.tree("plain"))
        self.unmount()
        self.assert_clean(f"card{seed}.orb")
        self.path("out").mkdir()
        self.ok("get", "-r", f"card{seed}.orb:/", "out")
        self.run_program("rm", "-r", "plain", "out")

    def tree(self, name):
        root = self.path(name)
        return {path.relative_to(root).as_posix(): None if path.is_dir() else path.read_bytes()
                for path in sorted(root.rglob("*"))}

    def draw_path(self):
        return [f"n{self.chance.randrange(4)}" for _ in range(self.chance.choice((1, 1, 2, 2, 3)))]

    def draw(self, plain):
        """A call, as a word and a function of a side."""
        chance = self.chance
        path, other = self.draw_path(), self.draw_path()
        offset, count = chance.choice((0, 1, 1000, 5000, 100000)), chance.choice((0, 1, 700, 1024, 9000))
        data = chance.randbytes(count)
        key = chance.choice(sorted(plain.files)) if plain.files else None
        number = chance.randrange(1 << 30)
        flags = chance.choice((os.O_RDWR, os.O_RDWR | os.O_CREAT, os.O_RDWR | os.O_CREAT | os.O_EXCL,
                               os.O_RDWR | os.O_TRUNC, os.O_RDONLY, os.O_RDWR | os.O_APPEND))

        def store(side):
            file = os.open(side.path(path), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
            try:
                return os.write(file, data)
            finally:
                os.close(file)

        def load(side):
            with open(side.path(path), "rb") as file:
                return file.read()

        def open_one(side):
            file = os.open(side.path(path), flags, 0o644)
            if len(side.files) >= 12 or stat.S_ISDIR(os.fstat(file).st_mode):
                os.close(file)
            else:
                side.files[number] = file
            return "open"

        def status(side):
            found = os.stat(side.path(path))
            folder = os.path.isdir(side.path(path))
            return folder, 0 if folder else found.st_size

        def close(side):
            return os.close(side.files.pop(key))

        calls = [("store", store), ("load", load), ("open", open_one), ("status", status),
                 ("list", lambda side: sorted(os.listdir(side.path(path)))),
                 ("make folder", lambda side: os.mkdir(side.path(path))),
                 ("remove", lambda side: os.unlink(side.path(path))),
                 ("remove folder", lambda side: os.rmdir(side.path(path))),
                 ("rename", lambda side: os.rename(side.path(path), side.path(other))),
                 ("truncate", lambda side: os.truncate(side.path(path), offset))]
        if key is not None:
            calls += [("write", lambda side: os.pwrite(side.files[key], data, offset)),
                      ("read", lambda side: os.pread(side.files[key], count, offset)),
                      ("size", lambda side: os.fstat(side.files[key]).st_size),
                      ("cut", lambda side: os.ftruncate(side.files[key], offset)),
                      ("sync", lambda side: os.fsync(side.files[key])), ("close", close)]
        name, call = chance.choice(calls)
        return (name, path, other, key, offset, count), call

    def test_both_answer_alike(self):
        for seed in SEEDS:
            self.compare(seed, STEPS)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        SEEDS = (int(sys.argv[1]),)
        STEPS = int(sys.argv[2]) if len(sys.argv) > 2 else STEPS
    unittest.main(argv=sys.argv[:1])
