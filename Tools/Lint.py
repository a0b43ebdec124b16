#!/usr/bin/env python3
"""Checks the format of every source and header with clang-format, and every source with clang-tidy.

usage: Lint.py [--changed] [--product] [--deep] [--verbose] <build folder>...

The build folders are configured ones with a compile_commands.json; a source is checked as the first of them that
compiles it does. A source that none of them compiles is a finding too, because nothing would ever check it. One of them
holds the module LintScope, which keeps clang-tidy out of the headers of the system.

With --changed only what differs from the branch main (or origin/main), with what includes it, is looked at. With
--product the sources of the tests are left to the formatter. The static analyzer ends the search for paths through a
function after so many steps (quickSteps); with --deep it takes its own limit, eleven times that.

A source that was found clean is not checked again as long as what clang-tidy would read stays the same: the
preprocessed text with its comments, the command, the settings and clang-tidy itself. The findings of a source that is
not clean are never remembered. The memory is a folder of the user's cache ($XDG_CACHE_HOME/brantel-lint), shared by
all clones: where a clone lies does not count.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import time

formatter = "clang-format-14"
tidy = "clang-tidy-14"
compiler = "clang++-14"
scope = "Tools/LintScope.so"
# Of a function's blocks this reaches nearly all that the analyzer's own limit of 225000 reaches, in a quarter of the time.
quickSteps = 20000

root = pathlib.Path(__file__).resolve().parent.parent


def output(*command):
    return subprocess.run(command, cwd=root, check=True, capture_output=True, text=True).stdout


def treeFiles():
    """Every source and header that is under version control or could be."""
    listed = output("git", "ls-files", "--cached", "--others", "--exclude-standard", "*.h", "*.cpp")
    return [root / name for name in sorted(set(listed.splitlines())) if (root / name).is_file()]


def changedFiles():
    """What differs from the common ancestor with main, committed or not."""
    for branch in ("origin/main", "main"):
        base = subprocess.run(("git", "merge-base", "HEAD", branch), cwd=root, capture_output=True, text=True)
        if base.returncode == 0:
            break
    else:
        sys.exit("lint: there is no branch main to compare with")
    names = output("git", "diff", "--name-only", base.stdout.strip()).splitlines()
    names += output("git", "ls-files", "--others", "--exclude-standard").splitlines()
    return {root / name for name in names}


class Unit:
    """One source with the command that compiles it."""

    def __init__(self, entry, folder):
        self.source = (pathlib.Path(entry["directory"]) / entry["file"]).resolve()
        self.directory = entry["directory"]
        self.folder = folder
        words = shlex.split(entry["command"])
        compilerAt = next(i for i, word in enumerate(words) if re.search(r"(g\+\+|c\+\+|clang\+\+)[-\d]*$", word))
        self.arguments = self.withoutOutput(words[compilerAt + 1 :])

    @staticmethod
    def withoutOutput(words):
        kept = []
        words = iter(words)
        for word in words:
            if word == "-o":
                next(words)
            elif word != "-c":
                kept.append(word)
        return kept

    def preprocess(self):
        """The text that clang-tidy reads, or None when it does not even preprocess (clang-tidy then says why)."""
        result = subprocess.run(
            (compiler, "-E", "-CC", "-Wno-everything", *self.arguments), cwd=self.directory, capture_output=True
        )
        return result.stdout if result.returncode == 0 else None


def unitsOf(folders):
    """Source -> Unit, for the sources of the tree; the first folder that compiles one gives its command."""
    units = {}
    for folder in folders:
        database = folder / "compile_commands.json"
        if not database.is_file():
            sys.exit(f"lint: {database} is not there: configure first")
        for entry in json.loads(database.read_text()):
            unit = Unit(entry, folder)
            units.setdefault(unit.source, unit)
    return units


def settingsOf(source, version):
    """What decides about a source beside its text: clang-tidy with its options and the settings of the source's folders."""
    folders = [folder for folder in reversed(source.parents) if folder.is_relative_to(root)]
    texts = [file.read_text() for folder in folders if (file := folder / ".clang-tidy").is_file()]
    return hashlib.sha256("".join([version, *texts]).encode()).digest()


def optionsOf(deep):
    """What clang-tidy is told for every source. The commands are those of g++, some of whose warnings clang does not know,
    and g++ is who makes errors of them."""
    arguments = ["-Wno-unknown-warning-option", "-Wno-error"]
    if not deep:
        arguments += ["-Xclang", "-analyzer-config", "-Xclang", f"max-nodes={quickSteps}"]
    return ["--quiet", *(f"--extra-arg={argument}" for argument in arguments)]


def scopeOf(folders):
    """The module LintScope of the first folder that has built it."""
    for folder in folders:
        if (folder / scope).is_file():
            return folder / scope
    sys.exit(f"lint: {folders[0] / scope} is not there: ./run install, then build the target LintScope")


def versionOf(scope):
    """clang-tidy's version, once it has loaded the module; it goes on without one that it can't load."""
    result = subprocess.run((tidy, f"--load={scope}", "--version"), capture_output=True, text=True)
    if result.returncode != 0 or result.stderr:
        sys.exit(f"lint: {tidy} does not load {scope}: {result.stderr}")
    return result.stdout


