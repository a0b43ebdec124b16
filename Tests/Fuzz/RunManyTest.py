"""RunMany.py with made-up targets: how it shares the executions out, counts them and tells of findings."""

import pathlib
import re
import shutil
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "Support"))
import MadeUpTree

fuzz = pathlib.Path(__file__).resolve().parent
# Says that it did what it was told to, or fewer, and notes its arguments.
target = """#!/bin/bash
echo "$(basename "$0") $*" >> "$(dirname "$0")/calls"
for word in "$@"; do [[ $word != -runs=* ]] || runs=${word#-runs=}; done
echo "stat::number_of_executed_units: $((runs - ${MISSING:-0}))" >&2
exit ${CODE:-0}
"""


class RunManyTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        (self.tree / "Tests/Fuzz").mkdir(parents=True)
        shutil.copy(fuzz / "RunMany.py", self.tree / "Tests/Fuzz/RunMany.py")
        self.put("Tests/Fuzz/MakeSeeds.py", "")
        for name in ("MjpegSplitterFuzz", "ResponseFuzz"):
            self.put(f"build/Tests/Fuzz/{name}", target, executable=True)

    def run_(self, *arguments, **variables):
        done = subprocess.run(
            (sys.executable, "-B", self.tree / "Tests/Fuzz/RunMany.py", *arguments, self.tree / "build",
             "MjpegSplitterFuzz", "ResponseFuzz"),
            capture_output=True, text=True, env={"PATH": "/usr/bin:/bin", **variables},
        )
        return done.returncode, done.stdout

    def calls(self):
        return (self.tree / "build/Tests/Fuzz/calls").read_text()

    def testEveryTargetHasItsShare(self):
        sys.path.insert(0, str(fuzz))
        import RunMany

        declared = re.findall(r"(?m)^brantel_fuzz\(NAME (\w+)", (fuzz / "CMakeLists.txt").read_text())
        self.assertEqual(sorted(RunMany.targets), sorted(declared))
        self.assertEqual(sum(target.share for target in RunMany.targets.values()), 10_000)

    def testNoShareIsForShowOnly(self):
        sys.path.insert(0, str(fuzz))
        import RunMany

        shares = RunMany.sharesOf(RunMany.targets, RunMany.wanted)
        self.assertGreaterEqual(sum(shares.values()), 20_000_000)
        self.assertGreaterEqual(shares.pop("LocalStoreFuzz"), 5_000)
        self.assertGreaterEqual(min(shares.values()), 50_000)

    def testExecutionsAreSummed(self):
        code, out = self.run_("--executions", "1000")
        self.assertEqual(code, 0)
        self.assertRegex(out, r"(?m)^100[01] executions, 0 findings, in \d+ s$")

    def testAFindingIsAFailureAndShown(self):
        code, out = self.run_(CODE="77")
        self.assertEqual(code, 1)
        self.assertIn("MjpegSplitterFuzz: ended with 77\nstat::", out)
        self.assertIn("executions, 2 findings", out)

    def testFewerExecutionsThanWantedAreAFailure(self):
        code, out = self.run_("--executions", "1000", MISSING="10")
        self.assertEqual(code, 1)
        self.assertIn(" executions, 0 findings", out)

    def testADictionaryIsUsedWhereThereIsOne(self):
        self.put("Tests/Fuzz/ResponseFuzz.dict", '"a"\n')
        self.run_("--executions", "1000")
        self.assertRegex(self.calls(), r"(?m)^ResponseFuzz .* -dict=\S+/ResponseFuzz.dict ")
        self.assertNotRegex(self.calls(), r"(?m)^MjpegSplitterFuzz .* -dict=")


if __name__ == "__main__":
    MadeUpTree.unittest.main()
