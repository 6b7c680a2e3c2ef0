"""Commands that exit as fsck does, when memory runs out. The sanitizers need too much of it themselves."""
import resource
import signal
import unittest

from support import ToolTest

MEBI = 1 << 20


class MemoryTest(ToolTest):
    def test_without_memory_repair_and_check_exit_8(self):
        self.ok("format", "-b", "8192", "-n", "28672", "large.orb")
        self.patch("large.orb", 900, b"nonsense")
        damaged = self.read("large.orb")
        for command in (["check"], ["repair", "-n"], ["repair"]):
            seen = set()
            for limit in range(4, 256):
                result = self.orba(*command, "large.orb", preexec_fn=lambda size=limit: resource.setrlimit(
                    resource.RLIMIT_AS, (size * MEBI, size * MEBI)))
                if result.status in (127, -signal.SIGSEGV) and not result.err.startswith("orba: "):
                    continue  # not even the loader had enough
                seen.add(result.status)
                if result.status != 8:
                    break
                self.assertEqual(result.err, "orba: there is not enough memory\n")
                if self.read("large.orb") != damaged:  # it ran out after the repair
                    self.assert_clean("large.orb")
                    self.write("large.orb", damaged)
            self.assertEqual(seen, {8, 1 if command == ["repair"] else 4}, command)


if __name__ == "__main__":
    unittest.main()
