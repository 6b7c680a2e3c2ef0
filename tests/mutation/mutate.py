#!/usr/bin/env python3
"""Changes one operator, constant, guard or statement of the code at a time and sees whether the tests notice.

  mutate.py [--count N | --each N | --all | --again] [--seed N] [--quick] [--jobs N] [--build FOLDER] [--list] [PATH...]

Without PATH: src/ and inspect/. A change that does not compile, or that compiles to the very same code, is not counted.
The others run through the tests that could notice, the quick ones first. A test that fails, crashes, or takes many
times its processor time or more memory than it is allowed has noticed. A change that no test notices is a survivor: a
test is missing, or the change makes no difference. Of the latter equivalents.txt keeps a list with reasons. Exit status
1 where there are survivors that are not on the list.

Nothing of the source tree is changed: a changed source is compiled aside, and the test programs are linked anew with
its object in the place of the other. The build folder gets survivors.txt, which --again reads.
"""
import argparse
import collections
import concurrent.futures
import contextlib
import itertools
import json
import os
import pathlib
import random
import re
import resource
import shlex
import signal
import subprocess
import sys
import tempfile
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
EQUIVALENTS = pathlib.Path(__file__).parent / "equivalents.txt"
MEMORY = 4 << 30  # bytes that a test may take, addresses that it only reserves apart
TIMES = 5  # as much processor time as without the change, and SPARE seconds more, until a test counts as hanging
SPARE = 10
PATIENCE = 60  # seconds of the clock for each of the processor's: the machine may be busy

# Which tests could notice a change, the quick ones first: gtest programs by name, Python tests by path.
PYTHON = ["tests/tool/check_test.py", "tests/tool/picture_test.py", "tests/tool/repair_test.py",
          "tests/tool/transfer_test.py", "tests/corpus/corpus.py"]
