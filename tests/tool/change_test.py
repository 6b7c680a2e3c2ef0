"""mkdir, mv, cp, rm, attrib and touch: changes inside containers."""
import struct
import unittest

from support import BLOCK_1, NODE_SIZE, NODE_TIME, QUOTE, WINDOWS, ToolTest, obey_modes

OLD = (2001, 2, 3, 4, 5, 6)


class ChangeTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()

    def text(self, address):
        return self.ok("cat", address)


class MakeTest(ChangeTest):
    def test_mkdir_makes_directories(self):
        self.ok("mkdir", "card.orb:/A", "card.orb:/a/b/")
        self.assertEqual(self.listing("card.orb:/A"), ["B"])

    def test_mkdir_of_a_taken_name_fails(self):
        self.put_text("card.orb:/A")
        for name in ("A", "a", ""):
            self.assertIn("the name is taken (ORB_ERROR_FILE_EXISTS, 0x30000015)",
                          self.fails(1, "mkdir", "card.orb:/" + name))

    def test_mkdir_below_a_missing_directory_points_to_parents(self):
        message = self.fails(1, "mkdir", "card.orb:/A/B")
        self.assertIn("cannot make the directory card.orb:/A/B: a directory of the path is missing or is a file "
                      "(ORB_ERROR_PATH_NOT_FOUND, 0x30000014)", message)
        self.assertIn("orba mkdir -p", message)

    def test_mkdir_parents_makes_what_is_missing(self):
        self.ok("mkdir", "card.orb:/A")
        self.ok("mkdir", "-p", "card.orb:/A/B/C", "card.orb:/A/B/C", "card.orb:/")
        self.assertEqual(self.listing("card.orb:/A/B"), ["C"])

    def test_mkdir_parents_through_a_file_fails(self):
        self.put_text("card.orb:/A")
        self.assertIn("cannot make the directory card.orb:/A: the name is taken",
                      self.fails(1, "mkdir", "-p", "card.orb:/A/B"))

    def test_mkdir_one_failure_does_not_stop_the_others(self):
        self.fails(1, "mkdir", "card.orb:/X/Y", "card.orb:/Z")
        self.assertEqual(self.listing(), ["Z"])

    def test_mkdir_of_an_illegal_name_names_the_rule(self):
        message = self.fails(1, "mkdir", "card.orb:/two words")
        quote = "" if WINDOWS else "'"  # a backslash is nothing special there
        self.assertIn(f'cannot use the name in {quote}card.orb:/TWO\\x20WORDS{quote}: it holds " " '
                      "(ORB_ERROR_INVALID_NAME, 0x3000000F)", message)
        self.assertIn("names have 1 to 29 characters", message)


