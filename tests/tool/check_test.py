"""check, repair, undo and recover: containers that are damaged, marked or no containers."""
import json
import os
import pathlib
import re
import resource
import subprocess
import unittest

from support import BLOCK_1, LIMIT, NODE_SIZE, PROGRAM, WINDOWS, ToolTest, linux_alone, obey_modes

TOP = pathlib.Path(__file__).parents[2]
FIRST_DIRECT = 32  # in a node: the number of its first block


class DamageTest(ToolTest):
    """A container with LOGS (node 2) that holds DAY1.TXT (node 3), and X (node 4) beside it."""

    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "card.orb:/LOGS")
        self.put_text("card.orb:/LOGS/DAY1.TXT", "one" * 2000)
        self.put_text("card.orb:/X", "x")

    def lose_logs(self):
        """LOGS has lost its name: its entry in the root is all zeros."""
        self.patch("card.orb", self.read("card.orb").index(b"\x02\x00LOGS\0"), bytes(32))

    def damage_number_of_logs(self):
        """The entry of LOGS in the root refers to a free node."""
        self.patch("card.orb", self.read("card.orb").index(b"\x02\x00LOGS\0"), b"\x63\x00")

    def cut_first_block(self, node):
        """A block number beyond the container's end."""
        self.patch("card.orb", BLOCK_1 + (node - 1) * NODE_SIZE + FIRST_DIRECT, b"\xff\xff\0\0")

    def check(self, *options):
        return self.orba("check", *options, "card.orb")


