#!/usr/bin/env python3
"""Checks that the tests reach every line and branch of the two platform libraries and the protocol library.

usage: CheckCoverage.py <build folder of the preset coverage>

Prints a table of the files and fails when a line or a branch was not reached that Tools/CoverageExceptions.txt does not
list with its reason, and when it lists one that was reached or is gone.

What counts as a branch: every edge that gcov counts, without two kinds.
- Edges that an exception takes, and with each the edge beside it: together they say only that a call may throw. Nearly
  every call may (for want of memory, say), so these edges are most of all; the tests that let allocations fail reach
  many of them, but counting them would bury the decisions that the sources make.
- Those of a catch clause: it tests the type again, but the unwinder comes there with a matching one only, unless
  something has to be destroyed on the way out.
Lines that hold nothing but brackets do not count: what the compiler does there, at the end of a scope, no line says.
The instances of a template, and the copies of an inline function in several objects, count together.
"""

import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys

areas = ("Platform/", "Rpc/libProtocolX/")


class Exceptions:
    """What is accepted as not reached: "file | line | text | reason" or "file | branches 2 | text | reason"."""

    form = "not \"file | line | text | reason\" or \"file | branches 2 | text | reason\""

    def __init__(self, path):
        self.accepted = {}
        self.errors = []
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if line.strip() and not line.startswith("#") and not self.add(line):
                self.errors.append(f"{path.name}:{number}: {self.form}")
        self.used = set()

    def add(self, line):
        # The text of a line may hold the separator.
        found = re.fullmatch(r"(\S+) \| (line|branches (?:(\d+)-)?([1-9]\d*)) \| (.+) \| (.*\S)\s*", line)
        if not found:
            return False
        file, what, least, most, text, _ = found.groups()
        most = int(most or 0)
        self.accepted[file, text.strip(), what == "line"] = (int(least) if least else most, most)
        return True

    def acceptsLine(self, file, text):
        self.used.add((file, text, True))
        return (file, text, True) in self.accepted

    def acceptedBranches(self, file, text):
        """(least, most) that are accepted as not reached in the lines of this text together."""
        self.used.add((file, text, False))
        return self.accepted.get((file, text, False), (0, 0))

    def unused(self):
        return [key for key in self.accepted if key not in self.used]


def decisions(branches):
    """The counts of the edges that are no exception's; the edge beside that of an exception comes just before it."""
    counts = []
    for branch in branches:
        if branch["throw"]:
            counts.pop()
        else:
            counts.append(branch["count"])
    return counts


class Counts:
    """Lines and branches of the sources of ours, added up from what gcov says of each object."""

    def __init__(self, root):
        self.root = root
        self.lines = collections.defaultdict(collections.Counter)  # file -> line -> count
        self.branches = collections.defaultdict(dict)  # file -> (line, how many) -> counts

    def add(self, report):
        folder = pathlib.Path(report["current_working_directory"])
        for source in report["files"]:
            path = (folder / source["file"]).resolve()
            if not path.is_relative_to(self.root):
                continue
            name = str(path.relative_to(self.root))
            if name.startswith(areas):
                for line in source["lines"]:
                    self.addLine(name, line)

    def addLine(self, name, line):
        number = line["line_number"]
        self.lines[name][number] += line["count"]
        counts = decisions(line["branches"])
        if counts:
            # Instances of a template may differ in their branches; those that don't are one.
            known = self.branches[name].setdefault((number, len(counts)), [0] * len(counts))
            for index, count in enumerate(counts):
                known[index] += count

    def files(self):
        """file -> line -> (count, counts of its branches)"""
        result = {}
        for name, lines in self.lines.items():
            source = (self.root / name).read_text().splitlines()
            result[name] = {
                number: (count, []) for number, count in sorted(lines.items()) if re.search(r"\w", source[number - 1])
            }
            for (number, _), counts in self.branches[name].items():
                if number in result[name] and not source[number - 1].lstrip().startswith("} catch ("):
                    result[name][number][1].extend(counts)
        return result


