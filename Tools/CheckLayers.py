#!/usr/bin/env python3
"""Fails when a source or header includes what Tools/Layers.txt does not allow, or in the wrong form.

usage: CheckLayers.py [root of the tree]

The form: inside a library quotes and the path from the library's root; across libraries, and for everything in an
installed header (Tools/PublicHeaders.txt), angle brackets from the library's name; never "..". Other headers may use
either form for their own library: those that another library includes need the angle one. In Tests the quoted form starts
from there, and a name alone is that of a header beside the test.
"""

import fnmatch
import pathlib
import re
import sys

import Tree

areas = ("Platform", "Rpc", "Storage", "Apps", "Bindings", "Tests", "Tools")
generatedFolder = "Rpc/libProtocolX/schema"
generatedHeaders = ("CommonMessages.pb.h", "BrantelStorageApiMessages.pb.h")
unitTests = "Tests/Unit"
directive = re.compile(r'^[ \t]*#[ \t]*include\b[ \t]*(?:"([^"]*)"|<([^>]*)>)?', re.MULTILINE)


class TableError(Exception):
    """The table itself is wrong."""


class Layers:
    """Tools/Layers.txt as read."""

    def __init__(self, path):
        self.groups = {}
        self.folders = {}
        self.files = {}
        kinds = {"group": self.groups, "folder": self.folders, "file": self.files}
        names = None
        for number, line in enumerate(path.read_text().splitlines(), 1):
            text = line.split("#")[0].rstrip()
            if not text:
                continue
            if text[0].isspace():
                if names is None:
                    raise TableError(f"{path.name}:{number}: names before the first group, folder or file")
                names += text.split()
                continue
            kind, _, name = text.partition(" ")
            if kind not in kinds or not name.strip() or name.strip() in kinds[kind]:
                raise TableError(f"{path.name}:{number}: not a new group, folder or file: {text}")
            names = kinds[kind][name.strip()] = []
        for owner, allowed in [*self.folders.items(), *self.files.items()]:
            for name in allowed:
                if name not in self.groups and name not in self.folders and not name.endswith(".h"):
                    raise TableError(f"{path.name}: {owner} allows {name}, which is no group, folder or header")

    def allowed(self, file):
        """The names that a file may include, or None when nothing is said of its folder."""
        folder = file.rpartition("/")[0]
        extra = self.files.get(file, [])
        if folder in self.folders:
            return [folder, *self.folders[folder], *extra]
        tested = folder.removeprefix(f"{unitTests}/")
        if tested != folder and tested in self.folders:
            return [folder, tested, *self.folders[tested], *self.folders.get(unitTests, []), *extra]
        return None

    def libraries(self):
        """Library name -> its root: {"libTime": "Platform/libTime"}."""
        roots = {"/".join(folder.split("/")[:2]) for folder in self.folders if not folder.startswith("Tests")}
        return {root.split("/")[1]: root for root in roots if "/" in root}


def libraryRoot(file):
    """The folder that the quoted form starts from."""
    parts = file.split("/")
    return "Tests" if parts[0] == "Tests" else "/".join(parts[:2])


class Checker:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.layers = Layers(self.root / "Tools/Layers.txt")
        self.libraries = self.layers.libraries()
        self.public = set(Tree.entriesOf(self.root / "Tools/PublicHeaders.txt"))
        self.installed = {libraryRoot(header) for header in self.public}
        self.files = set(Tree.filesOf(self.root))
        self.errors = []

    def run(self):
        """The errors of the whole tree, in the order of its files."""
        for name in sorted(self.public - self.files):
            self.errors.append(f"Tools/PublicHeaders.txt: {name} does not exist")
        for file in sorted(self.files):
            if file.endswith((".h", ".cpp")) and file.split("/")[0] in areas:
                self.checkFile(file)
        return self.errors

    def checkFile(self, file):
        allowed = self.layers.allowed(file)
        if allowed is None:
            self.errors.append(f"{file}: Tools/Layers.txt says nothing of this folder")
            return
        text = (self.root / file).read_text()
        for match in directive.finditer(text):
            place = f"{file}:{text.count(chr(10), 0, match.start()) + 1}"
            quoted, angle = match.groups()
            if quoted is None and angle is None:
                self.errors.append(f"{place}: an include without a name of its own")
            elif ".." in (quoted or angle).split("/"):
                self.errors.append(f'{place}: ".." in an include')
            elif quoted is not None:
                self.checkQuoted(place, file, quoted, allowed)
            else:
                self.checkAngle(place, file, angle, allowed)

    def checkQuoted(self, place, file, name, allowed):
        if file in self.public:
            self.errors.append(f'{place}: an installed header includes in the angle form, not "{name}"')
            return
        target = f"{libraryRoot(file)}/{name}"
        if file.startswith("Tests/") and "/" not in name:
            target = f"{file.rpartition('/')[0]}/{name}"
        if target in self.files:
            self.checkOurs(place, file, target, allowed)
        elif name in generatedHeaders or name.split("/")[0] in self.libraries:
            self.errors.append(f'{place}: another library is included in the angle form, not "{name}"')
        else:
            self.errors.append(f'{place}: there is no {target} for "{name}"')

    def checkAngle(self, place, file, name, allowed):
        library, _, rest = name.partition("/")
        if name in generatedHeaders:
            self.checkOurs(place, file, f"{generatedFolder}/{name}", allowed)
        elif library in self.libraries:
            root = self.libraries[library]
            target = f"{root}/{rest}"
            if target not in self.files:
                self.errors.append(f"{place}: <{name}> does not exist")
            elif root == libraryRoot(file) and file.endswith(".cpp"):
                self.errors.append(f"{place}: inside a library the quoted form is used, not <{name}>")
            else:
                self.checkOurs(place, file, target, allowed)
        elif not self.allowsForeign(name, allowed):
            self.errors.append(f"{place}: {file.rpartition('/')[0]} may not include <{name}>")

    def checkOurs(self, place, file, target, allowed):
        """Whether the layer may include a header of ours, and an installed one only installed ones."""
        folder, _, header = target.rpartition("/")
        if folder not in allowed and target not in allowed:
            self.errors.append(f"{place}: {file.rpartition('/')[0]} may not include {target}")
        if target in self.public or header in generatedHeaders:
            return
        if file in self.public:
            self.errors.append(f"{place}: an installed header includes {target}, which is not installed")
        elif libraryRoot(target) in self.installed and libraryRoot(file) not in (libraryRoot(target), "Tests"):
            self.errors.append(f"{place}: {target} is not installed and so private to its library")

    def allowsForeign(self, name, allowed):
        patterns = [pattern for group in allowed for pattern in self.layers.groups.get(group, [])]
        return any(fnmatch.fnmatchcase(name, pattern) for pattern in patterns)


def main():
    root = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent
    try:
        errors = Checker(root).run()
    except TableError as error:
        errors = [str(error)]
    for error in errors:
        print(error)
    print(f"CheckLayers: {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
