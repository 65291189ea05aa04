#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""200 units over eight probes, two of them here and three on each of two ssh hosts, faults in a tenth.

usage: campaign.py BUILD [--units N] [--seed N]
       campaign.py BUILD --compare      units a minute, eight probes beside one, in real time

The run is killed in the middle with everything that it started here, and resumed. Then each verdict is
compared with the state in which the simulator kept the device, and the log with what was loaded.
"""

import argparse
import os
import random
import re
import shutil
import signal
import sys
import tempfile
import time

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from bench import Line, Sshd, Station, copy_tools, replace_program  # noqa: E402

# Device, row of the menu, the verdict that a device without a fault gets.
DEVICES = [("STM32F051", 1, "needs-power-cycle"), ("STM32F103", 2, "good"), ("STM32F105", 2, "good"),
           ("STM32F207", 3, "good"), ("STM32F303", 4, "good"), ("STM32F407", 5, "good"),
           ("STM32F413", 5, "not-at-factory"), ("STM32F429", 5, "good"), ("STM32F723", 6, "good"),
           ("STM32F746", 7, "good"), ("STM32F767", 8, "good"), ("STM32H743", 9, "good"),
           ("STM32H723", 9, "not-at-factory"), ("STM32L073", 10, "good"), ("STM32L152", 11, "good"),
           ("STM32L476", 12, "good"), ("STM32L433", 12, "not-at-factory")]
# Kind of fault, what the probe is given while the tool runs, the verdict where only one is right.
FAULTS = [("lost", "fault=lost {k}", None), ("read", "fault=read-fails {k}", None),
          ("dropped", "fault=write-dropped {k}", None), ("dip", "fault=power-dip {k} 1000 4", None),
          ("busy", "fault=busy {k} 800", None), ("forever", "fault=busy {k} forever", None),
          ("open", "fault=open-fails gone", None), ("volts", None, "no-target"),
          ("level2", None, "port-closed"), ("swd", None, None), ("family", None, "wrong-family"),
          ("mismatch", None, None), ("stuck", "stuck", None)]
LIMIT_S = 6


class Unit:
    def __init__(self, number, rng, probe, host):
        self.name, self.probe, self.host = "U-%04d" % number, probe, host
        self.device, self.family, self.wanted = DEVICES[number % len(DEVICES)]
        self.state = "--rdp 1 --wrp all --flash full"
        self.kind = self.during = None
        self.settings = "vtarget=3300"
        if number % 10 == 5:
            self.kind, during, wanted = FAULTS[number // 10 % len(FAULTS)]
            self.during = during and during.format(k=rng.randrange(8, 30))
            self.wanted = wanted
            self.spoil()

    def spoil(self):
        if self.kind == "stuck":
            self.device, self.family, self.wanted = "STM32F407", 5, "not-at-factory"
            self.during = "fault=stuck OPTCR 0x40000 0"
        self.settings = "vtarget=0" if self.kind == "volts" else self.settings
        if self.kind == "level2":
            self.device, self.family, self.state = "STM32F407", 5, "--rdp 2"
        if self.kind == "swd":
            self.state += " --program takes-swd"
        if self.kind == "mismatch":
            self.state = "--mismatch rdp --flash full"
            self.device, self.family, self.wanted = "STM32F303", 4, "good"
        if self.kind == "family":
            self.device, self.family = "STM32F103", 4

    def row(self):
        return "%s,%d,%s,%s" % (self.name, self.family, self.probe, self.host)


class Campaign:
    def __init__(self, build, folder, units, seed):
        self.dir, self.build = folder, build
        rng = random.Random(seed)
        self.stations = {name: Station(build, os.path.join(folder, name or "here"))
                         for name in ("", "north", "south")}
        places = [("", "1"), ("", "2")] + [(host, str(n)) for host in ("north", "south") for n in (1, 2, 3)]
        self.units = [Unit(number, rng, *reversed(places[number % len(places)]))
                      for number in range(1, units + 1)]
        for name in ("plan", "during", "states"):
            os.mkdir(os.path.join(folder, name))
        for host, probe in places:
            self.stations[host].create(probe, "STM32F103")
        self.write_plan()
        self.tools = self.make_tools()
        self.servers = [Sshd(self.stations[name], name) for name in ("north", "south")]
        for server in self.servers:
            server.row = server.row.replace(server.station.sim, self.tools)
        self.line = Line(build, self.stations[""], self.tools)

    def path(self, *names):
        return os.path.join(self.dir, *names)

    def write_plan(self):
        """How each unit is put on its probe; what was there before is looked at first."""
        bench = os.path.join(self.build, "sim", "quobe-bench")
        for unit in self.units:
            with open(self.path("plan", unit.name), "w") as file:
                file.write('set -e\n"%s" set --probe %s fault=none %s\n"%s" create --probe %s %s %s\n' % (
                    bench, unit.probe, unit.settings, bench, unit.probe, unit.device, unit.state))
            if unit.during:
                self.stations[""].bench("set", "--probe", "1", unit.during)  # refuses a wrong one
                with open(self.path("during", unit.name), "w") as file:
                    file.write(unit.during)
        with open(self.path("load"), "w") as file:
            file.write("""
