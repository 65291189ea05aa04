#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The bench loses nothing: programs killed, full disks, operations left running, wiring.

Everything is tried from outside, with the tool and quobe-bench as processes.

usage: keeping.py TOOL LIBRARY BENCH TIMEWARP [unittest arguments]
"""

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

import timewarp

TOOL, LIBRARY, BENCH, TIMEWARP = (os.path.abspath(path) for path in sys.argv[1:5])
RESET = ["-Exit", "1", "-SetDeviceFamily", "5"]
STATE = ["STM32F407", "--rdp", "1", "--wrp", "all", "--flash", "full"]
LIMIT_S = 60


class Keeping(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="quobe-keeping-")
        for file in (TOOL, LIBRARY):
            shutil.copy(file, self.dir)
        self.tool = os.path.join(self.dir, os.path.basename(TOOL))
        self.bench_dir = os.path.join(self.dir, "bench")
        self.trace = os.path.join(self.dir, "trace")
        self.env = {k: v for k, v in os.environ.items() if not k.startswith("QUOBE_BENCH")}
        self.env.update(QUOBE_BENCH=self.bench_dir, QUOBE_BENCH_TIME="fast")

    def tearDown(self):
        shutil.rmtree(self.dir)

    def bench(self, *arguments, limit=None):
        """Status and both outputs of quobe-bench; limit: no file may grow beyond so many bytes."""
        done = subprocess.run([BENCH, *arguments], env=self.env, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=LIMIT_S, text=True,
                              preexec_fn=small_disk(limit))
        return done.returncode, done.stdout

    def create(self, *more):
        self.assertEqual(0, self.bench("create", *STATE, *more)[0])

    def start(self, *arguments, limit=None, warp=True, **env):
        env = dict(self.env, **env)
        if warp:
            env = timewarp.environment(env, TIMEWARP)
        return subprocess.Popen([self.tool, *RESET, *arguments], env=env, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, preexec_fn=small_disk(limit))

    def reset(self, *arguments, **options):
        tool = self.start(*arguments, **options)
        output = tool.communicate(timeout=LIMIT_S)[0]
        return tool.returncode, output

    def content(self, name):
        with open(os.path.join(self.bench_dir, name)) as file:
            return file.read()

    def assert_true_verdict(self, output):
        """After a last line "O.K." the device is at factory state; the files can be read."""
        status, shown = self.bench("show", "--expect-factory")
        self.assertIn(status, (0, 1), shown)
        if output.endswith("seconds)...O.K.\n"):
            self.assertEqual(0, status, output + shown)
        return status

    # -- Killed at any moment

    def test_a_tool_killed_at_any_moment_loses_no_file(self):
        self.create()
        began = time.monotonic()
        status, output = self.reset()
        self.assertEqual(0, self.assert_true_verdict(output), output)
        length = time.monotonic() - began
        for moment in range(25):
            self.create()
            tool = self.start()
            time.sleep(length * moment / 25)
            tool.kill()
            output = tool.communicate()[0]
            self.assert_true_verdict(output)
            self.assertEqual(0, self.bench("list")[0])
            # And whatever was left, the next run brings it to its end.
            output = self.reset()[1]
            if self.assert_true_verdict(output) != 0:
                output = self.reset()[1]  # the killed one had protected half of it
            self.assertEqual(0, self.assert_true_verdict(output), output)
            left = [name for name in os.listdir(self.bench_dir) if name.endswith(".tmp")]
            self.assertEqual([], left)

    # -- No room

    def test_a_full_disk_is_told_and_nothing_is_better_than_it_is(self):
        self.create()
        before = self.content("1.device")
        told = 0
        for limit in range(0, 1600, 64):
            with open(os.path.join(self.bench_dir, "1.device"), "w") as file:
                file.write(before)
            status, output = self.reset(limit=limit)
            told += self.assert_true_verdict(output)
            if limit < len(before):
                self.assertEqual(before, self.content("1.device"))
                self.assertIn("The state of the device cannot be saved.", output)
                self.assertIn("1.device: File too large", output)
                self.assertEqual(255, status, output)
        self.assertGreater(told, 5)   # some of them during the reset
        self.assertEqual(0, self.assert_true_verdict(self.reset(limit=1 << 20)[1]))

    def test_quobe_bench_says_what_it_could_not_save(self):
        self.create()
        before = self.content("1.device"), self.content("1.probe")
        for command in (["create", "F103"], ["reset"], ["power-cycle"], ["set", "time=fast"]):
            status, output = self.bench(*command, limit=16)
            self.assertEqual(3, status, command)
            self.assertRegex(output, r"/bench/1\.(device|probe): File too large\n\Z")
            self.assertEqual(before, (self.content("1.device"), self.content("1.probe")))

    @unittest.skipUnless(os.path.exists("/dev/full"), "there is no /dev/full here")
    def test_output_that_cannot_be_written_is_an_error(self):
        self.create()
        with open("/dev/full", "w") as full:
            done = subprocess.run([BENCH, "show"], env=self.env, stdout=full,
                                  stderr=subprocess.PIPE, text=True, timeout=LIMIT_S)
        self.assertEqual((3, "quobe-bench: the output cannot be written: No space left on device\n"),
                         (done.returncode, done.stderr))

    # -- Trace

    def test_a_trace_that_cannot_be_written_is_an_error(self):
        self.create()
        before = self.content("1.device")
        status, output = self.reset(QUOBE_BENCH_TRACE="/nowhere/trace")
        self.assertEqual(255, status, output)
        self.assertIn("The trace cannot be written. /nowhere/trace: No such file or directory", output)
        self.assertEqual(before, self.content("1.device"))

    @unittest.skipUnless(os.path.exists("/dev/full"), "there is no /dev/full here")
    def test_a_trace_that_has_no_room_ends_the_connection(self):
        self.create()
        status, output = self.reset(QUOBE_BENCH_TRACE="/dev/full")
        self.assertEqual(255, status, output)
        self.assertEqual(1, self.assert_true_verdict(output))
        self.assertIn("flash        1048576 of 1048576 bytes in use", self.bench("show")[1])

    def test_two_programs_keep_their_lines_apart_in_one_trace(self):
        serials = ("4", "71")
        for serial in serials:
            self.create("--probe", serial)
        tools = [self.start("-SelectEmuBySN", serial, QUOBE_BENCH_TRACE=self.trace)
                 for serial in serials]
        for tool in tools:
            tool.communicate(timeout=LIMIT_S)
        last = {serial: (0.0, 0) for serial in serials}
        with open(self.trace) as file:
            for line in file:
                match = re.match(r" *(\d+\.\d{6})#(\d+|-) +(\d+|-)  +\S.*\n\Z", line)
                self.assertIsNotNone(match, line)
                when, serial, number = match.groups()
                if serial == "-" or number == "-":
                    continue
                self.assertGreaterEqual(float(when), last[serial][0], line)
                self.assertGreater(int(number), last[serial][1], line)
                last[serial] = (float(when), int(number))
        for serial in serials:
            self.assertGreater(last[serial][1], 20)

    # -- What a killed program left running

    def leave_erase_running(self):
        """The tool is killed as soon as the erase of 16 s has begun and the state says so."""
        self.create()
        tool = self.start(warp=False, QUOBE_BENCH_TIME="real")
        deadline = time.monotonic() + LIMIT_S
        shown = ""
        while "mass erase is running" not in shown and time.monotonic() < deadline:
            time.sleep(0.01)
            shown = self.bench("show")[1]
        tool.send_signal(signal.SIGKILL)
        tool.communicate()
        self.assertIn("Remark: mass erase is running", shown)

    def test_an_operation_left_running_is_cut_by_reset_and_power_cycle(self):
        self.leave_erase_running()
        left = self.content("1.device")
        for _ in range(2):   # looking does not bring it to its end
            status, shown = self.bench("show", "--expect-factory")
            self.assertEqual(1, status)
            self.assertIn("Remark: mass erase is running; a reset cuts it short\n", shown)
            self.assertIn("  mass erase is running\n", shown)
            self.assertEqual(left, self.content("1.device"))
        in_use = []
        for command in ("reset", "power-cycle"):
            for ms in ("0", "1", "4000", "8000", "15000", "30000"):
                with open(os.path.join(self.bench_dir, "1.device"), "w") as file:
                    file.write(left)
                self.assertEqual((0, ""), self.bench(command, "--after", ms))
                status, shown = self.bench("show", "--expect-factory")
                self.assertNotIn("is running", shown)
                size = re.search(r"^flash +(\d+) of \d+ bytes in use$", shown, re.M)
                if ms == "30000":   # it was done by then
                    self.assertIsNone(size, shown)
                    self.assertIn("Read protection: level 0\n", shown)
                else:
                    self.assertEqual(1, status)
                    self.assertIn("Read protection: level 1\n", shown)
                    self.assertIsNotNone(size, shown)
                    in_use.append(int(size.group(1)))
        half = len(in_use) // 2
        self.assertEqual(in_use[:half], in_use[half:])
        self.assertEqual(sorted(in_use[:half], reverse=True), in_use[:half])
        self.assertGreater(in_use[0], in_use[2])   # the longer it ran the less is left
        self.assertGreater(in_use[2], in_use[3])
        self.assertGreater(in_use[3], in_use[4])

    def test_a_watchdog_cuts_what_a_killed_program_left_running(self):
        left = "".join("running.0.%s = %d\n" % line for line in (
            ("kind", 0), ("argument", 4), ("us", 5000000), ("left_us", 4000000)))
        for options, level in ([], 0), (["--option", "IWDG1_SW=0"], 1):
            self.bench("create", "H743", "--rdp", "1", "--flash", "full", *options)
            self.assertEqual(0, self.bench("power-cycle")[0])
            content = self.content("1.device").replace("register.FLASH_OPTSR_PRG = 0x1416BB",
                                                       "register.FLASH_OPTSR_PRG = 0x1416AA")
            with open(os.path.join(self.bench_dir, "1.device"), "w") as file:
                file.write(content + left + left.replace("0.kind = 0", "0.kind = 3"))
            self.assertEqual(0, self.bench("set", "fault=lost 8")[0])   # it only connects
            self.assertNotEqual(0, self.reset()[0])
            shown = self.bench("show")[1]
            self.assertNotIn("is running", shown)
            self.assertIn("Read protection: level %d\n" % level, shown)
            self.assertEqual(level, shown.count(" bytes in use"), shown)
            self.assertEqual(0, self.bench("set", "fault=none")[0])

    # -- Settings

    def test_a_dip_of_the_supply_can_last_as_long_as_a_number_says(self):
        self.create()
        self.assertEqual(0, self.bench("set", "fault=power-dip 1 450 4294967295")[0])
        self.assertEqual(1, self.assert_true_verdict(self.reset()[1]))
        self.assertIn("flash        1048576 of 1048576 bytes in use", self.bench("show")[1])

    def test_a_time_that_is_neither_real_nor_fast_is_an_error(self):
        self.create()
        self.assertEqual(0, self.bench("set", "time=fast")[0])
        before = self.content("1.device")
        status, output = self.reset(QUOBE_BENCH_TIME="soon")
        self.assertEqual(255, status, output)
        self.assertIn('QUOBE_BENCH_TIME: "soon" is no value for time', output)
        self.assertEqual(before, self.content("1.device"))
        # Empty is as if it were not set, which the waits of real time would show.
        began = time.monotonic()
        output = self.reset(warp=False, QUOBE_BENCH_TIME="")[1]
        self.assertEqual(0, self.assert_true_verdict(output))
        self.assertLess(time.monotonic() - began, 16)

    # -- Wiring

    def test_a_program_that_hides_from_the_debugger_needs_the_reset_pin(self):
        for program in ("takes-swd", "stops"):
            for pin, outcome in (("yes", 0), ("no", 1)):
                self.create("--program", program)
                self.assertEqual(0, self.bench("set", "reset_pin=" + pin)[0])
                self.assertEqual(0, self.bench("power-cycle")[0])
                output = self.reset()[1]
                self.assertEqual(outcome, self.assert_true_verdict(output), (program, pin, output))

    def test_without_the_reset_pin_a_plain_device_is_reset_by_the_debug_port(self):
        self.create()
        self.assertEqual(0, self.bench("set", "reset_pin=no")[0])
        self.assertEqual(0, self.assert_true_verdict(self.reset()[1]))


def small_disk(limit):
    def apply():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    return None if limit is None else apply


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]] + sys.argv[5:])
