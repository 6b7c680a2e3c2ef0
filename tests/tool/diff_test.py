"""diff: containers and trees of the host, side by side."""
import os
import subprocess
import unittest

from support import BLOCK_1, NODE_SIZE, PROGRAM, ToolTest, linux_alone


class DiffTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("tree/readme", b"hello")
        self.write("tree/logs/day1.txt", b"x" * 5000)
        self.write("tree/logs/may/Empty.txt")
        for name in ("one.orb", "two.orb"):
            self.format(name, "-b", "1024" if name == "one.orb" else "4096")
            self.ok("put", "tree/.", name)

    def differs(self, *arguments):
        """One diff that must end with 1 and no word on standard error; its lines."""
        result = self.orba("diff", *arguments)
        self.assertEqual((result.status, result.err), (1, ""), result)
        return result.out.splitlines()

    def test_diff_of_equal_trees_prints_nothing_on_either_side(self):
        for arguments in (("one.orb", "two.orb"), ("tree", "one.orb"), ("two.orb", "tree"), ("tree", "tree"),
                          ("one.orb", "one.orb"), ("tree/logs", "one.orb:/LOGS"), ("one.orb:/LOGS/", "two.orb:/logs"),
                          ("tree/readme", "one.orb:/README"), ("one.orb:/README", "two.orb:/README")):
            self.assertEqual(self.ok("diff", *arguments), "", arguments)

    def test_diff_prints_what_is_added_removed_and_changed_in_order(self):
        self.ok("rm", "-r", "two.orb:/LOGS/MAY")
        self.put_text("two.orb:/LOGS/ALSO", "new")
        self.ok("put", "tree/logs", "two.orb:/NEW")
        self.ok("rm", "two.orb:/LOGS/DAY1.TXT")
        self.put_text("two.orb:/LOGS/DAY1.TXT", "x" * 4999 + "y")
        self.ok("rm", "two.orb:/README")
        self.put_text("two.orb:/README", "hell")
        there = ["+ LOGS/ALSO", "! LOGS/DAY1.TXT  contents from byte 4999 on", "- LOGS/MAY/", "- LOGS/MAY/EMPTY.TXT",
                 "+ NEW/", "+ NEW/DAY1.TXT", "+ NEW/MAY/", "+ NEW/MAY/EMPTY.TXT", "! README  size 5 -> 4"]
        self.assertEqual(self.differs("one.orb", "two.orb"), there)
        self.assertEqual(self.differs("two.orb", "one.orb"),
                         [line.translate(str.maketrans("+-", "-+")).replace("5 +> 4", "4 -> 5") for line in there])
        self.assertEqual([line.lower() for line in self.differs("tree", "two.orb")], [line.lower() for line in there])

    def test_diff_of_a_file_and_a_directory_of_one_name_tells_both(self):
        self.ok("rm", "two.orb:/README")
        self.ok("mkdir", "two.orb:/README")
        self.assertEqual(self.differs("one.orb", "two.orb"), ["- README", "+ README/"])

    def test_diff_of_host_names_that_differ_in_letter_case_alone_finds_one_of_them_too_many(self):
        self.write("tree/README", b"hello")
        self.assertEqual(self.differs("tree", "one.orb"), ["- readme"])

    def test_diff_stat_counts(self):
        self.ok("rm", "-r", "two.orb:/LOGS/MAY")
        self.put_text("two.orb:/LOGS/ALSO", "new")
        self.assertEqual(self.differs("--stat", "one.orb", "two.orb"),
                         ["added     1 file with 3 bytes, 0 directories",
                          "removed   1 file with 0 bytes, 1 directory",
                          "changed   0 files with 0 bytes, 0 directories",
                          "the same  2 files with 5005 bytes, 2 directories"])

    def test_diff_quiet_tells_by_its_status_alone(self):
        self.assertEqual(self.ok("diff", "-q", "one.orb", "two.orb"), "")
        self.put_text("two.orb:/X")
        self.assertEqual(self.differs("-q", "one.orb", "two.orb"), [])

    def test_diff_time_counts_when_asked_for(self):
        self.ok("get", "one.orb", "got")
        self.assertEqual(self.ok("diff", "--time", "got", "one.orb"), "")
        self.set_time(1, (2001, 2, 3, 4, 5, 6), "two.orb")  # of the root: of files alone
        os.utime(self.path("got/README"), (981173106, 981173106))
        changed = self.ok("ls", "-l", "one.orb:/README").split()
        self.assertEqual(self.differs("--time", "got", "one.orb"),
                         [f"! README  time 2001-02-03 04:05:06 -> {changed[2]} {changed[3]}"])
        self.assertEqual(self.ok("diff", "got", "one.orb"), "")

    def test_diff_of_what_is_missing_or_not_of_a_kind_is_trouble(self):
        for arguments, message in ((("one.orb", "none.orb"), "there is no such container"),
                                   (("one.orb:/NONE", "tree"), "cannot compare one.orb:/NONE: there is no such file"),
                                   (("one.orb:/README", "tree"), "one is a directory, the other a file"),
                                   (("tree/readme", "one.orb:/LOGS"), "it is not a container")):
            self.assertIn(message, self.fails(2, "diff", *arguments))
        self.fails(16, "diff", "one.orb")

    def test_diff_of_what_a_container_cannot_hold_is_trouble_the_rest_is_compared(self):
        linux_alone("symbolic links, which Wine follows unseen")
        os.mkfifo(self.path("tree/pipe"))
        self.path("tree/link").symlink_to("logs")
        self.path("tree/lost").symlink_to("nowhere")
        self.write("tree/new")
        result = self.orba("diff", "one.orb", "tree")
        self.assertEqual((result.status, result.out), (2, "+ new\n"))
        self.assertIn("cannot compare tree/link: it is a symbolic link to a directory\n", result.err)
        self.assertIn("cannot compare tree/lost: No such file or directory (ENOENT, 2)\n", result.err)
        self.assertIn("cannot compare tree/pipe: it is neither a file nor a directory but a pipe\n", result.err)

    def test_diff_of_a_damaged_container_compares_what_can_be_read(self):
        contents = self.read("two.orb")
        entry = contents.index(b"DAY1.TXT\0") - 2
        node = int.from_bytes(contents[entry:entry + 2], "little")
        self.patch("two.orb", BLOCK_1 + (node - 1) * NODE_SIZE + 32, b"\xff\xff\xff\x7f")
        self.put_text("one.orb:/NEW")
        for arguments, sign in ((("one.orb", "two.orb"), "-"), (("two.orb", "one.orb"), "+")):
            result = self.orba("diff", *arguments)
            self.assertEqual((result.status, result.out), (2, sign + " NEW\n"))
            self.assertIn("cannot read two.orb:/LOGS/DAY1.TXT beyond byte 0: logical block 0", result.err)
            self.assertIn("orba recover two.orb DIR\n", result.err)

    def test_diff_of_output_that_cannot_be_written_is_trouble(self):
        self.put_text("two.orb:/X")
        with open("/dev/full", "wb") as full:
            done = subprocess.run([*PROGRAM, "diff", "one.orb", "two.orb"], stdout=full, stderr=subprocess.PIPE,
                                  cwd=self.folder, env=self.environment(), check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"cannot write to standard output: No space left on device", done.stderr)


if __name__ == "__main__":
    unittest.main()
