"""What the same small program costs on each layer: the time that it takes to compile and the room that it takes.

Reads the folder of a finished build of the preset bench and prints a list of figures as JSON. The libraries are those
that the loader brings for the executable, without SQLite, which all layers share; what a layer loads later, such as
Qt its plugin for SQLite, is not among them.
"""

import argparse
import json
import os
import pathlib
import re
import shlex
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAYERS = {
    "sqlite": "SQLite",
    "sqldb": "sqldb",
    "sqldb_kit": "sqldb kit",
    "sqlitecpp": "SQLiteCpp",
    "soci": "SOCI",
    "qt": "Qt",
    "poco": "POCO",
}
ROUNDS = 5
SHARED_BY_ALL = re.compile(r"(linux-vdso|ld-linux.*|libc|libm|libdl|librt|libpthread|libstdc\+\+|libgcc_s|libsqlite3)\.so\.")


class Program:
    def __init__(self, name, entry, executable):
        self.name = name
        self.layer = LAYERS[name]
        self.folder = entry["directory"]
        self.source = pathlib.Path(entry["file"])
        self.command = shlex.split(entry["command"])
        self.executable = executable
        self.seconds = []

    def compile(self, folder):
        # Elsewhere, so that the build stays as it is.
        command = self.command.copy()
        command[command.index("-o") + 1] = str(folder / "program.o")
        child = subprocess.Popen(command, cwd=self.folder)
        # The driver waits for the compiler and the assembler, so their time counts as its own.
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise SystemExit(f"programs: {self.source} does not compile")
        self.seconds.append(usage.ru_utime + usage.ru_stime)

    def lines(self):
        lines = [line.strip() for line in self.source.read_text().splitlines()]
        return sum(1 for line in lines if line and not line.startswith("//"))

    def libraries(self):
        listing = subprocess.run(["ldd", self.executable], check=True, capture_output=True, text=True).stdout
        found = []
        for line in listing.splitlines():
            name, _, rest = line.strip().partition(" => ")
            if SHARED_BY_ALL.match(pathlib.PurePath(name).name):
                continue
            path = rest.partition(" (")[0]
            if not os.path.isfile(path):
                raise SystemExit(f"programs: {self.executable} does not find {name}")
            found.append(path)
        return found

    def figures(self, folder):
        return {
            "layer": self.layer,
            "compile_seconds": round(statistics.median(self.seconds), 3),
            "lines": self.lines(),
            "executable_bytes": stripped_size(self.executable, folder),
            "libraries_bytes": sum(stripped_size(path, folder) for path in self.libraries()),
        }


def stripped_size(path, folder):
    """A distribution's libraries are stripped already; what was built here is not."""
    copy = folder / "stripped"
    subprocess.run(["strip", "-o", copy, path], check=True)
    return copy.stat().st_size


def programs_of(build):
    entries = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        target = re.search(r"/program_(\w+)\.dir/", entry["command"])
        if target:
            entries[target[1]] = entry
    if entries.keys() != LAYERS.keys() | {"readme_sqlitecpp"}:
        raise SystemExit(f"programs: {build} has the programs {sorted(entries)} instead of {sorted(LAYERS)}")
    programs = [Program(name, entries[name], build / "bench/programs" / f"program_{name}") for name in LAYERS]
    return programs, readme_programs(entries)


class ReadmeProgram:
    """The README's program with one optimisation: the time that it takes to compile, and its object file."""

    def __init__(self, name, entry, text, optimisation):
        self.name = name
        self.folder = entry["directory"]
        command = shlex.split(entry["command"])
        # All but the files and what the build itself optimises for.
        files = {entry["file"], command[command.index("-o") + 1]}
        self.command = [part for part in command if part not in files | {"-o", "-c", "-DNDEBUG"}
                        and not part.startswith("-O")] + [optimisation]
        self.text = text
        self.optimisation = optimisation
        self.seconds = []
        self.bytes = 0

    def compile(self, folder):
        source, output = folder / "readme.cpp", folder / "readme.o"
        source.write_text(self.text)
        child = subprocess.Popen([*self.command, "-o", output, "-c", source], cwd=self.folder)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise SystemExit(f"programs: {self.name} does not compile")
        self.seconds.append(usage.ru_utime + usage.ru_stime)
        subprocess.run(["strip", "--strip-unneeded", output], check=True)
        self.bytes = output.stat().st_size

    def figures(self):
        return {"name": self.name, "optimisation": self.optimisation,
                "compile_seconds": round(statistics.median(self.seconds), 3), "object_bytes": self.bytes}


def readme_programs(entries):
    readme = re.search(r"^```cpp\n(.*?)^```", (ROOT / "README.md").read_text(), re.MULTILINE | re.DOTALL)[1]
    programs = ROOT / "bench/programs"
    texts = {"sqldb kit": ("sqldb_kit", readme),
             "sqldb kit, two tables": ("sqldb_kit", readme + (programs / "further_table.cpp").read_text()),
             "SQLiteCpp": ("readme_sqlitecpp", (programs / "readme_sqlitecpp.cpp").read_text())}
    return [ReadmeProgram(name, entries[entry], text, optimisation) for optimisation in ("-O0", "-O2")
            for name, (entry, text) in texts.items()]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path, help="folder of the build, with compile_commands.json")
    programs, readme = programs_of(parser.parse_args().build)

    with tempfile.TemporaryDirectory(prefix="sqldb-programs-") as name:
        folder = pathlib.Path(name)
        # Interleaved, so that what else the machine does meets all layers alike.
        for number in range(1, ROUNDS + 1):
            for program in programs:
                program.compile(folder)
                print(f"[{number}/{ROUNDS}] {program.layer}: compiled in {program.seconds[-1]:.2f} s", file=sys.stderr,
                      flush=True)
            for program in readme:
                program.compile(folder)
        figures = {"programs": [program.figures(folder) for program in programs],
                   "readme": [program.figures() for program in readme]}
    print(json.dumps(figures, indent=2))


main()
