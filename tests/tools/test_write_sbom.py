#!/usr/bin/python3
"""The software bill of materials of this build."""

from __future__ import annotations

import json
import re
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import BUILD, BUNDLE, LIBRARIES, MANIFEST, PROGRAM, ROOT  # noqa: E402
from support.child import run  # noqa: E402


class ThisBuild(unittest.TestCase):
    def setUp(self) -> None:
        self.bill = json.loads((BUILD / "QELMO-Varnox-Flasher.cdx.json").read_text())
        self.release, *self.components = self.bill["components"]

    def test_names_the_application_and_the_release_of_the_bundle_with_versions_and_digest(self) -> None:
        application = self.bill["metadata"]["component"]
        version = re.search(r"project\(\w+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
        self.assertEqual((application["name"], application["version"]), ("QELMO Varnox Flasher", version))
        manifest = json.loads((BUNDLE / MANIFEST).read_text())
        digest = [{"alg": "SHA-256", "content": manifest["binary"]["sha256"]}]
        self.assertEqual((self.release["type"], self.release["name"], self.release["version"], self.release["hashes"]),
                         ("firmware", manifest["name"], manifest["version"], digest))

    def test_lists_each_dependency_with_the_licence_on_the_page(self) -> None:
        page = (ROOT / "docs/dependencies.md").read_text()
        for component in self.components:
            [licence] = component["licenses"]
            words = licence.get("expression") or licence["license"].get("id") or licence["license"]["name"]
            self.assertRegex(page, rf"(?m)^\| {re.escape(component['name'])} \|.*{re.escape(words)}")

    def test_knows_every_library_that_the_built_programs_link(self) -> None:
        if "-fsanitize=" in (BUILD / "build.ninja").read_text():
            self.skipTest("a build with sanitizers links their libraries too")
        known = {entry["value"] for component in self.components for entry in component["properties"]
                 if entry["name"] == "qelmo:library"}
        for program in [BUNDLE / PROGRAM, *BUNDLE.glob(f"{LIBRARIES}/libQelmoWindow.so")]:
            needed = re.findall(r"\(NEEDED\).*\[(.*?)\.so", run("readelf", "-d", program).stdout)
            self.assertTrue(needed)
            self.assertLessEqual(set(needed), known, program.name)


if __name__ == "__main__":
    unittest.main()
