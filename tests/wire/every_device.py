#!/usr/bin/env python3
"""Frees every device of the bench from its worst state, through the tool, the library, OpenOCD, the
wire and the device, and again through the simulator's own library, and compares the two.

usage: every_device.py BUILD-FOLDER

Output of the tool, exit status, the device field by field and the bus accesses have to be the same,
polls of a status register aside. Prints a table. Exit status 1 when something differs, 77 without
OpenOCD.
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
    """Prints the row of the table; gives what differs."""
    create(stage, device, state)
    output, status, shown, accesses, took, left = through_adapter(stage, row)
    create(stage, device, state)
    sim_output, sim_status, sim_shown, sim_accesses, sim_took = through_simulator(stage, row)
    outcome = "factory" if "<-- differs" not in shown else "%d differ" % shown.count("<-- differs")
    print("%3s  %-12s %-9s %4s %9d %9d %9d %9.2f s %9.2f s" % (
        row, device, outcome, status, len(accesses), len(sim_accesses),
        len(wire.without_polls(accesses)), took, sim_took))
    differences = difference("output", sim_output.splitlines(), output.splitlines())
    differences += difference("status", [str(sim_status)], [str(status)])
    differences += difference("device", sim_shown.splitlines(), shown.splitlines())
    differences += difference("access", wire.without_polls(sim_accesses),
                              wire.without_polls(accesses))
    differences += ["process %d is left" % number for number in left]
    return ["%s: %s" % (device, line) for line in differences]


def main():
    wire.skip_without_openocd()
    files = wire.Files(sys.argv[1])
    differences = []
    print("row  device       options   exit  accesses simulator no polls   OpenOCD   simulator")
    with tempfile.TemporaryDirectory() as folder:
        stage = wire.Stage(files, folder)
        for row, device, state in wire.worst_states():
            differences += compare(stage, row, device, state)
    for line in differences:
        print(line)
    print("every_device: %s" % ("the outcomes are the same" if not differences else "FAILED"))
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
