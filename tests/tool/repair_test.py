"""What repair and undo do to the host: one descriptor, the order of writes and syncs, failures, signals."""
import fcntl
import os
import re
import signal
import struct
import subprocess
import unittest

from support import PROGRAM, ToolTest, linux_alone, obey_modes

EINTR, EIO = 4, 5
MEBI = 1 << 20


class RepairHostTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.ok("mkdir", "card.orb:/LOGS")
        self.put_text("card.orb:/LOGS/DAY1.TXT", "one" * 2000)
        self.put_text("card.orb:/X", "x")
        self.lose_logs()
        self.damaged = self.read("card.orb")

    def lose_logs(self):
        """The name of the directory goes: its contents have none then."""
        contents = self.read("card.orb")
        self.patch("card.orb", contents.index(b"LOGS"), bytes(4))

    def test_the_order_of_writes_and_syncs(self):
        status, calls = self.host_calls("repair", "--undo", "card.undo", "card.orb")
        self.assertEqual(status, 1)
        order = "\n".join(calls) + "\n"
        self.assertRegex(order, r"^(write /card.undo\n)+sync /card.undo\nsync \n"
                                r"write /card.orb\nsync /card.orb\n(write /card.orb\n)+sync /card.orb\n"
                                r"write /card.orb\nsync /card.orb\n$")
        status, calls = self.host_calls("undo", "card.orb", "card.undo")
        self.assertEqual(status, 0)
        self.assertRegex("\n".join(calls) + "\n",
                         r"^write /card.orb\nsync /card.orb\n(write /card.orb\n)+sync /card.orb\n"
                         r"cut /card.orb\nsync /card.orb\nwrite /card.orb\nsync /card.orb\n$")
        self.assertEqual(self.read("card.orb"), self.damaged)

    def test_an_undo_file_that_did_not_reach_the_disk_is_removed_and_nothing_changed(self):
        for at in ("write card.undo 1 %d", "sync card.undo 1 %d", f"sync {self.folder.resolve()} 1 %d"):
            status, _ = self.host_calls("repair", "--undo", "card.undo", "card.orb", at=at % EIO)
            self.assertEqual(status, 8, at)
            self.assertEqual(self.host_names(), ["card.orb"])
            self.assertEqual(self.read("card.orb"), self.damaged)

    def test_writes_that_are_interrupted_or_short_are_continued(self):
        self.assertEqual(self.orba("repair", "card.orb").status, 1)
        repaired = self.read("card.orb")
        for at in (f"write card.orb 2 {EINTR}", "write card.orb 0 short", "write card.orb 3 short",
                   f"sync card.orb 1 {EINTR}", "write card.undo 0 short", f"write card.undo 1 {EINTR}"):
            self.write("card.orb", self.damaged)
            status, _ = self.host_calls("repair", "--undo", "card.undo", "card.orb", at=at)
            self.assertEqual(status, 1, at)
            self.assert_same_but_times(self.read("card.orb"), repaired)
            status, _ = self.host_calls("undo", "card.orb", "card.undo", at=at)
            self.assertEqual((status, self.read("card.orb")), (0, self.damaged), at)
            self.path("card.undo").unlink()

    def assert_same_but_times(self, a, b):
        """Where a second passed between two repairs, only the stamps of what they made differ."""
        self.assertEqual(len(a), len(b))
        self.assertLess(sum(x != y for x, y in zip(a, b)), 16)

    def test_a_repair_that_fails_at_any_write_or_sync_is_taken_back_or_ended_by_another(self):
        _, calls = self.host_calls("repair", "--undo", "card.undo", "card.orb")
        self.path("card.undo").unlink()
        on_container = sum(call.endswith(" /card.orb") for call in calls)
        for number in range(1, on_container + 1):
            self.write("card.orb", self.damaged)
            status, _ = self.host_calls("repair", "--undo", "card.undo", "card.orb",
                                        at=f"any card.orb {number} {EIO}")
            self.assertEqual(status, 8, number)
            torn = self.read("card.orb")
            self.ok("undo", "card.orb", "card.undo")
            self.assertEqual(self.read("card.orb"), self.damaged)
            self.write("card.orb", torn)
            self.assertIn(self.orba("repair", "card.orb").status, (0, 1))
            self.assert_clean()
            self.path("card.undo").unlink()

    def test_a_container_that_may_only_be_read_is_judged_and_left(self):
        self.path("card.orb").chmod(0o400)
        self.assertEqual(self.orba("repair", "-n", "card.orb", preexec_fn=obey_modes).status, 4)
        result = self.orba("repair", "--undo", "card.undo", "card.orb", preexec_fn=obey_modes)
        self.assertEqual(result.status, 8)
        self.assertIn("cannot write card.orb: Permission denied (EACCES, 13)", result.err)
        self.assertEqual(self.host_names(), ["card.orb"])
        self.format("clean.orb")
        self.path("clean.orb").chmod(0o400)
        self.assertEqual(self.orba("repair", "clean.orb", preexec_fn=obey_modes).status, 0)

    def test_a_file_put_in_its_place_meanwhile_is_left_alone(self):
        linux_alone("another file in the place of one that a program has for itself")
        self.format("other.orb")
        self.put_text("other.orb:/KEEP", "healthy")
        other = self.read("other.orb")

        def replace():
            self.path("card.orb").rename(self.path("moved.orb"))
            self.path("other.orb").rename(self.path("card.orb"))

        self.assertEqual(self.repair_refused_after(replace),
                         "orba: cannot write card.orb: another file has taken its place meanwhile\n"
                         "      nothing was changed; try again\n")
        self.assertEqual(self.read("card.orb"), other)
        self.assertEqual(self.read("moved.orb"), self.damaged)
        self.assertEqual(self.host_names(), ["card.orb", "moved.orb"])

    def test_a_container_written_over_meanwhile_is_left_as_it_is_then(self):
        linux_alone("a write to a file that a program has for itself")
        self.format("other.orb")
        self.put_text("other.orb:/KEEP", "healthy")
        other = self.read("other.orb")
        self.path("other.orb").unlink()
        self.assertEqual(self.repair_refused_after(lambda: self.write("card.orb", other)),
                         "orba: cannot write card.orb: another program has changed it meanwhile\n"
                         "      nothing was changed; try again\n")
        self.assertEqual(self.read("card.orb"), other)
        self.assertEqual(self.host_names(), ["card.orb"])

    def repair_refused_after(self, change):
        """What a repair says that is to be refused, since something happens once it has planned and not yet written."""
        reader, writer = os.pipe()
        fill = bytes(fcntl.fcntl(writer, fcntl.F_GETPIPE_SZ))
        os.write(writer, fill)  # the plan cannot be said before this is read
        with subprocess.Popen([*PROGRAM, "repair", "--undo", "card.undo", "card.orb"], stdout=writer,
                              stderr=subprocess.PIPE, cwd=self.folder, env=self.environment()) as process:
            os.close(writer)
            self.wait_until(lambda: self.state_of(process.pid) == "S" and self.syscall_of(process.pid) == "1")
            change()
            with open(reader, "rb") as output:
                output.read()
            message = process.stderr.read().decode()
        self.assertEqual(process.returncode, 8)
        return message

    @staticmethod
    def state_of(process):
        with open(f"/proc/{process}/stat", encoding="ascii") as stat:
            return stat.read().rsplit(")", 1)[1].split()[0]

    @staticmethod
    def syscall_of(process):
        """The number of the call that it waits in; that of write is 1 where this test runs."""
        with open(f"/proc/{process}/syscall", encoding="ascii") as call:
            return call.read().split()[0]

    def test_signals_are_obeyed_while_a_repair_is_planned(self):
        linux_alone("how much a process has read, as /proc tells")
        with open(self.path("card.orb"), "r+b") as container:
            container.write(bytes(64))  # the layout must be searched for
            container.truncate(1900 * MEBI)
        before = os.stat(self.path("card.orb")).st_mtime_ns
        for command in (["repair"], ["repair", "-n"]):
            with subprocess.Popen([*PROGRAM, *command, "card.orb"], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                  cwd=self.folder, env=self.environment()) as process:
                self.wait_until(lambda: process.poll() is not None or self.bytes_read_by(process.pid) > 20 * MEBI)
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.stderr.read(), b"orba: interrupted\n")
            self.assertEqual(process.returncode, -signal.SIGTERM)
        self.assertEqual(os.stat(self.path("card.orb")).st_mtime_ns, before)

    @staticmethod
    def bytes_read_by(process):
        with open(f"/proc/{process}/io", encoding="ascii") as counts:
            return int(re.search(r"rchar: (\d+)", counts.read())[1])


