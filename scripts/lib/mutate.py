"""Mutation of the sources of the library and of the kit; see scripts/mutate.sh."""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import queue
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
LEAST_KILLED = 95  # percent
# A mutant may loop and collect for ever.
MOST_MEMORY = 1500  # MB

# How the libraries and their tests are compiled. What the quick ones do not notice the sanitized ones may.
QUICK = "quick"
SANITIZED = "sanitized"
FLAGS = {
    QUICK: "",
    SANITIZED: "-fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all -fno-omit-frame-pointer",
}

# Run only where the others have noticed nothing: they take longer than all of those together.
SLOW = "TermInStatements.AnyNumberOfOperandsWorks:TermInStatements.GroupsNestAsDeepAsSQLiteTakesThemAndThenSaySo"
# Those that noticed the latest mutants of the same file go first: so many of them.
MOST_KILLERS = 20
# Most of the time of the library's tests goes into the encoding, which nothing else depends on.
ENCODING = "EncodingTest.*:DecodingTest.*:ByteBlocksTest/*"

OPENING = "([{"
CLOSING = ")]}"


class Library:
    """What is mutated together: a library, and the program that tests it."""

    def __init__(self, name, sources, target, tests):
        self.name = name
        self.sources = sources
        self.target = target
        self.tests = tests  # below the folder of the build


LIBRARIES = (
    Library("library", pathlib.Path("src"), "sqldb", pathlib.Path("tests/sqldb_tests")),
    Library("kit", pathlib.Path("kit/src"), "sqldb_kit", pathlib.Path("kit/tests/sqldb_kit_tests")),
)


def library_of(path):
    return next(library for library in LIBRARIES if library.sources in path.parents)


def selections(path):
    """The tests that can notice a mutant in this file, as filters, one to be run after the other."""
    if path.name in ("encoding.cpp", "block_encoding.h", "byte_blocks.h"):
        return (ENCODING,)
    if library_of(path).name == "kit":
        return (f"-{SLOW}", SLOW)
    return (f"-{ENCODING}",)


class Mutant:
    def __init__(self, path, text, begin, end, replacement):
        self.path = path
        self.begin = begin
        self.end = end
        self.replacement = replacement
        self.line = text.count("\n", 0, begin) + 1
        self.original = re.sub(r"\n\s*", " ", text[begin:end])

    def __str__(self):
        return f"{self.path}:{self.line}: {self.original} -> {self.replacement}"


def blanked(text):
    """The text with comments, literals and preprocessor lines replaced by blanks, and the spans of string literals.

    What stands behind an #else is for other engines and compilers: it is not compiled here, and so is blank as well.
    """
    token = re.compile(
        r'(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<directive>^#else\b.*?^#endif\b|^#[^\n]*)|(?P<string>"(?:\\.|[^"\\\n])*")'
        r"|(?P<char>'(?:\\.|[^'\\\n])*')",
        re.DOTALL | re.MULTILINE,
    )
    if re.search(r'\bR"', text):
        raise SystemExit("mutate: raw string literals are not understood")
    strings = []

    def replace(match):
        if match.lastgroup == "string":
            strings.append(match.span())
        filler = "_" if match.lastgroup in ("string", "char") else " "
        return "".join(c if c == "\n" else filler for c in match.group())

    return token.sub(replace, text), strings


def matching(code, position):
    """The position of the bracket that closes the one at `position`."""
    depth = 0
    for i in range(position, len(code)):
        if code[i] in OPENING:
            depth += 1
        elif code[i] in CLOSING:
            depth -= 1
            if depth == 0:
                return i
    raise SystemExit("mutate: brackets do not match")


# What ends an operand of &&, || and ?: on the same level of brackets.
BOUNDARY = re.compile(r"&&|\|\||[?;,:]|(?<![=!<>])=(?!=)|\breturn\b")


