#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The man pages: they render without a warning and name every option and every message.

usage: manual.py SOURCES BUILD QUOBE-BENCH QUOBE-OPTIONS [unittest arguments]
"""

import glob
import os
import re
import shutil
import subprocess
import sys
import unittest

SOURCES, BUILD, BENCH, OPTIONS = (os.path.abspath(path) for path in sys.argv[1:5])
LIMIT_S = 60
PAGES = ["quobe-bench", "quobe-line", "quobe-options", "quobe-unlock", "quobe-unlock-openocd"]

# Texts of the tool that report progress or success; any other one needs a cause and a remedy.
PROGRESS = """
OSTREL Quobe Unlock tool for STM32 devices
Compiled
Parsing command line...
O.K.
Select device family: %s
Connecting to Quobe via ethernet...
Connecting to Quobe via USB...
Powering target via Quobe.
Using SWD as target interface.
Target interface speed: %d kHz.
VTarget = %d.%.3dV
Press any key to exit.
Options:
[%d] %s
ERROR: %s
failed.
Reset target...
Reset option bytes to factory settings...
Reset option bytes (may take app. 20 seconds)...
Option bytes reset to factory settings.
Resetting FLASH_OPTR...
Resetting Write protection (WRP) and PCROP...
""".strip().split("\n")


def read(path):
    with open(os.path.join(SOURCES, path), encoding="utf-8") as file:
        return file.read()


def page_text(page):
    with open(os.path.join(BUILD, f"install/{page}.1"), encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"\\f[A-Z]", "", text).replace("\\-", "-")
    return re.sub(r"(?m)^\.(BI?|I) ", "", text)


def rows():
    lines = read("docs/commands.tsv").splitlines()
    return [line.split("\t") for line in lines if line and not line.startswith("#")]


def messages():
    """The tool's texts: the literals that its source files hand to a Print function."""
    found = set()
    for path in glob.glob(os.path.join(SOURCES, "app/*.cpp")):
        text = read(path)
        for call in re.findall(r"\b(?:Print[A-Z]\w*|OrPrint)\((.*?)\);", text, re.DOTALL):
            call = re.sub(r'"\s*\n\s*"', "", call)
            for literal in re.findall(r'"((?:[^"\\]|\\.)*)"', call):
                found.update(part.strip() for part in literal.split("\\n") if part.strip())
    return found


class Manual(unittest.TestCase):
    @unittest.skipUnless(shutil.which("groff") or os.environ.get("CI"), "groff is not installed")
    def test_pages_render_without_a_warning(self):
        for page in PAGES:
            done = subprocess.run(["groff", "-ww", "-t", "-man", "-Tutf8", f"install/{page}.1"], cwd=BUILD,
                                  capture_output=True, timeout=LIMIT_S, check=False)
            self.assertEqual((0, b""), (done.returncode, done.stderr), page)
            self.assertIn(b"SEE ALSO", re.sub(rb".\x08", b"", done.stdout))

    def test_generated_parts_are_up_to_date(self):
        done = subprocess.run([os.path.join(SOURCES, "script/commands"), "--check"], capture_output=True,
                              text=True, timeout=LIMIT_S, check=False)
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))

    def test_every_message_of_the_tool_is_explained(self):
        texts = messages()
        self.assertGreater(len(texts), 30)
        self.assertEqual([], sorted(set(PROGRESS) - texts), "no longer a text of the tool")
        description = [text for text in texts if text.startswith("This program is designed to reset")]
        page = page_text("quobe-unlock")
        missing = [text for text in texts - set(PROGRESS) - set(description)
                   if text.replace("%s", "OPTION") not in page]
        self.assertEqual([], sorted(missing))
        self.assertIn('"Function not found: " NAME "... Exiting now."', page)
        self.assertIn('"Function not found: %s (%s). Exiting now.\\n"', read("probeapi/forward_resolve.cpp"))
        self.assertIn("Could not open Quobe shared library. Exiting now.", page)
        self.assertIn('puts("Could not open Quobe shared library. Exiting now.");', read("probeapi/loader.cpp"))

    def test_messages_of_the_adapters_library_are_its_own(self):
        sources = "".join(read(path) for path in glob.glob(os.path.join(SOURCES, "openocd/*.cpp")))
        sources = re.sub(r'"\s*\n\s*"', "", sources)
        section = page_text("quobe-unlock-openocd").split(".SH MESSAGES")[1].split(".SH")[0]
        named = [line for line in re.findall(r"(?:\.TP|\.TQ)\n(.*)", section)]
        self.assertGreater(len(named), 8)
        for text in named:
            if text != "No ST-LINK or CMSIS-DAP adapter was found":  # put together from two texts
                self.assertIn('"' + text, sources)

    def test_the_table_has_the_words_that_quobe_bench_lists(self):
        done = subprocess.run([BENCH, "help"], capture_output=True, text=True, timeout=LIMIT_S, check=True)
        listed = set(re.findall(r"(?m)^  ([a-z-]+)", done.stdout)) | set(re.findall(r"--[a-z-]+", done.stdout))
        table = {row[2] for row in rows() if row[0] == "quobe-bench" and row[1] != "setting"}
        self.assertEqual(set(), listed - table)
        # Setting names continue on a line of their own.
        self.assertEqual({"help", "--help"}, table - listed)

    def test_the_table_has_the_options_that_the_companions_list(self):
        for command, name in (([OPTIONS], "quobe-options"),
                              ([sys.executable, os.path.join(SOURCES, "line/quobe-line")], "quobe-line")):
            done = subprocess.run([*command, "--help"], capture_output=True, text=True, timeout=LIMIT_S, check=True)
            listed = set(re.findall(r"(?<![\w-])--?[A-Za-z][\w-]+", done.stdout))
            self.assertEqual({row[2] for row in rows() if row[0] == name}, listed, name)

    def test_every_word_of_the_table_is_accepted_by_quobe_bench(self):
        for row in rows():
            if row[0] == "quobe-bench" and row[1] == "word":
                done = subprocess.run([BENCH, row[2], "--no-such-option"], capture_output=True, text=True,
                                      timeout=LIMIT_S, check=False)
                self.assertNotIn("usage:", done.stderr, row[2])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
