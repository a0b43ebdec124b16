"""Installs the Debian packages into a root of their own, starts the server from there, and builds the client of the
README against the installed library.

usage: PackageTest.py <folder of the packages> <compiler>

Exit status 77 when there are no packages: ./run package makes them.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "Tests/Support"))
from ProgramCall import call

version = "2.1.5"
names = ("libprotocolx2", "libprotocolx-dev", "brantel-storage")
skipped = 77


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(dir="/var/tmp")))
        cls.root = cls.temporary / "root"
        for name in names:
            call("dpkg-deb", "-x", packages[name], cls.root)
        cls.libraries = cls.root / "usr/lib"

    def filesOf(self, name):
        lines = call("dpkg-deb", "-c", packages[name]).splitlines()
        return {line.split()[5].removeprefix(".") for line in lines if not line.startswith("d")}

    def field(self, name, key):
        return call("dpkg-deb", "-f", packages[name], key).strip()

    def testEachPackageSaysWhatItIs(self):
        for name in names:
            self.assertEqual(self.field(name, "Package"), name)
            self.assertEqual(self.field(name, "Version"), f"{version}-1")
            self.assertEqual(self.field(name, "Architecture"), call("dpkg", "--print-architecture").strip())
            self.assertTrue(self.field(name, "Description"))

    def testWhatThePackagesNeedIsFound(self):
        needed = {
            "libprotocolx2": ("libc6", "libstdc++6", "libprotobuf32"),
            "libprotocolx-dev": (f"libprotocolx2 (= {version}-1)", "libprotobuf-dev"),
            "brantel-storage": (
                f"libprotocolx2 (= {version}-1)", "libsqlite3-0", "libxxhash0", "libcpp-httplib0.11",
                "libprometheus-cpp-core1.0", "systemd",
            ),
        }
        for name, packagesNeeded in needed.items():
            depends = self.field(name, "Depends")
            for package in packagesNeeded:
                self.assertIn(package, depends, name)

    def testEachFileIsInOnePackage(self):
        seen = {}
        for name in names:
            for file in self.filesOf(name):
                self.assertNotIn(file, seen)
                seen[file] = name
        self.assertEqual(seen[f"/usr/lib/libProtocolX.so.{version}"], "libprotocolx2")
        self.assertEqual(seen["/usr/lib/libProtocolX.so"], "libprotocolx-dev")
        self.assertEqual(seen["/usr/include/brantel/libProtocolX/StorageClientX.h"], "libprotocolx-dev")
        self.assertEqual(seen["/usr/bin/brantel-storaged"], "brantel-storage")
        self.assertEqual(seen["/usr/bin/brantel"], "brantel-storage")
        self.assertEqual(seen["/lib/systemd/system/brantel-storaged.service"], "brantel-storage")
        self.assertEqual(seen["/etc/brantel/storage.toml"], "brantel-storage")

    def testNothingNamesThePlaceItWasBuiltIn(self):
        for path in self.root.rglob("*"):
            if path.is_file():
                self.assertNotIn(str(root).encode(), path.read_bytes(), path)

    def testTheSettingsAreThoseOfAPackagedServer(self):
        settings = self.root / "etc/brantel/storage.toml"
        shown = call(self.root / "usr/bin/brantel-storaged", "--config", settings, "--check-config")
        self.assertRegex(shown, r"(?m)^data\b.*/var/lib/brantel")
        self.assertRegex(shown, r"(?m)^listen\b.*unix:/run/brantel/storage\.sock")

    def readme(self):
        """The client of the README, as a file."""
        text = re.search(r"```cpp\n(.*?)```", (root / "README.md").read_text(), re.DOTALL).group(1)
        source = self.temporary / "Client.cpp"
        source.write_text(text)
        return source

    def ask(self, program):
        """What the client says to a server that runs from the installed files."""
        place = pathlib.Path(tempfile.mkdtemp(dir=self.temporary))
        ready, hand = os.pipe()
        environment = {**os.environ, "LD_LIBRARY_PATH": str(self.libraries)}
        server = subprocess.Popen(
            [
                self.root / "usr/bin/brantel-storaged", "--config", self.root / "etc/brantel/storage.toml",
                "--data", place / "data", "--listen", f"unix:{place}/socket", "--http", "off", "--keep-free", "0",
                "--ready-fd", str(hand),
            ],
            pass_fds=(hand,), stderr=subprocess.PIPE,
        )
        os.close(hand)
        try:
            with os.fdopen(ready) as stream:
                self.assertEqual(stream.read(), f"unix:{place}/socket\n")
            answer = call(program, f"{place}/socket", env=environment)
        finally:
            server.send_signal(signal.SIGTERM)
            errors = server.communicate(timeout=60)[1]
        self.assertEqual(server.returncode, 0, errors)
        return answer

    def testTheClientOfTheReadmeIsBuiltByCMakeAndServed(self):
        folder = self.temporary / "byCMake"
        folder.mkdir()
        source = self.readme()
        (folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(Client LANGUAGES CXX)\nfind_package(ProtocolX 2.1 REQUIRED)\n"
            f"add_executable(Client {source})\ntarget_link_libraries(Client PRIVATE Brantel::ProtocolX)\n"
        )
        call(
            "cmake", "-G", "Ninja", "-S", folder, "-B", folder / "build", f"-DCMAKE_CXX_COMPILER={compiler}",
            f"-DCMAKE_PREFIX_PATH={self.root}/usr",
        )
        call("cmake", "--build", folder / "build")
        self.assertEqual(self.ask(folder / "build/Client"), "JPEG, the picture's bytes\n")

    def testTheClientOfTheReadmeIsBuiltByPkgConfigAndServed(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")}
        self.assertEqual(call("pkg-config", "--modversion", "protocolx", env=environment), f"{version}\n")
        flags = call("pkg-config", "--cflags", "--libs", "protocolx", env=environment).split()
        program = self.temporary / "byPkgConfig"
        call(compiler, "-std=c++20", self.readme(), *flags, "-o", program)
        self.assertEqual(self.ask(program), "JPEG, the picture's bytes\n")

    @unittest.skipUnless(os.geteuid() == 0, "SKIPPED: dpkg installs for root alone")
    def testDpkgInstallsThemAndLeavesTheRecordings(self):
        place = self.temporary / "system"
        for folder in ("var/lib/dpkg/updates", "var/lib/dpkg/info", "etc", "var/log"):
            (place / folder).mkdir(parents=True)
        for file in ("status", "available"):
            (place / "var/lib/dpkg" / file).touch()
        dpkg = ("dpkg", f"--root={place}", "--force-script-chrootless", "--force-depends", "--log=/dev/null")
        call(*dpkg, "--install", *packages.values())
        self.assertIn("brantel:", (place / "etc/passwd").read_text())
        self.assertTrue((place / "usr/bin/brantel-storaged").is_file())
        recording = place / "var/lib/brantel/FORMAT"
        recording.parent.mkdir(parents=True, exist_ok=True)
        recording.write_text("precious")
        call(*dpkg, "--purge", "brantel-storage")
        self.assertEqual(recording.read_text(), "precious")
        self.assertFalse((place / "usr/bin/brantel-storaged").exists())
        self.assertFalse((place / "etc/brantel/storage.toml").exists())


if __name__ == "__main__":
    folder, compiler = pathlib.Path(sys.argv.pop(1)), sys.argv.pop(1)
    found = {name: [*folder.glob(f"{name}_*.deb")] for name in names}
    if not all(found.values()) or not shutil.which("dpkg-deb"):
        print(f"SKIPPED: no packages in {folder}: ./run package makes them")
        sys.exit(skipped)
    packages = {name: paths[0] for name, paths in found.items()}
    unittest.main(verbosity=2)
