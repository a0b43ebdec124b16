#!/usr/bin/env python3
"""Fails when a test asserts nothing, when a page names a test that does not exist, or when the page of the promises has
not a row for each proof of ./run prove.

usage: CheckTests.py [root of the tree]

A test asserts what its own body asserts, or a function that it calls by name and that stands in its source, in what that
includes of the tests, or in the sources beside those headers.
"""

import pathlib
import re
import sys

import Tree

testHead = re.compile(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST)\(\s*(\w+),\s*(\w+)\)", re.MULTILINE)
pythonClass = re.compile(r"^class (\w+Test)\b[^\n]*:\n(.*?)(?=^\S|\Z)", re.MULTILINE | re.DOTALL)
asserting = re.compile(r"\b(?:(?:EXPECT|ASSERT)_\w+|FAIL|ADD_FAILURE)\b")
functionName = re.compile(r"\b([A-Z]\w*)\s*\(")
macros = {"TEST", "TEST_F", "TEST_P", "TYPED_TEST"}
quotedInclude = re.compile(r'^#include "([^"]+)"', re.MULTILINE)
isContinued = re.compile(r"\s{4,}")
ends = re.compile(r"[;{}:]$")
# As in `XTest`, `XTest.ThatIsSo` and `XTest.That...So`.
namedTest = re.compile(r"`(?:[\w./]+/)?([A-Z]\w*Test)(?:\.([\w.]+))?`")


def functionsOf(text):
    """(name, body) of the functions in a formatted source."""
    lines = text.split("\n")
    for number, line in enumerate(lines):
        oneLine = re.match(r"^\s*\S.*?\b([A-Z]\w*)\s*\([^;]*\{ (.*) \}$", line)
        if oneLine:
            yield oneLine.group(1), oneLine.group(2)
        if not line.endswith("{"):
            continue
        start = number
        while start > 0 and number - start < 6 and isContinued.match(lines[start]) and not ends.search(lines[start - 1]):
            start -= 1
        head = " ".join(lines[start:number + 1])
        name = functionName.search(head)
        if not name or name.group(1) in macros:
            continue
        indent = re.match(r"\s*", lines[start]).group()
        end = next((i for i in range(number + 1, len(lines)) if lines[i].startswith(indent + "}")), len(lines))
        yield name.group(1), "\n".join(lines[number + 1:end])


class Tests:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        files = Tree.filesOf(self.root)
        self.texts = {file: (self.root / file).read_text() for file in files
                      if file.startswith("Tests/") and file.endswith((".h", ".cpp", ".py"))}
        self.pages = {file: (self.root / file).read_text() for file in files if file.endswith(".md")}
        self.asserted = {}

    def reached(self, file):
        """The file, what it includes of the tests, and the sources beside that."""
        found = set()
        todo = [file]
        while todo:
            one = todo.pop()
            if one in found or one not in self.texts:
                continue
            found.add(one)
            folder = one.rpartition("/")[0]
            for name in quotedInclude.findall(self.texts[one]):
                todo += [f"Tests/{name}", f"{folder}/{name}"]
            if one.endswith(".h"):
                stem = one.removesuffix(".h")
                todo += [other for other in self.texts if other.endswith(".cpp") and other.startswith(stem)
                         and not testHead.search(self.texts[other])]
        return found

    def helpers(self, file):
        """The names of the functions within reach that assert something."""
        functions = []
        for one in self.reached(file):
            if one not in self.asserted:
                self.asserted[one] = list(functionsOf(self.texts[one]))
            functions += self.asserted[one]
        good = set()
        while True:
            calls = re.compile(r"\b(?:" + "|".join(map(re.escape, good)) + r")\b") if good else None
            more = {name for name, body in functions if name not in good and (asserting.search(body) or (calls and calls.search(body)))}
            if not more:
                return good
            good |= more


def assertions(tests):
    """A test that asserts nothing proves no more than that it ends."""
    for file, text in sorted(tests.texts.items()):
        heads = list(testHead.finditer(text))
        helpers = None
        for head in heads:
            body = text[head.end():].partition("\n}")[0]
            if asserting.search(body):
                continue
            helpers = tests.helpers(file) if helpers is None else helpers
            if not any(re.search(rf"\b{re.escape(name)}\b", body) for name in helpers):
                line = text[:head.start()].count("\n") + 1
                yield f"{file}:{line}: {head.group(1)}.{head.group(2)} asserts nothing"


def proofs(tests):
    """A page that promises something names the test that proves it, and that test exists."""
    known = {}
    for file, text in tests.texts.items():
        known.setdefault(pathlib.PurePosixPath(file).stem, set())
        if file.endswith(".py"):
            for name, body in pythonClass.findall(text):
                known.setdefault(name, set()).update(re.findall(r"def (test\w+)", body))
        for case, name in testHead.findall(text):
            known.setdefault(case, set()).add(name)
    programs = set()
    for file in Tree.filesOf(tests.root):
        if file.endswith("CMakeLists.txt"):
            programs |= set(re.findall(r"brantel_(?:script_)?test\(NAME (\w+)", (tests.root / file).read_text()))
    for file, text in sorted(tests.pages.items()):
        for number, line in enumerate(text.splitlines(), 1):
            for case, name in namedTest.findall(line):
                name = "" if name in ("cpp", "py") else name
                pattern = ".*".join(map(re.escape, name.split("...")))
                if not name and case not in known and case not in programs:
                    yield f"{file}:{number}: there is no test {case}"
                elif name and not any(re.fullmatch(pattern, other) for other in known.get(case, ())):
                    yield f"{file}:{number}: there is no test {case}.{name}"


def lastRun(tests):
    """The last run of every proof stands on the page of the promises, and of nothing else."""
    page = "Docs/Promise.md"
    script = tests.root / "run"
    if page not in tests.pages or not script.exists():
        return
    table = tests.pages[page].partition("## The last run\n")[2].partition("\n## ")[0]
    rows = [row for row in re.findall(r"(?m)^\| ([^|]+?) \|", table) if row != "Proof" and not row.startswith("-")]
    names = re.findall(r'(?m)^\s+(?:proof|counted) "([^"]+)"', script.read_text())
    patterns = {name: re.sub(r"\\\$\\\{.*?\\\}", ".*", re.escape(name)) for name in names}
    for name, pattern in patterns.items():
        if not any(re.fullmatch(pattern, row) for row in rows):
            yield f"{page}: the table of the last run has no row for {name}"
    for row in rows:
        if not any(re.fullmatch(pattern, row) for pattern in patterns.values()):
            yield f"{page}: ./run prove has no proof {row}"


def check(root):
    tests = Tests(root)
    return [*assertions(tests), *proofs(tests), *lastRun(tests)]


def main():
    errors = check(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    for error in errors:
        print(error)
    print(f"CheckTests: {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
