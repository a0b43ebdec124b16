#!/usr/bin/env python3
"""Puts known bugs into a copy of the tree, one after the other, and requires that the tests notice each.

usage: Run.py [--check] [--folder FOLDER] [name...]

Each <name>.patch beside this file is a bug that somebody could write: its head says what it is, what it would cost a
user, and which tests must notice it. The copy lies in FOLDER (build/seeded of this tree by default) and is kept, so that
the next run builds little. Without a name all bugs are tried. A bug is caught when a test that passes without it fails;
one that does not build counts as not caught. The exit code is 1 unless all are caught.

--check only looks whether every patch still fits the tree and names tests that exist; it builds nothing.
"""

import argparse
import fnmatch
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "Tools"))
sys.dont_write_bytecode = True
import Tree

preset = "release"
longestTest = 40  # seconds, for the tests of one bug in one program


class Bug:
    """One patch: `programs` is a list of pairs of a test program and a filter for its tests."""

    def __init__(self, path):
        self.name = path.stem
        self.path = path
        self.text = path.read_text()
        head = re.split(r"(?m)^--- ", self.text, maxsplit=1)[0]
        self.what = self.field(head, "Bug")
        self.cost = self.field(head, "Cost")
        self.programs = [tuple(line.split()) for line in re.findall(r"(?m)^Test: (.*)$", head)]
        if not self.programs or any(len(pair) != 2 for pair in self.programs):
            raise ValueError(f"{path.name}: needs lines \"Test: <program> <filter>\"")
        self.files = re.findall(r"(?m)^\+\+\+ b/(\S+)", self.text)

    def field(self, head, name):
        found = re.search(rf"(?m)^{name}: (.+)$", head)
        if not found:
            raise ValueError(f"{self.path.name}: no line \"{name}: ...\"")
        return found[1]


