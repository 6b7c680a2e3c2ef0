"""create and compact: containers made of trees and of containers."""
import errno
import os
import unittest

from support import NODE_SIZE, SANITIZED, ToolTest, linux_alone, obey_modes, turns

NO_SPACE = errno.ENOSPC


class CreateTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("tree/logs/day1.txt", b"monday")
        self.write("tree/big.bin", bytes(range(256)) * 100)
        self.write("tree/empty", b"")
        self.path("tree/nothing").mkdir()

    def create(self, *arguments, **options):
        return self.ok("create", *arguments, **options)

    def assert_nothing_made(self, *also):
        self.assertEqual(self.host_names(), sorted(["tree", *also]))

    def test_create_takes_trees_as_put_does(self):
        self.create("card.orb", "tree")
        self.assertEqual(self.listing(), ["TREE"])
        self.create("root.orb", "tree/.", "tree/logs/day1.txt")
        self.assertEqual(self.listing("root.orb"), ["BIG.BIN", "DAY1.TXT", "EMPTY", "LOGS", "NOTHING"])
        self.assertEqual(self.ok("cat", "root.orb:/DAY1.TXT", "card.orb:/TREE/LOGS/DAY1.TXT"), "mondaymonday")
        self.assert_clean("card.orb")
        self.assert_clean("root.orb")

    def test_create_says_what_it_chose(self):
        self.assertEqual(self.create("card.orb", "tree/."),
                         "card.orb: 33K, blocks of 1024 bytes, 6 of 72 nodes in use\n")
        self.assertEqual(self.create("-q", "other.orb", "tree/."), "")
        self.assertEqual(self.create("-b", "8192", "-n", "9", "third.orb", "tree/."),
                         "third.orb: 74K, blocks of 8192 bytes, 6 of 16 nodes in use\n")
        self.assertEqual(self.create("--spare", "10", "fourth.orb", "tree/."),
                         "fourth.orb: 33K, blocks of 1024 bytes, 6 of 16 nodes in use\n")

    def test_create_makes_the_smallest_container(self):
        self.make_tree("many", 8, 6, seed=5)
        self.create("-q", "chosen.orb", "many")
        chosen = os.stat(self.path("chosen.orb")).st_size
        for size in ("1024", "2048", "4096", "8192"):
            self.create("-q", "-b", size, f"{size}.orb", "many")
            self.assertLessEqual(chosen, os.stat(self.path(f"{size}.orb")).st_size, size)
            self.assertEqual(self.contents("many"), self.got(f"{size}.orb"))

    def got(self, container):
        self.ok("get", "-q", "-f", f"{container}:/MANY", f"{container}.got")
        return self.contents(f"{container}.got")

    def test_create_has_room_for_all_nodes_it_promises(self):
        self.create("-q", "--spare", "3", "card.orb", "tree/.")  # 9, rounded up to 16
        for number in range(10):
            self.put_text(f"card.orb:/NEW{number}")
        self.assertIn("ORB_ERROR_NO_FREE_NODE", self.fails(1, "put", "-", "card.orb:/NEW", stdin=b""))

    def test_create_of_many_files_takes_blocks_that_hold_their_nodes(self):
        for number in range(3600):  # blocks of 1024 have room for 3584
            self.write(f"many/D{number // 60}/F{number}", b"x")
        self.assertIn("blocks of 2048 bytes, 3661 of 4576 nodes in use", self.create("card.orb", "many/."))
        self.assertIn("with blocks of 1024 bytes a container holds 3584 files and directories, and room is needed for "
                      "3661 (ORB_ERROR_NO_FREE_NODE", self.fails(1, "create", "-b", "1024", "two.orb", "many/."))
        self.assert_nothing_made("card.orb", "many")

    def test_create_keeps_the_times_of_the_host(self):
        os.utime(self.path("tree/logs/day1.txt"), (0, 1582934399))
        os.utime(self.path("tree/logs"), (0, 1582934400))
        os.utime(self.path("tree"), (0, 86399))
        self.create("-q", "card.orb", "tree/.")
        self.assertIn("2020-02-28 23:59:59  DAY1.TXT", self.ok("ls", "-l", "card.orb:/LOGS"))
        self.assertRegex(self.ok("ls", "-l", "card.orb"), "2020-02-29 00:00:00  LOGS")
        self.ok("get", "card.orb", "out")
        self.assertEqual(os.stat(self.path("out")).st_mtime, 86399)
        self.assertEqual(os.stat(self.path("out/LOGS/DAY1.TXT")).st_mtime, 1582934399)

    def test_create_with_a_fixed_time_gives_the_same_bytes(self):
        self.make_tree("one/many", 8, 9, seed=3)
        self.make_tree("two/many", 8, 9, seed=3)
        for path in sorted(self.path("two").rglob("*"), reverse=True):  # other times, made in another order
            if path.is_file():
                contents = path.read_bytes()
                path.unlink()
                path.write_bytes(contents)
                os.utime(path, (1, 1))
        self.create("-q", "--time", "2026-11-22T02:23:20Z", "one.orb", "one/many")
        self.create("-q", "--time", "@1795314200", "two.orb", "two/many")
        self.assertEqual(self.read("one.orb"), self.read("two.orb"))
        self.assertIn("2026-11-22 02:23:20", self.ok("ls", "-l", "one.orb"))

    def test_create_refuses_what_is_no_time(self):
        for text in ("yesterday", "2026-13-01", "2026-02-30", "@", "@-1", "@99999999999999", "2026-01-01T1",
                     "2026-01-01 01:02:03 ", "2026-01-01x"):
            self.assertIn("--time takes a date such as", self.fails(16, "create", "--time", text, "card.orb", "tree"))
        self.assert_nothing_made()

    def test_create_overwrites_nothing(self):
        self.write("card.orb", b"kept")
        self.assertIn("a file of this name exists", self.fails(1, "create", "card.orb", "tree"))
        self.assertEqual(self.read("card.orb"), b"kept")

    def test_create_refuses_what_put_would_leave_out(self):
        os.mkfifo(self.path("tree/pipe"))
        message = self.fails(1, "create", "card.orb", "tree")
        self.assertIn("cannot put tree/pipe: it is not an ordinary file but a pipe", message)
        self.assertIn("nothing was made", message)
        self.assert_nothing_made()

    def test_create_refuses_names_that_no_container_holds_unless_renamed(self):
        self.write("tree/a b")
        self.assertIn("it holds \" \"", self.fails(1, "create", "card.orb", "tree"))
        self.assert_nothing_made()
        self.assertEqual(self.create("-q", "--rename", "card.orb", "tree"), "tree/a b -> card.orb:/TREE/A_B\n")
        self.assertEqual(self.ok("verify", "-q", "--rename", "card.orb:/TREE", "tree"), "")

    def test_create_refuses_files_too_large_for_the_blocks(self):
        with open(self.path("tree/huge"), "wb") as huge:
            huge.truncate(1 << 27)
        self.assertIn("a file has 134217728 bytes, and with blocks of 1024 bytes it can have 67377152",
                      self.fails(1, "create", "-b", "1024", "card.orb", "tree"))
        for name in ("one", "two"):
            with open(self.path("tree/" + name), "wb") as huge:
                huge.truncate((1 << 30) - 1)
        self.assertIn("a container is smaller than 2 GiB (ORB_ERROR_VOLUME_FULL",
                      self.fails(1, "create", "card.orb", "tree"))
        self.assert_nothing_made()

    def test_create_in_a_folder_that_is_missing_fails(self):
        self.assertIn("cannot make the container no/card.orb: No such file or directory",
                      self.fails(1, "create", "no/card.orb", "tree"))

    def test_create_on_a_full_disk_leaves_nothing(self):
        _, calls = self.host_calls("create", "-q", "card.orb", "tree")
        self.path("card.orb").unlink()
        kinds = [call.split()[0] for call in calls]
        # The first and the last sync are of the folder, when the names in it are as they are to be.
        for kind, first, last in (("write", 1, kinds.count("write")), ("sync", 2, kinds.count("sync") - 1)):
            self.assertGreater(last, first)
            for number in turns(last):
                if number < first:
                    continue
                status, _ = self.host_calls("create", "-q", "card.orb", "tree", at=f"{kind} * {number} {NO_SPACE}")
                self.assertEqual(status, 1, (kind, number))
                self.assert_nothing_made()

    def test_create_killed_leaves_all_or_none(self):
        arguments = ("create", "-q", "--time", "@0", "card.orb", "tree")
        _, calls = self.host_calls(*arguments)
        whole = self.read("card.orb")
        seen = set()
        for number in turns(len(calls)):
            for name in self.host_names():
                if name.endswith(".orb") or name.startswith(".orba-"):
                    self.path(name).unlink()
            status, _ = self.host_calls(*arguments, at=f"any * {number} kill")
            self.assertEqual(status, -9)
            self.assertLessEqual(len([name for name in self.host_names() if name.startswith(".orba-")]), 2)
            there = self.path("card.orb").exists()
            seen.add(there)
            if there:
                self.assertEqual(self.read("card.orb"), whole)
        self.assertEqual(seen, {False, True})

    def test_create_and_export_remove_what_interrupted_runs_left_but_not_what_is_locked(self):
        self.format("first.orb")
        for arguments in (["create", "-q", "card.orb", "tree"], ["compact", "-q", "first.orb", "card.orb"],
                          ["export", "-q", "first.orb", "card.tar"]):
            for name in (".orba-aaaaaa", ".orba-aaaaaa.new", ".orba-bbbbbb.new", ".orba-cccccc", ".orba-cccccc.new",
                         ".orba-new", ".orba-cccccc.new.new"):
                self.write(name)
            with self.held(".orba-cccccc"):
                result = self.orba(*arguments)
            self.assertEqual((result.status, result.out), (0, ""))
            removed = ["aaaaaa", "aaaaaa.new", "bbbbbb.new"]
            self.assertEqual(result.err.replace("./", ""),
                             "".join(f"orba: removed .orba-{name}, which an interrupted run had left\n"
                                     for name in removed))
            self.assertEqual([name for name in self.host_names() if name.startswith(".orba-")],
                             [".orba-cccccc", ".orba-cccccc.new", ".orba-cccccc.new.new", ".orba-new"])
            self.path("card.orb").unlink(missing_ok=True)


class CompactTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.make_tree("tree", 6, 8, seed=7)
        self.format("card.orb", "-b", "2048", "--nodes", "200")
        self.write("waste", bytes(300000))
        self.ok("put", "waste", "card.orb")
        self.ok("put", "tree/.", "card.orb")
        self.ok("rm", "card.orb:/WASTE")
        self.ok("attrib", "+r", "card.orb:/FILE000.BIN")
        self.ok("attrib", "+u", "card.orb:/FILE001.BIN")
        self.patch("card.orb", self.node(5) + 8, (2001).to_bytes(2, "little") + bytes([2, 3, 4, 5, 6]))
        self.before = self.read("card.orb")
        self.manifest = self.ok("manifest", "card.orb")
        self.lines = self.everything("card.orb")

    @staticmethod
    def node(number):
        """Where one of the first 32 nodes lies. The fifth is of /DIR-0/DIR-2/FILE000.BIN."""
        return 1024 + 25 + (number - 1) * NODE_SIZE

    def everything(self, name):
        """Contents, attributes and times of all that a container holds."""
        return self.ok("manifest", name) + self.ok("ls", "-lR", name).replace(name, "")

    def test_compact_keeps_contents_attributes_and_times(self):
        out = self.ok("compact", "card.orb")
        self.assertRegex(out, r"^card\.orb: \d+K, was \d+K; blocks of 2048 bytes, 63 of 200 nodes in use\n$")
        self.assertLess(len(self.read("card.orb")), len(self.before) - 100000)
        self.assertEqual(self.everything("card.orb"), self.lines)
        self.assertIn("----   4097  2001-02-03 04:05:06  FILE000.BIN", self.lines)
        self.assertEqual(self.host_names(), ["card.orb", "tree", "waste"])
        self.assert_clean()

    def test_compact_twice_gives_the_same_bytes(self):
        self.ok("compact", "card.orb")
        once = self.read("card.orb")
        self.ok("compact", "card.orb")
        self.assertEqual(self.read("card.orb"), once)

    def test_compact_into_a_new_container_leaves_the_old_one(self):
        self.ok("compact", "-b", "8192", "--spare", "1", "card.orb", "new.orb")
        self.assertEqual(self.read("card.orb"), self.before)
        self.assertEqual(self.everything("new.orb"), self.lines)
        self.assertIn("nodes             64, 1 of them free", self.ok("info", "new.orb"))
        self.assertIn("a file of this name exists", self.fails(1, "compact", "card.orb", "new.orb"))

    def test_compact_keep_keeps_the_old_one(self):
        self.ok("compact", "--keep", "card.old", "card.orb")
        self.assertEqual(self.read("card.old"), self.before)
        self.assertEqual(self.everything("card.orb"), self.lines)
        kept = self.read("card.orb")
        self.assertIn("cannot keep card.orb as card.old: a file of this name exists",
                      self.fails(1, "compact", "--keep", "card.old", "card.orb"))
        self.assertEqual((self.read("card.old"), self.read("card.orb")), (self.before, kept))
        self.assertIn("--keep is for a container that is replaced",
                      self.fails(16, "compact", "--keep", "x", "card.orb", "y.orb"))

    def test_compact_through_a_link_replaces_what_it_leads_to(self):
        linux_alone("symbolic links, which Wine follows unseen")
        self.path("folder").mkdir()
        os.rename(self.path("card.orb"), self.path("folder/real.orb"))
        self.path("folder/real.orb").chmod(0o640)
        os.symlink("folder/real.orb", self.path("card.orb"))
        self.ok("compact", "card.orb")
        self.assertTrue(self.path("card.orb").is_symlink())
        self.assertEqual(self.everything("card.orb"), self.lines)
        self.assertEqual(self.path("folder/real.orb").stat().st_mode & 0o7777, 0o640)

    def test_compact_refuses_a_shape_that_does_not_hold_it(self):
        self.assertIn("these are 63 files and directories, the root included",
                      self.fails(1, "compact", "--nodes", "62", "card.orb"))
        self.assertEqual(self.read("card.orb"), self.before)

    def test_compact_says_that_smaller_blocks_hold_fewer_files(self):
        for number in range(3600):
            self.write(f"many/F{number}")
        self.ok("create", "-q", "many.orb", "many/.")
        before = self.read("many.orb")
        message = self.fails(1, "compact", "-b", "1024", "many.orb")
        self.assertIn("with blocks of 1024 bytes a container holds 3584 files and directories, and room is needed for "
                      "3601", message)
        self.assertIn("use larger blocks", message)
        self.assertEqual(self.read("many.orb"), before)

    def test_compact_in_place_of_a_container_that_is_not_to_be_written_is_refused(self):
        self.path("card.orb").chmod(0o444)
        self.assertIn("cannot compact card.orb: Permission denied (EACCES",
                      self.fails(1, "compact", "card.orb", preexec_fn=obey_modes))
        self.assertEqual(self.read("card.orb"), self.before)
        self.assertEqual(self.orba("compact", "-q", "card.orb", "new.orb", preexec_fn=obey_modes).status, 0)
        self.assertEqual(self.everything("new.orb"), self.lines)

    def test_compact_keeps_owner_and_permissions(self):
        linux_alone("owners as Linux has them")
        if os.geteuid() == 0:
            os.chown(self.path("card.orb"), 1234, 4321)
        self.path("card.orb").chmod(0o664)
        before = self.path("card.orb").stat()
        self.ok("compact", "-q", "card.orb")
        after = self.path("card.orb").stat()
        self.assertNotEqual(after.st_ino, before.st_ino)
        self.assertEqual((after.st_uid, after.st_gid, after.st_mode), (before.st_uid, before.st_gid, before.st_mode))

    def test_compact_of_a_marked_container_is_refused_with_advice(self):
        self.mark_dirty()
        before = self.read("card.orb")
        message = self.fails(1, "compact", "card.orb")
        self.assertIn("an update of it was interrupted (ORB_ERROR_NOT_CLEAN", message)
        self.assertIn("orba repair card.orb", message)
        self.assertEqual((self.read("card.orb"), self.host_names()), (before, ["card.orb", "tree", "waste"]))

    def test_compact_of_a_damaged_container_is_refused_with_advice(self):
        self.patch("card.orb", self.node(5) + 32, b"\xff\xff\xff\x0f")
        before = self.read("card.orb")
        message = self.fails(1, "compact", "card.orb")
        self.assertIn("cannot compact card.orb: it is damaged", message)
        self.assertIn("orba repair card.orb", message)
        self.assertIn("orba recover card.orb DIR", message)
        self.assertEqual(self.read("card.orb"), before)
        self.write("text", b"no container" * 1000)
        self.assertIn("it is not a container", self.fails(1, "compact", "text"))

    def test_compact_of_a_read_only_container(self):
        self.path("card.orb").chmod(0o400)
        self.ok("compact", "card.orb", "new.orb")
        self.assertEqual(self.everything("new.orb"), self.lines)
        self.assertEqual(self.read("card.orb"), self.before)

    def test_compact_frees_what_had_leaked(self):
        with open(self.path("card.orb"), "ab") as container:
            container.write(bytes(8 * 2048))
        self.assertIn("8 leaked", self.orba("check", "card.orb").out)
        self.ok("compact", "card.orb")
        self.assert_clean()

    def test_compact_on_a_full_disk_leaves_the_old_one(self):
        _, calls = self.host_calls("compact", "-q", "card.orb", "new.orb")
        self.path("new.orb").unlink()
        writes = [call for call in calls if call.startswith("write")]
        for number in range(1, len(writes) + 1, 29):
            status, _ = self.host_calls("compact", "-q", "card.orb", at=f"write * {number} {NO_SPACE}")
            self.assertEqual(status, 1, number)
            self.assertEqual(self.read("card.orb"), self.before)
            self.assertEqual(self.host_names(), ["card.orb", "tree", "waste"])

    def test_compact_that_does_not_hold_the_same_leaves_the_old_one(self):
        _, calls = self.host_calls("compact", "-q", "card.orb", "new.orb")
        self.path("new.orb").unlink()
        last = len([call for call in calls if call.startswith("write")])
        refused = 0
        for number in range(10, last - 64, 61 if SANITIZED else 19):
            result = self.orba("compact", "-q", "card.orb", environment=self.failing(f"write * {number} flip"))
            if result.status == 0:  # what was flipped was written again, or is not part of the contents
                self.assertEqual(self.ok("manifest", "card.orb"), self.manifest)
                self.write("card.orb", self.before)
                continue
            refused += 1
            self.assertEqual((result.status, self.read("card.orb")), (1, self.before), result)
            self.assertEqual(self.host_names(), ["card.orb", "tree", "waste"])
        self.assertGreater(refused, 3)

    def test_compact_killed_leaves_the_old_or_the_new_one(self):
        arguments = ("compact", "-q", "--keep", "old.orb", "card.orb")
        _, calls = self.host_calls(*arguments)
        new = self.read("card.orb")
        self.assertNotEqual(new, self.before)
        seen = set()
        for number in [*range(1, len(calls) - 6, 29), *range(len(calls) - 6, len(calls) + 1)]:
            for name in self.host_names():
                if name == "old.orb" or name.startswith(".orba-"):
                    self.path(name).unlink()
            self.write("card.orb", self.before)
            status, _ = self.host_calls(*arguments, at=f"any * {number} kill")
            self.assertEqual(status, -9)
            now = self.read("card.orb")
            self.assertIn(now, (self.before, new), number)
            seen.add(now)
            if self.path("old.orb").exists():
                self.assertEqual(self.read("old.orb"), self.before)
        self.assertEqual(seen, {self.before, new})

    def test_compact_while_another_program_has_it_open_is_refused(self):
        with self.held("card.orb"):
            self.assertIn("another program has the container open", self.fails(1, "compact", "card.orb"))
        self.assertEqual(self.read("card.orb"), self.before)


if __name__ == "__main__":
    unittest.main()