class RemoveTest(ChangeTest):
    def setUp(self):
        super().setUp()
        self.ok("mkdir", "-p", "card.orb:/A/B/C")
        for name in ("X", "A/X", "A/B/X", "A/B/Y"):
            self.put_text("card.orb:/" + name)

    def test_rm_removes_files(self):
        self.ok("rm", "card.orb:/X", "card.orb:/A/B/*X")
        self.assertEqual(self.ok("ls", "-R", "card.orb"), "card.orb:/:\nA\n\ncard.orb:/A:\nB\nX\n\n"
                                                          "card.orb:/A/B:\nC\nY\n\ncard.orb:/A/B/C:\n")

    def test_rm_of_a_directory_needs_recursive(self):
        message = self.fails(1, "rm", "card.orb:/A")
        self.assertIn("cannot remove card.orb:/A: it is a directory (ORB_ERROR_WRONG_KIND, 0x3000001D)", message)
        self.assertIn("orba rm -r", message)
        self.assertEqual(self.listing(), ["A", "X"])

    def test_rm_recursive_gives_all_space_back(self):
        self.ok("rm", "-r", "card.orb:/A", "card.orb:/X")
        self.assertEqual(self.listing(), [])
        info = self.ok("info", "card.orb")
        self.assertIn("nodes             8192, 8191 of them free\n", info)
        self.assertIn("  in use          2: 0 for files, 1 for directories, 1 for nodes, 0 for block maps\n", info)
        self.assert_clean()

    def test_rm_of_the_root_is_refused(self):
        for address in ("card.orb", "card.orb:/", "card.orb:/A/.."):
            message = self.fails(1, "rm", "-rf", address)
            self.assertIn("cannot remove card.orb:/: it is the root of the container", message)
            self.assertIn(f"orba rm -r {QUOTE}card.orb:/*{QUOTE}", message)
        self.assertEqual(self.listing(), ["A", "X"])

    def test_rm_of_everything_below_the_root(self):
        self.ok("rm", "-r", "card.orb:/*")
        self.assertEqual(self.listing(), [])

    def test_rm_of_what_is_missing_is_an_error_unless_forced(self):
        self.assertIn("ORB_ERROR_FILE_NOT_FOUND, 0x30000013", self.fails(1, "rm", "card.orb:/NONE", "card.orb:/X"))
        self.assertEqual(self.listing(), ["A"])
        self.ok("rm", "-f", "card.orb:/NONE", "card.orb:/*.NONE")
        self.assertIn("there is no such container", self.fails(1, "rm", "-f", "none.orb:/X"))

    def test_rm_takes_read_only_files(self):
        self.ok("attrib", "+r", "card.orb:/X")
        self.ok("rm", "card.orb:/X")
        self.assertEqual(self.listing(), ["A"])

    def test_rm_recursive_of_hundreds_leaves_a_clean_container(self):
        for number in range(300):
            self.write(f"many/F{number}", b"x")
        self.ok("put", "many", "card.orb")
        self.ok("rm", "-r", "card.orb:/MANY/F1*")
        self.assertEqual(len(self.listing("card.orb:/MANY")), 300 - 111)
        self.assert_clean()


