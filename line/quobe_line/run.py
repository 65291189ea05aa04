# SPDX-License-Identifier: MIT
"""A run: what is to be done goes to GNU parallel, what comes back goes into the log."""

import argparse
import collections
import datetime
import fcntl
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import uuid

from quobe_line import page, record, rows, verdict, work

GOOD, NOT_GOOD, USAGE, MISSING, UNFINISHED = 0, 1, 2, 3, 4

PROGRAM = os.path.realpath(sys.argv[0])
SAVED = ("jobs", "retries", "time_limit", "load", "tools")

EPILOG = """exit status:
  0  every unit is good
  1  every unit has a verdict, and at least one is not good
  2  wrong command line, UNITS.csv, file of hosts or log folder; nothing was started
  3  something needed is missing or the log cannot be written
  4  units are left that were not done; --resume does them
"""


class Trouble(Exception):
    """Text for the user, and the exit status."""

    def __init__(self, status, text):
        super().__init__(text)
        self.status = status


def count(least, most):
    def take(text):
        if not re.match(r"[0-9]{1,6}\Z", text) or not least <= int(text) <= most:
            raise argparse.ArgumentTypeError("%r is not a number from %d to %d" % (text, least, most))
        return int(text)
    return take


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="quobe-line", allow_abbrev=False, epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Returns the units of a list to factory option bytes and says what became of each.")
    parser.add_argument("units", nargs="?", metavar="UNITS.csv",
                        help="unit,family,probe and, if needed, host,speed,power; one unit a row")
    parser.add_argument("--jobs", type=count(1, 1000), metavar="N",
                        help="units at a time on each host; without it one on every probe")
    parser.add_argument("--hosts", metavar="FILE", help="other stations: host,ssh,tools")
    parser.add_argument("--retries", type=count(0, 9), metavar="K",
                        help="further attempts: again, slower, after a power cycle (default: 0)")
    parser.add_argument("--log", metavar="DIR", help="a new folder for all that is recorded")
    parser.add_argument("--resume", action="store_true", help="do what the run of --log has left")
    parser.add_argument("--report", choices=["html"], help="write report.html into the log; without "
                        "UNITS.csv and --resume that is all")
    parser.add_argument("--tools", metavar="DIR", help="folder of quobe-unlock, quobe-options and the "
                        "probe library on this host (default: that of quobe-line)")
    parser.add_argument("--time-limit", type=count(1, 3600), metavar="S",
                        help="seconds for the tool instead of its family's limit")
    parser.add_argument("--load", metavar="COMMAND", help="puts a unit on its probe; gets the names of "
                        "both as arguments, on the probe's host")
    options = parser.parse_args(arguments)
    if options.resume and not options.log:
        parser.error("--resume needs --log")
    if not options.units and not options.resume and not (options.report and options.log):
        parser.error("UNITS.csv is missing")
    return options


class Log:
    """The folder of a run."""

    def __init__(self, path):
        self.path = os.path.abspath(path)
        self.units = os.path.join(self.path, "units")
        self.lock = None

    def file(self, name):
        return os.path.join(self.path, name)

    def read(self, name):
        with open(self.file(name), encoding="utf-8") as file:
            return file.read()

    def keep_others_out(self):
        """Waits for started units of a run that was killed: they keep the lock until they end."""
        self.lock = os.open(self.file("lock"), os.O_RDWR | os.O_CREAT, 0o666)
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            print("quobe-line: waiting for units that are being worked on", file=sys.stderr)
            fcntl.flock(self.lock, fcntl.LOCK_EX)


def new_log(options):
    name = options.log or datetime.datetime.now().strftime("quobe-line-%Y%m%d-%H%M%S")
    log = Log(name)
    try:
        os.mkdir(log.path)
    except FileExistsError:
        raise Trouble(USAGE, "%s is there already; --resume goes on with it" % name) from None
    os.mkdir(log.units)
    log.keep_others_out()
    shutil.copyfile(options.units, log.file("units.csv"))
    if options.hosts:
        shutil.copyfile(options.hosts, log.file("hosts.csv"))
    return log


