# SPDX-License-Identifier: MIT
"""One unit, on the host that has its probe: options before, the tool, options after, the verdict.

GNU parallel starts main() and may end it, and so may a connection that is lost. The work itself is
done by a process of its own that neither reaches: a device is not left in the middle of a reset for
the sake of a dead connection. Its verdict is in the unit's file, where the next start finds it.
"""

import datetime
import fcntl
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

from quobe_line import record, rows, verdict

# Seconds that the tool gets, by row of the menu. Where the tool itself gives up, the limit is above
# its longest run, so that its own words are heard; docs/line.md has the sums.
LIMIT_S = {1: 20, 2: 20, 3: 75, 4: 20, 5: 75, 6: 75, 7: 75, 8: 75, 9: 110, 10: 60, 11: 60, 12: 30}
READ_LIMIT_S = 30   # one run of quobe-options
END_S = 5           # between asking a program to end and ending it
LOCK_LIMIT_S = 600  # another run of quobe-line may have the probe for a while
LOAD_LIMIT_S = 600  # a handler, or a person, puts the unit into its fixture
OUTPUT_MOST = 64 * 1024

RUNGS = ["first", "again", "slower", "power-cycle"]

# What a reading is when quobe-options gives none.
NO_READING = {"status": None, "error": None, "device": None, "protection": None, "fields": [],
              "differences": [], "as_factory": None, "flash": None, "voltage_mv": None}


class Stop:
    """Whether the units that are being worked on are to be left at once: a file says so."""
    file = ""

    @classmethod
    def asked(cls):
        return cls.file != "" and os.path.exists(cls.file)


def home():
    return os.path.join(os.path.expanduser("~"), ".quobe-line")


def lock_probe(probe, limit_s=LOCK_LIMIT_S):
    """The open lock file of a probe, or None when others kept it for too long.

    Programs started with the file open keep the lock until they end, whatever becomes of us.
    """
    folder = os.path.join(home(), "locks")
    os.makedirs(folder, exist_ok=True)
    handle = os.open(os.path.join(folder, probe), os.O_RDWR | os.O_CREAT, 0o666)
    give_up = time.monotonic() + limit_s
    while not Stop.asked() and time.monotonic() < give_up:
        try:
            fcntl.flock(handle, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return handle
        except BlockingIOError:
            time.sleep(0.1)
    os.close(handle)
    return None


def run_limited(command, output, limit_s, lock, errors=subprocess.STDOUT):
    """(exit status or None, signal or 0, whether the time was over) of a program."""
    program = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output,
                               stderr=errors, pass_fds=(lock,), start_new_session=True)
    late = False
    over = time.monotonic() + limit_s
    while True:
        try:
            program.wait(0.2)
            break
        except subprocess.TimeoutExpired:
            late = time.monotonic() >= over
            if late or Stop.asked():
                end(program)
                break
    status = program.returncode
    return (status, 0, late) if status >= 0 else (None, -status, late)


def end(program):
    program.terminate()
    try:
        program.wait(END_S)
    except subprocess.TimeoutExpired:
        program.kill()
        program.wait()


def probe_options(job):
    if job["probe"].isdigit():
        return ["-SelectEmuBySN", job["probe"]]
    return ["-IP", job["probe"]]


