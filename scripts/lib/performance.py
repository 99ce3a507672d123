"""Writes docs/performance.md and its charts from what scripts/bench.sh measured."""

import argparse
import json
import pathlib
import platform
import re
import sqlite3
import statistics
import subprocess

LAYERS = ["SQLite", "sqldb", "sqldb kit", "SQLiteCpp", "SOCI", "Qt", "POCO"]
STATEMENTS = ["insert", "insert, reused values", "insert, compiled once", "replace", "update", "update, reused values",
              "delete", "scan", "callback scan", "count", "has", "select"]
CODECS = ["histogram and copy", "sqldb", "GLib base64", "libsodium base64", "OpenSSL base64", "libsodium hex"]
ENCODING = ["encode text", "encode random bytes", "encode random bytes, 4 KiB each", "encode zeros", "decode text",
            "decode random bytes", "decode in place text", "decode in place random bytes"]

# What sqldb is to need at most, as a multiple of the calls by hand: of their instructions, or of the time to count and
# copy the bytes. The kit: of their instructions, and of their time.
INSTRUCTION_GOALS = {"scan": 1.06, "callback scan": 1.02, "count": 1.08, "has": 1.08, "insert": 1.04, "replace": 1.04,
                     "update": 1.05, "update, reused values": 1.05, "delete": 1.05, "select": 1.05}
TIME_GOALS = {"encode text": 0.25, "encode random bytes": 1.25, "encode random bytes, 4 KiB each": 1.6,
              "encode zeros": 0.25, "decode text": 0.2, "decode random bytes": 0.6, "decode in place text": 0.2,
              "decode in place random bytes": 0.6}
KIT_GOALS = {"insert, compiled once": 1.05}


class Results:
    def __init__(self, folder):
        self.times = self.read_times(folder, "times")
        self.growth = self.read_times(folder, "growth")
        self.allocations = {}
        self.outcomes = {}
        for line in (folder / "allocations.txt").read_text().splitlines():
            match = re.match(r"(.*)/(.*) ([\d.]+) (\d+)$", line)
            if match:
                self.allocations[match[1], match[2]] = float(match[3])
                self.outcomes[match[1], match[2]] = int(match[4])
        self.instructions = self.read_instructions(folder)
        self.programs = json.loads((folder / "programs.json").read_text())
        self.rounds = len(list(folder.glob("times-*.json")))

    @staticmethod
    def read_times(folder, program):
        """Nanoseconds per unit, the median of the rounds, by the parts of the measurement's name."""
        rounds = {}
        for file in folder.glob(f"{program}-*.json"):
            for run in json.loads(file.read_text())["benchmarks"]:
                name = tuple(run["name"].split("/"))
                rounds.setdefault(name, []).append(1e9 / run["items_per_second"])
        return {name: statistics.median(times) for name, times in rounds.items()}

    @staticmethod
    def read_instructions(folder):
        found = {}
        for file in folder.glob("instructions.*"):
            text = file.read_text()
            name = re.search(r"^desc: Trigger: Client Request: (.*)/(.*) (\d+)$", text, re.MULTILINE)
            total = re.search(r"^totals: (\d+)", text, re.MULTILINE)
            if name and total:
                found[name[1], name[2]] = int(total[1]) / int(name[3])
        return found


def ratios(figures, work, layers):
    """The figures of one work as multiples of the first layer's; None where a layer does not do the work."""
    floor = figures[work, layers[0]]
    return [figures[work, layer] / floor if (work, layer) in figures else None for layer in layers]


def table(header, rows):
    def line(cells):
        return "| " + " | ".join(cells) + " |"

    aligned = ["---"] + ["---:"] * (len(header) - 1)
    return "\n".join([line(header), line(aligned)] + [line(row) for row in rows])


def shown(value, digits=2):
    return "" if value is None else f"{value:,.{digits}f}"


def plural(number, noun):
    return f"{number} {noun}" + ("" if number == 1 else "s")


# ---------------------------------------------------------------------------------------------------------------------
# Charts

def plot(path, script):
    subprocess.run(["gnuplot"], input=f"set terminal svg size 900,420 font 'sans-serif,12' background 'white'\n"
                   f"set output '{path}'\n{script}", text=True, check=True)


