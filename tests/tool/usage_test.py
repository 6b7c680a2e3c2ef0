"""What does not need a container: help, usage and the manual page."""
import os
import re
import signal
import subprocess
import unittest

from support import LIMIT, PROGRAM, ToolTest, linux_alone

COMMANDS = ["format", "create", "compact", "info", "df", "ls", "tree", "du", "find", "diff", "cat", "put", "get",
            "manifest", "verify", "export", "import", "mount", "umount", "mkdir", "mv", "cp", "rm", "attrib", "touch",
            "check", "repair", "undo", "recover", "dump", "map"]


def options_of(help_text):
    part = help_text.split("\nOptions:\n")[1].split("\nExamples:\n")[0]
    return re.findall(r"(?<![\w-])(--?[A-Za-z0-9][\w-]*)", "\n".join(
        line[:26] for line in part.splitlines() if line.startswith("  -")))


class UsageTest(ToolTest):
    def test_help_lists_every_command(self):
        listed = re.findall(r"^  ([a-z]+) {2,}\S", self.ok("--help"), re.MULTILINE)
        self.assertEqual(listed, COMMANDS)

    def test_help_fits_eighty_columns(self):
        for arguments in [["--help"]] + [[name, "--help"] for name in COMMANDS]:
            widest = max(self.ok(*arguments).splitlines(), key=len)
            self.assertLess(len(widest), 80, widest)

    def test_help_follows_the_width_of_the_terminal(self):
        for columns, widest in ((20, 40), (60, 60), (120, 120), (300, 200)):
            for arguments in (["--help"], ["put", "--help"]):
                lines = self.on_terminal(*arguments, columns=columns).out.splitlines()
                prose = [line for line in lines if not line.startswith("  ") or "--help" not in line]
                longest = max(len(line) for line in prose if " orba " not in f" {line}" and "  " not in line.strip())
                self.assertLess(longest, widest)
                self.assertGreater(longest, widest - 16)

    def test_help_wraps_what_a_command_is_for(self):
        lines = self.on_terminal("find", "--help", columns=60).out.splitlines()
        self.assertEqual(lines[:3], ["orba find - find files and directories by name, kind, size", "or time", ""])

    def test_help_of_each_command_has_usage_options_and_an_example(self):
        for name in COMMANDS:
            text = self.ok(name, "--help")
            self.assertIn(f"Usage: orba {name} ", text)
            self.assertRegex(text, r"\n  (-h, )?--help +print this help\n\nExamples:\n")
            self.assertRegex(text, rf"\nExamples:\n  (.*\| )?orba {name} ")
            self.assertEqual(self.ok("help", name), text)

    def test_version_is_printed(self):
        self.assertRegex(self.ok("--version"), r"^orba \d+\.\d+\.\d+\n$")

    def test_completion_is_printed_for_each_shell(self):
        for shell, begin in (("bash", "# bash completion"), ("zsh", "#compdef orba\n"), ("fish", "# fish completion")):
            self.assertTrue(self.ok("--completion", shell).startswith(begin), shell)
        self.assertIn('--completion takes bash, zsh or fish, not "sh"\n', self.fails(16, "--completion", "sh"))

    def test_no_command_prints_help_and_is_usage(self):
        result = self.orba()
        self.assertEqual((result.status, result.err), (16, ""))
        self.assertEqual(result.out, self.ok("--help"))

    def test_help_and_version_have_short_forms_where_they_mean_nothing_else(self):
        self.assertEqual(self.ok("-h"), self.ok("--help"))
        self.assertEqual(self.ok("put", "-h"), self.ok("put", "--help"))
        self.assertEqual(self.ok("-V"), self.ok("--version"))
        self.format()
        self.assertEqual(self.ok("ls", "-h", "card.orb"), "")

    def test_unknown_commands_are_named(self):
        for arguments in (["nonsense"], ["help", "nonsense"], ["nonsense", "--help"], ["nonsense", "-h"],
                          ["nonsense", "--version"]):
            self.assertIn('orba: there is no command "nonsense"\n', self.fails(16, *arguments))

    def test_wrong_values_say_which_there_are(self):
        for value in ("1000", "many", "1024x", "-1"):
            for option in ("-b", "--block-size"):
                self.assertIn(f'{option} takes 1024, 2048, 4096 or 8192, not "{value}"\n',
                              self.fails(16, "format", option, value, "x"))
        for value in ("abc", "4294967296", "-3", "1e3", "99999999999999999999", ""):
            self.assertIn(f'--nodes takes a number, not "{value}"\n',
                          self.fails(16, "format", "--nodes=" + value, "x"))

    def test_sizes_may_end_in_k_or_m(self):
        self.ok("format", "-b", "8K", "--bitmap-bytes", "0x1k", "card.orb")
        self.assertIn("block size        8192 bytes\nnode bitmap       1024 bytes\n", self.ok("info", "card.orb"))
        self.fails(16, "format", "--nodes", "1K", "x")
        self.assertIn("00000400", self.ok("dump", "card.orb", "bytes", "1K", "16"))

    def test_options_may_be_joined_and_stand_behind_operands(self):
        self.format()
        self.put_text("card.orb:/A")
        self.assertEqual(self.ok("ls", "-l1R", "card.orb"), self.ok("ls", "card.orb", "-l", "-1", "--recursive"))
        self.assertEqual(self.ok("ls", "-la", "card.orb"), self.ok("ls", "card.orb", "--all", "-l"))
        self.write("-r", b"text")
        self.ok("put", "--rename", "--", "-r", "card.orb")
        self.assertEqual(self.listing(), ["-R", "A"])

    def test_wrong_options_are_told_apart(self):
        for arguments, message in [(["ls", "-x", "a"], 'there is no option "-x"'),
                                   (["ls", "--nonsense", "a"], 'there is no option "--nonsense"'),
                                   (["ls", "--recursive=1", "a"], "--recursive takes no value"),
                                   (["tree", "-L"], "-L needs a value: -L N"),
                                   (["tree", "a", "--levels"], "--levels needs a value: --levels N"),
                                   (["put", "-f", "-n", "a", "b"], "--force and --no-clobber exclude each other"),
                                   (["undo", "a"], "FILE is missing"),
                                   (["undo", "a", "b", "c"], '"c" is one operand too many'),
                                   (["-x"], 'there is no option "-x"')]:
            command = f"{arguments[0]}: " if arguments[0][0] != "-" else ""
            self.assertTrue(self.fails(16, *arguments).startswith(f"orba: {command}{message}\n"), arguments)

    def test_mistyped_commands_bring_a_suggestion(self):
        for typed, meant in [("sl", "ls"), ("chek", "check"), ("forma", "format"), ("rn", "rm"), ("recovr", "recover"),
                             ("atrrib", "attrib"), ("und", "undo"), ("LS", None), ("x", None), ("nonsense", None)]:
            suggestion = f'; did you mean "{meant}"?' if meant else ""
            self.assertIn(f'orba: there is no command "{typed}"{suggestion}\n', self.fails(16, typed))

    def test_wrong_use_exits_with_16_and_points_to_help(self):
        for arguments in (["nonsense"], ["ls"], ["ls", "--nonsense", "x"], ["format", "-b", "1000", "x"],
                          ["format", "-b", "1024", "--nodes", "3585", "x"], ["format", "--nodes", "0", "x"],
                          ["format", "--bitmap-bytes", "3585", "x"],
                          ["format", "--nodes", "8", "--bitmap-bytes", "1", "x"], ["put", "x"], ["cp", "x"],
                          ["check"], ["repair", "a", "b"], ["attrib", "+x", "a"], ["attrib", "+r", "-r", "a"],
                          ["attrib", "+r"], ["dump", "x", "nonsense"]):
            self.assertIn("--help", self.fails(16, *arguments), arguments)
        self.assertEqual(self.host_names(), [])

    def test_output_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([*PROGRAM, "--help"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"cannot write to standard output: No space left on device (ENOSPC, 28)", done.stderr)

    def test_closed_standard_streams_do_no_harm(self):
        self.format()

        linux_alone("a program started with a closed stream")

        def run(*arguments, close):
            done = subprocess.run([*PROGRAM, *arguments], cwd=self.folder, check=False, timeout=LIMIT,
                                  stderr=None if 2 in close else subprocess.PIPE, env=self.environment(),
                                  preexec_fn=lambda: [os.close(stream) for stream in close])
            return done.returncode, done.stderr

        closed = b"cannot read -: Bad file descriptor (EBADF, 9)"
        status, message = run("put", "-", "card.orb:/X", close=[0])
        self.assertEqual((status, closed in message), (1, True), message)
        self.assertEqual(self.listing(), [])
        before = self.read("card.orb")
        status, message = run("ls", "-d", "card.orb", close=[1])
        self.assertEqual((status, b"cannot write to standard output: Bad file descriptor" in message), (1, True))
        self.assertEqual(run("rm", "card.orb:/NONE", close=[0, 1, 2]), (1, None))
        self.assertEqual(run("repair", "none.orb", close=[2]), (8, None))
        self.mark_dirty()
        self.assertEqual(run("repair", "-q", "--undo", "card.undo", "card.orb", close=[0, 1, 2]), (1, None))
        self.assertEqual(self.read("card.orb"), before)
        self.assertTrue(self.read("card.undo").startswith(b"ORBAUNDO"))

    def test_signals_that_are_to_be_ignored_are(self):
        linux_alone("a signal that the program inherits as ignored")
        self.format()
        with subprocess.Popen([*PROGRAM, "put", "-", "card.orb:/X"], stdin=subprocess.PIPE, cwd=self.folder,
                              env=self.environment(),
                              preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)) as process:
            process.stdin.write(bytes(1 << 20))  # more than a pipe holds: the work has begun
            process.send_signal(signal.SIGHUP)
            process.stdin.write(bytes(1 << 20))
            process.stdin.close()
        self.assertEqual(process.returncode, 0)
        self.assertEqual(len(self.orba("cat", "card.orb:/X").raw), 2 << 20)

    def test_reader_that_goes_away_ends_the_program_quietly(self):
        self.format()
        self.write("big", bytes(4 << 20))
        self.ok("put", "big", "card.orb")
        with subprocess.Popen([*PROGRAM, "cat", "card.orb:/BIG"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              cwd=self.folder) as process:
            self.assertEqual(process.stdout.read(1000), bytes(1000))
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.returncode, 1)


