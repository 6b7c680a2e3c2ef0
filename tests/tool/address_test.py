"""How places inside containers are named on the command line."""
import subprocess
import unittest

from support import QUOTE, WINDOWS, ToolTest, linux_alone


class AddressTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "-p", "card.orb:/LOGS/MAY", "card.orb:/LOGS/JUNE")
        for name in ("LOGS/DAY1.TXT", "LOGS/DAY2.TXT", "LOGS/DAY.A.TXT", "LOGS/MAY/X.TXT", "LOGS/JUNE/X.TXT"):
            self.put_text("card.orb:/" + name, name)

    def test_container_alone_is_root(self):
        self.assertEqual(self.listing("card.orb"), ["LOGS"])
        self.assertEqual(self.listing("card.orb:"), ["LOGS"])
        self.assertEqual(self.listing("card.orb:/"), ["LOGS"])
        self.assertEqual(self.listing("./card.orb"), ["LOGS"])

    def test_path_letter_case_and_dots_make_no_difference(self):
        self.assertEqual(self.ok("cat", "card.orb:/logs//./may/../day1.txt"), "LOGS/DAY1.TXT")

    def test_container_with_colons_last_colon_slash_separates(self):
        linux_alone("names that Windows does not allow")
        (self.folder / "dir:").mkdir()
        self.format("dir:/a:b.orb")
        self.put_text("dir:/a:b.orb:/X", "inside")
        self.assertEqual(self.ok("cat", "dir:/a:b.orb:/X"), "inside")
        self.assertEqual(self.listing("dir:/a:b.orb:/"), ["X"])
        self.assertIn("state             clean", self.ok("info", "dir:/a:b.orb"))

    def test_container_with_brackets_spaces_and_dash_is_taken_whole(self):
        names = ["[a,b]", "my card.orb", "-x.orb", "Karte-ä-€-𝄞.orb"]
        if not WINDOWS:  # which has no "?" in names
            names.append("??MEM??")
        for name in names:
            self.ok("format", "--", name)
            self.ok("mkdir", "--", name + ":/D")
            self.assertEqual(self.ok("ls", "--", name), "D\n")
            self.assertIn(name, self.host_names())

    def test_names_in_messages_and_listings_can_be_pasted_into_a_shell(self):
        linux_alone("a shell of Linux")
        for name in ("my card.orb", "it's.orb", "$HOME.orb", "a\nb.orb", "~.orb", "Karte-ä.orb", "[a].orb",
                     "back\\s.orb"):
            self.format(name)
            self.put_text(name + ":/A&B", "text")
            for text in (self.ok("du", "-a", name).splitlines()[0].split("\t")[1],
                         self.ok("find", name).splitlines()[1],
                         self.ok("ls", name + ":/A&B", "card.orb:/LOGS").splitlines()[0],
                         self.fails(1, "put", "-", name + ":/A&B").split("cannot write ")[1].split(": it exists")[0]):
                words = subprocess.run(["bash", "-c", f"printf '%s' {text}"], capture_output=True, check=True)
                self.assertEqual(words.stdout.decode(), name + ":/A&B")
        self.assertIn("cannot open 'no card.orb': there is no such container", self.fails(1, "ls", "no card.orb"))

    def test_place_inside_where_a_whole_container_is_meant_is_explained(self):
        before = self.read("card.orb")
        for status, *arguments in ((8, "check"), (8, "repair"), (1, "info"), (1, "map"), (1, "format"),
                                   (1, "compact"), (1, "recover")):
            operands = ["out"] if arguments == ["recover"] else []
            result = self.orba(*arguments, "card.orb:/LOGS", *operands)
            self.assertEqual((result.status, result.err), (
                status, "orba: cannot take card.orb:/LOGS: it is a place inside a container, and this command works on "
                        "whole ones\n      name the container alone: card.orb\n"), arguments)
        self.assertEqual((self.read("card.orb"), self.host_names()), (before, ["card.orb"]))

    def test_path_without_slash_is_explained(self):
        message = self.fails(1, "ls", "card.orb:LOGS")
        self.assertIn("there is no such container (ORB_ERROR_FILE_NOT_FOUND, 0x30000013)", message)
        self.assertIn('begins with "/": card.orb:/LOGS', message)

    def test_path_behind_a_container_without_colon_is_explained(self):
        self.assertIn("      a place inside a container is written card.orb:/LOGS/X\n",
                      self.fails(1, "cat", "card.orb/LOGS/X"))
        self.assertIn("      check the name\n", self.fails(1, "cat", "none/LOGS/X"))

    def test_empty_container_name_is_refused(self):
        self.assertIn("has no container", self.fails(1, "ls", ":/LOGS"))

    def test_empty_argument_is_usage(self):
        self.assertIn("an operand is empty where CONTAINER[:/PATH] should stand", self.fails(16, "ls", ""))

    def test_container_name_that_is_no_utf8_can_be_looked_into_but_not_changed(self):
        linux_alone("names that are not UTF-8")
        name = b"\xff.orb".decode(errors="surrogateescape")
        self.assertIn("its name is not UTF-8", self.fails(1, "mkdir", name + ":/D"))
        self.path("card.orb").rename(self.path(name))
        self.assertEqual(self.ok("cat", name + ":/LOGS/DAY1.TXT"), "LOGS/DAY1.TXT")

    def test_wildcards_star_matches_across_dots(self):
        self.assertEqual(self.ok("cat", "card.orb:/LOGS/DAY*.TXT"), "LOGS/DAY.A.TXTLOGS/DAY1.TXTLOGS/DAY2.TXT")

    def test_wildcards_question_mark_is_one_character(self):
        self.assertEqual(self.ok("cat", "card.orb:/LOGS/day?.txt"), "LOGS/DAY1.TXTLOGS/DAY2.TXT")

    def test_wildcards_in_directories_match_too(self):
        self.assertEqual(self.ok("cat", "card.orb:/L*/J*/X.TXT"), "LOGS/JUNE/X.TXT")
        self.assertEqual(self.ok("cat", "card.orb:/*/*/?.TXT"), "LOGS/JUNE/X.TXTLOGS/MAY/X.TXT")

    def test_wildcards_without_a_match_are_a_failure(self):
        message = self.fails(1, "cat", "card.orb:/LOGS/*.DAT")
        self.assertIn(f"cannot read {QUOTE}card.orb:/LOGS/*.DAT{QUOTE}: nothing matches "
                      "(ORB_ERROR_NO_MORE_ENTRIES, 0x10000001)", message)

    def test_wildcards_in_a_target_are_refused(self):
        self.assertIn('it holds "*"', self.fails(1, "mkdir", "card.orb:/A*"))
        self.assertIn('it holds "?"', self.fails(1, "cp", "card.orb:/LOGS/DAY1.TXT", "card.orb:/A?"))


if __name__ == "__main__":
    unittest.main()
