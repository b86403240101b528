#!/usr/bin/python3
"""The bill of materials: that of this build, and those of other builds."""

from __future__ import annotations

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
WRITE_SBOM = SOURCE / "tools" / "write-sbom"
BUILT = Path(os.environ["QELMO_BUILD"]) / "QELMO-Varnox-Flasher.cdx.json"
BUNDLE = Path(os.environ["QELMO_BUNDLE"]) / "Contents"
TYPES = {"application", "firmware", "framework", "library", "operating-system"}
RELATIONSHIPS = {"dynamically linked", "header only", "loaded by name", "run by"}


def values(component: dict, name: str) -> list[str]:
    return [entry["value"] for entry in component["properties"] if entry["name"] == name]


class ThisBuild(unittest.TestCase):
    def setUp(self) -> None:
        self.bill = json.loads(BUILT.read_text())
        self.release, *dependencies = self.bill["components"]
        self.components = {component["bom-ref"]: component for component in dependencies}

    def test_has_what_cyclonedx_1_5_demands(self) -> None:
        self.assertEqual((self.bill["bomFormat"], self.bill["specVersion"], self.bill["version"]),
                         ("CycloneDX", "1.5", 1))
        self.assertRegex(self.bill["serialNumber"], "^urn:uuid:[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")
        self.assertLessEqual(set(self.bill), {"$schema", "bomFormat", "specVersion", "serialNumber", "version",
                                              "metadata", "components", "dependencies"})
        application = self.bill["metadata"]["component"]
        for component in [application, self.release, *self.components.values()]:
            self.assertIn(component["type"], TYPES)
            self.assertTrue(component["name"])
        self.assertEqual(len(self.components) + 1, len(self.bill["components"]))
        references = {"application", "release", *self.components}
        for entry in self.bill["dependencies"]:
            self.assertLessEqual({entry["ref"], *entry["dependsOn"]}, references)
            self.assertEqual(len(entry["dependsOn"]), len(set(entry["dependsOn"])))

    def test_names_the_application_with_its_version(self) -> None:
        application = self.bill["metadata"]["component"]
        version = re.search(r"project\(\w+ VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]
        self.assertEqual((application["name"], application["version"]), ("QELMO Varnox Flasher", version))

    def test_names_the_release_of_the_bundle_with_its_version_and_digest(self) -> None:
        manifest = json.loads((BUNDLE / "Resources/qelmo-varnox-flash-manifest.json").read_text())
        digest = [{"alg": "SHA-256", "content": manifest["binary"]["sha256"]}]
        self.assertEqual((self.release["type"], self.release["name"], self.release["version"], self.release["hashes"]),
                         ("firmware", manifest["name"], manifest["version"], digest))

    def test_tells_of_each_dependency_its_licence_and_how_it_is_used(self) -> None:
        for key, component in self.components.items():
            with self.subTest(key):
                [licence] = component["licenses"]
                self.assertTrue(licence.get("expression") or licence["license"])
                [relationship] = values(component, "qelmo:relationship")
                self.assertIn(relationship, RELATIONSHIPS)
                if relationship in ("dynamically linked", "header only"):
                    self.assertRegex(component["version"], r"^\d+\.\d+")
                    self.assertTrue(component["purl"].endswith("@" + component["version"]))
                else:
                    self.assertTrue(values(component, "qelmo:note"))

    def test_knows_every_library_that_the_built_programs_link(self) -> None:
        known = {name for component in self.components.values() for name in values(component, "qelmo:library")}
        programs = [BUNDLE / "MacOS" / "QelmoFlasher", *BUNDLE.glob("Frameworks/libQelmoWindow.so")]
        for program in programs:
            listed = subprocess.run(["readelf", "-d", str(program)], check=True, capture_output=True, text=True)
            needed = re.findall(r"\(NEEDED\).*\[(.*?)\.so", listed.stdout)
            self.assertTrue(needed)
            if "-fsanitize=" not in (BUNDLE.parents[1] / "build.ninja").read_text():
                self.assertLessEqual(set(needed), known, program.name)

    def test_agrees_with_the_page_about_every_licence(self) -> None:
        page = (SOURCE / "docs" / "dependencies.md").read_text()
        for component in self.components.values():
            [licence] = component["licenses"]
            words = licence.get("expression") or licence["license"]["id"]
            rows = [line for line in page.splitlines() if line.startswith(f"| {component['name']} |")]
            self.assertEqual([words in row for row in rows], [True], f"{component['name']}: {words}")


class WriteSbom(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.output = self.folder / "bill.json"
        self.release = ["--release-name=Varnox", "--release-version=1.2.4", f"--release-image={__file__}"]

    def run_it(self, *arguments: str) -> subprocess.CompletedProcess[str]:
        return subprocess.run([sys.executable, "-B", str(WRITE_SBOM), "--version", "1.2.3", str(self.output),
                               *self.release, *arguments], capture_output=True, text=True, timeout=60)

    def written(self, *arguments: str) -> bytes:
        done = self.run_it(*arguments)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return self.output.read_bytes()

    def test_writes_the_same_bytes_for_the_same_input_in_any_order_and_others_for_another(self) -> None:
        first = self.written("qt=6.4.2", "nlohmann-json=3.11.2", "--time", "1700000000")
        self.assertEqual(self.written("--time", "1700000000", "nlohmann-json=3.11.2", "qt=6.4.2"), first)
        other = self.written("qt=6.4.3", "nlohmann-json=3.11.2", "--time", "1700000000")
        numbers = {json.loads(text)["serialNumber"] for text in (first, other)}
        self.assertEqual(len(numbers), 2)

    def test_carries_the_given_time_and_none_without_one(self) -> None:
        bill = json.loads(self.written("--time", "1700000000"))
        self.assertEqual(bill["metadata"]["timestamp"], "2023-11-14T22:13:20Z")
        self.assertNotIn("timestamp", json.loads(self.written())["metadata"])

    def test_refuses_what_it_does_not_know_and_writes_nothing(self) -> None:
        for argument in ["unheard-of=1", "qt", "esptool=4.7.0"]:
            done = self.run_it(argument)
            self.assertEqual(done.returncode, 2)
            self.assertIn(f"not a component and its version, or given twice: {argument}\n", done.stderr)
        self.assertEqual(self.run_it("--time", "today").returncode, 2)
        self.assertFalse(self.output.exists())

    def test_names_the_image_that_is_not_there(self) -> None:
        done = self.run_it("--release-image=/nowhere.bin")
        self.assertEqual((done.returncode, done.stderr), (1, "write-sbom: /nowhere.bin: No such file or directory\n"))
        self.assertFalse(self.output.exists())

    def test_names_the_output_that_cannot_be_written(self) -> None:
        self.output.mkdir()
        done = self.run_it()
        self.assertEqual((done.returncode, done.stderr),
                         (1, f"write-sbom: {self.output}: Is a directory\n"))
        self.assertEqual(list(self.folder.iterdir()), [self.output])


if __name__ == "__main__":
    unittest.main()
