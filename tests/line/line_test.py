#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""quobe-line on the simulated bench: lists, verdicts, faults, interruptions, other hosts, the report.

usage: line_test.py BUILD [unittest arguments]
"""

import html.parser
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True
BUILD = os.path.abspath(sys.argv[1])
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.dirname(os.path.abspath(__file__)), os.path.join(ROOT, "line")]

from bench import (LIMIT_S, Line, Sshd, Station, copy_tools, free_port,  # noqa: E402
                   replace_program)
from quobe_line import verdict  # noqa: E402


class OnBench(unittest.TestCase):
    """A station, and quobe-line from the folder that script/build makes."""
    maxDiff = None

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="quobe line ")
        self.addCleanup(shutil.rmtree, self.dir, ignore_errors=True)
        self.station = Station(BUILD, os.path.join(self.dir, "here"))
        self.line = Line(BUILD, self.station)

    def own_tools(self):
        """A line with programs of its own, which the test may replace."""
        tools = copy_tools(BUILD, os.path.join(self.dir, "tools"))
        self.line = Line(BUILD, self.station, tools)
        return tools

    def file(self, name):
        return os.path.join(self.station.dir, name)

    def load(self):
        """A load command that puts a device on the probe, a protected one for u2, and says so."""
        return self.line.write("load", """
