"""What --json prints: every object as its schema says, whatever the container."""
import json
import os
import pathlib
import subprocess
import unittest

import jsonschema

from support import BLOCK_1, LIMIT, NODE_SIZE, PROGRAM, ToolTest, linux_alone

TOP = pathlib.Path(__file__).parents[2]
TEXTS = {path.name.removesuffix(".schema.json"): path.read_text(encoding="utf-8")
         for path in (TOP / "docs/json").glob("*.schema.json")}
FIRST_DIRECT = 32  # in a node: the number of its first block


def validator(command):
    """With what the schema has in common with others in it."""
    schema = json.loads(TEXTS[command].replace("common.schema.json#", "#"))
    return jsonschema.Draft7Validator({**schema, "definitions": json.loads(TEXTS["common"])["definitions"]})


class JsonTest(ToolTest):
    """A container with LOGS (node 2) that holds DAY1.TXT (node 3), and X (node 4) beside it; the same as a tree."""

    def setUp(self):
        super().setUp()
        self.write("tree/LOGS/DAY1.TXT", b"one" * 2000)
        self.write("tree/X", b"x")
        self.format()
        self.ok("put", "tree/.", "card.orb")
        for node in (2, 3, 4):
            self.set_time(node, (2026, 11, 21, 3, 15, node))

    def cut_x(self):
        """X has a block beyond the container's end."""
        self.patch("card.orb", BLOCK_1 + 3 * NODE_SIZE + FIRST_DIRECT, b"\xff\xff\0\0")

    def objects(self, status, command, *arguments):
        """The objects that a command prints, each as its schema says."""
        result = self.orba(command, "--json", *arguments)
        self.assertEqual(result.status, status, result)
        self.assertTrue(result.out == "" or result.out.endswith("\n"), result)
        found = [json.loads(line) for line in result.raw.decode("utf-8").splitlines()]
        for each in found:
            problems = [f"{list(error.path)}: {error.message}" for error in validator(command).iter_errors(each)]
            self.assertEqual(problems, [], each)
        return found

    def object(self, status, command, *arguments):
        found = self.objects(status, command, *arguments)
        self.assertEqual(len(found), 1, found)
        return found[0]

    # ---- the schemas themselves

    def test_schemas_are_valid_and_each_stands_in_the_page(self):
        page = (TOP / "docs/json.md").read_text(encoding="utf-8")
        self.assertEqual(len(TEXTS), 12)
        for name, text in TEXTS.items():
            schema = json.loads(text)
            jsonschema.Draft7Validator.check_schema(schema)
            self.assertEqual(schema["$id"], f"{name}.schema.json")
            self.assertIn(f"(json/{name}.schema.json)", page)

    def test_schemas_refuse_what_is_missing_or_unknown(self):
        sound = self.object(0, "info", "card.orb")
        without = {name: value for name, value in sound.items() if name != "blockSize"}
        for each in (without, {**sound, "more": 1}, {**sound, "files": "2"}, {**sound, "code": "ORB_ERROR_READ"}):
            self.assertFalse(validator("info").is_valid(each), each)
        self.assertTrue(validator("info").is_valid({"container": "card.orb", "error": "why"}))

    # ---- looking

    def test_info_has_the_numbers_of_the_text(self):
        info = self.object(0, "info", "card.orb")
        self.assertEqual({name: info[name] for name in ("container", "size", "blockSize", "nodes", "freeNodes", "files",
                                                        "fileBytes", "directories", "verdict", "marked")},
                         {"container": "card.orb", "size": os.path.getsize(self.path("card.orb")), "blockSize": 4096,
                          "nodes": 8192, "freeNodes": 8188, "files": 2, "fileBytes": 6001, "directories": 2,
                          "verdict": "clean", "marked": False})
        self.assertEqual((info["fileBlocks"], info["directoryBlocks"], info["nodeBlocks"], info["mapBlocks"]),
                         (3, 2, 1, 0))

    def test_df_counts_bytes(self):
        room = self.object(0, "df", "card.orb")
        self.assertEqual((room["used"] + room["free"], room["nodes"], room["freeNodes"]), (room["size"], 8192, 8188))
        self.assertGreater(room["growth"], 1 << 20)

    def test_ls_tells_what_a_directory_holds(self):
        listed = self.object(0, "ls", "card.orb:/logs")
        self.assertEqual(listed, {
            "container": "card.orb", "path": "/LOGS", "problems": [],
            "entries": [{"path": "/LOGS/DAY1.TXT", "kind": "file", "size": 6000, "modified": "2026-11-21T03:15:03Z",
                         "readOnly": False, "system": False, "user": False}]})

    def test_ls_lists_in_the_order_of_the_text_and_with_its_options(self):
        def paths(*options):
            return [entry["path"] for entry in self.object(0, "ls", *options)["entries"]]
        self.assertEqual(paths("card.orb"), ["/LOGS", "/X"])
        self.assertEqual(paths("-R", "card.orb"), ["/LOGS", "/X", "/LOGS/DAY1.TXT"])
        self.assertEqual(paths("-tr", "card.orb"), ["/LOGS", "/X"])
        self.assertEqual(paths("-t", "card.orb"), ["/X", "/LOGS"])
        self.assertEqual(paths("-d", "card.orb:/*"), ["/LOGS", "/X"])
        self.assertEqual(paths("card.orb:/*"), ["/X", "/LOGS/DAY1.TXT"])

    def test_attributes_and_times_that_are_no_dates_are_told(self):
        self.ok("attrib", "+r", "+u", "card.orb:/X")
        self.set_time(4, (2026, 13, 1, 0, 0, 0))
        found = self.object(0, "ls", "-d", "card.orb:/X")["entries"][0]
        self.assertEqual((found["readOnly"], found["user"], found["system"], found["modified"]),
                         (True, True, False, None))

    def test_find_tells_places_that_fit(self):
        found = self.object(0, "find", "card.orb", "--type", "f")
        self.assertEqual([entry["path"] for entry in found["entries"]], ["/LOGS/DAY1.TXT", "/X"])
        self.assertEqual(self.object(0, "find", "card.orb", "--name", "none")["entries"], [])

    def test_du_has_sizes_and_space_whatever_the_options(self):
        entries = self.object(0, "du", "-a", "card.orb")["entries"]
        self.assertEqual([(entry["path"], entry["kind"], entry["size"], entry["space"]) for entry in entries],
                         [("/LOGS/DAY1.TXT", "file", 6000, 8192), ("/LOGS", "directory", 6000, 12288),
                          ("/X", "file", 1, 4096), ("/", "directory", 6001, 20480)])
        for options in ([], ["-b"], ["-h"], ["-s"]):
            self.assertEqual(self.object(0, "du", *options, "card.orb")["entries"][-1], entries[-1])

    def test_several_operands_give_an_object_each_and_the_others_go_on(self):
        self.write("text.txt", b"no container" * 100)
        for command, status in (("info", 1), ("df", 1), ("ls", 1), ("find", 1), ("du", 1), ("check", 8)):
            found = self.objects(status, command, "none.orb", "text.txt", "card.orb")
            self.assertEqual([each["container"] for each in found], ["none.orb", "text.txt", "card.orb"], command)
            self.assertEqual(["error" in each for each in found], [True, True, False], command)
            self.assertIn("none.orb: ", found[0]["error"])
            self.assertNotIn("\n", found[1]["error"])
            self.assertEqual(found[1]["code"], "ORB_ERROR_DAMAGED_VOLUME")

    def test_a_container_that_is_open_elsewhere_is_an_error_with_its_code(self):
        with self.held("card.orb"):
            for command, status in (("info", 1), ("ls", 1), ("check", 8), ("repair", 8)):
                self.assertEqual(self.object(status, command, "card.orb")["code"], "ORB_ERROR_CONTAINER_IN_USE")

    def test_what_is_missing_inside_is_an_error_with_its_code(self):
        for command in ("ls", "find", "du"):
            found = self.object(1, command, "card.orb:/NONE")
            self.assertEqual((found["path"], found["code"]), ("/NONE", "ORB_ERROR_FILE_NOT_FOUND"))

    def test_what_cannot_be_read_is_a_problem_beside_the_rest(self):
        self.patch("card.orb", self.read("card.orb").index(b"\x03\0DAY1.TXT"), b"\x63")  # refers to a free node
        found = self.object(1, "ls", "-R", "card.orb")
        self.assertEqual([entry["path"] for entry in found["entries"]], ["/LOGS", "/X"])
        self.assertRegex(found["problems"][0], "^cannot read card.orb:/LOGS/DAY1.TXT: ")
        self.assertNotIn("error", found)

    # ---- names

    def test_names_inside_that_are_not_ascii_are_escaped_as_in_text(self):
        self.patch("card.orb", self.read("card.orb").index(b"\x04\0X\0") + 2, b"\x07\\\xff\"\0")
        found = self.object(1, "ls", "card.orb")
        self.assertEqual(found["entries"][0]["path"], '/\\x07\\x5c\\xff"')
        self.assertIn('\\x07\\x5c\\xff"', self.orba("ls", "card.orb").out)
        self.object(4, "check", "card.orb")

    def test_names_of_the_host_that_are_not_utf8_can_be_told_apart(self):
        linux_alone("names that Windows does not allow")
        names = (b"bad\xff.orb", "bad\ufffdFF.orb".encode(), b"bad\xef\xbf.orb", "\u00fc\n\".orb".encode())
        for name in names:
            os.symlink("card.orb", os.fsencode(self.folder) + b"/" + name)
        found = self.objects(0, "info", *map(os.fsdecode, names))
        self.assertEqual([each["container"] for each in found],
                         ["bad\ufffdFF.orb", "bad\ufffdEF\ufffdBF\ufffdBDFF.orb", "bad\ufffdEF\ufffdBF.orb",
                          "\u00fc\n\".orb"])

    # ---- damage

    def test_check_of_damage_has_the_facts_of_each_finding(self):
        self.cut_x()
        report = self.object(4, "check", "card.orb")
        finding = next(each for each in report["findings"] if each["kind"] == "map-outside")
        self.assertEqual((finding["severity"], finding["rules"], finding["path"], finding["node"], finding["block"]),
                         ("damage", ["C3", "M4"], "/X", 4, 65535))

    def test_repair_has_its_plan_its_promise_and_what_became_of_it(self):
        clean = self.object(0, "repair", "card.orb")
        self.assertEqual((clean["result"], clean["actions"], clean["promise"]["kept"]), ("clean", [], 2))
        self.mark_dirty()
        before = self.read("card.orb")
        planned = self.object(4, "repair", "--dry-run", "card.orb")
        self.assertEqual(self.read("card.orb"), before)
        self.assertEqual((planned["result"], planned["verdict"], planned["marked"], planned["complete"]),
                         ("planned", "clean", True, True))
        self.assertEqual((planned["promise"]["readable"], planned["promise"]["kept"], planned["promise"]["lost"]),
                         (2, 2, 0))
        repaired = self.object(1, "repair", "card.orb")
        self.assertEqual((repaired["result"], repaired["after"]), ("repaired", "clean"))
        self.assertEqual(repaired["actions"], planned["actions"])
        self.assertEqual(repaired["actions"][-1], {"text": "clears the mark of an update in progress", "writes": 1})

    def test_repair_tells_its_plan_before_it_writes(self):
        linux_alone("a device that is full")
        self.mark_dirty()
        before = self.read("card.orb")
        with open("/dev/full", "wb") as full:
            done = subprocess.run([*PROGRAM, "repair", "--json", "card.orb"], stdout=full, stderr=subprocess.PIPE,
                                  cwd=self.folder, env=self.environment(), timeout=LIMIT, check=False)
        self.assertEqual((done.returncode, self.read("card.orb")), (8, before))

    def test_repair_that_cannot_work_is_an_error(self):
        self.write("text.txt", b"no container")
        for name in ("text.txt", "none.orb"):
            self.assertEqual(list(self.object(8, "repair", name))[:2], ["container", "error"])

    def test_recover_tells_what_it_copied(self):
        whole = self.object(0, "recover", "card.orb", "out")
        self.assertEqual((whole["directory"], whole["files"], whole["fileBytes"], whole["directories"],
                          whole["problems"], whole["verdict"]), ("out", 2, 6001, 1, [], "clean"))
        again = self.object(0, "recover", "--no-clobber", "card.orb", "out")
        self.assertEqual((again["files"], again["skipped"]), (0, 2))
        refused = self.object(1, "recover", "card.orb", "out")
        self.assertEqual(len(refused["problems"]), 2)
        self.assertRegex(refused["problems"][0], "^/.*: cannot write out/.*")
        self.cut_x()
        self.assertEqual(self.object(4, "recover", "card.orb", "rest")["verdict"], "damaged")
        self.assertIn("error", self.object(1, "recover", "none.orb", "out"))

    def test_export_tells_what_the_archive_holds(self):
        found = self.object(0, "export", "card.orb:/LOGS", "logs.tar")
        self.assertEqual(found, {"container": "card.orb", "path": "/LOGS", "archive": "logs.tar", "files": 1,
                                 "fileBytes": 6000, "directories": 0, "problems": []})
        self.assertIn("EEXIST", self.object(1, "export", "card.orb", "logs.tar")["error"])
        self.assertIn("--json and the archive cannot both be printed", self.fails(16, "export", "--json", "card.orb"))
        self.cut_x()
        damaged = self.object(1, "export", "card.orb", "card.tar")
        self.assertEqual((damaged["files"], len(damaged["problems"])), (1, 1))

    def test_verify_lists_what_differs(self):
        self.assertEqual(self.object(0, "verify", "card.orb", "tree"),
                         {"container": "card.orb", "path": "/", "reference": "tree", "same": 2, "missing": [],
                          "changed": [], "extra": [], "problems": []})
        self.write("tree/LOGS/DAY1.TXT", b"two" * 2000)
        self.write("tree/NEW", b"")
        self.path("tree/X").unlink()
        found = self.object(1, "verify", "card.orb", "tree")
        self.assertEqual((found["missing"], found["changed"], found["extra"]),
                         (["NEW"], [{"path": "LOGS/DAY1.TXT", "difference": "other contents"}], ["X"]))
        self.assertIn("error", self.object(2, "verify", "card.orb", "none"))
        self.write("tree/X", b"x")
        self.cut_x()
        self.assertNotEqual(self.object(2, "verify", "card.orb", "tree")["problems"], [])

    def test_diff_tells_every_difference(self):
        same = self.object(0, "diff", "card.orb", "tree")
        self.assertEqual((same["before"], same["after"], same["differences"]), ("card.orb", "tree", []))
        self.assertEqual(same["same"], {"files": 2, "bytes": 6001, "directories": 2})
        self.write("tree/LOGS/DAY1.TXT", b"one" * 1999 + b"two")
        self.write("tree/NEW/A.TXT", b"new")
        self.write("tree/X", b"xx")
        found = self.object(1, "diff", "card.orb", "tree")
        self.assertEqual([(each["change"], each["path"], each["kind"]) for each in found["differences"]],
                         [("changed", "LOGS/DAY1.TXT", "file"), ("added", "NEW", "directory"),
                          ("added", "NEW/A.TXT", "file"), ("changed", "X", "file")])
        self.assertEqual(found["differences"][0]["firstByte"], 5997)
        self.assertEqual([found["differences"][3][side]["size"] for side in ("before", "after")], [1, 2])
        self.assertEqual((found["added"], found["changed"]["files"]), ({"files": 1, "bytes": 3, "directories": 1}, 2))
        self.assertNotIn("differences", self.object(1, "diff", "--stat", "card.orb", "tree"))
        self.assertIn("error", self.object(2, "diff", "card.orb", "none"))
        self.cut_x()
        self.assertNotEqual(self.object(2, "diff", "card.orb", "card.orb")["problems"], [])

    def test_quiet_prints_no_object(self):
        self.assertEqual(self.ok("check", "-q", "--json", "card.orb"), "")
        self.assertEqual(self.ok("repair", "-q", "--json", "card.orb"), "")
        self.assertEqual(self.ok("recover", "-q", "--json", "card.orb", "out"), "")
        self.assertEqual(self.ok("verify", "-q", "--json", "card.orb", "tree"), "")
        self.assertEqual(self.ok("diff", "-q", "--json", "card.orb", "tree"), "")


if __name__ == "__main__":
    unittest.main()
