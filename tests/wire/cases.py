#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The tool on adapters at the wire, through unmodified OpenOCD: what goes right and what goes wrong.

usage: cases.py BUILD-FOLDER [unittest arguments]

Exit status 1 when a promise is broken, 77 without OpenOCD.
"""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import wire

FILES = None

CONNECTED = ("Parsing command line...O.K.\n"
             "Select device family: STM32F4xxxx\n"
             "Connecting to Quobe via USB...O.K.\n"
             "Using SWD as target interface.\n"
             "Target interface speed: 1000 kHz.\n"
             "VTarget = 3.300V\n")
FREED = CONNECTED + ("Reset target...O.K.\n"
                     "Reset option bytes (may take app. 20 seconds)...O.K.\n")
REFUSED = ("Parsing command line...O.K.\n"
           "Select device family: STM32F4xxxx\n"
           "Connecting to Quobe via USB...")
SILENT = ("The debug port does not answer. Check the wires SWDIO, SWCLK and GND and that the target "
          "has power; with nRESET wired try \"connect = under-reset\". A device at protection level 2 "
          "does not answer either, and cannot be freed.\n")
CLOSED = ("The debug port answers and the device behind it does not: its debug access is closed "
          "(protection level 2, which cannot be lifted) or the device has no power.\n")
F4 = ("-SetDeviceFamily", "5")


# Some take as long as the tool waits for a busy device: tests/wire/CMakeLists.txt runs the classes side
# by side.
class Case(unittest.TestCase):
    """A stage with a locked STM32F407 on probe 1."""

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.stage = wire.Stage(FILES, self.folder)
        self.stage.bench("create", "STM32F407", "--rdp", "1", "--flash", "full")

    def tearDown(self):
        left = wire.wait_until_gone(self.stage, 0)
        wire.kill(left)
        shutil.rmtree(self.folder)
        self.assertEqual([], left)

    def is_factory(self, *probe):
        return subprocess.run([FILES.bench, "show", "--expect-factory", *probe],
                              env=self.stage.env, capture_output=True, check=False).returncode == 0

    def wait_for(self, condition, seconds=10):
        end = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.002)

    def trace_holds(self, text):
        if not os.path.exists(self.stage.trace):
            return False
        with open(self.stage.trace) as file:
            return text in file.read()


class Opening(Case):
    def test_any_adapter_is_taken_without_a_configuration(self):
        os.remove(self.stage.env.pop("QUOBE_OPENOCD"))
        with self.stage.wire() as served:
            self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))
        self.assertTrue(self.is_factory())

    def test_an_adapter_is_chosen_by_its_serial_number(self):
        self.stage.bench("--probe", "2", "create", "STM32F429", "--rdp", "1", "--flash", "full")
        self.stage.configure("driver = cmsis-dap\nserial.2 = B-2\n")
        with self.stage.wire("--probe", "1") as one, \
                self.stage.wire("--probe", "2", "--serial", "B-2") as two:
            adapters = [one.adapter, two.adapter]
            self.assertEqual((FREED, 0), self.stage.run(adapters, "-SelectEmuBySN", "2", *F4))
            two.stop()
            self.assertTrue(self.is_factory("--probe", "2"))
            self.assertFalse(self.is_factory("--probe", "1"))
            self.assertEqual((FREED, 0), self.stage.run(adapters, "-SelectEmuBySN", "1", *F4))
        self.assertTrue(self.is_factory("--probe", "1"))

    def test_a_serial_number_that_cannot_be_carried_is_refused(self):
        for serial in ("", "a b", "a=b", "a\nb", "\u00fc", "x" * 62):
            refused = subprocess.run([self.stage.files.wire, "--serial", serial], timeout=10,
                                     env=self.stage.env, stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL)
            self.assertEqual((2, b""), (refused.returncode, refused.stdout), serial)
        with self.stage.wire("--serial", "x" * 61) as served:
            self.stage.configure("driver = cmsis-dap\nserial.5 = %s\n" % ("x" * 61))
            self.assertEqual((FREED, 0),
                             self.stage.run([served.adapter], "-SelectEmuBySN", "5", *F4))

    def test_two_adapters_are_used_at_once(self):
        self.stage.bench("--probe", "2", "create", "STM32F429", "--rdp", "1", "--flash", "full")
        with self.stage.wire("--probe", "1") as one, self.stage.wire("--probe", "2") as two:
            adapters = [one.adapter, two.adapter]
            tools = [self.stage.start(adapters, "-SelectEmuBySN", number, *F4)
                     for number in ("1", "2")]
            outputs = [tool.communicate(timeout=60)[0].decode() for tool in tools]
        self.assertEqual([FREED, FREED], [text.partition("\n\n")[2] for text in outputs])
        self.assertTrue(self.is_factory("--probe", "1"))
        self.assertTrue(self.is_factory("--probe", "2"))

    def test_a_wrong_serial_number_is_told(self):
        with self.stage.wire() as served:
            self.assertEqual(
                (REFUSED + "No debug adapter with the serial number 77 was found. Check the number; "
                 "\"serial.N = TEXT\" in " + self.stage.env["QUOBE_OPENOCD"] +
                 " says which adapter the number N means.\n", 255),
                self.stage.run([served.adapter], "-SelectEmuBySN", "77", *F4))
        self.assertFalse(self.is_factory())

    def test_no_adapter_is_told(self):
        self.stage.configure("")
        self.assertEqual(
            (REFUSED + "No ST-LINK or CMSIS-DAP adapter was found. Connect it by USB and check the "
             "cable; another kind of adapter is named in " + self.stage.env["QUOBE_OPENOCD"] +
             " (driver = FILE.cfg).\n", 255), self.stage.run([], *F4))

    def test_an_adapter_that_cannot_be_opened_is_told(self):
        output, status = self.stage.run(["1=1"], *F4)
        self.assertEqual(255, status)
        self.assertTrue(output.startswith(
            REFUSED + "This user may not open the debug adapter (unable to open CMSIS-DAP device "
            "0x1209:0x1). On Linux put the line "), output)

    def test_level_2_with_a_closed_port_is_told_and_changes_nothing(self):
        self.stage.bench("create", "STM32F407", "--rdp", "2", "--flash", "full")
        before = self.stage.bench("power-cycle") + self.stage.bench("show")
        with self.stage.wire() as served:
            self.assertEqual((REFUSED + SILENT, 255), self.stage.run([served.adapter], *F4))
        self.assertEqual(before, self.stage.bench("power-cycle") + self.stage.bench("show"))

    def test_level_2_with_a_port_that_answers_is_told_and_changes_nothing(self):
        self.stage.bench("create", "STM32F407", "--rdp", "2", "--flash", "full")
        before = self.stage.bench("power-cycle") + self.stage.bench("show")
        with self.stage.wire("--level2", "fails") as served:
            self.assertEqual((REFUSED + CLOSED, 255), self.stage.run([served.adapter], *F4))
        self.assertEqual(before, self.stage.bench("power-cycle") + self.stage.bench("show"))

    def test_a_device_without_power_is_told(self):
        self.stage.bench("set", "vtarget=0")
        with self.stage.wire() as served:
            self.assertEqual((REFUSED + SILENT, 255), self.stage.run([served.adapter], *F4))

    def test_a_supply_that_a_hook_switches_is_switched_on_and_off(self):
        self.stage.bench("set", "vtarget=0")
        with self.stage.wire() as served:
            number = served.process.pid
            self.stage.configure("driver = cmsis-dap\npower_on = exec kill -USR1 %d\n"
                                 "power_off = exec kill -USR2 %d\n" % (number, number))
            self.assertEqual(
                (FREED.replace("Using SWD", "Powering target via Quobe.\nUsing SWD"), 0),
                self.stage.run([served.adapter], "-SetPowerTarget", "1", *F4))
            self.wait_for(lambda: self.trace_holds("-- power off"))
        self.assertTrue(self.is_factory())

    def test_a_supply_that_is_switched_on_under_reset_is_connected_to(self):
        self.stage.bench("create", "STM32F407", "--rdp", "1", "--flash", "full", "--program",
                         "takes-swd")
        self.stage.bench("set", "vtarget=0")
        with self.stage.wire() as served:
            self.stage.configure("driver = cmsis-dap\nconnect = under-reset\n"
                                 "power_on = exec kill -USR1 %d\n" % served.process.pid)
            self.assertEqual(
                (FREED.replace("Using SWD", "Powering target via Quobe.\nUsing SWD"), 0),
                self.stage.run([served.adapter], "-SetPowerTarget", "1", *F4))
        self.assertTrue(self.is_factory())

    def test_an_interface_file_is_used(self):
        self.stage.configure("driver = interface/cmsis-dap.cfg\nspeed = 500\n")
        with self.stage.wire() as served:
            self.assertEqual((FREED.replace("1000 kHz", "500 kHz"), 0),
                             self.stage.run([served.adapter], *F4))

    def test_a_puts_in_a_users_file_does_no_harm(self):
        # Not in TMPDIR: the name of a driver's file cannot contain a blank.
        with tempfile.NamedTemporaryFile("w", dir="/tmp", suffix=".cfg") as file:
            file.write("puts {hello\nq2 0 {there}}\nadapter driver cmsis-dap\nputs -nonewline more\n")
            file.flush()
            self.stage.configure("driver = %s\n" % file.name)
            with self.stage.wire() as served:
                self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))
        self.assertTrue(self.is_factory())

    def test_a_configuration_error_is_told_with_file_and_line(self):
        self.stage.configure("\nvtarget = 3.3V\n")
        self.assertEqual(
            (REFUSED + self.stage.env["QUOBE_OPENOCD"] + ":2: \"vtarget = 3.3V\": expected "
             "millivolts from 0 to 65535\n", 255), self.stage.run([], *F4))


class Resetting(Case):
    def test_under_reset_the_core_is_halted_before_its_first_instruction(self):
        self.stage.configure("driver = cmsis-dap\nconnect = under-reset\n")
        with self.stage.wire() as served:
            self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))
        self.assertTrue(self.is_factory())

    def test_a_program_that_uses_the_pins_of_swd_needs_it(self):
        self.stage.bench("create", "STM32F407", "--rdp", "1", "--flash", "full", "--program",
                         "takes-swd")
        with self.stage.wire() as served:
            self.assertEqual((REFUSED + SILENT, 255), self.stage.run([served.adapter], *F4))
        self.stage.configure("driver = cmsis-dap\nconnect = under-reset\n")
        with self.stage.wire() as served:
            self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))
        self.assertTrue(self.is_factory())

    def test_the_pin_resets(self):
        self.stage.configure("driver = cmsis-dap\nreset = pin\n")
        with self.stage.wire() as served:
            self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))
        self.assertTrue(self.is_factory())

    def test_both_work_together_also_where_a_program_uses_the_pins_of_swd(self):
        self.stage.bench("create", "STM32F407", "--rdp", "1", "--flash", "full", "--program",
                         "takes-swd")
        self.stage.configure("driver = cmsis-dap\nconnect = under-reset\nreset = pin\n")
        with self.stage.wire() as served:
            self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))
        self.assertTrue(self.is_factory())


class Waiting(Case):
    """A bus that waits for the flash. In real time the erase of an F407 takes 16 s."""

    def setUp(self):
        super().setUp()
        self.stage.env["QUOBE_BENCH_TIME"] = "real"

    def test_waits_on_the_wire_are_waited_for(self):
        for options in ([], ["--wait"]):
            self.stage.bench("create", "STM32F103", "--rdp", "1", "--flash", "full")
            with self.stage.wire(*options) as served:
                output, status = self.stage.run([served.adapter], "-SetDeviceFamily", "2")
            self.assertEqual(0, status)
            self.assertTrue(output.endswith("Reset option bytes to factory settings...O.K.\n"), output)
            self.assertTrue(self.is_factory())

    def test_a_few_waits_and_a_late_answer_are_not_seen(self):
        self.stage.env["QUOBE_BENCH_TIME"] = "fast"
        with self.stage.wire("--fault", "wait 60 60", "--fault", "late 70 1500") as served:
            self.assertEqual((FREED, 0), self.stage.run([served.adapter], *F4))


class Losing(Case):
    def test_an_adapter_lost_in_mid_erase_ends_the_run_and_not_the_erase(self):
        self.stage.env["QUOBE_BENCH_TIME"] = "real"
        with self.stage.wire() as served:
            tool = self.stage.start([served.adapter], *F4)
            self.wait_for(lambda: self.trace_holds("FLASH_SR = 0x00010000"))
            served.process.send_signal(signal.SIGKILL)
            served.process.wait()
            start = time.monotonic()
            output, _ = tool.communicate(timeout=60)
            took = time.monotonic() - start
        self.assertEqual([], wire.wait_until_gone(self.stage, 1))
        # The tool polls for 25 s by contract; its reads return at once.
        self.assertLess(took, 27)
        self.assertNotIn(b"seconds)...O.K.", output)
        self.assertNotEqual(0, tool.returncode)


class Silent(Case):
    def test_a_silent_adapter_is_given_up(self):
        with self.stage.wire("--fault", "silent 60") as served:
            start = time.monotonic()
            output, status = self.stage.run([served.adapter], *F4)
            self.assertLess(time.monotonic() - start, 40)
        self.assertNotIn("seconds)...O.K.", output)
        self.assertNotEqual(0, status)


class Killed(Case):
    def test_a_killed_openocd_is_noticed(self):
        self.stage.env["QUOBE_BENCH_TIME"] = "real"
        with self.stage.wire() as served:
            tool = self.stage.start([served.adapter], *F4)
            self.wait_for(lambda: self.trace_holds("FLASH_SR = 0x00010000"))
            numbers = wire.of_stage(self.stage, wire.processes_named("openocd"))
            self.assertEqual(1, len(numbers))
            wire.kill(numbers)
            output, _ = tool.communicate(timeout=60)
        self.assertNotIn(b"seconds)...O.K.", output)
        self.assertNotEqual(0, tool.returncode)


class Ending(Case):
    def test_a_killed_tool_leaves_no_process(self):
        self.stage.env["QUOBE_BENCH_TIME"] = "real"
        with self.stage.wire() as served:
            tool = self.stage.start([served.adapter], *F4)
            self.wait_for(lambda: self.trace_holds("FLASH_SR = 0x00010000"))
            tool.kill()
            tool.communicate()
            self.assertEqual([], wire.wait_until_gone(self.stage, 2))
            # The adapter is free for the next one at once.
            self.stage.env["QUOBE_BENCH_TIME"] = "fast"
            output, status = self.stage.run([served.adapter], *F4)
        self.assertEqual((FREED, 0), (output, status))

    def test_a_tool_that_is_killed_or_interrupted_lets_the_core_run(self):
        self.stage.env["QUOBE_BENCH_TIME"] = "real"
        for number in (signal.SIGKILL, signal.SIGINT):
            self.stage.bench("create", "STM32F407", "--rdp", "1", "--flash", "full")
            with self.stage.wire() as served:
                tool = self.stage.start([served.adapter], *F4)
                self.wait_for(lambda: self.trace_holds("FLASH_SR = 0x00010000"))
                os.remove(self.stage.trace)
                tool.send_signal(number)
                tool.communicate()
                self.assertEqual([], wire.wait_until_gone(self.stage, 2))
                self.assertEqual("the core is free", served.last_words())

    def test_the_log_of_a_lost_adapter_is_bounded(self):
        log = os.path.join(self.folder, "log")
        self.stage.configure("driver = cmsis-dap\nlog = %s\n" % log)
        with self.stage.wire("--fault", "lost 60") as served:
            self.stage.run([served.adapter], *F4)
        self.assertLess(os.path.getsize(log), 17 << 20)
        with open(log) as file:
            self.assertIn("CMSIS-DAP: SWD supported", file.read())


class Network(Case):
    """A server that somebody started."""

    def server(self, adapter, *commands):
        env = dict(self.stage.env, QUOBE_WIRE=adapter, LD_LIBRARY_PATH=FILES.hid)
        process = subprocess.Popen(
            ["openocd", "-c", "gdb_port disabled; telnet_port disabled; tcl_port 0"] +
            [word for command in commands for word in ("-c", command)],
            env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        for line in process.stderr:
            if "for tcl connections" in line:
                return process, line.split("port ")[1].split()[0]
        self.fail("the server did not start")

    def run_at(self, port, served, *commands):
        server, port = self.server(served.adapter, *commands)
        result = self.stage.run([], "-IP", "127.0.0.1:" + port, *F4)
        self.assertIsNone(server.poll())
        server.terminate()
        server.communicate(timeout=10)
        return result

    ADAPTER = ("adapter driver cmsis-dap; transport select swd; adapter speed 1000; "
               "swd newdap chip cpu -irlen 4; dap create chip.dap -chain-position chip.cpu; ")
    BY_NETWORK = FREED.replace("via USB", "via ethernet")

    def test_a_server_with_a_bus_for_a_target_is_used_and_left_running(self):
        with self.stage.wire() as served:
            self.assertEqual((self.BY_NETWORK, 0), self.run_at(
                0, served, self.ADAPTER + "target create chip.bus mem_ap -dap chip.dap -ap-num 0"))
        self.assertTrue(self.is_factory())

    def test_a_server_with_a_core_for_a_target_is_used(self):
        with self.stage.wire() as served:
            self.assertEqual((self.BY_NETWORK, 0), self.run_at(
                0, served, self.ADAPTER + "target create chip.cpu cortex_m -dap chip.dap"))
        self.assertTrue(self.is_factory())

    def test_a_server_without_a_target_is_told(self):
        with self.stage.wire() as served:
            server, port = self.server(served.adapter, self.ADAPTER)
            output, status = self.stage.run([], "-IP", "127.0.0.1:" + port, *F4)
            server.terminate()
            server.communicate(timeout=10)
        self.assertEqual((REFUSED.replace("via USB", "via ethernet") +
                          "The OpenOCD server at 127.0.0.1, port %s, has no target. Start it with "
                          "one.\n" % port, 255), (output, status))

    def test_an_address_that_is_none_is_told(self):
        self.assertEqual((REFUSED.replace("via USB", "via ethernet") + "failed.\n", 255),
                         self.stage.run([], "-IP", "host:port", *F4))


if __name__ == "__main__":
    wire.skip_without_openocd()
    FILES = wire.Files(sys.argv.pop(1))
    unittest.main()
