#!/usr/bin/env python3
"""Each rule of include_directions.py, broken once in a made-up tree."""
import pathlib
import tempfile
import unittest

import include_directions


class IncludeDirections(unittest.TestCase):
    def faults(self, **files):
        """The faults of a tree that holds the named files: a "__" in a name stands for "/", the last "_" for "."."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder).resolve()
            for name, text in files.items():
                file = root / ".".join(name.replace("__", "/").rsplit("_", 1))
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text, encoding="utf-8")
            return list(include_directions.faults(root))

    def test_downward_includes_pass(self):
        self.assertEqual([], self.faults(
            include__orba_h="#ifndef ORBA_H\n#define ORBA_H\n#endif\n",
            src__base__error_h='#pragma once\n#include <stdint.h>\n#include "orba.h"\n',
            src__base__error_cpp='#include "base/error.h"\n',
            src__interface__entry_points_cpp='#include "base/error.h"\n#include "orba.h"\n'))

    def test_upward_include_is_found(self):
        self.assertEqual(["src/space/block_io.cpp:2: includes upwards, src/nodes/node.h"], self.faults(
            src__nodes__node_h="", src__space__block_io_cpp='\n#include "nodes/node.h"\n'))

    def test_source_without_a_floor_is_found(self):
        self.assertEqual(["src/space/cache.h: has no place among the floors of include_directions.py"],
                         self.faults(src__space__cache_h=""))

    def test_unknown_include_is_found(self):
        self.assertEqual(['src/space/block_io.cpp:1: "space/cache.h" is not a file of the project'],
                         self.faults(src__space__block_io_cpp='#include "space/cache.h"\n'))

    def test_include_of_a_host_folder_is_found(self):
        self.assertEqual(["src/space/block_io.cpp:1: includes src/platform/posix/handles.h, which has no place among "
                          "the floors"],
                         self.faults(src__space__block_io_cpp='#include "platform/posix/handles.h"\n',
                                     src__platform__posix__handles_h=""))

    def test_cycle_through_a_third_file_is_found(self):
        self.assertEqual(
            ["include each other: bench/a.h -> bench/b.h -> bench/c.h -> bench/a.h"],
            self.faults(src__files__find_h="", bench__a_h='#include "b.h"\n', bench__b_h='#include "c.h"\n',
                        bench__c_h='#include "a.h"\n'))

    def test_include_of_a_neighbour_is_found(self):
        self.assertEqual(["src/files/find.cpp:1: includes its neighbour src/files/transfer.h"],
                         self.faults(src__files__find_cpp='#include "files/transfer.h"\n', src__files__transfer_h=""))

    def test_conditional_compilation_is_found(self):
        self.assertEqual(["src/base/name.cpp:1: compiles conditionally above src/platform/"],
                         self.faults(src__base__name_cpp="# ifdef _WIN32\n#endif\n"))

    def test_conditional_compilation_of_a_host_passes(self):
        self.assertEqual([], self.faults(src__platform__posix__files_cpp="#ifdef __linux__\n#endif\n"))

    def test_cxx_header_in_the_library_is_found(self):
        self.assertEqual(["src/base/name.h:1: <string> is not among the headers the library needs"],
                         self.faults(src__base__name_h="#include <string>\n"))

    def test_cxx_header_in_a_host_is_found(self):
        self.assertEqual(["src/platform/posix/files.cpp:2: <mutex> belongs to the C++ run time"],
                         self.faults(src__platform__posix__files_cpp="#include <fcntl.h>\n#include <mutex>\n"))

    def test_inspection_that_uses_the_library_is_found(self):
        fault = "inspect/container/reader.cpp:2: inspect/ does not include src/nodes/block_map.h"
        self.assertEqual([fault], self.faults(
            src__volume__layout_h="", src__nodes__block_map_h="",
            inspect__container__reader_cpp='#include "volume/layout.h"\n#include "nodes/block_map.h"\n'))

    def test_upward_include_within_the_inspection_is_found(self):
        self.assertEqual(["inspect/check/check.cpp:1: includes upwards, inspect/view/report.h"], self.faults(
            src__files__find_h="", inspect__view__report_h="",
            inspect__check__check_cpp='#include "inspect/view/report.h"\n'))

    def test_inspection_source_without_a_room_is_found(self):
        self.assertEqual(["inspect/check.cpp: has no place among the rooms of include_directions.py"],
                         self.faults(src__files__find_h="", inspect__check_cpp=""))

    def test_host_header_in_the_inspection_is_found(self):
        self.assertEqual(["inspect/view/map.cpp:2: <filesystem> may belong to a host"], self.faults(
            src__files__find_h="", inspect__view__map_cpp="#include <string>\n#include <filesystem>\n"))

    def test_file_of_the_host_in_the_inspection_is_found(self):
        self.assertEqual(["inspect/view/map.cpp:3: std::fopen belongs to a host"], self.faults(
            src__files__find_h="",
            inspect__view__map_cpp='#include <cstdio>\n\nauto a = std::fopen("a", "r");\nauto b = std::snprintf;\n'))

    def test_page_that_uses_the_library_is_found(self):
        self.assertEqual(["explorer/bridge/bridge.cpp:2: explorer/ does not include include/orba.h"], self.faults(
            include__orba_h="", src__files__find_h="", inspect__view__map_h="",
            explorer__bridge__bridge_cpp='#include "inspect/view/map.h"\n#include "orba.h"\n'))

    def test_host_header_in_the_tool_is_found(self):
        self.assertEqual(["tools/orba/get.cpp:2: <filesystem> belongs below tools/orba/host/",
                          "tools/orba/get.cpp:3: <unistd.h> belongs below tools/orba/host/"], self.faults(
            src__files__find_h="",
            tools__orba__get_cpp="#include <string>\n#include <filesystem>\n#include <unistd.h>\n",
            tools__orba__host__posix__file_cpp="#include <unistd.h>\n"))

    def test_condition_on_a_host_in_the_tool_is_found(self):
        self.assertEqual(["tools/orba/get.cpp:3: compiles for one host above tools/orba/host/"], self.faults(
            src__files__find_h="", tools__orba__get_cpp="#ifndef ORBA_VERSION\n#endif\n#ifdef _WIN32\n#endif\n"))

    def test_header_of_one_host_above_the_seam_of_the_tool_is_found(self):
        fault = "tools/orba/get.cpp:1: includes tools/orba/host/posix/posix.h, which is one host's own"
        self.assertEqual([fault], self.faults(
            src__files__find_h="", tools__orba__get_cpp='#include "tools/orba/host/posix/posix.h"\n',
            tools__orba__host__posix__posix_h=""))

    def test_black_box_test_that_looks_inside_is_found(self):
        self.assertEqual(["tests/api/open_test.cpp:1: tests/api/ does not include src/base/error.h"], self.faults(
            src__base__error_h="", tests__api__open_test_cpp='#include "../../src/base/error.h"\n'))

    def test_empty_tree_is_found(self):
        self.assertEqual(1, len(self.faults(examples__demo_cpp="")))


if __name__ == "__main__":
    unittest.main()
