"""Checks what script/dist built: image_test.py DIST OBJECTS

DIST holds the images, OBJECTS what they were linked from. llvm-readobj and binutils tell what is in them, so nothing
here rests on elf2pe's own idea of its work.
"""

import os
import re
import struct
import subprocess
import sys
import tempfile
import unittest

import images

DIST = OBJECTS = ""
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
EXPORT_LISTS = {"orba": os.path.join(ROOT, "src/interface/orba.def"),
                "memfile": os.path.join(ROOT, "memfile/memfile.def")}
IMPORT_LIST = os.path.join(ROOT, "src/platform/ce/coredll.def")

CODE, READ_ONLY, READ_WRITE, RELOCATIONS = 0x60000020, 0x40000040, 0xC0000040, 0x42000040
SECTION_FLAGS = {".text": CODE, ".rdata": READ_ONLY, ".data": READ_WRITE, ".idata": READ_WRITE, ".edata": READ_ONLY,
                 ".reloc": RELOCATIONS}
LINKED_BASE, MOVED_BASE = 0x10000000, 0x24680000


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def file_bytes(path):
    with open(path, "rb") as file:
        return file.read()


def elf_memory(elf):
    """What the ELF image holds from its first loaded byte, one page above its base, on."""
    with tempfile.NamedTemporaryFile() as flat:
        run("arm-none-eabi-objcopy", "-O", "binary", elf, flat.name)
        return flat.read()


def disassembly(elf, *options):
    """Address -> instruction, of code only; data among it is known by its mapping symbols."""
    text = run("arm-none-eabi-objdump", "-d", "-j", ".text", *options, elf)
    lines = re.findall(r"^ *([0-9a-f]+):\t[0-9a-f ]+\t(.+)$", text, re.M)
    return {int(address, 16): instruction for address, instruction in lines}


def differs_from(processor, elf):
    """The number of instructions, and the addresses of those that mean something else, or nothing, to a processor."""
    with tempfile.NamedTemporaryFile() as plain:
        run("arm-none-eabi-objcopy", "-R", ".ARM.attributes", elf, plain.name)
        for_any = disassembly(plain.name)
        for_processor = disassembly(plain.name, "-m", processor)
    return len(for_any), [hex(address) for address in for_any if for_any[address] != for_processor.get(address)]


