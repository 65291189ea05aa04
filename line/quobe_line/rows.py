# SPDX-License-Identifier: MIT
"""UNITS.csv and the file of hosts: what may stand in them, and errors with file, line and column."""

import csv
import io
import re
import shlex

# The unlock tool's menu, rows 1 to 12.
FAMILIES = ["STM32F0xxxx", "STM32F1xxxx", "STM32F2xxxx", "STM32F3xxxx", "STM32F4xxxx",
            "STM32F72xxx, STM32F73xxx", "STM32F74xxx, STM32F75xxx", "STM32F76xxx, STM32F77xxx",
            "STM32H7xxxx", "STM32L0xxxx", "STM32L1xxxx", "STM32L4x6xx"]

# A unit's name is a file name too.
UNIT = re.compile(r"[A-Za-z0-9][A-Za-z0-9._-]{0,63}\Z")
ADDRESS = re.compile(r"[A-Za-z0-9][A-Za-z0-9.:_-]{0,126}\Z")
HERE = ""  # the host of a row that names none

SSH = "ssh -o BatchMode=yes -o ConnectTimeout=10 -o ServerAliveInterval=15 -o ServerAliveCountMax=4 "


class BadFile(Exception):
    """One line for each thing that is wrong."""


def take_unit(text):
    if not UNIT.match(text):
        raise ValueError("a unit is named with up to 64 letters, digits, '.', '_' and '-', the first "
                         "of them a letter or digit; this is %r" % text)
    return text


def take_family(text):
    if re.match(r"[0-9]{1,2}\Z", text) and 1 <= int(text) <= len(FAMILIES):
        return int(text)
    for number, name in enumerate(FAMILIES, 1):
        if name.lower() == text.lower():
            return number
    hint = ""
    if any(text.lower() == part.lower() for name in FAMILIES for part in name.split(", ")):
        hint = "; a name with a comma is written whole and in quotes, as in the tool's menu"
    raise ValueError("no such family: %r; it is a number from 1 to %d or a name from the tool's menu%s"
                     % (text, len(FAMILIES), hint))


def take_probe(text):
    """A serial number without leading zeros, or an address: also the name of the probe's lock."""
    if re.match(r"[0-9]+\Z", text):
        if not 1 <= int(text) <= 0xFFFFFFFF:
            raise ValueError("a probe's serial number is from 1 to 4294967295; this is %s%s" % (
                text, " (for the tool that is any probe)" if int(text) == 0 else ""))
        return str(int(text))
    if not ADDRESS.match(text):
        raise ValueError("neither a serial number nor an address: %r" % text)
    return text.lower()


def take_speed(text):
    if text.lower() in ("", "auto", "adaptive"):
        return text.lower()
    if not re.match(r"[0-9]{1,5}\Z", text) or not 1 <= int(text) <= 50000:
        raise ValueError("a speed is from 1 to 50000 (kHz), 'auto' or 'adaptive'; this is %r" % text)
    return str(int(text))


def take_power(text):
    if text not in ("", "0", "1"):
        raise ValueError("power is 1 (the probe supplies the unit) or 0; this is %r" % text)
    return text == "1"


def take_host(text):
    if text and not ADDRESS.match(text):
        raise ValueError("not the name of a host: %r" % text)
    return text


def take_folder(text):
    if text and not text.startswith("/"):
        raise ValueError("a folder on another host begins with '/'; this is %r" % text)
    return text


def take_ssh(text):
    try:
        shlex.split(text)
    except ValueError as error:
        raise ValueError("not a command: %s" % error) from None
    return text