echo "$1" >>"%s"
[ "$1" = u2 ] && level=1 || level=0
exec "%s" create --probe "$2" STM32F410 --rdp $level --wrp all
""" % (self.file("loaded"), os.path.join(BUILD, "sim", "quobe-bench")))

    def loaded(self):
        with open(self.file("loaded")) as file:
            return file.read().split()

    def wait_for(self, what, limit=LIMIT_S):
        give_up = time.monotonic() + limit
        while not what():
            self.assertLess(time.monotonic(), give_up, "it did not happen in %d s" % limit)
            time.sleep(0.02)


class Lists(OnBench):
    """What is wrong with a list is said with file, line and column, and nothing is started."""

    def assert_refused(self, text, *lines, hosts=None):
        path = self.line.write("units.csv", text)
        arguments = [path]
        if hosts:
            arguments += ["--hosts", self.line.write("hosts.csv", hosts)]
        run = self.line.run(*arguments)
        self.assertEqual((2, ""), (run.status, run.output))
        self.assertEqual("quobe-line: nothing was started\n" + "".join(
            "%s%s\n" % (path, line) for line in lines), run.errors.replace(self.file("hosts.csv"), path))
        self.assertFalse(os.path.exists(run.log))
        self.assertFalse(os.path.exists(self.file("bench")))  # no probe was looked at

    def test_values_of_each_column(self):
        self.assert_refused(
            "unit,family,probe,speed,power\n"
            "a/b,5,1001,,\n"
            ",5,1001,,\n"
            "c,13,1001,,\n"
            "d,STM32F9xxxx,1001,,\n"
            "e,\"STM32F72xxx\",1001,,\n"
            "f,5,0,,\n"
            "g,5,4294967296,,\n"
            "h,5,-IP,,\n"
            "i,5,1001,fast,\n"
            "j,5,1001,0,\n"
            "k,5,1001,,yes\n",
            ":2: column 1 (unit): a unit is named with up to 64 letters, digits, '.', '_' and '-', the "
            "first of them a letter or digit; this is 'a/b'",
            ":3: column 1 (unit): it is empty",
            ":4: column 2 (family): no such family: '13'; it is a number from 1 to 12 or a name from the "
            "tool's menu",
            ":5: column 2 (family): no such family: 'STM32F9xxxx'; it is a number from 1 to 12 or a name "
            "from the tool's menu",
            ":6: column 2 (family): no such family: 'STM32F72xxx'; it is a number from 1 to 12 or a name "
            "from the tool's menu; a name with a comma is written whole and in quotes, as in the tool's "
            "menu",
            ":7: column 3 (probe): a probe's serial number is from 1 to 4294967295; this is 0 (for the tool "
            "that is any probe)",
            ":8: column 3 (probe): a probe's serial number is from 1 to 4294967295; this is 4294967296",
            ":9: column 3 (probe): neither a serial number nor an address: '-IP'",
            ":10: column 4 (speed): a speed is from 1 to 50000 (kHz), 'auto' or 'adaptive'; this is 'fast'",
            ":11: column 4 (speed): a speed is from 1 to 50000 (kHz), 'auto' or 'adaptive'; this is '0'",
            ":12: column 5 (power): power is 1 (the probe supplies the unit) or 0; this is 'yes'")

    def test_a_family_with_a_comma_that_is_not_quoted(self):
        self.assert_refused("unit,family,probe\na,STM32F72xxx, STM32F73xxx,1001\n",
                            ":2: column 4: 4 values for 3 columns; quote a value that holds a comma")

    def test_a_unit_that_is_there_twice(self):
        self.assert_refused("probe,family,unit\n1,5,A-1\n2,5,a-1\n3,5,A-1\n",
                            ":3: column 3 (unit): 'a-1' is there already, as 'A-1': capitals do not count",
                            ":4: column 3 (unit): 'A-1' is there already")

    def test_a_host_that_is_not_listed(self):
        self.assert_refused("unit,family,probe,host\na,5,1,north\nb,5,1,south\n",
                            ":3: column 4 (host): 'south' is not in the file of hosts",
                            hosts="host,ssh,tools\nnorth,,\n")

    def test_hosts_are_checked_too(self):
        self.assert_refused("unit,family,probe\na,5,1\n",
                            ":3: column 2 (ssh): not a command: No closing quotation",
                            ":4: column 3 (tools): a folder on another host begins with '/'; this is 'bin'",
                            hosts="host,ssh,tools\nnorth,,\nsouth,ssh 'x,\nwest,,bin\n")

    def test_columns(self):
        self.assert_refused("", ":1: column 1: the file has no line with the columns' names: "
                            "unit,family,probe,host,speed,power")
        self.assert_refused("unit;family;probe\na;5;1\n",
                            ":1: column 1: the columns are separated by ';'; they have to be by ','")
        self.assert_refused("a,5,1001\n",
                            ":1: column 1: no such column: 'a'; the columns are unit, family, probe, host, "
                            "speed, power",
                            ":1: column 2: no such column: '5'; the columns are unit, family, probe, host, "
                            "speed, power",
                            ":1: column 3: no such column: '1001'; the columns are unit, family, probe, "
                            "host, speed, power",
                            ":1: column 4: the column 'unit' is missing",
                            ":1: column 4: the column 'family' is missing",
                            ":1: column 4: the column 'probe' is missing")
        self.assert_refused("unit,family,probe\n", ": no units")

    def test_a_quote_that_is_not_closed(self):
        self.assert_refused('unit,family,probe\na,"STM32F4xxxx,1001\n',
                            ":2: column 1: unexpected end of data")

    def test_a_list_as_a_spreadsheet_writes_it(self):
        self.station.create(1001, "STM32F746", "--rdp", "1")
        self.station.create(7, "STM32F103", "--rdp", "1")
        path = self.file("units.csv")
        with open(path, "wb") as file:
            file.write(b'\xef\xbb\xbfUnit,Probe,Family\r\n# morning shift\r\n'
                       b'A-1,01001,"stm32f74xxx, STM32F75xxx"\r\n\r\n A-2 ,7, 2\r\n')
        run = self.line.run(path)
        self.assertEqual((0, {"A-1": "good", "A-2": "good"}), (run.status, run.verdicts()), run.output)
        command = run.attempts("A-1")[0]["tool"]["command"][1:]
        self.assertEqual(["-Exit", "1", "-SetDeviceFamily", "7", "-SelectEmuBySN", "1001"], command)

    def test_the_command_line(self):
        for arguments in ([], ["--resume"], ["--log", "x"], ["u.csv", "--jobs", "0"],
                          ["u.csv", "--retries", "-1"], ["u.csv", "--rep", "html"]):
            self.assertEqual(2, self.line.run(*arguments, log=None).status, arguments)

    def test_a_log_is_never_written_over(self):
        os.mkdir(self.file("log"))
        run = self.line.run(self.line.units("a,5,1"))
        self.assertEqual((2, "quobe-line: %s is there already; --resume goes on with it\n" % run.log),
                         (run.status, run.errors))
        self.assertEqual([], os.listdir(run.log))

    def test_a_list_that_can_be_read_only_once_is_refused(self):
        os.mkfifo(self.file("pipe"))
        run = self.line.run(self.file("pipe"))
        self.assertEqual((2, "quobe-line: %s is not a file; it is read here and copied into the log\n"
                          % self.file("pipe")), (run.status, run.errors))
        self.assertFalse(os.path.exists(run.log))

    def test_a_reader_that_leaves_does_not_stop_the_run(self):
        for number in (1, 2, 3):
            self.station.create(number, "STM32F103", "--rdp", "1")
        process = self.line.start(self.line.units("a,2,1", "b,2,2", "c,2,3"))
        process.stdout.close()
        self.assertEqual((0, ""), (process.wait(LIMIT_S), process.stderr.read()))
        process.stderr.close()
        with open(os.path.join(self.file("log"), "summary.txt")) as file:
            self.assertEqual("3 units: 3 good", file.read().splitlines()[-1])

    def test_resume_wants_the_same_list(self):
        self.station.create(1, "STM32F103", "--rdp", "1")
        self.assertEqual(0, self.line.run(self.line.units("a,2,1")).status)
        run = self.line.run(self.line.units("b,2,1"), "--resume")
        self.assertEqual((2, "quobe-line: %s is not the list that this run was started with; see %s\n" % (
            self.file("units.csv"), os.path.join(run.log, "units.csv"))), (run.status, run.errors))

    def test_what_is_missing_is_named(self):
        programs = os.path.join(self.dir, "programs")
        os.mkdir(programs)
        for name in ("python3", "env"):
            os.symlink(sys.executable if name == "python3" else shutil.which(name),
                       os.path.join(programs, name))
        path = self.station.env["PATH"]
        self.station.env["PATH"] = programs
        run = self.line.run(self.line.units("a,5,1"))
        self.assertEqual((3, "quobe-line: GNU parallel is missing: apt-get install parallel, or brew install "
                          "parallel\n"), (run.status, run.errors))
        self.station.env["PATH"] = path
        run = self.line.run(self.line.units("a,5,1"), "--tools", programs)
        self.assertEqual((3, "quobe-line: %s/quobe-unlock is missing; --tools names the folder that has it\n"
                          % programs), (run.status, run.errors))
        self.assertFalse(os.path.exists(run.log))


class Verdicts(unittest.TestCase):
    """A verdict is never better than what was read."""

    def reading(self, **changes):
        field = {"word": "OPTCR", "name": "RDP", "loaded": "0xAA", "stored": None, "factory": "0xAA",
                 "as_factory": True}
        return dict({"schema": 1, "status": 0, "error": None, "voltage_mv": 3300,
                     "device": {"known": True, "name": "STM32F407", "idcode": "0x413", "why": None},
                     "protection": {"level": 0, "stored_level": None}, "fields": [field],
                     "flash": {"erased": True}, "as_factory": True, "differences": []}, **changes)

    def locked(self, **changes):
        return self.reading(status=1, as_factory=False, protection={"level": 1, "stored_level": 1},
                            flash={"erased": None}, **changes)

    def judge(self, after, before=None, row=5, status=0, end=0, late=False, output="...O.K.\n"):
        tool = {"status": status, "signal": end, "timed_out": late, "limit_s": 75, "output": output}
        return verdict.judge(row, before or self.locked(), tool, after)

    def test_good_needs_all_of_it(self):
        self.assertEqual(("good", []), self.judge(self.reading()))
        unread = [dict(self.reading()["fields"][0], as_factory=None)]
        for after, wanted in (
                (self.reading(fields=unread), ("not-checked", ["not read: OPTCR.RDP"])),
                (self.reading(fields=[]), ("not-checked", ["not read: any field"])),
                (self.reading(as_factory=None), ("not-checked", ["after the reset: the device is not known"])),
                (self.reading(status=None, error="quobe-options was ended by signal 11"),
                 ("not-checked", ["after the reset: quobe-options was ended by signal 11"])),
                (self.reading(status=3, error="no probe"), ("no-target", ["after the reset: no probe"])),
                (self.reading(status=4, error="closed"), ("port-closed", ["after the reset: closed"])),
                (self.reading(protection={"level": 1, "stored_level": 0}),
                 ("not-at-factory", ["protection level 1"])),
                (self.reading(protection={"level": 2, "stored_level": 2}),
                 ("locked-for-good", ["protection level 2 after the reset"])),
                (self.reading(differences=[{"word": None, "name": None, "what": "device", "expected": "the "
                                            "family that was given", "actual": "STM32F407"}]),
                 ("wrong-family", ["after the reset: the device is STM32F407"])),
                (self.reading(flash={"erased": False}),
                 ("failed", ["the protection is lifted, and the flash still holds data"])),
                (self.reading(device={"known": True, "name": "STM32F407", "idcode": "0x419", "why": None}),
                 ("not-checked", ["another device answers than before: 0x413, then 0x419"]))):
            self.assertEqual(wanted, self.judge(after))

    def test_the_words_of_the_tool_count_too(self):
        good = self.reading()
        self.assertEqual(("failed", ["every field reads as factory", "the tool's last line is not 'O.K.': "
                                     "Resetting option bytes failed."]),
                         self.judge(good, output="a\nResetting option bytes failed.\n"))
        self.assertEqual(("failed", ["every field reads as factory", "the tool ended with 255; its last "
                                     "line: Could not reset OPTR..."]),
                         self.judge(good, status=255, output="Could not reset OPTR...\n"))
        self.assertEqual(("failed", ["every field reads as factory", "the tool was ended by signal 11; its "
                                     "last line: "]), self.judge(good, status=None, end=11, output=""))
        self.assertEqual("timed-out", self.judge(good, late=True, status=None, end=15)[0])
        # On L4 the last words are others, and an O.K. is not enough.
        self.assertEqual("failed", self.judge(good, row=12)[0])
        self.assertEqual("good", self.judge(good, row=12,
                                            output="Option bytes reset to factory settings.\n")[0])

    def test_a_flash_that_was_not_protected_may_keep_its_content(self):
        self.assertEqual(("good", []), self.judge(self.reading(flash={"erased": False}),
                                                  self.reading(flash={"erased": False})))

    def test_what_did_not_answer_was_not_checked(self):
        after = self.reading(status=1, as_factory=False, differences=[
            {"word": "FLASH_SR", "name": "BSY", "what": "error", "expected": "0x0", "actual": None}])
        self.assertEqual(("not-checked", ["FLASH_SR.BSY was not read"]), self.judge(after))
        after["differences"].append({"word": "OPTCR", "name": "nWRP", "what": "loaded",
                                     "expected": "0xFFF", "actual": "0x0"})
        self.assertEqual(("not-at-factory", ["FLASH_SR.BSY was not read",
                                             "OPTCR.nWRP loaded is 0x0, not 0xFFF"]), self.judge(after))

    def after_f0(self, stored="0xFF", what="loaded", stored_level=0):
        return self.reading(
            status=1, as_factory=False, protection={"level": 1, "stored_level": stored_level},
            fields=[{"word": "WRP01", "name": "WRP0", "loaded": "0x0", "stored": stored, "factory": "0xFF",
                     "as_factory": False}],
            differences=[{"word": "WRP01", "name": "WRP0", "what": what, "expected": "0xFF",
                          "actual": "0x0"},
                         {"word": None, "name": None, "what": "level", "expected": "0", "actual": "1"}])

    def test_a_power_cycle_helps_only_when_all_that_is_stored_is_right(self):
        causes = ["WRP01.WRP0 loaded is 0x0, not 0xFF", "level is 1, not 0"]
        self.assertEqual(("needs-power-cycle", causes), self.judge(self.after_f0(), row=1))
        for after in (self.after_f0(stored="0x0"), self.after_f0(stored=None), self.after_f0(stored_level=1),
                      self.after_f0(stored_level=None), self.after_f0(what="complement")):
            self.assertEqual("not-at-factory", self.judge(after, row=1)[0])
        self.assertEqual("not-at-factory", self.judge(self.after_f0(), row=1, status=255)[0])


class Families(OnBench):
    def test_every_family_has_the_verdict_that_the_device_has(self):
        """Units of all families in one run; what is left is compared with the simulator's own state."""
        locked = ("--rdp", "1", "--wrp", "all", "--flash", "full")
        delivered = ()
        units = [  # family, device, state, verdict, fields that are left
            ("1", "STM32F051", locked, "needs-power-cycle", None),
            ("STM32F1xxxx", "STM32F103", locked, "good", ""),
            ("2", "STM32F105", delivered, "good", ""),
            ("STM32F2xxxx", "STM32F207", locked, "good", ""),
            ("4", "STM32F303", locked, "good", ""),
            ("5", "STM32F429", ("--rdp", "1", "--pcrop", "0-3", "--flash", "full"), "good", ""),
            ("STM32F4xxxx", "STM32F413", locked, "not-at-factory", "nWRP"),
            ('"STM32F72xxx, STM32F73xxx"', "STM32F723", locked, "good", ""),
            ('"STM32F72xxx, STM32F73xxx"', "STM32F723", ("--pcrop", "0-1", "--pcrop-rdp", "0"),
             "not-at-factory", "PCROP PCROP_RDP"),
            ('"STM32F74xxx, STM32F75xxx"', "STM32F746", locked, "good", ""),
            ("8", "STM32F767", locked, "good", ""),
            ("9", "STM32H743", locked, "good", ""),
            ("9", "STM32H723", locked, "not-at-factory", "ST_RAM_SIZE"),
            ("10", "STM32L073", locked, "good", ""),
            ("11", "STM32L152", locked, "good", ""),
            ("11", "STM32L152xE", delivered, "not-at-factory", "nBFB2"),
            ("STM32L4x6xx", "STM32L476", locked, "good", ""),
            ("12", "STM32L433", locked, "not-at-factory", "WRP1A_END WRP1A_STRT")]
        for number, (_, device, state, _, _) in enumerate(units, 1):
            self.station.create(number, device, *state)
        run = self.line.run(self.line.units(*("u%d,%s,%d" % (number, unit[0], number)
                                              for number, unit in enumerate(units, 1))), "--jobs", 6)
        self.assertEqual((1, ""), (run.status, run.errors), run.output)
        shown = run.verdicts()
        for number, (_, device, state, wanted, left) in enumerate(units, 1):
            name = "u%d" % number
            attempt, = run.attempts(name)
            with self.subTest(unit=name, device=device, state=state):
                self.assertEqual((wanted, wanted), (shown[name], attempt["verdict"]), attempt["causes"])
                self.assertEqual(wanted == "good", self.station.at_factory(number))
                fields = {cause.split(" ")[0].split(".")[1] for cause in attempt["causes"]
                          if re.match(r"\w+\.\w+ ", cause)}
                simulated = {text.split(" ")[0].split(".")[1] for text in self.station.left(number)
                             if re.match(r"\w+\.\w+ is ", text)}
                self.assertEqual(simulated, fields - {"RDP"})
                if left is not None:
                    self.assertEqual(set(left.split()), fields)
                self.assertTrue(os.path.getsize(os.path.join(run.log, "units", name + ".txt")))
                self.assertIn(device, [attempt["device"]] + attempt["after"]["device"]["alternatives"])


