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
# With kept statements, which the core does not have.
KEEPING_LAYERS = [layer for layer in LAYERS if layer != "sqldb"]
KEPT = ["find by integer key", "find by text key", "range of 100 rows", "scan, a row", "insert", "insert many, a row",
        "update by key", "replace", "upsert", "delete by key", "count by a term", "has by a term",
        "find, a held statement", "find, looked up by its text", "filter of three comparisons", "LIKE '%...'",
        "LIKE '...%'", "empty transaction"]
# Beside other statements, by hand and by the kit.
CROWDED = ["find, beside 1000 idle statements", "update, beside 1000 idle statements", "find, beside 1000 open ranges",
           "update, beside 1000 open ranges"]
COMPILED = ["insert item", "insert item, reused values", "insert items, compiled once", "replace item", "update item",
            "update item, reused values", "delete item", "scan items", "callback scan of items", "count items",
            "has item", "select items"]
ON_A_FILE = ["read by key, on a file", "upsert, on a file"]
CODECS = ["histogram and copy", "sqldb", "GLib base64", "libsodium base64", "OpenSSL base64", "libsodium hex"]
ENCODING = ["encode text", "encode random bytes", "encode random bytes, 4 KiB each", "encode zeros", "decode text",
            "decode random bytes", "decode in place text", "decode in place random bytes"]

# What sqldb is to need at most, as a multiple of the calls by hand: of their instructions, or of the time to count and
# copy the bytes. The kit: of their instructions, with SQLite's mutexes off and on; beside idle statements, of its own
# without them; on a file, of their processor time.
INSTRUCTION_GOALS = {"scan items": 1.06, "callback scan of items": 1.02, "count items": 1.08, "has item": 1.08,
                     "insert item": 1.04, "replace item": 1.04, "update item": 1.05, "update item, reused values": 1.05,
                     "delete item": 1.05, "select items": 1.05}
KIT_GOALS = {"find by integer key": 1.04, "find by text key": 1.04, "range of 100 rows": 1.04, "scan, a row": 1.04,
             "insert": 1.04, "update by key": 1.04, "replace": 1.04, "upsert": 1.04, "delete by key": 1.04,
             "count by a term": 1.12, "has by a term": 1.12, "find, a held statement": 1.05,
             "find, looked up by its text": 1.10, "filter of three comparisons": 1.07, "LIKE '%...'": 0.5,
             "LIKE '...%'": 1.05, "insert many, a row": 1.015, "empty transaction": 1.07,
             "find, beside 1000 open ranges": 1.05, "update, beside 1000 open ranges": 1.05}
KIT_GOALS_WITH_MUTEXES = {"find by integer key": 1.0, "find by text key": 1.0, "range of 100 rows": 1.0,
                          "scan, a row": 1.0}
# A work whose text is fixed: at most one percent behind the best peer.
FIXED = ["find by integer key", "find by text key", "range of 100 rows", "scan, a row", "insert", "insert many, a row",
         "update by key", "replace", "upsert", "delete by key", "find, a held statement", "empty transaction"]
IDLE_GOALS = {"find, beside 1000 idle statements": ("find by integer key", 1.01),
              "update, beside 1000 idle statements": ("update by key", 1.01)}
FILE_GOALS = {"read by key, on a file": 1.05, "upsert, on a file": 1.05}
TIME_GOALS = {"encode text": 0.25, "encode random bytes": 1.25, "encode random bytes, 4 KiB each": 1.6,
              "encode zeros": 0.25, "decode text": 0.2, "decode random bytes": 0.6, "decode in place text": 0.2,
              "decode in place random bytes": 0.6}


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
        self.on_a_file = {}
        for line in (folder / "file.txt").read_text().splitlines():
            match = re.match(r"(.*)/(.*) ([\d.]+)$", line)
            self.on_a_file[match[1], match[2]] = float(match[3])
        programs = json.loads((folder / "programs.json").read_text())
        self.programs = programs["programs"]
        self.readme = {(program["name"], program["optimisation"]): program for program in programs["readme"]}
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
    """One line for each work by each layer, by size on a logarithmic scale."""
    blocks, parts = [], []
    for i, (work, layer) in enumerate((work, layer) for work in series for layer in ("sqldb", "sqldb kit")):
        points = sorted((int(name[2]), value) for name, value in figures.items() if name[:2] == (work, layer))
        blocks.append(f"$data{i} << END\n" + "\n".join(f"{size} {value / 1000:.5f}" for size, value in points) + "\nEND")
        parts.append(f"$data{i} using 1:2 with linespoints linewidth 2 title '{work}: {layer}'")
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

