#!/usr/bin/env python3
"""Reports which lines and branches of the two platform libraries and the protocol library the tests have reached.

usage: CheckCoverage.py <build folder of the preset coverage>

Fails when a line was not reached that Tools/CoverageExceptions.txt does not list, and when it lists one that was reached
or is gone. Branches are counted without those that only an exception takes, and are reported only.
"""

import json
import pathlib
import subprocess
import sys

areas = ("Platform/", "Rpc/libProtocolX/")


class Exceptions:
    """Lines accepted as not reached: "file | the line's text | why no test reaches it"."""

    def __init__(self, path):
        self.reasons = {}
        self.errors = []
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if not line.strip() or line.startswith("#"):
                continue
            file, _, rest = line.partition(" | ")
            text, _, reason = rest.rpartition(" | ")
            if file and text and reason.strip():
                self.reasons[file.strip(), text.strip()] = reason.strip()
            else:
                self.errors.append(f"{path.name}:{number}: not a file, a line's text and a reason")
        self.used = set()

    def accepts(self, file, text):
        self.used.add((file, text))
        return (file, text) in self.reasons

    def unused(self):
        return [key for key in self.reasons if key not in self.used]


def counted(root, build):
    """What gcovr counted for each file of ours."""
    filters = [word for area in areas for word in ("--filter", f"{root}/{area}")]
    command = (
        "gcovr", "--root", str(root), "--object-directory", str(build), *filters, "--exclude", f"{build}/.*",
        "--exclude-throw-branches", "--exclude-unreachable-branches", "--json", "-", str(build),
    )
    result = subprocess.run(command, cwd=root, capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"gcovr: exit status {result.returncode}\n{result.stderr}")
    return json.loads(result.stdout)["files"]


def check(files, root, exceptions):
    """(rows for the table, lines that nothing excuses)"""
    rows = []
    errors = []
    for file in sorted(files, key=lambda file: file["file"]):
        name = file["file"]
        source = (root / name).read_text().splitlines()
        lines = [line for line in file["lines"] if not line.get("gcovr/noncode")]
        missed = [line["line_number"] for line in lines if line["count"] == 0]
        branches = [branch for line in lines for branch in line["branches"]]
        taken = sum(1 for branch in branches if branch["count"] > 0)
        accepted = 0
        for number in missed:
            text = source[number - 1].strip()
            if exceptions.accepts(name, text):
                accepted += 1
            else:
                errors.append(f"{name}:{number}: not reached: {text}")
        rows.append((name, len(lines), len(missed), accepted, taken, len(branches)))
    errors += exceptions.errors
    errors += [f"CoverageExceptions.txt: {file}: reached, or gone: {text}" for file, text in exceptions.unused()]
    return rows, errors


def share(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "-"


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    build = pathlib.Path(sys.argv[1]).resolve()
    exceptions = Exceptions(root / "Tools/CoverageExceptions.txt")
    rows, errors = check(counted(root, build), root, exceptions)
    if not rows:
        sys.exit("CheckCoverage: nothing was counted: were the tests run?")
    total = ("all", *(sum(row[column] for row in rows) for column in range(1, 6)))
    print(f"{'file':64} {'lines':>6} {'missed':>7} {'accepted':>9} {'reached':>8} {'branches':>9}")
    for name, lines, missed, accepted, taken, branches in [*rows, total]:
        reached = share(lines - missed + accepted, lines)
        print(f"{name:64} {lines:6} {missed:7} {accepted:9} {reached:>8} {share(taken, branches):>9}")
    for error in errors:
        print(error)
    print(f"CheckCoverage: {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
