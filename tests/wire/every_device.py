#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Frees every device of the bench from its worst state, through the tool, the library, OpenOCD, the
wire and the device, and again through the simulator's own library, and compares the two.

usage: every_device.py BUILD-FOLDER [--table]

Output of the tool, exit status, the device field by field and the bus accesses have to be the same, apart
from how often a status register is polled. With --table a table of both is printed. Exit status 1 when
something differs, 77 without OpenOCD.
"""

import difflib
import sys
import tempfile
import time

import wire


def create(stage, device, state):
    stage.bench("create", device, "--flash", "full", *state)


def through_adapter(stage, row):
    with stage.wire() as served:
        start = time.monotonic()
        output, status = stage.run([served.adapter], "-SetDeviceFamily", str(row))
        took = time.monotonic() - start
    left = wire.wait_until_gone(stage, 2)
    return output, status, stage.bench("show"), stage.accesses(), took, left


def through_simulator(stage, row):
    start = time.monotonic()
    output, status = stage.run([], "-SetDeviceFamily", str(row), library="simulated")
    return output, status, stage.bench("show"), stage.accesses(), time.monotonic() - start


def difference(name, simulated, adapter):
    lines = difflib.unified_diff(simulated, adapter, "simulator", "OpenOCD", lineterm="", n=1)
    return ["%s: %s" % (name, line) for line in lines]


def compare(stage, row, device, state):
    """The row of the table, and what differs."""
    create(stage, device, state)
    output, status, shown, accesses, took, left = through_adapter(stage, row)
    create(stage, device, state)
    sim_output, sim_status, sim_shown, sim_accesses, sim_took = through_simulator(stage, row)
    polls, sim_polls = len(accesses), len(sim_accesses)
    accesses, sim_accesses = wire.without_polls(accesses), wire.without_polls(sim_accesses)
    polls, sim_polls = polls - len(accesses), sim_polls - len(sim_accesses)
    differs = shown.count("<-- differs")
    outcome = "%d fields differ" % differs if differs else "factory state"
    line = "| %s | %s | %s | %s | %d + %d | %d + %d | %.2f s | %.2f s |" % (
        row, device, outcome, status, len(accesses), polls, len(sim_accesses), sim_polls, took,
        sim_took)
    differences = difference("output", sim_output.splitlines(), output.splitlines())
    differences += difference("status", [str(sim_status)], [str(status)])
    differences += difference("device", sim_shown.splitlines(), shown.splitlines())
    differences += difference("access", sim_accesses, accesses)
    differences += ["process %d is left" % number for number in left]
    return line, ["%s: %s" % (device, text) for text in differences]


TABLE = """\
Bus accesses are given as "number + repeated polls of a status register".

| row | device | outcome | exit | accesses, OpenOCD | accesses, simulator | time, OpenOCD | simulator |
|---|---|---|---|---|---|---|---|"""


def main():
    wire.skip_without_openocd()
    files, differences, lines = wire.Files(sys.argv[1]), [], []
    with tempfile.TemporaryDirectory() as folder:
        stage = wire.Stage(files, folder)
        for row, device, state in wire.worst_states():
            line, more = compare(stage, row, device, state)
            lines.append(line)
            differences += more
    if "--table" in sys.argv:
        print("\n".join([TABLE] + lines))
    for text in differences:
        print(text)
    print("every_device: %d devices, %s" % (
        len(lines), "FAILED" if differences else "the outcomes are the same"))
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
