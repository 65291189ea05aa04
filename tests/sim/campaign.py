#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes each probe operation of each family's reset fail in every way, and looks how the tool ends.

usage: campaign.py --tool FILE --library FILE --bench FILE [--timewarp FILE] [--every N] [--list]

For each row of the menu the tool runs once undisturbed. Then, for each k, it runs again with the
k-th operation of that run made to fail: the connection is lost, a read fails, a write is dropped,
the supply dips, the flash controller stays busy for a while or for ever. Further runs have a bit
of the protection level that does not program, and a probe that cannot be opened. The target is
powered by the probe.

Each run has to end by itself with status 0 or 255, with the probe closed and the target's supply
off, and may claim success only when the device is at read protection level 0. Some waits have no
time-out by contract: a run that polls one of the registers in ENDLESS for ever is ended, counted
apart and listed; polling anything else for ever is a failure. So is, by contract, the last stage of
the L4 reset not read back: where a fault there undoes what was verified before it, the run is
listed too.

First, each device that has a level 2 is tried at it: it must not change.

Ends with 1 when a run did not end as it has to.
"""

import argparse
import collections
import concurrent.futures
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import timewarp

# Menu row, device, its state.
ROWS = [
    (1, "STM32F051", ["--wrp", "all"]),
    (2, "STM32F103", ["--wrp", "all"]),
    (3, "STM32F207", ["--wrp", "all"]),
    (4, "STM32F303", ["--wrp", "all"]),
    (5, "STM32F429", ["--rdp", "0", "--pcrop", "all"]),  # goes through both stages
    (6, "STM32F723", ["--wrp", "all"]),
    (7, "STM32F746", ["--wrp", "all"]),
    (8, "STM32F767", ["--wrp", "all"]),
    (9, "STM32H743", ["--wrp", "all"]),
    (10, "STM32L073", ["--wrp", "all"]),
    (11, "STM32L152", ["--wrp", "all"]),
    (12, "STM32L476", ["--wrp", "all"]),
]

# The waits without a time-out: menu row to the registers that are polled.
ENDLESS = {
    1: ("RCC_CR", "FLASH_SR"),
    2: ("RCC_CR", "FLASH_SR"),
    4: ("RCC_CR", "FLASH_SR"),
    10: ("FLASH_SR",),
    11: ("FLASH_SR",),
    12: ("FLASH_SR",),
}

# Menu rows whose last stage is not read back, and the text that begins it.
UNVERIFIED = {12: "Resetting Write protection (WRP) and PCROP..."}

# Bits of the stored option bytes that do not become what factory state needs: the word with the
# protection level, the level's place in it and its byte at level 0; further words with a bit.
STUCK = {
    1: ("OPTION_RDP_USER", 0, 0xAA), 2: ("OPTION_RDP_USER", 0, 0xA5), 3: ("OPTCR", 8, 0xAA),
    4: ("OPTION_RDP_USER", 0, 0xAA), 5: ("OPTCR", 8, 0xAA), 6: ("OPTCR", 8, 0xAA),
    7: ("OPTCR", 8, 0xAA), 8: ("OPTCR", 8, 0xAA), 9: ("OPTSR", 8, 0xAA),
    10: ("OPTION_RDP", 0, 0xAA), 11: ("OPTION_RDP", 0, 0xAA), 12: ("OPTR", 0, 0xAA),
}
STUCK_FURTHER = {9: ["WPSN2 0x00000001 0"]}

SUCCESS = re.compile(r"settings\.\.\.O\.K\.\n\Z|seconds\)\.\.\.O\.K\.\n\Z|try\.\n.*O\.K\.\n\Z|"
                     r"settings\.\nO\.K\.\n\Z|Option bytes reset to factory settings\.\n\Z", re.S)
LIMIT_S = 30      # far beyond any run that ends
POLLS = 1500      # as many operations more than undisturbed, and it is looked at for endless polling


class Stage:
    """One worker's folder: tool, library and a bench."""

    def __init__(self, args, root, name):
        self.dir = os.path.join(root, name)
        os.makedirs(os.path.join(self.dir, "bench"))
        for file in (args.tool, args.library):
            shutil.copy(file, self.dir)
        self.tool = os.path.join(self.dir, os.path.basename(args.tool))
        self.trace = os.path.join(self.dir, "trace")
        self.env = dict(os.environ, QUOBE_BENCH=os.path.join(self.dir, "bench"),
                        QUOBE_BENCH_TIME="fast", QUOBE_BENCH_TRACE=self.trace)
        self.tool_env = self.env
        if args.timewarp:
            self.tool_env = timewarp.environment(self.env, args.timewarp)

    def file(self, ending):
        return os.path.join(self.dir, "bench", "1." + ending)

    def run(self, row, device_state, fault, undisturbed):
        """Runs the tool; gives output, status (None: polled for ever), trace lines, device lines."""
        with open(self.file("device"), "w") as file:
            file.write(device_state)
        with open(self.file("probe"), "w") as file:
            file.write("serial = 1\nvtarget = 0\nsupply = 3300\n")
            if fault:
                file.write("fault = %s\n" % fault)
        if os.path.exists(self.trace):
            os.remove(self.trace)
        tool = subprocess.Popen(
            [self.tool, "-SetPowerTarget", "1", "-SetDeviceFamily", str(row), "-Exit", "1"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env=self.tool_env, close_fds=False)
        status = None
        deadline = time.monotonic() + LIMIT_S
        step = 0.004
        while status is None and time.monotonic() < deadline:
            try:
                status = tool.wait(step)
            except subprocess.TimeoutExpired:
                step = min(step * 2, 0.1)
                if row in ENDLESS and self.trace_is_longer_than(undisturbed + POLLS):
                    break
        if status is None:
            tool.send_signal(signal.SIGKILL)
            tool.wait()
        output = tool.stdout.read().decode(errors="replace")
        tool.stdout.close()
        return output, status, self.lines(self.trace), self.lines(self.file("device"))

    def trace_is_longer_than(self, num_lines):
        return os.path.exists(self.trace) and os.path.getsize(self.trace) > num_lines * 40

    @staticmethod
    def lines(path):
        with open(path) as file:
            return file.read().splitlines()


def operations(trace):
    """The operations of a trace by their number: their text."""
    found = {}
    for line in trace:
        number, text = line.split(None, 2)[1:]
        if number != "-":
            found[int(number)] = text.strip()
    return found


def faults_for(row, trace):
    """Every fault for every operation of an undisturbed run, as far as it means something there."""
    yield 'open-fails "The probe does not answer."'
    word, place, byte = STUCK[row]
    for bit in range(8):
        yield "stuck %s 0x%X 0x%X" % (word, 1 << bit << place, (~byte & 1 << bit) << place)
    for text in STUCK_FURTHER.get(row, ()):
        yield "stuck " + text
    for number, text in operations(trace).items():
        yield "lost %d" % number
        yield "power-dip %d 450 3" % number
        if text.startswith(("RD", "GetHWStatus")):
            yield "read-fails %d" % number
        if text.startswith(("WR", "Reset", "ExecCommand")):
            yield "write-dropped %d" % number
        if text.startswith(("WR", "RD", "Reset")):
            yield "busy %d 50" % number
            yield "busy %d forever" % number


def polled_register(trace):
    """The register that all of the last operations read, else None."""
    names = set()
    for text in list(operations(trace).values())[-50:]:
        match = re.match(r"RD +(\[?\w+\]?)", text)
        names.add(match.group(1) if match else None)
    return names.pop() if len(names) == 1 else None


def verdict(row, output, status, trace, device, fault=None):
    """("ended", how), ("endless", register), ("unverified", how) or ("failed", why)."""
    if status is None:
        register = polled_register(trace)
        # Where the target no longer answers, its registers have no names.
        if register in ENDLESS.get(row, ()):
            return "endless", register
        return "failed", "did not end; last: %s" % trace[-1]
    if status not in (0, 255):
        return "failed", "exit status %d" % status
    state = dict(line.split(" = ", 1) for line in device if " = " in line)
    if state.get("probe.open") == "1":
        return "failed", "the probe was left open"
    if state.get("probe.supply_on") == "1":
        # No fault but the loss of the very command that switches it off may do that.
        last = [n for n, text in operations(trace).items() if "DisablePowerSupplyOnClose" in text]
        if not last or fault != "write-dropped %d" % last[-1]:
            return "failed", "the target's supply was left on"
    success = status == 0 and SUCCESS.search(output) is not None
    if success and not at_level_0(state):
        if UNVERIFIED.get(row, "\0") in output:
            return "unverified", "protected by the last stage"
        return "failed", "claims success, but the device is protected"
    return "ended", "success" if success else "told the failure"


def at_level_0(state):
    """From the stored option bytes, in the manner of each kind of device."""
    if "option.OPTION_RDP_USER" in state:
        value = int(state["option.OPTION_RDP_USER"], 16) & 0xFFFF
        return value == (0x5AA5 if state["device"] == "STM32F103" else 0x55AA)
    if "option.OPTION_RDP" in state:
        return int(state["option.OPTION_RDP"], 16) & 0x00FF00FF == 0x005500AA
    if "option.OPTCR" in state:
        return int(state["option.OPTCR"], 16) & 0xFF00 == 0xAA00
    if "option.OPTSR" in state:
        return int(state["option.OPTSR"], 16) & 0xFF00 == 0xAA00
    return int(state["option.OPTR"], 16) & 0xFF == 0xAA


# What the tool says last about a device at level 2, whose debug port is shut. F1 has no level 2; F0
# and F3 wait for the clock for ever, having said nothing untrue.
LEVEL2_WORDS = {
    3: "Unlock not successful.", 5: "Unlock not successful.", 6: "Unlock not successful.",
    7: "Unlock not successful.", 8: "Unlock not successful.", 9: "Resetting option bytes failed.",
    10: "Resetting option bytes failed.", 11: "Resetting option bytes failed.",
    12: "Could not reset OPTR...",
}


def level2_failures(args, stage):
    """A level-2 device is never changed, and the tool does not say otherwise in the end."""
    failures = []
    for row, device, _ in ROWS:
        if device == "STM32F103":
            continue
        command = [args.bench, "create", device, "--rdp", "2", "--flash", "full"]
        subprocess.run(command, check=True, env=stage.env, stdout=subprocess.DEVNULL)
        before = stage.lines(stage.file("device"))
        output, status, trace, after = stage.run(row, "\n".join(before) + "\n", None, 100)
        kept = [[line for line in lines if line.startswith(("option.", "memory."))]
                for lines in (before, after)]
        if kept[0] != kept[1]:
            failures.append("%s at level 2 was changed" % device)
        if row in LEVEL2_WORDS:
            if not output.endswith(LEVEL2_WORDS[row] + "\n"):
                failures.append("%s at level 2: the tool said\n%s" % (device, output))
        elif status is not None or polled_register(trace) != "RCC_CR":
            failures.append("%s at level 2: no wait for the clock" % device)
    return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("tool", "library", "bench"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--timewarp")
    parser.add_argument("--every", type=int, default=1, help="only each N-th fault")
    parser.add_argument("--list", action="store_true", help="every run with its outcome")
    parser.add_argument("--workers", type=int, default=8)
    args = parser.parse_args()
    for name in ("tool", "library", "bench", "timewarp"):
        path = getattr(args, name)
        setattr(args, name, os.path.abspath(path) if path else path)

    start = time.monotonic()
    base = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    root = tempfile.mkdtemp(prefix="quobe-campaign-", dir=base)
    local = threading.local()
    names = iter(range(1000))

    def stage():
        if not hasattr(local, "stage"):
            local.stage = Stage(args, root, "stage%d" % next(names))
        return local.stage

    try:
        jobs = []
        for row, device, state in ROWS:
            command = [args.bench, "create", device, "--rdp", "1", "--flash", "full"] + state
            subprocess.run(command, check=True, env=stage().env, stdout=subprocess.DEVNULL)
            with open(stage().file("device")) as file:
                device_state = file.read()
            output, status, trace, lines = stage().run(row, device_state, None, 10000)
            if (verdict(row, output, status, trace, lines) != ("ended", "success") or
                    "LD_PRELOAD" in output):
                print("%s: the undisturbed run did not succeed:\n%s" % (device, output))
                return 1
            for fault in faults_for(row, trace):
                jobs.append((row, device, device_state, fault, len(trace)))
        jobs = jobs[::args.every]

        def run(job):
            row, device, device_state, fault, length = job
            result = stage().run(row, device_state, fault, length)
            return job, verdict(row, *result, fault), result[0]

        counts = collections.defaultdict(collections.Counter)
        endless = collections.defaultdict(list)
        unverified = []
        failed = level2_failures(args, stage())
        with concurrent.futures.ThreadPoolExecutor(args.workers) as pool:
            for (row, device, _, fault, _), (kind, how), output in pool.map(run, jobs):
                counts[device][how if kind == "ended" else kind] += 1
                if kind == "endless":
                    endless[(device, how)].append(fault)
                if kind == "unverified":
                    unverified.append("%s, %s: %s" % (device, fault, how))
                if kind == "failed":
                    failed.append("%s, %s: %s\n%s" % (device, fault, how, output))
                if args.list:
                    print("%s  %-24s %s, %s" % (device, fault, kind, how))
        print("%-10s %6s %9s %15s %8s %11s %7s" %
              ("device", "runs", "success", "told a failure", "endless", "unverified", "failed"))
        for device, count in counts.items():
            print("%-10s %6d %9d %15d %8d %11d %7d" %
                  (device, sum(count.values()), count["success"], count["told the failure"],
                   count["endless"], count["unverified"], count["failed"]))
        print("\nWaits without a time-out, as they are meant to be; not counted as passed:")
        for (device, register), faults in endless.items():
            print("  %s polls %s: %s" % (device, register, ", ".join(faults)))
        if unverified:
            print("\nSuccess told without a look at what the last stage left; not counted as passed:")
        for text in unverified:
            print("  " + text)
        for text in failed:
            print("\nFAILED " + text)
        print("\n%d runs in %.0f s, %d failed" % (len(jobs), time.monotonic() - start, len(failed)))
        return 1 if failed else 0
    finally:
        shutil.rmtree(root, ignore_errors=True)


sys.exit(main())
