#!/usr/bin/env python3
"""Checks a finished executable: what it exports, what it depends on, what it runs on.

    check_binary.py [--imports] NAMES_INC FILE...

The same promises hold for each FILE, ELF or Mach-O:

  - it exports exactly the functions of NAMES_INC, so the lists of all systems are one list
  - it does not depend on the probe library, which is only opened at run time
  - Mach-O: it depends on the four libraries below and no other, is position independent, binds
    names to libraries, and asks for no newer system than MINIMUM_OS says
  - a universal file has exactly the slices of MINIMUM_OS

Prints one line per file and slice; with --imports a table of the imports by library as well. Exit
status 1 when something is not as it should be, each such thing told in a line.
"""

import argparse
import collections
import re
import sys

import lief

LIBRARIES = {
    "/usr/lib/libSystem.B.dylib",
    "/usr/lib/libedit.3.dylib",
    "/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation",
    "/System/Library/Frameworks/IOKit.framework/Versions/A/IOKit",
}
MINIMUM_OS = {"X86_64": (10, 13), "ARM64": (11, 0)}
# The linker's label for the file header. Apple's linker exports it whatever the list says.
HEADER_LABEL = "__mh_execute_header"

faults = 0


def fault(where, text):
    global faults
    faults += 1
    print(f"{where}: {text}", file=sys.stderr)


def expect_same_names(where, found, wanted):
    for name in sorted(wanted - found):
        fault(where, f"does not export {name}")
    for name in sorted(found - wanted):
        fault(where, f"exports {name}, which is not in the list")


def expect_no_probe_library(where, libraries):
    for library in libraries:
        if "quobearm" in library.lower():
            fault(where, f"depends on the probe library: {library}")


def check_elf(path, wanted):
    elf = lief.ELF.parse(path)
    exports = {s.name for s in elf.dynamic_symbols if s.name and s.shndx != 0}
    expect_same_names(path, exports, wanted)
    expect_no_probe_library(path, elf.libraries)
    print(f"{path}: ELF, {len(exports)} exports, needs {', '.join(elf.libraries)}")


def macho_exports(binary):
    trie = binary.dyld_info if binary.has_dyld_info else binary.dyld_exports_trie
    names = {entry.symbol.name for entry in trie.exports} - {HEADER_LABEL}
    # C names carry an underscore here.
    return {name[1:] if name.startswith("_") else name for name in names}


def macho_minimum_os(binary):
    version = binary.version_min.version if binary.has_version_min else binary.build_version.minos
    return tuple(version[:2])


def print_imports(where, binary):
    by_library = collections.defaultdict(list)
    for binding in binary.bindings:
        library = binding.library.name if binding.has_library else "(no library)"
        name = binding.symbol.name
        if name not in by_library[library]:
            by_library[library].append(name)
    print(f"{where}: imports by library")
    for library in sorted(by_library):
        names = sorted(by_library[library])
        print(f"  {library.rsplit('/', 1)[-1]} ({len(names)})")
        line = "   "
        for name in names:
            if len(line) + 1 + len(name) > 100:
                print(line)
                line = "   "
            line += " " + name
        print(line)


def check_slice(where, binary, wanted):
    cpu = binary.header.cpu_type.name
    exports = macho_exports(binary)
    expect_same_names(where, exports, wanted)

    libraries = [library.name for library in binary.libraries]
    expect_no_probe_library(where, libraries)
    for library in sorted(LIBRARIES - set(libraries)):
        fault(where, f"does not depend on {library}")
    for library in sorted(set(libraries) - LIBRARIES):
        fault(where, f"depends on {library}")

    minimum = macho_minimum_os(binary)
    if minimum != MINIMUM_OS.get(cpu):
        fault(where, f"asks for system {minimum}, wanted is {MINIMUM_OS.get(cpu)}")

    flags = {flag.name for flag in binary.header.flags_list}
    for flag in ("PIE", "TWOLEVEL", "NOUNDEFS"):
        if flag not in flags:
            fault(where, f"header flag {flag} is not set")
    # arm64 systems start nothing that is unsigned.
    if cpu == "ARM64" and not binary.has_code_signature:
        fault(where, "carries no code signature")
    print(f"{where}: {len(exports)} exports, {len(libraries)} libraries, "
          f"macOS {'.'.join(map(str, minimum))} up")


def check_macho(path, wanted, imports):
    file = lief.MachO.parse(path)  # owns its slices
    found = [binary.header.cpu_type.name for binary in file]
    if len(found) > 1 and sorted(found) != sorted(MINIMUM_OS):
        fault(path, f"has the slices {found}")
    for cpu, binary in zip(found, file):
        where = f"{path} ({cpu})"
        check_slice(where, binary, wanted)
        if imports:
            print_imports(where, binary)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--imports", action="store_true")
    parser.add_argument("names_inc")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()

    with open(args.names_inc, encoding="ascii") as lines:
        wanted = set(re.findall(r"^FORWARD\((\w+)\)$", lines.read(), re.MULTILINE))
    for path in args.files:
        if lief.is_elf(path):
            check_elf(path, wanted)
        elif lief.is_macho(path):
            check_macho(path, wanted, args.imports)
        else:
            fault(path, "is neither ELF nor Mach-O")
    return 1 if faults else 0


sys.exit(main())
