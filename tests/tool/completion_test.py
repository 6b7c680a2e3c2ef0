"""Completion in bash, zsh and fish, each in the real shell: all that the help tells, and what is in containers."""
import os
import re
import shlex
import subprocess
import unittest

from support import LIMIT, PROGRAM, ToolTest, linux_alone, open_terminal
from usage_test import COMMANDS, options_of

PROGRAM_OPTIONS = ["-V", "--version", "-h", "--help"]


class BashTest(ToolTest):
    def complete(self, *words):
        script = self.write("completion", self.ok("--completion=bash").encode())
        lines = ["source " + str(script), "compopt() { :; }",
                 "orba() { %s \"$@\"; }" % shlex.join(PROGRAM),
                 "COMP_WORDS=(" + " ".join(shlex.quote(word) for word in words) + ")",
                 f"COMP_CWORD={len(words) - 1}", "_orba", 'printf "%s\\n" "${COMPREPLY[@]}"']
        done = subprocess.run(["bash", "-c", "\n".join(lines)], capture_output=True, cwd=self.folder, text=True,
                              env=self.environment(), check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.splitlines() if done.stdout.strip() else []

    def test_completion_of_the_first_word_offers_commands(self):
        self.assertEqual(self.complete("orba", ""), COMMANDS + ["-V", "--version", "-h", "--help"])
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

    def test_completion_of_a_container_and_colon_offers_the_root(self):
        self.format()
        self.ok("mkdir", "card.orb:/LOGS")
        self.assertEqual(self.complete("orba", "cat", "card.orb", ":"), ["/LOGS/"])

    def test_completion_of_quoted_names_works(self):
        self.ok("format", "my card.orb")
        self.put_text("my card.orb:/LIST.TXT")
        self.assertEqual(self.complete("orba", "cat", "my\\ card.orb", ":", "/"), ["/LIST.TXT"])
        for quote in "'\"":
            self.assertEqual(self.complete("orba", "cat", quote + "my card.orb:/l"), ["my card.orb:/LIST.TXT"])

    def test_completion_of_values_and_words_offers_those_there_are(self):
        self.assertEqual(self.complete("orba", "format", "-b", ""), ["1024", "2048", "4096", "8192"])
        self.assertEqual(self.complete("orba", "format", "--block-size", "8"), ["8192"])
        self.assertEqual(self.complete("orba", "attrib", "+"), ["+r", "+u", "+ru"])
        self.assertEqual(self.complete("orba", "attrib", "+r", ""), [])
        self.assertEqual(self.complete("orba", "help", "re"), ["repair", "recover"])
        self.assertEqual(self.complete("orba", "dump", "d"), [])
        parts = self.complete("orba", "dump", "card.orb", "")
        self.assertEqual(self.complete("orba", "dump", "card.orb", "b"), ["bitmap", "block", "bytes"])
        self.format()
        for part in parts:  # a part that needs a number says so; an unknown one would not
            self.assertNotIn("there is no part", self.orba("dump", "card.orb", part).err)
        self.assertEqual(len(parts), 8)

    def test_completion_works_in_an_interactive_shell(self):
        linux_alone("a terminal of Linux")
        self.format()
        self.ok("mkdir", "card.orb:/LOGS")
        self.put_text("card.orb:/LOGS/DAY1.TXT", "what the file holds")
        self.write("completion", self.ok("--completion=bash").encode())
        self.write("rc", ("PS1='ready> '; bind 'set enable-bracketed-paste off'; orba() { %s \"$@\"; }; "
                          "source ./completion\n" % shlex.join(PROGRAM)).encode())
        master, slave = open_terminal()
        with subprocess.Popen(["bash", "--noprofile", "--rcfile", "./rc", "-i"], stdin=slave, stdout=slave,
                              stderr=slave, cwd=self.folder, env=self.environment({"TERM": "dumb"}),
                              start_new_session=True) as shell:
            os.close(slave)
            seen = b""
            for typed in (b"orba ca\tcard.or\t:/lo\tday\t\n", b"exit\n"):
                while not seen.endswith(b"ready> "):
                    seen += os.read(master, 4096)
                os.write(master, typed)
                seen += b"\n"
            try:
                while part := os.read(master, 4096):
                    seen += part
            except OSError:  # how a terminal ends
                pass
        os.close(master)
        self.assertIn(b"what the file holds", seen)

    def test_completion_of_a_container_leaves_room_for_a_path(self):
        self.format()
        self.write("cash", b"no container")
        self.assertEqual(self.complete("orba", "ls", "car"), ["card.orb"])
        self.assertEqual(self.complete("orba", "ls", "cas"), [])  # the shell's own completion
        self.assertEqual(self.complete("orba", "ls", "ca"), [])

    def test_completion_runs_no_command_that_a_name_spells(self):
        self.format()
        self.put_text("card.orb:/$(TOUCH)")
        self.assertEqual(self.complete("orba", "cat", "card.orb", ":", "/$"), ["/$(TOUCH)"])


class ZshTest(ToolTest):
    # Every match that a completion finds, before the shell decides what to insert.
    RC = r"""
PS1='ready> '
setopt no_beep
zmodload zsh/complete
compadd() {
  local -a matches
  if [[ ${@[1,(i)(-|--)]} != *-[A-Za-z12]#[OAD]* ]]; then
    builtin compadd -O matches "$@"
    (( $#matches )) && print -rl -- $matches >>matches
  fi
  builtin compadd "$@"
}
fpath=($PWD/functions $fpath)
autoload -Uz compinit
compinit -u -D
ended() { print -r -- "line: $BUFFER" >>matches; zle kill-buffer; print -n 'done> ' }
zle -N ended
bindkey '^X^X' ended
bindkey '^I' complete-word
setopt extended_glob no_list_ambiguous
"""

    def complete(self, *lines):
        """For each line the matches at its end, sorted, and the line as it is after that."""
        linux_alone("a terminal of Linux")
        (self.folder / "functions").mkdir(exist_ok=True)
        self.write("functions/_orba", self.ok("--completion=zsh").encode())
        self.write("rc", (self.RC + "orba() { %s \"$@\"; }\n" % shlex.join(PROGRAM)).encode())
        (self.folder / "matches").unlink(missing_ok=True)
        master, slave = open_terminal()
        with subprocess.Popen(["zsh", "-f", "-i"], stdin=slave, stdout=slave, stderr=slave, cwd=self.folder,
                              env=self.environment({"TERM": "dumb", "HOME": str(self.folder)}),
                              start_new_session=True) as shell:
            os.close(slave)
            seen = b""
            for typed in ["source ./rc\n", *(line + "\t\x18\x18" for line in lines), "exit\n"]:
                os.write(master, typed.encode())
                end = b"ready> " if typed.startswith("source") else b"done> "
                while typed != "exit\n" and not re.search(re.escape(end) + rb"[^\n]*$", seen):
                    seen += os.read(master, 4096)
                seen = b""
            try:
                while os.read(master, 4096):
                    pass
            except OSError:  # how a terminal ends
                pass
        os.close(master)
        self.assertEqual(shell.returncode, 0)
        results, matches = [], []
        for line in (self.folder / "matches").read_text().splitlines():
            if line.startswith("line: "):
                results.append((sorted(set(matches)), line.removeprefix("line: ")))
                matches = []
            else:
                matches.append(line)
        self.assertEqual(len(results), len(lines))
        return results if len(lines) > 1 else results[0]

    def test_completion_of_the_first_word_offers_commands_and_options(self):
        words, options, helped = self.complete("orba ", "orba -", "orba help ")
        self.assertEqual(words[0], sorted(COMMANDS))
        self.assertEqual(options[0], sorted(PROGRAM_OPTIONS))
        self.assertEqual(helped[0], sorted(COMMANDS))

    def test_completion_of_options_offers_those_of_the_help(self):
        results = self.complete(*(f"orba {name} -" for name in COMMANDS))
        for name, (found, _) in zip(COMMANDS, results):
            self.assertEqual(found, sorted(options_of(self.ok(name, "--help"))), name)

    def test_option_that_is_given_is_not_offered_again(self):
        found, _ = self.complete("orba put --force -")
        for name in ("-f", "--force", "-n", "--no-clobber"):
            self.assertNotIn(name, found)

    def test_completion_of_values_and_words_offers_those_there_are(self):
        self.write("CASH", b"")
        results = self.complete("orba format -b ", "orba format --block-size=8", "orba attrib +", "orba dump x b",
                                "orba map --svg C")
        self.assertEqual([found for found, _ in results],
                         [["1024", "2048", "4096", "8192"], ["8192"], ["+r", "+ru", "+u"],
                          ["bitmap", "block", "bytes"], ["CASH"]])

    def test_completion_inside_a_container_offers_its_names(self):
        self.ok("format", "my card.orb")
        self.ok("mkdir", "my card.orb:/LOGS")
        self.put_text("my card.orb:/LOGS/$(DAY)")
        self.put_text("my card.orb:/LIST.TXT")
        results = self.complete("orba cat my\\ card.orb:/l", "orba cat my\\ card.orb:/lo", "orba cat my\\ card.orb:",
                                "orba cat my\\ card.orb:/LOGS/", "orba cat 'my card.orb:/li")
        self.assertEqual([found for found, _ in results],
                         [["/LIST.TXT", "/LOGS/"], ["/LOGS/"], ["/LIST.TXT", "/LOGS/"], ["/LOGS/$(DAY)"],
                          ["/LIST.TXT"]])
        self.assertEqual(results[1][1], "orba cat my\\ card.orb:/LOGS/")
        self.assertEqual(results[3][1], "orba cat my\\ card.orb:/LOGS/\\$\\(DAY\\) ")
        self.assertEqual(results[4][1], "orba cat 'my card.orb:/LIST.TXT' ")

    def test_completion_of_a_container_leaves_room_for_a_path(self):
        self.format()
        self.write("other", b"no container")
        results = self.complete("orba ls car", "orba ls oth")
        self.assertEqual([line for _, line in results], ["orba ls card.orb", "orba ls other "])


class FishTest(ToolTest):
    def complete(self, line):
        script = self.write("completion.fish", self.ok("--completion=fish").encode())
        (self.folder / "home").mkdir(exist_ok=True)
        lines = [f"function orba; {shlex.join(PROGRAM)} $argv; end", f"source {script}", 'complete -C "$line"']
        done = subprocess.run(["fish", "--no-config", "-c", "\n".join(lines)], capture_output=True, cwd=self.folder,
                              text=True, timeout=LIMIT, check=False,
                              env=self.environment({"line": line, "HOME": str(self.folder / "home")}))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [found.split("\t")[0] for found in done.stdout.splitlines()]

    def test_completion_of_the_first_word_offers_commands_and_options(self):
        self.assertEqual(sorted(self.complete("orba ")), sorted(COMMANDS))
        self.assertEqual(sorted(self.complete("orba -")), sorted(PROGRAM_OPTIONS))
        self.assertEqual(sorted(self.complete("orba help ")), sorted(COMMANDS))

    def test_completion_of_options_offers_those_of_the_help(self):
        for name in COMMANDS:
            self.assertEqual(sorted(self.complete(f"orba {name} -")), sorted(options_of(self.ok(name, "--help"))))

    def test_completion_of_values_and_words_offers_those_there_are(self):
        self.write("CASH", b"")
        self.assertEqual(self.complete("orba format -b "), ["1024", "2048", "4096", "8192"])
        self.assertEqual(self.complete("orba format --block-size=8"), ["--block-size=8192"])
        self.assertEqual(sorted(self.complete("orba attrib +")), ["+r", "+ru", "+u"])
        self.assertEqual(self.complete("orba dump x bit"), ["bitmap"])
        self.assertEqual(self.complete("orba map --svg CA"), ["CASH"])

    def test_completion_inside_a_container_offers_its_names(self):
        self.ok("format", "my card.orb")
        self.ok("mkdir", "my card.orb:/LOGS")
        self.put_text("my card.orb:/LOGS/$(DAY)")
        self.put_text("my card.orb:/LIST.TXT")
        self.assertEqual(sorted(self.complete("orba cat my\\ card.orb:/l")),
                         ["my card.orb:/LIST.TXT", "my card.orb:/LOGS/"])
        self.assertEqual(self.complete("orba cat my\\ card.orb:/LOGS/"), ["my card.orb:/LOGS/$(DAY)"])
        self.assertEqual(self.complete("orba cat 'my card.orb:/li"), ["my card.orb:/LIST.TXT"])

    def test_completion_of_a_container_offers_its_root_too(self):
        self.format()
        self.write("other", b"no container")
        self.assertEqual(sorted(self.complete("orba ls car")), ["card.orb", "card.orb:/"])
        self.assertEqual(self.complete("orba ls oth"), ["other"])


if __name__ == "__main__":
    unittest.main()
