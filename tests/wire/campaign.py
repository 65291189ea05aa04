#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes transfers on the wires of each family's reset fail, one at a time, and looks how the tool ends.

usage: campaign.py BUILD-FOLDER [--every N] [--row ROW] [--kind KIND] [--list] [--workers N]

For each row of the menu the tool runs once undisturbed; the wire reports how many SWD transfers that
took. Then, for the k-th of them, it runs again with that one lost (the adapter is unplugged), answered
with FAULT, with WAIT for longer than the adapter retries, not answered, or with a wrong parity.

Each run has to end by itself with status 0 or 255 and leave no process. It may claim success only when
the device is at read protection level 0. Where the adapter is still there, the core has to be let go.
Some waits have no time-out by contract: a run that reads one of the registers in ENDLESS for ever is
ended, counted apart and listed; reading anything else for ever is a failure. The last stage of the L4
reset is, by contract, not read back: runs where a fault there undoes what was verified before are listed
too.

Exit status 1 when a run did not end as it has to, 77 without OpenOCD.
"""

import argparse
import collections
import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile
import threading
import time

import wire

# Menu row, device.
ROWS = [
    (1, "STM32F051"), (2, "STM32F103"), (3, "STM32F207"), (4, "STM32F303"), (5, "STM32F407"),
    (6, "STM32F723"), (7, "STM32F746"), (8, "STM32F767"), (9, "STM32H743"), (10, "STM32L073"),
    (11, "STM32L152"), (12, "STM32L476"),
]

# The registers that are waited for without a time-out, by menu row.
RCC_CR = 0x40021000
ENDLESS = {
    1: (RCC_CR, 0x4002200C), 2: (RCC_CR, 0x4002200C), 4: (RCC_CR, 0x4002200C),
    10: (0x40022018,), 11: (0x40023C18,), 12: (0x40022010,),
}

# Menu rows whose last stage is not read back, and the text that begins it.
UNVERIFIED = {12: "Resetting Write protection (WRP) and PCROP..."}

KINDS = ("lost %d", "fault %d", "wait %d 200", "no-ack %d", "parity %d")
SUCCESS = re.compile(r"(O\.K\.|Option bytes reset to factory settings\.)\n\Z")
LEVEL_0 = re.compile(r"^Read protection: .*level 0( stored)?$", re.M)
LIMIT_S = 90      # the tool waits up to 25 s for a busy device, and a failed access can take 8 s
POLLS = 1500      # so many reads in a row of one register are a wait without a time-out


def polled_register(path):
    """The address that each of the last operations read, if there were enough of them, else None."""
    if not os.path.exists(path) or os.path.getsize(path) < POLLS * 40:
        return None
    with open(path, "rb") as file:
        file.seek(-POLLS * 40, os.SEEK_END)
        lines = file.read().decode().splitlines()[1:-1]
    addresses = {line.partition("RD  [")[2][:10] for line in lines if " -- " not in line}
    return int(addresses.pop(), 16) if len(addresses) == 1 and "" not in addresses else None


def run_once(stage, row, device, fault):
    """Output and status of the tool (None: it was ended), what the wire said at its end, the register
    that was read last for ever, and the processes left."""
    calls = os.path.join(stage.folder, "calls")
    stage.configure("driver = cmsis-dap\ntrace = %s\n" % calls)
    if os.path.exists(calls):
        os.remove(calls)
    stage.bench("create", device, "--rdp", "1", "--wrp", "all", "--flash", "full")
    with stage.wire(*(["--fault", fault] if fault else [])) as served:
        tool = stage.start([served.adapter], "-SetDeviceFamily", str(row))
        deadline, register, status = time.monotonic() + LIMIT_S, None, None
        while status is None and time.monotonic() < deadline:
            try:
                status = tool.wait(0.2)
            except subprocess.TimeoutExpired:
                register = polled_register(calls)
                if register in ENDLESS.get(row, ()):
                    break
        if status is None:
            tool.kill()
        output = tool.communicate()[0].decode(errors="replace")
        left = wire.wait_until_gone(stage, 3)
        wire.kill(left)
        if served.process.poll() is None:
            served.process.terminate()
        last = served.process.communicate(timeout=10)[0].strip()
    return output, status, last, register, left


def verdict(stage, row, fault, result):
    """("ended", how), ("endless", ""), ("unverified", "") or ("failed", why)."""
    output, status, last, register, left = result
    if left:
        return "failed", "%d processes are left" % len(left)
    # How often a register is polled differs from run to run, so the last transfers may not come.
    lost = fault and fault.startswith("lost") and int(fault.split()[1]) <= int(last.split()[0])
    if not lost and not last.endswith("the core is free"):
        return "failed", "the wire said: " + last
    if status is None:
        if register in ENDLESS.get(row, ()):
            return "endless", ""
        return "failed", "did not end, reading %s" % register
    if status not in (0, 255):
        return "failed", "exit status %d" % status
    success = status == 0 and SUCCESS.search(output) is not None
    if success and not LEVEL_0.search(stage.bench("show")):
        if UNVERIFIED.get(row, "\0") in output:
            return "unverified", ""
        return "failed", "claims success, but the device is protected"
    return "ended", "success" if success else "reported"


class Stages:
    """A stage for each worker, in its own folder."""

    def __init__(self, files, root):
        self.files, self.root = files, root
        self.local, self.names = threading.local(), iter(range(1000))

    def mine(self):
        if not hasattr(self.local, "stage"):
            folder = os.path.join(self.root, "stage%d" % next(self.names))
            self.local.stage = wire.Stage(self.files, folder)
        return self.local.stage


def main():
    wire.skip_without_openocd()
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--every", type=int, default=1, help="only each N-th fault")
    parser.add_argument("--row", type=int)
    parser.add_argument("--kind", default="")
    parser.add_argument("--list", action="store_true", help="every run with its outcome")
    parser.add_argument("--workers", type=int, default=16)
    args = parser.parse_args()
    start = time.monotonic()
    counts, transfers = collections.defaultdict(collections.Counter), {}
    listed = collections.defaultdict(list)
    with tempfile.TemporaryDirectory() as root, \
            concurrent.futures.ThreadPoolExecutor(args.workers) as pool:
        stages = Stages(wire.Files(args.build), root)

        def run(job):
            row, device, fault = job
            result = run_once(stages.mine(), row, device, fault)
            return job, verdict(stages.mine(), row, fault, result), result

        jobs = []
        undisturbed = [(row, device, None) for row, device in ROWS if args.row in (None, row)]
        for (row, device, _), outcome, (output, _, last, _, _) in pool.map(run, undisturbed):
            if outcome != ("ended", "success"):
                print("%s: the undisturbed run did not succeed: %s\n%s" % (device, outcome, output))
                return 1
            transfers[device] = int(last.split()[0])
            jobs += [(row, device, kind % number) for number in range(1, transfers[device] + 1)
                     for kind in KINDS if kind.startswith(args.kind)]
        jobs = jobs[::args.every]
        for (_, device, fault), (kind, how), (output, *_) in pool.map(run, jobs):
            counts[device][how if kind == "ended" else kind] += 1
            text = "%s, %s" % (device, fault)
            listed[kind].append("%s: %s\n%s" % (text, how, output) if kind == "failed" else text)
            if args.list:
                print("%s: %s %s" % (text, kind, how), flush=True)
    names = ("success", "reported", "endless", "unverified", "failed")
    print(("%-10s %9s %6s" + " %10s" * len(names)) % ("device", "transfers", "runs", *names))
    for device, count in counts.items():
        print(("%-10s %9d %6d" + " %10d" * len(names)) % (
            device, transfers[device], sum(count.values()), *(count[name] for name in names)))
    for text in listed["endless"]:
        print("waits without a time-out, as required: " + text)
    for text in listed["unverified"]:
        print("success is claimed without a look at the last stage: " + text)
    for text in listed["failed"]:
        print("\nFAILED " + text)
    print("campaign: %d runs in %.0f s, %d failed" % (len(jobs), time.monotonic() - start,
                                                     len(listed["failed"])))
    return 1 if listed["failed"] else 0


if __name__ == "__main__":
    sys.exit(main())