def start_of_operand(code, position, boundary):
    """Where the operand that ends before `position` begins."""
    depth = 0
    i = position - 1
    while i >= 0:
        if code[i] in CLOSING:
            depth += 1
        elif code[i] in OPENING:
            if depth == 0:
                return i + 1
            depth -= 1
        elif depth == 0:
            for length in (1, 2, len("return")):
                match = boundary.match(code, max(0, i + 1 - length))
                if match and match.end() == i + 1 and not is_scope(code, match):
                    return i + 1
        i -= 1
    raise SystemExit("mutate: an operand without a beginning")


def end_of_operand(code, position):
    """Where the operand that begins at `position` ends."""
    depth = 0
    i = position
    while i < len(code):
        if code[i] in OPENING:
            depth += 1
        elif code[i] in CLOSING:
            if depth == 0:
                return i
            depth -= 1
        elif depth == 0:
            match = BOUNDARY.match(code, i)
            if match and not is_scope(code, match):
                return i
        i += 1
    raise SystemExit("mutate: an operand without an end")


def is_scope(code, match):
    """Whether the match is half of a `::`."""
    return match.group() == ":" and ":" in (code[match.start() - 1], code[match.end() : match.end() + 1])


def conditions(code):
    """The spans of everything that decides: conditions, operands of && and ||, returned comparisons."""
    spans = set()
    for match in re.finditer(r"\b(if|while|for|ThrowIf)\b(\s+constexpr)?\s*\(", code):
        begin, end = match.end(), matching(code, match.end() - 1)
        if match.group(1) == "for":
            parts = code[begin:end].split(";")
            if len(parts) == 1 or not parts[1].strip():
                continue  # over a range, or for ever
            begin += len(parts[0]) + 1
            end = begin + len(parts[1])
        else:
            begin = start_of_operand(code, end, re.compile(";"))  # after an initialiser
        if code[end + 1 :].lstrip()[0] != "{" or match.group(1) != "ThrowIf":  # not its definition
            spans.add((begin, end))
    for match in re.finditer(r"\?", code):
        before = re.compile(BOUNDARY.pattern.replace(r"&&|\|\||", ""))
        spans.add((start_of_operand(code, match.start(), before), match.start()))
    for match in re.finditer(r"&&|\|\|", code):
        before, after = code[match.start() - 1], code[match.end()]
        if not (before.isspace() and after.isspace()):
            continue  # a reference
        spans.add((start_of_operand(code, match.start(), BOUNDARY), match.start()))
        spans.add((match.end(), end_of_operand(code, match.end())))
    for match in re.finditer(r"\breturn\b([^;?]*);", code):
        expression = match.group(1)
        if re.search(r"[=!<>]=|\s[<>]\s", expression) or expression.strip().startswith("!") or " && " in expression:
            spans.add(match.span(1))
    return spans


def trimmed(text, begin, end):
    while text[begin].isspace():
        begin += 1
    while text[end - 1].isspace():
        end -= 1
    return begin, end


def shortened(literal):
    """The literal without its first character, and without its last one."""
    characters = re.findall(r"\\(?:x[0-9a-fA-F]+|[0-7]{1,3}|.)|[^\\]", literal[1:-1])
    if not characters:
        return ['"x"']
    return sorted({'"' + "".join(rest) + '"' for rest in (characters[1:], characters[:-1])})


def mutants_of(path):
    text = (ROOT / path).read_text()
    code, strings = blanked(text)
    found = []
    for begin, end in conditions(code):
        begin, end = trimmed(text, begin, end)
        for forced in ("true", "false"):
            if text[begin:end] != forced:
                found.append(Mutant(path, text, begin, end, forced))
    for begin, end in strings:
        found += [Mutant(path, text, begin, end, literal) for literal in shortened(text[begin:end])]
    return sorted(found, key=lambda mutant: (mutant.begin, mutant.end, mutant.replacement))


def run(command, **options):
    return subprocess.run(
        command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options
    )


def run_or_die(command):
    result = run(command)
    if result.returncode != 0:
        raise SystemExit(f"mutate: failed: {' '.join(map(str, command))}\n{result.stdout}")


def copy_tree(to):
    shutil.copytree(ROOT, to, ignore=lambda folder, names: {".git", "build"} & set(names))