class MoveTest(ChangeTest):
    def setUp(self):
        super().setUp()
        self.ok("mkdir", "-p", "card.orb:/A/B", "card.orb:/C")
        self.put_text("card.orb:/X", "x")
        self.put_text("card.orb:/A/Y", "y")

    def test_mv_renames(self):
        self.ok("mv", "card.orb:/X", "card.orb:/New.Txt")
        self.assertEqual(self.listing(), ["A", "C", "NEW.TXT"])
        self.assertEqual(self.text("card.orb:/NEW.TXT"), "x")

    def test_mv_into_a_directory_several_and_wildcards(self):
        self.ok("mv", "card.orb:/X", "card.orb:/A/*", "card.orb:/C")
        self.assertEqual(self.ok("ls", "-R", "card.orb"),
                         "card.orb:/:\nA\nC\n\ncard.orb:/A:\n\ncard.orb:/C:\nB\nX\nY\n\ncard.orb:/C/B:\n")
        self.assert_clean()

    def test_mv_onto_a_taken_name_needs_force(self):
        message = self.fails(1, "mv", "card.orb:/X", "card.orb:/A/Y")
        self.assertIn("cannot move card.orb:/X to card.orb:/A/Y: card.orb:/A/Y exists "
                      "(ORB_ERROR_FILE_EXISTS, 0x30000015)", message)
        self.assertIn("--force", message)
        self.assertEqual(self.text("card.orb:/A/Y"), "y")
        self.ok("mv", "-f", "card.orb:/X", "card.orb:/A/Y")
        self.assertEqual(self.text("card.orb:/A/Y"), "x")
        self.assertEqual(self.listing("card.orb:/A"), ["B", "Y"])
        self.assert_clean()

    def test_mv_and_cp_force_leave_no_temporary_file_and_none_of_an_interrupted_run_in_the_way(self):
        self.put_text("card.orb:/A/~", "left")
        self.ok("mv", "card.orb:/A/~", "card.orb:/A/~ORBA-1.TMP")
        self.ok("cp", "-f", "card.orb:/X", "card.orb:/A/Y")
        self.put_text("card.orb:/Z", "z")
        self.ok("mv", "-f", "card.orb:/Z", "card.orb:/A/Y")
        self.assertEqual(self.ok("cat", "card.orb:/A/Y", "card.orb:/A/~ORBA-1.TMP"), "zleft")
        self.assertEqual(self.listing("card.orb:/A"), ["B", "Y", "~ORBA-1.TMP"])
        self.ok("mv", "-f", "card.orb:/A/~ORBA-1.TMP", "card.orb:/A/Y")  # someone wants it back
        self.assertEqual(self.ok("cat", "card.orb:/A/Y"), "left")
        self.assertEqual(self.listing("card.orb:/A"), ["B", "Y"])
        self.assert_clean()

    def test_mv_and_cp_of_a_directory_onto_a_file_are_refused_forced_too(self):
        for arguments in (["mv", "-f"], ["cp", "-rf"]):
            message = self.fails(1, *arguments, "card.orb:/A", "card.orb:/X")
            self.assertIn("card.orb:/A: card.orb:/X is a file (ORB_ERROR_FILE_EXISTS, 0x30000015)", message)
            self.assertNotIn("--force", message)
        self.assertEqual(self.text("card.orb:/X"), "x")

    def test_mv_force_over_read_only_file_is_refused(self):
        self.ok("attrib", "+r", "card.orb:/A/Y")
        self.assertIn("card.orb:/A/Y is read-only (ORB_ERROR_ACCESS_DENIED, 0x30000019)",
                      self.fails(1, "mv", "-f", "card.orb:/X", "card.orb:/A/Y"))

    def test_mv_of_several_onto_a_file_is_refused(self):
        self.assertIn("cannot use card.orb:/X as the target: it is not a directory "
                      "(ORB_ERROR_NOT_A_DIRECTORY, 0x3000001E)",
                      self.fails(1, "mv", "card.orb:/A", "card.orb:/C", "card.orb:/X"))

    def test_mv_to_a_missing_directory_is_refused(self):
        self.assertIn("ORB_ERROR_PATH_NOT_FOUND, 0x30000014", self.fails(1, "mv", "card.orb:/X", "card.orb:/N/X"))
        self.assertIn("ORB_ERROR_PATH_NOT_FOUND, 0x30000014", self.fails(1, "mv", "card.orb:/X", "card.orb:/N/"))
        self.assertEqual(self.listing(), ["A", "C", "X"])

    def test_mv_of_a_directory_into_itself_is_refused(self):
        self.assertIn("ORB_ERROR_IN_USE, 0x30000022", self.fails(1, "mv", "card.orb:/A", "card.orb:/A/B"))
        self.assertIn("ORB_ERROR_IN_USE, 0x30000022", self.fails(1, "mv", "card.orb:/A", "card.orb:/a"))
        self.assertIn("source and target are the same", self.fails(1, "mv", "card.orb:/X", "card.orb:/x"))
        self.assertIn("it is the root", self.fails(1, "mv", "card.orb:/", "card.orb:/C"))
        self.assert_clean()

    def test_mv_to_another_container_points_to_cp(self):
        self.format("other.orb")
        message = self.fails(1, "mv", "card.orb:/X", "other.orb:/X")
        self.assertIn("nothing moves from one container to another (ORB_ERROR_MOVE_NOT_ALLOWED, 0x30000023)", message)
        self.assertIn("orba cp -r", message)


