"""ls, tree, du, df and info: what they print, piped."""
import fcntl
import os
import re
import resource
import signal
import subprocess
import unittest

from support import INTERRUPTED, LIMIT, PROGRAM, STATE_FLAGS, WINDOWS, ToolTest, linux_alone, obey_modes


class ListTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "-p", "card.orb:/LOGS/MAY")
        self.put_text("card.orb:/LOGS/DAY1.TXT", "x" * 5000)
        self.put_text("card.orb:/LOGS/A", "")
        self.put_text("card.orb:/README", "hello")

    def test_ls_piped_prints_a_sorted_name_on_each_line(self):
        self.assertEqual(self.ok("ls", "card.orb:/LOGS"), "A\nDAY1.TXT\nMAY\n")

    def test_ls_of_a_file_prints_its_name(self):
        self.assertEqual(self.ok("ls", "card.orb:/logs/day1.txt"), "DAY1.TXT\n")

    def test_ls_of_several_heads_directories_and_names_files_in_full(self):
        self.assertEqual(self.ok("ls", "card.orb:/README", "card.orb:/LOGS/MAY", "card.orb:/LOGS"),
                         "card.orb:/README\n\ncard.orb:/LOGS/MAY:\n\ncard.orb:/LOGS:\nA\nDAY1.TXT\nMAY\n")

    def test_ls_long_prints_attributes_size_time_and_name(self):
        # Nodes are numbered in the order of their making: the root, LOGS, MAY, DAY1.TXT, A, README.
        for node in range(1, 7):
            self.set_time(node, (2024, 5, 17, 8, 30, node))
        self.ok("attrib", "+ru", "card.orb:/LOGS/A")
        self.assertEqual(self.ok("ls", "-l", "card.orb:/LOGS"),
                         "-r-u     0  2024-05-17 08:30:05  A\n"
                         "----  5000  2024-05-17 08:30:04  DAY1.TXT\n"
                         "d---    64  2024-05-17 08:30:03  MAY\n")
        self.assertEqual(self.ok("ls", "-ld", "card.orb"), "d-su  128  2024-05-17 08:30:01  card.orb:/\n")
        self.assertEqual(self.ok("ls", "-lh", "card.orb:/LOGS/DAY1.TXT"), "----  4.9K  2024-05-17 08:30:04  DAY1.TXT\n")

    def test_ls_recursive_lists_every_directory_under_its_name(self):
        self.assertEqual(self.ok("ls", "-R", "card.orb"),
                         "card.orb:/:\nLOGS\nREADME\n\ncard.orb:/LOGS:\nA\nDAY1.TXT\nMAY\n\ncard.orb:/LOGS/MAY:\n")

    def test_ls_all_shows_the_directory_and_the_one_above_too(self):
        self.set_time(1, (2001, 2, 3, 4, 5, 6))
        self.set_time(2, (2002, 2, 3, 4, 5, 6))
        self.assertEqual(self.ok("ls", "-a", "card.orb:/LOGS").splitlines()[:2], [".", ".."])
        lines = self.ok("ls", "-la", "card.orb:/LOGS").splitlines()
        self.assertEqual([line.split()[2:] for line in lines[:2]], [["2002-02-03", "04:05:06", "."],
                                                                    ["2001-02-03", "04:05:06", ".."]])
        self.assertEqual([line.split()[2:] for line in self.ok("ls", "-la", "card.orb").splitlines()[:2]],
                         [["2001-02-03", "04:05:06", "."], ["2001-02-03", "04:05:06", ".."]])
        self.assertEqual(self.ok("ls", "-aR", "card.orb").count("\n..\n"), self.ok("ls", "-R", "card.orb").count(":\n"))

    def test_ls_of_an_empty_directory_prints_nothing(self):
        self.assertEqual(self.ok("ls", "card.orb:/LOGS/MAY"), "")

    def test_ls_of_a_missing_name_fails_others_are_listed(self):
        result = self.orba("ls", "card.orb:/NONE", "card.orb:/README")
        self.assertEqual((result.status, result.out), (1, "card.orb:/README\n"))
        self.assertEqual(result.err, "orba: cannot list card.orb:/NONE: there is no such file or directory "
                                     "(ORB_ERROR_FILE_NOT_FOUND, 0x30000013)\n"
                                     "      check the name; orba ls lists what a container holds\n")

    def test_ls_of_a_file_as_a_directory_fails(self):
        self.assertIn("cannot list card.orb:/README/: it is not a directory (ORB_ERROR_NOT_A_DIRECTORY, 0x3000001E)",
                      self.fails(1, "ls", "card.orb:/README/"))

    def test_ls_of_a_missing_container_points_to_format(self):
        self.assertEqual(self.fails(1, "ls", "none.orb"),
                         "orba: cannot open none.orb: there is no such container "
                         "(ORB_ERROR_FILE_NOT_FOUND, 0x30000013)\n"
                         "      check the name, or make a container with: orba format none.orb\n")

    def test_ls_of_a_container_written_as_a_folder_tells_its_root(self):
        self.path("co:").mkdir()
        self.ok("format", "co:/lon.orb")
        message = self.fails(1, "ls", "co:/lon.orb")
        self.assertIn("cannot open co: there is no such container (ORB_ERROR_FILE_NOT_FOUND, 0x30000013)\n"
                      "      the root of the container co:/lon.orb is co:/lon.orb:/\n", message)
        self.assertEqual(self.ok("ls", "co:/lon.orb:/"), "")
        message = self.fails(1, "ls", "card.orb/")
        self.assertIn("cannot open card.orb/: a folder on the way to it is missing, or is not a folder "
                      "(ORB_ERROR_PATH_NOT_FOUND, 0x30000014)\n"
                      "      the root of that container is card.orb:/\n", message)
        self.assertNotIn("mkdir", self.fails(1, "ls", "none/card.orb"))

    def test_ls_of_what_is_no_container_points_to_check_alone(self):
        self.write("text.txt", b"no container " * 1000)
        message = self.fails(1, "ls", "text.txt")
        self.assertIn("cannot open text.txt: it is not a container, or its header is damaged "
                      "(ORB_ERROR_DAMAGED_VOLUME, 0x3000000A)", message)
        self.assertIn("orba check text.txt", message)
        self.assertNotIn("orba repair", message)

    def test_ls_of_what_is_no_ordinary_file_says_so(self):
        self.assertIn("cannot open .: it is not an ordinary file but a directory (ORB_ERROR_ACCESS_DENIED, 0x30000019)",
                      self.fails(1, "ls", "."))

    def test_ls_of_another_version_points_to_the_header(self):
        self.patch("card.orb", 4, b"2.0 ")
        message = self.fails(1, "ls", "card.orb")
        self.assertIn("the container's format version is not 1.0 (ORB_ERROR_WRONG_VERSION, 0x30000009)", message)
        self.assertIn("orba dump card.orb header", message)

    def test_ls_of_directories_that_contain_each_other_ends(self):
        with open(self.path("card.orb"), "rb") as container:
            contents = container.read()
        # The entry MAY of LOGS (node 3) now leads to LOGS (node 2).
        self.patch("card.orb", contents.index(b"\x03\x00MAY\0"), b"\x02\x00")
        for command in (["ls", "-R", "card.orb"], ["tree", "card.orb"], ["du", "card.orb"], ["get", "card.orb", "out"]):
            result = self.orba(*command)
            self.assertEqual(result.status, 1, result)
            self.assertIn("orba: cannot list card.orb:/LOGS/MAY: it leads back to a directory above it\n", result.err)
            self.assertIn("see the damage with: orba check card.orb\n", result.err)
            self.assertIn("fetch everything that is left with: orba recover card.orb DIR\n", result.err)
        self.assertEqual(self.contents("out"), {"LOGS": None, "LOGS/A": b"", "LOGS/DAY1.TXT": b"x" * 5000,
                                                "LOGS/MAY": None, "README": b"hello"})

    def test_looking_goes_512_directories_deep_and_does_not_call_more_damage(self):
        path = "card.orb:" + "/D" * 250
        self.ok("mkdir", "-p", path)
        self.ok("mkdir", "-p", "card.orb:/E" + "/D" * 250)
        self.ok("mkdir", "-p", "card.orb:/F" + "/D" * 250)
        self.ok("mv", "card.orb:/F", path)
        self.ok("mv", "card.orb:/D", "card.orb:/E" + "/D" * 250)
        for arguments in (["ls", "-R", "card.orb"], ["tree", "card.orb"], ["du", "card.orb"], ["find", "card.orb"]):
            result = self.orba(*arguments)
            self.assertEqual(result.status, 1, result)
            self.assertRegex(result.err, r"^orba: cannot list card\.orb:\.\.\.(/[DF])+: it lies more than 512 "
                                         r"directories deep\n$")
        self.assert_clean()

    def test_every_command_that_mounts_refuses_a_marked_container_and_points_to_repair(self):
        self.mark_dirty()
        self.write("x")
        before = self.read("card.orb")
        for arguments in (["put", "x", "card.orb"], ["mkdir", "card.orb:/D"], ["mv", "card.orb:/README", "card.orb:/X"],
                          ["cp", "card.orb:/README", "card.orb:/X"], ["rm", "-rf", "card.orb:/README"],
                          ["attrib", "+r", "card.orb:/README"], ["touch", "card.orb:/X"]):
            result = self.orba(*arguments)
            self.assertEqual(result.status, 1, result)
            self.assertIn("orba: cannot open card.orb: an update of the container was interrupted "
                          "(ORB_ERROR_NOT_CLEAN, 0x3000000C)\n"
                          "      see what is left to do with: orba check card.orb\n"
                          "      make it mountable again with: orba repair card.orb\n", result.err)
        self.assertEqual(self.read("card.orb"), before)
        self.assertEqual(self.host_names(), ["card.orb", "x"])

    def test_every_command_that_looks_warns_of_a_mark_once_and_goes_on(self):
        for arguments in (["ls", "card.orb", "card.orb:/LOGS"], ["ls", "-lR", "card.orb"], ["tree", "card.orb"],
                          ["du", "-a", "card.orb"], ["cat", "card.orb:/README"], ["attrib", "card.orb:/README"],
                          ["get", "card.orb:/README", "-"]):
            clean = self.ok(*arguments)
            self.mark_dirty()
            before = self.read("card.orb")
            result = self.orba(*arguments)
            self.assertEqual((result.status, result.out), (0, clean), result)
            self.assertEqual(result.err, "orba: warning: card.orb is marked: an update of it was interrupted, and what "
                                         "it changed may be incomplete\n")
            self.assertEqual(self.read("card.orb"), before)
            self.patch("card.orb", STATE_FLAGS, b"\0")

    def test_what_looks_goes_on_beside_what_cannot_be_read(self):
        contents = self.read("card.orb")
        # README's entry now leads to a node that the container cannot have.
        entry = contents.index(b"README\0") - 2
        self.patch("card.orb", entry, b"\xff\xff")
        for arguments in (["ls", "card.orb"], ["tree", "card.orb"], ["du", "-a", "card.orb"]):
            result = self.orba(*arguments)
            self.assertEqual(result.status, 1, result)
            self.assertIn("LOGS", result.out)
            self.assertNotIn("README", result.out)
            self.assertTrue(result.err.startswith("orba: cannot read card.orb:/README: its entry refers to node 65535, "
                                                  "which the container cannot have\n"), result)
            self.assertIn("orba check card.orb\n", result.err)
            self.assertIn("orba recover card.orb DIR\n", result.err)

    def test_two_look_into_one_container_side_by_side(self):
        with self.held("card.orb", alone=False):
            self.ok("ls", "card.orb")
            self.ok("get", "card.orb", "out")
            self.assertIn("another program has the container open", self.fails(1, "mkdir", "card.orb:/D"))
        with self.held("card.orb"):
            for arguments in (["ls", "card.orb"], ["cat", "card.orb:/README"], ["du", "card.orb"], ["df", "card.orb"]):
                message = self.fails(1, *arguments)
                self.assertIn("cannot open card.orb: another program has the container open "
                              "(ORB_ERROR_CONTAINER_IN_USE", message)
                self.assertIn("      wait until it is free with: --wait\n", message)

    def test_a_busy_container_is_waited_for_as_long_as_asked(self):
        for arguments in (["ls", "card.orb"], ["cat", "card.orb:/README"], ["check", "card.orb"],
                          ["mkdir", "-p", "card.orb:/LOGS"]):
            with self.held("card.orb"):
                status = 8 if arguments[0] == "check" else 1
                self.assertIn("another program has the container open", self.fails(status, *arguments, "--wait=0"))
                self.assertIn("another program has the container open", self.fails(status, *arguments, "--wait=1"))
                waiting = subprocess.Popen([*PROGRAM, *arguments, "--wait"], cwd=self.folder, env=self.environment(),
                                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
                with self.assertRaises(subprocess.TimeoutExpired):
                    waiting.wait(0.3)
            self.assertEqual(waiting.wait(LIMIT), 0, arguments)
            self.assertEqual(waiting.stderr.read(), b"")
            waiting.stderr.close()

    def test_waiting_ends_with_a_signal(self):
        ways = {signal.SIGINT: INTERRUPTED}
        if not WINDOWS:
            ways[signal.SIGTERM] = -signal.SIGTERM
        with self.held("card.orb"):
            for way, status in ways.items():
                self.assertEqual(self.stop_waiting(way), (status, b"orba: interrupted\n"))

    def stop_waiting(self, way):
        """A signal to a program that waits: how it ends. Where the machine was so slow that the program had not begun
        it says nothing, and another gets more time."""
        for seconds in (0.5, 5, 50):
            with subprocess.Popen([*PROGRAM, "ls", "--wait", "card.orb"], cwd=self.folder, env=self.environment(),
                                  stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as waiting:
                with self.assertRaises(subprocess.TimeoutExpired):
                    waiting.wait(seconds)
                waiting.send_signal(way)
                message = waiting.stderr.read()
            if message:
                break
        return waiting.returncode, message

    def test_what_holds_a_busy_container_is_named(self):
        linux_alone("who has a file open, as /proc tells")
        with open(self.path("card.orb"), "rb") as container:
            fcntl.flock(container, fcntl.LOCK_EX)
            with open("/proc/locks", encoding="ascii") as locks:
                if not any(f" {os.getpid()} " in line for line in locks):
                    return  # this system does not tell
            self.assertIn(f"      it is open in process {os.getpid()} (", self.fails(1, "ls", "card.orb"))
            self.assertIn(f"      it is open in process {os.getpid()} (", self.fails(1, "mkdir", "card.orb:/X"))


class ReadOnlyContainerTest(ToolTest):
    """A container that its reader may not write, as on a locked card."""

    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "card.orb:/LOGS")
        self.put_text("card.orb:/LOGS/X", "text")
        os.chmod(self.path("card.orb"), 0o444)
        self.before = self.read("card.orb")

    def tearDown(self):
        os.chmod(self.path("card.orb"), 0o444)
        self.assertEqual(self.read("card.orb"), self.before)

    def test_everything_that_looks_works(self):
        for arguments, out in ((["ls", "-R", "card.orb"], "card.orb:/:\nLOGS\n\ncard.orb:/LOGS:\nX\n"),
                               (["tree", "card.orb"], "card.orb:/\n└── LOGS\n    └── X\n\n1 directory, 1 file\n"),
                               (["du", "-b", "card.orb"], "4\tcard.orb:/LOGS\n4\tcard.orb:/\n"),
                               (["cat", "card.orb:/LOGS/X"], "text"),
                               (["attrib", "card.orb:/LOGS/*"], "--  card.orb:/LOGS/X\n"),
                               (["get", "card.orb:/LOGS/X", "copy"], "")):
            self.assertEqual(self.ok(*arguments, preexec_fn=obey_modes), out)
        self.assertEqual(self.read("copy"), b"text")

    def test_looking_needs_no_room_for_a_copy(self):
        self.ok("ls", "card.orb", preexec_fn=obey_modes, environment={"TMPDIR": "/nowhere"})

    def test_everything_that_changes_is_refused(self):
        self.write("file", b"x")
        for arguments in (["put", "file", "card.orb"], ["mkdir", "card.orb:/D"], ["rm", "card.orb:/LOGS/X"],
                          ["mv", "card.orb:/LOGS/X", "card.orb:/X"], ["cp", "card.orb:/LOGS/X", "card.orb:/X"],
                          ["attrib", "+r", "card.orb:/LOGS/X"], ["touch", "card.orb:/LOGS/X"]):
            message = self.fails(1, *arguments, preexec_fn=obey_modes)
            self.assertIn("cannot open card.orb: the host does not let you write to it "
                          "(ORB_ERROR_ACCESS_DENIED, 0x30000019)\n      check who owns it and its permissions", message)

    def test_what_may_not_even_be_read_says_so(self):
        os.chmod(self.path("card.orb"), 0)
        for status, arguments in ((1, ["ls", "card.orb"]), (1, ["info", "card.orb"]), (8, ["check", "card.orb"]),
                                  (1, ["recover", "card.orb", "out"])):
            self.assertIn("cannot read card.orb: Permission denied (EACCES, 13)",
                          self.fails(status, *arguments, preexec_fn=obey_modes))

    def test_repair_that_may_not_write_says_so_and_changes_nothing(self):
        os.chmod(self.path("card.orb"), 0o644)
        self.mark_dirty()
        self.before = self.read("card.orb")
        os.chmod(self.path("card.orb"), 0o444)
        result = self.orba("repair", "--undo", "card.undo", "card.orb", preexec_fn=obey_modes)
        self.assertEqual(result.status, 8)
        self.assertIn("orba: cannot write card.orb: Permission denied (EACCES, 13)", result.err)
        self.assertEqual(self.host_names(), ["card.orb"])


class SortTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        for node, (name, size, year) in enumerate((("B", 1, 2003), ("A", 3, 2002), ("C", 2, 2001)), start=2):
            self.put_text("card.orb:/" + name, "x" * size)
            self.set_time(node, (year, 1, 2, 3, 4, 5))

    def test_ls_sorts_by_name_time_or_size_and_back(self):
        for options, names in (([], "ABC"), (["-r"], "CBA"), (["-t"], "BAC"), (["-tr"], "CAB"), (["-S"], "ACB"),
                               (["-S", "--reverse"], "BCA")):
            self.assertEqual(self.ok("ls", *options, "card.orb").split(), list(names))
        self.assertEqual(self.ok("ls", "-t", "card.orb:/?").split(), ["card.orb:/B", "card.orb:/A", "card.orb:/C"])

    def test_ls_shows_no_date_where_there_is_none_and_sorts_it_last(self):
        self.set_time(2, (65535, 255, 255, 255, 255, 255))
        self.set_time(3, (2023, 2, 29, 0, 0, 0))
        self.set_time(4, (2024, 2, 29, 23, 59, 59))
        self.assertEqual(self.ok("ls", "-lt", "card.orb"), "----  2  2024-02-29 23:59:59  C\n"
                                                           "----  3  -                    A\n"
                                                           "----  1  -                    B\n")

    def test_ls_of_equal_times_sorts_by_name(self):
        for node in (2, 3, 4):
            self.set_time(node, (2001, 1, 2, 3, 4, 5))
        self.assertEqual(self.ok("ls", "-t", "card.orb").split(), ["A", "B", "C"])


class TreeTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "-p", "card.orb:/A/B", "card.orb:/C")
        for name in ("A/B/X", "A/Y", "Z"):
            self.put_text("card.orb:/" + name)

    def test_tree_draws_branches_and_counts(self):
        self.assertEqual(self.ok("tree", "card.orb"),
                         "card.orb:/\n├── A\n│   ├── B\n│   │   └── X\n│   └── Y\n├── C\n└── Z\n"
                         "\n3 directories, 3 files\n")

    def test_tree_in_a_plain_locale_draws_in_ascii(self):
        linux_alone("a locale without UTF-8")
        self.assertEqual(self.ok("tree", "card.orb:/A", environment={"LC_ALL": "C"}),
                         "card.orb:/A\n|-- B\n|   `-- X\n`-- Y\n\n1 directory, 2 files\n")

    def test_tree_of_what_cannot_be_opened_counts_nothing(self):
        self.fails(1, "tree", "none.orb")

    def test_tree_levels_limit_the_depth(self):
        self.assertEqual(self.ok("tree", "-L", "1", "card.orb"),
                         "card.orb:/\n├── A\n├── C\n└── Z\n\n2 directories, 1 file\n")


class SpaceTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format("card.orb", "--block-size", "1024", "--bitmap-bytes", "16")
        self.ok("mkdir", "card.orb:/D")
        # 6 blocks fit into a node; 256 more take one map block; the next ones two further.
        for blocks in (0, 1, 6, 7, 262, 263):
            self.put_text(f"card.orb:/D/F{blocks}", "x" * (1024 * blocks))

    def test_du_counts_blocks_and_their_maps(self):
        self.assertEqual(self.ok("du", "-a", "card.orb:/D"),
                         "0\tcard.orb:/D/F0\n1\tcard.orb:/D/F1\n263\tcard.orb:/D/F262\n266\tcard.orb:/D/F263\n"
                         "6\tcard.orb:/D/F6\n8\tcard.orb:/D/F7\n545\tcard.orb:/D\n")
        self.assertEqual(self.ok("du", "card.orb"), "545\tcard.orb:/D\n546\tcard.orb:/\n")
        self.assertEqual(self.ok("du", "-s", "card.orb"), "546\tcard.orb:/\n")
        self.assertEqual(self.ok("du", "-sb", "card.orb"), f"{539 * 1024}\tcard.orb:/\n")
        self.assertEqual(self.ok("du", "-sh", "card.orb"), "546K\tcard.orb:/\n")

    def test_du_agrees_with_the_blocks_that_a_check_counts(self):
        used = int(self.ok("du", "-s", "card.orb").split("\t")[0])
        info = self.ok("info", "card.orb")
        self.assertIn(f"  in use          {used + 1}: 539 for files, 2 for directories, 1 for nodes, 5 for block maps",
                      info)

    def test_info_of_a_new_container(self):
        self.format("new.orb")
        self.assertEqual(self.ok("info", "new.orb"), """\
container         new.orb
size              10240 bytes (10K)
block size        4096 bytes
node bitmap       1024 bytes
nodes             8192, 8191 of them free
files             0 with 0 bytes
directories       1, the root included
blocks            2
  in use          2: 0 for files, 1 for directories, 1 for nodes, 0 for block maps
  free            0 (0)
  leaked          0
appendable blocks 524285 (2.0G)
update mark       not set
state             clean
""")

    def test_info_works_on_a_marked_container_and_says_so(self):
        self.mark_dirty()
        info = self.ok("info", "card.orb")
        self.assertIn("update mark       set: it will not mount before it is repaired\n", info)
        self.assertIn("state             an update was interrupted, without damage\n", info)

    def test_info_of_several_containers(self):
        self.format("new.orb")
        lines = self.ok("info", "new.orb", "card.orb").splitlines()
        self.assertEqual([line.split(":")[0] for line in lines], ["new.orb", "card.orb", "2 containers"])
        self.assertEqual(lines[0], "new.orb: 10K, blocks of 4096 bytes, 0 files with 0, 1 directory, "
                                   "8191 of 8192 nodes free, clean")
        self.assertEqual(lines[2], "2 containers: 2 clean")

    def test_info_of_what_is_no_container_fails(self):
        self.write("text.txt", b"text")
        self.assertIn("cannot describe text.txt: it is not a container, or its header is damaged "
                      "(ORB_ERROR_DAMAGED_VOLUME, 0x3000000A)", self.fails(1, "info", "text.txt"))
        self.assertIn("cannot read none: No such file or directory (ENOENT, 2)", self.fails(1, "info", "none"))
        self.assertIn("cannot read .: Is a directory (EISDIR, 21)", self.fails(1, "info", "."))

    def test_df_prints_a_line_for_each_container(self):
        self.ok("rm", "card.orb:/D/F262")
        self.format("new.orb", "--nodes", "100")
        rows = [line.split() for line in self.ok("df", "card.orb", "new.orb").splitlines()]
        self.assertEqual(rows[0], "Container Size K Used K Free K Growth K Nodes Left State".split())
        # 1 KiB and 16 bytes before the blocks; 547 of those, 263 of them free since the removal.
        self.assertEqual(rows[1][:4], ["card.orb", "549", "286", "263"])
        self.assertEqual(rows[1][5:], ["128", "121", "clean"])
        # The number of nodes comes in steps of eight.
        self.assertEqual(rows[2][:4] + rows[2][5:], ["new.orb", "10", "10", "0", "104", "103", "clean"])

    def test_df_growth_is_bounded_by_the_disk(self):
        growth = int(self.ok("df", "card.orb").splitlines()[1].split()[4])
        self.assertLess(growth, 2 << 20)
        self.assertGreater(growth, 0)


