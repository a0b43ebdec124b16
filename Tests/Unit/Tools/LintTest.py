"""Lint.py with the real clang-tidy and the real settings: sources with a fault of each kind that it must find.

usage: LintTest.py <the module LintScope>
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

module = None
clean = "int Twice(int number) { return 2 * number; }\n"

# What the ordinary checks find, in products and tests.
ordinary = {
    "bugprone-use-after-move":
        "std::string Moved(std::string text) {\n    std::string other = std::move(text);\n    return text + other;\n}\n",
    "bugprone-narrowing-conversions": "int Narrow(double value) {\n    int result = 0;\n    result += value;\n    return result;\n}\n",
    "concurrency-thread-canceltype-asynchronous":
        "void Cancel() { pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr); }\n",
    "misc-unused-using-decls": "using std::vector;\n",
    "modernize-use-override":
        "struct Base {\n    virtual ~Base() = default;\n    virtual int Number();\n};\n"
        "struct Derived : Base {\n    virtual int Number();\n};\n",
    "performance-for-range-copy":
        "std::size_t Sum(const std::list<std::string>& texts) {\n    std::size_t sum = 0;\n"
        "    for (const std::string text : texts) {\n        sum += text.size();\n    }\n    return sum;\n}\n",
    "readability-identifier-naming": "void badName() {}\n",
    "readability-function-size": "void Long(int* number) {\n" + "    ++*number;\n" * 101 + "}\n",
    "readability-function-cognitive-complexity":
        "int Nested(int number) {\n    int sum = 0;\n" + "".join(
            "    " * depth + f"for (int i{depth} = 0; i{depth} < number; ++i{depth}) {{\n" for depth in range(1, 8))
        + "    " * 8 + "++sum;\n" + "".join("    " * depth + "}\n" for depth in range(7, 0, -1)) + "    return sum;\n}\n",
}
# What the static analyzer finds, in products.
analyzed = {
    "clang-analyzer-core.NullDereference":
        "int Null(const int* pointer) {\n    if (pointer == nullptr) {\n        return *pointer;\n    }\n    return 0;\n}\n",
    "clang-analyzer-core.DivideZero":
        "int Divided(int number) {\n    int divisor = number;\n    if (divisor == 0) {\n        return 7 / divisor;\n    }\n"
        "    return divisor;\n}\n",
    "clang-analyzer-core.uninitialized.UndefReturn":
        "int NotSet(int choice) {\n    int value;\n    if (choice > 3) {\n        value = 1;\n    }\n    return value;\n}\n",
    "clang-analyzer-cplusplus.NewDelete":
        "int Freed() {\n    int* number = new int(3);\n    delete number;\n    return *number;\n}\n",
    "clang-analyzer-cplusplus.InnerPointer":
        "char Inner(std::string text) {\n    const char* inner = text.c_str();\n    text.clear();\n    return *inner;\n}\n",
    "clang-analyzer-deadcode.DeadStores":
        "int Stored(int number) {\n    int twice = 3 * number;\n    twice = 2 * number;\n    return twice;\n}\n",
    "clang-analyzer-unix.Malloc":
        "int Leaked(bool early) {\n    void* room = std::malloc(8);\n    if (early) {\n        return 1;\n    }\n"
        "    std::free(room);\n    return 0;\n}\n",
}
headers = "#include <pthread.h>\n\n#include <cstdlib>\n#include <list>\n#include <string>\n#include <utility>\n#include <vector>\n\n"
# One path of 8192 leads to the fault.
hidden = (
    "int Hidden(unsigned bits) {\n    const int* pointer = nullptr;\n    int count = 0;\n"
    + "".join(f"    if ((bits & {1 << bit}U) != 0) {{\n        ++count;\n    }}\n" for bit in range(13))
    + "    if (count == 13) {\n        return *pointer;\n    }\n    return 0;\n}\n"
)


class LintTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        for name in (".clang-format", ".clang-tidy", "Tests/.clang-tidy", "Tools/Lint.py"):
            self.put(name, (MadeUpTree.root / name).read_text())
        self.put("build/Tools/.keep")
        shutil.copy(module, self.tree / "build/Tools/LintScope.so")
        self.put(".gitignore", "build/\nmemory/\n")
        subprocess.run(("git", "init", "--quiet"), cwd=self.tree, check=True)
        self.commands = []

    def source(self, name, text):
        path = self.put(name, text)
        subprocess.run(("clang-format-14", "-i", str(path)), check=True)
        if name.endswith(".cpp"):
            command = f"/usr/bin/g++ -std=c++20 -Wall -Werror -I{self.tree} -o {name}.o -c {path}"
            self.commands.append({"directory": str(self.tree), "file": str(path), "command": command})

    def lint(self, *arguments):
        """(exit status, the names of the checks that found something, the last line)"""
        self.put("build/compile_commands.json", json.dumps(self.commands))
        result = subprocess.run(
            ("python3", "Tools/Lint.py", *arguments, "build"), cwd=self.tree, capture_output=True, text=True,
            env={**os.environ, "XDG_CACHE_HOME": str(self.tree / "memory")},
        )
        self.output = result.stdout + result.stderr
        checks = re.findall(r"\[([\w.-]+),-warnings-as-errors\]", result.stdout)
        return result.returncode, sorted(checks), self.output.splitlines()[-1]

    def testEachKindOfFaultIsFoundInAProduct(self):
        self.source("Apps/Faults.cpp", headers + "\n".join([*ordinary.values(), *analyzed.values()]))
        code, checks, last = self.lint("--product")
        self.assertEqual((code, checks), (1, sorted([*ordinary, *analyzed])), self.output)
        self.assertIn(f": {len(ordinary) + len(analyzed)} findings", last)

    def testATestsSourceIsLeftToTheOrdinaryChecks(self):
        self.source("Tests/Faults.cpp", headers + "\n".join([*ordinary.values(), *analyzed.values()]))
        self.assertEqual(self.lint()[:2], (1, sorted(ordinary)), self.output)

    def testWithProductTheTestsAreNotLookedAt(self):
        self.source("Tests/Faults.cpp", ordinary["readability-identifier-naming"])
        self.assertEqual(self.lint("--product")[:2], (0, []), self.output)

    def testAFaultInAHeaderOfTheTreeIsFound(self):
        self.source("Apps/Named.h", "#pragma once\n\n" + ordinary["readability-identifier-naming"].replace("void", "inline void"))
        self.source("Apps/Main.cpp", '#include "Apps/Named.h"\n\nint main() { badName(); }\n')
        self.assertEqual(self.lint()[:2], (1, ["readability-identifier-naming"]), self.output)

    def testOnlyTheDeepSearchFollowsThousandsOfPaths(self):
        self.source("Apps/Hidden.cpp", hidden)
        self.assertEqual(self.lint()[:2], (0, []), self.output)
        self.assertEqual(self.lint("--deep")[:2], (1, ["clang-analyzer-core.NullDereference"]), self.output)

    def testACleanSourceIsRememberedAndAFaultyOneIsNot(self):
        self.source("Apps/Clean.cpp", clean)
        self.source("Apps/Faults.cpp", ordinary["readability-identifier-naming"])
        self.assertIn("2 sources checked, 0 clean as before", self.lint()[2])
        self.assertIn("1 sources checked, 1 clean as before, 0 not touched: 1 findings", self.lint()[2])

    def testASourceThatNothingCompilesIsAFinding(self):
        self.source("Apps/Clean.cpp", clean)
        self.commands.clear()
        self.assertEqual(self.lint()[0], 1)
        self.assertIn("Apps/Clean.cpp: none of the build folders compiles it", self.output)

    def testAWarningThatOnlyClangHasIsNoFinding(self):
        self.source("Tests/Unused.cpp", "static void Unused() {}\n")
        self.assertEqual(self.lint()[:2], (0, []), self.output)

    def testAModuleThatCannotBeLoadedIsAnError(self):
        self.source("Apps/Clean.cpp", clean)
        (self.tree / "build/Tools/LintScope.so").write_text("no module")
        self.assertEqual(self.lint()[0], 1)
        self.assertIn("clang-tidy-14 does not load", self.output)

    def testWithoutTheModuleItSaysWhatToDo(self):
        self.source("Apps/Clean.cpp", clean)
        (self.tree / "build/Tools/LintScope.so").unlink()
        self.assertEqual(self.lint()[0], 1)
        self.assertIn("LintScope.so is not there: ./run install, then build the target LintScope", self.output)


if __name__ == "__main__":
    module = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()