class CopyTest(ChangeTest):
    def setUp(self):
        super().setUp()
        self.ok("mkdir", "-p", "card.orb:/A/B")
        self.put_text("card.orb:/X", "x" * 10000)
        self.put_text("card.orb:/A/B/Y", "y")

    def test_cp_copies_with_attributes_and_time(self):
        self.set_time(4, OLD)
        self.ok("attrib", "+u", "card.orb:/X")
        self.ok("cp", "card.orb:/X", "card.orb:/Z")
        self.assertEqual(self.ok("ls", "-l", "card.orb:/Z"), "---u  10000  2001-02-03 04:05:06  Z\n")
        self.assertEqual(self.text("card.orb:/Z"), "x" * 10000)
        self.assert_clean()

    def test_cp_of_a_directory_needs_recursive(self):
        self.assertIn("orba cp -r", self.fails(1, "cp", "card.orb:/A", "card.orb:/C"))
        self.assertEqual(self.listing(), ["A", "X"])

    def test_cp_recursive_copies_trees(self):
        self.ok("cp", "-r", "card.orb:/A", "card.orb:/C")
        self.ok("cp", "-r", "card.orb:/A", "card.orb:/X", "card.orb:/C")
        self.assertEqual(self.listing("card.orb:/C"), ["A", "B", "X"])
        self.assertEqual(self.text("card.orb:/C/B/Y"), "y")
        self.assertEqual(self.text("card.orb:/C/A/B/Y"), "y")
        self.assert_clean()

    def test_cp_recursive_into_itself_is_refused(self):
        for target in ("card.orb:/A", "card.orb:/A/B", "card.orb:/A/NEW", "./card.orb:/A"):
            self.assertIn("cannot copy card.orb:/A: the target lies inside it",
                          self.fails(1, "cp", "-r", "card.orb:/A", target))
        self.assertIn("the target lies inside it", self.fails(1, "cp", "-r", "card.orb", "card.orb:/N"))

    def test_cp_to_another_container(self):
        self.format("other.orb", "-b", "1024", "-n", "16")
        self.ok("cp", "-r", "card.orb:/*", "other.orb")
        self.assertEqual(self.text("other.orb:/X"), "x" * 10000)
        self.assertEqual(self.text("other.orb:/A/B/Y"), "y")
        self.assert_clean("other.orb")

    def test_cp_to_another_container_keeps_attributes_and_times_whatever_they_are(self):
        self.format("other.orb", "-b", "8192")
        self.put_text("card.orb:/EMPTY", "")  # nodes from 4 on: X, Y, EMPTY
        self.set_time(4, OLD)
        self.set_time(6, (0, 0, 77, 0, 88, 99))  # a device without a clock may write anything
        self.ok("attrib", "+r", "card.orb:/EMPTY")
        self.ok("attrib", "+ru", "card.orb:/X")
        self.ok("cp", "card.orb:/X", "card.orb:/EMPTY", "other.orb")
        self.assertEqual(self.ok("ls", "-l", "other.orb").splitlines(),
                         ["-r--      0  -                    EMPTY", "-r-u  10000  2001-02-03 04:05:06  X"])
        self.assertIn(struct.pack("<H5B", 0, 0, 77, 0, 88, 99), self.read("other.orb"))
        self.assertRegex(self.ok("ls", "-ld", "other.orb"), r" 20[2-9]\d-")  # not the directory's
        self.assert_clean("other.orb")

    def test_cp_from_a_container_that_may_only_be_read_or_is_marked_or_damaged(self):
        self.mark_dirty()
        with open(self.path("card.orb"), "rb") as container:
            contents = container.read()
        self.patch("card.orb", contents.index(b"\x02\x00A\0"), b"\xff\xff")  # A's node
        self.path("card.orb").chmod(0o444)
        before = self.read("card.orb")
        for target in ("one.orb", "two.orb"):
            self.format(target)
        result = self.orba("cp", "card.orb:/X", "one.orb", preexec_fn=obey_modes)
        self.assertEqual((result.status, result.err.count("orba: ")), (0, 1), result)
        self.assertIn("warning: card.orb is marked", result.err)
        result = self.orba("cp", "-r", "card.orb", "two.orb", preexec_fn=obey_modes)
        self.assertEqual(result.status, 1, result)
        self.assertIn("cannot read card.orb:/A: its entry refers to node 65535", result.err)
        self.assertIn("orba recover card.orb DIR\n", result.err)
        self.assertEqual(self.listing("two.orb"), ["X"])
        for target in ("one.orb", "two.orb"):
            self.assertEqual(self.text(target + ":/X"), "x" * 10000)
            self.assert_clean(target)
        self.assertEqual(self.read("card.orb"), before)

    def test_cp_of_a_large_file_ends_with_a_signal_and_leaves_nothing(self):
        self.write("big", bytes(64 << 20))
        self.ok("put", "big", "card.orb")
        self.format("other.orb")
        for target in ("card.orb", "other.orb"):
            before = self.read(target)
            self.interrupt("cp", "card.orb:/BIG", target + ":/COPY",
                           begun=lambda: self.path(target).stat().st_size > len(before) + (1 << 20),
                           afresh=lambda: self.write(target, before))
            self.assertNotIn("COPY", self.ok("ls", target))
            self.assertNotIn(".TMP", self.ok("ls", target))
            self.assert_clean(target)

    def test_cp_of_a_whole_container(self):
        self.format("other.orb")
        self.ok("cp", "-r", "card.orb", "other.orb")
        self.assertEqual(self.ok("tree", "other.orb").splitlines()[1:], self.ok("tree", "card.orb").splitlines()[1:])

    def test_cp_onto_a_taken_name_needs_force(self):
        self.assertIn("card.orb:/A/B/Y exists (ORB_ERROR_FILE_EXISTS, 0x30000015)",
                      self.fails(1, "cp", "card.orb:/X", "card.orb:/A/B/Y"))
        self.ok("cp", "-f", "card.orb:/X", "card.orb:/A/B/Y")
        self.assertEqual(self.text("card.orb:/A/B/Y"), "x" * 10000)
        self.assertEqual(self.listing("card.orb:/A/B"), ["Y"])
        self.assertIn("source and target are the same", self.fails(1, "cp", "-f", "card.orb:/X", "./card.orb:/x"))
        self.assertEqual(self.text("card.orb:/X"), "x" * 10000)
        self.assert_clean()

    def test_cp_recursive_reports_what_fails_and_copies_the_rest(self):
        self.put_text("card.orb:/A/Z", "z")
        self.ok("mkdir", "-p", "card.orb:/C/A/B")
        self.put_text("card.orb:/C/A/B/Y", "mine")
        message = self.fails(1, "cp", "-r", "card.orb:/A", "card.orb:/C")
        self.assertEqual(message.count("orba: "), 1)
        self.assertIn("card.orb:/C/A/B/Y exists", message)
        self.assertEqual(self.text("card.orb:/C/A/B/Y"), "mine")
        self.assertEqual(self.text("card.orb:/C/A/Z"), "z")

    def test_cp_and_mv_of_host_files_point_to_put_and_get(self):
        self.write("report.txt", b"x" * 5000)
        for arguments in (["cp", "report.txt", "card.orb:/"], ["cp", "card.orb:/X", "."],
                          ["mv", "none.txt", "card.orb:/"]):
            self.assertIn("between the host and a container: orba put, orba get", self.fails(1, *arguments))
        self.assertNotIn("orba put", self.fails(1, "cp", "card.orb:/NONE", "card.orb:/A"))

    def test_cp_with_too_few_nodes_stops_with_one_message(self):
        self.format("small.orb", "-n", "8")
        for number in range(20):
            self.write(f"many/sub/F{number}", b"x")
        self.ok("put", "many", "card.orb")
        message = self.fails(1, "cp", "-r", "card.orb:/MANY", "small.orb")
        self.assertEqual(message.count("ORB_ERROR_NO_FREE_NODE, 0x30000017"), 1)
        self.assert_clean("small.orb")