class CheckTest(DamageTest):
    def test_check_of_a_clean_container_exits_0(self):
        result = self.check()
        self.assertEqual((result.status, result.err), (0, ""))
        self.assertEqual(result.out.splitlines()[-1],
                         "clean: damage 0, interrupted 0, leak 0, note 0")

    def test_check_of_a_marked_container_exits_4_and_points_to_repair(self):
        self.mark_dirty()
        result = self.check()
        self.assertEqual((result.status, result.err), (4, ""))
        self.assertEqual(result.out.splitlines()[-3:],
                         ["clean, marked as being updated: damage 0, interrupted 0, leak 0, note 0",
                          "repair would keep all 2 files that can be read",
                          "repair it with: orba repair card.orb"])

    def test_check_of_damage_exits_4_and_names_kind_and_place(self):
        self.cut_first_block(4)
        result = self.check()
        self.assertEqual((result.status, result.err), (4, ""))
        self.assertRegex(result.out, r"(?m)^damage +map-outside at /X, node 4, block 65535, byte 2272: ")
        self.assertIn("repair it with: orba repair card.orb\n", result.out)

    def test_check_tells_what_a_repair_would_keep_and_bring_back(self):
        self.assertNotIn("repair would", self.check().out)
        self.mark_dirty()
        self.assertIn("\nrepair would keep all 2 files that can be read\nrepair it with: ", self.check().out)
        self.patch("card.orb", 0, bytes(1024))  # header and table
        self.assertIn("\nrepair would bring back 2 files, 0 without a name\nrepair it with: ",
                      self.check().out)
        self.orba("repair", "card.orb")
        self.assertEqual(self.ok("cat", "card.orb:/LOGS/DAY1.TXT"), "one" * 2000)

    def test_check_changes_nothing(self):
        self.cut_first_block(4)
        self.mark_dirty()
        before = self.read("card.orb")
        self.check()
        self.check("--json")
        self.orba("repair", "--dry-run", "card.orb")
        self.orba("info", "card.orb")
        self.assertEqual(self.read("card.orb"), before)

    def test_check_json_is_valid_and_tells_the_same(self):
        clean = json.loads(self.ok("check", "--json", "card.orb"))
        self.assertEqual((clean["verdict"], clean["marked"], clean["readable"], clean["findings"]),
                         ("clean", False, True, []))
        self.assertEqual((clean["files"], clean["directories"], clean["fileBytes"]), (2, 2, 6001))
        self.cut_first_block(4)
        self.mark_dirty()
        result = self.check("--json")
        self.assertEqual(result.status, 4)
        damaged = json.loads(result.out)
        self.assertEqual((damaged["verdict"], damaged["marked"]), ("damaged", True))
        finding = next(finding for finding in damaged["findings"] if finding["kind"] == "map-outside")
        self.assertEqual((finding["severity"], finding["path"], finding["node"], finding["block"], finding["offset"]),
                         ("damage", "/X", 4, 65535, 2272))

    def test_check_json_of_damaged_names_is_valid(self):
        self.patch("card.orb", self.read("card.orb").index(b"DAY1.TXT\0"), b"\x1b\"\\\xff\x00")
        result = self.check("--json")
        self.assertEqual(result.status, 4)
        self.assertIn("name-illegal", [finding["kind"] for finding in json.loads(result.out)["findings"]])
        self.assertNotIn("\x1b", self.check().out)

    def test_check_of_several_exits_with_the_worst_status(self):
        self.format("new.orb")
        self.mark_dirty()
        self.assertEqual(self.orba("check", "card.orb", "new.orb").status, 4)
        result = self.orba("check", "new.orb", "card.orb", "none.orb")
        self.assertEqual(result.status, 8)
        self.assertEqual(result.out, """\
new.orb: clean: damage 0, interrupted 0, leak 0, note 0
card.orb: clean, marked as being updated: damage 0, interrupted 0, leak 0, note 0
3 containers: 1 clean, 1 marked, 1 not checked
""")
        self.assertIn("orba: cannot read none.orb: No such file or directory (ENOENT, 2)\n", result.err)
        result = self.orba("check", "--json", "new.orb", "card.orb")
        self.assertEqual([json.loads(line)["marked"] for line in result.out.splitlines()], [False, True])

    def test_check_json_names_the_container_and_says_why_one_was_not_checked(self):
        linux_alone("names that Windows does not allow")
        name = 'a "b"\\ü.orb'
        self.ok("format", name)
        self.write("text.txt", b"no container")
        result = self.orba("check", "--json", name, "none.orb", "text.txt", ".")
        self.assertEqual(result.status, 8)
        objects = [json.loads(line) for line in result.out.splitlines()]
        self.assertEqual([(next(iter(found)), found["container"]) for found in objects],
                         [("container", each) for each in (name, "none.orb", "text.txt", ".")])
        self.assertNotIn("error", objects[0])
        self.assertEqual(objects[1], {"container": "none.orb",
                                      "error": "cannot read none.orb: No such file or directory (ENOENT, 2)"})
        self.assertEqual((objects[2]["readable"], objects[2]["error"]),
                         (False, "cannot check text.txt: it is not a container, or all but its first bytes are lost "
                                 "(ORB_ERROR_DAMAGED_VOLUME, 0x3000000A)"))

    def test_check_json_of_a_container_whose_name_is_no_text_is_valid(self):
        linux_alone("names that Windows does not allow")
        name = b"bad\xff\nname.orb"
        os.rename(self.path("card.orb"), os.fsencode(self.folder) + b"/" + name)
        result = self.orba("check", "--json", os.fsdecode(name))
        self.assertEqual((result.status, json.loads(result.raw)["container"]), (0, "bad\ufffdFF\nname.orb"))

    def test_check_json_quiet_prints_nothing(self):
        self.mark_dirty()
        result = self.orba("check", "-q", "--json", "card.orb", "none.orb")
        self.assertEqual((result.status, result.out), (8, ""))

    def test_documentation_tells_every_kind_of_finding(self):
        findings = (TOP / "inspect/check/finding.cpp").read_text()
        kinds = re.findall(r'k(?:Note|Leak|Interrupted|Damage), "([a-z-]+)"', findings)
        self.assertGreater(len(kinds), 50)
        text = (TOP / "docs/orba-tool.md").read_text()
        for word in kinds:
            self.assertIn(f"`{word}`", text)

    def test_check_quiet_prints_nothing(self):
        self.assertEqual(self.ok("check", "-q", "card.orb"), "")
        self.mark_dirty()
        result = self.check("--quiet")
        self.assertEqual((result.status, result.out, result.err), (4, "", ""))

    def test_check_of_what_is_no_container_exits_8(self):
        self.write("text.txt", b"no container")
        self.write("empty")
        self.write("long.txt", b"no container either\n" * 1000)
        for name, why in (("text.txt", "all but its first bytes are lost"),
                          ("empty", "all but its first bytes are lost"), ("long.txt", "its beginning is lost")):
            result = self.orba("check", name)
            self.assertEqual(result.status, 8)
            self.assertIn(f"orba: cannot check {name}: it is not a container, or {why} "
                          "(ORB_ERROR_DAMAGED_VOLUME, 0x3000000A)\n", result.err)
            self.assertNotIn("orba recover", result.err)  # which could fetch nothing
            self.assertFalse(json.loads(self.orba("check", "--json", name).out)["readable"])
        self.assertIn("cannot read none: No such file or directory (ENOENT, 2)", self.fails(8, "check", "none"))
        self.assertIn("cannot read .: Is a directory (EISDIR, 21)", self.fails(8, "check", "."))
        self.assertIn("cannot read /dev/zero: it is not an ordinary file", self.fails(8, "check", "/dev/zero"))

    def test_check_of_a_container_that_is_open_elsewhere_exits_8(self):
        with self.held("card.orb"):
            for command in ("check", "repair"):
                self.assertIn("ORB_ERROR_CONTAINER_IN_USE, 0x30000008", self.fails(8, command, "card.orb"))


