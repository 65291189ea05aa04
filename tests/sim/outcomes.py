#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs the tool on simulated devices and compares what is left with tests/sim/outcomes.txt.

usage: outcomes.py --tool FILE --library FILE --bench FILE [--timewarp FILE] [--print] [WORD ...]

A block of the file begins with the row of the menu, devices, and the state they are created in.
The outcome is the same for each of these devices: the tool's exit status, its last line, and all
that the bench then finds to differ from factory state: option fields stored and in force,
complements, flags, memories, a running operation. What a block does not name has to be at factory
state. "each field" stands for one more run per user, boot and data field, in which that field alone
is away from its factory value and the rest ends the same. Fields after "keeps" stay away from it;
for those after "but" no run is made, because they have their own blocks.

In fast time a device is ready after a few polls, so a wait that is given up too early is not seen.
With --timewarp, with which time passes 50 times as fast, each state with "each field" is also run
in real time.

With words only the blocks in whose first line one of them occurs. --print shows the outcomes in the
file's form instead of comparing: a draft, to be held against the reference manuals.
Ends with 1 when an outcome is not the expected one.
"""

import argparse
import concurrent.futures
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

import timewarp

HERE = os.path.dirname(os.path.abspath(__file__))
# Fields that an "each field" block leaves alone: they are protection and have their own blocks.
PROTECTION = re.compile(r"RDP$|n?WRP|PCROP|PROT_AREA|SEC_AREA|SPRMOD|WPRMOD|DMEP|DMES|UNUSED")
FIELD = re.compile(r"^  (\w+) +([0-9A-F]+) +factory ([0-9A-F]+)")


class Block:
    """One device in one state, and its outcome."""

    def __init__(self, row, device, state):
        self.row, self.device, self.state = row, device, state
        self.head = " ".join([row, device, *state])
        self.status, self.last, self.differences = None, None, []
        self.each, self.but, self.keeps, self.reason = False, [], [], []


def read_blocks(path):
    blocks, group = [], []  # group: the blocks of one head
    with open(path) as file:
        for number, line in enumerate(file, 1):
            words = line.split()
            text = " ".join(words)
            if not words or line.startswith("#"):
                continue
            if not line[0].isspace():
                devices = [word for word in words[1:] if word.startswith("STM32")]
                group = [Block(words[0], device, words[1 + len(devices):]) for device in devices]
                blocks += group
                continue
            for block in group:
                if words[0] == "#":
                    block.reason.append(text[2:])
                elif text.startswith("each field"):
                    split = words.index("keeps")
                    block.each, block.but, block.keeps = True, words[3:split], words[split + 1:]
                elif block.status is None:
                    if not words[0].isdigit():
                        sys.exit("%s:%d: no exit status: %s" % (path, number, text))
                    block.status, block.last = int(words[0]), " ".join(words[1:])
                else:
                    block.differences.append(text)
    return blocks


class Stage:
    """One worker's folder: tool, library and a bench with one probe."""

    def __init__(self, args, root, name):
        self.dir = os.path.join(root, name)
        os.makedirs(self.dir)
        for file in (args.tool, args.library):
            shutil.copy(file, self.dir)
        self.tool = os.path.join(self.dir, os.path.basename(args.tool))
        self.bench, self.limit = args.bench, args.limit
        self.trace = os.path.join(self.dir, "trace")
        self.env = dict(os.environ, QUOBE_BENCH=os.path.join(self.dir, "bench"))
        self.env.pop("QUOBE_BENCH_TRACE", None)
        self.tool_env = dict(self.env, QUOBE_BENCH_TRACE=self.trace)
        self.is_warped = bool(args.timewarp)
        if self.is_warped:
            self.tool_env = timewarp.environment(self.tool_env, args.timewarp)

    def ask_bench(self, *words):
        done = subprocess.run([self.bench, *words], env=self.env, capture_output=True, text=True,
                              timeout=30)
        if done.returncode > 1:
            raise RuntimeError("quobe-bench %s: %s%s" % (" ".join(words), done.stdout, done.stderr))
        return done.stdout

    def run(self, block, more=(), speed="fast"):
        """Exit status (None: did not end), last line, differences, seconds of the device's time."""
        self.ask_bench("create", block.device, "--flash", "full", *block.state, *more)
        if os.path.exists(self.trace):
            os.remove(self.trace)
        command = [self.tool, "-Exit", "1", "-SetDeviceFamily", block.row]
        try:
            done = subprocess.run(command, env=dict(self.tool_env, QUOBE_BENCH_TIME=speed),
                                  stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                  timeout=self.limit)
            status, output = done.returncode, done.stdout
        except subprocess.TimeoutExpired as late:
            status, output = None, (late.stdout or b"").decode(errors="replace")
        lines = output.splitlines() or [""]
        shown = self.ask_bench("show", "--expect-factory")
        _, _, differences = shown.partition("Not at factory state:\n")
        seconds = 0.0  # a run that was ended before it reached the probe leaves no trace
        if os.path.exists(self.trace):
            with open(self.trace) as file:
                seconds = float(file.read().splitlines()[-1].split("#")[0])
        return (status, lines[-1], [text.strip() for text in differences.splitlines()]), seconds

    def fields(self, block):
        """(word.field or field, a value that is not the factory's) of each field to try."""
        self.ask_bench("create", block.device)
        found, word = [], None
        for line in self.ask_bench("show").splitlines():
            match = FIELD.match(line)
            if match and not PROTECTION.search(match.group(1)):
                value = int(match.group(3), 16) ^ 1
                found.append(("%s.%s" % (word, match.group(1)), "%s=0x%X" % (match.group(1), value)))
            elif line and not line[0].isspace():
                word = line.split()[0]
        return found


