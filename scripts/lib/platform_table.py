"""Puts a table in the place of the one that a document has after its heading "The last run"."""

import pathlib
import re
import sys


def main():
    table, document = map(pathlib.Path, sys.argv[1:])
    text = document.read_text()
    text, count = re.subn(
        r"(?<=\n## The last run\n\n)(?:\|.*\n)*", lambda _: table.read_text(), text, count=1
    )
    if count != 1:
        sys.exit(f"{document} has no table of the last run.")
    document.write_text(text)


main()