class Goals:
    def __init__(self):
        self.rows = []

    def add(self, work, unit, value, goal, digits=2):
        self.rows.append([work, unit, shown(value, digits), shown(goal, digits),
                          "" if value is None else "met" if round(value, digits) <= goal else "missed"])


def kit_ratio(figures, work):
    """The kit's figure as a multiple of that by hand; None where there is none."""
    return ratios(figures, work, ["SQLite", "sqldb kit"])[1]


def goals_of_kit(results):
    goals = Goals()
    by_hand = "instructions of the calls by hand"
    for work, goal in KIT_GOALS.items():
        goals.add(work, by_hand, kit_ratio(results.instructions, work), goal, 3)
    for work, goal in KIT_GOALS_WITH_MUTEXES.items():
        goals.add(f"{work}, mutexes on", f"{by_hand}, mutexes on",
                  kit_ratio(results.instructions, f"{work}, mutexes on"), goal, 3)
    for work, (alone, goal) in IDLE_GOALS.items():
        found = results.instructions.get((work, "sqldb kit"))
        found = found and found / results.instructions[alone, "sqldb kit"]
        goals.add(work, f'instructions of the kit\'s own "{alone}"', found, goal, 3)
    for work in FIXED:
        kit, *peers = ratios(results.instructions, work, KEEPING_LAYERS)[1:]
        best = min(peer for peer in peers if peer is not None)
        goals.add(work, "instructions of the best other layer", kit and kit / best, 1.01, 3)
    for work, goal in FILE_GOALS.items():
        goals.add(work, "processor time of the calls by hand", kit_ratio(results.on_a_file, work), goal)
    return table(["work", "as a multiple of the", "is", "goal", ""], goals.rows)


def goals_of_core(results):
    goals = Goals()
    for work, goal in INSTRUCTION_GOALS.items():
        goals.add(work, "instructions of the calls by hand", ratios(results.instructions, work, LAYERS)[1], goal)
    for work, goal in TIME_GOALS.items():
        goals.add(work, "time of a histogram and a copy", ratios(results.times, work, CODECS)[1], goal)
    return table(["work", "as a multiple of the", "is", "goal", ""], goals.rows)


def statement_table(figures, works, layers):
    return table(["work", *layers[1:]],
                 [[work, *(shown(value) for value in ratios(figures, work, layers)[1:])] for work in works])


def kept_table(results):
    """The calls by hand in instructions, the others as multiples of them; at last the kit with SQLite's mutexes."""
    figures = results.instructions
    rows = []
    for work in KEPT:
        found = ratios(figures, work, KEEPING_LAYERS)[1:]
        rows.append([work, shown(figures[work, "SQLite"], 0), shown(found[0], 3), *(shown(value) for value in found[1:]),
                     shown(kit_ratio(figures, f"{work}, mutexes on"), 3)])
    return table(["work", "by hand, instructions", *KEEPING_LAYERS[1:], "kit, mutexes on"], rows)


def crowded_table(results):
    rows = [[work, shown(results.instructions[work, "SQLite"], 0), shown(kit_ratio(results.instructions, work), 3),
             shown(kit_ratio(results.instructions, f"{work}, mutexes on"), 3)] for work in CROWDED]
    return table(["work", "by hand, instructions", "sqldb kit", "kit, mutexes on"], rows)


