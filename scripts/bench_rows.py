"""The rows of the benchmarks: what their names say, and what was measured.

One part of a benchmark's name is "ours" or a peer; the other parts name the work: StringFind/ours/1000 is compared with
StringFind/std/1000.
"""

import json
import re
import statistics
import sys
from pathlib import Path

DOCUMENT = Path(__file__).resolve().parent.parent / "docs/performance.md"
# A table there stands between two marks, and has the works whose names match.
TABLE = re.compile(r"(?P<head><!-- bench: (?P<pattern>.*?) -->\n).*?(?P<foot><!-- /bench -->)", re.S)

OURS = "ours"
CURVES = "Curve/"  # what is drawn over its size stands in no table
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

# What Google Benchmark appends to a name to say how it ran.
SETTING = re.compile(r"real_time|manual_time|process_time|(iterations|repeats|min_time|min_warmup_time|threads):.*")


def tables():
    """The regular expressions of the document's tables."""
    return [match["pattern"] for match in TABLE.finditer(DOCUMENT.read_text(encoding="utf-8"))]


def parts_of(name):
    return tuple(part for part in name.split("/") if not SETTING.fullmatch(part))


def grouped(names):
    """[(work, name of our row, {peer: name of its row})], and the names of peers without a row of ours."""
    groups = {}
    for name in names:
        parts = parts_of(name)
        if OURS in parts:
            who = parts.index(OURS)
            groups[parts[:who], parts[who + 1 :]] = (name, {})
    alone = []
    for name in names:
        parts = parts_of(name)
        if OURS in parts:
            continue
        for who, peer in enumerate(parts):
            group = groups.get((parts[:who], parts[who + 1 :]))
            if group is not None:
                group[1][peer] = name
                break
        else:
            alone.append(name)
    return [("/".join(before + after), ours, peers) for (before, after), (ours, peers) in groups.items()], alone


# Where a word begins within a name.
WORD = re.compile(r"(?<=[a-z0-9])(?!MiB)([A-Z])(?=[a-z])")


def words(work):
    """A work's name as a reader takes it: numbers in groups of three digits, words and parts separated."""
    return ", ".join(
        f"{int(part):,}" if part.isdigit() else WORD.sub(lambda first: " " + first[1].lower(), re.sub("_(?!t$)", " ", part))
        for part in work.split("/")
    )


def ratio(value):
    """How many times as long, with the digits that count."""
    return f"{value:.0f}" if value >= 10 else f"{value:.1f}" if value >= 1 else f"{value:.2f}"


def clock_of(run):
    return "real_time" if re.search(r"/(real|manual)_time\b", run["run_name"]) else "cpu_time"


def items_of_iteration(run):
    """How many items one iteration works on; 1 where a row does not say so."""
    seconds = run[clock_of(run)] * NANOSECONDS[run["time_unit"]] / 1e9
    return max(run.get("items_per_second", 0) * seconds, 1)


class Row:
    """What the runs of one row measured."""

    def __init__(self):
        self.times = []  # nanoseconds of one iteration
        self.items = 1
        self.counts = None

    def add(self, run):
        self.times.append(run[clock_of(run)] * NANOSECONDS[run["time_unit"]])
        self.items = items_of_iteration(run)
        self.counts = run.get("counts", self.counts)

    def median(self):
        """Of one item."""
        return statistics.median(self.times) / self.items

    def spread(self):
        """How far the times lie apart, as a share of the median."""
        middle = statistics.median(self.times)
        return (max(self.times) - min(self.times)) / middle if middle > 0 else 0


def load(path):
    """{name: Row} of a file of results."""
    with open(path, encoding="utf-8") as file:
        results = json.load(file)
    rows = {}
    for run in results["benchmarks"]:
        if run.get("error_occurred"):
            print(f"failed: {run['name']}: {run.get('error_message', '')}", file=sys.stderr)
        elif run.get("run_type") != "aggregate":
            rows.setdefault(run["run_name"], Row()).add(run)
    return rows


def readable(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"