class Faults(OnBench):
    """Units and probes with faults. A fault is there while the tool runs, not while options are read."""

    def setUp(self):
        super().setUp()
        tools = self.own_tools()
        os.mkdir(self.file("faults"))
        # The simulator counts calls, and those of quobe-options are not meant.
        replace_program(tools, "quobe-unlock", """
for word; do [ "$before" != -SelectEmuBySN ] || serial=$word; before=$word; done
[ ! -f "%s/$serial" ] || "%s" set --probe $serial "$(cat "%s/$serial")" >&2
exec "$REAL" "$@"
""" % (self.file("faults"), os.path.join(BUILD, "sim", "quobe-bench"), self.file("faults")))
        replace_program(tools, "quobe-options", """
for word; do [ "$before" != -SelectEmuBySN ] || serial=$word; before=$word; done
[ ! -f "%s/$serial" ] || "%s" set --probe $serial fault=none >&2
exec "$REAL" "$@"
""" % (self.file("faults"), os.path.join(BUILD, "sim", "quobe-bench")))

    def fault(self, probe, text):
        with open(os.path.join(self.file("faults"), str(probe)), "w") as file:
            file.write("fault=" + text)

    def test_every_kind_of_fault_has_its_verdict(self):
        locked = ("--rdp", "1", "--wrp", "all", "--flash", "full")
        units = [  # family, device, state, settings, fault, verdict, beginning of the first cause
            (5, "STM32F407", locked, {"vtarget": 0}, None, "no-target", "before the reset: "),
            (5, "STM32F407", locked, {"fault": "open-fails gone"}, None, "no-target", "before the reset: "),
            (5, "STM32F407", ("--rdp", "2"), {}, None, "port-closed", "after the reset: "),
            (2, "STM32F103", locked, {}, "busy 20 forever", "timed-out", "the tool was ended after 4 s"),
            (5, "STM32F407", locked, {}, "lost 20", "timed-out", "the tool was ended after 4 s"),
            (5, "STM32F407", locked, {}, "stuck OPTCR 0x10000 0", "not-at-factory",
             "OPTCR.nWRP loaded is 0xFFE, not 0xFFF"),
            (2, "STM32F103", locked, {}, "write-dropped 18", "not-at-factory", "level is 1, not 0"),
            (12, "STM32L476", locked, {}, "power-dip 30 0 5", None, ""),
            (10, "STM32L073", locked, {}, "read-fails 20", None, ""),
            (11, "STM32L152", locked, {}, "write-dropped 25", None, ""),
            (9, "STM32H743", locked, {}, "lost 40", None, ""),
            (2, "STM32F407", locked, {}, None, "wrong-family", "not reset: the device is STM32F407"),
            (4, "STM32F103", locked, {}, None, "wrong-family", "not reset: the device is STM32F103")]
        for number, (_, device, state, settings, fault, _, _) in enumerate(units, 1):
            self.station.create(number, device, *state, **settings)
            if fault:
                self.fault(number, fault)
        run = self.line.run(self.line.units(*("u%d,%d,%d" % (number, unit[0], number)
                                              for number, unit in enumerate(units, 1))),
                            "--jobs", 6, "--time-limit", 4)
        self.assertEqual(1, run.status, run.output)
        for number, (_, device, _, _, fault, wanted, cause) in enumerate(units, 1):
            attempt, = run.attempts("u%d" % number)
            with self.subTest(unit=number, device=device, fault=fault, causes=attempt["causes"]):
                if wanted:
                    self.assertEqual(wanted, attempt["verdict"])
                    self.assertEqual(cause, attempt["causes"][0][:len(cause)])
                if attempt["verdict"] == "good":
                    self.assertTrue(self.station.at_factory(number))
                elif attempt["verdict"] not in ("failed", "timed-out"):
                    self.assertFalse(self.station.at_factory(number))

    def test_a_tool_that_does_not_want_to_end_is_ended(self):
        self.station.create(1, "STM32F103", "--rdp", "1")
        tools = os.path.dirname(self.line.program)
        with open(os.path.join(tools, "quobe-unlock"), "w") as file:
            file.write("#!/bin/sh\necho begun\ntrap '' TERM\nexec sleep 1000\n")
        start = time.monotonic()
        run = self.line.run(self.line.units("a,2,1"), "--time-limit", 1)
        self.assertLess(time.monotonic() - start, 30)
        attempt, = run.attempts("a")
        self.assertEqual((1, "timed-out", 9, "begun\n"), (run.status, attempt["verdict"],
                                                          attempt["tool"]["signal"],
                                                          attempt["tool"]["output"]))

    def test_a_unit_that_cannot_be_loaded_is_not_done(self):
        self.station.create(1, "STM32F103", "--rdp", "1")
        run = self.line.run(self.line.units("a,2,1"), "--load", "echo no unit in tray $1 for; exit 3;")
        attempt, = run.attempts("a")
        self.assertEqual((4, "not-done", ["the unit was not loaded, status 3: no unit in tray a for"]),
                         (run.status, attempt["verdict"], attempt["causes"]))
        self.assertIsNone(attempt["tool"])


