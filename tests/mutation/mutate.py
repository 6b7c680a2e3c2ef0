#!/usr/bin/env python3
"""Changes one operator, constant, guard or statement of the code at a time and sees whether the tests notice.

  mutate.py [--count N | --all] [--seed N] [--jobs N] [--build FOLDER] [--list] [PATH...]

Without PATH: src/ and inspect/. A change that does not compile, or that compiles to the very same code, is not counted.
The others run through the tests that could notice, the quick ones first. Those that no test notices are survivors: a
test is missing, or the change makes no difference. Of the latter equivalents.txt keeps a list with reasons. Exit status
1 where there are survivors that are not on the list.

Nothing of the source tree or of the build folder is changed: a changed source is compiled aside, and the test programs
are linked anew with its object in the place of the other.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import random
import re
import shlex
import subprocess
import sys
import tempfile
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
EQUIVALENTS = pathlib.Path(__file__).parent / "equivalents.txt"
LIMIT = 10  # times as long as without the change, and a test counts as hanging

# Which programs could notice a change, the quick ones first: gtest programs by target, Python tests by their arguments.
TESTS = {
    "src/platform/posix/": ["platform_tests"],
    "memfile/": ["platform_tests"],
    "src/": ["unit_tests", "crash_tests"],
    "inspect/": ["inspect_tests", "crash_tests", "tests/corpus/corpus.py", "tests/tool/check_test.py",
                 "tests/tool/picture_test.py"],
}

# What becomes of an operator; in this code binary operators stand between spaces, and nothing else does.
OPERATORS = {
    "<": ["<=", ">"], "<=": ["<", "=="], ">": [">=", "<"], ">=": [">", "=="], "==": ["!="], "!=": ["=="],
    "&&": ["||"], "||": ["&&"],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"], "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"],
    "^": ["|"],
    "+=": ["-=", "="], "-=": ["+=", "="], "*=": ["/="], "/=": ["*="], "|=": ["&=", "="], "&=": ["|=", "="], "^=": ["="],
}
BINARY = re.compile(r"(?<= )(<=|>=|==|!=|&&|\|\||<<|>>|\+=|-=|\*=|/=|\|=|&=|\^=|[-<>+*/%&|^])(?= |$)")
UNARY = re.compile(r"(?<![\w)\]])!(?=[\w(])")
STEP = re.compile(r"\+\+|--")
NUMBER = re.compile(r"(?<![\w.\"'])(0[xX][0-9a-fA-F]+|0|[1-9][0-9]*)(u|U|ull|ULL)?(?![\w.\"'])")
TRUTH = re.compile(r"\b(true|false)\b")
GUARD = re.compile(r"\b(if|while) \(")
STATEMENT = re.compile(r"^ +(?!return\b|const\b|case\b|default\b|using\b|static_assert\b|else\b|if\b|for\b"
                       r"|while\b|do\b)"
                       r"[\w:>*(][\w:.>()\[\]*-]*(?:\(.*\)|(?: [-+*/|&^%]?= .*)|\+\+|--);$")
JUMP = re.compile(r"^ +(continue|break);$")


class Mutation(typing.NamedTuple):
    path: str
    line: int    # from 1
    before: str  # the line, without the blanks around it
    after: str   # "" where the statement went

    @property
    def key(self):
        return f"{self.path}: {self.before} -> {self.after}"

    def __str__(self):
        return f"{self.path}:{self.line}\n  - {self.before}\n  + {self.after}"


def blanked(text):
    """The text with comments, strings, characters and preprocessor lines overwritten by as many blanks."""
    def blank(match):
        return re.sub(r"[^\n]", " ", match[0])
    literal = r'"(?:[^"\\\n]|\\.)*"|(?<![0-9A-Fa-f])\'(?:[^\'\\\n]|\\.)*\''
    return re.sub(rf"//[^\n]*|/\*.*?\*/|{literal}|^[ \t]*#[^\n]*", blank, text, flags=re.DOTALL | re.MULTILINE)


def closing(text, start):
    """The place of the bracket that closes the one at `start`, None where it is not on the line."""
    depth = 0
    for place in range(start, len(text)):
        depth += {"(": 1, ")": -1}.get(text[place], 0)
        if depth == 0:
            return place
    return None


def changes(line):
    """(start, end, replacement) of each change of a line that was blanked."""
    if re.match(r"\s*(static_assert|template|using|namespace)\b", line):
        return
    for match in BINARY.finditer(line):
        for other in OPERATORS[match[1]]:
            yield match.start(), match.end(), other
    for match in UNARY.finditer(line):
        yield match.start(), match.end(), ""
    for match in STEP.finditer(line):
        yield match.start(), match.end(), "--" if match[0] == "++" else "++"
    for match in NUMBER.finditer(line):
        suffix = match[2] or ""
        value = int(match[1], 0)
        yield match.start(), match.end(), f"{value + 1}{suffix}"
        if value > 0:
            yield match.start(), match.end(), f"{value - 1}{suffix}"
    for match in TRUTH.finditer(line):
        yield match.start(), match.end(), "false" if match[0] == "true" else "true"
    for match in GUARD.finditer(line):
        end = closing(line, match.end() - 1)
        if end is not None:
            yield match.end(), end, "false"
            if match[1] == "if":
                yield match.end(), end, "true"
    if STATEMENT.match(line) or JUMP.match(line):
        yield len(line) - len(line.lstrip()), len(line.rstrip()), ""


def mutations(path):
    lines = (ROOT / path).read_text(encoding="utf-8").split("\n")
    seen = set()
    for number, (line, plain) in enumerate(zip(lines, blanked("\n".join(lines)).split("\n")), 1):
        for start, end, other in changes(plain):
            mutation = Mutation(path, number, line.strip(), (line[:start] + other + line[end:]).strip())
            if (number, mutation.after) not in seen:
                seen.add((number, mutation.after))
                yield mutation


def equivalents():
    """The listed changes: "PATH: BEFORE -> AFTER", each above its reason, which is indented."""
    listed = set()
    if EQUIVALENTS.exists():
        for line in EQUIVALENTS.read_text(encoding="utf-8").splitlines():
            if line and not line.startswith(("#", " ")):
                listed.add(line)
    return listed


class Build:
    """A build folder, and how to compile one source and to link one program anew."""

    def __init__(self, folder):
        self.folder = folder.resolve()
        commands = json.loads((self.folder / "compile_commands.json").read_text(encoding="utf-8"))
        self.compile = {}
        for command in commands:
            path = pathlib.Path(command["file"])
            if ROOT in path.parents:
                self.compile[path.relative_to(ROOT).as_posix()] = command
        self.links = {}

    def object_of(self, path):
        command = shlex.split(self.compile[path]["command"])
        return command[command.index("-o") + 1]

    def compiles(self, mutation, scratch):
        """The object of the changed source; None where it does not compile or is the same code as before."""
        lines = (ROOT / mutation.path).read_text(encoding="utf-8").split("\n")
        indent = re.match(r" *", lines[mutation.line - 1])[0]
        lines[mutation.line - 1] = indent + (mutation.after or ";")
        source = scratch / pathlib.Path(mutation.path).name
        source.write_text("\n".join(lines), encoding="utf-8")
        command = shlex.split(self.compile[mutation.path]["command"])
        command = [word for word in command if not word.startswith(("-W", "-g")) and not word.endswith("ccache")]
        made = scratch / "changed.o"
        command[command.index("-o") + 1] = str(made)
        command[command.index("-c") + 1] = str(source)
        folder = str((ROOT / mutation.path).parent)
        done = subprocess.run([*command, "-w", "-iquote", folder], cwd=self.folder, capture_output=True, check=False)
        if done.returncode != 0:
            return None
        same = self.code(made, scratch) == self.code(self.folder / self.object_of(mutation.path), scratch)
        return None if same else made

    @staticmethod
    def code(made, scratch):
        """The object without what is for the debugger."""
        stripped = scratch / "stripped.o"
        subprocess.run(["objcopy", "--strip-debug", "--remove-section=.comment", str(made), str(stripped)], check=True)
        return stripped.read_bytes()

    def link(self, target, path, made, scratch):
        """The program with the changed object in it."""
        if target not in self.links:
            lines = subprocess.run(["ninja", "-t", "commands", "-s", f"bin/{target}"], cwd=self.folder,
                                   capture_output=True, text=True, check=True).stdout.strip().splitlines()
            line = lines[-1].removeprefix(": && ").removesuffix(" && :")
            self.links[target] = shlex.split(line)
        program = scratch / "bin" / target  # libraries are looked for beside it
        program.parent.mkdir(exist_ok=True)
        if not (scratch / "lib").exists():
            (scratch / "lib").symlink_to(self.folder / "lib")
        replaced, words = False, []
        for word in self.links[target]:
            if word == self.object_of(path):
                word, replaced = str(made), True
            words.append(word)
        words[words.index("-o") + 1] = str(program)
        if not replaced:  # it comes out of an archive: the first definition counts
            words.insert(words.index("-o"), str(made))
        subprocess.run(words, cwd=self.folder, capture_output=True, check=True)
        return program


class Notice:
    """Runs tests on a changed program."""

    def __init__(self, build):
        self.build = build
        self.seconds = {}  # of each test without a change

    def command(self, test, program):
        if test.endswith(".py"):
            return [sys.executable, "-B", str(ROOT / test)]
        return [str(program), "--gtest_fail_fast", "--gtest_brief=1"]

    def target(self, test):
        return "orba" if test.endswith(".py") else test

    def passes(self, test, program, scratch, limit):
        environment = {**os.environ, "ORBA": str(program), "ORBA_SCRATCH": str(scratch), "TMPDIR": str(scratch),
                       "LD_LIBRARY_PATH": str(self.build.folder / "lib"), "PYTHONUNBUFFERED": "1"}
        folder = scratch / "run"
        folder.mkdir(exist_ok=True)
        try:
            return subprocess.run(self.command(test, program), cwd=folder, env=environment, timeout=limit,
                                  stdin=subprocess.DEVNULL, capture_output=True, check=False).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def measure(self, paths):
        """Runs each test on a program linked aside, without a change: it must pass. Keeps how long that takes."""
        for path in paths:
            for test in tests_for(path):
                if test in self.seconds:
                    continue
                with tempfile.TemporaryDirectory(prefix="mutate") as folder:
                    scratch = pathlib.Path(folder)
                    program = self.build.link(self.target(test), path, self.build.object_of(path), scratch)
                    before = os.times().elapsed
                    if not self.passes(test, program, scratch, 1200):
                        sys.exit(f"mutate: {test} fails without any change")
                    self.seconds[test] = os.times().elapsed - before

    def judge(self, mutation):
        """None where the change is not counted, else the test that notices it, or "" where none does."""
        with tempfile.TemporaryDirectory(prefix="mutate") as folder:
            scratch = pathlib.Path(folder)
            made = self.build.compiles(mutation, scratch)
            if made is None:
                return None
            programs = {}
            for test in tests_for(mutation.path):
                target = self.target(test)
                if target not in programs:
                    programs[target] = self.build.link(target, mutation.path, made, scratch)
                if not self.passes(test, programs[target], scratch, 20 + LIMIT * self.seconds[test]):
                    return test
            return ""


def tests_for(path):
    return next((tests for prefix, tests in TESTS.items() if path.startswith(prefix)), None)


def chosen_files(build, paths):
    files = [path for path in build.compile
             if tests_for(path)
             and any(path.startswith(wanted.rstrip("/") + "/") or path == wanted for wanted in paths)]
    if not files:
        sys.exit(f"mutate: no source among {' '.join(paths)}")
    return sorted(files)


def main():
    parser = argparse.ArgumentParser(description="Sees whether the tests notice small changes of the code.")
    parser.add_argument("--count", type=int, default=100, help="how many changes to try, chosen at random (100)")
    parser.add_argument("--all", action="store_true", help="try all of them")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--list", action="store_true", help="print the changes instead of trying them")
    parser.add_argument("paths", nargs="*", metavar="PATH", default=["src/", "inspect/"])
    arguments = parser.parse_args()

    build = Build(arguments.build)
    every = [mutation for path in chosen_files(build, arguments.paths) for mutation in mutations(path)]
    listed = equivalents()
    if not arguments.all:
        every = random.Random(arguments.seed).sample(every, min(arguments.count, len(every)))
    every.sort()
    if arguments.list:
        print("\n".join(map(str, every)))
        return 0

    notice = Notice(build)
    notice.measure(sorted({mutation.path for mutation in every}))
    counted, noticed, known, survivors = 0, {}, 0, []
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for mutation, test in zip(every, pool.map(notice.judge, every)):
            if test is None:
                continue
            if test == "" and mutation.key in listed:
                known += 1
                continue
            counted += 1
            if test:
                noticed[test] = noticed.get(test, 0) + 1
            else:
                survivors.append(mutation)
                print(f"survived: {mutation}", flush=True)
    for test, number in sorted(noticed.items()):
        print(f"{number:6} noticed by {test}")
    total = sum(noticed.values())
    print(f"seed {arguments.seed}: {len(every)} changes, {len(every) - counted - known} of them none or not compiled, "
          f"{known} known to make no difference")
    print(f"score: {total} of {counted} noticed, {100 * total / max(counted, 1):.1f} %")
    return 1 if survivors or counted == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
