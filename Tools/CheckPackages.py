#!/usr/bin/env python3
"""Fails when the build or ./run uses something that no package of Tools/packages.txt brings.

usage: CheckPackages.py <root of the tree> <build folder>

Looked at: every file and folder outside the tree that CMake found (CMakeCache.txt), every command in `run`, .ci/run and
Tools/demo, and every program that a Python script of Tools starts. The package that such a file belongs to must be
listed, be what a listed one depends on, or be part of the smallest Debian. The last group of the list, the peers of a
benchmark, need not be installed. Exit status 77 where there is no dpkg.
"""

import pathlib
import re
import shutil
import subprocess
import sys

import Tree

# apt-get is how the others come; sudo is used only where it is.
given = {"apt", "bash", "dpkg", "sudo"}
scripts = ("run", ".ci/run", "Tools/demo")
peersHead = "# peers of ./run bench store"
debianPath = "/usr/sbin:/usr/bin:/sbin:/bin"


def ask(*command):
    return subprocess.run(command, capture_output=True, text=True)


def namesOf(path):
    """A file's own name, that of what it links to, and both as they were before /bin became a link to /usr/bin."""
    names = {str(path), str(path.resolve())}
    return names | {name.removeprefix("/usr") for name in names if name.startswith(("/usr/bin/", "/usr/sbin/", "/usr/lib"))}


class Packages:
    """What is listed, what that brings along, and which package holds which file."""

    def __init__(self, listed, paths):
        self.listed = set(listed)
        self.covered = self.withDependencies(self.listed | self.smallest())
        self.holders = {}
        names = {name for path in paths for name in namesOf(path)}
        for line in ask("dpkg", "--search", *sorted(names)).stdout.splitlines():
            packages, _, file = line.partition(": ")
            if not line.startswith("diversion"):
                self.holders.setdefault(file, set()).update(name.split(":")[0] for name in packages.split(", "))

    @staticmethod
    def smallest():
        """What every Debian has before anything is installed."""
        shown = ask("dpkg-query", "--show", "--showformat=${Package} ${Essential} ${Priority}\n").stdout
        return given | {line.split()[0] for line in shown.splitlines() if "yes" in line or "required" in line}

    @staticmethod
    def withDependencies(packages):
        """The packages, what they depend on, and so on."""
        shown = ask("dpkg-query", "--show", "--showformat=${Package}\t${Depends}, ${Pre-Depends}\n").stdout
        depends = {}
        for line in shown.splitlines():
            name, _, rest = line.partition("\t")
            depends[name] = re.findall(r"(?:^|[,|])\s*([\w.+-]+)", rest)
        reached = set()
        todo = list(packages)
        while todo:
            name = todo.pop()
            if name not in reached:
                reached.add(name)
                todo += depends.get(name, ())
        return reached

    def reasonAgainst(self, path):
        """Why a file is not covered, or None."""
        holders = set().union(*(self.holders.get(name, set()) for name in namesOf(path)))
        if not holders:
            return f"{path} belongs to no package"
        if holders & self.covered:
            return None
        return f"{path} is brought by {' or '.join(sorted(holders))}, which Tools/packages.txt does not list"


def foundByCMake(build, root):
    """(variable, path) of what exists outside the tree."""
    for line in (build / "CMakeCache.txt").read_text().splitlines():
        match = re.match(r"([\w.-]+):(FILEPATH|PATH|STRING|INTERNAL|UNINITIALIZED)=(/.+)$", line)
        if not match:
            continue
        name, _, value = match.groups()
        for path in value.split(";"):
            path = pathlib.Path(path)
            isOurs = path.is_relative_to(root) or path.is_relative_to(build)
            # A prefix such as /usr is where something would go, not something found.
            if path.exists() and not isOurs and not (path.is_dir() and len(path.parts) <= 3):
                yield name, path


def commandsOf(text):
    """The words in the place of a command in a shell script, without comments and texts."""
    text = re.sub(r"<<'(\w+)'\n.*?\n\1\n", "\n", text, flags=re.DOTALL)
    text = re.sub(r"(?m)(^|\s)#.*$", "", text)
    text = re.sub(r"'[^'\n]*'", "''", text)
    commands = set()
    before = {";", "&&", "||", "|", "(", "$(", "{", "!", "then", "do", "else", "if", "elif", "while", "exec", "env"}
    for line in text.replace("\\\n", " ").splitlines():
        isCommand = True
        for word in re.findall(r"\$\(|&&|\|\||[;|()]|[^\s;|()]+", line):
            if word in before:
                isCommand = True
            elif isCommand and not re.match(r'"?\$|\w+\+?=', word):
                commands.add(word)
                isCommand = False
    return {word for word in commands if re.fullmatch(r"[a-z][\w.+-]*", word)}


def programsOf(text):
    """The names of programs in a Python script: the first text of a command, or a constant."""
    return set(re.findall(r'(?:\(|^\w+ = )"([a-z][a-z0-9.+-]+)"', text, re.MULTILINE))


def toolsOf(root):
    """(script, name, path or None) of the programs that the scripts start and that are not their own functions."""
    texts = [(script, commandsOf) for script in scripts if (root / script).is_file()]
    texts += [(f"Tools/{path.name}", programsOf) for path in sorted((root / "Tools").glob("*.py"))]
    for script, namesIn in texts:
        for name in sorted(namesIn((root / script).read_text())):
            debian = shutil.which(name, path=debianPath)
            if debian or shutil.which(name):
                yield script, name, pathlib.Path(debian or shutil.which(name))


def peersOf(path):
    """The entries of the last group."""
    lines = path.read_text().partition(peersHead)[2].splitlines()[1:]
    return {name for line in lines if (name := line.split("#")[0].strip())}


def errorsOf(root, build):
    used = [(f"CMake, {name}", path) for name, path in foundByCMake(build, root)]
    used += [(script, path) for script, _, path in toolsOf(root)]
    listed = Tree.entriesOf(root / "Tools/packages.txt")
    packages = Packages(listed, [path for _, path in used])
    errors = []
    for package in sorted(packages.listed - peersOf(root / "Tools/packages.txt")):
        if ask("dpkg-query", "--show", package).returncode != 0:
            errors.append(f"Tools/packages.txt: {package} is not installed: ./run install")
    for user, path in used:
        reason = packages.reasonAgainst(path)
        if reason:
            errors.append(f"{user}: {reason}")
    return errors


def main():
    if not shutil.which("dpkg"):
        print("CheckPackages: no dpkg here")
        return 77
    errors = errorsOf(*(pathlib.Path(name).resolve() for name in sys.argv[1:3]))
    for error in errors:
        print(error)
    print(f"CheckPackages: {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
