"""A real tree through all that makes copies of one: create, export, import, compact, get; compared by
manifest, verify and diff."""
import os
import unittest

from support import WINDOWS, ToolTest


FILES = 300 if WINDOWS else 3000  # Wine opens them slowly


class RealTreeTest(ToolTest):
    """Files of this machine, some with names that no container holds."""

    def test_nothing_differs_after_create_export_import_verify_compact_and_get(self):
        count = 0
        for folder, _, names in os.walk("/usr/include"):
            for name in sorted(names):
                path = os.path.join(folder, name)
                if count < FILES and os.path.isfile(path) and not os.path.islink(path):
                    with open(path, "rb") as source:
                        self.write("tree" + path.removeprefix("/usr/include"), source.read())
                    count += 1
        self.assertEqual(count, FILES)
        self.ok("create", "-q", "--rename", "one.orb", "tree/.")
        self.assertEqual(self.ok("verify", "--rename", "one.orb", "tree"),
                         f"{FILES} files are the same, 0 missing, 0 changed, 0 extra\n")
        manifest = self.ok("manifest", "one.orb")
        for name in ("tree.tar", "tree.tar.gz" if WINDOWS else "tree.tar.zst", "tree.zip"):
            self.ok("export", "-q", "one.orb", name)
            self.ok("format", "-b", "8192", name + ".orb")
            self.ok("import", "-q", name, name + ".orb")
            self.assertEqual(self.ok("manifest", name + ".orb"), manifest)  # times too
            self.assert_clean(name + ".orb")
        self.ok("compact", "-q", "-b", "2048", "tree.tar.orb")
        self.assertEqual(self.ok("manifest", "tree.tar.orb"), manifest)
        self.assertEqual(self.ok("diff", "one.orb", "tree.tar.orb"), "")
        self.assert_clean("tree.tar.orb")
        for name in ("one.orb", "tree.tar.orb"):
            self.ok("get", "-q", "--verify", name, name + ".got")
        self.assertEqual(self.contents("one.orb.got"), self.contents("tree.tar.orb.got"))
        self.assertEqual(self.ok("verify", "tree.zip.orb", "one.orb.got"),
                         f"{FILES} files are the same, 0 missing, 0 changed, 0 extra\n")


if __name__ == "__main__":
    unittest.main()