def folder_of(way, path):
    """Of the build in which a mutant of this file is compiled."""
    return f"{way}-headers" if path.suffix == ".h" else way


def configure(tree, way, *options, folder=None):
    run_or_die(
        ["cmake", "-S", tree, "-B", tree / (folder or way), "-DCMAKE_BUILD_TYPE=Debug",
         f"-DCMAKE_CXX_FLAGS={FLAGS[way]}", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DBUILD_SHARED_LIBS=ON",
         "-DSQLDB_BUILD_EXAMPLES=OFF", *options]
    )


class Worker:
    """A copy of the tree with libraries of its own, against which their programs of tests are run."""

    def __init__(self, tree, tests, paths):
        self.tree = tree
        self.tests = tests  # folders of builds by the way in which they were compiled
        self.killers = collections.defaultdict(list)  # of each file, the latest first
        copy_tree(tree)
        for way in FLAGS:
            configure(tree, way, "-DSQLDB_BUILD_TESTS=OFF")
            # What includes a header is compiled as a few large files.
            configure(tree, way, "-DSQLDB_BUILD_TESTS=OFF", "-DCMAKE_UNITY_BUILD=ON",
                      folder=folder_of(way, pathlib.Path("any.h")))
            for path in paths:
                if not self.build(way, path):
                    raise SystemExit(f"mutate: the {library_of(path).name} does not build")

    def build(self, way, path):
        return run(["cmake", "--build", self.tree / folder_of(way, path), "--target", library_of(path).target,
                    "--parallel", str(os.cpu_count())]).returncode == 0

    def tests_pass(self, way, path, limit):
        known = self.killers[path]
        if known and not self.selection_passes(way, path, ":".join(known), limit):
            return False
        return all(self.selection_passes(way, path, selection, limit) for selection in selections(path))

    def selection_passes(self, way, path, selection, limit):
        build = self.tree / folder_of(way, path)
        environment = dict(os.environ, LD_LIBRARY_PATH=f"{build}:{build / 'kit'}", GTEST_FAIL_FAST="1",
                           GTEST_FILTER=selection,
                           ASAN_OPTIONS=f"hard_rss_limit_mb={MOST_MEMORY}:allocator_may_return_null=0")
        # Whatever a killed test leaves behind goes with the folder; in memory, since SQLite syncs its files.
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        folder = environment["TMPDIR"] = tempfile.mkdtemp(prefix="sqldb-mutate-", dir=memory)

        def limit_resources():
            # Processor time, since a machine at other work makes no mutant loop.
            resource.setrlimit(resource.RLIMIT_CPU, (limit, limit))
            if way == QUICK:
                resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY << 20, MOST_MEMORY << 20))

        with open(pathlib.Path(folder) / "output", "w+b") as output:
            process = subprocess.Popen([self.tests[way] / library_of(path).tests], env=environment, cwd=self.tree,
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.DEVNULL,
                                       start_new_session=True, preexec_fn=limit_resources)
            try:
                passed = process.wait(10 * limit) == 0
            except subprocess.TimeoutExpired:
                passed = False
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                process.wait()
                output.seek(0)
                if not passed:
                    self.remember_killer(path, output.read())
                shutil.rmtree(folder, ignore_errors=True)
        return passed

    def remember_killer(self, path, output):
        started = re.findall(rb"^\[ RUN      \] (\S+)", output, re.MULTILINE)
        if not started:
            return
        killer, known = started[-1].decode(), self.killers[path]
        if killer in known:
            known.remove(killer)
        known.insert(0, killer)
        del known[MOST_KILLERS:]

    def judge(self, mutant, limits):
        file = self.tree / mutant.path
        original = file.read_text()
        file.write_text(original[: mutant.begin] + mutant.replacement + original[mutant.end :])
        try:
            for way in FLAGS:
                if not self.build(way, mutant.path):
                    return "does not compile"
                if not self.tests_pass(way, mutant.path, limits[way]):
                    return "killed"
            return "survived"
        finally:
            file.write_text(original)


