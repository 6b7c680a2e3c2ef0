"""put, get, cp, mv and rm, killed before each call that changes the host's disk, on paths above 127 characters."""
import unittest

from support import ToolTest, turns

FOLDER = "/" + "/".join(letter * 19 for letter in "ABCDEFG")
OLD, NEW = "old" * 500, "new" * 700


class KillTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format("card.orb", "-b", "1024", "--nodes", "64")
        self.ok("mkdir", "-p", "card.orb:" + FOLDER)
        self.put_text(f"card.orb:{FOLDER}/KEPT", OLD)
        self.put_text("card.orb:/SOURCE", NEW)
        self.write("source", NEW.encode())
        self.before = self.read("card.orb")

    def kill_everywhere(self, *arguments):
        """Runs with a kill before each call in turn, the container as it was each time; yields how far it came."""
        _, calls = self.host_calls(*arguments)
        self.assertGreater(len(calls), 4)
        for number in turns(len(calls)):
            self.write("card.orb", self.before)
            status, _ = self.host_calls(*arguments, at=f"any * {number} kill")
            self.assertEqual(status, -9)
            self.assertIn(self.orba("repair", "-q", "card.orb").status, (0, 1))
            self.assert_clean()
            yield number

    def found(self, name):
        """What is there under a name: its contents, or None."""
        result = self.orba("cat", f"card.orb:{FOLDER}/{name}")
        return result.out if result.status == 0 else None

    def test_put_killed_leaves_nothing_or_all(self):
        seen = set()
        for number in self.kill_everywhere("put", "source", f"card.orb:{FOLDER}/NEW"):
            seen.add(self.found("NEW"))
            self.assertEqual(self.found("KEPT"), OLD, number)
        self.assertEqual(seen, {None, NEW})

    def test_put_force_killed_leaves_the_old_or_the_new_contents(self):
        for number in self.kill_everywhere("put", "-f", "source", f"card.orb:{FOLDER}/KEPT"):
            if self.found("KEPT") is None:  # between the two the new one has its temporary name, complete
                self.assertEqual(self.found("~ORBA-1.TMP"), NEW, number)
            self.assertIn(self.found("KEPT"), (OLD, NEW, None), number)

    def test_put_no_clobber_completes_a_killed_put(self):
        for number in self.kill_everywhere("put", "source", f"card.orb:{FOLDER}/NEW"):
            self.assertEqual(self.orba("put", "-n", "source", f"card.orb:{FOLDER}/NEW").status, 0)
            self.assertEqual(self.found("NEW"), NEW, number)
            self.assertEqual(self.listing("card.orb:" + FOLDER), ["KEPT", "NEW"])

    def test_cp_killed_leaves_nothing_or_all(self):
        seen = set()
        for number in self.kill_everywhere("cp", "card.orb:/SOURCE", f"card.orb:{FOLDER}/NEW"):
            seen.add(self.found("NEW"))
            self.assertEqual(self.ok("cat", "card.orb:/SOURCE"), NEW, number)
        self.assertEqual(seen, {None, NEW})

    def test_cp_force_killed_leaves_the_old_or_the_new_contents(self):
        for number in self.kill_everywhere("cp", "-f", "card.orb:/SOURCE", f"card.orb:{FOLDER}/KEPT"):
            if self.found("KEPT") is None:  # between the two the new one has its temporary name, complete
                self.assertEqual(self.found("~ORBA-1.TMP"), NEW, number)
            self.assertIn(self.found("KEPT"), (OLD, NEW, None), number)

    def test_cp_from_another_container_killed_leaves_nothing_or_all(self):
        self.write("other.orb", self.before)
        seen = set()
        for number in self.kill_everywhere("cp", "other.orb:/SOURCE", f"card.orb:{FOLDER}/NEW"):
            seen.add(self.found("NEW"))
            self.assertEqual(self.read("other.orb"), self.before, number)
        self.assertEqual(seen, {None, NEW})

    def test_mv_killed_leaves_the_file_under_a_name(self):
        for number in self.kill_everywhere("mv", "card.orb:/SOURCE", f"card.orb:{FOLDER}/NEW"):
            at_source = self.orba("cat", "card.orb:/SOURCE")
            self.assertTrue(self.found("NEW") == NEW or at_source.out == NEW, number)
            self.assertIn(self.found("NEW"), (None, NEW), number)

    def test_mv_force_killed_loses_nothing_that_is_to_stay(self):
        for number in self.kill_everywhere("mv", "-f", "card.orb:/SOURCE", f"card.orb:{FOLDER}/KEPT"):
            at_source = self.orba("cat", "card.orb:/SOURCE")
            self.assertTrue(self.found("KEPT") == NEW or at_source.out == NEW, number)
            self.assertIn(self.found("KEPT"), (OLD, NEW, None), number)

    def test_rm_killed_leaves_the_file_or_nothing(self):
        seen = set()
        for number in self.kill_everywhere("rm", f"card.orb:{FOLDER}/KEPT"):
            seen.add(self.found("KEPT"))
            self.assertEqual(self.ok("cat", "card.orb:/SOURCE"), NEW, number)
        self.assertEqual(seen, {None, OLD})

    def test_get_killed_leaves_no_incomplete_file_and_sweeps_the_next_time(self):
        arguments = ("get", f"card.orb:{FOLDER}/KEPT", "out")
        self.path("out").mkdir()
        _, calls = self.host_calls(*arguments)
        self.assertGreaterEqual(len(calls), 3)
        for number in turns(len(calls)):
            for name in self.host_names("out"):
                self.path("out/" + name).unlink()
            status, _ = self.host_calls(*arguments, at=f"any * {number} kill")
            self.assertEqual(status, -9)
            names = [name for name in self.host_names("out") if not name.startswith(".orba-")]
            self.assertIn([self.read("out/" + name) for name in names], ([], [OLD.encode()]))
            self.assertEqual(self.orba("get", "-f", f"card.orb:{FOLDER}/KEPT", "out").status, 0)
            self.assertEqual(self.host_names("out"), ["KEPT"])
        self.assertEqual(self.read("card.orb"), self.before)


if __name__ == "__main__":
    unittest.main()