class AttributeTest(ChangeTest):
    def setUp(self):
        super().setUp()
        self.ok("mkdir", "card.orb:/D")
        self.put_text("card.orb:/X")
        self.put_text("card.orb:/Y")

    def test_attrib_shows_attributes(self):
        self.assertEqual(self.ok("attrib", "card.orb:/*"), "--  card.orb:/D\n--  card.orb:/X\n--  card.orb:/Y\n")

    def test_attrib_sets_and_clears(self):
        self.ok("attrib", "+ru", "card.orb:/X", "card.orb:/Y")
        self.ok("attrib", "-r", "card.orb:/Y")
        self.assertEqual(self.ok("attrib", "card.orb:/X", "card.orb:/Y"), "ru  card.orb:/X\n-u  card.orb:/Y\n")
        self.ok("attrib", "+r", "-u", "card.orb:/Y")
        self.assertEqual(self.ok("attrib", "card.orb:/Y"), "r-  card.orb:/Y\n")

    def test_attrib_of_a_directory_is_refused_others_are_changed(self):
        message = self.fails(1, "attrib", "+u", "card.orb:/*")
        self.assertIn("cannot set the attributes of card.orb:/D: it is a directory, whose attributes are fixed "
                      "(ORB_ERROR_WRONG_KIND, 0x3000001D)", message)
        self.assertEqual(self.ok("attrib", "card.orb:/?"), "--  card.orb:/D\n-u  card.orb:/X\n-u  card.orb:/Y\n")

    def test_attrib_recursive_changes_the_files_below(self):
        self.ok("mkdir", "card.orb:/D/E")
        self.put_text("card.orb:/D/E/Z")
        self.ok("attrib", "-R", "+r", "card.orb:/D", "card.orb:/X")
        self.assertEqual(self.ok("attrib", "--recursive", "card.orb"),
                         "r-  card.orb:/D/E/Z\nr-  card.orb:/X\n--  card.orb:/Y\n")

    def test_attrib_does_not_stamp(self):
        self.set_time(3, OLD)
        self.ok("attrib", "+u", "card.orb:/X")
        self.assertIn("2001-02-03 04:05:06", self.ok("ls", "-l", "card.orb:/X"))


