"""find: places by name, kind, size and time."""
import os
import unittest

from support import BLOCK_1, NODE_SIZE, QUOTE, ToolTest


class FindTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "-p", "card.orb:/LOGS/MAY")  # nodes 2 and 3
        for name, size in (("README", 10), ("LOGS/DAY1.TXT", 2000), ("LOGS/DAY2.DAT", 5000), ("LOGS/MAY/EMPTY.TXT", 0)):
            self.put_text("card.orb:/" + name, "x" * size)  # from node 4 on

    def found(self, *arguments, **options):
        return [line.removeprefix("card.orb:") for line in self.ok("find", *arguments, **options).splitlines()]

    def test_find_without_options_prints_everything_a_directory_before_what_it_holds(self):
        self.assertEqual(self.found("card.orb"), ["/", "/LOGS", "/LOGS/DAY1.TXT", "/LOGS/DAY2.DAT", "/LOGS/MAY",
                                                  "/LOGS/MAY/EMPTY.TXT", "/README"])
        self.assertEqual(self.found("card.orb:/LOGS/MAY", "card.orb:/R*"),
                         ["/LOGS/MAY", "/LOGS/MAY/EMPTY.TXT", "/README"])

    def test_find_name_matches_the_last_name_in_any_letter_case(self):
        self.assertEqual(self.found("card.orb", "--name", "*.txt"), ["/LOGS/DAY1.TXT", "/LOGS/MAY/EMPTY.TXT"])
        self.assertEqual(self.found("card.orb", "-n", "DAY?.*"), ["/LOGS/DAY1.TXT", "/LOGS/DAY2.DAT"])
        self.assertEqual(self.found("card.orb", "-n", "LOGS/*"), [])

    def test_find_type_tells_files_from_directories(self):
        self.assertEqual(self.found("card.orb", "--type", "d"), ["/", "/LOGS", "/LOGS/MAY"])
        self.assertEqual(self.found("card.orb:/LOGS", "-t", "f"),
                         ["/LOGS/DAY1.TXT", "/LOGS/DAY2.DAT", "/LOGS/MAY/EMPTY.TXT"])
        self.fails(16, "find", "card.orb", "--type", "x")

    def test_find_takes_the_options_of_find_with_one_dash(self):
        self.assertEqual(self.found("card.orb", "-name", "*.txt", "-size", "+1", "-print"), ["/LOGS/DAY1.TXT"])
        self.assertEqual(self.ok("find", "card.orb:/LOGS", "-type", "d", "-print0"),
                         "card.orb:/LOGS\0card.orb:/LOGS/MAY\0")
        self.assertEqual(self.found("card.orb", "-tf", "-nDAY2*"), ["/LOGS/DAY2.DAT"])
        self.assertIn('there is no option "-iname"', self.fails(16, "find", "card.orb", "-iname", "x"))

    def test_find_size_is_in_bytes_equal_more_or_less(self):
        for size, names in (("2000", ["DAY1.TXT"]), ("+2000", ["DAY2.DAT"]), ("+1999", ["DAY1.TXT", "DAY2.DAT"]),
                            ("-2000", ["EMPTY.TXT"]), ("+4K", ["DAY2.DAT"]), ("-0x1", ["EMPTY.TXT"]), ("+1M", [])):
            self.assertEqual([path.split("/")[-1] for path in self.found("card.orb:/LOGS", "-t", "f", "--size", size)],
                             names, size)
        for size in ("x", "+", "1G", "--1"):
            self.assertIn(f'--size takes +SIZE, -SIZE or SIZE, such as +1M, not "{size}"',
                          self.fails(16, "find", "card.orb", "--size", size))

    def test_find_newer_takes_a_date_or_what_has_one(self):
        self.set_time(4, (2001, 2, 3, 4, 5, 6))
        self.set_time(5, (2001, 2, 3, 4, 5, 7))
        self.set_time(6, (2001, 2, 4, 0, 0, 0))
        self.set_time(7, (0, 0, 0, 0, 0, 0))  # the device had no clock
        for when, names in (("2001-02-03 04:05:05", ["DAY1.TXT", "DAY2.DAT", "README"]),
                            ("2001-02-03T04:05:06", ["DAY1.TXT", "DAY2.DAT"]), ("2001-02-03 04:06", ["DAY2.DAT"]),
                            ("2001-02-03", ["DAY1.TXT", "DAY2.DAT", "README"]), ("2001-02-04", []),
                            ("card.orb:/README", ["DAY1.TXT", "DAY2.DAT"]), ("mark", ["DAY2.DAT"])):
            self.write("mark")
            os.utime(self.path("mark"), (981173107, 981173107))  # 2001-02-03 04:05:07
            self.assertEqual([path.split("/")[-1] for path in self.found("card.orb", "-t", "f", "--newer", when)],
                             names, when)
        for when in ("none", "2001-13-01", "2001-02-03 4:05", "2001-02-0304:05"):
            self.assertIn("--newer takes a date", self.fails(16, "find", "card.orb", "--newer", when))
        self.assertIn("its time is not a date",
                      self.fails(1, "find", "card.orb", "--newer", "card.orb:/LOGS/MAY/EMPTY.TXT"))
        self.assertIn("there is no such file", self.fails(1, "find", "card.orb", "--newer", "card.orb:/NONE"))

    def test_find_options_must_all_fit(self):
        self.assertEqual(self.found("card.orb", "-n", "*.TXT", "--size", "+0", "-t", "f"), ["/LOGS/DAY1.TXT"])

    def test_find_print0_prints_names_as_they_are(self):
        self.format("my card.orb")
        self.put_text("my card.orb:/A")
        self.assertEqual(self.ok("find", "my card.orb", "-t", "f"), f"{QUOTE}my card.orb:/A{QUOTE}\n")
        self.assertEqual(self.ok("find", "my card.orb", "-0"), "my card.orb:/\0my card.orb:/A\0")

    def test_find_nothing_is_a_success_and_a_missing_place_a_failure(self):
        self.assertEqual(self.found("card.orb", "-n", "NONE"), [])
        result = self.orba("find", "card.orb:/NONE", "card.orb:/README")
        self.assertEqual((result.status, result.out), (1, "card.orb:/README\n"))
        self.assertIn("cannot find card.orb:/NONE: there is no such file or directory", result.err)

    def test_find_goes_on_beside_what_cannot_be_read(self):
        self.patch("card.orb", BLOCK_1 + 2 * NODE_SIZE, bytes(NODE_SIZE))  # MAY's record
        result = self.orba("find", "card.orb")
        self.assertEqual(result.status, 1, result)
        self.assertEqual(result.out.splitlines()[-1], "card.orb:/README")
        self.assertIn("card.orb:/LOGS/MAY", result.err)
        self.assertIn("orba recover card.orb DIR\n", result.err)

    def test_find_works_on_a_marked_container_that_may_only_be_read(self):
        self.mark_dirty()
        before = self.read("card.orb")
        result = self.orba("find", "card.orb", "-n", "README")
        self.assertEqual((result.status, result.out), (0, "card.orb:/README\n"))
        self.assertIn("warning: card.orb is marked", result.err)
        self.assertEqual(self.read("card.orb"), before)


if __name__ == "__main__":
    unittest.main()