class Checker:
    def __init__(self, memory, changed, scope, deep):
        self.memory = memory
        self.changed = changed
        self.options = optionsOf(deep)
        self.scope = scope
        self.version = " ".join([versionOf(scope), *self.options])
        memory.mkdir(parents=True, exist_ok=True)

    def run(self, unit):
        """(unit, "clean" | "remembered" | "unchanged" | "findings", text, seconds)"""
        started = time.monotonic()
        text = unit.preprocess()
        stamp = None
        if text is not None:
            if self.changed is not None and not self.reads(text, unit):
                return unit, "unchanged", "", 0
            read = ("\0".join(unit.arguments).encode() + text).replace(os.fsencode(root), b"")
            key = hashlib.sha256(settingsOf(unit.source, self.version) + read).hexdigest()
            stamp = self.memory / key
            if stamp.exists():
                stamp.touch()
                return unit, "remembered", "", 0
        command = (tidy, *self.options, f"--load={self.scope}", "-p", str(unit.folder))
        result = subprocess.run((*command, str(unit.source)), cwd=root, capture_output=True, text=True)
        seconds = time.monotonic() - started
        if result.returncode == 0 and not result.stdout.strip():
            if stamp is not None:
                stamp.touch()
            return unit, "clean", "", seconds
        return unit, "findings", result.stdout + (result.stderr if result.returncode else ""), seconds

    def reads(self, text, unit):
        """Whether the preprocessed text came from a changed file."""
        named = set(re.findall(rb'^# \d+ "([^"<]+)"', text, re.MULTILINE))
        files = {(pathlib.Path(unit.directory) / os.fsdecode(name)).resolve() for name in named}
        return bool(files & self.changed)


def checkFormat(files):
    """The complaints of the formatter about these files."""
    complaints = []
    for start in range(0, len(files), 50):
        part = [str(file) for file in files[start : start + 50]]
        result = subprocess.run((formatter, "--dry-run", "--Werror", *part), capture_output=True, text=True)
        complaints += re.findall(r"^.*error: .*$", result.stderr, re.MULTILINE)
        if result.returncode != 0 and not complaints:
            complaints.append(result.stderr)
    return [complaint.replace(f"{root}/", "") for complaint in complaints]


def findingsOf(text):
    """The findings in clang-tidy's answer, each with the lines that explain it; without its counts."""
    blocks = re.split(r"(?m)^(?=\S+:\d+:\d+: (?:error|warning): )", text)
    kept = []
    for block in blocks:
        block = re.sub(r"(?m)^(\d+ warnings?.*generated\.|Suppressed .*|Use -header.*|Error while.*)\n?", "", block)
        if block.strip():
            kept.append(block.replace(f"{root}/", "").rstrip())
    return kept


def prune(memory, days):
    oldest = time.time() - days * 86400
    for stamp in memory.iterdir():
        if stamp.stat().st_mtime < oldest:
            stamp.unlink(missing_ok=True)


def main():
    parser = argparse.ArgumentParser(description="clang-format and clang-tidy")
    parser.add_argument("--changed", action="store_true", help="only what differs from main")
    parser.add_argument("--product", action="store_true", help="clang-tidy leaves the tests out")
    parser.add_argument("--deep", action="store_true", help="the analyzer takes its time; for what is about to be released")
    parser.add_argument("--verbose", action="store_true", help="seconds of each source")
    parser.add_argument("folders", nargs="+", type=lambda name: pathlib.Path(name).resolve())
    arguments = parser.parse_args()

    changed = changedFiles() if arguments.changed else None
    if changed is not None and any(file.name == ".clang-tidy" for file in changed):
        changed = None
    files = [file for file in treeFiles() if changed is None or file in changed]
    units = unitsOf(arguments.folders)
    complaints = checkFormat(files)
    complaints += [
        f"{file.relative_to(root)}: none of the build folders compiles it"
        for file in files
        if file.suffix == ".cpp" and file not in units
    ]

    ours = set(treeFiles())
    todo = [unit for source, unit in units.items() if source in ours]
    if arguments.product:
        todo = [unit for unit in todo if not unit.source.is_relative_to(root / "Tests")]
    cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache")
    checker = Checker(cache / "brantel-lint", changed, scopeOf(arguments.folders), arguments.deep)
    seen = {}
    counts = {"clean": 0, "remembered": 0, "unchanged": 0, "findings": 0}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for unit, result, text, seconds in pool.map(checker.run, todo):
            counts[result] += 1
            if arguments.verbose and seconds:
                print(f"{seconds:6.1f} s {unit.source.relative_to(root)}", flush=True)
            for finding in findingsOf(text):
                if finding not in seen:
                    seen[finding] = unit.source
                    print(finding, flush=True)
    for complaint in complaints:
        print(complaint)
    prune(checker.memory, 30)
    total = len(complaints) + len(seen)
    print(
        f"lint: {len(files)} files formatted, {counts['clean'] + counts['findings']} sources checked, "
        f"{counts['remembered']} clean as before, {counts['unchanged']} not touched: {total} findings"
    )
    # A source that clang-tidy refuses without a word is no clean one.
    return 1 if total or counts["findings"] else 0


if __name__ == "__main__":
    sys.exit(main())
