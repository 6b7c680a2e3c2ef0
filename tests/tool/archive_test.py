"""export and import: between containers and tar or zip archives."""
import errno
import gzip
import io
import os
import subprocess
import tarfile
import unittest
import zipfile

from support import BLOCK_1, NODE_SIZE, PROGRAM, WINDOWS, ToolTest, linux_alone, obey_modes, turns

FORMATS = ["tar", "tar.gz", *([] if WINDOWS else ["tar.bz2", "tar.xz", "tar.zst"]), "zip"]
DAY = 1582934399  # 2020-02-28 23:59:59
MISSING_BLOCK = (1 << 20).to_bytes(4, "little")  # a block number beyond the container's end


def tar(*members):
    """A tar archive of (name, contents or None for a directory or a changed TarInfo)."""
    archive = io.BytesIO()
    with tarfile.open(fileobj=archive, mode="w") as writer:
        for name, contents in members:
            info = contents if isinstance(contents, tarfile.TarInfo) else tarfile.TarInfo(name)
            if contents is None:
                info.type = tarfile.DIRTYPE
            data = contents if isinstance(contents, bytes) else b""
            info.size = len(data)
            writer.addfile(info, io.BytesIO(data))
    return archive.getvalue()


def special(name, kind, target=""):
    info = tarfile.TarInfo(name)
    info.type, info.linkname = kind, target
    return name, info


class ExportTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("tree/logs/day1.txt", b"monday")
        self.write("tree/big.bin", bytes(range(256)) * 3000)
        self.write("tree/empty", b"")
        self.path("tree/nothing").mkdir()
        for name in ("tree/logs/day1.txt", "tree/logs", "tree/big.bin", "tree/nothing"):
            os.utime(self.path(name), (DAY, DAY))
        self.ok("create", "-q", "card.orb", "tree/.")
        self.ok("attrib", "+r", "card.orb:/EMPTY")
        self.ok("attrib", "+u", "card.orb:/BIG.BIN")

    def everything(self, name="card.orb"):
        """Contents, attributes and times of all that a container holds."""
        return self.ok("manifest", name) + self.ok("ls", "-lR", name).replace(name, "")

    def system(self, *command, **options):
        return subprocess.run(command, cwd=self.folder, capture_output=True, check=True,
                              env=self.environment({"TZ": "UTC"}), **options)

    def test_export_is_what_tar_lists_and_unpacks(self):
        archive = self.orba("export", "card.orb", "-")
        self.assertEqual((archive.status, archive.err), (0, ""))
        listed = self.system("tar", "tv", "--full-time", input=archive.raw)
        self.assertEqual(listed.stderr, b"")
        lines = [" ".join(line.split()) for line in listed.stdout.decode().splitlines()]
        self.assertEqual([line for line in lines if "EMPTY" not in line],
                         ["-rw-r--r-- 0/0 768000 2020-02-28 23:59:59 BIG.BIN",
                          "drwxr-xr-x 0/0 0 2020-02-28 23:59:59 LOGS/",
                          "-rw-r--r-- 0/0 6 2020-02-28 23:59:59 LOGS/DAY1.TXT",
                          "drwxr-xr-x 0/0 0 2020-02-28 23:59:59 NOTHING/"])
        self.path("out").mkdir()
        self.system("tar", "x", "-C", "out", input=archive.raw)
        self.assertEqual(self.contents("out"), {"BIG.BIN": self.read("tree/big.bin"), "EMPTY": b"", "LOGS": None,
                                                "LOGS/DAY1.TXT": b"monday", "NOTHING": None})
        self.assertEqual(self.orba("export", "card.orb").raw, archive.raw)

    def test_export_keeps_attributes_in_extended_headers(self):
        with tarfile.open(fileobj=io.BytesIO(self.orba("export", "card.orb").raw)) as archive:
            headers = {member.name: member.pax_headers for member in archive}
        self.assertEqual(headers, {"BIG.BIN": {"SCHILY.xattr.user.orba.attributes": "u"},
                                   "EMPTY": {"SCHILY.xattr.user.orba.attributes": "r"},
                                   "LOGS": {}, "LOGS/DAY1.TXT": {}, "NOTHING": {}})

    def test_export_has_names_from_the_place_on(self):
        with tarfile.open(fileobj=io.BytesIO(self.orba("export", "card.orb:/LOGS").raw)) as archive:
            self.assertEqual(archive.getnames(), ["DAY1.TXT"])
        with tarfile.open(fileobj=io.BytesIO(self.orba("export", "card.orb:/LOGS/day1.txt").raw)) as archive:
            self.assertEqual(archive.getnames(), ["DAY1.TXT"])

    def test_export_and_import_change_nothing_in_every_format(self):
        for name in (*FORMATS, "tgz"):
            self.ok("export", "-q", "card.orb", "card." + name)
            self.ok("format", name + ".orb")
            self.ok("import", "-q", "card." + name, name + ".orb")
            expected = self.everything()
            if name == "zip":
                expected = expected.replace("-r--", "----").replace("---u", "----")
            self.assertEqual(self.everything(name + ".orb"), expected, name)
            self.assert_clean(name + ".orb")
        self.assertLess(len(self.read("card.tar.gz")), 100000)
        self.assertEqual(self.read("card.tar.gz"), self.read("card.tgz"))
        self.system("unzip", "-tq", "card.zip")

    def test_export_to_zip_leaves_out_and_reports_times_that_zip_cannot_hold(self):
        self.format("old.orb")
        for node, year in ((2, 1969), (3, 1970), (4, 2106), (5, 2108)):  # a device's clock may stand anywhere
            self.put_text(f"old.orb:/{year}")
            self.set_time(node, (year, 1, 1, 0, 0, 0), "old.orb")
        result = self.orba("export", "-q", "old.orb", "old.zip")
        self.assertEqual((result.status, result.out), (0, ""))
        self.assertEqual(result.err, "".join(
            f"orba: warning: the time of {year} is left out: zip holds those from 1970 to 2106 alone\n"
            for year in (1969, 2108)))
        self.format("new.orb")
        self.ok("import", "-q", "old.zip", "new.orb")
        lines = {line.split()[-1]: line.split()[2] for line in self.ok("ls", "-l", "new.orb").splitlines()}
        self.assertEqual((lines["1970"], lines["2106"]), ("1970-01-01", "2106-01-01"))

    def test_export_to_tar_keeps_times_before_1970_and_after_2106(self):
        linux_alone("times before 1970, which the library for archives reads as none on Windows")
        self.format("old.orb")
        for node, year in ((2, 1969), (3, 2108)):
            self.put_text(f"old.orb:/{year}")
            self.set_time(node, (year, 1, 1, 0, 0, 0), "old.orb")
        self.ok("export", "-q", "old.orb", "old.tar")
        self.format("tar.orb")
        self.ok("import", "-q", "old.tar", "tar.orb")
        self.ok("diff", "--time", "old.orb", "tar.orb")

    def test_export_refuses_a_name_without_a_format(self):
        message = self.fails(16, "export", "card.orb", "card.rar")
        self.assertIn("the name card.rar says no format; it has to end in one of ."
                      f"{', .'.join(FORMATS)}, or give --format", message)
        self.ok("export", "--format", "zip", "card.orb", "card.rar")
        with zipfile.ZipFile(self.path("card.rar")) as archive:
            self.assertEqual(archive.read("LOGS/DAY1.TXT"), b"monday")
        self.assertIn("cannot both be printed", self.fails(16, "export", "-v", "card.orb"))

    def test_export_overwrites_only_with_force(self):
        self.write("card.tar", b"kept")
        self.assertIn("cannot write card.tar: File exists", self.fails(1, "export", "card.orb", "card.tar"))
        self.assertEqual(self.read("card.tar"), b"kept")
        self.ok("export", "-f", "card.orb", "card.tar")
        self.assertEqual(self.read("card.tar"), self.orba("export", "card.orb").raw)

    def test_export_prints_no_archive_on_a_terminal(self):
        result = self.on_terminal("export", "card.orb")
        self.assertEqual(result.status, 1)
        self.assertIn("cannot print an archive on a terminal", result.out)

    def test_export_ends_when_nobody_reads_on(self):
        with subprocess.Popen([*PROGRAM, "export", "card.orb"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              cwd=self.folder) as process:
            process.stdout.read(1)
            process.stdout.close()
            self.assertEqual((process.stderr.read(), process.wait()), (b"", 1))

    def test_export_of_a_marked_read_only_container_warns(self):
        self.mark_dirty()
        self.path("card.orb").chmod(0o400)
        before = self.read("card.orb")
        result = self.orba("export", "card.orb", "card.tar")
        self.assertEqual(result.status, 0)
        self.assertIn("card.orb is marked", result.err)
        self.assertEqual(self.read("card.orb"), before)

    def test_export_of_a_damaged_container_leaves_out_what_cannot_be_read(self):
        self.format("bad.orb")
        for name in ("A", "B", "C"):
            self.put_text("bad.orb:/" + name, name * 9000)
        self.patch("bad.orb", BLOCK_1 + 2 * NODE_SIZE + 36, MISSING_BLOCK)  # of B, the second block
        for name in ("bad.tar", "bad.zip"):
            result = self.orba("export", "bad.orb", name)
            self.assertEqual((result.status, result.out), (1, ""))
            self.assertIn("cannot read bad.orb:/B beyond byte 4096", result.err)
            self.assertIn("orba recover bad.orb DIR", result.err)
            self.format(name + ".orb")
            self.ok("import", name, name + ".orb")
            self.assertEqual(self.ok("cat", f"{name}.orb:/A", f"{name}.orb:/C"), "A" * 9000 + "C" * 9000)
            self.assertEqual(self.listing(name + ".orb"), ["A", "C"])

    def test_export_on_a_full_disk_leaves_no_archive(self):
        _, calls = self.host_calls("export", "-q", "card.orb", "card.tar")
        self.path("card.tar").unlink()
        writes = [call for call in calls if call.startswith("write")]
        self.assertGreater(len(writes), 5)
        for number in turns(len(writes)):
            status, _ = self.host_calls("export", "-q", "card.orb", "card.tar", at=f"write * {number} {errno.ENOSPC}")
            self.assertEqual(status, 1)
            self.assertEqual(self.host_names(), ["card.orb", "tree"])

    def test_export_killed_leaves_all_or_none(self):
        _, calls = self.host_calls("export", "-q", "card.orb", "card.tar")
        whole = self.read("card.tar")
        seen = set()
        for number in turns(len(calls)):
            for name in self.host_names():
                if name == "card.tar" or name.startswith(".orba-"):
                    self.path(name).unlink()
            status, _ = self.host_calls("export", "-q", "card.orb", "card.tar", at=f"any * {number} kill")
            self.assertEqual(status, -9)
            seen.add(self.path("card.tar").exists())
            if self.path("card.tar").exists():
                self.assertEqual(self.read("card.tar"), whole)
        self.assertEqual(seen, {False, True})


class ImportTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.format()
        self.before = self.read("card.orb")

    def imports(self, archive, *options):
        self.write("a.tar", archive)
        return self.ok("import", *options, "a.tar", "card.orb")

    def refuses(self, archive, why, *options):
        """The archive is refused with these words, and nothing of it is imported, from a file and from a pipe."""
        self.write("a.tar", archive)
        for name, stdin in (("a.tar", b""), ("-", archive)):
            message = self.fails(1, "import", *options, name, "card.orb", stdin=stdin)
            self.assertIn(why, message)
            self.assertTrue(message.endswith("orba: nothing was imported\n"), message)
            self.assertEqual(self.read("card.orb"), self.before)

    def test_import_from_standard_input_into_a_directory(self):
        self.ok("mkdir", "card.orb:/D")
        self.assertEqual(self.ok("import", "-v", "-", "card.orb:/D", stdin=tar(("./x/y", b"1"), ("z", b"2"))),
                         "./x/y -> card.orb:/D/X/Y\nz -> card.orb:/D/Z\n")
        self.assertEqual(self.ok("cat", "card.orb:/D/X/Y", "card.orb:/D/Z"), "12")
        self.assert_clean()

    def test_import_of_what_reads_the_same_container(self):
        self.put_text("card.orb:/A", "abc")
        self.ok("mkdir", "card.orb:/COPY")
        with subprocess.Popen([*PROGRAM, "export", "card.orb", "-"], stdout=subprocess.PIPE, cwd=self.folder) as writer:
            done = subprocess.run([*PROGRAM, "import", "-", "card.orb:/COPY"], stdin=writer.stdout, cwd=self.folder,
                                  check=False)
        self.assertEqual((done.returncode, self.ok("cat", "card.orb:/COPY/A")), (0, "abc"))

    def test_import_keeps_times_and_attributes(self):
        info = tarfile.TarInfo("D/X")
        info.mtime = DAY
        info.pax_headers = {"SCHILY.xattr.user.orba.attributes": "ru"}
        folder = tarfile.TarInfo("D")
        folder.type, folder.mtime = tarfile.DIRTYPE, DAY + 1
        self.imports(tar(("D", folder), ("D/X", info)))
        self.assertIn("-r-u  0  2020-02-28 23:59:59  X", self.ok("ls", "-l", "card.orb:/D"))
        self.assertIn("2020-02-29 00:00:00  D", self.ok("ls", "-l", "card.orb"))
        self.assert_clean()

    def test_import_refuses_hostile_members(self):
        for member, why in (
                (("/etc/passwd", b"x"), "cannot import /etc/passwd: its name is absolute"),
                (("a/../../x", b"x"), "cannot import a/../../x: its name leads out of the archive by \"..\""),
                (("..", None), "its name leads out"),
                (special("l", tarfile.SYMTYPE, "/etc"), "cannot import l: it is a symbolic link"),
                (special("l", tarfile.LNKTYPE, "ok"), "cannot import l: it is a hard link"),
                (special("p", tarfile.FIFOTYPE), "cannot import p: it is a pipe"),
                (special("d", tarfile.CHRTYPE), "cannot import d: it is a device"),
                (special("d", tarfile.BLKTYPE), "cannot import d: it is a device"),
                (("ok", b"again"), "cannot import ok: it stands twice in the archive"),
                (("ok/x", b"x"), "cannot import ok/x: a file of the archive stands in its way"),
                (("OK", b"x"), "is the same but for letter case (ORB_ERROR_FILE_EXISTS, 0x30000015)"),
                (("a b", b"x"), "cannot import a b: its name cannot be stored: it holds \" \" (ORB_ERROR_INVALID_NAME"),
                (("n" * 30, b"x"), "it has 30 characters"),
                (("a\\b", b"x"), "it holds \"\\\""),
                (("C:x", b"x"), "it holds \":\""),
                (("~ORBA-1.TMP", b"x"), "this name is kept for files that are being written"),
                (("/".join("d" * 600), b"x"), "it lies more than 512 directories deep")):
            with self.subTest(why):
                self.refuses(tar(("ok", b"ok"), member), why)

    def test_import_rename_makes_names_legal_but_obeys_no_hostile_one(self):
        self.assertEqual(self.imports(tar(("a b/x", b"1"), ("A_B/x", b"2"), ("C:\\x", b"3")), "--rename"),
                         "C:\\x -> card.orb:/C__X\na b -> card.orb:/A_B~1\n")
        self.assertEqual(self.ok("cat", "card.orb:/A_B/X", "card.orb:/A_B~1/X", "card.orb:/C__X"), "213")
        self.before = self.read("card.orb")
        for name in ("/x", "../x"):
            self.refuses(tar((name, b"x")), "its name", "--rename")

    def test_import_of_what_is_no_archive_fails(self):
        whole = tar(("x", bytes(20000)))
        for text in (b"", b"text", b"\0" * 100, whole[:5000], os.urandom(3000), self.before):
            message = self.fails(1, "import", "-", "card.orb", stdin=text)
            self.assertIn("cannot read - as an archive: ", message)
            self.assertEqual(self.read("card.orb"), self.before)
        self.assertIn("cannot read nowhere: No such file", self.fails(1, "import", "nowhere", "card.orb"))

    def test_import_into_what_is_no_directory_fails(self):
        self.put_text("card.orb:/F")
        self.write("a.tar", tar(("x", b"x")))
        self.assertIn("ORB_ERROR_FILE_NOT_FOUND", self.fails(1, "import", "a.tar", "card.orb:/NO"))
        self.assertIn("ORB_ERROR_NOT_A_DIRECTORY", self.fails(1, "import", "a.tar", "card.orb:/F"))
        self.assertIn("no.orb", self.fails(1, "import", "a.tar", "no.orb"))

    def test_import_overwrites_only_with_force(self):
        self.put_text("card.orb:/X", "old")
        self.before = self.read("card.orb")
        archive = tar(("x", b"new"), ("y", b"y"))
        self.refuses(archive, "cannot write card.orb:/X: it exists (ORB_ERROR_FILE_EXISTS")
        self.assertEqual(self.imports(archive, "-n"), "")
        self.assertEqual(self.ok("cat", "card.orb:/X", "card.orb:/Y"), "oldy")
        self.imports(archive, "-f")
        self.assertEqual(self.ok("cat", "card.orb:/X"), "new")
        self.ok("attrib", "+r", "card.orb:/X")
        self.before = self.read("card.orb")
        self.refuses(archive, "it is read-only", "-f")

    def test_import_fills_up_directories_that_are_there(self):
        self.ok("mkdir", "card.orb:/D")
        self.put_text("card.orb:/D/OLD")
        self.imports(tar(("d", None), ("d/new", b"")))
        self.assertEqual(self.listing("card.orb:/D"), ["NEW", "OLD"])
        self.put_text("card.orb:/F")
        self.before = self.read("card.orb")
        self.refuses(tar(("f/x", b"")), "cannot write card.orb:/F: a file of this name is there")

    def test_import_of_more_than_there_is_room_for_imports_nothing(self):
        self.ok("format", "-n", "8", "small.orb")
        self.write("a.tar", tar(*[(f"f{number}", b"x") for number in range(8)]))
        before = self.read("small.orb")
        self.assertIn("it has room for 7 more (ORB_ERROR_NO_FREE_NODE", self.fails(1, "import", "a.tar", "small.orb"))
        self.assertEqual(self.read("small.orb"), before)

    def test_import_of_a_bomb_is_refused_at_once(self):
        info = tarfile.TarInfo("huge")
        info.size = 1 << 40
        self.refuses(info.tobuf(tarfile.PAX_FORMAT), "it has 1099511627776 bytes, and with blocks of 4096 bytes")
        many = gzip.compress(tarfile.TarInfo("x").tobuf() * 140000, compresslevel=1)
        self.refuses(many, "the archive has more files and directories than any container holds")

    def test_import_of_an_encrypted_zip_is_refused(self):
        with zipfile.ZipFile(self.path("a.zip"), "w") as archive:
            archive.writestr("x", b"secret")
        contents = bytearray(self.read("a.zip"))
        for signature, offset in ((b"PK\x03\x04", 6), (b"PK\x01\x02", 8)):
            contents[contents.index(signature) + offset] |= 1
        self.refuses(bytes(contents), "cannot import x: it is encrypted")

    def test_import_of_a_damaged_zip_names_no_incomplete_file(self):
        with zipfile.ZipFile(self.path("a.zip"), "w") as archive:
            archive.writestr("one", b"1" * 10000)
            archive.writestr("two", b"2" * 10000)
        contents = self.read("a.zip").replace(b"1" * 100, b"1" * 99 + b"7", 1)
        result = self.orba("import", "-", "card.orb", stdin=contents)
        self.assertEqual(result.status, 1, result)
        self.assertIn("cannot read one in -: ", result.err)
        self.assertNotIn("\\x0A", result.err)
        self.assertEqual(self.listing(), ["TWO"])
        self.assert_clean()

    def test_import_on_a_full_disk_leaves_whole_files(self):
        archive = tar(*[(f"f{number}", bytes([number]) * 5000) for number in range(2)])
        self.write("a.tar", archive)
        _, calls = self.host_calls("import", "-q", "a.tar", "card.orb")
        writes = [call for call in calls if call.startswith("write")]
        for number in turns(len(writes)):
            self.write("card.orb", self.before)
            status, _ = self.host_calls("import", "-q", "a.tar", "card.orb",
                                        at=f"write card.orb {number} {errno.ENOSPC}")
            self.assertEqual(status, 1)
            self.assertIn(self.orba("repair", "-q", "card.orb").status, (0, 1))
            for name in self.listing():
                if name.startswith("F"):
                    self.assertEqual(self.orba("cat", f"card.orb:/{name}").raw, bytes([int(name[1])]) * 5000)

    def test_import_killed_leaves_whole_files_and_is_completed_by_no_clobber(self):
        archive = tar(*[(f"f{number}", bytes([number]) * 5000) for number in range(2)])
        self.write("a.tar", archive)
        _, calls = self.host_calls("import", "-q", "a.tar", "card.orb")
        for number in turns(len(calls)):
            self.write("card.orb", self.before)
            status, _ = self.host_calls("import", "-q", "a.tar", "card.orb", at=f"any * {number} kill")
            self.assertEqual(status, -9)
            self.assertIn(self.orba("repair", "-q", "card.orb").status, (0, 1))
            self.assertEqual(self.orba("import", "-n", "-q", "a.tar", "card.orb").status, 0)
            self.assertEqual(self.listing(), ["F0", "F1"])
            for name in self.listing():
                self.assertEqual(self.orba("cat", f"card.orb:/{name}").raw, bytes([int(name[1])]) * 5000)
            self.assert_clean()

    def test_import_of_a_marked_or_read_only_container_is_refused(self):
        self.write("a.tar", tar(("x", b"x")))
        self.mark_dirty()
        self.assertIn("ORB_ERROR_NOT_CLEAN", self.fails(1, "import", "a.tar", "card.orb"))
        self.write("card.orb", self.before)
        self.path("card.orb").chmod(0o400)
        self.assertIn("ORB_ERROR_ACCESS_DENIED",
                      self.fails(1, "import", "a.tar", "card.orb", preexec_fn=obey_modes))
        self.assertEqual(self.read("card.orb"), self.before)


if __name__ == "__main__":
    unittest.main()
