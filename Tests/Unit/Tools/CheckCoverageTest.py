"""CheckCoverage.py on made-up counts."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckCoverage


class CheckCoverageTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        self.put("Platform/Low.cpp", "first();\n    second();\nthird();\n")
        self.accept("")

    def accept(self, text):
        self.put("Tools/CoverageExceptions.txt", f"# accepted\n{text}")

    def check(self, *counts):
        lines = [
            {"line_number": number, "count": count, "branches": [{"count": count}, {"count": 0}]}
            for number, count in enumerate(counts, 1)
        ]
        exceptions = CheckCoverage.Exceptions(self.tree / "Tools/CoverageExceptions.txt")
        return CheckCoverage.check([{"file": "Platform/Low.cpp", "lines": lines}], self.tree, exceptions)

    def testEverythingReachedIsInOrder(self):
        self.assertEqual(self.check(1, 2, 3), ([("Platform/Low.cpp", 3, 0, 0, 3, 6)], []))

    def testALineThatWasNotReachedIsAnError(self):
        rows, errors = self.check(1, 0, 3)
        self.assertEqual(rows, [("Platform/Low.cpp", 3, 1, 0, 2, 6)])
        self.assertOneError(errors, "Platform/Low.cpp:2: not reached: second();")

    def testAnAcceptedLineIsCountedAndNoError(self):
        self.accept("Platform/Low.cpp | second(); | only another kernel does this\n")
        self.assertEqual(self.check(1, 0, 3), ([("Platform/Low.cpp", 3, 1, 1, 2, 6)], []))

    def testTheTextOfALineMayHoldTheSeparator(self):
        self.put("Platform/Low.cpp", "first();\nsecond(a | b);\nthird();\n")
        self.accept("Platform/Low.cpp | second(a | b); | only another kernel does this\n")
        self.assertEqual(self.check(1, 0, 3)[1], [])

    def testALineIsNotAcceptedInAnotherFile(self):
        self.accept("Platform/High.cpp | second(); | only another kernel does this\n")
        self.assertEqual(len(self.check(1, 0, 3)[1]), 2)

    def testAnAcceptedLineThatWasReachedIsAnError(self):
        self.accept("Platform/Low.cpp | second(); | only another kernel does this\n")
        self.assertOneError(self.check(1, 2, 3)[1], "Platform/Low.cpp: reached, or gone: second();")

    def testAnAcceptedLineNeedsItsReason(self):
        self.accept("Platform/Low.cpp | second(); |\n")
        self.assertOneError(self.check(1, 2, 3)[1], "CoverageExceptions.txt:2: not a file, a line's text and a reason")


if __name__ == "__main__":
    unittest.main()
