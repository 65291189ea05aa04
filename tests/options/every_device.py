#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Looks at simulated devices with quobe-options, before and after the unlock tool.

usage: every_device.py BUILD-FOLDER [PART/PARTS]

The states are those of tests/sim/outcomes.txt: every device in each of them. In each state

- quobe-options makes the tool's connection, and then nothing but reads;
- the device's file is the same before and after quobe-options, with fast time and with real time;
- fields, level and complements are those that quobe-bench shows;
- a device as delivered is at its factory values;
- what quobe-options says a reset will erase and leave is what the tool then erases and leaves.

Ends with 1 when something else is found. PART/PARTS: every so manieth state only.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(os.path.dirname(HERE), "sim"))

import outcomes  # noqa: E402
import timewarp  # noqa: E402

# The library's calls in a trace, without those that read; a refused one says so after them.
CONNECTION = ["Open", "ExecCommand", "TIF_Select", "SetSpeed", "GetSpeed", "GetHWStatus", "IsOpen",
              "Close"]
CALL = re.compile(r"^ *[0-9.]+ *#\d+ +\d+ +(\w+)")
FIELD = re.compile(r"^  (\w+) +([0-9A-F]+) +factory ([0-9A-F]+)")
LIMIT_S = 60


class Stage:
    """A folder with a bench, the tool and quobe-options beside the simulated probe."""

    def __init__(self, build, folder):
        self.bin = os.path.join(build, "sim")
        self.folder = folder
        self.bench_folder = os.path.join(folder, "bench")
        self.env = dict(os.environ, QUOBE_BENCH=self.bench_folder, QUOBE_BENCH_TIME="fast")
        self.env.pop("QUOBE_BENCH_TRACE", None)
        self.trace = os.path.join(folder, "trace")
        self.warp = os.path.join(build, "tests", "sim", "libsim_timewarp.so")

    def run(self, program, *words, env=None):
        return subprocess.run([os.path.join(self.bin, program), *words], env=env or self.env,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=LIMIT_S, check=False)

    def bench(self, *words):
        done = self.run("quobe-bench", *words)
        if done.returncode > 1:
            raise RuntimeError("quobe-bench %s: %s" % (" ".join(words), done.stderr))
        return done.stdout

    def options(self, *words, time="fast"):
        """Status and object; the object is None when there is none. The trace is of this run alone."""
        if os.path.exists(self.trace):
            os.remove(self.trace)
        done = self.run("quobe-options", "--json", *words,
                        env=dict(self.env, QUOBE_BENCH_TIME=time, QUOBE_BENCH_TRACE=self.trace))
        return done.returncode, json.loads(done.stdout) if done.stdout else None

    def calls_but_reads(self):
        with open(self.trace) as file:
            calls = [CALL.match(line) for line in file if " -- " not in line]
        return [call[1] if call else "?" for call in calls if not call or call[1] != "RD"]

    def tool(self, row):
        env = dict(self.env)
        if os.path.exists(self.warp):
            env = timewarp.environment(env, self.warp)
        return self.run("quobe-unlock", "-Exit", "1", "-SetDeviceFamily", row, env=env)

    def device_file(self):
        with open(os.path.join(self.bench_folder, "1.device"), "rb") as file:
            return file.read()


def shown_fields(text):
    """(word, field): (stored, factory), from what quobe-bench shows."""
    fields, word = {}, None
    for line in text.splitlines():
        match = FIELD.match(line)
        if match:
            fields[word, match[1]] = (int(match[2], 16), int(match[3], 16))
        elif line and line[0] != " ":
            word = line.split()[0]
    return fields


def number(text):
    return None if text is None else int(text, 16)


def compare_with_bench(seen, shown):
    """What quobe-options says of fields and level against what the bench shows."""
    wrong = []
    fields = {(field["word"], field["name"]): field for field in seen["fields"]}
    expected = shown_fields(shown)
    if set(expected) - set(fields) or (set(fields) - set(expected)
                                       and not seen["device"]["alternatives"]):
        wrong.append("fields: %s" % sorted(set(fields) ^ set(expected)))
    for key in set(fields) & set(expected):
        field, (stored, factory) = fields[key], expected[key]
        if number(field["factory"]) != factory:
            wrong.append("%s.%s: factory %s, not %X" % (*key, field["factory"], factory))
        if field["stored"] is not None and number(field["stored"]) != stored:
            wrong.append("%s.%s: stored %s, not %X" % (*key, field["stored"], stored))
        if field["stored"] is None and field["loaded"] is None:
            wrong.append("%s.%s was not read" % key)
    level = int(re.search(r"Read protection: level (\d)", shown)[1])
    if seen["protection"]["level"] != level:
        wrong.append("level %s, not %d" % (seen["protection"]["level"], level))
    return wrong