class Ladder(OnBench):
    """A tool that works on its nth start only."""

    def climb(self, works_at, *arguments, row="a,2,1", columns="unit,family,probe"):
        tools = self.own_tools()
        replace_program(tools, "quobe-unlock", """
echo "$*" >>"%s"
[ $(wc -l <"%s") -lt %d ] || exec "$REAL" "$@"
echo "Resetting option bytes failed."
""" % (self.file("calls"), self.file("calls"), works_at))
        self.station.create(1, "STM32F103", "--rdp", "1", "--flash", "full")
        run = self.line.run(self.line.units(row, columns=columns), *arguments)
        with open(self.file("calls")) as file:
            calls = file.read().splitlines()
        return run, [(entry["rung"], entry["verdict"], entry["final"]) for entry in run.attempts("a")], calls

    def test_without_retries_there_is_one_attempt(self):
        run, attempts, calls = self.climb(2)
        self.assertEqual((1, [("first", "not-at-factory", True)]), (run.status, attempts))
        self.assertEqual(["-Exit 1 -SetDeviceFamily 2 -SelectEmuBySN 1"], calls)

    def test_again_then_slower_then_after_a_power_cycle(self):
        run, attempts, calls = self.climb(4, "--retries", 3)
        bad = "not-at-factory"
        self.assertEqual((0, [("first", bad, False), ("again", bad, False), ("slower", bad, False),
                              ("power-cycle", "good", True)]), (run.status, attempts))
        common = "-Exit 1 -SetDeviceFamily 2 -SelectEmuBySN 1"
        self.assertEqual([common, common, common + " -Speed 250",
                          common + " -Speed 250 -SetPowerTarget 1"], calls)

    def test_it_ends_with_the_first_good_one(self):
        run, attempts, calls = self.climb(2, "--retries", 3, row="a,2,1,4000",
                                          columns="unit,family,probe,speed")
        self.assertEqual((0, [("first", "not-at-factory", False), ("again", "good", True)]),
                         (run.status, attempts))
        self.assertEqual(["-Exit 1 -SetDeviceFamily 2 -SelectEmuBySN 1 -Speed 4000"] * 2, calls)

    def test_a_device_that_waits_for_power_is_not_tried_slower(self):
        self.station.create(1, "STM32F051", "--rdp", "1")
        run = self.line.run(self.line.units("a,1,1"), "--retries", 3)
        # The board has a supply of its own, so the probe cannot take the power away.
        self.assertEqual([("first", "needs-power-cycle"), ("power-cycle", "needs-power-cycle")],
                         [(entry["rung"], entry["verdict"]) for entry in run.attempts("a")])

    def test_a_device_that_only_the_probe_supplies(self):
        self.station.create(1, "STM32F051", "--rdp", "1", "--flash", "full", vtarget=0, supply=3300)
        self.station.create(2, "STM32F103", "--rdp", "1", vtarget=0, supply=3300)
        run = self.line.run(self.line.units("a,1,1,1", "b,2,2,", columns="unit,family,probe,power"),
                            "--retries", 3)
        # Its power goes away with the probe's connection, so the F0 has loaded its options.
        self.assertEqual([("first", "good")], [(entry["rung"], entry["verdict"])
                                               for entry in run.attempts("a")])
        self.assertEqual([("first", "no-target"), ("again", "no-target"), ("slower", "no-target"),
                          ("power-cycle", "good")], [(entry["rung"], entry["verdict"])
                                                     for entry in run.attempts("b")])
        self.assertTrue(self.station.at_factory(1) and self.station.at_factory(2))


