"""README.md and docs/ show the command line at work: each command, run as it stands there, prints what stands below."""
import os
import pathlib
import re
import subprocess
import unittest

from support import LIMIT, ORBA, ToolTest, linux_alone

TOP = pathlib.Path(__file__).parents[2]
TIME = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d")


def consoles(page):
    """The transcripts of a page, each a list of commands with what they print."""
    text = (TOP / page).read_text(encoding="utf-8")
    for block in re.findall(r"^```console\n(.*?)^```$", text, re.MULTILINE | re.DOTALL):
        yield [part.split("\n", 1) for part in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]]


class PagesTest(ToolTest):
    """With the two folders that the pages begin with."""

    def setUp(self):
        linux_alone("a shell of Linux")
        super().setUp()
        self.write("config/settings.ini", b"a" * 5170)
        self.write("logs/day1.txt", b"b" * 4053)
        self.write("logs/day2.dat", b"c" * 21000)

    def assert_shown(self, page, first, before=None):
        """Runs the transcript whose first command begins with `first`. What `before` has for the beginning of a command
        happens before that command."""
        found = [console for console in consoles(page) if console and console[0][0].startswith(first)]
        self.assertEqual(len(found), 1, first)
        happened = set()
        for command, expected in found[0]:
            for beginning, happens in (before or {}).items():
                if command.startswith(beginning):
                    happens()
                    happened.add(beginning)
            shown = self.shell(command, stderr=subprocess.STDOUT)
            self.assertEqual(TIME.sub("TIME", shown), TIME.sub("TIME", expected), command)
        self.assertEqual(happened, set(before or {}))

    def shell(self, script, stderr):
        """What it prints, with the orba under test on its path."""
        path = f"{pathlib.Path(ORBA).parent}:{os.environ['PATH']}"
        return subprocess.run(["bash", "-c", script], cwd=self.folder, env=self.environment({"PATH": path}),
                              timeout=LIMIT, check=False, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=stderr, encoding="utf-8").stdout

    def create(self, *names):
        for name in names:
            self.path(name).parent.mkdir(exist_ok=True)
            self.ok("create", "-q", name, "config", "logs")

    def stop_after_a_new_block(self):
        """A device lost power after it had appended a block, before anything referred to that."""
        with open(self.path("card.orb"), "ab") as container:
            container.write(bytes(1024))
        self.mark_dirty()

    def test_readme_at_the_desk(self):
        self.assert_shown("README.md", "orba create card.orb", {"orba get": self.mark_dirty})

    def test_readme_a_drawer_of_cards(self):
        self.create("cards/01.orb", "cards/02.orb")
        self.mark_dirty("cards/02.orb")
        self.assert_shown("README.md", "orba check cards/")

    def test_tour_at_work(self):
        self.assert_shown("docs/orba-tool.md", "orba format", {"orba get": self.stop_after_a_new_block})

    def test_tour_what_has_changed(self):
        for name, text in (("CONFIG.INI", b"a" * 200), ("LOGS/DAY1.TXT", b"b" * 4053), ("LOGS/DAY9.TXT", b"c")):
            self.write(f"tree/{name}", text)
        self.ok("create", "-q", "--time", "2026-11-20", "monday.orb", "tree/.")
        os.utime(self.path("monday.orb"), (1700000000, 1700000000))  # 2023
        self.ok("create", "-q", "--time", "2020-01-01", "tuesday.orb", "tree/.")
        self.write("CONFIG.INI", b"a" * 117 + b"b" * 83)
        self.ok("put", "-f", "CONFIG.INI", "tuesday.orb:/")
        self.ok("put", "-f", "logs/day2.dat", "tuesday.orb:/LOGS/DAY1.TXT")
        self.ok("put", "logs/day2.dat", "tuesday.orb:/LOGS")
        self.create("card.orb")
        self.assert_shown("docs/orba-tool.md", "orba diff")

    def test_tour_containers_from_trees(self):
        self.write("tree/settings.ini", b"a" * 5170)
        self.write("large", bytes(300000))

        def grow():
            self.ok("put", "large", "card.orb:/")
            self.ok("rm", "card.orb:/LARGE")

        self.assert_shown("docs/orba-tool.md", "orba create", {"orba compact": grow})

    def test_tour_archives(self):
        self.create("card.orb")
        self.write("maps/town.map", b"d")
        self.assert_shown("docs/orba-tool.md", "orba export card.orb - | tar t")
        self.assertEqual(self.listing(), ["CONFIG", "LOGS", "MAPS"])

    def test_tour_manifests(self):
        self.format()
        self.assert_shown("docs/orba-tool.md", "orba put --manifest")

    def test_tour_many_containers(self):
        self.create("field/card-01.orb", "field/card-02.orb", "line/0001.orb", "line/0002.orb")
        self.mark_dirty("field/card-02.orb")
        self.write("image.sha256", self.ok("manifest", "line/0001.orb").encode())
        self.assert_shown("docs/orba-tool.md", "orba check field/")

    def test_repair_with_a_damaged_container_at_hand(self):
        self.create("card.orb")
        self.write("card.sha256", self.ok("manifest", "card.orb").encode())
        os.truncate(self.path("card.orb"), 20000)
        damaged = self.read("card.orb")
        self.assert_shown("docs/repair.md", "orba check")
        self.assertEqual(self.read("card.orb"), damaged)

    def test_repair_in_a_script(self):
        script = re.search(r"^```sh\n(orba check -q.*?)^```$", (TOP / "docs/repair.md").read_text(encoding="utf-8"),
                           re.MULTILINE | re.DOTALL)[1]

        def run():
            return self.shell(script, stderr=subprocess.DEVNULL)

        self.create("card.orb")
        self.assertEqual(run(), "")
        self.assertFalse(self.path("rescued").exists())
        self.mark_dirty()
        self.assertEqual(run(), "")
        self.assertEqual(self.host_names("rescued"), ["CONFIG", "LOGS"])
        self.assert_clean()
        self.mark_dirty()
        self.assertEqual(run(), "card.orb: not repaired\n")  # card.undo is there already
        self.write("card.orb")
        self.assertEqual(run(), "card.orb: not checked\n")

    def test_json_examples(self):
        def damage_x():
            self.path("card.orb").unlink()
            self.format()
            self.put_text("card.orb:/X")
            os.truncate(self.path("card.orb"), len(self.read("card.orb")) - 4096)

        def have_logs():
            self.path("card.orb").unlink()
            self.ok("create", "-q", "card.orb", "logs")

        def have_35_files():
            for number in range(32):
                self.put_text(f"card.orb:/{number}")
            self.put_text("card.orb:/LAST")

        def change():
            self.path("card.orb").unlink()
            self.ok("create", "-q", "card.orb", "logs")
            self.ok("rm", "card.orb:/LOGS/DAY2.DAT")
            self.write("card.sha256", self.ok("manifest", "card.orb").encode())
            self.ok("put", "-f", "logs/day2.dat", "card.orb:/LOGS/DAY1.TXT")
            self.ok("put", "logs/day2.dat", "card.orb:/LOGS")

        def clear():
            for name in self.path(".").glob("*.orb"):
                name.unlink()
            self.create("card.orb", "monday.orb", "tuesday.orb")
            self.put_text("tuesday.orb:/MORE")

        self.create("card-06.orb", "card-07.orb", "card.orb")
        os.truncate(self.path("card-07.orb"), 20000)
        self.assert_shown("docs/json.md", "orba info", {
            "orba check": damage_x, "orba ls": have_logs, "orba repair": have_35_files, "orba verify": change,
            "orba diff": clear})


if __name__ == "__main__":
    unittest.main()
