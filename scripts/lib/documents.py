"""Checks the documents: links lead somewhere, paths exist, every C++ program shown is built by the tests, and
docs/errors.md has every text that the sources throw or log."""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Where a path of the project begins.
FOLDERS = tuple(sorted(entry.name for entry in ROOT.iterdir() if entry.is_dir() and entry.name not in (".git", "build")))


def documents():
    return sorted(path for path in ROOT.rglob("*.md") if "build" not in path.relative_to(ROOT).parts)


def without_code(text):
    return re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL)


def anchor(heading):
    """As the usual renderers make it: lower case, without punctuation, hyphens for blanks."""
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def anchors(path):
    return {anchor(heading) for heading in re.findall(r"^#+ (.*)$", without_code(path.read_text()), re.MULTILINE)}


def bad_links(path, text):
    for link in re.findall(r"\]\(([^)\s]+)\)", text):
        if re.match(r"https://", link):
            continue
        target, _, fragment = link.partition("#")
        file = (path.parent / target).resolve() if target else path
        if not file.exists():
            yield f"the link {link} leads nowhere"
        elif fragment and fragment not in anchors(file):
            yield f"the link {link} leads to no heading"


def bad_paths(text):
    """What looks like a path of the project, in code style, and is not there."""
    for path in re.findall(r"`([\w.-]+/[\w./-]*[\w-])(?: [^`\n]*)?`", text):
        if path.split("/")[0] in FOLDERS and not (ROOT / path).exists():
            yield f"there is no {path}"


def bad_scripts(text):
    for script in re.findall(r"^(scripts/[\w.-]+|\.ci/run)", text, re.MULTILINE):
        if not (ROOT / script).exists():
            yield f"there is no {script}"


def unbuilt_programs(path, text):
    """A program counts as built if its document is given to sqldb_add_programs of cmake/documents.cmake."""
    # So that a program is not overlooked under another name of its language.
    for language in re.findall(r"^ *(?:```|~~~)(.+)$", text, re.MULTILINE):
        if language not in ("cmake", "cpp", "sh", "sql", "text"):
            yield f"a block of the unknown language {language}"
    if "```cpp\n" not in text:
        return
    name = re.escape(str(path.relative_to(ROOT)))
    found = subprocess.run(["grep", "-rqE", "--include=CMakeLists.txt", r"sqldb_add_programs\(\$\{PROJECT_SOURCE_DIR\}/"
                            + name + " ", "--exclude-dir=build", str(ROOT)], check=False)
    if found.returncode != 0:
        yield "its C++ programs are not built by the tests"


# In C++, outside of quotes.
LITERAL = r'"((?:[^"\\\n]|\\.)*)"'
WITHIN = LITERAL.replace("((?:", "(?:(?:")
# Two words, which SQL has in capitals.
SENTENCE = re.compile(r"(^|[^\w.])[a-z]+ [a-z]{2,}")


def statements(folder):
    """Those of all sources, without comments, in the order of the files."""
    for path in sorted((ROOT / folder).rglob("*.*")):
        code = re.sub(r"^\s*(//.*|#.*)$", "", path.read_text(), flags=re.MULTILINE)
        # A statement ends at a semicolon or a brace outside a literal.
        yield from re.findall(rf"(?:{WITHIN}|[^;{{}}\"])+", code)


def messages():
    """The literals in the statements that throw or log, and in the kit all that read like sentences, in the order of the
    files. What the compiler says is not among them."""
    speaks = re.compile(r"\bthrow\b|\bclog\b|\bError\(|\b(Throw|Log)\w*\(")
    for folder in ("src", "include", "kit/src", "kit/include"):
        for statement in statements(folder):
            if "static_assert" in statement:
                continue
            # What stands in two literals side by side is one.
            for text in re.findall(LITERAL, re.sub(r'"\s+"', "", statement)):
                if speaks.search(statement) or (folder.startswith("kit") and SENTENCE.search(text)):
                    # In pieces, where a line feed or a quote stands around what varies.
                    yield from (piece.strip() for piece in re.split(r"\\n|'", text) if re.search(r"\w", piece))


def stale_pictures():
    """A picture that was not drawn again after a change of its source."""
    for source in (ROOT / "docs").rglob("*.dot"):
        picture = source.with_suffix(".svg").read_text().replace("&#45;", "-")
        arrows = sorted(re.findall(r"^  (\w+) -> (\w+)", source.read_text(), re.MULTILINE))
        if arrows != sorted(re.findall(r"<title>(\w+)-&gt;(\w+)</title>", picture)):
            yield f"{source.relative_to(ROOT)}: the picture has other arrows"
        for label in re.findall(r'label = "([^"]*)"', source.read_text()):
            for line in label.split("\\n"):
                if f">{line}</text>" not in picture:
                    yield f"{source.relative_to(ROOT)}: \"{line}\" is not in the picture"


def untold_messages():
    told = (ROOT / "docs/errors.md").read_text()
    for message in messages():
        # The longest texts are told by their beginning.
        if message[:60].rstrip(" :.") not in told:
            yield f"nothing about \"{message}\""


def main():
    complaints = []
    for path in documents():
        text = path.read_text()
        prose = without_code(text)
        for complaint in [*bad_links(path, prose), *bad_paths(prose), *bad_scripts(text), *unbuilt_programs(path, text)]:
            complaints.append(f"{path.relative_to(ROOT)}: {complaint}")
    complaints += [f"docs/errors.md: {complaint}" for complaint in untold_messages()]
    complaints += stale_pictures()
    if not any(messages()):
        complaints.append("docs/errors.md: found no message in the sources")
    print(*complaints, f"{len(documents())} documents, {len(complaints)} complaints", sep="\n")
    return 1 if complaints else 0


sys.exit(main())
