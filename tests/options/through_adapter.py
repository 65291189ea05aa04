#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What quobe-options says of each simulated device, through OpenOCD and the simulated wire, and through
the simulator's own library: the same, word for word.

usage: through_adapter.py BUILD-FOLDER [PART/PARTS]

Each device is looked at in its worst state and as delivered, and one at level 2. Ends with 1 when something differs, with
77 without OpenOCD.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(os.path.dirname(HERE), "wire"))

import wire  # noqa: E402

LIMIT_S = 60


def look(stage, library, row, env):
    """Status and object, without what belongs to the probe."""
    program = os.path.join(stage.folder, library, "quobe-options")
    done = subprocess.run([program, "--json", "-SetDeviceFamily", row], env=dict(stage.env, **env),
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=LIMIT_S,
                          check=False)
    seen = json.loads(done.stdout) if done.stdout else {"error": done.stderr}
    seen.pop("probe", None)
    return done.returncode, seen


def device_state(stage):
    with open(os.path.join(stage.env["QUOBE_BENCH"], "1.device"), "rb") as file:
        return file.read()


def check(stage, row, device, state):
    stage.bench("create", device, "--flash", "full", *state)
    stage.bench("power-cycle")
    simulated = look(stage, "simulated", row, {})
    before = device_state(stage)
    with stage.wire() as served:
        adapted = look(stage, "adapter", row, {"QUOBE_WIRE": served.adapter,
                                               "LD_LIBRARY_PATH": stage.files.hid})
    wrong = []
    if simulated[0] == adapted[0] == 4:
        return []
    if simulated[0] != 0 or simulated != adapted:
        wrong = ["%s: %s, through the adapter %s" % (name, simulated[1].get(name),
                                                     adapted[1].get(name))
                 for name in {**simulated[1], **adapted[1]}
                 if simulated[1].get(name) != adapted[1].get(name)]
        wrong.append("status %s, through the adapter %s" % (simulated[0], adapted[0]))
    # The wire ends with the debug port powered up, and so it finds it.
    if options_of(device_state(stage)) != options_of(before):
        wrong.append("the device's options are others")
    return ["%s %s: %s" % (device, " ".join(state), text) for text in wrong]


def options_of(state):
    """What of a device's file is its content: options, complements and memories."""
    return [line for line in state.splitlines() if line.startswith((b"option.", b"memory.", b"device"))]


def main():
    wire.skip_without_openocd()
    files = wire.Files(sys.argv[1])
    part, parts = map(int, sys.argv[2].split("/")) if len(sys.argv) > 2 else (1, 1)
    cases = [(row, device, one) for row, device, state in wire.worst_states()
             for one in (state, ["--rdp", "0"])]
    cases = (cases + [("5", "STM32F407", ["--rdp", "2"])])[part - 1::parts]
    complaints = []
    with tempfile.TemporaryDirectory() as folder:
        stage = wire.Stage(files, folder)
        for library in ("adapter", "simulated"):
            shutil.copy(os.path.join(sys.argv[1], "quobe-options"), os.path.join(folder, library))
        for row, device, state in cases:
            complaints += check(stage, str(row), device, state)
    print("\n".join(complaints + ["through_adapter: %d states, %d complaints" %
                                  (len(cases), len(complaints))]))
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
