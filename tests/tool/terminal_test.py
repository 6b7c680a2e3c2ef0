"""What changes when the output is a terminal: columns, colours, progress."""
import re
import unittest

from support import ToolTest

ESCAPE = "\x1b["


class TerminalTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "card.orb:/SUB")
        for number in range(1, 21):
            self.write(f"tree/FILE{number:02}.TXT")
        self.write("tree/A-MUCH-LONGER-NAME")
        self.ok("put", "tree/.", "card.orb")

    def plain(self, text):
        return re.sub(r"\x1b\[[0-9;]*m", "", text)

    def test_ls_on_a_terminal_fills_eighty_columns_downwards(self):
        result = self.on_terminal("ls", "card.orb")
        self.assertEqual(result.status, 0)
        self.assertEqual(self.plain(result.out),
                         "A-MUCH-LONGER-NAME  FILE04.TXT  FILE08.TXT  FILE12.TXT  FILE16.TXT  FILE20.TXT\n"
                         "FILE01.TXT          FILE05.TXT  FILE09.TXT  FILE13.TXT  FILE17.TXT  SUB/\n"
                         "FILE02.TXT          FILE06.TXT  FILE10.TXT  FILE14.TXT  FILE18.TXT\n"
                         "FILE03.TXT          FILE07.TXT  FILE11.TXT  FILE15.TXT  FILE19.TXT\n")

    def test_ls_on_a_narrow_terminal_uses_fewer_columns(self):
        lines = self.plain(self.on_terminal("ls", "card.orb", columns=35).out).splitlines()
        self.assertEqual(len(lines), 11)
        self.assertEqual(lines[0], "A-MUCH-LONGER-NAME  FILE11.TXT")
        self.assertEqual(self.plain(self.on_terminal("ls", "card.orb", columns=10).out).splitlines()[0],
                         "A-MUCH-LONGER-NAME")

    def test_ls_one_per_line_on_a_terminal(self):
        self.assertEqual(len(self.on_terminal("ls", "-1", "card.orb").out.splitlines()), 22)

    def test_directories_are_coloured_on_a_terminal_alone(self):
        coloured = "\x1b[1;34mSUB/\x1b[0m"
        self.assertIn(coloured, self.on_terminal("ls", "card.orb").out)
        self.assertIn("\x1b[1;34mSUB\x1b[0m", self.on_terminal("tree", "card.orb").out)
        self.assertNotIn(ESCAPE, self.on_terminal("ls", "card.orb", environment={"NO_COLOR": "1"}).out)
        self.assertIn(coloured, self.on_terminal("ls", "card.orb", environment={"NO_COLOR": ""}).out)
        self.assertNotIn(ESCAPE, self.ok("ls", "card.orb"))

    def test_check_colours_the_verdict_on_a_terminal_alone(self):
        result = self.on_terminal("check", "card.orb")
        self.assertEqual(result.status, 0)
        self.assertIn("\x1b[32mclean\x1b[0m: ", result.out)
        self.assertNotIn(ESCAPE, self.on_terminal("check", "card.orb", environment={"NO_COLOR": "1"}).out)
        self.assertNotIn(ESCAPE, self.ok("check", "card.orb"))

    def test_errors_are_coloured_on_a_terminal_alone(self):
        self.assertIn("\x1b[1;31morba:\x1b[0m cannot list card.orb:/NONE",
                      self.on_terminal("ls", "card.orb:/NONE").err)
        self.assertNotIn(ESCAPE, self.fails(1, "ls", "card.orb:/NONE"))

    def test_long_work_shows_progress_on_a_terminal_and_leaves_no_trace(self):
        self.write("BIG", bytes(5 << 20))
        for arguments in (["put", "BIG", "card.orb"], ["get", "card.orb:/BIG", "copy"]):
            shown = self.on_terminal(*arguments)
            self.assertEqual(shown.status, 0)
            frames = shown.err.split("\r")
            self.assertRegex(frames[1], rf"^{arguments[0]} \[\.{{16}}\]   0%  0 of 5\.1M  ")
            self.assertRegex(frames[-2], rf"^{arguments[0]} \[#{{16}}\] 100%  5\.1M of 5\.1M(  \S+/s)?  /BIG\x1b\[K$")
            self.assertEqual(frames[-1], ESCAPE + "K")
            for frame in frames:
                self.assertLess(len(frame.replace(ESCAPE + "K", "")), 80)

    def test_longer_work_shows_its_rate_and_the_time_left(self):
        rate = r" \[#+\.+\] +\d+%  \S+ of \d+M  [0-9.]+[KMG]/s  \d+:\d\d left  "
        for mebibytes in (400, 900):  # some tenths of a second, on whatever machine
            with open(self.path("BIG"), "wb") as big:
                big.truncate(mebibytes << 20)
            put = self.on_terminal("put", "-f", "BIG", "card.orb", columns=100)
            cp = self.on_terminal("cp", "-f", "card.orb:/BIG", "card.orb:/COPY", columns=100)
            if re.search(rate + "/BIG", put.err) and re.search(rate + "/COPY", cp.err):
                break
        self.assertEqual((put.status, cp.status), (0, 0))
        self.assertRegex(put.err, r"\rput" + rate + r"/BIG\x1b")
        self.assertRegex(cp.err, r"\rcp" + rate + r"/COPY\x1b")

    def test_messages_are_wrapped_at_words_and_what_can_be_pasted_stays_in_one_piece(self):
        self.path("card.orb").rename(self.path("a card with a rather long name.orb"))
        for columns, length in ((20, 40), (50, 50), (100, 100), (300, 200)):
            shown = self.on_terminal("ls", "a card.orb:/NONE", "a card with a rather long name.orb:/NONE",
                                     columns=columns, environment={"NO_COLOR": "1"}).err
            self.assertIn("check the name, or make a container with:", " ".join(shown.split()))
            self.assertIn("orba format 'a card.orb'\n", shown)
            self.assertIn("'a card with a rather long name.orb:/NONE'", shown)
            self.assertEqual([line for line in shown.splitlines() if not line.startswith(("orba: ", "      "))], [])
            longest = max((line for line in shown.splitlines() if "rather" not in line), key=len)
            self.assertLess(len(longest), length)

    def test_reading_all_of_a_large_container_for_an_undo_file_shows_progress(self):
        self.write("BIG", bytes(8 << 20))
        self.ok("put", "BIG", "card.orb")
        self.mark_dirty()
        shown = self.on_terminal("repair", "--undo", "card.undo", "card.orb")
        self.assertEqual(shown.status, 1)
        self.assertRegex(shown.err, r"\rundo file \[#{16}\] 100%  8\.1M of 8\.1M  ")
        self.assertRegex(self.on_terminal("undo", "card.orb", "card.undo").err, r"\rundo \[#{16}\] 100%  ")

    def test_progress_keeps_quiet_when_told_or_piped_or_short(self):
        self.write("BIG", bytes(5 << 20))
        self.assertEqual(self.on_terminal("put", "-q", "BIG", "card.orb:/1").err, "")
        self.assertEqual(self.ok("put", "BIG", "card.orb:/2"), "")  # a word on standard error would fail it
        self.write("SMALL", bytes(3 << 20))
        self.assertEqual(self.on_terminal("put", "SMALL", "card.orb:/3").err, "")

    def test_errors_during_progress_stand_on_lines_of_their_own(self):
        for number in range(1100):
            self.write(f"many/F{number}")
        full = 28
        shown = self.on_terminal("put", "many", "card.orb", columns=200,
                                  environment=self.failing(f"write card.orb 5000 {full}"))
        self.assertEqual(shown.status, 1)
        self.assertRegex(shown.err, "\r\x1b\\[K\x1b\\[1;31morba:\x1b\\[0m cannot .*ORB_ERROR_DISK_FULL, 0x3000001A")
        self.assertRegex(shown.err, r"orba:\x1b\[0m \d+ more files and directories were left out\n")


if __name__ == "__main__":
    unittest.main()
