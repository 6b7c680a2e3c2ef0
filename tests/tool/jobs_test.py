"""Commands on many containers: order, summary, the worst exit status, and what goes on when one of them fails."""
import errno
import json
import os
import re
import shutil
import subprocess
import unittest

from support import LIMIT, PROGRAM, ToolTest, linux_alone

MANY = 40


class JobsTest(ToolTest):
    """A tree, and the container one.orb that holds it."""

    def setUp(self):
        super().setUp()
        self.write("tree/LOGS/DAY1.TXT", b"one" * 2000)
        self.write("tree/X", b"x")
        self.ok("create", "one.orb", "tree/.")

    def copies(self, count=MANY):
        """As many containers, of which the first is large, so that it is finished last; their names."""
        names = [f"card{number:03}.orb" for number in range(count)]
        for name in names:
            self.write(name, self.read("one.orb"))
        self.write("large/FILE.BIN", bytes(8 << 20))
        self.path(names[0]).unlink()
        self.ok("create", names[0], "large/.")
        return names


class OrderTest(JobsTest):
    def test_lines_stand_in_the_order_of_the_operands_whatever_the_jobs(self):
        names = self.copies()
        expected = self.ok("check", "--jobs", "1", *names)
        self.assertEqual([line.split(":")[0] for line in expected.splitlines()], [*names, f"{MANY} containers"])
        self.assertTrue(expected.endswith(f"\n{MANY} containers: {MANY} clean\n"))
        for jobs in (["--jobs", "2"], ["-j", "7"], ["--jobs=256"], []):
            self.assertEqual(self.ok("check", *jobs, *names), expected)

    def test_objects_stand_in_the_order_of_the_operands(self):
        names = self.copies()
        for command in (["check"], ["info"], ["verify"]):
            operands = [*names[1:], "tree"] if command == ["verify"] else names
            lines = self.ok(*command, "--json", "--jobs", "4", *operands).splitlines()
            self.assertEqual([json.loads(line)["container"] for line in lines],
                             [name for name in operands if name != "tree"])

    def test_messages_stand_where_their_container_has_its_turn(self):
        names = self.copies(6)
        result = subprocess.run([*PROGRAM, "check", "-j", "3", names[0], "none1.orb", names[1], "none2.orb"],
                                cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                env=self.environment(), timeout=LIMIT, check=False)
        lines = [line for line in result.stdout.decode().splitlines() if not line.startswith("   ")]
        self.assertEqual([line.split(":")[0] for line in lines],
                         [names[0], "orba", names[1], "orba", "4 containers"])
        self.assertIn("none1.orb", lines[1])
        self.assertIn("none2.orb", lines[3])
        self.assertEqual((result.returncode, lines[4]), (8, "4 containers: 2 clean, 2 not checked"))

    def test_one_container_is_told_of_in_full(self):
        self.assertEqual(self.ok("check", "--jobs", "3", "one.orb"), self.ok("check", "one.orb"))
        self.assertIn("contents carry no checksums", self.ok("check", "one.orb"))
        self.assertIn("block size        ", self.ok("info", "one.orb"))

    def test_number_of_jobs_has_limits(self):
        for jobs in ("0", "257", "x"):
            self.assertIn("--jobs takes a number from 1 to 256", self.fails(16, "check", "--jobs", jobs, "one.orb"))

    def test_quiet_prints_no_line_and_no_summary(self):
        self.assertEqual(self.ok("check", "-q", *self.copies(4)), "")