def old_log(options):
    log = Log(options.log)
    if not os.path.isfile(log.file("run.json")):
        raise Trouble(USAGE, "%s is not the log of a run" % options.log)
    if options.units:
        with open(options.units, encoding="utf-8-sig") as file:
            if file.read() != log.read("units.csv").lstrip("\ufeff"):
                raise Trouble(USAGE, "%s is not the list that this run was started with; see %s" % (
                    options.units, log.file("units.csv")))
    log.keep_others_out()
    if options.hosts:
        shutil.copyfile(options.hosts, log.file("hosts.csv"))
    return log


def hosts_of(options, log=None):
    path = options.hosts
    if log and not path and os.path.exists(log.file("hosts.csv")):
        path = log.file("hosts.csv")
    return rows.read_hosts(path) if path else {}


def settings_of(options, log, resumed):
    """The run's id and options; on --resume what is not given is as it was."""
    saved = json.loads(log.read("run.json")) if resumed else {"schema": record.SCHEMA,
                                                              "run": uuid.uuid4().hex}
    for name in SAVED:
        given = getattr(options, name)
        if given is not None or name not in saved:
            saved[name] = os.path.abspath(given) if name == "tools" and given else given
    record.write_file(log.file("run.json"), json.dumps(saved, indent=2) + "\n")
    return saved


def check_programs(units, tools):
    found = shutil.which("parallel")
    said = found and subprocess.run([found, "--plain", "--version"], stdout=subprocess.PIPE,
                                    stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL).stdout
    if not said or not said.startswith(b"GNU parallel"):
        raise Trouble(MISSING, "GNU parallel is missing: apt-get install parallel, or brew install "
                      "parallel")
    folder = tools or os.path.dirname(PROGRAM)
    for name in ("quobe-unlock", "quobe-options"):
        path = os.path.join(folder, name)
        if any(row["host"] == rows.HERE for row in units) and not os.access(path, os.X_OK):
            raise Trouble(MISSING, "%s is missing; --tools names the folder that has it" % path)


def lanes_of(units, jobs):
    """{(host, probe): lane}. A lane works on one unit at a time, and a probe is in one lane."""
    weights = collections.Counter((row["host"], row["probe"]) for row in units)
    lanes, loads = {}, collections.defaultdict(dict)
    for (host, probe), weight in sorted(weights.items(), key=lambda item: (-item[1], item[0])):
        load = loads[host]
        limit = jobs or len(weights)
        if len(load) < limit:
            lane = "lane%d" % (sum(map(len, loads.values())) + 1)
        else:
            lane = min(load, key=load.get)
        load[lane] = load.get(lane, 0) + weight
        lanes[host, probe] = lane
    return lanes


def write_lanes(log, lanes, hosts):
    """What GNU parallel and the program `lane` read: one login for each lane."""
    folder = log.file("lanes")
    record.remove_folder(folder)
    os.mkdir(folder)
    for (host, _), lane in lanes.items():
        ssh = ""
        if host != rows.HERE:
            program = (hosts[host]["tools"] or os.path.dirname(PROGRAM)) + "/quobe-line"
            ssh = hosts[host]["ssh"] + " " + shlex.quote(
                "QUOBE_LINE=%s; export QUOBE_LINE;" % shlex.quote(program))
        with open(os.path.join(folder, lane), "w", encoding="utf-8") as file:
            file.write(ssh)
    with open(log.file("logins"), "w", encoding="utf-8") as file:
        for lane in sorted(set(lanes.values())):
            file.write("@%s/1/lane %s\n" % (lane, lane))


def job_text(row, saved, log, lane):
    here = row["host"] == rows.HERE
    known = record.read_attempts(log.units, row["unit"])
    job = dict({"unit": row["unit"]}, **row)  # what the progress bar shows begins with it
    job.update(run=saved["run"], retries=saved["retries"] or 0, limit_s=saved["time_limit"],
               load=saved["load"], tools=saved["tools"] if here else "",
               folder=log.units if here else "", stop=log.file("stop") if here else "",
               after=known[-1]["attempt"] if known else 0)
    # For GNU parallel what follows an '@' is the lane.
    return json.dumps(job).replace("@", "\\u0040") + "@" + lane + "\n"


def longest_s(units, saved):
    """Far more than any unit can take: what GNU parallel ends then is stuck."""
    limit = max(saved["time_limit"] or work.LIMIT_S[row["family"]] for row in units)
    attempt = limit + 2 * work.READ_LIMIT_S + 3 * work.END_S
    return work.LOCK_LIMIT_S + work.LOAD_LIMIT_S + attempt * (1 + (saved["retries"] or 0)) + 60


