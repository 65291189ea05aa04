#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures one 32-bit read through the library, OpenOCD, the wire and back, and beside it OpenOCD's own
read_memory in a loop in Tcl, on the same simulated adapter.

usage: read_latency.py BUILD-FOLDER [--fast] [READS]

The wire takes the time that the bits need at 1000 kHz, the tool's default; with --fast it takes none,
which shows what the library adds. The two are measured in turns, since the load of the machine changes;
each round gives a ratio of two medians, and their median counts. When it is above 1.3 all is measured
again, up to three times: a machine that has other work shows more. Exit status 1 when it stays above 1.3,
77 without OpenOCD.
"""

import ctypes
import os
import statistics
import subprocess
import sys
import tempfile
import time

import wire

LIMIT = 1.3
ROUNDS = 7
ATTEMPTS = 3
SRAM = 0x20000000

LOOP = """
adapter driver cmsis-dap; transport select swd; adapter speed 1000
swd newdap stm32 cpu -irlen 4
dap create stm32.dap -chain-position stm32.cpu
target create stm32.mem mem_ap -dap stm32.dap -ap-num 0
init
set times {}
for {set i 0} {$i < %d} {incr i} {
  lappend times [lindex [time {stm32.mem read_memory 0x%08X 32 1} 1] 0]
}
echo "times $times"
shutdown
"""


def median_of_tcl(stage, reads):
    """In microseconds; Tcl's own clock."""
    path = os.path.join(stage.folder, "loop.tcl")
    with open(path, "w") as file:
        file.write("gdb_port disabled; telnet_port disabled; tcl_port disabled\n" +
                   LOOP % (reads, SRAM))
    result = subprocess.run(["openocd", "-f", path], env=stage.library_env, capture_output=True,
                            text=True, timeout=120, check=True)
    line = next(line for line in result.stderr.splitlines() if line.startswith("times "))
    return statistics.median(float(word) for word in line.split()[1:])


CLIENT = """
import ctypes, statistics, sys, time
library = ctypes.CDLL(sys.argv[1])
library.QUOBEARM_Open.restype = ctypes.c_char_p
text = library.QUOBEARM_Open()
assert text is None, text
library.QUOBEARM_TIF_Select(1)
word, times = ctypes.c_uint32(), []
read, pointer, address = library.QUOBEARM_ReadMemU32, ctypes.byref(word), ctypes.c_uint32(%d)
for _ in range(%d):
    start = time.perf_counter_ns()
    result = read(address, 1, pointer, None)
    times.append(time.perf_counter_ns() - start)
    assert result == 0
library.QUOBEARM_Close()
print(statistics.median(times) / 1000)
"""


def median_of_library(stage, reads):
    """In microseconds, the call from Python included."""
    result = subprocess.run([sys.executable, "-c", CLIENT % (SRAM, reads), stage.files.library],
                            env=stage.library_env, capture_output=True, text=True, timeout=120,
                            check=True)
    return float(result.stdout)


def median_ratio(stage, reads):
    ratios = []
    print("median of %d reads, us:  in Tcl   library    ratio" % reads)
    for _ in range(ROUNDS):
        in_tcl = median_of_tcl(stage, reads)
        library = median_of_library(stage, reads)
        ratios.append(library / in_tcl)
        print("%32.1f %9.1f %8.2f" % (in_tcl, library, ratios[-1]))
    return statistics.median(ratios)


def main():
    wire.skip_without_openocd()
    fast = "--fast" in sys.argv
    numbers = [int(word) for word in sys.argv[2:] if word.isdigit()]
    reads, ratio = numbers[0] if numbers else 3000, LIMIT + 1
    with tempfile.TemporaryDirectory() as folder:
        stage = wire.Stage(wire.Files(sys.argv[1]), folder, fast=fast)
        del stage.env["QUOBE_BENCH_TRACE"]
        stage.bench("create", "STM32F407", "--rdp", "0")
        with stage.wire() as served:
            stage.library_env = dict(stage.env, QUOBE_WIRE=served.adapter,
                                     LD_LIBRARY_PATH=stage.files.hid)
            for _ in range(ATTEMPTS):
                if ratio > LIMIT:
                    ratio = median_ratio(stage, reads)
                    print("read_latency: %.2f of OpenOCD's own loop" % ratio)
    return 1 if ratio > LIMIT else 0


if __name__ == "__main__":
    sys.exit(main())