def file_table(results):
    rows = [[work, shown(results.on_a_file[work, "SQLite"], 0), shown(kit_ratio(results.on_a_file, work))]
            for work in ON_A_FILE]
    return table(["work", "by hand, nanoseconds of processor time", "sqldb kit"], rows)


def allocation_table(results, works, layers):
    rows = []
    for work in works:
        floor = results.allocations[work, layers[0]]
        found = [results.allocations.get((work, layer)) for layer in layers[1:]]
        digits = 3 if "scan" in work else 0
        rows.append([work, shown(floor, digits),
                     *("" if value is None else f"{value - floor:+.{digits}f}" for value in found)])
    return table(["work", "by hand", *layers[1:]], rows)


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
            cells = []
            for layer in ("sqldb", "sqldb kit"):
                value = layers.get(layer)
                cells += [shown(value, 0 if value and value > 1000 else 1), shown(value / floor if value and floor else None)]
            rows.append([work, f"{size:,}", *cells])
    return table(["work", "size", "sqldb, ns a unit", "by hand: 1", "kit, ns a unit", "by hand: 1"], rows)


def program_table(results):
    return table(["layer", "lines", "compile time, s", "executable, KB", "its libraries, KB"],
                 [[program["layer"], str(program["lines"]), shown(program["compile_seconds"], 1),
                   shown(program["executable_bytes"] / 1024, 0), shown(program["libraries_bytes"] / 1024, 0)]
                  for program in results.programs])


def readme_table(results):
    """The README's program, and what a further table adds to it."""
    def figures(name, optimisation):
        program = results.readme[name, optimisation]
        return program["compile_seconds"], program["object_bytes"] / 1000

    rows = []
    for optimisation in ("-O0", "-O2"):
        peer, kit, both = (figures(name, optimisation) for name in ("SQLiteCpp", "sqldb kit", "sqldb kit, two tables"))
        rows.append([optimisation, shown(peer[0]), shown(kit[0]), shown(kit[0] / peer[0]), shown(both[0] - kit[0]),
                     shown(peer[1], 1), shown(kit[1], 1), shown(both[1] - kit[1], 1)])
    return table(["", "SQLiteCpp, s", "sqldb kit, s", "ratio", "a further table, s", "SQLiteCpp, kB", "sqldb kit, kB",
                  "a further table, kB"], rows)


def machine():
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
               platform.machine())
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    return f"on {cpu} with {compiler} and SQLite {sqlite3.sqlite_version}"


DOCUMENT = """# Performance

What sqldb and its kit cost on top of the SQLite calls that they make, beside other layers doing the same work. Written
by `scripts/bench.sh`, which measures everything again, from the sources in `bench/`, where each layer has a file of its
own; medians of {rounds}, taken in turn, {machine}.

"By hand" is the same work written with SQLite's functions. Each layer is used as its documentation recommends, on the
same table in memory, in one open transaction; a run in which one layer returns or leaves something else than the others
fails. Instructions are counted by Callgrind, each layer in a process of its own; they differ by up to two percent from
build to build, times by more.

## Kept statements

Records of an integer, a text, a real number and a text that may be NULL. By hand: statements that are compiled once and
kept, with bound values, texts bound where they are and read with their length; whether a text is NULL is asked before it
is read, since there is none for a lack of memory, too. The kit keeps its statements by itself, the other layers as
objects of the program. SQLite's mutexes are off for all of them, since one thread uses a connection; the last column has
them on, for the calls by hand, too. As a multiple of the calls by hand:

![Instructions with kept statements](performance/kept.svg)

{kept}

"A held statement" and "looked up by its text" are the program's own SQL; all else is a table's. Terms are put together
for each use. LIKE is by hand `LIKE ?`, which SQLite compiles anew for each value, on forty rows with an index.

Beside other statements of the connection:

{crowded}

On a file, {reads} reads by key, each on its own, and a fifth as many upserts in one transaction; medians of several
rounds:

{on_a_file}

### Goals

{goals_of_kit}

{remarks_of_kit}

## Compiled for each execution

Items of four integers. The core compiles a statement for each execution, and so do the calls by hand and the other
layers here, with the same text and, for inserts, the same parameter names, which values that are made anew for each row
draw anew; all but the kit, which keeps its statements here as well, and "insert items, compiled once". SQLite's mutexes
are on. The multiples of the calls by hand, in instructions:

![Instructions of compiled statements](performance/instructions.svg)

{instructions}

With question marks instead of names, as SQLiteCpp and others use them, an insert costs less than the calls by hand
here: SQLite then has no names to look up.

### Goals

{goals_of_core}

{remarks}

## Time

The same works, as a multiple of the calls by hand:

![Time with kept statements](performance/kept-time.svg)

{kept_times}

![Time of compiled statements](performance/time.svg)

{times}

## Allocations

For each statement (a row, for scans), SQLite's own included, then what each layer adds. What the program makes itself
counts: for the core three values for an insert with fresh values, a value and a term for an update, a term for count,
has, delete and select. `.ci/run` checks the figures of sqldb and its kit.

{kept_allocations}

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
libraries that the loader brings for it, without SQLite and the C++ runtime. SQLiteCpp is a static library in Debian.

{programs}

The README's program on the kit and on SQLiteCpp: the time to compile it, its object file, stripped of symbols that the
linker does not need, and what a second table with the same uses adds. The goals are 1.1 times SQLiteCpp's time; with -O2
an object file of 30 kB, and for a further table 0.12 s and 8 kB.

{readme}
"""

