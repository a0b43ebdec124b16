"""CheckTests.py on made-up tests and pages."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckTests


class CheckTestsTest(MadeUpTree.MadeUpTree):
    def errors(self):
        return CheckTests.check(self.tree)

    def putTest(self, body, before=""):
        self.put("Tests/Unit/LowTest.cpp", f"{before}TEST(LowTest, ItIsLow) {{\n    {body}\n}}\n")

    def testATestThatAssertsHasNoError(self):
        for body in ("EXPECT_EQ(Low(), 0);", "ASSERT_TRUE(IsLow());", 'FAIL() << "high";'):
            with self.subTest(body):
                self.putTest(body)
                self.assertEqual(self.errors(), [])

    def testATestThatAssertsNothingIsAnError(self):
        self.putTest("Low();")
        self.assertOneError(self.errors(), "Tests/Unit/LowTest.cpp:1: LowTest.ItIsLow asserts nothing")

    def testAnAssertionInAnotherTestDoesNotCount(self):
        self.putTest("Low();", "TEST(LowTest, ItIs) {\n    EXPECT_EQ(Low(), 0);\n}\n\n")
        self.assertOneError(self.errors(), "LowTest.ItIsLow asserts nothing")

    def testAFunctionOfTheSourceMayAssert(self):
        self.putTest("ExpectLow();", "void ExpectLow() {\n    EXPECT_EQ(Low(), 0);\n}\n\n")
        self.assertEqual(self.errors(), [])

    def testAFunctionOnOneLineMayAssert(self):
        self.putTest("ExpectLow();", "void ExpectLow() { EXPECT_EQ(Low(), 0); }\n\n")
        self.assertEqual(self.errors(), [])

    def testAFunctionWithItsArgumentsOnSeveralLinesMayAssert(self):
        self.putTest("ExpectLow(1, 2);", "void ExpectLow(int first,\n               int second) {\n    EXPECT_EQ(first, 0);\n}\n\n")
        self.assertEqual(self.errors(), [])

    def testAFunctionThatCallsOneThatAssertsMayDoSo(self):
        self.putTest("ExpectAll();", "void ExpectLow() {\n    FAIL();\n}\n\nvoid ExpectAll() {\n    ExpectLow();\n}\n\n")
        self.assertEqual(self.errors(), [])

    def testAFunctionOfAFixtureMayAssertInTheSourceBesideItsHeader(self):
        self.put("Tests/Support/Fixture.h", "void ExpectLow();\n")
        self.put("Tests/Support/Fixture.cpp", "void ExpectLow() {\n    EXPECT_EQ(Low(), 0);\n}\n")
        self.putTest("ExpectLow();")
        self.assertOneError(self.errors(), "asserts nothing")
        self.putTest("ExpectLow();", '#include "Support/Fixture.h"\n\n')
        self.assertEqual(self.errors(), [])

    def testAPageNamesTestsThatExist(self):
        self.putTest("EXPECT_EQ(Low(), 0);")
        self.put("Tests/Unit/HighTest.py", "class HighTest(unittest.TestCase):\n    def testItIsHigh(self):\n        pass\n")
        self.put("Docs/Promise.md", "`LowTest`, `LowTest.ItIsLow`, `LowTest.It...Low`, `HighTest.testItIsHigh`, `LowTest.cpp`\n")
        self.assertEqual(self.errors(), [])

    def testAPageThatNamesATestThatDoesNotExistIsAnError(self):
        self.putTest("EXPECT_EQ(Low(), 0);")
        for name in ("LowTest.ItIsHigh", "HighTest", "HighTest.ItIsLow", "LowTest.It...High", "HighTest.cpp"):
            with self.subTest(name):
                self.put("Docs/Promise.md", f"Proved.\n\nBy `{name}`\n")
                self.assertOneError(self.errors(), "Docs/Promise.md:3: there is no test ", name.removesuffix(".cpp"))

    def testTheLastRunHasARowForEachProofAndNoOther(self):
        self.put("run", '    proof "loss of power on ${fileSystem,,}" x\n  counted "bugs" y\n')
        rows = "| Proof | Cycles |\n|---|---|\n| loss of power on ext4 | |\n| bugs | |\n"
        self.put("Docs/Promise.md", f"## The last run\n\n{rows}")
        self.assertEqual(self.errors(), [])
        self.put("Docs/Promise.md", f"## The last run\n\n{rows.replace('| bugs | |', '')}")
        self.assertOneError(self.errors(), "has no row for bugs")
        self.put("Docs/Promise.md", f"## The last run\n\n{rows}| killed cats | |\n")
        self.assertOneError(self.errors(), "./run prove has no proof killed cats")


if __name__ == "__main__":
    unittest.main()
