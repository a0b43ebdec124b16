"""CheckPackages.py on made-up scripts and caches; what belongs to which package is asked of the real system."""

import pathlib
import shutil
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckPackages


class CheckPackagesTest(MadeUpTree.MadeUpTree):
    def commands(self, text):
        return CheckPackages.commandsOf(text)

    def testEachCommandOfALineIsSeen(self):
        self.assertEqual(self.commands("first a | second b && third; fourth\n"), {"first", "second", "third", "fourth"})

    def testCommandsBehindWordsOfTheShellAreSeen(self):
        self.assertEqual(self.commands("if ! first a; then second; fi\n"), {"first", "second", "fi"})

    def testCommandsInsideATextAreSeen(self):
        self.assertEqual(self.commands('x="$(first a)"\n'), {"first"})

    def testACommandBehindAVariableIsSeen(self):
        self.assertEqual(self.commands('"${asRoot[@]}" first second\n'), {"first"})

    def testCommentsTextsAndArgumentsAreNoCommands(self):
        self.assertEqual(self.commands("# first\ncat <<'END'\nsecond\nEND\nx='third; fourth'\n"), {"cat"})

    def testAPythonScriptNamesProgramsInCallsAndConstants(self):
        text = 'tool = "clang-x"\nrun(("git", "status"))\nask("dpkg", "x")\nx = table["file"]\n'
        self.assertEqual(CheckPackages.programsOf(text), {"clang-x", "git", "dpkg"})


@unittest.skipUnless(shutil.which("dpkg"), "no dpkg here")
class CheckPackagesOnThisSystemTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        self.put("Tools/packages.txt", "cmake\nninja-build\n")
        self.put("run", "#!/usr/bin/env bash\ncmake --version | sed p\n")
        self.put("build/CMakeCache.txt", "CMAKE_MAKE_PROGRAM:FILEPATH=/usr/bin/ninja\nX:INTERNAL=/usr\n")

    def errors(self):
        return CheckPackages.errorsOf(self.tree, self.tree / "build")

    def testAListThatCoversEverythingHasNoError(self):
        self.assertEqual(self.errors(), [])

    def testWhatCMakeFoundMustBeListed(self):
        self.put("Tools/packages.txt", "cmake\n")
        self.assertOneError(self.errors(), "CMake, CMAKE_MAKE_PROGRAM: /usr/bin/ninja is brought by ninja-build")

    def testWhatAScriptStartsMustBeListed(self):
        self.put("Tools/packages.txt", "ninja-build\n")
        self.assertOneError(self.errors(), "run: /usr/bin/cmake is brought by cmake")

    def testWhatAPythonScriptStartsMustBeListed(self):
        self.put("Tools/Some.py", 'subprocess.run(("clang-format-14",))\n')
        self.assertOneError(self.errors(), "Tools/Some.py: /usr/bin/clang-format-14 is brought by clang-format-14")

    def testAFileOfNoPackageIsAnError(self):
        foreign = self.put("elsewhere/tool", "")
        self.put("tree/build/CMakeCache.txt", f"TOOL:FILEPATH={foreign}\n")
        self.put("tree/Tools/packages.txt", "cmake\n")
        errors = CheckPackages.errorsOf(self.tree / "tree", self.tree / "tree/build")
        self.assertOneError(errors, "CMake, TOOL:", "belongs to no package")

    def testAListedPackageThatIsNotInstalledIsAnError(self):
        self.put("Tools/packages.txt", "cmake\nninja-build\nno-such-package\n")
        self.assertOneError(self.errors(), "no-such-package is not installed")

    def testPeersOfTheBenchmarkCoverWhatIsFoundAndNeedNotBeThere(self):
        self.put("Tools/packages.txt", f"cmake\n{CheckPackages.peersHead}: more\nninja-build\nno-such-package\n")
        self.assertEqual(self.errors(), [])


if __name__ == "__main__":
    unittest.main()
