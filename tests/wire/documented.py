#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Follows docs/adapters.md on the simulated wire: every command in a block of its own, word for word.

usage: documented.py BUILD-FOLDER

Also compares what the page quotes with the sources: keys, messages and the lines for udev. The page's
ports are fixed, so only one such run at a time has them. Scripts of the page that build are left out where
the build is not up to date, since they would change it under the feet of other tests.

Exit status 1 when something does not hold, 77 without OpenOCD or where the ports are in use.
"""

import fcntl
import glob
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

import wire

ROOT = os.path.dirname(os.path.dirname(wire.HERE))
PORTS = (4711, 6666, 4444)  # the wire, and OpenOCD's for Tcl and telnet
LIMIT_S = 60
FREED = "Reset option bytes (may take app. 20 seconds)...O.K.\n"


def blocks_of(page):
    """The fenced blocks, each a list of commands."""
    found = re.findall(r"^```\n(.*?)^```$", page, re.M | re.S)
    return [block.replace("\\\n", " ").splitlines() for block in found]


def literals(folder):
    """All texts in the sources of a folder, adjacent ones joined, without escapes."""
    text = ""
    for path in sorted(glob.glob(os.path.join(ROOT, folder, "*.cpp"))):
        with open(path) as file:
            text += re.sub(r'"\s*\n\s*"', "", file.read())
    return text.replace('\\"', '"')


def check_quotes(page):
    sources = literals("openocd")
    table = page[page.index("## Trouble"):page.index("If the tool says")]
    messages = [text for line in table.splitlines()[4:] for text in
                re.findall(r"`([^`]+)`", line.split("|")[1] if "|" in line else "")]
    assert len(messages) > 10, messages
    for message in messages:
        known = message in sources or message.replace("ST-LINK or CMSIS-DAP adapter", "%s") in sources
        assert known, "no message begins with: " + message
    rules = re.findall(r"^    (ATTRS.*)$", page, re.M)
    assert len(rules) == 2 and all(rule in sources for rule in rules), rules
    named = re.search(r"KEY_ROW aKeys\[\] = \{(.*?)\};", sources, re.S).group(1)
    keys = set(re.findall(r'\{"(\w+)"', named)) | {"serial.N"}
    table = page[page.index("| key |"):page.index("Serial numbers and interface files")]
    listed = {key for line in table.splitlines()[2:] for key in
              re.findall(r"`([^`]+)`", line.split("|")[1] if "|" in line else "")}
    assert listed == keys, (listed, keys)


class Shell:
    """A shell to type into. Output and errors of the commands go to a file: OpenOCD would wait for a
    reader of a pipe."""

    def __init__(self, stage, env):
        self.output = tempfile.TemporaryFile("w+", dir=stage)
        self.seen = 0
        self.process = subprocess.Popen(["bash"], cwd=stage, env=env, stdin=subprocess.PIPE, text=True,
                                        stdout=self.output, stderr=subprocess.STDOUT,
                                        start_new_session=True)

    def type(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def wait_for(self, pattern):
        """What was printed since the last call, as soon as it holds the pattern."""
        end = time.monotonic() + LIMIT_S
        while True:
            text = os.pread(self.output.fileno(), 1 << 24, self.seen).decode(errors="replace")
            if re.search(pattern, text, re.M):
                self.seen += len(text.encode())
                return text
            if time.monotonic() > end or self.process.poll() is not None:
                raise RuntimeError("waited in vain for %s:\n%s" % (pattern, text))
            time.sleep(0.005)

    def run(self, command):
        """What it printed; a failure is an error."""
        self.type(command)
        self.type("echo \"status $?\"")
        # What runs beside it may print after the line with the status.
        output, status, _ = re.split(r"^status (\d+)$", self.wait_for(r"^status \d+$"), 1, re.M)
        assert status == "0", "%s: status %s\n%s" % (command, status, output)
        return output

    def __enter__(self):
        return self

    def __exit__(self, *_):
        """Ends it with all that it has started."""
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self.process.stdin.close()
        self.output.close()


def is_up_to_date(build):
    """Whether nothing would be done but to compare the copies of the tool."""
    result = subprocess.run(["cmake", "--build", build, "--", "-n"], capture_output=True, text=True,
                            check=False)
    steps = [line for line in result.stdout.splitlines() if line.startswith("[")]
    return result.returncode == 0 and all("copy_if_different" in step for step in steps)


def make_stage(folder, build):
    """A folder that looks like the repository, with an own build/."""
    for name in os.listdir(ROOT):
        if name not in ("build", ".git"):
            os.symlink(os.path.join(ROOT, name), os.path.join(folder, name))
    os.mkdir(os.path.join(folder, "build"))
    os.symlink(os.path.abspath(build), os.path.join(folder, "build", "release"))
    env = dict(os.environ, HOME=folder, QUOBE_BENCH_TIME="fast")
    for name in ("QUOBE_OPENOCD", "LD_LIBRARY_PATH"):
        env.pop(name, None)
    return env


def port_is_free(port):
    with socket.socket() as listener:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            listener.bind(("127.0.0.1", port))
        except OSError:
            return False
    return True


def follow(stage, env, begin, commands, end, server=None):
    """Serves a device, types the commands, and looks at the device. Gives what they printed."""
    with Shell(stage, env) as shell, Shell(stage, env) as other:
        for line in begin:
            shell.type(line)
        shell.wait_for(r"^1=4711$")
        if server:
            other.type(begin[0])
            other.type(server)
            other.wait_for("port 6666 for tcl connections")
        outputs = [shell.run(command) for command in commands]
        shell.run(end[0])
        shell.run("wait")
        shown = shell.run(end[1])
        assert "Read protection: level 0\n" in shown and "<-- differs" not in shown, shown
    return outputs


def main():
    wire.skip_without_openocd()
    build = sys.argv[1]
    with open(os.path.join(ROOT, "docs", "adapters.md")) as file:
        page = file.read()
    check_quotes(page)
    first, run, server, by_network, begin, end, usage = blocks_of(page)
    with open(os.path.join(tempfile.gettempdir(), "quobe-documented-%d" % os.getuid()), "w") as lock, \
            tempfile.TemporaryDirectory() as stage:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not all(map(port_is_free, PORTS)):
            print("SKIPPED, one of the ports %s is in use" % ", ".join(map(str, PORTS)))
            return 1 if os.environ.get("CI") else 77
        env = make_stage(stage, build)
        builds = is_up_to_date(build)
        if not builds:
            print("SKIPPED in part: the build is not up to date, commands of script/ are left out")
            if os.environ.get("CI"):
                return 1
            first = [command for command in first if not command.startswith("script/")]
        outputs = follow(stage, env, begin, first, end)
        assert outputs[-1].endswith(FREED), outputs
        if builds:
            output, = follow(stage, env, begin, run, end)
            assert output.endswith(FREED) and "ALL OF ITS FLASH MEMORY IS ERASED" in output, output
        output, = follow(stage, env, begin, by_network, end, server[0])
        assert output.endswith(FREED), output
        with Shell(stage, env) as shell:
            assert shell.run(usage[0]).startswith("usage: quobe-wire")
    count = sum(map(len, (first, run if builds else [], server, by_network, begin, end, usage)))
    print("documented: %d commands" % count)
    return 0


if __name__ == "__main__":
    sys.exit(main())