def prune_joblog(log, units):
    """Leaves those units in GNU parallel's list of what is done that have a verdict on the disk."""
    for row in units:
        record.cut_half_line(log.units, row["unit"])
    if not os.path.exists(log.file("joblog")):
        return
    kept = []
    for line in log.read("joblog").split("\n"):
        number = line.split("\t")[0]
        if number == "Seq" or (number.isdigit() and int(number) <= len(units) and record.is_final(
                record.read_attempts(log.units, units[int(number) - 1]["unit"]))):
            kept.append(line + "\n")
    record.write_file(log.file("joblog"), "".join(kept))


def start_parallel(log, units, saved, lanes, bar):
    with open(log.file("jobs"), "w", encoding="utf-8") as file:
        for row in units:
            file.write(job_text(row, saved, log, lanes[row["host"], row["probe"]]))
    environment = dict(os.environ, QUOBE_LINE=PROGRAM, QUOBE_LINE_LANES=log.file("lanes"),
                       PARALLEL_SHELL="/bin/sh", PARALLEL_HOME=log.file("parallel"),
                       PATH=os.path.dirname(os.path.abspath(__file__)) + ":" + os.environ["PATH"])
    # A line of output begins with the row's number, whether it is an attempt or an error message.
    command = ["parallel", "--plain", "--will-cite", "--hostgroups", "--sshloginfile",
               log.file("logins"), "--jobs", "1", "--joblog", log.file("joblog"), "--resume",
               "--tagstring", "{#}", "--timeout", str(longest_s(units, saved))] + (["--bar"] if bar else [])
    with open(log.file("jobs"), "rb") as jobs, open(log.file("errors"), "ab") as errors:
        # In a group of its own: control-C at the terminal is for quobe-line alone.
        return subprocess.Popen(command + ['"$QUOBE_LINE" --unit {}'], stdin=jobs,
                                stdout=subprocess.PIPE, stderr=None if bar else errors,
                                env=environment, pass_fds=(log.lock,), preexec_fn=os.setpgrp)


class Signals:
    """Control-C: the first lets the started units come to their end, the second ends them."""

    def __init__(self, parallel, log):
        self.parallel, self.log, self.seen = parallel, log, 0
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self.take)

    def take(self, *_):
        self.seen += 1
        if self.seen == 1:
            say("quobe-line: stopping; units that were started come to their end, which can take two "
                "minutes.\nquobe-line: control-C again ends them: then run them again, as they may be "
                "locked and half erased.")
        elif self.seen == 2:
            record.write_file(self.log.file("stop"), "")
        if self.parallel.poll() is None:
            self.parallel.send_signal(signal.SIGHUP if self.seen == 1 else signal.SIGTERM)


def say(text):
    try:
        print(text, file=sys.stderr, flush=True)
    except OSError:
        pass  # a terminal that was closed


def tell(text):
    """On standard output. A reader that has left does not stop the run: all of it is in the log."""
    try:
        print(text, flush=True)
    except OSError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())


def take_line(line, units, log, progress, words):
    """Records an attempt that a host printed; other lines are kept in words, by the row's number."""
    # ssh ends its messages with a carriage return, after which GNU parallel puts the number again.
    number, _, text = line.split("\r")[0].rstrip("\n").partition("\t")
    if not number.isdigit() or not text.startswith("{"):
        words[number] = text or line
        return
    attempt, row = json.loads(text), units[int(number) - 1]
    known = record.read_attempts(log.units, row["unit"])
    if row["host"] != rows.HERE and (not known or known[-1]["attempt"] < attempt["attempt"]):
        record.add_attempt(log.units, attempt)
    progress(attempt)


def latest_of(log, units, words=None, stopped=False):
    """{unit: its last attempt}; transcripts are written on the way.

    words: what was said instead of an attempt, by the row's number.
    """
    latest = {}
    for number, row in enumerate(units, 1):
        attempts = record.read_attempts(log.units, row["unit"])
        if attempts:
            latest[row["unit"]] = attempts[-1]
            record.write_file(os.path.join(log.units, row["unit"] + ".txt"),
                              record.transcript(attempts))
            continue
        cause = (words or {}).get(str(number)) or (
            "stopped before its turn" if stopped else "not started")
        latest[row["unit"]] = record.not_done(row["unit"], cause)
    return latest