def processes_of(folder):
    """Processes that have the folder in their environment."""
    found = []
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/environ" % name, "rb") as file:
                if folder.encode() in file.read():
                    found.append(int(name))
        except OSError:
            pass
    return found


def kill_all(numbers):
    for number in numbers:
        try:
            os.kill(number, signal.SIGKILL)
        except ProcessLookupError:
            pass


@unittest.skipUnless(os.path.exists("/proc/self/environ"), "finds processes in /proc")
class Ending(OnBench):
    """Units one after another on one probe, stopped during the erase of the second, which takes 2 s."""

    def setUp(self):
        super().setUp()
        del self.station.env["QUOBE_BENCH_TIME"]
        self.station.create(1, "STM32F410")
        self.process = self.line.start(self.line.units("u1,5,1", "u2,5,1", "u3,5,1"),
                                       "--load", "sh '%s'" % self.load())
        output = os.path.join(self.file("log"), "units", "u2.output")
        self.wait_for(lambda: os.path.exists(output) and os.path.getsize(output) > 300)

    def tearDown(self):
        kill_all(processes_of(self.station.dir))

    def assert_resumed(self, loaded, attempts_of_u2):
        run = self.line.run("--resume")
        self.assertEqual((0, {"u1": "good", "u2": "good", "u3": "good"}),
                         (run.status, run.verdicts()), run.errors)
        self.assertEqual(loaded, self.loaded())
        self.assertEqual([1, attempts_of_u2, 1], [len(run.attempts("u%d" % n)) for n in (1, 2, 3)])
        # The third time there is nothing to do.
        run = self.line.run("--resume")
        self.assertEqual((0, loaded), (run.status, self.loaded()))
        return run

    def control_c(self):
        os.killpg(self.process.pid, signal.SIGINT)  # as a terminal does

    def test_control_c_lets_started_units_come_to_their_end(self):
        self.control_c()
        run = self.line.end(self.process)
        self.assertEqual((4, {"u1": "good", "u2": "good", "u3": "not-done"}),
                         (run.status, run.verdicts()))
        self.assertEqual(["u1", "u2"], self.loaded())
        self.assertRegex(run.output, r"(?m)^u3 +not-done +0 .* stopped before its turn$")
        self.assert_resumed(["u1", "u2", "u3"], 1)

    def test_control_c_twice_ends_them(self):
        self.control_c()
        time.sleep(0.3)
        self.control_c()
        run = self.line.end(self.process)
        self.assertEqual((4, {"u1": "good", "u2": "interrupted", "u3": "not-done"}),
                         (run.status, run.verdicts()))
        attempt, = run.attempts("u2")
        self.assertEqual(signal.SIGTERM, attempt["tool"]["signal"])
        self.assertEqual([], processes_of(self.station.dir))
        self.assert_resumed(["u1", "u2", "u2", "u3"], 2)

    def test_killed_alone_it_loses_and_repeats_nothing(self):
        session = os.getsid(self.process.pid)
        kill_all([number for number in processes_of(self.station.dir) if os.getsid(number) == session])
        self.process.communicate()
        self.assert_resumed(["u1", "u2", "u3"], 1)

    def test_killed_with_all_that_runs_it_does_the_unit_again_and_says_so(self):
        kill_all(processes_of(self.station.dir))
        self.process.communicate()
        with open(os.path.join(self.file("log"), "units", "u1.jsonl"), "a") as file:
            file.write('{"unit": "u1", "cut')  # by a loss of power
        run = self.assert_resumed(["u1", "u2", "u2", "u3"], 2)
        first = run.attempts("u2")[0]
        self.assertEqual(("interrupted", 1), (first["verdict"], first["attempt"]))
        self.assertIn("Reset option bytes (may take app. 20 seconds)...", first["causes"][0])


