#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What an installation holds, and that its commands find their own probe library and no other.

usage: installed.py BUILD [unittest arguments]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = os.path.abspath(sys.argv[1])
SOURCES = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
LIMIT_S = 60
COMPONENTS = ["tool", "adapters", "simulator", "companions", "development", "documents"]
RESET = ["-Exit", "1", "-SetDeviceFamily", "5"]
NO_LIBRARY = "Connecting to Quobe via USB...Could not open Quobe shared library. Exiting now.\n"

# The files of a component, except those of the man pages, completions, headers and documents.
PROGRAMS = {
    "tool": ["bin/quobe-unlock", "libexec/quobe/maker/quobe-unlock"],
    "adapters": ["bin/quobe-unlock-openocd", "libexec/quobe/openocd/libquobearm.dylib",
                 "libexec/quobe/openocd/quobe-unlock"],
    "simulator": ["bin/quobe-bench", "bin/quobe-unlock-sim", "libexec/quobe/simulator/libquobearm.dylib",
                  "libexec/quobe/simulator/quobe-unlock"],
    "companions": [],
    "development": ["lib/cmake/quobe/quobe-config-version.cmake", "lib/cmake/quobe/quobe-config.cmake",
                    "lib/cmake/quobe/quobe-targets-CONFIG.cmake", "lib/cmake/quobe/quobe-targets.cmake",
                    "lib/libquobe_host.a", "lib/libquobe_sys.a", "lib/libquobe_util.a",
                    "lib/pkgconfig/quobe-sys.pc", "lib/pkgconfig/quobe-util.pc"],
    "documents": [],
}
if sys.platform == "darwin":
    PROGRAMS["development"].remove("lib/libquobe_host.a")
# The companions are beside each tool: what is true of its links is true of theirs.
LINE = [os.path.join("quobe_line", file) for file in (
    "__init__.py", "lane", "page.py", "record.py", "rows.py", "run.py", "verdict.py", "work.py")]
for component, folder, suffix in (("companions", "maker", ""), ("adapters", "openocd", "-openocd"),
                                  ("simulator", "simulator", "-sim")):
    PROGRAMS[component] += [f"bin/quobe-options{suffix}", f"bin/quobe-line{suffix}"]
    PROGRAMS[component] += [f"libexec/quobe/{folder}/{file}" for file in ("quobe-options", "quobe-line", *LINE)]


def cache(name):
    with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as file:
        return re.search(rf"^{name}:[A-Z]+=(.*)$", file.read(), re.MULTILINE).group(1)


