"""Says which lines and branches of the given folders a program ran, from what llvm-cov exports of it.

A line or branch of a template counts as run if it was in one instantiation at least.
"""

import collections
import json
import pathlib
import sys


def lines_of(lcov):
    """How often each line was run, by file and number."""
    lines, file = {}, None
    for record in lcov.splitlines():
        kind, _, rest = record.partition(":")
        if kind == "SF":
            file = rest
        elif kind == "DA":
            number, count = rest.split(",")[:2]
            lines[file, int(number)] = int(count)
    return lines


def branches_of(export, files):
    """How often each branch went either way, by file, line and column."""
    branches = collections.defaultdict(lambda: [0, 0])
    for function in export["data"][0]["functions"]:
        for line, column, _, _, taken, skipped, file, *_ in function["branches"]:
            name = function["filenames"][file]
            if name in files:
                branches[name, line, column][0] += taken
                branches[name, line, column][1] += skipped
    return branches


def main():
    name, lcov, export, *folders = sys.argv[1:]
    lines = lines_of(pathlib.Path(lcov).read_text())
    files = {file for file, _ in lines}
    branches = branches_of(json.loads(pathlib.Path(export).read_text()), files)

    missed = [f"{file}:{number}: not run" for (file, number), count in sorted(lines.items()) if count == 0]
    missed_lines = len(missed)
    for (file, line, column), counts in sorted(branches.items()):
        missed += [f"{file}:{line}:{column}: never {way}" for way, count in zip(("true", "false"), counts) if count == 0]
    missed_branches = len(missed) - missed_lines
    print(f"coverage of the {name}: {len(lines) - missed_lines} of {len(lines)} lines, "
          f"{2 * len(branches) - missed_branches} of {2 * len(branches)} branches", *missed, sep="\n")

    # A file that nothing was measured of is no error to llvm-cov. One that only includes others has nothing to measure.
    for folder in folders:
        for path in pathlib.Path(folder).rglob("*.cpp"):
            if str(path) not in files:
                missed.append(path)
                print(f"{path}: not measured")
    return 1 if missed or not branches else 0


sys.exit(main())