class RepairRefusalTest(ToolTest):
    """A file with two names, and no node left for a copy: one of the names would be lost."""

    def setUp(self):
        super().setUp()
        self.format("card.orb", "--block-size", "1024", "--nodes", "16")
        for number in range(2, 17):
            self.put_text(f"card.orb:/F{number:02}", f"file {number}")
        contents = self.read("card.orb")
        data = struct.unpack_from("<I", contents, 36)[0]  # block 1, which begins with the root's record
        end = data + 1024 + 17 * 32  # of its entries, in block 2
        self.patch("card.orb", end, struct.pack("<H30s", 2, b"TWICE"))
        self.patch("card.orb", data + 16, struct.pack("<I", 18 * 32))
        self.damaged = self.read("card.orb")

    def test_a_repair_that_costs_a_file_is_refused_with_its_path_and_what_to_do(self):
        result = self.orba("repair", "--undo", "card.undo", "card.orb")
        self.assertEqual(result.status, 4, result)
        self.assertIn("keeps 15 of 16 readable files\nwould lose /TWICE\n", result.out)
        self.assertEqual(result.err, "orba: will not repair card.orb: it would cost 1 file that can be read now, first "
                                     "/TWICE: no room is left for copies\n"
                                     "      fetch what can be read with: orba recover card.orb DIR\n"
                                     "      then repair all the same with: orba repair --force card.orb\n")
        self.assertEqual(self.read("card.orb"), self.damaged)
        self.assertEqual(self.host_names(), ["card.orb"])

    def test_recover_fetches_what_a_refused_repair_would_cost(self):
        result = self.orba("recover", "card.orb", "saved")
        self.assertEqual((result.status, result.err), (4, ""), result)
        saved = self.contents("saved")
        self.assertEqual((saved.pop("LOST.FND/TWICE"), saved.pop("LOST.FND")), (b"file 2", None))
        self.assertEqual(saved, {f"F{number:02}": f"file {number}".encode() for number in range(2, 17)})
        self.assertEqual(self.read("card.orb"), self.damaged)

    def test_force_carries_a_refused_repair_out_and_undo_takes_it_back(self):
        result = self.orba("repair", "--force", "--undo", "card.undo", "card.orb")
        self.assertEqual((result.status, result.err), (1, ""), result)
        self.assertIn("would lose /TWICE\n", result.out)
        self.assert_clean()
        self.assertEqual(self.listing(), [f"F{number:02}" for number in range(2, 17)])
        self.assertEqual(self.ok("cat", "card.orb:/F02"), "file 2")
        self.ok("undo", "card.orb", "card.undo")
        self.assertEqual(self.read("card.orb"), self.damaged)


