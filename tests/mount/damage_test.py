"""Marked and damaged containers, browsed before a byte of them is changed, and as they would be after a repair."""
import errno
import os
import pathlib
import struct
import sys
import tarfile
import unittest

from mounted import MountTest
from support import SANITIZED

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "corpus"))

import corpus  # noqa: E402
from container import ATTRIBUTES, ENTRY_SIZE, SIZE, Container  # noqa: E402

EVERY = int(os.environ.get("ORBA_MOUNT_EVERY", "23" if SANITIZED else "5"))  # of the corpus: 1 is all of it


class DamageTest(MountTest):
    def read_all(self):
        """All that the folder shows: the contents of files, the errors where there are any, and stops at the second
        look at a directory."""
        shown, seen, waiting = {}, set(), [""]
        while waiting:
            folder = waiting.pop()
            try:
                names = os.listdir(self.at(folder))
            except OSError as error:
                shown[folder + "/"] = error.errno
                continue
            for name in names:
                path = f"{folder}/{name}" if folder else name
                status = os.lstat(self.at(path))
                self.assertNotIn(status.st_ino, seen, path)
                seen.add(status.st_ino)
                if os.path.isdir(self.at(path)):
                    shown[path] = None
                    waiting.append(path)
                else:
                    shown[path] = self.read_file(path)
        return shown

    def read_file(self, path):
        try:
            return self.at(path).read_bytes()
        except OSError as error:
            return error.errno


class MarkedTest(DamageTest):
    def setUp(self):
        super().setUp()
        self.make_tree("tree", 6, 3, seed=5)
        self.format()
        self.ok("put", "-r", "tree", "card.orb:/")
        self.expected = {"TREE": None}
        for path in self.path("tree").rglob("*"):
            name = path.relative_to(self.folder).as_posix().upper()
            self.expected[name] = None if path.is_dir() else path.read_bytes()

    def test_a_marked_container_is_browsed_read_only(self):
        self.mark_dirty()
        before = self.read("card.orb")
        result = self.mount(warns=True)
        self.assertIn("warning: card.orb is marked: an update of it was interrupted; it is mounted read-only",
                      result.err)
        self.assertIn("orba repair card.orb", result.err)
        self.assertEqual(self.read_all(), self.expected)
        self.fails_with(errno.EROFS, self.at("X").touch)
        self.run_program("cp", "-r", "mnt/TREE", "copy")
        self.unmount()
        self.assertEqual(self.read("card.orb"), before)

    def test_a_sound_container_is_the_same_in_every_view(self):
        for options in ((), ("-r",), ("--repaired",), ("-o", "ro,repaired")):
            self.mount(*options)
            self.assertEqual(self.read_all(), self.expected)
            self.unmount()

    def test_a_lost_node_fails_alone_and_says_why(self):
        self.put_text("card.orb:/LOST", "x" * 5000)
        self.mount("-r")
        node = int(os.getxattr(self.at("LOST"), "user.orba.node"))
        self.unmount()
        self.assertLessEqual(node, 64)
        self.patch("card.orb", 2048 + (node - 1) * 64, bytes(64))
        before = self.read("card.orb")
        result = self.mount(warns=True)
        self.assertIn("card.orb is damaged; it is mounted read-only", result.err)
        self.fails_with(errno.EIO, open, self.at("LOST"))
        self.assertEqual(os.getxattr(self.at("LOST"), "user.orba.problem"),
                         f"the record of its node {node} is lost".encode())
        self.assertEqual(self.read_all(), {**self.expected, "LOST": errno.EIO})
        self.unmount()
        self.assertEqual(self.read("card.orb"), before)