def build_tests(folder, jobs, libraries):
    base = folder / "base"
    copy_tree(base)
    targets = [library.tests.name for library in libraries]
    for way in FLAGS:
        configure(base, way, "-DSQLDB_BUILD_TESTS=ON")
        run_or_die(["cmake", "--build", base / way, "--target", *targets, "--parallel", str(jobs)])
    return {way: base / way for way in FLAGS}


def processor_time_limits(worker, paths):
    """Of the tests of each way, from what they take on unchanged libraries, in seconds."""
    limits = dict.fromkeys(FLAGS, 0)
    for way in FLAGS:
        for path in paths:
            start = resource.getrusage(resource.RUSAGE_CHILDREN)
            if not worker.tests_pass(way, path, 600):
                raise SystemExit(f"mutate: the tests fail on the unchanged {library_of(path).name}")
            end = resource.getrusage(resource.RUSAGE_CHILDREN)
            used = end.ru_utime + end.ru_stime - start.ru_utime - start.ru_stime
            limits[way] = max(limits[way], int(4 * used) + 3)
    return limits


def mutate(mutants, jobs, folder, tests):
    print(f"{len(mutants)} mutants. Building.", flush=True)
    libraries = [library for library in LIBRARIES if any(library_of(mutant.path) is library for mutant in mutants)]
    if tests:
        tests = dict(zip(FLAGS, (pathlib.Path(build).resolve() for build in tests)))
    else:
        tests = build_tests(folder, jobs, libraries)
    # One file for all that are compiled and tested alike.
    paths = {(selections(mutant.path), mutant.path.suffix): mutant.path for mutant in mutants}.values()
    everybody = [Worker(folder / f"worker-{i}", tests, paths) for i in range(jobs)]
    limits = processor_time_limits(everybody[0], paths)
    workers = queue.Queue()
    for worker in everybody:
        workers.put(worker)

    def judge(mutant):
        worker = workers.get()
        try:
            return worker.judge(mutant, limits)
        finally:
            workers.put(worker)

    verdicts = {"killed": [], "survived": [], "does not compile": []}
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        judged = {pool.submit(judge, mutant): mutant for mutant in mutants}
        for number, future in enumerate(concurrent.futures.as_completed(judged), 1):
            mutant, verdict = judged[future], future.result()
            verdicts[verdict].append(mutant)
            print(f"[{number}/{len(mutants)}] {verdict}: {mutant}", flush=True)
    return verdicts


def share_killed(library, verdicts):
    """The share in percent, which it prints; none where nothing was mutated."""
    killed, survived, broken = (sum(library_of(mutant.path) is library for mutant in verdicts[verdict])
                                for verdict in ("killed", "survived", "does not compile"))
    compiled = killed + survived
    if compiled + broken == 0:
        return None
    share = 100 * killed / compiled if compiled else 0
    print(f"mutation of the {library.name}: {compiled} mutants, {killed} killed ({share:.1f} %), {survived} survived, "
          f"{broken} not compiled")
    return share


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate.sh")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--tests", nargs=2)
    parser.add_argument("filter", nargs="*")
    arguments = parser.parse_args()

    paths = [p.relative_to(ROOT) for library in LIBRARIES for p in (ROOT / library.sources).rglob("*")]
    mutants = [m for path in sorted(paths) if path.suffix in (".cpp", ".h") for m in mutants_of(path)]
    if arguments.filter:
        mutants = [m for m in mutants if any(part in str(m) for part in arguments.filter)]
    if not mutants:
        raise SystemExit("mutate: no mutant matches")
    if arguments.list:
        print("\n".join(map(str, mutants)))
        return

    with tempfile.TemporaryDirectory(prefix="sqldb-mutate-") as folder:
        verdicts = mutate(mutants, arguments.jobs, pathlib.Path(folder), arguments.tests)

    for verdict in ("does not compile", "survived"):
        for mutant in sorted(verdicts[verdict], key=str):
            print(f"{verdict}: {mutant}")
    shares = [share_killed(library, verdicts) for library in LIBRARIES]
    if any(share is not None and share < LEAST_KILLED for share in shares):
        sys.exit(1)


main()
