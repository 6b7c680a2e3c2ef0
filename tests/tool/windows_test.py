"""What only Windows has: drives, backslashes, long paths, wildcards without a shell, names it keeps for itself. Run by
under_wine.py alone."""
import bz2
import contextlib
import fcntl
import lzma
import os
import re
import struct
import subprocess
import termios
import unittest
import zipfile

from support import LIMIT, PROGRAM, ToolTest, open_terminal


class WindowsTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.windows_folder = "Z:" + str(self.folder.resolve()).replace("/", "\\")

    # ---- addresses and paths

    def test_a_drive_is_no_separator(self):
        container = self.windows_folder + "\\card.orb"
        self.ok("mkdir", container + ":/LOGS")
        self.assertEqual(self.ok("ls", container), "LOGS\n")
        self.assertEqual(self.ok("ls", container + ":"), "LOGS\n")
        self.assertEqual(self.ok("ls", container.replace("\\", "/") + ":/"), "LOGS\n")
        self.assertEqual(self.ok("ls", "\\\\?\\" + container), "LOGS\n")
        self.assertEqual(self.ok("ls", "Z:card.orb"), "LOGS\n")  # in the current directory of the drive
        self.assertIn("there is no such container", self.fails(1, "ls", "Z:none.orb"))

    def test_a_missing_container_on_a_drive_is_not_taken_for_a_path_inside_one(self):
        message = self.fails(1, "ls", self.windows_folder + "\\none.orb")
        self.assertIn("make a container with: orba format " + self.windows_folder + "\\none.orb\n", message)

    def test_a_path_inside_a_container_with_backslashes_is_explained(self):
        for container in ("card.orb", self.windows_folder + "\\card.orb"):
            for path in ("\\LOGS\\OLD", "LOGS\\OLD"):
                self.assertIn(f'a path inside a container begins with "/": {container}:/LOGS/OLD\n',
                              self.fails(1, "ls", container + ":" + path))

    def test_trees_come_and_go_with_backslashes(self):
        self.write("tree/sub/file.txt", b"text")
        self.ok("put", self.windows_folder + "\\tree\\", "card.orb")
        self.assertEqual(self.ok("get", "-v", "card.orb:/TREE", ".\\out"),
                         "card.orb:/TREE -> .\\out\ncard.orb:/TREE/SUB -> .\\out\\SUB\n"
                         "card.orb:/TREE/SUB/FILE.TXT -> .\\out\\SUB\\FILE.TXT\n")
        self.ok("put", "tree\\sub\\file.txt", "card.orb:/COPY.TXT")
        self.assertEqual(self.ok("cat", "card.orb:/COPY.TXT"), "text")
        self.ok("recover", "card.orb", "saved\\here", "-q")
        self.assertEqual(self.read("saved/here/TREE/SUB/FILE.TXT"), b"text")

    def test_paths_longer_than_260_characters_work(self):
        deep = "\\".join(["a directory with a long name"] * 12)
        self.path(deep.replace("\\", "/")).mkdir(parents=True)
        self.assertGreater(len(deep), 260)
        self.ok("format", deep + "\\card.orb")
        self.write("file", b"text")
        self.ok("put", "file", deep + "\\card.orb")
        self.ok("get", deep + "\\card.orb:/FILE", deep)
        self.assertEqual(self.read(deep.replace("\\", "/") + "/FILE"), b"text")
        self.assertIn("clean: ", self.ok("check", deep + "\\card.orb"))

    def test_names_beyond_the_code_page_work(self):
        self.write("Größe-Ω-日本-𝄞/f.txt", b"text")
        self.assertEqual(self.ok("put", "--rename", "Größe-Ω-日本-𝄞", "card.orb"),
                         "Größe-Ω-日本-𝄞 -> card.orb:/GR__E-_-__-_\n")
        self.ok("get", "card.orb:/GR__E-_-__-_", "Größe-Ω")
        self.assertEqual(self.read("Größe-Ω/F.TXT"), b"text")
        self.assertIn("cannot read Ω: No such file or directory", self.fails(8, "check", "Ω"))

    def test_files_above_4_gigabytes_have_their_size(self):
        with open(self.path("big"), "wb") as file:
            file.truncate(5 << 30)
        self.assertIn("it has 5368709120 bytes", self.fails(1, "put", "big", "card.orb"))

    # ---- wildcards

    def test_wildcards_of_the_host_are_expanded_in_order_without_regard_to_case(self):
        for name in ("b.txt", "A.TXT", "ä.txt", ".hidden.txt", "c.dat", "d1/x.txt", "d2/y.txt", "d2/z.dat"):
            self.write(name, name.encode())
        self.ok("put", "?.txt", "--rename", "card.orb", "-q")
        self.assertEqual(self.listing(), ["A.TXT", "B.TXT", "_.TXT"])
        self.ok("mkdir", "card.orb:/D")
        self.assertEqual(self.ok("put", "-v", "d*\\?.txt", "card.orb:/D"),
                         "d1\\x.txt -> card.orb:/D/X.TXT\nd2\\y.txt -> card.orb:/D/Y.TXT\n")
        self.ok("format", "other.orb")
        checked = [line.split(":")[0] for line in self.ok("check", "*.orb").splitlines()]
        self.assertEqual(checked, ["card.orb", "other.orb", "2 containers"])

    def test_wildcards_inside_a_container_are_not_the_hosts(self):
        self.write("X1.TXT")
        self.put_text("card.orb:/X2.TXT", "inside")
        self.assertEqual(self.ok("cat", "card.orb:/X*.TXT"), "inside")

    # ---- names

    def test_names_that_windows_keeps_are_refused_or_renamed(self):
        for name in ("CON", "AUX.TXT", "COM1", "DOT.", "PLAIN"):
            self.put_text("card.orb:/" + name, name)
        message = self.fails(1, "get", "card.orb", "out")
        self.assertIn("cannot get card.orb:/CON: Windows takes this name for a device\n"
                      "      store it under another name with: --rename\n", message)
        self.assertIn("cannot get card.orb:/DOT.: Windows has no name that ends in a dot or a blank\n", message)
        self.assertIn("orba: nothing was written\n", message)
        self.assertEqual(self.host_names(), ["card.orb"])
        self.assertEqual(self.ok("get", "--rename", "card.orb", "out"),
                         "card.orb:/AUX.TXT -> out/_AUX.TXT\ncard.orb:/COM1 -> out/_COM1\n"
                         "card.orb:/CON -> out/_CON\ncard.orb:/DOT. -> out/DOT._\n")
        self.assertEqual(self.contents("out"), {"_AUX.TXT": b"AUX.TXT", "_COM1": b"COM1", "_CON": b"CON",
                                                "DOT._": b"DOT.", "PLAIN": b"PLAIN"})
        self.assertIn("renamed: /CON -> _CON\n", self.ok("recover", "card.orb", "saved"))

    def test_what_is_written_gets_no_name_that_windows_keeps(self):
        self.write("tree/x", b"x")
        self.ok("put", "tree/x", "card.orb")
        for name, why, commands in (
                ("con", "takes this name for a device", ["format", "create", "compact", "get", "export"]),
                ("card.orb:more", 'has no ":" in names', ["format", "create", "compact", "get", "export"]),
                ("dot.", "has no name that ends in a dot or a blank", ["format", "create", "compact", "export"])):
            for command in commands:
                operands = {"format": [name], "create": [name, "tree"], "compact": ["card.orb", name],
                            "get": ["card.orb:/X", name], "export": ["--format=tar", "card.orb", name]}[command]
                what = "write" if command in ("get", "export") else "make the container"
                self.assertIn(f"cannot {what} {name}: Windows {why}", self.fails(1, command, *operands))
        self.assertEqual(self.host_names(), ["card.orb", "tree"])

    # ---- streams

    def test_bytes_pass_unchanged_in_both_directions(self):
        everything = bytes(range(256)) * 300 + b"\r\n\n\r\x1a\x1a end"
        self.ok("put", "-", "card.orb:/X", stdin=everything)
        self.assertEqual(self.orba("cat", "card.orb:/X").raw, everything)
        self.assertEqual(self.orba("get", "card.orb:/X", "-").raw, everything)
        self.ok("get", "card.orb:/X", "copy")
        self.assertEqual(self.read("copy"), everything)

    # ---- the console, as Wine draws it on a terminal: with moves of the cursor in place of blanks

    def on_console(self, *arguments, columns=80):
        """One run on a console; its status, and the lines that it shows, without blanks."""
        master, slave = open_terminal()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        process = subprocess.Popen([*PROGRAM, *arguments], stdin=slave, stdout=slave, stderr=slave, cwd=self.folder,
                                   env=self.environment({"NO_COLOR": "1"}))
        os.close(slave)
        seen = b""
        with contextlib.suppress(OSError):  # how a terminal ends
            while part := os.read(master, 65536):
                seen += part
        os.close(master)
        text = re.sub(r"\x1b\[[0-9;?]*[A-Za-z]| ", "", seen.decode())
        return process.wait(LIMIT), [line for line in re.split(r"[\r\n]+", text) if line]

    def test_lists_have_as_many_columns_as_the_console_has_room_for(self):
        self.ok("mkdir", *(f"card.orb:/NAME-{number}" for number in range(1, 9)))
        self.assertEqual(self.on_console("ls", "card.orb"),
                         (0, ["".join(f"NAME-{number}/" for number in range(1, 9))]))
        self.assertEqual(self.on_console("ls", "card.orb", columns=40),
                         (0, ["NAME-1/NAME-3/NAME-5/NAME-7/", "NAME-2/NAME-4/NAME-6/NAME-8/"]))

    def test_the_console_shows_characters_of_any_script(self):
        self.ok("format", "Größe-Ω-日本.orb")
        self.ok("mkdir", "Größe-Ω-日本.orb:/D")
        self.assertEqual(self.on_console("tree", "Größe-Ω-日本.orb"),
                         (0, ['"Größe-Ω-日本.orb:/"', "└──D", "1directory,0files"]))

    def test_long_work_shows_progress_on_the_console(self):
        self.write("BIG", bytes(5 << 20))
        status, lines = self.on_console("put", "BIG", "card.orb")
        self.assertEqual(status, 0)
        self.assertRegex(lines[0], r"^put\[\.+\]0%0of5\.1M")
        self.assertEqual(self.on_console("put", "-q", "BIG", "card.orb:/SECOND"), (0, []))

    # ---- archives

    def test_archives_of_compressors_that_are_not_there_are_refused(self):
        self.assertIn("it has to end in one of .tar, .tar.gz, .zip, or give --format",
                      self.fails(16, "export", "card.orb", "card.tar.xz"))
        for pack in (bz2.compress, lzma.compress):
            self.write("x", pack(bytes(10240)))
            self.assertIn("it must be tar or zip, whole, and compressed by gzip if at all",
                          self.fails(1, "import", "x", "card.orb"))

    def test_names_in_archives_beyond_the_code_page_are_known(self):
        with zipfile.ZipFile(self.path("a.zip"), "w") as archive:
            archive.writestr("Größe-日本.txt", b"text")
        self.assertEqual(self.ok("import", "--rename", "a.zip", "card.orb"),
                         "Größe-日本.txt -> card.orb:/GR__E-__.TXT\n")

    # ---- other programs

    def test_a_source_that_another_program_has_for_itself_says_so(self):
        self.write("file", b"text")
        with self.held("file"):
            message = self.fails(1, "put", "file", "card.orb")
        self.assertIn("cannot read file: another program has it open (EBUSY", message)

    def test_a_target_that_another_program_has_open_stays(self):
        self.put_text("card.orb:/X", "new")
        self.write("X", b"old")
        with self.held("X"):
            message = self.fails(1, "get", "-f", "card.orb:/X")
        self.assertIn("cannot write ./X: another program has it open (EBUSY", message)
        self.assertEqual(self.read("X"), b"old")
        self.assertEqual(self.host_names(), ["X", "card.orb"])

    def test_get_interrupted_leaves_no_half_file(self):
        self.write("big", os.urandom(64 << 20))
        self.ok("put", "big", "card.orb")
        self.interrupt("get", "card.orb:/BIG", "out",
                       begun=lambda: any(name.startswith(".orba-") for name in self.host_names()),
                       afresh=lambda: self.path("out").unlink(missing_ok=True))
        self.assertEqual(self.host_names(), ["big", "card.orb"])


if __name__ == "__main__":
    unittest.main()