def bars(path, title, layers, works, figures):
    """Groups of bars, one group a work, one bar a layer."""
    lines = []
    for work in works:
        values = ratios(figures, work, layers)
        lines.append(" ".join([f'"{work}"'] + ["NaN" if value is None else f"{value:.4f}" for value in values[1:]]))
    data = "\n".join(lines)
    columns = ", ".join(f"$data using {i + 2}:xtic(1) title '{layer}'" for i, layer in enumerate(layers[1:]))
    plot(path, f"""
$data << END
{data}
END
set title "{title}"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.9
set boxwidth 0.9
set key top left horizontal
set xtics rotate by -25
set grid ytics
set yrange [0:*]
set arrow from graph 0, first 1 to graph 1, first 1 nohead dashtype 2 linecolor 'black' front
plot {columns}
""")


def lines(path, title, label, series, figures):
    """One line for each work, by size on a logarithmic scale."""
    blocks, parts = [], []
    for i, work in enumerate(series):
        points = sorted((int(name[2]), value) for name, value in figures.items() if name[:2] == (work, "sqldb"))
        blocks.append(f"$data{i} << END\n" + "\n".join(f"{size} {value / 1000:.5f}" for size, value in points) + "\nEND")
        parts.append(f"$data{i} using 1:2 with linespoints linewidth 2 title '{work}'")
    plot(path, "\n".join(blocks) + f"""
set title "{title}"
set logscale x
set format x '10^{{%T}}'
set xlabel "{label}"
set ylabel 'microseconds a unit'
set yrange [0:*]
set key bottom left
set grid
plot {", ".join(parts)}
""")


# ---------------------------------------------------------------------------------------------------------------------
# The document

def goals(results):
    rows = []
    for work, goal in INSTRUCTION_GOALS.items():
        rows.append((work, "instructions of the calls by hand", ratios(results.instructions, work, LAYERS)[1], goal))
    for work, goal in KIT_GOALS.items():
        for unit, figures in (("instructions", results.instructions), ("time", results.times)):
            found = ratios(figures, work, LAYERS)[LAYERS.index("sqldb kit")]
            rows.append((f"{work}, by the kit", f"{unit} of the calls by hand", found, goal))
    for work, goal in TIME_GOALS.items():
        rows.append((work, "time of a histogram and a copy", ratios(results.times, work, CODECS)[1], goal))
    return table(["work", "as a multiple of the", "is", "goal", ""],
                 [[work, unit, shown(value), shown(goal), "met" if round(value, 2) <= goal else "missed"]
                  for work, unit, value, goal in rows])


def statement_table(figures, digits=2):
    return table(["work", *LAYERS[1:]],
                 [[work, *(shown(value, digits) for value in ratios(figures, work, LAYERS)[1:])] for work in STATEMENTS])


def allocation_table(results):
    rows = []
    for work in STATEMENTS:
        floor = results.allocations[work, LAYERS[0]]
        found = [results.allocations.get((work, layer)) for layer in LAYERS[1:]]
        digits = 3 if "scan" in work else 0
        rows.append([work, shown(floor, digits), *("" if value is None else f"{value - floor:+.{digits}f}" for value in found)])
    return table(["work", "by hand", *LAYERS[1:]], rows)


def encoding_table(results):
    rows = [[work, *(shown(value) for value in ratios(results.times, work, CODECS)[1:])] for work in ENCODING]
    for work in ENCODING[:2]:
        rows.append([work + ": length of the result, by that of the input",
                     *(shown(value, 3) for value in ratios(results.outcomes, work, CODECS)[1:])])
    return table(["work", *CODECS[1:]], rows)


def growth_table(results):
    works = {}
    for (work, layer, size), value in results.growth.items():
        works.setdefault(work, {}).setdefault(int(size), {})[layer] = value
    rows = []
    for work, sizes in works.items():
        for size, layers in sorted(sizes.items()):
            floor = layers.get("SQLite")
            rows.append([work, f"{size:,}", shown(layers["sqldb"], 0 if layers["sqldb"] > 1000 else 1),
                         shown(layers["sqldb"] / floor if floor else None)])
    return table(["work", "size", "nanoseconds a unit", "as a multiple of the calls by hand"], rows)


def program_table(results):
    return table(["layer", "lines", "compile time, s", "executable, KB", "its libraries, KB"],
                 [[program["layer"], str(program["lines"]), shown(program["compile_seconds"], 1),
                   shown(program["executable_bytes"] / 1024, 0), shown(program["libraries_bytes"] / 1024, 0)]
                  for program in results.programs])


def machine():
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
               platform.machine())
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    return f"on {cpu} with {compiler} and SQLite {sqlite3.sqlite_version}"