class ManualTest(ToolTest):
    MACROS = {"TH", "SH", "SS", "PP", "TP", "B", "nf", "fi", "RS", "RE"}

    def test_manual_page_uses_known_macros_only(self):
        page = self.ok("--man")
        self.assertTrue(page.startswith(".TH ORBA 1 "))
        for line in page.splitlines():
            self.assertNotEqual(line, "")
            self.assertFalse(line.startswith("'"), line)
            if line.startswith("."):
                self.assertIn(line[1:].split(" ")[0], self.MACROS, line)

    def test_manual_page_tells_every_command_option_and_example(self):
        page = self.ok("--man").replace("\\-", "-").replace("\\(aq", "'").replace("\\(ti", "~").replace("\\(ha", "^")
        for name in COMMANDS:
            text = self.ok(name, "--help")
            section = page.split(f'.SS "orba {name} - ')[1].split("\n.SS ")[0]
            for option in options_of(text):
                self.assertIn(option, section)
            for example in text.split("\nExamples:\n")[1].splitlines():
                self.assertIn(example.split("  #")[0].strip(), section)

    def test_manual_page_tells_the_exit_status(self):
        page = self.ok("--man")
        self.assertIn('.SH "EXIT STATUS"\n0 done, 1 something failed, 16 wrong usage.', page)


class RenderedManualTest(ToolTest):
    def test_manual_page_renders_without_a_warning(self):
        page = self.write("orba.1", self.ok("--man").encode())
        done = subprocess.run(["groff", "-man", "-ww", "-Tutf8", "-P-c", page], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        text = re.sub("\x1b\\[[0-9;]*m|.\b", "", done.stdout.decode())
        for name in COMMANDS:
            self.assertIn(f"orba {name} [OPTION]...", re.sub(r"\s+", " ", text))


if __name__ == "__main__":
    unittest.main()
