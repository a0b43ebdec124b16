"""The script ./run with made-up programs around it: what it calls, how it counts, and what it says when it can't."""

import pathlib
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "Support"))
import MadeUpTree

junit = '<?xml version="1.0"?>\n<testsuite name="x"\n\ttests="{}"\n\tfailures="{}"\n\tdisabled="{}"\n\tskipped="{}"\n\t>\n'


class RunTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        shutil.copy(MadeUpTree.root / "run", self.tree / "run")
        self.put("Tools/packages.txt", "# build\npresent\nabsent  # with a reason\n\nother\n")
        # Tells what it was called with; fails when a file fail-<name> is there.
        self.recorder = (
            '#!/bin/bash\nhere=$(dirname "$0")/..\nname=$(basename "$0")\n'
            'echo "$name $*" >> "$here/calls"\n[[ ! -e "$here/fail-$name" ]]\n'
        )
        for name in ("apt-get", "python3", "ninja", "cpack"):
            self.command(name)
        self.command("dpkg-query", '[[ ${@: -1} == present ]] && echo installed || echo none\n')
        self.command("id", "echo 0\n")
        self.command("setarch", "exit 1\n")
        self.command("cmake", 'if [[ $1 == --workflow ]]; then cp report-dev build/dev/junit.xml; exit "$(cat status-dev)"; fi\n')
        self.command("ctest", 'cp "report-$2" "build/$2/junit.xml"; exit "$(cat "status-$2")"\n')
        for preset in ("dev", "tsan", "release"):
            self.put(f"build/{preset}/.keep")
            self.report(preset, 10, 0, 0, 0)

    def command(self, name, text=""):
        self.put(f"bin/{name}", f"{self.recorder.rstrip()} || exit 1\n{text}", executable=True)

    def report(self, preset, tests, failures, disabled, skipped):
        self.put(f"report-{preset}", junit.format(tests, failures, disabled, skipped))
        self.put(f"status-{preset}", "1" if failures else "0")

    def run_(self, *arguments, path=None):
        result = subprocess.run(
            ("./run", *arguments), cwd=self.tree, capture_output=True, text=True,
            env={"PATH": path or f"{self.tree}/bin:/usr/bin:/bin"},
        )
        return result.returncode, result.stdout, result.stderr

    def calls(self):
        log = self.tree / "calls"
        return log.read_text().splitlines() if log.exists() else []

    def testAnUnknownCommandIsRefusedWithTheUsage(self):
        code, out, err = self.run_("everything")
        self.assertEqual((code, out), (2, ""))
        self.assertIn("run: unknown command everything\nusage: ./run <command>", err)

    def testNoCommandIsRefusedWithTheUsage(self):
        code, out, err = self.run_()
        self.assertEqual((code, out), (2, ""))
        self.assertIn("run: a command is missing\nusage: ./run <command>", err)

    def testAnUnknownPresetIsRefused(self):
        code, _, err = self.run_("build", "fast")
        self.assertEqual(code, 2)
        self.assertIn("run: unknown preset fast: one of dev tsan release coverage fuzz", err)

    def testArgumentsThatMeanNothingAreRefused(self):
        for command in ("test", "install", "coverage", "docs", "prove"):
            with self.subTest(command):
                self.assertEqual(self.run_(command, "more")[0], 2)

    def testHelpNamesEveryCommand(self):
        code, out, err = self.run_("help")
        self.assertEqual((code, err), (0, ""))
        for command in ("install", "build", "test", "demo", "bench", "prove", "fuzz", "coverage", "docs", "lint", "help"):
            self.assertRegex(out, rf"(?m)^  {command}\b")

    def testOnlyWhatIsMissingIsInstalled(self):
        self.assertEqual(self.run_("install")[0], 0)
        self.assertEqual(
            [call for call in self.calls() if call.startswith("apt-get")],
            ["apt-get update --quiet", "apt-get install --yes --quiet --no-install-recommends absent other"],
        )

    def testNothingIsAskedOfAptWhenNothingIsMissing(self):
        self.put("Tools/packages.txt", "present\n")
        code, out, _ = self.run_("install")
        self.assertEqual((code, out), (0, "install: nothing is missing\n"))
        self.assertFalse([call for call in self.calls() if call.startswith("apt-get")])

    def testSomebodyElseThanRootInstallsThroughSudo(self):
        self.command("id", "echo 1000\n")
        self.command("sudo", '"$@"\n')
        self.assertEqual(self.run_("install")[0], 0)
        self.assertIn("sudo apt-get update --quiet", self.calls())

    def testWithoutRootAndSudoTheMissingPackagesAreNamed(self):
        self.command("id", "echo 1000\n")
        for name in ("bash", "dirname", "basename", "nproc", "sed", "grep", "cat"):
            (self.tree / "bin" / name).symlink_to(shutil.which(name))
        code, _, err = self.run_("install", path=f"{self.tree}/bin")
        self.assertEqual(code, 1)
        self.assertIn("these packages are missing, and installing them needs root or sudo: absent other", err)

    def testThePackagesAreMadeOfWhatIsInstalledAndListed(self):
        self.command("cpack", "mkdir -p packages && touch packages/new.deb\n")
        self.put("build/release/packages/old.deb")
        code, out, _ = self.run_("package")
        self.assertEqual((code, out), (0, "build/release/packages/new.deb\n"))
        self.assertIn("cmake --build --preset release --target InstalledParts", self.calls())

    def testPackagesThatCanNotBeMadeFailTheCommand(self):
        self.put("fail-cpack")
        self.assertEqual(self.run_("package")[0], 1)

    def testTheSoakTakesMinutes(self):
        self.put("build/release/Tests/System/Soak", '#!/bin/bash\necho "soak $*"\n', executable=True)
        self.assertEqual(self.run_("soak", "2")[1], "soak 120\n")
        self.assertEqual(self.run_("soak")[1], "soak 600\n")
        self.assertEqual(self.run_("soak", "soon")[0], 2)

    def testPeersOfTheBenchmarkAreNotInstalledWithTheRest(self):
        self.put("Tools/packages.txt", "present\n# peers of ./run bench store\nabsent\n")
        self.assertEqual(self.run_("install")[1], "install: nothing is missing\n")

    def testTheBenchmarkBesideOthersInstallsThemAndPassesItsArguments(self):
        self.put("Tools/packages.txt", "other\n# peers of ./run bench store\nabsent\npresent\n")
        self.put("build/release/Tests/Bench/StoreBench", '#!/bin/bash\necho "store $*"\n', executable=True)
        code, out, _ = self.run_("bench", "store", "--workload", "ask")
        self.assertEqual((code, out.splitlines()[-1]), (0, "store --workload ask"))
        self.assertIn("apt-get install --yes --quiet --no-install-recommends absent", self.calls())

    def testTheBenchmarkBesideOthersRunsWithoutThoseThatCanNotBeInstalled(self):
        self.put("Tools/packages.txt", "# peers of ./run bench store\nabsent\n")
        self.put("build/release/Tests/Bench/StoreBench", '#!/bin/bash\necho "store $*"\n', executable=True)
        self.put("fail-apt-get")
        code, out, err = self.run_("bench", "store")
        self.assertEqual((code, out.splitlines()[-1]), (0, "store "))
        self.assertIn("bench: not installed: absent", err)

    def testWhatAptRefusesFailsTheCommand(self):
        self.put("fail-apt-get")
        self.assertEqual(self.run_("install")[0], 1)

    def testTheLastLineOfTestCountsAllStepsAndTests(self):
        self.report("dev", 100, 0, 1, 2)
        code, out, _ = self.run_("test")
        # 97 + 10 + 10 tests; install, the release build and lint are steps without tests of their own.
        self.assertEqual((code, out.splitlines()[-1]), (0, "120 passed, 0 failed, 3 skipped"))

    def testFailedTestsFailTheRun(self):
        self.report("tsan", 10, 2, 0, 1)
        code, out, _ = self.run_("test")
        self.assertEqual((code, out.splitlines()[-1]), (1, "30 passed, 2 failed, 1 skipped"))
        self.assertRegex(out, r"(?m)^tsan: tests of threads +FAILED")

    def testAStepThatFailsBeforeItsTestsCountsAsOneFailure(self):
        self.put("fail-ctest")
        code, out, _ = self.run_("test")
        self.assertEqual((code, out.splitlines()[-1]), (1, "13 passed, 2 failed, 0 skipped"))

    def testAReportOfAnEarlierRunIsNotCounted(self):
        self.put("build/tsan/junit.xml", junit.format(50, 0, 0, 0))
        self.put("fail-ctest")
        self.assertEqual(self.run_("test")[1].splitlines()[-1], "13 passed, 2 failed, 0 skipped")

    def testAStepWhoseTestsPassButWhichFailsIsAFailure(self):
        self.put("status-dev", "8")
        code, out, _ = self.run_("test")
        self.assertEqual((code, out.splitlines()[-1]), (1, "32 passed, 1 failed, 0 skipped"))

    def testAFailedStepDoesNotHideTheLaterOnes(self):
        self.put("fail-apt-get")
        code, out, _ = self.run_("test")
        self.assertEqual((code, out.splitlines()[-1]), (1, "32 passed, 1 failed, 0 skipped"))

    def proofs(self, tests, failed=False):
        storage = ("LocalEngineTest", "LocalEngineCrashTest", "LocalEngineMemoryTest", "TracksCrashTest", "TracksMemoryTest")
        system = ("SystemTest", "HostileTest", "FaultProxyTest")
        programs = [f"Unit/Storage/{name}" for name in storage] + [f"System/{name}" for name in system]
        for program in (*programs, "Conformance/FaultMatrixTest"):
            self.put(
                f"build/release/Tests/{program}",
                f'#!/bin/bash\necho "${{BRANTEL_PROVE:-short}}" >> calls\nprintf \'{tests}\' > "${{2#*xml:}}"\nexit {int(failed)}\n',
                executable=True,
            )
        self.put("Tests/Seeded/Run.py", '#!/bin/bash\necho "seeded $*" >> calls\necho "31 of 31 bugs are caught"\n', executable=True)
        self.put("Tests/Fuzz/RunMany.py", '#!/bin/bash\necho "fuzz $*" >> calls\necho "20000001 executions"\n', executable=True)

    def testProveCountsWhatTheProofsTried(self):
        self.proofs('<testsuite tests="2">\\n<property name="cycles" value="30"/>\\n<property name="cycles" value="12"/>\\n')
        code, out, _ = self.run_("prove")
        self.assertEqual(code, 0)
        self.assertRegex(out, r"(?m)^loss of power on xfs +42  ok ")
        self.assertEqual(self.calls().count("1"), 15)
        self.assertRegex(out, r"(?m)^seeded bugs +31  ok ")
        self.assertIn("seeded ", self.calls())
        self.assertRegex(out, r"(?m)^fuzzing, executions +20000001  ok ")

    def testTheShortFormOfProveTriesAsOftenAsTheTests(self):
        self.proofs('<testsuite tests="2">\\n')
        self.assertEqual(self.run_("prove", "--short")[0], 0)
        self.assertEqual(self.calls().count("short"), 15)
        self.assertIn("seeded --check", self.calls())
        self.assertNotIn("fuzz build/fuzz", self.calls())

    def testAProofThatRecordsNothingCountsItsTests(self):
        self.proofs('<testsuite tests="2">\\n<testcase name="a" />\\n<testcase name="b" />\\n')
        code, out, _ = self.run_("prove")
        self.assertEqual(code, 0)
        self.assertRegex(out, r"(?m)^hostile clients, limit by limit +2  ok ")

    def testABugThatIsNotCaughtFailsProve(self):
        self.proofs('<testsuite tests="2">\\n')
        self.put("Tests/Seeded/Run.py", '#!/bin/bash\necho "29 of 31 bugs are caught"\nexit 1\n', executable=True)
        code, out, _ = self.run_("prove")
        self.assertEqual(code, 1)
        self.assertRegex(out, r"(?m)^seeded bugs +29  FAILED")

    def testAProofThatFailsFailsProve(self):
        self.proofs('<testsuite tests="2">\\n', failed=True)
        code, out, _ = self.run_("prove")
        self.assertEqual(code, 1)
        self.assertRegex(out, r"(?m)^killed servers +0  FAILED")

    def testAProofWithoutTestsFailsProve(self):
        self.proofs('<testsuite tests="0">\\n')
        self.assertEqual(self.run_("prove")[0], 1)

    def testASkippedProofIsSaid(self):
        self.proofs('<testsuite tests="2">\\n<testcase result="skipped">\\n')
        code, out, _ = self.run_("prove")
        self.assertEqual(code, 0)
        self.assertRegex(out, r"(?m)^loss of power on ext4 +0  SKIPPED")
        self.assertIn("15 of these proofs were SKIPPED", out)

    def testAFindingOfFuzzingFailsProve(self):
        self.proofs('<testsuite tests="2">\\n')
        self.put("Tests/Fuzz/RunMany.py", '#!/bin/bash\necho "7 executions, 1 findings"\nexit 1\n', executable=True)
        code, out, _ = self.run_("prove")
        self.assertEqual(code, 1)
        self.assertRegex(out, r"(?m)^fuzzing, executions +7  FAILED")

    def testFindingsOfLintFailTheRun(self):
        self.put("fail-python3")
        code, out, _ = self.run_("test")
        self.assertEqual(code, 1)
        self.assertRegex(out, r"(?m)^lint +FAILED")


if __name__ == "__main__":
    unittest.main()