def counted(root, build):
    """What gcov counted for each file of ours."""

    def report(data):
        command = ("gcov", "--json-format", "--stdout", "--branch-probabilities", str(data))
        result = subprocess.run(command, cwd=build, capture_output=True, text=True)
        if result.returncode != 0:
            sys.exit(f"gcov: exit status {result.returncode}\n{result.stderr}")
        return [json.loads(line) for line in result.stdout.splitlines() if line.strip()]

    counts = Counts(root)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for reports in pool.map(report, sorted(build.rglob("*.gcda"))):
            for one in reports:
                counts.add(one)
    return counts.files()


def checkBranches(name, missed, exceptions):
    """(how many of the missed branches are accepted, errors); `missed` is text -> (how many, lines)"""
    accepted = 0
    errors = []
    for text, (count, numbers) in missed.items():
        least, most = exceptions.acceptedBranches(name, text)
        accepted += min(count, most)
        if count > most:
            where = ", ".join(str(number) for number in numbers)
            also = f" ({most} accepted)" if most else ""
            errors.append(f"{name}:{where}: {count} branches not reached{also}: {text}")
        elif count < least:
            errors.append(f"CoverageExceptions.txt: {name}: only {count} of {least} branches not reached: {text}")
    return accepted, errors


def checkFile(name, lines, source, exceptions):
    """(row for the table, errors)"""
    errors = []
    missedLines = acceptedLines = 0
    missed = {}
    total = 0
    for number, (count, branches) in lines.items():
        text = source[number - 1].strip()
        if count == 0:
            missedLines += 1
            if exceptions.acceptsLine(name, text):
                acceptedLines += 1
            else:
                errors.append(f"{name}:{number}: not reached: {text}")
            # Its branches are part of it.
            continue
        total += len(branches)
        none = branches.count(0)
        if none:
            before, numbers = missed.get(text, (0, []))
            missed[text] = (before + none, [*numbers, number])
    acceptedBranches, branchErrors = checkBranches(name, missed, exceptions)
    missedBranches = sum(count for count, _ in missed.values())
    row = (name, len(lines), missedLines, acceptedLines, total, missedBranches, acceptedBranches)
    return row, errors + branchErrors


def check(files, root, exceptions):
    """(rows for the table, what nothing excuses)"""
    rows = []
    errors = []
    for name, lines in sorted(files.items()):
        row, found = checkFile(name, lines, (root / name).read_text().splitlines(), exceptions)
        rows.append(row)
        errors += found
    errors += exceptions.errors
    for file, text, isLine in exceptions.unused():
        if isLine or exceptions.accepted[file, text, isLine][0] > 0:
            errors.append(f"CoverageExceptions.txt: {file}: reached, or gone: {text}")
    return rows, errors


def share(missed, whole):
    return f"{100 * (whole - missed) / whole:.1f} %" if whole else "-"


def printTable(rows):
    total = ("all", *(sum(row[column] for row in rows) for column in range(1, 7)))
    print(f"{'file':58} {'lines':>6} {'missed':>7} {'listed':>7} {'reached':>8}", end="")
    print(f" {'branches':>9} {'missed':>7} {'listed':>7} {'reached':>8}")
    for name, lines, missed, listed, branches, missedBranches, listedBranches in [*rows, total]:
        print(f"{name:58} {lines:6} {missed:7} {listed:7} {share(missed, lines):>8}", end="")
        print(f" {branches:9} {missedBranches:7} {listedBranches:7} {share(missedBranches, branches):>8}")


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    build = pathlib.Path(sys.argv[1]).resolve()
    exceptions = Exceptions(root / "Tools/CoverageExceptions.txt")
    rows, errors = check(counted(root, build), root, exceptions)
    if not rows:
        sys.exit("CheckCoverage: nothing was counted: were the tests run?")
    printTable(rows)
    for error in errors:
        print(error)
    print(f"CheckCoverage: {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