class RepairCrossedTest(ToolTest):
    """Fifteen names for the same 262 blocks: to read them all for each would be work out of proportion."""

    def setUp(self):
        super().setUp()
        self.format("card.orb", "--block-size", "1024", "--nodes", "32")
        self.put_text("card.orb:/F02", "x" * 262 * 1024)
        contents = self.read("card.orb")
        first = struct.unpack_from("<I", contents, 36)[0]  # block 1: the records, 64 bytes each
        for number in range(3, 17):
            self.put_text(f"card.orb:/F{number:02}")
            self.patch("card.orb", first + 64 * (number - 1) + 16, contents[first + 64 + 16:first + 128])

    def test_a_repair_whose_cost_is_not_known_is_refused_and_force_carries_it_out(self):
        unknown = "whether 8 files are kept is not known: they read the same blocks as others over and over"
        self.assertIn(f"keep all 7 files that can be read; {unknown}", self.orba("check", "card.orb").out)
        before = self.read("card.orb")
        result = self.orba("repair", "card.orb")
        self.assertEqual(result.status, 4, result)
        self.assertIn(f"\nkeeps 7 of 7 readable files; {unknown}", result.out)
        self.assertEqual(result.err, f"orba: will not repair card.orb: {unknown}\n"
                                     "      fetch what can be read with: orba recover card.orb DIR\n"
                                     "      then repair all the same with: orba repair --force card.orb\n")
        self.assertEqual(self.read("card.orb"), before)
        self.assertEqual(self.orba("repair", "--force", "card.orb").status, 1)
        self.assert_clean()


if __name__ == "__main__":
    unittest.main()
