#!/usr/bin/env python3
"""Makes the API reference of the public headers, and fails when one of their names has no word about it.

usage: CheckReference.py <root of the tree> <output folder>

The output folder is made anew. Exit status 77 where there is no doxygen.
"""

import pathlib
import re
import shutil
import subprocess
import sys

import Tree

wholeLine = re.compile(r"^(\s*)//(?=\s|$)")
behindCode = re.compile(r"^(.*[\w;,{]\s*)//(?! NOLINT)(?=\s)")
copies = re.compile(r"^\s*(?:(\w+)\(const \1 ?&\)|(\w+)& operator=\(const \2 ?&\)) = default;$")


def forDoxygen(text):
    """The header with its comments in the form that doxygen reads; each line stays where it is. Copies by default say
    by themselves what they do."""
    lines = []
    for line in text.splitlines():
        if copies.match(line):
            line = ""
        elif wholeLine.match(line):
            line = wholeLine.sub(r"\1///", line)
        else:
            line = behindCode.sub(r"\1///<", line)
        lines.append(line)
    # Names outside of classes are only looked at in a file that is documented itself.
    return "\n".join(lines) + "\n/// @file\n"


def make(root, output):
    """The warnings of doxygen, which are errors."""
    shutil.rmtree(output, ignore_errors=True)
    read = output / "read"
    pages = {"Reference.md": (root / "Docs/Reference.md").read_text()}
    places = {}
    for header in Tree.entriesOf(root / "Tools/PublicHeaders.txt"):
        included = header.partition("/")[2]
        places[included] = header
        pages[included] = forDoxygen((root / header).read_text())
    for name, text in pages.items():
        (read / name).parent.mkdir(parents=True, exist_ok=True)
        (read / name).write_text(text)
    settings = (root / "Docs/Doxyfile").read_text() + "".join(
        f'{key} = "{value}"\n' for key, value in {
            "INPUT": read, "RECURSIVE": "YES", "USE_MDFILE_AS_MAINPAGE": read / "Reference.md",
            "OUTPUT_DIRECTORY": output, "STRIP_FROM_PATH": read, "STRIP_FROM_INC_PATH": read,
        }.items()
    )
    made = subprocess.run(("doxygen", "-"), input=settings, capture_output=True, text=True)
    errors = []
    for line in made.stderr.splitlines():
        name, _, rest = line.removeprefix(f"{read}/").partition(":")
        errors.append(f"{places.get(name, name)}:{rest}" if rest else line)
    if made.returncode != 0 and not errors:
        errors.append(f"doxygen ended with {made.returncode}")
    shutil.rmtree(read)
    return errors


def main():
    if not shutil.which("doxygen"):
        print("CheckReference: SKIPPED, no doxygen here: ./run install")
        return 77
    root, output = (pathlib.Path(name).resolve() for name in sys.argv[1:3])
    errors = make(root, output)
    for error in errors:
        print(error)
    print(f"CheckReference: {len(errors)} errors; {output}/index.html")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