cd "%s"
here=$HOME/at-$2
[ ! -f "$here" ] || "%s" show --probe "$2" --expect-factory >"states/$(cat "$here")" || [ $? = 1 ]
echo "$1" >>loaded
echo "$1" >"$here"
exec sh "plan/$1"
""" % (self.dir, bench))

    def make_tools(self):
        """Programs that put a unit's fault in place for the tool's run only: it counts calls."""
        tools = copy_tools(self.build, self.path("tools"))
        find = 'for word; do [ "$before" != -SelectEmuBySN ] || serial=$word; before=$word; done\n'
        bench = os.path.join(self.build, "sim", "quobe-bench")
        replace_program(tools, "quobe-unlock", find + """
fault="%s/during/$(cat "$HOME/at-$serial")"
[ ! -f "$fault" ] || "%s" set --probe $serial "$(cat "$fault")" >&2
exec "$REAL" "$@"
""" % (self.dir, bench))
        replace_program(tools, "quobe-options", find + """
fault="%s/during/$(cat "$HOME/at-$serial")"
[ ! -f "$fault" ] || "%s" set --probe $serial fault=none >&2
exec "$REAL" "$@"
""" % (self.dir, bench))
        return tools

    def finished(self):
        folder = self.path("here", "log", "units")
        return len([name for name in os.listdir(folder) if name.endswith(".jsonl")]) \
            if os.path.isdir(folder) else 0

    def run(self):
        """Runs, kills and resumes. The last run."""
        hosts = self.line.write("hosts.csv", "\n".join(["host,ssh,tools"] + [
            server.row for server in self.servers]) + "\n")
        units = self.line.units(*(unit.row() for unit in self.units), columns="unit,family,probe,host")
        start = time.monotonic()
        process = self.line.start(units, "--hosts", hosts, "--time-limit", LIMIT_S, "--report", "html",
                                  "--load", "sh '%s'" % self.path("load"))
        while process.poll() is None and self.finished() < len(self.units) * 2 // 5:
            time.sleep(0.1)
        kill_here(process.pid)
        process.communicate()
        print("killed with %d of %d verdicts after %.0f s" % (self.finished(), len(self.units),
                                                             time.monotonic() - start))
        run = self.line.run("--resume", "--report", "html", limit=3000)
        print("resumed; %.0f s in all; exit status %d" % (time.monotonic() - start, run.status))
        return run

    def states(self):
        """{unit: what the simulator finds away from factory state when it has left the probe}."""
        for host, station in self.stations.items():
            for name in os.listdir(station.env["HOME"]):
                if name.startswith("at-"):
                    with open(os.path.join(station.env["HOME"], name)) as file:
                        unit = file.read().strip()
                    shown = station.bench("show", "--probe", name[3:], "--expect-factory", expect=(0, 1))
                    with open(self.path("states", unit), "w") as file:
                        file.write(shown.stdout)
        found = {}
        for unit in self.units:
            with open(self.path("states", unit.name)) as file:
                text = file.read().partition("Not at factory state:\n")[2]
            found[unit.name] = [line.strip() for line in text.splitlines()]
        return found

    def wrong(self, unit, attempts, left, loads):
        """What is wrong with a unit's verdict and log."""
        last = attempts[-1]
        verdict = last["verdict"]
        if unit.wanted and verdict != unit.wanted:
            yield "the verdict is %s, not %s" % (verdict, unit.wanted)
        if verdict == "good" and left:
            yield "good, but: %s" % "; ".join(left)
        if not left and verdict not in ("good", "timed-out", "failed"):
            yield "%s, but the device is at factory state" % verdict
        if verdict == "not-at-factory":
            fields = {cause.split(" ")[0] for cause in last["causes"] if re.match(r"\w+\.\w+ ", cause)}
            simulated = {text.split(" ")[0] for text in left if re.match(r"\w+\.\w+ is ", text)}
            if not simulated <= fields:
                yield "not named: %s" % ", ".join(sorted(simulated - fields))
        if verdict == "needs-power-cycle" and any("in force" not in text for text in left):
            yield "more than power is missing: %s" % "; ".join(left)
        if [entry["attempt"] for entry in attempts] != list(range(1, len(attempts) + 1)):
            yield "attempts are missing"
        if [entry["final"] for entry in attempts] != [False] * (len(attempts) - 1) + [True]:
            yield "not one final verdict"
        cut = sum(entry["verdict"] == "interrupted" for entry in attempts)
        if len(attempts) != 1 + cut or not 1 + cut <= loads <= 2 + cut:
            yield "%d attempts, %d of them cut off, %d loads" % (len(attempts), cut, loads)

    def check(self, run):
        with open(self.path("loaded")) as file:
            loaded = file.read().split()
        states, counts, failed = self.states(), {}, 0
        for unit in self.units:
            attempts = run.attempts(unit.name)
            verdict = attempts[-1]["verdict"] if attempts else "none"
            if unit.kind:
                print("%s %-10s %-9s %-28s %s" % (unit.name, unit.device, unit.kind, unit.during or "",
                                                  verdict))
            counts[verdict] = counts.get(verdict, 0) + 1
            problems = list(self.wrong(unit, attempts, states[unit.name], loaded.count(unit.name))) \
                if attempts else ["no attempt"]
            for text in problems:
                print("WRONG %s %s %s: %s" % (unit.name, unit.device, unit.kind or "", text))
            failed += bool(problems)
        again = [name for name in set(loaded) if loaded.count(name) > 1]
        print("%d units: %s" % (len(self.units), ", ".join(
            "%d %s" % (number, name) for name, number in sorted(counts.items()))))
        print("loaded twice, as the kill cut them off: %s" % (", ".join(sorted(again)) or "none"))
        print("line-campaign: %d of %d units wrong" % (failed, len(self.units)))
        return failed

    def stop(self):
        for server in self.servers:
            server.stop()