TESTS = {
    "src/platform/posix/": ["platform_tests", "api_tests"],
    "memfile/": ["platform_tests"],
    "src/": ["unit_tests", "api_tests", "crash_tests"],
    "inspect/view/": ["inspect_tests", *PYTHON],
    "inspect/": ["inspect_tests", *PYTHON, "crash_tests"],
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

RAN = re.compile(r"^Ran [1-9]\d* tests?|^\[=+\] [1-9]\d* tests? .* ran\b", re.MULTILINE)
SUITE = re.compile(r"^(?:TYPED_)?TEST(?:_[FP])?\(\s*(\w+),", re.MULTILINE)


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
    for line in EQUIVALENTS.read_text(encoding="utf-8").splitlines():
        if not line or line.startswith(("#", " ")):
            continue
        path, _, change = line.partition(": ")
        if line not in {mutation.key for mutation in mutations(path)}:
            sys.exit(f"mutate: equivalents.txt: {path} has nothing of which this is a change: {change}")
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
        self.unchanged = {}

    def object_of(self, path):
        command = shlex.split(self.compile[path]["command"])
        return command[command.index("-o") + 1]

    def compiled(self, path, text, scratch):
        """The object of the text in place of the source; None where it does not compile."""
        source = scratch / pathlib.Path(path).name
        source.write_text(text, encoding="utf-8")
        command = shlex.split(self.compile[path]["command"])
        command = [word for word in command if not word.startswith(("-W", "-g")) and not word.endswith("ccache")]
        made = scratch / "changed.o"
        command[command.index("-o") + 1] = str(made)
        command[command.index("-c") + 1] = str(source)
        folder = str((ROOT / path).parent)
        done = subprocess.run([*command, "-w", "-iquote", folder], cwd=self.folder, capture_output=True, check=False)
        return made if done.returncode == 0 else None

    def keep_unchanged(self, path):
        """Keeps the code of the source as it is, which tells the changes that make none."""
        with tempfile.TemporaryDirectory(prefix="mutate") as folder:
            scratch = pathlib.Path(folder)
            made = self.compiled(path, (ROOT / path).read_text(encoding="utf-8"), scratch)
            if made is None:
                sys.exit(f"mutate: {path} does not compile without any change")
            self.unchanged[path] = self.code(made)

    def changed(self, mutation, scratch):
        """The object of the changed source; None where it does not compile or is the same code as before."""
        lines = (ROOT / mutation.path).read_text(encoding="utf-8").split("\n")
        indent = re.match(r" *", lines[mutation.line - 1])[0]
        lines[mutation.line - 1] = indent + (mutation.after or ";")
        made = self.compiled(mutation.path, "\n".join(lines), scratch)
        return made if made and self.code(made) != self.unchanged[mutation.path] else None

    @staticmethod
    def code(made):
        stripped = made.with_suffix(".stripped")
        subprocess.run(["objcopy", "--strip-debug", "--remove-section=.comment", str(made), str(stripped)], check=True)
        return stripped.read_bytes()

    def link(self, target, path, made, scratch):
        """The program or library, "bin/NAME" or "lib/NAME", with the changed object in it."""
        if target not in self.links:
            lines = subprocess.run(["ninja", "-t", "commands", "-s", target], cwd=self.folder, capture_output=True,
                                   text=True, check=True).stdout.strip().splitlines()
            self.links[target] = shlex.split(lines[-1].removeprefix(": && ").split(" && ")[0])
        program = scratch / target
        replaced, words = False, ["-fuse-ld=gold"]
        for word in self.links[target]:
            if word == self.object_of(path):
                word, replaced = str(made), True
            words.append(word)
        words[0], words[1] = words[1], words[0]
        words[words.index("-o") + 1] = str(program)
        if not replaced:  # it comes out of an archive: the first definition counts
            words.insert(words.index("-o"), str(made))
        done = subprocess.run(words, cwd=self.folder, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"mutate: {target} cannot be linked with {path}:\n{done.stderr}")
        return program


class Workplace:
    """Runs tests on programs with one object in them that comes from elsewhere, in a scratch folder."""

    def __init__(self, build, folder, path, made):
        self.build, self.folder, self.path, self.made = build, folder, path, made
        self.linked = {}
        for name in ("bin", "lib", "run"):
            (folder / name).mkdir()
        for library in (build.folder / "lib").glob("*.so*"):  # libraries are looked for beside the program
            (folder / "lib" / library.name).symlink_to(library.readlink() if library.is_symlink() else library)

    def program(self, target):
        if target not in self.linked:
            (self.folder / target).unlink(missing_ok=True)
            self.linked[target] = self.build.link(target, self.path, self.made, self.folder)
        return self.linked[target]

    def commands(self, test):
        """What to run, one after the other."""
        if test.endswith(".py"):
            return [[sys.executable, "-B", str(ROOT / test)] + (["-f"] if "/tool/" in test else [])]
        program = self.build.folder / "bin" / test
        if test in ("api_tests", "platform_tests"):  # they call the shared library
            for library in (self.build.folder / "lib").glob("liborba.so.*.*"):
                self.program(f"lib/{library.name}")
        if test != "api_tests":
            program = self.program(f"bin/{test}")
        command = [str(program), "--gtest_fail_fast", "--gtest_brief=1"]
        own = ":".join(f"{suite}.*:*/{suite}.*" for suite in suites_of(self.path)) if test.endswith("_tests") else ""
        return [[*command, f"--gtest_filter={own}"], [*command, f"--gtest_filter=-{own}"]] if own else [command]

    def passes(self, test, seconds, output):
        return all(self.run(test, command, seconds, output) for command in self.commands(test))

    def run(self, test, command, seconds, output):
        """Whether it passes within so many seconds of the processor. Nothing of it is left running."""
        environment = {**os.environ, "ORBA_SCRATCH": str(self.folder), "TMPDIR": str(self.folder),
                       "LD_LIBRARY_PATH": str(self.folder / "lib"), "PYTHONUNBUFFERED": "1",
                       "ORBA_HOST_CALLS": str(next(self.build.folder.glob("**/libhost_calls.so"), ""))}
        if test.endswith(".py"):
            environment["ORBA"] = str(self.program("bin/orba"))
        limits = ["prlimit", "--core=0", f"--data={MEMORY}", f"--cpu={int(seconds)}"]
        with subprocess.Popen([*limits, *command], cwd=self.folder / "run", env=environment, start_new_session=True,
                              stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT) as process:
            try:
                return process.wait(timeout=PATIENCE * seconds) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)


class Judge:
    """Knows how long each test takes, and tells which one notices a change."""

    def __init__(self, build, quick):
        self.build, self.quick = build, quick
        self.limits = {}  # of each test, in seconds of the processor

    def prepare(self, paths):
        """Runs each test on a program linked aside, without a change: it must run tests, and pass."""
        for path in paths:
            self.build.keep_unchanged(path)
            for test in self.tests(path):
                if test not in self.limits:
                    self.limits[test] = self.measured(test, path)

    def tests(self, path):
        return tests_for(path)[:1] if self.quick else tests_for(path)

    def measured(self, test, path):
        with tempfile.TemporaryDirectory(prefix="mutate") as folder:
            place = Workplace(self.build, pathlib.Path(folder), path, self.build.object_of(path))
            log = place.folder / "log"
            before = processor_seconds()
            with log.open("wb") as output:
                passed = place.passes(test, 1200, output)
            took = processor_seconds() - before
            text = log.read_text(encoding="utf-8", errors="replace")
            if not passed or not RAN.search(text):
                sys.exit(f"mutate: {test} does not pass without any change:\n{text[-2000:]}")
            print(f"{took:8.1f} s of processor time: {test}", flush=True)
            return SPARE + TIMES * took

    def __call__(self, mutation):
        """None where the change is not counted, else the test that notices it, or "" where none does."""
        with tempfile.TemporaryDirectory(prefix="mutate") as folder:
            scratch = pathlib.Path(folder)
            made = self.build.changed(mutation, scratch)
            if made is None:
                return None
            place = Workplace(self.build, scratch, mutation.path, made)
            for test in self.tests(mutation.path):
                if not place.passes(test, self.limits[test], subprocess.DEVNULL):
                    return test
            return ""


