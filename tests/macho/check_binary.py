#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks a finished executable: what it exports, what it depends on, what it runs on.

    check_binary.py [--product IMPORTS] NAMES_INC FILE...

For each FILE, ELF or Mach-O:

  - it exports exactly the functions of NAMES_INC
  - it does not depend on the probe library, which is opened at run time only
  - Mach-O: each export is an address of its own in the code; it depends on the four libraries below
    and no other, has no search path for libraries, is position independent, binds names to
    libraries, requires the system of MINIMUM_OS, and has an ad-hoc signature that fits each page of
    the file: the kernel ends a program at a page that does not fit

With --product each FILE is what users get: it has a slice for every processor of MINIMUM_OS, and
each slice imports exactly the names in the list IMPORTS, each from its library. A change that adds a
call to the system then shows in that list.

Prints one line for each file and slice; with --product also a table of the imports by library. Prints
one line for each fault; the exit status is then 1.
"""

import argparse
import collections
import hashlib
import re
import struct
import sys

import lief

LIBRARIES = {
    "/usr/lib/libSystem.B.dylib",
    "/usr/lib/libedit.3.dylib",
    "/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation",
    "/System/Library/Frameworks/IOKit.framework/Versions/A/IOKit",
}
MINIMUM_OS = {"X86_64": "macOS 10.13", "ARM64": "macOS 11.0"}
# Called only where the system has them, so the program must start without them. FD_SET calls this one.
NEWER_THAN_MINIMUM = {"___darwin_check_fd_set_overflow"}
# The linker's label for the file header. Apple's linker always exports it.
HEADER_LABEL = "__mh_execute_header"
# Constants of a signature, from Darwin's <kern/cs_blobs.h>.
EMBEDDED_SIGNATURE = 0xfade0cc0
CODE_DIRECTORY_SLOT = 0
SIGNED_AD_HOC = 0x2
SHA256 = 2

faults = 0


def fault(where, text):
    global faults
    faults += 1
    print(f"{where}: {text}", file=sys.stderr)


def read_names(names_inc):
    with open(names_inc, encoding="ascii") as lines:
        return set(re.findall(r"^FORWARD\((\w+)\)$", lines.read(), re.MULTILINE))


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
    return list(trie.exports)


def macho_minimum_os(binary):
    """The system and its version, as "macOS 10.13"."""
    if binary.has_version_min:
        is_macos = binary.version_min.command.name == "VERSION_MIN_MACOSX"
        version = binary.version_min.version
    else:
        is_macos = binary.build_version.platform.name == "MACOS"
        version = binary.build_version.minos
    return ("macOS " if is_macos else "another system ") + f"{version[0]}.{version[1]}"


def read_imports(path, cpu):
    """The lines of an import list that are for this processor."""
    wanted = set()
    with open(path, encoding="ascii") as lines:
        for line in lines:
            words = line.split("#")[0].split()
            if words and (len(words) == 1 or words[1].upper() == cpu):
                if words[0].startswith("["):
                    library = words[0].strip("[]")
                else:
                    wanted.add((library, words[0]))
    return wanted


def found_imports(where, binary):
    found = set()
    for binding in binary.bindings:
        name = binding.symbol.name
        if not binding.has_library:
            fault(where, f"binds {name} to no library")
            continue
        found.add((binding.library.name.rsplit("/", 1)[-1], name))
        # The oldest system does not start a program that needs a function it lacks.
        if name in NEWER_THAN_MINIMUM and not binding.weak_import:
            fault(where, f"does not start without {name}, which older systems lack")
    return found


def check_imports(where, binary, wanted):
    found = found_imports(where, binary)
    for library, name in sorted(found - wanted):
        fault(where, f"imports {name} from {library}, which is not in the list of imports")
    for library, name in sorted(wanted - found):
        fault(where, f"does not import {name} from {library}; take it off the list of imports")


def print_imports(where, binary):
    by_library = collections.defaultdict(list)
    for library, name in sorted(found_imports(where, binary)):
        by_library[library].append(name)
    print(f"{where}: imports by library")
    for library in sorted(by_library):
        names = by_library[library]
        print(f"  {library} ({len(names)})")
        line = "   "
        for name in names:
            if len(line) + 1 + len(name) > 100:
                print(line)
                line = "   "
            line += " " + name
        print(line)


def check_exports(where, binary, wanted):
    exports = [e for e in macho_exports(binary) if e.symbol.name != HEADER_LABEL]
    # C names begin with an underscore here.
    names = {e.symbol.name.removeprefix("_") for e in exports}
    expect_same_names(where, names, wanted)
    code = binary.get_section("__text")
    first = code.virtual_address - binary.imagebase
    for export in exports:
        if not first <= export.address < first + code.size:
            fault(where, f"exports {export.symbol.name}, which is not in the code")
    if len({export.address for export in exports}) != len(exports):
        fault(where, "exports one place under two names")
    return len(names)


def check_signature(where, binary, data):
    """The code directory of the signature: made ad hoc, over the whole slice, each page as hashed."""
    signature = binary.code_signature
    blob = data[signature.data_offset:signature.data_offset + signature.data_size]
    magic, _, count = struct.unpack_from(">3I", blob)
    slots = dict(struct.unpack_from(">2I", blob, 12 + 8 * i) for i in range(count))
    if magic != EMBEDDED_SIGNATURE or CODE_DIRECTORY_SLOT not in slots:
        fault(where, "the code signature has no code directory")
        return
    start = slots[CODE_DIRECTORY_SLOT]
    (_, _, _, flags, hash_offset, _, _, num_pages, code_limit, hash_size, hash_type, _,
     page_shift) = struct.unpack_from(">9I4B", blob, start)
    if not flags & SIGNED_AD_HOC or hash_type != SHA256:
        fault(where, f"the code signature has flags {flags:#x} and hash type {hash_type}")
    page_size = 1 << page_shift
    if code_limit != signature.data_offset or num_pages != -(-code_limit // page_size):
        fault(where, "the code signature is not of the whole file")
    for page in range(num_pages):
        at = start + hash_offset + page * hash_size
        code = data[page * page_size:min((page + 1) * page_size, code_limit)]
        if hashlib.sha256(code).digest() != blob[at:at + hash_size]:
            fault(where, f"page {page} is not as it was when it was signed")


def check_slice(where, binary, data, wanted, imports):
    cpu = binary.header.cpu_type.name
    num_exports = check_exports(where, binary, wanted)

    libraries = [library.name for library in binary.libraries]
    expect_no_probe_library(where, libraries)
    for library in sorted(LIBRARIES - set(libraries)):
        fault(where, f"does not depend on {library}")
    for library in sorted(set(libraries) - LIBRARIES):
        fault(where, f"depends on {library}")
    if binary.has_rpath:
        fault(where, "looks for libraries in folders of its own")

    minimum = macho_minimum_os(binary)
    if minimum != MINIMUM_OS.get(cpu):
        fault(where, f"asks for {minimum}, wanted is {MINIMUM_OS.get(cpu)}")

    if binary.header.file_type.name != "EXECUTE":
        fault(where, f"is no executable: {binary.header.file_type.name}")
    flags = {flag.name for flag in binary.header.flags_list}
    for flag in ("PIE", "TWOLEVEL", "NOUNDEFS"):
        if flag not in flags:
            fault(where, f"header flag {flag} is not set")
    if binary.has_code_signature:
        check_signature(where, binary, data)
    else:
        fault(where, "carries no code signature")
    print(f"{where}: {num_exports} exports, {len(libraries)} libraries, {minimum} up")
    if imports is not None:
        check_imports(where, binary, read_imports(imports, cpu))
        print_imports(where, binary)


def check_macho(path, wanted, imports):
    file = lief.MachO.parse(path)  # owns its slices
    found = [binary.header.cpu_type.name for binary in file]
    if (len(found) > 1 or imports is not None) and sorted(found) != sorted(MINIMUM_OS):
        fault(path, f"has the slices {', '.join(found)}, wanted are {', '.join(MINIMUM_OS)}")
    with open(path, "rb") as bytes_of_file:
        data = bytes_of_file.read()
    for cpu, binary in zip(found, file):
        check_slice(f"{path} ({cpu})", binary, data[binary.fat_offset:], wanted, imports)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--product", metavar="IMPORTS")
    parser.add_argument("names_inc")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()

    wanted = read_names(args.names_inc)
    for path in args.files:
        if lief.is_elf(path):
            check_elf(path, wanted)
        elif lief.is_macho(path):
            check_macho(path, wanted, args.product)
        else:
            fault(path, "is neither ELF nor Mach-O")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