def files_below(folder):
    return sorted(os.path.relpath(os.path.join(where, file), folder)
                  for where, _, files in os.walk(folder) for file in files)


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="quobe installed ")
        cls.prefix = os.path.join(cls.dir, "prefix")
        cls.files = {}
        for component in COMPONENTS:
            one = os.path.join(cls.dir, component)
            for prefix in (one, cls.prefix):
                subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix, "--component", component],
                               check=True, capture_output=True, timeout=LIMIT_S)
            cls.files[component] = files_below(one)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir)

    def setUp(self):
        self.bench = tempfile.mkdtemp(dir=self.dir)
        self.env = dict(os.environ, QUOBE_BENCH=self.bench, QUOBE_BENCH_TIME="fast")
        self.env["ASAN_OPTIONS"] = self.env.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"

    def path(self, name):
        return os.path.join(self.prefix, name)

    def run_it(self, command, **options):
        options.setdefault("env", self.env)
        return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=LIMIT_S, check=False, **options)

    def lock_device(self):
        done = self.run_it([self.path("bin/quobe-bench"), "create", "STM32F407", "--rdp", "1"])
        self.assertEqual((0, "Probe 1: STM32F407\n", ""), (done.returncode, done.stdout, done.stderr))

    def assert_freed(self, done):
        self.assertEqual((0, "Reset option bytes (may take app. 20 seconds)...O.K.", ""),
                         (done.returncode, done.stdout.splitlines()[-1], done.stderr))
        shown = self.run_it([self.path("bin/quobe-bench"), "show", "--expect-factory"])
        self.assertEqual(0, shown.returncode, shown.stdout)

    def assert_finds_no_library(self, command):
        done = self.run_it(command)
        self.assertEqual((1, NO_LIBRARY), (done.returncode, done.stdout[-len(NO_LIBRARY):]))

    def test_each_component_has_its_files_and_no_other(self):
        other = re.compile(r"share/(man|doc|bash-completion|zsh|fish)/|include/quobe/(util|sys)/[a-z0-9_]+\.h$")
        config = cache("CMAKE_BUILD_TYPE").lower()
        for component in COMPONENTS:
            programs = [file.replace(cache("CMAKE_INSTALL_LIBDIR") + "/", "lib/", 1)
                        for file in self.files[component] if not other.match(file)]
            expected = sorted(file.replace("CONFIG", config) for file in PROGRAMS[component])
            self.assertEqual(expected, programs, component)

    def test_readme_names_the_commands_of_each_package(self):
        with open(os.path.join(SOURCES, "README.md"), encoding="utf-8") as file:
            section = file.read().split("\n## Install it\n")[1].split("\n## ")[0]
        rows = [line.split(" | ") for line in section.splitlines() if line.startswith("| `")]
        named = [sorted(re.findall(r"`(quobe-[\w-]+)`", commands)) for _, commands in rows]
        order = ["tool", "adapters", "simulator", "companions", "development", "documents"]
        self.assertEqual([sorted(os.path.basename(file) for file in self.files[component] if file.startswith("bin/"))
                          for component in order], named)
        packages = [package.strip("| `") for package, _ in rows]
        self.assertIn(f"\nsudo apt purge {' '.join(packages)}\n", section)

    def test_no_file_is_in_two_components(self):
        every = [file for component in COMPONENTS for file in self.files[component]]
        self.assertEqual(sorted(set(every)), sorted(every))

    def test_nobody_but_the_owner_may_write(self):
        for where, folders, files in os.walk(self.path("libexec")):
            for name in folders + files:
                self.assertEqual(0, os.stat(os.path.join(where, name)).st_mode & 0o022, name)

    def test_links_of_bin_are_relative(self):
        for name in os.listdir(self.path("bin")):
            if os.path.islink(self.path("bin/" + name)):
                self.assertTrue(os.readlink(self.path("bin/" + name)).startswith("../libexec/quobe/"), name)

    def test_the_simulator_is_found_from_the_links_full_path(self):
        self.lock_device()
        self.assert_freed(self.run_it([self.path("bin/quobe-unlock-sim"), *RESET]))

    def test_the_simulator_is_found_from_a_name_in_path(self):
        self.lock_device()
        self.env["PATH"] = self.path("bin") + os.pathsep + self.env["PATH"]
        self.assert_freed(self.run_it(["quobe-unlock-sim", *RESET], cwd=self.bench))

    def test_the_simulator_is_found_from_another_link_to_the_link(self):
        self.lock_device()
        link = os.path.join(self.bench, "unlock")
        os.symlink(self.path("bin/quobe-unlock-sim"), link)
        self.assert_freed(self.run_it(["./unlock", *RESET], cwd=self.bench))

    @unittest.skipIf(os.path.exists("/Applications/OSTREL/Quobe"), "the maker's probe library is installed")
    def test_the_tool_for_the_makers_library_takes_none_of_ours(self):
        self.assert_finds_no_library([self.path("bin/quobe-unlock"), *RESET])
        self.assert_finds_no_library([self.path("libexec/quobe/maker/quobe-unlock"), *RESET])

    def test_a_library_in_the_makers_folder_is_taken(self):
        self.lock_device()
        shutil.copy(self.path("libexec/quobe/simulator/libquobearm.dylib"), self.path("libexec/quobe/maker"))
        try:
            self.assert_freed(self.run_it([self.path("bin/quobe-unlock"), *RESET]))
        finally:
            os.remove(self.path("libexec/quobe/maker/libquobearm.dylib"))

    def test_the_adapters_command_uses_the_library_over_openocd(self):
        self.env["QUOBE_OPENOCD"] = "/no/such/file"
        done = self.run_it([self.path("bin/quobe-unlock-openocd"), *RESET])
        self.assertEqual((255, "Connecting to Quobe via USB.../no/such/file: No such file or directory"),
                         (done.returncode, done.stdout.splitlines()[-1]))

    def test_the_companions_use_the_library_beside_them(self):
        self.lock_device()
        done = self.run_it([self.path("bin/quobe-options-sim"), "--expect", "factory"])
        self.assertEqual((1, ""), (done.returncode, done.stderr))
        done = self.run_it([self.path("bin/quobe-line-sim"), "--help"])
        self.assertEqual((0, "usage: quobe-line", ""), (done.returncode, done.stdout[:17], done.stderr))

    def test_the_version_is_the_projects(self):
        done = self.run_it([self.path("bin/quobe-bench"), "--version"])
        self.assertEqual((0, f"quobe-bench {cache('CMAKE_PROJECT_VERSION')}\n", ""),
                         (done.returncode, done.stdout, done.stderr))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