def settings(job, rung):
    """The options that the tool and quobe-options share."""
    speed, power = job["speed"], job["power"]
    if rung in ("slower", "power-cycle"):
        # A quarter; a speed that is found or adapts has none.
        speed = str(max(1, int(speed or 1000) // 4)) if speed.isdigit() or not speed else "250"
    if rung == "power-cycle":
        power = True
    words = ["-SetDeviceFamily", str(job["family"])] + probe_options(job)
    if speed:
        words += ["-Speed", speed]
    return words + (["-SetPowerTarget", "1"] if power else [])


def read_options(job, rung, lock):
    """What quobe-options says, as its JSON object; on failure NO_READING with the reason."""
    command = [os.path.join(job["tools"], "quobe-options"), "--json", "--expect", "factory"]
    command += settings(job, rung)
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
        try:
            status, ended, late = run_limited(command, output, READ_LIMIT_S, lock, errors)
        except OSError as error:
            return dict(NO_READING, error="%s: %s" % (command[0], error.strerror))
        text, said = take_output(output), take_output(errors)
    if late:
        return dict(NO_READING, error="quobe-options did not end in %d s" % READ_LIMIT_S)
    if ended:
        return dict(NO_READING, error="quobe-options was ended by signal %d" % ended)
    try:
        reading = json.loads(text)
        if reading["schema"] == 1 and reading["status"] == status:
            return reading
        why = "it wrote schema %s and status %s" % (reading["schema"], reading["status"])
    except (ValueError, KeyError, TypeError):
        why = (said or text).strip()[-200:]
    return dict(NO_READING, error="quobe-options ended with %s: %s" % (status, why))


def run_tool(job, rung, lock, place):
    command = [os.path.join(job["tools"], "quobe-unlock"), "-Exit", "1"] + settings(job, rung)
    limit_s = job["limit_s"] or LIMIT_S[job["family"]]
    start = time.monotonic()
    with open(place, "wb") as output:
        try:
            status, ended, late = run_limited(command, output, limit_s, lock)
        except OSError as error:
            output.write(("%s: %s\n" % (command[0], error.strerror)).encode())
            status, ended, late = 127, 0, False
    return {"command": command, "status": status, "signal": ended, "timed_out": late,
            "limit_s": limit_s, "output": read_output(place),
            "ms": round((time.monotonic() - start) * 1000)}


def take_output(file):
    file.seek(0)
    return file.read().decode(errors="replace")


def read_output(place):
    try:
        with open(place, encoding="utf-8", errors="replace") as file:
            return file.read(OUTPUT_MOST)
    except FileNotFoundError:
        return ""


def load_unit(job, lock):
    """Has the unit put on its probe. None, or why it is not there."""
    if not job["load"]:
        return None
    command = ["sh", "-c", job["load"] + ' "$@"', "load", job["unit"], job["probe"]]
    with tempfile.TemporaryFile() as output:
        status, _, late = run_limited(command, output, LOAD_LIMIT_S, lock)
        said = take_output(output).strip().split("\n")[-1]
    if late:
        return "the unit was not loaded in %d s" % LOAD_LIMIT_S
    if status == 0:
        return None
    return "the unit was not loaded, status %s: %s" % (status, said)


def blank_attempt(job, number, rung):
    now = datetime.datetime.now(datetime.timezone.utc)
    return {"schema": record.SCHEMA, "run": job["run"], "unit": job["unit"], "attempt": number,
            "rung": rung, "probe": job["probe"], "host": job["host"] or os.uname().nodename,
            "family": rows.FAMILIES[job["family"] - 1], "device": None,
            "started": now.strftime("%Y-%m-%dT%H:%M:%SZ"), "before": None, "tool": None,
            "after": None, "verdict": "not-done", "causes": [], "final": False,
            "ms": {"before": 0, "tool": 0, "after": 0, "total": 0}}


def device_name(attempt):
    for reading in (attempt["after"], attempt["before"]):
        if reading and reading["device"] and reading["device"]["known"]:
            return reading["device"]["name"]
    return None


class Clock:
    """Milliseconds of each part of an attempt."""

    def __init__(self, ms):
        self.ms, self.start = ms, time.monotonic()
        self.last = self.start

    def part(self, name):
        now = time.monotonic()
        self.ms[name] = round((now - self.last) * 1000)
        self.ms["total"] = round((now - self.start) * 1000)
        self.last = now


def make_attempt(job, attempt, lock, paths):
    """Fills the attempt in. What it is doing is in paths["started"] meanwhile."""
    rung, clock = attempt["rung"], Clock(attempt["ms"])
    attempt["before"] = before = read_options(job, rung, lock)
    clock.part("before")
    record.write_file(paths["started"], json.dumps(attempt))
    reason = verdict.no_reset(before)
    if reason:
        attempt["verdict"], attempt["causes"] = reason[0], [reason[1]]
        attempt["device"] = device_name(attempt)
        return
    if not Stop.asked():
        attempt["tool"] = run_tool(job, rung, lock, paths["output"])
        clock.part("tool")
    if Stop.asked():
        attempt["verdict"] = "interrupted"
        attempt["causes"] = ["asked to end; run the tool on this unit again"]
        return
    attempt["after"] = read_options(job, rung, lock)
    clock.part("after")
    attempt["device"] = device_name(attempt)
    attempt["verdict"], attempt["causes"] = verdict.judge(job["family"], before, attempt["tool"],
                                                          attempt["after"])


def next_rung(attempt, tries, retries):
    """The rung after this attempt, or None. tries: attempts that ran to their end."""
    if attempt["verdict"] in ("good", "locked-for-good") or tries > retries:
        return None
    if attempt["verdict"] == "needs-power-cycle":  # the other rungs would not help
        return "power-cycle" if attempt["rung"] != "power-cycle" else None
    return RUNGS[min(tries, len(RUNGS) - 1)]


def recover(job, folder, attempts, paths):
    """Puts down an attempt that was cut off with its process."""
    try:
        with open(paths["started"], encoding="utf-8") as file:
            attempt = json.load(file)
    except FileNotFoundError:
        return
    if not attempts or attempts[-1]["attempt"] < attempt["attempt"]:
        attempt["verdict"], attempt["final"] = "interrupted", False
        attempt["causes"] = ["cut off; what the tool had printed: %r" % read_output(paths["output"])]
        record.add_attempt(folder, attempt)
        attempts.append(attempt)


def clean(paths):
    for path in paths.values():
        if os.path.exists(path):
            os.remove(path)


def climb(job, folder, lock, paths):
    """Attempts until the unit is good or the ladder ends."""
    attempts = record.read_attempts(folder, job["unit"])
    if record.is_final(attempts):
        return
    recover(job, folder, attempts, paths)
    clean(paths)
    number = max([job["after"]] + [entry["attempt"] for entry in attempts])
    tries = sum(entry["verdict"] not in ("interrupted", "not-done") for entry in attempts)
    rung = RUNGS[min(tries, len(RUNGS) - 1)]
    missing = load_unit(job, lock)
    while rung and not Stop.asked():
        number, tries = number + 1, tries + 1
        attempt = blank_attempt(job, number, rung)
        if missing:
            attempt["causes"] = [missing]
            record.add_attempt(folder, attempt)
            return
        record.write_file(paths["started"], json.dumps(attempt))
        make_attempt(job, attempt, lock, paths)
        rung = next_rung(attempt, tries, job["retries"])
        attempt["final"] = rung is None and attempt["verdict"] != "interrupted"
        record.add_attempt(folder, attempt)
        clean(paths)


def work(job, folder):
    """The whole of a unit, in a process of its own."""
    os.makedirs(folder, exist_ok=True)
    base = os.path.join(folder, job["unit"])
    paths = {"started": base + ".started", "output": base + ".output"}
    lock = lock_probe(job["probe"])
    if lock is None:
        attempts = record.read_attempts(folder, job["unit"])
        number = max([job["after"]] + [entry["attempt"] for entry in attempts])
        attempt = blank_attempt(job, number + 1, "first")
        attempt["causes"] = ["probe %s is in use by another run" % job["probe"]]
        if not Stop.asked():
            record.add_attempt(folder, attempt)
        return
    climb(job, folder, lock, paths)


def start_work(job, folder):
    """Starts work() in a session of its own. Returns a pipe that ends with it."""
    read_end, write_end = os.pipe()
    if os.fork() == 0:
        os.setsid()
        os.close(read_end)
        with open(os.devnull, "r+b") as null:
            os.dup2(null.fileno(), 0)
            os.dup2(null.fileno(), 1)
        code = 1
        try:
            signal.signal(signal.SIGHUP, signal.SIG_IGN)
            work(job, folder)
            code = 0
        except OSError as error:
            sys.stderr.write("quobe-line: %s: %s\n" % (error.filename or folder, error.strerror))
            sys.stderr.flush()
        finally:
            os._exit(code)
    os.close(write_end)
    return read_end


def main(text):
    """What GNU parallel starts: prints the unit's attempts. Status 0: the unit is good."""
    job = json.loads(text)
    job["tools"] = job["tools"] or os.path.dirname(os.path.realpath(sys.argv[0]))
    folder = job["folder"] or os.path.join(home(), "runs", job["run"])
    Stop.file = job["stop"]
    os.read(start_work(job, folder), 1)  # until the work has ended
    attempts = record.read_attempts(folder, job["unit"])
    for attempt in attempts:
        print(json.dumps(attempt, sort_keys=True))
    good = record.is_final(attempts) and attempts[-1]["verdict"] == "good"
    return 0 if good else 1