class WorstTest(JobsTest):
    def test_what_is_missing_busy_or_not_a_container_is_reported_and_the_others_go_on(self):
        names = self.copies(5)
        self.mark_dirty(names[1])
        self.write("text.txt", b"no container" * 100)
        with self.held(names[2]):
            result = self.orba("check", names[0], names[1], names[2], "none.orb", "text.txt", names[3])
        self.assertEqual(result.status, 8)
        self.assertEqual([line.split(":")[0] for line in result.out.splitlines()],
                         [names[0], names[1], names[3], "6 containers"])
        self.assertTrue(result.out.endswith("6 containers: 2 clean, 1 marked, 3 not checked\n"))
        for text in (f"cannot open {names[2]}: another program has the container open", "cannot read none.orb: ",
                     "cannot check text.txt: "):
            self.assertIn(text, result.err)

    def test_status_of_check_is_the_worst(self):
        names = self.copies(3)
        self.mark_dirty(names[1])
        self.assertEqual(self.orba("check", *names).status, 4)
        self.assertEqual(self.orba("check", names[0], names[2]).status, 0)
        self.assertEqual(self.orba("check", "none.orb", *names).status, 8)

    def test_info_of_several_has_a_line_each(self):
        result = self.orba("info", "one.orb", "none.orb", "one.orb")
        self.assertEqual(result.status, 1)
        lines = result.out.splitlines()
        self.assertEqual(lines[0], lines[1])
        self.assertRegex(lines[0], r"^one.orb: [0-9.K]+, blocks of \d+ bytes, 2 files with 5.9K, 2 directories, "
                                   r"\d+ of \d+ nodes free, clean$")
        self.assertEqual(lines[2], "3 containers: 2 clean, 1 not described")

    def test_verify_of_several_with_one_reference(self):
        names = self.copies(4)
        self.write("manifest", self.ok("manifest", "one.orb").encode())
        for reference in ("tree", "manifest"):
            result = self.orba("verify", *names, "none.orb", reference)
            self.assertEqual(result.status, 2)
            self.assertEqual(result.out, f"""\
{names[0]}:/: 0 files are the same, 2 missing, 0 changed, {1} extra
{names[1]}:/: 2 files are the same, 0 missing, 0 changed, 0 extra
{names[2]}:/: 2 files are the same, 0 missing, 0 changed, 0 extra
{names[3]}:/: 2 files are the same, 0 missing, 0 changed, 0 extra
5 containers: 3 the same, 1 different, 1 not compared
""" if reference == "manifest" else result.out)
            self.assertEqual(self.orba("verify", *names, reference).status, 1)
            self.assertEqual(self.orba("verify", *names[1:], reference).status, 0)
        self.fails(2, "verify", *names, "no reference")
        objects = [json.loads(line) for line in self.orba("verify", "--json", *names, "no-tree").out.splitlines()]
        self.assertEqual(["error" in each for each in objects], [True] * 4)


class IntoTest(JobsTest):
    def test_recover_into_gives_each_a_folder(self):
        names = self.copies(5)
        out = self.ok("recover", "--into", "a/out", "-j", "3", *names)
        self.assertEqual(self.host_names("a/out"), [f"card{number:03}" for number in range(5)])
        self.assertEqual(self.contents("a/out/card003"), self.contents("tree"))
        self.assertEqual([line.split(":")[0] for line in out.splitlines()], [*names, "5 containers"])
        self.assertTrue(out.endswith("\n5 containers: 5 whole\n"))
        self.ok("recover", "--into", "b", names[1])
        self.assertEqual(self.contents("b/card001"), self.contents("tree"))

    def test_status_of_recover_is_the_worst(self):
        names = self.copies(3)
        self.patch(names[1], self.read(names[1]).index(b"LOGS\0") - 2, b"\x3f")  # refers to a free node
        self.assertEqual(self.orba("recover", "--into", "out", *names).status, 4)
        result = self.orba("recover", "--into", "more", *names, "none.orb")
        self.assertEqual(result.status, 1)
        self.assertTrue(result.out.endswith("4 containers: 2 whole, 1 damaged, 1 not recovered\n"), result)

    def test_names_that_would_be_the_same_are_refused_before_anything_is_written(self):
        for name in ("a/card.orb", "b/CARD.ORB", "c/card"):
            self.write(name, self.read("one.orb"))
        for other in ("b/CARD.ORB", "c/card", "a/card.orb"):
            message = self.fails(1, "recover", "--into", "out", "one.orb", "a/card.orb", other)
            self.assertIn("both would be ", message)
            self.assertFalse(self.path("out").exists())

    def test_several_containers_without_into_are_wrong_usage(self):
        for command in ("recover", "export"):
            self.assertIn("several containers take --into FOLDER",
                          self.fails(16, command, "one.orb", "one.orb", "out"))
        self.assertIn("recover: DIRECTORY is missing", self.fails(16, "recover", "one.orb"))

    def test_export_into_gives_each_an_archive(self):
        names = self.copies(5)
        out = self.ok("export", "--into", "out", "--format", "tar.gz", *names)
        self.assertEqual(self.host_names("out"), [f"card{number:03}.tar.gz" for number in range(5)])
        self.assertTrue(out.endswith("\n5 containers: 5 exported\n"), out)
        listed = subprocess.run(["tar", "tzf", self.path("out/card002.tar.gz")], capture_output=True, check=True)
        self.assertEqual(sorted(listed.stdout.decode().split()), ["LOGS/", "LOGS/DAY1.TXT", "X"])
        result = self.orba("export", "--into", "out", "--format", "tar.gz", *names)
        self.assertEqual((result.status, result.out), (1, "5 containers: 5 not exported\n"))
        self.ok("export", "--json", "--force", "--into", "out", "--format", "tar.gz", *names)
        self.assertIn("both would be card001.tar",
                      self.fails(1, "export", "--into", "out", f"{names[1]}:/LOGS", names[1]))

    def test_a_full_disk_ends_the_batch(self):
        linux_alone("calls to the host watched by a library that is loaded before")
        names = self.copies(4)
        no_space = errno.ENOSPC
        result = self.orba("recover", "-j", "1", "--into", "out", *names,
                           environment=self.failing(f"write * 0 {no_space}"))
        self.assertEqual(result.status, 1, result)
        self.assertTrue(result.out.endswith("4 containers: 1 incomplete, 3 not tried\n"), result)
        self.assertEqual(self.host_names("out"), ["card000"])


