"""A small tree in a temporary folder, for the tests of the tools that check trees."""

import pathlib
import sys
import tempfile
import unittest

root = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(root / "Tools"))
sys.dont_write_bytecode = True


class MadeUpTree(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.tree = pathlib.Path(temporary.name)

    def put(self, name, text="", executable=False):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755 if executable else 0o644)
        return path

    def remove(self, name):
        (self.tree / name).unlink()

    def assertOneError(self, errors, *parts):
        """There is exactly one error, and it holds all the parts."""
        self.assertEqual(len(errors), 1, errors)
        for part in parts:
            self.assertIn(part, errors[0])