DOCUMENT = """# Performance

What sqldb costs on top of the SQLite calls that it makes, beside other layers doing the same work. Written by
`scripts/bench.sh`, which measures everything again, from the sources in `bench/`; medians of {rounds}, taken in turn,
{machine}.

"By hand" is the same work written with SQLite's functions, with the same text and, for inserts, the same parameter
names, which values that are made anew for each row draw anew. Each layer is used as its documentation recommends, on
the same table in memory, in one open transaction; a run in which one layer does something else than the others fails.
A statement is compiled for each execution, as sqldb does it, except in "insert, compiled once". Instructions are
counted by Callgrind; they differ by up to two percent from build to build, times by more.

## Goals

{goals}

{remarks}

## Instructions

As a multiple of the calls by hand, which are 1:

![Instructions](performance/instructions.svg)

{instructions}

With question marks instead of names, as SQLiteCpp and others use them, an insert costs less than the calls by hand
here: SQLite then has no names to look up. The library compiles an insert for each row. The kit's `InsertMany`, which
takes many rows, compiles it once, and needs {compiled_once} fewer instructions; the row "insert, compiled once"
compares it with calls by hand that compile once, too.

## Time

The same works, as a multiple of the calls by hand:

![Time](performance/time.svg)

{times}

## Allocations

For each statement (a row, for scans), SQLite's own included, then what each layer adds. What the program makes itself
counts: three values for an insert with fresh values, a value and a term for an update, a term for count, has, delete
and select. `.ci/run` checks the figures of sqldb and its kit.

{allocations}

## Encoding

`sqlite_encode_binary` and `sqlite_decode_binary` on 1 MiB, as a multiple of the time that it takes to count how often
each byte value occurs and to copy the bytes, which an encoder of random bytes cannot do without:

![Encoding](performance/encoding.svg)

{encoding}

Here random bytes were counted and copied at {floor_speed} GB/s. No encoder allocates.

## Growth

Time of one unit (a row, a statement, a column, a value) of a work of growing size. It is flat in the rows scanned and
in the columns; the peaks of an insert into many columns are those of SQLite, which looks for a parameter's name among
all. Two lists are searched from the front, and their length shows: that of the live cursors, when a cursor leaves it,
and that of the tables, when a counting query asks for its own.

![Growth by rows](performance/growth-rows.svg)

![Growth by objects](performance/growth-objects.svg)

{growth}

## What a small program costs

The same small program on each layer, Release, compiled several times in turn; the executable stripped; the shared
libraries that the loader brings for it, without SQLite and the C++ runtime. SQLiteCpp is a static library in Debian,
and the kit consists of headers.

{programs}
"""

REMARKS = """What remains of a scan into a struct is to find each column's place and to store its value there. What remains of a
select, a count and a has is what the application can reach, the select, its lists, its cursor and its callback, though
most of its memory is that of the query before, and the stream into which a term prints."""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("docs", type=pathlib.Path)
    arguments = parser.parse_args()
    results = Results(arguments.results)
    charts = arguments.docs / "performance"
    charts.mkdir(exist_ok=True)

    bars(charts / "instructions.svg", "Instructions, as a multiple of the calls by hand", LAYERS, STATEMENTS,
         results.instructions)
    bars(charts / "time.svg", "Time, as a multiple of the calls by hand", LAYERS, STATEMENTS, results.times)
    bars(charts / "encoding.svg", "Time, as a multiple of a histogram and a copy", [c for c in CODECS if not c.startswith("libsodium")],
         ENCODING, results.times)
    lines(charts / "growth-rows.svg", "Time as the table grows", "rows", ["scan, by rows"], results.growth)
    lines(charts / "growth-objects.svg", "Time of a count beside other objects", "live cursors, or tables",
          ["count, by live cursors", "count, by tables"], results.growth)

    compiled = results.instructions
    text = DOCUMENT.format(
        machine=machine(), rounds=plural(results.rounds, "round"), goals=goals(results), remarks=REMARKS,
        instructions=statement_table(results.instructions), times=statement_table(results.times),
        compiled_once=f"{100 - 100 * compiled['insert, compiled once', 'sqldb kit'] / compiled['insert', 'sqldb']:.0f} %",
        allocations=allocation_table(results), encoding=encoding_table(results),
        floor_speed=f"{1 / results.times['encode random bytes', CODECS[0]]:.1f}",
        growth=growth_table(results), programs=program_table(results))
    (arguments.docs / "performance.md").write_text(text)


main()