class Probes(OnBench):
    """A tool that says when two are at one probe, or more than so many at work."""

    def setUp(self):
        super().setUp()
        replace_program(self.own_tools(), "quobe-unlock", """
for word; do [ "$before" != -SelectEmuBySN ] || serial=$word; before=$word; done
mkdir "%s/at-$serial" || echo "two at $serial" >>"%s/wrong"
ls -d "%s"/at-* | wc -l >>"%s/working"
"$REAL" "$@"
status=$?
sleep 0.3
rmdir "%s/at-$serial"
exit $status
""" % ((self.station.dir,) * 5))

    def test_two_runs_share_a_probe(self):
        self.station.create(1, "STM32F103", "--rdp", "1")
        path = self.line.units("a,2,1", "b,2,01", "c,2,1")
        runs = [self.line.start(path, log=name) for name in ("one", "two")]
        for process, name in zip(runs, ("one", "two")):
            self.assertEqual(0, self.line.end(process, name).status)
        self.assertFalse(os.path.exists(self.file("wrong")))

    def test_a_limit_of_jobs_holds_for_all_probes(self):
        for probe in range(1, 6):
            self.station.create(probe, "STM32F103", "--rdp", "1")
        run = self.line.run(self.line.units(*("u%d,2,%d" % (n, n % 5 + 1) for n in range(10))), "--jobs", 2)
        self.assertEqual(0, run.status, run.output)
        self.assertFalse(os.path.exists(self.file("wrong")))
        with open(self.file("working")) as file:
            self.assertEqual("2", max(file.read().split()))