def run_block(stage, block):
    """The outcome, what is wrong with it (one text each), seconds of the device's time."""
    outcome, seconds = stage.run(block)
    wrong = []
    if outcome[:2] != (block.status, block.last):
        wrong.append("ends with %r %r, not %r %r" % (outcome[:2] + (block.status, block.last)))
    wrong += ["also: " + text for text in outcome[2] if text not in block.differences]
    wrong += ["not so: " + text for text in block.differences if text not in outcome[2]]
    if stage.is_warped and block.each and not wrong:
        real = stage.run(block, speed="real")[0]
        if real != outcome:
            wrong.append("in real time: ends with %r %r, left: %s" %
                         (real[0], real[1], "; ".join(real[2])))
    kept = []
    for name, option in stage.fields(block) if block.each else []:
        field = name.split(".")[1]
        if field in block.but:
            continue
        (status, last, differences), _ = stage.run(block, ("--option", option))
        further = [text for text in differences if text not in outcome[2]]
        stays = any(text.startswith(name + " ") for text in further)
        if stays:
            kept.append(field)
        if (status, last) != outcome[:2]:
            wrong.append("with %s: ends with %r %r" % (option, status, last))
        if stays != (field in block.keeps):
            wrong.append("with %s: %s" % (option, "it stays" if stays else "it does not stay"))
        wrong += ["with %s also: %s" % (option, text) for text in further
                  if not text.startswith(name + " ")]
        wrong += ["with %s not so: %s" % (option, text) for text in outcome[2]
                  if text not in differences]
    return outcome, wrong, seconds, kept


def show(block, outcome, kept):
    print(block.head)
    print("    %s %s" % outcome[:2])
    for text in outcome[2]:
        print("    " + text)
    if block.each:
        but = " but " + " ".join(block.but) if block.but else ""
        print("    each field%s keeps%s" % (but, "".join(" " + name for name in kept)))
    for text in block.reason:
        print("    # " + text)
    print()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("tool", "library", "bench"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--timewarp")
    parser.add_argument("--print", action="store_true")
    parser.add_argument("--table", action="store_true", help="one line for each block")
    parser.add_argument("--list", action="store_true", help="the same in tabs, for a script; what an "
                        "'each field' stands for is left out")
    parser.add_argument("--file", default=os.path.join(HERE, "outcomes.txt"))
    parser.add_argument("--limit", type=float, default=30, help="seconds for one run of the tool")
    parser.add_argument("--row", help="only this row of the menu; several with commas")
    parser.add_argument("--first", action="store_true", help="end at the first that is unexpected")
    parser.add_argument("--workers", type=int, default=8)
    parser.add_argument("words", nargs="*")
    args = parser.parse_args()
    for name in ("tool", "library", "bench", "timewarp"):
        path = getattr(args, name)
        setattr(args, name, os.path.abspath(path) if path else path)

    start = time.monotonic()
    blocks = [block for block in read_blocks(args.file)
              if (not args.words or any(word in block.head for word in args.words)) and
              (not args.row or block.row in args.row.split(","))]
    base = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    root = tempfile.mkdtemp(prefix="quobe-outcomes-", dir=base)
    local, names = threading.local(), iter(range(1000))

    def run(block):
        if not hasattr(local, "stage"):
            local.stage = Stage(args, root, "stage%d" % next(names))
        if args.list:
            block.each = False
        return run_block(local.stage, block)

    failed = 0
    if not (args.words or args.row or args.print):
        listed = subprocess.run([args.bench, "devices"], capture_output=True, text=True, check=True).stdout
        for name in sorted({line.split()[0] for line in listed.splitlines()} - {block.device for block in blocks}):
            print("UNEXPECTED %s: no state of it is in the file" % name)
            failed += 1
    try:
        with concurrent.futures.ThreadPoolExecutor(args.workers) as pool:
            if args.table:
                print("%3s  %-13s %-9s %6s %8s  %s" %
                      ("row", "device", "factory", "status", "time", "from; what is left"))
            for block, (outcome, wrong, seconds, kept) in zip(blocks, pool.map(run, blocks)):
                if args.print:
                    show(block, outcome, kept)
                    continue
                if args.list:
                    print("\t".join([block.row, block.device, " ".join(block.state),
                                     str(outcome[0]), outcome[1], "; ".join(outcome[2]),
                                     "; ".join(block.reason), "%.3f" % seconds]))
                if args.table:
                    print("%3s  %-13s %-9s %6s %6.1f s  %s" %
                          (block.row, block.device, "no" if outcome[2] else "yes", outcome[0],
                           seconds, " ".join(block.state) or "as delivered"))
                    for text in outcome[2]:
                        print("     left: " + text)
                    for text in block.reason if outcome[2] else []:
                        print("     why: " + text)
                for text in wrong:
                    print("UNEXPECTED %s: %s" % (block.head, text))
                failed += bool(wrong)
                if failed and args.first:
                    pool.shutdown(cancel_futures=True)
                    return 1
        if not args.print and not args.list:
            print("outcomes: %d states of %d devices in %.0f s, %d not as expected" %
                  (len(blocks), len({block.device for block in blocks}), time.monotonic() - start,
                   failed))
    finally:
        shutil.rmtree(root, ignore_errors=True)
    return 1 if failed or not blocks else 0


if __name__ == "__main__":
    sys.exit(main())