class TouchTest(ChangeTest):
    def test_touch_makes_empty_files(self):
        self.ok("touch", "card.orb:/X", "card.orb:/Y")
        self.assertEqual(self.listing(), ["X", "Y"])
        self.assertEqual(self.text("card.orb:/X"), "")
        self.assert_clean()

    def test_touch_no_create_makes_none(self):
        self.ok("touch", "-c", "card.orb:/X")
        self.assertEqual(self.listing(), [])

    def test_touch_stamps_a_file_and_leaves_its_contents(self):
        for node, text in ((2, ""), (3, "x" * 100), (4, "y" * 4096), (5, "z" * 8192)):
            name = f"card.orb:/F{node}"
            self.put_text(name, text)
            self.set_time(node, OLD)
            self.assertIn("2001-02-03", self.ok("ls", "-l", name))
            self.ok("touch", name)
            self.assertNotIn("2001-02-03", self.ok("ls", "-l", name))
            self.assertEqual(self.text(name), text)
        self.assert_clean()

    def test_touch_of_a_directory_or_a_read_only_file_is_refused(self):
        self.ok("mkdir", "card.orb:/D")
        self.put_text("card.orb:/X")
        self.ok("attrib", "+r", "card.orb:/X")
        self.assertIn("it is a directory, whose time changes with its entries", self.fails(1, "touch", "card.orb:/D"))
        message = self.fails(1, "touch", "card.orb:/X")
        self.assertIn("cannot touch card.orb:/X: it is read-only (ORB_ERROR_ACCESS_DENIED, 0x30000019)", message)
        self.assertIn("orba attrib -r card.orb:/X", message)

    def test_touch_wildcards_one_failure_does_not_stop_the_others(self):
        for node, name in ((2, "A"), (3, "B")):
            self.put_text("card.orb:/" + name)
            self.set_time(node, OLD)
        self.ok("attrib", "+r", "card.orb:/A")
        self.fails(1, "touch", "card.orb:/*")
        self.assertEqual(self.ok("ls", "-l", "card.orb").count("2001-02-03"), 1)
        self.assertNotIn("2001-02-03", self.ok("ls", "-l", "card.orb:/B"))

    def test_touch_of_an_illegal_name_names_the_rule(self):
        self.assertIn("it has 30 characters", self.fails(1, "touch", "card.orb:/" + "X" * 30))

    def test_stamps_of_what_is_made_are_recent(self):
        self.ok("touch", "card.orb:/X")
        with open(self.path("card.orb"), "rb") as container:
            container.seek(BLOCK_1 + NODE_SIZE + NODE_TIME)
            year = int.from_bytes(container.read(2), "little")
        self.assertGreaterEqual(year, 2024)


if __name__ == "__main__":
    unittest.main()
