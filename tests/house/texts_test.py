#!/usr/bin/env python3
"""Each rule of texts.py, broken once in a made-up tree."""
import pathlib
import tempfile
import unittest

import texts

INDEX = "[a](a.md)\n"


class Texts(unittest.TestCase):
    def faults(self, files):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder).resolve()
            for name, text in {"docs/README.md": INDEX, "docs/a.md": "# A page\n", **files}.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text, encoding="utf-8")
            return list(texts.faults(root))

    def test_links_to_files_folders_and_headings_pass(self):
        self.assertEqual([], self.faults({"README.md": "# Top\n[`a`](docs/a.md#a-page) [docs](docs) [top](#top)\n"
                                                       "`[code](nowhere.md)`\n```\n[code](nowhere.md)\n```\n"}))

    def test_link_to_nothing_is_found(self):
        self.assertEqual(["README.md:2: docs/b.md is not there"], self.faults({"README.md": "\n[b](docs/b.md)\n"}))

    def test_link_out_of_the_tree_is_found(self):
        self.assertEqual(["README.md:1: ../x is not there"], self.faults({"README.md": "[x](../x)\n"}))

    def test_link_to_a_heading_that_went_away_is_found(self):
        self.assertEqual(["README.md:1: docs/a.md#b has no such heading"],
                         self.faults({"README.md": "[b](docs/a.md#b)\n"}))

    def test_page_that_the_index_leaves_out_is_found(self):
        self.assertEqual(["docs/b.md: not in docs/README.md"], self.faults({"docs/b.md": "# B\n"}))

    def test_long_line_of_code_is_found_and_of_a_page_is_not(self):
        long = "/" * 2 + " " + "x" * 118
        self.assertEqual(["src/a.h:2: 121 characters"],
                         self.faults({"src/a.h": "\n" + long + "\n", "README.md": "# " + long + "\n",
                                      "tests/corpus/expected/a.txt": long + "\n"}))

    def test_path_of_a_machine_is_found(self):
        self.assertEqual(["src/a.h:1: a path of somebody's machine: /home/"],
                         self.faults({"src/a.h": "// see /home/me/notes\n"}))

    def test_address_is_found_and_the_names_of_formats_are_not(self):
        self.assertEqual(["src/a.py:2: an address of a host: https://"],
                         self.faults({"src/a.py": "NAMESPACE = 'http://www.w3.org/2000/svg'\n# https://example.org\n"}))

    def test_number_of_a_ticket_is_found(self):
        self.assertEqual(["src/a.h:1: a number that nothing here explains: g #12",
                          "src/a.h:2: a number that nothing here explains: Section 4.2"],
                         self.faults({"src/a.h": "// fixes bug #12\n// as Section 4.2 says\n"}))

    def test_tree_without_pages_is_no_success(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(1, len(list(texts.faults(pathlib.Path(folder).resolve()))))


if __name__ == "__main__":
    unittest.main()