@unittest.skipIf(Sshd.missing(), Sshd.missing())
class Stations(OnBench):
    """Two more hosts: this machine, each with its own home and bench, reached by real ssh servers."""

    def setUp(self):
        super().setUp()
        self.stations = {name: Station(BUILD, os.path.join(self.dir, name), fast=False)
                         for name in ("north", "south")}
        self.servers = {}
        for name, station in self.stations.items():
            self.servers[name] = Sshd(station, name)
            self.addCleanup(self.servers[name].stop)
        self.hosts = self.line.write("hosts.csv", "\n".join(
            ["host,ssh,tools"] + [server.row for server in self.servers.values()] +
            ['away,"ssh -F none -o BatchMode=yes -p %d 127.0.0.1",/nowhere' % free_port()]) + "\n")

    def test_each_unit_is_done_where_its_probe_is(self):
        self.station.create(1, "STM32F103", "--rdp", "1")
        self.stations["north"].create(1, "STM32F410", "--rdp", "1")
        self.stations["south"].create(1, "STM32F413", "--rdp", "1", time="fast")
        run = self.line.run(self.line.units("a,2,1,", "b,5,1,north", "c,5,1,south", "d,5,1,away",
                                            columns="unit,family,probe,host"), "--hosts", self.hosts)
        self.assertEqual((4, {"a": "good", "b": "good", "c": "not-at-factory", "d": "not-done"}),
                         (run.status, run.verdicts()), run.output + run.errors)
        self.assertEqual(["STM32F410", "north"], [run.attempts("b")[0][name] for name in ("device", "host")])
        self.assertTrue(self.station.at_factory(1) and self.stations["north"].at_factory(1))
        self.assertRegex(run.output, r"(?m)^d +not-done .*Connection refused$")

    def start_in_the_north(self, *rows):
        """Starts units on a probe of that host, and returns when the tool is at work on the first."""
        north = self.stations["north"]
        north.create(1, "STM32F410", "--rdp", "1", "--flash", "full")
        process = self.line.start(self.line.units(*rows, columns="unit,family,probe,host"),
                                  "--hosts", self.hosts)
        runs = os.path.join(north.env["HOME"], ".quobe-line", "runs")
        self.wait_for(lambda: os.path.isdir(runs) and any(
            name.endswith(".output") for run in os.listdir(runs)
            for name in os.listdir(os.path.join(runs, run))))
        return process

    def test_control_c_lets_a_unit_on_another_host_come_to_its_end(self):
        process = self.start_in_the_north("a,5,1,north", "b,5,1,north")
        os.killpg(process.pid, signal.SIGINT)
        run = self.line.end(process)
        self.assertEqual((4, {"a": "good", "b": "not-done"}), (run.status, run.verdicts()))

    def test_a_lost_connection_neither_loses_nor_repeats_a_unit(self):
        process = self.start_in_the_north("a,5,1,north")
        # The server's processes for the connection, and not what works on the unit.
        port = str(self.servers["north"].port)
        kill_all(number for number in processes_of(self.station.dir) if b"ssh" in command_of(number) and
                 port.encode() in command_of(number))
        run = self.line.end(process)
        self.assertEqual((4, {"a": "not-done"}), (run.status, run.verdicts()))
        run = self.line.run("--resume")
        self.assertEqual((0, {"a": "good"}), (run.status, run.verdicts()), run.output + run.errors)
        self.assertEqual([1], [entry["attempt"] for entry in run.attempts("a")])


def command_of(number):
    try:
        with open("/proc/%d/cmdline" % number, "rb") as file:
            return file.read()
    except OSError:
        return b""


class Docs(OnBench):
    """The commands of docs/line.md, in its order, do what it says."""

    def setUp(self):
        super().setUp()
        with open(os.path.join(ROOT, "docs", "line.md")) as file:
            self.page = file.read()
        os.mkdir(self.file("build"))
        os.symlink(BUILD, self.file("build/release"))

    def blocks(self, kind):
        found = re.findall(r"(?ms)^```([^\n]*)\n(.*?)^```$", self.page)
        return [text for name, text in found if name == kind]

    def shell(self, text):
        done = subprocess.run(["bash", "-c", text], cwd=self.station.dir, env=self.station.env,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=LIMIT_S, universal_newlines=True)
        return done.returncode, done.stdout, done.stderr

    def table(self, text):
        return [line.split()[:5] for line in text.splitlines() if re.match(r"[AB]-\d+ ", line)]

    def test_from_a_list_to_a_report(self):
        bench, run, resume, archive = self.blocks("sh")
        status, output, errors = self.shell(bench + run)
        self.assertEqual((1, ""), (status, errors))
        example, = self.blocks("")
        self.assertEqual(self.table(example), self.table(output))
        self.assertIn(example.splitlines()[-1] + "\n", output)
        self.assertTrue(os.path.exists(self.file("monday/report.html")))
        path = bench.splitlines()[0] + "\n"
        self.assertEqual(1, self.shell(path + resume)[0])
        listed = self.shell(archive)[1].splitlines()
        self.assertEqual([row[:2] for row in self.table(example)], [row.split(",")[:2] for row in listed])



