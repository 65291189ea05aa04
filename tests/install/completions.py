#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The completions answer in real shells: what a user types and Tab become arguments of a command.

The commands are stand-ins that write down their arguments. bash and zsh run on a pseudo terminal.

usage: completions.py SOURCES BENCH [unittest arguments]
"""

import glob
import os
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SOURCES, BENCH = (os.path.abspath(path) for path in sys.argv[1:3])
COMPLETIONS = os.path.join(SOURCES, "completions")
LIMIT_S = 60

# What is typed, with a tab where Tab is pressed, and the arguments that the command then gets.
UNLOCK = [
    ("quobe-unlock -SetD\tSTM32F4\t", ["-SetDeviceFamily", "STM32F4xxxx"]),
    ("quobe-unlock -setd\tstm32h\t", ["-SetDeviceFamily", "STM32H7xxxx"]),
    ("quobe-unlock -SetDeviceFamily STM32F72\t", ["-SetDeviceFamily", "STM32F72xxx, STM32F73xxx"]),
    ("quobe-unlock -SetDeviceFamily 'STM32F76\t", ["-SetDeviceFamily", "STM32F76xxx, STM32F77xxx"]),
    ('quobe-unlock-sim -SetDeviceFamily "STM32F74\t', ["-SetDeviceFamily", "STM32F74xxx, STM32F75xxx"]),
    ("quobe-unlock-openocd -Exit 1 -Speed ad\t", ["-Exit", "1", "-Speed", "adaptive"]),
    ("quobe-unlock -Sel\t1001", ["-SelectEmuBySN", "1001"]),
    ("quobe-bench cre\tSTM32F20\t--fl\tera\t", ["create", "STM32F207", "--flash", "erased"]),
    ("quobe-options-sim -SetD\tSTM32F72\t--js\t", ["-SetDeviceFamily", "STM32F72xxx, STM32F73xxx", "--json"]),
    ("quobe-options --exp\tfac\t", ["--expect", "factory"]),
    ("quobe-line --rep\tht\t--res\t", ["--report", "html", "--resume"]),
    ("quobe-bench sh\t--exp\t", ["show", "--expect-factory"]),
    ("quobe-bench set max\t4000", ["set", "max_speed=4000"]),
]
NAMES = ["quobe-unlock", "quobe-unlock-sim", "quobe-unlock-openocd", "quobe-bench", "quobe-options",
         "quobe-options-sim", "quobe-line"]


def needs(shell):
    return unittest.skipUnless(shutil.which(shell) or os.environ.get("CI"), f"{shell} is not installed")


class Completions(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="quobe-completions-")
        self.got = os.path.join(self.dir, "got")
        for name in NAMES:
            path = os.path.join(self.dir, name)
            with open(path, "w", encoding="utf-8") as file:
                file.write("#!/bin/sh\n")
                if name == "quobe-bench":
                    file.write(f'[ "$1" != devices ] || exec "{BENCH}" devices\n')
                file.write(f'printf "%s\\n" "$@" >"{self.got}.new"\nmv "{self.got}.new" "{self.got}"\n')
            os.chmod(path, 0o755)
        self.env = dict(os.environ, PATH=self.dir + ":" + os.environ["PATH"], TERM="xterm", HOME=self.dir,
                        PS1="$ ", LC_ALL="C.UTF-8")

    def tearDown(self):
        shutil.rmtree(self.dir)

    def arguments(self, shell, prepare, typed):
        """Types into a shell of its own; the arguments that the command has got then."""
        if os.path.exists(self.got):
            os.remove(self.got)
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.dir)
            os.execvpe(shell[0], shell, self.env)
        shown = b""
        try:
            # One part after the other, as a shell may drop what was typed before it was ready.
            deadline = time.monotonic() + LIMIT_S
            parts = [prepare + "; printf 'rea%s\\n' dy\r"]
            parts += [part + "\t" for part in typed.split("\t")[:-1]] + [typed.split("\t")[-1] + "\r"]
            os.write(terminal, parts.pop(0).encode())
            while not os.path.exists(self.got) and time.monotonic() < deadline:
                if select.select([terminal], [], [], 0.3)[0]:
                    shown += os.read(terminal, 65536)
                elif b"ready" in shown and parts:
                    os.write(terminal, parts.pop(0).encode())
        finally:
            os.close(terminal)
            os.kill(child, 9)
            os.waitpid(child, 0)
        if not os.path.exists(self.got):
            self.fail(f"{typed!r}: the command was not run:\n{shown.decode(errors='replace')}")
        with open(self.got, encoding="utf-8") as file:
            return file.read().splitlines()

    def check(self, shell, prepare, rows):
        for typed, expected in rows:
            with self.subTest(typed=typed):
                # A quote that the user has opened is closed by Tab.
                self.assertEqual(expected, self.arguments(shell, prepare, typed))

    @needs("bash")
    def test_bash(self):
        self.check(["bash", "--norc", "--noprofile", "-i"], f". '{COMPLETIONS}/quobe-unlock'",
                   [*UNLOCK, ("quobe-bench set time=fa\t", ["set", "time=fast"])])

    @needs("zsh")
    def test_zsh(self):
        self.check(["zsh", "-f", "-i"],
                   f"fpath=('{COMPLETIONS}' $fpath); autoload -Uz compinit; compinit -u -D", UNLOCK)

    @needs("fish")
    def test_fish(self):
        def offered(typed):
            done = subprocess.run(
                ["fish", "--no-config", "-c",
                 'for file in $argv[2..]; source $file; end; complete -C $argv[1]', typed,
                 *sorted(glob.glob(f"{COMPLETIONS}/*.fish"))],
                capture_output=True, text=True, timeout=LIMIT_S, check=True, env=self.env)
            self.assertEqual("", done.stderr)
            return [line.split("\t")[0] for line in done.stdout.splitlines()]
        rows = [
            ("quobe-unlock -SetD", ["-SetDeviceFamily"]),
            ("quobe-unlock -SetDeviceFamily STM32F72", ["STM32F72xxx, STM32F73xxx"]),
            ("quobe-unlock-sim -SetDeviceFamily STM32L", ["STM32L0xxxx", "STM32L1xxxx", "STM32L4x6xx"]),
            ("quobe-unlock-openocd -Speed a", ["adaptive", "auto"]),
            ("quobe-options --expect fac", ["factory"]),
            ("quobe-options-openocd -SetDeviceFamily STM32H", ["STM32H7xxxx"]),
            ("quobe-line --re", ["--report", "--resume", "--retries"]),
            ("quobe-bench po", ["power-cycle"]),
            ("quobe-bench create STM32F20", ["STM32F207"]),
            ("quobe-bench create STM32F407 --pro", ["--probe", "--program"]),
            ("quobe-bench set time=", ["time=fast", "time=real"]),
        ]
        for typed, expected in rows:
            with self.subTest(typed=typed):
                self.assertEqual(expected, sorted(offered(typed)))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