class Copy:
    """The tree once more, where bugs are put in and taken out again."""

    def __init__(self, source, folder):
        self.source = source
        self.tree = folder / "tree"

    def update(self):
        """Writes only what differs, so that only that is built again."""
        wanted = Tree.filesOf(self.source)
        for name in wanted:
            self.restore(name)
        for name in set(Tree.filesOf(self.tree)) - set(wanted):
            (self.tree / name).unlink()

    def restore(self, name):
        source, target = self.source / name, self.tree / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
            shutil.copymode(source, target)

    def apply(self, bug, *options):
        """What is wrong; empty when it fits."""
        # A folder within a working tree would be taken for a part of it.
        environment = dict(os.environ, GIT_CEILING_DIRECTORIES=str(self.tree.parent))
        done = subprocess.run(("git", "apply", *options, str(bug.path)), cwd=self.tree, env=environment,
                              capture_output=True, text=True)
        return "" if done.returncode == 0 else done.stderr.strip() or "it does not fit"

    def build(self, programs):
        done = subprocess.run(("cmake", "--build", "--preset", preset, "--target", *sorted(programs)), cwd=self.tree,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        return "" if done.returncode == 0 else done.stdout[-3000:]

    def program(self, name):
        found = [path for path in (self.tree / "build" / preset / "Tests").rglob(name) if path.is_file()]
        if len(found) != 1:
            raise RuntimeError(f"{len(found)} test programs {name}")
        return found[0]

    def test(self, name, filter):
        """The output of a test program and whether it came to its end in time."""
        # Proofs of thousands of rounds are not meant here.
        environment = {key: value for key, value in os.environ.items() if key != "BRANTEL_PROVE"}
        try:
            done = subprocess.run((self.program(name), f"--gtest_filter={filter}", "--gtest_color=no"), cwd=self.tree,
                                  env=environment, timeout=longestTest, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            return done.stdout.decode(errors="replace"), True
        except subprocess.TimeoutExpired as late:
            return (late.stdout or b"").decode(errors="replace"), False


def failuresOf(output):
    """The tests that ran and neither passed nor were skipped; among them the one that ended its program."""
    ran = re.findall(r"(?m)^\[ RUN      \] (\S+)", output)
    good = set(re.findall(r"(?m)\[       OK \] (\S+)", output)) | set(re.findall(r"(?m)\[  SKIPPED \] (\S+)", output))
    return [name for name in ran if name not in good]


def countOf(output):
    return len(re.findall(r"(?m)^\[ RUN      \] ", output))


def findBugs(folder, names):
    paths = sorted(folder.glob("*.patch"))
    unknown = set(names) - {path.stem for path in paths}
    if unknown:
        raise ValueError(f"there is no bug {', '.join(sorted(unknown))}")
    return [Bug(path) for path in paths if not names or path.stem in names]


def testsOf(tree):
    """The names of all test programs and tests; those with parameters in the form */Name/*."""
    programs, tests = set(), set()
    for name in Tree.filesOf(tree):
        if name.startswith("Tests/") and name.endswith("CMakeLists.txt"):
            programs |= set(re.findall(r"brantel_test\(NAME (\w+)", (tree / name).read_text()))
        elif name.startswith("Tests/") and name.endswith((".cpp", ".h")):
            for kind, suite, test in re.findall(r"(?m)^(TEST\w*)\(\s*(\w+),\s*(\w+)\)", (tree / name).read_text()):
                tests.add(f"*/{suite}.{test}/*" if kind.endswith("_P") else f"{suite}.{test}")
    return programs, tests


def missingTests(known, bug):
    programs, tests = known
    for program, filter in bug.programs:
        if program not in programs:
            yield f"{bug.name}: there is no test program {program}"
        for part in filter.split(":"):
            if not fnmatch.filter(tests, part):
                yield f"{bug.name}: no test is named {part}"


def check(bugs, copy):
    """What keeps the bugs from being tried."""
    known = testsOf(copy.source)
    for bug in bugs:
        wrong = copy.apply(bug, "--check")
        if wrong:
            yield f"{bug.name}: {wrong}"
        yield from missingTests(known, bug)


def control(bugs, copy):
    """Without any bug every test that is named must run and pass."""
    filters = {}
    for bug in bugs:
        for program, filter in bug.programs:
            filters.setdefault(program, []).append(filter)
    wrong = copy.build(filters)
    if wrong:
        yield wrong
        return
    for program in sorted(filters):
        for filter in sorted(set(filters[program])):
            output, ended = copy.test(program, filter)
            failures = failuresOf(output)
            if countOf(output) == 0:
                yield f"{program} {filter}: no test has this name"
            elif failures or not ended:
                yield f"{program} {filter}: fails without a bug: {' '.join(failures)}"


def tryOut(bug, copy):
    """The tests that notice the bug, or why none can."""
    wrong = copy.apply(bug)
    if wrong:
        return [], wrong
    wrong = copy.build(program for program, _ in bug.programs)
    if wrong:
        return [], "it does not build:\n" + wrong
    caught = []
    for program, filter in bug.programs:
        output, _ = copy.test(program, filter)
        caught += failuresOf(output)
    return caught, "" if caught else "all tests pass"


def run(bugs, copy):
    rows, survivors = [], 0
    for bug in bugs:
        started = time.monotonic()
        caught, why = tryOut(bug, copy)
        for name in bug.files:
            copy.restore(name)
        seconds = round(time.monotonic() - started)
        survivors += 0 if caught else 1
        others = f" and {len(caught) - 1} more" if len(caught) > 1 else ""
        outcome = f"`{caught[0]}`{others}" if caught else "NOT CAUGHT"
        print(f"{bug.name}: {outcome if caught else why} ({seconds} s)", flush=True)
        rows.append(f"| {bug.what} | {bug.cost} | {outcome} | {seconds} |")
    print("\n| bug | what it would cost | caught by | s |\n|---|---|---|---|")
    print("\n".join(rows))
    print(f"\n{len(bugs) - survivors} of {len(bugs)} bugs are caught")
    return survivors == 0


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].removeprefix("usage: "))
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--folder", type=pathlib.Path, default=root / "build/seeded")
    parser.add_argument("names", nargs="*")
    arguments = parser.parse_args()
    bugs = findBugs(pathlib.Path(__file__).parent, arguments.names)
    copy = Copy(root, arguments.folder.resolve())
    if arguments.check:
        copy.tree = root
    else:
        copy.tree.mkdir(parents=True, exist_ok=True)
        copy.update()
    errors = list(check(bugs, copy))
    if not errors and not arguments.check:
        print(f"Building the tests without a bug, in {copy.tree}", flush=True)
        subprocess.run(("cmake", "--preset", preset), cwd=copy.tree, check=True, stdout=subprocess.DEVNULL)
        errors = list(control(bugs, copy))
    print("\n".join(errors), end="\n" if errors else "")
    if errors or arguments.check:
        print(f"{len(bugs)} seeded bugs, {len(errors)} errors")
        return 1 if errors else 0
    return 0 if run(bugs, copy) else 1


if __name__ == "__main__":
    sys.exit(main())