def kill_here(session):
    """Kills quobe-line, GNU parallel and what is attached to them, at once."""
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.getsid(int(name)) == session:
                os.kill(int(name), signal.SIGKILL)
        except ProcessLookupError:
            pass


def compare(build, folder):
    """Units a minute of one probe and of eight, with devices whose erase takes 16 s."""
    rates = []
    for probes, units in ((1, 2), (8, 16)):
        station = Station(build, os.path.join(folder, str(probes)), fast=False)
        for probe in range(1, probes + 1):
            station.create(probe, "STM32F407", "--rdp", "1", "--flash", "full")
        line = Line(build, station)
        load = line.write("load", '"%s" create --probe "$2" STM32F407 --rdp 1 --flash full\n' %
                          os.path.join(build, "sim", "quobe-bench"))
        start = time.monotonic()
        run = line.run(line.units(*("u%d,5,%d" % (n, n % probes + 1) for n in range(units))),
                       "--load", "sh '%s'" % load)
        seconds = time.monotonic() - start
        if run.status != 0:
            sys.exit(run.output + run.errors)
        rates.append(units * 60 / seconds)
        print("%d probe%s: %d units in %.1f s, %.1f a minute" % (
            probes, "" if probes == 1 else "s", units, seconds, rates[-1]))
    print("line-campaign: eight probes do %.1f times the units of one" % (rates[1] / rates[0]))
    return rates[1] < 6 * rates[0]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=os.path.abspath)
    parser.add_argument("--units", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--compare", action="store_true")
    options = parser.parse_args()
    if not options.compare and Sshd.missing():
        sys.exit("line-campaign: " + Sshd.missing())
    folder = tempfile.mkdtemp(prefix="quobe-line-")
    try:
        if options.compare:
            return int(compare(options.build, folder))
        campaign = Campaign(options.build, folder, options.units, options.seed)
        try:
            return int(campaign.check(campaign.run()) > 0)
        finally:
            campaign.stop()
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
