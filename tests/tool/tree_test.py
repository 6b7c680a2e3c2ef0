"""A tree of several thousand files: put, checked, got back and compared."""
import datetime
import os
import unittest

from support import WINDOWS, ToolTest

FILES_EACH = 5 if WINDOWS else 50  # Wine opens them slowly


class LargeTreeTest(ToolTest):
    def round_trip(self, *format_options):
        files = self.make_tree("tree", directories=60, files_each=FILES_EACH, seed=7)
        self.assertEqual(files, 61 * FILES_EACH)
        expected = {name.upper(): contents for name, contents in self.contents("tree").items()}
        self.format("card.orb", *format_options)
        self.ok("put", "tree/.", "card.orb")
        check = self.ok("check", "card.orb")
        self.assertIn(f"{files} files with {sum(len(c) for c in expected.values() if c is not None)} bytes, "
                      f"61 directories", check)
        self.ok("get", "card.orb", "back")
        self.assertEqual(self.contents("back") == expected, True)  # a difference would be too long to print
        return expected

    def test_large_tree_comes_back_the_same(self):
        expected = self.round_trip()
        print(f"{len(expected)} files and directories compared")

    def test_large_tree_with_small_blocks_comes_back_the_same(self):
        expected = self.round_trip("-b", "1024", "-n", "3584")
        # Now all of it moves, and goes again.
        top = self.listing()
        self.ok("mkdir", "card.orb:/MOVED")
        self.ok("mv", *["card.orb:/" + name for name in top], "card.orb:/MOVED")
        self.ok("get", "card.orb:/MOVED", "moved")
        self.assertEqual(self.contents("moved") == expected, True)
        self.assert_clean()
        self.ok("rm", "-r", "card.orb:/MOVED")
        info = self.ok("info", "card.orb")
        self.assertIn("files             0 with 0 bytes\ndirectories       1, the root included\n", info)
        self.assertRegex(info, r"in use +\d+: 0 for files, 1 for directories, \d+ for nodes, 0 for block maps\n")
        self.assert_clean()

    def test_large_tree_times_on_the_host_are_those_in_the_container(self):
        self.make_tree("tree", directories=10, files_each=20, seed=8)
        self.format()
        self.ok("put", "tree/.", "card.orb")
        self.ok("get", "card.orb", "back")
        listed = {}
        folder = ""
        for line in self.ok("ls", "-lR", "card.orb").splitlines():
            if line.endswith(":"):
                folder = line[len("card.orb:"):-1].strip("/")
            elif line:
                _, _, day, time, name = line.split()
                listed[(folder + "/" + name).lstrip("/")] = f"{day} {time}"
        self.assertEqual(len(listed), 230)
        for name, stamp in listed.items():
            seconds = os.stat(self.path("back/" + name)).st_mtime
            host = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)
            self.assertEqual(host.strftime("%Y-%m-%d %H:%M:%S"), stamp, name)


if __name__ == "__main__":
    unittest.main()