def pe_checksum(data):
    """Of a file whose own checksum field was set to zero."""
    total = sum(struct.unpack(f"<{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return total + len(data)


class DeviceImage:
    """The checks that every device image must pass; subclasses say which one."""

    build = image = machine = version = thumb = None

    def setUp(self):
        self.dll = os.path.join(DIST, self.build, self.image + ".dll")
        self.elf = os.path.join(OBJECTS, self.build, self.image + ".elf")
        self.exports = images.export_list(EXPORT_LISTS[self.image])

    def test_image_headers_say_windows_ce(self):
        headers = images.headers(self.dll)
        self.assertEqual(self.machine, headers["Machine"])
        self.assertEqual(9, headers["Subsystem"])
        self.assertEqual(self.version, (headers["MajorSubsystemVersion"], headers["MinorSubsystemVersion"]))
        self.assertEqual(0x10B, headers["Magic"])
        self.assertEqual(0x210E, headers["Characteristics"])
        self.assertEqual((0x1000, 0x200), (headers["SectionAlignment"], headers["FileAlignment"]))
        self.assertEqual(LINKED_BASE, headers["ImageBase"])
        self.assertEqual(0, headers["TimeDateStamp"])

    def test_image_sections_have_their_flags_and_no_others_exist(self):
        sections = images.sections(self.dll)
        expected = [name for name in SECTION_FLAGS if name != ".rdata" or ".rdata" in sections]
        self.assertEqual(expected, list(sections))
        for name, (_, _, _, _, flags) in sections.items():
            self.assertEqual(SECTION_FLAGS[name], flags, name)

    def test_image_imports_are_on_the_list_and_from_coredll(self):
        imports = images.imports(self.dll)
        self.assertEqual(["COREDLL.dll"], list(imports))
        allowed = images.export_list(IMPORT_LIST)
        self.assertEqual([], [name for name in imports["COREDLL.dll"] if name not in allowed])
        self.assertGreater(len(imports["COREDLL.dll"]), 0)

    def test_image_exports_are_the_list_sorted(self):
        self.assertEqual(sorted(self.exports), list(images.exports(self.dll)))

    def test_image_exports_lie_where_their_kind_belongs(self):
        sections = images.sections(self.dll)
        for name, rva in images.exports(self.dll).items():
            start, size, _, _, _ = sections[".data" if self.exports[name] else ".text"]
            self.assertTrue(start <= rva < start + size, name)
            if not self.exports[name]:
                self.assertEqual(1 if self.thumb else 0, rva & 1, name)

    def test_image_base_relocations_cover_exactly_what_moves_with_the_image(self):
        linked = elf_memory(self.elf)
        moved = elf_memory(self.elf.replace(".elf", "-moved.elf"))
        self.assertEqual(len(linked), len(moved))
        linked += bytes(-len(linked) % 4)
        moved += bytes(-len(moved) % 4)
        words = list(zip(struct.unpack(f"<{len(linked) // 4}I", linked), struct.unpack(f"<{len(moved) // 4}I", moved)))
        differing = [0x1000 + 4 * i for i, (here, there) in enumerate(words) if here != there]
        for rva in differing:
            here, there = words[(rva - 0x1000) // 4]
            self.assertEqual(MOVED_BASE - LINKED_BASE, (there - here) & 0xFFFFFFFF, hex(rva))
        self.assertGreater(len(differing), 0)
        self.assertEqual([("HIGHLOW", rva) for rva in differing],
                         [entry for entry in images.relocations(self.dll) if entry[0] != "ABSOLUTE"])

    def test_image_contents_are_what_was_linked(self):
        linked = elf_memory(self.elf)
        data = file_bytes(self.dll)
        for name, (rva, size, offset, raw_size, _) in images.sections(self.dll).items():
            if name in (".text", ".rdata", ".data"):
                loaded = data[offset:offset + raw_size].ljust(size, b"\0")[:size]
                self.assertEqual(linked[rva - 0x1000:rva - 0x1000 + size].ljust(size, b"\0"), loaded, name)

    def test_image_elf_has_nothing_to_run_or_bind_at_start(self):
        names = re.findall(r"^ *\[ *\d+\] (\S+)", run("arm-none-eabi-readelf", "-S", "-W", self.elf), re.M)
        self.assertIn(".text", names)
        bound = re.compile(r"\.(preinit_|init_|fini_)array|\.[cd]tors|\.got|\.plt|\.dyn")
        starting = [name for name in names if bound.match(name)]
        self.assertEqual([], starting)

    def test_image_checksum_is_right(self):
        data = bytearray(file_bytes(self.dll))
        field = struct.unpack_from("<I", data, 60)[0] + 24 + 64
        stored = struct.unpack_from("<I", data, field)[0]
        struct.pack_into("<I", data, field, 0)
        self.assertEqual(pe_checksum(data), stored)


class OldImage(DeviceImage):
    """Code for a processor of long ago, from start to end."""

    processor = architecture = None

    def test_image_attributes_say_its_architecture(self):
        objects = [os.path.join(OBJECTS, self.build, name) for name in os.listdir(os.path.join(OBJECTS, self.build))]
        objects = [name for name in objects if name.endswith((".o", ".elf"))]
        self.assertIn(self.elf, objects)
        for name in objects:
            attributes = run("arm-none-eabi-readelf", "-A", name)
            self.assertEqual([self.architecture], re.findall(r"Tag_CPU_arch: (\S+)", attributes), name)

    def test_image_code_is_of_its_processor_throughout(self):
        count, later = differs_from(self.processor, self.elf)
        self.assertGreater(count, 200)
        self.assertEqual([], later)


class Armv4Image(OldImage):
    build, machine, version, thumb = "ce-armv4", 0x1C0, (4, 0), False
    processor, architecture, limit = "armv4", "v4", 20 * 1024

    def test_image_code_never_branches_to_thumb(self):
        code = disassembly(self.elf).values()
        self.assertEqual([], [instruction for instruction in code if re.match(r"bl?x", instruction)])


class Armv4iImage(OldImage):
    build, machine, version, thumb = "ce-armv4i", 0x1C2, (5, 0), True
    processor, architecture, limit = "armv4t", "v4T", 13824

    def test_image_code_returns_to_either_kind_of_code(self):
        # A load into pc stays in Thumb code on ARMv4T, and its callers may be ARM code.
        code = disassembly(self.elf).values()
        self.assertEqual([], [instruction for instruction in code if re.match(r"pop\s.*\bpc\b", instruction)])
        self.assertGreater(len([instruction for instruction in code if re.match(r"bx\s", instruction)]), 4)


class Armv7Image(DeviceImage):
    build, machine, version, thumb = "ce-armv7", 0x1C4, (8, 0), True


class LimitedCode:
    def test_image_code_fits_its_limit(self):
        sections = images.sections(self.dll)
        size = sections[".text"][1] + sections[".rdata"][1]
        self.assertLessEqual(size, self.limit)


class Armv4Orba(LimitedCode, Armv4Image, unittest.TestCase):
    image = "orba"


class Armv4Memfile(Armv4Image, unittest.TestCase):
    image = "memfile"


class Armv4iOrba(LimitedCode, Armv4iImage, unittest.TestCase):
    image = "orba"


class Armv4iMemfile(Armv4iImage, unittest.TestCase):
    image = "memfile"


class Armv7Orba(Armv7Image, unittest.TestCase):
    image = "orba"


class Armv7Memfile(Armv7Image, unittest.TestCase):
    image = "memfile"


class DesktopImage:
    image = None

    def setUp(self):
        self.dll = os.path.join(DIST, "win64", self.image + ".dll")

    def test_image_headers_say_windows_x64(self):
        headers = images.headers(self.dll)
        self.assertEqual(0x8664, headers["Machine"])
        self.assertEqual(0x20B, headers["Magic"])
        self.assertEqual(0x2000, headers["Characteristics"] & 0x2000)
        self.assertEqual(0, headers["TimeDateStamp"])

    def test_image_imports_are_kernel_and_c_runtime(self):
        self.assertEqual({"KERNEL32.dll", "msvcrt.dll"}, set(images.imports(self.dll)))

    def test_image_exports_are_the_list_sorted(self):
        self.assertEqual(sorted(images.export_list(EXPORT_LISTS[self.image])), list(images.exports(self.dll)))


class DesktopOrba(DesktopImage, unittest.TestCase):
    image = "orba"


class DesktopMemfile(DesktopImage, unittest.TestCase):
    image = "memfile"


class DesktopTool(unittest.TestCase):
    def setUp(self):
        self.program = os.path.join(DIST, "win64", "orba.exe")

    def test_tool_headers_say_a_console_program_for_windows_x64(self):
        headers = images.headers(self.program)
        self.assertEqual((0x8664, 0x20B, 3), (headers["Machine"], headers["Magic"], headers["Subsystem"]))
        self.assertEqual(0, headers["Characteristics"] & 0x2000)
        self.assertEqual(0, headers["TimeDateStamp"])

    def test_tool_imports_are_part_of_windows(self):
        self.assertEqual({"ADVAPI32.dll", "KERNEL32.dll", "bcrypt.dll", "msvcrt.dll"},
                         set(images.imports(self.program)))


class ExportList(unittest.TestCase):
    def test_export_list_orba_has_48_functions_and_6_counters(self):
        kinds = list(images.export_list(EXPORT_LISTS["orba"]).values())
        self.assertEqual((48, 6), (kinds.count(False), kinds.count(True)))


class Disassembler(unittest.TestCase):
    """That the check for later instructions finds some where there are some."""

    def test_disassembler_later_instructions_are_found(self):
        source = ".arch armv7-a\n.arm\nmov r0, r1\nclz r0, r1\nblx r2\nmovw r0, #4\nldrd r0, r1, [r2]\nbx lr\n"
        with tempfile.NamedTemporaryFile(suffix=".o") as made:
            subprocess.run(["arm-none-eabi-as", "-o", made.name, "-"], input=source, check=True, text=True)
            self.assertEqual((6, ["0x4", "0x8", "0xc", "0x10"]), differs_from("armv4t", made.name))
            self.assertEqual((6, ["0x4", "0x8", "0xc", "0x10", "0x14"]), differs_from("armv4", made.name))


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    DIST, OBJECTS = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
