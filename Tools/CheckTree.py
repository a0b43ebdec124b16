#!/usr/bin/env python3
"""Fails when a file is not where, or not as, the tree wants it.

usage: CheckTree.py [root of the tree]

Each rule is a function below, from the files to its errors; its comment says why it is there.
"""

import pathlib
import re
import sys

import Tree

mebibyte = 1 << 20
sourceLines = 800
functionLines = 100
commentColumns = 100

topFolders = {
    "Platform", "Rpc", "Storage", "Apps", "Bindings", "Tests", "Docs", "Packaging", "Tools", ".ci",
}
topFiles = {
    "README.md", "LICENSE", "run", "CMakeLists.txt", "CMakePresets.json", ".clang-format", ".clang-tidy",
    ".editorconfig", ".gitignore", ".gitattributes",
}
# The folders with a README of their own; deeper ones speak through their headers.
areas = ("Platform", "Rpc", "Storage", "Apps", "Bindings", "Tests")
libraryAreas = ("Platform", "Rpc", "Storage", "Apps", "Bindings")
testRooms = {"Support", "Unit", "Conformance", "System", "Issues", "Fuzz", "Bench", "Seeded"}
readmeHead = "| folder | provides | may use |"
catchAll = re.compile(r"(common|utils?|misc|helpers?|various)$", re.IGNORECASE)
# Written so that this file does not find itself.
machinePath = re.compile(r"(?<![\w.$}/-])/(?:ro[o]t|ho[m]e|wo[r]k|wo[r]kspace|Us[e]rs|mn[t])/[\w.]")
unfinished = re.compile(r"\b(?:TO[D]O|FIX[M]E|XX[X]|HA[C]K)\b")
foreignDocument = re.compile(r"\b(?:the sp[e]c\b|sp[e]cification|Par[t] \d\.\d|iss[u]e #?\d+)", re.IGNORECASE)
runCommand = re.compile(r"(?<![\w/])\./run ([a-z]+)\b")
documentName = re.compile(r"[\w./-]+\.md\b")
binarySuffixes = (".bin", ".jpg", ".jpeg", ".png", ".gz", ".corpus")


class Tidy:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.files = Tree.filesOf(self.root)
        self.folders = {str(parent) for file in self.files for parent in pathlib.PurePosixPath(file).parents} - {"."}
        self.texts = {}

    def text(self, file):
        """The text of a file; "" for what is not text."""
        if file not in self.texts:
            data = (self.root / file).read_bytes()
            isText = not file.endswith(binarySuffixes) and b"\0" not in data[:8192]
            try:
                self.texts[file] = data.decode() if isText else ""
            except UnicodeDecodeError:
                self.texts[file] = ""
        return self.texts[file]

    def linesOf(self, file):
        return enumerate(self.text(file).splitlines(), 1)

    def isCorpus(self, file):
        """Inputs found by fuzzing hold any bytes and any words."""
        return file.startswith("Tests/Fuzz/") and not file.endswith((".h", ".cpp", ".txt", ".md"))


def rooms(tree):
    """Everything has a place: nothing lies at the top, or in Tests, that has no name there."""
    for file in tree.files:
        parts = file.split("/")
        if len(parts) == 1 and file not in topFiles:
            yield f"{file}: no place for it at the top of the tree"
        elif len(parts) > 1 and parts[0] not in topFolders:
            yield f"{file}: unknown folder {parts[0]}"
        elif parts[0] == "Tests" and len(parts) > 2 and parts[1] not in testRooms:
            yield f"{file}: unknown folder Tests/{parts[1]}"


def names(tree):
    """A helper lives with its only user or gets a name and a place."""
    for path in sorted(tree.folders) + tree.files:
        name = path.rpartition("/")[2]
        if catchAll.match(name.partition(".")[0]):
            yield f"{path}: a name that says nothing"


def classFiles(tree):
    """One class, one header of its name: X.h declares X (XTypes.h a set of plain types; a header of functions alone has
    the name of what they do), and X.cpp belongs to X.h or to a header whose name begins it."""
    headers = {file for file in tree.files if file.endswith(".h")}
    for file in tree.files:
        if file.split("/")[0] not in libraryAreas or not file.endswith((".h", ".cpp")):
            continue
        folder, _, name = file.rpartition("/")
        stem = name.partition(".")[0]
        if file.endswith(".h"):
            declared = re.search(
                rf"\b(?:class|struct|enum class|enum|union|namespace|concept|using)\s+(?:\w+::)*{stem}\b"
                rf"|\b{stem}\(",
                tree.text(file),
            )
            isSet = stem.endswith("Types") and len(re.findall(r"(?m)^(?:struct|enum class|using)\s", tree.text(file))) > 1
            isOfFunctions = not re.search(r"(?m)^(?:class|struct|enum class)\s+\w+\b(?!::)[^;]*\{", tree.text(file))
            if not declared and not isSet and not isOfFunctions:
                yield f"{file}: declares no {stem}"
        elif stem != "Main":
            owners = [header for header in headers if header.rpartition("/")[0] == folder]
            if not any(stem.startswith(header.rpartition("/")[2][:-2]) for header in owners):
                yield f"{file}: no header in {folder} has this name or one that it begins with"


def sizes(tree):
    """A source that does not fit into a head is split; what is large does not belong into version control."""
    for file in tree.files:
        size = (tree.root / file).lstat().st_size
        if size > mebibyte:
            yield f"{file}: {size} bytes, the limit is {mebibyte}"
        if file.endswith((".h", ".cpp", ".py", ".sh", ".cmake")) or file == "run":
            lines = tree.text(file).count("\n")
            if lines > sourceLines:
                yield f"{file}: {lines} lines, the limit is {sourceLines}"