def finish(log, units, latest, report):
    text = record.summary(units, latest)
    record.write_file(log.file("summary.txt"), text)
    if report:
        all_attempts = {row["unit"]: record.read_attempts(log.units, row["unit"]) for row in units}
        record.write_file(log.file("report.html"), page.write(units, latest, all_attempts))
    tell(text + "log: %s" % log.path)
    if all(entry["verdict"] == "good" for entry in latest.values()):
        return GOOD
    return NOT_GOOD if all(entry["final"] for entry in latest.values()) else UNFINISHED


def note_shared_probes(units, saved):
    times = collections.Counter((row["host"], row["probe"]) for row in units)
    for (host, probe), number in times.items():
        if number > 1 and not saved["load"]:
            say("quobe-line: probe %s%s has %d units, one after another; without --load whatever is on "
                "it then is taken for the next one" % (probe, " on " + host if host else "", number))


def wait_for_workers(log, units):
    """GNU parallel, when it is ended, does not wait until the workers here have put down what they did."""
    for row in units:
        if os.path.exists(os.path.join(log.units, row["unit"] + ".started")):
            lock = work.lock_probe(row["probe"], 2 * work.END_S)
            if lock is not None:
                os.close(lock)


def do_units(log, units, saved, hosts):
    """Runs GNU parallel to its end. What was said by rows without an attempt, whether it was stopped."""
    lanes = lanes_of(units, saved["jobs"])
    write_lanes(log, lanes, hosts)
    prune_joblog(log, units)
    if os.path.exists(log.file("stop")):
        os.remove(log.file("stop"))
    bar = sys.stderr.isatty()
    seen = {row["unit"] for row in units if record.is_final(
        record.read_attempts(log.units, row["unit"]))}
    words = {}

    def progress(attempt):
        if attempt["final"]:
            seen.add(attempt["unit"])
        if not bar:
            tell("%d/%d %s: %s%s" % (len(seen), len(units), attempt["unit"], attempt["verdict"],
                                     "".join("; " + cause for cause in attempt["causes"])))

    parallel = start_parallel(log, units, saved, lanes, bar)
    signals = Signals(parallel, log)
    for line in parallel.stdout:
        take_line(line.decode(errors="replace"), units, log, progress, words)
    parallel.wait()
    wait_for_workers(log, units)
    if not seen and not words and not bar and not signals.seen:
        say(log.read("errors").rstrip())  # GNU parallel could not even begin
    for name in ("lanes", "parallel"):
        record.remove_folder(log.file(name))
    for name in ("logins", "jobs"):
        os.remove(log.file(name))
    return words, signals.seen > 0


def run(options):
    if not options.units and not options.resume:
        log = Log(options.log)
        if not os.path.isfile(log.file("run.json")):
            raise Trouble(USAGE, "%s is not the log of a run" % options.log)
        units = rows.read_units(log.file("units.csv"), hosts_of(options, log))
        return finish(log, units, latest_of(log, units), True)
    for name in (options.units, options.hosts):
        if name and os.path.exists(name) and not os.path.isfile(name):
            raise Trouble(USAGE, "%s is not a file; it is read here and copied into the log" % name)
    hosts = hosts_of(options)
    if options.units:
        units = rows.read_units(options.units, hosts_of(options, Log(options.log))
                                if options.resume else hosts)
    if options.resume:
        log = old_log(options)
        hosts = hosts_of(options, log)
        units = rows.read_units(log.file("units.csv"), hosts)
    else:
        check_programs(units, options.tools)
        log = new_log(options)
    saved = settings_of(options, log, options.resume)
    if options.resume:
        check_programs(units, saved["tools"])
    note_shared_probes(units, saved)
    words, stopped = do_units(log, units, saved, hosts)
    return finish(log, units, latest_of(log, units, words, stopped), options.report)


def main(arguments):
    options = parse(arguments)
    try:
        return run(options)
    except rows.BadFile as error:
        print("quobe-line: nothing was started\n%s" % error, file=sys.stderr)
        return USAGE
    except Trouble as error:
        print("quobe-line: %s" % error, file=sys.stderr)
        return error.status
    except KeyboardInterrupt:
        print("quobe-line: stopped; nothing was started", file=sys.stderr)
        return UNFINISHED
    except OSError as error:
        print("quobe-line: %s: %s" % (error.filename or options.log, error.strerror), file=sys.stderr)
        return MISSING
