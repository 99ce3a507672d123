"""A row of the table of platforms, from what building and testing on one of them printed."""

import pathlib
import re
import sys


def count(text):
    """How many tests passed and failed. A program of tests counts with each of its tests."""
    passed = failed = skipped = 0
    for block in re.split(r"^\d+/\d+ Testing: ", text, flags=re.M)[1:]:
        ran = re.findall(r"^\[=+\] (\d+) tests? from", block, flags=re.M)
        if not ran:
            is_good = re.search(r"^Test Passed\.", block, flags=re.M)
            passed += bool(is_good)
            failed += not is_good
            continue
        good = re.findall(r"^\[  PASSED  \] (\d+) tests?", block, flags=re.M)
        left = re.findall(r"^\[  SKIPPED \] (\d+) tests?", block, flags=re.M)
        good, left = int(good[-1]) if good else 0, int(left[-1]) if left else 0
        passed += good
        skipped += left
        failed += int(ran[-1]) - good - left
    return passed, failed, skipped


def first(pattern, text):
    found = re.search(pattern, text)
    return " ".join(filter(None, found.groups())) if found else "?"


def main():
    name, log, folder, seconds = sys.argv[1:]
    log, folder = pathlib.Path(log).read_text(errors="replace"), pathlib.Path(folder)
    compiler = first(r"The CXX compiler identification is (\S+ \S+)|emcc \((Emscripten).*\) (\S+)", log)
    engine = first(r'Found SQLite3: .*found version "([^"]+)"', log)
    totals = [0, 0, len((folder / "left-out").read_text().split())]
    for results in folder.glob("**/LastTest.log"):
        totals = [a + b for a, b in zip(totals, count(results.read_text(errors="replace")))]
    if totals[:2] == [0, 0]:
        totals[1] = "not built"
    print("|", " | ".join([name, compiler, engine, *map(str, totals), seconds]), "|")


main()
