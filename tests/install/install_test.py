#!/usr/bin/env python3
"""Installs a build, moves the tree elsewhere, and uses it from there as somebody else would.

  install_test.py BUILD SOURCE SCRATCH C_COMPILER CXX_COMPILER
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

BUILD, SOURCE, SCRATCH, C_COMPILER, CXX_COMPILER = (pathlib.Path(argument) for argument in sys.argv[1:])
PREFIX = SCRATCH / "installed"
FILES = {
    "bin/orba", "sbin/mount.fuse.orba", "include/orba.h", "share/man/man1/orba.1",
    "share/man/man8/mount.fuse.orba.8", "share/bash-completion/completions/orba", "share/zsh/site-functions/_orba",
    "share/fish/vendor_completions.d/orba.fish",
    "LIB/liborba.so", "LIB/liborba.so.1", "LIB/liborba.so.1.0.0", "LIB/liborba.a", "LIB/libmemfile.so",
    "LIB/pkgconfig/orba.pc", "LIB/cmake/orba/orba-config.cmake", "LIB/cmake/orba/orba-config-version.cmake",
    "LIB/cmake/orba/orba-targets.cmake",
}


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout}")
    return done.stdout


def setUpModule():
    shutil.rmtree(SCRATCH, ignore_errors=True)
    SCRATCH.mkdir(parents=True)
    run("cmake", "--install", BUILD, "--prefix", SCRATCH / "first")
    (SCRATCH / "first").rename(PREFIX)


def library_folder():
    found = list(PREFIX.glob("lib*/**/liborba.a"))
    assert len(found) == 1, found
    return found[0].parent


def run_example(test, program, folder):
    """In an empty folder: the examples make containers where they run."""
    folder.mkdir()
    test.assertNotEqual(run(program, cwd=folder), "")


class InstallTest(unittest.TestCase):
    def test_every_file_is_in_its_place(self):
        library = library_folder().relative_to(PREFIX).as_posix()
        installed = {path.relative_to(PREFIX).as_posix() for path in PREFIX.rglob("*") if not path.is_dir()}
        installed = {path for path in installed if not path.startswith(library + "/cmake/orba/orba-targets-")}
        self.assertEqual(installed, {path.replace("LIB/", library + "/") for path in FILES})

    def test_header_is_the_source_s(self):
        self.assertEqual((PREFIX / "include/orba.h").read_bytes(), (SOURCE / "include/orba.h").read_bytes())

    def test_tool_finds_the_library_beside_it(self):
        run(PREFIX / "bin/orba", "format", "card.orb", cwd=SCRATCH)
        loaded = re.findall(r"liborba\.so\.1 => (.*) \(", run("ldd", PREFIX / "bin/orba"))
        self.assertEqual([os.path.realpath(path) for path in loaded],
                         [os.path.realpath(library_folder() / "liborba.so.1")])

    def test_manual_page_and_completions_are_the_tool_s(self):
        for file, options in (("man/man1/orba.1", ["--man"]),
                              ("bash-completion/completions/orba", ["--completion=bash"]),
                              ("zsh/site-functions/_orba", ["--completion=zsh"]),
                              ("fish/vendor_completions.d/orba.fish", ["--completion=fish"])):
            self.assertEqual((PREFIX / "share" / file).read_text(), run(PREFIX / "bin/orba", *options), file)

    def test_installed_files_lead_to_no_folder_of_the_build(self):
        texts = {path: path.read_text() for path in library_folder().rglob("*") if path.suffix in (".pc", ".cmake")}
        self.assertEqual(len(texts), 5)
        for program in ("bin/orba", *library_folder().glob("*.so")):
            texts[program] = run("readelf", "-d", PREFIX / program)
        for path, text in texts.items():
            for folder in (BUILD, SOURCE, SCRATCH / "first"):
                # Not as the end of another path: a source folder may be called as the package is.
                self.assertNotRegex(text, rf"(?:(?<![\w.}}-])|(?<=-[IL])){re.escape(str(folder))}\b", path)

    def test_examples_build_with_the_cmake_package_and_run(self):
        build = SCRATCH / "with-cmake"
        run("cmake", "-G", "Ninja", "-S", SOURCE / "tests/install/consumer", "-B", build,
            f"-DCMAKE_PREFIX_PATH={PREFIX}", f"-DEXAMPLES={SOURCE / 'examples'}",
            f"-DCMAKE_C_COMPILER={C_COMPILER}", f"-DCMAKE_CXX_COMPILER={CXX_COMPILER}")
        run("cmake", "--build", build)
        for library in ("orba", "orba_static"):
            run_example(self, build / f"quickstart-{library}", SCRATCH / f"run-{library}")

    def test_examples_build_with_pkg_config_and_run(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(library_folder() / "pkgconfig")}
        self.assertEqual(run("pkg-config", "--modversion", "orba", env=environment), "1.0.0\n")
        flags = run("pkg-config", "--cflags", "--libs", "orba", env=environment).split()
        libdir = run("pkg-config", "--variable=libdir", "orba", env=environment).strip()
        program = SCRATCH / "quickstart"
        run(C_COMPILER, SOURCE / "examples/quickstart.c", "-o", program, *flags, f"-Wl,-rpath,{libdir}")
        run_example(self, program, SCRATCH / "run-pkg-config")

    def test_quickstart_sets_a_marked_container_aside_and_goes_on(self):
        folder = SCRATCH / "interrupted"
        folder.mkdir()
        program, container = BUILD / "bin/quickstart", folder / "quickstart.orba"
        self.assertIn("read back 16 bytes", run(program, cwd=folder))
        self.assertIn(" 32 bytes ", run(program, cwd=folder))  # a line more
        marked = bytearray(container.read_bytes())
        marked[52] = 1
        container.write_bytes(marked)
        self.assertIn("set aside as quickstart-aside-0.orba", run(program, cwd=folder))
        self.assertEqual((folder / "quickstart-aside-0.orba").read_bytes(), bytes(marked))
        self.assertIn(" 32 bytes ", run(program, cwd=folder))

    def test_library_finds_the_memory_file_beside_it(self):
        program = SCRATCH / "memory"
        run(C_COMPILER, SOURCE / "tests/install/memory.c", "-o", program, f"-I{PREFIX / 'include'}",
            f"-L{library_folder()}", "-lorba", f"-Wl,-rpath,{library_folder()}")
        run(program)

    def test_library_linked_in_finds_the_memory_file_beside_the_program(self):
        folder = SCRATCH / "linked-in"
        folder.mkdir()
        run(C_COMPILER, SOURCE / "tests/install/memory.c", "-o", folder / "memory", f"-I{PREFIX / 'include'}",
            library_folder() / "liborba.a", "-ldl")
        shutil.copy(library_folder() / "libmemfile.so", folder)
        run(folder / "memory")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
