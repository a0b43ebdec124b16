"""Installs the build to a prefix, moves the prefix, and builds and runs a program against it.

usage: InstallTest.py <build folder> <compiler>
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "Tests/Support"))
from ProgramCall import call

expected = "2.1.5 12.500000000 2 not connected\n"


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        first = cls.temporary / "first"
        call("cmake", "--install", build, "--prefix", first)
        cls.prefix = cls.temporary / "moved" / "elsewhere"
        cls.prefix.parent.mkdir()
        first.rename(cls.prefix)
        cls.include = cls.prefix / "include/brantel"

    def buildByCMake(self, name, *arguments):
        """The program, built by CMake in a folder of its own."""
        folder = self.temporary / name
        call(
            "cmake", "-G", "Ninja", "-S", root / "Tests/System/Install", "-B", folder,
            f"-DCMAKE_CXX_COMPILER={compiler}", *arguments,
        )
        call("cmake", "--build", folder)
        return folder / "InstalledClient"

    def testTheLibrariesHaveTheirNamesAndVersions(self):
        for name in ("libBrantelTime", "libBrantelServices", "libProtocolX"):
            library = self.prefix / f"lib/{name}.so.2.1.5"
            self.assertTrue(library.is_file() and not library.is_symlink(), library)
            self.assertEqual((self.prefix / f"lib/{name}.so.2").resolve(), library)
            self.assertEqual((self.prefix / f"lib/{name}.so").resolve(), library)
            self.assertIn(f"soname: [{name}.so.2]", call("readelf", "-d", library))

    def testEverythingFindsItsLibrariesBesideItself(self):
        binaries = [path for path in self.prefix.glob("lib/*.so.2.1.5")] + [*self.prefix.glob("bin/*")]
        for binary in binaries:
            path = re.search(r"RUNPATH.*\[(.*)\]", call("readelf", "-d", binary))
            self.assertIsNotNone(path, binary)
            self.assertTrue(all(part.startswith("$ORIGIN") for part in path.group(1).split(":")), path.group(0))
            ours = re.findall(r"(lib(?:Brantel|ProtocolX)\S*) => (.*) \(", call("ldd", binary))
            for library, place in ours:
                self.assertEqual(pathlib.Path(place).resolve().parent, self.prefix / "lib", library)

    def testTheHeadersAreThoseThatAreListed(self):
        listed = {
            line.partition("/")[2]
            for line in (root / "Tools/PublicHeaders.txt").read_text().splitlines()
            if line and not line.startswith("#")
        }
        generated = {
            f"libProtocolX/schema/{name}{suffix}"
            for name in ("CommonMessages", "BrantelStorageApiMessages") for suffix in (".proto", ".pb.h")
        }
        installed = {str(path.relative_to(self.include)) for path in self.include.rglob("*") if path.is_file()}
        self.assertEqual(installed, listed | generated)

    def testEachHeaderCanBeIncludedAlone(self):
        for header in sorted(self.include.rglob("*.h")):
            with self.subTest(header.name):
                call(
                    compiler, "-std=c++20", "-fsyntax-only", "-Wall", "-Werror", f"-I{self.include}",
                    f"-I{self.include}/libProtocolX/schema", "-x", "c++", "-", input=f"#include <{header}>\n",
                )

    def testNothingInstalledNamesThePlaceItWasBuiltOrFirstInstalledIn(self):
        for path in self.prefix.rglob("*"):
            if path.is_file() and path.suffix in (".cmake", ".pc"):
                text = path.read_text()
                self.assertNotIn(str(root), text, path)
                self.assertNotIn(str(self.temporary), text, path)

    def testAProgramBuiltByCMakeRunsFromTheMovedPrefix(self):
        program = self.buildByCMake("byCMake", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.assertEqual(call(program), expected)

    def testAProgramBuiltByPkgConfigRunsFromTheMovedPrefix(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.prefix / "lib/pkgconfig")}
        flags = call("pkg-config", "--cflags", "--libs", "protocolx", env=environment).split()
        program = self.temporary / "byPkgConfig"
        source = root / "Tests/System/Install/Client.cpp"
        call(compiler, "-std=c++20", source, *flags, "-o", program)
        self.assertEqual(call("pkg-config", "--modversion", "protocolx", env=environment), "2.1.5\n")
        self.assertEqual(call(program, env={**os.environ, "LD_LIBRARY_PATH": str(self.prefix / "lib")}), expected)

    def testTheProtocolLibraryCanBeBuiltOnAnInstalledPlatform(self):
        platform = self.temporary / "platform"
        protocol = self.temporary / "protocol"
        folder = self.temporary / "external"
        for component in ("Platform", "PlatformDevelopment"):
            call("cmake", "--install", build, "--prefix", platform, "--component", component)
        self.assertFalse([*platform.rglob("*ProtocolX*")])
        call(
            "cmake", "-G", "Ninja", "-S", root, "-B", folder, f"-DCMAKE_CXX_COMPILER={compiler}",
            "-DCMAKE_BUILD_TYPE=Debug", "-DBRANTEL_PLATFORM=external", "-DBRANTEL_TESTS=OFF",
            f"-DCMAKE_PREFIX_PATH={platform}",
        )
        call("cmake", "--build", folder, "--target", "ProtocolX", "RpcLinkProof")
        for component in ("ProtocolX", "ProtocolXDevelopment"):
            call("cmake", "--install", folder, "--prefix", protocol, "--component", component)
        self.assertEqual([path.name for path in protocol.glob("lib/*.so")], ["libProtocolX.so"])
        self.assertFalse((protocol / "include/brantel/libTime").exists())
        program = self.buildByCMake("onExternal", f"-DCMAKE_PREFIX_PATH={protocol};{platform}")
        self.assertEqual(call(program), expected)
        used = call("ldd", program)
        self.assertIn(f"=> {platform}/lib/libBrantelTime.so.2", used)
        self.assertIn(f"=> {protocol}/lib/libProtocolX.so.2", used)

    def testWithoutThePlatformTheBuildSaysWhatIsMissing(self):
        result = subprocess.run(
            ("cmake", "-G", "Ninja", "-S", root, "-B", self.temporary / "missing", "-DBRANTEL_PLATFORM=external"),
            capture_output=True, text=True,
        )
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("BrantelPlatform", result.stderr)


if __name__ == "__main__":
    build, compiler = pathlib.Path(sys.argv.pop(1)).resolve(), sys.argv.pop(1)
    unittest.main(verbosity=2)
