#!/usr/bin/python3
"""What the build's settings do to the packages: versions in apt's order, addresses, and what cpack refuses to pack."""

from __future__ import annotations

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["QELMO_BUILD"])
# Each is newer for apt than the one above it: the release, and the version of the application.
RISING = [("0-a", "0.1"), ("0.9", "1.0.0"), ("1.2.3", "1.0.0"), ("v1.2.4-rc.1", "1.0.0"), ("1.2.4-rc.2", "1.0.0"),
          ("1.2.4rc3", "1.0.0"), ("1.2.4", "1.0.0"), ("1.2.4", "1.0.1"), ("1.2.4", "1.10.0"), ("1.2.4+2", "1.0.0"),
          ("1.2.4.3", "1.0.0"), ("1.2.10", "1.0.0"), ("2026.11", "1.0.0")]
REFUSED = ["", "latest", "1 2", "1_2", "1:2", "1--2", "1.2-", "1.2\n3", "1/2", "\u0661"]


class PackageSettings(unittest.TestCase):
    def setUp(self) -> None:
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.build = self.root / "build"
        self.image = self.root / "merged.bin"
        self.image.write_bytes((BUILD / "sample/sample-firmware.bin").read_bytes())

    def run_in_root(self, *command: str) -> tuple[int, str]:
        """The status, and what was said with the line breaks of CMake's messages taken out."""
        done = subprocess.run(command, cwd=self.root, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=120)
        return done.returncode, " ".join(done.stdout.split())

    def configure(self, *settings: str) -> tuple[int, str]:
        release = {"IMAGE": str(self.image), "NAME": "Varnox", "VERSION": "1.2.3"}
        return self.run_in_root("cmake", "-G", "Ninja", "-S", str(SOURCE), "-B", str(self.build), "-DQELMO_TESTS=OFF",
                                f"-DQELMO_PACK_RELEASE={BUILD}/tools/pack-release",
                                *(f"-DQELMO_RELEASE_{name}={value}" for name, value in release.items()), *settings)

    def package_version(self, release: str, application: str, *, sample: str = "OFF") -> tuple[int, str]:
        script = self.root / "version.cmake"
        script.write_text(f'include("{SOURCE}/cmake/PackageVersion.cmake")\n'
                          'execute_process(COMMAND ${CMAKE_COMMAND} -E echo "${QELMO_PACKAGE_VERSION}")\n')
        return self.run_in_root("cmake", f"-DQELMO_CARRIED_VERSION={release}", f"-DPROJECT_VERSION={application}",
                                f"-DQELMO_CARRIES_SAMPLE={sample}", "-P", str(script))

    def test_each_release_and_each_application_is_newer_for_apt_and_the_sample_is_older_than_any(self) -> None:
        self.assertEqual(self.package_version("1.2.4", "1.0.0"), (0, "1.2.4+app1.0.0"))
        versions = [self.package_version("0.0.0-sample", "9.0.0", sample="ON")[1]]
        versions += [self.package_version(*pair)[1] for pair in RISING]
        for lower, higher in zip(versions, versions[1:]):
            with self.subTest(lower=lower, higher=higher):
                subprocess.run(["dpkg", "--compare-versions", f"{lower}-1", "lt", f"{higher}-1"], check=True)

    # fault: the release's version cannot be a Debian package's
    # seen: "QELMO_RELEASE_VERSION: no Debian package can have the version …"
    def test_a_version_that_no_package_can_have_is_refused(self) -> None:
        for version in REFUSED:
            with self.subTest(version):
                status, said = self.package_version(version, "1.0.0")
                self.assertEqual(status, 1)
                self.assertIn("QELMO_RELEASE_VERSION: no Debian package can have the version ", said)

    # fault: a release is configured while the packages' addresses are still the examples
    # seen: "set it before you give the packages away."
    def test_a_real_release_with_an_example_for_an_address_is_warned_of(self) -> None:
        addresses = {"HOMEPAGE": "https://a.invalid", "MAINTAINER": "A B <c@d.invalid>", "SUPPORT": "https://e.invalid"}
        settings = [f"-DQELMO_{name}={value}" for name, value in addresses.items()]
        warning = "set it before you give the packages away."
        status, said = self.configure(*settings)
        self.assertEqual((status, said.count(warning)), (0, 0), said)
        status, said = self.configure(*(f"-UQELMO_{name}" for name in addresses))
        self.assertEqual((status, said.count(warning)), (0, 3), said)
        for name in addresses:
            self.assertIn(f"QELMO_{name}: users cannot reach ", said)

    # fault: an address of the packages is none
    # seen: "QELMO_HOMEPAGE: not a web address: …", "QELMO_MAINTAINER: not of the form Name <mail address>: …"
    def test_an_address_that_is_none_is_refused(self) -> None:
        for setting, sentence in [
                ("QELMO_HOMEPAGE=qelmo", "QELMO_HOMEPAGE: not a web address: qelmo"),
                ("QELMO_SUPPORT=a@b.c", "QELMO_SUPPORT: not a web address: a@b.c"),
                ("QELMO_MAINTAINER=me", "QELMO_MAINTAINER: not of the form Name <mail address>: me")]:
            status, said = self.configure(f"-D{setting}")
            self.assertNotEqual(status, 0)
            self.assertIn(sentence, said)
            self.build.joinpath("CMakeCache.txt").unlink()

    def cpack(self) -> str:
        """What it said. Nothing is compiled here, so it fails always; for a good release only then."""
        status, said = self.run_in_root("cpack", "--config", f"{self.build}/CPackConfig.cmake")
        self.assertNotEqual(status, 0)
        self.assertEqual([*self.build.glob("packages/*.deb"), *self.build.glob("packages/*.gz")], [])
        return said

    # fault: cpack is run after a build that was forgotten or refused
    # seen: "The bundle holds another release (", "): build again,", "The bundle holds no release: build it first."
    def test_cpack_packs_no_other_release_than_the_settings_name(self) -> None:
        self.assertEqual(self.configure()[0], 0)
        self.assertIn("The bundle holds no release: build it first.", self.cpack())
        self.assertEqual(self.run_in_root("cmake", "--build", str(self.build), "--target", "bundle")[0], 0)
        self.assertRegex(self.cpack(), "cannot find.*QelmoFlasher")
        data = self.image.read_bytes()
        changed = data[:-1] + b"\0"
        for settings, image in [(["-DQELMO_RELEASE_VERSION=1.2.4"], data), (["-DQELMO_RELEASE_NAME=Other"], data),
                                ([], changed)]:
            with self.subTest(settings):
                self.image.write_bytes(image)
                self.assertEqual(self.configure(*settings)[0], 0)
                said = self.cpack()
                self.assertIn("The bundle holds another release (Varnox 1.2.3, SHA-256 ", said)
                self.assertIn("): build again,", said)


if __name__ == "__main__":
    unittest.main(verbosity=2)
