# SPDX-License-Identifier: MIT
"""The files of a run: one JSON line for each attempt, transcripts, the summary.

units/UNIT.jsonl is the truth; all else can be made again from it. A line is on the disk for good
before anything that depends on it begins.
"""

import json
import os
import shutil

SCHEMA = 1


def sync_folder(path):
    handle = os.open(path, os.O_RDONLY)
    try:
        os.fsync(handle)
    finally:
        os.close(handle)


def write_file(path, text):
    """Replaces a file as a whole, on the disk when this returns."""
    temporary = "%s.%d.new" % (path, os.getpid())
    with open(temporary, "w", encoding="utf-8") as file:
        file.write(text)
        file.flush()
        os.fsync(file.fileno())
    os.replace(temporary, path)
    sync_folder(os.path.dirname(path))


def unit_file(folder, unit):
    return os.path.join(folder, unit + ".jsonl")


def read_attempts(folder, unit):
    """The attempts of a unit, oldest first. A line that a loss of power cut short is left out."""
    try:
        with open(unit_file(folder, unit), encoding="utf-8") as file:
            lines = file.read().split("\n")
    except FileNotFoundError:
        return []
    return [json.loads(line) for line in lines[:-1]]


def cut_half_line(folder, unit):
    """Takes away what a loss of power left of a line."""
    try:
        with open(unit_file(folder, unit), "rb+") as file:
            whole = file.read().rfind(b"\n") + 1
            file.truncate(whole)
    except FileNotFoundError:
        pass


def add_attempt(folder, attempt):
    """Appends an attempt and returns when it is on the disk."""
    cut_half_line(folder, attempt["unit"])
    with open(unit_file(folder, attempt["unit"]), "a", encoding="utf-8") as file:
        file.write(json.dumps(attempt, sort_keys=True) + "\n")
        file.flush()
        os.fsync(file.fileno())
    sync_folder(folder)


def is_final(attempts):
    return bool(attempts) and attempts[-1]["final"]


def not_done(unit, cause):
    """What stands for a unit without an attempt."""
    return {"unit": unit, "attempt": 0, "verdict": "not-done", "causes": [cause], "final": False,
            "device": None, "before": None, "after": None, "tool": None, "ms": {"total": 0}}


def transcript(attempts):
    """What was done to a unit, for people."""
    parts = []
    for entry in attempts:
        parts.append("Unit %s, attempt %d (%s), %s\nprobe %s on %s, family %s, device %s\n" % (
            entry["unit"], entry["attempt"], entry["rung"], entry["started"], entry["probe"],
            entry["host"], entry["family"], entry["device"] or "not read"))
        for name in ("before", "after"):
            if name == "after" and entry["tool"]:
                parts.append("== %s\n%s== %s\n" % (" ".join(entry["tool"]["command"]),
                                                   entry["tool"]["output"], tool_end(entry["tool"])))
            parts.append("== Options %s\n%s" % (name, reading_text(entry[name])))
        parts.append("== Verdict: %s\n%s\n" % (entry["verdict"], "".join(
            cause + "\n" for cause in entry["causes"])))
    return "".join(parts)


def tool_end(tool):
    if tool["timed_out"]:
        return "ended after %d s" % tool["limit_s"]
    if tool["signal"]:
        return "ended by signal %d" % tool["signal"]
    return "exit status %s, %d ms" % (tool["status"], tool["ms"])


def reading_text(reading):
    if not reading:
        return "not read\n"
    if not reading.get("fields"):
        return (reading.get("error") or "no fields") + "\n"
    lines = ["protection level %s, %s mV\n" % (reading["protection"]["level"], reading["voltage_mv"])]
    for field in reading["fields"]:
        lines.append("  %-28s %-12s factory %s\n" % (
            "%s.%s" % (field["word"], field["name"]), field["loaded"] or field["stored"],
            field["factory"]))
    return "".join(lines)


def summary(rows, latest):
    """The table at the end. latest: {unit: its last attempt}."""
    lines, counts = [], {}
    wide = max([4] + [len(row["unit"]) for row in rows])
    lines.append("%-*s  %-17s %8s  %-20s %-14s %8s  %s" % (
        wide, "unit", "verdict", "attempts", "probe", "device", "seconds", "cause"))
    for row in rows:
        entry = latest[row["unit"]]
        counts[entry["verdict"]] = counts.get(entry["verdict"], 0) + 1
        probe = row["probe"] + (" on " + row["host"] if row["host"] else "")
        cause = "; ".join(entry["causes"])
        lines.append(("%-*s  %-17s %8d  %-20s %-14s %8.1f  %s" % (
            wide, row["unit"], entry["verdict"], entry["attempt"], probe, entry["device"] or "-",
            entry["ms"]["total"] / 1000.0, cause)).rstrip())
    lines.append("%d units: %s" % (len(rows), ", ".join(
        "%d %s" % (count, verdict) for verdict, count in sorted(counts.items()))))
    return "\n".join(lines) + "\n"


def remove_folder(path):
    shutil.rmtree(path, ignore_errors=True)