class RepairTest(DamageTest):
    def test_repair_of_a_clean_container_exits_0_and_changes_nothing(self):
        before = self.read("card.orb")
        self.assertEqual(self.ok("repair", "card.orb"), "clean: nothing to repair\n")
        self.assertEqual(self.read("card.orb"), before)

    def test_repair_of_a_marked_container_makes_it_mountable(self):
        self.mark_dirty()
        result = self.orba("repair", "card.orb")
        self.assertEqual((result.status, result.err), (1, ""))
        self.assertRegex(result.out, r"^1\. .*mark.*\nkeeps 2 of 2 readable files\nrepaired\n$")
        self.assert_clean()
        self.assertEqual(self.listing(), ["LOGS", "X"])

    def test_repair_dry_run_shows_the_plan_exits_4_and_changes_nothing(self):
        self.cut_first_block(4)
        before = self.read("card.orb")
        planned = self.orba("repair", "--dry-run", "card.orb")
        self.assertEqual((planned.status, planned.err), (4, ""))
        self.assertEqual(self.read("card.orb"), before)
        done = self.orba("repair", "card.orb")
        self.assertEqual((done.status, done.out), (1, planned.out + "repaired\n"))

    def test_repair_keeps_data_that_lost_its_name(self):
        self.lose_logs()
        result = self.orba("repair", "card.orb")
        self.assertEqual((result.status, result.err), (1, ""), result)
        self.assert_clean()
        found = self.ok("ls", "-R", "card.orb")
        self.assertIn("card.orb:/LOST.FND", found)
        self.assertEqual(self.ok("cat", "card.orb:/LOST.FND/NODE*/DAY1.TXT"), "one" * 2000)
        self.assertEqual(self.ok("cat", "card.orb:/X"), "x")

    def test_repair_gives_the_only_node_without_a_name_to_the_entry_that_leads_nowhere(self):
        sound = self.read("card.orb")
        self.damage_number_of_logs()
        result = self.orba("repair", "card.orb")
        self.assertEqual((result.status, result.err), (1, ""), result)
        self.assertIn("\nkeeps 1 of 1 readable file; 1 more comes back\n", result.out)
        self.assertEqual(self.read("card.orb"), sound)

    def test_repair_that_stops_half_way_is_ended_by_another_or_undone(self):
        self.lose_logs()
        self.mark_dirty()
        damaged = self.read("card.orb")

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (len(damaged), len(damaged)))

        result = self.orba("repair", "--undo", "card.undo", "card.orb", preexec_fn=limit)
        self.assertEqual(result.status, 8)
        self.assertIn("orba: cannot finish the repair of card.orb: File too large (EFBIG, 27)\n", result.err)
        self.assertIn("take it back with: orba undo card.orb card.undo\n", result.err)
        half = self.read("card.orb")
        self.assertNotEqual(half, damaged)
        self.assertEqual(self.check().status, 4)
        self.ok("undo", "card.orb", "card.undo")
        self.assertEqual(self.read("card.orb"), damaged)
        self.write("card.orb", half)
        self.assertEqual(self.orba("repair", "card.orb").status, 1)
        self.assert_clean()
        self.assertEqual(self.ok("cat", "card.orb:/LOST.FND/NODE*/DAY1.TXT"), "one" * 2000)

    def test_repair_twice_finds_nothing_the_second_time(self):
        self.lose_logs()
        self.cut_first_block(4)
        self.assertEqual(self.orba("repair", "card.orb").status, 1)
        self.assertEqual(self.orba("repair", "card.orb").status, 0)

    def test_repair_quiet_prints_nothing(self):
        self.mark_dirty()
        result = self.orba("repair", "-q", "card.orb")
        self.assertEqual((result.status, result.out, result.err), (1, "", ""))

    def test_repair_of_what_is_no_container_exits_8_and_changes_nothing(self):
        self.write("text.txt", b"no container")
        message = self.fails(8, "repair", "text.txt")
        self.assertIn("cannot repair text.txt: ", message)
        self.assertEqual(self.read("text.txt"), b"no container")
        self.fails(8, "repair", "none")


