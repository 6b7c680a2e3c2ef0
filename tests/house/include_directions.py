#!/usr/bin/env python3
"""Checks who includes whom: every folder of the library is a floor that uses the floors below.

  include_directions.py ROOT

  - a file in src/ includes its own floor and those below, never one above, and has a place in the list of floors;
  - a room of inspect/ includes itself and those below;
  - what lies beside the library keeps to its side: the host folders use the seam, inspect/ the layout and the
    symbols of names, the black-box tests and the examples the public header;
  - no two files include each other, however many others lie between;
  - above src/platform/ nothing is compiled conditionally, and the only system headers are four plain C ones;
  - above tools/orba/host/ the tool knows no host either: of system headers it includes those of the C++ library
    without files and signals, and those of libraries;
  - inspect/ knows no host: it includes no header of files, clocks or threads, and calls no file function of <cstdio>;
  - no C++ header anywhere that ships on a device.
"""
import pathlib
import re
import sys

# The floors of src/ from the bottom to the top; within a floor, its files from the bottom to the top. Files named
# together stand side by side and include none of each other.
FLOORS = [
    ("platform", ["coredll"]),
    ("base", ["error name_symbols", "byte_order name scratch text"]),
    ("storage", ["memory_file", "container"]),
    ("volume", ["layout", "time_stamp volume"]),
    ("space", ["block_io", "free_chain"]),
    ("nodes", ["node", "block_map", "node_store"]),
    ("namespace", ["current_directory", "directory", "path"]),
    ("files", ["slots", "open_file", "transfer find"]),
    ("operations", ["create remove move format mount attributes full_path", "copy"]),
    ("interface", ["entry_points", "entry_points_wide"]),
]

# The rooms of inspect/ from the bottom to the top.
ROOMS = ["container", "check", "repair", "view"]

# Folders beside the floors, and all of the project's files that they may include: folders end in "/".
NEIGHBOURS = {
    "src/platform/ce/": ["src/platform/ce/", "src/platform/coredll.h", "include/orba.h"],
    "src/platform/windows/": ["src/platform/windows/", "src/platform/coredll.h", "include/orba.h"],
    "src/platform/posix/": ["src/platform/posix/", "src/platform/coredll.h", "include/orba.h"],
    "memfile/": ["memfile/"],
    "inspect/": ["inspect/", "src/volume/layout.h", "src/base/name_symbols.h"],
    "mount/": ["mount/", "inspect/", "src/volume/layout.h", "src/base/name_symbols.h", "include/orba.h"],
    "tools/orba/host/posix/": ["tools/orba/host/posix/", "tools/orba/host/host.h"],
    "tools/orba/host/windows/": ["tools/orba/host/windows/", "tools/orba/host/host.h"],
    "tools/orba/": ["tools/orba/", "mount/", "inspect/", "src/volume/layout.h", "src/base/name_symbols.h",
                    "include/orba.h"],
    "explorer/": ["explorer/", "inspect/", "src/volume/layout.h"],
    "examples/": ["examples/", "include/orba.h"],
    "bench/": ["bench/", "src/platform/coredll.h", "include/orba.h"],
    "tests/api/": ["tests/api/", "include/orba.h"],
}

HOST_FOLDERS = ("tools/orba/host/posix/", "tools/orba/host/windows/")
CORE_SYSTEM_HEADERS = {"stddef.h", "stdint.h", "stdlib.h", "string.h"}
INSPECTION_SYSTEM_HEADERS = {
    "algorithm", "array", "cstddef", "cstdint", "cstdio", "cstring", "functional", "iterator", "limits", "map",
    "memory", "numeric", "optional", "set", "string", "tuple", "type_traits", "unordered_map", "unordered_set",
    "utility", "vector"}
TOOL_HOST_HEADERS = {"filesystem", "fstream", "csignal"}  # C++ headers that belong to a host
TOOL_LIBRARIES = {"getopt.h", "archive.h", "archive_entry.h"}
HOST_MACRO = re.compile(r"\b(_WIN32|_WIN64|__MINGW\w*|_MSC_VER|__linux__|__linux|__unix__|__APPLE__)\b")
HOST_CALL = re.compile(
    r"\bstd::(FILE|fopen|fread|fwrite|fclose|fseek|fflush|fputs|fprintf|printf|puts|remove|rename|getenv)\b")