class HostileTest(DamageTest):
    """Containers that somebody made to keep the program busy, or to fill its memory."""

    def setUp(self):
        super().setUp()
        self.format("card.orb", "-b", "1024")

    def test_one_name_a_hundred_thousand_times_is_shown_with_numbers(self):
        count = 100_000
        self.put_text("card.orb:/F", "x")
        entries = [(3, "."), (1, ".."), *[(2, "A")] * count]
        self.write("D", b"".join(struct.pack("<H30s", number, name.encode()) for number, name in entries))
        self.ok("put", "D", "card.orb")
        sound = Container(self.read("card.orb"))
        self.assertEqual((sound.node("/F"), sound.node("/D")), (2, 3))
        sound.put_half(sound.record(3) + ATTRIBUTES, 8)
        self.write("card.orb", bytes(sound.data))
        os.truncate(self.path("card.orb"), 80 << 20)  # as many blocks as it takes to be believed
        self.mount(warns=True)
        names = self.names("D")
        self.assertEqual((len(set(names)), names[0], names[-1]), (count, "A", "A~99999"))
        self.assertEqual(self.at("D/a~77").read_bytes(), b"x")

    def test_folders_of_any_depth_are_shown(self):
        depth = 3000
        names = ["D" * 25 + f"{level:04}" for level in range(depth)]
        with tarfile.open(self.path("names.tar"), "w") as archive:
            for name in names:
                folder = tarfile.TarInfo(name)
                folder.type = tarfile.DIRTYPE
                archive.addfile(folder)
        self.format("deep.orb", "-b", "1024", "--nodes", "3584")
        self.ok("import", "names.tar", "deep.orb")
        flat = Container(self.read("deep.orb"))
        nodes = range(2, depth + 2)
        self.assertEqual(flat.node("/" + names[-1]), nodes[-1])
        flat.put(flat.entry(1, 3), bytes(29 * ENTRY_SIZE))  # what follows in the root's first block
        flat.put_word(flat.record(1) + SIZE, 3 * ENTRY_SIZE)
        for above, below, name in zip(nodes, nodes[1:], names[1:]):
            flat.put_word(flat.record(above) + SIZE, 3 * ENTRY_SIZE)
            flat.put_entry(flat.entry(above, 2), below, name)
            flat.put_half(flat.entry(below, 1), above)
        self.write("deep.orb", bytes(flat.data))
        for options in (("-r",), ()):
            self.mount(*options, name="deep.orb", warns=True)
            folder = os.open(self.path("mnt"), os.O_RDONLY)
            for name in names:
                self.assertEqual(os.listdir(folder), [name])
                inner = os.open(name, os.O_RDONLY, dir_fd=folder)
                os.close(folder)
                folder = inner
            self.assertEqual(os.listdir(folder), [])
            os.close(folder)
            self.unmount()


class CorpusTest(DamageTest):
    def test_damaged_containers_are_browsed_and_shown_repaired(self):
        cases = [case for group in corpus.GROUPS.values() for case in group][::EVERY]
        repaired = 0
        for case in cases:
            with self.subTest(case.__name__):
                self.browse(case)
                repaired += self.compare_with_repair()
        self.assertGreater(repaired, len(cases) // 2)

    def browse(self, case):
        """Mounting, walking and reading all of it ends, and changes no byte."""
        contents = corpus.damaged(case)
        self.write("card.orb", contents)
        result = self.orba("mount", "card.orb", "mnt")
        self.assertIn(result.status, (0, 1), result)
        if result.status == 0:
            self.read_all()
            self.unmount()
            self.assertEqual(self.read("card.orb"), contents)
        else:
            self.assertTrue(result.err.startswith("orba: cannot open card.orb: "), result)

    def compare_with_repair(self):
        """--repaired shows what is there once the repair is done. False where there is no repair."""
        contents = self.read("card.orb")
        shown = None
        if self.orba("mount", "--repaired", "card.orb", "mnt").status == 0:
            shown = self.read_all()
            self.unmount()
            self.assertEqual(self.read("card.orb"), contents)
        if self.orba("repair", "-q", "card.orb").status not in (0, 1):
            return False
        self.mount()
        self.assertEqual(self.read_all(), shown)
        self.unmount()
        return True


if __name__ == "__main__":
    unittest.main()
