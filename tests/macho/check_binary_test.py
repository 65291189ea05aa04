#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Shows that check_binary.py finds each kind of fault: it is given good files with one fault each.

    check_binary_test.py NAMES_INC IMPORTS UNIVERSAL ELF

UNIVERSAL and ELF are the finished executables. Prints one line; exit status 1 with a line for each
fault that goes through.
"""

import contextlib
import io
import pathlib
import sys
import tempfile

import lief

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import check_binary  # noqa: E402

NAMES_INC, IMPORTS, UNIVERSAL, ELF = sys.argv[1:]


def spoil_number(offset_of, size, value):
    """Stores a number in the x86-64 slice at the place that offset_of tells."""
    def change(data, binary, start):
        at = start + offset_of(binary)
        data[at:at + size] = value.to_bytes(size, "little")
    return change


def spoil_text(old, new):
    """Replaces the first such text of the slice by one of the same length."""
    def change(data, binary, start):
        at = data.index(old, start)
        assert len(old) == len(new)
        data[at:at + len(old)] = new
    return change


def spoil_code_directory(field, value):
    """Stores a number in the signature of the x86-64 slice; fields are big-endian, of 4 bytes."""
    def change(data, binary, start):
        at = data.index(b"\xfa\xde\x0c\x02", start + binary.code_signature.data_offset) + 4 * field
        data[at:at + 4] = value.to_bytes(4, "big")
    return change


def command(kind):
    return lambda binary: next(c for c in binary.commands if c.command.name == kind).command_offset


def header_flags_without(flag):
    def change(data, binary, start):
        at = start + 24
        flags = int.from_bytes(data[at:at + 4], "little") & ~flag
        data[at:at + 4] = flags.to_bytes(4, "little")
    return change


def exports_of(binary):
    return {export.symbol.name: export for export in binary.dyld_info.exports}


def give_two_names(binary):
    exports = exports_of(binary)
    exports["_QUOBEARM_Open"].address = exports["_QUOBEARM_Close"].address


def export_data(binary):
    exports_of(binary)["_QUOBEARM_Open"].address = (
        binary.get_section("__data").virtual_address - binary.imagebase)


# What is wrong, how the file is changed, words of the message.
SPOILT = [
    ("the probe library as a dependency",
     spoil_text(b"/usr/lib/libedit.3.dylib", b"@rpath/libquobearm.dylib"),
     ["depends on the probe library", "does not depend on /usr/lib/libedit.3.dylib"]),
    ("a library of a package manager",
     spoil_text(b"/usr/lib/libedit.3.dylib", b"/opt/lib/libedit.0.dylib"),
     ["depends on /opt/lib/libedit.0.dylib"]),
    ("a search path for libraries",
     spoil_number(command("FUNCTION_STARTS"), 4, 0x8000001C), ["in folders of its own"]),
    ("a newer system", spoil_number(lambda b: command("VERSION_MIN_MACOSX")(b) + 8, 4, 0x000A0E00),
     ["asks for macOS 10.14"]),
    ("another system", spoil_number(command("VERSION_MIN_MACOSX"), 4, 0x25), ["another system"]),
    ("a fixed address", header_flags_without(0x200000), ["PIE is not set"]),
    ("names of no particular library", header_flags_without(0x80), ["TWOLEVEL is not set"]),
    ("undefined names", header_flags_without(0x1), ["NOUNDEFS is not set"]),
    ("a library, not a program", spoil_number(lambda b: 12, 4, 6), ["is no executable"]),
    ("another import", spoil_text(b"_getpid\0", b"_getuid\0"),
     ["imports _getuid from libSystem.B.dylib", "does not import _getpid"]),
    ("an import that only newer systems have", spoil_text(
        b"\x41___darwin_check_fd_set_overflow\0", b"\x40___darwin_check_fd_set_overflow\0"),
     ["does not start without ___darwin_check_fd_set_overflow"]),
    ("code that was changed after it was signed",
     spoil_text(b"OSTREL Quobe Unlock", b"OSTREL Quobe UnlocK"),
     ["is not as it was when it was signed"]),
    ("a signature with a maker", spoil_code_directory(3, 0), ["the code signature has flags 0x0"]),
    ("a signature of the first pages only", spoil_code_directory(8, 0x2000),
     ["the code signature is not of the whole file"]),
    ("a signature of nothing", spoil_text(b"\xfa\xde\x0c\xc0", b"\xfa\xde\x0c\xc1"),
     ["the code signature has no code directory"]),
]

# The same for packed data: the slice is parsed, changed and written again.
SPOILT_SLICES = [
    ("an export less", "X86_64", lambda binary: binary.unexport("_QUOBEARM_Open"),
     "does not export QUOBEARM_Open"),
    ("an export more", "X86_64",
     lambda binary: binary.add_exported_function(binary.entrypoint, "_main"),
     "exports main, which is not in the list"),
    ("a function under two names", "X86_64", give_two_names, "exports one place under two names"),
    ("an export that is data", "X86_64", export_data,
     "exports _QUOBEARM_Open, which is not in the code"),
    ("no signature", "X86_64", lambda binary: binary.remove_signature(),
     "carries no code signature"),
    ("no signature", "ARM64", lambda binary: binary.remove_signature(),
     "carries no code signature"),
]


def slice_of(file, cpu):
    return next(binary for binary in file if binary.header.cpu_type.name == cpu)


def faults_of(path, product=True):
    """What the check says of the file."""
    said = io.StringIO()
    with contextlib.redirect_stderr(said), contextlib.redirect_stdout(io.StringIO()):
        wanted = check_binary.read_names(NAMES_INC)
        if lief.is_elf(path):
            check_binary.check_elf(path, wanted)
        else:
            check_binary.check_macho(path, wanted, IMPORTS if product else None)
    return said.getvalue()


def main():
    failed = 0
    tried = 0

    def expect(what, said, words):
        nonlocal failed, tried
        tried += 1
        for word in words:
            if word not in said:
                failed += 1
                print(f"check_binary: {what}: does not say \"{word}\" but: {said}", file=sys.stderr)

    good = pathlib.Path(UNIVERSAL).read_bytes()
    file = lief.MachO.parse(UNIVERSAL)
    x86 = slice_of(file, "X86_64")
    with tempfile.TemporaryDirectory() as folder:
        path = f"{folder}/spoilt"
        for what, change, words in SPOILT:
            data = bytearray(good)
            change(data, x86, x86.fat_offset)
            pathlib.Path(path).write_bytes(data)
            expect(what, faults_of(path), words)

        for what, cpu, change, word in SPOILT_SLICES:
            whole = lief.MachO.parse(UNIVERSAL)  # owns its slices: has to outlive them
            binary = slice_of(whole, cpu)
            change(binary)
            binary.write(path)
            expect(what, faults_of(path, product=False), [word])

        for binary in file:
            cpu = binary.header.cpu_type.name
            binary.write(path)
            expect(f"the {cpu} slice alone", faults_of(path), [f"has the slices {cpu}, wanted are"])

        elf = bytearray(pathlib.Path(ELF).read_bytes())
        for old, new, word in [
                (b"\0QUOBEARM_EMU_SelectByUSBSN\0", b"\0QUOBEARM_EMU_SelectByUSBSX\0",
                 "does not export QUOBEARM_EMU_SelectByUSBSN"),
                (b"\0libedit.so.2\0", b"\0quobearm.so\0\0", "depends on the probe library")]:
            spoilt = elf.replace(old, new, 1)
            pathlib.Path(path).write_bytes(spoilt)
            expect(f"ELF with {new}", faults_of(path), [word])
    print(f"check_binary: {tried} spoilt files, {failed} faults not found")
    return 1 if failed else 0


sys.exit(main())