class FormatTest(ToolTest):
    def test_format_makes_the_container_it_is_told(self):
        self.assertEqual(self.ok("format", "-b", "8192", "-n", "57", "card.orb"), "")
        info = self.ok("info", "card.orb")
        self.assertIn("block size        8192 bytes\nnode bitmap       8 bytes\n", info)
        self.assertIn("nodes             64, 63 of them free\n", info)
        self.assertEqual(len(self.read("card.orb")), 1024 + 8 + 2 * 8192)
        self.assert_clean()

    def test_format_number_of_nodes_unless_told_otherwise(self):
        for size, nodes in ((1024, 3584), (2048, 7168), (4096, 8192), (8192, 8192)):
            self.ok("format", "-b", size, f"{size}.orb")
            self.assertIn(f"nodes             {nodes}, {nodes - 1} of them free\n", self.ok("info", f"{size}.orb"))

    def test_format_with_an_empty_bitmap_holds_the_root_alone(self):
        self.ok("format", "--bitmap-bytes", "0", "card.orb")
        self.assertIn("nodes             1, 0 of them free\n", self.ok("info", "card.orb"))
        self.assertIn("ORB_ERROR_NO_FREE_NODE", self.fails(1, "mkdir", "card.orb:/D"))
        self.assert_clean()

    def test_format_largest_number_of_nodes(self):
        for size, nodes in ((1024, 3584), (2048, 7168), (4096, 14336), (8192, 28672)):
            self.ok("format", "-b", size, "-n", nodes, f"{size}.orb")
            self.assertIn(f"nodes             {nodes}, {nodes - 1} of them free\n", self.ok("info", f"{size}.orb"))
            for wrong in (0, nodes + 1, 70000):
                self.assertIn(f"with blocks of {size} bytes a container holds 1 to {nodes} files and directories, "
                              f"not {wrong}\n", self.fails(16, "format", "-b", size, "-n", wrong, "x"))

    def test_format_rounds_nodes_up_to_eights_as_the_help_says(self):
        self.ok("format", "-n", "1", "one.orb")
        self.write("x", b"x")
        self.ok("put", "x", "one.orb")
        info = self.ok("info", "one.orb")
        self.assertIn("nodes             8, 6 of them free\n", info)
        self.assertIn("files             1 with 1 byte\n", info)
        self.assertIn("at least, the root included; rounded up to a multiple of 8",
                      " ".join(self.ok("format", "--help").split()))

    def test_format_overwrites_nothing(self):
        self.write("mine", b"mine")
        message = self.fails(1, "format", "mine")
        self.assertEqual(message, "orba: cannot make the container mine: a file of this name exists "
                                  "(ORB_ERROR_FILE_EXISTS, 0x30000015)\n"
                                  "      format overwrites nothing: use another name, or remove the file first\n")
        self.assertEqual(self.read("mine"), b"mine")

    def test_format_in_a_missing_folder_fails(self):
        self.assertIn("its folder is missing (ORB_ERROR_PATH_NOT_FOUND, 0x30000014)",
                      self.fails(1, "format", "none/card.orb"))

    def test_format_on_a_full_disk_leaves_nothing(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000))

        self.assertIn("ORB_ERROR_DISK_FULL, 0x3000001A",
                      self.fails(1, "format", "card.orb", preexec_fn=limit, restore_signals=False))
        self.assertEqual(self.host_names(), [])


if __name__ == "__main__":
    unittest.main()
