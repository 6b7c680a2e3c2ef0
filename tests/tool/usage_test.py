"""What does not need a container: help, usage, the manual page and the completion."""
import re
import subprocess
import unittest

from support import ORBA, ToolTest

COMMANDS = ["format", "info", "df", "ls", "tree", "du", "cat", "put", "get", "mkdir", "mv", "cp", "rm", "attrib",
            "touch", "check", "repair", "undo", "recover", "dump", "map"]


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

    def test_help_of_each_command_has_usage_options_and_an_example(self):
        for name in COMMANDS:
            text = self.ok(name, "--help")
            self.assertIn(f"Usage: orba {name} ", text)
            self.assertIn("\nOptions:\n  --help ", text)
            self.assertRegex(text, rf"\nExamples:\n  (.*\| )?orba {name} ")
            self.assertEqual(self.ok("help", name), text)

    def test_version_is_printed(self):
        self.assertRegex(self.ok("--version"), r"^orba \d+\.\d+\.\d+\n$")

    def test_no_command_prints_help_and_is_usage(self):
        result = self.orba()
        self.assertEqual((result.status, result.err), (16, ""))
        self.assertEqual(result.out, self.ok("--help"))

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
            done = subprocess.run([ORBA, "--help"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"cannot write to standard output: No space left on device (ENOSPC, 28)", done.stderr)

    def test_reader_that_goes_away_ends_the_program_quietly(self):
        self.format()
        self.write("big", bytes(4 << 20))
        self.ok("put", "big", "card.orb")
        with subprocess.Popen([ORBA, "cat", "card.orb:/BIG"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
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


class CompletionTest(ToolTest):
    def complete(self, *words):
        script = self.write("completion", self.ok("--completion").encode())
        lines = ["source " + str(script), "compopt() { :; }",
                 "orba() { %s \"$@\"; }" % ORBA,
                 "COMP_WORDS=(" + " ".join("'" + word + "'" for word in words) + ")",
                 f"COMP_CWORD={len(words) - 1}", "_orba", 'printf "%s\\n" "${COMPREPLY[@]}"']
        done = subprocess.run(["bash", "-c", "\n".join(lines)], capture_output=True, cwd=self.folder, text=True,
                              env=self.environment(), check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.split()

    def test_completion_of_the_first_word_offers_commands(self):
        self.assertEqual(self.complete("orba", ""), COMMANDS + ["--help", "--version"])
        self.assertEqual(self.complete("orba", "re"), ["repair", "recover"])

    def test_completion_of_options_offers_those_of_the_help(self):
        for name in COMMANDS:
            self.assertEqual(sorted(self.complete("orba", name, "-")), sorted(options_of(self.ok(name, "--help"))))

    def test_completion_inside_a_container_offers_its_names(self):
        self.format()
        self.ok("mkdir", "card.orb:/LOGS")
        self.put_text("card.orb:/LOGS/DAY1.TXT")
        self.put_text("card.orb:/LIST.TXT")
        self.assertEqual(self.complete("orba", "cat", "card.orb", ":", "/l"), ["/LIST.TXT", "/LOGS/"])
        self.assertEqual(self.complete("orba", "cat", "card.orb", ":", "/LOGS/"), ["/LOGS/DAY1.TXT"])

    def test_completion_runs_no_command_that_a_name_spells(self):
        self.format()
        self.put_text("card.orb:/$(TOUCH)")
        self.assertEqual(self.complete("orba", "cat", "card.orb", ":", "/$"), ["/$(TOUCH)"])


if __name__ == "__main__":
    unittest.main()
