"""put, get and cat: between the host and a container."""
import os
import re
import resource
import shlex
import signal
import subprocess
import unittest

from support import (BLOCK_1, INTERRUPTED, LIMIT, NODE_SIZE, PROGRAM, SANITIZED, WINDOWS, ToolTest, linux_alone,
                     obey_modes)

ALL_BYTES = bytes(range(256)) * 40


class PutTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()

    def test_put_file_into_root_takes_its_name_in_upper_case(self):
        self.write("report.txt", ALL_BYTES)
        self.assertEqual(self.ok("put", "report.txt", "card.orb"), "")
        self.assertEqual(self.orba("cat", "card.orb:/REPORT.TXT").raw, ALL_BYTES)
        self.assert_clean()

    def test_put_file_to_a_new_name(self):
        self.write("report.txt", b"x")
        self.ok("put", "report.txt", "card.orb:/other.txt")
        self.assertEqual(self.listing(), ["OTHER.TXT"])

    def test_put_several_into_a_directory(self):
        self.write("a/one", b"1")
        self.write("b/two", b"2")
        self.ok("mkdir", "card.orb:/D")
        self.ok("put", "a/one", "b/two", "card.orb:/D")
        self.assertEqual(self.listing("card.orb:/D"), ["ONE", "TWO"])

    def test_put_several_to_a_missing_directory_is_refused(self):
        self.write("one")
        self.write("two")
        message = self.fails(1, "put", "one", "two", "card.orb:/D")
        self.assertIn("cannot put anything into card.orb:/D: a directory of the path is missing or is a file "
                      "(ORB_ERROR_PATH_NOT_FOUND, 0x30000014)", message)
        self.assertIn("orba mkdir -p", message)

    def test_put_into_a_folder_of_the_host_points_to_get(self):
        self.path("out").mkdir()
        self.assertEqual(self.fails(1, "put", "card.orb:/", "out"),
                         "orba: cannot put anything into out: it is a folder of the host\n"
                         "      from a container to the host: orba get\n")

    def test_put_below_a_missing_directory_is_refused(self):
        self.write("one")
        self.assertIn("cannot find card.orb:/D: there is no such file or directory "
                      "(ORB_ERROR_FILE_NOT_FOUND, 0x30000013)", self.fails(1, "put", "one", "card.orb:/D/ONE"))

    def test_put_directory_makes_it_below_the_target(self):
        self.write("tree/sub/x", b"x")
        self.ok("put", "tree", "card.orb")
        self.assertEqual(self.ok("cat", "card.orb:/TREE/SUB/X"), "x")

    def test_put_directory_to_a_new_name(self):
        self.write("tree/sub/x", b"x")
        self.ok("put", "tree", "card.orb:/BUSH")
        self.assertEqual(self.ok("cat", "card.orb:/BUSH/SUB/X"), "x")

    def test_put_contents_of_a_directory(self):
        self.write("tree/sub/x", b"x")
        self.ok("put", "tree/.", "card.orb")
        self.assertEqual(self.listing(), ["SUB"])

    def test_put_fills_up_directories_that_are_there(self):
        self.write("one/tree/a", b"a")
        self.write("two/tree/b", b"b")
        self.ok("put", "one/tree", "card.orb")
        self.ok("put", "two/tree", "card.orb")
        self.assertEqual(self.listing("card.orb:/TREE"), ["A", "B"])

    def test_put_standard_input_needs_a_name(self):
        self.put_text("card.orb:/X", "from a pipe")
        self.assertEqual(self.ok("cat", "card.orb:/X"), "from a pipe")
        self.assertIn("it has no name", self.fails(1, "put", "-", "card.orb"))

    def test_put_verbose_names_every_file(self):
        self.write("tree/x")
        self.assertEqual(self.ok("put", "-v", "tree", "card.orb"),
                         "tree -> card.orb:/TREE\ntree/x -> card.orb:/TREE/X\n")

    def test_put_existing_file_is_refused_and_kept(self):
        self.write("x", b"new")
        self.put_text("card.orb:/X", "old")
        message = self.fails(1, "put", "x", "card.orb")
        self.assertIn("cannot write card.orb:/X: it exists (ORB_ERROR_FILE_EXISTS, 0x30000015)", message)
        self.assertIn("--force", message)
        self.assertIn("nothing was put", message)
        self.assertEqual(self.ok("cat", "card.orb:/X"), "old")

    def test_put_force_overwrites_and_keeps_the_attribute(self):
        self.write("x", b"new")
        self.put_text("card.orb:/X", "old and longer")
        self.ok("attrib", "+u", "card.orb:/X")
        self.ok("put", "--force", "x", "card.orb")
        self.assertEqual(self.ok("cat", "card.orb:/X"), "new")
        self.assertEqual(self.ok("attrib", "card.orb:/X"), "-u  card.orb:/X\n")
        self.assertEqual(self.listing(), ["X"])
        self.assert_clean()

    def test_put_force_over_read_only_file_is_refused(self):
        self.write("x", b"new")
        self.put_text("card.orb:/X", "old")
        self.ok("attrib", "+r", "card.orb:/X")
        message = self.fails(1, "put", "--force", "x", "card.orb")
        self.assertIn("cannot overwrite card.orb:/X: it is read-only (ORB_ERROR_ACCESS_DENIED, 0x30000019)", message)
        self.assertIn("orba attrib -r card.orb:/X", message)
        self.assertEqual(self.ok("cat", "card.orb:/X"), "old")

    def test_put_force_does_not_turn_files_into_directories_or_back(self):
        self.write("tree/x")
        self.write("y")
        self.put_text("card.orb:/TREE")
        self.ok("mkdir", "card.orb:/Y")
        self.assertIn("a file of this name is there", self.fails(1, "put", "-f", "tree", "card.orb"))
        self.assertIn("a directory of this name is there", self.fails(1, "put", "-f", "y", "card.orb"))

    def test_put_missing_source_fails_others_go_in(self):
        self.write("x")
        message = self.fails(1, "put", "x", "missing", "card.orb")
        self.assertIn("cannot put missing: No such file or directory (ENOENT, 2)", message)
        self.assertEqual(self.listing(), ["X"])

    def test_put_what_is_no_file_is_left_out(self):
        linux_alone("symbolic links, which Wine follows unseen")
        self.write("tree/x", b"x")
        os.mkfifo(self.path("tree/pipe"))
        os.symlink("x", self.path("tree/link"))
        os.symlink(".", self.path("tree/loop"))
        os.symlink("nowhere", self.path("tree/broken"))
        message = self.fails(1, "put", "tree", "card.orb")
        self.assertIn("cannot put tree/pipe: it is not an ordinary file", message)
        self.assertIn("cannot put tree/loop: it is a symbolic link to a directory", message)
        self.assertIn("cannot put tree/broken: No such file or directory (ENOENT, 2)", message)
        self.assertEqual(self.listing("card.orb:/TREE"), ["LINK", "X"])
        self.assertEqual(self.ok("cat", "card.orb:/TREE/LINK"), "x")

    def test_put_container_into_itself_is_left_out(self):
        self.write("x")
        message = self.fails(1, "put", ".", "card.orb")
        self.assertIn("cannot put ./card.orb: it is the container itself", message)
        self.assertEqual(self.listing(), ["X"])
        self.assert_clean()

    def test_put_file_of_two_gibibytes_is_refused(self):
        with open(self.path("huge"), "wb") as huge:
            huge.truncate(1 << 31)
        self.assertIn("cannot put huge: it has 2147483648 bytes, and with blocks of 4096 bytes a file has at most "
                      "2147483647\n      leave it out, or split it\n", self.fails(1, "put", "huge", "card.orb"))

    def test_put_more_files_than_nodes_puts_nothing(self):
        self.ok("format", "--nodes", "8", "small.orb")
        for number in range(8):
            self.write(f"tree/F{number}", b"x")
        before = self.read("small.orb")
        self.assertEqual(self.fails(1, "put", "tree/.", "small.orb"),
                         "orba: cannot put all of it into small.orb: these are 8 files and directories, and it has "
                         "room for 7 more (ORB_ERROR_NO_FREE_NODE, 0x30000017)\n"
                         "      use a container for more: orba format --nodes N, at most 28672 with --block-size 8192\n"
                         "orba: nothing was put\n")
        self.assertEqual(self.read("small.orb"), before)
        self.path("tree/F7").unlink()
        self.ok("put", "tree/.", "small.orb")
        self.assertEqual(len(self.listing("small.orb")), 7)
        self.assert_clean("small.orb")

    def test_put_of_a_file_too_large_for_the_blocks_names_the_block_size_that_holds_it(self):
        self.ok("format", "-b", "1024", "small.orb")
        largest = 1024 * (6 + 256 + 256 * 256)
        with open(self.path("huge"), "wb") as huge:
            huge.truncate(largest + 1)
        before = self.read("small.orb")
        self.assertEqual(self.fails(1, "put", "huge", "small.orb"),
                         f"orba: cannot put huge: it has {largest + 1} bytes, and with blocks of 1024 bytes a file has "
                         f"at most {largest}\n"
                         "      use a container with larger blocks: orba format --block-size 2048\n"
                         "orba: nothing was put\n")
        self.assertEqual(self.read("small.orb"), before)

    def test_put_of_more_than_a_container_holds_puts_nothing(self):
        for name in ("a", "b"):
            with open(self.path(name), "wb") as large:
                large.truncate(1 << 30)
        before = self.read("card.orb")
        message = self.fails(1, "put", "a", "b", "card.orb")
        self.assertIn("orba: cannot put all of it into card.orb: it takes 2.1G (524802 blocks), and ", message)
        self.assertIn("orba: nothing was put\n", message)
        self.assertEqual(self.read("card.orb"), before)

    def test_put_takes_just_what_it_says(self):
        """The largest file that is let in fits, one byte more is refused."""
        self.ok("format", "-b", "1024", "--nodes", "104", "small.orb")
        with open(self.path("small.orb"), "r+b") as container:  # all but 300 blocks are taken by nobody
            container.truncate((1 << 31) - 1 - 300 * 1024)
        info = self.ok("info", "small.orb")
        room = int(re.search(r"appendable blocks +(\d+)", info)[1])
        size = (room - 3) * 1024  # contents, and three blocks that say where they are
        self.write("big", bytes(size + 1))
        before = os.stat(self.path("small.orb")).st_size
        self.assertIn(f"({room + 1} blocks), and a container has room for ", self.fails(1, "put", "big", "small.orb"))
        self.assertEqual(os.stat(self.path("small.orb")).st_size, before)
        self.write("big", bytes(size))
        self.ok("put", "big", "small.orb")

    def test_put_of_trees_deeper_than_can_be_walked_is_refused(self):
        os.makedirs(self.path("deep/" + "d/" * 511))
        if not WINDOWS:  # Wine takes a minute for it
            self.ok("put", "deep", "card.orb")
            self.assertIn("\n512 directories, 0 files\n", self.ok("tree", "card.orb"))
            self.ok("rm", "-r", "card.orb:/DEEP")
        os.makedirs(self.path("deep/" + "d/" * 512))
        message = self.fails(1, "put", "deep", "card.orb")
        self.assertIn("d: it would lie more than 512 directories deep\n", message)
        self.assertIn("orba: nothing was put\n", message)
        self.assertEqual(self.listing(), [])

    def test_put_syncs_once_or_after_each_file(self):
        for name in "abc":
            self.write("tree/" + name, b"x" * 5000)
        status, calls = self.host_calls("put", "tree", "card.orb")
        self.assertEqual((status, calls.count("sync /card.orb"), calls[-1]), (0, 1, "sync /card.orb"))
        status, calls = self.host_calls("put", "-f", "--sync=each", "tree", "card.orb")
        self.assertEqual(status, 0)
        self.assertGreaterEqual(calls.count("sync /card.orb"), 3)
        self.assertEqual(calls[-1], "sync /card.orb")
        status, _ = self.host_calls("put", "-f", "tree", "card.orb", at="sync card.orb 1 5")
        self.assertEqual(status, 1)

    def test_a_pipe_from_the_container_itself_stores_the_right_contents_or_fails(self):
        program = shlex.join(PROGRAM)
        sizes = {"NONE": 0, "SMALL": 3000, "PIECE": 256 << 10, "LARGE": 2_000_000}
        for name, size in sizes.items():
            self.write(name, os.urandom(size))
            self.ok("put", name, "card.orb")
        for _ in range(3 if WINDOWS or SANITIZED else 50):  # which start slowly
            for name in sizes:
                done = subprocess.run(f"{program} cat card.orb:/{name} | {program} put -f - card.orb:/COPY", shell=True,
                                      cwd=self.folder, capture_output=True, check=False, timeout=LIMIT)
                if done.returncode == 0 and not done.stderr:
                    self.assertEqual(self.orba("cat", "card.orb:/COPY").raw, self.read(name), name)
                else:
                    self.assertIn(b"another program has the container open", done.stderr)
        self.assert_clean()

    def test_put_onto_a_full_disk_takes_the_partial_file_away(self):
        self.write("small", bytes(1000))
        self.write("zbig", bytes(1 << 20))

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (100 << 10, 100 << 10))

        message = self.fails(1, "put", "small", "zbig", "card.orb", preexec_fn=limit)
        self.assertIn("cannot write card.orb:/ZBIG: the disk that holds the container is full "
                      "(ORB_ERROR_DISK_FULL, 0x3000001A)", message)
        self.assertEqual(self.listing(), ["SMALL"])
        self.assert_clean()

    def test_put_over_a_file_without_room_names_that_file_and_keeps_it(self):
        self.put_text("card.orb:/X", "old")
        self.write("x", bytes(1 << 20))

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (100 << 10, 100 << 10))

        message = self.fails(1, "put", "-f", "x", "card.orb", preexec_fn=limit)
        self.assertIn("cannot write card.orb:/X: the disk that holds the container is full", message)
        self.assertEqual(self.listing(), ["X"])
        self.assertEqual(self.ok("cat", "card.orb:/X"), "old")
        self.assert_clean()

    def test_put_no_clobber_leaves_alone_what_is_there(self):
        self.write("tree/a", b"a")
        self.write("tree/sub/b", b"b")
        self.ok("put", "tree", "card.orb")
        for name in ("a", "sub/b", "sub/c"):
            self.write("tree/" + name, b"new")
        self.ok("put", "-n", "tree", "card.orb")
        self.assertEqual(self.ok("cat", "card.orb:/TREE/A", "card.orb:/TREE/SUB/B", "card.orb:/TREE/SUB/C"), "abnew")
        self.assertIn("--force", self.fails(16, "put", "-n", "-f", "tree", "card.orb"))

    def test_put_no_clobber_takes_up_a_put_that_was_killed_in_the_midst_of_a_file(self):
        self.write("tree/a", b"a")
        os.mkfifo(self.path("tree/big"))
        with subprocess.Popen([*PROGRAM, "put", "-", "card.orb:/BIG"], stdin=subprocess.PIPE, cwd=self.folder,
                              env=self.environment()) as process:
            process.stdin.write(bytes(2 << 20))  # far more than a pipe holds: the work has begun
            process.stdin.flush()
            process.kill()
        self.orba("repair", "card.orb")  # killed inside an update or between two
        self.assertEqual(self.listing(), ["~ORBA-1.TMP"])
        self.assertGreater(len(self.orba("cat", "card.orb:/~ORBA-1.TMP").raw), 1 << 19)
        self.path("tree/big").unlink()
        self.write("tree/big", ALL_BYTES)
        result = self.orba("put", "-n", "tree/.", "card.orb")
        self.assertEqual((result.status, result.out, result.err),
                         (0, "", "orba: removed card.orb:/~ORBA-1.TMP, which an interrupted put, import, cp or mv had "
                                 "left\n"))
        self.assertEqual(self.listing(), ["A", "BIG"])
        self.assertEqual(self.orba("cat", "card.orb:/BIG").raw, ALL_BYTES)
        self.assert_clean()

    def test_put_removes_what_was_left_in_the_directories_that_it_writes_alone(self):
        self.ok("mkdir", "card.orb:/A", "card.orb:/B", "card.orb:/A/~ORBA-2.TMP")
        for name in ("A/~ORBA-1.TMP", "A/~ORBA-77.TMP", "B/~ORBA-1.TMP", "A/~ORBA-.TMP", "A/~ORBA-1X.TMP"):
            self.put_text("card.orb:/X")
            self.ok("mv", "card.orb:/X", "card.orb:/" + name)
        self.write("one")
        self.write("two")
        message = self.orba("put", "one", "two", "card.orb:/A").err
        self.assertEqual(message.count("orba: removed "), 2)
        self.assertEqual(self.listing("card.orb:/A"), ["ONE", "TWO", "~ORBA-.TMP", "~ORBA-1X.TMP", "~ORBA-2.TMP"])
        self.assertEqual(self.listing("card.orb:/B"), ["~ORBA-1.TMP"])

    def test_put_under_a_temporary_name_is_refused(self):
        self.write("x")
        self.assertIn("cannot write card.orb:/~ORBA-1.TMP: this name is kept for files that are being written",
                      self.fails(1, "put", "x", "card.orb:/~orba-1.tmp"))
        self.assertEqual(self.listing(), [])

    def test_put_below_long_paths_writes_under_a_temporary_name(self):
        folder = "card.orb:" + "".join(f"/{letter * 19}" for letter in "ABCDEFG")
        self.ok("mkdir", "-p", folder)
        self.write("x", b"first" * 1000)
        self.ok("put", "x", folder)
        self.write("x", b"second")
        self.ok("put", "-f", "x", folder)
        self.assertEqual(self.ok("cat", folder + "/X"), "second")
        self.ok("cp", folder + "/X", folder + "/Y")
        self.put_text("card.orb:/Z", "third")
        self.ok("cp", "-f", "card.orb:/Z", folder + "/Y")
        self.ok("mv", "-f", folder + "/Y", folder + "/X")
        self.assertEqual(self.ok("cat", folder + "/X"), "third")
        self.assertEqual(self.listing(folder), ["X"])
        self.assert_clean()

    def test_put_of_a_pattern_that_matches_nothing_says_so(self):
        for options in ([], ["--rename"]):
            self.assertEqual(self.fails(1, "put", *options, "*.xyz", "card.orb"),
                             "orba: cannot put *.xyz: No such file or directory (ENOENT, 2)\n"
                             "      the shell found nothing that matches, and left it as it is\n")

    def test_put_links_that_lead_nowhere_and_containers_say_what_they_are(self):
        if not WINDOWS:
            self.path("dangling").symlink_to("nowhere")
            self.assertIn("cannot put dangling: No such file or directory (ENOENT, 2)\n"
                          "      it is a symbolic link that leads nowhere\n",
                          self.fails(1, "put", "dangling", "card.orb"))
        self.assertIn("      the way from container to container is: orba cp\n",
                      self.fails(1, "put", "other.orb:/X", "card.orb"))

    def test_put_names_that_are_no_text_are_shown_safely(self):
        linux_alone("names that Windows does not allow")
        with open(os.fsencode(self.path("x")) + b"\xff\xc2\x9b", "wb"):
            pass
        self.assertIn("cannot put ./x\\xFF\\xC2\\x9B: ", self.fails(1, "put", ".", "card.orb"))

    def test_put_names_with_line_ends_and_escapes_are_shown_safely(self):
        linux_alone("names that Windows does not allow")
        self.write("tree/a\nb")
        self.write("tree/c\x1b[2Jd")
        message = self.fails(1, "put", "tree/.", "card.orb")
        self.assertIn("orba: cannot put tree/a\\x0Ab: ", message)
        self.assertIn("orba: cannot put tree/c\\x1B[2Jd: ", message)
        self.assertEqual(self.ok("put", "--rename", "tree/.", "card.orb"),
                         "tree/a\\x0Ab -> card.orb:/A_B\ntree/c\\x1B[2Jd -> 'card.orb:/C_[2JD'\n")

    def test_put_interrupted_leaves_a_clean_container_without_the_file(self):
        with subprocess.Popen([*PROGRAM, "put", "-", "card.orb:/BIG"], stdin=subprocess.PIPE, stderr=subprocess.PIPE,
                              cwd=self.folder, env=self.environment()) as process:
            process.stdin.write(bytes(1 << 20))  # more than a pipe holds: the work has begun
            process.send_signal(signal.SIGINT)
            message = process.stderr.read()  # nothing more is fed: it does not wait for that
        self.assertEqual((process.returncode, message), (INTERRUPTED, b"orba: interrupted\n"))
        self.assertEqual(self.listing(), [])
        self.assert_clean()


