"""Every rule of CheckTree.py, shown to fail on a made-up tree that is otherwise in order."""

import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckTree

readme = "What it is.\n\n| folder | provides | may use |\n|---|---|---|\n"


class CheckTreeTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        self.put("README.md", "Start here; see Platform/README.md.\n")
        self.put("run", "#!/usr/bin/env bash\n", executable=True)
        self.put("Platform/README.md", readme + "| libLow | Low | nothing |\n")
        self.put("Platform/libLow/Low.h", "#pragma once\nclass Low {};\n")
        self.put("Platform/libLow/Low.cpp", '#include "Low.h"\n')
        self.put("Tests/README.md", readme + "| Unit | tests | everything |\n")
        self.put("Tests/Unit/Platform/libLow/LowTest.cpp", "// It is low.\n")

    def errors(self):
        return CheckTree.check(self.tree)

    def testATreeInOrderHasNoError(self):
        self.assertEqual(self.errors(), [])

    def testAnUnknownFileAtTheTopIsAnError(self):
        self.put("notes.txt", "x\n")
        self.assertOneError(self.errors(), "notes.txt: no place for it at the top of the tree")

    def testAnUnknownFolderAtTheTopIsAnError(self):
        self.put("Stuff/File.txt", "x\n")
        self.assertOneError(self.errors(), "Stuff/File.txt: unknown folder Stuff")

    def testAnUnknownRoomOfTheTestsIsAnError(self):
        self.put("Tests/README.md", readme + "| Unit | tests | everything |\n| Odd | | |\n")
        self.put("Tests/Odd/Data.txt", "x\n")
        self.assertOneError(self.errors(), "Tests/Odd/Data.txt: unknown folder Tests/Odd")

    def testAFolderForEverythingIsAnError(self):
        self.put("Platform/libLow/utils/Low.txt", "x\n")
        self.assertOneError(self.errors(), "Platform/libLow/utils: a name that says nothing")

    def testAFileForEverythingIsAnError(self):
        self.put("Platform/libLow/Common.h", "class Common {};\n")
        self.assertOneError(self.errors(), "Platform/libLow/Common.h: a name that says nothing")

    def testAHeaderDeclaresWhatItIsNamedAfter(self):
        self.put("Platform/libLow/High.h", "class Other {};\n")
        self.assertOneError(self.errors(), "Platform/libLow/High.h: declares no High")

    def testAHeaderOfTypesHoldsSeveral(self):
        self.put("Platform/libLow/LowTypes.h", "struct A {};\nstruct B {};\n")
        self.assertEqual(self.errors(), [])
        self.put("Platform/libLow/LowTypes.h", "struct A {};\n")
        self.assertOneError(self.errors(), "LowTypes.h: declares no LowTypes")

    def testAHeaderOfFunctionsHasTheNameOfWhatTheyDo(self):
        self.put("Platform/libLow/Lowering.h", "struct Other;\nvoid Lower(Other&);\n")
        self.assertEqual(self.errors(), [])

    def testASourceBelongsToAHeaderOfItsName(self):
        self.put("Platform/libLow/High.cpp", "int x;\n")
        self.assertOneError(self.errors(), "Platform/libLow/High.cpp: no header in Platform/libLow")

    def testASourceMaySplitAClass(self):
        self.put("Platform/libLow/LowParsing.cpp", '#include "Low.h"\n')
        self.assertEqual(self.errors(), [])

    def testALongSourceIsAnError(self):
        self.put("Platform/libLow/Low.cpp", "int x;\n" * 801)
        self.assertOneError(self.errors(), "Platform/libLow/Low.cpp: 801 lines, the limit is 800")

    def testTwoRowsForAFolderAreAnError(self):
        self.put("Platform/README.md", readme + "| libLow | Low | nothing |\n| libLow | Low again | nothing |\n")
        self.assertOneError(self.errors(), "Platform/README.md: 2 rows for libLow")

    def testACommandThatRunDoesNotHaveIsAnError(self):
        self.put("run", "#!/usr/bin/env bash\ncat <<'TEXT'\n  build [preset]   build\nTEXT\n", executable=True)
        self.put("README.md", "Try `./run build`, then ./run everything.\n")
        self.assertOneError(self.errors(), "README.md:1: ./run has no command everything")

    def testALongFunctionOfAScriptIsAnError(self):
        self.put("Tools/Low.py", "def low():\n" + "    pass\n\n" * 51 + "\n\ndef high():\n    pass\n")
        self.assertOneError(self.errors(), "Tools/Low.py:1: a function of 101 lines, the limit is 100")
        self.put("Tools/Low.py", "def low():\n" + "    pass\n" * 98 + "\n\ndef high():\n    pass\n")
        self.put("run", "#!/usr/bin/env bash\nlow() {\n" + "  true\n" * 101 + "}\n", executable=True)
        self.assertOneError(self.errors(), "run:2: a function of 101 lines, the limit is 100")

    def testALargeFileIsAnError(self):
        self.put("Tests/Unit/Platform/libLow/Low.bin", "x" * (1 << 20) + "\n")
        self.assertOneError(self.errors(), "Low.bin: 1048577 bytes, the limit is 1048576")

    def testAnAreaNeedsAReadme(self):
        self.put("Storage/libDeep/Deep.h", "class Deep {};\n")
        self.assertOneError(self.errors(), "Storage: no README.md")

    def testAReadmeNeedsItsTable(self):
        self.put("Platform/README.md", "What it is.\n")
        self.assertOneError(self.errors(), "Platform/README.md: no table")

    def testAReadmeHasARowForEachFolder(self):
        self.put("Platform/libNew/New.h", "class New {};\n")
        self.assertOneError(self.errors(), "Platform/README.md: no row for libNew")

    def testAReadmeHasNoRowForAFolderThatIsGone(self):
        self.put("Platform/README.md", readme + "| libLow | Low | nothing |\n| `libGone/` | x | y |\n")
        self.assertOneError(self.errors(), "Platform/README.md: a row for libGone, which does not exist")

    def testAUnitTestMirrorsThePathOfWhatItTests(self):
        self.put("Tests/Unit/Platform/LowTest.cpp", "// x\n")
        self.assertOneError(self.errors(), "nothing in Platform begins its name")

    def testAUnitTestOfAFolderThatIsNotThereIsAnError(self):
        self.put("Tests/Unit/Rpc/LowTest.cpp", "// x\n")
        self.assertOneError(self.errors(), "there is no folder Rpc for it to test")

    def testAUnitTestIsNamedATest(self):
        self.put("Tests/Unit/Platform/libLow/Low.cpp", "// x\n")
        self.assertOneError(self.errors(), "a unit test is named <what it tests>Test")

    def testAScriptIsExecutable(self):
        self.put("run", "#!/usr/bin/env bash\n")
        self.assertOneError(self.errors(), "run: begins with #! and is not executable")

    def testOnlyAScriptIsExecutable(self):
        self.put("Platform/libLow/Low.cpp", "int x;\n", executable=True)
        self.assertOneError(self.errors(), "Low.cpp: executable and does not begin with #!")

    def testASymbolicLinkIsAnError(self):
        (self.tree / "Platform/libLow/Link.txt").symlink_to("Low.h")
        self.assertOneError(self.errors(), "Platform/libLow/Link.txt: a symbolic link")

    def testAPathOfOneMachineIsAnError(self):
        for path in ("/ho" + "me/me/x", "(/ro" + "ot/x)", '"/wo' + 'rk/x"'):
            with self.subTest(path):
                self.put("Platform/libLow/Low.cpp", f"// see {path}\n")
                self.assertOneError(self.errors(), "Low.cpp:1: a path of one machine")

    def testAPathBelowAnotherFolderIsNone(self):
        self.put("Platform/libLow/Low.cpp", "// ${HOME}/wo" + "rk/x and a/ro" + "ot/x\n")
        self.assertEqual(self.errors(), [])

    def testALooseEndIsAnError(self):
        self.put("Platform/libLow/Low.cpp", "\n// TO" + "DO: more\n")
        self.assertOneError(self.errors(), "Low.cpp:2: unfinished")

    def testAPaperThatIsNotInTheTreeIsAnError(self):
        for text in ("as the sp" + "ec says", "Par" + "t 2.1", "iss" + "ue 12", "see iss" + "ue #3"):
            with self.subTest(text):
                self.put("Platform/libLow/Low.cpp", f"// {text}\n")
                self.assertOneError(self.errors(), "speaks of a paper that is not in the tree")

    def testADocumentThatIsNamedMustExist(self):
        self.put("README.md", "See Docs/Gone.md.\n")
        self.assertOneError(self.errors(), "README.md:1: there is no Docs/Gone.md")

    def testALongCommentIsAnError(self):
        self.put("Platform/libLow/Low.cpp", "    // " + "x" * 94 + "\n")
        self.assertOneError(self.errors(), "a comment of 101 columns, the limit is 100")

    def testBlanksAtTheEndOfALineAreAnError(self):
        self.put("Platform/libLow/Low.cpp", "int x; \n")
        self.assertOneError(self.errors(), "Low.cpp:1: blanks at the end of the line")

    def testALastLineThatDoesNotEndIsAnError(self):
        self.put("Platform/libLow/Low.cpp", "int x;")
        self.assertOneError(self.errors(), "Low.cpp: the last line does not end")

    def testWhatGitIgnoresDoesNotCount(self):
        subprocess.run(("git", "init", "--quiet", self.tree), check=True)
        self.put(".gitignore", "/scratch/\n")
        self.put("scratch/notes.txt", "x\n")
        self.assertEqual(self.errors(), [])

    def testWhatGitCouldTakeCounts(self):
        subprocess.run(("git", "init", "--quiet", self.tree), check=True)
        self.put("notes.txt", "x\n")
        self.assertOneError(self.errors(), "notes.txt: no place for it at the top of the tree")


if __name__ == "__main__":
    unittest.main()
