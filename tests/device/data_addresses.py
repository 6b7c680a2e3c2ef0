"""Tells the linker where the data that a DLL exports will lie once it is loaded: data_addresses.py DEF DLL BASE"""

import sys

import images

definition, dll, base = sys.argv[1:]
rvas = images.exports(dll)
for name, is_data in images.export_list(definition).items():
    if is_data:
        print(f"{name} = {int(base, 0) + rvas[name]:#x};")
