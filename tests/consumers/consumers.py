#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Other projects build on the library: by find_package, by add_subdirectory, by pkg-config.

The library is installed into a folder of its own, which is then moved: nothing may hold its place.

usage: consumers.py SOURCES BUILD [unittest arguments]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES, BUILD = (os.path.abspath(path) for path in sys.argv[1:3])
HERE = os.path.join(SOURCES, "tests/consumers")
LIMIT_S = 100
# 192 is the low byte of UTIL's number.
EXPECTED = "0x100A8C0, folder made\n"


def cache(name):
    with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as file:
        found = re.search(rf"^{name}:[A-Z]+=(.*)$", file.read(), re.MULTILINE)
    return found.group(1) if found else ""


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, timeout=LIMIT_S, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


class Consumers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="quobe consumers ")
        cls.prefix = os.path.join(cls.dir, "moved")
        installed = os.path.join(cls.dir, "installed")
        run("cmake", "--install", BUILD, "--prefix", installed, "--component", "development")
        os.rename(installed, cls.prefix)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir)

    def answer(self, program):
        return run(program, tempfile.mkdtemp(dir=self.dir) + "/new folder")

    def build_with_cmake(self, project, *settings):
        build = os.path.join(self.dir, project)
        run("cmake", "-S", os.path.join(HERE, project), "-B", build, "-G", "Ninja",
            f"-DCMAKE_CXX_COMPILER={cache('CMAKE_CXX_COMPILER')}",
            f"-DCMAKE_CXX_FLAGS={cache('CMAKE_CXX_FLAGS')}",
            "-DCMAKE_BUILD_TYPE=Debug", *settings)
        run("cmake", "--build", build)
        return build

    def test_find_package_finds_the_moved_installation(self):
        build = self.build_with_cmake("find_package", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.assertEqual(EXPECTED, self.answer(os.path.join(build, "consumer")))

    def test_find_package_refuses_another_minor_version(self):
        folder = os.path.join(self.dir, "other")
        os.mkdir(folder)
        with open(os.path.join(folder, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.16)\nproject(other LANGUAGES CXX)\n"
                       "find_package(quobe 0.1 QUIET)\nmessage(STATUS \"found=${quobe_FOUND}\")\n")
        out = run("cmake", "-S", folder, "-B", folder + "/build", "-G", "Ninja",
                  f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.assertIn("-- found=0\n", out)

    def test_add_subdirectory_builds_the_library_and_nothing_else(self):
        build = self.build_with_cmake("subdirectory", f"-DQUOBE={SOURCES}")
        self.assertEqual(EXPECTED, self.answer(os.path.join(build, "consumer")))
        made = sorted(file for _, _, files in os.walk(build) for file in files
                      if re.search(r"\.(a|dylib|so)$", file) or file.startswith("quobe-"))
        host = [] if sys.platform == "darwin" else ["libquobe_host.a"]
        self.assertEqual(host + ["libquobe_sys.a", "libquobe_util.a"], made)
        with open(os.path.join(build, "build.ninja"), encoding="utf-8") as file:
            self.assertNotIn("-Werror", file.read())
        listed = run("ctest", "--test-dir", build, "-N")
        self.assertIn("Total Tests: 0\n", listed)

    def environment_in(self, folder):
        """For shown commands. Without blanks in the path, as a shell splits what pkg-config prints."""
        os.symlink(self.prefix, os.path.join(folder, "quobe"))
        packages = next(at for at, _, files in os.walk(self.prefix) if "quobe-sys.pc" in files)
        return dict(os.environ, HOME=folder, CMAKE_PREFIX_PATH=self.prefix,
                    PKG_CONFIG_PATH=os.path.join("quobe", os.path.relpath(packages, self.prefix)))

    @unittest.skipUnless(shutil.which("pkg-config") or os.environ.get("CI"), "pkg-config is not installed")
    def test_the_page_about_installing_links_a_program(self):
        folder = tempfile.mkdtemp(dir=self.dir)
        with open(os.path.join(SOURCES, "docs/install.md"), encoding="utf-8") as file:
            section = file.read().split("\n## The library in another project\n")[1]
        lines, command = re.findall(r"^```\n(.*?)^```$", section, re.M | re.S)
        shutil.copy(os.path.join(HERE, "consumer.cpp"), os.path.join(folder, "program.cpp"))
        with open(os.path.join(folder, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.16)\nproject(other LANGUAGES CXX)\n"
                       "add_executable(program program.cpp)\n" + lines)
        environment = self.environment_in(folder)
        run("sh", "-c", "cmake -G Ninja -S . -B build && cmake --build build", cwd=folder, env=environment)
        self.assertEqual(EXPECTED, self.answer(os.path.join(folder, "build/program")))
        run("sh", "-c", command, cwd=folder, env=environment)
        self.assertEqual(EXPECTED, self.answer(os.path.join(folder, "a.out")))

    @unittest.skipUnless(shutil.which("pkg-config") or os.environ.get("CI"), "pkg-config is not installed")
    def test_the_page_about_the_registry_store_shows_the_file_of_its_example(self):
        folder = tempfile.mkdtemp(dir=self.dir)
        with open(os.path.join(SOURCES, "docs/registry.md"), encoding="utf-8") as file:
            blocks = dict(re.findall(r"^```(\w+)\n(.*?)^```$", file.read(), re.M | re.S))
        with open(os.path.join(folder, "program.cpp"), "w", encoding="utf-8") as file:
            file.write("#include \"sys/registry.h\"\nint main() {\n" + blocks["cpp"] + "}\n")
        run("sh", "-c", "c++ -std=c++20 program.cpp $(pkg-config --cflags --libs quobe-sys) && ./a.out",
            cwd=folder, env=self.environment_in(folder))
        store = "Library/Application Support/OSTREL/OSTREL_REG_HKEY_CURRENT_USER.xml"
        with open(os.path.join(folder, store), encoding="utf-8", newline="") as file:
            self.assertEqual(blocks["xml"].replace("\n", "\r\n"), file.read())

    @unittest.skipUnless(shutil.which("pkg-config") or os.environ.get("CI"), "pkg-config is not installed")
    def test_first_programs_of_the_pages_do_what_is_shown(self):
        for page in ("util", "sys"):
            with self.subTest(page=page):
                folder = tempfile.mkdtemp(dir=self.dir)
                with open(os.path.join(SOURCES, f"docs/{page}.md"), encoding="utf-8") as file:
                    first = file.read().split("\n## A first program\n")[1].split("\n## ")[0]
                blocks = dict(re.findall(r"^```(\w+)\n(.*?)^```$", first, re.M | re.S))
                self.assertEqual(12, blocks["cpp"].count("\n"))
                for name, text in (("first.cpp", blocks["cpp"]), ("CMakeLists.txt", blocks["cmake"])):
                    with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                        file.write(text)
                environment = self.environment_in(folder)
                shown = re.split(r"^\$ ", blocks["console"], flags=re.MULTILINE)[1:]
                self.assertEqual(2, len(shown))
                for command, expected in (part.split("\n", 1) for part in shown):
                    self.assertEqual(expected, run("sh", "-c", command, cwd=folder, env=environment))

    @unittest.skipUnless(shutil.which("pkg-config") or os.environ.get("CI"), "pkg-config is not installed")
    def test_pkg_config_gives_all_flags(self):
        folders = [folder for folder, _, files in os.walk(self.prefix) if "quobe-sys.pc" in files]
        environment = dict(os.environ, PKG_CONFIG_PATH=folders[0])
        flags = run("pkg-config", "--cflags", "--libs", "quobe-sys", env=environment)
        with open(os.path.join(SOURCES, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"project\(quobe-unlock VERSION ([0-9.]+)", file.read()).group(1)
        self.assertEqual(version + "\n", run("pkg-config", "--modversion", "quobe-util", env=environment))
        program = os.path.join(self.dir, "by_pkg_config")
        run("sh", "-c", f'"$0" $1 -std=c++20 "$2" -o "$3" {flags.strip()}', cache("CMAKE_CXX_COMPILER"),
            cache("CMAKE_CXX_FLAGS"), os.path.join(HERE, "consumer.cpp"), program)
        self.assertEqual(EXPECTED, self.answer(program))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
