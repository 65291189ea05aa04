#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Builds a folder that clang accepts as a macOS SDK, on a machine without one.

    assemble.py WHEEL FOLDER

WHEEL is the ziglang package: it contains the C headers of Darwin and the link stub of libSystem. The
rest is our own and beside this script: include/ declares the few functions of libedit,
CoreFoundation and IOKit that the product calls, stubs/ lists them for the linker. A function that is
missing there does not compile or does not link; add it to both.

FOLDER has the layout of an SDK, so -isysroot FOLDER is enough. The headers of the C++ library are
apart, in FOLDER/c++, where the product does not find them: the tests are compiled with them, to see
that a Mac would, and are not linked.
"""

import pathlib
import shutil
import sys
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
LIBC = "ziglang/lib/libc/"
INCLUDE = LIBC + "include/any-macos-any/"
FRAMEWORKS = ("CoreFoundation", "IOKit")
CXX_INCLUDES = ("ziglang/lib/libcxx/include/", "ziglang/lib/libcxxabi/include/")


def unpack(package, prefix, folder):
    for entry in package.infolist():
        if entry.filename.startswith(prefix) and not entry.is_dir():
            target = folder / entry.filename[len(prefix):]
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(package.read(entry))


def main():
    wheel, sdk = sys.argv[1], pathlib.Path(sys.argv[2])
    if sdk.exists():
        shutil.rmtree(sdk)
    include = sdk / "usr/include"
    lib = sdk / "usr/lib"
    lib.mkdir(parents=True)

    with zipfile.ZipFile(wheel) as package:
        unpack(package, INCLUDE, include)
        for prefix in CXX_INCLUDES:
            unpack(package, prefix, sdk / "c++")
        (lib / "libSystem.tbd").write_bytes(package.read(LIBC + "darwin/libSystem.tbd"))

    # Our headers must not hide one of the package.
    for header in (HERE / "include").rglob("*.h"):
        if (include / header.relative_to(HERE / "include")).exists():
            sys.exit(f"assemble: {header} is in the package too; remove ours")

    shutil.copytree(HERE / "include/editline", include / "editline")
    shutil.copy(HERE / "stubs/libedit.tbd", lib)
    for name in FRAMEWORKS:
        framework = sdk / f"System/Library/Frameworks/{name}.framework"
        shutil.copytree(HERE / "include" / name, framework / "Headers")
        shutil.copy(HERE / f"stubs/{name}.tbd", framework)


main()
