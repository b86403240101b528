#!/usr/bin/python3
"""Builds with releases of their own, newly configured: what the settings do to the bundle and to the packages."""

from __future__ import annotations

import hashlib
import json
import sys
import tempfile
import unittest
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / folder) for folder in ("tests", "tools")]
from esp_image import small_image  # noqa: E402
from support.built import BUILD, MANIFEST, ROOT  # noqa: E402
from support.child import run  # noqa: E402

# For apt, each is newer than the one before it: the release, and the version of the application.
RISING = [("0-a", "0.1"), ("1.2.3", "1.0.0"), ("v1.2.4-rc.1", "1.0.0"), ("1.2.4rc3", "1.0.0"), ("1.2.4", "1.0.0"),
          ("1.2.4", "1.0.1"), ("1.2.4", "1.10.0"), ("1.2.4+2", "1.0.0"), ("1.2.10", "1.0.0")]
REFUSED = ["", "latest", "1 2", "1_2", "1--2", "1.2-", "1.2\n3"]
RELEASE = ("-DQELMO_RELEASE_IMAGE=merged.bin", "-DQELMO_RELEASE_VERSION=1.2.3", "-DQELMO_RELEASE_NAME=Varnox")
BUNDLE_ONLY = "-DQELMO_WINDOW=OFF"


class FreshBuild(unittest.TestCase):
    def setUp(self) -> None:
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.build = self.root / "build"
        self.image = self.root / "merged.bin"
        self.image.write_bytes(small_image(b"one"))

    def said_by(self, *command: object) -> str:
        """Runs in the folder of the image, where relative paths begin. Joins the lines of CMake's messages."""
        done = run(*command, cwd=self.root, timeout=120)
        return " ".join(f"status {done.returncode}: {done.stdout}{done.stderr}".split())

    def configure(self, *settings: str) -> str:
        return self.said_by("cmake", "-G", "Ninja", "-S", ROOT, "-B", self.build, "-DQELMO_TESTS=OFF",
                            f"-DQELMO_PACK_RELEASE={BUILD}/tools/pack-release", *settings)

    def make_bundle(self) -> str:
        return self.said_by("cmake", "--build", self.build, "--target", "bundle")


class Bundle(FreshBuild):
    def assert_embedded(self, version: str, **flash: object) -> None:
        self.assertIn("status 0", self.make_bundle())
        [manifest] = self.build.glob(f"*.app/{MANIFEST}")
        [image] = manifest.parent.glob("*.bin")
        written, expected = json.loads(manifest.read_text()), self.image.read_bytes()
        self.assertEqual((written["name"], written["version"], written["binary"]["path"], written["binary"]["sha256"]),
                         ("Varnox", version, image.name, hashlib.sha256(expected).hexdigest()))
        self.assertLessEqual(flash.items(), written["flash"].items())
        self.assertEqual(image.read_bytes(), expected)

    # fault: the file to be embedded is not an image
    # seen: "pack-release: The embedded file is not a complete QELMO firmware image."
    def test_follows_the_image_and_the_version_and_ships_no_image_but_the_last(self) -> None:
        self.assertIn("status 0", self.configure(BUNDLE_ONLY))
        self.assertIn("status 0", self.make_bundle(), "the sample")
        self.configure(*RELEASE)
        self.assert_embedded("1.2.3")
        # Without configuring again, as when only the firmware was rebuilt.
        self.image.write_bytes(small_image(b"two"))
        self.assert_embedded("1.2.3")
        self.configure("-DQELMO_RELEASE_VERSION=1.2.4",
                       "-DQELMO_RELEASE_OPTIONS=--baud;460800;--no-erase;--confirmation;FLASH $1 & 2")
        self.assert_embedded("1.2.4", baud=460800, eraseAllInternalFlash=False, confirmationText="FLASH $1 & 2")
        self.image.write_bytes(b"not an image")
        self.assertRegex(self.make_bundle(),
                         "status 1: .*pack-release: The embedded file is not a complete QELMO firmware image.")

    # fault: a setting of the release, or its image, is missing
    # seen: "A release needs its image, its version and its name: QELMO_RELEASE_VERSION missing."
    def test_needs_an_image_that_is_there_a_version_and_a_name_before_anything_is_built(self) -> None:
        image, version, name = RELEASE
        self.assertRegex(self.configure(BUNDLE_ONLY, image, name), "status 1: .*A release needs its image, its version "
                         "and its name: QELMO_RELEASE_VERSION missing.")
        self.image.unlink()
        self.assertRegex(self.configure(version), f"status 1: .*QELMO_RELEASE_IMAGE: there is no file {self.image}")


class Packages(FreshBuild):
    def package_version(self, release: str, application: str, sample: str = "OFF") -> str:
        script = self.root / "version.cmake"
        script.write_text(f'include("{ROOT}/cmake/PackageVersion.cmake")\n'
                          'execute_process(COMMAND ${CMAKE_COMMAND} -E echo "${QELMO_PACKAGE_VERSION}")\n')
        return self.said_by("cmake", f"-DQELMO_CARRIED_VERSION={release}", f"-DPROJECT_VERSION={application}",
                            f"-DQELMO_CARRIES_SAMPLE={sample}", "-P", script)

    # fault: the release's version is not possible for a Debian package
    # seen: "QELMO_RELEASE_VERSION: no Debian package can have the version …"
    def test_each_release_and_each_application_is_newer_for_apt_and_the_sample_is_older_than_any(self) -> None:
        versions = [self.package_version(*each).removeprefix("status 0: ")
                    for each in (("0.0.0-sample", "9.0.0", "ON"), *RISING)]
        for lower, higher in zip(versions, versions[1:]):
            compared = run("dpkg", "--compare-versions", f"{lower}-1", "lt", f"{higher}-1")
            self.assertEqual(compared.returncode, 0, f"{lower} < {higher}")
        for version in REFUSED:
            self.assertRegex(self.package_version(version, "1.0.0"),
                             "status 1: .*QELMO_RELEASE_VERSION: no Debian package can have the version ")

    def cpack(self) -> str:
        """The output of cpack. It always fails because nothing is compiled here; a good release has no other fault."""
        said = self.said_by("cpack", "--config", f"{self.build}/CPackConfig.cmake")
        self.assertEqual([*self.build.glob("packages/*.deb"), *self.build.glob("packages/*.gz")], [])
        return said

    # fault: cpack is run although the build was forgotten or refused
    # seen: "The bundle holds another release …: build again,", "The bundle holds no release: build it first."
    def test_cpack_packs_no_other_release_than_the_settings_name(self) -> None:
        said = self.configure(*RELEASE)
        self.assertEqual(said.count("set it before you distribute the packages."), 3, "the addresses are examples")
        self.assertIn("The bundle holds no release: build it first.", self.cpack())
        self.make_bundle()
        self.assertRegex(self.cpack(), "cannot find.*QelmoFlasher")
        for image, version, name in ((b"one", "2", "Varnox"), (b"one", "1.2.3", "Other"), (b"2", "1.2.3", "Varnox")):
            self.image.write_bytes(small_image(image))
            self.configure(f"-DQELMO_RELEASE_VERSION={version}", f"-DQELMO_RELEASE_NAME={name}")
            self.assertRegex(self.cpack(), "The bundle holds another release .Varnox 1.2.3, SHA-256 .*: build again,")


if __name__ == "__main__":
    unittest.main()