class NameTest(ToolTest):
    LONG = "a name of thirty characters.md"

    def setUp(self):
        super().setUp()
        self.format()

    def test_put_illegal_names_are_refused_naming_the_rule_and_nothing_is_put(self):
        for name in ("fine.txt", "two words", "naïve.txt", "a" * 30, "semi;colon"):
            self.write("tree/" + name)
        if not WINDOWS:
            self.write("tree/tab\there")
        message = self.fails(1, "put", "tree/.", "card.orb")
        self.assertIn('cannot put tree/two words: its name cannot be stored: it holds " " '
                      "(ORB_ERROR_INVALID_NAME, 0x3000000F)", message)
        self.assertIn('it holds "ï"', message)
        self.assertIn('it holds ";"', message)
        self.assertIn("it has 30 characters", message)
        if not WINDOWS:
            self.assertIn("cannot put tree/tab\\x09here: its name cannot be stored: it holds a control character",
                          message)
        self.assertIn("names have 1 to 29 characters out of A-Z 0-9 !#$%&'()-^~@{}[]_.", message)
        self.assertIn("--rename", message)
        self.assertEqual(self.listing(), [])

    def test_put_many_illegal_names_are_cut_short(self):
        for number in range(50):
            self.write(f"tree/no good {number:02}")
        message = self.fails(1, "put", "tree", "card.orb")
        self.assertEqual(message.count("ORB_ERROR_INVALID_NAME"), 20)
        self.assertIn("and 30 more of the kind", message)

    def test_put_longest_name_and_all_signs_are_stored(self):
        names = ["A" * 29, "!#$%&'()-^~@{}[]_.", "..."] if not WINDOWS else ["A" * 29, "!#$%&'()-^~@{}[].._"]
        for name in names:
            self.write("tree/" + name, name.encode())
        self.ok("put", "tree/.", "card.orb")
        self.assertEqual(self.listing(), sorted(names))
        self.assert_clean()

    def test_put_names_that_differ_in_case_alone_are_refused(self):
        self.write("tree/readme", b"small")
        self.write("tree/README", b"great")
        message = self.fails(1, "put", "tree", "card.orb")
        self.assertIn("cannot put tree/readme: in a container its name is the same as that of tree/README "
                      "(ORB_ERROR_FILE_EXISTS, 0x30000015)", message)

    def test_put_rename_makes_legal_unique_names_and_prints_them(self):
        other = "two+words.txt" if WINDOWS else "two\twords.txt"
        for name in ("two words.txt", "two_words.txt", other, "grüße.txt", "README", "readme",
                     "a" * 40 + ".text", "b" * 35, "b" * 36, "x." + "y" * 40):
            self.write("tree/" + name, name.encode())
        out = self.ok("put", "--rename", "tree/.", "card.orb")
        renamed = dict(line.split(" -> card.orb:/") for line in out.splitlines())
        self.assertEqual(renamed, {
            "tree/" + other.replace("\t", "\\x09"): "TWO_WORDS~2.TXT" if WINDOWS else "TWO_WORDS~1.TXT",
            "tree/two words.txt": "TWO_WORDS~1.TXT" if WINDOWS else "TWO_WORDS~2.TXT",
            "tree/grüße.txt": "GR__E.TXT",
            "tree/readme": "README~1",
            "tree/" + "a" * 40 + ".text": "A" * 24 + ".TEXT",
            "tree/" + "b" * 35: "B" * 29,
            "tree/" + "b" * 36: "B" * 27 + "~1",
            "tree/x." + "y" * 40: "X." + "Y" * 27,
        })
        for host, stored in renamed.items():
            self.assertEqual(self.ok("cat", "card.orb:/" + stored), host.removeprefix("tree/").replace("\\x09", "\t"))
        self.assertEqual(self.ok("cat", "card.orb:/TWO_WORDS.TXT"), "two_words.txt")

    def test_put_rename_gives_the_same_names_in_every_run(self):
        self.put_text("card.orb:/A_B", "old")
        self.write("tree/a b", b"new")
        self.write("tree/a+b", b"plus")
        self.assertIn("cannot write card.orb:/A_B: it exists (ORB_ERROR_FILE_EXISTS, 0x30000015)",
                      self.fails(1, "put", "--rename", "tree/.", "card.orb"))
        self.assertEqual(self.listing(), ["A_B"])
        self.assertEqual(self.ok("put", "-n", "--rename", "tree/.", "card.orb"), "tree/a+b -> card.orb:/A_B~1\n")
        self.assertEqual(self.ok("cat", "card.orb:/A_B", "card.orb:/A_B~1"), "oldplus")
        for _ in range(2):
            self.assertEqual(self.ok("put", "-f", "--rename", "tree/.", "card.orb"),
                             "tree/a b -> card.orb:/A_B\ntree/a+b -> card.orb:/A_B~1\n")
            self.assertEqual(self.ok("cat", "card.orb:/A_B", "card.orb:/A_B~1"), "newplus")
        self.assertEqual(self.ok("put", "-n", "--rename", "tree/.", "card.orb"), "")
        self.assertEqual(self.listing(), ["A_B", "A_B~1"])

    def test_put_rename_takes_up_a_tree_that_is_there_in_part(self):
        self.write("my photos/may 1/x y.jpg", b"x")
        self.ok("put", "--rename", "my photos", "card.orb")
        self.write("my photos/may 1/z z.jpg", b"z")
        self.assertIn("my photos/may 1/z z.jpg -> card.orb:/MY_PHOTOS/MAY_1/Z_Z.JPG\n",
                      self.ok("put", "-n", "--rename", "my photos", "card.orb"))
        self.assertEqual(self.listing("card.orb:/MY_PHOTOS/MAY_1"), ["X_Y.JPG", "Z_Z.JPG"])

    def test_put_rename_of_directories_renames_them(self):
        self.write("my photos/may 1/x y.jpg", b"x")
        self.ok("put", "--rename", "my photos", "card.orb")
        self.assertEqual(self.ok("cat", "card.orb:/MY_PHOTOS/MAY_1/X_Y.JPG"), "x")

    def test_put_rename_does_not_overwrite(self):
        self.put_text("card.orb:/X", "old")
        self.write("x", b"new")
        self.assertIn("it exists", self.fails(1, "put", "--rename", "x", "card.orb"))


class GetTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.write("tree/sub/x.bin", ALL_BYTES)
        self.write("tree/y.txt", b"y")
        self.ok("put", "tree", "card.orb")

    def test_get_file_into_the_current_directory(self):
        self.assertEqual(self.ok("get", "card.orb:/TREE/SUB/X.BIN"), "")
        self.assertEqual(self.read("X.BIN"), ALL_BYTES)

    def test_get_file_to_a_new_name(self):
        self.ok("get", "card.orb:/TREE/Y.TXT", "other")
        self.assertEqual(self.read("other"), b"y")

    def test_get_wildcards_into_a_directory(self):
        self.path("out").mkdir()
        self.ok("get", "card.orb:/TREE/*", "out")
        self.assertEqual(self.contents("out"), {"SUB": None, "SUB/X.BIN": ALL_BYTES, "Y.TXT": b"y"})

    def test_get_directory_below_one_that_is_there_or_as_a_new_one(self):
        self.path("out").mkdir()
        self.ok("get", "card.orb:/TREE", "out")
        self.ok("get", "card.orb:/TREE", "new")
        self.assertEqual(self.contents("out/TREE"), self.contents("new"))
        self.assertEqual(self.read("new/SUB/X.BIN"), ALL_BYTES)

    def test_get_root_gets_what_it_holds(self):
        self.ok("get", "card.orb", "out")
        self.assertEqual(self.host_names("out"), ["TREE"])

    def test_get_lower_writes_names_in_lower_case(self):
        self.ok("get", "--lower", "card.orb", "out")
        self.assertEqual(sorted(self.contents("out")), ["tree", "tree/sub", "tree/sub/x.bin", "tree/y.txt"])

    def test_get_several_to_what_is_no_directory_is_refused(self):
        self.assertIn("cannot get anything into out: No such file or directory (ENOENT, 2)\n"
                      "      make the folder first, or check the path\n",
                      self.fails(1, "get", "card.orb:/TREE/*", "out"))
        self.write("out")
        self.assertIn("cannot get anything into out: Not a directory (ENOTDIR, 20)",
                      self.fails(1, "get", "card.orb:/TREE/*", "out"))

    def test_get_existing_file_is_refused_and_kept(self):
        self.write("Y.TXT", b"mine")
        message = self.fails(1, "get", "card.orb:/TREE/Y.TXT")
        self.assertIn("cannot write ./Y.TXT: File exists (EEXIST, 17)", message)
        self.assertIn("--force", message)
        self.assertEqual(self.read("Y.TXT"), b"mine")

    def test_get_to_standard_output_prints_files(self):
        printed = self.orba("get", "card.orb:/TREE/SUB/X.BIN", "card.orb:/TREE/Y.TXT", "-").raw
        self.assertEqual(printed, ALL_BYTES + b"y")
        self.assertIn("cannot read card.orb:/TREE: it is a directory", self.fails(1, "get", "card.orb:/TREE", "-"))
        self.assertEqual(self.host_names(), ["card.orb", "tree"])

    def test_get_of_a_tree_whose_folder_cannot_be_made_says_so_once(self):
        message = self.fails(1, "get", "card.orb:/TREE", "none/out")
        self.assertEqual(message.count("orba: "), 1)
        self.assertIn("cannot make the directory none/out: No such file or directory (ENOENT, 2)", message)

    def test_get_to_a_place_in_a_container_points_to_cp(self):
        for sources in (["card.orb:/TREE"], ["card.orb:/TREE/Y.TXT", "card.orb:/TREE"]):
            message = self.fails(1, "get", *sources, "card.orb:/OTHER")
            self.assertEqual(message.count("orba: "), 1)
            self.assertIn("from container to container: orba cp", message)

    def test_get_no_clobber_leaves_alone_what_is_there(self):
        self.write("out/SUB/X.BIN", b"mine")
        self.ok("get", "--no-clobber", "card.orb:/TREE/*", "out")
        self.assertEqual(self.contents("out"), {"SUB": None, "SUB/X.BIN": b"mine", "Y.TXT": b"y"})

    def test_get_into_a_folder_that_may_not_be_written_says_so(self):
        self.path("locked").mkdir(mode=0o555)
        message = self.fails(1, "get", "card.orb:/TREE/Y.TXT", "locked", preexec_fn=obey_modes)
        self.assertIn("cannot write locked/Y.TXT: Permission denied (EACCES, 13)\n"
                      "      check who owns it and its permissions\n", message)

    def test_put_of_what_may_not_be_read_leaves_it_out_and_puts_the_rest(self):
        self.write("mixed/open", b"o")
        self.write("mixed/secret", b"s")
        self.path("mixed/closed").mkdir()
        os.mkfifo(self.path("mixed/pipe"))
        for name in ("secret", "closed"):
            os.chmod(self.path("mixed/" + name), 0)
        message = self.fails(1, "put", "mixed", "card.orb", preexec_fn=obey_modes)
        os.chmod(self.path("mixed/closed"), 0o755)
        self.assertIn("cannot read mixed/secret: Permission denied (EACCES, 13)", message)
        self.assertIn("cannot list mixed/closed: Permission denied (EACCES, 13)", message)
        self.assertIn("cannot put mixed/pipe: it is not an ordinary file", message)
        self.assertEqual(self.listing("card.orb:/MIXED"), ["CLOSED", "OPEN"])
        self.assert_clean()

    def test_get_force_overwrites(self):
        self.write("Y.TXT", b"mine and longer")
        self.ok("get", "--force", "card.orb:/TREE/Y.TXT")
        self.assertEqual(self.read("Y.TXT"), b"y")

    def test_get_force_leaves_alone_what_is_no_ordinary_file(self):
        os.mkfifo(self.path("Y.TXT"))
        os.mkfifo(self.path("pipe"))
        self.path("link").symlink_to("pipe")
        for options in ([], ["-f"]):
            for target in (".", "pipe", "link"):
                message = self.fails(1, "get", *options, "card.orb:/TREE/Y.TXT", target)
                self.assertIn(": it is not an ordinary file but a pipe\n      use another name\n", message)
        self.assertTrue(self.path("Y.TXT").is_fifo() and self.path("pipe").is_fifo() and self.path("link").is_symlink())

    def test_get_force_writes_through_a_link_to_a_file_and_not_through_a_broken_one(self):
        linux_alone("symbolic links, which Wine follows unseen")
        self.write("real/file", b"mine")
        self.path("link").symlink_to("real/file")
        self.path("broken").symlink_to("nowhere")
        self.assertIn("cannot write link: File exists (EEXIST, 17)",
                      self.fails(1, "get", "card.orb:/TREE/Y.TXT", "link"))
        self.assertEqual(self.read("real/file"), b"mine")
        self.ok("get", "-f", "card.orb:/TREE/Y.TXT", "link")
        self.assertEqual((self.read("real/file"), self.path("link").is_symlink()), (b"y", True))
        self.assertEqual(self.host_names("real"), ["file"])
        for options in ([], ["-f"]):
            self.assertIn("cannot write broken: No such file or directory (ENOENT, 2)\n"
                          "      it is a symbolic link that leads nowhere",
                          self.fails(1, "get", *options, "card.orb:/TREE/Y.TXT", "broken"))
        self.assertFalse(self.path("nowhere").exists())

    def test_get_onto_a_directory_or_below_a_file_is_refused(self):
        self.path("Y.TXT").mkdir()
        self.write("TREE")
        self.assertIn("Is a directory (EISDIR, 21)", self.fails(1, "get", "-f", "card.orb:/TREE/Y.TXT"))
        self.assertIn("cannot make the directory ./TREE: File exists (EEXIST, 17)",
                      self.fails(1, "get", "-f", "card.orb:/TREE"))

    def test_get_never_overwrites_the_container_it_reads(self):
        before = self.read("card.orb")
        os.link(self.path("card.orb"), self.path("Y.TXT"))
        for target in ("card.orb", "./card.orb", "."):
            self.assertIn("it is the container itself", self.fails(1, "get", "-f", "card.orb:/TREE/Y.TXT", target))
        self.assertEqual(self.read("card.orb"), before)

    def test_get_missing_source_fails_others_come(self):
        message = self.fails(1, "get", "card.orb:/NONE", "card.orb:/TREE/Y.TXT", ".")
        self.assertIn("cannot get card.orb:/NONE: there is no such file or directory", message)
        self.assertEqual(self.read("Y.TXT"), b"y")

    def test_get_keeps_the_times_of_files_and_directories(self):
        # Nodes are numbered in the order of their making: the root, TREE, SUB, X.BIN, Y.TXT.
        for node, stamp in enumerate([(2001, 2, 3, 4, 5, 6), (1999, 12, 31, 23, 59, 59), (2030, 1, 1, 0, 0, 0),
                                      (2024, 2, 29, 12, 0, 1)], start=2):
            self.set_time(node, stamp)
        self.ok("get", "card.orb", "out")
        times = {name: os.stat(self.path("out/" + name)).st_mtime_ns // 10**9
                 for name in ("TREE", "TREE/SUB", "TREE/SUB/X.BIN", "TREE/Y.TXT")}
        self.assertEqual(times, {"TREE": 981173106, "TREE/SUB": 946684799, "TREE/SUB/X.BIN": 1893456000,
                                 "TREE/Y.TXT": 1709208001})

    def test_get_file_without_a_date_carries_the_present_time(self):
        self.write("before")
        stamps = [(0, 0, 0, 0, 0, 0), (2023, 2, 29, 0, 0, 0), (2023, 4, 31, 0, 0, 0), (65535, 255, 255, 9, 9, 9)]
        last = 2005917609600  # the first second of 65535, which some file systems hold and others do not
        os.utime(self.path("before"), (last, last))
        if os.stat(self.path("before")).st_mtime != last:
            stamps.append((65535, 1, 1, 0, 0, 0))
        self.write("before")
        for stamp in stamps:
            self.set_time(5, stamp)
            self.ok("get", "-f", "card.orb:/TREE/Y.TXT")
            age = os.stat(self.path("Y.TXT")).st_mtime - os.stat(self.path("before")).st_mtime
            self.assertTrue(0 <= age < LIMIT, (stamp, age))

    def test_get_obeys_the_umask(self):
        self.ok("get", "card.orb:/TREE/Y.TXT", preexec_fn=lambda: os.umask(0o027))
        self.assertEqual(os.stat(self.path("Y.TXT")).st_mode & 0o777, 0o640)

    def test_get_onto_a_full_disk_leaves_no_half_file(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000))

        message = self.fails(1, "get", "card.orb:/TREE", preexec_fn=limit)
        self.assertIn("cannot write ./TREE/SUB/X.BIN: File too large (EFBIG, 27)", message)
        self.assertEqual(self.contents("TREE"), {"SUB": None, "Y.TXT": b"y"})

    def test_get_interrupted_leaves_no_half_file(self):
        self.write("big", bytes(64 << 20))
        self.ok("put", "big", "card.orb")
        for _ in range(100):
            with subprocess.Popen([*PROGRAM, "get", "card.orb:/BIG", "out"], cwd=self.folder, stderr=subprocess.PIPE,
                                  env=self.environment()) as process:
                written = self.stop_while_writing(process)
                process.send_signal(signal.SIGTERM)
                process.send_signal(signal.SIGCONT)
                _, message = process.communicate(timeout=LIMIT)
            if 0 < written < 60 << 20:  # caught in the midst
                break
            self.path("out").unlink(missing_ok=True)
        self.assertEqual((process.returncode, message), (-signal.SIGTERM, b"orba: interrupted\n"))
        self.assertEqual(self.host_names(), ["big", "card.orb", "tree"])

    def stop_while_writing(self, process):
        """Halts a get once its new file is there; the bytes that are in it, 0 when it came too late."""
        linux_alone("a process halted in the midst of its work")
        temporary = []
        while process.poll() is None and not temporary:
            temporary = [path for path in self.folder.iterdir() if path.name.startswith(".orba-")]
        process.send_signal(signal.SIGSTOP)
        while process.poll() is None:
            with open(f"/proc/{process.pid}/stat", encoding="ascii") as stat:
                if stat.read().rsplit(")", 1)[1].split()[0] == "T":
                    break
        try:
            return temporary[0].stat().st_size if temporary else 0
        except FileNotFoundError:
            return 0

    def test_get_damaged_name_is_not_let_out_of_the_target(self):
        with open(self.path("card.orb"), "rb") as container:
            offset = container.read().index(b"Y.TXT\0")
        self.patch("card.orb", offset, b"../Y\0")
        result = self.orba("get", "card.orb:/TREE", "out")
        self.assertEqual(result.status, 1, result)
        self.assertIn("no path leads to card.orb:/TREE/../Y: its name is damaged", result.err)
        self.assertIn("orba check card.orb", result.err)
        self.assertIn("orba recover card.orb DIR", result.err)
        self.assertEqual(self.host_names(), ["card.orb", "out", "tree"])
        self.assertNotIn("Y", self.host_names("out"))

    def test_get_reserved_name_is_told_and_the_others_arrive(self):
        with open(self.path("card.orb"), "rb") as container:
            offset = container.read().index(b"Y.TXT\0")
        self.patch("card.orb", offset, b"..\0")
        for arguments in (["get", "card.orb:/TREE", "out"], ["ls", "card.orb:/TREE"]):
            result = self.orba(*arguments)
            self.assertEqual(result.status, 1, result)
            self.assertIn("no path leads to card.orb:/TREE/..: its name is damaged: it is that of the directory itself "
                          "or the one above it\n", result.err)
        self.assertEqual(self.contents("out"), {"SUB": None, "SUB/X.BIN": ALL_BYTES})

    def test_get_unreadable_file_is_told_and_leaves_nothing(self):
        with open(self.path("card.orb"), "rb") as container:
            contents = container.read()
        entry = contents.index(b"Y.TXT\0") - 2
        node = int.from_bytes(contents[entry:entry + 2], "little")
        self.patch("card.orb", BLOCK_1 + (node - 1) * NODE_SIZE + 32, b"\xff\xff\xff\x7f")
        result = self.orba("get", "card.orb:/TREE", "out")
        self.assertEqual(result.status, 1, result)
        self.assertIn("orba: cannot read card.orb:/TREE/Y.TXT beyond byte 0: logical block 0 is block 2147483647, "
                      "which the container does not hold\n", result.err)
        self.assertEqual(self.contents("out"), {"SUB": None, "SUB/X.BIN": ALL_BYTES})

    def test_get_crossed_maps_ends_in_proportion_to_the_container(self):
        self.format("x.orb", "--block-size", "1024", "--nodes", "400")
        self.write("big", bytes(300 * 1024))
        self.write("small", b"s")
        self.ok("put", "big", "x.orb:/A")
        for number in range(300):
            self.write(f"many/F{number}", b"s")
        self.ok("put", "many", "x.orb")
        contents = bytearray(self.read("x.orb"))
        first = contents.index(b"INO1")  # the root's, in block 1
        table = [int.from_bytes(contents[128 + 4 * i:132 + 4 * i], "little") for i in range(224)]
        slots = [first + (block - 1) * 1024 + 64 * i for block in table if block for i in range(16)]
        giant = next(slot for slot in slots if contents[slot + 16:slot + 20] == (300 * 1024).to_bytes(4, "little"))
        for slot in slots:  # every file becomes the large one
            if contents[slot + 16:slot + 20] == (1).to_bytes(4, "little"):
                contents[slot + 16:slot + 64] = contents[giant + 16:giant + 64]
        self.write("x.orb", bytes(contents))
        result = self.orba("get", "-q", "x.orb", "out")
        self.assertEqual(result.status, 1, result)
        self.assertIn("block maps are crossed: they name the same blocks over and over\n", result.err)
        total = sum(len(data) for data in self.contents("out").values() if data is not None)
        self.assertLess(total, 4 * len(contents))
        self.assertGreater(total, len(contents) // 2)


class CatTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()

    def test_cat_prints_files_one_after_the_other_byte_for_byte(self):
        self.write("a", ALL_BYTES)
        self.write("b", b"\n\r\0")
        self.ok("put", "a", "b", "card.orb")
        self.assertEqual(self.orba("cat", "card.orb:/A", "card.orb:/B").raw, ALL_BYTES + b"\n\r\0")

    def test_cat_of_a_directory_fails_others_are_printed(self):
        self.ok("mkdir", "card.orb:/D")
        self.put_text("card.orb:/X", "x")
        result = self.orba("cat", "card.orb:/D", "card.orb:/X")
        self.assertEqual((result.status, result.out), (1, "x"))
        self.assertIn("cannot read card.orb:/D: it is a directory (ORB_ERROR_WRONG_KIND, 0x3000001D)", result.err)

    def test_cat_of_a_name_above_29_characters_names_the_rule(self):
        message = self.fails(1, "cat", "card.orb:/" + "X" * 30)
        self.assertIn("ORB_ERROR_INVALID_NAME, 0x3000000F", message)
        self.assertIn("names have 1 to 29 characters", message)

    def test_cat_of_a_container_that_is_open_elsewhere_is_refused(self):
        with self.held("card.orb"):
            message = self.fails(1, "cat", "card.orb:/X")
        self.assertIn("cannot open card.orb: another program has the container open "
                      "(ORB_ERROR_CONTAINER_IN_USE, 0x30000008)", message)


if __name__ == "__main__":
    unittest.main()
