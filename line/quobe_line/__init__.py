# SPDX-License-Identifier: MIT
"""What quobe-line consists of.

rows     UNITS.csv and the file of hosts
run      the command line, GNU parallel, control-C
work     one unit, on the host that has its probe
verdict  what the readings before and after mean
record   the files of a run
page     the HTML report
"""
