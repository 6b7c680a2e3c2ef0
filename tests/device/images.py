"""What llvm-readobj says about a PE image, as plain Python values."""

import re
import subprocess


def _readobj(image, *options):
    return subprocess.run(["llvm-readobj-14", *options, image], check=True, capture_output=True, text=True).stdout


def _blocks(text, kind):
    """The bodies of all `kind { ... }` blocks that hold no further braces, and of those that start a line."""
    return re.findall(rf"^ *{kind} \{{\n(.*?)^ *\}}", text, re.M | re.S)


def _field(block, name):
    found = re.search(rf"^ *{name}: (.*)$", block, re.M)
    if found is None:
        raise ValueError(f"no {name} in the output of llvm-readobj")
    return found.group(1)


def _number(text):
    """The number in "0x10", "16", or "NAME (0x10)"."""
    named = re.search(r"\((0x[0-9A-Fa-f]+)\)$", text)
    return int(named.group(1) if named else text, 0)


def headers(image):
    text = _readobj(image, "--file-headers")
    numbers = ["Machine", "TimeDateStamp", "Magic", "AddressOfEntryPoint", "ImageBase", "SectionAlignment",
               "FileAlignment", "MajorSubsystemVersion", "MinorSubsystemVersion", "SizeOfImage", "Subsystem",
               "BaseRelocationTableSize"]
    values = {name: _number(_field(text, name)) for name in numbers}
    flags = re.search(r"^  Characteristics \[ \((0x[0-9A-F]+)\)", text, re.M)
    values["Characteristics"] = int(flags.group(1), 16)
    return values


def sections(image):
    """Name -> (rva, size in memory, offset in the file, size there, flags), in the order of the file."""
    result = {}
    for block in _blocks(_readobj(image, "--sections"), "Section"):
        flags = re.search(r"Characteristics \[ \((0x[0-9A-F]+)\)", block)
        result[_field(block, "Name").split(" ")[0]] = (
            _number(_field(block, "VirtualAddress")), _number(_field(block, "VirtualSize")),
            _number(_field(block, "PointerToRawData")), _number(_field(block, "RawDataSize")), int(flags.group(1), 16))
    return result


def imports(image):
    """Library -> names."""
    result = {}
    for block in _blocks(_readobj(image, "--coff-imports"), "Import"):
        result[_field(block, "Name")] = re.findall(r"^ *Symbol: (\S+)", block, re.M)
    return result


def exports(image):
    """Name -> rva, in the order of the image."""
    return {_field(block, "Name"): _number(_field(block, "RVA"))
            for block in _blocks(_readobj(image, "--coff-exports"), "Export")}


def relocations(image):
    """[(kind, rva)]"""
    return [(_field(block, "Type"), _number(_field(block, "Address")))
            for block in _blocks(_readobj(image, "--coff-basereloc"), "Entry")]


def export_list(path):
    """What a .def file exports: name -> whether it is data."""
    with open(path) as file:
        lines = re.findall(r"^[ \t]+([A-Za-z0-9_]+)([ \t]+DATA)?", file.read(), re.M)
    return {name: bool(data) for name, data in lines}