REMARKS_OF_KIT = """What the kit adds to a row is that it reads strictly: it asks for the storage class of each value before it reads it, so
that a text is never taken for a number, and by hand nobody asks. A record is bound and read as a list of fields, which
is walked. A program's own SQL is looked up by its text and its columns by their names; its range may be run again, and
its iterators may outlive it. Before each write the kit looks whether SQLite has rolled back by itself, and at the
beginning of each transaction whether the program has replaced the hooks by which it learns of that: without this second
look an empty transaction is at 1.05."""

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

    bars(charts / "kept.svg", "Instructions with kept statements, as a multiple of the calls by hand", KEEPING_LAYERS,
         KEPT, results.instructions)
    bars(charts / "kept-time.svg", "Time with kept statements, as a multiple of the calls by hand", KEEPING_LAYERS, KEPT,
         results.times)
    bars(charts / "instructions.svg", "Instructions, as a multiple of the calls by hand", LAYERS, COMPILED,
         results.instructions)
    bars(charts / "time.svg", "Time, as a multiple of the calls by hand", LAYERS, COMPILED, results.times)
    bars(charts / "encoding.svg", "Time, as a multiple of a histogram and a copy", [c for c in CODECS if not c.startswith("libsodium")],
         ENCODING, results.times)
    lines(charts / "growth-rows.svg", "Time as the table grows", "rows", ["scan, by rows"], results.growth)
    lines(charts / "growth-objects.svg", "Time of a count beside other objects", "live cursors, or tables",
          ["count, by live cursors", "count, by tables"], results.growth)

    text = DOCUMENT.format(
        machine=machine(), rounds=plural(results.rounds, "round"), remarks=REMARKS, remarks_of_kit=REMARKS_OF_KIT,
        kept=kept_table(results), crowded=crowded_table(results), on_a_file=file_table(results), reads="1,000,000",
        goals_of_kit=goals_of_kit(results), goals_of_core=goals_of_core(results),
        instructions=statement_table(results.instructions, COMPILED, LAYERS),
        kept_times=statement_table(results.times, KEPT, KEEPING_LAYERS),
        times=statement_table(results.times, COMPILED, LAYERS),
        kept_allocations=allocation_table(results, KEPT, KEEPING_LAYERS),
        allocations=allocation_table(results, COMPILED, LAYERS), encoding=encoding_table(results),
        floor_speed=f"{1 / results.times['encode random bytes', CODECS[0]]:.1f}",
        growth=growth_table(results), programs=program_table(results), readme=readme_table(results))
    (arguments.docs / "performance.md").write_text(text)


main()
