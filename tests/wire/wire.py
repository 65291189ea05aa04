# SPDX-License-Identifier: MIT
"""What the tests at the wire share: a bench with a device, the wire that serves it as an adapter, and
the tool with OpenOCD between the two. Everything of one stage is in a folder of its own."""

import os
import re
import shutil
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(os.path.dirname(HERE), "sim"))

LIMIT_S = 60


def worst_states():
    """Menu row, device and words of the state: for each device of tests/sim/outcomes.txt the one at
    protection level 1 that has most against it. Programs that hide from the debugger are left out: an
    adapter reaches them under reset only, and then more succeeds than through the simulator's library."""
    import outcomes
    worst = {}
    for block in outcomes.read_blocks(os.path.join(os.path.dirname(HERE), "sim", "outcomes.txt")):
        key = (block.row, block.device)
        hides = "--program" in block.state
        if not hides and "--rdp 1" in " ".join(block.state) and len(block.state) > len(worst.get(key, ())):
            worst[key] = block.state
    return [(row, device, state) for (row, device), state in worst.items()]


def skip_without_openocd():
    """Ends the program with 77, which ctest takes for skipped, where OpenOCD is not installed."""
    if shutil.which("openocd") is None:
        print("SKIPPED, openocd is not installed (see script/bootstrap)")
        sys.exit(1 if os.environ.get("CI") else 77)


class Files:
    """Where the programs under test are, by the folder of a build. Where QUOBE_TEST_RUNNER is set, the
    tool and the library over OpenOCD are those that script/macos has built, started by that runner."""

    def __init__(self, build):
        build = os.path.abspath(build)
        self.starter, self.tool, native = [], os.path.join(build, "quobe-unlock"), build
        if "QUOBE_TEST_RUNNER" in os.environ:
            self.starter = [os.environ["QUOBE_TEST_RUNNER"]]
            self.tool, native = os.environ["QUOBE_TEST_TOOL"], os.environ["QUOBE_TEST_MACHO"]
        self.library = os.path.join(native, "openocd", "libquobearm.dylib")
        self.simulated = os.path.join(build, "sim", "libquobearm.dylib")
        self.bench = os.path.join(build, "sim", "quobe-bench")
        self.wire = os.path.join(build, "wire", "quobe-wire")
        self.hid = os.path.join(build, "wire", "hid")


class Wire:
    """A running quobe-wire. Its line "SERIAL=PORT" is in .adapter."""

    def __init__(self, stage, *options):
        self.process = subprocess.Popen([stage.files.wire, *options], stdout=subprocess.PIPE,
                                        env=stage.env, text=True)
        self.adapter = self.process.stdout.readline().strip()
        if not re.fullmatch(r"[^= ]+=\d+", self.adapter):
            raise RuntimeError("quobe-wire did not start: %r" % self.adapter)

    def stop(self):
        """Gives the device back to the bench; quobe-wire saves it first."""
        self.process.terminate()
        status = self.process.wait(10)
        self.process.stdout.close()
        return status

    def last_words(self):
        """Ends it; gives what it says of the core."""
        self.process.terminate()
        return self.process.communicate(timeout=10)[0].strip().partition(", ")[2]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.stop()
        elif not self.process.stdout.closed:
            self.process.stdout.close()


class Stage:
    """A folder with a bench, a configuration and the tool beside each of the libraries."""

    def __init__(self, files, folder, config="driver = cmsis-dap\n", fast=True):
        self.files = files
        self.folder = folder
        for name, library in (("adapter", files.library), ("simulated", files.simulated)):
            os.makedirs(os.path.join(folder, name), exist_ok=True)
            shutil.copy(files.tool, os.path.join(folder, name))
            shutil.copy(library, os.path.join(folder, name))
        self.trace = os.path.join(folder, "trace")
        self.env = dict(os.environ, HOME=folder, QUOBE_BENCH=os.path.join(folder, "bench"),
                        QUOBE_BENCH_TRACE=self.trace, QUOBE_OPENOCD=os.path.join(folder, "conf"))
        self.env.pop("LD_LIBRARY_PATH", None)
        if fast:
            self.env["QUOBE_BENCH_TIME"] = "fast"
        self.configure(config)

    def configure(self, text):
        with open(self.env["QUOBE_OPENOCD"], "w") as file:
            file.write(text)

    def bench(self, *arguments, check=True):
        result = subprocess.run([self.files.bench, *arguments], env=self.env, text=True,
                                capture_output=True, check=False)
        if check and result.returncode != 0:
            raise RuntimeError("quobe-bench %s: %s" % (" ".join(arguments), result.stderr))
        return result.stdout

    def wire(self, *options):
        return Wire(self, *options)

    def start(self, adapters, *arguments, library="adapter"):
        """The tool as a process, with OpenOCD's HID library being the one that leads to the wire."""
        env = dict(self.env, QUOBE_WIRE=" ".join(adapters), LD_LIBRARY_PATH=self.files.hid)
        if library == "simulated":
            env = self.env
        tool = os.path.join(self.folder, library, "quobe-unlock")
        return subprocess.Popen([*self.files.starter, tool, "-Exit", "1", *arguments], env=env,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT)

    def run(self, adapters, *arguments, library="adapter", limit=LIMIT_S):
        """Runs the tool; gives its output after the banner, and its status (None: did not end)."""
        tool = self.start(adapters, *arguments, library=library)
        try:
            output, _ = tool.communicate(timeout=limit)
            status = tool.returncode
        except subprocess.TimeoutExpired:
            tool.kill()
            output, _ = tool.communicate()
            status = None
        return output.decode(errors="replace").partition("\n\n")[2], status

    def accesses(self):
        """The bus accesses in the trace, one a line, and the trace begun anew."""
        lines = []
        with open(self.trace) as file:
            for line in file:
                text = line[20:].strip()
                if re.match(r"(RD|WR|WR16) ", text):
                    kind, _, rest = text.partition(" ")
                    lines += [kind + " " + each.strip() for each in rest.split(";")]
        os.remove(self.trace)
        return lines


def without_polls(accesses):
    """The accesses with repeated reads of one status register as one, whatever it showed."""
    result = []
    for access in accesses:
        access = re.sub(r"^(RD FLASH_(?:N?SR|SR1|OPTSR_CUR|OPTCR|OPTCR_CUR|ISR|CR|CR1)\b).*", r"\1", access)
        if not result or access != result[-1] or not access.startswith("RD "):
            result.append(access)
    return result


def processes_named(*names):
    """Numbers of the running processes of some programs, of all stages."""
    found = []
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/stat" % number) as file:
                stat = file.read()
            if stat[stat.index("(") + 1:stat.rindex(")")] in names:
                found.append(int(number))
        except OSError:
            pass
    return found


def of_stage(stage, numbers):
    """Those of the processes that were started with this stage's folder as their home."""
    mine = []
    for number in numbers:
        try:
            with open("/proc/%d/environ" % number, "rb") as file:
                if b"HOME=%s\0" % stage.folder.encode() in file.read():
                    mine.append(number)
        except OSError:
            pass
    return mine


def wait_until_gone(stage, seconds):
    """The processes of OpenOCD and its guard that are left of this stage after so long."""
    end = time.monotonic() + seconds
    while True:
        left = of_stage(stage, processes_named("openocd", "quobe-unlock", "machorun"))
        if not left or time.monotonic() > end:
            return left
        time.sleep(0.005)


def kill(numbers, number_of_signal=signal.SIGKILL):
    for number in numbers:
        os.kill(number, number_of_signal)
