"""manifest, verify, put --manifest and get --verify: contents compared by checksum."""
import hashlib
import os
import subprocess
import unittest

from support import BLOCK_1, NODE_SIZE, ToolTest, linux_alone

MISSING_BLOCK = (1 << 20).to_bytes(4, "little")  # a block number beyond the container's end


def line(name, contents):
    return f"{hashlib.sha256(contents).hexdigest()}  {name}\n"


def without_comments(manifest):
    return "".join(text for text in manifest.splitlines(keepends=True) if not text.startswith("#"))


class ManifestTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.write("tree/logs/day1.txt", b"monday")
        self.write("tree/big.bin", bytes(range(256)) * 400)
        self.write("tree/empty", b"")
        self.path("tree/nothing").mkdir()
        self.lines = (line("BIG.BIN", self.read("tree/big.bin")) + line("EMPTY", b"") +
                      line("LOGS/DAY1.TXT", b"monday"))

    def sha256sum(self, manifest, folder):
        return subprocess.run(["sha256sum", "--strict", "-c", self.path(manifest)], cwd=self.path(folder),
                              env={**os.environ, "LC_ALL": "C"}, capture_output=True, text=True, check=False)

    def test_manifest_has_checksum_size_and_time_of_each_file(self):
        self.put_text("card.orb:/A", "abc")
        self.set_time(2, (2024, 2, 29, 23, 58, 59))
        self.assertEqual(self.ok("manifest", "card.orb"), "# size 3, time 2024-02-29T23:58:59Z\n" + line("A", b"abc"))

    def test_manifest_has_names_from_the_place_on(self):
        self.ok("put", "tree/.", "card.orb")
        self.assertEqual(without_comments(self.ok("manifest", "card.orb")), self.lines)
        self.assertEqual(without_comments(self.ok("manifest", "card.orb:/LOGS")), line("DAY1.TXT", b"monday"))
        self.assertEqual(without_comments(self.ok("manifest", "card.orb:/logs/day1.txt")), line("DAY1.TXT", b"monday"))

    def test_manifest_of_an_empty_container_is_empty(self):
        self.assertEqual(self.ok("manifest", "card.orb"), "")
        self.write("manifest")
        self.assertEqual(self.ok("verify", "card.orb", "manifest"),
                         "0 files are the same, 0 missing, 0 changed, 0 extra\n")

    def test_manifest_of_a_place_that_is_missing_fails(self):
        self.assertIn("cannot list card.orb:/NO: there is no such file or directory",
                      self.fails(1, "manifest", "card.orb:/NO"))

    def test_manifest_of_a_marked_container_warns(self):
        self.put_text("card.orb:/A", "abc")
        self.mark_dirty()
        result = self.orba("manifest", "card.orb")
        self.assertEqual((result.status, without_comments(result.out)), (0, line("A", b"abc")))
        self.assertIn("card.orb is marked", result.err)

    def test_manifest_of_a_damaged_container_has_what_can_be_read(self):
        self.put_text("card.orb:/A", "abc")
        self.put_text("card.orb:/B", "bcd")
        self.patch("card.orb", BLOCK_1 + 1 * NODE_SIZE + 32, MISSING_BLOCK)
        result = self.orba("manifest", "card.orb")
        self.assertEqual((result.status, without_comments(result.out)), (1, line("B", b"bcd")))
        self.assertIn("cannot read card.orb:/A beyond byte 0", result.err)

    def test_put_manifest_is_what_sha256sum_accepts_of_the_got_tree(self):
        self.ok("put", "--manifest", "manifest", "tree/.", "card.orb")
        self.assertEqual(without_comments(self.read("manifest").decode()), self.lines)
        self.ok("get", "card.orb", "out")
        done = self.sha256sum("manifest", "out")
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (0, "BIG.BIN: OK\nEMPTY: OK\nLOGS/DAY1.TXT: OK\n", ""))
        self.write("out/EMPTY", b"x")
        self.assertEqual(self.sha256sum("manifest", "out").returncode, 1)

    def test_put_manifest_is_the_manifest_of_the_place(self):
        self.ok("mkdir", "card.orb:/DEEP")
        self.put_text("card.orb:/OTHER")
        self.ok("put", "--manifest", "m", "tree/.", "card.orb:/DEEP")
        self.assertEqual(self.read("m").decode(), self.ok("manifest", "card.orb:/DEEP"))
        self.ok("put", "--manifest", "one", "tree/logs/day1.txt", "card.orb:/DAY.TXT")
        self.assertEqual(self.read("one").decode(), self.ok("manifest", "card.orb:/DAY.TXT"))
        self.ok("put", "--manifest", "bush", "tree", "card.orb:/BUSH")
        self.assertEqual(self.read("bush").decode(), self.ok("manifest", "card.orb:/BUSH"))

    def test_put_manifest_of_standard_input(self):
        self.ok("put", "--manifest", "m", "-", "card.orb:/X", stdin=b"from a pipe")
        self.assertEqual(without_comments(self.read("m").decode()), line("X", b"from a pipe"))

    def test_put_manifest_overwrites_nothing_and_puts_nothing_then(self):
        self.write("m", b"kept")
        message = self.fails(1, "put", "--manifest", "m", "tree", "card.orb")
        self.assertIn("cannot write m: File exists", message)
        self.assertEqual((self.listing(), self.read("m")), ([], b"kept"))

    def test_put_manifest_is_not_printed(self):
        self.assertIn("--manifest takes the name of a new file",
                      self.fails(16, "put", "--manifest", "-", "tree", "card.orb"))
        self.assertEqual(self.listing(), [])

    def test_put_that_is_refused_leaves_no_manifest(self):
        self.write("tree/a b", b"")
        self.fails(1, "put", "--manifest", "m", "tree", "card.orb")
        self.assertEqual(self.host_names(), ["card.orb", "tree"])

    def test_put_manifest_has_what_came_in_whole(self):
        before = self.ok("info", "card.orb")
        status, _ = self.host_calls("put", "--manifest", "m", "tree/.", "card.orb", at="write card.orb 12 28")
        self.assertEqual(status, 1)
        self.assertNotEqual(self.ok("info", "card.orb"), before)
        self.assertEqual(self.read("m").decode(), self.orba("manifest", "card.orb").out)

    def test_get_verify_reads_back_what_it_writes(self):
        self.ok("put", "tree/.", "card.orb")
        self.ok("get", "--verify", "card.orb", "out")
        self.assertEqual(self.contents("out"), {"BIG.BIN": self.read("tree/big.bin"), "EMPTY": b"", "NOTHING": None,
                                                "LOGS": None, "LOGS/DAY1.TXT": b"monday"})

    def test_get_verify_leaves_out_what_the_host_reads_otherwise(self):
        self.ok("put", "tree/.", "card.orb")
        result = self.orba("get", "--verify", "card.orb", "out", environment=self.failing("write * 1 flip"))
        self.assertEqual((result.status, result.out), (1, ""))
        self.assertIn("cannot get card.orb:/BIG.BIN: what the host reads of it is not what was written", result.err)
        self.assertEqual(sorted(self.contents("out")), ["EMPTY", "LOGS", "LOGS/DAY1.TXT", "NOTHING"])


class VerifyTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.write("tree/logs/day1.txt", b"monday")
        self.write("tree/logs/day2.txt", b"tuesday")
        self.write("tree/x", b"x")
        self.path("tree/nothing").mkdir()
        self.ok("put", "--manifest", "m", "tree/.", "card.orb")

    def verify(self, status, *arguments, **options):
        """One run that ends with `status` and says nothing on standard error; what it prints."""
        result = self.orba("verify", *arguments, **options)
        self.assertEqual((result.status, result.err), (status, ""), result)
        return result.out

    def test_verify_of_the_same_exits_0(self):
        self.assertEqual(self.verify(0, "card.orb", "m"), "3 files are the same, 0 missing, 0 changed, 0 extra\n")
        self.assertEqual(self.verify(0, "card.orb", "tree"), "3 files are the same, 0 missing, 0 changed, 0 extra\n")
        self.assertEqual(self.verify(0, "-v", "card.orb:/LOGS", "tree/logs"),
                         "same     day1.txt\nsame     day2.txt\n2 files are the same, 0 missing, 0 changed, 0 extra\n")

    def test_verify_tells_what_is_missing_changed_and_extra(self):
        self.ok("rm", "card.orb:/LOGS/DAY1.TXT")
        self.ok("put", "-f", "-", "card.orb:/LOGS/DAY2.TXT", stdin=b"TUESDAY")
        self.ok("put", "-f", "-", "card.orb:/X", stdin=b"longer")
        self.put_text("card.orb:/LOGS/NEW")
        summary = "0 files are the same, 1 missing, 2 changed, 1 extra\n"
        self.assertEqual(self.verify(1, "card.orb", "m"),
                         "missing  LOGS/DAY1.TXT\nchanged  LOGS/DAY2.TXT: other contents\n"
                         "changed  X: 6 bytes, not 1\nextra    LOGS/NEW\n" + summary)
        self.assertEqual(self.verify(1, "card.orb", "tree"),
                         "missing  logs/day1.txt\nchanged  logs/day2.txt: other contents\n"
                         "changed  x: 6 bytes, not 1\nextra    LOGS/NEW\n" + summary)
        self.assertEqual(self.verify(1, "-q", "card.orb", "m"), "")

    def test_verify_ignore_extra_is_no_difference(self):
        self.put_text("card.orb:/NEW")
        self.assertEqual(self.verify(1, "card.orb", "m"),
                         "extra    NEW\n3 files are the same, 0 missing, 0 changed, 1 extra\n")
        self.assertEqual(self.verify(0, "--ignore-extra", "card.orb", "m"),
                         "3 files are the same, 0 missing, 0 changed, 0 extra\n")

    def test_verify_compares_the_directories_of_a_tree(self):
        self.ok("rm", "-r", "card.orb:/NOTHING")
        self.ok("mkdir", "card.orb:/OTHER")
        self.assertEqual(self.verify(0, "card.orb", "m"), "3 files are the same, 0 missing, 0 changed, 0 extra\n")
        self.assertEqual(self.verify(1, "card.orb", "tree"),
                         "missing  nothing\nextra    OTHER\n3 files are the same, 1 missing, 0 changed, 1 extra\n")

    def test_verify_tells_files_and_directories_apart(self):
        self.ok("rm", "-r", "card.orb:/NOTHING", "card.orb:/X")
        self.put_text("card.orb:/NOTHING")
        self.ok("mkdir", "card.orb:/X")
        self.assertEqual(self.verify(1, "card.orb", "tree"),
                         "changed  nothing: a file, not a directory\nchanged  x: a directory, not a file\n"
                         "2 files are the same, 0 missing, 2 changed, 0 extra\n")

    def test_verify_takes_what_sha256sum_has_written_of_the_host_tree(self):
        text = line("./logs/day1.txt", b"monday") + line("logs//day2.txt", b"tuesday").replace("  ", " *")
        text += line("x", b"x").upper().replace("  X", "  x").replace("\n", "\r\n") + "\n# a remark\n"
        self.assertEqual(self.verify(0, "card.orb", "-", stdin=text.encode()),
                         "3 files are the same, 0 missing, 0 changed, 0 extra\n")

    def test_verify_reads_names_as_sha256sum_escapes_them(self):
        text = "\\" + line("a\\\\b\\nc\\rd", b"")
        self.assertEqual(self.verify(1, "--ignore-extra", "card.orb", "-", stdin=text.encode()),
                         "missing  a\\b\\x0Ac\\x0Dd\n0 files are the same, 1 missing, 0 changed, 0 extra\n")

    def test_verify_of_what_is_no_manifest_exits_2(self):
        for text in (b"something else\n", b"\\" + line("a\\b", b"").encode(), line("", b"").encode(),
                     line("x", b"x").replace("  ", "").encode(), b"g" * 64 + b"  x\n", b"\0" * 3000000):
            message = self.fails(2, "verify", "card.orb", "-", stdin=text)
            self.assertIn("orba: cannot use - as a manifest: line 1 has no SHA-256 and name", message)
        self.assertIn("cannot read nothing: No such file", self.fails(2, "verify", "card.orb", "nothing"))
        self.assertIn("cannot verify card.orb:/NO: there is no such file",
                      self.fails(2, "verify", "card.orb:/NO", "m"))
        self.assertIn("verify: MANIFEST|TREE is missing", self.fails(16, "verify", "card.orb"))

    def test_verify_of_what_cannot_be_read_exits_2(self):
        node = BLOCK_1 + 2 * NODE_SIZE  # of LOGS/DAY1.TXT
        self.patch("card.orb", node + 32, MISSING_BLOCK)
        for reference in ("m", "tree"):
            result = self.orba("verify", "card.orb", reference)
            self.assertEqual((result.status, result.out),
                             (2, "2 files are the same, 0 missing, 0 changed, 0 extra\n"), result)
            self.assertIn("cannot read card.orb:/LOGS/DAY1.TXT beyond byte 0", result.err)

    def test_verify_of_a_tree_with_what_no_container_holds_exits_2(self):
        linux_alone("symbolic links, which Wine follows unseen")
        os.symlink(".", self.path("tree/loop"))
        result = self.orba("verify", "card.orb", "tree")
        self.assertEqual((result.status, result.out), (2, "3 files are the same, 0 missing, 0 changed, 0 extra\n"))
        self.assertIn("cannot compare tree/loop: it is a symbolic link to a directory", result.err)

    def test_verify_expects_the_names_of_put_rename(self):
        self.write("tree/a b", b"1")
        self.write("tree/A_B", b"2")
        self.write("tree/X", b"3")
        self.assertEqual(self.verify(1, "card.orb", "tree"),
                         "missing  A_B\nchanged  X: other contents\nmissing  a b\nmissing  x\n"
                         "2 files are the same, 3 missing, 1 changed, 0 extra\n")
        self.ok("rm", "card.orb:/X")
        self.orba("put", "-n", "--rename", "tree/.", "card.orb")
        self.assertEqual(self.verify(0, "--rename", "card.orb", "tree"),
                         "6 files are the same, 0 missing, 0 changed, 0 extra\n")

    def test_verify_leaves_a_read_only_container_as_it_is(self):
        before = self.read("card.orb")
        self.path("card.orb").chmod(0o400)
        self.verify(0, "card.orb", "m")
        self.assertEqual(self.read("card.orb"), before)


if __name__ == "__main__":
    unittest.main()