class LongPlanTest(DamageTest):
    def setUp(self):
        super().setUp()
        for number in range(50):
            self.write(f"many/F{number:02}", b"x")
        self.ok("put", "many", "card.orb")
        for node in range(6, 56):
            self.cut_first_block(node)

    def test_repair_shows_forty_steps_of_a_long_plan_and_what_it_comes_to_and_all_when_verbose(self):
        planned = self.orba("repair", "--dry-run", "--verbose", "card.orb").out
        *steps, promise = planned.splitlines()
        self.assertGreaterEqual(len(steps), 50)
        self.assertRegex(promise, "^keeps [0-9]+ of [0-9]+ readable files")
        short = [*steps[:40], f"and {len(steps) - 40} more; --verbose shows all", promise]
        self.assertEqual(self.orba("repair", "--dry-run", "card.orb").out.splitlines(), short)
        saved = self.read("card.orb")
        self.assertEqual(self.orba("repair", "card.orb").out.splitlines(), [*short, "repaired"])
        self.write("card.orb", saved)
        self.assertEqual(self.orba("repair", "-v", "card.orb").out, planned + "repaired\n")


class LostOutputTest(DamageTest):
    """What is to be said cannot be written: to a full disk, a closed pipe, a closed stream. Wine starts no program
    with a closed stream."""

    KINDS = ("full", "pipe") if WINDOWS else ("full", "pipe", "closed")

    def run_without_output(self, kind, *arguments):
        with open("/dev/full", "wb") as full, subprocess.Popen(
                [*PROGRAM, *arguments], cwd=self.folder, env=self.environment(), stderr=subprocess.PIPE,
                stdout=full if kind == "full" else self.closed_pipe(),
                preexec_fn=(lambda: os.close(1)) if kind == "closed" else None) as process:
            _, message = process.communicate(timeout=LIMIT)
        if kind == "full":
            self.assertIn(b"orba: cannot write to standard output: No space left on device (ENOSPC, 28)\n", message)
        return process.returncode

    def closed_pipe(self):
        reader, writer = os.pipe()
        os.close(reader)
        self.addCleanup(os.close, writer)
        return writer

    def test_check_whose_report_cannot_be_written_exits_8(self):
        self.format("other.orb")
        for damaged in (False, True):
            for kind in self.KINDS:
                for arguments in (["card.orb"], ["--json", "card.orb"], ["card.orb", "other.orb"]):
                    self.assertEqual(self.run_without_output(kind, "check", *arguments), 8, (damaged, kind, arguments))
                self.assertEqual(self.orba("check", "-q", "card.orb").status, 4 if damaged else 0)
            self.cut_first_block(4)

    def test_repair_that_cannot_say_what_it_is_to_do_does_nothing_and_exits_8(self):
        for arguments in (["card.orb"], ["-n", "card.orb"]):
            for kind in self.KINDS:
                self.assertEqual(self.run_without_output(kind, "repair", *arguments), 8, (kind, arguments))
        self.cut_first_block(4)
        self.mark_dirty()
        before = self.read("card.orb")
        for arguments in (["card.orb"], ["-n", "card.orb"], ["--undo", "card.undo", "card.orb"]):
            for kind in self.KINDS:
                self.assertEqual(self.run_without_output(kind, "repair", *arguments), 8, (kind, arguments))
        self.assertEqual(self.read("card.orb"), before)
        self.assertEqual(self.host_names(), ["card.orb"])

    def test_repair_whose_reader_goes_away_after_the_plan_has_repaired(self):
        self.mark_dirty()
        reader, writer = os.pipe()
        with subprocess.Popen([*PROGRAM, "repair", "card.orb"], cwd=self.folder, stdout=writer, stderr=subprocess.PIPE,
                              env=self.environment()) as process:
            os.close(writer)
            os.read(reader, 1)  # the plan is there
            os.close(reader)
            self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.returncode, 1)
        self.assert_clean()

    def test_recover_whose_list_cannot_be_written_exits_as_if_it_could(self):
        for kind in self.KINDS:
            self.assertEqual(self.run_without_output(kind, "recover", "card.orb", "out-" + kind), 0)
            self.assertEqual(self.contents("out-" + kind),
                             {"LOGS": None, "LOGS/DAY1.TXT": b"one" * 2000, "X": b"x"})


