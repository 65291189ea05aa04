#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""quobe-options as a process: command line, exit status, what it prints, what it asks of the probe.

usage: process_test.py BUILD-FOLDER [unittest arguments]
"""

import json
import os
import pty
import shutil
import subprocess
import sys
import tempfile
import unittest

LIMIT_S = 30
HERE = os.path.dirname(os.path.abspath(__file__))
EXPECTED = os.path.join(HERE, "expected")
CLOSED = ("quobe-options: the debug port does not answer: protection level 2, a program that uses its "
          "pins or sleeps, or the wiring.\n")


class Case(unittest.TestCase):
    """A folder with a bench, and quobe-options beside a probe library."""

    maxDiff = None
    library = "sim"

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = holder.name
        self.program = os.path.join(self.folder, "quobe-options")
        shutil.copy(os.path.join(BUILD, "quobe-options"), self.program)
        if self.library == "sim":
            shutil.copy(os.path.join(BUILD, "sim", "libquobearm.dylib"), self.folder)
        elif self.library is not None:
            shutil.copy(os.path.join(BUILD, "tests", "options", self.library, "libquobearm.dylib"),
                        self.folder)
        self.env = dict(os.environ, HOME=self.folder, QUOBE_BENCH=os.path.join(self.folder, "bench"),
                        QUOBE_BENCH_TIME="fast", QUOBE_RECORD=os.path.join(self.folder, "record"),
                        QUOBE_WORDS=os.path.join(self.folder, "words"))

    def run_it(self, *arguments, **more):
        done = subprocess.run([self.program, *arguments], env=self.env, cwd=self.folder,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=LIMIT_S, check=False,
                              **more)
        return done.returncode, done.stdout, done.stderr

    def json(self, *arguments):
        status, output, _ = self.run_it("--json", *arguments)
        return status, json.loads(output)

    def bench(self, *arguments):
        subprocess.run([os.path.join(BUILD, "sim", "quobe-bench"), *arguments], env=self.env,
                       stdout=subprocess.DEVNULL, timeout=LIMIT_S, check=True)

    def record(self):
        with open(self.env["QUOBE_RECORD"]) as file:
            return file.read().splitlines()

    def write(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w") as file:
            file.write(text)
        return path

    def assert_text(self, name, text):
        """The text is that of the file; with QUOBE_TEST_WRITE set the file is written."""
        path = os.path.join(EXPECTED, name)
        if os.environ.get("QUOBE_TEST_WRITE"):
            with open(path, "w") as file:
                file.write(text)
        with open(path) as file:
            self.assertEqual(file.read(), text)


class CommandLine(Case):
    def refused(self, message, *arguments):
        self.assertEqual((2, "", "quobe-options: %s.\n" % message), self.run_it(*arguments))
        self.assertFalse(os.path.exists(self.env["QUOBE_BENCH"]))  # the probe was not asked

    def test_what_is_no_option_is_refused(self):
        self.refused('"-Exit" is no option; see quobe-options --help', "-Exit", "1")
        self.refused('"5" is no option; see quobe-options --help', "5")

    def test_an_option_without_its_value_is_refused(self):
        self.refused("-Speed needs a value: kHz, auto or adaptive", "-Speed")
        self.refused("--expect needs a value: factory or a file that --json wrote", "--expect")

    def test_values_that_the_tool_would_cut_are_refused(self):
        self.refused('-Speed: "4000kHz" is not kHz, auto or adaptive', "-Speed", "4000kHz")
        self.refused('-SelectEmuBySN: "4294967296" is not a decimal serial number',
                     "-SelectEmuBySN", "4294967296")
        self.refused('-SetDeviceFamily: "5x" is not a number from 1 to 12 or a name of the menu',
                     "-SetDeviceFamily", "5x")
        self.refused('-SetDeviceFamily: "13" is not a number from 1 to 12 or a name of the menu',
                     "-SetDeviceFamily", "13")
        self.refused('-IP: "%s" is not an address or host name of at most 127 characters' % ("a" * 128),
                     "-IP", "a" * 128)

    def test_help_and_version_need_no_probe(self):
        status, output, error = self.run_it("--help")
        self.assertEqual((0, ""), (status, error))
        self.assert_text("help.txt", output)
        self.assertEqual((0, "quobe-options %s\n" % VERSION, ""), self.run_it("--version"))

    def test_a_file_that_cannot_be_compared_with_is_refused(self):
        self.refused('--expect: "none" cannot be opened: No such file or directory', "--expect", "none")
        self.write("text", "not this\n")
        self.refused('--expect: "text", line 1: no JSON; make the file anew', "--expect", "text")
        self.write("cut", '{\n"schema": 1,\n"program": "quobe-options",\n')
        self.refused('--expect: "cut", line 4: no JSON; make the file anew', "--expect", "cut")
        for text in ('{"schema": 2, "program": "quobe-options", "error": null}',
                     '{"schema": 1, "program": "other", "error": null}', "[]", "\0"):
            self.write("other", text)
            status, output, error = self.run_it("--expect", "other")
            self.assertEqual((2, ""), (status, output))
            self.assertIn("is no output of quobe-options --json", error)
        self.write("failed", '{"schema": 1, "program": "quobe-options", "error": "no probe"}')
        self.refused('--expect: "failed" was made without a device; make it anew with one',
                     "--expect", "failed")

    def test_deep_and_long_files_are_refused(self):
        for text in ("[" * 100000, '{"a": "%s"}' % ("x" * 600), "[" + "1," * 200000 + "1]"):
            self.write("long", text)
            self.assertEqual(2, self.run_it("--expect", "long")[0])


class WithoutLibrary(Case):
    library = None

    def test_it_is_told_and_nothing_is_on_standard_output(self):
        self.assertEqual(
            (3, "", "quobe-options: no probe library: put libquobearm.dylib beside this program or "
             "install it.\n"), self.run_it("-SetDeviceFamily", "5"))

    def test_json_says_it_too(self):
        status, seen = self.json()
        self.assertEqual(3, status)
        self.assertEqual(3, seen["status"])
        self.assertIn("no probe library", seen["error"])
        self.assertIsNone(seen["device"])
        self.assertEqual([], seen["fields"])


class OfOldLibrary(Case):
    library = "lacking_recorder"

    def test_a_missing_function_is_no_difference(self):
        self.assertEqual(
            (3, "", "quobe-options: the probe library has no QUOBEARM_GetSpeed: it is too old or "
             "another library.\n"), self.run_it("--expect", "factory"))


# An F103 at level 0 as delivered, and an F051 that hides its identity.
F103 = """E0042000 20036410
1FFFF7E0 00000080
4002200C 00000000
4002201C 03FFFFFC
40022020 FFFFFFFF
1FFFF800 00FF5AA5
1FFFF804 00FF00FF
1FFFF808 00FF00FF
1FFFF80C 00FF00FF
08000000 FFFFFFFF
08000004 FFFFFFFF
08000008 FFFFFFFF
0800000C FFFFFFFF
"""
HIDDEN_F0 = """1FFFF7CC 00000040
4002200C 00000000
4002201C FFFF7700
40022020 0000FFFF
1FFFF800 00FF55AA
1FFFF804 00FF00FF
1FFFF808 00FF00FF
1FFFF80C 00FF00FF
08000000 20001000
08000004 08000101
08000008 00000000
0800000C 00000000
"""
# An L433 as delivered.
L433 = """E0042000 10016435
1FFF75E0 00000100
40022010 00000000
40022020 FFFFF8AA
40022024 FFFFFFFF
40022028 0FFF8000
4002202C FF80FFFF
40022030 FF80FFFF
1FFF7800 FFFFF8AA
1FFF7804 00000755
1FFF7808 FFFFFFFF
1FFF780C 00000000
1FFF7810 0FFF8000
1FFF7814 F0007FFF
1FFF7818 FF80FFFF
1FFF781C 007F0000
1FFF7820 FF80FFFF
1FFF7824 007F0000
08000000 FFFFFFFF
08000004 FFFFFFFF
08000008 FFFFFFFF
0800000C FFFFFFFF
"""
CONNECTION = ["Open", "ExecCommand device = Cortex-M3", "TIF_Select 1", "SetSpeed 1000", "GetSpeed",
              "GetHWStatus"]


class Calls(Case):
    library = "recorder"

    def reads(self, words):
        return ["ReadMemU32 %s 1" % line.split()[0] for line in words.splitlines()]

    def test_the_connection_is_the_tools_and_all_else_is_a_read(self):
        self.write("words", F103)
        status, _, error = self.run_it("-SetDeviceFamily", "2", "--expect", "factory")
        self.assertEqual((0, ""), (status, error))
        self.assertEqual(CONNECTION + self.reads(F103) + ["IsOpen", "Close"], self.record())

    def test_options_reach_the_probe_as_the_tools_do(self):
        self.write("words", F103)
        self.assertEqual(0, self.run_it("-selectemubysn", "77", "-speed", "AUTO", "-setpowertarget",
                                        "1", "-setdevicefamily", "stm32f4xxxx")[0])
        self.assertEqual(
            ["EMU_SelectByUSBSN 77", "Open", "ExecCommand device = Cortex-M4",
             "ExecCommand SupplyPower = 1", "TIF_Select 1", "SetSpeed 0", "GetSpeed", "GetHWStatus"],
            self.record()[:8])
        self.assertEqual(["IsOpen", "ExecCommand DisablePowerSupplyOnClose", "Close"],
                         self.record()[-3:])

    def test_an_address_that_is_refused_is_told(self):
        self.assertEqual(
            (3, "", 'quobe-options: no probe at "nowhere": check the address and its network.\n'),
            self.run_it("-IP", "nowhere"))
        self.assertEqual(["SelectIP nowhere 0"], self.record())

    def test_a_text_of_open_is_one_line(self):
        self.env["QUOBE_OPEN"] = "in use\nby another\n"
        self.assertEqual((3, "", "quobe-options: the probe was not opened: in use by another.\n"), self.run_it())
        self.env["QUOBE_OPEN"] = ""
        self.assertEqual((3, "", "quobe-options: the probe was not opened: its library gives no reason.\n"),
                         self.run_it())

    def test_a_library_that_finds_the_port_silent_is_believed(self):
        self.env["QUOBE_OPEN"] = "The debug port does not answer. Check the wires."
        self.assertEqual((4, "", "quobe-options: the probe was not opened: The debug port does not "
                          "answer. Check the wires.\n"), self.run_it())

    def test_499_mv_is_no_target_and_500_is_one(self):
        self.write("words", F103)
        self.env["QUOBE_MV"] = "499"
        status, _, error = self.run_it()
        self.assertEqual((3, "quobe-options: no target: its voltage is 499 mV; connect and supply it, "
                          "or use -SetPowerTarget 1.\n"), (status, error))
        self.assertEqual(["IsOpen", "Close"], self.record()[-2:])
        self.env["QUOBE_MV"] = "500"
        self.assertEqual(0, self.run_it()[0])

    def test_nothing_that_answers_is_a_closed_port(self):
        self.assertEqual((4, CLOSED), self.run_it("-SetDeviceFamily", "5")[::2])
        self.assertEqual(["IsOpen", "Close"], self.record()[-2:])
        self.assertEqual((4, CLOSED), self.run_it()[::2])

    def test_a_hidden_identity_is_told_and_the_familys_registers_are_shown(self):
        self.write("words", HIDDEN_F0)
        status, output, error = self.run_it("-SetDeviceFamily", "1", "--expect", "factory")
        self.assertEqual((0, ""), (status, error))
        self.assert_text("hidden_f0.txt", output)
        _, seen = self.json("-SetDeviceFamily", "1")
        self.assertFalse(seen["device"]["known"])
        self.assertIsNone(seen["device"]["dev_id"])
        self.assertEqual({"STM32F051", "STM32F072", "STM32F091"},
                         {seen["device"]["name"], *seen["device"]["alternatives"]})
        fields = {(field["word"], field["name"]): field for field in seen["fields"]}
        # Bits that F051 lacks read 0 in the register and mean nothing.
        self.assertEqual((None, "0xFF"), (fields["OPTION_WRP23", "WRP2"]["loaded"],
                                          fields["OPTION_WRP23", "WRP2"]["stored"]))
        self.assertEqual("0xFF", fields["OPTION_WRP01", "WRP0"]["loaded"])

    def test_a_hidden_identity_is_found_without_a_family(self):
        self.write("words", HIDDEN_F0)
        _, seen = self.json()
        self.assertEqual({"row": 1, "name": "STM32F0", "found_by": "device"}, seen["family"])

    def test_a_hidden_identity_that_differs_is_told(self):
        self.write("words", HIDDEN_F0.replace("1FFFF80C 00FF00FF", "1FFFF80C 00FF01FE"))
        status, seen = self.json("-SetDeviceFamily", "1", "--expect", "factory")
        self.assertEqual(1, status)
        self.assertEqual([{"word": "OPTION_WRP23", "name": "WRP2", "what": "stored",
                           "expected": "0xFF", "actual": "0xFE"}], seen["differences"])

    def test_an_unknown_device_is_told_and_shown_raw(self):
        self.write("words", F103.replace("20036410", "20036999"))
        status, output, error = self.run_it("-SetDeviceFamily", "2", "--expect", "factory")
        self.assertEqual((1, ""), (status, error))
        self.assert_text("unknown_f1.txt", output)
        status, seen = self.json("-SetDeviceFamily", "2")
        self.assertEqual(0, status)
        self.assertEqual("0x999", seen["device"]["dev_id"])
        self.assertEqual(([], [], None), (seen["words"], seen["fields"], seen["as_factory"]))
        self.assertEqual(["FLASH_SR", "FLASH_OBR", "FLASH_WRPR"],
                         [register["name"] for register in seen["registers"]])

    def test_an_unknown_device_of_no_family_shows_what_answers(self):
        self.write("words", F103.replace("20036410", "20036999"))
        status, seen = self.json()
        self.assertEqual((0, None, None), (status, seen["family"], seen["reset"]["possible"]))
        self.assertIn({"name": "FLASH_OBR", "address": "0x4002201C", "value": "0x03FFFFFC"},
                      seen["registers"])

    def test_a_device_of_another_family_is_told(self):
        self.write("words", F103)
        status, seen = self.json("-SetDeviceFamily", "4", "--expect", "factory")
        self.assertEqual(1, status)
        self.assertEqual("STM32F103", seen["device"]["name"])
        self.assertEqual({"row": 2, "name": "STM32F1", "found_by": "device"}, seen["family"])
        self.assertEqual([{"word": None, "name": None, "what": "device",
                           "expected": "the family that was given", "actual": "STM32F103"}],
                         seen["differences"])
        self.assertIsNone(seen["reset"]["possible"])

    def test_a_word_that_does_not_answer_is_not_taken_for_good(self):
        self.write("words", "".join(line + "\n" for line in F103.splitlines()
                                    if not line.startswith(("40022020", "1FFFF808"))))
        status, seen = self.json("-SetDeviceFamily", "2", "--expect", "factory")
        self.assertEqual(1, status)
        field = next(field for field in seen["fields"] if field["name"] == "WRP0")
        self.assertEqual((None, None, None), (field["loaded"], field["stored"], field["as_factory"]))
        self.assertFalse(seen["as_factory"])

    def without(self, words, *addresses):
        self.write("words", "".join(line + "\n" for line in words.splitlines()
                                    if not line.startswith(addresses)))

    def test_what_was_read_in_one_of_two_places_only_is_not_taken_for_good(self):
        def difference(word, name, what, expected):
            return {"word": word, "name": name, "what": what, "expected": expected, "actual": None}

        for address, family, words, expected in (
                ("40022020", "2", F103, [difference("OPTION_WRP01", "WRP0", "loaded", "0xFF"),
                                         difference("OPTION_WRP01", "WRP1", "loaded", "0xFF"),
                                         difference("OPTION_WRP23", "WRP2", "loaded", "0xFF"),
                                         difference("OPTION_WRP23", "WRP3", "loaded", "0xFF")]),
                ("1FFFF804", "2", F103, [difference("OPTION_DATA", "DATA0", "stored", "0xFF"),
                                         difference("OPTION_DATA", "DATA1", "stored", "0xFF")]),
                ("4002200C", "2", F103, [difference("FLASH_SR", "BSY", "error", "0x0")]),
                ("1FFF781C", "12", L433, [difference("WRP1AR", None, "complement", "right")])):
            self.write("words", words)
            status, seen = self.json("-SetDeviceFamily", family, "--expect", "factory")
            self.assertEqual((0, True, []), (status, seen["as_factory"], seen["differences"]))
            self.without(words, address)
            status, seen = self.json("-SetDeviceFamily", family, "--expect", "factory")
            self.assertEqual((1, False, expected), (status, seen["as_factory"], seen["differences"]))

    def test_what_a_file_has_and_the_device_does_not_show_is_a_difference(self):
        self.write("words", F103)
        self.write("before", self.run_it("--json")[1])
        self.assertEqual(0, self.run_it("--expect", "before")[0])
        for address, expected in (("1FFFF804", ["complement", "stored", "stored"]),
                                  ("4002200C", ["error"] * 3)):
            self.without(F103, address)
            status, seen = self.json("--expect", "before")
            self.assertEqual(1, status)
            self.assertEqual([(what, None) for what in expected],
                             [(entry["what"], entry["actual"]) for entry in seen["differences"]])

    def test_texts_of_the_library_do_no_harm_to_the_json(self):
        self.env["QUOBE_OPEN"] = 'a "b" \\ \t \x01 \u00e9'
        _, seen = self.json()
        self.assertEqual('the probe was not opened: a "b" \\ \t \x01 \u00e9', seen["error"])
        # Half of a pair, longer than needed, beyond the last character: no UTF-8.
        for text in (b"\xed\xa0\x80", b"\xe0\x80\x80", b"\xf0\x80\x80\x80", b"\xf4\x90\x80\x80"):
            self.env["QUOBE_OPEN"] = os.fsdecode(text)
            done = subprocess.run([self.program, "--json"], env=self.env, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, timeout=LIMIT_S, check=False)
            self.assertEqual("the probe was not opened: " + "\ufffd" * len(text),
                             json.loads(done.stdout.decode())["error"])


class Shown(Case):
    def shown(self, name, family, *state, status=0):
        self.bench("create", *state)
        self.assertEqual(status, self.run_it("-SetDeviceFamily", family)[0])
        self.assert_text(name, self.run_it("-SetDeviceFamily", family, "--expect", "factory")[1])

    def test_f407_protected(self):
        self.shown("f407.txt", "5", "STM32F407", "--rdp", "1", "--wrp", "0-3,7", "--flash", "full")

    def test_f429_with_pcrop(self):
        self.shown("f429.txt", "5", "STM32F429", "--rdp", "0", "--pcrop", "0,13-14")

    def test_h745_as_delivered(self):
        self.shown("h745.txt", "9", "STM32H745")

    def test_l152_with_a_wrong_complement(self):
        self.shown("l152xe.txt", "11", "STM32L152xE", "--rdp", "0", "--mismatch", "user")

    def test_l476_with_areas(self):
        self.shown("l476.txt", "12", "STM32L476", "--rdp", "0", "--wrp", "3-9,300", "--pcrop", "20-30")

    def test_level_2_is_a_closed_port(self):
        self.bench("create", "STM32F407", "--rdp", "2")
        status, output, error = self.run_it("-SetDeviceFamily", "5")
        self.assertEqual((4, CLOSED), (status, error))
        self.assertEqual("Probe             USB, 1000 kHz\nTarget voltage    3.300 V\n", output)

    def test_what_is_loaded_late_is_told(self):
        self.bench("create", "STM32F051", "--rdp", "1", "--wrp", "all", "--flash", "full")
        self.bench("power-cycle")
        subprocess.run([os.path.join(BUILD, "sim", "quobe-unlock"), "-Exit", "1", "-SetDeviceFamily",
                        "1"], env=self.env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       timeout=LIMIT_S, check=True)
        status, seen = self.json("-SetDeviceFamily", "1", "--expect", "factory")
        self.assertEqual(1, status)
        self.assertEqual({"level": 1, "stored_level": 0},
                         {name: seen["protection"][name] for name in ("level", "stored_level")})
        self.assertTrue(seen["reset"]["needs_power_cycle"])
        self.bench("power-cycle")
        self.assertEqual(0, self.run_it("-SetDeviceFamily", "1", "--expect", "factory")[0])


class Areas(Case):
    """The sectors that the bench was told to protect are the ones that are shown."""

    def check(self, name, device, sectors, *state):
        self.bench("create", device, "--rdp", "0", *state)
        _, seen = self.json()
        self.assertEqual(sectors, [(area["first"], area["last"], area["start"], area["end"])
                                   for area in seen[name]])

    def test_write_protection(self):
        for device, wrp, sectors in (
                ("STM32F103xE", "0,2,31", [(0, 0, "0x08000000", "0x08000FFF"),
                                           (2, 2, "0x08002000", "0x08002FFF"),
                                           (31, 31, "0x0801F000", "0x0807FFFF")]),
                ("STM32F407", "3-5,11", [(3, 5, "0x0800C000", "0x0803FFFF"),
                                         (11, 11, "0x080E0000", "0x080FFFFF")]),
                ("STM32F413", "14", [(14, 14, "0x08140000", "0x0817FFFF")]),
                ("STM32F429", "11,12,23", [(11, 11, "0x080E0000", "0x080FFFFF"),
                                           (12, 12, "0x08100000", "0x08103FFF"),
                                           (23, 23, "0x081E0000", "0x081FFFFF")]),
                ("STM32F746", "4,7", [(4, 4, "0x08020000", "0x0803FFFF"),
                                      (7, 7, "0x080C0000", "0x080FFFFF")]),
                ("STM32H743", "7,8", [(7, 7, "0x080E0000", "0x080FFFFF"),
                                      (8, 8, "0x08100000", "0x0811FFFF")]),
                ("STM32L073", "0,47", [(0, 0, "0x08000000", "0x08000FFF"),
                                       (47, 47, "0x0802F000", "0x0802FFFF")]),
                ("STM32L152xE", "0-1,127", [(0, 1, "0x08000000", "0x08001FFF"),
                                            (127, 127, "0x0807F000", "0x0807FFFF")]),
                ("STM32L496", "256", [(0, 0, "0x08080000", "0x080807FF")])):
            with self.subTest(device):
                self.check("write_protection", device, sectors, "--wrp", wrp)

    def test_two_banks_of_one(self):
        self.check("write_protection", "STM32F767", [(22, 23, "0x081C0000", "0x081FFFFF")],
                   "--wrp", "11", "--option", "nDBANK=0")
        self.check("write_protection", "STM32F427", [(13, 13, "0x08084000", "0x08087FFF")],
                   "--wrp", "13", "--option", "DB1M=1")

    def test_pcrop_and_secure_areas(self):
        self.check("pcrop", "STM32F446", [(1, 2, "0x08004000", "0x0800BFFF")], "--pcrop", "1-2")
        self.check("pcrop", "STM32F723", [(5, 5, "0x08020000", "0x0803FFFF")], "--pcrop", "5")
        self.check("pcrop", "STM32L152", [(0, 0, "0x08000000", "0x08000FFF")], "--pcrop", "0")
        self.check("pcrop", "STM32L476", [(10240, 10495, "0x08014000", "0x080147FF")], "--pcrop", "40")
        self.check("pcrop", "STM32H743", [(512, 1023, "0x08020000", "0x0803FFFF")], "--pcrop", "1")
        self.check("pcrop", "STM32H743", [(0, 4095, "0x08000000", "0x080FFFFF")],
                   "--option", "PRAR1.PROT_AREA_START=5", "--option", "PRAR1.PROT_AREA_END=5")
        self.check("secure", "STM32H743", [(0, 511, "0x08000000", "0x0801FFFF")], "--secure")


class Expect(Case):
    def test_a_file_of_the_same_device_is_as_expected(self):
        self.bench("create", "STM32L476", "--rdp", "1", "--wrp", "3-9")
        status, output, _ = self.run_it("--json")
        self.assertEqual(0, status)
        path = self.write("before", output)
        self.assertEqual(0, self.run_it("--expect", path)[0])
        # As another program may have written it.
        path = self.write("sorted", json.dumps(json.loads(output), sort_keys=True))
        self.assertEqual(0, self.run_it("--expect", path)[0])

    def test_each_kind_of_difference_is_listed(self):
        self.bench("create", "STM32L053", "--rdp", "0")
        path = self.write("before", self.run_it("--json", "-SetDeviceFamily", "10")[1])
        self.bench("create", "STM32L053", "--rdp", "1", "--mismatch", "user")
        status, seen = self.json("-SetDeviceFamily", "10", "--expect", path)
        self.assertEqual((1, path), (status, seen["expected"]))
        self.assertEqual({"level", "complement", "loaded", "stored", "error"},
                         {one["what"] for one in seen["differences"]})
        self.assertIn({"word": "OPTION_USER", "name": None, "what": "complement",
                       "expected": "right", "actual": "wrong"}, seen["differences"])

    def test_another_device_is_one_difference(self):
        self.bench("create", "STM32F407")
        path = self.write("before", self.run_it("--json")[1])
        self.bench("create", "STM32F411")
        status, seen = self.json("--expect", path)
        self.assertEqual(1, status)
        self.assertEqual([{"word": None, "name": None, "what": "device", "expected": "STM32F407",
                           "actual": "STM32F411"}], seen["differences"])


class Output(Case):
    def test_a_terminal_shows_what_a_pipe_gets(self):
        self.bench("create", "STM32F103")
        _, piped, _ = self.run_it()
        master, slave = pty.openpty()
        with subprocess.Popen([self.program], env=self.env, stdin=slave, stdout=slave,
                              stderr=slave) as process:
            os.close(slave)
            shown = b""
            while True:
                try:
                    shown += os.read(master, 4096)
                except OSError:
                    break
            self.assertEqual(0, process.wait(LIMIT_S))
        os.close(master)
        self.assertEqual(piped, shown.decode().replace("\r\n", "\n"))

    def test_output_that_cannot_be_written_is_no_success(self):
        self.bench("create", "STM32F103")
        with open("/dev/full", "w") as full:
            done = subprocess.run([self.program], env=self.env, stdout=full, stderr=subprocess.PIPE,
                                  text=True, timeout=LIMIT_S, check=False)
        self.assertEqual((2, "quobe-options: standard output could not be written.\n"),
                         (done.returncode, done.stderr))

    def test_a_reader_that_leaves_does_not_kill_it(self):
        self.bench("create", "STM32F103")
        end, other = os.pipe()
        os.close(end)
        done = subprocess.run([self.program, "--json"], env=self.env, stdout=other,
                              stderr=subprocess.PIPE, timeout=LIMIT_S, check=False)
        os.close(other)
        self.assertEqual(2, done.returncode)

    def test_the_probe_that_is_gone_in_the_middle_is_told(self):
        self.bench("create", "STM32F407")
        self.bench("set", "fault=lost 8")
        status, _, error = self.run_it("-SetDeviceFamily", "5", "--expect", "factory")
        self.assertIn(status, (1, 4))
        self.assertEqual(CLOSED if status == 4 else "", error)


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    VERSION = sys.argv.pop(1)
    unittest.main()
