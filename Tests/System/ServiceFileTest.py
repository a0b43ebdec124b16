"""The files of the service: hardened, and in step with each other."""

import pathlib
import re
import shutil
import subprocess
import unittest

folder = pathlib.Path(__file__).resolve().parents[2] / "Packaging" / "systemd"
service = folder / "brantel-storaged.service"
exposureLimit = 1.5


def valuesOf(file, key):
    return re.findall(rf"^{key}=(.*)$", file.read_text(), re.MULTILINE)


class ServiceFileTest(unittest.TestCase):
    @unittest.skipUnless(shutil.which("systemd-analyze"), "SKIPPED: systemd-analyze is not here (package systemd)")
    def testTheServiceIsHardened(self):
        result = subprocess.run(
            ("systemd-analyze", "security", "--offline=true", "--no-pager", service), capture_output=True, text=True
        )
        found = re.search(r"Overall exposure level for \S+: ([0-9.]+)", result.stdout)
        self.assertIsNotNone(found, result.stdout + result.stderr)
        self.assertLessEqual(float(found.group(1)), exposureLimit, result.stdout)

    @unittest.skipUnless(shutil.which("systemd-analyze"), "SKIPPED: systemd-analyze is not here (package systemd)")
    def testNoSettingOfTheUnitsIsUnknown(self):
        for unit in (service, folder / "brantel-storaged.socket"):
            result = subprocess.run(("systemd-analyze", "verify", unit), capture_output=True, text=True)
            complaints = [
                line for line in result.stderr.splitlines()
                # The program is not installed where the tests run.
                if unit.name in line and "is not executable" not in line
            ]
            self.assertEqual(complaints, [])

    def testTheServerMayWriteWhereItsFilesAreAndNowhereElse(self):
        self.assertEqual(valuesOf(service, "ProtectSystem"), ["strict"])
        self.assertEqual(valuesOf(service, "ReadWritePaths"), ["/run/brantel"])
        self.assertEqual(valuesOf(service, "StateDirectory"), ["brantel"])

    def testTheServerSeesWhoItsClientsAre(self):
        self.assertEqual(valuesOf(service, "PrivateUsers"), [])

    def testTheUserIsTheSameEverywhere(self):
        user = valuesOf(service, "User")[0]
        self.assertEqual(valuesOf(folder / "brantel-storaged.socket", "SocketUser"), [user])
        self.assertRegex((folder / "sysusers.conf").read_text(), rf"(?m)^u {user} ")
        for line in (folder / "tmpfiles.conf").read_text().splitlines():
            self.assertRegex(line, rf"^d \S+ 07\d\d {user} {user} -$")


if __name__ == "__main__":
    unittest.main(verbosity=2)