class UndoTest(DamageTest):
    def setUp(self):
        super().setUp()
        self.lose_logs()
        self.mark_dirty()
        self.damaged = self.read("card.orb")
        self.assertEqual(self.orba("repair", "--undo", "card.undo", "card.orb").status, 1)
        self.assert_clean()

    def test_undo_puts_every_byte_back(self):
        self.assertEqual(self.ok("undo", "card.orb", "card.undo"), "")
        self.assertEqual(self.read("card.orb"), self.damaged)

    def test_undo_can_be_repaired_again(self):
        self.ok("undo", "card.orb", "card.undo")
        self.assertEqual(self.orba("repair", "card.orb").status, 1)
        self.assert_clean()

    def test_repair_does_not_overwrite_an_undo_file(self):
        self.mark_dirty()
        before = self.read("card.orb")
        result = self.orba("repair", "--undo", "card.undo", "card.orb")
        self.assertEqual(result.status, 8)
        self.assertIn("cannot write the undo file card.undo: File exists (EEXIST, 17)", result.err)
        self.assertEqual(self.read("card.orb"), before)

    def test_undo_file_of_another_container_is_refused(self):
        self.format("other.orb")
        self.put_text("other.orb:/SOMETHING", "else" * 5000)
        before = self.read("other.orb")
        message = self.fails(1, "undo", "other.orb", "card.undo")
        self.assertIn("card.undo is of another container", message)
        self.assertIn("--force", message)
        self.assertEqual(self.read("other.orb"), before)

    def test_undo_file_of_a_container_of_the_same_length_and_damage_is_refused(self):
        contents = bytearray(self.read("card.orb"))
        contents[contents.index(b"oneone")] ^= 1  # another container's data
        self.write("other.orb", bytes(contents))
        self.assertIn("card.undo is of another container", self.fails(1, "undo", "other.orb", "card.undo"))
        self.assertEqual(self.read("other.orb"), bytes(contents))

    def test_undo_after_a_change_is_refused_unless_forced(self):
        repaired = self.read("card.orb")
        self.put_text("card.orb:/NEW", "new")
        self.ok("rm", "card.orb:/NEW")
        changed = self.read("card.orb")
        self.assertNotEqual(changed, repaired)
        message = self.fails(1, "undo", "card.orb", "card.undo")
        self.assertIn("cannot undo the repair of card.orb: card.undo is of another container, or this one has changed "
                      "since the repair\n", message)
        self.assertEqual(self.read("card.orb"), changed)
        self.ok("undo", "--force", "card.orb", "card.undo")
        self.assertEqual(len(self.read("card.orb")), len(self.damaged))

    def test_undo_after_looking_at_the_repaired_container_is_done(self):
        self.ok("ls", "-lR", "card.orb")
        self.ok("get", "card.orb", "out")
        self.ok("undo", "card.orb", "card.undo")
        self.ok("undo", "card.orb", "card.undo")  # once more does no harm
        self.assertEqual(self.read("card.orb"), self.damaged)

    def test_undo_of_what_is_no_undo_file_is_refused(self):
        self.write("bad.undo", b"nonsense")
        contents = bytearray(self.read("card.undo"))
        contents[30] ^= 1
        self.write("damaged.undo", bytes(contents))
        before = self.read("card.orb")
        for name, why in (("bad.undo", "is not an undo file"),
                          ("damaged.undo", "is damaged or cut short: its checksum is wrong")):
            for options in ([], ["-f"]):
                self.assertIn(f"cannot undo the repair of card.orb: {name} {why}\n",
                              self.fails(1, "undo", *options, "card.orb", name))
        self.assertIn("No such file or directory", self.fails(1, "undo", "card.orb", "none"))
        self.assertEqual(self.read("card.orb"), before)


