"""dump and map: containers for the eye."""
import os
import re
import unittest
import xml.etree.ElementTree

from support import ToolTest, linux_alone

SVG = "{http://www.w3.org/2000/svg}"


class PictureTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format("card.orb", "-b", "1024", "-n", "200")
        self.ok("mkdir", "card.orb:/LOGS")
        self.put_text("card.orb:/LOGS/DAY1.TXT", "one" * 1000)  # blocks 4 to 6
        self.put_text("card.orb:/X", "x" * 7000)
        self.ok("rm", "card.orb:/LOGS/DAY1.TXT")


class NarrowTest(PictureTest):
    def test_map_rows_fit_any_terminal(self):
        for columns, cells in ((80, 64), (40, 16), (20, 10), (5, 1), (500, 176)):
            lines = self.on_terminal("map", "card.orb", columns=columns, environment={"NO_COLOR": "1"}).out.splitlines()
            self.assertEqual(len(lines[1]), 9 + min(cells, 14), columns)
            self.assertEqual(len(lines), 2 + -(-14 // cells), columns)


class DumpTest(PictureTest):
    def dump(self, *arguments):
        return self.ok("dump", "card.orb", *arguments)

    def test_dump_shows_the_header_unless_told_otherwise(self):
        text = self.dump()
        self.assertEqual(text, self.dump("header"))
        self.assertRegex(text, r'(?m)^00000000  4f 52 42 41 +signature +"ORBA"$')
        self.assertRegex(text, r"(?m)^00000028  00 04 00 00 +block size +1024$")
        self.assertRegex(text, r"(?m)^00000034  00 00 00 00 +state flags +0: not marked$")

    def test_dump_table_and_bitmap(self):
        self.assertRegex(self.dump("table"), r"(?m)^00000080  01 00 00 00 +entry 0 +block 1: nodes 1 to 16$")
        # Node 3 was DAY1.TXT, which is removed.
        self.assertEqual(re.findall(r"nodes? ([0-9 to]+?) +(free|in use)$", self.dump("bitmap"), re.MULTILINE),
                         [("1 to 2", "in use"), ("3", "free"), ("4", "in use"), ("5 to 200", "free")])

    def test_dump_node_by_number_or_path(self):
        text = self.dump("node", "4")
        self.assertEqual(text, self.dump("node", "/x"))
        self.assertEqual(text, self.dump("node", "0x4"))
        self.assertTrue(text.startswith("node 4: file /X\n"), text)
        self.assertRegex(text, r"(?m) size +7000$")

    def test_dump_directory_root_unless_told_otherwise(self):
        self.assertEqual(self.dump("directory"), self.dump("directory", "/"))
        self.assertRegex(self.dump("directory"), r"(?m) entry 2 +LOGS +node 2, directory /LOGS$")
        self.assertEqual(self.dump("directory", "/LOGS"), self.dump("directory", "2"))

    def test_dump_block_and_chain(self):
        self.assertTrue(self.dump("block", "1").startswith("block 1: "))
        self.assertRegex(self.dump("chain"), r"(?m) signature +\"FBC1\"$")

    def test_dump_bytes_from_an_offset(self):
        self.assertEqual(self.dump("bytes", "0", "8"),
                         "00000000  4f 52 42 41 31 2e 30 20                           \"ORBA1.0 \"\n")
        size = len(self.read("card.orb"))
        self.assertEqual(self.dump("bytes", str(size - 4), "1000").count("\n"), 1)

    def test_dump_of_what_is_not_there_fails(self):
        size = len(self.read("card.orb"))
        for arguments, what, why in (
                (["node", "201"], "node 201", "its nodes have the numbers 1 to 200"),
                (["node", "70000"], "node 70000", "its nodes have the numbers 1 to 200"),
                (["node", "100"], "node 100", "no block holds it: it is free"),
                (["node", "/NONE"], "/NONE", "there is no such file or directory"),
                (["node", "/X/Y"], "/X/Y", "there is no such file or directory"),
                (["directory", "/LOGS/NONE"], "/LOGS/NONE", "there is no such file or directory"),
                (["block", "0"], "block 0", "its blocks have the numbers 1 to 14"),
                (["block", "100000"], "block 100000", "its blocks have the numbers 1 to 14"),
                (["bytes", "0x7fffffff"], "byte 0x7fffffff", f"it has {size} bytes")):
            self.assertEqual(self.fails(1, "dump", "card.orb", *arguments),
                             f"orba: cannot dump {what} of card.orb: {why}\n"
                             "      see what there is with: orba info card.orb\n")

    def test_dump_with_wrong_operands_is_usage(self):
        for arguments in (["node"], ["block"], ["bytes"], ["node", "x"], ["node", "-1"], ["header", "1"],
                          ["node", "1", "2"], ["bytes", "1", "2", "3"], ["block", "99999999999999999999"]):
            self.fails(16, "dump", "card.orb", *arguments)

    def test_dump_works_on_damaged_containers_and_on_no_container(self):
        self.mark_dirty()
        self.assertIn("marked as being updated", self.dump())
        self.write("text.txt", b"no container")
        self.assertIn("no container", self.ok("dump", "text.txt", "bytes", "0"))
        for part, why in (("header", "it has 12 bytes"), ("table", "its layout cannot be made out"),
                          ("bitmap", "its layout cannot be made out"), ("node 1", "its layout cannot be made out"),
                          ("directory", "there is no such file or directory"),
                          ("block 1", "it has no blocks, or its layout cannot be made out")):
            self.assertIn(f" of text.txt: {why}\n", self.fails(1, "dump", "text.txt", *part.split()))

    def test_dump_of_a_file_as_a_directory_fails(self):
        message = self.fails(1, "dump", "card.orb", "directory", "/X")
        self.assertIn("cannot dump the directory /X: it is not a directory (ORB_ERROR_NOT_A_DIRECTORY, 0x3000001E)",
                      message)
        self.assertIn("orba dump card.orb node /X", message)


class MapTest(PictureTest):
    def test_map_piped_draws_rows_of_64_cells_and_a_legend(self):
        lines = self.ok("map", "card.orb").splitlines()
        blocks = (len(self.read("card.orb")) - 1024 - 25) // 1024
        self.assertEqual(lines[0], f"{blocks} blocks of 1024 bytes")
        # Nodes, root, LOGS; X took blocks and a map while DAY1.TXT's three were in use.
        self.assertEqual(lines[1], "       1 NDD...#######M")
        self.assertEqual(lines[2], "N nodes 1  D directories 2  M block maps 1  # files 7  . free 3")
        self.assertEqual(len(lines), 3)

    def test_map_rows_limit_the_picture(self):
        self.write("big", bytes(1 << 20))
        self.ok("put", "big", "card.orb")
        lines = self.ok("map", "--rows", "2", "card.orb").splitlines()
        self.assertRegex(lines[0], r" in a cell$")
        self.assertEqual(len(lines), 4)

    def test_map_is_coloured_on_a_terminal_and_fits_it(self):
        shown = self.on_terminal("map", "card.orb")
        self.assertIn("\x1b[35mN\x1b[0m\x1b[33mDD\x1b[0m\x1b[90m...\x1b[0m\x1b[34m#######\x1b[0m\x1b[36mM\x1b[0m\n",
                      shown.out)
        for plain in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
            self.assertNotIn("\x1b", self.on_terminal("map", "card.orb", environment=plain).out)
        self.write("big", bytes(1 << 20))
        self.ok("put", "big", "card.orb")
        for columns in (80, 40):
            picture = self.on_terminal("map", "card.orb", columns=columns, environment={"NO_COLOR": "1"}).out
            rows = [line for line in picture.splitlines() if re.match(r" +\d+ \S", line)]
            self.assertGreater(len(rows), 10)
            self.assertLess(max(map(len, rows)), columns)

    def test_map_shows_damage(self):
        # X's first block is now LOGS' directory block too.
        node = 1024 + 25 + 3 * 64
        self.patch("card.orb", node + 32, b"\x03\0\0\0")
        self.assertIn("X used twice 1", self.ok("map", "card.orb"))
        self.assertIn("! leaked 1", self.ok("map", "card.orb"))

    def test_map_svg_is_a_document_with_a_cell_for_every_run(self):
        self.assertEqual(self.ok("map", "--svg", "card.svg", "card.orb"), "")
        picture = xml.etree.ElementTree.parse(self.path("card.svg")).getroot()
        self.assertEqual(picture.tag, SVG + "svg")
        self.assertEqual(picture.get("viewBox"), f"0 0 {picture.get('width')} {picture.get('height')}")
        self.assertEqual(picture.find(SVG + "title").text, "card.orb")
        titles = [title.text for title in picture.iter(SVG + "title")]
        self.assertIn("block 1: nodes", titles)
        self.assertIn("block 3: directories, /LOGS", titles)
        self.assertIn("blocks 7 to 13: files, /X", titles)
        texts = [text.text for text in picture.iter(SVG + "text")]
        self.assertEqual(texts, ["card.orb: 14 blocks of 1024 bytes", "nodes 1", "directories 2", "block maps 1",
                                 "files 7", "free 3", "leaked 0", "used twice 0", "1"])
        swatches = [rectangle.get("fill") for rectangle in picture.iter(SVG + "rect") if rectangle.get("width") == "12"]
        self.assertEqual(len(set(swatches)), 8)
        self.assertEqual(self.ok("map", "--svg", "-", "card.orb"), self.read("card.svg").decode())

    def test_map_svg_of_many_blocks_numbers_each_row_and_says_what_a_cell_is(self):
        self.write("big", bytes(200 << 10))
        self.ok("put", "big", "card.orb")
        picture = xml.etree.ElementTree.fromstring(self.ok("map", "--svg", "-", "card.orb"))
        self.assertEqual([text.text for text in picture.iter(SVG + "text") if text.get("text-anchor") == "end"],
                         ["1", "129"])
        self.write("huge", bytes(40 << 20))
        self.ok("put", "huge", "card.orb")
        picture = xml.etree.ElementTree.fromstring(self.ok("map", "--svg", "-", "card.orb"))
        texts = [text.text for text in picture.iter(SVG + "text")]
        self.assertTrue(texts[0].endswith(", 2 in a cell"), texts[0])
        self.assertIn("A cell shows what most of its blocks are", texts[1])

    def test_map_svg_of_a_container_with_a_name_beyond_xml_is_a_document(self):
        linux_alone("names that Windows does not allow")
        name = b"bad\xff\x01<&name.orb"
        os.rename(self.path("card.orb"), os.fsencode(self.folder) + b"/" + name)
        picture = xml.etree.ElementTree.fromstring(self.ok("map", "--svg", "-", os.fsdecode(name)))
        self.assertEqual(picture.find(SVG + "title").text, "bad\\xFF\\x01<&name.orb")

    def test_map_svg_overwrites_only_when_forced(self):
        self.write("card.svg", b"mine")
        self.assertIn("cannot write card.svg: File exists (EEXIST, 17)",
                      self.fails(1, "map", "--svg", "card.svg", "card.orb"))
        self.assertEqual(self.read("card.svg"), b"mine")
        self.assertIn("it is the container itself", self.fails(1, "map", "-f", "--svg", "./card.orb", "card.orb"))
        self.assert_clean()
        os.mkfifo(self.path("pipe.svg"))
        self.assertIn("cannot write pipe.svg: it is not an ordinary file but a pipe",
                      self.fails(1, "map", "-f", "--svg", "pipe.svg", "card.orb"))
        self.assertTrue(self.path("pipe.svg").is_fifo())
        self.ok("map", "-f", "--svg", "card.svg", "card.orb")
        xml.etree.ElementTree.parse(self.path("card.svg"))

    def test_map_of_what_is_no_container_fails(self):
        self.write("text.txt", b"no container")
        self.assertIn("ORB_ERROR_DAMAGED_VOLUME, 0x3000000A", self.fails(1, "map", "text.txt"))


if __name__ == "__main__":
    unittest.main()