def read_table(path, columns, needed):
    """Rows of a file as (place, {column: value}); columns: how each value is taken.

    place(column) is the text with which an error in this row begins. Raises BadFile.
    """
    try:
        with open(path, newline="", encoding="utf-8-sig") as file:
            text = file.read()
    except OSError as error:
        raise BadFile("%s: %s" % (path, error.strerror)) from None
    except UnicodeDecodeError as error:
        raise BadFile("%s: not UTF-8: %s" % (path, error)) from None
    wrong, found, header = [], [], None
    reader = csv.reader(io.StringIO(text), strict=True)
    ended = 0  # line on which the last row ended; a quoted value may go over several
    try:
        for row in reader:
            line, ended = ended + 1, reader.line_num
            if not any(cell.strip() for cell in row) or row[0].lstrip().startswith("#"):
                continue
            cells = [cell.strip() for cell in row]
            if header is None:
                header = take_header(path, line, cells, columns, needed)
                continue
            if len(cells) != len(header):
                wrong.append("%s:%d: column %d: %d values for %d columns%s" % (
                    path, line, min(len(cells), len(header)) + 1, len(cells), len(header),
                    "; quote a value that holds a comma" if len(cells) > len(header) else ""))
                continue
            place = placer(path, line, header)
            found.append((place, take_row(place, header, cells, columns, needed, wrong)))
    except csv.Error as error:
        wrong.append("%s:%d: column 1: %s" % (path, max(reader.line_num, 1), error))
    if header is None and not wrong:
        wrong.append("%s:1: column 1: the file has no line with the columns' names: %s" % (
            path, ",".join(columns)))
    if wrong:
        raise BadFile("\n".join(wrong))
    return found


def placer(path, line, header):
    return lambda name: "%s:%d: column %d (%s): " % (path, line, header.index(name) + 1, name)


def take_header(path, line, cells, columns, needed):
    names = [cell.lower() for cell in cells]
    place = "%s:%d: column " % (path, line)
    if len(names) == 1 and ";" in names[0]:
        raise BadFile(place + "1: the columns are separated by ';'; they have to be by ','")
    wrong = []
    for number, name in enumerate(names, 1):
        if name not in columns:
            wrong.append(place + "%d: no such column: %r; the columns are %s" % (
                number, name, ", ".join(columns)))
        elif name in names[:number - 1]:
            wrong.append(place + "%d: the column '%s' is there twice" % (number, name))
    for name in needed:
        if name not in names:
            wrong.append(place + "%d: the column '%s' is missing" % (len(names) + 1, name))
    if wrong:
        raise BadFile("\n".join(wrong))
    return names


def take_row(place, header, cells, columns, needed, wrong):
    row = {name: columns[name]("") for name in columns if name not in needed}
    for name, cell in zip(header, cells):
        try:
            if name in needed and not cell:
                raise ValueError("it is empty")
            row[name] = columns[name](cell)
        except ValueError as error:
            wrong.append(place(name) + str(error))
    return row


def read_hosts(path):
    """{name: {"ssh": command, "tools": folder or ""}}."""
    table = read_table(path, {"host": take_host, "ssh": take_ssh, "tools": take_folder}, ["host"])
    hosts, wrong = {}, []
    for place, row in table:
        if row["host"] in hosts:
            wrong.append(place("host") + "%r is there twice" % row["host"])
        hosts[row["host"]] = {"ssh": row["ssh"] or SSH + row["host"], "tools": row["tools"]}
    if wrong:
        raise BadFile("\n".join(wrong))
    return hosts


def read_units(path, hosts):
    """The rows of UNITS.csv, in its order, as dictionaries with a value for each column."""
    columns = {"unit": take_unit, "family": take_family, "probe": take_probe, "host": take_host,
               "speed": take_speed, "power": take_power}
    table = read_table(path, columns, ["unit", "family", "probe"])
    wrong, known = [], {}
    for place, row in table:
        # File names that differ in case only are one file on many a Mac.
        earlier = known.setdefault(row["unit"].lower(), row)
        if earlier is not row:
            wrong.append(place("unit") + "%r is there already%s" % (
                row["unit"], "" if earlier["unit"] == row["unit"] else
                ", as %r: capitals do not count" % earlier["unit"]))
        if row["host"] != HERE and row["host"] not in hosts:
            wrong.append(place("host") + "%r is not in the file of hosts" % row["host"])
    if not table:
        wrong.append("%s: no units" % path)
    if wrong:
        raise BadFile("\n".join(wrong))
    return [row for _, row in table]