class RecoverTest(DamageTest):
    def test_recover_copies_what_is_there_with_names_and_times(self):
        self.set_time(3, (2001, 2, 3, 4, 5, 6))
        self.mark_dirty()
        before = self.read("card.orb")
        out = self.ok("recover", "card.orb", "out")
        self.assertTrue(out.endswith("2 files with 6001 bytes and 1 directory copied to out\n"), out)
        self.assertEqual(self.contents("out"), {"LOGS": None, "LOGS/DAY1.TXT": b"one" * 2000, "X": b"x"})
        self.assertEqual(int(os.stat(self.path("out/LOGS/DAY1.TXT")).st_mtime), 981173106)
        self.assertEqual(self.read("card.orb"), before)

    def test_recover_says_what_it_set_right_and_finds_what_lost_its_name(self):
        self.lose_logs()
        before = self.read("card.orb")
        result = self.orba("recover", "card.orb", "out")
        self.assertEqual((result.status, result.err), (4, ""))
        self.assertIn("set right in the copies: ", result.out)
        self.assertTrue(result.out.endswith("the container is damaged, and more may have been there; "
                                            "see the damage with: orba check card.orb\n"), result.out)
        texts = [contents for name, contents in self.contents("out").items() if name.startswith("LOST.FND/")]
        self.assertIn(b"one" * 2000, texts)
        self.assertEqual(self.read("card.orb"), before)

    def test_recover_overwrites_nothing(self):
        self.write("out/X", b"mine")
        result = self.orba("recover", "card.orb", "out")
        self.assertEqual(result.status, 1)
        self.assertEqual(result.err, "orba: cannot write out/X: File exists (EEXIST, 17)\n"
                                     "      recover into another folder, or use --force to overwrite it, --no-clobber "
                                     "to leave it alone\n")
        self.assertEqual(self.contents("out"), {"LOGS": None, "LOGS/DAY1.TXT": b"one" * 2000, "X": b"mine"})

    def test_recover_force_overwrites_and_no_clobber_leaves_alone(self):
        self.write("out/X", b"mine")
        self.assertEqual(self.ok("recover", "-n", "card.orb", "out"),
                         "1 file with 6000 bytes and 1 directory copied to out; 1 file left alone\n")
        self.assertEqual(self.read("out/X"), b"mine")
        self.write("out/LOGS/DAY1.TXT", b"mine")
        self.assertEqual(self.ok("recover", "-f", "card.orb", "out"),
                         "2 files with 6001 bytes and 1 directory copied to out\n")
        self.assertEqual(self.contents("out"), {"LOGS": None, "LOGS/DAY1.TXT": b"one" * 2000, "X": b"x"})
        self.fails(16, "recover", "-n", "-f", "card.orb", "out")

    def test_recover_of_damage_exits_4_and_1_where_something_could_not_be_copied(self):
        self.cut_first_block(4)
        self.assertEqual(self.orba("recover", "-q", "card.orb", "out").status, 4)
        self.assertEqual(self.orba("recover", "-q", "card.orb", "out").status, 1)
        self.assertEqual(self.orba("recover", "-qn", "card.orb", "out").status, 4)

    def test_recover_onto_a_full_disk_leaves_no_half_file_and_is_taken_up_again(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000))

        result = self.orba("recover", "card.orb", "out", preexec_fn=limit)
        self.assertEqual((result.status, result.err),
                         (1, "orba: cannot write out/LOGS/DAY1.TXT: File too large (EFBIG, 27)\n"
                             "      raise the limit for the size of files (ulimit -f), or use another disk\n"))
        self.assertEqual(self.contents("out"), {"LOGS": None, "X": b"x"})
        self.ok("recover", "-n", "card.orb", "out")
        self.assertEqual(self.contents("out"), {"LOGS": None, "LOGS/DAY1.TXT": b"one" * 2000, "X": b"x"})

    def test_recover_does_not_follow_links_out_of_its_folder(self):
        linux_alone("symbolic links, which Wine follows unseen")
        self.write("elsewhere/file", b"mine")
        self.path("out").mkdir()
        self.path("out/LOGS").symlink_to("../elsewhere")
        self.path("out/X").symlink_to("nowhere")
        for options in ([], ["-f"]):
            result = self.orba("recover", *options, "card.orb", "out")
            self.assertEqual(result.status, 1)
            self.assertIn("cannot make the directory out/LOGS: File exists (EEXIST, 17)", result.err)
            self.assertIn("cannot write out/X: No such file or directory (ENOENT, 2)\n"
                          "      it is a symbolic link that leads nowhere", result.err)
        self.assertEqual(self.host_names("elsewhere"), ["file"])
        self.assertEqual(self.host_names("out"), ["LOGS", "X"])

    def test_recover_never_overwrites_its_container(self):
        before = self.read("card.orb")
        os.link(self.path("card.orb"), self.path("X"))
        result = self.orba("recover", "-f", "card.orb", ".")
        self.assertEqual(result.status, 1)
        self.assertIn("cannot write ./X: it is the container itself", result.err)
        self.assertEqual(self.read("card.orb"), before)

    def test_recover_to_where_nothing_can_be_made_says_so(self):
        self.write("taken")
        self.assertIn("cannot make the directory taken: File exists (EEXIST, 17)",
                      self.fails(1, "recover", "card.orb", "taken"))
        self.path("locked").mkdir(mode=0o555)
        self.assertIn("cannot make the directory locked/out: Permission denied (EACCES, 13)",
                      self.fails(1, "recover", "card.orb", "locked/out", preexec_fn=obey_modes))

    def test_recover_of_what_is_no_container_fails(self):
        self.write("text.txt", b"no container")
        self.assertIn("cannot recover text.txt: ", self.fails(1, "recover", "text.txt", "out"))
        self.assertEqual(self.host_names(), ["card.orb", "text.txt"])


if __name__ == "__main__":
    unittest.main()