SOURCES = {".h", ".cpp", ".c"}
INCLUDE = re.compile(r'\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
CONDITIONAL = re.compile(r"\s*#\s*(if|ifdef|ifndef|elif|else)\b")
SEARCHED = ["src", "include", "", "tests"]  # where a quoted name is looked up after the including file's own folder


def place_of(path):
    """Floor and place on it of a file of the library, as numbers that grow upwards; None where it has none."""
    if path == "include/orba.h":
        return (-1, 0)
    folder, _, name = path.removeprefix("src/").partition("/")
    stem = re.sub(r"\.\w+$", "", name)
    for floor, (floor_name, shelves) in enumerate(FLOORS):
        if folder == floor_name:
            for place, names in enumerate(shelves):
                if stem in names.split():
                    return (floor, place)
    return None


def room_of(path):
    room = path.split("/")[1]
    return ROOMS.index(room) if room in ROOMS else None


def stem_of(path):
    return re.sub(r"\.\w+$", "", path)


def neighbour_of(path):
    return next((folder for folder in NEIGHBOURS if path.startswith(folder)), None)


def resolve(root, path, name):
    """The project's file, relative to its root, that `path` includes as `name`, or None."""
    for folder in [str(pathlib.PurePosixPath(path).parent)] + SEARCHED:
        file = (root / folder / name).resolve()
        if file.is_file() and root in file.parents:
            return file.relative_to(root).as_posix()
    return None


def read(root):
    """Each source file of the project: its quoted includes (line, name, file), its system headers, its conditions."""
    files = {}
    for folder in ("src", "include", "memfile", "inspect", "mount", "tools", "explorer/bridge", "examples", "bench",
                   "tests"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in SOURCES:
                path = file.relative_to(root).as_posix()
                quoted, system, conditions, calls = [], [], [], []
                for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
                    include = INCLUDE.match(line)
                    if include and include[1]:
                        quoted.append((number, include[1], resolve(root, path, include[1])))
                    elif include:
                        system.append((number, include[2]))
                    elif CONDITIONAL.match(line):
                        conditions.append((number, HOST_MACRO.search(line) is not None))
                    elif HOST_CALL.search(line):
                        calls.append((number, HOST_CALL.search(line)[0]))
                files[path] = (quoted, system, conditions, calls)
    return files


def faults_of_place(path, quoted):
    neighbour = neighbour_of(path)
    if neighbour:
        if neighbour == "inspect/" and room_of(path) is None:
            yield f"{path}: has no place among the rooms of {pathlib.Path(__file__).name}"
            return
        for number, name, file in quoted:
            if file is None:
                yield f'{path}:{number}: "{name}" is not a file of the project'
            elif neighbour == "tools/orba/" and file.startswith(HOST_FOLDERS):
                yield f"{path}:{number}: includes {file}, which is one host's own"
            elif not any(file == allowed or (allowed.endswith("/") and file.startswith(allowed))
                         for allowed in NEIGHBOURS[neighbour]):
                yield f"{path}:{number}: {neighbour} does not include {file}"
            elif neighbour == "inspect/" and file.startswith(neighbour) and room_of(file) > room_of(path):
                yield f"{path}:{number}: includes upwards, {file}"
        return
    if not path.startswith(("src/", "include/")):
        return
    place = place_of(path)
    if place is None:
        yield f"{path}: has no place among the floors of {pathlib.Path(__file__).name}"
        return
    for number, name, file in quoted:
        if file is None:
            yield f'{path}:{number}: "{name}" is not a file of the project'
        elif place_of(file) is None:
            yield f"{path}:{number}: includes {file}, which has no place among the floors"
        elif place_of(file) > place:
            yield f"{path}:{number}: includes upwards, {file}"
        elif place_of(file) == place and stem_of(file) != stem_of(path) and place[0] >= 0:
            yield f"{path}:{number}: includes its neighbour {file}"


def faults_of_host(path, system, conditions, calls):
    core = path.startswith("src/") and not path.startswith("src/platform/")
    tool = path.startswith("tools/orba/") and not path.startswith("tools/orba/host/")
    for number, header in system:
        if core and header not in CORE_SYSTEM_HEADERS:
            yield f"{path}:{number}: <{header}> is not among the headers the library needs"
        elif path.startswith(("src/platform/", "memfile/")) and not header.endswith(".h"):
            yield f"{path}:{number}: <{header}> belongs to the C++ run time"
        elif path.startswith("inspect/") and header not in INSPECTION_SYSTEM_HEADERS:
            yield f"{path}:{number}: <{header}> may belong to a host"
        elif tool and (header in TOOL_HOST_HEADERS or (header.endswith(".h") and header not in TOOL_LIBRARIES)):
            yield f"{path}:{number}: <{header}> belongs below tools/orba/host/"
    if tool:
        yield from (f"{path}:{number}: compiles for one host above tools/orba/host/" for number, named in conditions
                    if named)
    if path.startswith("inspect/"):
        yield from (f"{path}:{number}: {call} belongs to a host" for number, call in calls)
    if core:
        yield from (f"{path}:{number}: compiles conditionally above src/platform/" for number, _ in conditions)


def cycles(files):
    """Each include cycle once, as the list of its files."""
    state, found = {}, []

    def visit(path, trail):
        state[path] = "open"
        for _, _, file in files[path][0]:
            if file in files:
                if state.get(file) == "open":
                    found.append(trail[trail.index(file):] + [file])
                elif file not in state:
                    visit(file, trail + [file])
        state[path] = "done"

    for path in files:
        if path not in state:
            visit(path, [path])
    return found


def faults(root):
    files = read(root)
    if not any(path.startswith("src/") for path in files):
        yield f"{root}: no sources found"
    for path, (quoted, system, conditions, calls) in files.items():
        yield from faults_of_place(path, quoted)
        yield from faults_of_host(path, system, conditions, calls)
    for cycle in cycles(files):
        yield "include each other: " + " -> ".join(cycle)


def main():
    found = list(faults(pathlib.Path(sys.argv[1]).resolve()))
    for fault in found:
        print(fault)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