def left_of(seen):
    """What is not at factory state: (word, field or None): value."""
    left = {}
    for field in seen["fields"]:
        if field["as_factory"] is not True:
            values = [number(field[name]) for name in ("stored", "loaded") if field[name]]
            left[field["word"], field["name"]] = next(
                value for value in values if value != number(field["factory"]))
    left.update({(word["name"], None): None
                 for word in seen["words"] if word["complement"] == "wrong"})
    return left


def check_reading(stage, block):
    """Reads in both kinds of time; the object, and what is wrong."""
    wrong, seen = [], None
    before = stage.device_file()
    for time in ("fast", "real"):
        if "--program" in block.state:
            if stage.options("-SetDeviceFamily", block.row, time=time)[0] != 4:
                wrong.append("the program has the pins, and they answer")
            continue
        status, again = stage.options("-SetDeviceFamily", block.row, time=time)
        if stage.calls_but_reads() != CONNECTION:
            wrong.append("%s time: calls %s" % (time, stage.calls_but_reads()))
        if status != 0:
            return None, ["%s time: status %d" % (time, status)]
        if stage.device_file() != before:
            wrong.append("%s time: the device's file is another one" % time)
        if seen is not None and seen != again:
            wrong.append("the time makes a difference")
        seen = again
    if stage.device_file() != before:
        wrong.append("the device's file is another one")
    if seen is None:
        return None, wrong
    if block.state == ["--rdp", "0"] and seen["as_factory"] is not True:
        wrong.append("as delivered, and not at factory values")
    names = [seen["device"]["name"], *seen["device"]["alternatives"]]
    if not seen["device"]["known"] or block.device not in names:
        wrong.append("taken for %s" % " or ".join(map(str, names)))
    return seen, wrong


def check_outlook(stage, block, seen):
    """Resets, and compares with what was said about that."""
    wrong, reset = [], seen["reset"]
    if reset["possible"] is None:
        return []  # the watchdog of an H7: nothing was said
    stage.tool(block.row)
    in_use = "flash in use" in stage.bench("show", "--expect-factory")
    spared = any("PCROP" in left["why"] or "refused" in left["why"] for left in reset["leaves"])
    if reset["erases_flash"] is in_use and not (spared and in_use):
        wrong.append("erases_flash is %s, and the flash is %s" %
                     (reset["erases_flash"], "in use" if in_use else "erased"))
    status, after = stage.options("-SetDeviceFamily", block.row, "--expect", "factory")
    if reset["needs_power_cycle"] != (status == 1 and block.row == "1"):
        wrong.append("needs_power_cycle is %s, status %d" % (reset["needs_power_cycle"], status))
    if reset["needs_power_cycle"]:
        stage.bench("power-cycle")
        status, after = stage.options("-SetDeviceFamily", block.row, "--expect", "factory")
    said = {(left["word"], left["name"]): number(left["value"]) for left in reset["leaves"]}
    left = left_of(after)
    if seen["device"]["alternatives"] == ["STM32L100xBA"]:
        said.pop(("OPTION_RDP", "SPRMOD"), None)  # which lacks it, so it is shown as stored only
    if said != left:
        wrong.append("said to leave %s, left %s" % (said, left))
    if (status == 0) is not after["as_factory"]:
        wrong.append("as_factory is %s with status %d" % (after["as_factory"], status))
    return wrong


def check(stage, block):
    if not set(block.state).isdisjoint({"--variant"}):
        return []  # another answer to an open question: the outlook speaks of the default one
    stage.bench("create", block.device, "--flash", "full", *block.state)
    stage.bench("power-cycle")
    shown = stage.bench("show")
    seen, wrong = check_reading(stage, block)
    if seen is None:
        return wrong
    if "mismatch" not in " ".join(block.state):
        wrong += compare_with_bench(seen, shown)
    return wrong + check_outlook(stage, block, seen)


def main():
    build = os.path.abspath(sys.argv[1])
    part, parts = map(int, sys.argv[2].split("/")) if len(sys.argv) > 2 else (1, 1)
    blocks = outcomes.read_blocks(os.path.join(os.path.dirname(HERE), "sim", "outcomes.txt"))
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        stage = Stage(build, folder)
        for block in blocks[part - 1::parts]:
            for text in check(stage, block):
                print("%s: %s" % (block.head, text))
                failed += 1
            shutil.rmtree(stage.bench_folder, ignore_errors=True)
    print("every_device: %d states, %d complaints" % (len(blocks[part - 1::parts]), failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