def functions(tree):
    """A function fits a screen. Of C++ the linter counts; here, what it does not read."""
    for file in tree.files:
        if not file.endswith((".py", ".sh")) and not tree.text(file).startswith("#!"):
            continue
        lines = tree.text(file).split("\n")
        for start, line in enumerate(lines):
            head = re.match(r"(\s*)(?:def \w+\(|\w+\(\) \{$)", line)
            if not head:
                continue
            inside = re.compile(rf"\s{{{len(head.group(1)) + 1},}}\S|\s*$")
            end = next((i for i in range(start + 1, len(lines)) if not inside.match(lines[i])), len(lines))
            while not lines[end - 1].strip():
                end -= 1
            if end - start - 1 > functionLines:
                yield f"{file}:{start + 1}: a function of {end - start - 1} lines, the limit is {functionLines}"


def readmes(tree):
    """Each area says what its folders are for: a README with a table that has a row for each folder with files."""
    for area in areas:
        if area not in tree.folders:
            continue
        readme = f"{area}/README.md"
        if readme not in tree.files:
            yield f"{area}: no README.md"
            continue
        text = tree.text(readme)
        if readmeHead not in text:
            yield f"{readme}: no table \"{readmeHead}\""
            continue
        listed = re.findall(r"^\| `?([\w./-]+?)/?`? \|", text.partition(readmeHead)[2], re.MULTILINE)
        rows = set(listed)
        for row in sorted(row for row in rows if listed.count(row) > 1):
            yield f"{readme}: {listed.count(row)} rows for {row}"
        present = {file.split("/")[1] for file in tree.files if file.startswith(f"{area}/") and file.count("/") > 1}
        for folder in sorted(present - rows):
            yield f"{readme}: no row for {folder}"
        for row in sorted(rows - {"folder"}):
            if f"{area}/{row}" not in tree.folders:
                yield f"{readme}: a row for {row}, which does not exist"


def unitTests(tree):
    """A unit test lies where the tested file lies, and its name begins with the name of that file or its folder."""
    for file in tree.files:
        folder, _, name = file.removeprefix("Tests/Unit/").rpartition("/")
        if not file.startswith("Tests/Unit/") or not name.endswith((".cpp", ".py")):
            continue
        if not name.partition(".")[0].endswith("Test"):
            yield f"{file}: a unit test is named <what it tests>Test"
        elif folder not in tree.folders:
            yield f"{file}: there is no folder {folder} for it to test"
        else:
            tested = [other.rpartition("/")[2].partition(".")[0] for other in tree.files
                      if other.rpartition("/")[0] == folder]
            last = folder.rpartition("/")[2]
            tested += [last, last.removeprefix("lib")]
            if not any(name.lower().startswith(stem.lower()) for stem in tested if stem):
                yield f"{file}: nothing in {folder} begins its name"


def runBits(tree):
    """What starts with #! can be started, and only that."""
    for file in tree.files:
        path = tree.root / file
        if path.is_symlink():
            yield f"{file}: a symbolic link"
            continue
        script = tree.text(file).startswith("#!")
        executable = bool(path.stat().st_mode & 0o111)
        if script and not executable:
            yield f"{file}: begins with #! and is not executable"
        elif executable and not script:
            yield f"{file}: executable and does not begin with #!"


def words(tree):
    """The tree stands alone: no paths of somebody's machine, no loose ends, no papers that are not in it."""
    documents = {file.rpartition("/")[2] for file in tree.files if file.endswith(".md")}
    for file in tree.files:
        if tree.isCorpus(file):
            continue
        for number, line in tree.linesOf(file):
            if machinePath.search(line):
                yield f"{file}:{number}: a path of one machine"
            if unfinished.search(line):
                yield f"{file}:{number}: unfinished"
            if foreignDocument.search(line):
                yield f"{file}:{number}: speaks of a paper that is not in the tree"
            for name in documentName.findall(line):
                if name.rpartition("/")[2] not in documents and name != ".md" and not file.endswith(".py"):
                    yield f"{file}:{number}: there is no {name}"


def commands(tree):
    """Whoever reads of a command of ./run can type it."""
    known = set(re.findall(r"(?m)^  ([a-z]+)(?=[ \n])", tree.text("run").partition("<<'TEXT'\n")[2].partition("\nTEXT\n")[0]))
    for file in tree.files:
        if file.endswith((".md", ".h", ".cpp", ".txt")) and not tree.isCorpus(file):
            for number, line in tree.linesOf(file):
                for name in runCommand.findall(line):
                    if name not in known:
                        yield f"{file}:{number}: ./run has no command {name}"


def lines(tree):
    """Comments are not reflowed by the formatter; endings and blanks at a line's end only make noise."""
    for file in tree.files:
        if tree.isCorpus(file):
            continue
        text = tree.text(file)
        if text and not text.endswith("\n"):
            yield f"{file}: the last line does not end"
        for number, line in tree.linesOf(file):
            if line != line.rstrip():
                yield f"{file}:{number}: blanks at the end of the line"
            if file.endswith((".h", ".cpp")) and re.match(r"\s*//", line) and len(line) > commentColumns:
                yield f"{file}:{number}: a comment of {len(line)} columns, the limit is {commentColumns}"


rules = (rooms, names, classFiles, sizes, functions, readmes, unitTests, runBits, words, commands, lines)


def check(root):
    tree = Tidy(root)
    return [error for rule in rules for error in rule(tree)]


def main():
    errors = check(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    for error in errors:
        print(error)
    print(f"CheckTree: {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
