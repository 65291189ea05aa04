#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs what the documents show, and compares them with what they say.

usage: documents.py BUILD commands PAGE...   every block "console": output as shown, one shell a page
       documents.py BUILD recording          docs/recording.svg, line by line
       documents.py BUILD limits             README's lines with a time limit, in time and too late
       documents.py BUILD flash              README's table of what is erased, on simulated devices
       documents.py BUILD success            README's table "Success by family", on simulated devices
       documents.py BUILD messages           every message of the tool has its row in README
       documents.py BUILD links              every file and heading that a page refers to is there
       documents.py BUILD names              every file and function that a page names exists
       documents.py BUILD counts             the number of devices, and of their states
       documents.py BUILD example            examples/unlock-line, with four probes

Prints each difference; exit status 1 when there is one.

Other tests run docs/line.md (tests/line), docs/adapters.md (tests/wire), and of docs/util.md, docs/sys.md,
docs/registry.md and docs/install.md what another project does (tests/consumers). No test runs: script/run, script/build and
script/test of the pages, which build in this folder (.ci/run runs the last one); installing, purging and
script/package (script/try-packages does, with an empty Debian); what needs a Mac (arch, xattr).
"""

import difflib
import html
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
README = (ROOT / "README.md").read_text()
BANNER_DATE = re.compile(r"^Compiled \w{3} [ \d]\d \d{4} \d\d:\d\d:\d\d$", re.MULTILINE)

# A device for each row of the menu, as its maker would call the family's usual part.
DEVICES = ["STM32F051", "STM32F103", "STM32F207", "STM32F303", "STM32F407", "STM32F723",
           "STM32F746", "STM32F767", "STM32H743", "STM32L053", "STM32L152", "STM32L476"]


def shell(build, script, bench, seconds=60):
    env = dict(os.environ, QUOBE_BENCH=f"{bench}/bench", QUOBE_BENCH_TIME="fast",
               PATH=f"{build}/sim:{os.environ['PATH']}")
    script = re.sub(r"(?<![\w/])build/release", shlex.quote(build), script)
    done = subprocess.run(["bash", "-c", script], cwd=ROOT, env=env,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=seconds, check=False)
    return done.stdout, done.returncode


def plain(text):
    return BANNER_DATE.sub("Compiled DATE", text)


def check_block(build, page, block, bench):
    """A block of lines "$ COMMAND", each followed by its output."""
    wrong = []
    parts = re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]
    for part in parts:
        command, expected = part.split("\n", 1)
        output, _ = shell(build, command, bench)
        output = output.replace(f"{bench}/bench", "/home/you/.quobe-bench")
        if plain(output) != plain(expected):
            diff = difflib.unified_diff(plain(expected).splitlines(), plain(output).splitlines(),
                                        page, "now", lineterm="")
            wrong.append(f"{page}: $ {command}\n" + "\n".join(diff))
    print(f"{page}: {len(parts)} commands")
    return wrong


def check_commands(build, pages):
    wrong = []
    for page in pages:
        blocks = re.findall(r"^```console\n(.*?)^```$", (ROOT / page).read_text(), re.M | re.S)
        if not blocks:
            wrong.append(f"{page}: no block \"console\"")
        with tempfile.TemporaryDirectory() as bench:
            for block in blocks:
                wrong += check_block(build, page, block, bench)
    return wrong


def check_recording(build):
    lines = re.findall(r"<text [^>]*>(.*?)<animate", (ROOT / "docs/recording.svg").read_text())
    if len(lines) < 15:
        return ["docs/recording.svg: its lines were not found"]
    with tempfile.TemporaryDirectory() as bench:
        shell(build, "quobe-bench create STM32F407 --rdp 1 --wrp all --flash full", bench)
        return check_block(build, "docs/recording.svg", html.unescape("\n".join(lines)) + "\n", bench)


def check_limits(build):
    lines = re.findall(r"^(?:timeout|perl) .*$", README, re.MULTILINE)
    if len(lines) != 2 or any(" 60 quobe-unlock " not in line for line in lines):
        return ["README: the two lines with a time limit of 60 s were not found"]
    wrong = []
    last = "Reset option bytes (may take app. 20 seconds)...O.K."
    # 124 is timeout's status; a shell's for a program that SIGALRM (14) ended is 128 + 14.
    for line, too_late in zip(lines, (124, 142)):
        with tempfile.TemporaryDirectory() as bench:
            shell(build, "quobe-bench create STM32F407 --probe 1001 --rdp 1", bench)
            output, status = shell(build, line, bench)
            if output.splitlines()[-1:] != [last] or status != 0:
                wrong.append(f"README: {line}\n{status}: {output}")
            # In real time the erase takes 16 s.
            shell(build, "quobe-bench create STM32F407 --probe 1001 --rdp 1", bench)
            output, status = shell(build, "export QUOBE_BENCH_TIME=real; " + line.replace(" 60 ", " 5 "), bench)
            if last in output or "Reset target...O.K." not in output or status != too_late:
                wrong.append(f"README, after 5 s: {line}\n{status}: {output}")
    return wrong


def rows_of_table(heading):
    section = README.split(f"\n## {heading}\n")[1].split("\n## ")[0]
    rows = [[cell.strip() for cell in line.strip("|").split(" | ")]
            for line in section.splitlines() if line.startswith("|")]
    return rows


def times_of_families():
    rows = re.findall(r"^\| (STM32\w+) \|.*\| ([\d.]+) s \|$",
                      (ROOT / "docs/families.md").read_text(), re.MULTILINE)
    return {device: float(seconds) for device, seconds in rows}


def check_success(build):
    wrong = []
    rows = [row for row in rows_of_table("Success by family") if len(row) == 7 and row[0].isdigit()]
    if [row[0] for row in rows] != [str(i) for i in range(1, 13)]:
        return ["README: the table of families has not the rows 1 to 12"]
    times = times_of_families()
    for row, device in zip(rows, DEVICES):
        number, family, last, _, seconds, cycle, _ = row
        with tempfile.TemporaryDirectory() as bench:
            shell(build, f"build/release/sim/quobe-bench create {device} --rdp 1 --wrp all", bench)
            output, status = shell(
                build, f"build/release/sim/quobe-unlock -Exit 1 -SetDeviceFamily {number}", bench)
            _, differs = shell(build, "build/release/sim/quobe-bench show --expect-factory", bench)
            shell(build, "build/release/sim/quobe-bench power-cycle", bench)
            _, later = shell(build, "build/release/sim/quobe-bench show --expect-factory", bench)
        lines = output.splitlines()
        found = {
            "family": [line for line in lines if line.startswith("Select ")]
            == [f"Select device family: {family}"],
            "last line": f"`{lines[-1]}`" == last,
            "status": status == 0,
            "time, to a tenth": abs(times[device] - float(seconds.removesuffix(" s"))) <= 0.1 * times[device],
            "power cycle": ("**needed**" in cycle) == (differs != 0),
            "at factory state in the end": later == 0,
        }
        wrong += [f"README, row {number}, {device}: {what}" for what, good in found.items()
                  if not good]
    return wrong + check_wrong_families(build, {row[0]: row[2].strip("`") for row in rows})


def check_wrong_families(build, last_lines):
    wrong = []
    pairs = re.findall(r"\ban (STM32\w+) as\s+family (\d+)", README)
    if len(pairs) != 3:
        return ["README: the three wrong families were not found"]
    for device, number in pairs:
        with tempfile.TemporaryDirectory() as bench:
            shell(build, f"quobe-bench create {device} --rdp 1 --wrp all", bench)
            output, status = shell(build, f"quobe-unlock -Exit 1 -SetDeviceFamily {number}", bench)
            shell(build, "quobe-bench power-cycle", bench)
            shown, _ = shell(build, "quobe-bench show", bench)
        if output.splitlines()[-1:] != [last_lines[number]] or status != 0 or "Read protection: level 1" not in shown:
            wrong.append(f"README, {device} as family {number}: {status}\n{output}\n{shown}")
    return wrong


def check_flash(build):
    rows = [row for row in rows_of_table("What it does to a device") if row[0].startswith("level ")]
    if [row[1:] for row in rows] != [["erased", "erased"], ["kept", "kept"], ["erased", "-"]]:
        return ["README: the table of what is erased is another one"]
    wrong = []
    for number, device in enumerate(DEVICES, 1):
        for level in (0, 1):
            row = rows[0 if level else 2 if device.startswith("STM32L4") else 1]
            wanted = {"flash": row[1]}
            if re.match(r"STM32L[01]", device):
                wanted["eeprom"] = row[2]
            with tempfile.TemporaryDirectory() as bench:
                use = " --eeprom full" if "eeprom" in wanted else ""
                shell(build, f"quobe-bench create {device} --rdp {level} --wrp all --flash full{use}", bench)
                shell(build, f"quobe-unlock -Exit 1 -SetDeviceFamily {number}", bench)
                shown, _ = shell(build, "quobe-bench show", bench)
            found = {name: "kept" if all_of_it else "erased" for name, all_of_it in re.findall(
                r"^(flash|eeprom) +(?:erased \(|(\d+) of \2 bytes in use)", shown, re.MULTILINE)}
            if found != wanted:
                wrong.append(f"README, {device} at level {level}: {found}, not {wanted}")
    return wrong


# What a run prints that is no failure.
PROGRESS = {
    "OSTREL Quobe Unlock tool for STM32 devices", "Compiled ", "Parsing command line...", "O.K.",
    "Select device family: ", "Powering target via Quobe.", "Using SWD as target interface.",
    "Target interface speed: ", "VTarget = ", "Press any key to exit.", "Options:",
    "Please select the correct device family: ", "Reset target...",
    "Reset option bytes to factory settings...", "Reset option bytes (may take app. 20 seconds)...",
    "Option bytes reset to factory settings.", "Resetting FLASH_OPTR...",
    "Resetting Write protection (WRP) and PCROP...", "Connecting to Quobe via USB...",
    "Connecting to Quobe via ethernet...", "failed.",
}


def check_messages(_):
    texts = set()
    for path in [*sorted(ROOT.glob("app/*.cpp")), *sorted(ROOT.glob("probeapi/*.cpp"))]:
        for call in re.findall(r"\b(?:PrintText|PrintLine|PrintFormat|OrPrint|puts|printf)\(([^;]*)\);",
                               path.read_text()):
            for literal in re.findall(r'"((?:[^"\\]|\\.)*)"', call):
                texts.update(part for part in literal.split("\\n") if re.match(r"[A-Z]", part))
    texts = {text for text in texts if len(text) > 3}
    known = {text for text in texts for progress in PROGRESS if text.startswith(progress)}
    introduction = {text for text in texts if text.startswith("This program is designed")}
    failures = texts - known - introduction - {"ERROR: %s"}  # its text is a literal of its own
    table = README.split("\n## If it fails\n")[1].split("\n### ")[0]
    table = re.sub(r"\b(NAME|OPTION)\b", "%s", table).replace("(...)", "(%s)")
    wrong = []
    if len(failures) < 12:
        wrong.append(f"only {len(failures)} messages were found in the sources")
    for text in sorted(failures):
        wanted = re.sub(r"-(SelectEmuBySN|speed|SetPowerTarget|SetDeviceFamily|exit)\b", "%s", text)
        if f"`{wanted}`" not in table and f"`{'ERROR: ' + wanted}`" not in table:
            wrong.append(f"README explains no message `{text}`")
    return wrong


def headings_of(page):
    """As they are named in links: small letters, blanks as hyphens, no punctuation."""
    return {re.sub(r"[^\w-]", "", heading.lower().replace(" ", "-"))
            for heading in re.findall(r"^#+ (.*)$", page.read_text(), re.MULTILINE)}


def check_links(_):
    wrong = []
    for page in [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted(ROOT.glob("docs/*.md"))]:
        for link, heading in re.findall(r"\]\(([^)#: ]*)#?([^):]*)\)", page.read_text()):
            target = page.parent / link if link else page
            if not target.exists():
                wrong.append(f"{page.name}: no file {link}")
            elif heading and heading not in headings_of(target):
                wrong.append(f"{page.name}: no heading {link}#{heading}")
    return wrong


def check_names(_):
    headers = "".join(path.read_text() for folder in ("util", "sys", "app", "probeapi")
                      for path in sorted(ROOT.glob(f"{folder}/*.h")))
    folders = "|".join(path.name for path in sorted(ROOT.iterdir())
                       if path.is_dir() and re.match(r"(?!build|dist)\w", path.name))
    wrong = []
    for page in [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted(ROOT.glob("docs/*.md"))]:
        text = page.read_text()
        for name in re.findall(rf"`((?:{folders})/[\w./*-]*)`", text):
            # A program of the tests is named by its folder and target.
            target = rf"\b{re.escape(name.rsplit('/')[-1])}\b"
            lists = "".join(path.read_text() for path in (ROOT / name).parent.glob("CMakeLists.txt"))
            if not list(ROOT.glob(name.rstrip("/"))) and not re.search(target, lists) and "..." not in name:
                wrong.append(f"{page.name}: no file {name}")
        for name in re.findall(r"\b((?:UTIL|SYS)_\w*[a-z]\w*)\b", text):
            if not re.search(rf"\b{name}\b", headers):
                wrong.append(f"{page.name}: no function {name}")
    return wrong


def check_counts(_):
    sys.path.append(str(ROOT / "tests/sim"))
    import outcomes
    states = outcomes.read_blocks(ROOT / "tests/sim/outcomes.txt")
    devices = len({state.device for state in states})
    wanted = {"README.md": [f"{len(states)} states of {devices} devices", f"Each of the {devices} devices"],
              "CHANGELOG.md": [f"knows {devices} devices"]}
    return [f"{page} does not say: {text}" for page, texts in wanted.items() for text in texts
            if text not in (ROOT / page).read_text()]


def check_example(build):
    # Device, family, settings of probe 1003, what is printed, exit status.
    cases = [
        ("STM32F407", 5, "vtarget=3300", ["1001 good", "1002 good", "1003 good", "1004 good"], 0),
        ("STM32F407", 5, "vtarget=0", ["1001 good", "1002 good",
                                       "1003 BAD, status 255: Target voltage too low", "1004 good"], 1),
        ("STM32F051", 1, "vtarget=3300", ["1001 good", "1002 good", "1003 good", "1004 good",
                                          "F0: switch the supply off and on now, the old protection "
                                          "is in force until then"], 0),
    ]
    wrong = []
    for device, family, setting, lines, status in cases:
        with tempfile.TemporaryDirectory() as bench:
            setup = "".join(f"build/release/sim/quobe-bench --probe {i} create {device} --rdp 1 "
                            f"--wrp all >/dev/null;" for i in range(1001, 1005))
            shell(build, setup + f"build/release/sim/quobe-bench set --probe 1003 {setting}", bench)
            output, ended = shell(
                build, f"cd {shlex.quote(bench)} && "
                f"QUOBE_UNLOCK={shlex.quote(build + '/sim/quobe-unlock')} "
                f"{shlex.quote(str(ROOT / 'examples/unlock-line'))} {family} 1001 1002 1003 1004", bench)
        if (sorted(output.splitlines()), ended) != (sorted(lines), status):
            wrong.append(f"unlock-line {family}, {device}, {setting}: {ended}\n{output}")
    return wrong


def main():
    build, what, pages = sys.argv[1], sys.argv[2], sys.argv[3:]
    wrong = check_commands(build, pages) if what == "commands" else globals()["check_" + what](build)
    print("\n".join(wrong) or "as the documents say")
    return 1 if wrong else 0


sys.exit(main())
