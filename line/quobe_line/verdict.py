# SPDX-License-Identifier: MIT
"""What the readings before and after, and the tool's own words, mean for a unit.

A verdict is never better than what was read: "good" needs every option field, the complements and the
protection level at factory value in a reading made after the tool ended.
"""

# In the order in which the report lists them, with what each means.
VERDICTS = {
    "good": "every option field was read at its factory value",
    "needs-power-cycle": "the stored option bytes are at factory values, those in force are not",
    "not-at-factory": "some option fields are not at their factory values",
    "failed": "the fields are at factory values, but the tool reported a failure or flash is not erased",
    "timed-out": "the tool did not end in its time and was ended",
    "locked-for-good": "protection level 2: nothing lifts it",
    "port-closed": "the target has power and its debug port does not answer",
    "no-target": "no probe, or no target on it",
    "wrong-family": "the device is of another family than the list says",
    "not-checked": "what the tool left could not be read in full",
    "interrupted": "the attempt was cut off",
    "not-done": "the unit was not worked on",
}
SHOWN, DIFFERS, NO_TARGET, CLOSED = 0, 1, 3, 4  # exit statuses of quobe-options

# What a reset that verified prints last; L4 (row 12) has words of its own.
LAST_WORDS = {12: "Option bytes reset to factory settings."}


def tool_complaint(row, tool):
    """What the tool says against its own success, or None."""
    lines = tool["output"].split("\n")
    last = next((line for line in reversed(lines) if line.strip()), "")
    wanted = LAST_WORDS.get(row, "O.K.")
    if tool["signal"]:
        return "the tool was ended by signal %d; its last line: %s" % (tool["signal"], last)
    if tool["status"] != 0:
        return "the tool ended with %s; its last line: %s" % (tool["status"], last)
    if not last.endswith(wanted):
        return "the tool's last line is not %r: %s" % (wanted, last)
    return None


def level(reading):
    protection = (reading or {}).get("protection") or {}
    return protection.get("level")


def unread(reading):
    """(verdict, cause) of a reading that shows no fields, or None."""
    status, error = reading["status"], reading.get("error") or "no reason given"
    if status == NO_TARGET:
        return "no-target", error
    if status == CLOSED:
        return "port-closed", error
    if status not in (SHOWN, DIFFERS):
        return "not-checked", error
    device = reading["device"]
    if not device["known"] or reading["as_factory"] is None:
        return "not-checked", device["why"] or "the device is not known"
    if any(entry["what"] == "device" for entry in reading["differences"]):
        return "wrong-family", "the device is %s" % device["name"]
    return None


def no_reset(before):
    """(verdict, cause) when the tool is better not started, or None."""
    if before["status"] == NO_TARGET:
        return "no-target", "before the reset: %s" % before["error"]
    if level(before) == 2:
        return "locked-for-good", "protection level 2 before the reset"
    # The registers of another family would be written. A device that hides its identity is reset.
    device, failed = before["device"], unread(before)
    if failed and (failed[0] == "wrong-family" or device and device["idcode"]):
        return failed[0], "not reset: " + failed[1]
    return None


def name_field(word, name):
    return ".".join(part for part in (word, name) if part)


def waits_for_power(after):
    """Whether everything stored is at factory value and only what is in force is not."""
    if any(entry["what"] not in ("loaded", "level") for entry in after["differences"]):
        return False
    if after["protection"]["stored_level"] != 0:
        return False
    return all(field["stored"] == field["factory"] for field in after["fields"]
               if field["loaded"] != field["factory"])


def difference_text(entry):
    name = name_field(entry["word"], entry["name"])
    if entry["actual"] is None:
        what = "" if entry["what"] == "error" else entry["what"]
        return " ".join(part for part in (name, what, "was not read") if part)
    return ("%s %s is %s, not %s" % (name, entry["what"], entry["actual"], entry["expected"])).strip()


def judge_fields(after):
    """(verdict, causes) by what was read alone."""
    if not after["as_factory"] or after["differences"] or level(after) != 0:
        causes = [difference_text(entry) for entry in after["differences"]]
        if causes and all(entry["actual"] is None for entry in after["differences"]):
            return "not-checked", causes  # what differs is what did not answer
        verdict = "needs-power-cycle" if causes and waits_for_power(after) else "not-at-factory"
        return verdict, causes or ["protection level %s" % level(after)]
    blank = [name_field(field["word"], field["name"]) for field in after["fields"]
             if field["as_factory"] is not True]
    if blank or not after["fields"]:
        return "not-checked", ["not read: " + (", ".join(blank) or "any field")]
    return "good", []


def judge(row, before, tool, after):
    """(verdict, causes) of one attempt that ran to its end.

    row: of the tool's menu. tool: {"status", "signal", "timed_out", "output"}.
    """
    if level(after) == 2:
        return "locked-for-good", ["protection level 2 after the reset"]
    complaint = tool_complaint(row, tool)
    said = [complaint] if complaint else []
    if tool["timed_out"]:
        return "timed-out", ["the tool was ended after %d s" % tool["limit_s"]] + said
    failed = unread(after)
    if failed:
        return failed[0], ["after the reset: " + failed[1]] + said
    ids = [reading["device"]["idcode"] for reading in (before, after) if reading.get("device")]
    if len(ids) == 2 and None not in ids and ids[0] != ids[1]:
        return "not-checked", ["another device answers than before: %s, then %s" % tuple(ids)] + said
    verdict, causes = judge_fields(after)
    if verdict == "needs-power-cycle" and complaint:
        verdict = "not-at-factory"
    if verdict == "good" and complaint:
        return "failed", ["every field reads as factory"] + said
    if verdict == "good" and level(before) == 1 and after["flash"]["erased"] is False:
        return "failed", ["the protection is lifted, and the flash still holds data"]
    return verdict, causes + said