@unittest.skipIf(Sshd.missing(), Sshd.missing())
class DocsSsh(Docs):
    test_from_a_list_to_a_report = None

    def test_a_second_station(self):
        other = Station(BUILD, os.path.join(self.dir, "station2"))
        server = Sshd(other, "station2")
        self.addCleanup(server.stop)
        programs = self.file("programs")
        os.mkdir(programs)
        with open(os.path.join(programs, "ssh"), "w") as file:
            file.write('#!/bin/sh\nexec %s -F "%s" "$@"\n' % (Sshd.find("ssh"), server.file("client")))
        os.chmod(os.path.join(programs, "ssh"), 0o755)
        with open(server.file("client"), "w") as file:
            file.write("Host station2\n  HostName 127.0.0.1\n  Port %d\n  IdentityFile %s\n"
                       "  UserKnownHostsFile %s\n" % (server.port, server.file("user"),
                                                      server.file("known")))
        self.station.env["PATH"] = programs + ":" + self.station.env["PATH"]
        first = self.blocks("sh")[0].splitlines()
        second, = self.blocks("sh ssh")
        status, output, errors = self.shell("\n".join([first[0], first[2], second]))
        self.assertEqual((0, [["B-0001", "good"], ["B-0002", "good"]]),
                         (status, [row[:2] for row in self.table(output)]), output + errors)
        self.assertTrue(other.at_factory(1002))


BROWSER = next(filter(None, map(shutil.which, (
    "chromium-headless-shell", "chromium", "google-chrome"))), None)


class Rows(html.parser.HTMLParser):
    """The title, the rows of the table as (verdict, hidden), and links and sources to other files."""

    def __init__(self, text):
        super().__init__()
        self.rows, self.others, self.title, self.inside = [], [], "", None
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        named = dict(attrs)
        self.inside = tag
        if "data-verdict" in named:
            self.rows.append((named["data-verdict"], "hidden" in named))
        if "src" in named or not named.get("href", "#").startswith("#"):
            self.others.append(tag)

    def handle_data(self, data):
        if self.inside == "title":
            self.title += data

    def handle_endtag(self, tag):
        self.inside = None


class Page(OnBench):
    def setUp(self):
        super().setUp()
        replace_program(self.own_tools(), "quobe-unlock", """
"$REAL" "$@"
echo '<script>document.title = "taken"</script>'
""")
        self.station.create(1, "STM32F103", "--rdp", "1")
        self.station.create(2, "STM32F413", "--rdp", "1")
        self.station.create(3, "STM32F103", vtarget=0)
        self.page = os.path.join(self.file("log"), "report.html")
        self.run_status = self.line.run(self.line.units("a,2,1", "b,5,2", "c,2,3", "d,2,3"), "--report",
                                        "html").status

    def test_it_needs_no_other_file(self):
        with open(self.page) as file:
            text = file.read()
        rows = Rows(text)
        self.assertEqual(["failed", "not-at-factory", "no-target", "no-target"],
                         [name for name, _ in rows.rows])
        self.assertEqual(([], "Units"), (rows.others, rows.title))
        self.assertNotIn("http", text.replace("http-equiv", ""))
        self.assertIn("<h1>0 of 4 units are good</h1>", text)
        self.assertIn("&lt;script&gt;document.title", text)

    def test_it_is_made_again_from_the_log(self):
        with open(self.page) as file:
            text = file.read()
        os.remove(self.page)
        self.assertEqual(1, self.line.run("--report", "html").status)
        with open(self.page) as file:
            self.assertEqual(text, file.read())



@unittest.skipUnless(BROWSER, "no Chromium on this machine (chromium-headless-shell)")
@unittest.skipIf(0 <= resource.getrlimit(resource.RLIMIT_NOFILE)[1] < 256,
                 "Chromium needs more open files than the limit here allows (ulimit -n)")
class Browser(Page):
    test_it_needs_no_other_file = test_it_is_made_again_from_the_log = None

    def test_a_browser_shows_the_rows_of_the_chosen_verdict(self):
        for chosen, shown in (("", [True] * 4), ("no-target", [False, False, True, True]),
                              ("failed", [True, False, False, False])):
            rows = Rows(self.browse(chosen))
            self.assertEqual(shown, [not hidden for _, hidden in rows.rows], chosen)
            self.assertEqual("Units", rows.title)

    def browse(self, fragment):
        """The page as the browser has it after its script has run."""
        address = "file://" + self.page.replace(" ", "%20") + "#" + fragment
        done = subprocess.run([BROWSER, "--headless", "--no-sandbox", "--disable-gpu",
                               "--disable-dev-shm-usage", "--user-data-dir=" + self.file("browser"),
                               "--dump-dom", address], env=self.station.env, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=LIMIT_S,
                              universal_newlines=True)
        self.assertEqual(0, done.returncode, done.stderr)
        return done.stdout


def main():
    if not shutil.which("parallel"):
        return skip("no GNU parallel on this machine")
    ran = unittest.main(argv=[sys.argv[0]] + sys.argv[2:], exit=False).result
    if ran.skipped and len(ran.skipped) == ran.testsRun:
        return skip(ran.skipped[0][1])
    return 0 if ran.wasSuccessful() and ran.testsRun else 1


def skip(reason):
    """As script/test wants to read it. Where everything has to be there it is a failure."""
    print("line_test.py: Skipped\n%s\n[  SKIPPED ] line_%s" % (reason, "_".join(sys.argv[2:])))
    return 1 if os.environ.get("CI") else 77


if __name__ == "__main__":
    sys.exit(main())
