#!/usr/bin/python3
"""Builds that embed a release of their own: configured anew, with as little built as a release needs."""

from __future__ import annotations

import hashlib
import json
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
PACK = Path(os.environ["QELMO_BUILD"]) / "tools" / "pack-release"
INCOMPLETE = "pack-release: The embedded file is not a complete QELMO firmware image."

sys.path.insert(0, str(SOURCE / "tools"))
from esp_image import small_image as image  # noqa: E402


class EmbeddedRelease(unittest.TestCase):
    def setUp(self) -> None:
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.build = self.root / "build"
        self.image = self.root / "merged.bin"

    def configure(self, *settings: str) -> subprocess.CompletedProcess[str]:
        # From the folder of the image, so that a relative path must be one from there.
        return subprocess.run(
            ["cmake", "-G", "Ninja", "-S", str(SOURCE), "-B", str(self.build), "-DQELMO_WINDOW=OFF",
             "-DQELMO_TESTS=OFF", f"-DQELMO_PACK_RELEASE={PACK}", *settings],
            cwd=self.root, capture_output=True, text=True, timeout=120)

    def configure_release(self, version: str = "1.2.3", *settings: str) -> None:
        done = self.configure("-DQELMO_RELEASE_IMAGE=merged.bin", f"-DQELMO_RELEASE_VERSION={version}",
                              "-DQELMO_RELEASE_NAME=Varnox", *settings)
        self.assertEqual(done.returncode, 0, done.stderr)

    def make_bundle(self) -> subprocess.CompletedProcess[str]:
        return subprocess.run(["cmake", "--build", str(self.build), "--target", "bundle"], capture_output=True,
                              text=True, timeout=120)

    def assert_embedded(self, version: str, data: bytes) -> dict:
        done = self.make_bundle()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        resources = self.build / "QELMO Varnox Flasher.app" / "Contents" / "Resources"
        manifest = json.loads((resources / "qelmo-varnox-flash-manifest.json").read_text())
        digest = hashlib.sha256(data).hexdigest()
        self.assertEqual((manifest["name"], manifest["version"], manifest["binary"]["sha256"]),
                         ("Varnox", version, digest))
        images = list(resources.glob("*.bin"))
        self.assertEqual([path.name for path in images], [manifest["binary"]["path"]])
        self.assertEqual(images[0].read_bytes(), data)
        return manifest

    def test_follows_the_image_and_the_version_and_ships_no_image_but_the_last(self) -> None:
        for version, content in [("1.2.3", b"one"), ("1.2.3", b"two"), ("1.2.4", b"two")]:
            with self.subTest(version=version, content=content):
                self.image.write_bytes(image(content))
                self.configure_release(version)
                self.assert_embedded(version, image(content))
        # Without a new configuration, as when only the firmware was built again.
        self.image.write_bytes(image(b"three"))
        self.assert_embedded("1.2.4", image(b"three"))

    def test_takes_the_place_of_the_sample(self) -> None:
        self.assertEqual(self.configure().returncode, 0)
        self.assertEqual(self.make_bundle().returncode, 0)
        self.image.write_bytes(image(b"real"))
        self.configure_release()
        self.assert_embedded("1.2.3", image(b"real"))

    def test_hands_further_options_to_pack_release_as_they_stand(self) -> None:
        self.image.write_bytes(image(b"real"))
        self.configure_release("1.2.3", "-DQELMO_RELEASE_OPTIONS=--baud;460800;--no-erase;--confirmation;FLASH $1 & 2")
        flash = self.assert_embedded("1.2.3", image(b"real"))["flash"]
        self.assertEqual((flash["baud"], flash["eraseAllInternalFlash"], flash["confirmationText"]),
                         (460800, False, "FLASH $1 & 2"))

    # fault: the release to be built in is no image
    # seen: "pack-release: The embedded file is not a complete QELMO firmware image."
    def test_stops_the_build_with_pack_releases_sentence_for_a_wrong_image(self) -> None:
        self.image.write_bytes(b"not an image")
        self.configure_release()
        done = self.make_bundle()
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(INCOMPLETE, (done.stdout + done.stderr).splitlines())

    # fault: a setting of the release is missing
    # seen: "A release needs its image, its version and its name: QELMO_RELEASE_VERSION missing."
    def test_needs_image_version_and_name_together(self) -> None:
        self.image.write_bytes(image(b""))
        done = self.configure("-DQELMO_RELEASE_IMAGE=merged.bin", "-DQELMO_RELEASE_NAME=Varnox")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("A release needs its image, its version and its name: QELMO_RELEASE_VERSION missing.",
                      " ".join(done.stderr.split()))

    # fault: the release to be built in is missing
    # seen: "QELMO_RELEASE_IMAGE: there is no file …"
    def test_names_the_image_that_is_not_there_before_anything_is_built(self) -> None:
        done = self.configure("-DQELMO_RELEASE_IMAGE=merged.bin", "-DQELMO_RELEASE_VERSION=1",
                              "-DQELMO_RELEASE_NAME=Varnox")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(f"QELMO_RELEASE_IMAGE: there is no file {self.image}", " ".join(done.stderr.split()))


if __name__ == "__main__":
    unittest.main()
