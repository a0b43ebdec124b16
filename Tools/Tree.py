"""The files of a tree, for the checks that read all of them."""

import os
import pathlib
import subprocess

skippedFolders = {".git", "build", "demo-output", "__pycache__"}


def filesOf(root):
    """Every file below `root` as a sorted list of paths relative to it, in the form "a/b/c".

    In a git working tree: what is under version control or could be, so that what is ignored does not count. Elsewhere
    everything but the folders that only ever hold output.
    """
    root = pathlib.Path(root)
    if (root / ".git").exists():
        listed = subprocess.run(
            ("git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"),
            cwd=root, check=True, capture_output=True, text=True,
        ).stdout
        names = [name for name in listed.split("\0") if name and os.path.lexists(root / name)]
        return sorted(set(names))
    names = []
    for folder, subfolders, files in os.walk(root):
        subfolders[:] = [name for name in subfolders if name not in skippedFolders]
        names += [pathlib.Path(folder, name).relative_to(root).as_posix() for name in files]
    return sorted(names)


def entriesOf(path):
    """The lines of a list file without comments and empty lines."""
    lines = [line.split("#")[0].strip() for line in pathlib.Path(path).read_text().splitlines()]
    return [line for line in lines if line]