class EndTest(JobsTest):
    def test_an_interrupt_ends_all_jobs(self):
        linux_alone("signals")
        names = self.copies(4)
        self.write("huge/FILE.BIN", bytes(200 << 20))
        self.ok("create", "huge.orb", "huge/.")
        self.interrupt("recover", "-j", "2", "--into", "out", "huge.orb", *names,
                       begun=lambda: self.path("out/huge").exists() and self.host_names("out/huge"),
                       afresh=lambda: shutil.rmtree(self.path("out"), ignore_errors=True))
        self.assertEqual([name for name in self.host_names("out/huge") if name.startswith(".")], [])

    def test_output_that_cannot_be_written_ends_the_batch_with_8(self):
        linux_alone("a device that is full")
        with open("/dev/full", "wb") as full:
            done = subprocess.run([*PROGRAM, "check", *self.copies()], stdout=full, stderr=subprocess.PIPE,
                                  cwd=self.folder, env=self.environment(), timeout=LIMIT, check=False)
        self.assertEqual(done.returncode, 8)
        self.assertIn(b"cannot write to standard output", done.stderr)

    def test_a_reader_that_has_seen_enough_ends_the_batch(self):
        linux_alone("a pipe of Linux")
        names = self.copies()
        reading, writing = os.pipe()
        os.close(reading)
        done = subprocess.run([*PROGRAM, "info", *names], stdout=writing, stderr=subprocess.PIPE, cwd=self.folder,
                              env=self.environment(), timeout=LIMIT, check=False)
        os.close(writing)
        self.assertEqual((done.returncode, done.stderr), (1, b""))

    def test_progress_counts_containers_on_a_terminal_alone(self):
        names = self.copies(3)
        shown = r"recover \[[#.]+\] +\d+%  \d of 6"
        for mebibytes in (60, 200, 600):  # a tenth of a second at least, on whatever machine
            for number in range(3):
                self.write(f"huge{number}/FILE.BIN", bytes(mebibytes << 20))
                self.path(f"huge{number}.orb").unlink(missing_ok=True)
                self.ok("create", f"huge{number}.orb", f"huge{number}/.")
            shutil.rmtree(self.path("out"), ignore_errors=True)
            huge = [f"huge{number}.orb" for number in range(3)]
            seen = self.on_terminal("recover", "-j", "2", "--into", "out", *huge, *names)
            if re.search(shown, seen.out):
                break
        self.assertRegex(seen.out, shown)
        self.assertNotIn(" of 6", self.orba("check", *names).err)


if __name__ == "__main__":
    unittest.main()
