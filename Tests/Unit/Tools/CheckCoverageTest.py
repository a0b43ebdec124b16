"""CheckCoverage.py on made-up counts."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckCoverage


def edge(count, throw=False):
    return {"count": count, "throw": throw, "fallthrough": False}


def line(number, count, *branches):
    return {"line_number": number, "count": count, "branches": list(branches)}


class Counted(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        self.put("Platform/Low.cpp", "first();\n    if (second | third) {\nthird();\n} catch (...) {\n}\n")

    def count(self, *lines, file="../Platform/Low.cpp"):
        """What one object of the folder `build` counted."""
        source = {"file": file, "lines": list(lines)}
        return {"current_working_directory": str(self.tree / "build"), "files": [source]}

    def files(self, *reports):
        counts = CheckCoverage.Counts(self.tree.resolve())
        for report in reports:
            counts.add(report)
        return counts.files()


class CountsTest(Counted):
    def testObjectsAndInstancesCountTogether(self):
        one = self.count(line(1, 2), line(2, 2, edge(2), edge(0)), line(2, 1, edge(0), edge(1)))
        other = self.count(line(1, 0), line(2, 3, edge(3), edge(0)))
        self.assertEqual(self.files(one, other), {"Platform/Low.cpp": {1: (2, []), 2: (6, [5, 1])}})

    def testInstancesWithOtherBranchesCountForThemselves(self):
        report = self.count(line(2, 1, edge(1), edge(0)), line(2, 1, edge(0), edge(0), edge(1)))
        self.assertEqual(self.files(report)["Platform/Low.cpp"][2], (2, [1, 0, 0, 0, 1]))

    def testTheEdgeOfAnExceptionAndTheOneBesideItDoNotCount(self):
        report = self.count(line(2, 1, edge(7), edge(0, throw=True), edge(1), edge(0)))
        self.assertEqual(self.files(report)["Platform/Low.cpp"][2], (1, [1, 0]))

    def testACatchClauseHasNoBranches(self):
        self.assertEqual(self.files(self.count(line(4, 1, edge(0), edge(1))))["Platform/Low.cpp"], {4: (1, [])})

    def testALineOfBracketsDoesNotCount(self):
        self.assertEqual(self.files(self.count(line(5, 0, edge(0), edge(0))))["Platform/Low.cpp"], {})

    def testWhatLiesElsewhereDoesNotCount(self):
        elsewhere = [self.count(line(1, 0), file=file) for file in ("/usr/include/vector", "../Storage/Low.cpp")]
        self.assertEqual(self.files(*elsewhere), {})


class CheckTest(Counted):
    # The second line was reached, half of its branches were not.
    half = line(2, 3, edge(3), edge(0), edge(0), edge(3))

    def setUp(self):
        super().setUp()
        self.accept("")

    def accept(self, text):
        self.put("Tools/CoverageExceptions.txt", f"# accepted\n{text}")

    def check(self, *lines):
        exceptions = CheckCoverage.Exceptions(self.tree / "Tools/CoverageExceptions.txt")
        return CheckCoverage.check(self.files(self.count(*lines)), self.tree, exceptions)

    def testEverythingReachedIsInOrder(self):
        result = self.check(line(1, 1), line(2, 2, edge(1), edge(1)))
        self.assertEqual(result, ([("Platform/Low.cpp", 2, 0, 0, 2, 0, 0)], []))

    def testALineThatWasNotReachedIsAnErrorWithoutItsBranches(self):
        rows, errors = self.check(line(1, 1), line(2, 0, edge(0), edge(0)))
        self.assertEqual(rows, [("Platform/Low.cpp", 2, 1, 0, 0, 0, 0)])
        self.assertOneError(errors, "Platform/Low.cpp:2: not reached: if (second | third) {")

    def testAnAcceptedLineIsCountedAndNoError(self):
        self.accept("Platform/Low.cpp | line | if (second | third) { | only another kernel does this\n")
        self.assertEqual(self.check(line(2, 0)), ([("Platform/Low.cpp", 1, 1, 1, 0, 0, 0)], []))

    def testAnAcceptedLineThatWasReachedIsAnError(self):
        self.accept("Platform/Low.cpp | line | first(); | only another kernel does this\n")
        self.assertOneError(self.check(line(1, 1))[1], "Platform/Low.cpp: reached, or gone: first();")

    def testABranchThatWasNotReachedIsAnError(self):
        rows, errors = self.check(self.half)
        self.assertEqual(rows, [("Platform/Low.cpp", 1, 0, 0, 4, 2, 0)])
        self.assertOneError(errors, "Platform/Low.cpp:2: 2 branches not reached: if (second | third) {")

    def testAcceptedBranchesAreCountedAndNoError(self):
        self.accept("Platform/Low.cpp | branches 2 | if (second | third) { | only another kernel does this\n")
        self.assertEqual(self.check(self.half), ([("Platform/Low.cpp", 1, 0, 0, 4, 2, 2)], []))

    def testOneMoreThanTheAcceptedBranchesIsAnError(self):
        self.accept("Platform/Low.cpp | branches 1 | if (second | third) { | only another kernel does this\n")
        self.assertOneError(self.check(self.half)[1], "Low.cpp:2: 2 branches not reached (1 accepted)")

    def testOneLessThanTheAcceptedBranchesIsAnError(self):
        self.accept("Platform/Low.cpp | branches 3 | if (second | third) { | only another kernel does this\n")
        self.assertOneError(self.check(self.half)[1], "Platform/Low.cpp: only 2 of 3 branches not reached: if (second")

    def testNoneOfTheAcceptedBranchesIsAnError(self):
        self.accept("Platform/Low.cpp | branches 2 | first(); | only another kernel does this\n")
        self.assertOneError(self.check(line(1, 1, edge(1), edge(1)))[1], "Low.cpp: reached, or gone: first();")

    def testBranchesThatDependOnTheMomentMayBeReachedOrNot(self):
        self.accept("Platform/Low.cpp | branches 0-2 | if (second | third) { | when two threads meet\n")
        self.assertEqual(self.check(self.half)[1], [])
        self.assertEqual(self.check(line(2, 1, edge(1), edge(1)))[1], [])

    def testNothingIsAcceptedInAnotherFile(self):
        self.accept("Platform/High.cpp | branches 2 | if (second | third) { | only another kernel does this\n")
        self.assertEqual(len(self.check(self.half)[1]), 2)

    def testWhatIsAcceptedNeedsItsReason(self):
        for bad in ("line | first(); |", "first(); | a reason", "branches | first(); | a", "branches 0 | first(); | a"):
            self.accept(f"Platform/Low.cpp | {bad}\n")
            self.assertOneError(self.check(line(1, 1))[1], "CoverageExceptions.txt:2: not ")


if __name__ == "__main__":
    unittest.main()
