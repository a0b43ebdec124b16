"""The bugs that are kept as patches still fit the tree, and Run.py, which tries them, tells which were noticed."""

import pathlib
import shutil
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "Support"))
import MadeUpTree

seeded = pathlib.Path(__file__).resolve().parent
patch = """Bug: It is bad
Cost: everything
Test: SmallTest Small.*

--- a/Value.txt
+++ b/Value.txt
@@ -1 +1 @@
-good
+bad
"""
# Builds a test program that passes with "good" and fails with what it is told to fail with.
cmake = """#!/bin/bash
[[ $1 == --build ]] || exit 0
[[ $(cat Value.txt) != "$UNBUILDABLE" ]] || { echo "error: no such thing"; exit 1; }
mkdir -p build/release/Tests
cat >build/release/Tests/SmallTest <<END
#!/bin/bash
echo "[ RUN      ] Small.Value"
[[ $(cat Value.txt) != "$CRASHING" ]] || kill -SEGV \\$\\$
[[ $(cat Value.txt) != "$FAILING" ]] && echo "[       OK ] Small.Value (0 ms)" || echo "[  FAILED  ] Small.Value (0 ms)"
END
chmod +x build/release/Tests/SmallTest
"""


class SeededBugsTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        for name in ("Tools/Tree.py", "Tests/Seeded/Run.py"):
            (self.tree / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(MadeUpTree.root / name, self.tree / name)
        self.put("Value.txt", "good\n")
        self.put("Tests/CMakeLists.txt", "brantel_test(NAME SmallTest SOURCES SmallTest.cpp)\n")
        self.put("Tests/SmallTest.cpp", "TEST(Small, Value) {}\n")
        self.put("Tests/Seeded/ItIsBad.patch", patch)
        self.put("bin/cmake", cmake, executable=True)

    def run_(self, *arguments, **variables):
        done = subprocess.run(
            (sys.executable, "-B", self.tree / "Tests/Seeded/Run.py", *arguments), capture_output=True, text=True,
            env={"PATH": f"{self.tree}/bin:/usr/bin:/bin", **variables},
        )
        return done.returncode, done.stdout

    def testEveryBugFitsTheTreeAndNamesTestsThatExist(self):
        done = subprocess.run((sys.executable, "-B", seeded / "Run.py", "--check"), capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)

    def testThereAreThirtyBugsOfEveryArea(self):
        texts = [path.read_text() for path in seeded.glob("*.patch")]
        self.assertGreaterEqual(len(texts), 30)
        for area in ("Platform", "Rpc", "Storage", "Apps"):
            self.assertGreaterEqual(sum(f"+++ b/{area}/" in text for text in texts), 4, area)

    def testABugThatATestNoticesIsCaughtByIt(self):
        code, out = self.run_(FAILING="bad")
        self.assertEqual(code, 0)
        self.assertIn("| It is bad | everything | `Small.Value` |", out)
        self.assertIn("1 of 1 bugs are caught", out)

    def testATestThatEndsItsProgramHasNoticedIt(self):
        code, out = self.run_(CRASHING="bad")
        self.assertEqual(code, 0)
        self.assertIn("ItIsBad: `Small.Value`", out)

    def testABugThatNoTestNoticesIsAFailure(self):
        code, out = self.run_()
        self.assertEqual(code, 1)
        self.assertIn("ItIsBad: all tests pass", out)
        self.assertIn("0 of 1 bugs are caught", out)

    def testABugThatDoesNotBuildIsNotCaught(self):
        code, out = self.run_(UNBUILDABLE="bad", FAILING="bad")
        self.assertEqual(code, 1)
        self.assertIn("ItIsBad: it does not build:\nerror: no such thing", out)

    def testATestThatFailsWithoutABugProvesNothing(self):
        code, out = self.run_(FAILING="good")
        self.assertEqual(code, 1)
        self.assertIn("SmallTest Small.*: fails without a bug: Small.Value", out)

    def testTheTreeItselfIsNotTouchedAndTheCopyHealed(self):
        self.run_(FAILING="bad")
        self.assertEqual((self.tree / "Value.txt").read_text(), "good\n")
        self.assertEqual((self.tree / "build/seeded/tree/Value.txt").read_text(), "good\n")

    def testAPatchThatDoesNotFitAnyMoreIsNamed(self):
        self.put("Value.txt", "better\n")
        for options in ((), ("--check",)):
            code, out = self.run_(*options)
            self.assertEqual(code, 1)
            self.assertIn("ItIsBad: error: patch failed: Value.txt:1", out)

    def testATestThatIsGoneIsNamed(self):
        self.put("Tests/SmallTest.cpp", "TEST(Large, Value) {}\n")
        code, out = self.run_("--check")
        self.assertEqual(code, 1)
        self.assertIn("ItIsBad: no test is named Small.*", out)


if __name__ == "__main__":
    MadeUpTree.unittest.main()
