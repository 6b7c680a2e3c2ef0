#!/usr/bin/env python3
"""Checks what a built library offers and needs.

  symbols.py exports LIBRARY DEF FUNCTIONS DATA   its exports are the names in DEF, so many functions and data
  symbols.py needs LIBRARY                        it needs the C library and the loader, no C++ run time
  symbols.py constructors LIBRARY OBJECTS...      nothing runs when it is loaded, beyond the C start-up code
  symbols.py calls OBJECTS...                     these call malloc, calloc, free, mem*, str*, the device and
                                                  each other
"""
import argparse
import re
import subprocess
import sys

# The C library and its loader; libdl is a part of it in older releases.
NEEDED = re.compile(r"(libc|libdl|ld-linux[\w-]*)\.so\.\d+")
CALLED = re.compile(r"malloc|calloc|free|mem\w+|str\w+|orba::coredll::\w+\(.*\)|_GLOBAL_OFFSET_TABLE_")


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()


def read_def(path):
    """The functions and the data that a module-definition file exports."""
    functions, data = set(), set()
    with open(path, encoding="ascii") as file:
        lines = [line.split(";")[0].split() for line in file]
    for words in lines[lines.index(["EXPORTS"]) + 1:]:
        if words:
            (data if words[1:] == ["DATA"] else functions).add(words[0])
    return functions, data


def check_exports(tools, library, def_file, function_count, data_count):
    wanted_functions, wanted_data = read_def(def_file)
    functions, data = set(), set()
    for line in run(tools.nm, "-D", "--defined-only", library):
        _, kind, name = line.split()
        (functions if kind in "TW" else data).add(name)
    for what, wanted, found, count in (("function", wanted_functions, functions, function_count),
                                       ("data", wanted_data, data, data_count)):
        if len(wanted) != int(count):
            yield f"{def_file} lists {len(wanted)} {what} names instead of {count}"
        yield from (f"{what} {name} is not exported" for name in sorted(wanted - found))
        yield from (f"{what} {name} is exported but not listed" for name in sorted(found - wanted))


def check_needs(tools, library):
    needed = [match[1] for line in run(tools.readelf, "-dW", library)
              for match in [re.search(r"\(NEEDED\).*\[(.*)\]", line)] if match]
    if not needed:
        yield f"{library} names no library at all: not a shared library?"
    yield from (f"{library} needs {name}" for name in needed if not NEEDED.fullmatch(name))


def sections(tools, file):
    """Name and size of each section of an object, an archive or a library."""
    for line in run(tools.readelf, "-SW", file):
        match = re.match(r"\s*\[\s*\d+\] (\.\S+)\s+\S+\s+[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)", line)
        if match:
            yield match[1], int(match[2], 16)


def check_constructors(tools, library, *objects):
    sizes = dict(sections(tools, library))
    for section in (".init_array", ".fini_array"):
        # One pointer belongs to the C start-up code.
        if sizes.get(section) != 8:
            yield f"{library}: {section} holds {sizes.get(section)} bytes instead of the 8 of the start-up code"
    for file in objects:
        found = dict(sections(tools, file))
        if ".text" not in found:
            yield f"{file}: no code found"
        yield from (f"{file}: has a section {name}" for name in found
                    if re.match(r"\.(init_array|fini_array|ctors|dtors|preinit_array)", name))


def check_calls(tools, *objects):
    defined, called = set(), {}
    for file in objects:
        for line in run(tools.nm, "-C", file):
            kind, name = re.fullmatch(r"(?:[0-9a-f]+)?\s*(\w) (.*)", line).groups()
            if kind in "Uw":
                called.setdefault(name, file)
            elif kind.isupper():
                defined.add(name)
    if not defined:
        yield "the objects define nothing"
    yield from (f"{file}: calls {name}" for name, file in sorted(called.items())
                if name not in defined and not CALLED.fullmatch(name))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("check", choices=("exports", "needs", "constructors", "calls"))
    parser.add_argument("arguments", nargs="+")
    arguments = parser.parse_args()
    faults = list(globals()["check_" + arguments.check](arguments, *arguments.arguments))
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
