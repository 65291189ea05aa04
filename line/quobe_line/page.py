# SPDX-License-Identifier: MIT
"""The HTML report: one file that needs no other, and no network."""

import html

from quobe_line import verdict

HEAD = """<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<title>Units</title>
<style>
body { font: 14px/1.4 system-ui, sans-serif; margin: 1.5em; color: #222; background: #fff; }
table { border-collapse: collapse; }
table.units { width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .3em .8em .3em 0; }
table.units > tbody > tr, thead tr { border-bottom: 1px solid #ddd; }
summary, td:nth-child(3), td:nth-child(4) { white-space: nowrap; }
nav a { display: inline-block; margin: 0 .4em .4em 0; padding: .2em .8em; border: 1px solid #bbb;
  border-radius: 1em; color: inherit; text-decoration: none; }
nav a.on { background: #222; color: #fff; }
b.good { color: #17702f; } b.bad { color: #a1160a; }
pre { white-space: pre-wrap; background: #f5f5f5; padding: .6em; }
details td { padding-bottom: 0; } td.changed { font-weight: bold; }
@media print { nav { display: none; } }
</style></head><body>
"""

# The fragment of the address is the filter, so a filtered page can be linked and printed.
SCRIPT = """<script>
function filter() {
  var wanted = decodeURIComponent(location.hash.slice(1));
  document.querySelectorAll("tr[data-verdict]").forEach(function (row) {
    row.hidden = wanted !== "" && row.dataset.verdict !== wanted;
  });
  document.querySelectorAll("nav a").forEach(function (link) {
    link.className = link.hash.slice(1) === wanted ? "on" : "";
  });
}
addEventListener("hashchange", filter);
filter();
</script>
"""


def text(value):
    return html.escape("-" if value is None else str(value))


def field_rows(before, after):
    """One row for each field that was or is away from its factory value, or that changed."""
    def by_name(reading):
        fields = (reading or {}).get("fields") or []
        return {(field["word"], field["name"]): field for field in fields}

    def shown(field):
        if not field:
            return None
        stored = field["stored"]
        if stored is None or stored == field["loaded"]:
            return field["loaded"]
        return "%s, stored %s" % (field["loaded"], stored)

    olds, news = by_name(before), by_name(after)
    for key in list(olds) + [key for key in news if key not in olds]:
        old, new = olds.get(key), news.get(key)
        if shown(old) == shown(new) and (new or old)["as_factory"]:
            continue
        yield "<tr><td>%s</td><td>%s</td><td%s>%s</td><td>%s</td></tr>\n" % (
            text(".".join(key)), text(shown(old)),
            "" if shown(old) == shown(new) else ' class="changed"', text(shown(new)),
            text((new or old)["factory"]))


def short(reading):
    """A reading in one line."""
    if not reading:
        return "-"
    if not reading.get("fields"):
        return reading.get("error") or "no fields read"
    away = sum(field["as_factory"] is False for field in reading["fields"])
    parts = ["level %s" % reading["protection"]["level"],
             "%d field%s not at factory" % (away, "" if away == 1 else "s")]
    erased = (reading.get("flash") or {}).get("erased")
    if erased is not None:
        parts.append("flash starts erased" if erased else "flash in use")
    return ", ".join(parts)


def attempt_part(entry):
    parts = ["<p>Attempt %s (%s), %s, %.1f s: <b>%s</b></p>\n" % (
        entry["attempt"], text(entry["rung"]), text(entry["started"]), entry["ms"]["total"] / 1000.0,
        text(entry["verdict"]))]
    fields = "".join(field_rows(entry["before"], entry["after"]))
    if fields:
        parts.append("<table><thead><tr><th>field</th><th>before</th><th>after</th><th>factory</th></tr>"
                     "</thead><tbody>\n%s</tbody></table>\n" % fields)
    if entry["tool"]:
        parts.append("<pre>%s\n%s</pre>\n" % (text(" ".join(entry["tool"]["command"])),
                                              text(entry["tool"]["output"])))
    return "".join(parts)


def unit_row(row, entry, attempts):
    host = entry.get("host") or row["host"] or "-"
    cells = [text(row["unit"]),
             '<b class="%s">%s</b>%s' % ("good" if entry["verdict"] == "good" else "bad",
                                         text(entry["verdict"]),
                                         "".join("<br>" + text(cause) for cause in entry["causes"])),
             text(entry["device"]), "%s on %s" % (text(row["probe"]), text(host)),
             text(short(entry["before"])), text(short(entry["after"])), str(entry["attempt"]),
             "%.1f" % (entry["ms"]["total"] / 1000.0)]
    if attempts:
        cells[0] = "<details><summary>%s</summary>\n%s</details>" % (
            cells[0], "".join(attempt_part(attempt) for attempt in attempts))
    return '<tr data-verdict="%s">%s</tr>\n' % (
        text(entry["verdict"]), "".join("<td>%s</td>" % cell for cell in cells))


def write(rows, latest, attempts):
    """The page. latest: {unit: its last attempt}; attempts: {unit: all of them}."""
    counts = {}
    for entry in latest.values():
        counts[entry["verdict"]] = counts.get(entry["verdict"], 0) + 1
    links = ['<a href="#">all %d</a>' % len(rows)]
    for name, meaning in verdict.VERDICTS.items():
        if name in counts:
            links.append('<a href="#%s" title="%s">%s %d</a>' % (name, text(meaning), name, counts[name]))
    times = sorted(entry["started"] for entries in attempts.values() for entry in entries)
    span = "from %s to %s" % (times[0], times[-1]) if times else "nothing was started"
    return "".join([
        HEAD, "<h1>%d of %d units are good</h1>\n<p>Attempts started %s.</p>\n" % (
            counts.get("good", 0), len(rows), text(span)),
        "<nav>%s</nav>\n" % "".join(links),
        '<table class="units"><thead><tr><th>unit</th><th>verdict</th><th>device</th><th>probe</th>'
        "<th>before</th><th>after</th><th>attempts</th><th>seconds</th></tr></thead><tbody>\n",
        "".join(unit_row(row, latest[row["unit"]], attempts[row["unit"]]) for row in rows),
        "</tbody></table>\n", SCRIPT, "</body></html>\n"])