def suites_of(path):
    """The suites of the unit tests that include the source's header or, where it has none, one of its folder's."""
    header = pathlib.Path(path.removeprefix("src/")).with_suffix(".h").as_posix()
    if not (ROOT / path).with_suffix(".h").exists():
        header = header.rpartition("/")[0] + "/"
    texts = [file.read_text(encoding="utf-8") for file in sorted((ROOT / "tests/unit").rglob("*_test.cpp"))]
    return sorted({suite for text in texts if f'#include "{header}' in text for suite in SUITE.findall(text)})


def processor_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def tests_for(path):
    return next((tests for prefix, tests in TESTS.items() if path.startswith(prefix)), None)


def chosen_files(build, paths):
    files = [path for path in build.compile
             if tests_for(path)
             and any(path.startswith(wanted.rstrip("/") + "/") or path == wanted for wanted in paths)]
    if not files:
        sys.exit(f"mutate: no source among {' '.join(paths)}")
    return sorted(files)


def sample(every, arguments, survivors):
    """The changes to try."""
    chance = random.Random(arguments.seed)
    if arguments.again:
        keys = survivors.read_text(encoding="utf-8").splitlines() if survivors.exists() else []
        return [mutation for mutation in every if mutation.key in keys]
    if arguments.all:
        return every
    if arguments.each:
        files = [list(group) for _, group in itertools.groupby(every, lambda mutation: mutation.path)]
        return [one for file in files for one in sorted(chance.sample(file, min(arguments.each, len(file))))]
    return sorted(chance.sample(every, min(arguments.count, len(every))))


class Tally:
    """What became of the changes of one folder."""

    def __init__(self, every):
        self.every, self.tried, self.none, self.known, self.noticed, self.survived = every, 0, 0, 0, 0, 0

    def __str__(self):
        counted = self.noticed + self.survived
        return (f"{self.noticed} of {counted} noticed, {100 * self.noticed / max(counted, 1):.1f} % "
                f"({self.tried} of {self.every} changes tried; {self.none} are none or do not compile, "
                f"{self.known} known to make no difference)")


def main():
    parser = argparse.ArgumentParser(description="Sees whether the tests notice small changes of the code.")
    parser.add_argument("--count", type=int, default=100, help="how many changes to try, chosen at random (100)")
    parser.add_argument("--each", type=int, metavar="N", help="try N of each file instead")
    parser.add_argument("--all", action="store_true", help="try all of them")
    parser.add_argument("--again", action="store_true", help="try those that survived the last time")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--quick", action="store_true", help="run the unit tests alone")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--list", action="store_true", help="print the changes instead of trying them")
    parser.add_argument("paths", nargs="*", metavar="PATH", default=["src/", "inspect/"])
    arguments = parser.parse_args()

    build = Build(arguments.build)
    kept = build.folder / "survivors.txt"
    every = [mutation for path in chosen_files(build, arguments.paths) for mutation in sorted(mutations(path))]
    chosen = sample(every, arguments, kept)
    if arguments.list:
        print("\n".join(map(str, chosen)))
        return 0

    listed, survivors, notices = equivalents(), [], collections.Counter()
    folders = {folder: Tally(number) for folder, number in collections.Counter(map(folder_of, every)).items()}
    judge = Judge(build, arguments.quick)
    judge.prepare(sorted({mutation.path for mutation in chosen}))
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for mutation, test in zip(chosen, pool.map(judge, chosen)):
            tally = folders[folder_of(mutation)]
            tally.tried += 1
            if test is None:
                tally.none += 1
            elif test:
                tally.noticed += 1
                notices[test] += 1
            elif mutation.key in listed:
                tally.known += 1
            else:
                tally.survived += 1
                survivors.append(mutation)
                print(f"survived: {mutation}", flush=True)
    kept.write_text("".join(f"{mutation.key}\n" for mutation in survivors), encoding="utf-8")
    for test, number in sorted(notices.items()):
        print(f"{number:6} noticed by {test}")
    for folder, tally in folders.items():
        if tally.tried:
            print(f"{folder}: {tally}")
    noticed = sum(notices.values())
    counted = noticed + len(survivors)
    print(f"score: {noticed} of {counted} noticed, {100 * noticed / max(counted, 1):.1f} %, seed {arguments.seed}")
    return 1 if survivors or counted == 0 else 0


def folder_of(mutation):
    return mutation.path.rpartition("/")[0]


if __name__ == "__main__":
    sys.exit(main())
