#!/usr/bin/env python3
"""Fails when a header can't be included alone.

usage: CheckHeaders.py <root of the tree> <build folder>

A header that has a source of its name is included first there: that it compiles is then proven by the build. Every
other header is compiled here on its own, as some source of its area is. Every header is guarded by #pragma once.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import Tree

firstInclude = re.compile(r'^[ \t]*#[ \t]*include[ \t]*["<]([^">]*)[">]', re.MULTILINE)


def flagsOf(command):
    """What decides how an include is found and read."""
    words = iter(shlex.split(command))
    flags = []
    for word in words:
        if word in ("-isystem", "-I", "-D"):
            flags += [word, next(words)]
        elif word.startswith(("-I", "-D", "-std=")):
            flags.append(word)
    return flags


class Alone:
    def __init__(self, root, build):
        self.root = root
        self.headers = [file for file in Tree.filesOf(root) if file.endswith(".h")]
        self.files = set(Tree.filesOf(root))
        entries = json.loads((build / "compile_commands.json").read_text())
        self.compiler = next(
            word for word in shlex.split(entries[0]["command"]) if re.search(r"(g\+\+|clang\+\+)[-\d]*$", word)
        )
        self.flags = {}
        for entry in entries:
            source = pathlib.Path(entry["directory"], entry["file"]).resolve()
            if source.is_relative_to(root) and not source.is_relative_to(build):
                self.flags[source.relative_to(root).as_posix()] = flagsOf(entry["command"])

    def candidates(self, header):
        """The ways in which sources are compiled; first that of the one that shares the longest way with the header."""
        folders = header.split("/")[:-1]

        def nearness(source):
            shared = os.path.commonprefix([folders, source.split("/")[:-1]])
            return len(shared), len(self.flags[source])

        area = [source for source in self.flags if source.split("/")[0] == folders[0]] or list(self.flags)
        ways = [tuple(self.flags[source]) for source in sorted(area, key=nearness, reverse=True)]
        return list(dict.fromkeys(ways))

    def check(self, header):
        text = (self.root / header).read_text()
        if "#pragma once" not in text:
            return f"{header}: no #pragma once"
        source = header[:-2] + ".cpp"
        if source in self.files:
            included = firstInclude.search((self.root / source).read_text())
            if not included or included.group(1).rpartition("/")[2] != header.rpartition("/")[2]:
                return f"{source}: does not include {header} first"
            return None
        first = None
        for flags in self.candidates(header):
            result = subprocess.run(
                (self.compiler, *flags, "-fsyntax-only", "-x", "c++", "-"),
                cwd=self.root, input=f'#include "{self.root / header}"\n', capture_output=True, text=True,
            )
            if result.returncode == 0:
                return None
            first = first or result.stderr
        return f"{header}: can't be included alone\n{first}"


def main():
    alone = Alone(*(pathlib.Path(name).resolve() for name in sys.argv[1:3]))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        errors = [error for error in pool.map(alone.check, alone.headers) if error]
    for error in errors:
        print(error)
    print(f"CheckHeaders: {len(alone.headers)} headers, {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
