"""CheckReference.py on made-up headers, with the real doxygen and the settings of this tree."""

import pathlib
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckReference

header = """#pragma once

// What is low.
namespace Low {

// It holds numbers. Any thread.
class Number {
  public:
    Number() = default;
    Number(const Number&) = default;
    // The square, 0 to 100.
    int Square() const;
    int bits = 0;  // all of them

  private:
    void Hidden();
};

}  // namespace Low
"""


class CommentsTest(unittest.TestCase):
    def testACommentBelongsToWhatFollowsAndOneBehindCodeToThatCode(self):
        text = CheckReference.forDoxygen("// a\n    //\n    int b;  // c\n    int d;  // NOLINT(x): y\n}  // namespace\n")
        self.assertEqual(text.splitlines()[:5], ["/// a", "    ///", "    int b;  ///< c", "    int d;  // NOLINT(x): y", "}  // namespace"])

    def testLinesStayWhereTheyAre(self):
        text = CheckReference.forDoxygen("  X(const X&) = default;\n  X& operator=(const X&) = default;\n  X(const X& other);\n")
        self.assertEqual(text.splitlines()[:3], ["", "", "  X(const X& other);"])


@unittest.skipUnless(shutil.which("doxygen"), "no doxygen here")
class CheckReferenceTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        self.put("Docs/Reference.md", "# Low things\n")
        self.put("Docs/Doxyfile", (MadeUpTree.root / "Docs/Doxyfile").read_text())
        self.put("Tools/PublicHeaders.txt", "# installed\nPlatform/libLow/Number.h\n")
        self.put("Platform/libLow/Private.h", "class Private { public: void Undocumented(); };\n")

    def errors(self, text):
        self.put("Platform/libLow/Number.h", text)
        return sorted(set(CheckReference.make(self.tree, self.tree / "out")))

    def testAPublicHeaderInWhichAllIsSaidHasNoError(self):
        self.assertEqual(self.errors(header), [])
        page = (self.tree / "out/classLow_1_1Number.html").read_text()
        self.assertIn("The square, 0 to 100.", page)
        self.assertIn("libLow/Number.h", page)
        self.assertIn("Low things", (self.tree / "out/index.html").read_text())

    def testAMethodWithoutAWordIsAnErrorAtItsLine(self):
        errors = self.errors(header.replace("    // The square, 0 to 100.\n", ""))
        self.assertOneError(errors, "Platform/libLow/Number.h:11", "Square() const", "is not documented")

    def testAMemberWithoutAWordIsAnError(self):
        self.assertOneError(self.errors(header.replace("  // all of them", "")), "bits")

    def testAClassWithoutAWordIsAnError(self):
        self.assertIn("Low::Number is not documented", str(self.errors(header.replace("// It holds numbers. Any thread.\n", ""))))

    def testAFunctionWithoutAWordIsAnError(self):
        self.assertOneError(self.errors(header.replace("\n}  // namespace", "\nint Free();\n\n}  // namespace")), "Free()")

    def testWhatDoxygenCanNotReadIsAnError(self):
        self.put("Docs/Doxyfile", "INPUT_ENCODING = NONSENSE\n")
        self.assertTrue(self.errors(header))

    def testTheOldReferenceIsGone(self):
        self.put("out/old.html")
        self.errors(header)
        self.assertFalse((self.tree / "out/old.html").exists())

    def testWithoutDoxygenTheCheckIsSkippedAndSaysSo(self):
        result = subprocess.run(
            (sys.executable, MadeUpTree.root / "Tools/CheckReference.py", self.tree, self.tree / "out"),
            capture_output=True, text=True, env={"PATH": str(self.tree)},
        )
        self.assertEqual(result.returncode, 77)
        self.assertIn("SKIPPED, no doxygen here", result.stdout)


if __name__ == "__main__":
    unittest.main()
